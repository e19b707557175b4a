// The details of the commands reference: what the check refuses, how the
// reference shows a section, and the transcripts its examples become.
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

std::string joined(const std::vector<std::string>& problems) {
    std::string text;
    for (const std::string& problem : problems) text += problem + "\n";
    return text;
}

std::string read(const fs::path& path) {
    std::ifstream file(path, std::ios::binary);
    std::stringstream text;
    text << file.rdbuf();
    return text.str();
}

TEST(CommandDetails, TheCheckNamesEverySectionThatDisagreesWithTheTable) {
    EXPECT_EQ(joined(check_command_details(parse_command_details(section("go") + section("echo")), table)), "");

    const std::string missing = joined(check_command_details(parse_command_details(section("go")), table));
    EXPECT_NE(missing.find("no section for the command `echo`"), std::string::npos) << missing;

    const std::string extra = section("go") + section("echo") + section("lock_node") + section("ai6_go");
    const std::string wrong = joined(check_command_details(parse_command_details(extra), table));
    EXPECT_NE(wrong.find("`lock_node` names no command"), std::string::npos) << wrong;
    EXPECT_NE(wrong.find("`ai6_go` is another name of `go`"), std::string::npos) << wrong;
    EXPECT_NE(wrong.find("command_details.md:27:"), std::string::npos) << wrong;  // lock_node's heading

    const std::string twice = joined(check_command_details(parse_command_details(extra + section("go")), table));
    EXPECT_NE(twice.find("a second section for `go`"), std::string::npos) << twice;
}

TEST(CommandDetails, EverySectionExplainsItsArgumentsReplyAndErrorsAndShowsAnExample) {
    const std::string bare = "## go\n\nArguments: none.\n\nReply: go ok!\n\n" + section("echo");
    const std::string problems = joined(check_command_details(parse_command_details(bare), table));
    EXPECT_NE(problems.find("`go` has no example block"), std::string::npos) << problems;
    EXPECT_NE(problems.find("`go` has no \"Errors:\" paragraph"), std::string::npos) << problems;
    EXPECT_EQ(problems.find("`echo`"), std::string::npos) << problems;

    const std::string odd = section("go", "Set-up: river\n\n```file ../escape.txt\nx\n```\n\n") + section("echo") +
                            "## set-up lone\n\n```example\n> echo unclosed\n";
    const std::string more = joined(check_command_details(parse_command_details(odd), table));
    EXPECT_NE(more.find("no set-up named `river`"), std::string::npos) << more;
    EXPECT_NE(more.find("`../escape.txt` must lie under fixtures/"), std::string::npos) << more;
    EXPECT_NE(more.find("a block is never closed"), std::string::npos) << more;
}

TEST(CommandDetails, TheReferenceFollowsTheTableAndPointsAliasesToTheirCommand) {
    const std::string long_line = "> echo " + std::string(60, 'x') + [] {
        std::string numbers;
        for (int i = 0; i < 1326; ++i) numbers += " 0.5";
        return numbers;
    }();
    const std::string text = section("echo", "```example\n@tolerance 0.1\n" + long_line + "\n```\n\n") +
                             section("go", "Set-up: river\n\n```file fixtures/spot.txt\nis_ready\n```\n\n") +
                             "## set-up river\n\nA spot.\n\n```example\n> go\n```\n";
    const std::string reference = render_command_details(parse_command_details(text), table);
    const size_t go = reference.find("## `go`"), alias = reference.find("## `ai6_go`");
    const size_t echo = reference.find("## `echo`"), setup = reference.find("## Set-up river");
    ASSERT_NE(go, std::string::npos);
    EXPECT_TRUE(go < alias && alias < echo && echo < setup) << reference;
    EXPECT_NE(reference.find("Another name of [`go`](#go)."), std::string::npos) << reference;
    const std::string usage = "`go [<limit> steps]`: start the solver. Needs a built tree. Refused while the solver runs.";
    EXPECT_NE(reference.find(usage), std::string::npos) << reference;
    EXPECT_NE(reference.find("**Set-up:** [river](#set-up-river) runs before the example."), std::string::npos);
    EXPECT_NE(reference.find("File `fixtures/spot.txt`:\n\n```\nis_ready\n```"), std::string::npos) << reference;
    EXPECT_NE(reference.find("(1326 numbers in all)"), std::string::npos) << reference;
    EXPECT_EQ(reference.find("@tolerance"), std::string::npos) << reference;
    EXPECT_EQ(reference.find(std::string(60, 'x')), std::string::npos) << "a line of 1326 values stays whole";
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
