#include "tarnd/compiler/tarn_ruletable.h"

#include "tarnd/compiler/eclass.h"
#include "tarnd/compiler/epi.h"
#include "tarnd/compiler/tarn_field.h"
#include "tests/support/compile.h"

#include <gtest/gtest.h>

#include <csignal>
#include <cstring>
#include <string>
#include <vector>

struct RuleTable : testing::Test {
    context_ptr context{tarn_context_create()};
    ruletable_ptr table{tarn_ruletable_create("table", "alias", 0, nullptr)};

    const t_ec *stage(tarn_field_id id)
    {
        return static_cast<const t_ec *>(rbst_search(&context->c_ecs, &id)->data);
    }
    std::vector<uint32_t> endpoints(tarn_field_id id)
    {
        const t_rbst *p_tree = &stage(id)->endpoints;
        std::vector<uint32_t> values;
        for (t_rbst_node *p_node = nullptr; (p_node = rbst_getnext(p_tree, p_node)) != nullptr;)
            values.push_back(*static_cast<const uint32_t *>(p_node->key));
        return values;
    }
};

using RuleTableDeathTest = RuleTable;

static constexpr uint32_t top = 0xffffffff;

TEST_F(RuleTable, ARangeEntersItsEndPoints)
{
    static const struct {
        const char *behaviour;
        uint32_t a, b;
        uint32_t min, max_val;
        std::vector<uint32_t> endpoints;
    } cases[] = {
        {"the upper end point is one behind the range", 5, 9, 5, 9, {0, 5, 10, top}},
        {"bounds come in either order", 9, 5, 5, 9, {0, 5, 10, top}},
        {"a single value has two end points", 7, 7, 7, 7, {0, 7, 8, top}},
        {"a range from 0 shares the lowest seed", 0, 3, 0, 3, {0, 4, top}},
        {"a range to the top adds no upper end point", 3, top, 3, top, {0, 3, top}},
        {"the whole space adds nothing", 0, top, 0, top, {0, top}},
        {"the top value alone adds nothing", top, top, top, top, {0, top}},
        {"a range up to the last value of a leaf shares the highest seed",
         3,
         top - 1,
         3,
         top - 1,
         {0, 3, top}},
    };
    for (const auto &c : cases) {
        tarn_reinit_context(context.get());
        t_tarn_rule *p_rule = tarn_rule_create(table.get(), "1");
        tarn_field_id id = tarn_get_field_id(context.get(), tarn_ip_dst_port);
        t_tarn_field *p_field = tarn_add_range_field(context.get(), p_rule, id, c.a, c.b);
        EXPECT_EQ(p_field->f_intervals->i_min, c.min) << c.behaviour;
        EXPECT_EQ(p_field->f_intervals->i_max, c.max_val) << c.behaviour;
        EXPECT_EQ(endpoints(id), c.endpoints) << c.behaviour;
    }
}

TEST_F(RuleTable, APrefixBecomesARange)
{
    static const struct {
        uint8_t address[4];
        uint32_t prefix_len;
        uint32_t min, max_val;
    } cases[] = {
        {{10, 1, 2, 3}, 8, 0x0a000000, 0x0affffff},
        {{10, 1, 2, 3}, 31, 0x0a010202, 0x0a010203},
        {{10, 1, 2, 3}, 32, 0x0a010203, 0x0a010203},
        {{255, 255, 255, 255}, 32, top, top},
        {{255, 255, 255, 255}, 1, 0x80000000, top},
        {{10, 1, 2, 3}, 0, 0, 0},  // a shift by 32 is a shift by 0
    };
    t_tarn_rule *p_rule = tarn_rule_create(table.get(), "1");
    tarn_field_id id = tarn_get_field_id(context.get(), tarn_ip_src_addr);
    const t_tarn_field *p_field = nullptr;
    for (const auto &c : cases)
        p_field = tarn_add_prefix_field(context.get(), p_rule, id, c.address, c.prefix_len);
    const t_interval *p_ival = p_field->f_intervals;
    for (const auto &c : cases) {
        EXPECT_EQ(p_ival->i_min, c.min) << "/" << c.prefix_len;
        EXPECT_EQ(p_ival->i_max, c.max_val) << "/" << c.prefix_len;
        p_ival = p_ival->i_next;
    }
    EXPECT_EQ(p_ival, nullptr);
}

TEST_F(RuleTable, ARuleHasOneFieldForATypeAndTheFieldHasTheStageNumber)
{
    t_tarn_rule *p_rule = tarn_rule_create(table.get(), "10");
    tarn_field_id dscp = tarn_get_field_id(context.get(), tarn_ip_dscp);
    tarn_field_id protocol = tarn_get_field_id(context.get(), tarn_ip_protocol);
    EXPECT_EQ(dscp, 1u);
    EXPECT_EQ(protocol, 2u);
    EXPECT_EQ(tarn_get_field_id(context.get(), tarn_ip_dscp), dscp);

    t_tarn_field *p_field = tarn_add_range_field(context.get(), p_rule, dscp, 1, 2);
    EXPECT_EQ(tarn_add_range_field(context.get(), p_rule, dscp, 40, 50), p_field);
    EXPECT_EQ(p_field->f_id, dscp);
    EXPECT_EQ(p_field->f_type, uint32_t{tarn_ip_dscp});
    EXPECT_EQ(p_rule->r_fields, p_field);
    EXPECT_EQ(p_field->f_next, nullptr);
    EXPECT_EQ(tarn_get_field_by_id(p_rule, dscp), p_field);
    EXPECT_EQ(tarn_find_field_by_id(p_rule, protocol), nullptr);
    EXPECT_TRUE(value_is_within_field(p_field, 50));
    EXPECT_FALSE(value_is_within_field(p_field, 3));

    uint32_t type = 77;
    tarn_get_field_type(context.get(), 3, &type);
    EXPECT_EQ(type, 77u);
    tarn_get_field_type(context.get(), protocol, &type);
    EXPECT_EQ(type, uint32_t{tarn_ip_protocol});
}

