// Handlers of the commands that state the game: ranges, board, pot and rake.
#pragma once

#include <optional>
#include <string>

#include "shell/protocol/game_setup.h"
#include "shell/protocol/reply.h"

void cmd_set_range(const Tokens& tokens);
void cmd_set_board(const Tokens& tokens);
void cmd_set_pot(const Tokens& tokens);
void cmd_set_eff_stack(const Tokens& tokens);
void cmd_show_effective_stack(const Tokens& tokens);
void cmd_show_tree_params(const Tokens& tokens);
void cmd_set_rake(const Tokens& tokens);

// The board as reports print it: the flop by ascending card, then the turn
// and the river if they are set.
std::string board_text();
