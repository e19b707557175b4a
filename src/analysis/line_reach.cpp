#include "analysis/line_reach.h"

#include <immintrin.h>

#include <algorithm>
#include <cmath>
#include <mutex>
#include <vector>

#include "analysis/hand_rows.h"
#include "shell/protocol/reply.h"
#include "shell/protocol/settings.h"
#include "solver/node_strategy.h"
#include "solver/river_rows.h"
#include "solver/walk.h"
#include "tree/boards.h"

namespace {

// A pair of hands meets 45 turn cards, then 44 river cards.
constexpr double turn_deal_weight = 1.0 / 45;
constexpr double river_deal_weight = 1.0 / 44;

[[noreturn]] void throw_incorrect_path() { throw_command_error("incorrect path"); }

// One decision on the way to the node, with the action the line takes there.
struct LineStep {
    const TreeNode* node = nullptr;
    int action = 0;
};

struct Line {
    std::vector<LineStep> steps[4];  // by street, root first
    int street = flop_street;        // the deepest street whose boards the line needs
};

// Cards named beyond the tree's own deepen the line to their street.
Line make_line(const SubgameEngine& e, int node_index, Card turn, Card river) {
    const TreeNode& node = e.nodes[node_index];
    Line line;
    // A showdown says street 3 even when it closes an all-in on the flop:
    // a terminal's boards are those of the action that ends the hand.
    line.street = node.kind == decision_node || !node.parent_node ? node.street : node.parent_node->street;
    line.street = std::max(line.street, first_street);
    if (turn >= 0) line.street = std::max(line.street, static_cast<int>(turn_street));
    if (river >= 0) line.street = river_street;
    int child = node_index;
    for (const TreeNode* parent = node.parent_node; parent; parent = parent->parent_node) {
        const auto taken = std::find(parent->children.begin(), parent->children.end(), child);
        line.steps[parent->street].push_back({parent, static_cast<int>(taken - parent->children.begin())});
        child = static_cast<int>(parent - e.nodes.data());
    }
    for (std::vector<LineStep>& steps : line.steps) std::reverse(steps.begin(), steps.end());
    return line;
}

// The tree deals the turn (a flop tree), or the river (a flop or turn tree).
bool deals_turn() { return first_street == flop_street; }
bool deals_river() { return first_street <= turn_street; }

// Both players' reach over one list, in double so that long lines keep
// their digits.
using Reach = std::vector<double>[2];

// Room for one node's strategy as the reports show it: a row per action,
// and for the average a row per action of the current strategy and one of
// the sums' total. Reused from read to read.
struct StrategyRows {
    std::vector<float> values;
    std::vector<float*> shown;
    std::vector<float*> current;
};

// Per thread: the reach at the turn and the river, and the rows read.
struct Workspace {
    Reach turn;
    Reach river;
    StrategyRows strategy;
};

// The share of the step's action for each hand of the board (turn group,
// river row) with `count` hands, as show_strategy and get_strategy give it.
// The caller holds engine_lock with every store open, and on the river the
// streamed rows of the node's subtree.
const float* action_share(const SubgameEngine& e, const LineStep& step, int turn, int river, int count,
                          StrategyRows& room) {
    const TreeNode& node = *step.node;
    const size_t actions = node.children.size();
    const bool average = report_shows_average(e, node);
    room.values.resize((average ? 2 * actions + 1 : actions) * static_cast<size_t>(count));
    room.shown.resize(actions);
    room.current.resize(actions);
    for (size_t a = 0; a < actions; ++a) {
        room.shown[a] = room.values.data() + a * count;
        room.current[a] = room.values.data() + (actions + a) * count;
    }
    AverageScratch scratch;
    if (average) scratch = {room.current.data(), room.values.data() + 2 * actions * count};
    read_shown_strategy(node, turn, river, average, room.shown.data(), static_cast<int>(actions), count, scratch);
    return room.shown[step.action];
}

bool reached(const std::vector<double>& reach) {
    return std::any_of(reach.begin(), reach.end(), [](double value) { return value != 0; });
}

// Each step's acting player takes the share of the action on the line.
void apply_steps(const SubgameEngine& e, const std::vector<LineStep>& steps, int turn, int river, int count,
                 Reach& reach, Workspace& work) {
    for (const LineStep& step : steps) {
        const TreeNode& node = *step.node;
        std::vector<double>& own = reach[node.player];
        if (!reached(own)) continue;
        const float* share = action_share(e, step, turn, river, count, work.strategy);
        for (int h = 0; h < count; ++h) own[h] *= share[h];
    }
}

// The reach of a dealt board's hands, read from the list above through the
// table of the card's image `image` (0: the stored card itself).
void deal(const RunoutBoard& board, const Reach& above, Reach& below, int image) {
    const std::vector<int16_t>& parent_index = board.image_tables[image];
    const size_t count = board.hands.size();
    for (int player = 0; player < 2; ++player) {
        below[player].resize(count);
        for (size_t h = 0; h < count; ++h)
            below[player][h] = parent_index[h] >= 0 ? above[player][parent_index[h]] : 0.0;
    }
}

// Whether the real cards that `board` stands for must be dealt each through
// its own table: only once forced strategies or combo locks may have set a
// hand and its images apart, and the reaches above show it. Otherwise every
// image reads the stored card's table, as the walk does.
bool images_apart(const SubgameEngine& e, const RunoutBoard& board, const Reach& above) {
    if (!e.images_may_differ || board.multiplicity == 1) return false;
    return reach_differs_across_images(board, above[0].data()) || reach_differs_across_images(board, above[1].data());
}

// The share of the deals of a pair of hands that a board of the line's
// street stands for.
double runout_weight(int street) {
    double weight = 1;
    if (street >= turn_street && deals_turn()) weight *= turn_deal_weight;
    if (street == river_street && deals_river()) weight *= river_deal_weight;
    return weight;
}

// The opponent's reach that a hand can meet: all of it, less what holds
// either of the hand's cards, plus the hand's own share, taken away twice.
struct OpposingReach {
    double total = 0;
    double by_card[52] = {};

