// Handlers of the commands that steer the flow of lines and of output.
#pragma once

#include "shell/protocol/reply.h"

void cmd_help(const Tokens& tokens);
void cmd_load_script(const Tokens& tokens);
void cmd_skip_if_done(const Tokens& tokens);
void cmd_repeat(const Tokens& tokens);
void cmd_echo(const Tokens& tokens);
void cmd_sleep(const Tokens& tokens);
void cmd_take_a_break(const Tokens& tokens);
void cmd_stdoutredi(const Tokens& tokens);
void cmd_stdoutredi_append(const Tokens& tokens);
void cmd_stdoutback(const Tokens& tokens);

// Keeps a duplicate of the process's first standard output so that
// `stdoutback` can return to it after a redirection.
void remember_console_output();

// True when the path exists and is not a directory.
bool is_existing_file(const std::string& path);
