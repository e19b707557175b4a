// What forgetting a street gives back and what it costs afterwards, on a spot
// solved to a target: the stores' bytes and the resident memory before and
// after `forget rivers`, whether the reports of the kept streets stay byte
// for byte the same, and the wall time of the first and the second
// show_strategy at a river node (the first solves its subgame) and of
// explo_partial there, at each recalculation accuracy given.
//
//   forget_bench <spot file> [--threads N] [--target CHIPS] [--river PATH]
//                [--accuracy FRACTION]... [--resolve-rivers] [--turns]
//
// With --resolve-rivers it makes the river rows again and solves them
// (rebuild_all, solve_all_splits rivers), and prints the whole tree's
// exploitability beside that from before forgetting. With --turns it goes on
// (after the rivers' solve, if asked for): `forget turns`, the first and
// second query at a turn node, then rebuild_all and solve_all_splits turns,
// then rivers, each with the same comparison.
#include <omp.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include "bench_spot.h"
#include "model/cards.h"
#include "model/hand_strength.h"
#include "shell/commands.h"
#include "shell/protocol/settings.h"
#include "solver/solver_driver.h"
#include "solver/walk.h"
#include "storage/codes/memory_blocks.h"
#include "tree/engine.h"

namespace {

struct Options {
    std::string spot;
    int threads = 2;
    double target = 1.0;
    // OOP's first river decision after checks on flop and turn.
    std::string river_stem = "r:0:c:c:7c:c:c:";
    std::vector<double> accuracies;
    bool turns = false;
    bool resolve_rivers = false;
};

Options parse(int argc, char** argv) {
    Options o;
    const char* usage =
        "forget_bench <spot file> [--threads N] [--target CHIPS] [--river STEM] [--accuracy FRACTION]... "
        "[--resolve-rivers] [--turns]";
    o.spot = read_command_line(
        argc, argv,
        {{"--threads", [&](const char* v) { return (o.threads = std::max(1, std::atoi(v))), true; }},
         {"--target", [&](const char* v) { return (o.target = std::atof(v)), true; }},
         {"--river", [&](const char* v) { return (o.river_stem = v), true; }},
         {"--accuracy", [&](const char* v) { return o.accuracies.push_back(std::atof(v)), true; }},
         {"--turns", [&](const char*) { return o.turns = true; }, true},
         {"--resolve-rivers", [&](const char*) { return o.resolve_rivers = true; }, true}},
        usage);
    if (o.spot.empty()) bench_usage(usage);
    if (o.accuracies.empty()) o.accuracies = {0.003, 0.001};
    return o;
}

int64_t resident_bytes() {
    std::ifstream status("/proc/self/status");
    std::string line;
    while (std::getline(status, line))
        if (line.rfind("VmRSS:", 0) == 0) return std::atoll(line.c_str() + 6) * 1024;
    return 0;
}

double mb(int64_t bytes) { return static_cast<double>(bytes) / (1 << 20); }

double timed_ms(const std::vector<std::string>& lines, std::string* reply = nullptr) {
    const uint64_t start = clock_ns();
    const std::string text = replies_of(lines);
    const double ms = static_cast<double>(clock_ns() - start) * 1e-6;
    if (text.rfind("ERROR", 0) == 0) {
        std::fprintf(stderr, "%s: %s", lines[0].c_str(), text.c_str());
        std::exit(1);
    }
    if (reply) *reply = text;
    return ms;
}

void print_memory(const char* when) {
    std::printf("%-28s stores %10.1f MB   resident %10.1f MB\n", when, mb(storage_bytes_in_use()),
                mb(resident_bytes()));
}

// The "Exploitable for" line of a calc_results reply.
std::string exploitable_line(const std::string& reply) {
    const size_t at = reply.find("Exploitable for");
    if (at == std::string::npos) return reply;
    return reply.substr(at, reply.find('\n', at) + 1 - at);
}

// Whether two replies are the same to the byte.
const char* compare(const std::string& a, const std::string& b) { return a == b ? "same" : "DIFFERENT"; }

}  // namespace

