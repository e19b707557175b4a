// The per-hand loops of the stores: reading a strategy out of a board's rows,
// the regret update and the strategy-sum update.
//
// Each exists twice: a scalar reference, which is also what runs on a
// processor without AVX2, and an AVX2 version chosen at run time. Both give
// bit-identical results except in the strategy reads, where the vector path
// multiplies by a refined reciprocal instead of dividing.
#pragma once

#include <climits>
#include <cstdint>
#include <span>

// Smallest normal f32: a sum below it cannot be divided by.
constexpr float smallest_normal_f32 = 1.1754944e-38f;

struct RowKernels {
    // Normalises f32 rows: action a of hand h is values[a * stride + h]. A hand
    // whose sum is below the smallest normal f32 gets defaults[a] (0 where
    // the defaults run short).
    void (*strategy_f32)(const float* values, int stride, int actions, int hands,
                         float* const* out, std::span<const float> defaults);

    // The same over 16-bit rows, summed as integers; a sum of 0 is not usable.
    // With two actions the second is always 1 - the first, also where the
    // first fell back on its default.
    void (*strategy_u16)(const uint16_t* values, int stride, int actions, int hands,
                         float* const* out, std::span<const float> defaults);

    // f32 regret update of one action row: with d = action - node, the row
    // grows by sign(d) |d|^0.75 and is clamped to 0 below the smallest normal.
    // A null `action` row is all zeros. Hands whose `frozen` byte is non-zero
    // keep their value.
    void (*update_f32)(float* row, const float* action, const float* node, int hands,
                       const uint8_t* frozen);

    // 16-bit regret update in units of 1/scale: gain = scale^0.75 and
    // threshold = 1/scale (see u16_update_factors). Gains wrap in 16 bits,
    // losses clamp at 0, differences within a unit are dropped.
    void (*update_u16)(uint16_t* row, const float* action, const float* node, int hands,
                       const uint8_t* frozen, float gain, float threshold);

    // sums[h] += strategy[h] * (weight * reach[h]) for the hands not frozen.
    void (*add_strategy_f32)(float* sums, const float* strategy, const float* reach,
                             float weight, int hands, const uint8_t* frozen);
};

extern const RowKernels scalar_row_kernels;
extern const RowKernels avx2_row_kernels;  // only on a processor with AVX2

// The kernels for this processor (see avx2_runs), chosen once.
const RowKernels& row_kernels();

struct U16UpdateFactors {
    float gain;       // scale^0.75
    float threshold;  // 1 / scale
};
U16UpdateFactors u16_update_factors(double scale);

// Replaces each run of tied hands in a 16-bit row by the run's truncated
// integer mean. A run length below 1 pools nothing and moves the position by
// that length (never before the row's start); runs past the row's end are cut.
// Hands whose `frozen` byte is not 0 keep their value and stay out of the mean.
void pool_tied_hands(uint16_t* row, int hands, std::span<const int16_t> runs, const uint8_t* frozen);

// Runs `rule(h)` for every hand whose `frozen` byte is 0, all hands without a
// mask. The mask is looked at once per row: without one the loop has no test.
template <class Rule>
inline void each_unfrozen_hand(int first, int hands, const uint8_t* frozen, Rule rule) {
    if (!frozen) {
        for (int h = first; h < hands; ++h) rule(h);
        return;
    }
    for (int h = first; h < hands; ++h)
        if (!frozen[h]) rule(h);
}

// Float to int32 the way the vector conversion does it: toward zero, and
// 0x80000000 for NaN and anything outside the int32 range. The scalar paths
// use it so that they agree with the vector paths on every input.
inline int32_t truncate_to_int32(float value) {
    // -2^31 and 2^31 are exact floats; everything strictly between truncates in range.
    if (!(value >= -2147483648.0f && value < 2147483648.0f)) return INT32_MIN;
    return static_cast<int32_t>(value);
}
