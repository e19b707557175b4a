// Runout tables: for each stored turn board, how a pair of hands fares over
// every river card at once. An all-in showdown reached before the river is
// then one pass over the live opposing hands of the turn list, instead of a
// sweep, a gather and a scatter for each of the river cards.
#include <immintrin.h>

#include <algorithm>
#include <cstdint>
#include <vector>

#include "shell/protocol/processor.h"
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

// Row o of the table over all hands x, as sums over the rows of `ranks`:
// +1 where x beats o, -1 where it loses. An absent x (-1) reads as a loss, so
// the sums start from `absent_rows` (per x, the rows it is absent on) and
// lose one for each row where both are absent, which the comparison skips.
// Hands are taken in blocks of 16 whose sums stay in registers across rows.
struct RowsOfHand {
    std::vector<const int16_t*> present;  // rows where o has a group
    std::vector<int16_t> own;             // o's group on each of them
    std::vector<const int16_t*> absent;   // rows where o is absent
};

void rows_of_hand(const std::vector<std::vector<int16_t>>& ranks, int o, RowsOfHand& rows) {
    rows.present.clear();
    rows.own.clear();
    rows.absent.clear();
    for (const std::vector<int16_t>& rank : ranks) {
        if (rank[o] == absent) {
            rows.absent.push_back(rank.data());
        } else {
            rows.present.push_back(rank.data());
            rows.own.push_back(rank[o]);
        }
    }
}

constexpr int block_hands = 16;

// One hand x of the row: the plain form, and the tail of the vector form.
int16_t row_entry(const RowsOfHand& rows, const int16_t* absent_rows, int x) {
    int16_t sum = absent_rows[x];
    for (size_t r = 0; r < rows.present.size(); ++r) {
        const int16_t theirs = rows.present[r][x];
        sum = static_cast<int16_t>(sum + (theirs > rows.own[r]) - (theirs < rows.own[r]));
    }
    for (const int16_t* rank : rows.absent) sum = static_cast<int16_t>(sum - (rank[x] == absent));
    return sum;
}

// Entries from x = `from` on; the vector form may start up to a block before.
void fill_row_plain(int8_t* row, const RowsOfHand& rows, const int16_t* absent_rows, int from, int count) {
    for (int x = from; x < count; ++x) row[x] = static_cast<int8_t>(row_entry(rows, absent_rows, x));
}

[[gnu::target("avx2")]] void fill_row_avx2(int8_t* row, const RowsOfHand& rows, const int16_t* absent_rows,
                                            int from, int count) {
    const __m256i absent_value = _mm256_set1_epi16(absent);
    const size_t present = rows.present.size();
    int x = from - from % block_hands;
    for (; x + block_hands <= count; x += block_hands) {
        __m256i sums = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(absent_rows + x));
        for (size_t r = 0; r < present; ++r) {
            const __m256i theirs = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(rows.present[r] + x));
            const __m256i own = _mm256_set1_epi16(rows.own[r]);
            // Compares give -1 where true.
            sums = _mm256_sub_epi16(sums, _mm256_cmpgt_epi16(theirs, own));
            sums = _mm256_add_epi16(sums, _mm256_cmpgt_epi16(own, theirs));
        }
        for (const int16_t* rank : rows.absent) {
            const __m256i theirs = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(rank + x));
            sums = _mm256_add_epi16(sums, _mm256_cmpeq_epi16(theirs, absent_value));
        }
        // Sums lie within +-52: the packed bytes are the values themselves.
        const __m128i packed = _mm_packs_epi16(_mm256_castsi256_si128(sums), _mm256_extracti128_si256(sums, 1));
        _mm_storeu_si128(reinterpret_cast<__m128i*>(row + x), packed);
    }
    for (; x < count; ++x) row[x] = static_cast<int8_t>(row_entry(rows, absent_rows, x));
}

void build_table(RunoutBoard& turn, bool vector) {
    const int count = static_cast<int>(turn.hands.size());
    const std::vector<std::vector<int16_t>> ranks = river_ranks(turn);
    std::vector<int16_t> absent_rows(count, 0);
    for (const std::vector<int16_t>& rank : ranks)
        for (int x = 0; x < count; ++x) absent_rows[x] = static_cast<int16_t>(absent_rows[x] + (rank[x] == absent));
    turn.runout_wins.assign(static_cast<size_t>(count) * count, 0);
    // The hands that hold each card, for the pairs that share one.
    std::vector<std::vector<int>> holders(52);
    for (int x = 0; x < count; ++x)
        for (CardMask cards = turn.hands[x]; cards; cards &= cards - 1) holders[__builtin_ctzll(cards)].push_back(x);
    RowsOfHand rows;
    int8_t* const table = turn.runout_wins.data();
    // The table is antisymmetric: each row is counted from its diagonal on,
    // and the entries before it are the negated column.
    for (int o = 0; o < count; ++o) {
        int8_t* row = table + static_cast<size_t>(o) * count;
        rows_of_hand(ranks, o, rows);
        if (vector) {
            fill_row_avx2(row, rows, absent_rows.data(), o, count);
        } else {
            fill_row_plain(row, rows, absent_rows.data(), o, count);
        }
    }
    for (int o = 1; o < count; ++o) {
        int8_t* row = table + static_cast<size_t>(o) * count;
        for (int x = 0; x < o; ++x) row[x] = static_cast<int8_t>(-table[static_cast<size_t>(x) * count + o]);
    }
    for (int o = 0; o < count; ++o) {
        int8_t* row = table + static_cast<size_t>(o) * count;
        // Hands that share a card never meet.
        for (CardMask cards = turn.hands[o]; cards; cards &= cards - 1)
            for (const int x : holders[__builtin_ctzll(cards)]) row[x] = 0;
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

void build_runout_tables(RootBoard& root, bool allow_avx2) {
    const bool vector = allow_avx2 && avx2_runs();
    const int turns = static_cast<int>(root.turns.size());
#pragma omp parallel for num_threads(4) schedule(dynamic, 1)
    for (int t = 0; t < turns; ++t) {
        RunoutBoard& turn = root.turns[t];
        turn.runout_wins.clear();
        if (images_complete(turn)) build_table(turn, vector);
    }
}
