#include "tree/build.h"

#include <algorithm>
#include <cfloat>
#include <cmath>

#include "shell/protocol/game_setup.h"
#include "shell/protocol/processor.h"
#include "shell/protocol/settings.h"
#include "storage/storage_assignment.h"
#include "tree/boards.h"
#include "tree/build_checks.h"
#include "tree/engine.h"
#include "tree/isomorphism.h"

namespace {

int card_count(CardMask mask) { return __builtin_popcountll(mask); }
Card single_card(CardMask mask) { return mask ? __builtin_ctzll(mask) : -1; }

void make_nodes(SubgameEngine& e, const std::vector<LineRecord>& records) {
    e.nodes.resize(records.size());
    for (size_t i = 0; i < records.size(); ++i) {
        const LineRecord& record = records[i];
        TreeNode& node = e.nodes[i];
        node.kind = record.kind;
        node.parent = record.parent;
        node.player = record.player;
        node.street = record.street;
        node.value = record.value;
        if (record.kind != decision_node) {
            node.player = records[record.parent].player;
            node.street = record.kind == fold_node ? records[record.parent].street : river_street;
        }
    }
    for (size_t i = 0; i < e.nodes.size(); ++i) {
        TreeNode& node = e.nodes[i];
        if (node.parent >= 0) {
            e.nodes[node.parent].children.push_back(static_cast<int32_t>(i));
            node.parent_node = &e.nodes[node.parent];
        }
        if (node.kind != decision_node) e.largest_value = std::max(e.largest_value, std::fabs(node.value));
    }
    int64_t parents = 0, children = 0;
    for (TreeNode& node : e.nodes) {
        const bool first = is_first_of_street(node);
        if (node.street == turn_street && first) {
            node.card_locks = std::make_unique<std::mutex[]>(turn_group_slots);
            if (node.kind == decision_node) node.cache = std::make_unique<SubgameCache[]>(1);
        } else if (node.street == river_street && first && node.kind == decision_node) {
            node.cache = std::make_unique<SubgameCache[]>(turn_group_slots);
        }
        node.constructed = 1;
        if (!node.children.empty()) {
            ++parents;
            children += static_cast<int64_t>(node.children.size());
            e.max_actions = std::max(e.max_actions, static_cast<int32_t>(node.children.size()));
        }
    }
    e.avg_actions = parents ? static_cast<double>(children) / static_cast<double>(parents) : 0;
    reply("#actions max %d avg %.2g\n", e.max_actions, e.avg_actions);
}

// A showdown whose parent bets on an earlier street: an all-in before the
// river, played out over the river cards.
bool has_river_runouts(const SubgameEngine& e) {
    return std::any_of(e.nodes.begin(), e.nodes.end(), [](const TreeNode& node) {
        return node.kind == showdown_node && is_first_of_street(node);
    });
}

// The hands of the deepest board the tree starts on.
const std::vector<CardMask>& root_hands(const SubgameEngine& e) {
    const RootBoard& root = *e.root_board;
    if (e.root_turn_group < 0) return root.hands;
    const RunoutBoard& turn = root.turns[e.root_turn_group];
    if (e.root_river_row < 0) return turn.hands;
    return turn.rivers[e.root_river_row].hands;
}

void make_boards_and_hands(SubgameEngine& e, const BoardCards& cards, bool isomorphic, bool runout_tables) {
    if (isomorphic) e.flags |= isomorphism_on_flag;
    const Card turn = first_street >= turn_street ? cards.turn : -1;
    const Card river = first_street >= river_street ? cards.river : -1;
    e.flop = cards.flop;
    e.fixed_turn = turn;
    e.fixed_river = river;
    e.dead = cards.flop | (turn >= 0 ? card_bit(turn) : 0) | (river >= 0 ? card_bit(river) : 0);

    CardMask flop = cards.flop;
    CardMask turn_mask = turn >= 0 ? card_bit(turn) : 0;
    CardMask river_mask = river >= 0 ? card_bit(river) : 0;
    SuitOrder order = identity_suit_order();
    if (isomorphic) canonical_suits(order, flop, turn_mask, river_mask);

    RangeVector working[2];
    for (int p = 0; p < 2; ++p) {
        e.range[p] = *player_range[p];
        if (isomorphic) {
            permute_range(cards.flop, turn_mask, river_mask, working[p].data(), e.range[p].data());
        } else {
            working[p] = e.range[p];
        }
        e.max_weight[p] = *std::max_element(working[p].begin(), working[p].end());
    }
    e.root_board = make_boards(flop, single_card(turn_mask), single_card(river_mask), isomorphic);
    SetHoles(*e.root_board, working[0].data(), working[1].data());
    if (runout_tables && wants_runout_tables(e)) build_runout_tables(*e.root_board);
    if (turn >= 0) {
        e.root_turn_group = e.root_board->turn_of_card[single_card(turn_mask)];
        if (river >= 0)
            e.root_river_row = e.root_board->turns[e.root_turn_group].river_of_card[single_card(river_mask)];
    }
    set_root_weights(working[0].data(), working[1].data(), root_hands(e), e.root_weights, e.root_reach);
}

void make_layouts(SubgameEngine& e) {
    const RootBoard& root = *e.root_board;
    std::vector<std::span<const int>> hand_counts;
    for (const auto& counts : root.river_hand_counts) hand_counts.emplace_back(counts);
    e.layouts.clear();
    e.layouts.resize(static_cast<size_t>(e.max_actions) + 1);
    for (int actions = 1; actions <= e.max_actions; ++actions)
        e.layouts[actions] = std::make_unique<RowLayout>(make_row_layout(actions, hand_counts));
}

int flop_suit_count(CardMask flop) {
    int suits = 0;
    for (int suit = 0; suit < 4; ++suit) suits += ((flop >> (suit * 13)) & 0x1FFF) != 0;
    return suits;
}

int64_t estimated_bytes(const SubgameEngine& e) {
    return e.street_bytes[1] + e.street_bytes[2] + e.street_bytes[3];
}

}  // namespace

