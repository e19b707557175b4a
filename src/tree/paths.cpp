#include "tree/paths.h"

#include <stdexcept>
#include <vector>

#include "shell/protocol/game_setup.h"
#include "shell/protocol/settings.h"
#include "shell/protocol/tokens.h"
#include "tree/boards.h"
#include "tree/build.h"
#include "tree/engine.h"
#include "tree/isomorphism.h"

namespace {

[[noreturn]] void throw_incorrect_path() { throw_command_error("incorrect path"); }

std::vector<std::string> split_path(const std::string& text) {
    std::vector<std::string> parts;
    size_t start = 0;
    for (;;) {
        const size_t colon = text.find(':', start);
        parts.push_back(text.substr(start, colon - start));
        if (colon == std::string::npos) return parts;
        start = colon + 1;
    }
}

SchematicNode& child_with_key(const SchematicNode& node, double key) {
    SchematicNode* child = find_child(node, key);
    if (!child) throw_incorrect_path();
    return *child;
}

Card parse_path_card(const std::string& token) {
    if (token.size() != 2) throw_incorrect_path();
    CardMask mask = 0;
    try {
        mask = parse_cards(token);
    } catch (const std::runtime_error&) {
        throw_incorrect_path();
    }
    if (__builtin_popcountll(mask) != 1 || (mask & engine->flop)) throw_incorrect_path();
    return __builtin_ctzll(mask);
}

NodeRef root_position() { return {engine->lines.get(), engine->fixed_turn, engine->fixed_river, false}; }

// The node of the client's lines that stands where `built` stands in the
// lines of the built tree, or null when the client has removed it since.
SchematicNode* client_line_node(const SchematicNode& built) {
    std::vector<double> keys;
    for (const SchematicNode* node = &built; node->parent; node = node->parent)
        for (const auto& [key, child] : node->parent->children)
            if (child.get() == node) keys.push_back(key);
    SchematicNode* node = schematic_tree.get();
    for (auto key = keys.rbegin(); key != keys.rend() && node; ++key) node = find_child(*node, *key);
    return node;
}

}  // namespace

int game_street(const SchematicNode& node) { return first_street + node.street; }

NodeRef parse_path(const std::string& text) {
    const std::vector<std::string> parts = split_path(text);
    if (parts[0] != "r") throw_incorrect_path();
    if (parts.size() == 1) return {nullptr, engine->fixed_turn, engine->fixed_river, false};
    if (parts[1] != "0") throw_incorrect_path();
    NodeRef ref = root_position();
    for (size_t i = 2; i < parts.size(); ++i) {
        const std::string& token = parts[i];
        if (token.empty()) throw_incorrect_path();
        ref.split = false;
        SchematicNode& node = *ref.node;
        if (token[0] == 'b') {
            ref.node = &child_with_key(node, parse_double(token.substr(1)));
        } else if (token[0] == 'c') {
            ref.node = &child_with_key(node, node.amount);
            ref.split = ref.node->street > node.street;
        } else if (token[0] == 'f') {
            ref.node = &child_with_key(node, fold_key);
        } else {
            const Card card = parse_path_card(token);
            if (!node.parent) throw_incorrect_path();
            const int from = game_street(*node.parent), to = game_street(node);
            if (from == flop_street && to == turn_street && ref.turn < 0) {
                ref.turn = card;
            } else if (from == turn_street && to == river_street && ref.river < 0) {
                ref.river = card;
            } else {
                throw_incorrect_path();
            }
        }
    }
    return ref;
}

std::string action_token(const NodeRef& ref, int child) {
    auto it = ref.node->children.begin();
    std::advance(it, child);
    const double key = it->first;
    if (key < 0) return "f";
    if (key <= ref.node->amount) return "c";
    char text[32];
    snprintf(text, sizeof text, "b%d", static_cast<int>(key));
    return text;
}

const char* node_type_text(const NodeRef& ref) {
    if (!ref.node) return "ROOT";
    if (ref.split) return "SPLIT_NODE";
    if (ref.node->children.empty()) return "END_NODE";
    return ref.node->player == 0 ? "OOP_DEC" : "IP_DEC";
}

bool is_decision(const NodeRef& ref) {
    const std::string type = node_type_text(ref);
    return type == "OOP_DEC" || type == "IP_DEC";
}

BoardIndex board_index(Card turn, Card river) {
    const BoardLocation location = board_lookup(*engine->root_board, engine->flop, turn, river,
                                                (engine->flags & isomorphism_on_flag) != 0);
    return {location.turn_index, location.river_index};
}

std::string engine_flags_text() {
    if (!engine) return "";
    static constexpr struct {
        uint32_t bit;
        const char* name;
    } names[] = {{incomplete_tree_flag, "INCOMPLETE_TREE"}, {isomorphism_on_flag, "ISOMORPHISM_ON"},
                 {new_tree_flag, "NEW_TREE"}};
    std::string text;
    for (const auto& [bit, name] : names) {
        if (!(engine->flags & bit)) continue;
        if (!text.empty()) text += ' ';
        text += name;
    }
    return text;
}

std::string node_flags_text(int node_index, Card turn, Card river) {
    const TreeNode& node = engine->nodes[node_index];
    if (!node.regrets) return "";
    const BoardIndex index = board_index(turn, river);
    const LockRecord* record = node.regrets->lock_record(index.group, index.row);
    if (!record) return "";
    std::string text;
    if (record->flags & lock_flag_node) text = "LOCKED";
    if (record->flags & lock_flag_mask) text += text.empty() ? "COMBO_LOCKED" : " COMBO_LOCKED";
    return text;
}

