// Process entry: prepares the process, then feeds lines to the interpreter.
#include <sys/random.h>
#include <sys/resource.h>
#include <omp.h>
#include <xmmintrin.h>

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <iostream>
#include <limits>
#include <string>
#include <vector>

#include <tclap/CmdLine.h>

#include "model/cards.h"
#include "model/hand_strength.h"
#include "shell/avx_gate.h"
#include "shell/commands.h"
#include "shell/line_reader.h"
#include "shell/process_watcher.h"
#include "shell/protocol/cpu_info.h"
#include "shell/protocol/settings.h"
#include "shell/protocol/tokens.h"
#include "shell/shell_commands.h"
#include "shell/solver_output.h"
#include "solver/solver_driver.h"

namespace {

constexpr const char* build_number = "1044";

uint32_t random_word() {
    uint32_t word = 0;
    while (getrandom(&word, sizeof word, 0) != static_cast<ssize_t>(sizeof word)) {
    }
    return word;
}

void seed_random_state() {
    random_state[0] = random_word();
    do {
        random_state[1] = random_word();
    } while (random_state[1] == 0);
    random_state[2] = random_word();
    random_state[3] = random_word() & 0x1FFFFFFF;
}

void print_banner() {
    if (color_text) fputs("\x1b[33m", stdout);
    printf("Tavrek (Marlune) build %s (Dec 23 2019, 19:17:32) \n", build_number);
    printf("g++ %s build, %s instruction set, %d threads\n", __VERSION__, best_instruction_set(), threads);
    if (color_text) fputs("\x1b[0m", stdout);
    if (verbosity > 0) printf("[verbosity %d]\n", verbosity);
    fflush(stdout);
}

struct Options {
    std::vector<std::string> commands;
    std::string script;
};

// Returns false after TCLAP has reported a bad command line; help and version
// requests end the process inside TCLAP's own handling.
bool parse_options(int argc, char** argv, Options& options) {
    try {
        TCLAP::CmdLine cmd("", ' ', build_number);
        cmd.setExceptionHandling(false);
        TCLAP::SwitchArg server("s", "server", "run as a server", cmd, false);
        TCLAP::ValueArg<int> port("p", "port", "server port (default 5251)", false, 5251, "port", cmd);
        TCLAP::SwitchArg exit_on_disconnect("e", "exit", "exit after client disconnects", cmd, false);
        TCLAP::SwitchArg verbose("v", "verbose", "show debug information", cmd, false);
        TCLAP::SwitchArg echo("o", "echo", "echo commands", cmd, false);
        TCLAP::SwitchArg color("r", "color", "color text", cmd, false);
        TCLAP::MultiArg<std::string> commands("c", "cmd", "execute command", false, "command", cmd);
        TCLAP::UnlabeledValueArg<std::string> script("filename", "script to load", false, "", "script.txt", cmd);
        cmd.parse(argc, argv);
        options.script = script.getValue();
        if (verbose.getValue()) verbosity = 1;
        echo_commands = echo.getValue();
        color_text = color.getValue();
        options.commands = commands.getValue();
        return true;
    } catch (const TCLAP::ArgException& error) {
        std::cerr << "error: " << error.error() << " for arg " << error.argId() << std::endl;
        return false;
    } catch (const TCLAP::ExitException& done) {
        fflush(stdout);
        std::_Exit(done.getExitStatus());
    }
}

void run_start_commands(const std::vector<std::string>& commands) {
    if (commands.empty()) return;
    for (const auto& command : commands) execute_tokens(tokenise_line(command));
    flush_replies();
    fflush(stdout);
}

void serve_standard_input() {
    std::string line;
    for (;;) {
        const LineEnd end = read_line(std::cin, line);
        if (end == LineEnd::too_long) {
            refuse_long_line();
            skip_rest_of_line(std::cin, std::numeric_limits<std::streamsize>::max());
            continue;
        }
        // A last line without its newline is dropped, like end of input.
        if (end == LineEnd::end_of_input) return;
        if (line.empty()) continue;
        tagged_replies = front_end_mode && static_cast<unsigned char>(line[0]) == 167;
        if (tagged_replies) line.erase(0, 1);
        execute_tokens(tokenise_line(line));
        flush_replies();
        fflush(stdout);
    }
}

int run(int argc, char** argv) {
    if (!check_avx_requirement()) return 1;
    seed_random_state();
    Options options;
    if (!parse_options(argc, argv, options)) return 1;
    start_process_watcher();
    init_hand_strength_tables();
    // Above normal priority for the thread that serves the client; a refusal
    // (no privilege) is harmless.
    setpriority(PRIO_PROCESS, 0, -1);
    threads = omp_get_max_threads();
    start_time = system_time_ticks();
    remember_console_output();
    install_solver_output();
    libsubgame_init(0);
    print_banner();
    init_combo_tables();
    run_start_commands(options.commands);
    if (!options.script.empty()) {
        if (!is_existing_file(options.script)) {
            printf("ERROR: can't find file '%s'\n", options.script.c_str());
            fflush(stdout);
            stop_process_watcher();
            return 1;
        }
        execute_tokens(tokenise_line("load_script \"" + options.script + "\""));
        flush_replies();
        fflush(stdout);
    }
    serve_standard_input();
    stop_process_watcher();
    return 0;
}

}  // namespace

int main(int argc, char** argv) {
    // Denormal floats are slow and mean nothing to the solver: flush them to zero.
    _mm_setcsr(_mm_getcsr() | 0x8040);
    // A client that closes its end of our output must not end the process
    // and its solve: the write fails, its text is dropped, and input is
    // still served (stdoutredi can give the output a new home).
    signal(SIGPIPE, SIG_IGN);
    std::ios::sync_with_stdio(false);
    const int code = run(argc, argv);
    // No orderly tear-down: the watcher and any solver thread may still run,
    // so the process ends without destroying what they use.
    fflush(stdout);
    fflush(stderr);
    std::_Exit(code);
}
