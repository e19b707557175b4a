// Prints the time to make the tree of boards and fill its hand lists for a
// full range on a flop, with and without isomorphism, median of a few runs,
// and the memory the lists take.
#include <algorithm>
#include <chrono>
#include <cstdio>
#include <vector>

#include "model/cards.h"
#include "model/hand_strength.h"
#include "shell/protocol/game_setup.h"
#include "tree/boards.h"

namespace {

size_t list_bytes(const RunoutBoard& board) {
    size_t bytes = board.hands.size() * (sizeof(CardMask) + sizeof(uint16_t) + sizeof(int32_t)) +
                   board.hand_of_slot.size() * sizeof(int16_t) +
                   board.strength_groups.size() * sizeof(int16_t) +
                   board.small_groups.size() * sizeof(SmallGroup) +
                   board.large_groups.size() * sizeof(LargeGroup);
    for (const auto& table : board.image_tables) bytes += table.size() * sizeof(int16_t);
    for (const RunoutBoard& river : board.rivers) bytes += sizeof(RunoutBoard) + list_bytes(river);
    return bytes;
}

void measure(const char* label, const char* flop, bool isomorphic) {
    RangeVector range;
    range.fill(1.0);
    constexpr int runs = 7;
    std::vector<double> times;
    size_t bytes = 0;
    size_t boards = 0;
    for (int run = 0; run < runs; ++run) {
        const auto start = std::chrono::steady_clock::now();
        auto root = make_boards(parse_cards(flop), -1, -1, isomorphic);
        SetHoles(*root, range.data(), range.data());
        const auto stop = std::chrono::steady_clock::now();
        times.push_back(std::chrono::duration<double, std::milli>(stop - start).count());
        bytes = 0;
        boards = 0;
        for (const RunoutBoard& turn : root->turns) {
            bytes += sizeof(RunoutBoard) + list_bytes(turn);
            boards += 1 + turn.rivers.size();
        }
    }
    std::nth_element(times.begin(), times.begin() + runs / 2, times.end());
    std::printf("%-28s %5zu boards  %8.1f ms  %6.1f MB\n", label, boards, times[runs / 2],
                static_cast<double>(bytes) / (1024.0 * 1024.0));
}

}  // namespace

int main() {
    init_combo_tables();
    init_hand_strength_tables();
    measure("rainbow flop, plain", "2c7dKh", false);
    measure("rainbow flop, isomorphic", "2c7dKh", true);
    measure("two-suited flop, isomorphic", "2c7cKd", true);
    measure("monotone flop, isomorphic", "2c7cKc", true);
    return 0;
}
