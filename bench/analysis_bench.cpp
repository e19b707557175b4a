// Times the queries a client sends between iterations, on a built and briefly
// solved spot: the strategy report, the expected values (cold, when the
// iteration's results and the capture walk are both still to do; cold with
// the results done; and from the cache), and the equities. Each query is
// timed at the root and at a river node, in wall time since the walks run on
// the worker threads, and the median of several runs is printed beside one
// training iteration's time for scale.
//
//   analysis_bench <spot> [--threads N] [--iterations N] [--runs K] [--river PATH]
//
// A spot is a file of protocol lines, or the letter of one kept in
// bench/spots (R, T or F).
#include <fcntl.h>
#include <omp.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <functional>
#include <string>
#include <vector>

#include "bench_spot.h"
#include "model/cards.h"
#include "model/hand_strength.h"
#include "shell/commands.h"
#include "shell/protocol/game_setup.h"
#include "shell/protocol/settings.h"
#include "solver/solver_driver.h"
#include "solver/walk.h"
#include "tree/engine.h"

namespace {

struct Options {
    std::string spot;
    int threads = 2;
    int iterations = 3;
    int runs = 5;
    // Check, check; a turn; check, check; a river: OOP's first river decision.
    std::string river_path = "r:0:c:c:7c:c:c:3d";
};

Options parse(int argc, char** argv) {
    Options o;
    const char* usage =
        "analysis_bench <spot file or R, T, F> [--threads N] [--iterations N] [--runs K] [--river PATH]";
    const std::string spot = read_command_line(
        argc, argv,
        {{"--threads", [&](const char* v) { return (o.threads = std::max(1, std::atoi(v))), true; }},
         {"--iterations", [&](const char* v) { return (o.iterations = std::max(0, std::atoi(v))), true; }},
         {"--runs", [&](const char* v) { return (o.runs = std::max(1, std::atoi(v))), true; }},
         {"--river", [&](const char* v) { return (o.river_path = v), true; }}},
        usage);
    if (spot.empty()) bench_usage(usage);
    o.spot = spot_path(spot);
    return o;
}

double milliseconds_since(uint64_t start_ns) { return static_cast<double>(clock_ns() - start_ns) * 1e-6; }

// Median milliseconds of `runs` runs of `line`, `prepare` run untimed before each.
double median_ms(const std::string& line, int runs, const std::function<void()>& prepare) {
    std::vector<double> times;
    for (int r = 0; r < runs; ++r) {
        prepare();
        const uint64_t start = clock_ns();
        run_quietly({line});
        times.push_back(milliseconds_since(start));
    }
    std::sort(times.begin(), times.end());
    return runs % 2 ? times[runs / 2] : 0.5 * (times[runs / 2 - 1] + times[runs / 2]);
}

// A negative time is a query that has no river form.
void print_row(const char* what, double root_ms, double river_ms) {
    if (river_ms < 0) {
        std::printf("%-34s %12.3f %12s\n", what, root_ms, "-");
    } else {
        std::printf("%-34s %12.3f %12.3f\n", what, root_ms, river_ms);
    }
    std::fflush(stdout);
}

}  // namespace

int main(int argc, char** argv) {
    const Options options = parse(argc, argv);
    start_engine(options.threads);

    uint64_t start = clock_ns();
    run_quietly(read_spot_lines(options.spot));
    if (!engine) {
        std::fprintf(stderr, "the spot built no tree\n");
        return 1;
    }
    SubgameEngine& e = *engine;
    const double build_ms = milliseconds_since(start);
    open_all_storage(e);
    start = clock_ns();
    for (int i = 0; i < options.iterations; ++i) run_iteration(e);
    const double iteration_ms = options.iterations ? milliseconds_since(start) / options.iterations : 0.0;
    std::printf("spot %s, %d threads, %d iterations (%.1f ms each), build %.0f ms, median of %d runs\n",
                options.spot.c_str(), threads, options.iterations, iteration_ms, build_ms, options.runs);
    std::printf("river node %s\n", options.river_path.c_str());
    std::printf("%-34s %12s %12s\n", "query (ms)", "root", "river node");

    const std::string root = "r:0";
    const std::string& river = options.river_path;
    for (const std::string& path : {root, river}) {
        checked_first_reply("show_strategy " + path);
        checked_first_reply("calc_ev OOP " + path);
        checked_first_reply("calc_eq_node OOP " + path);
    }
    checked_first_reply("calc_eq OOP");

    const auto nothing = [] {};
    // Another iteration count: the results and every captured value are due.
    const auto new_iteration = [&] {
        e.results_iteration = -1;
        e.capture_cache.clear();
    };
    const auto results_done = [&] { e.capture_cache.clear(); };
    const auto time_both = [&](const char* what, const std::string& command, const std::function<void()>& prepare) {
        const double at_root = median_ms(command + " " + root, options.runs, prepare);
        const double at_river = median_ms(command + " " + river, options.runs, prepare);
        print_row(what, at_root, at_river);
    };
    time_both("show_strategy", "show_strategy", nothing);
    time_both("calc_ev, results and capture due", "calc_ev OOP", new_iteration);
    time_both("calc_ev, capture due", "calc_ev OOP", results_done);
    run_quietly({"calc_ev OOP " + root, "calc_ev OOP " + river});
    time_both("calc_ev, cached", "calc_ev OOP", nothing);
    time_both("calc_eq_node", "calc_eq_node OOP", nothing);
    print_row("calc_eq (root ranges)", median_ms("calc_eq OOP", options.runs, nothing), -1.0);
    return 0;
}
