// The engine over programs in filter memory: verdicts, counters read and cleared by the daemon's functions,
// activity, and slots that change under it.
#include "lab/fp/fp_engine.h"

#include "tarnd/compiler/tarn_field.h"
#include "tarnd/compiler/tarn_program.h"
#include "tests/lab/fp/fp_pool.h"
#include "tests/support/random_table.h"

#include <cstring>
#include <gtest/gtest.h>
#include <random>

static constexpr uint32_t hw_index = 10;

// Ten ports from `first` accept and count, 90 to 99 police and reject, all others count as default.
static std::vector<std::byte> policy_compile(const char *name = "edge", uint32_t first = 80)
{
    return ports_compile(name,
                         {{first, first + 9, {counter_slot("web"), plain_slot(TARN_FILTER_ACTION_ACCEPT)}},
                          {90,
                           99,
                           {policer_slot("1.slow", 1, 100, FP_POLICER_ACTION_DROP),
                            policer_slot("2.mark", 1, 100, FP_POLICER_ACTION_MARK_PLP_HIGH),
                            plain_slot(TARN_FILTER_ACTION_REJECT)}}},
                         {plain_slot(TARN_FILTER_ACTION_INSPECT), counter_slot("rest")});
}

class FpEngineShortTest : public testing::Test {
protected:
    void SetUp() override
    {
        engine = fp_engine_new(pool.spans());
    }

    t_fp_outcome run(uint32_t filter_id, uint32_t port, uint32_t bytes = 100, uint64_t now = 1)
    {
        t_fp_header header = fp_header_blank();
        header.values[tarn_ip_dst_port] = port;
        return fp_engine_run(engine.get(), {filter_id, &header, bytes, now});
    }

    std::pair<int64_t, int64_t> counter(const char *name)
    {
        int64_t packets = -1;
        int64_t bytes = -1;
        tarn_program_get_counter(pool.block(hw_index), name, &packets, &bytes);
        return {packets, bytes};
    }

    t_test_memory memory;
    t_test_pool pool;
    fp_engine_ptr engine;
};

using t_pair = std::pair<int64_t, int64_t>;

TEST_F(FpEngineShortTest, TheFirstPlainActionDecidesAndTheDefaultHasARecordOfItsOwn)
{
    pool.put(3, hw_index, policy_compile());
    struct t_case {
        uint32_t port;
        e_fp_decision decision;
        uint32_t plain_action;
        bool is_default;
        uint32_t executed;
    };
    static const t_case cases[] = {
        {80, FP_DECISION_ACCEPT, TARN_FILTER_ACTION_ACCEPT, false, 1},
        {95, FP_DECISION_REJECT, TARN_FILTER_ACTION_REJECT, false, 2},
        {100, FP_DECISION_OTHER, TARN_FILTER_ACTION_INSPECT, true, 1},
        {0xffffffff, FP_DECISION_OTHER, TARN_FILTER_ACTION_INSPECT, true, 1},  // in no interval
    };
    for (const t_case &c : cases) {
        t_fp_outcome outcome = run(3, c.port);
        EXPECT_EQ(outcome.decision, c.decision) << c.port;
        EXPECT_EQ(outcome.plain_action, c.plain_action) << c.port;
        EXPECT_EQ(outcome.is_default, c.is_default) << c.port;
        EXPECT_EQ(outcome.num_executed, c.executed) << c.port;
        EXPECT_EQ(*outcome.p_name, "edge");
        EXPECT_EQ(outcome.p_error, nullptr);
    }
    EXPECT_EQ(counter("rest"), t_pair(2, 200));
}

TEST_F(FpEngineShortTest, CountersGoToTheActiveElementAlsoWhenItChangesBetweenPackets)
{
    pool.put(3, hw_index, policy_compile());
    run(3, 80, 60);
    run(3, 81, 40);
    EXPECT_EQ(counter("web"), t_pair(2, 100));
    tarn_program_clear_counter(pool.block(hw_index), "web");
    EXPECT_EQ(counter("web"), t_pair(0, 0));
    t_fp_outcome outcome = run(3, 82, 7);
    EXPECT_EQ(counter("web"), t_pair(1, 7));
    EXPECT_EQ(outcome.p_slots[0].counter.version, 1);
    EXPECT_EQ(outcome.p_slots[0].counter.pkts[0], 0);

    outcome_slots(outcome)[0].counter.version =
        0;  // a flip alone: the other element goes on from what it held
    run(3, 82, 5);
    EXPECT_EQ(outcome.p_slots[0].counter.bytes[0], 5);
    EXPECT_EQ(outcome.p_slots[0].counter.bytes[1], 7);
}

