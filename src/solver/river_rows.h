// Streamed river rows: a compressed store expands one turn card's rows only
// while a worker walks that card's river subtree. The rows of all river nodes
// of one player below a first river node travel in one stream, in walk order,
// so opening and closing visit the nodes in the same order. Flat stores do
// nothing here.
#pragma once

#include "storage/row_stream.h"
#include "tree/engine.h"

struct OpenRiverRows {
    RowStream* regret_streams[2] = {nullptr, nullptr};
    RowStream* sum_streams[2] = {nullptr, nullptr};
    bool regrets_read[2] = {false, false};
    bool sums_read[2] = {false, false};
    bool sums_open = false;
};

// Opens the rows of turn group `turn` of every river decision node from
// `first` down: regrets, and strategy sums with `with_sums`.
void open_river_rows(const SubgameEngine& engine, const TreeNode& first, int turn, bool with_sums,
                     OpenRiverRows& rows);

// Closes them again; rows of a player whose values changed are written back
// (regrets and sums told apart), the others are dropped unchanged.
void close_river_rows(const SubgameEngine& engine, const TreeNode& first, int turn, const bool regrets_modified[2],
                      const bool sums_modified[2], OpenRiverRows& rows);
