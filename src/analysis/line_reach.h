// How much of all deals reaches a node: both players' reach along the line,
// each the root weight times the player's own strategy at each of his
// decisions on the way, paired over the hands that share no card. Each card
// the tree deals weighs 1/45 (turn) or 1/44 (river), the runouts a pair of
// hands allows, so a line summed over the cards of a street weighs what it
// weighed before them.
#pragma once

#include <cstdint>
#include <vector>

#include "model/cards.h"
#include "shell/protocol/game_setup.h"
#include "tree/engine.h"

// The joint reach at the node for the board of the real cards `turn` and
// `river`: per hand of `player`, its reach times the opponent's reach left
// after blockers, in memory order and the client's suits; NaN for hands that
// aren't on the board's list. Every card that the line's boards need must be
// named; a card that leads to no board is the command error "incorrect path".
// Takes engine_lock.
RangeVector line_mass(int player, int node_index, Card turn, Card river);

// Runouts grouped by turn card: each item is turn × 256 + river, in real
// cards, and all items of a group share the group's turn card.
using RunoutGroups = std::vector<std::vector<uint16_t>>;

// line_mass of player 0 at a river node summed over all hands and all items,
// in parallel over the groups, `threads` at a time, the items of a group in
// order. Each group's sum has its own slot and the slots are added in group
// order after the loop, so the figure is the same at any thread count. A
// card that leads to no board is "incorrect path". Takes engine_lock.
double libsubgame_calc_river_line_freq(int node_index, const RunoutGroups& groups);

// The joint reach at the node summed over all hands and over every card of
// the line's streets that `turn` and `river` leave open (-1): turn cards in
// rising order, and under each the river cards in rising order (the river
// lines through libsubgame_calc_river_line_freq). With nothing open it is the
// sum of line_mass over the hands on the list.
//
// The line's streets reach down to the node's own (a terminal: the street of
// the action that ends the hand) and to each card named.
double line_sum(int node_index, Card turn, Card river);

// The one test of whether the tree has forgotten streets, whose rows are
// gone: calc_line_freq then answers 1 for every line. Forgetting streets
// switches it on through `forgotten_from`.
bool tree_has_forgotten_streets(const SubgameEngine& engine);
