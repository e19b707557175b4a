// Chance nodes: where a street's first node is met before its card is dealt.
// The walk deals every stored card here, each standing for its isomorphic
// images, and averages the results over the cards a pair of hands allows.
#include <algorithm>
#include <cmath>

#include "shell/protocol/processor.h"
#include "solver/river_rows.h"
#include "solver/vector_ops.h"
#include "solver/walk_internal.h"

namespace {

// Adds the reach that arrived at a street's first decision, weighted by the
// iteration, to what forgetting and subgame solving will start from.
void add_reach_sum(const SubgameEngine& e, SubgameCache& cache, const HandVector& reach) {
    if (cache.frozen || !reach.data) return;
    HandVector& sum = cache.reach_sum[1 - e.traverser];
    const int count = reach.count;
    if (!sum.data || sum.count != count) {
        sum.resize(count);
        vec::fill(sum.data, 0.0f, count);
    }
    const float weight = static_cast<float>(std::pow(e.iterations + 1.0, e.weight_exponent));
    for (int h = 0; h < count; ++h) sum.data[h] += reach.data[h] * weight;
}

// The values an evaluation left at this position, as zeros when it left none.
void copy_cached(WalkFrame& f, const SubgameCache& cache, int count) {
    const int player = f.engine->traverser;
    const bool evaluating = f.engine->mode == mode_evaluate;
    f.value = cache.value[player].count == count ? cache.value[player].clone(true) : HandVector(count);
    if (evaluating) f.best = cache.best[player].count == count ? cache.best[player].clone(true) : HandVector(count);
}

void store_cached(WalkFrame& f, SubgameCache& cache) {
    const int player = f.engine->traverser;
    cache.value[player] = f.value.clone();
    cache.best[player] = f.best.clone();
}

void scale_results(WalkFrame& f, float factor) {
    if (f.value.data) vec::scale(f.value.data, factor, f.value.count);
    if (f.best.data) vec::scale(f.best.data, factor, f.best.count);
}

void take_results(WalkFrame& f) {
    ChancePosition& position = next_chance_position(f);
    f.value = std::move(position.value_sum);
    if (f.engine->mode == mode_evaluate) f.best = std::move(position.best_sum);
    position.reach.release();
    position.own_reach.release();
    position.best_sum.release();
}

// Adds a child list's vector into the parent list through every image table
// of the card.
void scatter_child(HandVector& parent, int parent_count, const HandVector& child, const RunoutBoard& card) {
    if (!child.data) return;
    if (!parent.data) {
        parent.resize(parent_count, true);
        vec::fill(parent.data, 0.0f, parent_count);
    }
    vec::scatter_add_each(parent.data, child.data, card.image_tables[0].data(), child.count);
    for (size_t k = 1; k < card.image_tables.size(); ++k)
        vec::scatter_add(parent.data, child.data, card.image_tables[k].data(), child.count);
}

void gather_child(HandVector& child, const HandVector& parent, const RunoutBoard& card) {
    const int count = static_cast<int>(card.hands.size());
    child.set_zero(count);
    if (!parent.data) return;
    child.resize(count, true);
    vec::gather(child.data, parent.data, card.image_tables[0].data(), count);
}

// The reach of one image of the card, times `share`; an image the parent
// list lacks is not reached.
void gather_image(HandVector& child, const HandVector& parent, const int16_t* table, int count, float share) {
    child.set_zero(count);
    if (!parent.data) return;
    child.resize(count, true);
    for (int h = 0; h < count; ++h) child.data[h] = table[h] >= 0 ? parent.data[table[h]] * share : 0.0f;
}

// Adds one image's results, times `factor`, into the parent's list.
void scatter_image(HandVector& parent, int parent_count, HandVector& child, const int16_t* table, float factor) {
    if (!child.data) return;
    if (!parent.data) {
        parent.resize(parent_count, true);
        vec::fill(parent.data, 0.0f, parent_count);
    }
    if (factor != 1.0f) vec::scale(child.data, factor, child.count);
    vec::scatter_add(parent.data, child.data, table, child.count);
}

// The river cards of one turn card walked in line, inside a turn task of a
// flop tree. The streamed rows of the subtree are open for the whole loop.
void walk_rivers_in_line(WalkFrame& f) {
    SubgameEngine& e = *f.engine;
    const RunoutBoard& turn = turn_board(e, f.turn);
    const int count = f.reach.count;
    const bool training = e.mode == mode_train;
    const bool with_sums = river_sums_in_use(e);

    // No walk below here comes back to this function: one list per thread.
    thread_local RiverNodes below;
    collect_river_nodes(e, *f.node, below);
    OpenRiverRows rows;
    open_river_rows(below, f.turn, with_sums, rows);
    int only_river = -1;
    if (e.mode == mode_capture && e.capture_request && e.capture_request->river >= 0)
        only_river = e.capture_request->river;
    // While one river card is walked, the rows and tables of the next are on
    // their way.
    const auto prefetch = [&](int r) {
        prefetch_river_board(turn.rivers[r]);
        prefetch_river_rows(e, below, f.turn, r, with_sums);
    };
    const int rivers = static_cast<int>(turn.rivers.size());
    if (only_river < 0 && rivers > 0) prefetch(0);
    for (int r = 0; r < rivers; ++r) {
        if (only_river >= 0 && r != only_river) continue;
        if (only_river < 0 && r + 1 < rivers) prefetch(r + 1);
        const RunoutBoard& river = turn.rivers[r];
        WalkFrame child;
        child.engine = &e;
        child.node = f.node;
        child.turn = f.turn;
        child.river = r;
        if (!images_share_walk(e, river, f.reach, f.own_reach)) {
            walk_images_apart(child, river, f.reach, f.own_reach, f.value, f.best);
            continue;
        }
        gather_child(child.reach, f.reach, river);
        if (f.own_reach.count > 0) gather_child(child.own_reach, f.own_reach, river);
        walk(child);
        scatter_child(f.value, count, child.value, river);
        scatter_child(f.best, count, child.best, river);
    }
    const bool regrets_modified[2] = {training && e.traverser == 0, training && e.traverser == 1};
    // In training the sums are open only where they grow.
    const bool sums_modified[2] = {training && e.traverser == 1, training && e.traverser == 0};
    close_river_rows(below, f.turn, regrets_modified, sums_modified, rows);
}

// An all-in showdown that opens the river, played out over every river card
// at once from the turn board's runout table, when it has one. A capture
// walks the river cards, since it may ask for one of them.
const RunoutBoard* runout_board(const WalkFrame& f) {
    if (f.node->kind != showdown_node || f.engine->mode == mode_capture) return nullptr;
    const RunoutBoard& turn = turn_board(*f.engine, f.turn);
    return turn.runout_wins.empty() ? nullptr : &turn;
}

void walk_runout(WalkFrame& f, const RunoutBoard& turn) {
    const SubgameEngine& e = *f.engine;
    const int count = f.reach.count;
    const float payoff = terminal_payoff(e, *f.node);
    if (payoff != 0.0f) {
        f.value.resize(count, true);
        if (!eval_runout(f.value.data, f.reach.data, count, turn.runout_wins.data(), payoff)) f.value.set_zero(count);
    }
    if (e.mode == mode_evaluate) f.best = f.value.clone(true);
}

// A capture that names no card below this position takes the cached values.
bool capture_uses_cache(const SubgameEngine& e, bool river_position) {
    if (e.mode != mode_capture || !e.capture_request || !e.capture_request->node) return false;
    const CaptureRequest& request = *e.capture_request;
    if (river_position) return !(request.node->street == river_street && request.river >= 0);
    return !(request.node->street >= turn_street && request.turn >= 0);
}

// The image of `card` that a capture request below it names, else 0.
int captured_image(const SubgameEngine& e, const WalkFrame& frame, const RunoutBoard& card) {
    const CaptureRequest* request = e.mode == mode_capture ? e.capture_request : nullptr;
    if (!request || request->turn != frame.turn) return 0;
    int image = 0;
    if (frame.river < 0) {
        image = request->turn_image;
    } else if (request->river == frame.river) {
        image = request->river_image;
    }
    return image < card.multiplicity ? image : 0;
}

}  // namespace

