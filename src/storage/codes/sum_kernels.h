// The per-hand loops of the integer strategy-sum rows: 16-bit rows of a
// widening store's narrow groups, 32-bit rows of a packed store and the
// unpacked rows of a widening store's wide groups.
//
// Each exists as a scalar reference and as an AVX2 version chosen at run
// time. They give identical results except in the strategy reads, where the
// vector path multiplies by a refined reciprocal instead of dividing.
#pragma once

#include <algorithm>
#include <cstdint>

#include "storage/codes/row_kernels.h"

struct SumKernels {
    // scaled[h] = weight * reach[h]; the result is the largest scaled value,
    // at least 0 (a NaN is passed over).
    float (*scale_reach)(const float* reach, float weight, int hands, float* scaled);

    // Normalises integer sums, action a of hand h at values[a * stride + h].
    // The sum over actions is a 32-bit integer; a hand whose sum, as f32, is
    // below the smallest normal f32 gets `fallback` for every action.
    void (*strategy_u16)(const uint16_t* values, int stride, int actions, int hands, float* const* out,
                         float fallback);
    void (*strategy_u32)(const uint32_t* values, int stride, int actions, int hands, float* const* out,
                         float fallback);

    // sums[h] += truncate(0.5 + strategy[h] * scaled[h]), held within
    // 0..65535 instead of wrapping (a NaN gain saturates too). Hands whose `frozen` byte is not 0 keep
    // their value.
    void (*add_u16)(uint16_t* sums, const float* strategy, const float* scaled, int hands, const uint8_t* frozen);

    // sums[h] = truncate(0.5 + strategy[h] * scaled[h] + (f32)sums[h]), at
    // most `ceiling`. The truncation is the processor's: from 2^31 on it gives
    // 2^31, so a 32-bit sum stops there.
    void (*add_u32)(uint32_t* sums, const float* strategy, const float* scaled, int hands, const uint8_t* frozen,
                    uint32_t ceiling);
};

extern const SumKernels scalar_sum_kernels;
extern const SumKernels avx2_sum_kernels;  // only on a processor with AVX2

// The kernels for this processor, chosen once.
const SumKernels& sum_kernels();

// The rules for one hand, shared by the scalar kernels and the vector tails.
namespace sum_rules {

inline float scale_reach(const float* reach, float weight, int h, float* scaled, float largest) {
    scaled[h] = weight * reach[h];
    // Written so that a NaN never becomes the largest.
    return scaled[h] > largest ? scaled[h] : largest;
}

inline void strategy_u16(const uint16_t* values, int stride, int actions, int h, float* const* out,
                         float fallback) {
    int32_t sum = 0;
    for (int a = 0; a < actions; ++a) sum += values[a * stride + h];
    const float total = float(sum);
    for (int a = 0; a < actions; ++a)
        out[a][h] = total >= smallest_normal_f32 ? float(values[a * stride + h]) / total : fallback;
}

inline void strategy_u32(const uint32_t* values, int stride, int actions, int h, float* const* out,
                         float fallback) {
    uint32_t sum = 0;  // wraps like the 32-bit lanes of the vector path
    for (int a = 0; a < actions; ++a) sum += values[a * stride + h];
    const float total = float(sum);
    for (int a = 0; a < actions; ++a)
        out[a][h] = total >= smallest_normal_f32 ? float(values[a * stride + h]) / total : fallback;
}

inline void add_u16(uint16_t* sums, const float* strategy, const float* scaled, int h) {
    // A gain of more than 65536 saturates anyway; capping it before the
    // conversion keeps a huge one from turning into the integer indefinite.
    // Written as the vector minimum works, which also caps a NaN.
    const float gain = 0.5f + strategy[h] * scaled[h];
    const int32_t whole = truncate_to_int32(gain < 65536.0f ? gain : 65536.0f);
    sums[h] = static_cast<uint16_t>(std::clamp(int32_t{sums[h]} + whole, 0, 65535));
}

inline void add_u32(uint32_t* sums, const float* strategy, const float* scaled, int h, uint32_t ceiling) {
    const float next = 0.5f + strategy[h] * scaled[h] + float(sums[h]);
    sums[h] = std::min(static_cast<uint32_t>(truncate_to_int32(next)), ceiling);
}

}  // namespace sum_rules
