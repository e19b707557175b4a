// Scalar reference of the strategy-sum kernels, and the run-time choice.
#include "shell/protocol/processor.h"
#include "storage/codes/sum_kernels.h"

namespace {

float scale_reach_scalar(const float* reach, float weight, int hands, float* scaled) {
    float largest = 0.0f;
    for (int h = 0; h < hands; ++h) largest = sum_rules::scale_reach(reach, weight, h, scaled, largest);
    return largest;
}

void strategy_u16_scalar(const uint16_t* values, int stride, int actions, int hands, float* const* out,
                         float fallback) {
    for (int h = 0; h < hands; ++h) sum_rules::strategy_u16(values, stride, actions, h, out, fallback);
}

void strategy_u32_scalar(const uint32_t* values, int stride, int actions, int hands, float* const* out,
                         float fallback) {
    for (int h = 0; h < hands; ++h) sum_rules::strategy_u32(values, stride, actions, h, out, fallback);
}

void add_u16_scalar(uint16_t* sums, const float* strategy, const float* scaled, int hands, const uint8_t* frozen) {
    each_unfrozen_hand(0, hands, frozen, [&](int h) { sum_rules::add_u16(sums, strategy, scaled, h); });
}

void add_u32_scalar(uint32_t* sums, const float* strategy, const float* scaled, int hands, const uint8_t* frozen,
                    uint32_t ceiling) {
    each_unfrozen_hand(0, hands, frozen, [&](int h) { sum_rules::add_u32(sums, strategy, scaled, h, ceiling); });
}

}  // namespace

const SumKernels scalar_sum_kernels = {
    scale_reach_scalar, strategy_u16_scalar, strategy_u32_scalar, add_u16_scalar, add_u32_scalar,
};

const SumKernels& sum_kernels() {
    static const SumKernels& chosen = avx2_runs() ? avx2_sum_kernels : scalar_sum_kernels;
    return chosen;
}
