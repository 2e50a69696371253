#include "tools/rule_actions.h"
#include "tools/rule_file_reader.h"
#include "tools/rule_loader.h"

#include <gtest/gtest.h>

namespace {

std::vector<std::string> print_actions(const std::vector<t_tarn_filter_action> &actions)
{
    std::vector<std::string> words;
    for (const t_tarn_filter_action &action : actions)
        words.push_back(rule_action_print(action));
    return words;
}

}  // namespace

TEST(RuleFileReader, StatementsMakeASet)
{
    t_rule_set set;
    t_text_error error;
    ASSERT_TRUE(rule_file_read(
        "# a comment\n"
        "table edge-in   # the name\r\n"
        "default accept log\n"
        "list own 10.0.0.0/25 10.0.0.128/25,192.0.2.1\n"
        "list all @own \\\n"
        "   172.16.0.1-172.16.0.9\n"
        "\n"
        "rule web src @all,1.2.3.4 proto tcp,47 dport ssh,ftp-data,8000-8080 accept count web\n"
        "rule rest dscp af11-ef class 3 reject\n",
        "x", &set, &error))
        << text_error_print(error);
    EXPECT_EQ(set.table, "edge-in");
    EXPECT_EQ(print_actions(set.default_actions), (std::vector<std::string>{"accept", "log"}));
    ASSERT_EQ(set.rules.size(), 2u);
    EXPECT_EQ(set.rules[0].name, "web");
    EXPECT_EQ(set.rules[0].line, 8u);
    EXPECT_EQ(set_rule_condition(set.rules[0], tarn_ip_src_addr)->ranges,
              (t_value_ranges{{0x0a000000, 0x0a0000ff},
                              {0xac100001, 0xac100009},
                              {0xc0000201, 0xc0000201},
                              {0x01020304, 0x01020304}}));
    EXPECT_EQ(set_rule_condition(set.rules[0], tarn_ip_protocol)->ranges, (t_value_ranges{{6, 6}, {47, 47}}));
    EXPECT_EQ(set_rule_condition(set.rules[0], tarn_ip_dst_port)->ranges,
              (t_value_ranges{{22, 22}, {20, 20}, {8000, 8080}}));
    EXPECT_EQ(print_actions(set.rules[0].actions), (std::vector<std::string>{"accept", "count web"}));
    EXPECT_EQ(set_rule_condition(set.rules[1], tarn_ip_dscp)->ranges, (t_value_ranges{{10, 46}}));
    EXPECT_EQ(set_rule_condition(set.rules[1], tarn_ip_fc)->ranges, (t_value_ranges{{3, 3}}));
}

TEST(RuleFileReader, WhatCoversAFieldIsNoCondition)
{
    static const char *const columns[] = {
        "src any",
        "src 9.9.9.9/0",
        "src 0.0.0.0-255.255.255.255",
        "src 128.0.0.0/1,0.0.0.0/1",
        "dst @all",
        "dport 0-65535",
        "dport 1024-65535,0-1023",
        "sport any",
        "proto 0-255",
        "proto 1-255,0",
        "dscp 0-63",
        "src @all,10.0.0.0/8",
        "next-header any",
        "dns-app-family 0-100",
    };
    for (const char *column : columns) {
        t_rule_set set;
        t_text_error error;
        std::string text =
            std::string("list all 0.0.0.0/2 64.0.0.0/2 128.0.0.0/1\nrule r ") + column + " accept";
        ASSERT_TRUE(rule_file_read(text, "f", &set, &error)) << text_error_print(error);
        EXPECT_TRUE(set.rules[0].conditions.empty()) << column;
    }
}

TEST(RuleFileReader, EveryActionIsReadAndPrintedInItsWords)
{
    static const char *const actions[] = {
        "count a-name",
        "log",
        "cflowd",
        "fallback",
        "inspect",
        "tcp-optimization",
        "ssl-optimization",
        "fec-adaptive",
        "fec-always",
        "packet-duplication",
        "redirect-dns 9.8.7.6",
        "mirror interface ge0/1",
        "mirror tunnel 1.2.3.4 5.6.7.8",
        "set class 64",
        "set dscp 46",
        "set traffic-class 255",
        "set next-hop 192.0.2.1",
        "set nat-vpn 65535",
        "set nat-pool 4294967295",
    };
    for (const char *action : actions) {
        t_rule_set set;
        t_text_error error;
        ASSERT_TRUE(rule_file_read(std::string("rule r reject ") + action, "f", &set, &error)) << action;
        EXPECT_EQ(print_actions(set.rules[0].actions), (std::vector<std::string>{"reject", action}));
    }
    t_rule_set set;
    t_text_error error;
    ASSERT_TRUE(
        rule_file_read("rule r police p rate 1000000 burst 1500 mark set dscp ef accept", "f", &set, &error));
    EXPECT_EQ(print_actions(set.rules[0].actions),
              (std::vector<std::string>{"police p rate 1000 burst 1500000 mark", "set dscp 46", "accept"}))
        << "rates are clock ticks a byte at 1 GHz";
}

