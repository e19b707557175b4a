// Rows of a forgotten street: after `forget` a node there has no stores until
// the subgame that holds it is solved again on demand.
#pragma once

#include "tree/engine.h"

// Makes the rows of `node` for the board (turn group, river row) exist again
// when its street is forgotten: solves the subgame that holds them, without
// force (a card's subgame is solved once), making its stores first as a
// partial solve does. Queries that read a row call it before they read.
//
// Forgetting is not built yet: no command sets forgotten_from, so every row
// is there and this returns at once. The solve goes here when it comes.
void solve_forgotten_subgame(SubgameEngine& engine, const TreeNode& node, int turn, int river);
