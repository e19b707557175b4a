// Forgotten streets at the level of stores: which streets have lost their
// rows, dropping them, and making them anew (empty) for one node or for
// every node of the forgotten streets.
#pragma once

#include "tree/engine.h"

// True when the rows of `street` were dropped by `forget` and not made again.
// Features that read rows (locks, line frequencies, tree files) ask here.
bool street_forgotten(const SubgameEngine& engine, int street);

// Deletes every store of the nodes on `street` and later, and gives the
// freed memory back to the system.
void drop_street_storage(SubgameEngine& engine, int street);

// Creates the node's stores at the compression level in force, when it has
// none, and opens them; the node is `opened` when both opened. False when
// memory ran out.
bool give_node_storage(SubgameEngine& engine, TreeNode& node);

// Makes empty rows for every decision node of the forgotten streets and
// clears the incomplete-tree flag; `forgotten_from` stays until the streets
// are solved again.
void rebuild_streets(SubgameEngine& engine);
