// Solves one benchmark spot to an exploitability target and prints what it
// took: build seconds (and the first opening of the stores apart), iterations,
// solving seconds, time per iteration, the exploitability reached, the check
// that both players' values add up to the pot, the smaller of the two players'
// gains from a best response (MES - EV, never below 0 but for rounding), and
// the peak resident memory. Lines of the spot after build_tree run after the
// build, outside the timing: a spot with "lock_node r:0" there times a locked
// flop root.
//
//   solve_bench <spot> [--threads N[,N...]] [--target CHIPS] [--max-iterations N] [--repeat K]
//               [--compression LEVEL] [--signature N]
//
// A spot is a file of protocol lines, or the letter of one kept in
// bench/spots (R, T or F). Only the training iterations are timed.
// Exploitability is measured every 10 iterations, outside the timed part,
// with the same evaluating walks that calc_results uses. With --repeat the
// spot is built and solved K times and the medians are printed after the
// single runs; a list of thread counts solves it at each. --compression sets
// the storage level (a word or a number, as set_compression takes it) before
// the build; the storage figure is what the stores hold at the end of the
// solve.
//
// --signature N runs exactly N iterations, whatever the exploitability, and
// prints beside the figures a hash of what the solve computed: FNV-1a (64
// bits) over the replies of show_strategy at the root, at each of its
// children and at every node down the line that takes the first action and
// the first card everywhere, in that order, then over the bytes of the five
// results (EV OOP, EV IP, OOP's MES, IP's MES, exploitability) as doubles in
// memory order. Without a spot it runs on every kept spot. Runs that differ
// in their signatures (other thread counts, or repeats) end with status 1.
#include <omp.h>

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <sstream>
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
    std::string spot;  // empty: every kept spot, in signature mode
    std::vector<int> threads{2};
    double target = 0.5;
    int max_iterations = 5000;
    int repeat = 1;
    std::string compression;  // empty: the automatic choice
    int signature_iterations = 0;  // above 0: that many iterations, and the signature
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
    uint64_t signature = 0;
};

Options parse(int argc, char** argv) {
    Options o;
    const char* usage =
        "solve_bench <spot file or R, T, F> [--threads N[,N...]] [--target CHIPS] [--max-iterations N] "
        "[--repeat K] [--compression LEVEL] [--signature N]";
    auto thread_counts = [&](const char* v) {
        o.threads.clear();
        std::istringstream counts(v);
        for (std::string count; std::getline(counts, count, ',');) o.threads.push_back(std::atoi(count.c_str()));
        return !o.threads.empty();
    };
    o.spot = read_command_line(
        argc, argv,
        {{"--threads", thread_counts},
         {"--signature", [&](const char* v) { return (o.signature_iterations = std::atoi(v)) >= 1; }},
         {"--target", [&](const char* v) { return (o.target = std::atof(v)), true; }},
         {"--max-iterations", [&](const char* v) { return (o.max_iterations = std::atoi(v)), true; }},
         {"--repeat", [&](const char* v) { return (o.repeat = std::max(1, std::atoi(v))), true; }},
         {"--compression", [&](const char* v) { return (o.compression = v), true; }}},
        usage);
    if (o.spot.empty() && o.signature_iterations == 0) bench_usage(usage);
    return o;
}

// FNV-1a over 64 bits: a hash of bytes that anyone can recompute.
constexpr uint64_t fnv1a_start = 0xcbf29ce484222325ull;

uint64_t fnv1a(uint64_t hash, const void* data, size_t bytes) {
    const auto* byte = static_cast<const unsigned char*>(data);
    for (size_t i = 0; i < bytes; ++i) hash = (hash ^ byte[i]) * 0x100000001b3ull;
    return hash;
}

struct ChildNode {
    std::string path;
    std::string type;
};

// The children that show_children lists, each with its path and node type.
std::vector<ChildNode> children_of(const std::string& path) {
    std::istringstream lines(replies_of({"show_children " + path}));
    std::vector<ChildNode> children;
    for (std::string line; std::getline(lines, line);) {
        if (line.rfind("child ", 0) != 0) continue;
        ChildNode& child = children.emplace_back();
        std::getline(lines, child.path);
        std::getline(lines, child.type);
    }
    return children;
}

bool is_decision(const ChildNode& node) { return node.type == "OOP_DEC" || node.type == "IP_DEC"; }

// The nodes whose strategies the signature covers: the root, its children,
// and the line from the root that takes the first action and the first card
// everywhere, down to its last decision.
std::vector<std::string> signature_nodes() {
    std::vector<std::string> nodes{"r:0"};
    for (const ChildNode& child : children_of("r:0"))
        if (is_decision(child)) nodes.push_back(child.path);
    for (std::string at = "r:0";;) {
        std::vector<ChildNode> children = children_of(at);
        if (!children.empty() && children[0].type == "SPLIT_NODE") children = children_of(children[0].path);
        if (children.empty() || !is_decision(children[0])) break;
        at = children[0].path;
        if (std::find(nodes.begin(), nodes.end(), at) == nodes.end()) nodes.push_back(at);
    }
    return nodes;
}