TEST_F(FpEngineShortTest, PolicersOfOneRecordActEachForItself)
{
    pool.put(3, hw_index, policy_compile());
    t_fp_outcome outcome = run(3, 90, 100, 1);
    EXPECT_FALSE(outcome.policer_drop);
    EXPECT_FALSE(outcome.plp_high);
    outcome = run(3, 90, 100, 50);
    EXPECT_TRUE(outcome.policer_drop);
    EXPECT_TRUE(outcome.plp_high);
    EXPECT_EQ(outcome.executed[0].police, FP_POLICE_DROP);
    EXPECT_EQ(outcome.executed[1].police, FP_POLICE_MARK);
    EXPECT_EQ(outcome.decision, FP_DECISION_REJECT);

    int64_t packets = 0;
    int64_t bytes = 0;
    tarn_program_get_policer(pool.block(hw_index), "1.slow", &packets, &bytes);
    EXPECT_EQ(t_pair(packets, bytes), t_pair(1, 100));
    EXPECT_EQ(fp_engine_total(engine.get()).policer_drops, 1u);
    EXPECT_EQ(fp_engine_total(engine.get()).policer_marks, 1u);
}

TEST_F(FpEngineShortTest, UseSetsActivityAndLoadingDoesNot)
{
    pool.put(3, hw_index, policy_compile());
    pool.filters[3].unused = 0x1234;
    ASSERT_EQ(fp_engine_load(engine.get()).size(), 1u);
    EXPECT_EQ(pool.filters[3].activity, 0);
    run(3, 80);
    EXPECT_EQ(pool.filters[3].activity, 1);
    EXPECT_EQ(pool.filters[3].unused, 0x1234);
    pool.filters[3].activity = 0;
    run(3, 80);
    EXPECT_EQ(pool.filters[3].activity, 1);

    pool.filters[3].record_valid = 0;
    pool.filters[3].activity = 0;
    EXPECT_EQ(run(3, 80).decision, FP_DECISION_NO_PROGRAM);
    EXPECT_EQ(pool.filters[3].activity, 0) << "a free slot is left alone";
}

TEST_F(FpEngineShortTest, ASlotThatIsGivenOutAgainIsNoticedEvenWhenTheNewProgramLooksAlike)
{
    std::vector<std::byte> first = policy_compile("edge", 70);
    std::vector<std::byte> second = policy_compile("edge", 60);
    ASSERT_EQ(first.size(), second.size());
    pool.put(3, hw_index, first);
    EXPECT_EQ(run(3, 70).decision, FP_DECISION_ACCEPT);
    pool.put(3, hw_index, second);  // same place, name and length; activity is clear again
    EXPECT_TRUE(run(3, 70).is_default);
    EXPECT_EQ(run(3, 60).decision, FP_DECISION_ACCEPT);

    struct t_change {
        const char *behaviour;
        uint32_t new_index;
        const char *name;
    };
    static const t_change changes[] = {{"other blocks", 1000, "edge"}, {"another name", 1000, "core"}};
    for (const t_change &change : changes) {
        pool.put(3, change.new_index, policy_compile(change.name));
        pool.filters[3].activity = 1;  // as if the bit had been raced
        t_fp_outcome outcome = run(3, 80);
        EXPECT_EQ(outcome.decision, FP_DECISION_ACCEPT) << change.behaviour;
        EXPECT_EQ(*outcome.p_name, change.name) << change.behaviour;
    }
}

