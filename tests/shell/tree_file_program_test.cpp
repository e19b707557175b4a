// Tree files through the real program: a solve saved by dump_tree and brought
// back by load_tree in a new process answers every query as before, byte for
// byte, and goes on as if never interrupted; the files' refusals keep the tree.
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <sstream>

namespace fs = std::filesystem;

namespace {

const fs::path tests_root = fs::path(__FILE__).parent_path().parent_path();

struct Spot {
    const char* name;
    fs::path script;
    int iterations;  // before the save; past the averaging delay where it is cheap
    std::vector<std::string> paths;
};

std::vector<Spot> spots() {
    const std::vector<std::string> turn_paths = {"r:0",          "r:0:c",        "r:0:b50",        "r:0:c:b50",
                                                 "r:0:b50:b150", "r:0:c:c:As",   "r:0:c:c:7h",     "r:0:c:c:Kd",
                                                 "r:0:b50:c:Kd", "r:0:b50:c:5c", "r:0:c:c:As:c", "r:0:c:c:7h:b50"};
    const std::vector<std::string> flop_paths = {
        "r:0",          "r:0:c",          "r:0:b50",           "r:0:c:c:As",     "r:0:c:c:7h",       "r:0:b50:c:Kd",
        "r:0:c:c:As:c", "r:0:c:c:As:b50", "r:0:c:c:7h:c:c:4d", "r:0:b50:c:Kd:c", "r:0:b50:c:Kd:b50", "r:0:c:c:As:c:c:2c"};
    return {{"turn", tests_root / "shell/fixtures/turn_spot.txt", 61, turn_paths},
            {"river", tests_root / "solver/fixtures/river_game.txt", 61,
             {"r:0", "r:0:c", "r:0:b50", "r:0:c:b50", "r:0:b50:b150"}},
            {"flop", tests_root / "solver/fixtures/flop_game.txt", 4, flop_paths}};
}

class TreeFileProgramTest : public testing::Test {
public:
    void SetUp() override {
        work = fs::temp_directory_path() /
               ("tavrek_tree_file_" + std::string(testing::UnitTest::GetInstance()->current_test_info()->name()) +
                "_" + std::to_string(getpid()));
        fs::remove_all(work);
        fs::create_directories(work);
    }
    void TearDown() override { fs::remove_all(work); }

    // The program's output on `input`, without its two banner lines. One
    // thread: evaluations over several add their chance positions' values in
    // the order the threads finish, which moves the last digits.
    std::string run(const std::string& input) {
        std::ofstream(work / "input.txt", std::ios::binary) << "set_threads 1\n" << input;
        const std::string command = "cd '" + work.string() + "' && '" TAVREK_BINARY "' < input.txt > output.txt";
        EXPECT_EQ(std::system(command.c_str()), 0);
        std::ifstream file(work / "output.txt", std::ios::binary);
        std::stringstream text;
        text << file.rdbuf();
        const std::string output = text.str();
        const size_t first = output.find('\n');
        const std::string body = output.substr(output.find('\n', first + 1) + 1);
        return body.substr(body.find('\n') + 1);
    }

