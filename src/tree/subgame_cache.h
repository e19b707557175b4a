// What a chance node keeps between walks: per player the reach that arrived
// there, summed over iterations, and the last values handed back up. Once a
// street is forgotten the reach is frozen, and it is all a subgame below
// needs to be solved again.
#pragma once

#include <cstdint>

#include "shell/protocol/hand_vector.h"

struct SubgameCache {
    HandVector reach_sum[2];
    HandVector value[2];
    HandVector best[2];
    uint8_t reach_valid[2] = {0, 0};  // the player's reach is large enough to solve from
    bool frozen = false;
    // Per card, that its subgame was solved again after forgetting. Kept by
    // tree files.
    uint64_t solved_cards = 0;
};
