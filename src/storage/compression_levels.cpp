#include "storage/compression_levels.h"

#include <algorithm>

#include "shell/protocol/tokens.h"

namespace {

// Every level that has a pair number agrees on its class, so a number alone
// names a class.
constexpr bool classes_follow_numbers() {
    for (const CompressionLevel& a : compression_levels) {
        for (const CompressionLevel& b : compression_levels) {
            if (a.pair.regret == b.pair.regret && a.river_regrets != b.river_regrets) return false;
            if (a.pair.strategy == b.pair.strategy && a.river_strategy != b.river_strategy) return false;
        }
    }
    return true;
}
static_assert(classes_follow_numbers());
static_assert(std::size(compression_levels) == highest_compression_level + 1);

}  // namespace

CompressionPair compression_pair(int level) {
    if (level < 1 || level > highest_compression_level) return {0, 0};
    return compression_levels[level].pair;
}

StorageClass river_regret_class(int regret_number) {
    for (const CompressionLevel& level : compression_levels)
        if (level.pair.regret == regret_number) return level.river_regrets;
    return compression_levels[0].river_regrets;
}

StorageClass river_strategy_class(int strategy_number) {
    for (const CompressionLevel& level : compression_levels)
        if (level.pair.strategy == strategy_number) return level.river_strategy;
    return compression_levels[0].river_strategy;
}

const char* compression_level_name(int level) {
    if (level == -1) return automatic_compression_word;
    if (level < 0 || level > highest_compression_level) return "?";
    return compression_levels[level].word;
}

int parse_compression_level(const std::string& token) {
    if (token == automatic_compression_word) return -1;
    for (const CompressionLevel& level : compression_levels)
        if (token == level.word) return level.level;
    const int level = parse_int(token);
    if (level < 0) return -1;
    return std::min(level, highest_compression_level);
}
