// Handlers of the commands that state the game: ranges, board, pot and rake.
#pragma once

#include <optional>
#include <string>

#include "model/game_setup.h"
#include "shell/reply.h"

void cmd_set_range(const Tokens& tokens);
void cmd_set_board(const Tokens& tokens);
void cmd_set_pot(const Tokens& tokens);
void cmd_set_eff_stack(const Tokens& tokens);
void cmd_show_effective_stack(const Tokens& tokens);
void cmd_show_tree_params(const Tokens& tokens);
void cmd_set_rake(const Tokens& tokens);

// "OOP" or "hero", "IP" or "villain"; anything else has no player.
std::optional<Player> player_from_name(const std::string& name);

// The board as reports print it: the flop by ascending card, then the turn
// and the river if they are set.
std::string board_text();
