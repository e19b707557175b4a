// The commands that forget streets, make their rows again and solve their
// subgames.
#pragma once

#include "shell/protocol/reply.h"

void cmd_forget(const Tokens& tokens);
void cmd_rebuild_forgotten_streets(const Tokens& tokens);
void cmd_solve_all_splits(const Tokens& tokens);
void cmd_solve_partial(const Tokens& tokens);
void cmd_explo_partial(const Tokens& tokens);
