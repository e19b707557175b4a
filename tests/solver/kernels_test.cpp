#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <limits>
#include <random>
#include <string>
#include <vector>

#include "shell/protocol/cpu_info.h"
#include "shell/protocol/processor.h"
#include "solver/kernels/kernels.h"
#include "reference/boards.h"
#include "tree/boards.h"

namespace {

// A list the kernels run on: a real river board's, or a synthetic one with
// the same fields. `rank` is each hand's strength group, for the pairwise sums.
struct TestList {
    std::string name;
    RunoutBoard board;
    std::vector<int> rank;
};

void cut_groups(TestList& list) {
    const RunoutBoard& board = list.board;
    list.rank.clear();
    for (size_t g = 0; g < board.strength_groups.size(); ++g)
        list.rank.insert(list.rank.end(), board.strength_groups[g], static_cast<int>(g));
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
    EXPECT_LE(board.strength_groups.size(), size_t{max_strength_groups});
    cut_groups(list);
    return list;
}

const std::vector<TestList>& river_lists() {
    static const std::vector<TestList> lists = [] {
        prepare_tables();
        std::vector<TestList> made;
        made.push_back(real_river("2c7dKh", "9s", "Tc", uniform_range(1.0)));
        made.push_back(real_river("5c6d7h", "8s", "9c", class_range(3, 0.3)));
        made.push_back(real_river("2c2d7h", "7s", "Kc", class_range(8, 0.5)));
        made.push_back(real_river("AsKsQs", "Js", "Ts", uniform_range(1.0)));  // everyone plays the board
        made.push_back(synthetic_list(1, 20, {1, 2, 3, 5, 16, 17}));
        made.push_back(synthetic_list(2, 47, {1, 4, 9, 16, 17, 40, 60}));
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

// Reach at the first river node (some hands and whole groups dead) and, per
// leaf, that reach times a strategy that is sometimes 0.
struct Reaches {
    std::vector<float> node;
    std::vector<std::vector<float>> leaves;
    std::vector<uint16_t> mask;
};

Reaches random_reaches(const TestList& list, int leaves, unsigned seed) {
    std::mt19937 random(seed);
    std::uniform_real_distribution<float> unit(0.0f, 1.0f);
    const int count = static_cast<int>(list.rank.size());
    // Some groups die whole, but never the largest: something must stay live.
    const int groups = *std::max_element(list.rank.begin(), list.rank.end()) + 1;
    std::vector<int> sizes(groups);
    for (const int rank : list.rank) ++sizes[rank];
    const int largest = static_cast<int>(std::max_element(sizes.begin(), sizes.end()) - sizes.begin());
    std::vector<bool> dead_group(groups);
    for (int g = 0; g < groups; ++g) dead_group[g] = g != largest && unit(random) < 0.2f;
    Reaches reaches;
    reaches.node.resize(count);
    for (int h = 0; h < count; ++h)
        reaches.node[h] = dead_group[list.rank[h]] || unit(random) < 0.25f ? 0.0f : unit(random);
    for (int leaf = 0; leaf < leaves; ++leaf) {
        std::vector<float> reach(count);
        for (int h = 0; h < count; ++h) reach[h] = unit(random) < 0.2f ? 0.0f : reaches.node[h] * unit(random);
        reaches.leaves.push_back(std::move(reach));
    }
    reaches.mask.resize(max_strength_groups);
    fill_group_mask(reaches.mask.data(), reaches.node.data(), list.board);
    return reaches;
}

// The leaf values summed pairwise in double, and the scale of their rounding:
// the sum of the magnitudes of all terms.
struct Pairwise {
    std::vector<double> value;
    double magnitude = 0;
};

Pairwise pairwise(const TestList& list, const float* reach, double payoff, bool showdown) {
    const int count = static_cast<int>(list.rank.size());
    Pairwise result{std::vector<double>(count), 0};
    for (int j = 0; j < count; ++j)
        if (reach[j] >= std::numeric_limits<float>::min()) result.magnitude += std::fabs(payoff * reach[j]);
    for (int i = 0; i < count; ++i) {
        const uint16_t a = list.board.hand_cards[i];
        for (int j = 0; j < count; ++j) {
            const uint16_t b = list.board.hand_cards[j];
            if ((a & 0xFF) == (b & 0xFF) || (a & 0xFF) == (b >> 8) || (a >> 8) == (b & 0xFF) || (a >> 8) == (b >> 8))
                continue;
            if (reach[j] < std::numeric_limits<float>::min()) continue;
            const int sign = showdown ? (list.rank[i] > list.rank[j]) - (list.rank[i] < list.rank[j]) : 1;
            result.value[i] += sign * payoff * reach[j];
        }
    }
    return result;
}

void expect_close(const std::vector<float>& got, const Pairwise& want, const std::string& what) {
    const double tolerance = 2e-5 * want.magnitude + 1e-30;
    for (size_t h = 0; h < want.value.size(); ++h)
        ASSERT_NEAR(got[h], want.value[h], tolerance) << what << ", hand " << h;
}

// Output arrays padded with a NaN guard that no kernel may overwrite.
constexpr int guard = 16;
struct Outs {
    std::vector<std::vector<float>> arrays;
    std::vector<float*> pointers;
    Outs(int width, int count) : arrays(width, std::vector<float>(count + guard, std::nanf(""))) {
        for (auto& array : arrays) pointers.push_back(array.data());
    }
    std::vector<float> values(int lane, int count) const {
        for (int k = 0; k < guard; ++k) EXPECT_TRUE(std::isnan(arrays[lane][count + k])) << "written past the list";
        return {arrays[lane].begin(), arrays[lane].begin() + count};
    }
};

std::vector<const float*> reach_pointers(const Reaches& reaches, int first, int width) {
    std::vector<const float*> pointers;
    for (int leaf = first; leaf < first + width; ++leaf) pointers.push_back(reaches.leaves[leaf].data());
    return pointers;
}

constexpr int showdown_widths[] = {1, 2, 3, 4, 5, 6, 7, 8};
constexpr int fold_widths[] = {1, 2, 3, 4};

bool run_showdown(const EvalKernels& kernels, int width, Outs& outs, const float* const* reaches,
                  const ShowdownList& list, const float* payoffs) {
    return width == 1 ? kernels.showdown_1(outs.pointers[0], reaches[0], list, payoffs[0])
                      : kernels.showdown_n[width](outs.pointers.data(), reaches, list, payoffs);
}

bool run_fold(const EvalKernels& kernels, int width, Outs& outs, const float* const* reaches, int count,
              const uint16_t* hand_cards, const float* payoffs) {
    return width == 1 ? kernels.fold_1(outs.pointers[0], reaches[0], count, hand_cards, payoffs[0])
                      : kernels.fold_n[width](outs.pointers.data(), reaches, count, hand_cards, payoffs);
}

// Every width of both kernels against the pairwise sums. Showdowns with the
// group mask of the path and without one, where each hand's reach is tested
// inside the kernel; folds also on the turn and flop lists, which are longer
// than any river list.
TEST(EvalKernels, EveryWidthMatchesPairwiseSums) {
    std::vector<TestList> lists = river_lists();
    const size_t river_count = lists.size();
    auto root = make_boards(parse_cards("3c8dJh"), card_of("4s"), -1, false);
    SetHoles(*root, uniform_range(1.0).data(), uniform_range(1.0).data());
    for (const auto* cards : {&root->hand_cards, &root->turns[0].hand_cards}) {
        TestList longer{cards == &root->hand_cards ? "flop list" : "turn list", {}, {}};
        longer.board.hand_cards = *cards;
        longer.rank.assign(cards->size(), 0);
        lists.push_back(longer);
    }
    const float showdown_payoffs[8] = {1.0f, 2.5f, 0.125f, 40.0f, 3.0f, 7.5f, 0.5f, 1000.0f};
    const float fold_payoffs[4] = {-3.0f, 1.5f, -0.25f, 60.0f};
    for (size_t l = 0; l < lists.size(); ++l) {
        const TestList& test = lists[l];
        const int count = static_cast<int>(test.rank.size());
        const Reaches reaches = random_reaches(test, 8, static_cast<unsigned>(l + 1));
        const bool river = l < river_count;
        std::vector<Pairwise> want;
        for (int leaf = 0; river && leaf < 8; ++leaf)
            want.push_back(pairwise(test, reaches.leaves[leaf].data(), showdown_payoffs[leaf], true));
        for (const KernelSet& set : runnable_sets()) {
            for (const int width : fold_widths) {
                Outs outs(width, count);
                const auto pointers = reach_pointers(reaches, 0, width);
                EXPECT_TRUE(run_fold(*set.kernels, width, outs, pointers.data(), count, test.board.hand_cards.data(),
                                     fold_payoffs))
                    << test.name;
                for (int lane = 0; lane < width; ++lane)
                    expect_close(outs.values(lane, count), pairwise(test, pointers[lane], fold_payoffs[lane], false),
                                 test.name + " " + set.name + " fold width " + std::to_string(width));
            }
            for (const bool masked : {true, false}) {
                if (!river) break;
                const ShowdownList list = showdown_list(test.board, masked ? reaches.mask.data() : nullptr);
                for (const int width : showdown_widths) {
                    Outs outs(width, count);
                    const auto pointers = reach_pointers(reaches, 0, width);
                    EXPECT_TRUE(run_showdown(*set.kernels, width, outs, pointers.data(), list, showdown_payoffs));
                    for (int lane = 0; lane < width; ++lane)
                        expect_close(outs.values(lane, count), want[lane],
                                     test.name + " " + set.name + (masked ? " masked" : " unmasked") + " width " +
                                         std::to_string(width) + " lane " + std::to_string(lane));
                }
            }
        }
    }
}

// The showdown and fold children of a river node from one sweep: one reach
// for both, or one each.
TEST(EvalKernels, RiverPairsMatchTheirShowdownAndFold) {
    for (const TestList& test : river_lists()) {
        const int count = static_cast<int>(test.rank.size());
        const Reaches reaches = random_reaches(test, 2, 5);
        const ShowdownList list = showdown_list(test.board, reaches.mask.data());
        const float* node = reaches.node.data();
        const float* showdown_reach = reaches.leaves[0].data();
        const float* fold_reach = reaches.leaves[1].data();
        for (const KernelSet& set : runnable_sets()) {
            Outs single(2, count);
            EXPECT_TRUE(set.kernels->river_pair(single.pointers[0], single.pointers[1], node, list, 6.0f, -2.0f));
            expect_close(single.values(0, count), pairwise(test, node, 6.0f, true),
                         test.name + " pair showdown " + set.name);
            expect_close(single.values(1, count), pairwise(test, node, -2.0f, false),
                         test.name + " pair fold " + set.name);

            Outs split(2, count);
            EXPECT_TRUE(set.kernels->river_pair_2(split.pointers[0], split.pointers[1], showdown_reach, fold_reach,
                                                  list, 6.0f, 2.0f));
            expect_close(split.values(0, count), pairwise(test, showdown_reach, 6.0f, true),
                         test.name + " pair_2 showdown " + set.name);
            expect_close(split.values(1, count), pairwise(test, fold_reach, 2.0f, false),
                         test.name + " pair_2 fold " + set.name);
        }
        Outs half(2, count);
        EXPECT_TRUE(eval_river_pair_2(half.pointers[0], half.pointers[1], nullptr, fold_reach, list, 6.0f, 2.0f));
        EXPECT_EQ(half.values(0, count), std::vector<float>(count, 0.0f));
        expect_close(half.values(1, count), pairwise(test, fold_reach, 2.0f, false), test.name + " fold half");
    }
}

// Reach that is all zero, missing, or below the smallest normal f32 gives
// zeros, and the kernel says so.
TEST(EvalKernels, NoLiveReachGivesZeros) {
    const TestList& test = river_lists()[0];
    const int count = static_cast<int>(test.rank.size());
    const uint16_t* cards = test.board.hand_cards.data();
    std::vector<float> tiny(count, 0.0f);
    tiny[17] = 1e-39f;
    const std::vector<float> zeros(count, 0.0f);
    const float payoffs[8] = {1, 2, 3, 4, 5, 6, 7, 8};
    const std::vector<float>* cases[] = {&zeros, &tiny};
    for (const std::vector<float>* reach : cases) {
        std::vector<uint16_t> mask(max_strength_groups);
        fill_group_mask(mask.data(), reach->data(), test.board);
        const ShowdownList list = showdown_list(test.board, mask.data());
        const std::vector<const float*> reaches(8, reach->data());
        for (const KernelSet& set : runnable_sets()) {
            SCOPED_TRACE(set.name);
            for (const int width : showdown_widths) {
                Outs outs(width, count);
                EXPECT_FALSE(run_showdown(*set.kernels, width, outs, reaches.data(), list, payoffs));
                for (int lane = 0; lane < width; ++lane) EXPECT_EQ(outs.values(lane, count), zeros);
            }
            for (const int width : fold_widths) {
                Outs outs(width, count);
                EXPECT_FALSE(run_fold(*set.kernels, width, outs, reaches.data(), count, cards, payoffs));
                for (int lane = 0; lane < width; ++lane) EXPECT_EQ(outs.values(lane, count), zeros);
            }
            Outs pair(2, count);
            EXPECT_FALSE(set.kernels->river_pair(pair.pointers[0], pair.pointers[1], reach->data(), list, 1, 1));
            EXPECT_EQ(pair.values(0, count), zeros);
            EXPECT_EQ(pair.values(1, count), zeros);
            EXPECT_FALSE(set.kernels->river_pair_2(pair.pointers[0], pair.pointers[1], reach->data(), reach->data(),
                                                   list, 1, 1));
            EXPECT_EQ(pair.values(1, count), zeros);
            Outs missing(2, count);
            EXPECT_FALSE(set.kernels->showdown_1(missing.pointers[0], nullptr, list, 1));
            EXPECT_FALSE(set.kernels->fold_1(missing.pointers[1], nullptr, count, cards, 1));
            EXPECT_EQ(missing.values(0, count), zeros);
            EXPECT_EQ(missing.values(1, count), zeros);
            EXPECT_FALSE(set.kernels->river_pair(missing.pointers[0], missing.pointers[1], nullptr, list, 1, 1));
            EXPECT_EQ(missing.values(1, count), zeros);
        }
    }
}

// Exact zeros where the sweep cancels: hands blocked by the one live hand and
// the live hand itself. And a board that all hands play, where all is a tie.
TEST(EvalKernels, CancellationsAreExact) {
    for (const TestList& test : river_lists()) {
        const int count = static_cast<int>(test.rank.size());
        const int live = count / 3;
        std::vector<float> reach(count, 0.0f);
        reach[live] = 0.75f;
        std::vector<uint16_t> mask(max_strength_groups);
        fill_group_mask(mask.data(), reach.data(), test.board);
        const ShowdownList list = showdown_list(test.board, mask.data());
        const uint16_t own = test.board.hand_cards[live];
        for (const KernelSet& set : runnable_sets()) {
            Outs outs(2, count);
            set.kernels->showdown_1(outs.pointers[0], reach.data(), list, 4.0f);
            set.kernels->fold_1(outs.pointers[1], reach.data(), count, test.board.hand_cards.data(), -4.0f);
            const std::vector<float> showdown = outs.values(0, count);
            const std::vector<float> fold = outs.values(1, count);
            for (int h = 0; h < count; ++h) {
                const uint16_t cards = test.board.hand_cards[h];
                const bool blocked = ((cards ^ own) & 0xFF) == 0 || ((cards ^ own) >> 8) == 0 ||
                                     (cards & 0xFF) == (own >> 8) || (cards >> 8) == (own & 0xFF);
                float want = 0.0f;  // blocked, or a tie
                if (!blocked && test.rank[h] != test.rank[live]) want = test.rank[h] > test.rank[live] ? 3.0f : -3.0f;
                EXPECT_EQ(showdown[h], want) << test.name << " " << set.name;
                EXPECT_EQ(fold[h], blocked ? 0.0f : -3.0f) << test.name << " " << set.name;
            }
        }
    }
    const TestList& everyone_ties = river_lists()[3];
    ASSERT_EQ(everyone_ties.board.strength_groups.size(), 1u);
    const int count = static_cast<int>(everyone_ties.rank.size());
    const Reaches reaches = random_reaches(everyone_ties, 1, 4);
    const ShowdownList list = showdown_list(everyone_ties.board, reaches.mask.data());
    for (const KernelSet& set : runnable_sets()) {
        Outs outs(1, count);
        set.kernels->showdown_1(outs.pointers[0], reaches.node.data(), list, 9.0f);
        // Zero up to the rounding of the card sums, which go down and back up.
        const Pairwise nothing = pairwise(everyone_ties, reaches.node.data(), 9.0f, true);
        ASSERT_TRUE(std::all_of(nothing.value.begin(), nothing.value.end(), [](double v) { return v == 0; }));
        expect_close(outs.values(0, count), nothing, set.name);
    }
}

// The public batches under every simd_level and both vector paths: the block
// split changes which kernels run, never the values.
TEST(EvalKernels, BatchesGiveTheSameValuesAtEveryLevel) {
    const TestList& test = river_lists()[0];
    const int count = static_cast<int>(test.rank.size());
    constexpr int leaves = 11;
    const Reaches reaches = random_reaches(test, leaves, 21);
    const ShowdownList list = showdown_list(test.board, reaches.mask.data());
    float payoffs[leaves];
    for (int leaf = 0; leaf < leaves; ++leaf) payoffs[leaf] = 0.5f + leaf;
    const auto pointers = reach_pointers(reaches, 0, leaves);
    const int saved_level = simd_level;
    const bool saved_avx512 = avx512_enabled;
    for (const bool wide : {false, true}) {
        avx512_enabled = wide;
        for (int level = 1; level <= 8; ++level) {
            SCOPED_TRACE("level " + std::to_string(level) + (wide ? " avx512" : ""));
            Outs showdowns(leaves, count);
            Outs folds(leaves, count);
            bool nonzero[leaves] = {};
            eval_showdown_batch(showdowns.pointers.data(), pointers.data(), payoffs, leaves, list, nonzero, level);
            EXPECT_TRUE(std::all_of(nonzero, nonzero + leaves, [](bool b) { return b; }));
            eval_fold_batch(folds.pointers.data(), pointers.data(), payoffs, leaves, count,
                            test.board.hand_cards.data(), nullptr, level);
            for (int leaf = 0; leaf < leaves; ++leaf) {
                expect_close(showdowns.values(leaf, count), pairwise(test, pointers[leaf], payoffs[leaf], true),
                             "showdown");
                expect_close(folds.values(leaf, count), pairwise(test, pointers[leaf], payoffs[leaf], false), "fold");
            }
        }
    }
    simd_level = saved_level;
    avx512_enabled = saved_avx512;
}

// The runout over a real turn list: each set against the table's rows summed
// in double over the live opposing hands, and a reach with no live hand.
TEST(EvalKernels, RunoutsSumTheTableRowsOfLiveHands) {
    prepare_tables();
    const RangeVector range = class_range(5, 0.4);
    auto root = make_boards(parse_cards("4c8dJh"), card_of("2s"), -1, false);
    SetHoles(*root, range.data(), range.data());
    build_runout_tables(*root);
    const RunoutBoard& turn = root->turns[0];
    const int count = static_cast<int>(turn.hands.size());
    ASSERT_GT(count % 8, 0) << "the list should leave a vector tail";
    std::mt19937 random(9);
    std::uniform_real_distribution<float> unit(0.0f, 1.0f);
    std::vector<float> reach(count);
    for (float& r : reach) r = unit(random) < 0.3f ? (unit(random) < 0.5f ? 0.0f : 1e-39f) : unit(random);
    const float payoff = 37.5f;
    const std::vector<float> dead(count, 0.0f);
    // Live hands are taken four at a time: each pass takes one more away, so
    // every remainder comes up.
    for (int pass = 0; pass < 4; ++pass) {
        *std::find_if(reach.begin(), reach.end(), [](float r) { return r > 0.01f; }) = 0.0f;
        std::vector<double> want(count, 0.0);
        double magnitude = 0;
        for (int o = 0; o < count; ++o) {
            if (reach[o] < std::numeric_limits<float>::min()) continue;
            for (int x = 0; x < count; ++x) {
                const double term = double(payoff) * reach[o] * turn.runout_wins[size_t(o) * count + x];
                want[x] += term;
                magnitude += std::fabs(term);
            }
        }
        for (const KernelSet& set : runnable_sets()) {
            Outs outs(1, count);
            EXPECT_TRUE(set.kernels->runout(outs.pointers[0], reach.data(), count, turn.runout_wins.data(), payoff));
            const std::vector<float> got = outs.values(0, count);
            for (int x = 0; x < count; ++x)
                ASSERT_NEAR(got[x], want[x], 1e-5 * magnitude) << set.name << " pass " << pass << " hand " << x;
        }
    }
    for (const KernelSet& set : runnable_sets()) {
        for (const float* none : {dead.data(), static_cast<const float*>(nullptr)}) {
            Outs zeros(1, count);
            EXPECT_FALSE(set.kernels->runout(zeros.pointers[0], none, count, turn.runout_wins.data(), payoff));
            EXPECT_EQ(zeros.values(0, count), dead) << set.name;
        }
    }
}

}  // namespace
