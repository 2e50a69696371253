#include "common/mempool.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <csignal>
#include <cstring>
#include <functional>
#include <random>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include "tests/common/syslog_lines.h"

static constexpr size_t BLOCK_SIZE = 64;

namespace {
// A pool that a second process sees at another address: header and records, then the blocks.
struct t_shared_pool {
    mempool *mp;
    uint8_t *base;
    mempool *mp_elsewhere;
    uint8_t *base_elsewhere;
    size_t size;

    explicit t_shared_pool(int count)
        : size(mempool_size(count) + BLOCK_SIZE + static_cast<size_t>(count) * BLOCK_SIZE)
    {
        int fd = memfd_create("pool", 0);
        EXPECT_EQ(ftruncate(fd, static_cast<off_t>(size)), 0);
        mp = map(fd);
        mp_elsewhere = map(fd);
        close(fd);
        base = blocks(mp, count);
        base_elsewhere = blocks(mp_elsewhere, count);
        EXPECT_EQ(mempool_create(mp, base, BLOCK_SIZE, count), mp);
    }
    ~t_shared_pool()
    {
        munmap(mp, size);
        munmap(mp_elsewhere, size);
    }
    t_shared_pool(const t_shared_pool &) = delete;
    t_shared_pool &operator=(const t_shared_pool &) = delete;

    mempool *map(int fd) const
    {
        return static_cast<mempool *>(mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0));
    }
    static uint8_t *blocks(mempool *p_pool, int count)
    {
        return reinterpret_cast<uint8_t *>(p_pool) + mempool_size(count);
    }
    t_mempool_hdr *records() const
    {
        return reinterpret_cast<t_mempool_hdr *>(mp + 1);
    }
    void *alloc() const
    {
        return mempool_alloc(mp, base);
    }
    int drain() const
    {
        int count = 0;
        while (alloc() != nullptr)
            count++;
        return count;
    }
};
}  // namespace

static pid_t run_in_other_process(const std::function<void()> &function)
{
    pid_t pid = fork();
    if (pid == 0) {
        function();
        _exit(0);
    }
    return pid;
}

static int end_of(pid_t pid)
{
    int status = 0;
    waitpid(pid, &status, 0);
    return status;
}

// Takes and frees at random; every block that it holds is filled with its own mark, which nobody else may
// have changed by the time it is freed. False when somebody had.
static bool work_at_random(mempool *mp, uint8_t *base, int operations, uint32_t seed)
{
    std::minstd_rand random(seed);
    std::vector<uint8_t *> held;
    auto free_one = [&](size_t index) {
        uint8_t *p_block = held[index];
        held[index] = held.back();
        held.pop_back();
        for (size_t i = 0; i < BLOCK_SIZE; i++)
            if (p_block[i] != static_cast<uint8_t>(seed))
                return false;
        mempool_free(mp, base, p_block);
        return true;
    };
    for (int i = 0; i < operations; i++) {
        if (!held.empty() && random() % 2 == 0) {
            if (!free_one(random() % held.size()))
                return false;
            continue;
        }
        auto *p_block = static_cast<uint8_t *>(mempool_alloc(mp, base));
        if (p_block == nullptr)
            continue;
        memset(p_block, static_cast<int>(seed), BLOCK_SIZE);
        held.push_back(p_block);
    }
    while (!held.empty())
        if (!free_one(held.size() - 1))
            return false;
    return true;
}

static void work_in_two_processes(int operations)
{
    static constexpr int COUNT = 40;
    t_shared_pool pool(COUNT);
    ASSERT_NE(pool.base, pool.base_elsewhere);
    pid_t pid = run_in_other_process(
        [&] { _exit(work_at_random(pool.mp_elsewhere, pool.base_elsewhere, operations, 2) ? 0 : 1); });
    EXPECT_TRUE(work_at_random(pool.mp, pool.base, operations, 1));
    EXPECT_EQ(end_of(pid), 0);
    for (int i = 0; i < COUNT; i++)
        EXPECT_TRUE(mempool_is_free(pool.mp, pool.base, i));
    mempool_destroy(pool.mp);
}

