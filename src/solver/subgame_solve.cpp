#include "solver/subgame_solve.h"

#include <omp.h>
#include <xmmintrin.h>

#include <algorithm>
#include <cmath>
#include <mutex>
#include <vector>

#include "shell/protocol/settings.h"
#include "solver/solver_driver.h"
#include "solver/vector_ops.h"
#include "solver/walk_internal.h"
#include "tree/street_storage.h"

namespace {

constexpr int max_subgame_passes = 1000;
constexpr int first_check_pass = 50;
constexpr int check_every = 25;

// One subgame: a first node of its street and the cards dealt to it.
struct Subgame {
    TreeNode* root = nullptr;
    int turn = -1;
    int river = -1;
};

SubgameCache& subgame_entry(const Subgame& s) {
    return s.root->cache[s.root->street == river_street ? s.turn : 0];
}

const RunoutBoard& subgame_board(const SubgameEngine& e, const Subgame& s) {
    return s.river >= 0 ? river_board(e, s.turn, s.river) : turn_board(e, s.turn);
}

// The entry's reach of `player` in the subgame's own list; a null vector
// stays null with the list's count.
HandVector subgame_reach(const SubgameEngine& e, const Subgame& s, int player) {
    const RunoutBoard& board = subgame_board(e, s);
    const int count = static_cast<int>(board.hands.size());
    const HandVector& sum = subgame_entry(s).reach_sum[player];
    HandVector reach(count);
    // A turn-root tree keeps its river entries in the turn's list, which is
    // the list of the subgame's parent just the same.
    if (!sum.data) return reach;
    reach.resize(count, true);
    vec::gather(reach.data, sum.data, board.image_tables[0].data(), count);
    return reach;
}

// The streamed rows of a river subgame, open for its whole solve.
struct SubgameRows {
    RiverNodes nodes;
    OpenRiverRows rows;
    bool open = false;
};

void open_subgame_rows(const SubgameEngine& e, const Subgame& s, SubgameRows& rows) {
    if (s.root->street != river_street) return;
    collect_river_nodes(e, *s.root, rows.nodes);
    open_river_rows(rows.nodes, s.turn, true, rows.rows);
    rows.open = true;
}

void close_subgame_rows(const Subgame& s, SubgameRows& rows) {
    if (!rows.open) return;
    const bool modified[2] = {true, true};
    close_river_rows(rows.nodes, s.turn, modified, modified, rows.rows);
    rows.open = false;
}

// One walk of the subgame for the engine's traverser; the frame's value and
// best are the traverser's afterwards.
void walk_subgame(SubgameEngine& e, const Subgame& s, HandVector& opponent_reach, WalkFrame& frame) {
    frame = WalkFrame{};
    frame.engine = &e;
    frame.node = s.root;
    frame.turn = s.turn;
    frame.river = s.river;
    frame.reach = std::move(opponent_reach);
    walk(frame);
    opponent_reach = std::move(frame.reach);
}

// Pairs of hands that share no card, weighted by both reaches.
double matchup_weight(const std::vector<CardMask>& hands, const HandVector& own, const HandVector& opponent) {
    if (!own.data || !opponent.data) return 0;
    double total = 0;
    const int count = own.count;
    for (int h = 0; h < count; ++h) {
        if (own.data[h] == 0.0f) continue;
        double met = 0;
        for (int o = 0; o < count; ++o)
            if (!(hands[o] & hands[h])) met += opponent.data[o];
        total += own.data[h] * met;
    }
    return total;
}

double subgame_exploitability(SubgameEngine& e, const Subgame& s, HandVector (&reach)[2]) {
    e.phase = phase_subgames;
    const std::vector<CardMask>& hands = subgame_board(e, s).hands;
    e.mode = mode_evaluate;
    double gain[2] = {0, 0};
    for (const int traverser : {1, 0}) {
        e.traverser = traverser;
        WalkFrame frame;
        walk_subgame(e, s, reach[1 - traverser], frame);
        const double w = matchup_weight(hands, reach[traverser], reach[1 - traverser]);
        double sum = 0;
        if (frame.best.data && reach[traverser].data)
            for (int h = 0; h < frame.best.count; ++h)
                sum += static_cast<double>(frame.best.data[h] * reach[traverser].data[h]);
        gain[traverser] = sum / w;  // no reach: not a number, which no accuracy meets
    }
    return (gain[0] + gain[1]) * 0.5;
}

void train_pass(SubgameEngine& e, const Subgame& s, HandVector (&reach)[2]) {
    e.mode = mode_train;
    e.phase = phase_subgames;
    choose_river_average(e);
    for (const int traverser : {1, 0}) {
        e.traverser = traverser;
        WalkFrame frame;
        walk_subgame(e, s, reach[1 - traverser], frame);
    }
    ++e.iterations;
}

double solve_locked(SubgameEngine& e, const Subgame& s, bool force) {
    SubgameCache& entry = subgame_entry(s);
    const int card = s.river >= 0 ? s.river : s.turn;
    const uint64_t bit = uint64_t{1} << card;
    if (!force && (entry.solved_cards & bit)) return 0.0;
    const int32_t saved_iterations = e.iterations;
    const uint32_t incomplete = e.flags & incomplete_tree_flag;
    e.iterations = 0;
    // Within the subgame the tree is whole: evaluations walk its rows.
    e.flags &= ~incomplete_tree_flag;
    ensure_vector_pool(root_list_count(e));
    HandVector reach[2] = {subgame_reach(e, s, 0), subgame_reach(e, s, 1)};
    SubgameRows rows;
    open_subgame_rows(e, s, rows);
    const double accuracy = recalc_accuracy[s.root->street - 1];
    double exploitability = 0.0;
    for (int pass = 0; pass < max_subgame_passes; ++pass) {
        train_pass(e, s, reach);
        if (e.iterations >= first_check_pass && e.iterations % check_every == 0) {
            exploitability = subgame_exploitability(e, s, reach);
            if (accuracy >= exploitability) break;
        }
    }
    close_subgame_rows(s, rows);
    e.phase = phase_descent;
    entry.solved_cards |= bit;
    e.iterations = saved_iterations;
    e.capture_cache.clear();
    e.flags |= incomplete;
    return exploitability;
}

// Gives every decision node of the subtree its rows, opened.
void give_subtree_storage(SubgameEngine& e, TreeNode& node) {
    if (node.kind != decision_node) return;
    give_node_storage(e, node);
    for (const int32_t child : node.children) give_subtree_storage(e, e.nodes[child]);
}

// The subgame that holds the node, or no root when none is forgotten there.
Subgame find_subgame(SubgameEngine& e, int node_index, int turn, int river) {
    Subgame s;
    TreeNode* node = &e.nodes[node_index];
    if (!street_forgotten(e, node->street)) return s;
    if (node->street == river_street && river < 0) return s;
    if (node->street >= turn_street && turn < 0) return s;
    while (node->parent_node && node->parent_node->street >= e.forgotten_from) node = node->parent_node;
    if (node->kind != decision_node || !node->cache) return s;
    s.root = node;
    s.turn = turn;
    s.river = node->street == river_street ? river : -1;
    return s;
}

double solve_found(SubgameEngine& e, int node_index, int turn, int river, bool force) {
    std::lock_guard lock(engine_lock);
    open_all_storage(e);
    const Subgame s = find_subgame(e, node_index, turn, river);
    if (!s.root) return 0.0;
    if (!force && (subgame_entry(s).solved_cards >> (s.river >= 0 ? s.river : s.turn) & 1)) return 0.0;
    give_subtree_storage(e, *s.root);
    return solve_locked(e, s, force);
}

}  // namespace

