// TLOC lists: how packets are spread over their elements, and when a list comes and goes.
#include <gtest/gtest.h>

#include <cerrno>
#include <csignal>
#include <cstring>

#include "tarnd/config/tarn_process.h"
#include "tarnd/config/tarn_tloc_list.h"
#include "tests/tarnd/config/rule_text.h"

class RuleTloc : public testing::Test {
protected:
    RuleTloc()
    {
        world.add_vpn_list("l", 1);
        world.add_policy(TARN_POLICY_TYPE_DATA, "p", {"l"});
        world.add_policy(TARN_POLICY_TYPE_PFR, "p", {"l"}, TARN_ALL_TUNNELS);
    }

    ~RuleTloc() override
    {
        for (e_tarn_policy_type type : {TARN_POLICY_TYPE_DATA, TARN_POLICY_TYPE_PFR})
            EXPECT_EQ(tarn_policy_delete(&world.tarn, type, "p"), 0);
        withdraw_tlocs(&world);
    }

    t_tarn_config_action *add_list_action(t_tarn_config_rule *p_rule)
    {
        return world.add_action(p_rule, TARN_ACTION_TAG_TLOC_LIST, nullptr);
    }

    size_t lists() const
    {
        return avl_numnodes(&world.tarn.tloc_list_db);
    }

    PassWorld world;
};
using RuleTlocGolden = RuleTloc;

namespace {

struct t_element {
    uint32_t preference;
    uint32_t weight;
    uint32_t label;
    bool up;
};

}  // namespace

// The 16 entries by letter, 'a' for the first element; '.' for an empty one.
static std::string entries_text(const ruletable_ptr &table, uint8_t first_number)
{
    std::string text;
    for (const t_tarn_hw_tloc &tloc : slots_of(table)[1].tloc) {
        EXPECT_EQ(tloc.resolved, tloc.vpn_label != 0);
        EXPECT_EQ(tloc.vpn_id, tloc.resolved ? 300 : 0);
        text += tloc.resolved ? static_cast<char>('a' + tloc.tloc_index - first_number) : '.';
    }
    return text;
}

TEST_F(RuleTlocGolden, SixteenEntriesByPreferenceAndWeight)
{
    static const struct {
        const char *behaviour;
        std::vector<t_element> elements;
        const char *entries;
    } rows[] = {
        {"no list, no entry", {}, "................"},
        {"nothing up, nothing labelled", {{9, 1, 1, false}, {9, 1, 0, true}}, "................"},
        {"one takes all", {{0, 7, 1, true}}, "aaaaaaaaaaaaaaaa"},
        {"equal weights take turns", {{1, 5, 1, true}, {1, 5, 1, true}, {1, 5, 1, true}}, "abcabcabcabcabca"},
        {"weights of 0 are equal, too", {{1, 0, 1, true}, {1, 0, 1, true}}, "abababababababab"},
        {"shares by weight", {{1, 8, 1, true}, {1, 4, 1, true}, {1, 4, 1, true}}, "abcaaaaaaabbbccc"},
        {"the heaviest is served first",
         {{1, 4, 1, true}, {1, 8, 1, true}, {1, 4, 1, true}},
         "abcbbbbbbbaaaccc"},
        {"what is left goes round once more",
         {{1, 3, 1, true}, {1, 2, 1, true}, {1, 2, 1, true}},
         "abcaaaaabbbcccab"},
        {"a share below one entry takes all that is left",
         {{1, 10, 1, true}, {1, 10, 1, true}, {1, 1, 1, true}},
         "abcaaaaaabbbbbbc"},
        {"however much that is",
         {{1, 2, 1, true},
          {1, 2, 1, true},
          {1, 2, 1, true},
          {1, 2, 1, true},
          {1, 2, 1, true},
          {1, 1, 1, true},
          {1, 2, 1, true},
          {1, 2, 1, true},
          {1, 2, 1, true},
          {1, 2, 1, true}},
         "abcdefghijffffff"},
        {"a share of one entry is the one it has",
         {{1, 3, 1, true},
          {1, 1, 1, true},
          {1, 1, 1, true},
          {1, 1, 1, true},
          {1, 1, 1, true},
          {1, 1, 1, true},
          {1, 1, 1, true},
          {1, 1, 1, true},
          {1, 1, 1, true}},
         "abcdefghiaaaabcd"},
        {"preference before weight", {{1, 90, 1, true}, {7, 1, 1, true}}, "bbbbbbbbbbbbbbbb"},
        {"of those that count",
         {{9, 1, 1, false}, {8, 1, 0, true}, {7, 1, 1, true}, {7, 1, 1, true}, {0, 1, 1, true}},
         "cdcdcdcdcdcdcdcd"},
        {"preference 0 with 0", {{0, 1, 1, true}, {0, 1, 1, true}}, "abababababababab"},
        {"large weights", {{1, 0xffffffff, 1, true}, {1, 1, 1, true}}, "abaaaaaaaaaaaaaa"},
    };
    uint32_t id = 1;
    for (const auto &row : rows) {
        SCOPED_TRACE(row.behaviour);
        t_tarn_config_rule *p_rule = world.add_rule(TARN_POLICY_TYPE_DATA, "p", "l", id++);
        p_rule->rule_vpn_id = 300;
        for (uint8_t i = 0; i < row.elements.size(); i++) {
            announce_tloc(&world, i, row.elements[i].weight, row.elements[i].up);
            add_tloc_element(&world, p_rule, i, i, row.elements[i].preference, row.elements[i].label);
        }
        EXPECT_EQ(add_list_action(p_rule)->num_tlocs, row.elements.size());
        EXPECT_EQ(entries_text(table_of(&world, p_rule), 0), row.entries);
        world.delete_rule(p_rule);
        withdraw_tlocs(&world);
    }
}

