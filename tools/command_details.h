// The hand-written half of the commands reference: docs/command_details.md.
//
// The file is a list of "## <name>" sections. A command's section explains its
// arguments, its reply and its errors, and shows at least one example: a
// fenced block marked "example" in the form of a protocol transcript ("> "
// and a command, then its exact reply; "@tolerance" as in the transcripts).
// "## set-up <name>" sections hold lines that a command's examples can start
// from ("Set-up: <name>" in its section). A block marked "file <path>" is a
// file that the examples find in their working folder. Text above the first
// section is for editors and stays out of the reference.
#pragma once

#include <span>
#include <string>
#include <vector>

#include "shell/commands.h"

struct DetailsBlock {
    std::vector<std::string> lines;
};

struct DetailsFile {
    std::string path;  // relative to the folder the examples run in
    std::vector<std::string> lines;
};

struct DetailsSection {
    std::string name;  // the command, or the set-up's name
    bool is_setup = false;
    int line = 0;  // of the heading, for messages
    std::vector<std::string> body;  // the text under the heading, as written
    std::vector<std::string> setups;
    std::vector<DetailsBlock> examples;
    std::vector<DetailsFile> files;
};

struct CommandDetails {
    std::vector<DetailsSection> sections;
    // Mistakes of the file itself: unclosed blocks, bad "Set-up:" lines.
    std::vector<std::string> problems;
};

CommandDetails parse_command_details(const std::string& text);

// Every way the details and the table disagree, one message each, naming
// the command: a command without a section, a section of no command or of
// an alias, a section without an example or without its Arguments, Reply or
// Errors paragraph, an unknown set-up, a file outside fixtures/.
std::vector<std::string> check_command_details(const CommandDetails& details,
                                               std::span<const CommandEntry> table);

// The reference's part after the summary table: a section per row of the
// table in its order (an alias points to its command), then the set-ups.
std::string render_command_details(const CommandDetails& details, std::span<const CommandEntry> table);

// One transcript per command section, its set-ups' lines first, and the
// files of every section under `folder`.
void write_command_examples(const CommandDetails& details, const std::string& folder);
