// Times the line and global frequencies on a built and briefly solved spot:
// at each child of the first node, at a turn node (the line over every turn
// card), and at a river node (the line over every turn and river card, the
// global share on one board). Each query runs at 1 and at 2 threads in turn,
// and the median wall time of several runs of each is printed, with the load
// average of the machine before and after.
//
//   frequency_bench <spot file> [--iterations N] [--runs K] [--compression LEVEL]
//                   [--turn PATH] [--river PATH]
#include <omp.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <string>
#include <vector>

#include "bench_spot.h"
#include "model/cards.h"
#include "model/hand_strength.h"
#include "shell/commands.h"
#include "shell/protocol/settings.h"
#include "solver/solver_driver.h"
#include "solver/walk.h"
#include "storage/compression_levels.h"
#include "tree/engine.h"
#include "tree/paths.h"

namespace {

struct Options {
    std::string spot;
    int iterations = 3;
    int runs = 5;
    std::string compression;  // empty: the automatic choice
    std::string turn_path = "r:0:c:c:7c:b50";
    std::string river_path = "r:0:c:c:7c:c:c:3d:b50";
};

Options parse(int argc, char** argv) {
    Options o;
    const char* usage =
        "frequency_bench <spot file> [--iterations N] [--runs K] [--compression LEVEL] [--turn PATH] "
        "[--river PATH]";
    o.spot = read_command_line(
        argc, argv,
        {{"--iterations", [&](const char* v) { return (o.iterations = std::max(0, std::atoi(v))), true; }},
         {"--runs", [&](const char* v) { return (o.runs = std::max(1, std::atoi(v))), true; }},
         {"--compression", [&](const char* v) { return (o.compression = v), true; }},
         {"--turn", [&](const char* v) { return (o.turn_path = v), true; }},
         {"--river", [&](const char* v) { return (o.river_path = v), true; }}},
        usage);
    if (o.spot.empty()) bench_usage(usage);
    return o;
}

std::string load_average() {
    std::ifstream file("/proc/loadavg");
    std::string one, five, fifteen;
    file >> one >> five >> fifteen;
    return one + " " + five + " " + fifteen;
}

void set_threads(int count) {
    threads = count;
    omp_set_num_threads(count);
}

double median(std::vector<double> values) {
    std::sort(values.begin(), values.end());
    const size_t n = values.size();
    return n % 2 ? values[n / 2] : 0.5 * (values[n / 2 - 1] + values[n / 2]);
}

// Runs the query at 1 thread, then at 2, `runs` times over, and prints the
// median milliseconds of each beside the reply.
void time_query(const std::string& line, int runs) {
    const std::string reply = checked_first_reply(line);
    std::vector<double> times[2];
    for (int r = 0; r < runs; ++r) {
        for (int team = 1; team <= 2; ++team) {
            set_threads(team);
            const uint64_t start = clock_ns();
            run_quietly({line});
            times[team - 1].push_back(static_cast<double>(clock_ns() - start) * 1e-6);
        }
    }
    std::printf("%-48s %12.3f %12.3f  %s\n", line.c_str(), median(times[0]), median(times[1]), reply.c_str());
    std::fflush(stdout);
}

}  // namespace

int main(int argc, char** argv) {
    const Options options = parse(argc, argv);
    init_combo_tables();
    init_hand_strength_tables();
    set_threads(2);
    libsubgame_init(0);
    std::printf("load average %s\n", load_average().c_str());

    std::vector<std::string> setup = read_spot_lines(options.spot);
    if (!options.compression.empty()) setup.insert(setup.begin(), "set_compression " + options.compression);
    run_quietly(setup);
    if (!engine) {
        std::fprintf(stderr, "the spot built no tree\n");
        return 1;
    }
    SubgameEngine& e = *engine;
    open_all_storage(e);
    for (int i = 0; i < options.iterations; ++i) run_iteration(e);
    std::printf("spot %s, compression %s, %d iterations, median of %d runs\n", options.spot.c_str(),
                compression_level_name(compression_level), options.iterations, options.runs);
    std::printf("%-48s %12s %12s  %s\n", "query (ms)", "1 thread", "2 threads", "reply");

    const NodeRef first = parse_path("r:0");
    for (size_t i = 0; i < first.node->children.size(); ++i) {
        const std::string child = "r:0:" + action_token(first, static_cast<int>(i));
        time_query("calc_line_freq " + child, options.runs);
        time_query("calc_global_freq " + child, options.runs);
    }
    for (const std::string& path : {options.turn_path, options.river_path}) {
        time_query("calc_line_freq " + path, options.runs);
        time_query("calc_global_freq " + path, options.runs);
    }
    std::printf("load average %s\n", load_average().c_str());
    return 0;
}
