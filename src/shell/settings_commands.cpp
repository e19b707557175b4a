#include "shell/settings_commands.h"

#include <omp.h>

#include <algorithm>


#include "shell/protocol/game_setup.h"
#include "shell/protocol/settings.h"
#include "shell/protocol/tokens.h"
#include "solver/solver_driver.h"
#include "tree/build.h"
#include "tree/engine.h"

namespace {


void reply_ok(const Tokens& tokens) { reply("%s ok!\n", tokens[0].c_str()); }

}  // namespace

void cmd_is_ready(const Tokens& tokens) { reply_ok(tokens); }

void cmd_solver_time(const Tokens&) {
    reply("%f\n", static_cast<double>(system_time_ticks() - start_time) / 1e7);
}

void cmd_show_settings(const Tokens&) { reply("END\n"); }

void cmd_show_memory(const Tokens&) {
    const PhysicalMemory memory = read_physical_memory();
    reply("Total Physical Memory: %d MB\n", static_cast<int>(memory.total_bytes >> 20));
    reply("Available Phys Memory: %d MB\n", static_cast<int>(memory.available_bytes >> 20));
    reply("END\n");
}

void cmd_set_threads(const Tokens& tokens) {
    const int count = parse_int(tokens[1]);
    // Walks read the count; it changes between two of them.
    std::lock_guard lock(engine_lock);
    threads = count < 1 ? omp_get_max_threads() : std::min(count, max_threads);
    reply_ok(tokens);
}

void cmd_set_isomorphism(const Tokens& tokens) {
    isomorphism_by_street[1] = tokens[1] != "0";
    isomorphism_by_street[2] = tokens[2] != "0";
    reply_ok(tokens);
}

void cmd_set_scheduler(const Tokens& tokens) {
    const int value = parse_int(tokens[1]);
    if (value < 0 || value > 2) throw_argument_error();
    scheduler = value;
    reply_ok(tokens);
}

void cmd_ignore_mem_check(const Tokens& tokens) {
    if (tokens[1] != "on" && tokens[1] != "off") throw_argument_error();
    reply_ok(tokens);
}

void cmd_reset_tree_info(const Tokens& tokens) {
    tree_info_lines.clear();
    reply_ok(tokens);
}

void cmd_add_info_line(const Tokens& tokens) {
    tree_info_lines.push_back(tokens[1]);
    reply_ok(tokens);
}

void cmd_show_tree_info(const Tokens&) {
    comment_pass = true;
    for (const auto& line : tree_info_lines) reply_text(line + "\n");
    reply("END\n");
}

void cmd_is_tree_present(const Tokens&) { reply(tree_ready ? "true\n" : "false\n"); }

void cmd_set_accuracy(const Tokens& tokens) {
    if (tokens.size() < 2) throw_argument_error();
    const double value = parse_finite_double(tokens[1]);
    if (value < 0) throw_argument_error();
    accuracy_setting = value;
    accuracy_is_fraction = tokens.size() > 2 && tokens[2] == "fraction";
    update_accuracy_target();
    reply_ok(tokens);
}

void cmd_set_recalc_accuracy(const Tokens& tokens) {
    for (int i = 0; i < 3; ++i) recalc_accuracy[i] = parse_finite_double(tokens[i + 1]) * pot;
    reply_ok(tokens);
}

void cmd_set_compression(const Tokens& tokens) {
    // Without a tree the request waits for the next build; with one, the
    // stores are made anew at the new level and the solve starts over.
    compression_set = parse_compression_level(tokens[1]);
    if (tree_ready) {
        // Between two walks of a running solve: the walk opens the new stores.
        std::lock_guard lock(engine_lock);
        apply_compression_setting();
        clear_solver_history();
    }
    reply_ok(tokens);
}

void cmd_get_actual_compression(const Tokens&) { reply("compression %d\n", compression_level); }