bool wants_runout_tables(const SubgameEngine& e) { return e.fixed_river < 0 && has_river_runouts(e); }

void apply_compression_setting() {
    int level = compression_set;
    if (level < 0) {
        assign_storage({0, 0});
        const int64_t estimate = estimated_bytes(*engine);
        if (verbosity > 0) reply("[uncompressed storage %lld MB]\n", static_cast<long long>(estimate / 1024 / 1024));
        const int64_t limit = compression_memory_limit(read_physical_memory().available_bytes);
        level = auto_compression_level(estimate, limit, flop_suit_count(engine->flop));
        reply("#auto compression level %d\n", level);
    }
    compression_level = level;
    assign_storage(compression_pair(level));
}

void collect_lines(std::vector<LineRecord>& records, SchematicNode& node, int parent, double key) {
    const int index = static_cast<int>(records.size());
    node.node_index = index;
    if (!node.children.empty()) {
        records.push_back({decision_node, parent, node.player, first_street + node.street, 0.0});
    } else {
        records.push_back({key < 0 ? fold_node : showdown_node, parent, -1, -1, 0.5 * pot + node.amount});
    }
    for (auto& [child_key, child] : node.children) collect_lines(records, *child, index, child_key);
}

void create_engine(const std::vector<LineRecord>& records, const BoardCards& cards, bool isomorphic,
                   bool runout_tables) {
    destroy_engine();
    engine = std::make_unique<SubgameEngine>();
    SubgameEngine& e = *engine;
    make_nodes(e, records);
    make_boards_and_hands(e, cards, isomorphic, runout_tables);
    make_layouts(e);
    e.pot_block[0] = pot_first;
    e.pot_block[1] = pot_second;
    e.pot_block[2] = pot;
    e.regret_scale = compute_regret_scale(storage_precision, e.largest_value);
}

void assign_storage(CompressionPair pair) { assign_storage(pair, river_strategy_enabled); }

