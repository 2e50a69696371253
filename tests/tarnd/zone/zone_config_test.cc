// Zones, pairs of zones and zone-based policies: results, what the forwarding plane is told when, and the
// callbacks that bring them.
#include <gtest/gtest.h>

#include <csignal>

#include "common/lum_log.h"
#include "fp_api/fp_filter_action.h"
#include "tarnd/config/tarn_process.h"
#include "tarnd/filter/tarn_if_octeon_zbf.h"
#include "tarnd/zone/tarn_zbf.h"
#include "tests/common/syslog_lines.h"
#include "tests/tarnd/config/confd_change.h"
#include "tests/tarnd/zone/zone_tables.h"

namespace {

class ZoneConfig : public testing::Test {
protected:
    ZoneConfig()
    {
        tables.init();
        syslog_lines_take();
    }
    ~ZoneConfig() override
    {
        g_tarn_debug_flags = 0;
    }

    void add_zone(const char *name)
    {
        EXPECT_EQ(world.run(tarn_config_zone, MOP_CREATED, {text(name)}), 0);
    }
    static t_change pair_leaves(const char *src, const char *dst, const char *policy, uint32_t id)
    {
        return {leaf(LUMORA_TAG_PAIR_ID, u32(id)), leaf(LUMORA_TAG_SOURCE_ZONE, text(src)),
                leaf(LUMORA_TAG_DESTINATION_ZONE, text(dst)), leaf(LUMORA_TAG_ZONE_POLICY, text(policy))};
    }
    void add_pair(const char *name, const char *src, const char *dst, const char *policy, uint32_t id)
    {
        EXPECT_EQ(
            world.run(tarn_config_zone_pair, MOP_CREATED, {text(name)}, pair_leaves(src, dst, policy, id)),
            0);
    }
    void add_policy(const char *name)
    {
        EXPECT_EQ(world.run(tarn_config_zone_based_policy, MOP_CREATED, {text(name)},
                            {leaf(LUMORA_TAG_DEFAULT_ACTION, enumerator(1))}),
                  0);
        world.add_rule(TARN_POLICY_TYPE_ZBF, name, TARN_ZBF_VPN_LIST, 1);
    }
    std::vector<std::string> lines()
    {
        std::vector<std::string> texts;
        for (const t_syslog_line &line : syslog_lines_take())
            texts.push_back(line.text);
        return texts;
    }

    ZoneTables tables;
    ConfdWorld world;
};
using ZoneConfigDeathTest = ZoneConfig;

}  // namespace

// ---- Zones ----

TEST_F(ZoneConfig, ZonesAreNumberedOnceAndSwitchTheForwardingPlane)
{
    t_tarn *p_tarn = &world.tarn;
    add_zone("a");
    EXPECT_EQ(tarn_config_zone_vpn_add(p_tarn, "a", 65536 + 7), 0);
    EXPECT_EQ(tables.zones_of(7), std::vector<uint16_t>{1});
    EXPECT_EQ(tarn_config_zone_vpn_delete(p_tarn, "a", 7), 2) << "the tree has all of the number";
    tables.p_ctrl->zbf_enabled = 0;
    add_zone("b");
    EXPECT_EQ(tables.p_ctrl->zbf_enabled, 1) << "each zone switches on";
    for (const char *name : {"a", "b"})
        EXPECT_EQ(world.run(tarn_config_zone, MOP_DELETED, {text(name)}), 0);
    EXPECT_EQ(tables.p_ctrl->zbf_enabled, 0);
    EXPECT_EQ(tables.zones_of(7), std::vector<uint16_t>{});
    p_tarn->zbf_uid = 65535;
    add_zone("a");
    EXPECT_EQ(tarn_config_zone_vpn_add(p_tarn, "a", 7), 0);
    EXPECT_EQ(tables.zones_of(7), std::vector<uint16_t>{0}) << "numbers wrap";
    EXPECT_EQ(p_tarn->process_zbf_config, 0) << "zones ask for no rebuild";
    fp_deny_internet_zone();
    EXPECT_EQ(tables.p_ctrl->zone_no_zone_inet, 1);
    fp_allow_internet_zone();
    EXPECT_EQ(tables.p_ctrl->zone_no_zone_inet, 0);
}

