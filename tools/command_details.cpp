#include "command_details.h"

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <map>
#include <set>
#include <sstream>

namespace fs = std::filesystem;

namespace {

constexpr const char* setup_prefix = "set-up ";
constexpr const char* setup_line = "Set-up: ";
constexpr const char* fence = "```";
// The paragraphs every command's section has, besides its example.
constexpr const char* required_labels[] = {"Arguments:", "Reply:", "Errors:"};
constexpr const char* bold_labels[] = {"Arguments:", "Reply:", "Example:", "Examples:", "Errors:"};

bool starts_with(const std::string& text, const std::string& prefix) { return text.rfind(prefix, 0) == 0; }

std::string trim(const std::string& text) {
    const size_t first = text.find_first_not_of(' ');
    if (first == std::string::npos) return "";
    return text.substr(first, text.find_last_not_of(' ') - first + 1);
}

std::vector<std::string> split_lines(const std::string& text) {
    std::vector<std::string> lines;
    std::istringstream in(text);
    std::string line;
    while (std::getline(in, line)) {
        if (!line.empty() && line.back() == '\r') line.pop_back();
        lines.push_back(line);
    }
    return lines;
}

// "Set-up: river, flop." gives river and flop.
std::vector<std::string> setup_names(const std::string& line) {
    std::vector<std::string> names;
    std::string rest = line.substr(std::string(setup_line).size());
    if (!rest.empty() && rest.back() == '.') rest.pop_back();
    std::istringstream in(rest);
    std::string name;
    while (std::getline(in, name, ',')) {
        name = trim(name);
        if (!name.empty()) names.push_back(name);
    }
    return names;
}

enum class Fence { none, example, file, other };

Fence fence_kind(const std::string& info) {
    if (info == "example") return Fence::example;
    if (starts_with(info, "file ")) return Fence::file;
    return Fence::other;
}

std::string where(const DetailsSection& section) {
    return "command_details.md:" + std::to_string(section.line) + ": ";
}

const CommandEntry* find_entry(std::span<const CommandEntry> table, const std::string& name) {
    for (const CommandEntry& entry : table)
        if (name == entry.name) return &entry;
    return nullptr;
}

bool is_number(const std::string& token) {
    if (token == "nan" || token == "-nan") return true;
    char* end = nullptr;
    std::strtod(token.c_str(), &end);
    return end != token.c_str() && *end == '\0';
}

// Lines of 1326 values stay whole in the details, where they are checked, and
// are cut in the reference, where a person reads them.
std::string shortened(const std::string& line) {
    constexpr size_t longest = 120, kept = 60;
    if (line.size() <= longest) return line;
    std::istringstream in(line);
    std::string token, head;
    int numbers = 0, words = 0;
    while (in >> token) {
        ++words;
        if (is_number(token)) ++numbers;
        if (head.size() + token.size() < kept) head += (head.empty() ? "" : " ") + token;
    }
    return head + " … (" + std::to_string(numbers ? numbers : words) + (numbers ? " numbers" : " words") + " in all)";
}

// "Reply: ..." and "Example (of what):" begin with their label in bold.
std::string bolded(const std::string& line) {
    for (const char* label : bold_labels)
        if (starts_with(line, label)) return "**" + std::string(label) + "**" + line.substr(std::string(label).size());
    for (const std::string& word : {std::string("Example"), std::string("Examples")})
        if (starts_with(line, word + " (") || starts_with(line, word + ","))
            return "**" + word + "**" + line.substr(word.size());
    return line;
}

std::string setup_anchor(const std::string& name) { return "#set-up-" + name; }

// The lines of a section's body as the reference shows them.
void render_body(const DetailsSection& section, std::ostringstream& out) {
    size_t first = 0, last = section.body.size();
    while (first < last && trim(section.body[first]).empty()) ++first;
    while (last > first && trim(section.body[last - 1]).empty()) --last;
    Fence open = Fence::none;
    for (size_t i = first; i < last; ++i) {
        const std::string& line = section.body[i];
        if (open == Fence::none) {
            if (starts_with(line, fence)) {
                const std::string info = trim(line.substr(3));
                open = fence_kind(info);
                if (open == Fence::file) out << "File `" << trim(info.substr(5)) << "`:\n\n";
                out << (open == Fence::other ? line : std::string(fence)) << '\n';
            } else if (starts_with(line, setup_line)) {
                out << "**Set-up:** ";
                const std::vector<std::string> names = setup_names(line);
                for (size_t n = 0; n < names.size(); ++n)
                    out << (n ? ", " : "") << '[' << names[n] << "](" << setup_anchor(names[n]) << ')';
                out << (names.size() > 1 ? " run" : " runs") << " before the example.\n";
            } else {
                out << bolded(line) << '\n';
            }
        } else if (starts_with(line, fence)) {
            open = Fence::none;
            out << fence << '\n';
        } else if (open == Fence::other || !starts_with(line, "@")) {
            out << (open == Fence::other ? line : shortened(line)) << '\n';
        }
    }
}

std::string checks_text(CommandChecks checks) {
    std::string text;
    if (checks & needs_tree) text += " Needs a built tree.";
    if (checks & tree_for_path) text += " Needs a built tree when a path is given.";
    if (checks & not_while_solving) text += " Refused while the solver runs.";
    return text;
}

}  // namespace

