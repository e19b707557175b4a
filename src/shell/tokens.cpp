#include "shell/tokens.h"

#include <cmath>
#include <stdexcept>

Tokens tokenise_line(std::string_view line) {
    Tokens tokens;
    std::string current;
    bool in_quotes = false;
    for (size_t i = 0; i <= line.size(); ++i) {
        const bool at_end = i == line.size();
        const char c = at_end ? '\0' : line[i];
        if (at_end || (c == '"' && in_quotes) || (c == ' ' && !in_quotes)) {
            if (!current.empty()) {
                tokens.push_back(std::move(current));
                current.clear();
            }
            in_quotes = false;
        } else if (c == '"') {
            in_quotes = true;
        } else {
            current.push_back(c);
        }
    }
    return tokens;
}

std::string join_tokens(const Tokens& tokens, size_t first, size_t last) {
    if (last > tokens.size()) last = tokens.size();
    std::string text;
    for (size_t i = first; i < last; ++i) {
        if (i > first) text.push_back(' ');
        text += tokens[i];
    }
    return text;
}

namespace {

// Range errors are answered like any other bad number: the process goes on.
template <typename Convert>
auto convert_or_invalid(const std::string& text, Convert convert) {
    try {
        return convert(text);
    } catch (const std::out_of_range&) {
        throw std::invalid_argument("number out of range");
    }
}

}  // namespace

int parse_int(const std::string& text) {
    return convert_or_invalid(text, [](const std::string& t) { return std::stoi(t, nullptr, 10); });
}

long long parse_int64(const std::string& text) {
    return convert_or_invalid(text, [](const std::string& t) { return std::stoll(t, nullptr, 10); });
}

double parse_double(const std::string& text) {
    return convert_or_invalid(text, [](const std::string& t) { return std::stod(t); });
}

double parse_finite_double(const std::string& text) {
    const double value = parse_double(text);
    if (!std::isfinite(value)) throw std::invalid_argument("number not finite");
    return value;
}
