// Building small games for the solver's tests without the command shell.
#pragma once

#include <random>
#include <string>
#include <vector>

#include "model/cards.h"
#include "model/hand_strength.h"
#include "model/lines.h"
#include "shell/protocol/game_setup.h"
#include "shell/protocol/settings.h"
#include "tree/build.h"
#include "tree/engine.h"

inline void prepare_solver_tables() {
    init_combo_tables();
    init_hand_strength_tables();
}

// A suit-symmetric range: one weight per hand class, about `share` of the
// classes present.
inline RangeVector class_range(unsigned seed, double share) {
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
    std::string turn;   // empty for a flop game
    std::string river;  // empty unless a river game
    std::vector<std::vector<double>> lines;
    unsigned seeds[2] = {1, 2};
    double share = 0.3;
};

// Builds the game as build_tree would, at compression level "none".
inline void build_test_game(const TestGame& game) {
    player_range[0] = class_range(game.seeds[0], game.share);
    player_range[1] = class_range(game.seeds[1], game.share);
    flop_mask = parse_cards(game.flop);
    turn_mask = game.turn.empty() ? 0 : parse_cards(game.turn);
    river_mask = game.river.empty() ? 0 : parse_cards(game.river);
    pot = 100;
    compression_set = 0;
    schematic_tree = make_schematic_tree();
    for (const auto& line : game.lines) merge_line(*schematic_tree, line, LineMerge::Add);
    build_game(true);
}

inline TestGame river_game() {
    TestGame game;
    game.flop = "Qs Jh 2h";
    game.turn = "8d";
    game.river = "3c";
    game.lines = {{0, 0}, {0, 50, 50}, {0, 50, 150, 150}, {50, 50}, {50, 150, 150}, {150, 150}};
    game.share = 0.35;
    return game;
}

inline TestGame turn_game() {
    TestGame game;
    game.flop = "Qs Jh 2h";
    game.turn = "8d";
    game.lines = {{0, 0, 0, 0}, {0, 0, 50, 50}, {0, 0, 50, 150, 150}, {0, 50, 50, 50, 50},
                  {0, 50, 50, 100, 100}, {50, 50, 50, 50}, {50, 50, 100, 100}, {50, 200, 200}};
    game.seeds[0] = 3;
    game.seeds[1] = 4;
    game.share = 0.25;
    return game;
}

inline TestGame flop_game() {
    TestGame game;
    game.flop = "Qs Jh 2h";
    game.lines = {{0, 0, 0, 0, 0, 0}, {0, 0, 0, 0, 50, 50}, {0, 0, 50, 50, 50, 50}, {50, 50, 50, 50, 50, 50},
                  {50, 50, 50, 50, 100, 100}, {50, 150, 150}};
    game.seeds[0] = 5;
    game.seeds[1] = 6;
    game.share = 0.2;
    return game;
}