    OpposingReach(const std::vector<double>& reach, const uint16_t* hand_cards) {
        for (size_t o = 0; o < reach.size(); ++o) {
            total += reach[o];
            by_card[hand_cards[o] & 0xFF] += reach[o];
            by_card[hand_cards[o] >> 8] += reach[o];
        }
    }
    double met_by(uint16_t cards, double own_share) const {
        // Rounding may leave a trace below zero where nothing is met.
        return std::max(0.0, total - by_card[cards & 0xFF] - by_card[cards >> 8] + own_share);
    }
};

double joint_sum(const Reach& reach, const uint16_t* hand_cards, double weight) {
    const OpposingReach opposing(reach[1], hand_cards);
    double sum = 0;
    for (size_t h = 0; h < reach[0].size(); ++h)
        if (reach[0][h] != 0) sum += reach[0][h] * opposing.met_by(hand_cards[h], reach[1][h]);
    return sum * weight;
}

// The tree's first board: its list and its place in the tree of boards.
struct RootList {
    int turn = -1;
    int river = -1;
    const std::vector<uint16_t>* hand_cards = nullptr;
};

RootList root_list(const SubgameEngine& e) {
    const RootBoard& root = *e.root_board;
    RootList list{e.root_turn_group, e.root_river_row, &root.hand_cards};
    if (list.turn >= 0) list.hand_cards = &root.turns[list.turn].hand_cards;
    if (list.river >= 0) list.hand_cards = &root.turns[list.turn].rivers[list.river].hand_cards;
    return list;
}

// Root weights times the strategies of the line's steps on the first street.
void root_reach(const SubgameEngine& e, const Line& line, Reach& reach, Workspace& work) {
    const RootList list = root_list(e);
    for (int player = 0; player < 2; ++player)
        reach[player].assign(e.root_weights[player].begin(), e.root_weights[player].end());
    const int count = static_cast<int>(list.hand_cards->size());
    apply_steps(e, line.steps[first_street], list.turn, list.river, count, reach, work);
}

// The turn level below the root reach: the root reach itself on a turn tree.
void turn_reach(const SubgameEngine& e, const Line& line, const Reach& top, int turn, int image, Workspace& work) {
    if (!deals_turn()) {
        for (int player = 0; player < 2; ++player) work.turn[player] = top[player];
        return;
    }
    const RunoutBoard& board = e.root_board->turns[turn];
    deal(board, top, work.turn, image);
    apply_steps(e, line.steps[turn_street], turn, -1, static_cast<int>(board.hands.size()), work.turn, work);
}

void river_reach(const SubgameEngine& e, const Line& line, const Reach& above, int turn, int river, int image,
                 Workspace& work) {
    const RunoutBoard& board = e.root_board->turns[turn].rivers[river];
    if (deals_river()) {
        deal(board, above, work.river, image);
    } else {
        for (int player = 0; player < 2; ++player) work.river[player] = above[player];
    }
    apply_steps(e, line.steps[river_street], turn, river, static_cast<int>(board.hands.size()), work.river, work);
}

// Holds the streamed rows of one turn group of the river subtree that the
// line's river steps belong to, and drops them unchanged. Compressed river
// rows expand only as a whole group, so a reader opens them once per turn
// group rather than per board; a forgotten street has none.
class RiverRowsHold {
public:
    RiverRowsHold(const SubgameEngine& e, const Line& line, int turn) : turn_(turn) {
        const std::vector<LineStep>& steps = line.steps[river_street];
        if (steps.empty() || !steps.front().node->regrets) return;
        const TreeNode* first = steps.front().node;
        while (!is_first_of_street(*first)) first = first->parent_node;
        collect_river_nodes(e, *first, nodes_);
        open_river_rows(nodes_, turn_, report_shows_average(e, *steps.front().node), rows_);
        open_ = true;
    }
    ~RiverRowsHold() {
        if (!open_) return;
        const bool unchanged[2] = {false, false};
        close_river_rows(nodes_, turn_, unchanged, unchanged, rows_);
    }
    RiverRowsHold(const RiverRowsHold&) = delete;
    RiverRowsHold& operator=(const RiverRowsHold&) = delete;

private:
    RiverNodes nodes_;
    OpenRiverRows rows_;
    int turn_ = -1;
    bool open_ = false;
};

// The runouts of one real turn card (or the turn of a turn tree): the
// river boards under it in rising order of the real river cards.
struct TurnRunouts {
    int turn = -1;                 // index in the tree of boards
    int turn_image = 0;            // which image of the stored turn the card is
    std::vector<int16_t> rivers;   // river indices; empty when the line ends on the turn
    std::vector<int8_t> river_images;
    double sum = 0;
};

// The real turn cards that share one stored turn board. One worker takes
// them all: a stored board's streamed rows are open for one worker at a
// time, and its turn reach and river sums are the same for each of them.
struct StoredTurn {
    int turn = -1;
    std::vector<TurnRunouts*> cards;
};

// Sums the runouts of `cards`, real turn cards of one stored turn board that
// are all dealt through the table of image `image`.
void sum_turn_cards(const SubgameEngine& e, const Line& line, const Reach& top, int turn_index, int image,
                    const std::vector<TurnRunouts*>& cards, Workspace& work) {
    turn_reach(e, line, top, turn_index, image, work);
    const RunoutBoard& turn = e.root_board->turns[turn_index];
    if (line.street == turn_street) {
        const double sum = joint_sum(work.turn, turn.hand_cards.data(), runout_weight(turn_street));
        for (TurnRunouts* card : cards) card->sum = sum;
        return;
    }
    if (!reached(work.turn[0]) || !reached(work.turn[1])) return;
    RiverRowsHold hold(e, line, turn_index);
    // A river board stands for every real river card that maps to it, unless
    // its images must be dealt apart.
    std::vector<double> river_sums(turn.rivers.size(), NAN);
    std::vector<char> rivers_apart(turn.rivers.size(), -1);
    for (TurnRunouts* card : cards) {
        for (size_t i = 0; i < card->rivers.size(); ++i) {
            const int16_t river = card->rivers[i];
            const RunoutBoard& board = turn.rivers[river];
            char& apart = rivers_apart[river];
            if (apart < 0) apart = deals_river() && images_apart(e, board, work.turn);
            if (apart && card->river_images[i] != 0) {
                river_reach(e, line, work.turn, turn_index, river, card->river_images[i], work);
                card->sum += joint_sum(work.river, board.hand_cards.data(), runout_weight(river_street));
                continue;
            }
            double& sum = river_sums[river];
            if (std::isnan(sum)) {
                river_reach(e, line, work.turn, turn_index, river, 0, work);
                sum = joint_sum(work.river, board.hand_cards.data(), runout_weight(river_street));
            }
            card->sum += sum;
        }
    }
}

void sum_stored_turn(const SubgameEngine& e, const Line& line, const Reach& top, StoredTurn& stored,
                     Workspace& work) {
    const RunoutBoard& turn = e.root_board->turns[stored.turn];
    if (!deals_turn() || !images_apart(e, turn, top)) {
        sum_turn_cards(e, line, top, stored.turn, 0, stored.cards, work);
        return;
    }
    for (TurnRunouts* card : stored.cards) sum_turn_cards(e, line, top, stored.turn, card->turn_image, {card}, work);
}

// Where the real cards of a runout lead; a named card that leads nowhere
// makes the path incorrect.
BoardLocation locate(const SubgameEngine& e, Card turn, Card river) {
    const BoardLocation location =
        board_lookup(*e.root_board, e.flop, turn, river, (e.flags & isomorphism_on_flag) != 0);
    if (location.turn_index < 0 || (river >= 0 && location.river_index < 0)) throw_incorrect_path();
    return location;
}

// The real cards a street can deal on top of `dead`, in rising order, or
// the one named.
std::vector<Card> cards_for(Card named, CardMask dead) {
    if (named >= 0) return {named};
    std::vector<Card> cards;
    for (Card card = 0; card < 52; ++card)
        if (!(dead & card_bit(card))) cards.push_back(card);
    return cards;
}

// Every card that the line's boards need is named (or fixed by the board).
bool single_board(const Line& line, Card turn, Card river) {
    if (line.street >= turn_street && deals_turn() && turn < 0) return false;
    if (line.street == river_street && deals_river() && river < 0) return false;
    return true;
}

// Sums the runouts in the order given. Real turn cards that share a stored
// turn board go to one worker; a line that reaches the river is summed in
// parallel over those boards, `threads` at a time. Each real turn card's sum
// has its own slot and the slots are added in order after the loop, so the
// figure is the same at any thread count.
double sum_runouts(SubgameEngine& e, const Line& line, std::vector<TurnRunouts>& runouts) {
    std::vector<StoredTurn> stored;
    for (TurnRunouts& card : runouts) {
        auto same = std::find_if(stored.begin(), stored.end(), [&](const StoredTurn& s) { return s.turn == card.turn; });
        if (same == stored.end()) same = stored.insert(stored.end(), StoredTurn{card.turn, {}});
        same->cards.push_back(&card);
    }
    {
        std::lock_guard lock(engine_lock);
        open_all_storage(e);
        Workspace main_work;
        Reach top;
        root_reach(e, line, top, main_work);
        const int count = static_cast<int>(stored.size());
        const int team = std::max(threads, 1);
        // A line that ends on the turn is a few rows per card: waking the
        // workers would cost more than it saves.
        const bool parallel = line.street == river_street;
#pragma omp parallel num_threads(team) if (parallel)
        {
            // Flush denormals to zero on every worker, as the walk does, so
            // that no figure depends on which thread summed it.
            _mm_setcsr(_mm_getcsr() | 0x8040);
            Workspace work;
#pragma omp for schedule(dynamic, 1)
            for (int i = 0; i < count; ++i) sum_stored_turn(e, line, top, stored[i], work);
        }
    }
    double total = 0;
    for (const TurnRunouts& card : runouts) total += card.sum;
    return total;
}

// A group per turn card that the line leaves open (or the one named), and
// in it every river card that the turn and the board leave (or the one named).
RunoutGroups river_groups(const SubgameEngine& e, Card turn, Card river) {
    RunoutGroups groups;
    for (const Card t : deals_turn() ? cards_for(turn, e.dead) : std::vector<Card>{e.fixed_turn}) {
        std::vector<uint16_t>& items = groups.emplace_back();
        for (const Card r : cards_for(river, e.dead | card_bit(t)))
            // A named river the turn already holds: no such runout.
            if (r != t) items.push_back(static_cast<uint16_t>(t * 256 + r));
    }
    return groups;
}

}  // namespace