uint64_t solve_signature(const SolverProgressRecord& results) {
    uint64_t hash = fnv1a_start;
    for (const std::string& node : signature_nodes()) {
        const std::string strategy = replies_of({"show_strategy " + node});
        hash = fnv1a(hash, strategy.data(), strategy.size());
    }
    for (const double value : {results.ev_oop, results.ev_ip, results.mes_oop, results.mes_ip, results.exploitable})
        hash = fnv1a(hash, &value, sizeof value);
    return hash;
}


double seconds_since(uint64_t start_ns) { return static_cast<double>(clock_ns() - start_ns) * 1e-9; }

Run solve_once(const Options& options, const std::vector<std::string>& lines, int thread_count) {
    Run run;
    // Lines after build_tree (a node lock, say) need the tree: they run after
    // the timed build.
    std::vector<std::string> setup = lines, after_build;
    const auto build = std::find(setup.begin(), setup.end(), "build_tree");
    if (build != setup.end()) {
        after_build.assign(build + 1, setup.end());
        setup.erase(build, setup.end());
    }
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
    run_quietly(after_build);
    SubgameEngine& e = *engine;
    threads = thread_count;
    omp_set_num_threads(threads);
    start = clock_ns();
    open_all_storage(e);
    run.open_seconds = seconds_since(start);
    const bool signing = options.signature_iterations > 0;
    const int iterations = signing ? options.signature_iterations : options.max_iterations;
    SolverProgressRecord results = calc_results_now();
    run.exploitable = results.exploitable;
    while (run.iterations < iterations) {
        start = clock_ns();
        for (int i = 0; i < 10 && run.iterations < iterations; ++i, ++run.iterations) run_iteration(e);
        run.solve_seconds += seconds_since(start);
        results = calc_results_now();
        run.exploitable = results.exploitable;
        run.ev_oop = results.ev_oop;
        run.ev_ip = results.ev_ip;
        run.least_gain = std::min(results.mes_oop - results.ev_oop, results.mes_ip - results.ev_ip);
        if (!signing && run.exploitable <= options.target) break;
    }
    run.peak_bytes = peak_resident_bytes();
    run.storage_bytes = storage_bytes_in_use();
    if (signing) run.signature = solve_signature(results);
    return run;
}

// The signature goes at the end of a single run's line when there is one.
void print_run(const char* label, const Run& run, bool with_signature) {
    const double half_pot = pot / 2;
    std::printf("%-7s build %.3f s + open %.3f s | %d iterations | solve %.3f s | %.3f ms/iteration | "
                "exploitable %.4f chips | EV OOP + EV IP - pot %+.4f | MES - EV at least %+.4f | storage %.1f MB | "
                "peak RSS %lld MB",
                label, run.build_seconds, run.open_seconds, run.iterations, run.solve_seconds,
                run.iterations ? 1000.0 * run.solve_seconds / run.iterations : 0.0, run.exploitable,
                (run.ev_oop + half_pot) + (run.ev_ip + half_pot) - pot, run.least_gain,
                static_cast<double>(run.storage_bytes) / (1 << 20),
                static_cast<long long>(run.peak_bytes >> 20));
    if (with_signature) std::printf(" | signature %016llx", static_cast<unsigned long long>(run.signature));
    std::printf("\n");
    std::fflush(stdout);
}

template <typename Field>
double median_of(std::vector<Run> runs, Field field) {
    std::sort(runs.begin(), runs.end(), [&](const Run& a, const Run& b) { return field(a) < field(b); });
    const size_t n = runs.size();
    return n % 2 ? field(runs[n / 2]) : 0.5 * (field(runs[n / 2 - 1]) + field(runs[n / 2]));
}

void print_medians(const std::vector<Run>& runs) {
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
    print_run("median", median, false);
}

}  // namespace

int main(int argc, char** argv) {
    const Options options = parse(argc, argv);
    start_engine(omp_get_max_threads());
    const bool signing = options.signature_iterations > 0;
    std::vector<std::string> spots;
    if (options.spot.empty()) {
        for (const char* letter : bench_spot_letters) spots.push_back(spot_path(letter));
    } else {
        spots.push_back(spot_path(options.spot));
    }
    bool signatures_agree = true;
    for (const std::string& spot : spots) {
        const std::vector<std::string> lines = read_spot_lines(spot);
        std::vector<uint64_t> signatures;
        for (const int thread_count : options.threads) {
            if (signing) {
                std::printf("spot %s, %d threads, %d iterations\n", spot.c_str(), thread_count,
                            options.signature_iterations);
            } else {
                std::printf("spot %s, %d threads, target %.3f chips, at most %d iterations\n", spot.c_str(),
                            thread_count, options.target, options.max_iterations);
            }
            std::vector<Run> runs;
            for (int r = 0; r < options.repeat; ++r) {
                runs.push_back(solve_once(options, lines, thread_count));
                if (r == 0)
                    std::printf("compression level %d (%s)\n", compression_level,
                                compression_level_name(compression_level));
                char label[32];
                std::snprintf(label, sizeof label, "run %d", r + 1);
                print_run(label, runs.back(), signing);
                signatures.push_back(runs.back().signature);
            }
            if (options.repeat > 1) print_medians(runs);
        }
        if (std::adjacent_find(signatures.begin(), signatures.end(), std::not_equal_to<>()) != signatures.end()) {
            std::printf("signatures differ on spot %s\n", spot.c_str());
            signatures_agree = false;
        }
    }
    return signatures_agree ? 0 : 1;
}
