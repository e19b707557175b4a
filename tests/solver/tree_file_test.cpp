// Tree files read back as they were written, and damaged ones refused
// without harm.
#include <gtest/gtest.h>

#include <unistd.h>

#include <cstdio>
#include <fstream>
#include <random>

#include "solver/node_strategy.h"
#include "solver/results.h"
#include "solver/tree_file_commands.h"
#include "solver_test_support.h"
#include "storage/file_channel.h"
#include "storage/memory_channel.h"
#include "tree/boards.h"
#include "tree/tree_file.h"
#include "tree_file_writer.h"

namespace {

// What a client can see of a solve: every decision node's shown strategy at
// its first boards, and both players' values and best responses.
struct SolveView {
    int iterations = 0;
    std::vector<float> strategies;
    double values[4] = {};

    bool operator==(const SolveView&) const = default;
};

SolveView view_of(SubgameEngine& e) {
    SolveView view;
    view.iterations = e.iterations;
    const RootBoard& root = *e.root_board;
    for (const TreeNode& node : e.nodes) {
        if (node.kind != decision_node || !node.regrets) continue;
        const int turn = node.street == flop_street ? -1 : (e.root_turn_group >= 0 ? e.root_turn_group : 0);
        const int river = node.street == river_street ? (e.root_river_row >= 0 ? e.root_river_row : 0) : -1;
        int count = static_cast<int>(root.hands.size());
        if (turn >= 0) count = root.turns[turn].hands.size();
        if (river >= 0) count = root.turns[turn].rivers[river].hands.size();
        std::vector<float> out(node.children.size() * count);
        read_reported_strategy(e, node, turn, river, count, out.data());
        view.strategies.insert(view.strategies.end(), out.begin(), out.end());
    }
    const SolverProgressRecord results = calc_results_now();
    view.values[0] = results.ev_oop;
    view.values[1] = results.ev_ip;
    view.values[2] = results.mes_oop;
    view.values[3] = results.mes_ip;
    return view;
}

void solve(int iterations) {
    for (int i = 0; i < iterations; ++i) run_iteration(*engine);
}

void load_bytes(const std::vector<uint8_t>& bytes) {
    MemoryChannel channel(-1);
    channel.bytes = bytes;
    channel.rewind();
    read_tree_file(channel, solver_tree_file_hooks());
    EXPECT_TRUE(channel.at_end());
}

// Where each field the reader takes of a file starts, and where its 16- and
// 32-bit fields (counts and sizes among them) start. Loads the file.
struct FieldStarts {
    std::vector<size_t> all, counts;
};

FieldStarts field_starts(const std::vector<uint8_t>& file) {
    struct RecordingChannel : MemoryChannel {
        RecordingChannel() : MemoryChannel(-1) {}
        void transfer(void* buffer, int64_t count) override {
            starts.all.push_back(position);
            if (count == 2 || count == 4) starts.counts.push_back(position);
            MemoryChannel::transfer(buffer, count);
        }
        FieldStarts starts;
    } channel;
    channel.bytes = file;
    channel.rewind();
    read_tree_file(channel, solver_tree_file_hooks());
    for (std::vector<size_t>* starts : {&channel.starts.all, &channel.starts.counts}) {
        std::sort(starts->begin(), starts->end());
        starts->erase(std::unique(starts->begin(), starts->end()), starts->end());
    }
    return channel.starts;
}

std::vector<uint8_t> dump_bytes(const TreeDumpOptions& options = {}) {
    MemoryChannel channel(-1);
    write_tree_file(channel, *engine, options, solver_tree_file_hooks());
    return channel.bytes;
}

// Builds a game at a level. Sums from the first iteration on, so that a few
// iterations fill every kind of row.
void build_at_level(const TestGame& game, int level, int32_t average_mode = 2, int version = 7) {
    build_test_game(game);
    engine->format_version = version;
    engine->average_strategy_mode = average_mode;
    compression_level = level;
    assign_storage(compression_pair(level));
}

int first_street_of(const TestGame& game) {
    return game.river.empty() ? (game.turn.empty() ? flop_street : turn_street) : river_street;
}

// Small ranges keep the flop trees quick; every store class still gets rows.
TestGame small_flop_game() {
    TestGame game = flop_game();
    game.share = 0.06;
    return game;
}

TestGame small_turn_game() {
    TestGame game = turn_game();
    game.share = 0.1;
    return game;
}

class TreeFileTest : public testing::Test {
protected:
    static void SetUpTestSuite() { prepare_tables(); }
    void TearDown() override {
        destroy_engine();
        tree_info_lines.clear();
    }
};

struct SolveCase {
    TestGame game;
    int level;
    bool isomorphic = true;
    int32_t average_mode = 2;
    int iterations = 3;
};

// A solve saved in a version's form and loaded again reads as it did, and
// continues as it would have without the file: strategies, results, and the
// iterations after the load. The program writes version 7, which must be the
// bytes of the tests' writer; older versions come from that writer alone.
void check_continuation(const SolveCase& c, int version) {
    const bool was_isomorphic = isomorphism_by_street[first_street_of(c.game)];
    isomorphism_by_street[first_street_of(c.game)] = c.isomorphic;
    build_at_level(c.game, c.level, c.average_mode, version);
    isomorphism_by_street[first_street_of(c.game)] = was_isomorphic;
    SCOPED_TRACE("version " + std::to_string(version) + " level " + std::to_string(c.level) + " street " +
                 std::to_string(first_street) + " isomorphism " + std::to_string(c.isomorphic) + " iterations " +
                 std::to_string(c.iterations));
    tree_info_lines = {"first", ""};
    solve(c.iterations);
    const std::vector<uint8_t> file = write_old_tree_file({version, version == 6});
    if (version == 7) {
        EXPECT_EQ(file, dump_bytes());
    }
    const SolveView saved = view_of(*engine);
    const uint32_t isomorphism = engine->flags & isomorphism_on_flag;
    solve(3);
    const SolveView continued = view_of(*engine);
    load_bytes(file);
    EXPECT_EQ(engine->format_version, version);
    EXPECT_EQ(engine->flags & isomorphism_on_flag, isomorphism);
    EXPECT_EQ(view_of(*engine), saved);
    solve(3);
    EXPECT_EQ(view_of(*engine), continued);
    if (version == 7) {
        EXPECT_EQ(tree_info_lines, (std::vector<std::string>{"first", ""}));
    }
    destroy_engine();
}

// A river game crosses the averaging delay across the save; packed stores
// also go through before any walk, when they have no streams yet.
TEST_F(TreeFileTest, SolvesContinueAtEveryLevel) {
    std::vector<SolveCase> cases;
    for (int level = 0; level <= 5; ++level) cases.push_back({small_flop_game(), level, level % 2 == 0});
    for (const int level : {2, 4}) cases.push_back({small_flop_game(), level, true, 2, 0});
    cases.push_back({small_turn_game(), 0, false, 2, 4});
    cases.push_back({river_game(), 0, true, 1, averaging_delay - 1});
    cases.push_back({river_game(), 0, true, 1, averaging_delay + 1});
    for (const SolveCase& c : cases) check_continuation(c, 7);
}

// Files of older versions still load: each version's reading path meets two
// of the games and levels in turn.
TEST_F(TreeFileTest, OlderVersionsContinueTheSolve) {
    const SolveCase cases[] = {{river_game(), 0, true, 1, averaging_delay - 1},
                               {small_flop_game(), 1},
                               {small_flop_game(), 2, false},
                               {small_turn_game(), 0, true, 2, 4},
                               {small_flop_game(), 3},
                               {small_flop_game(), 4},
                               {small_flop_game(), 5, false}};
    int round = 0;
    for (int version = 0; version <= 6; ++version)
        for (int pick = 0; pick < 2; ++pick) check_continuation(cases[round++ % std::size(cases)], version);
}

TEST_F(TreeFileTest, DamagedFilesLeaveTheTreeAlone) {
    std::vector<std::vector<uint8_t>> files;
    std::vector<FieldStarts> boundaries;
    for (const int level : {1, 3, 4, 5}) {
        build_at_level(small_flop_game(), level);
        solve(3);
        files.push_back(dump_bytes());
        boundaries.push_back(field_starts(files.back()));
    }
    build_at_level(river_game(), 0);
    solve(2);
    tree_info_lines = {"kept"};
    const SubgameEngine* kept = engine.get();
    const SolveView before = view_of(*engine);

    std::mt19937 random(7);
    int refused = 0, loaded = 0;
    const std::string disk_file = testing::TempDir() + "tavrek_damaged_" + std::to_string(getpid()) + ".tree";
    // A file on disk reads through the program's channel, whose early ends
    // come from the system.
    auto attempt = [&](const std::vector<uint8_t>& bytes, bool from_disk = false) {
        try {
            if (from_disk) {
                std::ofstream(disk_file, std::ios::binary)
                    .write(reinterpret_cast<const char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
                FileReadChannel channel(disk_file);
                read_tree_file(channel, solver_tree_file_hooks());
            } else {
                load_bytes(bytes);
            }
            ++loaded;
            // A file that reads may still hold garbage: walking it must be safe.
            calc_results_now();
            destroy_engine();
            build_at_level(river_game(), 0);
            solve(2);
            tree_info_lines = {"kept"};
            kept = engine.get();
        } catch (const std::runtime_error& error) {
            ++refused;
            const std::string text = error.what();
            const bool known = text.find("invalid file") != std::string::npos ||
                               text.find("can't read from file") != std::string::npos ||
                               text.find("unsupported data format") != std::string::npos ||
                               text.find("incompatible data") != std::string::npos ||
                               text.find("read past the end") != std::string::npos ||
                               text.find("CreateOptimalTree") != std::string::npos ||
                               text.find("compressor wrong id") != std::string::npos;
            EXPECT_TRUE(known) << text;
            ASSERT_EQ(engine.get(), kept);
            EXPECT_TRUE(tree_ready);
            EXPECT_EQ(tree_info_lines, std::vector<std::string>{"kept"});
        }
    };
    for (size_t f = 0; f < files.size(); ++f) {
        const std::vector<uint8_t>& file = files[f];
        // Ends at field boundaries, spread over all the fields the reader
        // takes, so that each kind of section is cut short somewhere.
        for (int cut = 0; cut < 16; ++cut) {
            const size_t length = boundaries[f].all[boundaries[f].all.size() * cut / 16];
            attempt(std::vector<uint8_t>(file.begin(), file.begin() + length));
        }
        // Ends at random points and in each eighth of the file.
        for (int cut = 0; cut < 10; ++cut) {
            const size_t length = cut < 8 ? file.size() * cut / 8 : random() % file.size();
            attempt(std::vector<uint8_t>(file.begin(), file.begin() + length), cut % 2 == 1);
        }
        // The first byte of fields spread over the file set to its highest:
        // codes that ask for more bytes than follow.
        for (int field = 0; field < 16; ++field) {
            std::vector<uint8_t> damaged = file;
            const size_t at = boundaries[f].all[boundaries[f].all.size() * (2 * field + 1) / 32];
            damaged[at] = damaged[at] == 0xff ? 0x7f : 0xff;
            attempt(damaged);
        }
        // 16- and 32-bit fields spread over the file made huge: counts and
        // sizes beyond anything the tree allows or the file holds.
        const std::vector<size_t>& counts = boundaries[f].counts;
        for (int field = 0; field < 12; ++field) {
            std::vector<uint8_t> damaged = file;
            const size_t at = counts[counts.size() * (2 * field + 1) / 24];
            damaged[at + 1] = 0x7f;
            attempt(damaged);
        }
        // Flipped bytes and huge counts.
        for (int flip = 0; flip < 8; ++flip) {
            std::vector<uint8_t> damaged = file;
            const size_t at = random() % damaged.size();
            if (flip % 2 == 0) {
                damaged[at] ^= static_cast<uint8_t>(1 + random() % 255);
            } else {
                for (size_t i = at; i < std::min(at + 4, damaged.size()); ++i) damaged[i] = i + 1 == at + 4 ? 0x7f : 0xff;
            }
            attempt(damaged);
        }
    }
    EXPECT_GT(refused, 0);
    if (engine.get() == kept && tree_info_lines == std::vector<std::string>{"kept"}) {
        EXPECT_EQ(view_of(*engine), before);
    }
    std::vector<uint8_t> newer = files[0];
    newer[4] = 8;
    attempt(newer);
    std::vector<uint8_t> magic = files[0];
    magic[0] = 'B';
    attempt(magic);
    std::remove(disk_file.c_str());
}

}  // namespace
