// A solve runs while queries, results, setting changes and stop/go cycles
// come in, as a front end sends them. How far the solve has got at any reply
// is left to chance, so what is checked holds at every iteration: every reply
// has its form, every run that starts also stops for a known reason, the
// progress reports are whole, and the program ends cleanly with its input.
#include <gtest/gtest.h>

#include <array>
#include <cmath>
#include <cstring>
#include <filesystem>
#include <functional>
#include <set>
#include <sstream>

#include "shell/program_runs.h"

namespace fs = std::filesystem;

namespace {

constexpr int hand_count = 1326;
using Reply = std::vector<std::string>;

std::vector<double> numbers_of(const std::string& line) {
    std::vector<double> values;
    std::istringstream words(line);
    for (std::string word; words >> word;) {
        char* end = nullptr;
        const double value = std::strtod(word.c_str(), &end);
        values.push_back(*end == '\0' ? value : NAN);
    }
    return values;
}

// EV OOP, EV IP, OOP's MES, IP's MES and Exploitable for: the lines of a
// results report from `first` on, closed by END.
using Results = std::array<double, 5>;
Results read_results(const Reply& lines, size_t first) {
    static const char* const labels[] = {"EV OOP: ", "EV IP: ", "OOP's MES: ", "IP's MES: ", "Exploitable for: "};
    Results r{NAN, NAN, NAN, NAN, NAN};
    if (lines.size() != first + 6 || lines.back() != "END") {
        ADD_FAILURE() << "a results report of " << lines.size() - first << " lines";
        return r;
    }
    for (size_t i = 0; i < 5; ++i) {
        const std::string& line = lines[first + i];
        EXPECT_EQ(line.rfind(labels[i], 0), 0u) << line;
        const std::vector<double> values = numbers_of(line.substr(std::min(line.size(), strlen(labels[i]))));
        EXPECT_TRUE(values.size() == 1 && std::isfinite(values[0])) << line;
        if (!values.empty()) r[i] = values[0];
    }
    return r;
}

// Lines of 1326 probabilities closed by END: one per action, where each
// hand's actions add up to 1, or to 0 for a hand not held (a value out of
// [0, 1] spoils its hand's total).
void expect_strategy(const Reply& reply, size_t actions) {
    ASSERT_EQ(reply.size(), actions + 1);
    EXPECT_EQ(reply.back(), "END");
    std::vector<double> totals(hand_count, 0.0);
    for (size_t a = 0; a < actions; ++a) {
        const std::vector<double> values = numbers_of(reply[a]);
        ASSERT_EQ(values.size(), size_t(hand_count)) << reply[a].substr(0, 80);
        for (int h = 0; h < hand_count; ++h) totals[h] += values[h] >= 0.0 && values[h] <= 1.0 + 1e-6 ? values[h] : NAN;
    }
    for (int h = 0; h < hand_count; ++h)
        ASSERT_TRUE(totals[h] == 0.0 || std::abs(totals[h] - 1.0) < 1e-5) << "hand " << h << ": " << totals[h];
}

// One command and what its reply must be.
struct Step {
    std::string command;
    std::function<void(const Reply&)> check;
};

std::function<void(const Reply&)> only(const std::string& line) {
    return [line](const Reply& reply) { EXPECT_EQ(reply, Reply{line}); };
}

// The solver thread's lines, taken out of the stream and checked as they come.
struct SolverLines {
    int started = 0, stopped = 0, reports = 0;
    std::multiset<std::string> stop_reasons;
    // Runs that get new stores at another level: they may come between the
    // two walks of a report.
    const std::set<int> runs_with_new_stores = {3, 6};
    bool stores_replaced() const { return runs_with_new_stores.count(started) > 0; }

