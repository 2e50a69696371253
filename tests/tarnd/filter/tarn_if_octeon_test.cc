#include "tarnd/filter/tarn_if_octeon.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <csignal>
#include <cstring>
#include <span>

#include "tarnd/compiler/tarn_mem_mgr.h"
#include "tarnd/filter/tarn_if_octeon_private.h"
#include "tests/tarnd/filter/filter_pool.h"

static constexpr size_t block_size = 128;

// ---- Start ----

TEST(FilterInit, MapsWithoutLayingOutAndWaitsForTheForwardingPlane)
{
    FilterPool pool(8, 8);
    filter_pool_set_ready(false);
    int sleeps = 0;
    pool.on_sleep = [&] { filter_pool_set_ready(++sleeps == 3); };
    EXPECT_EQ(pool.init(), 0);
    EXPECT_EQ(pool.calls,
              (std::vector<std::string>{"map 0 1", "cores 0 0", "sleep 1", "sleep 1", "sleep 1"}));
}

TEST(FilterInit, WhatTheMappingReportsIsHandedOn)
{
    FilterPool pool(8, 8);
    pool.map_status = -1;
    EXPECT_EQ(pool.init(), -1);
    EXPECT_EQ(pool.calls, (std::vector<std::string>{"map 0 1"}));
    EXPECT_EQ(tarn_mem, nullptr);
}

TEST(FilterInit, WithoutHeapNothingIsLeft)
{
    FilterPool pool(8, 8);
    pool.no_heap = true;
    EXPECT_EQ(pool.init(), 12);
    EXPECT_EQ(tarn_mem, nullptr);
    EXPECT_EQ(pool.block(0)[0], 0xa5) << "no memory for the nodes: nothing was cleared";
}

// The wheel gives no timer: its only priorities are taken away.
TEST(FilterInit, WithoutATimerNothingIsLeft)
{
    FilterPool pool(8, 8);
    t_timer_mgr_pri *const wheels[] = {pool.tarn.p_timer_mgr->pri[0], pool.tarn.p_timer_mgr->pri[1]};
    pool.tarn.p_timer_mgr->pri[0] = pool.tarn.p_timer_mgr->pri[1] = nullptr;
    EXPECT_EQ(pool.init(), 12);
    EXPECT_EQ(tarn_mem, nullptr);
    std::copy(std::begin(wheels), std::end(wheels), pool.tarn.p_timer_mgr->pri);
}

static void fill_slots(int num_filters)
{
    for (int i = 0; i < num_filters; i++)
        g_fp_filter[i] = {
            .record_valid = 1, .activity = 1, .unused = 0, .hw_index = 7, .num_hw_mem_blocks = 3};
}

TEST(FilterInit, ClearsAsManyBytesOfTheSlotsAsThereAreSlots)
{
    static const struct {
        int num_filters;
        uint32_t free_slots;
        uint32_t last_hw_index;  // of the last slot that came free
    } cases[] = {
        {512, 43, 0},
        {256, 22, 7},
    };
    for (const auto &c : cases) {
        FilterPool pool(c.num_filters, 8);
        fill_slots(c.num_filters);
        ASSERT_EQ(pool.init(), 0);
        for (uint32_t i = 0; i < static_cast<uint32_t>(c.num_filters); i++) {
            const t_tarn_filter &filter = g_fp_filter[i];
            bool is_last = i + 1 == c.free_slots;
            EXPECT_EQ(filter.record_valid, i >= c.free_slots) << i;
            EXPECT_EQ(filter.activity, i >= c.free_slots) << i;
            EXPECT_EQ(filter.hw_index, is_last ? c.last_hw_index : i >= c.free_slots ? 7 : 0) << i;
            EXPECT_EQ(filter.num_hw_mem_blocks, i + 1 >= c.free_slots ? 3 : 0) << i;
        }
        // The stale slots are lost, and the rest is all there is.
        for (uint32_t i = 0; i < 8; i++) {
            EXPECT_EQ(tarn_oct_filter_mem_alloc(1), pool.block(i));
            EXPECT_EQ(g_filter_id, static_cast<int>(i));
        }
    }
}

static void expect_cleared(std::span<const uint32_t> table, bool is_cleared, const char *name)
{
    bool all = std::all_of(table.begin(), table.end() - 1, [](uint32_t word) { return word == 0; });
    EXPECT_EQ(all, is_cleared) << name;
    EXPECT_EQ(table.back(), 0xa5a5a5a5) << name;
}

