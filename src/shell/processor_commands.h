// Handlers of the commands that report the processor and set the switches
// of kernel choice and storage layout.
#pragma once

#include "shell/protocol/reply.h"

void cmd_show_cpu_info(const Tokens& tokens);
void cmd_get_instruction_set(const Tokens& tokens);
void cmd_set_simd_level(const Tokens& tokens);
void cmd_set_precision(const Tokens& tokens);
void cmd_enable_avx512(const Tokens& tokens);
void cmd_enable_river_strategy(const Tokens& tokens);
