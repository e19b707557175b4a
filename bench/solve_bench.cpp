// Solves one benchmark spot to an exploitability target and prints what it
// took: build seconds (and the first opening of the stores apart), iterations,
// solving seconds, time per iteration, the exploitability reached, the check
// that both players' values add up to the pot, the smaller of the two players'
// gains from a best response (MES - EV, never below 0 but for rounding), and
// the peak resident memory.
//
//   solve_bench <spot file> [--threads N] [--target CHIPS] [--max-iterations N] [--repeat K]
//               [--compression LEVEL]
//
// Only the training iterations are timed. Exploitability is measured every 10
// iterations, outside the timed part, with the same evaluating walks that
// calc_results uses. With --repeat the spot is built and solved K times and
// the medians are printed after the single runs. --compression sets the
// storage level (a word or a number, as set_compression takes it) before the
// build; the storage figure is what the stores hold at the end of the solve.
#include <omp.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include "bench_spot.h"
#include "model/cards.h"
#include "model/hand_strength.h"
#include "shell/commands.h"
#include "shell/protocol/game_setup.h"
#include "shell/protocol/settings.h"
#include "solver/results.h"
#include "solver/solver_driver.h"
#include "solver/walk.h"
#include "storage/codes/memory_blocks.h"
#include "tree/engine.h"

namespace {

struct Options {
    std::string spot;
    int threads = 2;
    double target = 0.5;
    int max_iterations = 5000;
    int repeat = 1;
    std::string compression;  // empty: the automatic choice
};

struct Run {
    double build_seconds = 0;
    double open_seconds = 0;  // taking the stores' memory, at the first iteration
    int iterations = 0;
    double solve_seconds = 0;
    double exploitable = 0;
    double ev_oop = 0;
    double ev_ip = 0;
    double least_gain = 0;  // the smaller of the two players' MES - EV
    int64_t peak_bytes = 0;
    int64_t storage_bytes = 0;
};

[[noreturn]] void usage() {
    std::fprintf(stderr,
                 "usage: solve_bench <spot file> [--threads N] [--target CHIPS] [--max-iterations N] "
                 "[--repeat K] [--compression LEVEL]\n");
    std::exit(2);
}

Options parse(int argc, char** argv) {
    Options options;
    for (int i = 1; i < argc; ++i) {
        const std::string arg = argv[i];
        const bool has_value = i + 1 < argc;
        if (arg == "--threads" && has_value) {
            options.threads = std::atoi(argv[++i]);
        } else if (arg == "--target" && has_value) {
            options.target = std::atof(argv[++i]);
        } else if (arg == "--max-iterations" && has_value) {
            options.max_iterations = std::atoi(argv[++i]);
        } else if (arg == "--repeat" && has_value) {
            options.repeat = std::max(1, std::atoi(argv[++i]));
        } else if (arg == "--compression" && has_value) {
            options.compression = argv[++i];
        } else if (!arg.empty() && arg[0] != '-' && options.spot.empty()) {
            options.spot = arg;
        } else {
            usage();
        }
    }
    if (options.spot.empty()) usage();
    return options;
}


double seconds_since(uint64_t start_ns) { return static_cast<double>(clock_ns() - start_ns) * 1e-9; }

Run solve_once(const Options& options, const std::vector<std::string>& lines) {
    Run run;
    std::vector<std::string> setup = lines;
    const auto build = std::find(setup.begin(), setup.end(), "build_tree");
    if (build != setup.end()) setup.erase(build);
    run_quietly({"free_tree"});
    if (!options.compression.empty()) setup.insert(setup.begin(), "set_compression " + options.compression);
    run_quietly(setup);
    uint64_t start = clock_ns();
    run_quietly({"build_tree"});
    run.build_seconds = seconds_since(start);
    if (!engine) {
        std::fprintf(stderr, "the spot built no tree\n");
        std::exit(1);
    }
    SubgameEngine& e = *engine;
    threads = options.threads;
    omp_set_num_threads(threads);
    start = clock_ns();
    open_all_storage(e);
    run.open_seconds = seconds_since(start);
    run.exploitable = calc_results_now().exploitable;
    while (run.iterations < options.max_iterations) {
        start = clock_ns();
        for (int i = 0; i < 10 && run.iterations < options.max_iterations; ++i, ++run.iterations) run_iteration(e);
        run.solve_seconds += seconds_since(start);
        const SolverProgressRecord results = calc_results_now();
        run.exploitable = results.exploitable;
        run.ev_oop = results.ev_oop;
        run.ev_ip = results.ev_ip;
        run.least_gain = std::min(results.mes_oop - results.ev_oop, results.mes_ip - results.ev_ip);
        if (run.exploitable <= options.target) break;
    }
    run.peak_bytes = peak_resident_bytes();
    run.storage_bytes = storage_bytes_in_use();
    return run;
}

void print_run(const char* label, const Run& run) {
    const double half_pot = pot / 2;
    std::printf("%-7s build %.3f s + open %.3f s | %d iterations | solve %.3f s | %.3f ms/iteration | "
                "exploitable %.4f chips | EV OOP + EV IP - pot %+.4f | MES - EV at least %+.4f | storage %.1f MB | "
                "peak RSS %lld MB\n",
                label, run.build_seconds, run.open_seconds, run.iterations, run.solve_seconds,
                run.iterations ? 1000.0 * run.solve_seconds / run.iterations : 0.0, run.exploitable,
                (run.ev_oop + half_pot) + (run.ev_ip + half_pot) - pot, run.least_gain,
                static_cast<double>(run.storage_bytes) / (1 << 20),
                static_cast<long long>(run.peak_bytes >> 20));
    std::fflush(stdout);
}

template <typename Field>
double median_of(std::vector<Run> runs, Field field) {
    std::sort(runs.begin(), runs.end(), [&](const Run& a, const Run& b) { return field(a) < field(b); });
    const size_t n = runs.size();
    return n % 2 ? field(runs[n / 2]) : 0.5 * (field(runs[n / 2 - 1]) + field(runs[n / 2]));
}

}  // namespace

