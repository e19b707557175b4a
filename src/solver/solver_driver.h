// Run control of the solver: the one background thread that iterates, its
// stop rules, its progress records and the history of results. The thread
// hands what it has to say to a listener; the program's shell turns that into
// protocol lines.
#pragma once

#include <cstdint>
#include <memory>
#include <mutex>

#include "tree/engine.h"

// One result computation of a run, in the order the client sees them.
struct SolverProgressRecord {
    int32_t iterations = 0;
    uint32_t reserved = 0;
    double running_time = 0;  // seconds since the run began, whole milliseconds
    double ev_oop = 0;        // values before half the pot is added
    double ev_ip = 0;
    double mes_oop = 0;
    double mes_ip = 0;
    double exploitable = 0;
};
static_assert(sizeof(SolverProgressRecord) == 56);

// Why a run ended.
enum class SolverStop { requested, accuracy_reached, steps_done, timeout };

// A progress report: the newest record, with the figures that go beside it.
struct SolverReport {
    SolverProgressRecord record;
    int64_t storage_read_bytes = 0;  // moved through the row streams so far
    int64_t storage_write_bytes = 0;
    double cpu_seconds = 0;          // process CPU time since the run began
    int64_t peak_resident_bytes = 0;
    int32_t iterations = 0;          // the engine's count when reported
};

// Called on the solver thread, in this order: started once, progress for
// each new record, stopped once. Set before the first run; a missing entry
// is skipped.
struct SolverListener {
    void (*started)() = nullptr;
    void (*progress)(const SolverReport& report) = nullptr;
    void (*stopped)(SolverStop reason) = nullptr;
};
void set_solver_listener(const SolverListener& listener);

// Iterations between possible result computations.
constexpr int32_t report_period = 25;

// Guards the history only.
extern std::mutex history_lock;

// Starts the parallel runtime's threads before the first command.
void libsubgame_init(int32_t value);

// Starts a run; false when a run exists, the tree is incomplete or a store
// could not be opened. `limit` counts steps or seconds. 0 seconds is no limit;
// 0 steps still runs one iteration, as the limit is checked after each.
bool start_solver(int32_t limit, bool limit_is_steps);
// A thread started while held waits before its first line and its first
// iteration until the hold is released.
void hold_solver_start();
void release_solver_start();
// Asks the running thread to stop after its current iteration.
void request_solver_stop();
// Blocks until the thread has ended and said so.
void wait_for_solver_end();
// True from `go` until the thread has ended: the one test of a running
// solver, by which commands that change the tree refuse.
bool solver_running();
bool tree_complete();
// Whether this iteration adds to the river strategy sums (every iteration
// unless the sums are compressed); under engine_lock.
void choose_river_average(SubgameEngine& engine);

// A copy of the run's history, taken under history_lock; null when empty.
std::unique_ptr<SolverProgressRecord[]> copy_history(int& count);
// Empties the history, as a new run or a new set of stores does.
void clear_solver_history();
// Forgets which records were reported (each `go` does).
void reset_progress_reports();

// One iteration: a training walk for IP, then one for OOP. Returns the mean
// of the two walks' values.
double run_iteration(SubgameEngine& engine);

// Bytes moved through the stores per second of a run, in MiB, rounded.
int storage_megabytes_per_second(int64_t bytes, double seconds);

// Monotonic nanoseconds.
uint64_t clock_ns();
// Process CPU time, user and system, in seconds.
double process_cpu_seconds();
// Peak resident set of the process in bytes.
int64_t peak_resident_bytes();
