// The parallel part of a walk: one task per (chance position, card), queued by
// the descent, run by TraverseSubgames, and taken back by the ascent.
#include <xmmintrin.h>

#include <algorithm>
#include <climits>
#include <memory>
#include <vector>

#include "shell/protocol/reply.h"
#include "shell/protocol/settings.h"
#include "solver/vector_ops.h"
#include "solver/walk_internal.h"

namespace {

struct SubgameTask {
    WalkFrame frame;
    ChancePosition* position = nullptr;
    int32_t place = 0;  // among its position's tasks, in card order
    // Results of a task that finished before those of an earlier card were
    // added, waiting for their turn. Plain blocks, not the pool's: whichever
    // thread adds them frees them, and a pool block freed on another thread
    // joins that thread's pool, so that the pools would drift apart.
    HandVector waiting_value;
    HandVector waiting_best;
    bool finished = false;
    // The card's images were walked apart: the results are in the parent's list.
    bool images_apart = false;
};

// Filled and emptied only under engine_lock, outside the parallel loop.
std::vector<std::unique_ptr<ChancePosition>> positions;
std::vector<std::unique_ptr<SubgameTask>> tasks;
size_t ascent_cursor = 0;

HandVector plain_copy(const HandVector& source) { return source.clone(false); }

HandVector plain_zeros(int count) {
    HandVector zeros(count);
    zeros.resize(count);
    vec::fill(zeros.data, 0.0f, count);
    return zeros;
}

// Work below a node for each traverser, for the order of the tasks: decision
// nodes, the traverser's counting double since they also learn, and every
// node past a chance position once per card dealt there.
void compute_cost(const SubgameEngine& e, const TreeNode& node, int64_t (&cost)[2]) {
    cost[0] = cost[1] = 0;
    if (node.kind != decision_node) {
        cost[0] = cost[1] = 1;
        return;
    }
    for (const int32_t index : node.children) {
        const TreeNode& child = e.nodes[index];
        int64_t child_cost[2];
        compute_cost(e, child, child_cost);
        const int64_t cards = child.street > node.street ? 44 : 1;
        for (int p = 0; p < 2; ++p) cost[p] += child_cost[p] * cards;
    }
    for (int p = 0; p < 2; ++p) cost[p] += node.player == p ? 2 : 1;
}

void ensure_cost(const SubgameEngine& e, TreeNode& node) {
    if (node.subgame_cost[0] >= 0) return;
    int64_t cost[2];
    compute_cost(e, node, cost);
    for (int p = 0; p < 2; ++p) node.subgame_cost[p] = static_cast<int32_t>(std::min<int64_t>(cost[p], INT32_MAX));
}

const RunoutBoard& task_card(const SubgameEngine& e, const WalkFrame& frame) {
    return frame.river >= 0 ? river_board(e, frame.turn, frame.river) : turn_board(e, frame.turn);
}

// Adds a task's results into its position's sums, through every image table
// of the card, or as they are when its images were walked apart.
void add_results(ChancePosition& position, const RunoutBoard& card, bool images_apart, const HandVector& value,
                 const HandVector& best) {
    const auto add_into = [&](HandVector& sum, const HandVector& result) {
        if (!result.data || !sum.data) return;
        const int count = result.count;
        if (images_apart) {
            vec::add(sum.data, result.data, count);
            return;
        }
        vec::scatter_add_each(sum.data, result.data, card.image_tables[0].data(), count);
        for (size_t k = 1; k < card.image_tables.size(); ++k)
            vec::scatter_add(sum.data, result.data, card.image_tables[k].data(), count);
    };
    add_into(position.value_sum, value);
    add_into(position.best_sum, best);
}

// Hands a finished task's results to its position, which adds them in card
// order: at once when every earlier card's are in, else from a copy left to
// wait. Whoever adds a result goes on with those waiting behind it. The
// additions run outside the lock; the count of added results says whose
// turn it is, and no other task can hold the same place.
void hand_in_results(SubgameTask& task, const RunoutBoard& card) {
    ChancePosition& position = *task.position;
    const WalkFrame& frame = task.frame;
    std::unique_lock lock(position.add_mutex);
    if (task.place == position.next_to_add) {
        lock.unlock();
        add_results(position, card, task.images_apart, frame.value, frame.best);
        lock.lock();
        ++position.next_to_add;
    } else {
        // Only this task touches its copies until it is marked finished.
        lock.unlock();
        task.waiting_value = frame.value.clone();
        if (position.best_sum.data) task.waiting_best = frame.best.clone();
        lock.lock();
        task.finished = true;
        // The earlier cards may have been added meanwhile.
        if (task.place != position.next_to_add) return;
    }
    while (position.next_to_add < position.task_count) {
        SubgameTask& next = *tasks[static_cast<size_t>(position.first_task + position.next_to_add)];
        if (!next.finished) break;
        lock.unlock();
        add_results(position, task_card(*frame.engine, next.frame), next.images_apart, next.waiting_value,
                    next.waiting_best);
        next.waiting_value.release();
        next.waiting_best.release();
        lock.lock();
        ++position.next_to_add;
    }
}

void run_task(SubgameEngine& e, SubgameTask& task) {
    // Denormals mean nothing to the solver and are slow: every worker flushes
    // them to zero before it computes.
    _mm_setcsr(_mm_getcsr() | 0x8040);
    ensure_vector_pool(root_list_count(e));
    WalkFrame& frame = task.frame;
    ChancePosition& position = *task.position;
    const RunoutBoard& card = task_card(e, frame);
    const int count = static_cast<int>(card.hands.size());
    if (frame.river >= 0) {
        // Every row of the task's river subtree asked for at once, rather than
        // one node's after another as the walk meets them.
        prefetch_river_board(card);
        prefetch_river_rows(e, position.river_nodes, frame.turn, frame.river, river_sums_in_use(e));
    }
    task.images_apart = !images_share_walk(e, card, position.reach, position.own_reach);
    if (!task.images_apart) {
        const int16_t* identity = card.image_tables[0].data();
        frame.reach.set_zero(count);
        if (position.reach.data) {
            frame.reach.resize(count, true);
            vec::gather(frame.reach.data, position.reach.data, identity, count);
        }
        if (position.own_reach.count > 0) {
            frame.own_reach.set_zero(count);
            if (position.own_reach.data) {
                frame.own_reach.resize(count, true);
                vec::gather(frame.own_reach.data, position.own_reach.data, identity, count);
            }
        }
    }
    std::unique_lock<std::mutex> card_lock;
    if (frame.river < 0 && frame.node->card_locks) card_lock = std::unique_lock(frame.node->card_locks[frame.turn]);
    if (task.images_apart) {
        HandVector value(position.reach.count), best(position.reach.count);
        walk_images_apart(frame, card, position.reach, position.own_reach, value, best);
        frame.value = std::move(value);
        frame.best = std::move(best);
    } else {
        walk(frame);
    }
    if (card_lock.owns_lock()) card_lock.unlock();
    hand_in_results(task, card);
    frame.reach.release();
    frame.own_reach.release();
    frame.value.release();
    frame.best.release();
}

}  // namespace

