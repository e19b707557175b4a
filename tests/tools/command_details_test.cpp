// The details of the commands reference: what the check refuses, and the
// transcripts its examples become. How the reference shows the details is
// pinned by the commands_reference test, which compares docs/commands.md.
#include "command_details.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <sstream>

#include <unistd.h>

namespace fs = std::filesystem;

namespace {

void no_op(const Tokens&) {}

const CommandEntry table[] = {
    {"go", no_op, -1, needs_tree | not_while_solving, "[<limit> steps]", "start the solver"},
    {"ai6_go", nullptr, 0, no_checks, nullptr, nullptr, "go"},
    {"echo", no_op, -1, no_checks, "<text>", "print a text"},
};

std::string section(const std::string& name, const std::string& extra = "") {
    return "## " + name + "\n\nArguments: some.\n\nReply: one.\n\n" + extra +
           "```example\n> " + name + "\n" + name + " ok!\n```\n\nErrors: none.\n\n";
}

std::string read(const fs::path& path) {
    std::ifstream file(path, std::ios::binary);
    std::stringstream text;
    text << file.rdbuf();
    return text.str();
}

TEST(CommandDetails, TheCheckNamesEverySectionThatDisagreesWithTheTableOrLacksAPart) {
    const std::string both = section("go") + section("echo");
    const struct {
        std::string text;
        std::vector<std::string> problems;
    } cases[] = {
        {both, {}},
        {section("go"), {"no section for the command `echo`"}},
        {both + section("lock_node") + section("ai6_go"),
         {"md:27: the section `lock_node` names no command", "`ai6_go` is another name of `go`"}},
        {both + section("go"), {"a second section for `go`"}},
        {"## go\n\nArguments: none.\n\nReply: go ok!\n\n" + section("echo"),
         {"`go` has no example block", "`go` has no \"Errors:\" paragraph"}},
        {section("go", "Set-up: river\n\n```file ../escape.txt\nx\n```\n\n") + section("echo") +
             "## set-up lone\n\n```example\n> echo unclosed\n",
         {"no set-up named `river`", "`../escape.txt` must lie under fixtures/", "a block is never closed"}},
    };
    for (const auto& c : cases) {
        const std::vector<std::string> found = check_command_details(parse_command_details(c.text), table);
        std::string all;
        for (const std::string& problem : found) all += problem + "\n";
        SCOPED_TRACE(all);
        EXPECT_EQ(found.size(), c.problems.size());
        for (const std::string& problem : c.problems) EXPECT_NE(all.find(problem), std::string::npos) << problem;
    }
}

TEST(CommandDetails, ExamplesBecomeTranscriptsThatRunTheirSetUpsFirst) {
    const std::string text = section("go", "Set-up: solved\n\n```file fixtures/spot.txt\nis_ready\n```\n\n") +
                             section("echo") + "## set-up river\n\n```example\n> build_tree\nbuild_tree ok!\n```\n\n" +
                             "## set-up solved\n\nSet-up: river\n\n```example\n> go 5 steps\n```\n";
    const fs::path folder = fs::temp_directory_path() / ("command_examples_" + std::to_string(getpid()));
    fs::create_directories(folder / "stale.transcript");
    write_command_examples(parse_command_details(text), folder.string());
    EXPECT_EQ(read(folder / "go.transcript"), "> build_tree\nbuild_tree ok!\n> go 5 steps\n> go\ngo ok!\n");
    EXPECT_EQ(read(folder / "echo.transcript"), "> echo\necho ok!\n");
    EXPECT_EQ(read(folder / "fixtures/spot.txt"), "is_ready\n");
    EXPECT_FALSE(fs::exists(folder / "stale.transcript"));
    EXPECT_FALSE(fs::exists(folder / "river.transcript"));
    fs::remove_all(folder);
}

}  // namespace
