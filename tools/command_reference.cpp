// Writes the commands reference, docs/commands.md: a summary made from the
// command table's rows, then each command's details from
// docs/command_details.md.
//
//   command_reference                  prints the reference
//   command_reference --check FILE     fails when FILE differs from it, or when
//                                      the details and the table disagree
//   command_reference --examples DIR   writes the details' examples as
//                                      transcripts, one per command, into DIR
//   --details FILE (first) reads another details file
//
// Tests run the check and the examples on every build, so neither the summary
// nor the details can drift from the program.
#include <fstream>
#include <iostream>
#include <sstream>
#include <string>
#include <vector>

#include "command_details.h"
#include "shell/commands.h"

namespace {

// Text for a table cell: a bar would end the cell.
std::string cell(const std::string& text) {
    std::string out;
    for (const char c : text) {
        if (c == '|') out += '\\';
        out += c;
    }
    return out;
}

std::string code(const std::string& text) {
    if (text.empty()) return "";
    std::string out = "`";
    out += cell(text);
    out += '`';
    return out;
}

std::string tokens_text(int count) { return count < 0 ? "any" : std::to_string(count); }

std::string tree_text(CommandChecks checks) {
    if (checks & needs_tree) return "yes";
    if (checks & tree_for_path) return "with a path";
    return "";
}

std::string reference(const CommandDetails& details) {
    std::ostringstream out;
    out << "# Commands\n\n"
           "Every command of the protocol, in the order the interpreter searches them. This file is\n"
           "made by `build/tools/command_reference > docs/commands.md` from the command table\n"
           "(`src/shell/command_table.cpp`) and from the details of each command written in\n"
           "`docs/command_details.md`; a test fails when they differ, and another runs every example\n"
           "below against the program.\n\n"
           "- Tokens: the exact count of a line, the command word included; \"any\" when the command\n"
           "  checks its own.\n"
           "- Tree: refused with \"missing/incorrect tree\" while no tree is built (\"with a path\": only\n"
           "  when the line names a node path).\n"
           "- Solving: refused with \"Can't do that when solver is running\" during a run.\n"
           "- A `<player>` is `OOP` or `hero`, `IP` or `villain`; any other word is the argument error.\n"
           "- Refusals come in that order: token count, player word, tree, running solver.\n"
           "- An alias is another name of a command; `help` leaves it out.\n"
           "- \"ERROR: <command> incorrect or missing argument\" is the argument error; \"Invalid value\"\n"
           "  answers a number that is not one. Each command's section below says when it gives them,\n"
           "  and what else it can refuse with; its examples are exchanges with the program, word for\n"
           "  word (a line of 1326 values is cut short here).\n\n"
           "| Command | Arguments | Tokens | Tree | Solving | Alias of | What it does |\n"
           "|---|---|---|---|---|---|---|\n";
    for (const CommandEntry& entry : command_table()) {
        const CommandEntry& command = command_of(entry);
        out << "| [`" << entry.name << "`](#" << entry.name << ") | " << code(command.synopsis) << " | "
            << tokens_text(command.arg_count) << " | " << tree_text(command.checks) << " | "
            << ((command.checks & not_while_solving) ? "refused" : "") << " | "
            << (entry.alias_of ? code(entry.alias_of) : "") << " | " << cell(command.help) << " |\n";
    }
    out << render_command_details(details, command_table());
    return out.str();
}

std::string read_file(const std::string& path, bool& ok) {
    std::ifstream file(path, std::ios::binary);
    std::ostringstream text;
    text << file.rdbuf();
    ok = static_cast<bool>(file);
    return text.str();
}

int usage() {
    std::cerr << "usage: command_reference [--details FILE] [--check FILE | --examples DIR]\n";
    return 2;
}

}  // namespace

int main(int argc, char** argv) {
    std::vector<std::string> args(argv + 1, argv + argc);
    std::string details_path = COMMAND_DETAILS;
    if (args.size() >= 2 && args[0] == "--details") {
        details_path = args[1];
        args.erase(args.begin(), args.begin() + 2);
    }
    bool ok = false;
    const std::string details_text = read_file(details_path, ok);
    if (!ok) {
        std::cerr << "can't read " << details_path << "\n";
        return 1;
    }
    const CommandDetails details = parse_command_details(details_text);
    if (args.empty()) {
        std::cout << reference(details);
        return 0;
    }
    if (args.size() != 2) return usage();
    if (args[0] == "--examples") {
        write_command_examples(details, args[1]);
        return 0;
    }
    if (args[0] != "--check") return usage();
    const std::vector<std::string> problems = check_command_details(details, command_table());
    for (const std::string& problem : problems) std::cerr << problem << "\n";
    const std::string written = read_file(args[1], ok);
    if (!ok || written != reference(details)) {
        std::cerr << args[1] << " differs from the command table and the details: run "
                  << "build/tools/command_reference > docs/commands.md\n";
        return 1;
    }
    return problems.empty() ? 0 : 1;
}
