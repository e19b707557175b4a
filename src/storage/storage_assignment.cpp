// The level table and the choice of a store per node.
#include "storage/storage_assignment.h"

#include <cfloat>
#include <cmath>

#include "storage/arena_storage.h"
#include "storage/float_row_storage.h"
#include "storage/packed_storage.h"
#include "storage/widening_storage.h"

CompressionPair effective_compression(CompressionPair pair, int first_street) {
    return first_street == 1 ? pair : CompressionPair{0, 0};
}

namespace {

// A river store of the class the level table gives: a packed store codes its
// rows as the pair number says (1 block row code, 2 entropy coded).
StorageChoice river_choice(StorageClass storage_class, int number, bool narrow) {
    if (storage_class == StorageClass::packed) return {storage_class, number, narrow};
    return {storage_class};
}

}  // namespace

StorageChoice regret_storage_choice(const NodeStorageRequest& request) {
    if (request.street == 1) return {StorageClass::float_row};
    if (request.street == 2) return {StorageClass::turn_row};
    // Trees rooted later are small, and their river rows stay f32; turn trees
    // saved before version 5 hold 16-bit rows.
    if (request.first_street == 3 || (request.first_street == 2 && request.format_version >= 5)) {
        return {StorageClass::float_arena};
    }
    const CompressionPair pair = effective_compression(request.pair, request.first_street);
    return river_choice(river_regret_class(pair.regret), pair.regret, true);
}

StorageChoice strategy_storage_choice(const NodeStorageRequest& request) {
    if (!request.accumulate) return {};
    if (request.street == 1) return {StorageClass::float_row};
    if (request.street == 2) return {StorageClass::turn_row};
    if (!request.river_strategy) return {};
    const CompressionPair pair = effective_compression(request.pair, request.first_street);
    return river_choice(river_strategy_class(pair.strategy), pair.strategy, false);
}

std::unique_ptr<Storage> make_storage(const StorageChoice& choice, const NodeShape& shape) {
    switch (choice.storage_class) {
        case StorageClass::none:
            return nullptr;
        case StorageClass::float_row:
            return std::make_unique<FloatRowStorage>(shape.action_count, shape.root_hand_count);
        case StorageClass::turn_row:
            return std::make_unique<TurnRowStorage>(shape.action_count, shape.turn_hand_counts);
        case StorageClass::float_arena:
            return std::make_unique<FloatArenaStorage>(shape.layout);
        case StorageClass::word_arena:
            return std::make_unique<WordArenaStorage>(shape.layout);
        case StorageClass::packed:
            return std::make_unique<PackedStorage>(shape.layout, choice.stream_mode, choice.narrow);
        case StorageClass::widening:
            return std::make_unique<WideningStorage>(shape.layout);
    }
    return nullptr;
}

NodeStorage create_node_storage(const NodeStorageRequest& request, const NodeShape& shape) {
    return {make_storage(regret_storage_choice(request), shape),
            make_storage(strategy_storage_choice(request), shape)};
}

StorageConstants storage_constants(CompressionPair effective_pair, int first_street) {
    StorageConstants constants;
    constants.max_iterations = effective_pair.strategy == 3 ? 2200 : 9000;
    constants.pool_iterations = effective_pair.regret == 2 ? 30 : 0;
    constants.weight_exponent = first_street == 3 ? 4.0 : 1.5;
    constants.weight_cap = first_street == 3 ? DBL_MAX : 262143.0;
    return constants;
}

double compute_regret_scale(double precision, double largest_value) {
    return std::pow(2.0, precision) * (125.0 / largest_value);
}

int64_t street_bytes(int64_t street_values, bool accumulate) { return street_values * (accumulate ? 6 : 2); }

int64_t compression_memory_limit(uint64_t free_bytes) {
    return static_cast<int64_t>(static_cast<double>(free_bytes) * 0.85);
}

int auto_compression_level(int64_t estimate_bytes, int64_t memory_limit, int flop_suit_count) {
    const double estimate = static_cast<double>(estimate_bytes);
    const double limit = static_cast<double>(memory_limit);
    // A rainbow flop moves the two lower thresholds down by a fifth.
    const bool rainbow = flop_suit_count == 3;
    const double thresholds[3] = {0.58, rainbow ? 0.312 : 0.39, rainbow ? 0.232 : 0.29};
    if (estimate < limit) return 0;
    for (int level = 1; level <= 3; ++level) {
        if (limit > estimate * thresholds[level - 1]) return level;
    }
    return 4;
}
