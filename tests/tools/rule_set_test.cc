#include "lab/fp/walker.h"
#include "tools/linear_search.h"
#include "tools/rule_compile.h"
#include "tools/rule_fields.h"
#include "tools/rule_file_reader.h"

#include <gtest/gtest.h>

#include <cstring>
#include <random>

namespace {

t_rule_set read_rules(const std::string &text)
{
    t_rule_set set;
    t_text_error error;
    EXPECT_TRUE(rule_file_read(text, "f", &set, &error)) << text_error_print(error);
    return set;
}

std::vector<uint32_t> order_of(const char *text)
{
    std::vector<uint32_t> order;
    std::string reason;
    EXPECT_TRUE(rule_field_order_read(text, &order, &reason)) << reason;
    return order;
}

std::span<const t_tarn_filter_action> slots_at(const t_compile_result &result, uint32_t offset)
{
    const std::byte *p_data = compile_result_bytes(result).data() + offset + sizeof(t_tarn_action);
    return {reinterpret_cast<const t_tarn_filter_action *>(p_data), MAX_ACTIONS_IN_RULE};
}

// A rule with a random condition on each of a random half of the fields.
t_set_rule random_rule(std::mt19937 &random, std::span<const t_rule_field> fields)
{
    t_set_rule rule = {.name = "r", .line = 1, .conditions = {}, .actions = {}};
    for (const t_rule_field &field : fields) {
        if (random() % 2 == 0)
            continue;
        t_value_ranges ranges;
        for (uint32_t n = 1 + static_cast<uint32_t>(random()) % 2; n > 0; n--) {
            uint32_t low = static_cast<uint32_t>(random() % (uint64_t{field.max_value} + 1));
            uint32_t room = field.max_value - low;
            ranges.push_back({low, low + (room == 0 ? 0 : static_cast<uint32_t>(random()) % room)});
        }
        set_rule_add_condition(&rule, field.type, ranges);
    }
    return rule;
}

// Values at a border of some rule more often than not.
t_fp_header random_header(std::mt19937 &random, const t_rule_set &set)
{
    t_fp_header header = fp_header_blank();
    for (const t_rule_field &field : rule_fields()) {
        const t_set_rule &rule = set.rules[random() % set.rules.size()];
        const t_rule_condition *p_condition = set_rule_condition(rule, field.type);
        uint32_t value = static_cast<uint32_t>(random() % (uint64_t{field.max_value} + 1));
        if (p_condition != nullptr)
            value = p_condition->ranges[0].low - 1 + static_cast<uint32_t>(random()) % 3;
        header.values[field.type] = value;
    }
    return header;
}

}  // namespace

TEST(RuleSet, AProgramDoesWhatTheLinearSearchDoes)
{
    int rule_hits = 0;
    for (uint32_t seed = 1; seed <= 60; seed++) {
        SCOPED_TRACE("seed " + std::to_string(seed));
        std::mt19937 random(seed);
        t_rule_set set = {.file = "f", .table = "t", .rules = {}, .default_actions = {}};
        std::span<const t_rule_field> fields = rule_fields().subspan(random() % 12, 1 + random() % 5);
        for (uint32_t n = 1 + static_cast<uint32_t>(random()) % 30; n > 0; n--)
            set.rules.push_back(random_rule(random, fields));
        t_compile_result result = rule_set_compile(set, order_of(""), 0, true);
        ASSERT_NE(result.program, nullptr) << result.reason;
        std::string reason;
        fp_walker_ptr walker = fp_walker_open(compile_result_bytes(result), &reason);
        ASSERT_NE(walker, nullptr) << reason;
        t_linear_search search = linear_search_make(set);
        for (int i = 0; i < 500; i++) {
            t_fp_header header = random_header(random, set);
            t_fp_verdict verdict = fp_walker_classify(walker.get(), header);
            uint32_t got = verdict.record_offset == FP_NO_RECORD
                               ? 0
                               : rule_number_of_record(slots_at(result, verdict.record_offset));
            ASSERT_EQ(got, linear_search_find(search, header));
            rule_hits += got != 0;
        }
    }
    EXPECT_GT(rule_hits, 3000);
}

