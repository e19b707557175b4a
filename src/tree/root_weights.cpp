// The weights of the hands of the tree's root list, and their normalised form,
// the reach that every walk starts from.
#include "shell/protocol/game_setup.h"
#include "tree/boards.h"

namespace {

// Sum over hands i of mine[i] times the opponent's weight of the hands that
// share no card with i: the weighted number of deals.
double weighted_deals(const std::vector<CardMask>& hands, const std::vector<float>& mine,
                      const std::vector<float>& theirs) {
    double deals = 0;
    const size_t count = hands.size();
    for (size_t i = 0; i < count; ++i) {
        if (mine[i] == 0) continue;
        double opposing = 0;
        for (size_t j = 0; j < count; ++j)
            if (!(hands[i] & hands[j])) opposing += theirs[j];
        deals += static_cast<double>(mine[i]) * opposing;
    }
    return deals;
}

}  // namespace

void set_root_weights(const double* weights_oop, const double* weights_ip,
                      const std::vector<CardMask>& hands, std::vector<float> (&root_weights)[2],
                      std::vector<float> (&root_reach)[2]) {
    const size_t count = hands.size();
    for (int player = 0; player < 2; ++player) {
        root_weights[player].resize(count);
        root_reach[player].resize(count);
    }
    for (size_t i = 0; i < count; ++i) {
        const ComboSlot slot = slot_of_hand(hands[i]);
        root_weights[OOP][i] = static_cast<float>(weights_oop[slot]);
        root_weights[IP][i] = static_cast<float>(weights_ip[slot]);
    }
    // Both players' sums are the same number in exact arithmetic; each player's
    // reach is divided by its own, summed in its own order.
    const double deals[2] = {weighted_deals(hands, root_weights[OOP], root_weights[IP]),
                             weighted_deals(hands, root_weights[IP], root_weights[OOP])};
    for (int player = 0; player < 2; ++player)
        for (size_t i = 0; i < count; ++i)
            root_reach[player][i] =
                static_cast<float>(static_cast<double>(root_weights[player][i]) / deals[player]);
}
