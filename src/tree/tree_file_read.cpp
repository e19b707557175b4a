// Reading a tree file: the game, a build of it, then the values, into a new
// engine that replaces the present one only once the whole file is read.
#include <algorithm>
#include <cmath>
#include <cstring>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "shell/protocol/game_setup.h"
#include "shell/protocol/processor.h"
#include "shell/protocol/reply.h"
#include "shell/protocol/settings.h"
#include "storage/codes/codec.h"
#include "storage/codes/row_decoder.h"
#include "storage/compression_levels.h"
#include "tree/boards.h"
#include "tree/build.h"
#include "tree/tree_file.h"
#include "tree/tree_file_records.h"

namespace {

[[noreturn]] void invalid_file() { throw_command_error("invalid file"); }

// Everything a load replaces, kept aside until the load has succeeded.
struct TreeState {
    std::unique_ptr<SubgameEngine> engine;
    bool tree_ready = false;
    bool skip_values = false;
    int32_t first_street = 1;
    int effective_stack = 0;
    int compression_level = 0;
    CardMask flop = 0, turn = 0, river = 0;
    double pot_first = 0, pot_second = 0, pot = 0;
    std::optional<RangeVector> ranges[2];
    SchematicTree lines;
    std::vector<std::string> info_lines;
};

TreeState take_tree_state() {
    TreeState state;
    state.engine = std::move(engine);
    state.tree_ready = tree_ready;
    state.skip_values = skip_values;
    state.first_street = first_street;
    state.effective_stack = effective_stack;
    state.compression_level = compression_level;
    state.flop = flop_mask;
    state.turn = turn_mask;
    state.river = river_mask;
    state.pot_first = pot_first;
    state.pot_second = pot_second;
    state.pot = pot;
    for (int p = 0; p < 2; ++p) state.ranges[p] = player_range[p];
    state.lines = std::move(schematic_tree);
    schematic_tree = make_schematic_tree();
    state.info_lines = tree_info_lines;
    tree_ready = false;
    return state;
}

void restore_tree_state(TreeState& state) {
    engine = std::move(state.engine);
    tree_ready = state.tree_ready;
    skip_values = state.skip_values;
    first_street = state.first_street;
    effective_stack = state.effective_stack;
    compression_level = state.compression_level;
    flop_mask = state.flop;
    turn_mask = state.turn;
    river_mask = state.river;
    pot_first = state.pot_first;
    pot_second = state.pot_second;
    pot = state.pot;
    for (int p = 0; p < 2; ++p) player_range[p] = state.ranges[p];
    schematic_tree = std::move(state.lines);
    tree_info_lines = std::move(state.info_lines);
}

// The game as the head of the file states it, read before anything is built.
struct FileGame {
    bool skip_values = false;
    CardMask flop = 0, turn = 0, river = 0;
    double pot[3] = {0, 0, 0};
    RangeVector ranges[2]{};
    SchematicTree lines;
    EngineSettingsRecord settings;
    int32_t level = 0;
};

bool single_card_or_none(CardMask mask) { return __builtin_popcountll(mask) <= 1; }

FileGame read_game(ByteChannel& channel) {
    char magic[4];
    channel.transfer(magic, 4);
    if (std::memcmp(magic, tree_file_magic, 4) != 0) invalid_file();
    const int32_t version = read_field<int32_t>(channel);
    if (version > tree_file_version) throw_command_error("unsupported data format, update to latest version");
    if (version < 0) invalid_file();
    channel.version = version;

    FileGame game;
    game.skip_values = version >= 4 && read_field<uint8_t>(channel) != 0;
    game.flop = read_field<uint64_t>(channel);
    game.turn = read_field<uint64_t>(channel);
    game.river = read_field<uint64_t>(channel);
    const CardMask all_cards = (CardMask{1} << 52) - 1;
    const CardMask board = game.flop | game.turn | game.river;
    const bool board_valid = __builtin_popcountll(game.flop) == 3 && single_card_or_none(game.turn) &&
                             single_card_or_none(game.river) && (board & ~all_cards) == 0 &&
                             __builtin_popcountll(board) == 3 + __builtin_popcountll(game.turn | game.river) &&
                             (game.river == 0 || game.turn != 0);
    if (!board_valid) invalid_file();
    for (double& value : game.pot) value = read_field<double>(channel);
    if (!std::all_of(std::begin(game.pot), std::end(game.pot), [](double v) { return std::isfinite(v); }))
        invalid_file();
    for (RangeVector& range : game.ranges) {
        channel.transfer(range.data(), sizeof(double) * range.size());
        if (!std::all_of(range.begin(), range.end(), [](double w) { return std::isfinite(w) && w >= 0; }))
            invalid_file();
    }
    game.lines = read_schematic_tree(channel);
    game.settings = read_engine_settings(channel);
    const EngineSettingsRecord& s = game.settings;
    const bool settings_valid = (s.forgotten_from == -1 || s.forgotten_from == turn_street || s.forgotten_from == river_street) && s.average_strategy_mode >= 0 &&
                                s.average_strategy_mode <= 2 && std::isfinite(s.regret_scale) && s.regret_scale > 0;
    if (!settings_valid) invalid_file();
    game.level = read_field<int32_t>(channel);
    return game;
}

// Sets the game up as the file states it and builds it, with the file's
// isomorphism and stores: the file's rows fit those only. Without the runout
// tables, which the caller makes.
void build_file_game(FileGame& game, int version) {
    flop_mask = game.flop;
    turn_mask = game.turn;
    river_mask = game.river;
    pot_first = game.pot[0];
    pot_second = game.pot[1];
    pot = game.pot[2];
    for (int p = 0; p < 2; ++p) player_range[p] = game.ranges[p];
    schematic_tree = std::move(game.lines);
    if (schematic_tree->children.empty()) invalid_file();
    const EngineSettingsRecord& s = game.settings;
    build_game(false, (s.flags & isomorphism_on_flag) != 0, false);

    SubgameEngine& e = *engine;
    e.format_version = version;
    e.flags = s.flags & (incomplete_tree_flag | isomorphism_on_flag | new_tree_flag);
    e.forgotten_from = s.forgotten_from;
    e.average_strategy_mode = s.average_strategy_mode;
    compression_level = game.level;
    const bool river_sums = version >= 7 ? (s.flags & river_sums_file_flag) != 0 : river_strategy_enabled;
    assign_storage(compression_pair(game.level), river_sums);
    e.regret_scale = s.regret_scale;
}

int cache_elements(const TreeNode& node) { return node.street == turn_street ? 1 : turn_group_slots; }

// Decision boards of a node's stores in the cut-off rows: the flop's one,
// or one per turn card.
int cut_board_count(const SubgameEngine& e, const TreeNode& node) {
    return node.street == flop_street ? 1 : static_cast<int>(e.root_board->turn_hand_counts.size());
}

void read_cut_rows(SubgameEngine& e, RowDecoder& rows) {
    std::vector<uint16_t> row(max_row_values);
    std::vector<float> values(max_row_values), rest(max_row_values);
    for (TreeNode& node : e.nodes) {
        if (node.kind != decision_node || node.street >= e.forgotten_from || !node.regrets) continue;
        const int actions = static_cast<int>(node.children.size());
        for (int board = 0; board < cut_board_count(e, node); ++board) {
            const int group = node.street == flop_street ? -1 : board;
            const int hands = node.regrets->row_length(group, -1);
            if (hands < 0 || hands > max_row_values) invalid_file();
            // Thousandths of each action but the last, which takes what is left.
            std::fill(rest.begin(), rest.begin() + hands, 1000.0f);
            for (int a = 0; a + 1 < actions; ++a) {
                rows.get_row16(row.data(), nullptr, hands);
                for (int h = 0; h < hands; ++h) {
                    values[h] = row[h];
                    rest[h] -= values[h];
                }
                node.regrets->write_row(group, -1, a, values.data());
            }
            for (int h = 0; h < hands; ++h) values[h] = std::max(rest[h], 0.0f);
            node.regrets->write_row(group, -1, actions - 1, values.data());
        }
    }
}

// The values of the caches: their sizes, then (unless the file has no
// values) their rows.
void read_cache_values(ByteChannel& channel, bool skip_values, const std::vector<TreeNode*>& cached) {
    for (TreeNode* node : cached) {
        for (int element = 0; element < cache_elements(*node); ++element) {
            for (int index = 0; index < 4; ++index) {
                const int32_t size = read_field<int32_t>(channel);
                if (size < 0 || size > max_row_values) invalid_file();
                // Zeros held as a null block until rows fill them: a file
                // without values states sizes that no bytes back.
                cache_value_vector(node->cache[element], index).set_zero(size);
            }
        }
    }
    if (skip_values) return;
    const std::unique_ptr<RowDecoder> rows = open_row_section(channel);
    std::vector<uint32_t> row(max_row_values);
    for (TreeNode* node : cached) {
        for (int element = 0; element < cache_elements(*node); ++element) {
            for (int index = 0; index < 4; ++index) {
                HandVector& vector = cache_value_vector(node->cache[element], index);
                rows->get_row32(row.data(), nullptr, vector.count);
                vector.resize(vector.count);
                for (int i = 0; i < vector.count; ++i) vector.data[i] = cache_value_of_code(row[i]);
            }
        }
    }
}

void read_solution(ByteChannel& channel, SubgameEngine& e, bool skip_values, const TreeFileHooks& hooks) {
    const int version = channel.version;
    const int32_t iterations = read_field<int32_t>(channel);
    if (iterations < 0) invalid_file();
    const bool forgotten = e.forgotten_from >= 0;
    std::vector<TreeNode*> cached;  // nodes whose caches the later sections fill
    bool reach_missing = false;
    for (TreeNode& node : e.nodes) {
        const bool cut = forgotten && node.street > e.forgotten_from;
        if (node.cache && !(cut && version >= 3)) {
            for (int element = 0; element < cache_elements(node); ++element)
                reach_missing = read_cache_record(channel, node.cache[element]) || reach_missing;
            if (!cut) cached.push_back(&node);
        }
        if (forgotten && version >= 4) continue;
        if (!node.regrets) continue;
        // Opened node by node as the file reaches it, so that a file that
        // ends early has taken the memory of one node beyond its bytes at
        // most, not that of the whole tree.
        if (!node.regrets->open() || (node.strategy_sums && !node.strategy_sums->open()))
            throw_command_error("out of memory");
        node.opened = 1;
        node.regrets->load(channel);
        if (node.strategy_sums) node.strategy_sums->load(channel);
    }
    // The stores the file has no rows for: a forgotten tree's solved
    // streets, which the cut-off rows fill.
    if (!open_all_storage(e)) throw_command_error("out of memory");
    if (version >= 4) {
        read_cache_values(channel, skip_values, cached);
        if (forgotten) {
            if (!skip_values) read_cut_rows(e, *open_row_section(channel));
            if (reach_missing && hooks.rebuild_missing_reach) hooks.rebuild_missing_reach(e);
        }
    }
    // assign_storage cleared the count; the file's holds from here on.
    e.iterations = iterations;
}

std::vector<std::string> read_line_list(ByteChannel& channel) {
    const int32_t count = read_field<int32_t>(channel);
    if (count < 0) invalid_file();
    require_bytes(channel, int64_t{count} * 4);
    std::vector<std::string> lines;
    lines.reserve(static_cast<size_t>(count));
    for (int32_t i = 0; i < count; ++i) {
        const int32_t length = read_field<int32_t>(channel);
        if (length < 0) invalid_file();
        require_bytes(channel, length);
        std::string line(static_cast<size_t>(length), '\0');
        if (length > 0) channel.transfer(line.data(), length);
        lines.push_back(std::move(line));
    }
    return lines;
}

// Joins a thread, if it runs, when it goes out of scope: before a refused
// load frees the tree the thread works on.
struct TablesJoin {
    std::thread& thread;
    ~TablesJoin() {
        if (thread.joinable()) thread.join();
    }
};

}  // namespace

