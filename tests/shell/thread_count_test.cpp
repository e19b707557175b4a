// The same commands give the same replies at any thread count. A walk's
// tasks run on whichever thread is free, in an order left to chance, so this
// holds only while their results are summed in a fixed order. Each spot is
// solved at 1, 2 and 8 threads and again at 2, and every reply (progress
// reports, results, strategies, values) must match the first run to the
// byte, bar the clock readings. Runs are compared with each other rather
// than with a fixed text: solve values differ between processor makers.
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <sstream>

namespace fs = std::filesystem;

namespace {

const fs::path fixtures = fs::path(__FILE__).parent_path() / "fixtures";

std::string file_text(const fs::path& path) {
    std::ifstream file(path, std::ios::binary);
    std::stringstream text;
    text << file.rdbuf();
    return text.str();
}

// The program's output for the spot and the commands, without the lines
// that read a clock: running times and storage rates.
std::string replies_at(const std::string& spot, const std::string& commands, int threads) {
    const fs::path input = fs::temp_directory_path() / ("tavrek_threads_" + std::to_string(getpid()) + ".txt");
    std::ofstream(input, std::ios::binary) << file_text(fixtures / spot) << "set_threads " << threads << "\n"
                                           << commands;
    const std::string command = "'" TAVREK_BINARY "' < '" + input.string() + "'";
    FILE* program = popen(command.c_str(), "r");
    std::string output;
    char buffer[1 << 16];
    for (size_t got; program && (got = fread(buffer, 1, sizeof buffer, program)) > 0;) output.append(buffer, got);
    if (program) pclose(program);
    fs::remove(input);
    std::istringstream lines(output);
    std::string kept, line;
    while (std::getline(lines, line)) {
        if (line.rfind("running time: ", 0) == 0 || line.rfind("#storage ", 0) == 0) continue;
        kept += line + "\n";
    }
    return kept;
}

void expect_same_at_any_thread_count(const std::string& spot, const std::string& queries) {
    // One progress report at iteration 25, then results and queries at 30.
    const std::string commands = "go 30 steps\nwait_for_solver\ncalc_results\n" + queries;
    const std::string first = replies_at(spot, commands, 1);
    ASSERT_NE(first.find("SOLVER: stopped (required number of steps done)"), std::string::npos) << first;
    EXPECT_EQ(first.find("ERROR"), std::string::npos) << first;
    for (const int threads : {2, 8, 2}) {
        const std::string again = replies_at(spot, commands, threads);
        EXPECT_TRUE(again == first) << spot << " at " << threads << " threads differs from 1 thread";
    }
}

TEST(ThreadCount, TurnSolveRepliesAreTheSame) {
    expect_same_at_any_thread_count("turn_spot.txt",
                                    "show_strategy r:0\nshow_strategy r:0:c\nshow_strategy r:0:c:c:7c\n"
                                    "calc_ev OOP r:0\ncalc_ev IP r:0:c:c:7c\n");
}

TEST(ThreadCount, FlopSolveRepliesAreTheSame) {
    expect_same_at_any_thread_count("flop_spot.txt",
                                    "show_strategy r:0\nshow_strategy r:0:c:c:7c\nshow_strategy r:0:c:c:7c:c:c:3d:c\n"
                                    "calc_ev OOP r:0\ncalc_ev IP r:0:c:c:7c\n");
}

}  // namespace
