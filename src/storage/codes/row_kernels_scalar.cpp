// Scalar reference of the row kernels, and the run-time choice between them.
#include <algorithm>
#include <cmath>

#include "shell/protocol/processor.h"
#include "storage/codes/row_kernels.h"
#include "storage/codes/row_kernels_hand.h"

namespace {

void strategy_f32_scalar(const float* values, int stride, int actions, int hands,
                         float* const* out, std::span<const float> defaults) {
    for (int h = 0; h < hands; ++h) row_rules::strategy_f32(values, stride, actions, h, out, defaults);
}

void strategy_u16_scalar(const uint16_t* values, int stride, int actions, int hands,
                         float* const* out, std::span<const float> defaults) {
    if (actions == 2) {
        const float first_default = row_rules::default_of(defaults, 0);
        for (int h = 0; h < hands; ++h) row_rules::strategy_u16_pair(values, stride, h, out, first_default);
        return;
    }
    for (int h = 0; h < hands; ++h) row_rules::strategy_u16(values, stride, actions, h, out, defaults);
}

void update_f32_scalar(float* row, const float* action, const float* node, int hands,
                       const uint8_t* frozen) {
    each_unfrozen_hand(0, hands, frozen, [&](int h) { row_rules::update_f32(row, action, node, h); });
}

void update_u16_scalar(uint16_t* row, const float* action, const float* node, int hands,
                       const uint8_t* frozen, float gain, float threshold) {
    each_unfrozen_hand(0, hands, frozen, [&](int h) { row_rules::update_u16(row, action, node, h, gain, threshold); });
}

void add_strategy_f32_scalar(float* sums, const float* strategy, const float* reach, float weight,
                             int hands, const uint8_t* frozen) {
    each_unfrozen_hand(0, hands, frozen, [&](int h) { row_rules::add_strategy(sums, strategy, reach, weight, h); });
}

}  // namespace

const RowKernels scalar_row_kernels = {
    strategy_f32_scalar, strategy_u16_scalar, update_f32_scalar, update_u16_scalar, add_strategy_f32_scalar,
};

const RowKernels& row_kernels() {
    static const RowKernels& chosen = avx2_runs() ? avx2_row_kernels : scalar_row_kernels;
    return chosen;
}

U16UpdateFactors u16_update_factors(double scale) {
    const double root = std::sqrt(scale);
    return {static_cast<float>(root * std::sqrt(root)), static_cast<float>(1.0 / scale)};
}

namespace {

// The runs of a row, each as [first, end) within the row.
template <class Pool>
void for_each_run(int hands, std::span<const int16_t> runs, Pool pool) {
    int position = 0;
    for (const int16_t run : runs) {
        if (run < 1) {
            position = std::max(position + run, 0);
            continue;
        }
        const int end = std::min(position + run, hands);
        if (position < end) pool(position, end);
        position += run;
    }
}

}  // namespace

void pool_tied_hands(uint16_t* row, int hands, std::span<const int16_t> runs, const uint8_t* frozen) {
    if (!frozen) {
        for_each_run(hands, runs, [&](int first, int end) {
            uint32_t sum = 0;
            for (int h = first; h < end; ++h) sum += row[h];
            std::fill(row + first, row + end, static_cast<uint16_t>(sum / uint32_t(end - first)));
        });
        return;
    }
    // Frozen hands neither give to the mean nor take it.
    for_each_run(hands, runs, [&](int first, int end) {
        uint32_t sum = 0, count = 0;
        for (int h = first; h < end; ++h) {
            if (frozen[h]) continue;
            sum += row[h];
            ++count;
        }
        if (count == 0) return;
        const auto mean = static_cast<uint16_t>(sum / count);
        for (int h = first; h < end; ++h)
            if (!frozen[h]) row[h] = mean;
    });
}
