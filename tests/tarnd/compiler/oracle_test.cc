// The compiler against its plain twin, and its programs against linear search.
#include "tests/support/compile.h"
#include "tests/support/plain_compiler.h"
#include "tests/support/program_content.h"
#include "tests/support/random_table.h"

#include "tarnd/compiler/eclass.h"

#include <gtest/gtest.h>

#include <algorithm>

static constexpr uint64_t mebibyte = 1 << 20;

static const t_ec *stage_of(t_tarn_context *p_context, uint32_t ec_id)
{
    return static_cast<const t_ec *>(rbst_search(&p_context->c_ecs, &ec_id)->data);
}

static uint32_t id_of(const t_ec *p_ec)
{
    return p_ec != nullptr ? p_ec->ec_id : 0;
}

static void expect_same_stages(t_tarn_context *p_context, const t_plain_result &plain)
{
    ASSERT_EQ(rbst_elements(&p_context->c_ecs), plain.stages.size());
    for (const t_plain_stage_summary &want : plain.stages) {
        const t_ec *p_ec = stage_of(p_context, want.ec_id);
        EXPECT_EQ(p_ec->ec_values, want.classes.size()) << "stage " << want.ec_id;
        EXPECT_EQ(p_ec->register_index, want.register_index) << "stage " << want.ec_id;
        EXPECT_EQ(id_of(p_ec->left), want.left) << "stage " << want.ec_id;
        EXPECT_EQ(id_of(p_ec->right), want.right) << "stage " << want.ec_id;
    }
}

// What a refusal leaves behind, whatever the real need is.
static void expect_refusal(const t_tarn_context *p_context, const t_compiled &compiled)
{
    EXPECT_EQ(compiled.status, tarn_status_fail);
    EXPECT_TRUE(compiled.program_touched);
    EXPECT_EQ(compiled.program, nullptr);
    EXPECT_EQ(p_context->c_failure, TARN_COMPILE_OVER_LIMIT);
    EXPECT_EQ(p_context->c_filter_id, -1);
    EXPECT_GT(static_cast<uint64_t>(compiled.length), p_context->c_program_limit);
}

// A random table for the comparison: many small ones, some with many rules on few types or few rules on many
// types.
static t_policy_shape comparison_shape(std::mt19937 *p_random)
{
    static constexpr uint32_t payloads[] = {4, 8, 8, 8, 60, TARN_ACTION_DATA_SIZE};
    t_policy_shape shape;
    shape.field_types = 1 + static_cast<int>(random_below(p_random, 16));
    uint32_t most = shape.field_types <= 2 ? 400 : shape.field_types <= 4 ? 40 : 12;
    shape.rules = 1 + static_cast<int>(random_below(p_random, most));
    shape.action_data_len = payloads[random_below(p_random, 6)];
    return shape;
}

struct CompilerOracle : testing::Test {
    t_test_memory memory;
    context_ptr context{tarn_context_create()};

    // Compiles both ways and compares. Tables that pass the limit are refused; false then.
    bool compare(const t_policy &policy)
    {
        ruletable_ptr table = policy_build(policy, context.get());
        t_compiled compiled = compile_table(context.get(), table.get());
        bool fits = compiled.status == tarn_status_ok;
        if (fits)
            compare_program(table.get(), compiled);
        else
            expect_refusal(context.get(), compiled);
        tarn_reinit_context(context.get());
        return fits;
    }

    void compare_program(const t_tarn_ruletable *p_table, const t_compiled &compiled)
    {
        // The map keeps the offsets of earlier programs, so the twin starts from what the last one left.
        uint32_t after[TARN_MAX_ECS];
        std::copy_n(context->c_ecid_table_map, TARN_MAX_ECS, after);
        std::copy_n(map_before, TARN_MAX_ECS, context->c_ecid_table_map);
        t_plain_result plain = plain_compile(context.get(), p_table);
        std::copy_n(after, TARN_MAX_ECS, context->c_ecid_table_map);
        std::copy_n(after, TARN_MAX_ECS, map_before);

        EXPECT_EQ(program_difference(compiled.bytes(), plain.program), "");
        expect_same_stages(context.get(), plain);
    }

    // Seeds from first on, until `count` tables were compared.
    void compare_tables(unsigned first, int count)
    {
        context->c_program_limit = mebibyte / 4;
        for (unsigned seed = first; count > 0 && !HasFailure(); seed++) {
            ASSERT_LT(seed - first, 100000u);
            SCOPED_TRACE(testing::Message() << "seed " << seed);
            std::mt19937 random(seed);
            count -= compare(policy_random(&random, comparison_shape(&random))) ? 1 : 0;
        }
        EXPECT_EQ(memory.blocks(), 0u);
    }

