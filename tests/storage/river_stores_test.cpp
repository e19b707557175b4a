// The river stores against the plain rules of tests/reference/store_rules.h:
// open_group -> work -> close_group cycles over a chain of nodes that share
// one stream (the flat stores keep none), with regrets in f32 or 16 bits, or
// 32-bit strategy sums.
#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <random>
#include <vector>

#include "reference/store_rules.h"
#include "storage/arena_storage.h"
#include "storage/block_row_stream.h"
#include "storage/entropy_row_stream.h"
#include "storage/memory_channel.h"
#include "storage/packed_storage.h"

namespace {

using namespace store_rules;

// Hand counts of the river rows of three turn groups: equal, shorter and
// longer neighbours, rows below and above a 32-value block, a single hand.
const std::vector<std::vector<int>> group_hands = {{37, 37, 30, 45, 12}, {70, 66, 66}, {8, 33, 64, 1}};

RowLayout layout_for(int actions) {
    std::vector<std::span<const int>> groups(group_hands.begin(), group_hands.end());
    return make_row_layout(actions, groups);
}

enum class Values { f32_regrets, word_regrets, sums };

struct StoreKind {
    const char* name;
    Values values;
    bool streams;
    std::function<std::unique_ptr<Storage>(const RowLayout*)> make;
};

template <class Store, class... Options>
std::function<std::unique_ptr<Storage>(const RowLayout*)> maker(Options... options) {
    return [=](const RowLayout* layout) { return std::make_unique<Store>(layout, options...); };
}

const StoreKind store_kinds[] = {
    {"FloatArena", Values::f32_regrets, false, maker<FloatArenaStorage>()},
    {"WordArena", Values::word_regrets, false, maker<WordArenaStorage>()},
    {"BlockRegrets16", Values::word_regrets, true, maker<PackedStorage>(1, true)},
    {"EntropyRegrets16", Values::word_regrets, true, maker<PackedStorage>(2, true)},
    {"BlockSums32", Values::sums, true, maker<PackedStorage>(1, false)},
    {"EntropySums32", Values::sums, true, maker<PackedStorage>(2, false)},
};

int64_t stream_position(RowStream* stream) {
    if (auto* block = dynamic_cast<BlockRowStream*>(stream)) return block->position;
    return dynamic_cast<EntropyRowStream&>(*stream).position;
}

// One node of the chain and its model: [group][row] of rows[action][hand],
// as floats for f32 regrets and as integers otherwise.
struct Node {
    std::unique_ptr<RowLayout> layout;
    std::unique_ptr<Storage> store;
    std::vector<std::vector<Rows>> floats;
    std::vector<std::vector<std::vector<Row>>> integers;
};

class StoreChain : public testing::TestWithParam<StoreKind> {
protected:
    void SetUp() override {
        for (const int actions : {3, 2, 4}) nodes.push_back(make_node(actions));
    }

    Node make_node(int actions) const {
        Node node{std::make_unique<RowLayout>(layout_for(actions)), nullptr, {}, {}};
        node.store = GetParam().make(node.layout.get());
        EXPECT_TRUE(node.store->open());
        for (const auto& hands : group_hands) {
            node.floats.emplace_back();
            node.integers.emplace_back();
            for (const int count : hands) {
                node.floats.back().emplace_back(actions, std::vector<float>(count, 0.0f));
                node.integers.back().emplace_back(actions, Row(count, 0));
            }
        }
        return node;
    }

    // Opens group g on every node, works on each row and closes it again; the
    // byte counters must move by exactly what the stream read and wrote.
    template <class Work>
    void visit(int g, bool modified, Work work) {
        int64_t reserve = 0;
        for (Node& node : nodes) reserve += node.store->value_count(g);
        RowStream* stream = nullptr;
        for (Node& node : nodes) stream = node.store->open_group(stream, g, reserve);
        ASSERT_EQ(stream != nullptr, GetParam().streams);
        if (stream && stream->has_data()) {
            const int64_t before = storage_read_bytes;
            stream->end_read();
            EXPECT_EQ(storage_read_bytes - before, stream_position(stream));
        }
        for (Node& node : nodes)
            for (int r = 0; r < int(group_hands[g].size()); ++r) work(node, g, r);
        RowStream* closed = nullptr;
        for (Node& node : nodes) closed = node.store->close_group(closed, g, modified);
        if (!stream || !modified) return;
        ASSERT_EQ(closed, stream);
        const int64_t before = storage_write_bytes;
        closed->end_write();
        EXPECT_EQ(storage_write_bytes - before, stream_position(closed));
    }

    // Regret stores are always read with defaults; sums also without.
    void expect_strategy(Node& node, int g, int r, bool with_defaults) const {
        with_defaults = with_defaults || GetParam().values != Values::sums;
        const int actions = node.layout->action_count;
        std::vector<float> defaults = {0.3f, 0.3f, 0.2f, 0.2f};
        defaults.resize(actions);
        const Rows out = read(*node.store, actions, g, r, with_defaults ? defaults : std::vector<float>{});
        const Rows f32_expected = regret_matching(node.floats[g][r], defaults);
        for (int h = 0; h < group_hands[g][r]; ++h) {
            const auto& rows = node.integers[g][r];
            std::vector<float> expected = normalised_sums(rows, h, with_defaults);
            if (GetParam().values == Values::word_regrets) expected = integer_regret_matching(rows, h, defaults);
            for (int a = 0; a < actions; ++a) {
                if (GetParam().values == Values::f32_regrets) expected[a] = f32_expected[a][h];
                ASSERT_NEAR(out[a][h], expected[a], 2e-6f * std::max(1.0f, expected[a])) << g << " " << r << " " << h;
            }
        }
    }

