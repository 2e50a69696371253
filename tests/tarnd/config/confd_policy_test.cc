// Settings, policies, contexts and VPN lists from changes of the configuration.
#include <gtest/gtest.h>

#include <csignal>
#include <cstdlib>
#include <utility>

#include "fp_api/fp_filter_action.h"
#include "fp_api/fp_tables.h"
#include "tarnd/config/tarn_rule.h"
#include "tests/tarnd/config/confd_change.h"

class ConfdPolicy : public testing::Test {
protected:
    ConfdPolicy() : p_real_log(std::exchange(g_fp_filter_log_config, &log)) {}
    ~ConfdPolicy() override
    {
        g_fp_filter_log_config = p_real_log;
    }

    t_tarn_policy *policy(e_tarn_policy_type type)
    {
        t_tarn_policy *p_policy = nullptr;
        EXPECT_EQ(tarn_policy_lookup(&world.tarn, type, "p", &p_policy), 0);
        return p_policy;
    }

    ConfdWorld world;
    t_fp_filter_log_config log = {};
    t_fp_filter_log_config *p_real_log;
};
using ConfdPolicyDeathTest = ConfdPolicy;

// ---- Settings ----

TEST_F(ConfdPolicy, SettingsFollowTheLeavesThatAChangeHolds)
{
    auto set = [&](uint32_t tag, const confd_value_t &value) {
        EXPECT_EQ(world.run(tarn_config_policy, MOP_MODIFIED, {}, {leaf(tag, value)}), 0);
    };
    set(LUMORA_TAG_APP_VISIBILITY, boolean(true));
    set(LUMORA_TAG_FLOW_VISIBILITY, boolean(true));
    EXPECT_EQ(std::pair(world.tarn.dpi, world.tarn.flow), std::pair(1, 1));
    for (auto [frequency, stored] : {std::pair{1000, 512u}, {64, 64u}, {1, 1u}, {0, 0u}}) {
        set(LUMORA_TAG_LOG_FREQUENCY, i32(frequency));
        EXPECT_EQ(log.frequency, stored) << frequency;
    }
    set(LUMORA_TAG_LOG_FREQUENCY, none());
    EXPECT_EQ(log.frequency, 512u);

    auto denied = [] { return g_fp_global_ctrl->zone_no_zone_inet; };
    set(LUMORA_TAG_ZONE_TO_NOZONE_INTERNET, enumerator(1));
    EXPECT_TRUE(denied());
    set(LUMORA_TAG_ZONE_TO_NOZONE_INTERNET, none());
    EXPECT_TRUE(denied()) << "a deleted leaf changes nothing";
    set(LUMORA_TAG_ZONE_TO_NOZONE_INTERNET, enumerator(256));
    EXPECT_FALSE(denied()) << "the low byte counts";

    EXPECT_EQ(std::pair(world.tarn.dpi, world.tarn.flow), std::pair(1, 1)) << "what is not named stays";
    set(LUMORA_TAG_APP_VISIBILITY, none());
    set(LUMORA_TAG_FLOW_VISIBILITY, boolean(false));
    EXPECT_EQ(std::pair(world.tarn.dpi, world.tarn.flow), std::pair(0, 0));
    EXPECT_EQ(world.run(tarn_config_policy, MOP_MODIFIED, {}), 0);
    EXPECT_EQ(world.generations(), 13);
}

// ---- Policies and contexts ----

TEST_F(ConfdPolicy, ADataPolicyAppliesWhereItsDirectionSays)
{
    const std::pair<confd_value_t, e_tarn_policy_dir> rows[] = {{none(), TARN_POLICY_DIR_ALL},
                                                                {enumerator(0), TARN_POLICY_DIR_SERVICE},
                                                                {enumerator(1), TARN_POLICY_DIR_TUNNEL},
                                                                {enumerator(2), TARN_POLICY_DIR_ALL}};
    for (const auto &[value, want] : rows) {
        EXPECT_EQ(
            world.run(tarn_config_data_policy, MOP_CREATED, {text("p")}, {leaf(LUMORA_TAG_DIRECTION, value)}),
            0);
        EXPECT_EQ(policy(TARN_POLICY_TYPE_DATA)->direction, want);
        for (const auto &[changed, direction] : rows) {
            EXPECT_EQ(world.run(tarn_config_data_policy, MOP_MODIFIED, {text("p")},
                                {leaf(LUMORA_TAG_DIRECTION, changed)}),
                      0);
            EXPECT_EQ(policy(TARN_POLICY_TYPE_DATA)->direction, direction);
        }
        EXPECT_EQ(world.run(tarn_config_data_policy, MOP_DELETED, {text("p")}), 0);
    }
    EXPECT_EQ(world.generations(), 24);
}