int main(int argc, char** argv) {
    const Options options = parse(argc, argv);
    start_engine(options.threads);
    run_quietly(read_spot_lines(options.spot));
    if (!engine) {
        std::fprintf(stderr, "the spot built no tree\n");
        return 1;
    }
    char target[64];
    std::snprintf(target, sizeof target, "set_accuracy %g", options.target);
    uint64_t start = clock_ns();
    run_quietly({target, "go", "wait_for_solver"});
    std::printf("spot %s, %d threads, solved to %g chips in %d iterations, %.1f s\n", options.spot.c_str(),
                threads, options.target, engine->iterations, static_cast<double>(clock_ns() - start) * 1e-9);

    const std::vector<std::string> kept_queries = {"show_strategy r:0", "show_strategy r:0:c:c:7c",
                                                   "show_strategy r:0:c:c:Ks", "show_strategy r:0:b50:c:3d"};
    const std::string results_before = replies_of({"calc_results"});
    std::vector<std::string> kept_before;
    for (const std::string& query : kept_queries) kept_before.push_back(replies_of({query}));
    print_memory("before forget rivers");

    start = clock_ns();
    run_quietly({"forget rivers"});
    const double forget_ms = static_cast<double>(clock_ns() - start) * 1e-6;
    print_memory("after forget rivers");
    std::printf("forget rivers took %.0f ms\n", forget_ms);
    for (size_t q = 0; q < kept_queries.size(); ++q)
        std::printf("%-34s %s\n", kept_queries[q].c_str(), compare(kept_before[q], replies_of({kept_queries[q]})));
    std::printf("%-34s %s\n", "calc_results", compare(results_before, replies_of({"calc_results"})));

    // One river card per accuracy, so that each first query really solves.
    const char* river_cards[] = {"3d", "4s", "5c", "6h", "9d", "Tc"};
    std::printf("%-10s %-26s %10s %10s %12s %14s\n", "accuracy", "river node", "first ms", "second ms",
                "explo ms", "explo (chips)");
    for (size_t i = 0; i < options.accuracies.size() && i < 6; ++i) {
        const double a = options.accuracies[i];
        char setting[96];
        std::snprintf(setting, sizeof setting, "set_recalc_accuracy %g %g %g", a, a, a);
        run_quietly({setting});
        const std::string path = options.river_stem + river_cards[i];
        const double first = timed_ms({"show_strategy " + path});
        const double second = timed_ms({"show_strategy " + path});
        std::string explo;
        const double explo_ms = timed_ms({"explo_partial " + path}, &explo);
        if (!explo.empty() && explo.back() == '\n') explo.pop_back();
        std::printf("%-10g %-26s %10.1f %10.1f %12.1f %14s\n", a, path.c_str(), first, second, explo_ms,
                    explo.c_str());
    }
    print_memory("after the river queries");

    // Each solve of a street timed on its own, with the whole tree's results
    // after it beside those from before forgetting.
    const auto solve_again = [&](const char* street) {
        const double ms = timed_ms({std::string("solve_all_splits ") + street});
        std::printf("solve_all_splits %-6s took %8.1f s; now %s", street, ms * 1e-3,
                    exploitable_line(replies_of({"calc_results"})).c_str());
    };
    std::printf("before forgetting: %s", exploitable_line(results_before).c_str());
    if (options.resolve_rivers) {
        std::printf("rebuild_all took %.0f ms\n", timed_ms({"rebuild_all"}));
        solve_again("rivers");
        print_memory("after solving rivers again");
    }
    if (options.turns) {
        const std::string results_kept = replies_of({"calc_results"});
        start = clock_ns();
        run_quietly({"forget turns"});
        std::printf("forget turns took %.0f ms\n", static_cast<double>(clock_ns() - start) * 1e-6);
        print_memory("after forget turns");
        std::printf("%-34s %s\n", "show_strategy r:0", compare(kept_before[0], replies_of({"show_strategy r:0"})));
        std::printf("%-34s %s\n", "calc_results", compare(results_kept, replies_of({"calc_results"})));
        const double first = timed_ms({"show_strategy r:0:c:c:Ks"});
        const double second = timed_ms({"show_strategy r:0:c:c:Ks"});
        std::string explo;
        const double explo_ms = timed_ms({"explo_partial r:0:c:c:Ks"}, &explo);
        std::printf("turn node r:0:c:c:Ks: first %.1f ms, second %.1f ms, explo_partial %.1f ms = %s",
                    first, second, explo_ms, explo.c_str());
        std::printf("rebuild_all took %.0f ms\n", timed_ms({"rebuild_all"}));
        solve_again("turns");
        solve_again("rivers");
        print_memory("after solving again");
    }
    return 0;
}
