// Writes the commands reference, docs/commands.md, from the command table.
//
//   command_reference              prints the reference
//   command_reference --check FILE fails when FILE differs from it
//
// Everything it says comes from the table's rows, so the reference cannot
// drift from the program: a test runs the check on every build.
#include <fstream>
#include <iostream>
#include <sstream>
#include <string>

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

std::string reference() {
    std::ostringstream out;
    out << "# Commands\n\n"
           "Every command of the protocol, in the order the interpreter searches them. This file is\n"
           "made from the command table (`src/shell/command_table.cpp`) by\n"
           "`build/tools/command_reference > docs/commands.md`; a test fails when the two differ.\n\n"
           "- Tokens: the exact count of a line, the command word included; \"any\" when the command\n"
           "  checks its own.\n"
           "- Tree: refused with \"missing/incorrect tree\" while no tree is built (\"with a path\": only\n"
           "  when the line names a node path).\n"
           "- Solving: refused with \"Can't do that when solver is running\" during a run.\n"
           "- A `<player>` is `OOP` or `hero`, `IP` or `villain`; any other word is the argument error.\n"
           "- Refusals come in that order: token count, player word, tree, running solver.\n"
           "- An alias is another name of a command; `help` leaves it out.\n\n"
           "| Command | Arguments | Tokens | Tree | Solving | Alias of | What it does |\n"
           "|---|---|---|---|---|---|---|\n";
    for (const CommandEntry& entry : command_table()) {
        const CommandEntry& command = command_of(entry);
        out << "| `" << entry.name << "` | " << code(command.synopsis) << " | " << tokens_text(command.arg_count)
            << " | " << tree_text(command.checks) << " | "
            << ((command.checks & not_while_solving) ? "refused" : "") << " | "
            << (entry.alias_of ? code(entry.alias_of) : "") << " | " << cell(command.help) << " |\n";
    }
    return out.str();
}

}  // namespace

int main(int argc, char** argv) {
    const std::string text = reference();
    if (argc == 1) {
        std::cout << text;
        return 0;
    }
    if (argc != 3 || std::string(argv[1]) != "--check") {
        std::cerr << "usage: command_reference [--check FILE]\n";
        return 2;
    }
    std::ifstream file(argv[2], std::ios::binary);
    std::ostringstream written;
    written << file.rdbuf();
    if (!file || written.str() != text) {
        std::cerr << argv[2] << " differs from the command table: run build/tools/command_reference > "
                  << "docs/commands.md\n";
        return 1;
    }
    return 0;
}
