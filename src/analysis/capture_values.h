// What each hand of a player is worth at a node under the present strategies.
// Nothing stored holds it: a walk in capture mode goes down to the node with
// the reach a full walk would bring there, and keeps the values it finds.
#pragma once

#include <cstdint>

#include "model/cards.h"
#include "shell/protocol/game_setup.h"
#include "solver/walk.h"
#include "tree/engine.h"

// Per hand of the player, 1326 values in memory order and the client's suits,
// relative to an even split of the pot: the hand's value at the node per
// opposing hand it meets, and its weight, the opposing reach it meets times
// its own reach (scaled to count every runout of the root board). Hands that
// the node's board doesn't hold, or that are outside the player's range, are
// NaN in both. `turn` and `river` are the real cards of the path (-1 when not
// named); a node ignores the cards of streets after its own. Without an
// engine the outputs are left as they are.
//
// The answer is kept in the engine's capture cache until the iteration count
// changes; the results of the iteration are computed on the way when they
// aren't yet, since the capture walk reads the values their walks leave at
// the chance positions below the node.
void capture_values(int player, int node_index, Card turn, Card river, RangeVector& values, RangeVector& weights);

// The capture step itself, for a walk whose request context is a
// CaptureTarget: value per matchup and weight of each hand of the frame's
// list, stored in the cache under the target's key.
struct CaptureTarget {
    CaptureCache* cache = nullptr;
    CaptureKey key;
    int32_t iterations = 0;
};
void capture_hand_values(CaptureRequest& request, const WalkFrame& frame);

// The weight factor of a board: 1980 (45 turns times 44 rivers) on the root
// board whatever its street, 44 on a dealt turn, 1 on a dealt river. Clients
// read weights with these factors, so a turn root keeps 1980 too.
float runout_factor(const SubgameEngine& engine, int32_t turn, int32_t river);
