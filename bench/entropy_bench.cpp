// Throughput and compression of entropy-coded row streams on one core.
//
// Synthetic river groups stand in for a solve (stated in the output): per
// group, 3 actions × 46 river cards, 1081 hands a row, about a third of the
// hands out of range (zero in every row, in runs as hand order clusters
// them). Regret rows (16-bit): 75 % of live hands 0, the rest log-uniform in
// [1, 4096). Strategy-sum rows (32-bit): 40 % of live hands 0, the rest
// log-uniform in [1, 2^20). A value repeats for the next hand with
// probability 1/2, and each river row is the previous river card's row with
// every value moved by up to ±5 %.
//
// Figures are in MB/s (10^6 bytes) of raw rows: 2 bytes a value for regrets,
// 4 for strategy sums, per second of the thread's processor time. Each
// figure is the median of several runs.
#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <memory>
#include <random>
#include <ctime>
#include <vector>

#include "bench_timing.h"
#include "storage/entropy_row_stream.h"

namespace {

constexpr int actions = 3;
constexpr int river_cards = 46;
constexpr int hands = 1081;
constexpr int groups = 12;
constexpr int runs = 7;

struct Distribution {
    const char* name;
    double zero_share;
    double largest;
};

constexpr Distribution regrets{"regrets, 16-bit", 0.75, 4095};
constexpr Distribution strategy{"strategy sums, 32-bit", 0.40, 1 << 20};

// Rows of one group in stream order: for each action, the river cards in turn.
std::vector<std::vector<uint32_t>> make_group(std::mt19937& random, const Distribution& d) {
    std::uniform_real_distribution<double> unit(0.0, 1.0);
    std::vector<bool> live(hands);
    bool state = true;
    for (int h = 0; h < hands; ++h) {
        // Runs of live and dead hands, a third dead on average.
        if (unit(random) < (state ? 0.05 : 0.1)) state = !state;
        live[static_cast<size_t>(h)] = state;
    }
    std::vector<std::vector<uint32_t>> rows;
    for (int a = 0; a < actions; ++a) {
        std::vector<uint32_t> row(hands);
        uint32_t current = 0;
        for (int h = 0; h < hands; ++h) {
            if (unit(random) < 0.5) {
                current = unit(random) < d.zero_share ? 0 : static_cast<uint32_t>(std::exp(unit(random) * std::log(d.largest)));
            }
            row[static_cast<size_t>(h)] = live[static_cast<size_t>(h)] ? current : 0;
        }
        for (int r = 0; r < river_cards; ++r) {
            for (auto& v : row) {
                if (v) v = static_cast<uint32_t>(std::clamp(v * (0.95 + 0.1 * unit(random)), 1.0, d.largest));
            }
            rows.push_back(row);
        }
    }
    return rows;
}

double median(std::vector<double> values) {
    std::sort(values.begin(), values.end());
    return values[values.size() / 2];
}

// Processor time of this thread: the machine may be shared, and time spent
// waiting for a core is not the coder's.

template <class Value>
void measure(const Distribution& d) {
    std::mt19937 random(2024);
    std::vector<std::vector<std::vector<Value>>> data;
    for (int g = 0; g < groups; ++g) {
        std::vector<std::vector<Value>> rows;
        for (const auto& row : make_group(random, d)) rows.emplace_back(row.begin(), row.end());
        data.push_back(std::move(rows));
    }
    const int64_t values_per_group = int64_t{actions} * river_cards * hands;
    std::vector<std::unique_ptr<EntropyRowStream>> streams;
    for (int g = 0; g < groups; ++g) {
        streams.push_back(std::make_unique<EntropyRowStream>(entropy_stream_reserve_limit(values_per_group)));
    }

    const double raw_bytes = static_cast<double>(groups * values_per_group * static_cast<int64_t>(sizeof(Value)));
    std::vector<double> encode, decode;
    std::vector<Value> back(hands * actions * river_cards);
    int64_t coded_bytes = 0;
    uint64_t previous_row_rows = 0;
    bool exact = true;
    for (int run = 0; run < runs; ++run) {
        double start = thread_seconds();
        for (int g = 0; g < groups; ++g) {
            EntropyRowStream& stream = *streams[static_cast<size_t>(g)];
            const auto& rows = data[static_cast<size_t>(g)];
            stream.begin_write();
            for (size_t r = 0; r < rows.size(); ++r) {
                const Value* previous = r % river_cards ? rows[r - 1].data() : nullptr;
                if constexpr (sizeof(Value) == 2) {
                    stream.put_row16(rows[r].data(), previous, hands);
                } else {
                    stream.put_row32(rows[r].data(), previous, hands);
                }
            }
            stream.end_write();
        }
        encode.push_back(raw_bytes / (thread_seconds() - start) / 1e6);

        start = thread_seconds();
        for (int g = 0; g < groups; ++g) {
            EntropyRowStream& stream = *streams[static_cast<size_t>(g)];
            stream.begin_read();
            for (size_t r = 0; r < data[static_cast<size_t>(g)].size(); ++r) {
                Value* row = back.data() + r * hands;
                const Value* previous = r % river_cards ? row - hands : nullptr;
                if constexpr (sizeof(Value) == 2) {
                    stream.get_row16(row, previous, hands);
                } else {
                    stream.get_row32(row, previous, hands);
                }
            }
            stream.end_read();
            for (size_t r = 0; r < data[static_cast<size_t>(g)].size(); ++r) {
                exact = exact && std::equal(data[static_cast<size_t>(g)][r].begin(), data[static_cast<size_t>(g)][r].end(),
                                            back.begin() + static_cast<int64_t>(r * hands));
            }
        }
        decode.push_back(raw_bytes / (thread_seconds() - start) / 1e6);
    }
    int64_t zeros = 0;
    for (const auto& group : data) {
        for (const auto& row : group) zeros += std::count(row.begin(), row.end(), Value{0});
    }
    for (const auto& stream : streams) {
        coded_bytes += stream->block.logical;
        previous_row_rows += stream->statistics.previous_row_rows;
    }
    printf("%s: %d groups of %d rows × %d values, %.1f%% zeros\n", d.name, groups, actions * river_cards, hands,
           100.0 * static_cast<double>(zeros) / static_cast<double>(groups * values_per_group));
    printf("  raw %.2f MB, coded %.3f MB, ratio %.2f, rows coded against the previous row %.0f%%\n", raw_bytes / 1e6,
           static_cast<double>(coded_bytes) / 1e6, raw_bytes / static_cast<double>(coded_bytes),
           100.0 * static_cast<double>(previous_row_rows) / (groups * actions * river_cards));
    printf("  encode %.0f MB/s, decode %.0f MB/s (thread time, median of %d runs)%s\n", median(encode), median(decode), runs,
           exact ? "" : "  ROWS DIFFER");
}

}  // namespace

int main() {
    printf("entropy row stream, one thread\n");
    measure<uint16_t>(regrets);
    measure<uint32_t>(strategy);
    return 0;
}
