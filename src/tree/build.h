// Building the game tree from the client's ranges, board, pot and lines.
#pragma once

#include <optional>
#include <vector>

#include "model/cards.h"
#include "model/lines.h"
#include "shell/protocol/reply.h"
#include "storage/storage.h"

struct SubgameEngine;

// The flat form of one schematic node, made by the first pass of a build.
struct LineRecord {
    int32_t kind;
    int32_t parent;
    int32_t player;  // at a decision, else -1
    int32_t street;  // at a decision the game street, else -1
    double value;    // at a terminal: half the pot plus the line's amount
};

// Pre-order flattening; writes each schematic node's `node_index`.
void collect_lines(std::vector<LineRecord>& records, SchematicNode& node, int parent, double key);

// The cards of the tree's board: the flop by rising card, and the fixed turn
// and river or -1.
struct BoardCards {
    CardMask flop = 0;
    Card turn = -1;
    Card river = -1;
};

// Replaces the engine by one made from the records; with its runout tables
// unless `runout_tables` is false (see build_game).
void create_engine(const std::vector<LineRecord>& records, const BoardCards& cards, bool isomorphic,
                   bool runout_tables = true);

// Whether the tree has showdowns that open the river, whose turn boards want
// runout tables (build_runout_tables). Only the walk reads them.
bool wants_runout_tables(const SubgameEngine& engine);

// Makes every decision node's stores for a compression pair, and the figures
// that follow from them. River nodes keep strategy sums as
// enable_river_strategy says, or as `river_sums` says for a loaded tree.
void assign_storage(CompressionPair pair);
void assign_storage(CompressionPair pair, bool river_sums);

// Puts the requested compression level in force on the built tree, choosing
// one by the memory estimate when the request is automatic.
void apply_compression_setting();

// The whole build; `choose_compression` picks the level (load_tree keeps its
// own). Suit isomorphism follows set_isomorphism unless `isomorphic` says
// otherwise: a loaded tree's rows fit the hand lists it was saved with.
// Without `runout_tables` the caller makes them (a load does so while it
// reads the file), before anything walks the tree.
void build_game(bool choose_compression, std::optional<bool> isomorphic = std::nullopt, bool runout_tables = true);

void cmd_build_tree(const Tokens& tokens);