TEST_F(FpEngineShortTest, NoProgramTellsWhyAndThePacketGoesOn)
{
    std::vector<std::byte> program = policy_compile();
    struct t_case {
        const char *behaviour;
        t_tarn_filter slot;
        uint32_t filter_id;
        const char *want;
    };
    static const t_case cases[] = {
        {"free", {0, 0, 0, hw_index, 100}, 2, "the slot is free"},
        {"first block behind the pool",
         {1, 0, 0, POOL_BLOCKS, 100},
         2,
         "slot: blocks 4096 and on (100) hold no program"},
        {"blocks run past the pool",
         {1, 0, 0, POOL_BLOCKS - 4, 5},
         2,
         "slot: blocks 4092 and on (5) hold no program"},
        {"number of blocks that would wrap",
         {1, 0, 0, 1, 0xffffffff},
         2,
         "slot: blocks 1 and on (4294967295) hold no program"},
        {"too small for a header", {1, 0, 0, hw_index, 3}, 2, "slot: blocks 10 and on (3) hold no program"},
        {"empty blocks",
         {1, 0, 0, 2000, 4},
         2,
         "header: the program has 0 bytes, its header alone takes 472"},
        {"no such slot", {}, POOL_FILTERS, "there are 8 slots"},
        {"none", {}, UINT32_MAX, "there are 8 slots"},
    };
    uint64_t packets = 0;
    for (const t_case &c : cases) {
        pool.put(2, hw_index, program);
        pool.filters[2] = c.slot;
        t_fp_outcome outcome = run(c.filter_id, 80);
        EXPECT_EQ(outcome.decision, FP_DECISION_NO_PROGRAM) << c.behaviour;
        ASSERT_NE(outcome.p_error, nullptr) << c.behaviour;
        EXPECT_EQ(*outcome.p_error, c.want) << c.behaviour;
        EXPECT_EQ(outcome.p_slots, nullptr) << c.behaviour;
        EXPECT_EQ(fp_engine_total(engine.get()).no_program, ++packets) << c.behaviour;
    }
    pool.put(2, hw_index, program);
    pool.filters[2].num_hw_mem_blocks--;
    EXPECT_NE(run(2, 80).p_error->find("is more than"), std::string::npos);
}

TEST_F(FpEngineShortTest, RecordsOfAnotherSizeAreNoTwelveSlots)
{
    context_ptr context(tarn_context_create());
    uint32_t data[2] = {1, 2};
    ruletable_ptr table(tarn_ruletable_create("short", "0test", sizeof(data), data));
    t_tarn_rule *p_rule = tarn_rule_create(table.get(), "rule");
    tarn_field_id id = tarn_get_field_id(context.get(), tarn_ip_dst_port);
    tarn_add_range_field(context.get(), p_rule, id, 1, 2);
    tarn_create_action(p_rule, sizeof(data), data);
    t_compiled compiled = compile_table(context.get(), table.get());
    pool.put(1, hw_index, compiled.bytes());
    EXPECT_EQ(*run(1, 1).p_error, "action table: records of 16 bytes have no twelve slots");
}

TEST_F(FpEngineShortTest, LoadingReportsEverySlotThatIsTaken)
{
    pool.put(5, 2000, policy_compile("second"));
    pool.put(1, hw_index, policy_compile("first"));
    pool.filters[4] = {1, 1, 0, 3000, 4};
    std::vector<t_fp_filter_info> infos = fp_engine_load(engine.get());
    ASSERT_EQ(infos.size(), 3u);
    EXPECT_EQ(infos[0].filter_id, 1u);
    EXPECT_EQ(infos[0].name, "first");
    EXPECT_EQ(infos[0].num_records, 3u);
    EXPECT_EQ(infos[0].error, "");
    EXPECT_EQ(infos[1].filter_id, 4u);
    EXPECT_TRUE(infos[1].activity);
    EXPECT_NE(infos[1].error, "");
    EXPECT_EQ(infos[2].hw_index, 2000u);
    EXPECT_EQ(infos[2].num_blocks, pool.filters[5].num_hw_mem_blocks);
}

// Whatever stands in slot and blocks, nothing outside the pool is touched; the address sanitizer watches.
TEST_F(FpEngineShortTest, HostileBytesInSlotAndProgramAreSafe)
{
    std::vector<std::byte> program = policy_compile();
    std::mt19937 random(11);
    for (int round = 0; round < 3000; round++) {
        std::vector<std::byte> bytes = program;
        size_t limit = round % 2 == 0 ? 600 : bytes.size();  // half of them in header and directory
        for (int i = 0; i < 4; i++)
            bytes[random() % limit] = std::byte(random() & 0xff);
        uint32_t last = POOL_BLOCKS - static_cast<uint32_t>((bytes.size() + 127) / 128);
        pool.put(0, last, bytes);
        if (round % 5 == 0)
            pool.filters[0].num_hw_mem_blocks += random_below(&random, 3);
        t_fp_outcome outcome = run(0, 75 + random_below(&random, 30));
        EXPECT_EQ(outcome.decision == FP_DECISION_NO_PROGRAM, outcome.p_error != nullptr);
    }
}