bool images_share_walk(const SubgameEngine& e, const RunoutBoard& card, const HandVector& reach,
                       const HandVector& own_reach) {
    // Without forced strategies, the strategies learnt treat images alike
    // but for rounding, and a shared walk costs one image's time.
    if (!e.images_may_differ || card.multiplicity == 1) return true;
    return !(reach.data && reach_differs_across_images(card, reach.data)) &&
           !(own_reach.data && reach_differs_across_images(card, own_reach.data));
}

void walk_images_apart(WalkFrame& frame, const RunoutBoard& card, const HandVector& reach,
                       const HandVector& own_reach, HandVector& value, HandVector& best) {
    const int count = static_cast<int>(card.hands.size());
    const float images = frame.engine->mode == mode_train ? static_cast<float>(card.multiplicity) : 1.0f;
    const float share = 1.0f / images;
    // A capture at a node below keeps the values of the last walk: the image
    // its real card is goes last (the stored card itself unless named).
    const int kept = captured_image(*frame.engine, frame, card);
    for (int i = card.multiplicity - 1; i >= 0; --i) {
        const int k = i == kept ? 0 : i == 0 ? kept : i;
        const int16_t* table = card.image_tables[k].data();
        gather_image(frame.reach, reach, table, count, share);
        if (own_reach.count > 0) gather_image(frame.own_reach, own_reach, table, count, 1.0f);
        walk(frame);
        scatter_image(value, reach.count, frame.value, table, images);
        scatter_image(best, reach.count, frame.best, table, images);
        frame.value.release();
        frame.best.release();
    }
    frame.reach.release();
    frame.own_reach.release();
}

