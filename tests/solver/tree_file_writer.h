// A writer of tree files in every version, for the tests of the reader: each
// version's reading path is tested on a file it really reads. The program
// writes version 7 only.
#pragma once

#include <algorithm>
#include <cmath>
#include <cstring>
#include <vector>

#include "shell/protocol/settings.h"
#include "storage/codes/block_row_code.h"
#include "storage/codes/codec.h"
#include "storage/codes/row_transform.h"
#include "storage/coder_streams.h"
#include "storage/memory_channel.h"
#include "tree/boards.h"
#include "tree/tree_file.h"
#include "tree/tree_file_records.h"

struct OldFileChoices {
    int version = 7;
    // From version 6 on: the value rows as entropy-coded streams (else block rows).
    bool entropy_rows = false;
};

namespace old_files {

inline int cache_elements(const TreeNode& node) { return node.street == turn_street ? 1 : turn_group_slots; }

// Rows of a value section in either form.
class RowSectionWriter {
public:
    RowSectionWriter(ByteChannel& channel, bool entropy) : channel_(channel), entropy_(entropy) {
        if (channel.version >= 6) write_field<uint8_t>(channel, entropy ? 0 : 1);
        if (entropy_) writer_ = open_writer(entropy_coder_id, streams_.writing(), &statistics_);
    }
    void put32(const uint32_t* row, int count) {
        if (!entropy_) {
            std::vector<uint8_t> code(block_row_bound32(std::max(count, 1)));
            const int bytes = encode_block_row32(row, count, code.data());
            write_field<uint16_t>(channel_, static_cast<uint16_t>(bytes));
            channel_.transfer(code.data(), bytes);
            return;
        }
        if (count < 1) return;  // the reader reads nothing for an empty row
        std::vector<uint32_t> a(count), b(count);
        const TransformedRow coded = transform_row32(row, nullptr, count, a.data(), b.data());
        writer_->write(coded.values, count, coded.flag);
    }
    // Entropy-coded rows go out as 24 sized streams once all are coded.
    void finish() {
        if (!entropy_) return;
        writer_.reset();
        for (auto& stream : streams_.bytes) {
            write_field<uint64_t>(channel_, stream.size());
            if (!stream.empty()) channel_.transfer(stream.data(), static_cast<int64_t>(stream.size()));
        }
    }

private:
    ByteChannel& channel_;
    bool entropy_;
    MemoryStreams streams_;
    CoderStatistics statistics_;
    std::unique_ptr<CodecWriter> writer_;
};

inline void write_vector(ByteChannel& channel, const HandVector& vector, bool as_double) {
    write_field<int32_t>(channel, vector.count);
    for (int i = 0; i < vector.count; ++i) {
        const float value = vector.data ? vector.data[i] : 0.0f;
        if (as_double) {
            write_field<double>(channel, value);
        } else {
            write_field<float>(channel, value);
        }
    }
}

// From version 4 on, reach vectors are written only for a tree cut off, which
// this writer does not make.
inline void write_cache(ByteChannel& channel, const SubgameCache& cache) {
    if (channel.version >= 4) {
        write_cache_record(channel, cache, false);
        return;
    }
    const bool as_double = channel.version < 2;
    for (const HandVector& vector : cache.reach_sum) write_vector(channel, vector, as_double);
    for (int index = 0; index < 4; ++index) write_vector(channel, cache_value_vector(cache, index), as_double);
    write_field<uint8_t>(channel, cache.frozen ? 1 : 0);
    write_field<uint64_t>(channel, cache.solved_cards);
}

}  // namespace old_files

// The file of the present engine in the chosen version.
inline std::vector<uint8_t> write_old_tree_file(const OldFileChoices& choices) {
    using namespace old_files;
    SubgameEngine& e = *engine;
    const int version = choices.version;
    MemoryChannel channel(version);
    for (const char letter : tree_file_magic) write_field<char>(channel, letter);
    write_field<int32_t>(channel, version);
    if (version >= 4) write_field<uint8_t>(channel, 0);
    write_field<uint64_t>(channel, e.flop);
    write_field<uint64_t>(channel, e.fixed_turn >= 0 ? card_bit(e.fixed_turn) : 0);
    write_field<uint64_t>(channel, e.fixed_river >= 0 ? card_bit(e.fixed_river) : 0);
    for (const double value : e.pot_block) write_field<double>(channel, value);
    for (const RangeVector& range : e.range) channel.transfer(const_cast<double*>(range.data()), 1326 * 8);
    write_schematic_tree(channel, *e.lines);

    EngineSettingsRecord settings;
    settings.flags = e.flags.load();
    bool river_sums = false;
    for (const TreeNode& node : e.nodes) river_sums = river_sums || (node.street == river_street && node.strategy_sums);
    if (river_sums && version >= 7) settings.flags |= river_sums_file_flag;
    settings.forgotten_from = -1;
    settings.average_strategy_mode = e.average_strategy_mode;
    std::copy(std::begin(e.street_values), std::end(e.street_values), settings.street_values);
    settings.regret_scale = e.regret_scale;
    settings.largest_value = e.largest_value;
    write_engine_settings(channel, settings);
    write_field<int32_t>(channel, compression_level);

    write_field<int32_t>(channel, e.iterations);
    std::vector<const TreeNode*> cached;
    for (const TreeNode& node : e.nodes) {
        if (node.cache) {
            for (int element = 0; element < cache_elements(node); ++element) write_cache(channel, node.cache[element]);
            cached.push_back(&node);
        }
        if (node.regrets) node.regrets->save(channel);
        if (node.strategy_sums) node.strategy_sums->save(channel);
    }
    if (version >= 4) {
        for (const TreeNode* node : cached)
            for (int element = 0; element < cache_elements(*node); ++element)
                for (int index = 0; index < 4; ++index)
                    write_field<int32_t>(channel, cache_value_vector(node->cache[element], index).count);
        RowSectionWriter rows(channel, version < 6 || choices.entropy_rows);
        std::vector<uint32_t> row(max_row_values);
        for (const TreeNode* node : cached) {
            for (int element = 0; element < cache_elements(*node); ++element) {
                for (int index = 0; index < 4; ++index) {
                    const HandVector& vector = cache_value_vector(node->cache[element], index);
                    for (int i = 0; i < vector.count; ++i)
                        row[i] = cache_value_code(vector.data ? vector.data[i] : 0.0f);
                    rows.put32(row.data(), vector.count);
                }
            }
        }
        rows.finish();
    }
    if (version >= 7) {
        write_field<int32_t>(channel, static_cast<int32_t>(tree_info_lines.size()));
        for (const std::string& line : tree_info_lines) {
            write_field<int32_t>(channel, static_cast<int32_t>(line.size()));
            channel.transfer(const_cast<char*>(line.data()), static_cast<int64_t>(line.size()));
        }
    }
    return channel.bytes;
}
