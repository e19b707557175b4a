#include "shell/shell_commands.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <fstream>
#include <thread>

#include "shell/commands.h"
#include "shell/line_reader.h"
#include "shell/protocol/settings.h"
#include "shell/protocol/tokens.h"
#include "solver/solver_driver.h"

namespace {

int console_output_fd = -1;

// Scripts that load scripts run inside one another on the stack; a script
// that loads itself must end in a refusal, not a stack overflow.
constexpr int max_script_depth = 64;
int script_depth = 0;

struct ScriptLevel {
    ScriptLevel() { ++script_depth; }
    ~ScriptLevel() { --script_depth; }
    ScriptLevel(const ScriptLevel&) = delete;
    ScriptLevel& operator=(const ScriptLevel&) = delete;
};

// repeat writes its copies out in parts of about this size.
constexpr size_t repeat_flush_bytes = size_t(1) << 20;

void sleep_milliseconds(long long milliseconds) {
    if (milliseconds > 0) std::this_thread::sleep_for(std::chrono::milliseconds(milliseconds));
}

// Points standard output at a file. Done on the descriptor, so a failure
// leaves the current output in place.
void redirect_output(const std::string& path, int mode_flags) {
    const int fd = open(path.c_str(), O_WRONLY | O_CREAT | mode_flags, 0644);
    if (fd < 0) throw_command_error("can't open file");
    fflush(stdout);
    dup2(fd, STDOUT_FILENO);
    close(fd);
}

void reply_ok(const Tokens& tokens) { reply("%s ok!\n", tokens[0].c_str()); }

}  // namespace

void remember_console_output() {
    if (console_output_fd < 0) console_output_fd = dup(STDOUT_FILENO);
}

bool is_existing_file(const std::string& path) {
    struct stat info {};
    return stat(path.c_str(), &info) == 0 && !S_ISDIR(info.st_mode);
}

void cmd_help(const Tokens&) {
    std::vector<std::string> names;
    for (const auto& entry : command_table())
        if (!entry.alias_of) names.push_back(entry.name);
    std::sort(names.begin(), names.end());
    for (const auto& name : names) reply("%s\n", name.c_str());
    reply("END\n");
}

void cmd_load_script(const Tokens& tokens) {
    const std::string path = tokens[1];
    if (verbosity > 0) reply("[load_script %s]\n", path.c_str());
    // A directory opens as a stream that reads nothing.
    if (!is_existing_file(path)) throw_command_error("can't open file");
    if (script_depth >= max_script_depth) throw_command_error("nested too deeply");
    std::ifstream script(path);
    if (!script.is_open()) throw_command_error("can't open file");
    const ScriptLevel level;
    std::string line;
    for (;;) {
        const LineEnd end = read_line(script, line);
        if (end == LineEnd::too_long) {
            refuse_long_line();
            if (!skip_rest_of_line(script, max_script_skip_bytes)) return;
            continue;
        }
        if (!line.empty() && line.back() == '\r') line.pop_back();
        // Unlike standard input, a script's last line runs without its newline.
        if (!line.empty()) run_line(line);
        if (end == LineEnd::end_of_input) return;
    }
}

void cmd_skip_if_done(const Tokens& tokens) {
    if (is_existing_file(tokens[1])) skip_label = tokens[2];
    reply_ok(tokens);
}

void cmd_repeat(const Tokens& tokens) {
    if (tokens.size() < 3) throw_argument_error();
    const int count = parse_int(tokens[1]);
    if (count <= 0 || count > 99999) throw_argument_error();
    const std::string text = join_tokens(tokens, 2, tokens.size()) + "\n";
    for (int i = 0; i < count; ++i) {
        reply_text(text);
        // 99999 copies of a long text would be gigabytes: they leave in parts.
        if (pending_reply_bytes() >= repeat_flush_bytes) flush_replies();
    }
    reply("END\n");
}

void cmd_echo(const Tokens& tokens) {
    if (tokens.size() < 2) throw_argument_error();
    reply_text(tokens[1]);
}

void cmd_sleep(const Tokens& tokens) { sleep_milliseconds(parse_int(tokens[1])); }

void cmd_take_a_break(const Tokens& tokens) {
    // The stop comes first, so that a bad number still stops the solver.
    request_solver_stop();
    const long long seconds = parse_int(tokens[1]);
    sleep_milliseconds(seconds * 1000);
    reply_ok(tokens);
}

void cmd_stdoutredi(const Tokens& tokens) {
    redirect_output(tokens[1], O_TRUNC);
    reply_ok(tokens);
}

void cmd_stdoutredi_append(const Tokens& tokens) {
    redirect_output(tokens[1], O_APPEND);
    reply_ok(tokens);
}

void cmd_stdoutback(const Tokens& tokens) {
    fflush(stdout);
    if (console_output_fd >= 0) dup2(console_output_fd, STDOUT_FILENO);
    reply_ok(tokens);
}