double solve_subgame(SubgameEngine& e, TreeNode& root, int turn, int river, bool force) {
    std::lock_guard lock(engine_lock);
    const Subgame s{&root, turn, root.street == river_street ? river : -1};
    return solve_locked(e, s, force);
}

double subgame_exploitability(SubgameEngine& e, TreeNode& root, int turn, int river) {
    std::lock_guard lock(engine_lock);
    const Subgame s{&root, turn, root.street == river_street ? river : -1};
    ensure_vector_pool(root_list_count(e));
    HandVector reach[2] = {subgame_reach(e, s, 0), subgame_reach(e, s, 1)};
    SubgameRows rows;
    open_subgame_rows(e, s, rows);
    const uint32_t flags = e.flags;
    e.flags &= ~incomplete_tree_flag;
    const double exploitability = subgame_exploitability(e, s, reach);
    e.flags = flags;
    close_subgame_rows(s, rows);
    e.phase = phase_descent;
    return exploitability;
}

double partial_solve_at(SubgameEngine& e, int node_index, int turn, int river) {
    return solve_found(e, node_index, turn, river, true);
}

double solve_on_demand(SubgameEngine& e, int node_index, int turn, int river) {
    // Once the rows are made again (rebuild_all) the queries read them as
    // they stand, also while the solver trains them.
    if (!(e.flags & incomplete_tree_flag)) return 0.0;
    return solve_found(e, node_index, turn, river, false);
}