bool tree_has_forgotten_streets(const SubgameEngine& e) { return e.forgotten_from >= 0; }

RangeVector line_mass(int player, int node_index, Card turn, Card river) {
    SubgameEngine& e = *engine;
    if (turn < 0) turn = e.fixed_turn;
    if (river < 0) river = e.fixed_river;
    const Line line = make_line(e, node_index, turn, river);
    if (!single_board(line, turn, river)) throw_incorrect_path();
    QueryBoard board;
    const Card board_turn = line.street >= turn_street ? turn : -1;
    const Card board_river = line.street == river_street ? river : -1;
    if (!find_query_board(e, board_turn, board_river, board)) throw_incorrect_path();
    // A forgotten street has no rows: its nodes read as the stores' defaults
    // until its subgames can be solved on demand.

    std::vector<float> mass(static_cast<size_t>(board.hand_count));
    {
        std::lock_guard lock(engine_lock);
        open_all_storage(e);
        Workspace work;
        Reach top;
        root_reach(e, line, top, work);
        const Reach* at = &top;
        // Each real card is dealt through its own image's table once hands
        // and their images may have parted; else through the stored card's.
        const RunoutImages& images = board.images;
        if (line.street > first_street) {
            const bool apart = deals_turn() && images_apart(e, e.root_board->turns[board.turn_index], top);
            turn_reach(e, line, top, board.turn_index, apart ? images.turn : 0, work);
            at = &work.turn;
        }
        if (line.street == river_street && first_street < river_street) {
            RiverRowsHold hold(e, line, board.turn_index);
            const RunoutBoard& river = e.root_board->turns[board.turn_index].rivers[board.river_index];
            const int image = images_apart(e, river, work.turn) ? images.river : 0;
            river_reach(e, line, work.turn, board.turn_index, board.river_index, image, work);
            at = &work.river;
        }
        const Reach& reach = *at;
        const OpposingReach opposing(reach[1 - player], board.hand_cards->data());
        const double weight = runout_weight(line.street);
        for (int h = 0; h < board.hand_count; ++h) {
            const double met = opposing.met_by((*board.hand_cards)[h], reach[1 - player][h]);
            mass[h] = static_cast<float>(reach[player][h] * met * weight);
        }
    }
    return expand_row(e, board, mass.data());
}

