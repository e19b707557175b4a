// The stores' rules written out plainly, value by value, for the tests of the
// store classes: regret updates in f32 and in 16-bit units, tie pooling,
// strategy sums, regret matching and the normalisation of sums. Nothing here
// uses the stores' own kernels.
#pragma once

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <memory>
#include <random>
#include <span>
#include <vector>

#include "storage/storage.h"

namespace store_rules {

using Rows = std::vector<std::vector<float>>;  // rows[a][h]
using Row = std::vector<uint32_t>;

constexpr float smallest_normal = 1.1754944e-38f;

// float -> int32 as the processor converts: out of range gives INT32_MIN.
inline int32_t truncated(float value) {
    if (!(value >= -2147483648.0f && value < 2147483648.0f)) return INT32_MIN;
    return static_cast<int32_t>(value);
}

// An f32 regret grows by sign(d) |d|^0.75 and stays at or above 0.
inline float f32_regret(float old, float d) {
    const float root = std::sqrt(std::fabs(d));
    const float next = old + (d < 0 ? -1.0f : 1.0f) * root * std::sqrt(root);
    return next < smallest_normal ? 0.0f : next;
}

// A 16-bit regret in units of 1/scale, `gain` being scale^0.75: gains wrap at
// 16 bits, losses stop at 0, differences under the threshold are dropped.
inline uint32_t word_regret(uint32_t old, float d, float gain, float threshold) {
    const float e = std::fabs(d);
    const int32_t units = truncated(gain * std::sqrt(e) * std::sqrt(std::sqrt(e)));
    if (d >= threshold) return (old + uint32_t(units)) & 0xffff;
    if (d <= -threshold) return uint32_t(std::max<int64_t>(int64_t(old) - units, 0));
    return old;
}

// Runs of tied hands take the truncated mean of their hands; a run below 1
// steps back by its length. Frozen hands stay as they are and out of the mean.
template <class T>
void pool_ties(std::vector<T>& row, std::span<const int16_t> runs, const uint8_t* frozen) {
    int at = 0;
    for (const int run : runs) {
        if (run < 1) {
            at = std::max(at + run, 0);
            continue;
        }
        const int end = std::min(at + run, int(row.size()));
        int64_t total = 0, count = 0;
        for (int h = at; h < end; ++h)
            if (!(frozen && frozen[h])) total += int64_t(row[h]), ++count;
        for (int h = at; h < end; ++h)
            if (count > 0 && !(frozen && frozen[h])) row[h] = T(total / count);
        at += run;
    }
}

// An integer strategy sum gains weight * reach * strategy, rounded.
inline uint32_t integer_sum(uint32_t old, float strategy, float weight, float reach) {
    return uint32_t(truncated(0.5f + strategy * (weight * reach) + float(old)));
}

// Regret matching with per-action defaults for hands without a usable sum.
inline Rows regret_matching(const Rows& values, const std::vector<float>& defaults) {
    Rows result = values;
    for (size_t h = 0; h < values[0].size(); ++h) {
        float sum = 0;
        for (const auto& row : values) sum += row[h];
        for (size_t a = 0; a < values.size(); ++a)
            result[a][h] = sum >= smallest_normal ? values[a][h] / sum : defaults[a];
    }
    return result;
}

// Regret matching on integer rows: with two actions the second is what the
// first leaves.
inline std::vector<float> integer_regret_matching(const std::vector<Row>& rows, int h, const std::vector<float>& defaults) {
    uint32_t sum = 0;
    for (const Row& row : rows) sum += row[h];
    std::vector<float> result(rows.size());
    for (size_t a = 0; a < rows.size(); ++a) result[a] = sum > 0 ? float(rows[a][h]) / float(sum) : defaults[a];
    if (rows.size() == 2) result[1] = 1.0f - result[0];
    return result;
}

// Normalised integer sums: an unusable sum gives 1/A with defaults, 0 without.
inline std::vector<float> normalised_sums(const std::vector<Row>& rows, int h, bool defaults_given) {
    uint32_t sum = 0;
    for (const Row& row : rows) sum += row[h];
    std::vector<float> result(rows.size());
    for (size_t a = 0; a < rows.size(); ++a) {
        if (float(sum) >= smallest_normal) result[a] = float(rows[a][h]) / float(sum);
        else result[a] = defaults_given ? 1.0f / float(rows.size()) : 0.0f;
    }
    return result;
}

// Rows with the pointer array the stores take.
struct Table {
    Rows rows;
    std::vector<float*> pointers;

    explicit Table(Rows values) : rows(std::move(values)) {
        for (auto& row : rows) pointers.push_back(row.data());
    }
};

inline Rows read(const Storage& storage, int actions, int group, int row, std::vector<float> defaults) {
    Table table(Rows(actions, std::vector<float>(storage.row_length(group, row), -1.0f)));
    storage.read_strategy(table.pointers.data(), group, row, defaults);
    return table.rows;
}

inline void set_mask(LockRecord& record, const std::vector<uint8_t>& mask) {
    record.flags |= lock_flag_mask;
    record.lock_mask = std::make_unique<uint8_t[]>(mask.size());
    std::copy(mask.begin(), mask.end(), record.lock_mask.get());
    record.lock_mask_length = int(mask.size());
}

inline Rows random_rows(std::mt19937& random, int actions, int hands, float low, float high) {
    std::uniform_real_distribution<float> pick(low, high);
    Rows rows(actions, std::vector<float>(hands));
    for (auto& row : rows)
        for (float& v : row) v = pick(random);
    return rows;
}

}  // namespace store_rules
