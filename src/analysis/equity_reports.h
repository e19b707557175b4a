// Reports of each hand's equity against the opponent's range.
#pragma once

#include "shell/protocol/reply.h"

void cmd_calc_eq(const Tokens& tokens);
void cmd_calc_eq_pp(const Tokens& tokens);
void cmd_calc_eq_node(const Tokens& tokens);
