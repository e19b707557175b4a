// Every command of the protocol, in the order the interpreter searches them.
#include <string_view>

#include "analysis/equity_reports.h"
#include "analysis/ev_reports.h"
#include "analysis/frequency_reports.h"
#include "analysis/strategy_reports.h"
#include "model/cards.h"
#include "model/categories.h"
#include "model/line_commands.h"
#include "model/setup_commands.h"
#include "shell/commands.h"
#include "shell/processor_commands.h"
#include "shell/settings_commands.h"
#include "shell/shell_commands.h"
#include "solver/forget_commands.h"
#include "solver/lock_commands.h"
#include "solver/solver_commands.h"
#include "solver/tree_file_commands.h"
#include "tree/build.h"
#include "tree/paths.h"

namespace {

constexpr int var = -1;  // the handler checks its own token count

constexpr CommandChecks tree = needs_tree;
constexpr CommandChecks player = player_word;
constexpr CommandChecks solving = not_while_solving;
constexpr CommandChecks argument = needs_argument;

// Another name of `command`, which has a row of its own.
constexpr CommandEntry alias(const char* name, const char* command) {
    return {name, nullptr, 0, no_checks, nullptr, nullptr, command};
}

constexpr CommandEntry table[] = {
    {"is_ready", cmd_is_ready, 1, no_checks, "", "answers \"is_ready ok!\""},
    {"solver_time", cmd_solver_time, 1, no_checks, "", "seconds since the program started"},
    {"show_hand_order", show_hand_order, 1, no_checks, "", "the 1326 combos in hand order, on one line"},
    {"show_settings", cmd_show_settings, 1, no_checks, "", "END alone, for clients that ask"},
    {"show_tree_params", cmd_show_tree_params, 1, no_checks, "", "the board, the pot and fixed fields"},
    {"set_threads", cmd_set_threads, 2, no_checks, "<count>",
     "threads of the solver's walks; below 1 takes one per processor"},
    alias("ai6_set_threads", "set_threads"),
    {"set_recalc_accuracy", cmd_set_recalc_accuracy, 4, no_checks, "<flop> <turn> <river>",
     "recalculation thresholds per street, as shares of the pot"},
    {"set_isomorphism", cmd_set_isomorphism, 3, no_checks, "<flop> <turn>",
     "suit isomorphism of the next build when the tree starts on the flop or the turn (0 off)"},
    {"skip_if_done", cmd_skip_if_done, 3, no_checks, "<file> <label>",
     "when the file exists, skip lines up to \"LABEL: <label>\""},
    {"is_tree_present", cmd_is_tree_present, 1, no_checks, "", "\"true\" or \"false\""},
    {"go", cmd_go, var, tree | solving, "[<limit> steps|seconds]", "start the solver in the background"},
    {"stop", cmd_stop, 1, no_checks, "", "ask the solver to stop after its iteration"},
    {"load_script", cmd_load_script, 2, no_checks, "<file>", "run a file of commands, line by line"},
    {"set_range", cmd_set_range, 1328, no_checks, "<player> <1326 weights>", "a player's range, in hand order"},
    {"set_board", cmd_set_board, var, no_checks, "<card> <card> <card> [<turn>] [<river>]",
     "the board: a flop, and a turn and a river when the tree starts later"},
    {"set_pot", cmd_set_pot, 4, no_checks, "<first> <second> <pot>", "the pot in chips"},
    {"clear_lines", cmd_clear_lines, 1, no_checks, "", "forget every betting line"},
    {"free_schematic_tree", cmd_clear_lines, 1, no_checks, "", "forget every betting line, as clear_lines"},
    {"add_line", cmd_add_line, var, no_checks, "<amount>...", "add a betting line of cumulative amounts"},
    {"remove_line", cmd_remove_line, var, no_checks, "<amount>...", "remove the last node of a betting line"},
    {"force_line", cmd_force_line, var, no_checks, "<amount>...", "add a betting line and drop its siblings"},
    {"cut_line", cmd_cut_line, 2, tree | solving, "<path>", "cut a branch off the built tree"},
    {"build_tree", cmd_build_tree, 1, solving, "", "build the game tree from ranges, board, pot and lines"},
    {"free_tree", cmd_free_tree, 1, solving, "", "release the game tree"},
    {"load_tree", cmd_load_tree, 2, solving, "<file>",
     "replace the tree by a saved one; a file that can't be read leaves the tree as it was"},
    {"dump_tree", cmd_dump_tree, var, argument | tree | solving, "<file> [no_values]",
     "save the tree and its solve, whole or not at all; no_values leaves out the EVs of chance positions"},
    {"show_node", cmd_show_node, 2, tree, "<path>", "a node's record"},
    {"show_children", cmd_show_children, 2, tree, "<path>", "the records of a node's children"},
    {"show_strategy", cmd_show_strategy, 2, tree, "<path>", "each action's share for every hand at a node"},
    {"show_strategy_pp", cmd_show_strategy_pp, 2, tree, "<path>", "the strategy at a node, hand by hand"},
    {"show_locked_combos", cmd_show_locked_combos, 2, tree, "<path>",
     "1 for each combo locked one by one at a node, 0 for the others"},
    {"show_range", cmd_show_range, var, player | tree_for_path, "<player> [<path>]",
     "a player's range at a node, or at the root"},
    {"show_probs", cmd_show_probs, 2, tree, "<path>",
     "how much of each range reaches a node, and the acting player's action shares"},
    {"forget", cmd_forget, 2, tree | solving, "rivers|turns",
     "drop the rows of a solved street, keeping the reach to solve its subgames on demand"},
    {"rebuild_forgotten_streets", cmd_rebuild_forgotten_streets, 1, tree | solving, "",
     "make empty rows for the forgotten streets again"},
    alias("rebuild_all", "rebuild_forgotten_streets"),
    {"solve_all_splits", cmd_solve_all_splits, 2, tree | solving, "rivers|turns",
     "solve every subgame of a street again from the reach that arrives there"},
    {"solve_partial", cmd_solve_partial, 2, tree | solving, "<path>",
     "solve the forgotten subgame that holds a node"},
    {"explo_partial", cmd_explo_partial, 2, tree | solving, "<path>",
     "solve the forgotten subgame that holds a node and print its exploitability in chips"},
    {"calc_results", cmd_calc_results, 1, tree, "", "EVs, best responses and exploitability of the present strategy"},
    {"calc_ev", cmd_calc_ev, 3, player | tree, "<player> <path>", "each hand's expected value and weight at a node"},
    {"calc_ev_pp", cmd_calc_ev_pp, 3, player | tree, "<player> <path>", "calc_ev hand by hand"},
    {"calc_ev_line", cmd_calc_ev_line, 3, player, "<player> <path>", "two constant lines, for clients that ask"},
    {"calc_line_freq", cmd_calc_line_freq, 2, tree, "<path>",
     "the share of all deals that play the line to a node, over every runout"},
    {"calc_global_freq", cmd_calc_global_freq, 2, tree, "<path>",
     "the share of all deals that reach a node with the cards the path names"},
    {"calc_eq", cmd_calc_eq, 2, player | tree, "<player>", "each hand's equity and matchups at the root"},
    {"calc_eq_pp", cmd_calc_eq_pp, 2, player | tree, "<player>", "calc_eq hand by hand"},
    {"calc_eq_node", cmd_calc_eq_node, 3, player | tree, "<player> <path>",
     "each hand's equity and matchups at a node, and the whole range's equity"},
    {"stdoutredi", cmd_stdoutredi, 2, no_checks, "<file>", "send output to a file"},
    {"stdoutredi_append", cmd_stdoutredi_append, 2, no_checks, "<file>", "append output to a file"},
    {"stdoutback", cmd_stdoutback, 1, no_checks, "", "send output back to the console"},
    {"wait_for_solver", cmd_wait_for_solver, 1, no_checks, "", "wait until the solver has stopped"},
    {"show_memory", cmd_show_memory, 1, no_checks, "", "total and available physical memory"},
    {"node_count", cmd_node_count, 1, tree, "", "positions of the built tree by kind and street"},
    {"show_effective_stack", cmd_show_effective_stack, 1, tree, "", "the effective stack of the built tree"},
    {"set_eff_stack", cmd_set_eff_stack, 2, no_checks, "<chips>", "accepted and ignored: the lines set the stack"},
    {"set_rake", cmd_set_rake, 3, no_checks, "<fraction> <cap>", "rake as a share of the pot, up to a cap in chips"},
    {"set_ev_boost", cmd_set_ev_boost, 3, tree, "<path> <boost>",
     "in training, raise the worth of the action that leads to a node by a share from -0.99 to 1"},
    {"set_accuracy", cmd_set_accuracy, var, no_checks, "<chips> [fraction]",
     "exploitability at which the solver stops; \"fraction\" makes it a share of the pot"},
    {"lock_node", cmd_lock_node, 2, tree, "<path>", "fix the strategy of a node for all hands"},
    {"unlock_node", cmd_unlock_node, 2, tree, "<path>", "let a node's strategy learn again, for all hands"},
    {"set_strategy", cmd_set_strategy, 1329, tree, "<path> <child> <1326 weights>",
     "each hand's weight for one action of a node, in hand order; lock_node then keeps it"},
    {"combo_lock_node", cmd_combo_lock_node, 1328, tree, "<path> <1326 flags>",
     "fix the strategy of a node for the combos whose flag is not 0"},
    {"show_category_names", show_category_names, 1, no_checks, "", "the names of the hand categories"},
    {"show_categories", show_categories, var, no_checks, "<cards>...", "each combo's categories on a board"},
    alias("ai6_set_compression", "set_compression"),
    {"set_compression", cmd_set_compression, 2, no_checks, "<level>",
     "storage compression: auto, none, low, medium, high, max, fast, or a number"},
    alias("ai6_get_actual_compression", "get_actual_compression"),
    {"get_actual_compression", cmd_get_actual_compression, 1, no_checks, "", "the compression level in force"},
    alias("ai6_get_instruction_set", "get_instruction_set"),
    {"get_instruction_set", cmd_get_instruction_set, 1, no_checks, "", "the best instruction set of the processor"},
    {"set_scheduler", cmd_set_scheduler, 2, no_checks, "<0-2>", "a scheduling policy value, kept"},
    {"enable_avx512", cmd_enable_avx512, 2, no_checks, "<0|1>",
     "run the 512-bit kernels where the processor has them"},
    {"enable_river_strategy", cmd_enable_river_strategy, 2, no_checks, "<0|1>",
     "keep strategy sums on river nodes of the next stores"},
    {"sleep", cmd_sleep, 2, no_checks, "<milliseconds>", "pause, without a reply"},
    {"take_a_break", cmd_take_a_break, 2, no_checks, "<seconds>", "ask the solver to stop, then pause"},
    {"repeat", cmd_repeat, var, no_checks, "<count> <text>...", "print a text several times"},
    {"echo", cmd_echo, var, no_checks, "<text>", "print a text"},
    {"ignore_mem_check", cmd_ignore_mem_check, 2, no_checks, "on|off", "accepted and ignored"},
    {"show_cpu_info", cmd_show_cpu_info, 1, no_checks, "", "the processor's vendor, brand and features"},
    {"reset_tree_info", cmd_reset_tree_info, 1, no_checks, "", "forget the tree's info lines"},
    {"add_info_line", cmd_add_info_line, 2, no_checks, "<text>", "add a line to the tree's info"},
    {"show_tree_info", cmd_show_tree_info, 1, no_checks, "", "the tree's info lines"},
    {"set_simd_level", cmd_set_simd_level, 2, no_checks, "<1-8>",
     "the widest block of leaves the river kernels take at once"},
    {"set_precision", cmd_set_precision, 2, no_checks, "<-2..2>",
     "storage precision, as a power of two of the base scale"},
    {"help", cmd_help, 1, no_checks, "", "the commands in byte order, without their other names"},
};

constexpr const CommandEntry* find_in_table(std::string_view name) {
    for (const CommandEntry& entry : table)
        if (name == entry.name) return &entry;
    return nullptr;
}

// Names are unique, and an alias names a command that is no alias itself.
constexpr bool table_is_sound() {
    for (const CommandEntry& entry : table) {
        if (find_in_table(entry.name) != &entry) return false;
        if (!entry.alias_of) continue;
        const CommandEntry* command = find_in_table(entry.alias_of);
        if (!command || command->alias_of || !command->help) return false;
    }
    return true;
}
static_assert(table_is_sound());

}  // namespace

std::span<const CommandEntry> command_table() { return table; }

const CommandEntry* find_command(std::string_view name) { return find_in_table(name); }

const CommandEntry& command_of(const CommandEntry& entry) {
    return entry.alias_of ? *find_in_table(entry.alias_of) : entry;
}
