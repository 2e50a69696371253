// Filter memory against a plain model of it, over random steps.
#include <gtest/gtest.h>

#include <cstring>
#include <random>

#include "tarnd/compiler/tarn_mem_mgr.h"
#include "tarnd/filter/tarn_if_octeon.h"
#include "tarnd/filter/tarn_if_octeon_private.h"
#include "tests/support/random_table.h"
#include "tests/tarnd/filter/filter_pool.h"

static constexpr uint32_t num_filters = 24;
static constexpr uint32_t num_blocks = 96;
static constexpr size_t block_size = 128;
static constexpr int no_deadline = -1;

namespace {

struct t_model_program {
    bool is_taken;
    bool is_freed;
    bool is_active;
    uint32_t start;
    uint32_t count;
};

namespace {

struct t_model {
    t_model_program slots[num_filters] = {};
    bool taken[num_blocks] = {};
    int now_ms = 0;
    int deadline_ms = no_deadline;
    std::vector<int> released;

    int alloc(uint32_t count);
    void free(uint32_t slot);
    void advance(int msecs);
    void pass();
};

}  // namespace

}  // namespace

static bool is_free_run(const bool *p_taken, uint32_t start, uint32_t count)
{
    for (uint32_t i = start; i < start + count; i++)
        if (p_taken[i])
            return false;
    return true;
}

// The slot, or -1.
int t_model::alloc(uint32_t count)
{
    uint32_t slot = 0;
    while (slot < num_filters && slots[slot].is_taken)
        slot++;
    if (slot == num_filters)
        return -1;
    for (uint32_t start = 0; start + count <= num_blocks; start++) {
        if (!is_free_run(taken, start, count))
            continue;
        std::fill_n(taken + start, count, true);
        slots[slot] = {true, false, false, start, count};
        return static_cast<int>(slot);
    }
    return -1;
}

void t_model::free(uint32_t slot)
{
    slots[slot].is_freed = true;
    deadline_ms = now_ms + 500;
}

void t_model::advance(int msecs)
{
    now_ms += msecs;
    if (deadline_ms != no_deadline && now_ms >= deadline_ms)
        pass();
}

void t_model::pass()
{
    int freed = 0;
    deadline_ms = no_deadline;
    for (t_model_program &program : slots) {
        if (!program.is_freed)
            continue;
        if (program.is_active) {
            program.is_active = false;
            deadline_ms = now_ms + 500;
            continue;
        }
        freed += static_cast<int>(program.count);
        std::fill_n(taken + program.start, program.count, false);
        program = {};
    }
    if (freed != 0)
        released.push_back(freed);
}

// ---- Comparing ----

// Fills a new program with its mark, which a release wipes out.
static void mark_program(const t_model_program &program, int slot)
{
    memset(g_fp_filter_mem_block[program.start].block, slot + 1, program.count * block_size);
}

static void expect_same_slot(const t_model_program &program, uint32_t slot)
{
    const t_tarn_filter &filter = g_fp_filter[slot];
    ASSERT_EQ(filter.record_valid != 0, program.is_taken) << slot;
    ASSERT_EQ(filter.activity, program.is_active) << slot;
    ASSERT_EQ(filter.hw_index, program.start) << slot;
    ASSERT_EQ(filter.num_hw_mem_blocks, program.count) << slot;
    if (!program.is_taken)
        return;
    const t_tarn_mem_node &node = tarn_mem[program.start];
    ASSERT_EQ(node.num_hw_blocks, program.count);
    ASSERT_EQ(node.filter_id, slot);
    ASSERT_EQ(node.ptr, &g_fp_filter_mem_block[program.start]);
    ASSERT_EQ(g_fp_filter_mem_block[program.start].block[0], slot + 1);
    ASSERT_EQ(g_fp_filter_mem_block[program.start + program.count - 1].block[block_size - 1], slot + 1);
}

static void expect_same(const t_model &model)
{
    bool is_head[num_blocks] = {};
    for (uint32_t slot = 0; slot < num_filters; slot++) {
        ASSERT_NO_FATAL_FAILURE(expect_same_slot(model.slots[slot], slot));
        if (model.slots[slot].is_taken)
            is_head[model.slots[slot].start] = true;
    }
    for (uint32_t i = 0; i < num_blocks; i++) {
        ASSERT_EQ(tarn_mem[i].is_allocated, is_head[i]) << "block " << i;
        if (!model.taken[i]) {
            ASSERT_EQ(g_fp_filter_mem_block[i].block[0], 0) << "block " << i;
            ASSERT_EQ(g_fp_filter_mem_block[i].block[block_size - 1], 0) << "block " << i;
        }
    }
}

// ---- Steps ----

static void step_alloc(t_model *p_model, uint32_t bytes)
{
    int slot = p_model->alloc((bytes + 127) / 128);
    void *p_program = tarn_oct_filter_mem_alloc(bytes);
    ASSERT_EQ(g_filter_id, slot);
    if (slot < 0) {
        ASSERT_EQ(p_program, nullptr);
        return;
    }
    const t_model_program &program = p_model->slots[slot];
    ASSERT_EQ(p_program, &g_fp_filter_mem_block[program.start]);
    mark_program(program, slot);
}

static void step_free(t_model *p_model, uint32_t slot)
{
    if (!p_model->slots[slot].is_taken || p_model->slots[slot].is_freed)
        return;
    tarn_oct_filter_mem_free(&g_fp_filter_mem_block[p_model->slots[slot].start]);
    p_model->free(slot);
}

static void step_use(t_model *p_model, uint32_t slot)
{
    if (!p_model->slots[slot].is_taken)
        return;
    g_fp_filter[slot].activity = 1;
    p_model->slots[slot].is_active = true;
}

static void step_random(FilterPool *p_pool, t_model *p_model, std::mt19937 *p_random)
{
    uint32_t slot = random_below(p_random, num_filters);
    switch (random_below(p_random, 8)) {
    case 0:
    case 1:
    case 2:
        // Mostly small programs, now and then one that needs half of the pool.
        return step_alloc(p_model, 1 + random_below(p_random, random_below(p_random, 16) == 0 ? 6144 : 1536));
    case 3:
    case 4:
        return step_free(p_model, slot);
    case 5:
        return step_use(p_model, slot);
    default:
        int msecs = 10 * static_cast<int>(random_below(p_random, random_below(p_random, 4) == 0 ? 200 : 30));
        p_pool->advance_ms(msecs);
        p_model->advance(msecs);
    }
}

TEST(FilterModel, TenThousandRandomStepsAndEveryBlockComesBack)
{
    for (uint32_t seed = 1; seed <= 4; seed++) {
        SCOPED_TRACE("seed " + std::to_string(seed));
        FilterPool pool(num_filters, num_blocks);
        ASSERT_EQ(pool.init(), 0);
        std::mt19937 random(seed);
        t_model model;
        for (int step = 0; step < 10000; step++) {
            SCOPED_TRACE("step " + std::to_string(step));
            ASSERT_NO_FATAL_FAILURE(step_random(&pool, &model, &random));
            ASSERT_EQ(pool.released, model.released);
            ASSERT_NO_FATAL_FAILURE(expect_same(model));
        }
        for (uint32_t slot = 0; slot < num_filters; slot++)
            step_free(&model, slot);
        pool.advance_ms(500);  // takes activity back
        pool.advance_ms(500);
        EXPECT_EQ(tarn_oct_filter_mem_alloc(num_blocks * block_size), pool.block(0));
        EXPECT_EQ(g_filter_id, 0);
    }
}
