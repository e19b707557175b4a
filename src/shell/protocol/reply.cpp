#include "shell/protocol/reply.h"

#include <cstdarg>
#include <cstdio>
#include <cstdlib>

#include "shell/protocol/settings.h"

std::mutex output_mutex;

namespace {

// Replies of the line being run; only the main thread touches it.
std::string reply_buffer;

constexpr size_t reply_limit = 65536;
constexpr size_t error_limit = 256;

bool dropped_as_comment(const char* text) {
    return text[0] == '#' && !front_end_mode && !comment_pass;
}

std::string format_limited(size_t limit, const char* format, va_list args) {
    std::string text(limit, '\0');
    const int length = vsnprintf(text.data(), limit, format, args);
    text.resize(length < 0 ? 0 : std::min(static_cast<size_t>(length), limit - 1));
    return text;
}

[[noreturn]] void throw_error_text(const char* format, ...) __attribute__((format(printf, 1, 2)));
[[noreturn]] void throw_error_text(const char* format, ...) {
    va_list args;
    va_start(args, format);
    std::string text = format_limited(error_limit, format, args);
    va_end(args);
    throw std::runtime_error(text);
}

}  // namespace

void reply(const char* format, ...) {
    if (dropped_as_comment(format)) return;
    va_list args;
    va_start(args, format);
    reply_buffer += format_limited(reply_limit, format, args);
    va_end(args);
}

void reply_text(const std::string& text) {
    if (dropped_as_comment(text.c_str())) return;
    reply_buffer.append(text, 0, std::min(text.size(), reply_limit - 1));
}

void solver_print(const char* format, ...) {
    if (format[0] == '#' && !front_end_mode) return;
    std::lock_guard lock(output_mutex);
    va_list args;
    va_start(args, format);
    vfprintf(stdout, format, args);
    va_end(args);
    fflush(stdout);
}

size_t pending_reply_bytes() { return reply_buffer.size(); }

void flush_replies() {
    if (reply_buffer.empty()) return;
    std::lock_guard lock(output_mutex);
    size_t start = 0;
    while (start < reply_buffer.size()) {
        size_t end = reply_buffer.find('\n', start);
        if (end == std::string::npos) end = reply_buffer.size();
        if (end > start) {
            // Client text may sit in a reply, so lines are written as they are.
            if (tagged_replies && reply_buffer[start] != '#') fputc(167, stdout);
            fwrite(reply_buffer.data() + start, 1, end - start, stdout);
            fputc('\n', stdout);
        }
        start = end + 1;
    }
    reply_buffer.clear();
    comment_pass = false;
}

void throw_argument_error() {
    throw_error_text("ERROR: %s incorrect or missing argument\n", command_word.c_str());
}

void throw_command_error(const std::string& reason) {
    throw_error_text("ERROR: %s %s\n", current_command.c_str(), reason.c_str());
}

void fail_line(const char* format, ...) {
    va_list args;
    va_start(args, format);
    vprintf(format, args);
    va_end(args);
    fflush(stdout);
    std::_Exit(1);
}

void abort_out_of_memory() {
    fputs("out of memory\n", stdout);
    fflush(stdout);
    std::abort();
}

void fail(const char* text) {
    if (text && *text) {
        printf("fail (%s)\n", text);
    } else {
        printf("fail\n");
    }
    fflush(stdout);
    std::_Exit(1);
}
