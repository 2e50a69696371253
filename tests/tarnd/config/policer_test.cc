// Policers: changes in place, and the flow-visibility knob.
#include <gtest/gtest.h>

#include <cerrno>
#include <cstring>

#include "fp_api/fp_policer.h"
#include "tarnd/acl/tarn_access_list.h"
#include "tarnd/config/tarn_flow.h"
#include "tests/tarnd/config/rule_text.h"

// What filter_policer_chg was told: "filter name rate burst action valid".
static std::vector<std::string> g_changes;

static int record_change(int filter_id, t_fp_policer *p_policer)
{
    g_changes.push_back(std::to_string(filter_id) + " " + p_policer->name + " " +
                        std::to_string(p_policer->rate) + " " + std::to_string(p_policer->burst) + " " +
                        std::to_string(p_policer->oob_action) + " " +
                        std::to_string(p_policer->record_valid));
    return 22;
}

class Policer : public testing::Test {
protected:
    Policer()
    {
        world.hwapi.filter_policer_chg = record_change;
        for (const char *list : {"l1", "l2"})
            world.add_vpn_list(list, 1);
        for (e_tarn_policy_type type : {TARN_POLICY_TYPE_DATA, TARN_POLICY_TYPE_PFR})
            world.add_policy(type, "p", {"l1", "l2"});
        t_tarn_policer_config config = policer_config("pol", 8'000'000, 1000, 7);
        EXPECT_EQ(tarn_config_policer_add(&world.tarn, &config), 0);
    }

    void change(uint8_t params, uint64_t bandwidth, uint32_t burst, uint8_t action)
    {
        g_changes.clear();
        t_tarn_policer_config config = policer_config("pol", bandwidth, burst, action);
        EXPECT_EQ(tarn_config_policer_change(&world.tarn, params, &config), 0);
    }

    PassWorld world;
};

TEST_F(Policer, AChangeReachesEveryInstanceInPlace)
{
    t_tarn_config_rule *p_rules[] = {world.add_rule(TARN_POLICY_TYPE_DATA, "p", "l1", 10),
                                     world.add_rule(TARN_POLICY_TYPE_DATA, "p", "l2", 10),
                                     world.add_rule(TARN_POLICY_TYPE_PFR, "p", "l1", 20)};
    for (t_tarn_config_rule *p_rule : p_rules)
        world.add_action(p_rule, TARN_ACTION_TAG_POLICER, "pol");
    p_rules[0]->vpn_list->filter_id = 3;
    p_rules[1]->vpn_list->filter_id = 4;
    p_rules[2]->vpn_list->filter_id = 5;
    change(POLICER_BW, 4'000'000, 99, 1);
    // Application-route policies have policers, but no change finds them: the data policy's filter gets it
    // again.
    std::vector<std::string> want = {"3 pol 2000 2000000 0 0", "4 pol 2000 2000000 0 0",
                                     "3 pol 2000 2000000 0 0"};
    EXPECT_EQ(g_changes, want);
    change(POLICER_BURST, 1, 10, 1);
    EXPECT_EQ(g_changes.at(0), "3 pol 2000 20000 0 0");
    change(POLICER_ACTION, 1, 1, 1);
    EXPECT_EQ(g_changes.at(0), "3 pol 2000 20000 1 0");
    change(POLICER_ACTION, 1, 1, 2);
    EXPECT_EQ(g_changes.at(0), "3 pol 2000 20000 0 0");
    EXPECT_EQ(p_rules[0]->policy->changed + p_rules[0]->vpn_list->changed, 2) << "of the rules' making";
    EXPECT_EQ(slots_of(table_of(&world, p_rules[0]))[1].policer.rate, 2000u)
        << "the next compilation keeps it";
    for (t_tarn_config_rule *p_rule : p_rules)
        p_rule->vpn_list->filter_id = -1;
}

