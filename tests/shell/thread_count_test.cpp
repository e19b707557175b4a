// The same commands give the same replies at any thread count: a walk's tasks
// run in an order left to chance, so this holds only while their results are
// summed in a fixed order. Runs are compared with each other rather than with
// a fixed text, as solve values differ between processor makers.
#include <gtest/gtest.h>

#include <filesystem>
#include <sstream>

#include "shell/program_runs.h"

namespace {

class ThreadCount : public ProgramFolder {
protected:
    // The program's output for the spot and the commands, without the lines
    // that read a clock.
    std::string replies_at(const std::string& spot, const std::string& commands, int threads) {
        const std::filesystem::path script = std::filesystem::path(__FILE__).parent_path() / "fixtures" / spot;
        std::istringstream lines(run("", "load_script " + script.string() + "\nset_threads " +
                                             std::to_string(threads) + "\n" + commands).output);
        std::string kept;
        for (std::string line; std::getline(lines, line);)
            if (line.rfind("running time: ", 0) != 0) kept += line + "\n";
        return kept;
    }

    // Solved at 1, 2 and 8 threads and again at 2: every reply (a progress
    // report at 25, results, strategies, values) matches the first run to the byte.
    void expect_same_at_any_thread_count(const std::string& spot, const std::string& queries) {
        const std::string commands = "go 30 steps\nwait_for_solver\ncalc_results\n" + queries;
        const std::string first = replies_at(spot, commands, 1);
        ASSERT_NE(first.find("SOLVER: stopped (required number of steps done)"), std::string::npos) << first;
        EXPECT_EQ(first.find("ERROR"), std::string::npos) << first;
        for (const int threads : {2, 8, 2})
            EXPECT_TRUE(replies_at(spot, commands, threads) == first) << spot << " at " << threads << " threads";
    }
};

TEST_F(ThreadCount, TurnSolveRepliesAreTheSame) {
    expect_same_at_any_thread_count("turn_spot.txt",
                                    "show_strategy r:0\nshow_strategy r:0:c\nshow_strategy r:0:c:c:7c\n"
                                    "calc_ev OOP r:0\ncalc_ev IP r:0:c:c:7c\n");
}

TEST_F(ThreadCount, FlopSolveRepliesAreTheSame) {
    expect_same_at_any_thread_count("flop_spot.txt",
                                    "show_strategy r:0\nshow_strategy r:0:c:c:7c\nshow_strategy r:0:c:c:7c:c:c:3d:c\n"
                                    "calc_ev OOP r:0\ncalc_ev IP r:0:c:c:7c\n");
}

}  // namespace
