// Which store each node gets, and the figures that go with a compression
// level: the solver constants it implies, the regret scale, the memory
// estimate of a tree and the automatic choice of a level.
//
// The tree owns the nodes, so the walk over them (assign_storage) lives with
// the tree; it asks here, node by node, for the stores to create.
#pragma once

#include <cstdint>
#include <memory>
#include <span>

#include "storage/storage.h"

// A store's class with what the class needs to know besides the node's shape.
struct StorageChoice {
    StorageClass storage_class = StorageClass::none;
    int stream_mode = 0;  // packed: 1 block rows, 2 entropy coded
    bool narrow = true;   // packed: 16-bit values (regrets), else 32-bit (strategy sums)
    bool operator==(const StorageChoice&) const = default;
};

// What decides the classes of one node.
struct NodeStorageRequest {
    int street = 1;          // the node's street: 1 flop, 2 turn, 3 river
    int first_street = 1;    // the street of the tree's root
    int format_version = 7;  // tree file version of a loaded tree, 7 for a built one
    CompressionPair pair;    // the level's pair; only a flop root keeps it
    bool accumulate = true;  // strategy sums are kept (average_strategy_mode != 0)
    bool river_strategy = true;  // river nodes keep strategy sums (enable_river_strategy)
};

// The rows a node's store must hold.
struct NodeShape {
    int action_count = 0;
    int root_hand_count = 0;                 // flop: the root list
    std::span<const int> turn_hand_counts;   // turn: one board per turn group
    const RowLayout* layout = nullptr;       // river: the layout of this action count
};

struct NodeStorage {
    std::unique_ptr<Storage> regrets;
    std::unique_ptr<Storage> strategy_sums;  // null when the node keeps no sums
};

// The pair in force: a tree whose root is not on the flop keeps every store flat.
CompressionPair effective_compression(CompressionPair pair, int first_street);

StorageChoice regret_storage_choice(const NodeStorageRequest& request);
// StorageClass::none when the node keeps no strategy sums.
StorageChoice strategy_storage_choice(const NodeStorageRequest& request);

// A store of the chosen class, without memory until its `open`.
std::unique_ptr<Storage> make_storage(const StorageChoice& choice, const NodeShape& shape);

NodeStorage create_node_storage(const NodeStorageRequest& request, const NodeShape& shape);

// Solver constants that follow from the stores of a tree.
struct StorageConstants {
    int max_iterations;      // absolute ceiling of iterations
    int pool_iterations;     // iterations that pool tied river regrets
    double weight_exponent;  // exponent of the strategy-sum weight
    double weight_cap;       // ceiling of that weight
};
StorageConstants storage_constants(CompressionPair effective_pair, int first_street);

// Unit of 16-bit regrets: 2^precision * 125 / largest_value.
double compute_regret_scale(double precision, double largest_value);

// Bytes a street costs at level "none": 2 per value for 16-bit regrets, and
// 4 more for the f32 strategy sums when they are kept.
int64_t street_bytes(int64_t street_values, bool accumulate);

// The memory a tree may take: 85% of the free physical memory, truncated.
int64_t compression_memory_limit(uint64_t free_bytes);

// The level "auto" resolves to, from the uncompressed estimate, the memory
// limit and the number of suits on the flop. Never 5: "fast" must be asked for.
int auto_compression_level(int64_t estimate_bytes, int64_t memory_limit, int flop_suit_count);
