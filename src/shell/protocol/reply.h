// Replies and refusals: the forms in which every command answers the client.
#pragma once

#include <mutex>
#include <stdexcept>
#include <string>
#include <vector>

using Tokens = std::vector<std::string>;

// Guards standard output between the main thread's reply flushes and the
// solver thread's progress lines.
extern std::mutex output_mutex;

// Buffered, printf-style reply of the command being run (main thread only).
void reply(const char* format, ...) __attribute__((format(printf, 1, 2)));
// Appends text verbatim: for client text, which is never a format.
void reply_text(const std::string& text);
// Unbuffered reply for the solver thread; takes output_mutex.
void solver_print(const char* format, ...) __attribute__((format(printf, 1, 2)));
// Writes out what the current line replied.
void flush_replies();
// Bytes of replies not yet written out.
size_t pending_reply_bytes();

// A handler refuses by throwing one of these; the message is the finished reply.
[[noreturn]] void throw_argument_error();
[[noreturn]] void throw_command_error(const std::string& reason);

// Fatal internal failure: prints "fail (text)" and ends the process with status 1.
[[noreturn]] void fail(const char* text);
// Fatal failure with a line of its own, such as "Commit %lld bytes fail
// (errno %d)": prints the line and ends the process with status 1.
[[noreturn]] void fail_line(const char* format, ...) __attribute__((format(printf, 1, 2)));
// Memory ran out where there is no one to refuse to (mid-walk, mid-load):
// prints "out of memory" and aborts.
[[noreturn]] void abort_out_of_memory();
