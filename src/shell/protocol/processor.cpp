#include "shell/protocol/processor.h"

#include <array>
#include <span>

#include "shell/protocol/cpu_info.h"

int simd_level = 8;
bool avx512_enabled = false;
bool river_strategy_enabled = true;
double storage_precision = 0;

namespace {

constexpr std::array showdown_widths{8, 7, 6, 5, 4, 3, 2};
constexpr std::array fold_widths{4, 3, 2};

int widest_block(std::span<const int> widths, int remaining, int level) {
    for (int width : widths)
        if (remaining >= width && level >= width) return width;
    return 1;
}

}  // namespace

VectorIsa choose_kernel_isa(bool avx512_wanted, bool avx2_runs, bool avx512_runs) {
    if (avx512_wanted && avx512_runs) return VectorIsa::avx512;
    if (avx2_runs) return VectorIsa::avx2;
    return VectorIsa::avx;
}

bool avx2_runs() {
    // The processor does not change while the program runs.
    static const bool runs = can_run_avx2_kernels();
    return runs;
}

VectorIsa kernel_isa() {
    static const bool avx512_runs = can_run_avx512_kernels();
    return choose_kernel_isa(avx512_enabled, avx2_runs(), avx512_runs);
}

bool river_batch_enabled(int level) { return level > 1; }

int showdown_block_width(int remaining, int level) { return widest_block(showdown_widths, remaining, level); }

int fold_block_width(int remaining, int level) { return widest_block(fold_widths, remaining, level); }
