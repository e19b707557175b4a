#include <cstdio>
#include <cstdlib>
#include <stdexcept>

#include "shell/commands.h"
#include "shell/process_watcher.h"
#include "shell/protocol/game_setup.h"
#include "shell/protocol/settings.h"
#include "shell/protocol/tokens.h"
#include "solver/solver_driver.h"
#include "tree/engine.h"

namespace {

void echo_line(const Tokens& tokens) {
    std::lock_guard lock(output_mutex);
    if (color_text) fputs("\x1b[32m", stdout);
    fputs(join_tokens(tokens, 0, tokens.size()).c_str(), stdout);
    if (color_text) fputs("\x1b[0m", stdout);
    fputc('\n', stdout);
}

bool tree_built() { return tree_ready && engine; }

// The checks a row asks for, in the order clients see their refusals: the
// token count, the player word, the running solver, the argument, the tree.
void check_line(const CommandEntry& command, const Tokens& tokens) {
    if (command.arg_count > 0 && static_cast<size_t>(command.arg_count) != tokens.size()) throw_argument_error();
    current_command = tokens[0];
    if ((command.checks & player_word) && (tokens.size() < 2 || !player_from_name(tokens[1])))
        throw_argument_error();
    if ((command.checks & not_while_solving) && solver_running())
        throw_command_error("Can't do that when solver is running");
    if ((command.checks & needs_argument) && tokens.size() < 2) throw_argument_error();
    const bool tree_needed = (command.checks & needs_tree) || ((command.checks & tree_for_path) && tokens.size() > 2);
    if (tree_needed && !tree_built()) throw_command_error("missing/incorrect tree");
}

void dispatch(const Tokens& tokens) {
    const CommandEntry* entry = find_command(tokens[0]);
    if (!entry) {
        reply("ERROR: Command %s not recognized\n", tokens[0].c_str());
        return;
    }
    command_word = tokens[0];
    const CommandEntry& command = command_of(*entry);
    check_line(command, tokens);
    command.handler(tokens);
}

}  // namespace

void execute_tokens(const Tokens& tokens) {
    // A line of blanks or empty quotes is an empty line.
    if (tokens.empty()) return;
    if (banned_process_found) {
        reply("ERROR: banned process running: %s\n", banned_process_name().c_str());
        return;
    }
    if (echo_commands) echo_line(tokens);
    if (tokens.size() >= 2 && tokens[0] == "LABEL:") {
        if (tokens[1] == skip_label) skip_label.clear();
        return;
    }
    if (!skip_label.empty()) return;
    if (tokens[0][0] == '#') return;
    if (tokens[0] == "exit") {
        stop_process_watcher();
        fflush(stdout);
        std::_Exit(0);
    }
    try {
        dispatch(tokens);
    } catch (const std::invalid_argument&) {
        reply("Invalid value\n");
    } catch (const std::out_of_range&) {
        reply("Invalid value\n");
    } catch (const std::runtime_error& error) {
        reply_text(error.what());
    }
}

void run_line(const std::string& line) {
    execute_tokens(tokenise_line(line));
    flush_replies();
    fflush(stdout);
}
