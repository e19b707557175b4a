// Process-wide settings of the shell and the solver. Plain globals: the main
// thread writes them through commands, other threads only read.
#pragma once

#include <atomic>
#include <cstdint>
#include <string>
#include <vector>

// Set from the command line at start-up.
extern int verbosity;
extern bool echo_commands;
extern bool color_text;
extern uint64_t start_time;  // wall clock in 100 ns ticks, taken at start-up
extern uint32_t random_state[4];
// A reply mode with no way in: kept because the reply path honours it.
extern bool front_end_mode;
extern bool tagged_replies;

// Interpreter state.
extern bool comment_pass;  // lets "#" replies through until the next flush
extern std::string current_command;
extern std::string command_word;  // token 0 of the line being run
extern std::string skip_label;

// Solver settings.
extern int threads;
// set_threads asks for at most this many: each thread of a walk costs a stack
// and per-thread sums at every chance position, and no machine runs more.
constexpr int max_threads = 1024;
extern double accuracy_setting;
extern bool accuracy_is_fraction;
extern std::atomic<double> accuracy;  // stop threshold in chips, read by the solver thread
extern double recalc_accuracy[3];
extern bool isomorphism_by_street[4];
extern int compression_set;    // requested level, -1 for automatic
extern int compression_level;  // level in force
extern int scheduler;
extern std::atomic<bool> tree_ready;
extern std::vector<std::string> tree_info_lines;

// Wall-clock time in 100 ns ticks.
uint64_t system_time_ticks();

// Recomputes `accuracy` from the setting and the current pot; with verbosity
// the new target is reported.
void update_accuracy_target();

struct PhysicalMemory {
    unsigned long long total_bytes;
    unsigned long long available_bytes;  // total scaled by the whole-percent load
};
PhysicalMemory read_physical_memory();
