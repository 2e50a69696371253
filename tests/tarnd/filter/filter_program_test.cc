// A compiled program in filter memory: where it lies, and its counters and policers.
#include <gtest/gtest.h>

#include <cstring>

#include "lab/fp/fp_engine.h"
#include "tarnd/compiler/tarn_mem_mgr.h"
#include "tarnd/compiler/tarn_program.h"
#include "tarnd/filter/tarn_if_octeon.h"
#include "tests/support/compile.h"
#include "tests/tarnd/filter/filter_pool.h"
#include "tools/rule_fields.h"
#include "tools/rule_loader.h"

static constexpr int num_filters = 64;
static constexpr int num_blocks = 512;

static constexpr char rules[] =
    "table edge\n"
    "default reject count default\n"
    "rule web   dst 10.0.0.0/8,192.0.2.0/24 proto tcp accept count web\n"
    "rule guest src 10.1.0.0/16 accept count guest police slow rate 1000 burst 100\n";

namespace {

class FilterProgram : public testing::Test {
protected:
    void SetUp() override
    {
        ASSERT_EQ(pool.init(), 0);
        t_tarn_mem_mgr mgr = {tarn_oct_filter_mem_alloc, tarn_oct_filter_mem_free};
        tarn_register_mem_mgr(&mgr);
        context.reset(tarn_context_create());
    }

    void TearDown() override
    {
        tarn_register_mem_mgr(nullptr);
    }

    // Compiles the rules into filter memory and hands the program over to it. The filter id, or -1.
    int compile()
    {
        t_rule_set set;
        t_text_error error;
        std::vector<uint32_t> order;
        std::string reason;
        EXPECT_TRUE(rule_set_read(rules, "edge.rules", e_rule_format::rules, &set, &error))
            << text_error_print(error);
        EXPECT_TRUE(rule_field_order_read("", &order, &reason));
        ruletable_ptr table(rule_set_fill(context.get(), set, order));
        t_compiled compiled = compile_table(context.get(), table.get());
        int filter_id = context->c_filter_id;
        EXPECT_EQ(compiled.program.get() == nullptr, filter_id == -1);
        length = compiled.length;
        compiled.program.release();
        tarn_reinit_context(context.get());
        return filter_id;
    }

    void *program_of(int filter_id)
    {
        return pool.block(g_fp_filter[filter_id].hw_index);
    }

    void expect_counter(int filter_id, const char *name, int64_t pkts, int64_t bytes)
    {
        int64_t got_pkts = -1;
        int64_t got_bytes = -1;
        tarn_program_get_counter(program_of(filter_id), name, &got_pkts, &got_bytes);
        EXPECT_EQ(got_pkts, pkts) << name;
        EXPECT_EQ(got_bytes, bytes) << name;
    }

    void expect_policer(int filter_id, const char *name, int64_t pkts, int64_t bytes)
    {
        int64_t got_pkts = -1;
        int64_t got_bytes = -1;
        tarn_program_get_policer(program_of(filter_id), name, &got_pkts, &got_bytes);
        EXPECT_EQ(got_pkts, pkts) << name;
        EXPECT_EQ(got_bytes, bytes) << name;
    }

    FilterPool pool{num_filters, num_blocks};
    context_ptr context;
    int length = 0;
};

// The forwarding plane on the pool.
struct t_plane {
    fp_engine_ptr engine = fp_engine_new({{g_fp_filter, num_filters}, {g_fp_filter_mem_block, num_blocks}});

    e_fp_decision send(int filter_id, uint32_t src, uint32_t dst, uint32_t proto, uint32_t bytes)
    {
        t_fp_header header = fp_header_blank();
        header.values[tarn_ip_src_addr] = src;
        header.values[tarn_ip_dst_addr] = dst;
        header.values[tarn_ip_protocol] = proto;
        // Clock 1: the bucket is full at the first packet and gains nothing after it.
        t_fp_use use = {
            .filter_id = static_cast<uint32_t>(filter_id), .p_header = &header, .bytes = bytes, .now = 1};
        return fp_engine_run(engine.get(), use).decision;
    }
};

}  // namespace