TEST_F(ConfdPolicy, AZoneBasedPolicyHasItsDefaultActionInItsOnlyContext)
{
    auto action = [&] {
        return world.context(TARN_POLICY_TYPE_ZBF, "p", TARN_ZBF_VPN_LIST)->default_action->action;
    };
    auto run = [&](confd_iter_op oper, const confd_value_t &value) {
        world.tarn.process_zbf_config = 0;
        EXPECT_EQ(world.run(tarn_config_zone_based_policy, oper, {text("p")},
                            {leaf(LUMORA_TAG_DEFAULT_ACTION, value)}),
                  0);
        EXPECT_EQ(world.tarn.process_zbf_config, 1);
    };
    run(MOP_CREATED, enumerator(2));
    EXPECT_EQ(action(), TARN_FILTER_ACTION_INSPECT);
    EXPECT_EQ(policy(TARN_POLICY_TYPE_ZBF)->direction, TARN_POLICY_DIR_INVALID);
    run(MOP_MODIFIED, enumerator(1));
    EXPECT_EQ(action(), TARN_FILTER_ACTION_REJECT);
    policy(TARN_POLICY_TYPE_ZBF)->changed = 0;
    run(MOP_MODIFIED, none());
    EXPECT_EQ(action(), TARN_FILTER_ACTION_REJECT);
    EXPECT_EQ(policy(TARN_POLICY_TYPE_ZBF)->changed, 1);
    run(MOP_DELETED, none());
    EXPECT_EQ(world.generations(), 4);
}

TEST_F(ConfdPolicy, ContextsTakeAVerdictOrAnSlaClass)
{
    EXPECT_EQ(world.run(tarn_config_policy_vpn_list, MOP_CREATED, {text("l")}), 0);
    EXPECT_EQ(world.generations(), 0);
    const std::vector<confd_value_t> keys = {text("p"), text("l")};
    for (auto type : {TARN_POLICY_TYPE_DATA, TARN_POLICY_TYPE_PFR}) {
        bool data = type == TARN_POLICY_TYPE_DATA;
        auto *policy_cb = data ? tarn_config_data_policy : tarn_config_app_route_policy;
        auto *context_cb = data ? tarn_config_data_policy_vpn_list : tarn_config_app_route_policy_vpn_list;
        t_change verdict = {leaf(LUMORA_TAG_DEFAULT_ACTION, enumerator(1))};
        t_change change = data ? verdict : t_change{leaf(LUMORA_TAG_SLA_CLASS_NAME, text("gold"))};
        t_change gone = {leaf(change[0].tag.tag, none())};

        EXPECT_EQ(world.run(policy_cb, MOP_CREATED, {text("p")}), 0);
        EXPECT_EQ(world.run(context_cb, MOP_CREATED, keys), 0);
        const t_tarn_config_action *p_default = world.context(type, "p", "l")->default_action;
        auto is = [&](uint32_t action, const char *sla_class) {
            EXPECT_EQ(p_default->action, data ? action : 0u);
            EXPECT_STREQ(data ? sla_class : p_default->sla_class.name, sla_class);
        };
        is(0, "__all_tunnels__");
        EXPECT_EQ(world.run(context_cb, MOP_MODIFIED, keys, change), 0);
        is(TARN_FILTER_ACTION_REJECT, "gold");
        EXPECT_EQ(world.run(context_cb, MOP_MODIFIED, keys, gone), 0);
        is(0, "__all_tunnels__");
        EXPECT_EQ(world.run(context_cb, MOP_DELETED, keys), 0);
        EXPECT_EQ(world.run(context_cb, MOP_CREATED, keys, change), 0);
        p_default = world.context(type, "p", "l")->default_action;
        is(TARN_FILTER_ACTION_REJECT, "gold");
        EXPECT_EQ(world.run(policy_cb, MOP_DELETED, {text("p")}), 0);
        EXPECT_EQ(world.generations(), 7);
    }
}

