// The command table and the interpreter that runs one line of it.
//
// A row says all that is common to a command: its token count, what must hold
// before its handler runs, its arguments and what it does. The interpreter
// makes the checks; handlers start where the checks end.
#pragma once

#include <span>
#include <string>
#include <string_view>

#include "shell/protocol/reply.h"

using CommandHandler = void (*)(const Tokens& tokens);

// What the interpreter makes sure of before it calls a handler, after the
// token count: the player word, the running solver, the argument, the tree.
// A solver runs only on a built tree, so the solver and the tree checks can
// never both refuse a line.
using CommandChecks = unsigned;
constexpr CommandChecks no_checks = 0;
// Token 1 names a player ("OOP", "hero", "IP", "villain"); a missing or
// other word is the argument error.
constexpr CommandChecks player_word = 1;
// Refused with "missing/incorrect tree" while no tree is built.
constexpr CommandChecks needs_tree = 2;
// The same, but only when the line names a node path after the player.
constexpr CommandChecks tree_for_path = 4;
// Refused with "Can't do that when solver is running" while a run goes on:
// the command would change or drop the tree the solver walks.
constexpr CommandChecks not_while_solving = 8;
// A word after the command word must be there, for a command whose token
// count is its own to check: its absence is the argument error, which comes
// before the tree.
constexpr CommandChecks needs_argument = 16;

struct CommandEntry {
    const char* name;
    CommandHandler handler;
    int arg_count;  // exact token count, command word included; -1: the handler checks
    CommandChecks checks;
    const char* synopsis;  // the arguments, e.g. "<player> <path>"
    const char* help;      // what the command does, in one line
    // Set on another name of a command: the row of that command holds the
    // rest, and `help` leaves this name out.
    const char* alias_of = nullptr;
};

// The whole table, in the order it is searched.
std::span<const CommandEntry> command_table();

// The row of a name, or null; aliases are not followed.
const CommandEntry* find_command(std::string_view name);
// The row that holds a command's handler and checks: its own, or for an
// alias the row it names.
const CommandEntry& command_of(const CommandEntry& entry);

// Runs one tokenised line: gate, echo, labels, skipping, comments, exit,
// lookup, the row's checks and the handler, with refusals turned into replies.
void execute_tokens(const Tokens& tokens);

// Runs a line of text as the client would send it and flushes its replies.
void run_line(const std::string& line);
