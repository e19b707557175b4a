#include "shell/line_reader.h"

#include <algorithm>
#include <cstdio>

#include "shell/protocol/reply.h"

LineEnd read_line(std::istream& in, std::string& line) {
    line.clear();
    std::streambuf& input = *in.rdbuf();
    for (;;) {
        const int byte = input.sbumpc();
        if (byte == std::char_traits<char>::eof()) {
            in.setstate(std::ios::eofbit);
            return LineEnd::end_of_input;
        }
        if (byte == '\n') return LineEnd::newline;
        if (line.size() == max_line_bytes) {
            // Give the memory back: such a line may never come again.
            std::string().swap(line);
            return LineEnd::too_long;
        }
        // Grown by hand, so that the capacity never passes the bound.
        if (line.size() == line.capacity()) line.reserve(std::min(2 * line.size() + 64, max_line_bytes));
        line.push_back(static_cast<char>(byte));
    }
}

bool skip_rest_of_line(std::istream& in, std::streamsize limit) {
    in.ignore(limit, '\n');
    return in.eof() || in.gcount() < limit;
}

void refuse_long_line() {
    reply("%s", line_too_long_reply);
    flush_replies();
    fflush(stdout);
}
