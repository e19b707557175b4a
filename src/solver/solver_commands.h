// The commands that run the solver and report its results.
#pragma once

#include "shell/protocol/reply.h"

void cmd_go(const Tokens& tokens);
void cmd_stop(const Tokens& tokens);
void cmd_wait_for_solver(const Tokens& tokens);
void cmd_calc_results(const Tokens& tokens);
