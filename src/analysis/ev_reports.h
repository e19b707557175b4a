// Reports of what each hand of a player is worth at a node.
#pragma once

#include "shell/protocol/reply.h"

void cmd_calc_ev(const Tokens& tokens);
void cmd_calc_ev_pp(const Tokens& tokens);
void cmd_calc_ev_line(const Tokens& tokens);
