#include "tools/classbench_reader.h"
#include "tools/rule_generator.h"

#include <gtest/gtest.h>

#include <set>

namespace {

constexpr e_rule_family families[] = {e_rule_family::acl, e_rule_family::fw, e_rule_family::ipc};

// Distinct conditions on a field, a rule without one counting as a value too.
size_t distinct_values(const t_rule_set &set, uint32_t field_type)
{
    std::set<std::pair<uint32_t, uint32_t>> values;
    for (const t_set_rule &rule : set.rules) {
        const t_rule_condition *p_condition = set_rule_condition(rule, field_type);
        values.emplace(p_condition != nullptr ? p_condition->ranges[0].low : 0,
                       p_condition != nullptr ? p_condition->ranges[0].high : 0xffffffff);
    }
    return values.size();
}

}  // namespace

TEST(RuleGenerator, SetsAreRepeatableDistinctAndReadable)
{
    for (e_rule_family family : families) {
        for (size_t count : {1, 2, 50, 1000, 20000}) {
            std::string text = generated_rules_print(rules_generate(family, count, 5));
            EXPECT_EQ(text, generated_rules_print(rules_generate(family, count, 5)));
            EXPECT_NE(text, generated_rules_print(rules_generate(family, count, 6)));
            t_rule_set set;
            t_text_error error;
            ASSERT_TRUE(classbench_read(text, "g", &set, &error)) << text_error_print(error);
            EXPECT_EQ(set.rules.size(), count);
            std::set<std::string> lines;
            for (size_t start = 0; start < text.size(); start = text.find('\n', start) + 1)
                lines.insert(text.substr(start, text.find('\n', start) - start));
            EXPECT_EQ(lines.size(), count) << "rules are distinct";
        }
    }
}

TEST(RuleGenerator, FamiliesHaveTheShapeOfRealSets)
{
    struct t_case {
        e_rule_family family;
        uint32_t field_type;
        size_t min;
        size_t max;
    };
    static const t_case cases[] = {
        {e_rule_family::acl, tarn_ip_src_addr, 40, 110},  {e_rule_family::acl, tarn_ip_dst_addr, 220, 420},
        {e_rule_family::acl, tarn_ip_src_port, 1, 1},     {e_rule_family::acl, tarn_ip_dst_port, 60, 120},
        {e_rule_family::acl, tarn_ip_protocol, 3, 5},     {e_rule_family::fw, tarn_ip_src_addr, 60, 220},
        {e_rule_family::fw, tarn_ip_dst_addr, 80, 250},   {e_rule_family::fw, tarn_ip_src_port, 8, 20},
        {e_rule_family::fw, tarn_ip_dst_port, 30, 60},    {e_rule_family::fw, tarn_ip_protocol, 4, 6},
        {e_rule_family::ipc, tarn_ip_src_addr, 180, 400}, {e_rule_family::ipc, tarn_ip_dst_addr, 330, 620},
        {e_rule_family::ipc, tarn_ip_src_port, 20, 45},   {e_rule_family::ipc, tarn_ip_dst_port, 30, 60},
        {e_rule_family::ipc, tarn_ip_protocol, 5, 8},
    };
    for (uint64_t seed = 1; seed <= 5; seed++) {
        for (const t_case &c : cases) {
            t_rule_set set;
            t_text_error error;
            ASSERT_TRUE(classbench_read(generated_rules_print(rules_generate(c.family, 1000, seed)), "g",
                                        &set, &error));
            size_t distinct = distinct_values(set, c.field_type);
            EXPECT_GE(distinct, c.min)
                << "family " << static_cast<int>(c.family) << " field " << c.field_type;
            EXPECT_LE(distinct, c.max)
                << "family " << static_cast<int>(c.family) << " field " << c.field_type;
        }
    }
}