int64_t tree_stream_reserve_cap(const SubgameEngine& e) {
    // No stream carries more than every river row of the tree at full width.
    int64_t values = 0;
    for (const TreeNode& node : e.nodes) {
        if (node.street != river_street || node.kind != decision_node) continue;
        if (node.regrets) values += node.regrets->value_count(-1);
        if (node.strategy_sums) values += node.strategy_sums->value_count(-1);
    }
    return ((values + 31) / 32 + values * 4 + 16383) & ~int64_t{16383};
}

bool tree_stream_reserves_hold(const SubgameEngine& e) {
    if (!e.root_board) return true;
    const int groups = static_cast<int>(e.root_board->river_hand_counts.size());
    std::vector<const TreeNode*> chain, stack;
    for (const TreeNode& first : e.nodes) {
        if (first.street != river_street || first.kind != decision_node || !first.cache) continue;
        // The river nodes of the subtree in walk order, as the walk opens them.
        chain.clear();
        stack.assign(1, &first);
        while (!stack.empty()) {
            const TreeNode* node = stack.back();
            stack.pop_back();
            if (node->kind != decision_node) continue;
            chain.push_back(node);
            for (auto child = node->children.rbegin(); child != node->children.rend(); ++child)
                stack.push_back(&e.nodes[*child]);
        }
        for (int group = 0; group < groups; ++group) {
            for (int player = 0; player < 2; ++player) {
                for (const bool sums : {false, true}) {
                    const Storage* head = nullptr;
                    int64_t reserve = 0;
                    for (const TreeNode* node : chain) {
                        const Storage* store = sums ? node->strategy_sums.get() : node->regrets.get();
                        if (node->player != player || !store) continue;
                        if (!head) head = store;
                        reserve += store->value_count(group);
                    }
                    if (head && !head->stream_holds(group, reserve)) return false;
                }
            }
        }
    }
    return true;
}