void walk_turn_chance(WalkFrame& f) {
    SubgameEngine& e = *f.engine;
    TreeNode& node = *f.node;
    const int count = f.reach.count;
    const bool decision = node.kind == decision_node && node.cache;
    const bool evaluating = e.mode == mode_evaluate;

    if (decision && ((evaluating && (e.flags & incomplete_tree_flag)) || capture_uses_cache(e, false))) {
        // Rows below a forgotten street are gone; what the last evaluation
        // left here stands for them.
        if (e.phase != phase_ascent) {
            f.value.set_zero(count);
            if (evaluating) f.best.set_zero(count);
        } else {
            copy_cached(f, node.cache[0], count);
        }
        return;
    }
    f.value.set_zero(count);
    if (evaluating) f.best.set_zero(count);
    // A position no opposing hand reaches queues nothing, in the descent and
    // in the ascent alike, and is worth zero.
    const bool walked = f.reach.data || e.mode == mode_capture;
    if (walked && e.phase == phase_descent) {
        if (e.mode == mode_train && decision) add_reach_sum(e, node.cache[0], f.reach);
        int only_turn = -1;
        if (e.mode == mode_capture && e.capture_request && e.capture_request->turn >= 0)
            only_turn = e.capture_request->turn;
        queue_chance_tasks(f, false, only_turn);
    } else if (walked && e.phase == phase_ascent) {
        take_results(f);
    }
    scale_results(f, turn_chance_factor);
    if (evaluating && decision) store_cached(f, node.cache[0]);
}

void walk_river_chance(WalkFrame& f) {
    SubgameEngine& e = *f.engine;
    TreeNode& node = *f.node;
    const int count = f.reach.count;
    const bool decision = node.kind == decision_node && node.cache;
    const bool evaluating = e.mode == mode_evaluate;

    if (decision && ((evaluating && (e.flags & incomplete_tree_flag)) || capture_uses_cache(e, true))) {
        copy_cached(f, node.cache[f.turn], count);
        return;
    }
    if (e.mode == mode_train && decision) add_reach_sum(e, node.cache[f.turn], f.reach);
    f.value.set_zero(count);
    if (evaluating) f.best.set_zero(count);
    const bool walked = f.reach.data || e.mode == mode_capture;
    if (walked) {
        if (const RunoutBoard* turn = runout_board(f)) {
            // A turn tree's descent only queues tasks, and this needs none:
            // the ascent, with the same reach, does the work.
            if (first_street < turn_street || e.phase == phase_ascent) walk_runout(f, *turn);
        } else if (first_street < turn_street) {
            walk_rivers_in_line(f);
        } else if (e.phase == phase_descent) {
            int only_river = -1;
            if (e.mode == mode_capture && e.capture_request && e.capture_request->river >= 0)
                only_river = e.capture_request->river;
            queue_chance_tasks(f, true, only_river);
        } else if (e.phase == phase_ascent) {
            take_results(f);
        }
    }
    scale_results(f, river_chance_factor);
    if (evaluating && decision) store_cached(f, node.cache[f.turn]);
}
