// Throughput of the block row code on one core, in MB/s of raw rows (the
// bytes of the rows as given, before coding), and the compression ratio.
//
// Synthetic rows stand for one group's pass of a river node: 144 rows (48
// river cards × 3 actions) of 1081 hands (a full range on a river board).
// Values come in runs, since neighbouring hands in memory order tend to play
// alike; run lengths are geometric with mean 8.
//   16-bit regrets:       a run is zero with probability 0.7, else each of
//                         its values is 2^U(0,16) truncated (log-uniform over
//                         1..65535).
//   32-bit strategy sums: a run is zero with probability 0.4, else each value
//                         is 2^U(0,24) truncated.
// Each figure is the median of 9 runs of about 0.2 s each, timed by the
// thread's processor time so that other processes on a shared machine do not
// count against it.
#include <time.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <random>
#include <vector>

#include "bench_timing.h"
#include "shell/protocol/processor.h"
#include "storage/codes/block_row_code.h"

namespace {

constexpr int row_count = 144;
constexpr int hands = 1081;
constexpr int runs = 9;
constexpr double run_seconds = 0.2;

template <class T>
std::vector<std::vector<T>> make_rows(double zero_probability, double top_bits, std::mt19937& random) {
    std::uniform_real_distribution<double> unit(0.0, 1.0);
    std::geometric_distribution<int> run_length(1.0 / 8.0);
    std::vector<std::vector<T>> rows(row_count, std::vector<T>(hands));
    for (auto& row : rows) {
        for (int h = 0; h < hands;) {
            const int end = std::min(hands, h + 1 + run_length(random));
            const bool zero = unit(random) < zero_probability;
            for (; h < end; ++h) row[h] = zero ? 0 : static_cast<T>(std::exp2(unit(random) * top_bits));
        }
    }
    return rows;
}


volatile uint32_t sink;

template <class T>
void bench_width(const char* label, const BlockRowCodec& codec, const std::vector<std::vector<T>>& rows) {
    auto encode = [&](const T* row, uint8_t* out) {
        if constexpr (sizeof(T) == 2) return codec.encode16(row, hands, out);
        else return codec.encode32(row, hands, out);
    };
    auto decode = [&](const uint8_t* in, const uint8_t* end, T* row) {
        if constexpr (sizeof(T) == 2) return codec.decode16(in, end, hands, row);
        else return codec.decode32(in, end, hands, row);
    };

    std::vector<uint8_t> stream(static_cast<size_t>(row_count) * block_row_bound(hands, sizeof(T)));
    size_t coded = 0;
    const double raw = static_cast<double>(row_count) * hands * sizeof(T);
    const double encode_rate = median_rate(
        [&] {
            coded = 0;
            for (const auto& row : rows) coded += encode(row.data(), stream.data() + coded);
        },
        raw, runs, run_seconds);

    std::vector<T> out(hands);
    const double decode_rate = median_rate(
        [&] {
            const uint8_t* at = stream.data();
            const uint8_t* end = stream.data() + coded;
            for (int r = 0; r < row_count; ++r) {
                at += decode(at, end, out.data());
                sink = out[r % hands];
            }
        },
        raw, runs, run_seconds);

    // The bench is only worth its figures if the rows come back.
    const uint8_t* at = stream.data();
    for (const auto& row : rows) {
        at += decode(at, stream.data() + coded, out.data());
        if (out != row) {
            std::printf("%s %s: rows do not round-trip\n", label, codec.name);
            return;
        }
    }
    std::printf("%-22s %-7s encode %7.0f MB/s   decode %7.0f MB/s   ratio %5.2f\n", label, codec.name, encode_rate,
                decode_rate, raw / static_cast<double>(coded));
}

}  // namespace

int main() {
    std::mt19937 random(2024);
    const auto regrets = make_rows<uint16_t>(0.7, 16.0, random);
    const auto sums = make_rows<uint32_t>(0.4, 24.0, random);
    std::printf("block row code, %d rows of %d values, one core (thread time), median of %d runs\n", row_count, hands, runs);
    std::vector<const BlockRowCodec*> codecs = {&scalar_block_row_codec};
    if (avx2_runs()) codecs.push_back(&avx2_block_row_codec);
    for (const BlockRowCodec* codec : codecs) bench_width("16-bit regrets", *codec, regrets);
    for (const BlockRowCodec* codec : codecs) bench_width("32-bit strategy sums", *codec, sums);
    return 0;
}
