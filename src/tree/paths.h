// Node paths: how a client names a position of the built tree, such as
// "r:0:b30:c:Ah". Paths resolve on the schematic tree; the cards they name
// select the boards.
#pragma once

#include <string>

#include "model/cards.h"
#include "model/lines.h"
#include "shell/protocol/reply.h"

struct NodeRef {
    SchematicNode* node = nullptr;  // null for the root position "r"
    Card turn = -1;
    Card river = -1;
    // The path stops where a street has ended and its card is not named yet;
    // `node` is then the first node of the next street.
    bool split = false;
};

// Street of a schematic node in the game (1 flop, 2 turn, 3 river).
int game_street(const SchematicNode& node);

// Needs a built tree: the command table refuses commands without one.
NodeRef parse_path(const std::string& text);
std::string action_token(const NodeRef& ref, int child);
const char* node_type_text(const NodeRef& ref);
bool is_decision(const NodeRef& ref);

// Indices of the boards of real cards: (turn group, river row), each -1 when
// the card is not named or not stored.
struct BoardIndex {
    int group = -1;
    int row = -1;
};
BoardIndex board_index(Card turn, Card river);

std::string engine_flags_text();
std::string node_flags_text(int node_index, Card turn, Card river);
void print_node(const std::string& path, const NodeRef& ref);

void cmd_show_node(const Tokens& tokens);
void cmd_show_children(const Tokens& tokens);
void cmd_cut_line(const Tokens& tokens);
void cmd_node_count(const Tokens& tokens);
void cmd_free_tree(const Tokens& tokens);
