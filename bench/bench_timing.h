// Timing helpers shared by the benchmark harnesses. They count the thread's
// own processor time, so other work on a shared machine skews them less.
#pragma once

#include <time.h>

#include <algorithm>
#include <vector>

inline double thread_seconds() {
    timespec now;
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &now);
    return static_cast<double>(now.tv_sec) + 1e-9 * static_cast<double>(now.tv_nsec);
}

// Repeats `pass` for about `run_seconds`, `runs` times; returns the median of
// millions of `units` (bytes, values) per second of thread time.
template <class Pass>
double median_rate(Pass pass, double units, int runs, double run_seconds) {
    std::vector<double> rates;
    for (int r = 0; r < runs; ++r) {
        int passes = 0;
        const double start = thread_seconds();
        double elapsed = 0;
        do {
            pass();
            ++passes;
            elapsed = thread_seconds() - start;
        } while (elapsed < run_seconds);
        rates.push_back(units * passes / elapsed / 1e6);
    }
    std::nth_element(rates.begin(), rates.begin() + runs / 2, rates.end());
    return rates[runs / 2];
}
