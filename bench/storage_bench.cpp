// Memory and speed of the river stores on one core.
//
// One player's chain of 4 river nodes of 3 actions over 8 turn groups of 46
// river rows; a row has 1000 + U(0, 81) hands (a range of about a thousand
// live combos on a river board). Values come in runs, since neighbouring hands
// in memory order tend to play alike; run lengths are geometric with mean 8,
// rows are drawn independently (so the entropy coder's previous-row form gains
// nothing, the pessimistic case):
//   16-bit regrets:       a run is zero with probability 0.7, else each of
//                         its values is 2^U(0,16) truncated.
//   32-bit strategy sums: a run is zero with probability 0.4, else each of
//                         its values is 2^U(0,B) truncated, for B = 16 (a
//                         young solve) and B = 24 (a long one).
// Bytes per value are the bytes a store holds for its rows (coded stream
// bytes, or blocks with their padding) over the values, padding excluded.
// Open/close throughput is values per second through one group visit of the
// whole chain: open_group on every node, end_read, close_group (modified) on
// every node, end_write. Reads are read_strategy calls over every row. Figures
// are medians of 5 runs of about 0.2 s, timed by the thread's processor time.
#include <time.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <memory>
#include <random>
#include <vector>

#include "bench_timing.h"
#include "storage/arena_storage.h"
#include "storage/block_row_stream.h"
#include "storage/entropy_row_stream.h"
#include "storage/packed_storage.h"
#include "storage/widening_storage.h"