void assign_storage(CompressionPair pair, bool river_sums) {
    SubgameEngine& e = *engine;
    const CompressionPair effective = effective_compression(pair, first_street);
    e.regret_compression = effective.regret;
    e.strategy_compression = effective.strategy;
    const StorageConstants constants = storage_constants(effective, first_street);
    e.max_iterations = constants.max_iterations;
    e.pool_iterations = constants.pool_iterations;
    e.weight_exponent = constants.weight_exponent;
    e.weight_cap = constants.weight_cap;
    e.regret_scale = compute_regret_scale(storage_precision, e.largest_value);
    std::fill(std::begin(e.street_values), std::end(e.street_values), 0);
    const RootBoard& root = *e.root_board;
    for (TreeNode& node : e.nodes) {
        if (node.kind != decision_node) continue;
        if (e.forgotten_from >= 0 && node.street >= e.forgotten_from) continue;
        NodeStorageRequest request;
        request.street = node.street;
        request.first_street = first_street;
        request.format_version = e.format_version;
        request.pair = effective;
        request.accumulate = e.average_strategy_mode != 0;
        request.river_strategy = river_sums;
        NodeShape shape;
        shape.action_count = static_cast<int>(node.children.size());
        shape.root_hand_count = static_cast<int>(root.hands.size());
        shape.turn_hand_counts = root.turn_hand_counts;
        shape.layout = e.layouts[shape.action_count].get();
        node.regrets.reset();
        node.strategy_sums.reset();
        NodeStorage stores = create_node_storage(request, shape);
        node.regrets = std::move(stores.regrets);
        node.strategy_sums = std::move(stores.strategy_sums);
        node.opened = 0;
        e.street_values[node.street] += node.regrets->value_count(-1);
    }
    for (int street = 1; street <= 3; ++street)
        e.street_bytes[street] = street_bytes(e.street_values[street], e.average_strategy_mode != 0);
    e.storage_open = 0;
    e.iterations = 0;
}

void build_game(bool choose, std::optional<bool> isomorphic, bool runout_tables) {
    // A refused build leaves the tree that was there answering as before,
    // so the street and stack it reads are restored too.
    const int previous_first_street = first_street;
    const int previous_effective_stack = effective_stack;
    std::vector<LineRecord> records;
    // The tree keeps its own copy of the lines: they may change after the build.
    SchematicTree lines = copy_schematic_tree(*schematic_tree);
    try {
        // cut_line builds from what its cut leaves.
        if (lines->children.empty()) throw_command_error("lines not set");
        first_street = 1 + (turn_mask ? 1 : 0) + (river_mask ? 1 : 0);
        effective_stack = static_cast<int>(largest_line_amount(*lines));
        if (!isomorphic) isomorphic = isomorphism_by_street[first_street];
        if (first_street == flop_street && *isomorphic) check_range_symmetry();
        collect_lines(records, *lines, -1, 0.0);
        for (const LineRecord& record : records)
            if (record.kind == decision_node && record.street > river_street) throw_command_error("invalid line");
        const CardMask dead = flop_mask | (first_street > flop_street ? turn_mask : 0) |
                              (first_street > turn_street ? river_mask : 0);
        check_ranges_deal(dead);
        check_stakes(*lines, dead);
    } catch (...) {
        first_street = previous_first_street;
        effective_stack = previous_effective_stack;
        throw;
    }
    BoardCards cards;
    cards.flop = flop_mask;
    cards.turn = first_street > flop_street ? single_card(turn_mask) : -1;
    cards.river = first_street > turn_street ? single_card(river_mask) : -1;
    create_engine(records, cards, *isomorphic, runout_tables);
    engine->lines = std::move(lines);
    if (choose) apply_compression_setting();
    tree_ready = true;
}

void cmd_build_tree(const Tokens& tokens) {
    if (!player_range[0] || !player_range[1]) throw_command_error("ranges not set");
    if (card_count(flop_mask) != 3) throw_command_error("board not set");
    if (!schematic_tree || schematic_tree->children.empty()) throw_command_error("lines not set");
    skip_values = false;
    tree_info_lines.clear();
    build_game(true);
    if (verbosity > 0)
        reply("[compression set %d (%s) actual %d (%s)]\n", compression_set, compression_level_name(compression_set),
              compression_level, compression_level_name(compression_level));
    reply("%s ok!\n", tokens[0].c_str());
}