namespace {

std::vector<Subgame> collect_subgames(SubgameEngine& e, int street) {
    std::vector<Subgame> list;
    for (TreeNode& node : e.nodes) {
        if (node.kind != decision_node || node.street != street || !node.cache || !is_first_of_street(node)) continue;
        const int turns = static_cast<int>(e.root_board->turns.size());
        for (int t = 0; t < turns; ++t) {
            if (e.root_turn_group >= 0 && t != e.root_turn_group) continue;
            if (street == turn_street) {
                list.push_back({&node, t, -1});
                continue;
            }
            const int rivers = static_cast<int>(turn_board(e, t).rivers.size());
            for (int r = 0; r < rivers; ++r) list.push_back({&node, t, r});
        }
    }
    return list;
}

// One walk of each subgame of a group (one node and turn card, and on the
// river every river card under it) on a worker thread, for the engine's
// traverser. The group's river rows stay open across its cards.
void run_group(SubgameEngine& e, const Subgame* first, const Subgame* last) {
    _mm_setcsr(_mm_getcsr() | 0x8040);
    ensure_vector_pool(root_list_count(e));
    SubgameRows rows;
    open_subgame_rows(e, *first, rows);
    for (const Subgame* s = first; s != last; ++s) {
        HandVector opponent = subgame_reach(e, *s, 1 - e.traverser);
        WalkFrame frame;
        walk_subgame(e, *s, opponent, frame);
    }
    close_subgame_rows(*first, rows);
}

}  // namespace

void SolveSubgames(SubgameEngine& e, int street) {
    std::lock_guard lock(engine_lock);
    open_all_storage(e);
    const std::vector<Subgame> subgames = collect_subgames(e, street);
    e.mode = mode_train;
    // The sums the passes start from must not grow under them.
    for (const Subgame& s : subgames) subgame_entry(s).frozen = true;
    const int32_t saved_iterations = e.iterations;
    const int passes = std::max(1, e.iterations);
    e.iterations = 0;
    // Turn subgames of a flop tree walk in the descent's phase: their river
    // cards go in line and learn, while the turn nodes, whose update waits
    // for a later phase, keep their rows as they are.
    e.phase = street == turn_street ? phase_descent : phase_subgames;
    const int count = static_cast<int>(subgames.size());
    const int team = std::max(threads, 1);
    // Two subgames of one river node and turn card share the turn's row
    // stream: a river street runs the cards of one (node, turn) on one thread.
    std::vector<std::pair<int, int>> groups;
    for (int i = 0; i < count;) {
        int j = i + 1;
        while (j < count && subgames[j].root == subgames[i].root && subgames[j].turn == subgames[i].turn) ++j;
        groups.emplace_back(i, j);
        i = j;
    }
    const int group_count = static_cast<int>(groups.size());
    for (int pass = 0; pass < passes; ++pass) {
        choose_river_average(e);
        for (const int traverser : {1, 0}) {
            e.traverser = traverser;
#pragma omp parallel for schedule(guided, 1) num_threads(team)
            for (int g = 0; g < group_count; ++g)
                run_group(e, subgames.data() + groups[g].first, subgames.data() + groups[g].second);
        }
        ++e.iterations;
    }
    for (const Subgame& s : subgames) subgame_entry(s).frozen = false;
    e.phase = phase_descent;
    e.forgotten_from = -1;
    e.iterations = saved_iterations;
    e.capture_cache.clear();
}