namespace {

constexpr int node_count = 4;
constexpr int action_count = 3;
constexpr int group_count = 8;
constexpr int rows_per_group = 46;
constexpr int runs = 5;
constexpr double run_seconds = 0.2;


RowLayout make_layout(std::mt19937& random) {
    std::vector<std::vector<int>> hands(group_count, std::vector<int>(rows_per_group));
    for (auto& group : hands)
        for (int& count : group) count = 1000 + int(random() % 82);
    std::vector<std::span<const int>> groups(hands.begin(), hands.end());
    return make_row_layout(action_count, groups);
}

// Fills `count` values by the run model of the header.
template <class T>
void fill_runs(T* row, int count, double zero_probability, double top_bits, std::mt19937& random) {
    std::uniform_real_distribution<double> unit(0.0, 1.0);
    std::geometric_distribution<int> run_length(1.0 / 8.0);
    for (int h = 0; h < count;) {
        const int end = std::min(count, h + 1 + run_length(random));
        const bool zero = unit(random) < zero_probability;
        for (; h < end; ++h) row[h] = zero ? 0 : static_cast<T>(std::exp2(unit(random) * top_bits));
    }
}

struct Distribution {
    const char* name;
    bool narrow;
    double zero_probability;
    double top_bits;
};

volatile float sink;

double read_rate(const std::vector<std::unique_ptr<Storage>>& nodes, const RowLayout& layout) {
    std::vector<float> out(action_count * 1088);
    float* rows[action_count] = {out.data(), out.data() + 1088, out.data() + 2 * 1088};
    const std::vector<float> defaults(action_count, 1.0f / action_count);
    return median_rate(
        [&] {
            for (int g = 0; g < group_count; ++g)
                for (auto& node : nodes)
                    for (int r = 0; r < rows_per_group; ++r) node->read_strategy(rows, g, r, defaults);
            sink = out[0];
        },
        double(layout.value_count) * node_count, runs, run_seconds);
}

// A chain of packed stores over one stream per group, made here with room
// for any coded size, so that the figures show whether the class's own
// reserve would hold.
void bench_packed(int mode, const Distribution& data, const RowLayout& layout, std::mt19937& random) {
    std::vector<std::unique_ptr<Storage>> nodes;
    for (int n = 0; n < node_count; ++n) nodes.push_back(std::make_unique<PackedStorage>(&layout, mode, data.narrow));
    const int value_bytes = data.narrow ? 2 : 4;
    std::vector<std::unique_ptr<RowStream>> streams;
    int64_t reserve_values = 0;
    for (auto& node : nodes) reserve_values += node->value_count(0);
    for (int g = 0; g < group_count; ++g) {
        const int64_t generous = (8 * reserve_values + 16383) & ~int64_t{16383};
        if (mode == 1) {
            streams.push_back(std::make_unique<BlockRowStream>(block_stream_reserve_limit(generous, value_bytes)));
        } else {
            streams.push_back(std::make_unique<EntropyRowStream>(entropy_stream_reserve_limit(generous)));
        }
    }

    // First visit: fill the open rows, close and code them.
    int64_t largest_reserve = 0;
    bool fits = true;
    int64_t coded = 0;
    for (int g = 0; g < group_count; ++g) {
        int64_t group_values = 0;
        for (auto& node : nodes) group_values += node->value_count(g);
        RowStream* stream = streams[g].get();
        for (auto& node : nodes) {
            auto& packed = static_cast<PackedStorage&>(*node);
            packed.open_group(stream, g, group_values);
            for (int r = 0; r < rows_per_group; ++r) {
                const int hands = packed.row_length(g, r);
                for (int a = 0; a < action_count; ++a) {
                    if (data.narrow) {
                        fill_runs(packed.open_row16(g, r) + a * row_stride(hands), hands, data.zero_probability,
                                  data.top_bits, random);
                    } else {
                        fill_runs(packed.open_row32(g, r) + a * row_stride(hands), hands, data.zero_probability,
                                  data.top_bits, random);
                    }
                }
            }
        }
        stream->begin_write();
        for (auto& node : nodes) node->close_group(stream, g, true);
        stream->end_write();
        const int64_t bytes =
            mode == 1 ? static_cast<BlockRowStream*>(stream)->block.logical : static_cast<EntropyRowStream*>(stream)->block.logical;
        const int64_t own_reserve = mode == 1 ? block_stream_reserve_limit(group_values, value_bytes)
                                              : entropy_stream_reserve_limit(group_values);
        largest_reserve = std::max(largest_reserve, own_reserve);
        fits = fits && bytes <= own_reserve;
        coded += bytes;
    }
    const double values = double(layout.value_count) * node_count;

    const double cycle = median_rate(
        [&] {
            for (int g = 0; g < group_count; ++g) {
                // The stream is handed in, so no reserve figure is needed.
                RowStream* stream = streams[g].get();
                if (stream->has_data()) stream->begin_read();
                for (auto& node : nodes) node->open_group(stream, g, 0);
                stream->end_read();
                stream->begin_write();
                for (auto& node : nodes) node->close_group(stream, g, true);
                stream->end_write();
            }
        },
        values, runs, run_seconds);

    // Reads through open groups; the rows stay as they are.
    for (int g = 0; g < group_count; ++g) {
        if (streams[g]->has_data()) streams[g]->begin_read();
        for (auto& node : nodes) node->open_group(streams[g].get(), g, 0);
        streams[g]->end_read();
    }
    const double reads = read_rate(nodes, layout);
    for (int g = 0; g < group_count; ++g)
        for (auto& node : nodes) node->close_group(streams[g].get(), g, false);

    std::printf("%-9s %-24s %6.3f B/value  %-17s  open+close %7.1f Mvalues/s  read %7.1f Mvalues/s\n",
                mode == 1 ? "packed-1" : "packed-2", data.name, double(coded) / values,
                fits ? "within reserve" : "EXCEEDS reserve", cycle, reads);
}

// Flat and widening stores: no open/close work; bytes are their blocks.
// A widening store is benched with all groups narrow or all wide.
template <class Store>
void bench_plain(const char* label, const Distribution& data, const RowLayout& layout, std::mt19937& random,
                 double bytes_per_padded_value, bool wide = false) {
    std::vector<std::unique_ptr<Storage>> nodes;
    for (int n = 0; n < node_count; ++n) {
        nodes.push_back(std::make_unique<Store>(&layout));
        nodes.back()->open();
    }
    std::vector<float> row(1088);
    std::vector<uint32_t> values(1088);
    const std::vector<float> full_reach(1088, 1.0f);
    const float* no_strategy[action_count] = {};
    for (auto& node : nodes) {
        for (int g = 0; g < group_count; ++g) {
            // One update whose weighted reach passes 16 bits turns a group wide.
            if (wide) node->add_strategy(g, 0, no_strategy, full_reach.data(), 70000.0f);
            for (int r = 0; r < rows_per_group; ++r) {
                const int hands = node->row_length(g, r);
                for (int a = 0; a < action_count; ++a) {
                    fill_runs(values.data(), hands, data.zero_probability, data.top_bits, random);
                    for (int h = 0; h < hands; ++h) row[h] = float(values[h]);
                    node->write_row(g, r, a, row.data());
                }
            }
        }
    }
    const double bytes = bytes_per_padded_value * layout.padded_values / double(layout.value_count);
    std::printf("%-9s %-24s %6.3f B/value  %-17s  open+close      no-op            read %7.1f Mvalues/s\n",
                label, data.name, bytes, wide ? "(all groups wide)" : "", read_rate(nodes, layout));
}

// When a widening group turns wide: one row of 1000 hands whose largest
// reach is `reach`, summed with the walk's weights min(262143, (t - 60)^1.5)
// up to the level's ceiling of 2200 iterations.
void widening_schedule() {
    const std::vector<int> hands = {1000};
    const std::vector<std::span<const int>> groups = {hands};
    const RowLayout layout = make_row_layout(2, groups);
    std::printf("\nwidening store, one row of 1000 hands, strategy 1 on one action, weights of the walk to 2200:\n");
    for (const float reach : {1.0f, 0.1f, 0.01f, 0.001f, 0.0005f}) {
        WideningStorage store(&layout);
        store.open();
        const std::vector<float> reaches(1000, reach), one(1000, 1.0f), zero(1000, 0.0f);
        const float* strategy[2] = {one.data(), zero.data()};
        int widened_at = -1;
        for (int t = 1; t <= 2200; ++t) {
            const float weight = float(std::min(262143.0, std::pow(std::max(t - 60, 0), 1.5)));
            store.add_strategy(0, 0, strategy, reaches.data(), weight);
            if (widened_at < 0 && store.group_wide(0)) widened_at = t;
        }
        std::printf("  largest reach %-7g wide from iteration %5d   final sum %9u%s\n", reach, widened_at,
                    store.value(0, 0, 0, 0),
                    store.value(0, 0, 0, 0) == WideningStorage::wide_ceiling ? " (held at the 24-bit ceiling)" : "");
    }
}

}  // namespace

int main() {
    std::mt19937 random(2024);
    const RowLayout layout = make_layout(random);
    std::printf("river stores: %d nodes x %d actions x %d groups x %d rows, %d values per node, one core\n\n",
                node_count, action_count, group_count, rows_per_group, layout.value_count);
    const Distribution regrets = {"regrets 16-bit", true, 0.7, 16.0};
    const Distribution young = {"sums 32-bit, B=16", false, 0.4, 16.0};
    const Distribution old = {"sums 32-bit, B=24", false, 0.4, 24.0};
    bench_plain<WordArenaStorage>("word", regrets, layout, random, 2.0);
    bench_packed(1, regrets, layout, random);
    bench_packed(2, regrets, layout, random);
    for (const Distribution* sums : {&young, &old}) {
        bench_plain<FloatArenaStorage>("float", *sums, layout, random, 4.0);
        bench_plain<WideningStorage>("widening", *sums, layout, random, sums == &young ? 2.0 : 3.0, sums == &old);
        bench_packed(1, *sums, layout, random);
        bench_packed(2, *sums, layout, random);
    }
    widening_schedule();
    return 0;
}
