// Nanoseconds per hand_value_7 on random seven-card hands, one core.
//
// What is timed: a loop that reads a hand from a list, calls hand_value_7 out
// of line and adds the value to a local sum, as the hand lists and the category
// counts call it, one board and holding after another. No hand depends on the
// value of the one before, so calls overlap in the processor and the figure is
// the evaluator's throughput. Two more lines put it in context:
//   - "loop": the same loop around an out-of-line function that returns its
//     argument's low bits, the floor that the loop and the call cost alone.
//     It also tells a busy machine: when another process shares the core,
//     this line rises with the others;
//   - "chain": each hand is made to wait for the value before it, so the
//     figure is the latency of one evaluation, which no caller pays in bulk.
//
// The hands are drawn before timing; each run evaluates all of them several
// times over and the median of the runs is reported, so a stray interruption
// doesn't decide the figure. Both wall-clock and this thread's CPU time are
// shown: on a shared machine the second is the one that tells the code's speed.
#include <algorithm>
#include <chrono>
#include <cstdio>
#include <random>
#include <vector>

#include "bench_timing.h"
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

// Stands in for the evaluator in the "loop" line; noipa keeps the call a call.
[[gnu::noipa]] HandValue no_evaluation(LaneMask cards) { return static_cast<HandValue>(cards); }

// Independent hands. The sum keeps the work from being dropped; it is kept in
// a register and in 32 bits, so each hand costs the loop one load and one add
// beside the call, and the loop is unrolled so that its count and jump are
// shared by four hands.
uint64_t evaluate_all(HandValue (*evaluate)(LaneMask), const std::vector<LaneMask>& hands) {
    uint32_t sum = 0;
    for (int pass = 0; pass < passes_per_run; ++pass) {
#pragma GCC unroll 4
        for (LaneMask hand : hands) sum += evaluate(hand);
    }
    return sum;
}

// Each hand waits for the previous value. A HandValue is below 2^28, so the
// shifted value is always 0 and the hand is unchanged, but the processor can't
// start the next call before the value is known.
uint64_t evaluate_chained(HandValue (*evaluate)(LaneMask), const std::vector<LaneMask>& hands) {
    uint64_t sum = 0;
    HandValue value = 0;
    for (int pass = 0; pass < passes_per_run; ++pass) {
        for (LaneMask hand : hands) {
            value = evaluate(hand | value >> 31);
            sum += value;
        }
    }
    return sum;
}

struct RunTime {
    double wall_per_hand;
    double cpu_per_hand;
};

template <class Pass>
RunTime time_one_run(Pass pass, uint64_t& checksum) {
    const auto wall_start = std::chrono::steady_clock::now();
    const double cpu_start = thread_seconds();
    checksum += pass();
    const double cpu = (thread_seconds() - cpu_start) * 1e9;
    const double wall = std::chrono::duration<double, std::nano>(std::chrono::steady_clock::now() - wall_start).count();
    const double evaluations = static_cast<double>(hand_count) * passes_per_run;
    return {wall / evaluations, cpu / evaluations};
}

double median(std::vector<double> values) {
    std::sort(values.begin(), values.end());
    return values[values.size() / 2];
}

template <class Pass>
void report(const char* name, Pass pass, uint64_t& checksum) {
    time_one_run(pass, checksum);  // warm the tables and the hand list into cache
    std::vector<double> wall, cpu;
    for (int run = 0; run < runs; ++run) {
        const RunTime time = time_one_run(pass, checksum);
        wall.push_back(time.wall_per_hand);
        cpu.push_back(time.cpu_per_hand);
    }
    std::sort(cpu.begin(), cpu.end());
    printf("  %-10s cpu median %5.2f ns/hand (fastest %.2f, slowest %.2f), wall median %5.2f\n", name,
           cpu[cpu.size() / 2], cpu.front(), cpu.back(), median(wall));
}

}  // namespace

int main() {
    init_hand_strength_tables();
    const std::vector<LaneMask> hands = random_seven_card_hands();
    uint64_t checksum = 0;
    printf("hand_value_7: %d random hands x %d passes, %d runs\n", hand_count, passes_per_run, runs);
    report("throughput", [&] { return evaluate_all(hand_value_7, hands); }, checksum);
    report("loop", [&] { return evaluate_all(no_evaluation, hands); }, checksum);
    report("chain", [&] { return evaluate_chained(hand_value_7, hands); }, checksum);
    printf("  checksum %llu\n", static_cast<unsigned long long>(checksum));
    return 0;
}