int main(int argc, char** argv) {
    const Options options = parse(argc, argv);
    init_combo_tables();
    init_hand_strength_tables();
    threads = omp_get_max_threads();
    libsubgame_init(0);
    const std::vector<std::string> lines = read_spot_lines(options.spot);
    std::printf("spot %s, %d threads, target %.3f chips, at most %d iterations\n", options.spot.c_str(),
                options.threads, options.target, options.max_iterations);
    std::vector<Run> runs;
    for (int r = 0; r < options.repeat; ++r) {
        runs.push_back(solve_once(options, lines));
        if (r == 0) std::printf("compression level %d (%s)\n", compression_level, compression_level_name(compression_level));
        char label[32];
        std::snprintf(label, sizeof label, "run %d", r + 1);
        print_run(label, runs.back());
    }
    if (options.repeat > 1) {
        Run median;
        median.build_seconds = median_of(runs, [](const Run& r) { return r.build_seconds; });
        median.open_seconds = median_of(runs, [](const Run& r) { return r.open_seconds; });
        median.iterations = static_cast<int>(median_of(runs, [](const Run& r) { return double(r.iterations); }));
        median.solve_seconds = median_of(runs, [](const Run& r) { return r.solve_seconds; });
        median.exploitable = median_of(runs, [](const Run& r) { return r.exploitable; });
        median.ev_oop = median_of(runs, [](const Run& r) { return r.ev_oop; });
        median.ev_ip = median_of(runs, [](const Run& r) { return r.ev_ip; });
        median.least_gain = median_of(runs, [](const Run& r) { return r.least_gain; });
        median.storage_bytes = static_cast<int64_t>(median_of(runs, [](const Run& r) { return double(r.storage_bytes); }));
        median.peak_bytes = static_cast<int64_t>(median_of(runs, [](const Run& r) { return double(r.peak_bytes); }));
        print_run("median", median);
    }
    return 0;
}
