// Queries sent to the real program while its solver runs. How far the solve
// has got when a query is answered is left to chance, so the replies are
// checked for what holds at every iteration: their form, the hands that have
// values, strategies that sum to one, a fold worth the pot to its winner, and
// best responses worth at least the strategy.
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

TEST(QueriesWhileSolving, AreAnsweredInFullWithSaneNumbers) {
    prepare_tables();
    const fs::path work = fs::temp_directory_path() / ("tavrek_solving_" + std::to_string(getpid()));
    fs::create_directories(work);
    const RangeVector range[2] = {class_range(41, 0.5), class_range(42, 0.5)};
    // The flop game of the report tests: slow enough per iteration that the
    // run can't end on its own before `stop`.
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
    const Session session = run_program(
        work, "load_script game.txt\ngo\nsleep 200\nshow_strategy r:0\ncalc_ev OOP r\ncalc_ev OOP r:0:b50:f\n"
              "calc_ev IP r:0:b50:f\ncalc_results\ncalc_ev_line IP r:0\nstop\nwait_for_solver\n");
    fs::remove_all(work);
    // Stopped on request: every query before `stop` met a running solver.
    ASSERT_EQ(session.solver_lines,
              (std::vector<std::string>{"SOLVER: started", "SOLVER: stopped (requested)"}));

    Replies replies(session.replies);
    while (replies.next() != "build_tree ok!") continue;
    EXPECT_EQ(replies.next(), "go ok!");
    const CardMask board = parse_cards("QsJh2h");
    const auto absent = [&](int player, int index) {
        const ComboSlot slot = combo_slot[index];
        return range[player][slot] == 0 || (slot_mask[slot] & board) != 0;
    };

    // OOP's check and bet at the root: one probability each per hand held.
    const std::vector<double> check = replies.next_values(), bet = replies.next_values();
    EXPECT_EQ(replies.next(), "END");
    for (int i = 0; i < combo_count; ++i) ASSERT_NEAR(check[i] + bet[i], absent(OOP, i) ? 0.0 : 1.0, 1e-6) << i;

    // The root: a value and a positive weight for every hand of the range.
    // Nobody can win more than the pot and the largest bet, nor lose more
    // than that bet.
    const std::vector<double> values = replies.next_values(), weights = replies.next_values();
    EXPECT_EQ(replies.next(), "END");
    for (int i = 0; i < combo_count; ++i) {
        ASSERT_EQ(std::isnan(values[i]), absent(OOP, i)) << i;
        ASSERT_EQ(std::isnan(weights[i]), absent(OOP, i)) << i;
        if (absent(OOP, i)) continue;
        ASSERT_GE(values[i], -150.0) << i;
        ASSERT_LE(values[i], 250.0) << i;
        ASSERT_GT(weights[i], 0.0) << i;
    }
    // IP folds to OOP's bet: OOP takes the pot, IP gets nothing back.
    for (const double winner_gets : {100.0, 0.0}) {
        const std::vector<double> fold_values = replies.next_values(), fold_weights = replies.next_values();
        EXPECT_EQ(replies.next(), "END");
        for (int i = 0; i < combo_count; ++i) {
            if (!(fold_weights[i] > 0)) continue;  // meets nobody, or NaN
            ASSERT_NEAR(fold_values[i], winner_gets, 1e-4) << i;
        }
    }

    // Each player's value and best response come from one walk; the two
    // players' walks may see different iterations, so their values need not
    // add up to the pot.
    const double ev_oop = replies.next_result("EV OOP"), ev_ip = replies.next_result("EV IP");
    EXPECT_GE(replies.next_result("OOP's MES"), ev_oop - 0.01);
    EXPECT_GE(replies.next_result("IP's MES"), ev_ip - 0.01);
    EXPECT_GE(replies.next_result("Exploitable for"), -0.01);
    EXPECT_EQ(replies.next(), "END");

    for (const double constant : {0.0, 1.0})
        for (const double value : replies.next_values()) ASSERT_EQ(value, constant);
    EXPECT_EQ(replies.next(), "END");
    EXPECT_EQ(replies.next(), "stop ok!");
    EXPECT_TRUE(replies.done());
}

}  // namespace
