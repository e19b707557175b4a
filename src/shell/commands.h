// The command table and the interpreter that runs one line of it.
#pragma once

#include <span>

#include "shell/protocol/reply.h"

using CommandHandler = void (*)(const Tokens& tokens);

struct CommandEntry {
    const char* name;
    CommandHandler handler;
    int arg_count;  // exact token count, command word included; -1: the handler checks
};

// The whole table, in the order it is searched.
std::span<const CommandEntry> command_table();

// Runs one tokenised line: gate, echo, labels, skipping, comments, exit,
// lookup, count check and the handler, with refusals turned into replies.
void execute_tokens(const Tokens& tokens);

// Runs a line of text as the client would send it and flushes its replies.
void run_line(const std::string& line);
