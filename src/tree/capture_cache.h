// Values captured at one node, kept until the next iteration. A capture walk
// costs about half an iteration, and a client (a graphical one especially)
// asks for the same node again and again, for either player, between
// iterations; each answer stays good until the strategies move on.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <unordered_map>

#include "shell/protocol/hand_vector.h"

struct TreeNode;

// A node with its dealt cards (canonical board indices, -1 when not dealt)
// and the player whose hands were valued.
struct CaptureKey {
    const TreeNode* node = nullptr;
    int32_t turn = -1;
    int32_t river = -1;
    int32_t player = 0;
    // The real cards' images (RunoutImages), turn * 4 + river: the images of
    // a stored card may be worth apart under forced strategies.
    int32_t images = 0;

    bool operator==(const CaptureKey&) const = default;
};

struct CaptureKeyHash {
    size_t operator()(const CaptureKey& key) const {
        size_t hash = std::hash<const void*>()(key.node);
        for (const int32_t part : {key.turn, key.river, key.player, key.images})
            hash = hash * 1000003u ^ std::hash<int32_t>()(part);
        return hash;
    }
};

// Per hand of the node's board list: the value of each hand, and its weight
// (matchups times own reach). A null vector with a count stands for zeros.
struct CapturedValues {
    HandVector values;
    HandVector weights;
};

// The entries hold for one iteration count only: a lookup at another count
// finds nothing, and a store at another count drops every entry first.
class CaptureCache {
public:
    const CapturedValues* find(const CaptureKey& key, int32_t iterations) const;
    // The entry for the key, emptied, ready to be filled.
    CapturedValues& store(const CaptureKey& key, int32_t iterations);
    // Drops every entry and gives back the map's memory. Anything that
    // changes strategies without counting an iteration (a subgame solve, a
    // rebuilt street) must call it.
    void clear();
    size_t size() const { return entries_.size(); }
    int32_t iteration() const { return iteration_; }

private:
    std::unordered_map<CaptureKey, CapturedValues, CaptureKeyHash> entries_;
    int32_t iteration_ = -1;
};
