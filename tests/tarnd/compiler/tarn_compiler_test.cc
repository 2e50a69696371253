#include "tarnd/compiler/tarn_compiler.h"

#include "common/lum_log.h"
#include "common/priority_timers.h"
#include "tarnd/compiler/eclass.h"
#include "tarnd/compiler/tarn_field.h"
#include "tarnd/compiler/tarn_mem_mgr.h"
#include "tests/support/compile.h"
#include "tests/support/program_content.h"
#include "tests/support/random_table.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <csignal>
#include <cstdio>
#include <ctime>
#include <string>
#include <vector>

static constexpr uint32_t top = 0xffffffff;

struct TarnCompiler : testing::Test {
    t_test_memory memory;
    context_ptr context{tarn_context_create()};
    ruletable_ptr table;
    t_program_content content;

    t_compiled compile(const t_policy &policy)
    {
        tarn_reinit_context(context.get());
        table = policy_build(policy, context.get());
        t_compiled compiled = compile_table(context.get(), table.get());
        if (compiled.program != nullptr) {
            EXPECT_EQ(program_parse(compiled.bytes(), &content), "");
        }
        return compiled;
    }
};

using TarnCompilerShort = TarnCompiler;
using TarnCompilerDeathTest = TarnCompiler;

// One rule for each list of conditions.
static t_policy policy_of(const std::vector<std::vector<t_policy_match>> &rules)
{
    t_policy policy = {.name = "example", .action_data_len = 8, .rules = {}};
    for (const std::vector<t_policy_match> &matches : rules)
        policy.rules.push_back({static_cast<uint32_t>(policy.rules.size() + 1), matches});
    return policy;
}

// One rule that names types 1 to count, each with one value.
static t_policy policy_of_types(uint32_t count)
{
    t_policy policy = policy_of({{}});
    for (uint32_t type = 1; type <= count; type++)
        policy.rules[0].matches.push_back({type, 3, 3, RANGE});
    return policy;
}

static std::vector<std::string> instructions_of(const t_program_content &content)
{
    std::vector<std::string> texts;
    for (tarn_instruction word : content.instructions)
        texts.push_back(instruction_text(word));
    return texts;
}

static std::vector<uint32_t> stages_of(const t_program_content &content)
{
    std::vector<uint32_t> ids;
    for (const t_content_table &table : content.tables)
        ids.push_back(tarn_get_table_ecid(table.header_word));
    return ids;
}

TEST_F(TarnCompilerShort, AnInstructionWordHasItsBits)
{
    tarn_instruction word = 0;
    tarn_set_opcode(&word, tarn_op_mul);
    tarn_set_src_type(&word, tarn_intermediate);
    tarn_set_src_index(&word, 5);
    tarn_set_dst_index(&word, 5);
    tarn_set_mul(&word, 0x18001);  // cut to 16 bits
    EXPECT_EQ(word, 0x60000000u | 0x10000000u | 5u << 22 | 5u << 17 | 0x8001u << 1);
    word = 0;
    tarn_set_opcode(&word, tarn_op_lookup);
    tarn_set_src_type(&word, tarn_header);
    tarn_set_table_id(&word, 31);
    EXPECT_EQ(word, 0x20000000u | 0x08000000u | 31u << 12);
    uint32_t table_word = 0;
    tarn_set_table_type(0x101, &table_word);
    tarn_set_table_ecid(31, &table_word);
    EXPECT_EQ(table_word, 0x1f01u);
}

TEST_F(TarnCompilerShort, OneFieldIsALookupAndATerminator)
{
    compile(policy_of({{{tarn_ip_dscp, 3, 3, RANGE}}}));
    EXPECT_EQ(instructions_of(content), (std::vector<std::string>{"lookup h1 r1 t1", "terminate r1 r31"}));
    EXPECT_EQ(content.header.p_table_dir_len, 2u);
    EXPECT_FALSE(context->c_root->ec_is_intermediate);
    EXPECT_EQ(context->c_final_ec, context->c_root);
}

TEST_F(TarnCompilerShort, ThreeFieldsCarryTheThirdToTheLeft)
{
    compile(policy_of_types(3));
    EXPECT_EQ(instructions_of(content),
              (std::vector<std::string>{"lookup h3 r3 t3", "lookup h1 r1 t1", "lookup h2 r2 t2",
                                        "mul r1 r1 *2", "or r1 r2", "lookup r2 r4 t4", "mul r3 r3 *2",
                                        "or r3 r4", "lookup r4 r5 t5", "terminate r5 r31"}));
    EXPECT_EQ(stages_of(content), (std::vector<uint32_t>{3, 1, 2, 4, 5}));
}