TEST(RuleSet, TheSearchTakesTheFirstRuleAndKnowsTheDefault)
{
    t_rule_set set = read_rules("rule a src 10.0.0.0/8 dport 80,90-99 accept\n"
                                "rule b src 10.0.0.0/7 accept\n"
                                "rule c src 240.0.0.0/4 accept\n");
    t_linear_search search = linear_search_make(set);
    struct t_case {
        uint32_t src;
        uint32_t dport;
        uint32_t proto;
        uint32_t want;
    };
    static const t_case cases[] = {
        {0x0a000001, 80, 6, 1},         {0x0a000001, 81, 6, 2},          {0x0a000001, 99, 6, 1},
        {0x0b000001, 80, 6, 2},         {0x0c000001, 80, 6, 0},          {0xfffffffe, 80, 6, 3},
        {0xffffffff, 80, 6, 0},                                           // in no table
        {0xf0000000, 0xffffffff, 6, 0}, {0xf0000000, 80, 0xffffffff, 3},  // the table does not use proto
    };
    for (const t_case &c : cases) {
        t_fp_header header = fp_header_blank();
        header.values[tarn_ip_src_addr] = c.src;
        header.values[tarn_ip_dst_port] = c.dport;
        header.values[tarn_ip_protocol] = c.proto;
        EXPECT_EQ(linear_search_find(search, header), c.want) << c.src << ' ' << c.dport;
    }
}

TEST(RuleSet, StagesFollowTheOrderAndNotTheRules)
{
    t_rule_set set = read_rules(
        "rule a proto tcp accept\nrule b dst 10.0.0.0/8 dport 5 accept\nrule c src 1.1.1.1 accept");
    struct t_case {
        const char *order;
        std::vector<uint32_t> want;
    };
    static const t_case cases[] = {
        {"", {tarn_ip_match_any, tarn_ip_dst_port, tarn_ip_src_addr, tarn_ip_dst_addr, tarn_ip_protocol}},
        {"proto,dst,sport",
         {tarn_ip_match_any, tarn_ip_protocol, tarn_ip_dst_addr, tarn_ip_dst_port, tarn_ip_src_addr}},
    };
    for (const t_case &c : cases) {
        t_compile_result result = rule_set_compile(set, order_of(c.order), 0, true);
        ASSERT_NE(result.program, nullptr) << result.reason;
        std::vector<uint32_t> types;
        for (const t_stage_report &stage : result.stages)
            if (stage.left == 0)
                types.push_back(stage.field_type);
        EXPECT_EQ(types, c.want) << c.order;
    }
    std::vector<uint32_t> order;
    std::string reason;
    EXPECT_FALSE(rule_field_order_read("src,sorce", &order, &reason));
    EXPECT_EQ(reason, "unknown field 'sorce'");
    EXPECT_FALSE(rule_field_order_read("src,dst,src", &order, &reason));
    EXPECT_EQ(reason, "field 'src' named twice");
}

TEST(RuleSet, RecordsHaveTheActionsAndTheRuleNumberInTheLastSlot)
{
    t_rule_set set = read_rules("default reject log\nrule a src 1.1.1.1 accept police p rate 1000 burst 2\n");
    t_compile_result result = rule_set_compile(set, order_of(""), 0, true);
    std::string reason;
    fp_walker_ptr walker = fp_walker_open(compile_result_bytes(result), &reason);
    ASSERT_NE(walker, nullptr) << reason;
    t_fp_header header = fp_header_blank();
    t_fp_verdict verdict = fp_walker_classify(walker.get(), header);
    std::span<const t_tarn_filter_action> slots = slots_at(result, verdict.record_offset);
    EXPECT_EQ(slots[0].action, TARN_FILTER_ACTION_REJECT);
    EXPECT_EQ(slots[1].fwding_action, TARN_FILTER_ACTION_LOG);
    EXPECT_EQ(rule_number_of_record(slots), 0u);

    header.values[tarn_ip_src_addr] = 0x01010101;
    verdict = fp_walker_classify(walker.get(), header);
    slots = slots_at(result, verdict.record_offset);
    EXPECT_EQ(slots[0].action, TARN_FILTER_ACTION_ACCEPT);
    EXPECT_STREQ(slots[1].policer.name, "1.p");
    EXPECT_EQ(slots[1].policer.rate, 1000000u);
    EXPECT_EQ(rule_number_of_record(slots), 1u);
    EXPECT_STREQ(slots[MAX_ACTIONS_IN_RULE - 1].counter.name, "#1");
}

TEST(RuleSet, StagesAreKnownWithoutAProgram)
{
    t_rule_set set = read_rules("rule a proto tcp dport 1 accept\nrule b dst 10.0.0.0/8 dport 5 accept");
    t_compile_result with = rule_set_compile(set, order_of(""), 0, true);
    t_compile_result without = rule_set_compile(set, order_of(""), 0, false);
    EXPECT_EQ(without.program, nullptr);
    EXPECT_EQ(without.reason, "");
    ASSERT_EQ(without.stages.size(), with.stages.size());
    for (size_t i = 0; i < with.stages.size(); i++) {
        EXPECT_EQ(without.stages[i].classes, with.stages[i].classes);
        EXPECT_EQ(without.stages[i].is_right_input, with.stages[i].is_right_input);
    }
    for (const t_stage_report &stage : with.stages)
        for (const t_stage_report &other : with.stages)
            EXPECT_TRUE(stage.right != other.id || other.is_right_input) << other.id;
}