TEST_F(ZoneConfig, AFullTableOfVpnsIsOnlyLogged)
{
    add_zone("a");
    for (uint32_t vpn = 0; vpn <= TEST_VPN_RECORDS; vpn++)
        EXPECT_EQ(world.run(tarn_config_zone_vpn, MOP_CREATED, {text("a"), u32(vpn)}), 0);
    EXPECT_EQ(lines(),
              std::vector<std::string>{"Failed to create fp entry for vpn_id 12 and zone id 1 zone a\n"});
    EXPECT_EQ(world.run(tarn_config_zone_vpn, MOP_DELETED, {text("a"), u32(12)}), 0);
    EXPECT_EQ(lines(), std::vector<std::string>{"Failed to remove vpn_id from fp 12 err(2)"});
    EXPECT_EQ(fp_delete_vpn_zone_hash_record(3, 1), 0);
    EXPECT_EQ(tarn_config_zone_delete(&world.tarn, "a"), 0);
    EXPECT_EQ(lines(), std::vector<std::string>{"failed to remove vpn_id 3 while removing zone a err(2)"});
}

TEST_F(ZoneConfig, Results)
{
    t_tarn *p_tarn = &world.tarn;
    std::string name(40, 'n');
    EXPECT_EQ(tarn_config_zone_add(p_tarn, name.c_str()), 0);
    EXPECT_EQ(tarn_config_zone_pair_create(p_tarn, name.c_str(), "s", "d", "p", 1), 0);
    name.resize(32);
    EXPECT_EQ(tarn_config_zone_add(p_tarn, name.c_str()), 17) << "names are cut to 32 characters";
    EXPECT_EQ(tarn_config_zone_pair_create(p_tarn, name.c_str(), "s", "d", "p", 2), 17);
    EXPECT_EQ(tarn_config_zone_pair_create(p_tarn, "q", "s", "d", "p", 0), 74);
    EXPECT_EQ(tarn_config_zone_pair_create(p_tarn, "q", "s", nullptr, "p", 1), 74);
    EXPECT_EQ(tarn_config_zone_pair_modify(p_tarn, "q", "s", "d", "p"), 2);
    EXPECT_EQ(tarn_config_zone_pair_delete(p_tarn, "q"), 2);
    EXPECT_EQ(tarn_config_zone_vpn_add(p_tarn, "q", 1), 2);
    EXPECT_EQ(tarn_config_zone_add(p_tarn, nullptr), 74);
    EXPECT_EQ(tarn_config_zone_delete(nullptr, "q"), 74);
    EXPECT_EQ(tarn_process_zbf_config(nullptr), 74);
}

// ---- Pairs ----

TEST_F(ZoneConfig, PairsAreBuiltWhenAllFiltersStand)
{
    g_zone_pair_id_count = 3;
    add_zone("in");
    add_zone("out");
    add_policy("web");
    add_pair("p1", "in", "out", "web", 41);
    add_pair("p2", "in", "in", "web", 40);
    add_pair("p3", "in", "out", "web", 39);
    EXPECT_EQ(g_zone_pair_id_count, 42u);
    EXPECT_EQ(tables.pair_count(), 0u);
    world.pass();
    auto found = tables.pairs_of(1, 2);
    ASSERT_EQ(found.size(), 2u);
    EXPECT_EQ(found[0]->zb_pair_id, 39u) << "the later one in name order is found first";
    EXPECT_EQ(found[1]->zb_pair_id, 41u);
    EXPECT_EQ(found[0]->zbf_filter_id, 0u);
    ASSERT_EQ(tables.pairs_of(1, 1).size(), 1u);

    // A new program has another filter.
    world.add_rule(TARN_POLICY_TYPE_ZBF, "web", TARN_ZBF_VPN_LIST, 2);
    world.pass();
    EXPECT_EQ(tables.pairs_of(1, 1).at(0)->zbf_filter_id, 1u);

    EXPECT_EQ(world.run(tarn_config_zone, MOP_DELETED, {text("out")}), 0);
    world.pass();
    EXPECT_EQ(tables.pairs_of(1, 2).size(), 2u) << "until the next rebuild";
    EXPECT_EQ(world.run(tarn_config_zone_pair, MOP_MODIFIED, {text("p1")},
                        {leaf(LUMORA_TAG_DESTINATION_ZONE, text("in"))}),
              0);
    lines();
    EXPECT_EQ(tarn_process_config(&world.tarn), 22);
    EXPECT_EQ(lines(), std::vector<std::string>{"dst zone out not found for zone pair p3\n"});
    ASSERT_EQ(tables.pairs_of(1, 1).size(), 2u);
    EXPECT_EQ(tables.pairs_of(1, 1)[1]->zb_pair_id, 41u) << "a change keeps the number";
    EXPECT_EQ(tables.pair_count(), 2u);
}

