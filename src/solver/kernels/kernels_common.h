// Pieces that every implementation of the evaluation kernels shares: what
// counts as reach, how a hand's cards are unpacked, and the record of one run
// of the showdown sweep. Plain code only, no vector instructions, so the AVX2
// and AVX-512 files can use it from functions of any target.
#pragma once

#include <cstdint>
#include <cstring>

#include "solver/kernels/kernels.h"
#include "storage/codes/row_kernels.h"

namespace kernel_rules {

// Below the smallest normal f32 a reach counts as zero: with flush-to-zero on
// such numbers would vanish anyway, and the kernels must agree with or
// without it.
inline bool has_reach(float reach) { return reach >= smallest_normal_f32; }

inline int low_card(uint16_t cards) { return cards & 0xFF; }
inline int high_card(uint16_t cards) { return cards >> 8; }

// One record of the sweep: a strength group with live hands, or a run of
// groups without any. A live record's hands sit at [live_first, live_first +
// live) of the live arrays; its list hands are the next `hands` of the list.
struct SweepRecord {
    uint16_t live;
    uint16_t hands;
};

// Appends `hands` list hands without live ones: runs of dead groups collapse
// into one record.
inline void add_empty_group(SweepRecord* records, int& record_count, int hands) {
    if (record_count > 0 && records[record_count - 1].live == 0) {
        records[record_count - 1].hands = static_cast<uint16_t>(records[record_count - 1].hands + hands);
        return;
    }
    records[record_count++] = {0, static_cast<uint16_t>(hands)};
}

inline bool fill_zeros(float* out, int count) {
    if (count > 0) std::memset(out, 0, static_cast<size_t>(count) * sizeof(float));
    return false;
}

inline bool fill_zeros(float* const* outs, int width, int count) {
    for (int lane = 0; lane < width; ++lane) fill_zeros(outs[lane], count);
    return false;
}

}  // namespace kernel_rules
