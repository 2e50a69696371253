// Rewriting a policy in ways that must not change any verdict.
#include "tests/support/compile.h"
#include "tests/support/random_table.h"

#include <gtest/gtest.h>

#include <algorithm>

static t_interval closed_interval(const t_policy_match &match)
{
    if (match.prefix_len == RANGE)
        return {std::min(match.low, match.high), std::max(match.low, match.high), nullptr};
    if (match.prefix_len == 0)
        return {0, 0, nullptr};
    uint32_t host_bits = 0xffffffffu >> 1 >> (match.prefix_len - 1);
    return {match.low & ~host_bits, match.low | host_bits, nullptr};
}

// True if no interval of the type in one rule meets one of the other rule; both name the type.
static bool disjoint_on(const t_policy_rule &a, const t_policy_rule &b, uint32_t type)
{
    bool both = false;
    for (const t_policy_match &x : a.matches)
        for (const t_policy_match &y : b.matches) {
            if (x.type != type || y.type != type)
                continue;
            t_interval p = closed_interval(x);
            t_interval q = closed_interval(y);
            if (p.i_min <= q.i_max && q.i_min <= p.i_max)
                return false;
            both = true;
        }
    return both;
}

static bool disjoint(const t_policy_rule &a, const t_policy_rule &b)
{
    return std::any_of(a.matches.begin(), a.matches.end(),
                       [&](const t_policy_match &match) { return disjoint_on(a, b, match.type); });
}

static int duplicate_rules(t_policy *p_policy, std::mt19937 *p_random)
{
    uint32_t index = random_below(p_random, static_cast<uint32_t>(p_policy->rules.size()));
    t_policy_rule copy = p_policy->rules[index];
    copy.identity += 100'000;
    p_policy->rules.insert(p_policy->rules.begin() + index + 1, copy);
    return 1;
}

static int swap_disjoint_neighbours(t_policy *p_policy, std::mt19937 *)
{
    int swaps = 0;
    for (size_t i = 0; i + 1 < p_policy->rules.size(); i++)
        if (disjoint(p_policy->rules[i], p_policy->rules[i + 1])) {
            std::swap(p_policy->rules[i], p_policy->rules[i + 1]);
            swaps++;
        }
    return swaps;
}

static int split_ranges(t_policy *p_policy, std::mt19937 *p_random)
{
    int splits = 0;
    for (t_policy_rule &rule : p_policy->rules)
        for (size_t i = rule.matches.size(); i-- > 0;) {
            t_interval ival = closed_interval(rule.matches[i]);
            if (ival.i_min == ival.i_max)
                continue;
            uint32_t last = ival.i_min + random_below(p_random, ival.i_max - ival.i_min);
            rule.matches[i] = {rule.matches[i].type, ival.i_min, last, RANGE};
            rule.matches.push_back({rule.matches[i].type, last + 1, ival.i_max, RANGE});
            splits++;
        }
    return splits;
}

// Other numbers for the stages and another tree of combinations.
static int shuffle_conditions(t_policy *p_policy, std::mt19937 *p_random)
{
    for (t_policy_rule &rule : p_policy->rules)
        std::shuffle(rule.matches.begin(), rule.matches.end(), *p_random);
    return 1;
}

struct CompilerMetamorphicShort : testing::Test {
    t_test_memory memory;
    context_ptr context{tarn_context_create()};

    // Verdicts of the policy for the headers; empty when its program is too large for this test.
    std::vector<uint32_t> verdicts(const t_policy &policy, const std::vector<t_fp_header> &headers)
    {
        ruletable_ptr table = policy_build(policy, context.get());
        t_compiled compiled = compile_table(context.get(), table.get());
        tarn_reinit_context(context.get());
        if (compiled.program == nullptr)
            return {};
        fp_walker_ptr walker = fp_walker_open(compiled.bytes(), nullptr);
        std::vector<uint32_t> verdicts;
        for (const t_fp_header &header : headers)
            verdicts.push_back(program_verdict(compiled.bytes(), fp_walker_classify(walker.get(), header)));
        return verdicts;
    }

    std::vector<t_fp_header> make_headers(std::mt19937 *p_random, const t_policy &policy)
    {
        ruletable_ptr table = policy_build(policy, context.get());
        tarn_reinit_context(context.get());
        t_linear_table linear = linear_table(table.get());
        std::vector<t_fp_header> headers;
        for (int i = 0; i < 500; i++)
            headers.push_back(random_header(p_random, linear));
        return headers;
    }

    void expect_unchanged(int (*rewrite)(t_policy *, std::mt19937 *))
    {
        context->c_program_limit = 1 << 20;
        int rewrites = 0;
        for (unsigned seed = 1; seed <= 60; seed++) {
            std::mt19937 random(seed);
            t_policy_shape shape = {1 + static_cast<int>(seed % 5), 2 + static_cast<int>(seed % 20), 8};
            t_policy policy = policy_random(&random, shape);
            std::vector<t_fp_header> headers = make_headers(&random, policy);
            std::vector<uint32_t> before = verdicts(policy, headers);
            rewrites += rewrite(&policy, &random);
            std::vector<uint32_t> after = verdicts(policy, headers);
            if (!before.empty() && !after.empty()) {
                ASSERT_EQ(before, after) << "seed " << seed;
            }
        }
        EXPECT_GT(rewrites, 20);
    }
};

TEST_F(CompilerMetamorphicShort, ADuplicateBehindItsOriginalNeverWins)
{
    expect_unchanged(duplicate_rules);
}

TEST_F(CompilerMetamorphicShort, DisjointNeighboursMaySwap)
{
    expect_unchanged(swap_disjoint_neighbours);
}

TEST_F(CompilerMetamorphicShort, ASplitRangeMatchesTheSameValues)
{
    expect_unchanged(split_ranges);
}

TEST_F(CompilerMetamorphicShort, TheOrderOfConditionsDoesNotMatter)
{
    expect_unchanged(shuffle_conditions);
}
