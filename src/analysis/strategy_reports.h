// Reports of the strategy at a node, the hands locked there, the range that
// reaches it, and the probabilities of its actions.
#pragma once

#include "shell/protocol/reply.h"

void cmd_show_strategy(const Tokens& tokens);
void cmd_show_strategy_pp(const Tokens& tokens);
void cmd_show_locked_combos(const Tokens& tokens);
void cmd_show_range(const Tokens& tokens);
void cmd_show_probs(const Tokens& tokens);
