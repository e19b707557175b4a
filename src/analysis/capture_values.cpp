#include "analysis/capture_values.h"

#include <limits>
#include <mutex>
#include <vector>

#include "analysis/hand_rows.h"
#include "shell/protocol/reply.h"
#include "solver/results.h"
#include "solver/subgame_solve.h"
#include "tree/boards.h"

namespace {

const std::vector<CardMask>& list_hands(const SubgameEngine& e, int32_t turn, int32_t river) {
    const RootBoard& root = *e.root_board;
    if (turn < 0) return root.hands;
    if (river < 0) return root.turns[turn].hands;
    return root.turns[turn].rivers[river].hands;
}

// A vector of the cache as a row of plain floats; a null vector is zeros.
std::vector<float> row_of(const HandVector& vector, int32_t count) {
    std::vector<float> row(static_cast<size_t>(count), 0.0f);
    if (vector.data && vector.count == count) row.assign(vector.data, vector.data + count);
    return row;
}

}  // namespace

float runout_factor(const SubgameEngine& e, int32_t turn, int32_t river) {
    // A later root's board is held as a turn (and river) of the board tree.
    const bool root_board = e.fixed_river >= 0 || (e.fixed_turn >= 0 ? river < 0 : turn < 0);
    if (root_board) return 1980.0f;
    return river >= 0 ? 1.0f : 44.0f;
}

void capture_hand_values(CaptureRequest& request, const WalkFrame& frame) {
    const SubgameEngine& e = *frame.engine;
    const CaptureTarget& target = *static_cast<const CaptureTarget*>(request.context);
    const std::vector<CardMask>& hands = list_hands(e, frame.turn, frame.river);
    const int count = frame.reach.count;

    // Only the opposing hands that reach the node count; gathering them first
    // keeps the pairwise sums short when a line narrows the range.
    std::vector<CardMask> opposing_hands;
    std::vector<double> opposing_reach;
    if (frame.reach.data) {
        for (int o = 0; o < count; ++o) {
            if (frame.reach.data[o] <= 0.0f) continue;
            opposing_hands.push_back(hands[o]);
            opposing_reach.push_back(frame.reach.data[o]);
        }
    }
    const size_t live = opposing_hands.size();
    const double factor = runout_factor(e, frame.turn, frame.river);
    const bool valued = frame.value.data != nullptr;
    const bool weighted = frame.own_reach.data != nullptr;

    HandVector values(count), weights(count);
    if (valued) values.resize(count);
    if (weighted) weights.resize(count);
    for (int h = 0; h < count; ++h) {
        // Summed directly rather than as the total less each card's share:
        // every term is non-negative, so a hand that meets nothing gets an
        // exact zero, not a rounding residue to divide by.
        const CardMask hand = hands[h];
        double met = 0;
        for (size_t o = 0; o < live; ++o)
            if (!(opposing_hands[o] & hand)) met += opposing_reach[o];
        if (valued) values.data[h] = met > 0 ? static_cast<float>(frame.value.data[h] / met) : 0.0f;
        if (weighted) weights.data[h] = static_cast<float>(factor * met * frame.own_reach.data[h]);
    }

    std::lock_guard lock(result_mutex);
    CapturedValues& entry = target.cache->store(target.key, target.iterations);
    entry.values = std::move(values);
    entry.weights = std::move(weights);
}

void capture_values(int player, int node_index, Card turn, Card river, RangeVector& values, RangeVector& weights) {
    if (!engine) return;
    SubgameEngine& e = *engine;
    const TreeNode& node = e.nodes[node_index];
    // A node's rows and lists belong to the cards of its own street and
    // those before; a split names no card of the street it opens.
    if (node.street < turn_street) turn = -1;
    if (node.street < river_street || turn < 0) river = -1;
    QueryBoard board;
    if (!find_query_board(e, turn, river, board)) throw_command_error("incorrect path");
    const CaptureKey key{&node, board.turn_index, board.river_index, player,
                         board.images.turn * 4 + board.images.river};
    // A node of a forgotten street is valued under its subgame's new strategy.
    solve_on_demand(e, node_index, board.turn_index, board.river_index);

    std::vector<float> value_row, weight_row;
    {
        // One hold for the results and the capture walk: a running solver
        // can't move the strategies between the values the results leave at
        // the chance positions and the walk that reads them.
        std::lock_guard lock(engine_lock);
        if (e.results_iteration != e.iterations) compute_results_locked(e);
        const CapturedValues* kept = e.capture_cache.find(key, e.iterations);
        if (!kept) {
            CaptureTarget target{&e.capture_cache, key, e.iterations};
            CaptureRequest request;
            request.node = &node;
            request.turn = key.turn;
            request.river = key.river;
            request.turn_image = board.images.turn;
            request.river_image = board.images.river;
            request.capture = capture_hand_values;
            request.context = &target;
            walk_player_locked(e, player, mode_capture, &request);
            kept = e.capture_cache.find(key, e.iterations);
            if (!kept) throw_command_error("incorrect path");
        }
        value_row = row_of(kept->values, board.hand_count);
        weight_row = row_of(kept->weights, board.hand_count);
    }

    values = expand_row(e, board, value_row.data());
    weights = expand_row(e, board, weight_row.data());
    const RangeVector& range = e.range[player];
    constexpr double none = std::numeric_limits<double>::quiet_NaN();
    for (int slot = 0; slot < combo_count; ++slot) {
        if (range[slot] != 0) continue;
        values[slot] = none;
        weights[slot] = none;
    }
}
