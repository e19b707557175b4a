// Every kernel of every instruction set against pairwise sums in double.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <functional>
#include <limits>
#include <map>
#include <random>
#include <string>
#include <tuple>
#include <vector>

#include "reference/boards.h"
#include "shell/protocol/cpu_info.h"
#include "solver/kernels/kernels.h"
#include "tree/boards.h"

namespace {

// A list the kernels run on: a real board's, or a synthetic one with the same
// fields. `rank` is each hand's strength group, for the pairwise sums.
struct TestList {
    std::string name;
    RunoutBoard board;
    std::vector<int> rank;
    bool river = true;  // false: a flop or turn list, for folds only
};

void cut_groups(TestList& list) {
    list.rank.clear();
    for (size_t g = 0; g < list.board.strength_groups.size(); ++g)
        list.rank.insert(list.rank.end(), list.board.strength_groups[g], static_cast<int>(g));
}

TestList real_river(const std::string& flop, const std::string& turn, const std::string& river,
                    const RangeVector& range) {
    auto root = make_boards(parse_cards(flop), card_of(turn), card_of(river), false);
    SetHoles(*root, range.data(), range.data());
    TestList list{flop + turn + river, root->turns[0].rivers[0], {}};
    cut_groups(list);
    return list;
}

// Distinct hands over the first `cards` cards in random order, cut into runs of
// random lengths from `lengths`: ties everywhere and many shared cards.
TestList synthetic_list(unsigned seed, int cards, std::vector<int> lengths) {
    std::mt19937 random(seed);
    TestList list{"synthetic " + std::to_string(cards), {}, {}};
    RunoutBoard& board = list.board;
    for (int hi = 1; hi < cards; ++hi)
        for (int lo = 0; lo < hi; ++lo) board.hand_cards.push_back(static_cast<uint16_t>(lo | hi << 8));
    std::shuffle(board.hand_cards.begin(), board.hand_cards.end(), random);
    const int count = static_cast<int>(board.hand_cards.size());
    for (int first = 0; first < count;) {
        const int length = std::min(count - first, lengths[random() % lengths.size()]);
        const int group = static_cast<int>(board.strength_groups.size());
        board.strength_groups.push_back(static_cast<int16_t>(length));
        if (length > small_group_limit) board.large_groups.push_back({group, first, length});
        else board.small_groups.push_back({group, static_cast<int16_t>(first), static_cast<int16_t>(length),
                                           small_group_lanes(length)});
        first += length;
    }
    cut_groups(list);
    return list;
}

// Real rivers (one that everyone plays), synthetic ones with groups on both
// sides of the small-group limit, and the flop and turn lists, longer than any
// river's.
const std::vector<TestList>& test_lists() {
    static const std::vector<TestList> lists = [] {
        prepare_tables();
        std::vector<TestList> made;
        made.push_back(real_river("2c7dKh", "9s", "Tc", uniform_range(1.0)));
        made.push_back(real_river("5c6d7h", "8s", "9c", class_range(3, 0.3)));
        made.push_back(real_river("2c2d7h", "7s", "Kc", class_range(8, 0.5)));
        made.push_back(real_river("AsKsQs", "Js", "Ts", uniform_range(1.0)));
        made.push_back(synthetic_list(1, 20, {1, 2, 3, 5, 16, 17}));
        made.push_back(synthetic_list(2, 47, {1, 4, 9, 16, 17, 40, 60}));
        auto root = make_boards(parse_cards("3c8dJh"), card_of("4s"), -1, false);
        SetHoles(*root, uniform_range(1.0).data(), uniform_range(1.0).data());
        for (const auto* cards : {&root->hand_cards, &root->turns[0].hand_cards}) {
            TestList longer{cards == &root->hand_cards ? "flop list" : "turn list", {}, {}, false};
            longer.board.hand_cards = *cards;
            longer.rank.assign(cards->size(), 0);
            made.push_back(longer);
        }
        return made;
    }();
    return lists;
}

struct KernelSet {
    const char* name;
    const EvalKernels* kernels;
};

std::vector<KernelSet> runnable_sets() {
    std::vector<KernelSet> sets{{"scalar", &scalar_eval_kernels}};
    if (can_run_avx2_kernels()) sets.push_back({"avx2", &avx2_eval_kernels});
    if (can_run_avx512_kernels()) sets.push_back({"avx512", &avx512_eval_kernels});
    return sets;
}

// Eight reaches below one node reach, in which some hands and whole groups
// (never the largest) are dead, and strategies are sometimes 0.
std::vector<std::vector<float>> random_reaches(const TestList& list, unsigned seed) {
    std::mt19937 random(seed);
    std::uniform_real_distribution<float> unit(0.0f, 1.0f);
    const int count = static_cast<int>(list.rank.size());
    std::vector<int> sizes(list.rank.back() + 1);
    for (const int rank : list.rank) ++sizes[rank];
    const int largest = static_cast<int>(std::max_element(sizes.begin(), sizes.end()) - sizes.begin());
    std::vector<bool> dead_group(sizes.size());
    for (size_t g = 0; g < sizes.size(); ++g) dead_group[g] = int(g) != largest && unit(random) < 0.2f;
    std::vector<float> node(count);
    for (int h = 0; h < count; ++h) node[h] = dead_group[list.rank[h]] || unit(random) < 0.25f ? 0.0f : unit(random);
    std::vector<std::vector<float>> reaches{node};
    for (int leaf = 1; leaf < max_showdown_width; ++leaf) {
        std::vector<float> reach(count);
        for (int h = 0; h < count; ++h) reach[h] = unit(random) < 0.2f ? 0.0f : node[h] * unit(random);
        reaches.push_back(std::move(reach));
    }
    return reaches;
}

// Pairwise sums of one lane in double, and the scale of their rounding: the
// sum of the magnitudes of all terms. A null reach is no reach at all.
struct Pairwise {
    std::vector<double> value;
    double magnitude = 0;
};

Pairwise pairwise(const TestList& list, const float* reach, double payoff, bool showdown) {
    const int count = static_cast<int>(list.rank.size());
    Pairwise result{std::vector<double>(count), 0};
    const auto live = [&](int h) { return reach && reach[h] >= std::numeric_limits<float>::min(); };
    for (int j = 0; j < count; ++j)
        if (live(j)) result.magnitude += std::fabs(payoff * reach[j]);
    for (int i = 0; i < count; ++i) {
        const uint16_t a = list.board.hand_cards[i];
        for (int j = 0; j < count; ++j) {
            const uint16_t b = list.board.hand_cards[j];
            if ((a & 0xFF) == (b & 0xFF) || (a & 0xFF) == (b >> 8) || (a >> 8) == (b & 0xFF) || (a >> 8) == (b >> 8))
                continue;
            if (!live(j)) continue;
            const int sign = showdown ? (list.rank[i] > list.rank[j]) - (list.rank[i] < list.rank[j]) : 1;
            result.value[i] += sign * payoff * reach[j];
        }
    }
    return result;
}

// Output arrays padded with a NaN guard that no kernel may overwrite.
constexpr int guard = 16;
struct Outs {
    std::vector<std::vector<float>> arrays;
    std::vector<float*> pointers;
    Outs(int width, int count) : arrays(width, std::vector<float>(count + guard, std::nanf(""))) {
        for (auto& array : arrays) pointers.push_back(array.data());
    }
    void expect_lane(int lane, const Pairwise& want, const std::string& what) const {
        const size_t count = want.value.size();
        for (int k = 0; k < guard; ++k) EXPECT_TRUE(std::isnan(arrays[lane][count + k])) << what << " wrote past";
        for (size_t h = 0; h < count; ++h)
            ASSERT_NEAR(arrays[lane][h], want.value[h], 2e-5 * want.magnitude + 1e-30) << what << ", hand " << h;
    }
};

constexpr float showdown_payoffs[max_showdown_width] = {1.0f, 2.5f, 0.125f, 40.0f, 3.0f, 7.5f, 0.5f, 1000.0f};
constexpr float fold_payoffs[max_fold_width] = {-3.0f, 1.5f, -0.25f, 60.0f};

// One kernel call: per lane it writes, the reach it reads and whether it is a
// showdown (else a fold); and how to run it.
struct KernelCall {
    std::string name;
    std::vector<std::pair<int, bool>> lanes;
    std::function<bool(const EvalKernels&, float* const*, const float* const*, const ShowdownList&, int count,
                       const uint16_t* cards)>
        run;
    bool river_only() const { return lanes[0].second; }
    float payoff(int lane) const { return lanes[lane].second ? showdown_payoffs[lane] : fold_payoffs[lane]; }
};

std::vector<KernelCall> kernel_calls() {
    using Reaches = const float* const*;
    std::vector<KernelCall> calls;
    for (int width = 1; width <= max_fold_width; ++width) {
        KernelCall call{"fold width " + std::to_string(width), {}, {}};
        for (int lane = 0; lane < width; ++lane) call.lanes.push_back({lane, false});
        call.run = [width](const EvalKernels& k, float* const* outs, Reaches reaches, const ShowdownList&, int count,
                           const uint16_t* cards) {
            return width == 1 ? k.fold_1(outs[0], reaches[0], count, cards, fold_payoffs[0])
                              : k.fold_n[width](outs, reaches, count, cards, fold_payoffs);
        };
        calls.push_back(call);
    }
    for (int width = 1; width <= max_showdown_width; ++width) {
        KernelCall call{"showdown width " + std::to_string(width), {}, {}};
        for (int lane = 0; lane < width; ++lane) call.lanes.push_back({lane, true});
        call.run = [width](const EvalKernels& k, float* const* outs, Reaches reaches, const ShowdownList& list, int,
                           const uint16_t*) {
            return width == 1 ? k.showdown_1(outs[0], reaches[0], list, showdown_payoffs[0])
                              : k.showdown_n[width](outs, reaches, list, showdown_payoffs);
        };
        calls.push_back(call);
    }
    // A river node's showdown and fold children from one sweep: one reach for
    // both, or one each.
    calls.push_back({"river pair", {{0, true}, {0, false}},
                     [](const EvalKernels& k, float* const* outs, Reaches reaches, const ShowdownList& list, int,
                        const uint16_t*) {
                         return k.river_pair(outs[0], outs[1], reaches[0], list, showdown_payoffs[0], fold_payoffs[1]);
                     }});
    calls.push_back({"river pair_2", {{0, true}, {1, false}},
                     [](const EvalKernels& k, float* const* outs, Reaches reaches, const ShowdownList& list, int,
                        const uint16_t*) {
                         return k.river_pair_2(outs[0], outs[1], reaches[0], reaches[1], list, showdown_payoffs[0],
                                               fold_payoffs[1]);
                     }});
    return calls;
}

// Each call, each set, on random reaches and on reaches with nothing live (all
// zero, or below the smallest normal f32), which give zeros and say so.
// Showdowns with the group mask of the path and without one, where each
// hand's reach is tested inside the kernel.
TEST(EvalKernels, EveryCallMatchesPairwiseSums) {
    const std::vector<KernelCall> calls = kernel_calls();
    for (size_t l = 0; l < test_lists().size(); ++l) {
        const TestList& test = test_lists()[l];
        const int count = static_cast<int>(test.rank.size());
        const uint16_t* cards = test.board.hand_cards.data();
        std::vector<float> tiny(count, 0.0f);
        tiny[count / 2] = 1e-44f;  // below the smallest normal f32 even times a payoff
        const std::vector<std::vector<float>> reach_kinds[] = {random_reaches(test, unsigned(l + 1)),
                                                               {8, std::vector<float>(count, 0.0f)}, {8, tiny}};
        for (size_t kind = 0; kind < std::size(reach_kinds); ++kind) {
            const auto& reaches = reach_kinds[kind];
            std::map<std::tuple<int, int, bool>, Pairwise> wants;
            std::vector<uint16_t> mask(max_strength_groups);
            if (test.river) fill_group_mask(mask.data(), reaches[0].data(), test.board);
            for (const KernelSet& set : runnable_sets()) {
                for (const KernelCall& call : calls) {
                    if (call.river_only() && !test.river) continue;
                    for (const bool masked : {true, false}) {
                        const std::string what = test.name + " " + set.name + " " + call.name +
                                                 (masked ? "" : " unmasked") + " reach " + std::to_string(kind);
                        const ShowdownList list =
                            test.river ? showdown_list(test.board, masked ? mask.data() : nullptr) : ShowdownList{};
                        const int width = static_cast<int>(call.lanes.size());
                        Outs outs(width, count);
                        std::vector<const float*> lane_reaches;
                        for (const auto& [reach, showdown] : call.lanes) lane_reaches.push_back(reaches[reach].data());
                        EXPECT_EQ(call.run(*set.kernels, outs.pointers.data(), lane_reaches.data(), list, count, cards),
                                  kind == 0)
                            << what;
                        for (int lane = 0; lane < width; ++lane) {
                            const auto [reach, showdown] = call.lanes[lane];
                            auto want = wants.find({reach, lane, showdown});
                            if (want == wants.end())
                                want = wants.emplace(std::tuple{reach, lane, showdown},
                                                     pairwise(test, lane_reaches[lane], call.payoff(lane), showdown))
                                           .first;
                            outs.expect_lane(lane, want->second, what + " lane " + std::to_string(lane));
                        }
                        if (!call.river_only()) break;  // a fold reads no mask
                    }
                }
            }
        }
    }
}

}  // namespace
