// The rules of the row kernels for one hand. The scalar kernels are loops over
// these, and the vector kernels finish their rows' tails with them, so a tail
// is computed exactly as the reference computes it.
#pragma once

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <span>

#include "storage/codes/row_kernels.h"

namespace row_rules {

inline float default_of(std::span<const float> defaults, int action) {
    return action < static_cast<int>(defaults.size()) ? defaults[action] : 0.0f;
}

inline void strategy_f32(const float* values, int stride, int actions, int h, float* const* out,
                         std::span<const float> defaults) {
    float sum = 0.0f;
    for (int a = 0; a < actions; ++a) sum += values[a * stride + h];
    if (sum >= smallest_normal_f32) {
        for (int a = 0; a < actions; ++a) out[a][h] = values[a * stride + h] / sum;
    } else {
        for (int a = 0; a < actions; ++a) out[a][h] = default_of(defaults, a);
    }
}

// Two actions: the second is always the rest of the first.
inline void strategy_u16_pair(const uint16_t* values, int stride, int h, float* const* out,
                              float first_default) {
    const int32_t sum = int32_t{values[h]} + values[stride + h];
    const float first = sum > 0 ? float(values[h]) / float(sum) : first_default;
    out[0][h] = first;
    out[1][h] = 1.0f - first;
}

inline void strategy_u16(const uint16_t* values, int stride, int actions, int h, float* const* out,
                         std::span<const float> defaults) {
    int32_t sum = 0;
    for (int a = 0; a < actions; ++a) sum += values[a * stride + h];
    if (sum > 0) {
        const float total = float(sum);
        for (int a = 0; a < actions; ++a) out[a][h] = float(values[a * stride + h]) / total;
    } else {
        for (int a = 0; a < actions; ++a) out[a][h] = default_of(defaults, a);
    }
}

// |d|^0.75 as two square roots, with no power function.
inline float three_quarter_power(float magnitude) {
    const float root = std::sqrt(magnitude);
    return root * std::sqrt(root);
}

inline void update_f32(float* row, const float* action, const float* node, int h) {
    const float d = (action ? action[h] : 0.0f) - node[h];
    float step = three_quarter_power(std::fabs(d));
    if (d < 0.0f) step = -step;
    const float next = row[h] + step;
    row[h] = next < smallest_normal_f32 ? 0.0f : next;
}

inline void update_u16(uint16_t* row, const float* action, const float* node, int h, float gain,
                       float threshold) {
    const float d = (action ? action[h] : 0.0f) - node[h];
    const float root = std::sqrt(std::fabs(d));
    const float step = gain * root * std::sqrt(root);
    if (d >= threshold) {
        // A 16-bit addition: a gain past 65535 wraps, as the stored width does.
        row[h] = static_cast<uint16_t>(uint32_t{row[h]} + uint32_t(truncate_to_int32(step)));
    } else if (d <= -threshold) {
        const int32_t sum = int32_t{row[h]} + truncate_to_int32(-step);
        row[h] = static_cast<uint16_t>(std::max(sum, 0));
    }
}

inline void add_strategy(float* sums, const float* strategy, const float* reach, float weight, int h) {
    sums[h] += strategy[h] * (weight * reach[h]);
}

}  // namespace row_rules
