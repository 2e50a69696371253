#include "tools/classbench_reader.h"

#include <gtest/gtest.h>

namespace {

constexpr const char *good = "@10.0.0.0/8\t192.0.2.0/24\t0 : 65535\t80 : 90\t0x06/0xFF\t0x0000/0x0200\t\n";

}  // namespace

TEST(ClassbenchReader, ColumnsBecomeConditions)
{
    t_rule_set set;
    t_text_error error;
    std::string text = std::string("\r\n") + good + "@10.1.2.3/8 0.0.0.0/0 1:2 0 : 65535 0x00/0x00 \r\n\n";
    ASSERT_TRUE(classbench_read(text, "a/b.set", &set, &error)) << text_error_print(error);
    EXPECT_EQ(set.table, "b");
    ASSERT_EQ(set.rules.size(), 2u);

    const t_set_rule &first = set.rules[0];
    EXPECT_EQ(first.name, "1");
    EXPECT_EQ(first.line, 2u);
    ASSERT_EQ(first.conditions.size(), 4u);
    EXPECT_EQ(set_rule_condition(first, tarn_ip_protocol)->ranges, (t_value_ranges{{6, 6}}));
    EXPECT_EQ(set_rule_condition(first, tarn_ip_src_port), nullptr) << "the whole range is no condition";
    EXPECT_EQ(set_rule_condition(first, tarn_ip_dst_port)->ranges, (t_value_ranges{{80, 90}}));
    EXPECT_EQ(set_rule_condition(first, tarn_ip_src_addr)->ranges,
              (t_value_ranges{{0x0a000000, 0x0affffff}}));
    EXPECT_EQ(set_rule_condition(first, tarn_ip_dst_addr)->ranges,
              (t_value_ranges{{0xc0000200, 0xc00002ff}}));

    const t_set_rule &second = set.rules[1];
    ASSERT_EQ(second.conditions.size(), 2u) << "/0 and protocol mask 0 are no conditions";
    EXPECT_EQ(set_rule_condition(second, tarn_ip_src_addr)->ranges,
              (t_value_ranges{{0x0a000000, 0x0affffff}}))
        << "bits behind the prefix length are dropped";
}

TEST(ClassbenchReader, AProtocolMaskSelectsAllValuesThatMatch)
{
    struct t_case {
        const char *column;
        t_value_ranges want;
    };
    static const t_case cases[] = {
        {"0x06/0xFF", {{6, 6}}},     {"17/255", {{17, 17}}},
        {"0x10/0xF0", {{16, 31}}},   {"0x01/0x01", {}},  // 128 single values, looked at below
        {"0x80/0x80", {{128, 255}}},
    };
    for (const t_case &c : cases) {
        t_rule_set set;
        t_text_error error;
        std::string text = std::string("@1.2.3.4/32 1.2.3.4/32 0 : 65535 0 : 65535 ") + c.column;
        ASSERT_TRUE(classbench_read(text, "f", &set, &error)) << c.column;
        const t_value_ranges &got = set_rule_condition(set.rules[0], tarn_ip_protocol)->ranges;
        if (!c.want.empty())
            EXPECT_EQ(got, c.want) << c.column;
        else
            EXPECT_EQ(ranges_count(got), 128u) << c.column;
    }
}

TEST(ClassbenchReader, ABadLineIsNamedWithItsReason)
{
    struct t_case {
        const char *line;
        const char *reason;
    };
    static const t_case cases[] = {
        {"10.0.0.0/8 1.2.3.4/32 0 : 1 0 : 1 6/255",
         "no '@' in front of the rule at '10.0.0.0/8 1.2.3.4/32 0 : 1 0 : 1 6/255'"},
        {"@10.0.0.0/33 1.2.3.4/32 0 : 1 0 : 1 6/255", "source: prefix length 33 above 32"},
        {"@10.0.0.256/8 1.2.3.4/32 0 : 1 0 : 1 6/255", "source: octet 256 above 255 in '10.0.0.256'"},
        {"@10.0.0/8 1.2.3.4/32 0 : 1 0 : 1 6/255", "source: no IPv4 address: '10.0.0'"},
        {"@10.0.0.0.0/8 1.2.3.4/32 0 : 1 0 : 1 6/255", "source: no IPv4 address: '10.0.0.0.0'"},
        {"@10.0.0.0 1.2.3.4/32 0 : 1 0 : 1 6/255", "source: no prefix length in '10.0.0.0'"},
        {"@10.0.0.0/x 1.2.3.4/32 0 : 1 0 : 1 6/255", "source: no prefix length in '10.0.0.0/x'"},
        {"@10.0.0.0/8 1.2.3.4/64 0 : 1 0 : 1 6/255", "destination: prefix length 64 above 32"},
        {"@10.0.0.0/8 1.2.3.4/32 0 : 65536 0 : 1 6/255", "source port 65536 above 65535"},
        {"@10.0.0.0/8 1.2.3.4/32 0 : 1 7 : 70000 6/255", "destination port 70000 above 65535"},
        {"@10.0.0.0/8 1.2.3.4/32 2 : 1 0 : 1 6/255", "source port range 2 : 1 is reversed"},
        {"@10.0.0.0/8 1.2.3.4/32 0 : 1 9 : 8 6/255", "destination port range 9 : 8 is reversed"},
        {"@10.0.0.0/8 1.2.3.4/32 0 - 1 0 : 1 6/255", "no ':' in port range at '- 1 0 : 1 6/255'"},
        {"@10.0.0.0/8 1.2.3.4/32 -1 : 1 0 : 1 6/255", "no source port at '-1 : 1 0 : 1 6/255'"},
        {"@10.0.0.0/8 1.2.3.4/32 0 : 1 0 : 1 0x106/0xFF", "protocol 0x106 above 255"},
        {"@10.0.0.0/8 1.2.3.4/32 0 : 1 0 : 1 6", "missing protocol mask"},
        {"@10.0.0.0/8 1.2.3.4/32 0 : 1 0 : 1", "missing protocol"},
        {"@10.0.0.0/8 1.2.3.4/32 0 : 1", "missing destination port"},
        {"@10.0.0.0/8", "missing destination prefix"},
        {"@", "missing source prefix"},
        {"@10.0.0.0/8 1.2.3.4/32 0 : 1 0 : 1 6/255 0x0/0x0 z", "unexpected 'z' behind the last column"},
        {"@10.0.0.0/8 1.2.3.4/32 0 : 1 0 : 1 6/255 drop", "no flags at 'drop'"},
        {"\x01\xff", "no '@' in front of the rule at '?"
                     "?'"},
    };
    for (const t_case &c : cases) {
        t_rule_set set;
        t_text_error error;
        EXPECT_FALSE(classbench_read(std::string(good) + "\n" + c.line + "\n" + good, "f.set", &set, &error))
            << c.line;
        EXPECT_EQ(text_error_print(error), std::string("f.set:3: ") + c.reason) << c.line;
    }
}

TEST(ClassbenchReader, AFileHasAtLeastOneRuleAndAtMostItsLimit)
{
    t_rule_set set;
    t_text_error error;
    EXPECT_FALSE(classbench_read(" \n\r\n", "f", &set, &error));
    EXPECT_EQ(text_error_print(error), "f: no rules");

    std::string text;
    for (size_t i = 0; i < RULE_SET_MAX_RULES; i++)
        text += "@0.0.0.0/0 0.0.0.0/0 0:65535 0:65535 0/0\n";
    EXPECT_FALSE(classbench_read(text + good, "f", &set, &error));
    EXPECT_EQ(text_error_print(error), "f:524281: more than 524280 rules");
}
