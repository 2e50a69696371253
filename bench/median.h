// Small helpers of the benchmark programs.
#pragma once

#include <algorithm>
#include <chrono>
#include <cstddef>
#include <vector>

inline std::chrono::steady_clock::time_point bench_now()
{
    return std::chrono::steady_clock::now();
}

inline double bench_ms_since(std::chrono::steady_clock::time_point start)
{
    return std::chrono::duration<double, std::milli>(bench_now() - start).count();
}

// values is not empty.
inline double bench_median(std::vector<double> values)
{
    auto middle = values.begin() + static_cast<std::ptrdiff_t>(values.size() / 2);
    std::nth_element(values.begin(), middle, values.end());
    return *middle;
}
