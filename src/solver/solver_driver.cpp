#include "solver/solver_driver.h"

#include <omp.h>
#include <sys/resource.h>
#include <xmmintrin.h>

#include <atomic>
#include <chrono>
#include <cmath>
#include <condition_variable>
#include <new>
#include <string>
#include <system_error>
#include <thread>
#include <vector>

#include "shell/protocol/settings.h"
#include "solver/node_strategy.h"
#include "solver/walk.h"
#include "storage/row_stream.h"

std::mutex history_lock;

namespace {

std::atomic<std::thread*> solver_handle{nullptr};
// Held while the thread object is being filled, so that the thread can't
// detach it before it holds the thread.
std::mutex handle_mutex;
std::atomic<bool> stop_requested{false};
bool limit_is_steps = false;
int32_t run_limit = 0;
std::vector<SolverProgressRecord> history;

// Records already printed; `go` zeroes it before the thread starts, the thread
// counts on from there.
int32_t reported_count = 0;
double cpu_seconds = 0;

// A command may hold the next thread back until its own reply is out, so that
// the client reads "ok" before the thread's first line.
std::mutex start_gate_mutex;
std::condition_variable start_gate;
bool start_held = false;
bool start_announced = true;  // the newest thread has printed its first line

// Threads that have not yet said goodbye; waiters wait for 0.
std::mutex solver_done_lock;
std::condition_variable solver_done;
int running_threads = 0;

// What the start-up leaves behind. Nothing reads them: the warm-up is there to
// have the parallel runtime's threads made before the first command.
int32_t init_value = 0;
long long warm_up_sum = 0;

SolverListener listener;

// The engine's count as the solver thread sees it. set_compression may
// replace the stores (and zero the count) between any two walks, under
// engine_lock, so it is read under the lock too.
int32_t iterations_done(const SubgameEngine& e) {
    std::lock_guard lock(engine_lock);
    return e.iterations;
}

SolverProgressRecord compute_record(SubgameEngine& e, uint64_t elapsed_ns) {
    SolverProgressRecord record;
    record.iterations = iterations_done(e);
    const WalkResult oop = walk_player(e, 0, mode_evaluate);
    const WalkResult ip = walk_player(e, 1, mode_evaluate);
    record.ev_oop = oop.ev;
    record.mes_oop = oop.best;
    record.ev_ip = ip.ev;
    record.mes_ip = ip.best;
    record.exploitable = 0.5 * (record.mes_oop + record.mes_ip - record.ev_oop - record.ev_ip);
    record.running_time = static_cast<double>(elapsed_ns / 1000000) / 1000.0;
    return record;
}

// Hands the newest record that was not reported yet to the listener.
void report_newest_record() {
    int count = 0;
    const std::unique_ptr<SolverProgressRecord[]> records = copy_history(count);
    if (count <= reported_count) return;
    reported_count = count;
    SolverReport report;
    report.record = records[count - 1];
    report.storage_read_bytes = storage_read_bytes;
    report.storage_write_bytes = storage_write_bytes;
    report.cpu_seconds = cpu_seconds;
    report.peak_resident_bytes = peak_resident_bytes();
    report.iterations = engine ? iterations_done(*engine) : 0;
    if (listener.progress) listener.progress(report);
    std::this_thread::yield();
}

void solver_thread() {
    _mm_setcsr(_mm_getcsr() | 0x8040);
    {
        std::unique_lock lock(start_gate_mutex);
        start_gate.wait(lock, [] { return !start_held; });
        if (listener.started) listener.started();
        start_announced = true;
    }
    start_gate.notify_all();
    SubgameEngine& e = *engine;
    const int32_t start_iterations = iterations_done(e);
    const double cpu_start = process_cpu_seconds();
    cpu_seconds = 0;
    const uint64_t start_ns = clock_ns();
    uint64_t last_report_ns = start_ns;
    int64_t min_gap_ms = 0;
    SolverStop reason = SolverStop::requested;

    while (!stop_requested) {
        {
            // set_threads writes the count under the same lock.
            std::lock_guard lock(engine_lock);
            if (e.iterations >= e.max_iterations) break;
            omp_set_num_threads(threads);
        }
        run_iteration(e);
        const int32_t it = iterations_done(e);
        const bool due = it == report_period || (it > report_period && (it - report_period) % report_period == 0);
        if (due) {
            const uint64_t now = clock_ns();
            if (static_cast<int64_t>((now - last_report_ns) / 1000000) >= min_gap_ms) {
                last_report_ns = now;
                min_gap_ms = 4 * report_period > it ? 250 : 500;
                const SolverProgressRecord record = compute_record(e, now - start_ns);
                {
                    std::lock_guard lock(history_lock);
                    history.push_back(record);
                }
                cpu_seconds = process_cpu_seconds() - cpu_start;
                report_newest_record();
                if (accuracy >= record.exploitable) {
                    reason = SolverStop::accuracy_reached;
                    break;
                }
            }
        }
        if (limit_is_steps) {
            if (static_cast<int64_t>(start_iterations) + run_limit <= it) {
                reason = SolverStop::steps_done;
                break;
            }
        } else if (run_limit > 0 && static_cast<int64_t>((clock_ns() - start_ns) / 1000000000) >= run_limit) {
            reason = SolverStop::timeout;
            break;
        }
    }

    // The flag is cleared while the handle still says "running": once it is
    // null a `go` may start the next thread, whose run it describes, and a
    // late clear would drop that run's stop. (The thread no longer touches
    // the engine.)
    stop_requested = false;
    {
        std::lock_guard lock(handle_mutex);
        std::thread* self = solver_handle.exchange(nullptr);
        self->detach();
        delete self;
    }
    if (listener.stopped) listener.stopped(reason);
    // Notified under the lock: a waiter that sees the count reach 0 may go
    // on to end the process, and the condition must not be in use by then.
    std::lock_guard lock(solver_done_lock);
    --running_threads;
    solver_done.notify_all();
}

}  // namespace

