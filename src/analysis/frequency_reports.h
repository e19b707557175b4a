// How often a line is played: the share of all deals of the two ranges,
// weighted by both players' strategies, that reach a node.
#pragma once

#include "shell/protocol/reply.h"

// Counted over all runouts of the streets the path passes, whatever cards it
// names; "1" on a tree with forgotten streets.
void cmd_calc_line_freq(const Tokens& tokens);
// With exactly the cards the path names; a street whose card it leaves out
// counts every card.
void cmd_calc_global_freq(const Tokens& tokens);