double libsubgame_calc_river_line_freq(int node_index, const RunoutGroups& groups) {
    SubgameEngine& e = *engine;
    Line line = make_line(e, node_index, -1, -1);
    line.street = river_street;
    // Boards are found before the lock, where a refusal can still leave.
    std::vector<TurnRunouts> runouts;
    for (const std::vector<uint16_t>& items : groups) {
        if (items.empty()) continue;
        TurnRunouts& card = runouts.emplace_back();
        const Card turn = items.front() >> 8;
        if (deals_turn()) {
            const BoardLocation location = locate(e, turn, -1);
            card.turn = location.turn_index;
            card.turn_image = runout_images(e, turn, -1, location.turn_index, -1).turn;
        } else {
            card.turn = e.root_turn_group;
        }
        for (const uint16_t item : items) {
            if (item >> 8 != turn) throw_incorrect_path();
            const BoardLocation location = locate(e, turn, item & 0xFF);
            card.rivers.push_back(static_cast<int16_t>(location.river_index));
            const RunoutImages images = runout_images(e, turn, item & 0xFF, location.turn_index, location.river_index);
            card.river_images.push_back(static_cast<int8_t>(images.river));
        }
    }
    return sum_runouts(e, line, runouts);
}

double line_sum(int node_index, Card turn, Card river) {
    SubgameEngine& e = *engine;
    if (turn < 0) turn = e.fixed_turn;
    if (river < 0) river = e.fixed_river;
    const Line line = make_line(e, node_index, turn, river);
    if (single_board(line, turn, river)) {
        const RangeVector mass = line_mass(0, node_index, turn, river);
        double sum = 0;
        for (const double value : mass)
            if (!std::isnan(value)) sum += value;
        return sum;
    }
    if (line.street == river_street) return libsubgame_calc_river_line_freq(node_index, river_groups(e, turn, river));
    // A turn line of a flop tree: every turn card.
    std::vector<TurnRunouts> runouts;
    for (const Card t : cards_for(turn, e.dead)) {
        const BoardLocation location = locate(e, t, -1);
        runouts.push_back({location.turn_index, runout_images(e, t, -1, location.turn_index, -1).turn, {}, {}, 0});
    }
    return sum_runouts(e, line, runouts);
}