CommandDetails parse_command_details(const std::string& text) {
    CommandDetails details;
    const std::vector<std::string> lines = split_lines(text);
    DetailsSection* section = nullptr;
    Fence open = Fence::none;
    int open_line = 0;
    for (size_t i = 0; i < lines.size(); ++i) {
        const std::string& line = lines[i];
        const int number = static_cast<int>(i) + 1;
        if (open == Fence::none && starts_with(line, "## ")) {
            details.sections.emplace_back();
            section = &details.sections.back();
            section->name = trim(line.substr(3));
            section->line = number;
            if (starts_with(section->name, setup_prefix)) {
                section->is_setup = true;
                section->name = trim(section->name.substr(std::string(setup_prefix).size()));
            }
            continue;
        }
        if (!section) continue;
        section->body.push_back(line);
        if (open != Fence::none) {
            if (starts_with(line, fence)) {
                open = Fence::none;
            } else if (open == Fence::example) {
                section->examples.back().lines.push_back(line);
            } else if (open == Fence::file) {
                section->files.back().lines.push_back(line);
            }
            continue;
        }
        if (starts_with(line, fence)) {
            const std::string info = trim(line.substr(3));
            open = fence_kind(info);
            open_line = number;
            if (open == Fence::example) section->examples.emplace_back();
            if (open == Fence::file) section->files.push_back({trim(info.substr(5)), {}});
        } else if (starts_with(line, setup_line)) {
            for (const std::string& name : setup_names(line)) section->setups.push_back(name);
        }
    }
    if (open != Fence::none)
        details.problems.push_back("command_details.md:" + std::to_string(open_line) + ": a block is never closed");
    return details;
}

std::vector<std::string> check_command_details(const CommandDetails& details,
                                               std::span<const CommandEntry> table) {
    std::vector<std::string> problems = details.problems;
    std::map<std::string, const DetailsSection*> commands, setups;
    std::set<std::string> files;
    for (const DetailsSection& section : details.sections) {
        auto& seen = section.is_setup ? setups : commands;
        if (!seen.emplace(section.name, &section).second)
            problems.push_back(where(section) + "a second section for `" + section.name + "`");
        for (const DetailsFile& file : section.files) {
            if (!starts_with(file.path, "fixtures/") || file.path.find("..") != std::string::npos)
                problems.push_back(where(section) + "the file `" + file.path + "` must lie under fixtures/");
            if (!files.insert(file.path).second)
                problems.push_back(where(section) + "a second file `" + file.path + "`");
        }
    }
    for (const auto& [name, section] : commands) {
        const CommandEntry* entry = find_entry(table, name);
        if (!entry) {
            problems.push_back(where(*section) + "the section `" + name + "` names no command of the table");
            continue;
        }
        if (entry->alias_of) {
            problems.push_back(where(*section) + "`" + name + "` is another name of `" + entry->alias_of +
                               "`: the reference points it there, so it has no section");
            continue;
        }
        if (section->examples.empty()) problems.push_back(where(*section) + "`" + name + "` has no example block");
        for (const char* label : required_labels) {
            bool found = false;
            for (const std::string& line : section->body) found = found || starts_with(line, label);
            if (!found) problems.push_back(where(*section) + "`" + name + "` has no \"" + label + "\" paragraph");
        }
    }
    for (const DetailsSection& section : details.sections)
        for (const std::string& setup : section.setups)
            if (!setups.count(setup)) problems.push_back(where(section) + "no set-up named `" + setup + "`");
    for (const CommandEntry& entry : table)
        if (!entry.alias_of && !commands.count(entry.name))
            problems.push_back(std::string("command_details.md: no section for the command `") + entry.name + "`");
    return problems;
}

std::string render_command_details(const CommandDetails& details, std::span<const CommandEntry> table) {
    std::ostringstream out;
    for (const CommandEntry& entry : table) {
        out << "\n## `" << entry.name << "`\n\n";
        if (entry.alias_of) {
            out << "Another name of [`" << entry.alias_of << "`](#" << entry.alias_of << ").\n";
            continue;
        }
        std::string usage = entry.name;
        if (entry.synopsis && *entry.synopsis) usage += std::string(" ") + entry.synopsis;
        out << '`' << usage << "`: " << entry.help << '.' << checks_text(entry.checks) << "\n\n";
        for (const DetailsSection& section : details.sections)
            if (!section.is_setup && section.name == entry.name) {
                render_body(section, out);
                break;
            }
    }
    bool first = true;
    for (const DetailsSection& section : details.sections) {
        if (!section.is_setup) continue;
        if (first) out << "\n# Set-ups of the examples\n";
        first = false;
        out << "\n## Set-up " << section.name << "\n\n";
        render_body(section, out);
    }
    return out.str();
}

namespace {

// A section's lines after those of its set-ups, which may have set-ups of
// their own; a circle of set-ups ends at a depth no real chain reaches.
void write_lines(const DetailsSection& section, const std::map<std::string, const DetailsSection*>& setups,
                 int depth, std::ostream& out) {
    if (depth > 8) return;
    for (const std::string& name : section.setups) {
        const auto setup = setups.find(name);
        if (setup != setups.end()) write_lines(*setup->second, setups, depth + 1, out);
    }
    for (const DetailsBlock& block : section.examples)
        for (const std::string& line : block.lines) out << line << '\n';
}

}  // namespace

void write_command_examples(const CommandDetails& details, const std::string& folder) {
    fs::remove_all(folder);
    fs::create_directories(folder);
    std::map<std::string, const DetailsSection*> setups;
    for (const DetailsSection& section : details.sections)
        if (section.is_setup) setups[section.name] = &section;
    for (const DetailsSection& section : details.sections) {
        for (const DetailsFile& file : section.files) {
            const fs::path path = fs::path(folder) / file.path;
            fs::create_directories(path.parent_path());
            std::ofstream out(path, std::ios::binary);
            for (const std::string& line : file.lines) out << line << '\n';
        }
        if (section.is_setup) continue;
        std::ofstream out(fs::path(folder) / (section.name + ".transcript"), std::ios::binary);
        write_lines(section, setups, 0, out);
    }
}
