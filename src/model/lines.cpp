#include "model/lines.h"

#include <algorithm>

#include "shell/protocol/reply.h"

SchematicTree schematic_tree = make_schematic_tree();

namespace {

// Where a line stands after the actions read so far.
struct LineWalk {
    double max = 0;  // the greatest total so far
    int32_t player = 0;
    int32_t street = 0;
    int32_t bets = 0;
    bool first_check_done = false;
};

// Reads the action from the number: above the greatest total it bets or
// raises; equal to it, it checks first, checks behind or calls, and the last
// two end the street.
void advance(LineWalk& walk, double amount) {
    if (amount > walk.max) {
        ++walk.bets;
        walk.player = 1 - walk.player;
        walk.max = amount;
        walk.first_check_done = false;
    } else if (walk.bets == 0 && !walk.first_check_done) {
        walk.player = 1 - walk.player;
        walk.first_check_done = true;
    } else {
        ++walk.street;
        walk.bets = 0;
        walk.first_check_done = false;
        walk.player = 0;
    }
}

SchematicNode& add_child(SchematicNode& node, double key) {
    auto child = std::make_unique<SchematicNode>();
    child->parent = &node;
    SchematicNode& added = *child;
    node.children.emplace(key, std::move(child));
    return added;
}

void keep_only_child(SchematicNode& node, double key) {
    std::erase_if(node.children, [key](const auto& entry) { return entry.first != key; });
}

// The call or check behind that closes what the line left open, so that no
// bet and no first check ends the tree without an answer.
void add_closing_action(SchematicNode& node, const LineWalk& walk, double amount) {
    if (find_child(node, amount)) return;
    SchematicNode& closing = add_child(node, amount);
    closing.amount = amount;
    closing.committed[0] = amount;
    closing.committed[1] = amount;
    closing.street = walk.street;
}

// The fold facing a bet. The folder keeps what stood before the bet he faces,
// which is the amount of the node the bet was made from.
void add_fold(SchematicNode& node, const LineWalk& walk, double amount) {
    if (find_child(node, fold_key)) return;
    const double before_bet = node.parent->amount;
    SchematicNode& fold = add_child(node, fold_key);
    fold.amount = before_bet;
    fold.committed[walk.player] = before_bet;
    fold.committed[1 - walk.player] = amount;
    fold.street = walk.street;
}

}  // namespace

SchematicTree make_schematic_tree() { return std::make_unique<SchematicNode>(); }

SchematicTree copy_schematic_tree(const SchematicNode& root) {
    SchematicTree copy = std::make_unique<SchematicNode>();
    copy->player = root.player;
    copy->street = root.street;
    copy->bets = root.bets;
    copy->node_index = root.node_index;
    copy->amount = root.amount;
    copy->committed[0] = root.committed[0];
    copy->committed[1] = root.committed[1];
    for (const auto& [key, child] : root.children) {
        SchematicTree child_copy = copy_schematic_tree(*child);
        child_copy->parent = copy.get();
        copy->children.emplace_hint(copy->children.end(), key, std::move(child_copy));
    }
    return copy;
}

SchematicNode* find_child(const SchematicNode& node, double key) {
    const auto found = node.children.find(key);
    return found == node.children.end() ? nullptr : found->second.get();
}

void merge_line(SchematicNode& root, std::span<const double> amounts, LineMerge mode) {
    root.player = 0;
    root.street = 0;
    root.bets = 0;
    root.amount = 0;
    root.committed[0] = 0;
    root.committed[1] = 0;
    LineWalk walk;
    SchematicNode* node = &root;
    for (const double amount : amounts) {
        if (walk.max > amount) throw_argument_error();
        if (mode == LineMerge::Force) keep_only_child(*node, amount);
        SchematicNode* child = find_child(*node, amount);
        const bool existed = child != nullptr;
        if (!existed) child = &add_child(*node, amount);
        advance(walk, amount);
        child->street = walk.street;
        child->player = walk.player;
        child->bets = walk.bets;
        child->amount = amount;
        const int32_t actor = node->player;
        child->committed[actor] = amount;
        child->committed[1 - actor] = node->committed[1 - actor];
        // An existing node already got its answers when it was made.
        if (!existed) {
            if (walk.bets > 0 || walk.first_check_done) add_closing_action(*child, walk, amount);
            if (walk.bets >= 1) add_fold(*child, walk, amount);
        }
        node = child;
    }
}

SchematicNode* find_line_node(SchematicNode& root, std::span<const double> amounts) {
    SchematicNode* node = &root;
    double previous = 0;
    for (double amount : amounts) {
        if (amount == 0 && previous > 0) amount = fold_key;
        node = find_child(*node, amount);
        if (!node) return nullptr;
        previous = amount;
    }
    return node;
}

void remove_node(SchematicNode& node) {
    SchematicNode* parent = node.parent;
    if (!parent) return;
    std::erase_if(parent->children, [&node](const auto& entry) { return entry.second.get() == &node; });
}

void remove_line(SchematicNode& root, std::span<const double> amounts) {
    if (amounts.empty()) return;
    if (SchematicNode* node = find_line_node(root, amounts)) remove_node(*node);
}

double largest_line_amount(const SchematicNode& root) {
    double largest = 0;
    for (const auto& [key, child] : root.children)
        largest = std::max({largest, key, largest_line_amount(*child)});
    return largest;
}
