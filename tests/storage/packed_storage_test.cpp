// Packed stores against the plain rules of tests/reference/store_rules.h: full
// open_group -> work -> close_group cycles over a chain of nodes sharing one
// stream, in both stream modes and both widths.
#include <gtest/gtest.h>

#include <cmath>
#include <memory>
#include <random>
#include <vector>

#include "reference/store_rules.h"
#include "storage/block_row_stream.h"
#include "storage/entropy_row_stream.h"
#include "storage/memory_channel.h"
#include "storage/packed_storage.h"
#include "storage/storage_assignment.h"

namespace {

// Hand counts of the river rows of three turn groups: equal, shorter and
// longer neighbours, rows below and above a 32-value block, a single hand.
const std::vector<std::vector<int>> group_hands = {{37, 37, 30, 45, 12}, {70, 66, 66}, {8, 33, 64, 1}};

RowLayout layout_for(int actions) {
    std::vector<std::span<const int>> groups;
    for (const auto& hands : group_hands) groups.emplace_back(hands);
    return make_row_layout(actions, groups);
}

using namespace store_rules;
using NodeValues = std::vector<std::vector<std::vector<Row>>>;  // [group][row][action][hand]

// ---- a chain of nodes of one player -----------------------------------------

struct Node {
    std::unique_ptr<RowLayout> layout;
    std::unique_ptr<PackedStorage> store;
    NodeValues model;
};

int64_t stream_position(RowStream* stream) {
    if (auto* block = dynamic_cast<BlockRowStream*>(stream)) return block->position;
    return dynamic_cast<EntropyRowStream&>(*stream).position;
}

class PackedChain : public ::testing::TestWithParam<std::tuple<int, bool>> {
protected:
    int mode() const { return std::get<0>(GetParam()); }
    bool narrow() const { return std::get<1>(GetParam()); }

    void SetUp() override {
        for (const int actions : {3, 2, 4}) nodes.push_back(make_node(actions));
    }

    Node make_node(int actions) const {
        Node node;
        node.layout = std::make_unique<RowLayout>(layout_for(actions));
        node.store = std::make_unique<PackedStorage>(node.layout.get(), mode(), narrow());
        for (const auto& hands : group_hands) {
            node.model.emplace_back();
            for (const int count : hands) node.model.back().emplace_back(actions, Row(count, 0));
        }
        return node;
    }

    // Opens group g on every node, checks and works on each row through
    // `work`, and closes it again; the byte counters must move by exactly
    // what the stream read and wrote.
    template <class Work>
    void visit(int g, bool modified, Work work) {
        int64_t reserve = 0;
        for (Node& node : nodes) reserve += node.store->value_count(g);
        RowStream* stream = nullptr;
        for (Node& node : nodes) stream = node.store->open_group(stream, g, reserve);
        ASSERT_EQ(stream, nodes[0].store->group_stream(g));
        if (stream->has_data()) {
            const int64_t before = storage_read_bytes;
            stream->end_read();
            EXPECT_EQ(storage_read_bytes - before, stream_position(stream));
            EXPECT_GT(stream_position(stream), 0);
        }
        for (Node& node : nodes)
            for (int r = 0; r < int(group_hands[g].size()); ++r) work(node, g, r);
        RowStream* closed = nullptr;
        for (Node& node : nodes) closed = node.store->close_group(closed, g, modified);
        if (!modified) return;
        ASSERT_EQ(closed, stream);
        const int64_t before = storage_write_bytes;
        closed->end_write();
        EXPECT_EQ(storage_write_bytes - before, stream_position(closed));
    }

    // The open row's values against the model, exactly.
    void expect_stored(Node& node, int g, int r) const {
        const int hands = group_hands[g][r];
        for (int a = 0; a < node.layout->action_count; ++a) {
            const int at = a * row_stride(hands);
            const Row stored = narrow() ? Row(node.store->open_row16(g, r) + at, node.store->open_row16(g, r) + at + hands)
                                        : Row(node.store->open_row32(g, r) + at, node.store->open_row32(g, r) + at + hands);
            ASSERT_EQ(stored, node.model[g][r][a]) << "group " << g << " row " << r << " action " << a;
        }
    }

    void expect_strategy(Node& node, int g, int r, int pass) const {
        const int actions = node.layout->action_count;
        const int hands = group_hands[g][r];
        std::vector<float> defaults = {0.3f, 0.3f, 0.2f, 0.2f};
        defaults.resize(actions);
        const bool without_defaults = !narrow() && pass % 2 == 1;
        const Rows out = read(*node.store, actions, g, r, without_defaults ? std::vector<float>{} : defaults);
        for (int h = 0; h < hands; ++h) {
            const std::vector<float> expected = narrow() ? integer_regret_matching(node.model[g][r], h, defaults)
                                                         : normalised_sums(node.model[g][r], h, !without_defaults);
            for (int a = 0; a < actions; ++a) ASSERT_NEAR(out[a][h], expected[a], 2e-6f) << g << " " << r << " " << h;
        }
    }

