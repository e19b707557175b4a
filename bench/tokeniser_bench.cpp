// Prints the time the tokeniser takes over the largest ordinary line (a
// set_range of 1328 tokens) and over a 1 MB line, median of many runs.
#include <algorithm>
#include <chrono>
#include <cstdio>
#include <string>
#include <vector>

#include "shell/protocol/tokens.h"

namespace {

double median_microseconds(const std::string& line, int runs, size_t expected_tokens) {
    std::vector<double> times;
    times.reserve(runs);
    for (int run = 0; run < runs; ++run) {
        const auto start = std::chrono::steady_clock::now();
        const Tokens tokens = tokenise_line(line);
        const auto stop = std::chrono::steady_clock::now();
        if (tokens.size() != expected_tokens) {
            std::fprintf(stderr, "unexpected token count %zu\n", tokens.size());
            std::exit(1);
        }
        times.push_back(std::chrono::duration<double, std::micro>(stop - start).count());
    }
    std::nth_element(times.begin(), times.begin() + runs / 2, times.end());
    return times[runs / 2];
}

}  // namespace

int main() {
    std::string range_line = "set_range OOP";
    for (int i = 0; i < 1326; ++i) range_line += i % 3 ? " 0.25" : " 1";
    std::string big_line = "echo \"";
    while (big_line.size() < (1 << 20)) big_line += "abcdefghij ";
    big_line += "\" x";
    std::string big_tokens_line;
    while (big_tokens_line.size() < (1 << 20)) big_tokens_line += "0.123 ";

    std::printf("set_range line (%zu bytes, 1328 tokens): %.1f us per line (median of 2001)\n", range_line.size(),
                median_microseconds(range_line, 2001, 1328));
    std::printf("1 MB line, one quoted token (%zu bytes): %.1f us per line (median of 201)\n", big_line.size(),
                median_microseconds(big_line, 201, 3));
    const size_t many = tokenise_line(big_tokens_line).size();
    std::printf("1 MB line, %zu short tokens (%zu bytes): %.1f us per line (median of 201)\n", many,
                big_tokens_line.size(), median_microseconds(big_tokens_line, 201, many));
    return 0;
}
