// Handlers of the commands that set how the solver runs and report on the process.
#pragma once

#include "shell/protocol/reply.h"

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
