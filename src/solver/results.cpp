#include "solver/results.h"

#include "solver/walk.h"

namespace {

void keep_results(SubgameEngine& e, const WalkResult& oop, const WalkResult& ip, int32_t iterations) {
    e.ev_oop = oop.ev;
    e.mes_oop = oop.best;
    e.ev_ip = ip.ev;
    e.mes_ip = ip.best;
    e.results_iteration = iterations;
    e.exploitable = 0.5 * ((e.mes_ip + e.mes_oop - e.ev_oop) - e.ev_ip);
    e.ev_mean = 0.5 * (e.ev_oop + e.ev_ip);
}

}  // namespace

void compute_results_locked(SubgameEngine& e) {
    open_all_storage(e);
    const WalkResult oop = walk_player_locked(e, 0, mode_evaluate, nullptr);
    const WalkResult ip = walk_player_locked(e, 1, mode_evaluate, nullptr);
    keep_results(e, oop, ip, e.iterations);
}

SolverProgressRecord calc_results_now() {
    SolverProgressRecord record;
    if (!engine) return record;
    SubgameEngine& e = *engine;
    int32_t iterations;
    bool cached;
    {
        std::lock_guard lock(engine_lock);
        open_all_storage(e);
        // A complete tree always walks afresh. An incomplete one has no rows
        // below its forgotten street, and the numbers from before stand.
        if (!(e.flags & incomplete_tree_flag)) e.results_iteration = -1;
        iterations = e.iterations;
        cached = e.results_iteration == iterations;
    }
    if (!cached) {
        const WalkResult oop = walk_player(e, 0, mode_evaluate);
        const WalkResult ip = walk_player(e, 1, mode_evaluate);
        std::lock_guard lock(engine_lock);
        keep_results(e, oop, ip, iterations);
    }
    record.iterations = iterations;
    record.running_time = 0;
    record.ev_oop = e.ev_oop;
    record.ev_ip = e.ev_ip;
    record.mes_oop = e.mes_oop;
    record.mes_ip = e.mes_ip;
    record.exploitable = e.exploitable;
    return record;
}

void drop_kept_results(SubgameEngine& e) {
    e.capture_cache.clear();
    if (!(e.flags & incomplete_tree_flag)) e.results_iteration = -1;
}
