// Prints the time per hand and leaf of the showdown and fold kernels, at each
// width, for the scalar reference and each vector set this processor runs, on
// river lists of two range shapes. Median of several runs; the reach is that
// of a leaf some streets deep: a share of hands and groups gone, the rest
// scaled by strategies.
#include <xmmintrin.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <random>
#include <string>
#include <vector>

#include "model/cards.h"
#include "model/hand_strength.h"
#include "shell/protocol/cpu_info.h"
#include "shell/protocol/game_setup.h"
#include "solver/kernels/kernels.h"
#include "tree/boards.h"

namespace {

// A suit-symmetric range: one weight per hand class, a share of classes left out.
RangeVector class_range(unsigned seed, double empty_share) {
    std::mt19937 random(seed);
    std::uniform_real_distribution<double> draw(0.0, 1.0);
    RangeVector range{};
    for (int hand_class = 0; hand_class < hand_class_count; ++hand_class) {
        const double weight = draw(random) < empty_share ? 0.0 : draw(random);
        for (const ComboSlot slot : hand_class_slots[hand_class]) range[slot] = weight;
    }
    return range;
}

struct Scenario {
    const char* name;
    RunoutBoard river;
    std::vector<float> node_reach;
    std::vector<std::vector<float>> leaf_reach;  // 8 leaves
    std::vector<uint16_t> mask;
};

Scenario make_scenario(const char* name, const RangeVector& range, double dead_share) {
    auto root = make_boards(parse_cards("Qs8d3c"), make_card(5, 2), make_card(0, 3), false);  // turn 7h, river 2s
    SetHoles(*root, range.data(), range.data());
    Scenario scenario{name, root->turns[0].rivers[0], {}, {}, std::vector<uint16_t>(max_strength_groups)};
    const int count = static_cast<int>(scenario.river.hand_cards.size());
    std::mt19937 random(7);
    std::uniform_real_distribution<float> unit(0.0f, 1.0f);
    for (int h = 0; h < count; ++h) scenario.node_reach.push_back(unit(random) < dead_share ? 0.0f : unit(random));
    for (int leaf = 0; leaf < 8; ++leaf) {
        std::vector<float> reach(count);
        for (int h = 0; h < count; ++h) reach[h] = scenario.node_reach[h] * unit(random);
        scenario.leaf_reach.push_back(std::move(reach));
    }
    fill_group_mask(scenario.mask.data(), scenario.node_reach.data(), scenario.river);
    return scenario;
}

struct Timing {
    double median;
    double best;
};

// Nanoseconds per hand and leaf of `call`, which evaluates `leaves` leaves:
// the median of the runs, and the fastest run, which is the steadier figure
// when other work shares the processor.
template <class Call>
Timing ns_per_hand(Call call, int count, int leaves) {
    constexpr int runs = 15;
    constexpr int calls = 200;
    std::vector<double> times;
    for (int run = 0; run < runs; ++run) {
        const auto start = std::chrono::steady_clock::now();
        for (int k = 0; k < calls; ++k) call();
        const auto stop = std::chrono::steady_clock::now();
        times.push_back(std::chrono::duration<double, std::nano>(stop - start).count() /
                        (static_cast<double>(calls) * count * leaves));
    }
    std::sort(times.begin(), times.end());
    return {times[runs / 2], times[0]};
}

void print_timing(int width, Timing timing) { std::printf("  %d: %5.2f (%5.2f)", width, timing.median, timing.best); }

void measure(const Scenario& scenario, const char* set_name, const EvalKernels& kernels) {
    const int count = static_cast<int>(scenario.river.hand_cards.size());
    const ShowdownList list = showdown_list(scenario.river, scenario.mask.data());
    const uint16_t* cards = scenario.river.hand_cards.data();
    std::vector<std::vector<float>> out_arrays(8, std::vector<float>(count));
    std::vector<float*> outs;
    std::vector<const float*> reaches;
    for (int leaf = 0; leaf < 8; ++leaf) {
        outs.push_back(out_arrays[leaf].data());
        reaches.push_back(scenario.leaf_reach[leaf].data());
    }
    const float payoffs[8] = {3, 5, 7, 9, 11, 13, 15, 17};

    std::printf("  %-7s showdown", set_name);
    for (const int width : {1, 2, 3, 4, 5, 6, 7, 8}) {
        const auto one = [&] { kernels.showdown_1(outs[0], reaches[0], list, payoffs[0]); };
        const auto wide = [&] { kernels.showdown_n[width](outs.data(), reaches.data(), list, payoffs); };
        print_timing(width, width == 1 ? ns_per_hand(one, count, 1) : ns_per_hand(wide, count, width));
    }
    std::printf("\n  %-7s fold    ", set_name);
    for (const int width : {1, 2, 3, 4}) {
        const auto one = [&] { kernels.fold_1(outs[0], reaches[0], count, cards, payoffs[0]); };
        const auto wide = [&] { kernels.fold_n[width](outs.data(), reaches.data(), count, cards, payoffs); };
        print_timing(width, width == 1 ? ns_per_hand(one, count, 1) : ns_per_hand(wide, count, width));
    }
    std::printf("\n  %-7s pair    ", set_name);
    print_timing(1, ns_per_hand([&] { kernels.river_pair(outs[0], outs[1], reaches[0], list, 5, -3); }, count, 2));
    print_timing(2, ns_per_hand([&] { kernels.river_pair_2(outs[0], outs[1], reaches[0], reaches[1], list, 5, -3); },
                                count, 2));
    std::printf("   (pair: 1 reach, 2 reaches)\n");
}

}  // namespace

int main() {
    _mm_setcsr(_mm_getcsr() | 0x8040);  // flush-to-zero and denormals-are-zero, as the solver runs
    init_combo_tables();
    init_hand_strength_tables();
    std::printf("ns per hand and leaf, 'width: median (fastest)' of 15 runs of 200 calls\n");
    const Scenario scenarios[] = {
        make_scenario("full ranges, 30% of reach gone", RangeVector{[] {
                          RangeVector all;
                          all.fill(1.0);
                          return all;
                      }()},
                      0.3),
        make_scenario("class ranges (40% of classes out), 50% of reach gone", class_range(5, 0.4), 0.5),
    };
    for (const Scenario& scenario : scenarios) {
        std::printf("%s: %d hands, %zu strength groups\n", scenario.name,
                    static_cast<int>(scenario.river.hand_cards.size()), scenario.river.strength_groups.size());
        measure(scenario, "scalar", scalar_eval_kernels);
        if (can_run_avx2_kernels()) measure(scenario, "avx2", avx2_eval_kernels);
        if (can_run_avx512_kernels()) measure(scenario, "avx512", avx512_eval_kernels);
    }
    return 0;
}
