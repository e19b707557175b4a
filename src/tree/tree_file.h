// Tree files: a whole solve on disk, and back.
//
// A file is one run of little-endian fields without padding, read front to
// back and never seeked: the game (board, pot, ranges, betting lines), the
// engine's settings and compression level, then every node's stored values
// and its chance positions' caches, and the tree's info lines. The version
// field decides at several points what follows. Seven is the version written;
// every version from 0 on is read.
#pragma once

#include <cstdint>

#include "storage/codes/byte_channel.h"
#include "tree/engine.h"

constexpr char tree_file_magic[4] = {'A', 'I', '6', ':'};
constexpr int32_t tree_file_version = 7;

// A flag bit of the file's engine settings, beside the engine's own bits:
// the river nodes keep strategy sums. A tree keeps the choice of
// enable_river_strategy from its build, so a file must say which stores its
// river nodes have; files before version 7 don't, and take the setting.
constexpr uint32_t river_sums_file_flag = 8;

// What the files need from the layers above the tree.
struct TreeFileHooks {
    // The strategy a report shows at a decision node for one board (group -1
    // on the flop, the turn group on the turn): `actions` rows of `count`
    // values one after the other. A forgotten tree's solved streets are
    // written this way, in thousandths.
    void (*shown_strategy)(SubgameEngine& engine, const TreeNode& node, int group, int count, float* out) = nullptr;
    // Fills the reach vectors that a file of a forgotten tree left out
    // (first_missing, second_missing) by a walk of the tree that remains,
    // as forgetting does. Without it the vectors stay absent.
    void (*rebuild_missing_reach)(SubgameEngine& engine) = nullptr;
};

struct TreeDumpOptions {
    // Sets the file's values flag: the caches' values and a forgotten
    // tree's cut-off strategies are left out.
    bool without_values = false;
};

// Writes the engine's tree at version 7. The channel's version is set here.
void write_tree_file(ByteChannel& channel, SubgameEngine& engine, const TreeDumpOptions& options,
                     const TreeFileHooks& hooks);

// Reads a tree file into a new engine, through the build of build_tree, and
// puts it in the present one's place only when the whole file has been read:
// a refusal leaves the tree, the game's set-up, the lines and the info lines
// as they were. The refusals are those of a bad file: "invalid file",
// "unsupported data format, update to latest version", "can't read from file
// (...)", a decoder's text, or "out of memory".
void read_tree_file(ByteChannel& channel, const TreeFileHooks& hooks);

// The largest reserve limit a row stream of this tree can need.
int64_t tree_stream_reserve_cap(const SubgameEngine& engine);

// Whether every row stream that heads a river subtree's chain can take what
// the walk will reserve for it. A loaded file states its streams' reserves;
// one too small would end the process at its next write.
bool tree_stream_reserves_hold(const SubgameEngine& engine);
