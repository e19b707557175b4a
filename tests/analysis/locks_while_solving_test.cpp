// Lock commands sent to the real program while its solver runs. How far the
// solve has got when they land is left to chance, so the replies are checked
// for what holds at every iteration after them: forced shares stay exact and
// the locked hands are the ones named.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>

#include "analysis_test_support.h"

namespace fs = std::filesystem;

namespace {

std::string range_line(const char* player, const RangeVector& range) {
    std::string line = std::string("set_range ") + player;
    char number[32];
    for (int index = 0; index < combo_count; ++index) {
        snprintf(number, sizeof number, " %g", range[combo_slot[index]]);
        line += number;
    }
    return line + "\n";
}

// The program's reply lines after the banner, without the solver thread's
// lines: its start and stop lines are returned apart, its progress reports
// (from "SOLVER:" to "END") are dropped.
struct Session {
    std::vector<std::string> replies;
    std::vector<std::string> solver_lines;
};

Session run_program(const fs::path& work, const std::string& input) {
    std::ofstream(work / "input.txt") << input;
    const std::string command =
        "cd '" + work.string() + "' && '" TAVREK_BINARY "' < input.txt > output.txt 2> errors.txt";
    EXPECT_EQ(std::system(command.c_str()), 0);
    std::ifstream output(work / "output.txt");
    Session session;
    std::string line;
    for (int banner = 0; banner < 2; ++banner) std::getline(output, line);
    bool in_report = false;
    while (std::getline(output, line)) {
        if (line == "SOLVER:") {
            in_report = true;
        } else if (in_report) {
            in_report = line != "END";
        } else if (line.rfind("SOLVER: ", 0) == 0) {
            session.solver_lines.push_back(line);
        } else {
            session.replies.push_back(line);
        }
    }
    return session;
}

class Replies {
public:
    explicit Replies(std::vector<std::string> lines) : lines_(std::move(lines)) {}
    std::string next() {
        EXPECT_LT(at_, lines_.size());
        return at_ < lines_.size() ? lines_[at_++] : std::string();
    }
    std::vector<double> next_values() {
        const std::vector<double> values = numbers_of(next());
        EXPECT_EQ(values.size(), size_t(combo_count));
        return values.size() == size_t(combo_count) ? values : std::vector<double>(combo_count, NAN);
    }
    // The "label: number" line of a results report.
    double next_result(const std::string& label) {
        const std::string line = next();
        EXPECT_EQ(line.rfind(label + ": ", 0), 0u) << line;
        return std::atof(line.c_str() + label.size() + 2);
    }
    bool done() const { return at_ == lines_.size(); }

private:
    std::vector<std::string> lines_;
    size_t at_ = 0;
};

// The flop game of the report tests: slow enough per iteration that the run
// can't end on its own before `stop`.
void write_game(const fs::path& work, const RangeVector range[2]) {
    std::string game = range_line("OOP", range[0]) + range_line("IP", range[1]) +
                       "set_board Qs Jh 2h\nset_pot 0 0 100\nclear_lines\n";
    for (const auto& line : three_street_lines) {
        game += "add_line";
        for (const double amount : line) {
            game += ' ';
            game += std::to_string(static_cast<int>(amount));
        }
        game += "\n";
    }
    std::ofstream(work / "game.txt") << game << "build_tree\n";
}

TEST(QueriesWhileSolving, LocksTakeHoldAtTheNextIteration) {
    prepare_tables();
    const fs::path work = fs::temp_directory_path() / ("tavrek_locking_" + std::to_string(getpid()));
    fs::create_directories(work);
    const RangeVector range[2] = {class_range(41, 0.5), class_range(42, 0.5)};
    write_game(work, range);
    std::string ones, threes, odd;
    for (int i = 0; i < combo_count; ++i) {
        ones += " 1";
        threes += " 3";
        odd += i % 2 ? " 1" : " 0";
    }
    // Locked first, so that no iteration between the two writes moves the
    // forced rows.
    const Session session = run_program(
        work, "load_script game.txt\ngo\nsleep 200\nlock_node r:0\nset_strategy r:0 0" + ones +
                  "\nset_strategy r:0 1" + threes + "\ncombo_lock_node r:0:c:c:7c:c:c:8d:c" + odd +
                  "\nset_ev_boost r:0:b50 0.5\nsleep 300\nshow_strategy r:0\nshow_locked_combos r:0:c:c:7c:c:c:8d:c\n"
                  "stop\nwait_for_solver\nshow_node r:0\n");
    fs::remove_all(work);
    ASSERT_EQ(session.solver_lines,
              (std::vector<std::string>{"SOLVER: started", "SOLVER: stopped (requested)"}));

    Replies replies(session.replies);
    while (replies.next() != "go ok!") continue;
    for (const char* reply : {"lock_node ok!", "set_strategy ok!", "set_strategy ok!", "combo_lock_node ok!",
                              "set_ev_boost ok!"})
        EXPECT_EQ(replies.next(), reply);
    // Iterations went on after the lock and left the forced shares alone.
    const CardMask board = parse_cards("QsJh2h");
    const std::vector<double> check = replies.next_values(), bet = replies.next_values();
    EXPECT_EQ(replies.next(), "END");
    for (int i = 0; i < combo_count; ++i) {
        const ComboSlot slot = combo_slot[i];
        const bool held = range[OOP][slot] != 0 && (slot_mask[slot] & board) == 0;
        ASSERT_NEAR(check[i], held ? 0.25 : 0.0, 1e-6) << i;
        ASSERT_NEAR(bet[i], held ? 0.75 : 0.0, 1e-6) << i;
    }
    // The odd hands of the river list are locked, those not on it show 0.
    const std::vector<double> locked = replies.next_values();
    int shown = 0;
    for (int i = 0; i < combo_count; ++i) {
        ASSERT_TRUE(locked[i] == 0 || (locked[i] == 1 && i % 2 == 1)) << i;
        shown += locked[i] == 1;
    }
    EXPECT_GT(shown, 0);
    EXPECT_EQ(replies.next(), "stop ok!");
    for (const char* line : {"r:0", "OOP_DEC", "2h Jh Qs", "0 0 100", "2 children", "flags: LOCKED", "END"})
        EXPECT_EQ(replies.next(), line);
    EXPECT_TRUE(replies.done());
}

}  // namespace
