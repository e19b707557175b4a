// The compression levels: the one table of their words, their (regret,
// strategy) pairs and the store classes of a flop tree's river nodes. The
// storage assignment reads its classes from here, and the level words of
// commands and reports come from here too.
#pragma once

#include <string>
#include <string_view>

// (regret number, strategy number): how river rows of a flop tree are kept.
// A regret number says how river regrets are kept (0: 16-bit rows, 1: block
// row code, 2: entropy coded); a strategy number the same for strategy sums
// (0: f32 rows, 1 and 2 as for regrets, 3: widening 16-bit rows).
struct CompressionPair {
    int regret = 0;
    int strategy = 0;
    bool operator==(const CompressionPair&) const = default;
};

enum class StorageClass {
    none,
    float_row,    // f32 rows of one board (flop nodes)
    turn_row,     // one float_row per turn card (turn nodes)
    float_arena,  // f32 river rows in one flat block
    word_arena,   // 16-bit river regrets in one flat block
    packed,       // rows compressed in a stream, one group open at a time
    widening,     // 16-bit strategy sums that widen to 24 bits per group
};

// What a level stores for the river nodes of a flop tree.
struct CompressionLevel {
    int level;
    const char* word;
    CompressionPair pair;
    StorageClass river_regrets;
    StorageClass river_strategy;
};

// Levels 0 to 5, by level; "auto" (-1) resolves to one of 0 to 4 when a tree
// is built.
inline constexpr CompressionLevel compression_levels[] = {
    {0, "none", {0, 0}, StorageClass::word_arena, StorageClass::float_arena},
    {1, "low", {0, 1}, StorageClass::word_arena, StorageClass::packed},
    {2, "medium", {1, 1}, StorageClass::packed, StorageClass::packed},
    {3, "high", {1, 2}, StorageClass::packed, StorageClass::packed},
    {4, "max", {2, 2}, StorageClass::packed, StorageClass::packed},
    {5, "fast", {0, 3}, StorageClass::word_arena, StorageClass::widening},
};
constexpr int highest_compression_level = 5;
// The word of the automatic choice, which is no level of its own.
constexpr const char* automatic_compression_word = "auto";

// The pair of a level; anything outside 1 to 5 is (0, 0).
CompressionPair compression_pair(int level);

// The classes the table gives river regrets, or river strategy sums, of a
// pair number; a number no level has stores as level 0 does.
StorageClass river_regret_class(int regret_number);
StorageClass river_strategy_class(int strategy_number);

// The word of a level (-1 "auto"), "?" for anything else.
const char* compression_level_name(int level);
// A level word or number, clamped to -1..5. Text that is neither throws
// std::invalid_argument.
int parse_compression_level(const std::string& token);
