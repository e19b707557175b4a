// Every command of the protocol, in the order the interpreter searches them.
#include "analysis/equity_reports.h"
#include "analysis/ev_reports.h"
#include "analysis/strategy_reports.h"
#include "model/cards.h"
#include "model/categories.h"
#include "model/line_commands.h"
#include "model/setup_commands.h"
#include "shell/commands.h"
#include "shell/processor_commands.h"
#include "shell/settings_commands.h"
#include "shell/shell_commands.h"
#include "solver/solver_commands.h"
#include "tree/build.h"
#include "tree/paths.h"

namespace {

constexpr int var = -1;  // the handler checks its own token count

constexpr CommandEntry table[] = {
    {"is_ready", cmd_is_ready, 1},
    {"solver_time", cmd_solver_time, 1},
    {"show_hand_order", show_hand_order, 1},
    {"show_settings", cmd_show_settings, 1},
    {"show_tree_params", cmd_show_tree_params, 1},
    {"set_threads", cmd_set_threads, 2},
    {"ai6_set_threads", cmd_set_threads, 2},
    {"set_recalc_accuracy", cmd_set_recalc_accuracy, 4},
    {"set_isomorphism", cmd_set_isomorphism, 3},
    {"skip_if_done", cmd_skip_if_done, 3},
    {"is_tree_present", cmd_is_tree_present, 1},
    {"go", cmd_go, var},
    {"stop", cmd_stop, 1},
    {"load_script", cmd_load_script, 2},
    {"set_range", cmd_set_range, 1328},
    {"set_board", cmd_set_board, var},
    {"set_pot", cmd_set_pot, 4},
    {"clear_lines", cmd_clear_lines, 1},
    {"free_schematic_tree", cmd_clear_lines, 1},
    {"add_line", cmd_add_line, var},
    {"remove_line", cmd_remove_line, var},
    {"force_line", cmd_force_line, var},
    {"cut_line", cmd_cut_line, 2},
    {"build_tree", cmd_build_tree, 1},
    {"free_tree", cmd_free_tree, 1},
    {"show_node", cmd_show_node, 2},
    {"show_children", cmd_show_children, 2},
    {"show_strategy", cmd_show_strategy, 2},
    {"show_strategy_pp", cmd_show_strategy_pp, 2},
    {"show_range", cmd_show_range, var},
    {"show_probs", cmd_show_probs, 2},
    {"calc_results", cmd_calc_results, 1},
    {"calc_ev", cmd_calc_ev, 3},
    {"calc_ev_pp", cmd_calc_ev_pp, 3},
    {"calc_ev_line", cmd_calc_ev_line, 3},
    {"calc_eq", cmd_calc_eq, 2},
    {"calc_eq_pp", cmd_calc_eq_pp, 2},
    {"calc_eq_node", cmd_calc_eq_node, 3},
    {"stdoutredi", cmd_stdoutredi, 2},
    {"stdoutredi_append", cmd_stdoutredi_append, 2},
    {"stdoutback", cmd_stdoutback, 1},
    {"wait_for_solver", cmd_wait_for_solver, 1},
    {"show_memory", cmd_show_memory, 1},
    {"node_count", cmd_node_count, 1},
    {"show_effective_stack", cmd_show_effective_stack, 1},
    {"set_eff_stack", cmd_set_eff_stack, 2},
    {"set_rake", cmd_set_rake, 3},
    {"set_accuracy", cmd_set_accuracy, var},
    {"show_category_names", show_category_names, 1},
    {"show_categories", show_categories, var},
    {"ai6_set_compression", cmd_set_compression, 2},
    {"set_compression", cmd_set_compression, 2},
    {"ai6_get_actual_compression", cmd_get_actual_compression, 1},
    {"get_actual_compression", cmd_get_actual_compression, 1},
    {"ai6_get_instruction_set", cmd_get_instruction_set, 1},
    {"get_instruction_set", cmd_get_instruction_set, 1},
    {"set_scheduler", cmd_set_scheduler, 2},
    {"enable_avx512", cmd_enable_avx512, 2},
    {"enable_river_strategy", cmd_enable_river_strategy, 2},
    {"sleep", cmd_sleep, 2},
    {"take_a_break", cmd_take_a_break, 2},
    {"repeat", cmd_repeat, var},
    {"echo", cmd_echo, var},
    {"ignore_mem_check", cmd_ignore_mem_check, 2},
    {"show_cpu_info", cmd_show_cpu_info, 1},
    {"reset_tree_info", cmd_reset_tree_info, 1},
    {"add_info_line", cmd_add_info_line, 2},
    {"show_tree_info", cmd_show_tree_info, 1},
    {"set_simd_level", cmd_set_simd_level, 2},
    {"set_precision", cmd_set_precision, 2},
    {"help", cmd_help, 1},
};

}  // namespace

std::span<const CommandEntry> command_table() { return table; }
