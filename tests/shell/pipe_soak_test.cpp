// Drives the real program through a pipe, as a front end does: a solve runs
// while queries, results, setting changes and stop/go cycles come in, each
// answer read before the next command goes out. How far the solve has got at
// any reply is left to chance, so what is checked holds at every iteration:
// every reply has its form, every run that starts also stops for a known
// reason, the progress reports are whole, and the program ends cleanly.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cmath>
#include <filesystem>
#include <fstream>
#include <optional>
#include <set>
#include <sstream>
#include <thread>

namespace fs = std::filesystem;
using Clock = std::chrono::steady_clock;

namespace {

constexpr int hand_count = 1326;
// Generous: a reply waits for at most one walk of a small tree, but the
// suite may run beside other tests on two cores.
constexpr auto reply_limit = std::chrono::seconds(20);

const fs::path spot_file = fs::path(__FILE__).parent_path() / "fixtures" / "turn_spot.txt";

std::vector<double> numbers_of(const std::string& line) {
    std::vector<double> values;
    std::istringstream words(line);
    std::string word;
    while (words >> word) {
        char* end = nullptr;
        const double value = std::strtod(word.c_str(), &end);
        values.push_back(*end == '\0' ? value : NAN);
    }
    return values;
}

// The number after "label: " on a line that must begin with it.
double labelled(const std::string& line, const std::string& label) {
    EXPECT_EQ(line.rfind(label + ": ", 0), 0u) << "'" << line << "' lacks " << label;
    const std::vector<double> values = numbers_of(line.substr(std::min(line.size(), label.size() + 2)));
    EXPECT_EQ(values.size(), 1u) << line;
    EXPECT_TRUE(!values.empty() && std::isfinite(values[0])) << line;
    return values.empty() ? NAN : values[0];
}

struct Results {
    double ev_oop, ev_ip, mes_oop, mes_ip, exploitable;
};

// The labelled lines of a results report (a reply of calc_results, or the
// body of a progress report after its running time).
Results read_results(const std::vector<std::string>& lines, size_t first) {
    Results r{NAN, NAN, NAN, NAN, NAN};
    if (lines.size() < first + 6) {
        ADD_FAILURE() << "short results report";
        return r;
    }
    r.ev_oop = labelled(lines[first], "EV OOP");
    r.ev_ip = labelled(lines[first + 1], "EV IP");
    r.mes_oop = labelled(lines[first + 2], "OOP's MES");
    r.mes_ip = labelled(lines[first + 3], "IP's MES");
    r.exploitable = labelled(lines[first + 4], "Exploitable for");
    EXPECT_EQ(lines[first + 5], "END");
    return r;
}

// The program on the other end of two pipes. The solver thread's lines are
// taken out of the stream as they come and checked on the way; what is left
// is the reply of the command.
class Program {
public:
    explicit Program(const fs::path& errors) {
        int to_child[2], from_child[2];
        if (pipe2(to_child, O_CLOEXEC) != 0 || pipe2(from_child, O_CLOEXEC) != 0) throw std::runtime_error("pipe");
        posix_spawn_file_actions_t actions;
        posix_spawn_file_actions_init(&actions);
        posix_spawn_file_actions_adddup2(&actions, to_child[0], 0);
        posix_spawn_file_actions_adddup2(&actions, from_child[1], 1);
        posix_spawn_file_actions_addopen(&actions, 2, errors.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
        char* const argv[] = {const_cast<char*>(TAVREK_BINARY), nullptr};
        const int spawned = posix_spawn(&pid_, TAVREK_BINARY, &actions, nullptr, argv, environ);
        posix_spawn_file_actions_destroy(&actions);
        close(to_child[0]);
        close(from_child[1]);
        input_ = to_child[1];
        output_ = from_child[0];
        if (spawned != 0) throw std::runtime_error("spawn");
        for (int banner = 0; banner < 2; ++banner) next_line();
    }
    ~Program() {
        if (input_ >= 0) close(input_);
        close(output_);
        if (pid_ > 0 && waitpid(pid_, nullptr, WNOHANG) == 0) {
            kill(pid_, SIGKILL);
            waitpid(pid_, nullptr, 0);
        }
    }

    // Sends one command and returns its reply lines; `is_ready` after it
    // marks where the reply ends.
    std::vector<std::string> ask(const std::string& command) {
        send(command + "\nis_ready\n");
        std::vector<std::string> reply;
        for (;;) {
            std::optional<std::string> line = next_line();
            if (!line) {
                ADD_FAILURE() << "no complete reply to '" << command << "'";
                return reply;
            }
            if (*line == "is_ready ok!") return reply;
            if (!take_solver_line(*line)) reply.push_back(*line);
        }
    }

    // Ends the input and returns the exit status, or -1 when the program
    // does not end in time.
    int finish() {
        close(input_);
        input_ = -1;
        while (std::optional<std::string> line = next_line()) {
            if (!take_solver_line(*line)) ADD_FAILURE() << "output after the last command: " << *line;
        }
        int status = 0;
        const auto deadline = Clock::now() + reply_limit;
        while (waitpid(pid_, &status, WNOHANG) == 0) {
            if (Clock::now() > deadline) return -1;
            std::this_thread::sleep_for(std::chrono::milliseconds(10));
        }
        pid_ = 0;
        return status;
    }

    int runs_started = 0;
    int runs_stopped = 0;
    int progress_reports = 0;
    std::multiset<std::string> stop_reasons;
    // New stores may come between the two walks of a report.
    bool stores_replaced_in_run = false;

private:
    void send(const std::string& text) {
        ASSERT_EQ(write(input_, text.data(), text.size()), static_cast<ssize_t>(text.size())) << "program gone";
    }

    // A line of the solver thread: its start, its stop, or a whole progress
    // report, which the output lock keeps in one piece.
    bool take_solver_line(const std::string& line) {
        if (line == "SOLVER: started") {
            EXPECT_EQ(runs_started, runs_stopped) << "a second run started before the first one stopped";
            ++runs_started;
            stores_replaced_in_run = false;
            return true;
        }
        if (line.rfind("SOLVER: stopped (", 0) == 0) {
            ++runs_stopped;
            EXPECT_EQ(runs_started, runs_stopped) << "a run stopped that had not started";
            const std::string reason = line.substr(17, line.size() - 18);
            static const std::set<std::string> known = {"requested", "required accuracy reached",
                                                        "required number of steps done", "timeout reached"};
            EXPECT_TRUE(known.count(reason) && line.back() == ')') << line;
            stop_reasons.insert(reason);
            return true;
        }
        if (line != "SOLVER:") return false;
        EXPECT_GT(runs_started, runs_stopped) << "a progress report outside a run";
        std::vector<std::string> report;
        for (int i = 0; i < 7; ++i) {
            std::optional<std::string> next = next_line();
            if (!next) break;
            report.push_back(*next);
        }
        EXPECT_GE(report.empty() ? NAN : labelled(report[0], "running time"), 0.0);
        const Results r = read_results(report, 1);
        if (!stores_replaced_in_run) {
            // Both walks of a report see the strategy of one iteration.
            EXPECT_NEAR(r.ev_oop + r.ev_ip, 100.0, 0.01);
            EXPECT_GE(r.exploitable, -0.01);
        }
        ++progress_reports;
        return true;
    }

    std::optional<std::string> next_line() {
        const auto deadline = Clock::now() + reply_limit;
        for (;;) {
            const size_t end = buffer_.find('\n');
            if (end != std::string::npos) {
                std::string line = buffer_.substr(0, end);
                buffer_.erase(0, end + 1);
                return line;
            }
            const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(deadline - Clock::now());
            if (left.count() <= 0) return std::nullopt;
            pollfd ready{output_, POLLIN, 0};
            if (poll(&ready, 1, static_cast<int>(left.count())) <= 0) continue;
            char chunk[65536];
            const ssize_t got = read(output_, chunk, sizeof chunk);
            if (got <= 0) return std::nullopt;  // the program closed its output
            buffer_.append(chunk, static_cast<size_t>(got));
        }
    }

    pid_t pid_ = 0;
    int input_ = -1;
    int output_ = -1;
    std::string buffer_;
};

void expect_only(const std::vector<std::string>& reply, const std::string& line) {
    EXPECT_EQ(reply, std::vector<std::string>{line});
}

// Lines of 1326 probabilities closed by END: one per action for a strategy,
// where each hand's actions add up to 1, or to 0 for a hand not held.
void expect_strategy(const std::vector<std::string>& reply, size_t actions) {
    ASSERT_EQ(reply.size(), actions + 1);
    EXPECT_EQ(reply.back(), "END");
    std::vector<double> totals(hand_count, 0.0);
    for (size_t a = 0; a < actions; ++a) {
        const std::vector<double> values = numbers_of(reply[a]);
        ASSERT_EQ(values.size(), size_t(hand_count)) << reply[a].substr(0, 80);
        for (int h = 0; h < hand_count; ++h) {
            ASSERT_TRUE(values[h] >= 0.0 && values[h] <= 1.0 + 1e-6) << "hand " << h << ": " << values[h];
            totals[h] += values[h];
        }
    }
    for (int h = 0; h < hand_count; ++h)
        ASSERT_TRUE(totals[h] == 0.0 || std::abs(totals[h] - 1.0) < 1e-5) << "hand " << h << ": " << totals[h];
}

// A range: one line of 1326 weights, each within the starting weight of 1.
void expect_range(const std::vector<std::string>& reply) {
    ASSERT_EQ(reply.size(), 1u);
    const std::vector<double> values = numbers_of(reply[0]);
    ASSERT_EQ(values.size(), size_t(hand_count));
    for (int h = 0; h < hand_count; ++h)
        ASSERT_TRUE(values[h] >= 0.0 && values[h] <= 1.0 + 1e-6) << "hand " << h << ": " << values[h];
}

// calc_ev at the root: a value line and a weight line. A hand has both or
// neither (NaN outside the range), a positive weight, and a value that neither
// wins more than the pot and the largest bet (150) nor loses more than that bet.
void expect_root_values(const std::vector<std::string>& reply) {
    ASSERT_EQ(reply.size(), 3u);
    EXPECT_EQ(reply[2], "END");
    const std::vector<double> values = numbers_of(reply[0]), weights = numbers_of(reply[1]);
    ASSERT_EQ(values.size(), size_t(hand_count));
    ASSERT_EQ(weights.size(), size_t(hand_count));
    for (int h = 0; h < hand_count; ++h) {
        ASSERT_EQ(std::isnan(values[h]), std::isnan(weights[h])) << "hand " << h;
        if (std::isnan(values[h])) continue;
        ASSERT_GT(weights[h], 0.0) << "hand " << h;
        ASSERT_TRUE(values[h] >= -150.0 && values[h] <= 250.0) << "hand " << h << ": " << values[h];
    }
}

Results expect_results(const std::vector<std::string>& reply) {
    // The "#" lines after END are comments, dropped by default.
    EXPECT_EQ(reply.size(), 6u);
    return read_results(reply, 0);
}

TEST(PipeSoak, QueriesSettingsAndStopGoWhileSolving) {
    ASSERT_TRUE(fs::exists(spot_file)) << spot_file;
    signal(SIGPIPE, SIG_IGN);  // a program that died shows as a failed write
    const fs::path errors = fs::temp_directory_path() / ("tavrek_soak_" + std::to_string(getpid()) + ".err");
    {
        Program program(errors);
        std::vector<std::string> setup = program.ask("load_script " + spot_file.string());
        ASSERT_FALSE(setup.empty());
        EXPECT_EQ(setup.back(), "build_tree ok!");
        expect_only(program.ask("set_accuracy 0"), "set_accuracy ok!");

        const auto queries = [&] {
            expect_strategy(program.ask("show_strategy r:0"), 2);
            expect_strategy(program.ask("show_strategy r:0:b50:c:Ah"), 1);
            expect_range(program.ask("show_range OOP r:0:b50"));
            expect_range(program.ask("show_range IP r:0:b50:c:Ah"));
            expect_root_values(program.ask("calc_ev OOP r"));
            // Each player's value and best response come from one walk.
            const Results r = expect_results(program.ask("calc_results"));
            if (!program.stores_replaced_in_run) {
                EXPECT_GE(r.mes_oop, r.ev_oop - 0.01);
                EXPECT_GE(r.mes_ip, r.ev_ip - 0.01);
            }
        };
        bool accuracy_zero = true;
        for (int cycle = 0; cycle < 8; ++cycle) {
            // Unlimited runs, stopped by request; and runs that end on their
            // own while commands still come in.
            const bool unlimited = cycle % 4 != 3;
            expect_only(program.ask(unlimited ? "go" : "go 20 steps"), "go ok!");
            EXPECT_EQ(program.runs_started, program.runs_stopped + 1);
            if (unlimited && accuracy_zero)
                expect_only(program.ask("go"), "ERROR: go Can't do that when solver is running");
            queries();
            expect_only(program.ask(cycle % 2 ? "set_threads 1" : "set_threads 2"), "set_threads ok!");
            accuracy_zero = cycle % 2 == 0;
            expect_only(program.ask(accuracy_zero ? "set_accuracy 0" : "set_accuracy 0.001"), "set_accuracy ok!");
            if (cycle == 2 || cycle == 5) {
                // New stores at another level while the run goes on.
                program.stores_replaced_in_run = true;
                expect_only(program.ask(cycle == 2 ? "set_compression 1" : "set_compression 0"),
                            "set_compression ok!");
            }
            std::this_thread::sleep_for(std::chrono::milliseconds(50));
            queries();
            if (cycle == 6) {
                expect_only(program.ask("take_a_break 0"), "take_a_break ok!");
            } else {
                expect_only(program.ask("stop"), "stop ok!");
            }
            EXPECT_TRUE(program.ask("wait_for_solver").empty());
            // The thread prints its last line before a waiter is let go.
            EXPECT_EQ(program.runs_started, program.runs_stopped);
        }
        expect_only(program.ask("stop"), "stop ok!");  // with no run, changes nothing

        // Runs whose ends are certain: by steps, with a report at 25; by
        // accuracy at that first report.
        expect_only(program.ask("set_threads 2"), "set_threads ok!");
        expect_only(program.ask("go 30 steps"), "go ok!");
        EXPECT_TRUE(program.ask("wait_for_solver").empty());
        expect_only(program.ask("set_accuracy 1000"), "set_accuracy ok!");
        expect_only(program.ask("go"), "go ok!");
        EXPECT_TRUE(program.ask("wait_for_solver").empty());
        EXPECT_TRUE(program.ask("wait_for_solver").empty());  // no run: returns at once
        EXPECT_GE(program.stop_reasons.count("required number of steps done"), 1u);
        EXPECT_GE(program.stop_reasons.count("required accuracy reached"), 1u);
        EXPECT_GE(program.progress_reports, 2);

        // At rest the two walks see one strategy: the values share out the
        // pot, and each best response is worth at least the strategy.
        const Results r = expect_results(program.ask("calc_results"));
        EXPECT_NEAR(r.ev_oop + r.ev_ip, 100.0, 0.01);
        EXPECT_GE(r.mes_oop, r.ev_oop - 0.01);
        EXPECT_GE(r.mes_ip, r.ev_ip - 0.01);
        EXPECT_NEAR(r.exploitable, 0.5 * (r.mes_oop + r.mes_ip - r.ev_oop - r.ev_ip), 0.002);
        queries();

        // The input ends while a run goes on: the program ends at once, with
        // status 0, whatever the thread was doing.
        expect_only(program.ask("set_accuracy 0"), "set_accuracy ok!");
        expect_only(program.ask("go"), "go ok!");
        const int status = program.finish();
        ASSERT_NE(status, -1) << "the program did not end with its input";
        EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << "status " << status;
        EXPECT_EQ(program.runs_started, 11);
    }
    std::ifstream error_file(errors);
    const std::string error_text((std::istreambuf_iterator<char>(error_file)), std::istreambuf_iterator<char>());
    EXPECT_EQ(error_text, "");
    fs::remove(errors);
}

}  // namespace
