// Writing a tree file, version 7: exactly what the reader takes back.
#include <algorithm>
#include <cmath>
#include <vector>

#include "shell/protocol/reply.h"
#include "shell/protocol/settings.h"
#include "storage/codes/block_row_code.h"
#include "storage/codes/codec.h"
#include "tree/boards.h"
#include "tree/tree_file.h"
#include "tree/tree_file_records.h"

namespace {

CardMask card_mask(Card card) { return card >= 0 ? card_bit(card) : 0; }

int cache_elements(const TreeNode& node) { return node.street == turn_street ? 1 : turn_group_slots; }

// The lines the tree was built from, with each node's index in the tree: the
// engine's own copy, which edits of the lines after the build leave alone.
const SchematicNode& built_lines(const SubgameEngine& e) { return *e.lines; }

// Whether the lines still have the tree's shape: node for node in build
// order, with the same number of actions.
bool lines_fit_tree(const SchematicNode& node, const SubgameEngine& e, size_t& next) {
    if (next >= e.nodes.size() || node.node_index != static_cast<int32_t>(next)) return false;
    if (e.nodes[next].children.size() != node.children.size()) return false;
    ++next;
    for (const auto& entry : node.children)
        if (!lines_fit_tree(*entry.second, e, next)) return false;
    return true;
}

// Rows of a section in the block row code, each behind its byte count.
class BlockRowWriter {
public:
    explicit BlockRowWriter(ByteChannel& channel) : channel_(channel), code_(block_row_bound32(max_row_values)) {
        write_field<uint8_t>(channel_, 1);  // block rows, not entropy-coded streams
    }
    void put_row32(const uint32_t* row, int count) { put(encode_block_row32(row, count, code_.data())); }
    void put_row16(const uint16_t* row, int count) { put(encode_block_row16(row, count, code_.data())); }

private:
    void put(int bytes) {
        write_field<uint16_t>(channel_, static_cast<uint16_t>(bytes));
        if (bytes > 0) channel_.transfer(code_.data(), bytes);
    }

