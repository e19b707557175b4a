#include "tree/tree_file_records.h"

#include <algorithm>
#include <cmath>
#include <vector>

#include "shell/protocol/reply.h"
#include "storage/codes/codec.h"
#include "storage/codes/row_transform.h"

namespace {

[[noreturn]] void invalid_file() { throw_command_error("invalid file"); }

// Bytes of a node record without its children.
constexpr int64_t schematic_record_bytes = 4 * 4 + 3 * 8 + 4;

void write_node(ByteChannel& channel, const SchematicNode& node) {
    write_field<int32_t>(channel, node.player);
    write_field<int32_t>(channel, node.street);
    write_field<int32_t>(channel, node.bets);
    write_field<int32_t>(channel, node.node_index);
    write_field<double>(channel, node.amount);
    write_field<double>(channel, node.committed[0]);
    write_field<double>(channel, node.committed[1]);
    write_field<int32_t>(channel, static_cast<int32_t>(node.children.size()));
    for (const auto& [key, child] : node.children) {
        write_field<double>(channel, key);
        write_node(channel, *child);
    }
}

void read_node(ByteChannel& channel, SchematicNode& node, int depth) {
    if (depth > max_schematic_depth) invalid_file();
    node.player = read_field<int32_t>(channel);
    node.street = read_field<int32_t>(channel);
    node.bets = read_field<int32_t>(channel);
    node.node_index = read_field<int32_t>(channel);
    node.amount = read_field<double>(channel);
    node.committed[0] = read_field<double>(channel);
    node.committed[1] = read_field<double>(channel);
    const int32_t children = read_field<int32_t>(channel);
    // The shapes add_line makes: two players, streets that grow by at most
    // one per action and stay on the river at most, numbers that are numbers.
    const bool street_follows = !node.parent || node.street == node.parent->street ||
                                node.street == node.parent->street + 1;
    if ((node.player != 0 && node.player != 1) || node.street < 0 || node.street > 3 || !street_follows ||
        node.bets < 0 || !std::isfinite(node.amount) || !std::isfinite(node.committed[0]) ||
        !std::isfinite(node.committed[1]) || children < 0)
        invalid_file();
    require_bytes(channel, int64_t{children} * (8 + schematic_record_bytes));
    for (int32_t c = 0; c < children; ++c) {
        const double key = read_field<double>(channel);
        if (!std::isfinite(key) || (key < 0 && key != fold_key)) invalid_file();
        auto child = std::make_unique<SchematicNode>();
        child->parent = &node;
        read_node(channel, *child, depth + 1);
        // A repeated key keeps the first entry's place and takes the later child.
        node.children[key] = std::move(child);
    }
}

// A vector's count, checked against the longest hand list before anything
// is taken for it.
int32_t read_vector_count(ByteChannel& channel, int value_bytes) {
    const int32_t count = read_field<int32_t>(channel);
    if (count < 0 || count > max_row_values) invalid_file();
    require_bytes(channel, int64_t{count} * value_bytes);
    return count;
}

void read_floats(ByteChannel& channel, HandVector& vector, bool as_double) {
    const int32_t count = read_vector_count(channel, as_double ? 8 : 4);
    HandVector result;
    if (count > 0) result.resize(count);
    for (int i = 0; i < count; ++i)
        result.data[i] = as_double ? static_cast<float>(read_field<double>(channel)) : read_field<float>(channel);
    vector = std::move(result);
}

constexpr double reach_unit = 150.0;

void write_reach(ByteChannel& channel, const HandVector& vector) {
    write_field<int32_t>(channel, vector.count);
    std::vector<int16_t> codes(static_cast<size_t>(vector.count));
    for (int i = 0; i < vector.count; ++i) {
        const double scaled = std::nearbyint(static_cast<double>(vector.data[i]) * reach_unit);
        codes[i] = static_cast<int16_t>(std::clamp(scaled, -32768.0, 32767.0));
    }
    channel.transfer(codes.data(), static_cast<int64_t>(codes.size() * sizeof(int16_t)));
}

void read_reach(ByteChannel& channel, HandVector& vector) {
    const int32_t count = read_vector_count(channel, 2);
    std::vector<int16_t> codes(static_cast<size_t>(count));
    channel.transfer(codes.data(), static_cast<int64_t>(codes.size() * sizeof(int16_t)));
    HandVector result;
    if (count > 0) result.resize(count);
    for (int i = 0; i < count; ++i) result.data[i] = static_cast<float>(codes[i] / reach_unit);
    vector = std::move(result);
}

}  // namespace