    // One training step of a row, in the store and in the model (unless the
    // visit will not be kept).
    void train(Node& node, int g, int r, int pass, bool keep) {
        const int actions = node.layout->action_count;
        const int hands = group_hands[g][r];
        const LockRecord* lock = node.store->lock_record(g, r);
        const uint8_t* frozen = lock->lock_mask.get();
        std::uniform_real_distribution<float> unit(0.0f, 1.0f);
        if (narrow()) {
            const float scale = 256.0f;  // gain 64, exact
            const std::vector<float> node_value = random_rows(random, 1, hands, -3.0f, 3.0f)[0];
            Table action_values(random_rows(random, actions, hands, -3.0f, 3.0f));
            auto& pointers = action_values.pointers;
            if (r == 1) pointers[actions - 1] = nullptr;  // an absent row counts as zeros
            const std::vector<int16_t> ties = {2, 3, 1, -1, 4};
            const bool pooled = pass == 0 && hands >= 9;
            node.store->update_regrets(g, r, node_value.data(), pointers.data(),
                                       pooled ? std::span<const int16_t>(ties) : std::span<const int16_t>(), scale);
            if (!keep) return;
            for (int a = 0; a < actions; ++a) {
                Row& row = node.model[g][r][a];
                for (int h = 0; h < hands; ++h) {
                    if (frozen && frozen[h]) continue;
                    const float d = (pointers[a] ? pointers[a][h] : 0.0f) - node_value[h];
                    row[h] = word_regret(row[h], d, 64.0f, 1.0f / scale);
                }
                if (pooled) pool_ties(row, std::span<const int16_t>(ties), frozen);
            }
            return;
        }
        // Sums: reach and strategy in runs of hands that play alike, as
        // neighbours do, so that sums past 16 bits still compress to the
        // entropy stream's reserve of two bytes a value.
        const float weight = 4000.0f * float((pass + 1) * (pass + 1));  // sums pass 65535
        auto runs_of = [&](std::vector<float>& row, float zero_share) {
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
        node.store->add_strategy(g, r, strategy.pointers.data(), nullptr, weight);   // no reach: nothing
        node.store->add_strategy(g, r, strategy.pointers.data(), reach.data(), 0.0f);  // no weight: nothing
        if (!keep) return;
        for (int a = 0; a < actions; ++a)
            for (int h = 0; h < hands; ++h)
                if (!(frozen && frozen[h])) node.model[g][r][a][h] = integer_sum(node.model[g][r][a][h], strategy.rows[a][h], weight, reach[h]);
    }

    // Passes over the given groups: check every row, then train it. The third
    // pass's visits are not kept, and the next pass must find the rows of the
    // one before.
    void run_passes(const std::vector<int>& groups, int passes) {
        for (int pass = 0; pass < passes; ++pass) {
            const bool keep = pass != 2;
            for (const int g : groups) {
                visit(g, keep, [&](Node& node, int group, int r) {
                    expect_stored(node, group, r);
                    expect_strategy(node, group, r, pass);
                    train(node, group, r, pass, keep);
                });
            }
        }
    }

    std::vector<Node> nodes;
    std::mt19937 random{2024};
};

TEST_P(PackedChain, CyclesFollowTheModelThroughTheSharedStream) {
    // A partly frozen row: its marked hands never move.
    std::vector<uint8_t> mask(30, 0);
    for (int h = 0; h < 30; h += 4) mask[h] = 1;
    set_mask(*nodes[1].store->lock_record(0, 2), mask);

    run_passes({0, 1, 2}, 6);
    // Only the chain's first node owns streams.
    for (int g = 0; g < 3; ++g) {
        EXPECT_NE(nodes[0].store->group_stream(g), nullptr);
        EXPECT_EQ(nodes[1].store->group_stream(g), nullptr);
        EXPECT_FALSE(nodes[0].store->group_open(g));
    }
    // A row written whole: truncated toward zero, clamped to 0..65535; what
    // no 32-bit integer holds becomes 0, as the processor converts it.
    const std::vector<float> written = {-4.5f, 0.9f, 7.99f, 70000.0f, 65535.5f, 12.0f, 3.0f, 1e10f};
    visit(2, true, [&](Node& node, int g, int r) {
        if (r != 0) return;
        node.store->write_row(g, r, 1, written.data());
        node.model[g][r][1] = {0, 0, 7, 65535, 65535, 12, 3, 0};
    });
    visit(2, false, [&](Node& node, int g, int r) { expect_stored(node, g, r); });
}

TEST_P(PackedChain, SaveAndLoadKeepEveryRowAndTheStreamsGoOn) {
    // Group 2 is never walked before the save: it has no stream yet.
    run_passes({0, 1}, 2);
    MemoryChannel channel(7);
    for (Node& node : nodes) node.store->save(channel);

    std::vector<Node> loaded;
    for (const Node& node : nodes) loaded.push_back(make_node(node.layout->action_count));
    channel.rewind();
    for (Node& node : loaded) node.store->load(channel);
    EXPECT_TRUE(channel.at_end());
    EXPECT_EQ(loaded[0].store->group_stream(2), nullptr);

    MemoryChannel again(7);
    for (Node& node : loaded) node.store->save(again);
    EXPECT_EQ(again.bytes, channel.bytes);

    for (size_t i = 0; i < nodes.size(); ++i) loaded[i].model = nodes[i].model;
    nodes = std::move(loaded);
    run_passes({0, 1, 2}, 2);
}

INSTANTIATE_TEST_SUITE_P(ModesAndWidths, PackedChain,
                         testing::Combine(testing::Values(1, 2), testing::Values(true, false)),
                         [](const auto& info) {
                             return std::string(std::get<0>(info.param) == 1 ? "Block" : "Entropy") +
                                    (std::get<1>(info.param) ? "Regrets16" : "Sums32");
                         });

// The rows go into the stream action by action, each coded against the same
// action's row of the previous river card when that row is at least as long.
// Stored streams travel in tree files, so the rule is read back here on its own.
TEST(PackedStorage, EntropyRowsUseThePreviousRiverCardsRowByTheFixedRule) {
    const RowLayout layout = layout_for(2);
    PackedStorage store(&layout, 2, true);
    std::mt19937 random(99);
    RowStream* stream = store.open_group(nullptr, 0, store.value_count(0));
    std::vector<std::vector<uint16_t>> expected;  // in stream order
    for (int a = 0; a < 2; ++a) {
        for (int r = 0; r < 5; ++r) {
            const int hands = group_hands[0][r];
            uint16_t* row = store.open_row16(0, r) + a * row_stride(hands);
            for (int h = 0; h < hands; ++h) row[h] = uint16_t(random() % 300 + 100 * a);
            expected.emplace_back(row, row + hands);
        }
    }
    ASSERT_EQ(store.close_group(nullptr, 0, true), stream);
    stream->end_write();

    stream->begin_read();
    std::vector<std::vector<uint16_t>> decoded;
    for (int a = 0; a < 2; ++a) {
        for (int r = 0; r < 5; ++r) {
            const int hands = group_hands[0][r];
            const bool previous = r > 0 && hands <= group_hands[0][r - 1];
            decoded.emplace_back(hands);
            stream->get_row16(decoded.back().data(), previous ? decoded[decoded.size() - 2].data() : nullptr, hands);
        }
    }
    stream->end_read();
    EXPECT_EQ(decoded, expected);
}

// 32-bit sums stop at 2^31, where the processor's conversion saturates. Over
// the walk's weights min(cap, (t - 60)^1.5) up to the 9000-iteration ceiling
// of the levels that keep them, a hand with reach 1 that always plays one
// action stays below that: about 1.7e9.
TEST(PackedStorage, StrategySumsOfAFullSolveStayBelowTheirLimit) {
    const StorageConstants constants = storage_constants({1, 1}, 1);
    const std::vector<int> hands = {8};
    const std::vector<std::span<const int>> groups = {hands};
    const RowLayout layout = make_row_layout(2, groups);
    PackedStorage store(&layout, 1, false);
    store.open_group(nullptr, 0, store.value_count(0));
    const std::vector<float> reach(8, 1.0f), one(8, 1.0f), zero(8, 0.0f);
    const float* strategy[2] = {one.data(), zero.data()};
    double exact = 0.0;
    for (int t = 1; t <= constants.max_iterations; ++t) {
        const double weight = std::min(constants.weight_cap, std::pow(std::max(t - 60, 0), constants.weight_exponent));
        store.add_strategy(0, 0, strategy, reach.data(), float(weight));
        exact += weight;
    }
    EXPECT_LT(exact, 2147483648.0);
    EXPECT_LT(store.open_row32(0, 0)[0], 0x80000000u);
    EXPECT_NEAR(double(store.open_row32(0, 0)[0]), exact, exact * 1e-3);
    store.close_group(nullptr, 0, false);
}

}  // namespace
