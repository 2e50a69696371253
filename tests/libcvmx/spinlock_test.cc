#include "libcvmx/sim/cvmx-spinlock.h"

#include <gtest/gtest.h>

#include <thread>
#include <vector>

TEST(Spinlock, OnlyOneThreadIsInside)
{
    static constexpr int TURNS = 20000;
    cvmx_spinlock_t lock = {};
    int count = 0;
    std::vector<std::thread> threads;
    for (int i = 0; i < 3; i++)
        threads.emplace_back([&] {
            for (int turn = 0; turn < TURNS; turn++) {
                cvmx_spinlock_lock(&lock);
                count++;
                cvmx_spinlock_unlock(&lock);
            }
        });
    for (std::thread &thread : threads)
        thread.join();
    EXPECT_EQ(count, 3 * TURNS);
    EXPECT_EQ(lock.value, 0u);
}