    uint32_t map_before[TARN_MAX_ECS] = {};
};

using CompilerShort = CompilerOracle;

TEST_F(CompilerShort, ContentEqualsThatOfThePlainCompiler)
{
    compare_tables(1'000'000, 300);
}

TEST_F(CompilerOracle, ContentEqualsThatOfThePlainCompilerA)
{
    compare_tables(2'000'000, 400);
}

TEST_F(CompilerOracle, ContentEqualsThatOfThePlainCompilerB)
{
    compare_tables(3'000'000, 400);
}

TEST_F(CompilerOracle, LargerTablesEqualThePlainCompilerToo)
{
    context->c_program_limit = 4 * mebibyte;
    static constexpr t_policy_shape shapes[] = {{1, 400, 8}, {2, 400, 8}, {3, 50, 8},
                                                {5, 20, 8},  {8, 12, 8},  {16, 8, 8}};
    int compared = 0;
    for (unsigned seed = 1; seed <= 5; seed++)
        for (const t_policy_shape &shape : shapes) {
            SCOPED_TRACE(testing::Message() << "seed " << seed << ", " << shape.field_types << " types");
            std::mt19937 random(seed);
            compared += compare(policy_random(&random, shape)) ? 1 : 0;
        }
    EXPECT_GT(compared, 15);
}

using CompilerSoak = CompilerOracle;

