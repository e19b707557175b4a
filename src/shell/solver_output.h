// What the client reads while the solver runs: the lines of the solver
// thread's start, progress and stop, and the notice of damaged stored rows.
// The engine hands records over; this is where they become protocol text.
#pragma once

#include "solver/solver_driver.h"

// The progress block of a report, and its comment lines, as printed.
void print_solver_progress(const SolverReport& report);
// "required accuracy reached" and the like.
const char* solver_stop_text(SolverStop reason);

// Makes the solver and the stores tell the client through the functions
// above; the program does this once at start-up.
void install_solver_output();
