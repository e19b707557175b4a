// Handlers of the commands that set how the solver runs and report on the process.
#pragma once

#include "shell/reply.h"

void cmd_is_ready(const Tokens& tokens);
void cmd_solver_time(const Tokens& tokens);
void cmd_show_settings(const Tokens& tokens);
void cmd_show_memory(const Tokens& tokens);
void cmd_set_threads(const Tokens& tokens);
void cmd_set_isomorphism(const Tokens& tokens);
void cmd_set_scheduler(const Tokens& tokens);
void cmd_ignore_mem_check(const Tokens& tokens);
void cmd_reset_tree_info(const Tokens& tokens);
void cmd_add_info_line(const Tokens& tokens);
void cmd_show_tree_info(const Tokens& tokens);
void cmd_is_tree_present(const Tokens& tokens);
void cmd_set_accuracy(const Tokens& tokens);
void cmd_set_recalc_accuracy(const Tokens& tokens);
void cmd_set_compression(const Tokens& tokens);
void cmd_get_actual_compression(const Tokens& tokens);

// Compression level words, indexed by level + 1 ("auto" is -1).
const char* compression_level_name(int level);
// A level word or number, clamped to -1..5.
int parse_compression_level(const std::string& token);

struct PhysicalMemory {
    unsigned long long total_bytes;
    unsigned long long available_bytes;  // total scaled by the whole-percent load
};
PhysicalMemory read_physical_memory();