TEST_F(CompilerSoak, ContentEqualsThatOfThePlainCompiler)
{
    compare_tables(100'000'000, 60'000);
}

struct CompilerRefusal : CompilerOracle {
    t_compiled compile_under(const t_policy &policy, uint64_t limit)
    {
        tarn_reinit_context(context.get());
        context->c_program_limit = limit;
        ruletable_ptr table = policy_build(policy, context.get());
        return compile_table(context.get(), table.get());
    }

    void expect_refusals(const t_policy &policy)
    {
        t_compiled whole = compile_under(policy, 64 * mebibyte);
        if (whole.status != tarn_status_ok)
            return;
        size_t allocations = memory.allocations();
        for (int limit : {whole.length / 10, whole.length / 3, whole.length - 1}) {
            t_compiled refused = compile_under(policy, static_cast<uint64_t>(limit));
            expect_refusal(context.get(), refused);
            EXPECT_LE(refused.length, whole.length) << "the length is a lower bound";
        }
        EXPECT_EQ(memory.allocations(), allocations) << "refused before the program is allocated";
        t_compiled exact = compile_under(policy, static_cast<uint64_t>(whole.length));
        EXPECT_EQ(exact.status, tarn_status_ok) << "the limit itself is allowed";
        refusals += 3;
    }

    int refusals = 0;
};

TEST_F(CompilerRefusal, NamesALengthBetweenTheLimitAndTheRealOne)
{
    for (unsigned seed = 1; seed <= 60; seed++) {
        SCOPED_TRACE(testing::Message() << "seed " << seed);
        std::mt19937 random(seed);
        expect_refusals(policy_random(&random, comparison_shape(&random)));
    }
    EXPECT_GT(refusals, 100);
}

struct t_verdict_counts {
    int tables = 0;
    int refused = 0;
    int headers = 0;
    int defaults = 0;
};

struct CompilerVerdict : CompilerOracle {
    static constexpr int headers_per_table = 7000;
    t_verdict_counts counts;

    void check_headers(std::mt19937 *p_random, const t_linear_table &linear,
                       std::span<const std::byte> program)
    {
        std::string error;
        fp_walker_ptr walker = fp_walker_open(program, &error);
        ASSERT_NE(walker, nullptr) << error;
        for (int i = 0; i < headers_per_table && !HasFailure(); i++) {
            t_fp_header header = random_header(p_random, linear);
            uint32_t want = linear_match(linear, header);
            EXPECT_EQ(program_verdict(program, fp_walker_classify(walker.get(), header)), want)
                << "header " << i;
            counts.headers++;
            counts.defaults += want == 0 ? 1 : 0;
        }
    }

    void check_table(unsigned seed)
    {
        SCOPED_TRACE(testing::Message() << "seed " << seed);
        std::mt19937 random(seed);
        t_policy_shape shape = {.field_types = 1 + static_cast<int>(seed % 16),
                                .rules = 1 + static_cast<int>(random_below(&random, 400)),
                                .action_data_len = 8};
        // Sixteen types under 400 rules seldom fit, so half of the tables are cut to what the types allow.
        if (random_below(&random, 2) == 0)
            shape.rules = 1 + shape.rules / (shape.field_types * shape.field_types);
        ruletable_ptr table = policy_build(policy_random(&random, shape), context.get());
        t_compiled compiled = compile_table(context.get(), table.get());
        counts.tables++;
        if (compiled.status == tarn_status_ok) {
            check_headers(&random, linear_table(table.get()), compiled.bytes());
        } else {
            expect_refusal(context.get(), compiled);
            counts.refused++;
        }
        tarn_reinit_context(context.get());
    }

    // Tables until their programs have seen `headers` headers.
    void check_verdicts(unsigned first, int headers)
    {
        context->c_program_limit = 64 * mebibyte;
        for (unsigned seed = first; counts.headers < headers && !HasFailure(); seed++)
            check_table(seed);
        RecordProperty("tables", counts.tables);
        RecordProperty("refused", counts.refused);
        EXPECT_GT(counts.refused, 0);
        EXPECT_GT(counts.defaults, counts.headers / 100);
        EXPECT_LT(counts.defaults, counts.headers * 9 / 10);
    }
};

TEST_F(CompilerVerdict, EqualsTheFirstMatchingRuleA)
{
    check_verdicts(10'000, 700'000);
}

TEST_F(CompilerVerdict, EqualsTheFirstMatchingRuleB)
{
    check_verdicts(20'000, 700'000);
}

TEST_F(CompilerVerdict, EqualsTheFirstMatchingRuleC)
{
    check_verdicts(30'000, 700'000);
}

TEST_F(CompilerVerdict, ShortRunEqualsTheFirstMatchingRule)
{
    check_verdicts(40'000, 200'000);
}

using CompilerVerdictSoak = CompilerVerdict;

TEST_F(CompilerVerdictSoak, EqualsTheFirstMatchingRule)
{
    check_verdicts(1'000'000, 200'000'000);
}

// Policy number `index` of all those with up to three rules over two types whose conditions are none or one
// of the ten ranges within 0 to 3. Low numbers have one rule, then two.
static t_policy small_policy(uint32_t index)
{
    t_policy policy = {.name = "small", .action_data_len = 8, .rules = {}};
    do {
        t_policy_rule rule = {.identity = static_cast<uint32_t>(policy.rules.size() + 1), .matches = {}};
        for (uint32_t type : {tarn_ip_dscp, tarn_ip_protocol}) {
            uint32_t choice = index % 11;
            index /= 11;
            for (uint32_t low = 0; low <= 3 && choice != 0; low++)
                for (uint32_t high = low; high <= 3 && choice != 0; high++)
                    if (--choice == 0)
                        rule.matches.push_back({type, low, high, RANGE});
        }
        policy.rules.push_back(rule);
    } while (index != 0);
    return policy;
}

static void check_small_headers(const t_linear_table &linear, std::span<const std::byte> program)
{
    fp_walker_ptr walker = fp_walker_open(program, nullptr);
    ASSERT_NE(walker, nullptr);
    t_fp_header header = fp_header_blank();
    for (uint32_t dscp : {0u, 1u, 2u, 3u, 4u, 0xffffffffu})
        for (uint32_t protocol : {0u, 1u, 2u, 3u, 4u, 0xffffffffu}) {
            header.values[tarn_ip_dscp] = dscp;
            header.values[tarn_ip_protocol] = protocol;
            EXPECT_EQ(program_verdict(program, fp_walker_classify(walker.get(), header)),
                      linear_match(linear, header))
                << dscp << " " << protocol;
        }
}

TEST_F(CompilerOracle, SmallPoliciesGiveTheFirstMatchingRuleForEveryHeader)
{
    static constexpr uint32_t two_rules = 121 * 121;
    static constexpr uint32_t three_rules = 121 * 121 * 121;
    std::vector<uint32_t> numbers;
    for (uint32_t i = 0; i < two_rules; i += i < 121 ? 1 : 3)
        numbers.push_back(i);
    for (uint32_t i = two_rules; i < three_rules; i += 331)  // prime, so that all digits vary
        numbers.push_back(i);
    ASSERT_GE(numbers.size(), 10000u);
    for (uint32_t number : numbers) {
        SCOPED_TRACE(testing::Message() << "policy " << number);
        ruletable_ptr table = policy_build(small_policy(number), context.get());
        t_compiled compiled = compile_table(context.get(), table.get());
        ASSERT_EQ(compiled.status, tarn_status_ok);
        if (compiled.program_touched) {
            check_small_headers(linear_table(table.get()), compiled.bytes());
        } else {
            EXPECT_TRUE(linear_table(table.get()).types.empty());
        }
        tarn_reinit_context(context.get());
        if (HasFailure())
            return;
    }
}
