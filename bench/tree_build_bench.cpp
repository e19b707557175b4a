// Builds the trees of the benchmark spots and prints, per spot, the build
// time (median of several builds), the node counts and the uncompressed
// storage estimate per street.
//
// usage: tree_build_bench [SPOT_DIR] [RUNS]   (default: the kept spots of bench/spots, 5)
#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <fstream>
#include <string>
#include <vector>

#include "model/cards.h"
#include "model/hand_strength.h"
#include "shell/commands.h"
#include "shell/protocol/settings.h"
#include "tree/build.h"
#include "tree/engine.h"

namespace {

// Runs a spot's set-up script, all but its final build_tree, with the
// commands' acknowledgements sent to /dev/null.
bool load_spot(const std::string& path) {
    std::ifstream script(path);
    if (!script) return false;
    fflush(stdout);
    const int saved = dup(STDOUT_FILENO);
    const int null_output = open("/dev/null", O_WRONLY);
    dup2(null_output, STDOUT_FILENO);
    std::string line;
    while (std::getline(script, line))
        if (!line.empty() && line != "build_tree") run_line(line);
    fflush(stdout);
    dup2(saved, STDOUT_FILENO);
    close(saved);
    close(null_output);
    return true;
}

double median(std::vector<double> values) {
    std::sort(values.begin(), values.end());
    return values[values.size() / 2];
}

void report_spot(const std::string& name, const std::string& path, int runs) {
    if (!load_spot(path)) {
        std::printf("%s: can't open %s\n", name.c_str(), path.c_str());
        return;
    }
    std::vector<double> seconds;
    for (int run = 0; run < runs; ++run) {
        const auto start = std::chrono::steady_clock::now();
        build_game(false);
        assign_storage({0, 0});
        seconds.push_back(std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count());
    }
    const SubgameEngine& e = *engine;
    int nodes_by_street[4] = {0, 0, 0, 0};
    int decisions = 0;
    for (const TreeNode& node : e.nodes) {
        ++nodes_by_street[node.street];
        decisions += node.kind == decision_node;
    }
    std::printf("%s: build %.3f s (median of %d), %zu nodes (%d decisions; flop %d, turn %d, river %d)\n",
                name.c_str(), median(seconds), runs, e.nodes.size(), decisions, nodes_by_street[1],
                nodes_by_street[2], nodes_by_street[3]);
    for (int street = 1; street <= 3; ++street)
        std::printf("  street %d: %lld values, %.1f MB uncompressed\n", street,
                    static_cast<long long>(e.street_values[street]),
                    static_cast<double>(e.street_bytes[street]) / (1024.0 * 1024.0));
}

}  // namespace

int main(int argc, char** argv) {
    const std::string dir = argc > 1 ? argv[1] : TAVREK_SPOT_DIR;
    const int runs = argc > 2 ? std::max(1, std::atoi(argv[2])) : 5;
    init_hand_strength_tables();
    init_combo_tables();
    for (const char* spot : {"R", "T", "F"})
        report_spot(std::string("spot ") + spot, dir + "/spot_" + spot + ".txt", runs);
    return 0;
}
