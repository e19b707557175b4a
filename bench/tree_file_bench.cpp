// Saves and loads a solved spot as a tree file and prints, per compression
// level: the stores' bytes in memory, the file's size and its share of them,
// and the wall seconds and MB/s of dump_tree (to disk, flushed) and load_tree,
// beside `cp` of the same file on the same disk followed by `sync` of the copy,
// and the seconds of build_tree alone, which every load does first.
//
//   tree_file_bench <spot file> [--iterations N] [--levels L1,L2,...] [--threads N] [--repeat K]
//                   [--folder DIR] [--keep]
//   tree_file_bench --load FILE [--repeat K]
//
// --keep leaves each level's file in the folder (tree_file_bench.<level>.tree);
// --load times only load_tree of such a file, beside cp+sync, without a
// solve: two builds of the harness can then take turns on the same file.
//
// Defaults: 110 iterations, levels "none,max", 2 threads, 3 repeats, the
// folder of the spot file's copy in /tmp. Each figure is the median of the
// repeats; dumps, loads and copies take turns so that drift of the machine
// touches them alike. The file is read back from the page cache, as a load
// right after a save is.
#include <omp.h>
#include <sys/stat.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
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
#include "storage/compression_levels.h"
#include "tree/engine.h"

namespace {

struct Options {
    std::string spot;
    int iterations = 110;
    std::vector<std::string> levels = {"none", "max"};
    int threads = 2;
    int repeat = 3;
    std::string folder = "/tmp";
    bool keep = false;
    std::string load;  // a file to time the load of, without a solve
};

std::vector<std::string> split(const std::string& text) {
    std::vector<std::string> parts;
    size_t start = 0;
    while (start <= text.size()) {
        const size_t comma = text.find(',', start);
        const size_t end = comma == std::string::npos ? text.size() : comma;
        if (end > start) parts.push_back(text.substr(start, end - start));
        start = end + 1;
    }
    return parts;
}

Options parse(int argc, char** argv) {
    Options o;
    const char* usage =
        "tree_file_bench <spot file> [--iterations N] [--levels L1,L2,...] [--threads N] [--repeat K] "
        "[--folder DIR] [--keep] | --load FILE [--repeat K]";
    o.spot = read_command_line(
        argc, argv,
        {{"--iterations", [&](const char* v) { return (o.iterations = std::atoi(v)), true; }},
         {"--levels", [&](const char* v) { return (o.levels = split(v)), true; }},
         {"--threads", [&](const char* v) { return (o.threads = std::atoi(v)), true; }},
         {"--repeat", [&](const char* v) { return (o.repeat = std::max(1, std::atoi(v))), true; }},
         {"--folder", [&](const char* v) { return (o.folder = v), true; }},
         {"--keep", [&](const char*) { return (o.keep = true); }, true},
         {"--load", [&](const char* v) { return (o.load = v), true; }}},
        usage);
    if (o.load.empty() ? o.spot.empty() || o.levels.empty() : !o.spot.empty()) bench_usage(usage);
    return o;
}

double seconds_since(uint64_t start_ns) { return static_cast<double>(clock_ns() - start_ns) * 1e-9; }

double median(std::vector<double> values) {
    std::sort(values.begin(), values.end());
    const size_t n = values.size();
    return n % 2 ? values[n / 2] : 0.5 * (values[n / 2 - 1] + values[n / 2]);
}

int64_t file_bytes(const std::string& path) {
    struct stat status {};
    return ::stat(path.c_str(), &status) == 0 ? static_cast<int64_t>(status.st_size) : -1;
}

// Runs one protocol line and stops the harness when its reply is not the
// acknowledgement.
void run_checked(const std::string& line, const std::string& reply_file) {
    run_into(reply_file.c_str(), {line});
    const std::vector<std::string> replies = read_spot_lines(reply_file);
    if (replies.size() != 1 || replies[0].find(" ok!") == std::string::npos) {
        std::fprintf(stderr, "%s: %s\n", line.c_str(), replies.empty() ? "no reply" : replies[0].c_str());
        std::exit(1);
    }
}

// Seconds of `cp` of the file and `sync` of the copy, which is then removed.
double copy_seconds(const std::string& path) {
    const std::string copy = path + ".copy";
    const std::string cp = "cp '" + path + "' '" + copy + "' && sync '" + copy + "'";
    const uint64_t start = clock_ns();
    if (std::system(cp.c_str()) != 0) {
        std::fprintf(stderr, "%s failed\n", cp.c_str());
        std::exit(1);
    }
    const double seconds = seconds_since(start);
    std::remove(copy.c_str());
    return seconds;
}

// A load builds the tree again before it reads a byte of the values: the
// median seconds of the build alone, for comparison.
double build_seconds(int repeat) {
    std::vector<double> builds;
    for (int r = 0; r < repeat; ++r) {
        const uint64_t start = clock_ns();
        run_quietly({"build_tree"});
        builds.push_back(seconds_since(start));
    }
    return median(builds);
}

void bench_level(const Options& options, const std::vector<std::string>& lines, const std::string& level) {
    std::vector<std::string> setup = lines;
    const auto build = std::find(setup.begin(), setup.end(), "build_tree");
    if (build != setup.end()) setup.erase(build);
    run_quietly({"free_tree"});
    setup.push_back("set_compression " + level);
    setup.push_back("build_tree");
    run_quietly(setup);
    if (!engine) {
        std::fprintf(stderr, "the spot built no tree\n");
        std::exit(1);
    }
    threads = options.threads;
    omp_set_num_threads(threads);
    uint64_t start = clock_ns();
    for (int i = 0; i < options.iterations; ++i) run_iteration(*engine);
    const double solve_seconds = seconds_since(start);
    const int64_t stores = storage_bytes_in_use();

    const std::string path = options.folder + "/tree_file_bench." + (options.keep ? level + "." : "") + "tree";
    const std::string replies = options.folder + "/tree_file_bench.replies";
    std::vector<double> dumps, loads, copies;
    for (int r = 0; r < options.repeat; ++r) {
        start = clock_ns();
        run_checked("dump_tree " + path, replies);
        dumps.push_back(seconds_since(start));
        start = clock_ns();
        run_checked("load_tree " + path, replies);
        loads.push_back(seconds_since(start));
        copies.push_back(copy_seconds(path));
    }
    const int64_t size = file_bytes(path);
    const double megabytes = static_cast<double>(size) / (1 << 20);
    const double dump = median(dumps), load = median(loads), cp = median(copies);
    const double rebuild = build_seconds(options.repeat);
    std::printf("level %-6s (%d) | %d iterations in %.1f s | stores %.1f MB | file %.1f MB = %.3f x stores | "
                "dump %.3f s %.0f MB/s (%.2f x cp) | load %.3f s %.0f MB/s (%.2f x cp; build_tree alone %.3f s) | "
                "cp+sync %.3f s %.0f MB/s\n",
                level.c_str(), compression_level, options.iterations, solve_seconds,
                static_cast<double>(stores) / (1 << 20), megabytes,
                stores > 0 ? static_cast<double>(size) / static_cast<double>(stores) : 0.0, dump, megabytes / dump,
                dump / cp, load, megabytes / load, load / cp, rebuild, cp, megabytes / cp);
    std::fflush(stdout);
    if (!options.keep) std::remove(path.c_str());
    std::remove(replies.c_str());
}

// Loads of a kept file, each followed by cp+sync of it.
void bench_load(const Options& options) {
    const std::string replies = options.load + ".replies";
    std::vector<double> loads, copies;
    for (int r = 0; r < options.repeat; ++r) {
        const uint64_t start = clock_ns();
        run_checked("load_tree " + options.load, replies);
        loads.push_back(seconds_since(start));
        copies.push_back(copy_seconds(options.load));
    }
    const double megabytes = static_cast<double>(file_bytes(options.load)) / (1 << 20);
    const double load = median(loads), cp = median(copies);
    std::printf("file %s %.1f MB | load %.3f s %.0f MB/s (%.2f x cp; build_tree alone %.3f s) | "
                "cp+sync %.3f s %.0f MB/s\n",
                options.load.c_str(), megabytes, load, megabytes / load, load / cp, build_seconds(options.repeat), cp,
                megabytes / cp);
    std::remove(replies.c_str());
}

}  // namespace

int main(int argc, char** argv) {
    const Options options = parse(argc, argv);
    start_engine(omp_get_max_threads());
    if (!options.load.empty()) {
        threads = options.threads;
        omp_set_num_threads(threads);
        bench_load(options);
        return 0;
    }
    const std::vector<std::string> lines = read_spot_lines(options.spot);
    std::printf("spot %s, %d threads, %d iterations, median of %d, files in %s\n", options.spot.c_str(),
                options.threads, options.iterations, options.repeat, options.folder.c_str());
    for (const std::string& level : options.levels) bench_level(options, lines, level);
    return 0;
}
