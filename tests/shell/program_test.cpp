// Drives the real program for what a transcript can't express: exit codes,
// input without a final newline or in pieces, files written by redirection.
#include <gtest/gtest.h>
#include <signal.h>
#include <spawn.h>

#include <filesystem>
#include <fstream>

#include "shell/process_watcher.h"
#include "shell/program_runs.h"

namespace fs = std::filesystem;

namespace {

class ProgramTest : public ProgramFolder {
protected:
    std::string read(const std::string& name) { return file_text(work / name); }
    void write(const std::string& name, const std::string& text) {
        std::ofstream(work / name, std::ios::binary) << text;
    }
};

TEST_F(ProgramTest, EndOfInputExitAndStartUpFailures) {
    Run result = run("", "is_ready\n\nis_ready");
    EXPECT_EQ(result.exit_code, 0);
    EXPECT_EQ(result.output, "is_ready ok!\n");  // the unterminated last line is dropped
    EXPECT_EQ(read("output.txt").rfind("Tavrek (Marlune) build 1044 (Dec 23 2019, 19:17:32) \n", 0), 0u);
    // A line that arrives in two writes is one command.
    result = run("", "", "{ printf 'echo spl'; sleep 0.3; printf 'it\\nis_r'; sleep 0.3; printf 'eady\\n'; }");
    EXPECT_EQ(result.output, "split\nis_ready ok!\n");

    write("script.txt", "echo from-script\n");
    result = run("-c \"echo lost\" -c \"exit\" script.txt", "echo from-input\n");
    EXPECT_EQ(result.exit_code, 0);
    EXPECT_EQ(result.output, "");  // exit ends at once, without flushing
    result = run("script.txt", "echo from-input\nexit\necho never\n");
    EXPECT_EQ(result.output, "from-script\nfrom-input\n");

    result = run("missing.txt", "is_ready\n");
    EXPECT_EQ(result.exit_code, 1);
    EXPECT_EQ(result.output, "ERROR: can't find file 'missing.txt'\n");
    fs::create_directories(work / "folder");
    EXPECT_EQ(run("folder", "").exit_code, 1);
    result = run("--port notanumber", "is_ready\n");
    EXPECT_EQ(result.exit_code, 1);
    EXPECT_EQ(result.output, "");
    EXPECT_NE(read("errors.txt").find("error: "), std::string::npos);
    EXPECT_EQ(run("--version", "").exit_code, 0);
}

TEST_F(ProgramTest, RedirectionWritesAndAppendsToFiles) {
    const Run result = run("",
                                  "stdoutredi out.txt\necho one\nstdoutback\necho console\n"
                                  "stdoutredi_append out.txt\necho two\nstdoutback\n"
                                  "stdoutredi fresh.txt\necho three\nstdoutredi no/such/folder/x.txt\nstdoutback\n");
    EXPECT_EQ(read("out.txt"), "stdoutredi ok!\none\nstdoutredi_append ok!\ntwo\n");
    EXPECT_EQ(read("fresh.txt"), "stdoutredi ok!\nthree\nERROR: stdoutredi can't open file\n");
    EXPECT_EQ(result.output, "stdoutback ok!\nconsole\nstdoutback ok!\nstdoutback ok!\n");
}

TEST_F(ProgramTest, LinesOverTheBoundAreRefusedAndSkippedToTheirNewline) {
    constexpr size_t bound = size_t(1) << 20;
    // A line of exactly the bound runs; a byte more is refused, from standard
    // input and from a script alike, and the next line runs as usual.
    const std::string longest = "echo " + std::string(bound - 5, 'x');
    write("long.txt", "echo before\n" + std::string(bound + 1, 'y') + "\necho after\n");
    const Run result =
        run("", longest + "\n" + longest + "z\nis_ready\nload_script long.txt\n" + std::string(3 * bound, 'w'));
    EXPECT_EQ(result.exit_code, 0);
    // Replies are cut at 64 KB; the unterminated last line is refused as soon
    // as it passes the bound.
    EXPECT_EQ(result.output, std::string(65535, 'x') +
                                 "\nERROR: line too long\nis_ready ok!\nbefore\nERROR: line too long\nafter\n"
                                 "ERROR: line too long\n");
}

TEST_F(ProgramTest, AClosedOutputLosesItsLinesButNotTheProcess) {
    // head takes one byte of the banner and closes the pipe, so every later
    // reply and progress line fails to be written; the solve goes on, and a
    // redirection gives the output a new home.
    const fs::path spot = fs::path(__FILE__).parent_path() / "fixtures" / "turn_spot.txt";
    const std::string command = "cd '" + work.string() + "' && { cat '" + spot.string() +
                                "'; echo 'set_threads 1'; echo 'go 30 seconds'; sleep 2; echo stop; "
                                "echo wait_for_solver; echo 'stdoutredi rescued.txt'; echo is_ready; } | "
                                "{ '" TAVREK_BINARY "'; echo $? > status.txt; } | head -c 1 > /dev/null";
    ASSERT_EQ(std::system(command.c_str()), 0);
    EXPECT_EQ(read("status.txt"), "0\n");
    EXPECT_EQ(read("rescued.txt"), "stdoutredi ok!\nis_ready ok!\n");
}

// Runs alone (see tests/CMakeLists.txt): while the banned process lives, every
// other instance of the program on this machine is barred too.
TEST_F(ProgramTest, DISABLED_ABannedProcessBarsEveryCommandEvenExit) {
    // A copy of sleep whose name begins with a banned name, reaped before the
    // test ends so that no trace of it stays in the process list.
    fs::copy_file("/bin/sleep", work / "PokerStarsHelper");
    const std::string helper = (work / "PokerStarsHelper").string();
    char* const helper_argv[] = {const_cast<char*>(helper.c_str()), const_cast<char*>("5"), nullptr};
    pid_t helper_pid = 0;
    ASSERT_EQ(posix_spawn(&helper_pid, helper.c_str(), nullptr, nullptr, helper_argv, environ), 0);
    // Input starts once the program has had time to see the process.
    const Run result = run("", "is_ready\nLABEL: x\nexit\necho still-barred\n", "{ sleep 0.7; cat input.txt; }");
    kill(helper_pid, SIGKILL);
    waitpid(helper_pid, nullptr, 0);
    EXPECT_EQ(result.exit_code, 0);
    std::string barred;
    for (int line = 0; line < 4; ++line) barred += "ERROR: banned process running: PokerStarsHelper\n";
    EXPECT_EQ(result.output, barred);
}

TEST_F(ProgramTest, WatcherMatchesNamePrefixesInAProcessList) {
    const fs::path proc = work / "proc";
    auto add_process = [&](const std::string& pid, const std::string& comm) {
        fs::create_directories(proc / pid);
        std::ofstream(proc / pid / "comm") << comm << "\n";
    };
    add_process("1", "init");
    add_process("22", "pokerstars");  // the match regards case
    add_process("self", "PokerStars");  // not a process number
    EXPECT_FALSE(scan_for_banned_process(proc.string()));
    EXPECT_EQ(banned_process_name(), "");
    add_process("333", "PokerStarsUpdat");
    EXPECT_TRUE(scan_for_banned_process(proc.string()));
    EXPECT_EQ(banned_process_name(), "PokerStarsUpdat");
    fs::remove_all(proc / "333");
    add_process("4444", "FullTiltPoker");
    EXPECT_TRUE(scan_for_banned_process(proc.string()));
    EXPECT_EQ(banned_process_name(), "FullTiltPoker");
    EXPECT_FALSE(scan_for_banned_process((work / "nothing").string()));
}

}  // namespace
