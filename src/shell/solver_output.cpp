#include "shell/solver_output.h"

#include <atomic>
#include <cstdio>

#include "shell/protocol/game_setup.h"
#include "shell/protocol/reply.h"
#include "shell/protocol/settings.h"
#include "storage/row_stream.h"

namespace {

void print_started() { solver_print("SOLVER: started\n"); }

void print_stopped(SolverStop reason) { solver_print("SOLVER: stopped (%s)\n", solver_stop_text(reason)); }

void print_damage(const char* reason) { solver_print("%s\n", reason); }

}  // namespace

const char* solver_stop_text(SolverStop reason) {
    switch (reason) {
        case SolverStop::accuracy_reached:
            return "required accuracy reached";
        case SolverStop::steps_done:
            return "required number of steps done";
        case SolverStop::timeout:
            return "timeout reached";
        case SolverStop::requested:
            break;
    }
    return "requested";
}

void print_solver_progress(const SolverReport& report) {
    const SolverProgressRecord& r = report.record;
    // set_pot may run meanwhile; it stores the pot atomically too.
    const double h = std::atomic_ref<double>(pot).load(std::memory_order_relaxed) / 2;
    if (front_end_mode) {
        solver_print("#SOLVER:\trunning time: %.3f\tEV OOP: %.3f\tEV IP: %.3f\tOOP's MES: %.3f\tIP's MES: "
                     "%.3f\tExploitable for: %.3f\tEND\n",
                     r.running_time, r.ev_oop + h, r.ev_ip + h, r.mes_oop + h, r.mes_ip + h, r.exploitable);
    } else {
        char text[512];
        std::snprintf(text, sizeof text,
                      "SOLVER:\nrunning time: %.3f\nEV OOP: %.3f\nEV IP: %.3f\nOOP's MES: %.3f\nIP's MES: "
                      "%.3f\nExploitable for: %.3f\nEND\n",
                      r.running_time, r.ev_oop + h, r.ev_ip + h, r.mes_oop + h, r.mes_ip + h, r.exploitable);
        solver_print("%s", text);
    }
    solver_print("#%d iterations\n", r.iterations);
    solver_print("#storage %d MB/s read, %d MB/s write\n",
                 storage_megabytes_per_second(report.storage_read_bytes, r.running_time),
                 storage_megabytes_per_second(report.storage_write_bytes, r.running_time));
    if (verbosity > 0) {
        solver_print("[%d iterations | cpu time %.1fs | peak working set %d MB]\n", report.iterations,
                     report.cpu_seconds, static_cast<int>(report.peak_resident_bytes >> 20));
    }
    std::fflush(stdout);
}

void install_solver_output() {
    SolverListener listener;
    listener.started = print_started;
    listener.progress = print_solver_progress;
    listener.stopped = print_stopped;
    set_solver_listener(listener);
    storage_damage_listener = print_damage;
}