void write_schematic_tree(ByteChannel& channel, const SchematicNode& root) { write_node(channel, root); }

SchematicTree read_schematic_tree(ByteChannel& channel) {
    SchematicTree root = make_schematic_tree();
    read_node(channel, *root, 0);
    return root;
}

void write_engine_settings(ByteChannel& channel, const EngineSettingsRecord& record) {
    write_field<uint32_t>(channel, record.flags);
    write_field<int32_t>(channel, record.forgotten_from);
    write_field<int32_t>(channel, record.average_strategy_mode);
    for (const int64_t values : record.street_values) write_field<int64_t>(channel, values);
    // The later of the two fields in the engine comes first.
    write_field<double>(channel, record.regret_scale);
    write_field<double>(channel, record.largest_value);
}

EngineSettingsRecord read_engine_settings(ByteChannel& channel) {
    EngineSettingsRecord record;
    record.flags = read_field<uint32_t>(channel);
    record.forgotten_from = read_field<int32_t>(channel);
    record.average_strategy_mode = read_field<int32_t>(channel);
    for (int64_t& values : record.street_values) values = read_field<int64_t>(channel);
    record.regret_scale = read_field<double>(channel);
    record.largest_value = read_field<double>(channel);
    return record;
}

HandVector& cache_value_vector(SubgameCache& cache, int index) {
    return index < 2 ? cache.value[index] : cache.best[index - 2];
}

const HandVector& cache_value_vector(const SubgameCache& cache, int index) {
    return index < 2 ? cache.value[index] : cache.best[index - 2];
}

uint32_t cache_value_code(float value) {
    const double hundredths = std::nearbyint(static_cast<double>(value) * 100.0);
    const double bounded = std::isfinite(hundredths) ? std::clamp(hundredths, -2147483648.0, 2147483647.0) : 0.0;
    return zigzag(static_cast<int32_t>(bounded));
}

float cache_value_of_code(uint32_t code) { return static_cast<float>(0.01 * unzigzag(code)); }

void write_cache_record(ByteChannel& channel, const SubgameCache& cache, bool with_reach) {
    const bool present[2] = {with_reach && cache.reach_sum[0].data, with_reach && cache.reach_sum[1].data};
    write_field<uint8_t>(channel, present[0] ? 0 : 1);
    write_field<uint8_t>(channel, present[1] ? 0 : 1);
    for (int player = 0; player < 2; ++player)
        if (present[player]) write_reach(channel, cache.reach_sum[player]);
    write_field<uint8_t>(channel, cache.frozen ? 1 : 0);
    write_field<uint64_t>(channel, cache.solved_cards);
}

bool read_cache_record(ByteChannel& channel, SubgameCache& cache) {
    bool missing = false;
    if (channel.version < 4) {
        for (HandVector& vector : cache.reach_sum) read_floats(channel, vector, channel.version < 2);
        for (int index = 0; index < 4; ++index)
            read_floats(channel, cache_value_vector(cache, index), channel.version < 2);
    } else {
        const bool absent[2] = {read_field<uint8_t>(channel) != 0, read_field<uint8_t>(channel) != 0};
        for (int player = 0; player < 2; ++player) {
            if (absent[player]) {
                cache.reach_sum[player] = HandVector();
                missing = true;
            } else {
                read_reach(channel, cache.reach_sum[player]);
            }
        }
    }
    cache.frozen = read_field<uint8_t>(channel) != 0;
    cache.solved_cards = read_field<uint64_t>(channel);
    return missing;
}
