// The records of a tree file that are not a store's section: the schematic
// tree, the engine's settings, the chance positions' caches. Shared by the
// reading and the writing side.
#pragma once

#include <cstdint>

#include "model/lines.h"
#include "storage/codes/byte_channel.h"
#include "tree/subgame_cache.h"

// Nodes of the betting lines nest no deeper than this in a file; lines are
// far shorter, and the reader recurses.
constexpr int max_schematic_depth = 512;

// Per node: player, street, bets, node_index (i32 each), amount and the two
// committed totals (f64 each), the child count, then per child its key (f64)
// and its record.
void write_schematic_tree(ByteChannel& channel, const SchematicNode& root);
// Refuses with "invalid file" on a tree add_line could not have made the
// shape of (a player other than 0 and 1, a street that falls or jumps, an
// amount that is not a number) and on nesting beyond max_schematic_depth.
SchematicTree read_schematic_tree(ByteChannel& channel);

// The engine's settings as the file holds them: flags, forgotten_from,
// average_strategy_mode, the four street value counts, then regret_scale
// and largest_value.
struct EngineSettingsRecord {
    uint32_t flags = 0;
    int32_t forgotten_from = -1;
    int32_t average_strategy_mode = 1;
    int64_t street_values[4] = {0, 0, 0, 0};
    double regret_scale = 1;
    double largest_value = 0;
};
void write_engine_settings(ByteChannel& channel, const EngineSettingsRecord& record);
EngineSettingsRecord read_engine_settings(ByteChannel& channel);

// One cache element. Before version 4 all six vectors are inline (as f64
// before version 2, then f32); from 4 on only the two reach vectors, each
// behind a "missing" byte, as 16-bit values in units of 1/150, and the four
// value vectors follow in later sections: their sizes, then their rows. The
// frozen byte and the solved cards close the record. The writer writes the
// form of version 4 on; `with_reach` says whether it keeps the reach vectors.
void write_cache_record(ByteChannel& channel, const SubgameCache& cache, bool with_reach);
// Reads the form of the channel's version; returns whether a reach vector
// was left out.
bool read_cache_record(ByteChannel& channel, SubgameCache& cache);

// The four value vectors of a cache element in file order: value of OOP,
// value of IP, best of OOP, best of IP.
HandVector& cache_value_vector(SubgameCache& cache, int index);
const HandVector& cache_value_vector(const SubgameCache& cache, int index);

// Values of the cache rows are in hundredths, zigzag folded.
uint32_t cache_value_code(float value);
float cache_value_of_code(uint32_t code);