    bool take(const std::string& line, std::istream& rest) {
        if (line == "SOLVER: started") {
            EXPECT_EQ(started++, stopped) << "a second run started before the first one stopped";
            return true;
        }
        if (line.rfind("SOLVER: stopped (", 0) == 0) {
            EXPECT_EQ(started, ++stopped) << "a run stopped that had not started";
            const std::string reason = line.substr(17, line.size() - 18);
            static const std::set<std::string> known = {"requested", "required accuracy reached",
                                                        "required number of steps done", "timeout reached"};
            EXPECT_TRUE(known.count(reason) && line.back() == ')') << line;
            stop_reasons.insert(reason);
            return true;
        }
        if (line != "SOLVER:") return false;
        // The output lock keeps a report in one piece.
        EXPECT_GT(started, stopped) << "a progress report outside a run";
        Reply report;
        for (std::string next; report.size() < 7 && std::getline(rest, next);) report.push_back(next);
        EXPECT_TRUE(!report.empty() && report[0].rfind("running time: ", 0) == 0) << "a report without its time";
        const Results r = read_results(report, 1);
        // Both walks of a report see the strategy of one iteration.
        EXPECT_TRUE(stores_replaced() || std::abs(r[0] + r[1] - 100.0) < 0.01) << r[0] << " + " << r[1];
        ++reports;
        return true;
    }
};

class PipeSoak : public ProgramFolder {};

TEST_F(PipeSoak, QueriesSettingsAndStopGoWhileSolving) {
    const fs::path spot = fs::path(__FILE__).parent_path() / "fixtures" / "turn_spot.txt";
    SolverLines solver;
    std::vector<Step> steps = {{"load_script " + spot.string(), [](const Reply& r) {
                                    EXPECT_EQ(r.empty() ? "" : r.back(), "build_tree ok!");
                                }},
                               {"set_accuracy 0", only("set_accuracy ok!")}};
    const auto add = [&](const std::string& command, std::function<void(const Reply&)> check) {
        steps.push_back({command, std::move(check)});
    };
    const auto nothing = [](const Reply& r) { EXPECT_EQ(r, Reply{}); };
    const auto queries = [&] {
        add("show_strategy r:0", [](const Reply& r) { expect_strategy(r, 2); });
        add("show_strategy r:0:b50:c:Ah", [](const Reply& r) { expect_strategy(r, 1); });
        // Each player's value and best response come from one walk.
        add("calc_results", [&solver](const Reply& reply) {
            const Results r = read_results(reply, 0);
            if (solver.stores_replaced()) return;
            EXPECT_GE(r[2], r[0] - 0.01);
            EXPECT_GE(r[3], r[1] - 0.01);
        });
    };
    for (int cycle = 0; cycle < 8; ++cycle) {
        // Unlimited runs, stopped by request; and runs that end on their
        // own while commands still come in.
        const bool unlimited = cycle % 4 != 3;
        add(unlimited ? "go" : "go 20 steps", only("go ok!"));
        // Unless the accuracy is 0, the run may have ended by now.
        if (unlimited && (cycle == 0 || cycle % 2 == 1))
            add("go", only("ERROR: go Can't do that when solver is running"));
        queries();
        add(cycle % 2 ? "set_threads 1" : "set_threads 2", only("set_threads ok!"));
        add(cycle % 2 ? "set_accuracy 0.001" : "set_accuracy 0", only("set_accuracy ok!"));
        if (cycle == 2 || cycle == 5)
            add(cycle == 2 ? "set_compression 1" : "set_compression 0", only("set_compression ok!"));
        add("sleep 50", nothing);
        queries();
        add(cycle == 6 ? "take_a_break 0" : "stop", only(cycle == 6 ? "take_a_break ok!" : "stop ok!"));
        add("wait_for_solver", nothing);
    }
    // Runs whose ends are certain: by steps, with a report at 25; by
    // accuracy at that first report.
    add("go 30 steps", only("go ok!"));
    add("wait_for_solver", nothing);
    add("set_accuracy 1000", only("set_accuracy ok!"));
    add("go", only("go ok!"));
    add("wait_for_solver", nothing);
    // At rest the values share out the pot, and the exploitability is the
    // mean of the best responses' gains.
    add("calc_results", [](const Reply& reply) {
        const Results r = read_results(reply, 0);
        EXPECT_NEAR(r[0] + r[1], 100.0, 0.01);
        EXPECT_NEAR(r[4], 0.5 * (r[2] + r[3] - r[0] - r[1]), 0.002);
    });
    queries();
    // The input ends while a run goes on: the program ends at once, with
    // status 0, whatever the thread was doing.
    add("set_accuracy 0", only("set_accuracy ok!"));
    add("go", only("go ok!"));

    std::string input;
    for (const Step& step : steps) input += step.command + "\nis_ready\n";
    const Run result = run("", input);
    EXPECT_EQ(result.exit_code, 0);
    std::istringstream output(result.output);
    size_t next = 0;
    Reply reply;
    for (std::string line; std::getline(output, line);) {
        if (solver.take(line, output)) continue;
        if (line != "is_ready ok!") {
            reply.push_back(line);
            continue;
        }
        ASSERT_LT(next, steps.size()) << "more replies than commands";
        const Step& step = steps[next++];
        SCOPED_TRACE("command " + std::to_string(next) + ": " + step.command);
        step.check(reply);
        // A run has started once go is answered, and its last line comes
        // before a waiter is let go.
        const bool go = step.command.rfind("go", 0) == 0 && reply == Reply{"go ok!"};
        EXPECT_TRUE(solver.started == solver.stopped + go || !(go || step.command == "wait_for_solver"))
            << solver.started << " runs started, " << solver.stopped << " stopped";
        reply.clear();
    }
    EXPECT_EQ(next, steps.size());
    EXPECT_EQ(reply, Reply{}) << "output after the last command";
    EXPECT_EQ(solver.started, 11);
    EXPECT_GE(solver.stop_reasons.count("required number of steps done"), 1u);
    EXPECT_GE(solver.stop_reasons.count("required accuracy reached"), 1u);
    EXPECT_GE(solver.reports, 2);
    EXPECT_EQ(file_text(work / "errors.txt"), "");
}

}  // namespace
