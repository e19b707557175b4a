// Nanoseconds per hand_value_7 on random seven-card hands, one core.
//
// The hands are drawn before timing; each run evaluates all of them several
// times over and the median of the runs is reported, so a stray interruption
// doesn't decide the figure. Both wall-clock and this thread's CPU time are
// shown: on a shared machine the second is the one that tells the code's speed.
#include <algorithm>
#include <chrono>
#include <cstdio>
#include <ctime>
#include <random>
#include <vector>

#include "model/hand_strength.h"

namespace {

constexpr int hand_count = 1 << 16;
constexpr int passes_per_run = 50;
constexpr int runs = 9;

std::vector<LaneMask> random_seven_card_hands() {
    std::mt19937_64 random(12345);
    std::vector<LaneMask> hands(hand_count);
    for (auto& hand : hands) {
        CardMask cards = 0;
        while (__builtin_popcountll(cards) < 7) cards |= card_bit(static_cast<Card>(random() % 52));
        hand = lane_mask_of(cards);
    }
    return hands;
}

double thread_cpu_nanoseconds() {
    timespec now;
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &now);
    return static_cast<double>(now.tv_sec) * 1e9 + static_cast<double>(now.tv_nsec);
}

struct RunTime {
    double wall_per_hand;
    double cpu_per_hand;
};

// The checksum keeps the work from being dropped.
RunTime time_one_run(const std::vector<LaneMask>& hands, uint64_t& checksum) {
    const auto wall_start = std::chrono::steady_clock::now();
    const double cpu_start = thread_cpu_nanoseconds();
    for (int pass = 0; pass < passes_per_run; ++pass)
        for (LaneMask hand : hands) checksum += hand_value_7(hand);
    const double cpu = thread_cpu_nanoseconds() - cpu_start;
    const double wall = std::chrono::duration<double, std::nano>(std::chrono::steady_clock::now() - wall_start).count();
    const double evaluations = static_cast<double>(hand_count) * passes_per_run;
    return {wall / evaluations, cpu / evaluations};
}

void print_spread(const char* clock, std::vector<double> per_hand) {
    std::sort(per_hand.begin(), per_hand.end());
    printf("  %-4s median %.2f ns/hand (fastest %.2f, slowest %.2f)\n", clock, per_hand[per_hand.size() / 2],
           per_hand.front(), per_hand.back());
}

}  // namespace

int main() {
    init_hand_strength_tables();
    const std::vector<LaneMask> hands = random_seven_card_hands();
    uint64_t checksum = 0;
    time_one_run(hands, checksum);  // warm the tables and the hand list into cache
    std::vector<double> wall, cpu;
    for (int run = 0; run < runs; ++run) {
        const RunTime time = time_one_run(hands, checksum);
        wall.push_back(time.wall_per_hand);
        cpu.push_back(time.cpu_per_hand);
    }
    printf("hand_value_7: %d random hands x %d passes, %d runs\n", hand_count, passes_per_run, runs);
    print_spread("wall", wall);
    print_spread("cpu", cpu);
    printf("  checksum %llu\n", static_cast<unsigned long long>(checksum));
    return 0;
}