TEST_F(ZoneConfig, APairThatLeadsNowhereIsNamed)
{
    add_zone("in");
    struct {
        const char *src, *dst, *policy, *line;
    } static const cases[] = {
        {"x", "in", "web", "src zone x not found for zone pair p\n"},
        {"in", "x", "web", "dst zone x not found for zone pair p\n"},
        {"in", "in", "x", "zbf policy x not found for zone pair p\n"},
    };
    for (const auto &c : cases) {
        add_pair("p", c.src, c.dst, c.policy, 1);
        lines();
        EXPECT_EQ(tarn_process_config(&world.tarn), 22);
        EXPECT_EQ(lines(), std::vector<std::string>{c.line});
        EXPECT_EQ(world.tarn.process_zbf_config, 0);
        EXPECT_EQ(tarn_process_config(&world.tarn), 0) << "asked for once";
        EXPECT_EQ(world.run(tarn_config_zone_pair, MOP_DELETED, {text("p")}), 0);
        EXPECT_EQ(tarn_process_config(&world.tarn), 0);
    }
    g_tarn_debug_flags = TARN_DEBUG_CONFIG;
    EXPECT_EQ(world.run(tarn_config_zone_pair, MOP_DELETED, {text("p")}), 0);
    EXPECT_EQ(world.tarn.process_zbf_config, 1);
    EXPECT_EQ(lines(), (std::vector<std::string>{"Failed to delete zone pair p err(2)\n",
                                                 "Success delete zone pair p\n"}));
}

// ---- Policies ----

TEST_F(ZoneConfig, APolicyChangesItsDefaultActionOnlyWithTheLeaf)
{
    add_policy("web");
    world.pass();
    auto change = [&](const t_change &values) {
        return tarn_config_zone_based_policy_change(&world.tarn, "web", values.data(),
                                                    static_cast<uint16_t>(values.size()));
    };
    auto action = [&] {
        return world.context(TARN_POLICY_TYPE_ZBF, "web", TARN_ZBF_VPN_LIST)->default_action->action;
    };
    EXPECT_EQ(change({leaf(LUMORA_TAG_NAME, text("web"))}), 0);
    EXPECT_EQ(change({leaf(LUMORA_TAG_DEFAULT_ACTION, none())}), 0);
    EXPECT_EQ(action(), TARN_FILTER_ACTION_REJECT);
    EXPECT_EQ(change({leaf(LUMORA_TAG_DEFAULT_ACTION, enumerator(0)),
                      leaf(LUMORA_TAG_DEFAULT_ACTION, enumerator(2))}),
              0);
    EXPECT_EQ(action(), TARN_FILTER_ACTION_INSPECT) << "the last one counts";
    EXPECT_EQ(tarn_config_zone_based_policy_change(&world.tarn, "web", nullptr, 0), 74);
    world.pass();
    lines();
    t_change inspect = {leaf(LUMORA_TAG_DEFAULT_ACTION, enumerator(2))};
    EXPECT_EQ(tarn_config_zone_based_policy_change(&world.tarn, "x", inspect.data(), 1), 2);
    EXPECT_EQ(lines(), std::vector<std::string>{
                           "Failed to update default action on zbf                      Policy x, err(2)\n"});
}

// ---- What ends the daemon ----

TEST_F(ZoneConfigDeathTest, WhatTheDataModelRulesOut)
{
    add_zone("a");
    auto zone = [&](confd_iter_op oper, const std::vector<confd_value_t> &keys) {
        world.run(tarn_config_zone, oper, keys);
    };
    EXPECT_EXIT(zone(MOP_MODIFIED, {text("a")}), testing::KilledBySignal(SIGSEGV), "");
    EXPECT_EXIT(zone(MOP_DELETED, {text("b")}), testing::KilledBySignal(SIGSEGV), "");
    EXPECT_EXIT(zone(MOP_CREATED, {u32(1)}), testing::KilledBySignal(SIGSEGV), "");
    EXPECT_EXIT(zone(MOP_CREATED, {text("b"), text("c")}), testing::KilledBySignal(SIGSEGV), "");
    EXPECT_EXIT(world.run(tarn_config_zone_vpn, MOP_CREATED, {text("b"), u32(1)}),
                testing::KilledBySignal(SIGSEGV), "");
    EXPECT_EXIT(world.run(tarn_config_zone_vpn, MOP_CREATED, {text("a"), u16(1)}),
                testing::KilledBySignal(SIGSEGV), "");
    EXPECT_EXIT(add_pair("p", "a", "a", "web", 0), testing::KilledBySignal(SIGSEGV), "");
    EXPECT_EXIT(world.run(tarn_config_zone_pair, MOP_MODIFIED, {text("p")}), testing::KilledBySignal(SIGSEGV),
                "");
}