TEST_F(Policer, AnAccessListsInstanceReachesBothFamilies)
{
    t_tarn_access_list access_lists[2] = {};
    avl_create(&access_lists[0].policer_db, tarn_policer_key_cmp, sizeof(t_tarn_policer_config),
               offsetof(t_tarn_policer_config, policy_avl_node));
    avl_tree_t *p_trees[] = {&world.tarn.access_list_db, &world.tarn.access_list6_db};
    for (int af : {0, 1}) {
        strcpy(access_lists[af].key.name, "acl");
        access_lists[af].key.af_type = static_cast<e_tarn_af_type>(af);
        access_lists[af].filter_id = 40 + af;
        EXPECT_EQ(avl_insert(p_trees[af], &access_lists[af]), 0);
    }
    t_tarn_policer_config config = policer_config("loc", 8'000'000, 1, 0), instance;
    config.key.type = TARN_POLICY_POLICER_TYPE_LOCAL;
    EXPECT_EQ(tarn_config_policer_add(&world.tarn, &config), 0);
    t_tarn_policer_config *p_policer = tarn_policer_find(&world.tarn, "loc", TARN_POLICY_POLICER_TYPE_LOCAL);
    t_tarn_policer_key key = config.key;
    key.sequence_id = 10;
    strcpy(key.policy_name, "acl");
    EXPECT_EQ(tarn_policer_instance_make(p_policer, &key, &access_lists[0].policer_db, &instance), 0);
    instance.bind_type = TARN_BIND_TYPE_INTF;
    strcpy(instance.bind_name, "acl");
    g_changes.clear();
    EXPECT_EQ(tarn_config_policer_change(&world.tarn, 0, &config), 0);
    EXPECT_EQ(g_changes, (std::vector<std::string>{"40 loc 1000 1000 0 0", "41 loc 1000 1000 0 0"}));
    tarn_policer_instance_drop(&world.tarn, &access_lists[0].policer_db, &instance);
    EXPECT_EQ(avl_numnodes(&p_policer->instance_db), 0u);
    for (int af : {0, 1})
        avl_remove(p_trees[af], &access_lists[af]);
}

TEST_F(Policer, StatusesOfNamedPolicers)
{
    t_tarn_policer_config config = policer_config("pol", 1, 1, 1), other = policer_config("none", 1, 1, 1);
    EXPECT_EQ(tarn_config_policer_add(&world.tarn, &config), EEXIST);
    EXPECT_EQ(tarn_config_policer_add(&world.tarn, nullptr), EBADMSG);
    EXPECT_EQ(tarn_config_policer_change(&world.tarn, 7, &other), ENOENT);
    EXPECT_EQ(tarn_config_policer_delete(&world.tarn, &other), ENOENT);
    EXPECT_EQ(tarn_config_policer_delete(&world.tarn, &config), 0);
    EXPECT_EQ(tarn_policer_find(&world.tarn, "pol", TARN_POLICY_POLICER_TYPE_KEELSON), nullptr);
}

TEST_F(Policer, TheFlowKnobFollowsTheSettingAndNotTheCount)
{
    t_tarn &tarn = world.tarn;
    uint32_t &knob = *tarn.flow_p;
    t_tarn_config_rule *p_rule = world.add_rule(TARN_POLICY_TYPE_DATA, "p", "l1", 10);
    world.add_action(p_rule, TARN_ACTION_TAG_CFLOWD, nullptr);
    tarn_config_flow_update_knob(&tarn);
    EXPECT_EQ(knob, 0u);
    EXPECT_EQ(tarn.flow_ref, 1);
    tarn_config_flow_change(&tarn, 1);
    tarn_config_flow_change(&tarn, 1);
    EXPECT_EQ(tarn.flow_ref, 2);
    EXPECT_EQ(knob, 0u) << "until the end of the notification";
    tarn_config_flow_update_knob(&tarn);
    EXPECT_EQ(knob, 1u);
    world.delete_rule(p_rule);
    tarn_config_flow_change(&tarn, 0);
    tarn_config_flow_update_knob(&tarn);
    EXPECT_EQ(knob, 0u);
    EXPECT_EQ(tarn.flow_ref, 0);
}