TEST_F(RuleTable, EvaluationOverwritesTheWholeVector)
{
    tarn_field_id id = tarn_get_field_id(context.get(), tarn_ip_dscp);
    t_tarn_rule *p_rule = tarn_rule_create(table.get(), "1");
    tarn_add_range_field(context.get(), p_rule, id, 1, 2);
    tarn_add_range_field(context.get(), p_rule, id, 6, 7);
    tarn_rule_create(table.get(), "2");
    t_epi *p_bits = epi_create(2);
    for (uint32_t value : {7, 3, 1}) {
        epi_set_byte(p_bits, 0, value == 3 ? 3 : 0);
        tarn_evaluate_field(table.get(), stage(id), p_bits, value);
        EXPECT_EQ(epi_get_byte(p_bits, 0), value == 3 ? 2 : 3) << value;
    }
    epi_free(p_bits);
}

TEST(RuleTableShort, KeepsNamesRulesAndActions)
{
    std::string long_name(200, 'n');
    const char data[] = "payload";
    ruletable_ptr table(tarn_ruletable_create(long_name.c_str(), "0list", sizeof(data), data));
    EXPECT_EQ(strlen(table->name), 127u);
    EXPECT_STREQ(table->alias, "0list");
    EXPECT_EQ(table->default_action->a_len, sizeof(data) + 8);
    EXPECT_EQ(table->default_action->a_flags, 1u);
    EXPECT_STREQ(reinterpret_cast<const char *>(table->default_action->a_data), data);

    for (const char *name : {"10", "20", "30"})
        tarn_rule_create(table.get(), name);
    EXPECT_EQ(tarn_get_num_rules(table.get()), 3u);
    for (uint32_t i = 0; i < 3; i++) {
        const t_tarn_rule *p_rule = tarn_get_rule_by_index(table.get(), i);
        EXPECT_EQ(p_rule->r_id, i + 1);
        EXPECT_EQ(atoi(p_rule->r_name), static_cast<int>(10 * (i + 1)));
        EXPECT_EQ(p_rule->r_prev, nullptr);
        EXPECT_EQ(tarn_get_action(p_rule), nullptr);
    }
    tarn_create_action(tarn_get_rule_by_index(table.get(), 1), 0, nullptr);
    EXPECT_EQ(tarn_get_rule_by_index(table.get(), 1)->r_action->a_len, 8u);
    EXPECT_EQ(tarn_get_rule_by_index(table.get(), 1)->r_action->a_flags, 0u);
    tarn_delete_ruletable(nullptr);
}

TEST(RuleTableShort, DeletesAListOfAnyLength)
{
    context_ptr context(tarn_context_create());
    ruletable_ptr table(tarn_ruletable_create("long", "", 0, nullptr));
    t_tarn_rule *p_rule = tarn_rule_create(table.get(), "1");
    tarn_field_id id = tarn_get_field_id(context.get(), tarn_ip_dst_addr);
    for (uint32_t i = 0; i < 100000; i++)
        tarn_add_interval(tarn_add_field(context.get(), p_rule, id, 1, 1), i, i);
    for (uint32_t i = 0; i < 30000; i++)
        tarn_rule_create(table.get(), "2");
}

TEST_F(RuleTable, Prints)
{
    uint32_t word = 0x2a;
    t_tarn_rule *p_rule = tarn_rule_create(table.get(), "10");
    tarn_add_range_field(context.get(), p_rule, tarn_get_field_id(context.get(), tarn_ip_dscp), 1, 255);
    tarn_create_action(p_rule, sizeof(word), &word);
    testing::internal::CaptureStdout();
    tarn_print_table(table.get());
    std::string text = testing::internal::GetCapturedStdout();
    EXPECT_EQ(text.substr(0, text.find("\tAction", text.find("data[0]"))),
              " tarn_print_table: table table alias: alias\n"
              "Rule 10 \n"
              "\tField Id 1 \n\t\tmin = 0x1 \n\t\tmax_val = 0xff \n"
              "\tAction:\n \t\tflags = 0x0 \n \t\tlen = 12 \n \t\tdata[0] = 0x2a \n ");
}

TEST_F(RuleTableDeathTest, StopsOnMisuse)
{
    auto killed = testing::KilledBySignal(SIGSEGV);
    EXPECT_EXIT(tarn_ruletable_create("t", "a", 4, nullptr), killed, "");
    EXPECT_EXIT(tarn_get_rule_by_index(table.get(), 0), killed, "");
    EXPECT_EXIT(tarn_get_num_rules(nullptr), killed, "");
    t_epi *p_bits = epi_create(1);
    tarn_field_id id = tarn_get_field_id(context.get(), tarn_ip_dscp);
    EXPECT_EXIT(tarn_evaluate_field(table.get(), stage(id), p_bits, 0), killed, "");
    epi_free(p_bits);
    t_tarn_rule *p_rule = tarn_rule_create(table.get(), "1");
    EXPECT_EXIT(tarn_create_action(p_rule, 4, nullptr), killed, "");
}
