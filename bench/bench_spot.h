// Loading a spot script and running protocol lines inside a benchmark, with
// their replies kept out of the figures the harness prints.
#pragma once

#include <fcntl.h>
#include <omp.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <functional>
#include <iterator>
#include <string>
#include <vector>

#include "model/cards.h"
#include "model/hand_strength.h"
#include "shell/commands.h"
#include "shell/protocol/settings.h"
#include "solver/solver_driver.h"

// What every harness does before its first spot: the card and hand tables,
// the solver's thread count, and the engine's start.
inline void start_engine(int thread_count) {
    init_combo_tables();
    init_hand_strength_tables();
    threads = thread_count;
    omp_set_num_threads(thread_count);
    libsubgame_init(0);
}

// The benchmark spots kept in bench/spots, by the letter of their file
// name: river, turn and flop.
inline constexpr const char* bench_spot_letters[] = {"R", "T", "F"};

// A spot named on the command line: a file, or the letter of a kept spot
// ("T" for bench/spots/spot_T.txt).
inline std::string spot_path(const std::string& name) {
    if (std::ifstream(name)) return name;
    const std::string kept = std::string(TAVREK_SPOT_DIR) + "/spot_" + name + ".txt";
    return std::ifstream(kept) ? kept : name;
}

// One option of a harness's command line. `take` reads the value that
// follows the name and says whether it is acceptable; a flag has none.
struct BenchOption {
    const char* name;
    std::function<bool(const char* value)> take;
    bool flag = false;
};

[[noreturn]] inline void bench_usage(const char* usage) {
    std::fprintf(stderr, "usage: %s\n", usage);
    std::exit(2);
}

// Reads a harness's command line: the options listed, in any order, and one
// word that is not an option, the spot, which it returns ("" when none is
// given). Anything else prints the usage and ends the harness with status 2.
inline std::string read_command_line(int argc, char** argv, const std::vector<BenchOption>& options,
                                     const char* usage) {
    std::string spot;
    for (int i = 1; i < argc; ++i) {
        const std::string arg = argv[i];
        const BenchOption* option = nullptr;
        for (const BenchOption& o : options)
            if (arg == o.name) option = &o;
        bool fine;
        if (option && option->flag) {
            fine = option->take(nullptr);
        } else if (option) {
            fine = i + 1 < argc && option->take(argv[++i]);
        } else {
            fine = !arg.empty() && arg[0] != '-' && spot.empty();
            spot = arg;
        }
        if (!fine) bench_usage(usage);
    }
    return spot;
}

// The spot's non-empty lines, the last of which may lack its newline.
inline std::vector<std::string> read_spot_lines(const std::string& path) {
    std::ifstream file(path);
    if (!file) {
        std::fprintf(stderr, "can't open %s\n", path.c_str());
        std::exit(1);
    }
    std::vector<std::string> lines;
    std::string line;
    while (std::getline(file, line)) {
        if (!line.empty() && line.back() == '\r') line.pop_back();
        if (!line.empty()) lines.push_back(line);
    }
    return lines;
}

// Runs protocol lines with standard output on the file at `path`.
inline void run_into(const char* path, const std::vector<std::string>& lines) {
    std::fflush(stdout);
    const int saved = dup(STDOUT_FILENO);
    const int target = open(path, O_WRONLY | O_CREAT | O_TRUNC, 0600);
    dup2(target, STDOUT_FILENO);
    for (const std::string& line : lines) run_line(line);
    std::fflush(stdout);
    dup2(saved, STDOUT_FILENO);
    close(target);
    close(saved);
}

inline void run_quietly(const std::vector<std::string>& lines) { run_into("/dev/null", lines); }

// What protocol lines reply, as the program would print it.
inline std::string replies_of(const std::vector<std::string>& lines) {
    char path[] = "/tmp/tavrek_bench_XXXXXX";
    const int file = mkstemp(path);
    if (file < 0) {
        std::fprintf(stderr, "can't make a temporary file\n");
        std::exit(1);
    }
    close(file);
    run_into(path, lines);
    std::ifstream replies(path, std::ios::binary);
    const std::string text((std::istreambuf_iterator<char>(replies)), std::istreambuf_iterator<char>());
    unlink(path);
    return text;
}

// The first line a query replies, stopping the harness when it is refused or
// silent: a timing of an error reply would mean nothing.
inline std::string checked_first_reply(const std::string& line) {
    const std::string text = replies_of({line});
    const std::string first = text.substr(0, text.find('\n'));
    if (first.empty() || first.rfind("ERROR", 0) == 0) {
        std::fprintf(stderr, "%s: %s\n", line.c_str(), first.c_str());
        std::exit(1);
    }
    return first;
}
