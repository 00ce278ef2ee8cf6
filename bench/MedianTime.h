// Median wall time of repeated runs, for the benchmarks that are small timed
// programs rather than Google Benchmark suites.
#ifndef ZRUTILS_BENCH_MEDIANTIME_H
#define ZRUTILS_BENCH_MEDIANTIME_H

#include <algorithm>
#include <chrono>
#include <vector>

template<typename Body> double medianMicroseconds(int runs, Body body)
{
    using Clock = std::chrono::steady_clock;
    std::vector<double> times;
    times.reserve(runs);
    for (int i = 0; i < runs; ++i) {
        const auto start = Clock::now();
        body();
        times.push_back(std::chrono::duration<double, std::micro>(Clock::now() - start).count());
    }
    std::sort(times.begin(), times.end());
    return times[times.size() / 2];
}

#endif
