// Building small games for the solver's tests without the command shell.
#pragma once

#include <random>
#include <string>
#include <vector>

#include "model/lines.h"
#include "reference/boards.h"
#include "shell/protocol/game_setup.h"
#include "shell/protocol/settings.h"
#include "solver/solver_driver.h"
#include "tree/build.h"
#include "tree/engine.h"

// A suit-symmetric range: about `share` of the hand classes present, each at
// a weight of at least 0.2.
inline RangeVector game_range(unsigned seed, double share) {
    std::mt19937 random(seed);
    std::uniform_real_distribution<double> draw(0.0, 1.0);
    RangeVector range{};
    for (int hand_class = 0; hand_class < hand_class_count; ++hand_class) {
        const double weight = draw(random) < share ? 0.2 + 0.8 * draw(random) : 0.0;
        for (const ComboSlot slot : hand_class_slots[hand_class]) range[slot] = weight;
    }
    return range;
}

struct TestGame {
    std::string flop;
    std::string turn = "";   // empty for a flop game
    std::string river = "";  // empty unless a river game
    std::vector<std::vector<double>> lines;
    unsigned seeds[2] = {1, 2};
    double share = 0.3;
};

// Builds the game as build_tree would, at compression level "none".
inline void build_test_game(const TestGame& game) {
    player_range[0] = game_range(game.seeds[0], game.share);
    player_range[1] = game_range(game.seeds[1], game.share);
    flop_mask = parse_cards(game.flop);
    turn_mask = game.turn.empty() ? 0 : parse_cards(game.turn);
    river_mask = game.river.empty() ? 0 : parse_cards(game.river);
    pot = 100;
    compression_set = 0;
    schematic_tree = make_schematic_tree();
    for (const auto& line : game.lines) merge_line(*schematic_tree, line, LineMerge::Add);
    build_game(true);
}

// Opens the stores (once) and trains the built game.
inline void train(int iterations) {
    open_all_storage(*engine);
    for (int i = 0; i < iterations; ++i) run_iteration(*engine);
}

// Three small games on one flop, each with all-in lines.
inline TestGame river_game() {
    return {.flop = "Qs Jh 2h",
            .turn = "8d",
            .river = "3c",
            .lines = {{0, 0}, {0, 50, 50}, {0, 50, 150, 150}, {50, 50}, {50, 150, 150}, {150, 150}},
            .share = 0.35};
}

inline TestGame turn_game() {
    return {.flop = "Qs Jh 2h",
            .turn = "8d",
            .lines = {{0, 0, 0, 0}, {0, 0, 50, 50}, {0, 0, 50, 150, 150}, {0, 50, 50, 50, 50},
                      {0, 50, 50, 100, 100}, {50, 50, 50, 50}, {50, 50, 100, 100}, {50, 200, 200}},
            .seeds = {3, 4},
            .share = 0.25};
}

inline TestGame flop_game() {
    return {.flop = "Qs Jh 2h",
            .lines = {{0, 0, 0, 0, 0, 0}, {0, 0, 0, 0, 50, 50}, {0, 0, 50, 50, 50, 50}, {50, 50, 50, 50, 50, 50},
                      {50, 50, 50, 50, 100, 100}, {50, 150, 150}},
            .seeds = {5, 6},
            .share = 0.2};
}
