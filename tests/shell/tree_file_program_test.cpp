// Tree files through the real program: a solve saved by dump_tree and brought
// back by load_tree in a new process answers every query as before, byte for
// byte, and goes on as if never interrupted. Saves without values and the
// refusals are in tree_files.transcript.
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <sstream>

#include "shell/program_runs.h"

namespace fs = std::filesystem;

namespace {

const fs::path tests_root = fs::path(__FILE__).parent_path().parent_path();

struct Spot {
    const char* name;
    const char* script;  // under tests/
    int iterations;      // before the save; past the averaging delay where it is cheap
    const char* paths;   // blank-separated
};

const Spot turn{"turn", "shell/fixtures/turn_spot.txt", 61,
                "r:0 r:0:c r:0:b50 r:0:c:b50 r:0:b50:b150 r:0:c:c:As r:0:c:c:7h r:0:b50:c:Kd r:0:b50:c:5c "
                "r:0:c:c:As:c r:0:c:c:7h:b50"};
const Spot river{"river", "solver/fixtures/river_game.txt", 61, "r:0 r:0:c r:0:b50 r:0:c:b50 r:0:b50:b150"};
const Spot flop{"flop", "solver/fixtures/flop_game.txt", 4,
                "r:0 r:0:c r:0:b50 r:0:c:c:As r:0:b50:c:Kd r:0:c:c:As:b50 r:0:c:c:7h:c:c:4d r:0:b50:c:Kd:b50"};

// What a client reads of a solve, closed by a mark that splits a session's output.
std::string queries(const Spot& spot, const std::string& mark) {
    std::string text = "node_count\ncalc_results\n";
    std::istringstream paths(spot.paths);
    for (std::string path; paths >> path;)
        text += "show_node " + path + "\nshow_strategy " + path + "\ncalc_ev OOP " + path + "\ncalc_ev IP " + path + "\n";
    return text + "echo " + mark + "\n";
}

// The part of `output` between the lines `from` (or the start) and `to`.
std::string between(const std::string& output, const std::string& from, const std::string& to) {
    const size_t start = from.empty() ? 0 : output.find(from + "\n") + from.size() + 1;
    const size_t end = output.find(to + "\n", start);
    return end == std::string::npos ? "missing " + to : output.substr(start, end - start);
}

// One solve saved at a level with isomorphism on or off, and brought back:
// every query answers as before, and three more iterations give what they
// give without the interruption.
class TreeFileProgramTest : public ProgramFolder {
protected:
    void round_trip(const Spot& spot, int level, int isomorphic);
};

void TreeFileProgramTest::round_trip(const Spot& spot, int level, int isomorphic) {
    SCOPED_TRACE(std::string(spot.name) + " isomorphism " + std::to_string(isomorphic) + " level " +
                 std::to_string(level));
    const std::string setup = "load_script " + (tests_root / spot.script).string() + "\nset_isomorphism " +
                              std::to_string(isomorphic) + " " + std::to_string(isomorphic) + "\nset_compression " +
                              std::to_string(level) + "\nbuild_tree\n";
    const std::string further = "go 3 steps\nwait_for_solver\n";
    const std::string saved = run("", setup + "go " + std::to_string(spot.iterations) + " steps\nwait_for_solver\n" +
                                       queries(spot, "before") + "dump_tree saved.tree\necho saved\n" + further +
                                       queries(spot, "after")).output;
    const std::string loaded =
        run("", "load_tree saved.tree\necho loaded\n" + queries(spot, "before") + further + queries(spot, "after"))
            .output;

    EXPECT_EQ(between(saved, "before", "saved"), "dump_tree ok!\n");
    EXPECT_EQ(between(loaded, "", "loaded"), "load_tree ok!\n");
    const std::string answers = between(saved, "SOLVER: stopped (required number of steps done)", "before");
    EXPECT_EQ(answers.find("ERROR"), std::string::npos) << answers.substr(0, 2000);
    EXPECT_EQ(between(loaded, "loaded", "before"), answers);
    EXPECT_EQ(between(loaded, "before", "after"), between(saved, "saved", "after"));
    // A save leaves no file but the one asked for.
    std::vector<std::string> names;
    for (const auto& entry : fs::directory_iterator(work)) names.push_back(entry.path().filename().string());
    std::sort(names.begin(), names.end());
    EXPECT_EQ(names, (std::vector<std::string>{"errors.txt", "input.txt", "output.txt", "saved.tree"}));
}

// Isomorphism matters from the turn on. The flop is the costly spot: its
// levels are covered in-process by the tree file tests of the solver.
TEST_F(TreeFileProgramTest, RiverAndTurnAtEveryLevelAndFlopAtMax) {
    for (int level = 0; level <= 5; ++level) {
        round_trip(river, level, 1);
        for (const int isomorphic : {1, 0}) round_trip(turn, level, isomorphic);
    }
    round_trip(flop, 4, 0);
}

}  // namespace
