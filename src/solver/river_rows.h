// Streamed river rows: a compressed store expands one turn card's rows only
// while a worker walks that card's river subtree. The rows of all river nodes
// of one player below a first river node travel in one stream, in walk order,
// so opening and closing visit the nodes in the same order. Flat stores do
// nothing here.
#pragma once

#include <vector>

#include "storage/row_stream.h"
#include "tree/engine.h"

struct OpenRiverRows {
    RowStream* regret_streams[2] = {nullptr, nullptr};
    RowStream* sum_streams[2] = {nullptr, nullptr};
    bool regrets_read[2] = {false, false};
    bool sums_read[2] = {false, false};
    bool sums_open = false;
};

// The river decision nodes from a first river node down, depth first,
// children in order: the walk's own order, which the streams follow.
using RiverNodes = std::vector<const TreeNode*>;
void collect_river_nodes(const SubgameEngine& engine, const TreeNode& first, RiverNodes& nodes);

// Opens the rows of turn group `turn` of the river decision nodes `nodes`
// (one subtree's, collected as above): regrets, and strategy sums with
// `with_sums`.
void open_river_rows(const RiverNodes& nodes, int turn, bool with_sums, OpenRiverRows& rows);

// Asks for the rows that a walk of river card `river` under turn group `turn`
// will read at `nodes`: regrets, and with `with_sums` the strategy sums the
// walk touches (a training walk only the opponent's).
void prefetch_river_rows(const SubgameEngine& engine, const RiverNodes& nodes, int turn, int river, bool with_sums);

// Closes them again; rows of a player whose values changed are written back
// (regrets and sums told apart), the others are dropped unchanged.
void close_river_rows(const RiverNodes& nodes, int turn, const bool regrets_modified[2], const bool sums_modified[2],
                      OpenRiverRows& rows);

// The streamed rows that a command reads or writes at one river node, under
// engine_lock: the rows of turn group `turn` of the whole river subtree that
// holds the node (a stream carries them all, in walk order), opened here and
// closed when this goes out of scope. Rows marked modified are written back,
// the others dropped unchanged. On earlier streets there is nothing to open.
class CommandRiverRows {
public:
    CommandRiverRows(const SubgameEngine& engine, const TreeNode& node, int turn, bool with_sums);
    ~CommandRiverRows();
    CommandRiverRows(const CommandRiverRows&) = delete;
    CommandRiverRows& operator=(const CommandRiverRows&) = delete;

    void mark_modified(int player, bool sums) { (sums ? sums_modified_ : regrets_modified_)[player] = true; }

private:
    RiverNodes nodes_;
    OpenRiverRows open_;
    int turn_ = -1;
    bool active_ = false;
    bool regrets_modified_[2] = {false, false};
    bool sums_modified_[2] = {false, false};
};
