#include "solver/solver_commands.h"

#include "shell/protocol/game_setup.h"
#include "shell/protocol/settings.h"
#include "shell/protocol/tokens.h"
#include "solver/results.h"
#include "solver/solver_driver.h"
#include "storage/row_stream.h"

void cmd_go(const Tokens& tokens) {
    if (!tree_complete()) throw_command_error("incomplete tree");
    reset_progress_reports();
    int limit = 0;
    bool steps = false;
    if (tokens.size() != 1) {
        if (tokens.size() != 3) throw_argument_error();
        if (tokens[2] == "seconds") {
            steps = false;
        } else if (tokens[2] == "steps") {
            steps = true;
        } else {
            throw_argument_error();
        }
        limit = parse_int(tokens[1]);
    }
    // The reply goes out before the thread's first line: a client reads
    // "go ok!" first, then whatever the run prints.
    hold_solver_start();
    if (!start_solver(limit, steps)) {
        release_solver_start();
        throw_command_error("out of memory");
    }
    if (verbosity > 0) reply("[go %d threads]\n", threads);
    reply("%s ok!\n", tokens[0].c_str());
    flush_replies();
    release_solver_start();
}

void cmd_stop(const Tokens& tokens) {
    request_solver_stop();
    reply("%s ok!\n", tokens[0].c_str());
}

void cmd_wait_for_solver(const Tokens&) { wait_for_solver_end(); }

void cmd_calc_results(const Tokens&) {
    const SolverProgressRecord r = calc_results_now();
    const double h = pot / 2;
    reply("EV OOP: %.3f\nEV IP: %.3f\nOOP's MES: %.3f\nIP's MES: %.3f\nExploitable for: %.3f\nEND\n", r.ev_oop + h,
          r.ev_ip + h, r.mes_oop + h, r.mes_ip + h, r.exploitable);
    reply("#%d iterations\n", r.iterations);
    reply("#storage %d MB/s read, %d MB/s write\n", storage_megabytes_per_second(storage_read_bytes, r.running_time),
          storage_megabytes_per_second(storage_write_bytes, r.running_time));
}
