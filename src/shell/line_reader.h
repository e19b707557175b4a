// Reading command lines, from standard input or a script, with a bound on
// their length: a client that sends no newline must not fill the memory.
#pragma once

#include <cstddef>
#include <istream>
#include <string>

// The longest line that is run: a thousand times the longest real command
// (set_range, some 3 KB). A longer one is refused with line_too_long_reply
// and skipped to its newline.
constexpr size_t max_line_bytes = size_t(1) << 20;

// A script that goes on this long after a refused line without a newline is
// no text of commands (say /dev/zero), and is read no further.
constexpr std::streamsize max_script_skip_bytes = std::streamsize(64) << 20;

constexpr const char* line_too_long_reply = "ERROR: line too long\n";

enum class LineEnd {
    newline,       // `line` holds the line, without its newline
    end_of_input,  // the input ended; `line` holds what followed the last newline
    too_long,      // more than max_line_bytes came without a newline; `line` is empty
};

// Reads up to the next newline, holding no more than max_line_bytes.
LineEnd read_line(std::istream& in, std::string& line);

// Discards input through the next newline, at most `limit` bytes. False when
// the limit was reached first.
bool skip_rest_of_line(std::istream& in, std::streamsize limit);

// Answers a refused line at once, so that a client gets its reply even
// while the rest of the line is still to come.
void refuse_long_line();