TEST(Mempool, TwoProcessesAtDifferentAddressesShareIt)
{
    work_in_two_processes(50'000);
}

TEST(MempoolSoak, TwoProcessesShareAMillionOperations)
{
    work_in_two_processes(500'000);
}

TEST(Mempool, TheLastBlockComesFirstAndTheLinksStandInTheBlocks)
{
    t_shared_pool pool(3);
    static constexpr int32_t links[] = {-1, 0, 1};
    for (int i = 0; i < 3; i++)
        EXPECT_EQ(memcmp(pool.base + i * BLOCK_SIZE, &links[i], sizeof(int32_t)), 0) << i;
    for (int i = 2; i >= 0; i--)
        EXPECT_EQ(pool.alloc(), pool.base + i * BLOCK_SIZE);
    EXPECT_EQ(pool.alloc(), nullptr);
    EXPECT_EQ(mempool_nused(pool.mp), 3);
    mempool_free(pool.mp, pool.base, pool.base + BLOCK_SIZE);
    EXPECT_EQ(mempool_next(pool.mp), 1);
    EXPECT_TRUE(mempool_is_free(pool.mp, pool.base, 1));
    EXPECT_FALSE(mempool_is_free(pool.mp, pool.base, 2));
}

TEST(MempoolGolden, Dumps)
{
    t_shared_pool pool(4);
    for (int i = 0; i < 3; i++)
        mempool_record(pool.mp, pool.base, pool.alloc(), 0x1234);
    EXPECT_EQ(pool.records()[1].line_num, 0x1234);
    testing::internal::CaptureStdout();
    mempool_dump(pool.mp);
    std::string text = testing::internal::GetCapturedStdout();
    EXPECT_EQ(text.substr(text.find(" stats:")), " stats:\nblock size:\t\t64\nnumber of blocks:\t4\nnumber "
                                                 "of free blocks:\t1\nfirst free block:\t0\n\n");
    testing::internal::CaptureStdout();
    mempool_inuse_dump(pool.mp, pool.base, 1);
    text = testing::internal::GetCapturedStdout();
    EXPECT_EQ(std::count(text.begin(), text.end(), '\n'), 2) << "one line more than asked for";
    EXPECT_EQ(std::count(text.begin(), text.end(), '<'), 2 * MP_BACKTRACE_SIZE);
}

TEST(MempoolDeathTest, WhatOnlyAFaultyProgramDoesEndsTheProcess)
{
    static const struct {
        const char *behaviour;
        void (*act)(t_shared_pool &pool, uint8_t *p_block);  // p_block is block 2, in use; 1 and 0 are free
    } cases[] = {
        {"a block freed twice",
         [](t_shared_pool &pool, uint8_t *p_block) {
             mempool_free(pool.mp, pool.base, p_block);
             mempool_free(pool.mp, pool.base, p_block);
         }},
        {"an address inside a block",
         [](t_shared_pool &pool, uint8_t *p_block) { mempool_free(pool.mp, pool.base, p_block + 4); }},
        {"an address behind the last block",
         [](t_shared_pool &pool, uint8_t *p_block) {
             mempool_free(pool.mp, pool.base, p_block + BLOCK_SIZE);
         }},
        {"an address before the first block",
         [](t_shared_pool &pool, uint8_t *) { mempool_free(pool.mp, pool.base, pool.base - 1); }},
        {"an address of something else",
         [](t_shared_pool &pool, uint8_t *) { mempool_free(pool.mp, pool.base, &pool); }},
        {"a mark on a free block",
         [](t_shared_pool &pool, uint8_t *) { mempool_record(pool.mp, pool.base, pool.base, 1); }},
        {"a list that leads to a block in use",
         [](t_shared_pool &pool, uint8_t *) {
             pool.mp->mp_next = 2;
             pool.alloc();
         }},
        {"a pool destroyed in use", [](t_shared_pool &pool, uint8_t *) { mempool_destroy(pool.mp); }},
    };
    for (const auto &c : cases) {
        t_shared_pool pool(3);
        auto *p_block = static_cast<uint8_t *>(pool.alloc());
        EXPECT_EXIT(c.act(pool, p_block), testing::KilledBySignal(SIGSEGV), "") << c.behaviour;
    }
}

// A process that changes the pool of three free blocks, whose list is 2, 1, 0, under the lock and is killed.
static void die_with_lock(t_shared_pool &pool, void (*change)(t_shared_pool &pool))
{
    pid_t pid = run_in_other_process([&] {
        pthread_mutex_lock(&pool.mp->mp_mutex);
        pool.mp->mp_owner = getpid();
        change(pool);
        kill(getpid(), SIGKILL);
    });
    EXPECT_EQ(end_of(pid), SIGKILL);
}

TEST(MempoolDeathTest, AKilledHolderIsReportedAndWhatHeLeftIsMendedOrEndsTheProcess)
{
    static const struct {
        const char *behaviour;
        void (*change)(t_shared_pool &pool);
        int blocks;  // left to take; -1: the process ends
    } cases[] = {
        {"nothing begun", [](t_shared_pool &) {}, 3},
        {"a block out of the list that nobody has", [](t_shared_pool &pool) { pool.mp->mp_next = 1; }, 3},
        {"a block taken",
         [](t_shared_pool &pool) {
             pool.mp->mp_next = 1;
             pool.records()[2].mp_magic = MP_MAGIC_INUSE;
         },
         2},
        {"two blocks out of the list", [](t_shared_pool &pool) { pool.mp->mp_next = 0; }, -1},
        {"a list out of the pool", [](t_shared_pool &pool) { pool.mp->mp_next = 3; }, -1},
        {"a list to a block in use", [](t_shared_pool &pool) { pool.records()[1].mp_magic = MP_MAGIC_INUSE; },
         -1},
        {"a circle",
         [](t_shared_pool &pool) {
             pool.base[0] = 2;
             memset(pool.base + 1, 0, 3);
         },
         -1},
        {"a record overwritten",
         [](t_shared_pool &pool) {
             pool.mp->mp_next = 1;
             pool.records()[2].mp_magic = 0;
         },
         -1},
    };
    for (const auto &c : cases) {
        t_shared_pool pool(3);
        die_with_lock(pool, c.change);
        if (c.blocks < 0) {
            EXPECT_EXIT(pool.alloc(), testing::KilledBySignal(SIGSEGV), "") << c.behaviour;
            continue;
        }
        int dead = pool.mp->mp_owner;
        syslog_lines_take();
        EXPECT_EQ(pool.drain(), c.blocks) << c.behaviour;
        std::vector<t_syslog_line> lines = syslog_lines_take();
        ASSERT_EQ(lines.size(), 2u) << c.behaviour;
        EXPECT_NE(lines[0].text.find("process " + std::to_string(dead) + " died holding the lock"),
                  std::string::npos);
    }
}

TEST(Mempool, AProcessKilledAtAnyMomentLeavesAPoolThatTheOtherGoesOnWith)
{
    static constexpr int COUNT = 40;
    std::minstd_rand random(3);
    int reports = 0;
    for (int round = 0; round < 60; round++) {
        t_shared_pool pool(COUNT);
        pid_t pid = run_in_other_process(
            [&] { work_at_random(pool.mp_elsewhere, pool.base_elsewhere, 1'000'000'000, 2); });
        usleep(static_cast<useconds_t>(random() % 3000));
        kill(pid, SIGKILL);
        EXPECT_TRUE(work_at_random(pool.mp, pool.base, 200, 1)) << round;
        EXPECT_EQ(end_of(pid), SIGKILL);
        EXPECT_TRUE(work_at_random(pool.mp, pool.base, 200, 1)) << round;
        for (int i = 0; i < COUNT; i++)
            EXPECT_EQ(mempool_is_free(pool.mp, pool.base, i), pool.records()[i].mp_magic == MP_MAGIC_FREE)
                << round;
        reports += !syslog_lines_take().empty();
    }
    EXPECT_GT(reports, 0) << "nobody died with the lock: the test shows nothing";
}
