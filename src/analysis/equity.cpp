#include "analysis/equity.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <numeric>

#include "analysis/hand_rows.h"
#include "analysis/strategy_read.h"
#include "solver/kernels/kernels.h"
#include "tree/boards.h"
#include "tree/isomorphism.h"
#include "tree/paths.h"

namespace {

// Cards dealt per pair of hands: 45 turns, then 44 rivers.
constexpr float turn_deal_share = 0.022222223f;   // 1/45
constexpr float river_deal_share = 0.022727273f;  // 1/44

void zero_results(EquityFrame& f, int count) {
    f.wins.set_zero(count);
    f.weights.set_zero(count);
}

void showdown(EquityFrame& f, const RunoutBoard& river) {
    const int count = static_cast<int>(river.hands.size());
    if (f.reach.is_zero()) return zero_results(f, count);
    alignas(64) uint16_t group_mask[max_strength_groups];
    fill_group_mask(group_mask, f.reach.data, river);
    const ShowdownList list = showdown_list(river, group_mask);
    f.wins.resize(count);
    f.weights.resize(count);
    // Winning counts +1 and losing -1; a fold's sum over unblocked hands is
    // what the hand meets.
    eval_showdown_1(f.wins.data, f.reach.data, list, 1.0f);
    eval_fold_1(f.weights.data, f.reach.data, count, river.hand_cards.data(), 1.0f);
}

void add_through(float* parent, const HandVector& child, const std::vector<int16_t>& table) {
    if (child.is_zero()) return;
    for (size_t h = 0; h < table.size(); ++h)
        if (table[h] >= 0) parent[table[h]] += child.data[h];
}

// Whether the card's images must be walked each from its own reach: only once
// forced strategies or combo locks may have set a hand and its images apart,
// and the reach above shows it.
bool images_apart(const SubgameEngine& e, const RunoutBoard& board, const HandVector& reach) {
    if (!e.images_may_differ || board.multiplicity == 1 || !reach.data) return false;
    return reach_differs_across_images(board, reach.data);
}

// Walks the child from the reach above read through `gather`.
void walk_through(EquityFrame& child, const HandVector& reach, const std::vector<int16_t>& gather) {
    child.reach.resize(static_cast<int32_t>(gather.size()));
    for (size_t h = 0; h < gather.size(); ++h) child.reach.data[h] = gather[h] >= 0 ? reach.data[gather[h]] : 0.0f;
    equity_walk(child);
}

// Deals each card of `boards` below the frame's board, whose list has `count`
// hands. Each stored card stands for as many real cards as it has image
// tables, and its results go back through every one of them; when the images'
// reaches differ, each image is walked from its own.
void deal(EquityFrame& f, const std::vector<RunoutBoard>& boards, int count, float share) {
    if (f.reach.is_zero()) return zero_results(f, count);
    f.wins.resize(count);
    f.weights.resize(count);
    std::fill(f.wins.data, f.wins.data + count, 0.0f);
    std::fill(f.weights.data, f.weights.data + count, 0.0f);
    const bool dealing_rivers = f.turn >= 0;
    for (size_t i = 0; i < boards.size(); ++i) {
        const RunoutBoard& board = boards[i];
        const auto child_frame = [&] {
            EquityFrame child;
            child.engine = f.engine;
            child.turn = dealing_rivers ? f.turn : static_cast<int32_t>(i);
            child.river = dealing_rivers ? static_cast<int32_t>(i) : -1;
            return child;
        };
        if (images_apart(*f.engine, board, f.reach)) {
            for (const std::vector<int16_t>& table : board.image_tables) {
                EquityFrame child = child_frame();
                walk_through(child, f.reach, table);
                add_through(f.wins.data, child.wins, table);
                add_through(f.weights.data, child.weights, table);
            }
            continue;
        }
        EquityFrame child = child_frame();
        walk_through(child, f.reach, board.image_tables[0]);
        for (const std::vector<int16_t>& table : board.image_tables) {
            add_through(f.wins.data, child.wins, table);
            add_through(f.weights.data, child.weights, table);
        }
    }
    for (int h = 0; h < count; ++h) {
        f.wins.data[h] *= share;
        f.weights.data[h] *= share;
    }
}

}  // namespace

void equity_walk(EquityFrame& f) {
    const RootBoard& root = *f.engine->root_board;
    if (f.turn < 0) {
        deal(f, root.turns, static_cast<int>(root.hands.size()), turn_deal_share);
        return;
    }
    const RunoutBoard& turn = root.turns[f.turn];
    if (f.river < 0) {
        deal(f, turn.rivers, static_cast<int>(turn.hands.size()), river_deal_share);
        return;
    }
    showdown(f, turn.rivers[f.river]);
}

EquityVectors equity_vectors(Card turn, Card river, const RangeVector& opponent_range) {
    SubgameEngine& e = *engine;
    open_storages(e);
    QueryBoard board;
    if (!find_query_board(e, turn, river, board)) throw_command_error("incorrect path");

    RangeVector opponent = opponent_range;
    if (e.flags & isomorphism_on_flag) permute_range(client_suit_order(e, board), opponent.data(), opponent_range.data());
    EquityFrame frame;
    frame.engine = &e;
    frame.turn = board.turn_index;
    frame.river = board.river_index;
    frame.reach.resize(board.hand_count);
    const std::vector<int16_t>& hand_of_slot = *board.hand_of_slot;
    for (int slot = 0; slot < combo_count; ++slot) {
        const int hand = hand_of_slot[slot];
        // A hand that no board on the way to the position held has no weight.
        if (hand >= 0) frame.reach.data[hand] = std::isnan(opponent[slot]) ? 0.0f : static_cast<float>(opponent[slot]);
    }
    equity_walk(frame);

    std::vector<float> equities(size_t(board.hand_count));
    std::vector<float> matchups(size_t(board.hand_count), 0.0f);
    for (int h = 0; h < board.hand_count; ++h) {
        const double met = frame.weights.is_zero() ? 0.0 : frame.weights.data[h];
        matchups[h] = static_cast<float>(met);
        // Rounding can leave a hand that meets nothing a hair below zero.
        equities[h] = met > 0 ? static_cast<float>(frame.wins.data[h] / met) : std::numeric_limits<float>::quiet_NaN();
    }
    return {expand_row(e, board, equities.data()), expand_row(e, board, matchups.data())};
}

std::vector<ComboIndex> hands_by_equity(const std::string& path) {
    const NodeRef ref = parse_path(path == "r" ? "r:0" : path);
    RangeVector everyone;
    everyone.fill(1.0);
    const EquityVectors result = equity_vectors(ref.turn, ref.river, everyone);
    constexpr double lowest = std::numeric_limits<double>::lowest();
    std::array<double, combo_count> equity = in_hand_order(result.equities);
    for (double& value : equity)
        if (std::isnan(value)) value = lowest;
    std::vector<ComboIndex> order(combo_count);
    std::iota(order.begin(), order.end(), ComboIndex{0});
    std::stable_sort(order.begin(), order.end(),
                     [&](ComboIndex a, ComboIndex b) { return equity[a] > equity[b]; });
    const auto cut = std::find_if(order.begin(), order.end(), [&](ComboIndex hand) { return equity[hand] == lowest; });
    order.erase(cut, order.end());
    return order;
}