    // One training step of a row, in the store and in the model (unless the
    // visit will not be kept).
    void train(Node& node, int g, int r, int pass, bool keep) {
        const int actions = node.layout->action_count;
        const int hands = group_hands[g][r];
        const uint8_t* frozen = node.store->lock_record(g, r)->lock_mask.get();
        if (GetParam().values != Values::sums) {
            const std::vector<float> node_value = random_rows(random, 1, hands, -3.0f, 3.0f)[0];
            Table action_values(random_rows(random, actions, hands, -3.0f, 3.0f));
            if (r == 1) action_values.pointers[actions - 1] = nullptr;  // an absent row counts as zeros
            const std::vector<int16_t> ties = {2, 3, 1, -1, 4};
            const bool pooled = pass == 0 && hands >= 9 && GetParam().values == Values::word_regrets;
            node.store->update_regrets(g, r, node_value.data(), action_values.pointers.data(),
                                       pooled ? std::span<const int16_t>(ties) : std::span<const int16_t>(), 256.0);
            if (!keep) return;
            for (int a = 0; a < actions; ++a) {
                for (int h = 0; h < hands; ++h) {
                    if (frozen && frozen[h]) continue;
                    const float d = (action_values.pointers[a] ? action_values.rows[a][h] : 0.0f) - node_value[h];
                    node.floats[g][r][a][h] = f32_regret(node.floats[g][r][a][h], d);
                    node.integers[g][r][a][h] = word_regret(node.integers[g][r][a][h], d, 64.0f, 1.0f / 256.0f);
                }
                if (pooled) pool_ties(node.integers[g][r][a], std::span<const int16_t>(ties), frozen);
            }
            return;
        }
        // Reach and strategy in runs of hands that play alike, as neighbours
        // do, so that sums past 16 bits still compress to the entropy
        // stream's reserve of two bytes a value.
        const float weight = 4000.0f * float((pass + 1) * (pass + 1));
        auto runs_of = [&](std::vector<float>& row, float zero_share) {
            std::uniform_real_distribution<float> unit(0.0f, 1.0f);
            for (int h = 0; h < hands;) {
                const int end = std::min(hands, h + 1 + int(random() % 12));
                const float value = unit(random) < zero_share ? 0.0f : unit(random);
                for (; h < end; ++h) row[h] = value;
            }
        };
        std::vector<float> reach(hands);
        runs_of(reach, 0.6f);
        Table strategy(Rows(actions, std::vector<float>(hands)));
        for (auto& row : strategy.rows) runs_of(row, 0.5f);
        node.store->add_strategy(g, r, strategy.pointers.data(), reach.data(), weight);
        node.store->add_strategy(g, r, strategy.pointers.data(), nullptr, weight);    // no reach: nothing
        node.store->add_strategy(g, r, strategy.pointers.data(), reach.data(), 0.0f);  // no weight: nothing
        if (!keep) return;
        for (int a = 0; a < actions; ++a)
            for (int h = 0; h < hands; ++h)
                if (!(frozen && frozen[h]))
                    node.integers[g][r][a][h] = integer_sum(node.integers[g][r][a][h], strategy.rows[a][h], weight, reach[h]);
    }

    // Passes over the given groups: check every row, then train it. The third
    // pass of a store with streams is not kept, and the next pass must find
    // the rows of the one before.
    void run_passes(const std::vector<int>& groups, int passes) {
        for (int pass = 0; pass < passes; ++pass) {
            const bool keep = pass != 2 || !GetParam().streams;
            for (const int g : groups) {
                visit(g, keep, [&](Node& node, int group, int r) {
                    expect_strategy(node, group, r, pass % 2 == 0);
                    train(node, group, r, pass, keep);
                });
            }
        }
    }

    std::vector<Node> nodes;
    std::mt19937 random{2024};
};

TEST_P(StoreChain, CyclesFollowTheModelAndFrozenHandsNeverMove) {
    std::vector<uint8_t> mask(30, 0);
    for (int h = 0; h < 30; h += 4) mask[h] = 1;
    set_mask(*nodes[1].store->lock_record(0, 2), mask);
    run_passes({0, 1, 2}, 6);
}

TEST_P(StoreChain, SaveAndLoadKeepEveryRowAndTheStreamsGoOn) {
    // Group 2 is never walked before the save: it has no stream yet.
    run_passes({0, 1}, 2);
    MemoryChannel channel(7);
    for (Node& node : nodes) node.store->save(channel);

    std::vector<Node> loaded;
    for (const Node& node : nodes) loaded.push_back(make_node(node.layout->action_count));
    channel.rewind();
    for (Node& node : loaded) node.store->load(channel);
    EXPECT_TRUE(channel.at_end());
    MemoryChannel again(7);
    for (Node& node : loaded) node.store->save(again);
    EXPECT_EQ(again.bytes, channel.bytes);

    for (size_t i = 0; i < nodes.size(); ++i) {
        loaded[i].floats = nodes[i].floats;
        loaded[i].integers = nodes[i].integers;
    }
    nodes = std::move(loaded);
    run_passes({0, 1, 2}, 2);
}

INSTANTIATE_TEST_SUITE_P(Kinds, StoreChain, testing::ValuesIn(store_kinds),
                         [](const auto& info) { return std::string(info.param.name); });

}  // namespace