int storage_megabytes_per_second(int64_t bytes, double seconds) {
    const double rate = static_cast<double>(bytes) / seconds / 1024.0 / 1024.0;
    // A run time of 0 has no rate; print 0 rather than a conversion of infinity.
    return std::isfinite(rate) ? static_cast<int>(std::lround(rate)) : 0;
}

uint64_t clock_ns() {
    return static_cast<uint64_t>(
        std::chrono::duration_cast<std::chrono::nanoseconds>(std::chrono::steady_clock::now().time_since_epoch())
            .count());
}

double process_cpu_seconds() {
    rusage usage{};
    getrusage(RUSAGE_SELF, &usage);
    const auto seconds = [](const timeval& t) { return static_cast<double>(t.tv_sec) + t.tv_usec * 1e-6; };
    return seconds(usage.ru_utime) + seconds(usage.ru_stime);
}

int64_t peak_resident_bytes() {
    rusage usage{};
    getrusage(RUSAGE_SELF, &usage);
    return static_cast<int64_t>(usage.ru_maxrss) * 1024;
}

void libsubgame_init(int32_t value) {
    init_value = value;
    long long sum = 0;
#pragma omp parallel for schedule(dynamic, 1) reduction(+ : sum)
    for (int i = 0; i < 1000; ++i) sum += static_cast<long long>(i) * (omp_get_thread_num() + 1);
    warm_up_sum += sum;
}

void set_solver_listener(const SolverListener& l) { listener = l; }

void hold_solver_start() {
    std::lock_guard lock(start_gate_mutex);
    start_held = true;
}

void release_solver_start() {
    std::unique_lock lock(start_gate_mutex);
    start_held = false;
    start_gate.notify_all();
    // The thread's first line comes before the next command's replies.
    start_gate.wait(lock, [] { return start_announced; });
}

bool solver_running() { return solver_handle.load() != nullptr; }

bool tree_complete() { return engine && !(engine->flags & incomplete_tree_flag); }

bool start_solver(int32_t limit, bool steps) {
    if (solver_running() || !engine) return false;
    SubgameEngine& e = *engine;
    if (e.flags & incomplete_tree_flag) return false;
    limit_is_steps = steps;
    run_limit = limit;
    // A stop that came after the last run's thread cleared the flag, while it
    // was still ending, was meant for no run.
    stop_requested = false;
    clear_solver_history();
    {
        std::lock_guard lock(engine_lock);
        if (!open_all_storage(e)) return false;
    }
    {
        std::lock_guard lock(solver_done_lock);
        ++running_threads;
    }
    // A thread that can't be had leaves no run behind, and the start counts
    // as done all the same.
    const auto no_thread = [] {
        {
            std::lock_guard lock(start_gate_mutex);
            start_announced = true;
        }
        std::lock_guard lock(solver_done_lock);
        --running_threads;
    };
    // The handle is in place before the thread can look for it at its end.
    auto* thread = new (std::nothrow) std::thread();
    if (!thread) {
        no_thread();
        return true;
    }
    {
        std::lock_guard lock(start_gate_mutex);
        start_announced = false;
    }
    std::lock_guard handle_lock(handle_mutex);
    solver_handle = thread;
    try {
        *thread = std::thread(solver_thread);
    } catch (const std::system_error&) {
        solver_handle = nullptr;
        delete thread;
        no_thread();
    }
    return true;
}

void request_solver_stop() {
    if (solver_running()) stop_requested = true;
}

void wait_for_solver_end() {
    std::unique_lock lock(solver_done_lock);
    solver_done.wait(lock, [] { return running_threads == 0; });
}

std::unique_ptr<SolverProgressRecord[]> copy_history(int& count) {
    std::lock_guard lock(history_lock);
    count = static_cast<int>(history.size());
    if (history.empty()) return nullptr;
    auto copy = std::make_unique<SolverProgressRecord[]>(history.size());
    std::copy(history.begin(), history.end(), copy.get());
    return copy;
}

void clear_solver_history() {
    std::lock_guard lock(history_lock);
    history.clear();
}

void reset_progress_reports() { reported_count = 0; }

void choose_river_average(SubgameEngine& e) {
    if (e.strategy_compression < 2) {
        e.update_river_average = 1;
    } else {
        // From the first iteration that adds to the sums.
        const int d = e.iterations - (averaging_delay + 1);
        e.update_river_average = d >= 0 && (d <= 6 || d % 7 == 0);
    }
}

double run_iteration(SubgameEngine& e) {
    {
        // The compression and the count may be replaced by set_compression.
        std::lock_guard lock(engine_lock);
        choose_river_average(e);
    }
    const WalkResult ip = walk_player(e, 1, mode_train);
    const WalkResult oop = walk_player(e, 0, mode_train);
    {
        std::lock_guard lock(engine_lock);
        ++e.iterations;
        e.flags &= ~new_tree_flag;
    }
    return (ip.ev + oop.ev) * 0.5;
}