void queue_chance_tasks(WalkFrame& f, bool river_position, int only_card) {
    SubgameEngine& e = *f.engine;
    auto position = std::make_unique<ChancePosition>();
    position->node = f.node;
    position->turn = river_position ? f.turn : -1;
    position->reach = plain_copy(f.reach);
    if (f.own_reach.count > 0) position->own_reach = plain_copy(f.own_reach);
    position->value_sum = plain_zeros(f.reach.count);
    if (e.mode == mode_evaluate) position->best_sum = plain_zeros(f.reach.count);
    if (river_position) collect_river_nodes(e, *f.node, position->river_nodes);

    const int cards = river_position ? static_cast<int>(turn_board(e, f.turn).rivers.size())
                                     : static_cast<int>(e.root_board->turns.size());
    position->first_task = static_cast<int32_t>(tasks.size());
    int32_t places = 0;
    for (int card = 0; card < cards; ++card) {
        if (only_card >= 0 && card != only_card) continue;
        auto task = std::make_unique<SubgameTask>();
        task->frame.engine = &e;
        task->frame.node = f.node;
        task->frame.turn = river_position ? f.turn : card;
        task->frame.river = river_position ? card : -1;
        task->position = position.get();
        task->place = places++;
        tasks.push_back(std::move(task));
    }
    position->task_count = places;
    positions.push_back(std::move(position));
}

ChancePosition& next_chance_position(const WalkFrame& f) {
    // The ascent meets the positions in the order the descent queued them.
    if (ascent_cursor >= positions.size()) fail("chance positions out of step");
    ChancePosition& position = *positions[ascent_cursor++];
    const int turn = position.turn >= 0 ? f.turn : -1;
    if (position.node != f.node || position.turn != turn) fail("chance positions out of step");
    return position;
}

void clear_subgame_tasks() {
    tasks.clear();
    positions.clear();
    ascent_cursor = 0;
}

void TraverseSubgames(SubgameEngine& e) {
    ascent_cursor = 0;
    if (tasks.empty()) return;
    std::vector<SubgameTask*> order;
    order.reserve(tasks.size());
    for (auto& task : tasks) order.push_back(task.get());
    if (e.mode == mode_train) {
        // Largest subtrees first, so that the last tasks to start are small.
        for (SubgameTask* task : order) ensure_cost(e, *task->frame.node);
        const int traverser = e.traverser;
        std::stable_sort(order.begin(), order.end(), [traverser](const SubgameTask* a, const SubgameTask* b) {
            return a->frame.node->subgame_cost[traverser] > b->frame.node->subgame_cost[traverser];
        });
    }
    const int team = std::max(threads, 1);
    const int count = static_cast<int>(order.size());
#pragma omp parallel for schedule(dynamic, 1) num_threads(team)
    for (int i = 0; i < count; ++i) run_task(e, *order[i]);
}