TEST(RuleFileReader, ABadStatementIsNamedWithItsReason)
{
    std::string long_name(64, 'c');
    std::string longer_name(128, 'n');
    struct t_case {
        std::string text;
        std::string error;
    };
    const t_case cases[] = {
        {"", "f: no rules"},
        {"table t\ndefault accept\n", "f: no rules"},
        {"rule a accept\nrools b", "f:2: unknown word 'rools' at the start of a line"},
        {"rule a accept\nrule a reject", "f:2: rule 'a' is there already"},
        {"rule a#b accept", "f:1: neither accept nor reject"},
        {"rule a@b accept", "f:1: rule name has other characters than letters, digits and ._-:/+ : 'a@b'"},
        {"rule", "f:1: rule without a name"},
        {"rule a src @x accept", "f:1: unknown list 'x'"},
        {"list x 1.1.1.1\nlist x 1.1.1.2", "f:2: list 'x' is there already"},
        {"list x @x", "f:1: unknown list 'x'"},
        {"list x", "f:1: list 'x' has no addresses"},
        {"\n\nlist x # y", "f:3: list 'x' has no addresses"},
        {"list x y", "f:1: no IPv4 address: 'y'"},
        {"rule a dport 65536 accept", "f:1: dport 65536 above 65535"},
        {"rule a dport 1-70000 accept", "f:1: dport 70000 above 65535"},
        {"rule a dport 9-8 accept", "f:1: range '9-8' is reversed"},
        {"rule a src 2.2.2.2-1.1.1.1 accept", "f:1: range '2.2.2.2-1.1.1.1' is reversed"},
        {"rule a src 1.1.1.1/33 accept", "f:1: prefix length 33 above 32"},
        {"rule a src 1.1.1.999 accept", "f:1: octet 999 above 255 in '1.1.1.999'"},
        {"rule a src 1.1.1.1, accept", "f:1: no IPv4 address: ''"},
        {"rule a proto icmpp accept", "f:1: no value for proto: 'icmpp'"},
        {"rule a dport -1 accept", "f:1: no value for dport: ''"},
        {"rule a dport 1 dport 2 accept", "f:1: field 'dport' named twice"},
        {"rule a dport any dport 2 accept", "f:1: field 'dport' named twice"},
        {"rule a dport", "f:1: missing value of dport"},
        {"rule a dport 80", "f:1: neither accept nor reject"},
        {"rule a accept reject", "f:1: more than one accept or reject"},
        {"rule a accept drop", "f:1: unknown word 'drop'"},
        {"rule a accept set", "f:1: missing what to set"},
        {"rule a accept set colour 1", "f:1: unknown action 'set colour'"},
        {"rule a accept set class 65", "f:1: class 65 not in 0-64"},
        {"rule a accept set next-hop 1.1.1", "f:1: no IPv4 address: '1.1.1'"},
        {"rule a accept count", "f:1: missing counter name"},
        {"rule a accept count " + long_name,
         "f:1: counter name is longer than 63 bytes: '" + long_name.substr(0, 60) + "...'"},
        {"rule " + longer_name + " accept",
         "f:1: rule name is longer than 127 bytes: '" + longer_name.substr(0, 60) + "...'"},
        {"table " + longer_name,
         "f:1: table name is longer than 127 bytes: '" + longer_name.substr(0, 60) + "...'"},
        {"table a\ntable b", "f:2: a second table statement"},
        {"table a b", "f:1: unknown word 'b'"},
        {"default accept\ndefault accept", "f:2: a second default statement"},
        {"default log", "f:1: neither accept nor reject"},
        {"rule a accept police p rate 0 burst 1", "f:1: rate 0 not in 1-1000000000"},
        {"rule a accept police p burst 1", "f:1: 'rate' expected, not 'burst'"},
        {"rule a accept mirror port 1", "f:1: 'interface' or 'tunnel' expected, not 'port'"},
        {"rule a accept log log log log log log log log log log log", "f:1: more than 11 actions"},
        {"rule a \\\n accept \\\n bad\n", "f:1: unknown word 'bad'"},
    };
    for (const t_case &c : cases) {
        t_rule_set set;
        t_text_error error;
        EXPECT_FALSE(rule_file_read(c.text, "f", &set, &error)) << c.text;
        EXPECT_EQ(text_error_print(error), c.error) << c.text;
    }
}

TEST(RuleFileReader, ListsOfListsCannotGrowWithoutEnd)
{
    std::string text = "list l0";
    for (int i = 0; i < 4096; i++)
        text += " 10." + std::to_string(i / 128) + '.' + std::to_string(2 * (i % 128)) + ".1";
    text += "\nrule r accept src @l0";
    for (int i = 0; i < 5000; i++)
        text += ",@l0";
    t_rule_set set;
    t_text_error error;
    EXPECT_FALSE(rule_file_read(text, "f", &set, &error));
    EXPECT_EQ(text_error_print(error), "f:2: more than 16777216 ranges in the file");
}

TEST(RuleLoader, AnAtSignInFrontMeansClassbench)
{
    t_rule_set set;
    t_text_error error;
    EXPECT_TRUE(rule_set_read("\n \t@1.2.3.4/32 0.0.0.0/0 0:65535 0:65535 0/0", "f", e_rule_format::detect,
                              &set, &error));
    EXPECT_TRUE(rule_set_read("\n# @\nrule a accept", "f", e_rule_format::detect, &set, &error));
    EXPECT_FALSE(
        rule_set_read("@1.2.3.4/32 0.0.0.0/0 0:65535 0:65535 0/0", "f", e_rule_format::rules, &set, &error));
}