TEST(FilterInit, ClearsTheDaemonsTablesOnlyWhenAskedTo)
{
    for (bool clear : {false, true}) {
        FilterPool pool(8, 8);
        ASSERT_EQ(pool.init(clear), 0);
        expect_cleared(pool.family_mapping, clear, "family mapping");
        expect_cleared(pool.proto_hits, clear, "protocol hits");
        expect_cleared(pool.dpi_enable_knob, clear, "classification knob");
        expect_cleared(pool.log_config, clear, "log configuration");
        expect_cleared(pool.flow_enable_knob, clear, "flow knob");
        for (size_t i = 0; i < 8 * block_size; i++)
            ASSERT_EQ(pool.block(0)[i], clear ? 0 : 0xa5) << i;
    }
}

TEST(FilterDestroy, LeavesSharedMemoryAloneAndNoTimer)
{
    FilterPool pool(8, 8);
    ASSERT_EQ(pool.init(), 0);
    void *p_program = tarn_oct_filter_mem_alloc(300);
    memset(p_program, 1, 300);
    tarn_oct_filter_mem_free(p_program);
    EXPECT_EQ(tarn_oct_filter_destroy(), 0);
    EXPECT_EQ(tarn_mem, nullptr);
    EXPECT_EQ(pool.tarn.p_timer_mgr->num_timers_created, pool.tarn.p_timer_mgr->num_timers_deleted);
    EXPECT_EQ(g_fp_filter[0].record_valid, 1);
    EXPECT_EQ(pool.block(0)[299], 1);
    // And nothing of the old list comes up again.
    ASSERT_EQ(pool.init(), 0);
    pool.advance_ms(2000);
    EXPECT_EQ(pool.released, std::vector<int>());
}

// ---- Allocation ----

TEST(FilterAlloc, TheLowestRunThatFitsAndTheLowestSlotWin)
{
    FilterPool pool(8, 8);
    ASSERT_EQ(pool.init(), 0);
    void *p_a = tarn_oct_filter_mem_alloc(129);  // blocks 0 and 1
    void *p_b = tarn_oct_filter_mem_alloc(128);  // block 2
    void *p_c = tarn_oct_filter_mem_alloc(257);  // blocks 3 to 5
    EXPECT_EQ(p_a, pool.block(0));
    EXPECT_EQ(p_b, pool.block(2));
    EXPECT_EQ(p_c, pool.block(3));
    tarn_oct_filter_mem_free(p_a);
    pool.advance_ms(500);
    tarn_oct_filter_mem_free(p_c);
    pool.advance_ms(500);
    EXPECT_EQ(tarn_oct_filter_mem_alloc(3 * block_size), pool.block(3))
        << "the two blocks in front do not do";
    EXPECT_EQ(g_filter_id, 0) << "slot and place have nothing to do with each other";
    EXPECT_EQ(g_fp_filter[0].hw_index, 3u);
    EXPECT_EQ(g_fp_filter[0].num_hw_mem_blocks, 3u);
    EXPECT_EQ(g_fp_filter[0].record_valid, 1);
    EXPECT_EQ(g_fp_filter[0].activity, 0);
    for (uint32_t i = 0; i < 8; i++)
        EXPECT_EQ(tarn_mem[i].is_allocated, i == 2 || i == 3) << "only heads are marked; block " << i;
}

TEST(FilterAlloc, ARunMayEndAtTheLastBlockAndNotBehindIt)
{
    FilterPool pool(8, 8);
    ASSERT_EQ(pool.init(), 0);
    tarn_oct_filter_mem_alloc(3 * block_size);
    EXPECT_EQ(tarn_oct_filter_mem_alloc(5 * block_size + 1), nullptr);
    EXPECT_EQ(g_filter_id, -1);
    EXPECT_EQ(g_fp_filter[1].record_valid, 0) << "a failure takes no slot";
    EXPECT_EQ(tarn_oct_filter_mem_alloc(5 * block_size), pool.block(3));
    EXPECT_EQ(g_filter_id, 1);
    EXPECT_EQ(tarn_oct_filter_mem_alloc(1), nullptr);
    EXPECT_EQ(g_filter_id, -1);
}

TEST(FilterAlloc, WithoutASlotFreeBlocksAreOfNoUse)
{
    FilterPool pool(2, 8);
    ASSERT_EQ(pool.init(), 0);
    void *p_first = tarn_oct_filter_mem_alloc(1);
    tarn_oct_filter_mem_alloc(1);
    EXPECT_EQ(g_filter_id, 1);
    EXPECT_EQ(tarn_oct_filter_mem_alloc(1), nullptr);
    EXPECT_EQ(g_filter_id, -1);
    tarn_oct_filter_mem_free(p_first);
    EXPECT_EQ(tarn_oct_filter_mem_alloc(1), nullptr) << "the freed program keeps its slot";
    pool.advance_ms(500);
    EXPECT_EQ(tarn_oct_filter_mem_alloc(1), p_first);
    EXPECT_EQ(g_filter_id, 0);
}