TEST_F(TarnCompilerShort, FiveFieldsPairByNumber)
{
    compile(policy_of_types(5));
    EXPECT_EQ(stages_of(content), (std::vector<uint32_t>{3, 4, 7, 5, 1, 2, 6, 8, 9}));
    for (uint32_t type = 1; type <= 5; type++) {
        EXPECT_EQ(content.header.p_id_to_field_type[type], type);
        EXPECT_EQ(content.header.p_prot_ecid_map[type - 1].p_prot_field_type, type);
    }
    EXPECT_EQ(content.header.p_pe_map_size, 5u);
}

// Tables of one field: its entries as "low high class".
TEST_F(TarnCompilerShort, ALeafCutsTheValuesAtEveryBorder)
{
    using t_rules = std::vector<std::vector<t_policy_match>>;
    static const struct {
        const char *behaviour;
        t_rules rules;
        std::vector<std::array<uint32_t, 3>> entries;
        uint32_t classes;
    } cases[] = {
        {"two rules with one interval make two classes",
         {{{1, 5, 9, RANGE}}, {{1, 5, 9, RANGE}}},
         {{0, 5, 0}, {5, 10, 1}, {10, top, 0}},
         2},
        {"a rule without fields is in every class",
         {{{1, 5, 9, RANGE}}, {}},
         {{0, 5, 0}, {5, 10, 1}, {10, top, 0}},
         2},
        {"/0 is the address 0", {{{1, 0, 0, 0}}}, {{0, 1, 0}, {1, top, 1}}, 2},
        {"an interval to the top ends before the top value",
         {{{1, 7, top, RANGE}}},
         {{0, 7, 0}, {7, top, 1}},
         2},
        {"the highest address is in no entry", {{{1, top, 0, 32}}}, {{0, top, 0}}, 1},
        {"adjacent intervals keep their border",
         {{{1, 2, 3, RANGE}, {1, 4, 5, RANGE}}},
         {{0, 2, 0}, {2, 4, 1}, {4, 6, 1}, {6, top, 0}},
         2},
        {"overlapping alternatives of one rule are one class",
         {{{1, 2, 5, RANGE}, {1, 4, 8, RANGE}}, {{1, 4, 4, RANGE}}},
         {{0, 2, 0}, {2, 4, 1}, {4, 5, 2}, {5, 6, 1}, {6, 9, 1}, {9, top, 0}},
         3},
    };
    for (const auto &c : cases) {
        compile(policy_of(c.rules));
        std::vector<std::array<uint32_t, 3>> entries;
        for (const t_tarn_table_entry &entry : content.tables[0].entries)
            entries.push_back({entry.low, entry.high, entry.value});
        EXPECT_EQ(entries, c.entries) << c.behaviour;
        EXPECT_EQ(content.records.size(), c.classes) << c.behaviour;
    }
}

TEST_F(TarnCompilerShort, ATableWithoutFieldsHasNoProgram)
{
    t_compiled compiled = compile(policy_of({{}, {}}));
    EXPECT_EQ(compiled.status, tarn_status_ok);
    EXPECT_FALSE(compiled.program_touched);
    EXPECT_EQ(compiled.length, LENGTH_UNTOUCHED);
    EXPECT_EQ(memory.allocations(), 0u);
}

TEST_F(TarnCompilerShort, SixteenFieldTypesFitAndMoreFail)
{
    for (uint32_t types : {17u, 16u, 18u, 16u}) {
        g_tarn_debug_flags = TARN_DEBUG_STDOUT;
        testing::internal::CaptureStdout();
        t_compiled compiled = compile(policy_of_types(types));
        std::string log = testing::internal::GetCapturedStdout();
        g_tarn_debug_flags = 0;
        if (types == 16) {
            EXPECT_EQ(compiled.status, tarn_status_ok);
            EXPECT_EQ(content.tables.size(), 31u);
            EXPECT_EQ(instruction_text(content.instructions.back()), "terminate r31 r31");
            continue;
        }
        EXPECT_EQ(compiled.status, tarn_status_fail) << types;
        EXPECT_TRUE(compiled.program_touched);
        EXPECT_EQ(compiled.program, nullptr);
        EXPECT_EQ(compiled.length, LENGTH_UNTOUCHED);
        EXPECT_EQ(context->c_failure, TARN_COMPILE_TOO_MANY_STAGES);
        EXPECT_EQ(context->c_latest_ec_id, 32u) << "the number stays counted";
        EXPECT_EQ(context->c_reg_allocated, 32u);
        EXPECT_NE(log.find("eclass with register index 32 creation failed due to exceeded match criteria"),
                  std::string::npos)
            << log;
    }
}

