// Every command of the protocol, in the order the interpreter searches them.
#include "model/cards.h"
#include "shell/commands.h"
#include "shell/settings_commands.h"
#include "shell/shell_commands.h"

namespace {

constexpr int var = -1;  // the handler checks its own token count

constexpr CommandEntry table[] = {
    {"is_ready", cmd_is_ready, 1},
    {"solver_time", cmd_solver_time, 1},
    {"show_hand_order", show_hand_order, 1},
    {"show_settings", cmd_show_settings, 1},
    {"set_threads", cmd_set_threads, 2},
    {"ai6_set_threads", cmd_set_threads, 2},
    {"set_recalc_accuracy", cmd_set_recalc_accuracy, 4},
    {"set_isomorphism", cmd_set_isomorphism, 3},
    {"skip_if_done", cmd_skip_if_done, 3},
    {"is_tree_present", cmd_is_tree_present, 1},
    {"load_script", cmd_load_script, 2},
    {"stdoutredi", cmd_stdoutredi, 2},
    {"stdoutredi_append", cmd_stdoutredi_append, 2},
    {"stdoutback", cmd_stdoutback, 1},
    {"show_memory", cmd_show_memory, 1},
    {"set_accuracy", cmd_set_accuracy, var},
    {"ai6_set_compression", cmd_set_compression, 2},
    {"set_compression", cmd_set_compression, 2},
    {"ai6_get_actual_compression", cmd_get_actual_compression, 1},
    {"get_actual_compression", cmd_get_actual_compression, 1},
    {"set_scheduler", cmd_set_scheduler, 2},
    {"sleep", cmd_sleep, 2},
    {"take_a_break", cmd_take_a_break, 2},
    {"repeat", cmd_repeat, var},
    {"echo", cmd_echo, var},
    {"ignore_mem_check", cmd_ignore_mem_check, 2},
    {"reset_tree_info", cmd_reset_tree_info, 1},
    {"add_info_line", cmd_add_info_line, 2},
    {"show_tree_info", cmd_show_tree_info, 1},
    {"help", cmd_help, 1},
};

}  // namespace

std::span<const CommandEntry> command_table() { return table; }