TEST(FilterAlloc, AbsurdSizesFail)
{
    FilterPool pool(8, 8);
    ASSERT_EQ(pool.init(), 0);
    for (size_t size :
         {size_t{0}, 8 * block_size + 1, size_t{1} << 32, size_t{1} << 39, SIZE_MAX - 127, SIZE_MAX}) {
        g_filter_id = 3;
        EXPECT_EQ(tarn_oct_filter_mem_alloc(size), nullptr) << size;
        EXPECT_EQ(g_filter_id, -1) << size;
    }
}

// ---- Delayed delete ----

TEST(FilterFree, AProgramStaysForHalfASecondAfterTheLastFree)
{
    FilterPool pool(8, 8);
    ASSERT_EQ(pool.init(), 0);
    void *p_a = tarn_oct_filter_mem_alloc(2 * block_size);
    void *p_b = tarn_oct_filter_mem_alloc(3 * block_size);
    memset(p_a, 1, 2 * block_size);
    tarn_oct_filter_mem_free(p_a);
    pool.advance_ms(490);
    EXPECT_EQ(pool.released, std::vector<int>());
    tarn_oct_filter_mem_free(p_b);
    pool.advance_ms(490);
    EXPECT_EQ(pool.released, std::vector<int>()) << "the second free pushes the pass out";
    EXPECT_EQ(pool.block(1)[127], 1);
    EXPECT_EQ(g_fp_filter[0].record_valid, 1);
    EXPECT_EQ(tarn_oct_filter_mem_alloc(2 * block_size), pool.block(5)) << "a new program takes other blocks";
    pool.advance_ms(10);
    EXPECT_EQ(pool.released, std::vector<int>{5}) << "one pass for both";
    EXPECT_EQ(pool.block(1)[127], 0);
    EXPECT_EQ(g_fp_filter[0].record_valid, 0);
    EXPECT_EQ(g_fp_filter[1].num_hw_mem_blocks, 0u);
    EXPECT_EQ(tarn_mem[0].is_allocated, 0u);
    pool.advance_ms(5000);
    EXPECT_EQ(pool.released.size(), 1u) << "with nothing on the list the timer rests";
}

TEST(FilterFree, AFilterInUseStaysUntilItRests)
{
    FilterPool pool(8, 8);
    ASSERT_EQ(pool.init(), 0);
    void *p_used = tarn_oct_filter_mem_alloc(1);
    void *p_idle = tarn_oct_filter_mem_alloc(1);
    tarn_oct_filter_mem_free(p_used);
    tarn_oct_filter_mem_free(p_idle);
    for (int pass = 0; pass < 10; pass++) {
        g_fp_filter[0].activity = 1;
        pool.advance_ms(500);
        EXPECT_EQ(g_fp_filter[0].activity, 0) << "a pass takes the bit back";
        EXPECT_EQ(g_fp_filter[0].record_valid, 1);
        EXPECT_EQ(pool.released, std::vector<int>{1}) << "a pass that frees nothing tells nobody";
    }
    pool.advance_ms(500);
    EXPECT_EQ(pool.released, (std::vector<int>{1, 1}));
    EXPECT_EQ(g_fp_filter[0].record_valid, 0);
}

// Blocks that come free are given out from within the pass.
static int take_again(t_tarn *, int)
{
    EXPECT_NE(tarn_oct_filter_mem_alloc(8 * block_size), nullptr);
    return 0;
}

TEST(FilterFree, ThePoliciesThatFoundNoMemoryMayAllocateAtOnce)
{
    FilterPool pool(8, 8);
    ASSERT_EQ(pool.init(), 0);
    tarn_oct_filter_mem_free(tarn_oct_filter_mem_alloc(8 * block_size));
    pool.hwapi.filter_policy_chg = take_again;
    pool.advance_ms(500);
    EXPECT_EQ(g_fp_filter[0].num_hw_mem_blocks, 8u);
}

TEST(FilterFreeDeathTest, WhatIsNoHeadOfAProgramStopsTheProcess)
{
    FilterPool pool(8, 8);
    ASSERT_EQ(pool.init(), 0);
    tarn_oct_filter_mem_alloc(2 * block_size);
    void *const cases[] = {
        pool.block(1),      // inside a run
        pool.block(2),      // free
        pool.block(0) + 8,  // in a head
        pool.block(8),      // behind the pool
        pool.block(0) - 1, nullptr,
    };
    for (void *ptr : cases)
        EXPECT_EXIT(tarn_oct_filter_mem_free(ptr), testing::KilledBySignal(SIGSEGV), "") << ptr;
}