void print_node(const std::string& path, const NodeRef& ref) {
    reply_text(path + "\n");
    reply("%s\n", node_type_text(ref));
    // The flop by rising card, then the turn and the river in that order.
    std::string cards = cards_to_text(engine->flop);
    for (const Card card : {ref.turn, ref.river}) {
        if (card < 0) continue;
        cards.push_back(' ');
        cards.append(card_text(card));
    }
    cards.push_back('\n');
    reply_text(cards);
    const double committed_oop = ref.node ? ref.node->committed[0] : 0;
    const double committed_ip = ref.node ? ref.node->committed[1] : 0;
    reply("%g %g %g\n", committed_oop, committed_ip, pot);
    int children = 1;
    if (ref.split) {
        children = game_street(*ref.node) == turn_street ? 49 : 48;
    } else if (ref.node) {
        children = static_cast<int>(ref.node->children.size());
    }
    reply("%d children\n", children);
    if (!ref.node) {
        reply("flags: %s\n", engine_flags_text().c_str());
    } else if (ref.split) {
        reply("flags:\n");
    } else {
        reply("flags: %s\n", node_flags_text(ref.node->node_index, ref.turn, ref.river).c_str());
    }
}

void cmd_show_node(const Tokens& tokens) {
    const NodeRef ref = parse_path(tokens[1]);
    print_node(tokens[1], ref);
    reply("END\n");
}

void cmd_show_children(const Tokens& tokens) {
    const std::string& path = tokens[1];
    const NodeRef ref = parse_path(path);
    if (!ref.node) {
        reply("child 0:\n");
        print_node("r:0", root_position());
    } else if (ref.split) {
        // Every card that can still come, highest rank first, spades first.
        const CardMask used = engine->flop | (ref.turn >= 0 ? card_bit(ref.turn) : 0) |
                              (ref.river >= 0 ? card_bit(ref.river) : 0);
        int child = 0;
        for (int rank = 12; rank >= 0; --rank) {
            for (int suit = 3; suit >= 0; --suit) {
                const Card card = make_card(rank, suit);
                if (used & card_bit(card)) continue;
                NodeRef next = ref;
                next.split = false;
                (game_street(*ref.node) == turn_street ? next.turn : next.river) = card;
                reply("child %d:\n", child++);
                print_node(path + ":" + card_text(card), next);
            }
        }
    } else {
        int child = 0;
        for (const auto& [key, node] : ref.node->children) {
            const NodeRef next{node.get(), ref.turn, ref.river, node->street > ref.node->street};
            reply("child %d:\n", child);
            print_node(path + ":" + action_token(ref, child), next);
            ++child;
        }
    }
    reply("END\n");
}

void cmd_cut_line(const Tokens& tokens) {
    const NodeRef ref = parse_path(tokens[1]);
    if (!ref.node || ref.node == engine->lines.get()) throw_command_error("can't cut root");
    if (SchematicNode* cut = client_line_node(*ref.node)) remove_node(*cut);
    build_game(true);
    reply("%s ok!\n", tokens[0].c_str());
}

namespace {

struct PositionCounts {
    int total = 0;
    int by_street[4] = {0, 0, 0, 0};
    void add(int street, int weight) {
        total += weight;
        by_street[street] += weight;
    }
};

struct TreeCounts {
    PositionCounts player[2];
    PositionCounts split;
    PositionCounts end;
    int total = 0;
};

int street_weight(int street) { return street == flop_street ? 1 : street == turn_street ? 49 : 2352; }

void count_positions(const SchematicNode& node, TreeCounts& counts) {
    const int street = game_street(node);
    const int weight = street_weight(street);
    if (!node.children.empty()) {
        counts.player[node.player].add(street, weight);
        counts.total += weight;
    }
    for (const auto& [key, child] : node.children) {
        if (child->street > node.street) {
            counts.split.add(street, weight);
            counts.total += weight;
        }
        if (child->children.empty()) {
            counts.end.add(street, weight);
            counts.total += weight;
        }
        count_positions(*child, counts);
    }
}

void reply_counts(const char* title, const PositionCounts& counts) {
    reply("%s: %d\n", title, counts.total);
    reply("FLOP  %d\n", counts.by_street[1]);
    reply("TURN  %d\n", counts.by_street[2]);
    reply("RIVER  %d\n", counts.by_street[3]);
}

}  // namespace

void cmd_node_count(const Tokens&) {
    TreeCounts counts;
    count_positions(*engine->lines, counts);
    reply_counts("H_DEC", counts.player[1]);
    reply_counts("V_DEC", counts.player[0]);
    reply_counts("SPLIT", counts.split);
    reply_counts("END", counts.end);
    reply("ROOT: 1\n");
    reply("FLOP  %d\n", first_street == flop_street ? 1 : 0);
    reply("TURN  %d\n", first_street == turn_street ? 1 : 0);
    reply("RIVER %d\n", first_street == river_street ? 1 : 0);
    reply("TOTAL: %d\n", counts.total + 1);
    reply("END\n");
}

void cmd_free_tree(const Tokens& tokens) {
    destroy_engine();
    skip_values = false;
    reply("%s ok!\n", tokens[0].c_str());
}