TEST_F(TarnCompilerShort, AFailedAllocationReportsTheLengthWanted)
{
    int wanted = compile(policy_of_types(3)).length;
    EXPECT_EQ(context->c_filter_id, 0);
    EXPECT_EQ(compile(policy_of_types(2)).status, tarn_status_ok);
    EXPECT_EQ(context->c_filter_id, 1) << "the slot of the latest allocation";
    memory.refuse(true);
    for (bool without_manager : {false, true}) {
        if (without_manager)
            tarn_register_mem_mgr(nullptr);
        t_compiled compiled = compile(policy_of_types(3));
        EXPECT_EQ(compiled.status, tarn_status_fail);
        EXPECT_TRUE(compiled.program_touched);
        EXPECT_EQ(compiled.program, nullptr);
        EXPECT_EQ(compiled.length, wanted);
        EXPECT_EQ(context->c_filter_id, -1);
        EXPECT_EQ(context->c_failure, TARN_COMPILE_NO_MEMORY);
    }
}

TEST_F(TarnCompilerShort, ReinitKeepsOffsetsAndLimitAndForgetsTheRest)
{
    t_compiled large = compile(policy_of_types(5));
    context->c_program_limit = 12345;
    uint32_t action_offset = context->c_action_table_offset;
    std::vector<uint32_t> map(context->c_ecid_table_map, context->c_ecid_table_map + TARN_MAX_ECS);
    tarn_reinit_context(context.get());
    EXPECT_TRUE(rbst_is_empty(&context->c_ecs));
    EXPECT_EQ(context->c_latest_ec_id + context->c_reg_allocated + context->c_length, 0u);
    EXPECT_EQ(context->c_filter_id, -1);
    for (uint32_t type = 1; type < tarn_ip_field_type_max; type++) {
        EXPECT_EQ(context->c_field_ec_mapping[type].f_id, 0u);
        EXPECT_EQ(context->c_field_ec_mapping[type].f_type, type);
    }
    EXPECT_EQ(context->c_action_table_offset, action_offset);
    EXPECT_EQ(context->c_program_limit, 12345u);
    EXPECT_EQ(std::vector<uint32_t>(context->c_ecid_table_map, context->c_ecid_table_map + TARN_MAX_ECS),
              map);

    compile(policy_of_types(1));
    EXPECT_EQ(content.header.p_ecid_table_map[9], map[9])
        << "an old offset of a stage that this program lacks";
}

TEST_F(TarnCompilerShort, TracesTheSizeStepByStep)
{
    g_tarn_debug_flags = TARN_DEBUG_STDOUT | TARN_DEBUG_POLICY;
    testing::internal::CaptureStdout();
    compile(policy_of({{{tarn_ip_dscp, 0, top - 1, RANGE}}}));
    std::string log = testing::internal::GetCapturedStdout();
    g_tarn_debug_flags = 0;
    std::string sizes;
    for (size_t at = 0; (at = log.find("Policy: ", at)) != std::string::npos; at++)
        sizes += log.substr(at, log.find('\n', at) + 1 - at);
    EXPECT_EQ(sizes, "Policy: example  Program size: 472 [Header]\n"
                     "Policy: example  Program size: 496 [Context]\n"
                     "Policy: example  Program size: 544 [Table directory entry]\n"
                     "Policy: example  Program size: 552 [Instruction]\n"
                     "Policy: example  Program size: 576 [Action]\n"
                     "Policy: example  Program size: 576 [Final]\n");
}

TEST_F(TarnCompilerShort, ALongNameFillsTheHeader)
{
    t_policy policy = policy_of_types(1);
    policy.name = std::string(300, 'x');
    compile(policy);
    EXPECT_EQ(std::string(content.header.p_name, TARN_PROGRAM_NAME_SIZE), std::string(127, 'x') + '\0');
}

// 65,536 classes on the right: the multiplier has 16 bits and becomes 0.
TEST_F(TarnCompiler, AMultiplierOf65536IsCut)
{
    t_policy policy = policy_of({{{tarn_ip_dscp, 0, top - 1, RANGE}}});
    for (uint32_t i = 0; i < 65535; i++)
        policy.rules.push_back({i + 2, {{tarn_ip_dst_addr, 2 * i, 2 * i, RANGE}}});
    policy.rules[0].matches.push_back({tarn_ip_dst_addr, 0, 0, RANGE});
    compile(policy);
    ASSERT_EQ(context->c_root->right->ec_values, 65536u);
    EXPECT_EQ(instruction_text(content.instructions[2]), "mul r1 r1 *0");
}

// Rank of entry 0 over many programs of one table: each with equal chance. The bound is passed by chance once
// in a million runs with 7 degrees of freedom.
static double uniform_deviation(const std::vector<double> &counts)
{
    double sum = 0;
    double total = 0;
    for (double count : counts)
        total += count;
    double expected = total / static_cast<double>(counts.size());
    for (double count : counts)
        sum += (count - expected) * (count - expected) / expected;
    return sum;
}