    ByteChannel& channel_;
    std::vector<uint8_t> code_;
};

bool has_river_sums(const SubgameEngine& e) {
    return std::any_of(e.nodes.begin(), e.nodes.end(), [](const TreeNode& node) {
        return node.street == river_street && node.kind == decision_node && node.strategy_sums;
    });
}

void write_game(ByteChannel& channel, const SubgameEngine& e, const TreeDumpOptions& options) {
    channel.transfer(const_cast<char*>(tree_file_magic), 4);
    write_field<int32_t>(channel, tree_file_version);
    channel.version = tree_file_version;
    write_field<uint8_t>(channel, options.without_values ? 1 : 0);
    write_field<uint64_t>(channel, e.flop);
    write_field<uint64_t>(channel, card_mask(e.fixed_turn));
    write_field<uint64_t>(channel, card_mask(e.fixed_river));
    for (const double value : e.pot_block) write_field<double>(channel, value);
    for (const RangeVector& range : e.range)
        channel.transfer(const_cast<double*>(range.data()), sizeof(double) * range.size());
    write_schematic_tree(channel, built_lines(e));

    EngineSettingsRecord settings;
    settings.flags = e.flags.load() | (has_river_sums(e) ? river_sums_file_flag : 0);
    settings.forgotten_from = e.forgotten_from;
    settings.average_strategy_mode = e.average_strategy_mode;
    std::copy(std::begin(e.street_values), std::end(e.street_values), settings.street_values);
    settings.regret_scale = e.regret_scale;
    settings.largest_value = e.largest_value;
    write_engine_settings(channel, settings);
    write_field<int32_t>(channel, compression_level);
}

void write_cache_values(ByteChannel& channel, const std::vector<const TreeNode*>& cached, bool without_values) {
    for (const TreeNode* node : cached)
        for (int element = 0; element < cache_elements(*node); ++element)
            for (int index = 0; index < 4; ++index)
                write_field<int32_t>(channel, cache_value_vector(node->cache[element], index).count);
    if (without_values) return;
    BlockRowWriter rows(channel);
    std::vector<uint32_t> row(max_row_values);
    for (const TreeNode* node : cached) {
        for (int element = 0; element < cache_elements(*node); ++element) {
            for (int index = 0; index < 4; ++index) {
                const HandVector& vector = cache_value_vector(node->cache[element], index);
                for (int i = 0; i < vector.count; ++i) row[i] = cache_value_code(vector.data ? vector.data[i] : 0.0f);
                rows.put_row32(row.data(), vector.count);
            }
        }
    }
}

// The solved streets of a forgotten tree: each board's shown strategy in
// thousandths, the last action left to what the others leave.
void write_cut_rows(ByteChannel& channel, SubgameEngine& e, const TreeFileHooks& hooks) {
    if (!hooks.shown_strategy) fail("no strategy reader for a forgotten tree");
    BlockRowWriter rows(channel);
    std::vector<float> strategy;
    std::vector<uint16_t> row(max_row_values);
    for (const TreeNode& node : e.nodes) {
        if (node.kind != decision_node || node.street >= e.forgotten_from || !node.regrets) continue;
        const int actions = static_cast<int>(node.children.size());
        const int boards = node.street == flop_street ? 1 : static_cast<int>(e.root_board->turn_hand_counts.size());
        for (int board = 0; board < boards; ++board) {
            const int group = node.street == flop_street ? -1 : board;
            const int hands = node.regrets->row_length(group, -1);
            strategy.assign(static_cast<size_t>(actions) * hands, 0.0f);
            hooks.shown_strategy(e, node, group, hands, strategy.data());
            for (int a = 0; a + 1 < actions; ++a) {
                for (int h = 0; h < hands; ++h) {
                    const float share = strategy[size_t(a) * hands + h];
                    row[h] = static_cast<uint16_t>(std::clamp(std::nearbyint(share * 1000.0f), 0.0f, 1000.0f));
                }
                rows.put_row16(row.data(), hands);
            }
        }
    }
}

void write_solution(ByteChannel& channel, SubgameEngine& e, const TreeDumpOptions& options,
                    const TreeFileHooks& hooks) {
    write_field<int32_t>(channel, e.iterations);
    const bool forgotten = e.forgotten_from >= 0;
    std::vector<const TreeNode*> cached;
    for (const TreeNode& node : e.nodes) {
        const bool cut = forgotten && node.street > e.forgotten_from;
        if (node.cache && !cut) {
            // A whole tree's reach sums are what training summed for
            // forgetting, which makes them anew; a forgotten tree's are
            // what its forgotten streets are solved from.
            for (int element = 0; element < cache_elements(node); ++element)
                write_cache_record(channel, node.cache[element], forgotten);
            cached.push_back(&node);
        }
        if (forgotten) continue;
        if (node.regrets) node.regrets->save(channel);
        if (node.strategy_sums) node.strategy_sums->save(channel);
    }
    write_cache_values(channel, cached, options.without_values);
    if (forgotten && !options.without_values) write_cut_rows(channel, e, hooks);
}

void write_line_list(ByteChannel& channel) {
    write_field<int32_t>(channel, static_cast<int32_t>(tree_info_lines.size()));
    for (const std::string& line : tree_info_lines) {
        write_field<int32_t>(channel, static_cast<int32_t>(line.size()));
        if (!line.empty()) channel.transfer(const_cast<char*>(line.data()), static_cast<int64_t>(line.size()));
    }
}

}  // namespace

void write_tree_file(ByteChannel& channel, SubgameEngine& e, const TreeDumpOptions& options,
                     const TreeFileHooks& hooks) {
    size_t next = 0;
    if (!lines_fit_tree(built_lines(e), e, next) || next != e.nodes.size())
        throw_command_error("lines changed since the tree was built");
    write_game(channel, e, options);
    write_solution(channel, e, options, hooks);
    write_line_list(channel);
}
