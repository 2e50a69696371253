#include "libcvmx/sim/_cvmx-clock.h"

#include <cstdio>
#include <memory>
#include <x86intrin.h>

uint64_t cvmx_clock_get_count(cvmx_clock_t)
{
    return __rdtsc();
}

uint64_t cvmx_get_cycle()
{
    return __rdtsc();
}

// The product is formed as a float: rates carry its rounding, to 64 or 128 Hz at today's speeds.
static uint64_t read_rate()
{
    std::unique_ptr<FILE, int (*)(FILE *)> file(fopen("/proc/cpuinfo", "r"), fclose);
    if (file == nullptr)
        return 0;
    char line[4096];
    while (fgets(line, sizeof(line), file.get()) != nullptr) {
        float mhz = 0;
        if (sscanf(line, "cpu MHz %*s %f\n", &mhz) == 1)
            return static_cast<uint64_t>(mhz * 1000000.0f);
    }
    return 0;
}

uint64_t cvmx_clock_get_rate(cvmx_clock_t)
{
    static uint64_t rate;
    if (rate == 0)
        rate = read_rate();
    return rate;
}
