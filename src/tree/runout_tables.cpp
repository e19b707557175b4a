// Runout tables: for each stored turn board, how a pair of hands fares over
// every river card at once. An all-in showdown reached before the river is
// then one pass over the live opposing hands of the turn list, instead of a
// sweep, a gather and a scatter for each of the river cards.
#include <algorithm>
#include <cstdint>
#include <vector>

#include "tree/boards.h"

namespace {

constexpr int16_t absent = -1;

// rank[c][X]: the strength group of turn hand X on the board with river card
// c (a Card), absent when X holds c. Read off the stored river boards: a river
// board's image k stands for another real card, its hands' images for the
// turn hands of that card, with the same strengths.
std::vector<std::vector<int16_t>> river_ranks(const RunoutBoard& turn) {
    const size_t count = turn.hands.size();
    std::vector<std::vector<int16_t>> ranks;
    for (const RunoutBoard& river : turn.rivers) {
        std::vector<int16_t> group_of(river.hands.size());
        for (size_t i = 0, group = 0, in_group = 0; i < river.hands.size(); ++i) {
            group_of[i] = static_cast<int16_t>(group);
            if (++in_group == static_cast<size_t>(river.strength_groups[group])) {
                ++group;
                in_group = 0;
            }
        }
        for (const std::vector<int16_t>& table : river.image_tables) {
            std::vector<int16_t>& row = ranks.emplace_back(count, absent);
            for (size_t i = 0; i < table.size(); ++i) row[table[i]] = group_of[i];
        }
    }
    return ranks;
}

// Row o of the table over all hands X: the rivers on which X beats o less
// those on which it loses. A plain loop that the compiler turns into vector
// compares.
void fill_row(int8_t* __restrict row, int16_t* __restrict sums, const std::vector<std::vector<int16_t>>& ranks, int o,
              int count) {
    std::fill(sums, sums + count, int16_t{0});
    for (const std::vector<int16_t>& rank : ranks) {
        const int16_t own = rank[o];
        if (own == absent) continue;
        const int16_t* __restrict theirs = rank.data();
        for (int x = 0; x < count; ++x) {
            const int16_t win = theirs[x] > own;
            const int16_t loss = theirs[x] < own && theirs[x] != absent;
            sums[x] = static_cast<int16_t>(sums[x] + win - loss);
        }
    }
    for (int x = 0; x < count; ++x) row[x] = static_cast<int8_t>(sums[x]);
}

void build_table(RunoutBoard& turn) {
    const int count = static_cast<int>(turn.hands.size());
    const std::vector<std::vector<int16_t>> ranks = river_ranks(turn);
    turn.runout_wins.assign(static_cast<size_t>(count) * count, 0);
    std::vector<int16_t> sums(count);
    for (int o = 0; o < count; ++o) {
        int8_t* row = turn.runout_wins.data() + static_cast<size_t>(o) * count;
        fill_row(row, sums.data(), ranks, o, count);
        // Hands that share a card never meet.
        for (int x = 0; x < count; ++x)
            if (turn.hands[x] & turn.hands[o]) row[x] = 0;
    }
}

// The tables follow the real river cards, which the walk reaches through the
// image tables of the stored ones; an image missing from the turn list (a
// range that isn't symmetric) would make the two differ, so such a board
// keeps walking its rivers.
bool images_complete(const RunoutBoard& turn) {
    for (const RunoutBoard& river : turn.rivers)
        for (const std::vector<int16_t>& table : river.image_tables)
            if (std::any_of(table.begin(), table.end(), [](int16_t at) { return at < 0; })) return false;
    return true;
}

}  // namespace

void build_runout_tables(RootBoard& root) {
    const int turns = static_cast<int>(root.turns.size());
#pragma omp parallel for num_threads(4) schedule(dynamic, 1)
    for (int t = 0; t < turns; ++t) {
        RunoutBoard& turn = root.turns[t];
        turn.runout_wins.clear();
        if (images_complete(turn)) build_table(turn);
    }
}
