#include "model/line_commands.h"

#include <cmath>
#include <exception>
#include <vector>

#include "model/lines.h"
#include "shell/protocol/tokens.h"

namespace {

// The amounts of a line up to the first token the walk would stop at, and
// why it would stop there, if it does.
struct LineAmounts {
    std::vector<double> amounts;
    std::exception_ptr failure;  // the conversion error that ends the line
};

// Reads the amounts in the order the walk meets them. A token that is no
// number ends the line: what came before is merged, then "Invalid value". An
// amount below the greatest before it ends the line too, and the walk refuses
// it itself. An amount that isn't finite refuses the line before any merging.
LineAmounts read_line_amounts(const Tokens& tokens) {
    LineAmounts line;
    double max = 0;
    for (size_t i = 1; i < tokens.size(); ++i) {
        double amount = 0;
        try {
            amount = parse_double(tokens[i]);
        } catch (const std::invalid_argument&) {
            line.failure = std::current_exception();
            break;
        }
        // Such a key would break the children's order and the effective stack.
        if (!std::isfinite(amount)) throw std::invalid_argument("amount not finite");
        line.amounts.push_back(amount);
        if (max > amount) break;
        max = amount;
    }
    return line;
}

void merge_command(const Tokens& tokens, LineMerge mode) {
    if (tokens.size() - 1 > max_line_amounts) throw_argument_error();
    const LineAmounts line = read_line_amounts(tokens);
    merge_line(*schematic_tree, line.amounts, mode);
    if (line.failure) std::rethrow_exception(line.failure);
    reply("%s ok!\n", tokens[0].c_str());
}

}  // namespace

void cmd_add_line(const Tokens& tokens) { merge_command(tokens, LineMerge::Add); }

void cmd_force_line(const Tokens& tokens) { merge_command(tokens, LineMerge::Force); }

void cmd_remove_line(const Tokens& tokens) {
    // Amounts up to the first token that is no finite number; the walk only
    // reaches that token if every amount before it is in the tree.
    std::vector<double> amounts;
    bool stopped = false;
    for (size_t i = 1; i < tokens.size() && !stopped; ++i) {
        try {
            amounts.push_back(parse_finite_double(tokens[i]));
        } catch (const std::invalid_argument&) {
            stopped = true;
        }
    }
    if (!stopped) {
        remove_line(*schematic_tree, amounts);
    } else if (find_line_node(*schematic_tree, amounts)) {
        throw std::invalid_argument("amount not a finite number");
    }
    reply("%s ok!\n", tokens[0].c_str());
}

void cmd_clear_lines(const Tokens& tokens) {
    schematic_tree = make_schematic_tree();
    reply("%s ok!\n", tokens[0].c_str());
}
