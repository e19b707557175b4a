#include "shell/protocol/tokens.h"

#include <cmath>
#include <stdexcept>

Tokens tokenise_line(std::string_view line) {
    // Works span by span rather than byte by byte, so a long line costs one
    // pass of searches and one copy per token.
    Tokens tokens;
    std::string current;
    auto finish_token = [&] {
        if (!current.empty()) tokens.push_back(std::move(current));
        current.clear();
    };
    bool in_quotes = false;
    size_t at = 0;
    while (at < line.size()) {
        const size_t stop = in_quotes ? line.find('"', at) : line.find_first_of(" \"", at);
        const size_t span_end = stop == std::string_view::npos ? line.size() : stop;
        current.append(line.data() + at, span_end - at);
        if (span_end == line.size()) break;
        if (in_quotes || line[span_end] == ' ') {
            finish_token();
            in_quotes = false;
        } else {
            in_quotes = true;
        }
        at = span_end + 1;
    }
    finish_token();
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

double parse_double(const std::string& text) {
    return convert_or_invalid(text, [](const std::string& t) { return std::stod(t); });
}

double parse_finite_double(const std::string& text) {
    const double value = parse_double(text);
    if (!std::isfinite(value)) throw std::invalid_argument("number not finite");
    return value;
}