    fs::path work;
};

// What a client reads of a solve, closed by a mark that splits a session's output.
std::string queries(const Spot& spot, const std::string& mark) {
    std::string text = "node_count\ncalc_results\n";
    for (const std::string& path : spot.paths)
        text += "show_node " + path + "\nshow_strategy " + path + "\ncalc_ev OOP " + path + "\ncalc_ev IP " + path + "\n";
    return text + "echo " + mark + "\n";
}

// The part of `output` between the lines `from` (or the start) and `to`.
std::string between(const std::string& output, const std::string& from, const std::string& to) {
    const size_t start = from.empty() ? 0 : output.find(from + "\n") + from.size() + 1;
    const size_t end = output.find(to + "\n", start);
    return end == std::string::npos ? "missing " + to : output.substr(start, end - start);
}

// One solve saved at a level with isomorphism on or off, and brought back.
void round_trip(TreeFileProgramTest& test, const Spot& spot, int level, int isomorphic) {
    SCOPED_TRACE(std::string(spot.name) + " isomorphism " + std::to_string(isomorphic) + " level " +
                 std::to_string(level));
    const std::string setup = "load_script " + spot.script.string() + "\nset_isomorphism " +
                              std::to_string(isomorphic) + " " + std::to_string(isomorphic) + "\nset_compression " +
                              std::to_string(level) + "\nbuild_tree\n";
    const std::string further = "go 3 steps\nwait_for_solver\n";
    const std::string saved = test.run(setup + "go " + std::to_string(spot.iterations) + " steps\nwait_for_solver\n" +
                                       queries(spot, "before") + "dump_tree saved.tree\necho saved\n" + further +
                                       queries(spot, "after"));
    const std::string loaded =
        test.run("load_tree saved.tree\necho loaded\n" + queries(spot, "before") + further + queries(spot, "after"));

    EXPECT_EQ(between(saved, "before", "saved"), "dump_tree ok!\n");
    EXPECT_EQ(between(loaded, "", "loaded"), "load_tree ok!\n");
    const std::string answers = between(saved, "SOLVER: stopped (required number of steps done)", "before");
    EXPECT_EQ(answers.find("ERROR"), std::string::npos) << answers.substr(0, 2000);
    EXPECT_EQ(between(loaded, "loaded", "before"), answers);
    EXPECT_EQ(between(loaded, "before", "after"), between(saved, "saved", "after"));
}

// After dump_tree and load_tree every query answers as before, byte for byte,
// and three more iterations give what they give without the interruption.
// Isomorphism matters from the turn on. The flop is the costly spot: its
// levels are covered in-process by the tree file tests of the solver.
TEST_F(TreeFileProgramTest, RiverAtEveryLevel) {
    for (int level = 0; level <= 5; ++level) round_trip(*this, spots()[1], level, 1);
}

TEST_F(TreeFileProgramTest, TurnAtEveryLevelWithAndWithoutIsomorphism) {
    for (int level = 0; level <= 5; ++level)
        for (const int isomorphic : {1, 0}) round_trip(*this, spots()[0], level, isomorphic);
}

TEST_F(TreeFileProgramTest, FlopAtMax) { round_trip(*this, spots()[2], 4, 0); }

// Without values the file is smaller and keeps the strategies and the solve;
// EVs read 0 after the load, as the file says it has none.
TEST_F(TreeFileProgramTest, WithoutValues) {
    const Spot spot = spots()[0];
    const std::string saved = run("load_script " + spot.script.string() +
                                  "\ngo 4 steps\nwait_for_solver\necho solved\nshow_strategy r:0\nshow_strategy "
                                  "r:0:c:c:As\necho shown\ndump_tree whole.tree\ndump_tree lean.tree no_values\n");
    const std::string loaded =
        run("load_tree lean.tree\necho solved\nshow_strategy r:0\nshow_strategy r:0:c:c:As\necho shown\n"
            "calc_ev OOP r:0\ngo 1 steps\nwait_for_solver\ncalc_results\n");
    EXPECT_EQ(saved.substr(saved.find("shown\n") + 6), "dump_tree ok!\ndump_tree ok!\n");
    EXPECT_EQ(between(loaded, "solved", "shown"), between(saved, "solved", "shown"));
    EXPECT_LT(fs::file_size(work / "lean.tree"), fs::file_size(work / "whole.tree"));
    const std::string ev = between(loaded, "shown", "END");
    const std::string first_line = ev.substr(0, ev.find('\n'));
    EXPECT_EQ(first_line.find_first_not_of("0 n a"), std::string::npos) << first_line.substr(0, 200);
    EXPECT_NE(loaded.find("SOLVER: stopped (required number of steps done)\nEV OOP: "), std::string::npos) << loaded.substr(loaded.size() - 300);
}

// Refusals of dump_tree and load_tree name the reason and leave the tree that
// is loaded, and the file of the name asked for, as they were.
TEST_F(TreeFileProgramTest, RefusalsKeepTheTreeAndTheFile) {
    const Spot spot = spots()[0];
    fs::create_directories(work / "folder");
    const std::string game = "load_script " + spot.script.string() + "\ngo 2 steps\nwait_for_solver\n";
    const std::string output =
        run("dump_tree\ndump_tree kept.tree\n" + game + "dump_tree kept.tree\ncalc_results\n" +
            "dump_tree folder\ndump_tree missing/kept.tree\ndump_tree kept.tree nonsense\n"
            "load_tree folder\nload_tree nothing.tree\nload_tree input.txt\ncalc_results\n"
            "go 1000000 steps\ndump_tree other.tree\nload_tree kept.tree\nstop\nwait_for_solver\n");
    EXPECT_EQ(output.substr(0, output.find("set_range")),
              "ERROR: dump_tree incorrect or missing argument\nERROR: dump_tree missing/incorrect tree\n");
    const std::string after = output.substr(output.find("dump_tree ok!\n"));
    const size_t results = after.find("EV OOP");
    const std::string first_results = after.substr(results, after.find("END\n", results) + 4 - results);
    EXPECT_EQ(after, "dump_tree ok!\n" + first_results +
                         "ERROR: dump_tree can't open file (Is a directory)\n"
                         "ERROR: dump_tree can't open file (No such file or directory)\n"
                         "ERROR: dump_tree incorrect or missing argument\n"
                         "ERROR: load_tree can't open file (Is a directory)\n"
                         "ERROR: load_tree can't open file (No such file or directory)\n"
                         "ERROR: load_tree invalid file\n" +
                         first_results +
                         "go ok!\nSOLVER: started\n"
                         "ERROR: dump_tree Can't do that when solver is running\n"
                         "ERROR: load_tree Can't do that when solver is running\n"
                         "stop ok!\nSOLVER: stopped (requested)\n");
    EXPECT_FALSE(fs::exists(work / "other.tree"));
    EXPECT_FALSE(fs::exists(work / "missing"));
    // Nothing but the files asked for is left in the folder.
    std::vector<std::string> names;
    for (const auto& entry : fs::directory_iterator(work)) names.push_back(entry.path().filename().string());
    std::sort(names.begin(), names.end());
    EXPECT_EQ(names, (std::vector<std::string>{"folder", "input.txt", "kept.tree", "output.txt"}));
}

}  // namespace
