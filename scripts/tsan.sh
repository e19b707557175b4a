#!/usr/bin/env bash
# Builds Tavrek with ThreadSanitizer in build-tsan/ and runs short parallel
# solves under it: a turn spot and a flop spot on 2 threads, with queries,
# results, setting changes and stop/go cycles sent from the command thread
# while the solver thread runs; a burst of one-iteration runs; the driver's
# unit tests; and the pipe soak test. Fails when the sanitizer reports
# anything. Logs go to build-tsan/tsan-logs/.
#
# The OpenMP runtime and tbbmalloc are not instrumented; the TSan build routes
# their entry points through tests/tsan/runtime_edges.cpp (see there), which gives
# the sanitizer their ordering, so nothing is suppressed.
#
#   bash scripts/tsan.sh            build, then run everything
#   bash scripts/tsan.sh --no-build run against the existing build-tsan/
set -euo pipefail
root="$(cd "$(dirname "$0")/.." && pwd)"
build="$root/build-tsan"
logs="$build/tsan-logs"

if [ "${1:-}" != "--no-build" ]; then
  bash "$root/scripts/setup.sh"
  # -O1 keeps the stacks readable and the run short; asserts stay on.
  cmake -S "$root" -B "$build" -DTAVREK_TSAN=ON -DCMAKE_BUILD_TYPE=RelWithDebInfo \
        -DCMAKE_CXX_FLAGS_RELWITHDEBINFO="-O1 -g" > /dev/null
  cmake --build "$build" -j2 --target tavrek test_solver test_shell
fi

rm -rf "$logs"
mkdir -p "$logs"
# Reports go to one file per process (log_path adds the pid). The program
# ends by _Exit, which skips the sanitizer's exit code, so the files count.
export TSAN_OPTIONS="halt_on_error=0 second_deadlock_stack=1 log_path=$logs/report"

# Every kind of command that may meet a running solver, in cycles of
# stop and go; the sleeps let the solver thread get into its walks.
turn_session() {
  cat <<EOF
load_script $root/tests/shell/fixtures/turn_spot.txt
set_threads 2
set_accuracy 0
go
show_strategy r:0
show_range OOP r:0:b50
show_probs r:0
calc_results
calc_eq_node OOP r:0:b50:c:Ah
calc_ev IP r:0:c
set_simd_level 1
enable_river_strategy 0
enable_avx512 1
set_pot 0 0 100
set_accuracy 0
sleep 2000
enable_river_strategy 1
set_simd_level 8
sleep 100
show_strategy r:0:b50:c:Ah
set_accuracy 0.2
set_threads 1
calc_results
stop
wait_for_solver
go 30 steps
is_ready
set_threads 2
show_strategy r:0:c
take_a_break 0
wait_for_solver
set_compression 1
go 2 seconds
calc_results
set_compression 0
show_strategy r:0
sleep 200
stop
go
wait_for_solver
go
set_accuracy 1000
wait_for_solver
stop
go 5 steps
wait_for_solver
calc_results
EOF
}

# A flop tree runs its tasks per turn card (the turn spot runs them per river
# card): a couple of iterations with queries beside them.
flop_session() {
  cat <<EOF
load_script $root/examples/small_ranges.txt
set_board Qs Jh 2h
set_pot 0 0 100
clear_lines
add_line 0 0 0 0 0 0
add_line 0 0 0 0 50 50
add_line 0 0 50 50 50 50
add_line 50 50 50 50 50 50
build_tree
set_threads 2
set_accuracy 0
go 6 steps
show_strategy r:0
calc_results
show_strategy r:0:c:c:5d
enable_river_strategy 0
set_threads 1
stop
wait_for_solver
enable_river_strategy 1
go 2 steps
set_threads 2
show_range IP r:0:c:c:5d:c:c:9s
set_compression 2
wait_for_solver
calc_results
EOF
}

status=0
run_session() {
  local name="$1"
  local started=$SECONDS
  if "$name" | "$build/tavrek" > "$logs/$name.out" 2>&1; then
    echo "$name: exit 0 ($((SECONDS - started)) s)"
  else
    echo "$name: exit $? ($((SECONDS - started)) s), see $logs/$name.out"
    status=1
  fi
}

# Runs that end after one iteration while `go` and `build_tree` keep coming:
# the hand-over from an ending thread to the next one, and a tree that may be
# replaced only once no thread uses it.
restart_session() {
  echo "load_script $root/tests/solver/fixtures/river_game.txt"
  echo "set_threads 2"
  for _ in $(seq 1 1500); do
    echo "go 0 steps"
    echo "build_tree"
  done
  echo "wait_for_solver"
}

run_session turn_session
run_session flop_session
run_session restart_session

run_tests() {
  local program="$1" filter="$2"
  local started=$SECONDS
  if "$build/tests/$program" --gtest_filter="$filter" > "$logs/$program.out" 2>&1; then
    echo "$program $filter: passed ($((SECONDS - started)) s)"
  else
    echo "$program $filter: failed ($((SECONDS - started)) s), see $logs/$program.out"
    status=1
  fi
}

# The driver's unit tests, and the soak test that drives the program through
# a pipe with stop/go cycles and queries (it runs the TSan build of tavrek).
run_tests test_solver 'SolverDriver*'
run_tests test_shell 'PipeSoak*'

# Any report file means a finding: a race, a lock-order problem or a crash.
if compgen -G "$logs/report.*" > /dev/null; then
  reports=$(cat "$logs"/report.* | grep -c "^WARNING: ThreadSanitizer\|ERROR: ThreadSanitizer" || true)
  echo "ThreadSanitizer: $reports report(s) in $logs/report.*"
  grep -h -A3 "^WARNING: ThreadSanitizer\|ERROR: ThreadSanitizer" "$logs"/report.* | head -40
  status=1
else
  echo "ThreadSanitizer: no reports"
fi
exit $status
