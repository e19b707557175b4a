// Handlers of the commands that edit the client's betting lines.
#pragma once

#include "shell/protocol/reply.h"

void cmd_add_line(const Tokens& tokens);
void cmd_force_line(const Tokens& tokens);
void cmd_remove_line(const Tokens& tokens);
// Also runs as free_schematic_tree.
void cmd_clear_lines(const Tokens& tokens);