TEST_F(TarnCompiler, TablesAreRandomTrees)
{
    // Four values each: a leaf of 8 entries with 4 classes for type 1, and 4 * 2 pairs.
    t_policy policy = policy_of({{{1, 1, 1, RANGE}, {2, 1, 1, RANGE}},
                                 {{1, 3, 3, RANGE}, {2, 1, 1, RANGE}},
                                 {{1, 5, 6, RANGE}, {1, 8, 8, RANGE}, {2, 1, 1, RANGE}}});
    std::vector<std::vector<double>> counts;
    for (int i = 0; i < 4000; i++) {
        compile(policy);
        counts.resize(content.tables.size());
        for (size_t t = 0; t < counts.size(); t++) {
            counts[t].resize(content.tables[t].entries.size());
            counts[t][content.tables[t].root_rank]++;
        }
    }
    ASSERT_EQ(counts[2].size(), 8u);
    for (size_t t = 0; t < counts.size(); t++)
        EXPECT_LT(uniform_deviation(counts[t]), 45.0) << "table " << t;
}

TEST_F(TarnCompilerDeathTest, StopsOnATableThatCannotBe)
{
    auto killed = testing::KilledBySignal(SIGSEGV);
    table.reset(tarn_ruletable_create("t", "t", 0, nullptr));
    tarn_get_field_id(context.get(), tarn_ip_dscp);
    EXPECT_EXIT(compile_table(context.get(), table.get()), killed, "") << "a stage without a rule";
    t_tarn_rule *p_rule = tarn_rule_create(table.get(), "1");
    tarn_create_action(p_rule, 0, nullptr);
    p_rule = tarn_rule_create(table.get(), "2");
    tarn_add_range_field(context.get(), p_rule, 1, 5, 5);
    tarn_add_range_field(context.get(), table->rules, 1, 9, 9);
    EXPECT_EXIT(compile_table(context.get(), table.get()), killed, "") << "a winner without an action";
}

// Looks at the clock, in processor time, so that a busy machine does not disturb.
extern "C" int __real_clock_gettime(clockid_t clock, timespec *p_time);
extern "C" int __wrap_clock_gettime(clockid_t clock, timespec *p_time);

static std::vector<int64_t> *g_p_looks_ns;

extern "C" int __wrap_clock_gettime(clockid_t clock, timespec *p_time)
{
    if (g_p_looks_ns != nullptr && clock == CLOCK_MONOTONIC) {
        timespec now;
        __real_clock_gettime(CLOCK_THREAD_CPUTIME_ID, &now);
        g_p_looks_ns->push_back(now.tv_sec * 1'000'000'000 + now.tv_nsec);
    }
    return __real_clock_gettime(clock, p_time);
}

static void count_run(void *p_ctx, uint32_t)
{
    ++*static_cast<int *>(p_ctx);
}

// Instrumented code is several times slower than what ships, and a tenfold margin keeps the test quiet.
#ifdef __SANITIZE_ADDRESS__
static constexpr int64_t longest_gap_ns = 10'000'000;
#else
static constexpr int64_t longest_gap_ns = 1'000'000;
#endif

TEST_F(TarnCompilerShort, PriorityTimersAreLookedAtWithinAMillisecond)
{
    std::mt19937 random(5);
    ruletable_ptr large =
        policy_build(policy_random(&random, {3, 160, TARN_ACTION_DATA_SIZE}), context.get());
    std::vector<int64_t> looks_ns;
    looks_ns.reserve(1 << 20);
    int runs = 0;
    tarn_priority_timers_register(count_run, &runs);
    g_p_looks_ns = &looks_ns;
    t_compiled compiled = compile_table(context.get(), large.get());
    g_p_looks_ns = nullptr;
    tarn_priority_timers_register(nullptr, nullptr);

    ASSERT_EQ(compiled.status, tarn_status_ok);
    ASSERT_GT(looks_ns.size(), 10u);
    std::vector<int64_t> gaps_ns;
    for (size_t i = 1; i < looks_ns.size(); i++)
        gaps_ns.push_back(looks_ns[i] - looks_ns[i - 1]);
    std::sort(gaps_ns.begin(), gaps_ns.end());
    EXPECT_LT(gaps_ns[gaps_ns.size() * 95 / 100], longest_gap_ns);
    int64_t total_ms = (looks_ns.back() - looks_ns.front()) / 1'000'000;
    RecordProperty("milliseconds", static_cast<int>(total_ms));
    RecordProperty("longest_gap_us", static_cast<int>(gaps_ns.back() / 1000));
    EXPECT_GE(runs, total_ms / 20);
    EXPECT_GE(runs, 1);
}
