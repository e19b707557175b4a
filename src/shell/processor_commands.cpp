#include "shell/processor_commands.h"

#include <cstdio>

#include "shell/protocol/cpu_info.h"
#include "shell/protocol/processor.h"
#include "shell/protocol/tokens.h"
#include "tree/engine.h"

namespace {

void reply_ok(const Tokens& tokens) { reply("%s ok!\n", tokens[0].c_str()); }

// A flag is exactly "0" or "1"; "01", "1x" or "true" are refused.
bool parse_flag(const std::string& token) {
    if (token == "0") return false;
    if (token == "1") return true;
    throw_argument_error();
}

}  // namespace

void cmd_show_cpu_info(const Tokens&) {
    // The table goes out at once, ahead of replies still buffered from
    // earlier commands; only the closing END is a reply.
    const std::string report = cpu_info_report(cpu_info);
    {
        std::lock_guard lock(output_mutex);
        fwrite(report.data(), 1, report.size(), stdout);
    }
    reply("END\n");
}

void cmd_get_instruction_set(const Tokens&) { reply("%s\n", best_instruction_set()); }

void cmd_set_simd_level(const Tokens& tokens) {
    const int level = parse_int(tokens[1]);
    if (level < 1 || level > 8) throw_argument_error();
    // The walks read these switches throughout; each walk must see one
    // value of each, so they change only between walks.
    std::lock_guard lock(engine_lock);
    simd_level = level;
    reply_ok(tokens);
}

void cmd_set_precision(const Tokens& tokens) {
    const double precision = parse_double(tokens[1]);
    // Written so that NaN falls outside the range too.
    if (!(precision >= -2.0 && precision <= 2.0)) throw_argument_error();
    storage_precision = precision;
    reply_ok(tokens);
}

void cmd_enable_avx512(const Tokens& tokens) {
    const bool wanted = parse_flag(tokens[1]);
    std::lock_guard lock(engine_lock);
    avx512_enabled = wanted;
    reply_ok(tokens);
}

void cmd_enable_river_strategy(const Tokens& tokens) {
    const bool wanted = parse_flag(tokens[1]);
    std::lock_guard lock(engine_lock);
    river_strategy_enabled = wanted;
    reply_ok(tokens);
}