void read_tree_file(ByteChannel& channel, const TreeFileHooks& hooks) {
    TreeState previous = take_tree_state();
    try {
        FileGame game = read_game(channel);
        const int version = channel.version;
        build_file_game(game, version);
        SubgameEngine& e = *engine;
        // Only walks read the runout tables, and the values of a file don't
        // need them: they are made beside the reading, on a thread of their
        // own, unless a walk may come before the end (a forgotten tree's
        // missing reach). The thread is joined before the tree is used or,
        // on a refusal, freed.
        std::thread runout_tables;
        const TablesJoin join{runout_tables};
        if (wants_runout_tables(e)) {
            if (e.forgotten_from >= 0) {
                build_runout_tables(*e.root_board);
            } else {
                runout_tables = std::thread([&e] { build_runout_tables(*e.root_board); });
            }
        }
        channel.stream_reserve_cap = tree_stream_reserve_cap(e);
        read_solution(channel, e, game.skip_values, hooks);
        if (!tree_stream_reserves_hold(e)) invalid_file();
        if (runout_tables.joinable()) runout_tables.join();
        std::vector<std::string> info_lines;
        if (version >= 7) info_lines = read_line_list(channel);
        tree_info_lines = std::move(info_lines);
        skip_values = game.skip_values;
        tree_ready = true;
    } catch (...) {
        // The new engine goes before the old one comes back: at no moment
        // are both more than the memory of the two.
        destroy_engine();
        restore_tree_state(previous);
        throw;
    }
    update_accuracy_target();
}