TEST_F(FilterProgram, LiesInTheFirstRunThatHoldsItUnderItsFilterId)
{
    tarn_oct_filter_mem_alloc(3 * 128);
    EXPECT_EQ(compile(), 1);
    EXPECT_EQ(g_fp_filter[1].hw_index, 3u);
    EXPECT_EQ(g_fp_filter[1].num_hw_mem_blocks, (static_cast<uint32_t>(length) + 127) / 128);
    EXPECT_EQ(static_cast<const t_tarn_program_hdr *>(program_of(1))->p_length,
              static_cast<uint32_t>(length));
}

TEST_F(FilterProgram, CountsInPlaceAndClears)
{
    int filter_id = compile();
    t_plane plane;
    EXPECT_EQ(plane.send(filter_id, 0x01020304, 0x0a000001, 6, 100), FP_DECISION_ACCEPT);
    EXPECT_EQ(plane.send(filter_id, 0x01020304, 0xc0000201, 6, 50), FP_DECISION_ACCEPT);
    EXPECT_EQ(plane.send(filter_id, 0x01020304, 0x08080808, 6, 40), FP_DECISION_REJECT);
    expect_counter(filter_id, "web", 2, 150);
    expect_counter(filter_id, "default", 1, 40);
    expect_counter(filter_id, "none", 0, 0);
    EXPECT_EQ(g_fp_filter[filter_id].activity, 1);

    tarn_program_clear_counter(program_of(filter_id), "web");
    expect_counter(filter_id, "web", 0, 0);
    expect_counter(filter_id, "default", 1, 40);
    plane.send(filter_id, 0x01020304, 0x0a000001, 6, 7);
    expect_counter(filter_id, "web", 1, 7);
}

TEST_F(FilterProgram, PolicersAreReadByTheNameWithTheNumberAndChangedByTheNameAlone)
{
    int filter_id = compile();
    t_plane plane;
    // 100 bytes fill the bucket; the next two packets find it empty.
    for (int i = 0; i < 3; i++)
        plane.send(filter_id, 0x0a010001, 0x08080808, 17, 100);
    expect_policer(filter_id, "2.slow", 2, 200);
    expect_policer(filter_id, "slow", 0, 0);
    expect_counter(filter_id, "guest", 3, 300);

    t_fp_policer policer = {};
    strcpy(policer.name, "slow");
    policer.oob_action = FP_POLICER_ACTION_MARK_PLP_HIGH;
    EXPECT_EQ(tarn_oct_filter_policer_change(filter_id, &policer), 0);
    expect_policer(filter_id, "2.slow", 2, 200);
    plane.send(filter_id, 0x0a010001, 0x08080808, 17, 100);
    expect_policer(filter_id, "2.slow", 2, 200);  // without a rate there is no bound

    tarn_program_clear_policer(program_of(filter_id), "2.slow");
    expect_policer(filter_id, "2.slow", 0, 0);
}

TEST_F(FilterProgram, AChangeIsANewProgramBesideTheOldOne)
{
    int old_id = compile();
    t_plane plane;
    tarn_mem_free(program_of(old_id), g_tarn_mem_mgr);
    int new_id = compile();
    EXPECT_NE(new_id, old_id);
    // Packets in flight finish on the old program.
    EXPECT_EQ(plane.send(old_id, 0x01020304, 0x0a000001, 6, 100), FP_DECISION_ACCEPT);
    expect_counter(old_id, "web", 1, 100);
    expect_counter(new_id, "web", 0, 0);
    pool.advance_ms(500);
    EXPECT_EQ(plane.send(old_id, 0x01020304, 0x0a000001, 6, 100), FP_DECISION_ACCEPT);
    pool.advance_ms(500);
    pool.advance_ms(500);
    EXPECT_EQ(plane.send(old_id, 0x01020304, 0x0a000001, 6, 100), FP_DECISION_NO_PROGRAM);
    EXPECT_EQ(plane.send(new_id, 0x01020304, 0x0a000001, 6, 100), FP_DECISION_ACCEPT);
}

TEST_F(FilterProgram, WithoutRoomThereIsNoFilterId)
{
    tarn_oct_filter_mem_alloc((num_blocks - 4) * 128);
    EXPECT_EQ(compile(), -1);
    EXPECT_EQ(g_filter_id, -1);
    EXPECT_GT(length, 4 * 128);
}