TEST_F(RuleTloc, AnActionTakesTheFirstSixteenElementsByTheirNumbers)
{
    t_tarn_config_rule *p_rule = world.add_rule(TARN_POLICY_TYPE_DATA, "p", "l", 10);
    for (uint8_t i = 0; i < 18; i++)
        add_tloc_element(&world, p_rule, 100u - i, i, i, 1);  // number 17 first, which has preference 17
    t_tarn_config_action *p_action = add_list_action(p_rule);
    ASSERT_EQ(p_action->num_tlocs, 16u);
    for (uint32_t i = 0; i < 16; i++)
        EXPECT_EQ(p_action->tloc_config[i].preference, 17 - i);
    EXPECT_EQ(avl_numnodes(&world.tarn.tloc_db), 16u);
}

TEST_F(RuleTloc, ListsComeBeforeTheirRulesAndGoWithThoseOfDataPolicies)
{
    for (e_tarn_policy_type type : {TARN_POLICY_TYPE_DATA, TARN_POLICY_TYPE_PFR}) {
        t_tarn_config_rule *p_rule = world.add_rule(type, "p", "l", 10);
        EXPECT_EQ(add_list_action(p_rule)->num_tlocs, 0u) << "an empty list is made";
        add_tloc_element(&world, p_rule, 1, 1, 5, 9);
    }
    EXPECT_EQ(lists(), 2u);
    EXPECT_EQ(tarn_config_rule_delete(&world.tarn, TARN_POLICY_TYPE_DATA, "p", "l", 10), 0);
    EXPECT_EQ(tarn_config_rule_delete(&world.tarn, TARN_POLICY_TYPE_PFR, "p", "l", 10), 0);
    EXPECT_EQ(lists(), 1u);
}

TEST_F(RuleTloc, TheLastElementTakesItsListAlongAndTheRuleFollows)
{
    t_tarn_config_rule *p_rule = world.add_rule(TARN_POLICY_TYPE_DATA, "p", "l", 10);
    add_tloc_element(&world, p_rule, 1, 1, 5, 9);
    add_tloc_element(&world, p_rule, 2, 1, 6, 9);
    t_tarn_config_action *p_action = add_list_action(p_rule);
    EXPECT_EQ(p_action->num_tlocs, 2u);
    auto *p_ctx = static_cast<t_tarn_tloc_list *>(avl_first(&world.tarn.tloc_list_db));
    t_tarn_tloc_elem element = {1, test_tloc(1), 0, 0, {}};
    EXPECT_EQ(tarn_tloc_list_elem_add(p_ctx, &element), EEXIST);
    EXPECT_EQ(tarn_tloc_list_elem_delete(&world.tarn, p_ctx, 3), ENOENT);
    EXPECT_EQ(tarn_tloc_list_elem_delete(&world.tarn, p_ctx, 1), 0);
    EXPECT_EQ(lists(), 1u);
    EXPECT_EQ(tarn_tloc_list_elem_delete(&world.tarn, p_ctx, 2), 0);
    EXPECT_EQ(lists(), 0u);
    EXPECT_EQ(tarn_policy_change(&world.tarn, p_rule->policy, p_rule->vpn_list), 0);
    EXPECT_EQ(p_action->num_tlocs, 0u);
    EXPECT_EQ(avl_numnodes(&world.tarn.tloc_db), 0u) << "nobody names it, nobody announced it";
}