// ---- VPN lists ----

TEST_F(ConfdPolicy, AVpnKeyIsANumberOrARange)
{
    struct t_range_row {
        const char *key;
        int status;
        uint64_t min, max;
    };
    static const t_range_row rows[] = {
        {"7", 0, 7, 7}, {"10-20", 0, 10, 20}, {"65535", 0, 65535, 65535}, {"any", -1, 0, 0}, {"", -1, 0, 0},
    };
    EXPECT_EQ(world.run(tarn_config_policy_vpn_list, MOP_CREATED, {text("l")}), 0);
    t_tarn_vpn_list *p_list = nullptr;
    EXPECT_EQ(tarn_vpn_list_lookup(&world.tarn, "l", &p_list), 0);
    for (const t_range_row &row : rows) {
        SCOPED_TRACE(row.key);
        const std::vector<confd_value_t> keys = {text("l"), text(row.key)};
        EXPECT_EQ(world.run(tarn_config_policy_vpn_id, MOP_CREATED, keys), row.status);
        auto *p_vpn = static_cast<t_tarn_vpn *>(avl_first(&p_list->vpn_db));
        ASSERT_EQ(p_vpn != nullptr, row.status == 0);
        t_tarn_vpn_key range = p_vpn != nullptr ? p_vpn->key : t_tarn_vpn_key{};
        EXPECT_EQ(std::pair(range.min_vpn_id, range.max_vpn_id), std::pair(row.min, row.max));
        EXPECT_EQ(world.run(tarn_config_policy_vpn_id, MOP_DELETED, keys), row.status);
        EXPECT_EQ(avl_first(&p_list->vpn_db), nullptr);
    }
    EXPECT_EQ(world.run(tarn_config_policy_vpn_list, MOP_DELETED, {text("l")}), 0);
    EXPECT_EQ(world.generations(), 0) << "VPN lists take effect at once and count nothing";
}

// ---- What ends the process ----

TEST_F(ConfdPolicyDeathTest, WhatTheModelKeepsOutIsAnAssertion)
{
    EXPECT_EQ(world.run(tarn_config_policy_vpn_list, MOP_CREATED, {text("l")}), 0);
    EXPECT_EQ(world.run(tarn_config_data_policy, MOP_CREATED, {text("p")}), 0);
    struct t_death_row {
        f_tarn_config_cb *callback;
        confd_iter_op oper;
        std::vector<confd_value_t> keys;
        t_change change;
    };
    const t_death_row rows[] = {
        {tarn_config_data_policy, MOP_CREATED, {text("p")}, {}},
        {tarn_config_data_policy, MOP_MODIFIED, {text("q")}, {}},
        {tarn_config_data_policy, MOP_DELETED, {text("q")}, {}},
        {tarn_config_data_policy, MOP_CREATED, {u32(1)}, {}},
        {tarn_config_data_policy, MOP_CREATED, {text("q"), text("l")}, {}},
        {tarn_config_data_policy, MOP_CREATED, {text("q")}, {leaf(LUMORA_TAG_DIRECTION, u32(1))}},
        {tarn_config_zone_based_policy, MOP_CREATED, {text("p")}, {}},
        {tarn_config_data_policy_vpn_list, MOP_CREATED, {text("p"), text("x")}, {}},
        {tarn_config_data_policy_vpn_list, MOP_MODIFIED, {text("p"), text("l")}, {}},
        {tarn_config_data_policy_vpn_list,
         MOP_CREATED,
         {text("p"), text("l")},
         {leaf(LUMORA_TAG_SLA_CLASS_NAME, text("gold"))}},
        {tarn_config_policy_vpn_list, MOP_DELETED, {text("x")}, {}},
        {tarn_config_policy_vpn_id, MOP_CREATED, {text("x"), text("1")}, {}},
        {tarn_config_policy_vpn_id, MOP_CREATED, {text("l"), u32(1)}, {}},
        {tarn_config_policy, MOP_MODIFIED, {}, {leaf(LUMORA_TAG_LOG_FREQUENCY, u32(1))}},
    };
    for (const t_death_row &row : rows)
        EXPECT_EXIT(world.run(row.callback, row.oper, row.keys, row.change), testing::KilledBySignal(SIGSEGV),
                    "")
            << "row " << &row - rows;
}
