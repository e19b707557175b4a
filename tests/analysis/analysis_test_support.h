// Small built games for the report tests, stores filled with known rows, and
// strategies forced as a client forces them.
#pragma once

#include <gtest/gtest.h>

#include <cstdio>
#include <functional>
#include <random>
#include <string>
#include <vector>

#include "analysis/strategy_read.h"
#include "model/lines.h"
#include "reference/boards.h"
#include "shell/protocol/reply.h"
#include "shell/protocol/settings.h"
#include "solver/lock_commands.h"
#include "solver/river_rows.h"
#include "tree/boards.h"
#include "tree/build.h"
#include "tree/engine.h"
#include "tree/paths.h"

// Checks and bets on every street, so every street has decisions of both
// players with more than one action; and the same for later roots.
inline const std::vector<std::vector<double>> three_street_lines = {
    {0, 0, 0, 0, 0, 0},      {0, 0, 0, 0, 0, 50, 50}, {0, 0, 50, 50, 50, 50},
    {0, 0, 50, 50, 100, 100}, {50, 50, 50, 50},       {50, 150, 150, 150, 150},
};
inline const std::vector<std::vector<double>> turn_lines = {{0, 0, 0, 0}, {0, 0, 50, 50}, {50, 50, 50, 50}};
inline const std::vector<std::vector<double>> river_lines = {{0, 0}, {0, 50, 50}, {50, 50}};

struct Spot {
    std::string flop = "Qs Jh 2h";
    std::string turn = "";  // empty: dealt by the tree
    std::string river = "";
    bool isomorphic = false;
    int compression = 0;
    std::vector<std::vector<double>> lines = three_street_lines;
};

// What a command handler replied. A handler that throws ends the capture, so
// that later tests can still capture theirs.
inline std::string replies_of(const std::function<void()>& handler) {
    testing::internal::CaptureStdout();
    try {
        handler();
    } catch (...) {
        testing::internal::GetCapturedStdout();
        throw;
    }
    flush_replies();
    fflush(stdout);
    return testing::internal::GetCapturedStdout();
}

// Builds the game with a pot of 100 and leaves its replies unprinted.
inline void build_spot(const Spot& spot, const RangeVector& oop, const RangeVector& ip) {
    player_range[0] = oop;
    player_range[1] = ip;
    flop_mask = parse_cards(spot.flop);
    turn_mask = spot.turn.empty() ? 0 : parse_cards(spot.turn);
    river_mask = spot.river.empty() ? 0 : parse_cards(spot.river);
    pot = 100;
    isomorphism_by_street[1] = spot.isomorphic;
    isomorphism_by_street[2] = spot.isomorphic;
    compression_set = spot.compression;
    schematic_tree = make_schematic_tree();
    for (const auto& line : spot.lines) merge_line(*schematic_tree, line, LineMerge::Add);
    replies_of([] { build_game(true); });
}

// The numbers at the start of a text.
inline std::vector<double> numbers_of(const std::string& text) {
    std::vector<double> values;
    const char* at = text.c_str();
    char* end = nullptr;
    for (double value = strtod(at, &end); end != at; value = strtod(at, &end)) {
        values.push_back(value);
        at = end;
    }
    return values;
}

// Writes a row per action, value(action, hand) for each hand, into the
// node's regrets or strategy sums at (group, row). Compressed river rows are
// opened for the write and written back.
inline void write_node_rows(TreeNode& node, bool sums, int group, int row,
                            const std::function<float(int, int)>& value) {
    SubgameEngine& e = *engine;
    open_storages(e);
    Storage& store = sums ? *node.strategy_sums : *node.regrets;
    const bool river = node.street == river_street;
    OpenRiverRows open;
    const TreeNode* first = &node;
    while (!is_first_of_street(*first)) first = first->parent_node;
    RiverNodes subtree;
    if (river) collect_river_nodes(e, *first, subtree);
    if (river) open_river_rows(subtree, group, sums, open);
    const int hands = store.row_length(group, row);
    std::vector<float> values(static_cast<size_t>(hands));
    for (int a = 0; a < static_cast<int>(node.children.size()); ++a) {
        for (int h = 0; h < hands; ++h) values[h] = value(a, h);
        store.write_row(group, row, a, values.data());
    }
    if (river) {
        const bool written[2] = {!sums, !sums};
        const bool sums_written[2] = {sums, sums};
        close_river_rows(subtree, group, written, sums_written, open);
    }
}

// Whole numbers 0..999 that differ from hand to hand and action to action, so
// that a permuted or misplaced row shows; a hand of every seventh has none.
inline float spread_regret(int action, int hand) {
    if (hand % 7 == 3) return 0.0f;
    return static_cast<float>((hand * 37 + action * 101 + 11) % 1000);
}

// Random weights (0.1..1) per hand forced on every action of the node at
// `path`, an action at a time as a client sends them; in hand order.
using ForcedWeights = std::vector<std::vector<double>>;
inline ForcedWeights force_random_strategy(const std::string& path, unsigned seed) {
    std::mt19937 random(seed);
    std::uniform_real_distribution<double> draw(0.1, 1.0);
    ForcedWeights weights(parse_path(path).node->children.size(), std::vector<double>(combo_count));
    for (size_t a = 0; a < weights.size(); ++a) {
        Tokens tokens = {"set_strategy", path, std::to_string(a)};
        for (double& w : weights[a]) {
            w = draw(random);
            tokens.push_back(std::to_string(w));
        }
        EXPECT_EQ(replies_of([&] { cmd_set_strategy(tokens); }), "set_strategy ok!\n");
    }
    return weights;
}
