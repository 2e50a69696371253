// Sequences of access lists from changes of the configuration.
#include <gtest/gtest.h>

#include <csignal>
#include <cstring>

#include "common/lum_log.h"
#include "fp_api/fp_tables.h"
#include "tarnd/config/tarn_app_list.h"
#include "tarnd/config/tarn_pfx_list.h"
#include "tests/common/syslog_lines.h"
#include "tests/tarnd/acl/acl_world.h"

namespace {

class AclParser : public testing::Test {
protected:
    AclParser()
    {
        world.add_list("in");
        world.add_local_pfx_list("nets", {"10.0.0.0/8", "11.0.0.0/8"});
        world.add_local_pfx_list("more", {"12.0.0.0/8"});
        for (const char *name : {"gold", "slow"}) {
            t_tarn_class_params params = {name, 0};
            EXPECT_EQ(tarn_class_add(&world.tarn, &params), 0);
            world.add_policer(name);
            EXPECT_EQ(tarn_config_mirror_add(&world.tarn, name, nullptr, nullptr), 0);
            EXPECT_EQ(tarn_config_app_list_add(&world.tarn, name, TARN_DPI_KEY_LOC_LOCAL), 0);
            EXPECT_EQ(tarn_config_app_list_add_app(&world.tarn, name, TARN_DPI_KEY_LOC_LOCAL,
                                                   TARN_DPI_TYPE_APP_FAMILY, "web"),
                      0);
        }
        syslog_lines_take();
    }

    // A policer, mirror or list is in use by how many.
    size_t policer_users(const char *name)
    {
        auto *p_policer = tarn_policer_find(&world.tarn, name, TARN_POLICY_POLICER_TYPE_LOCAL);
        return avl_numnodes(&p_policer->instance_db);
    }
    size_t mirror_users(const char *name)
    {
        return avl_numnodes(&tarn_mirror_find(&world.tarn, name)->ref_db);
    }
    size_t app_list_users(const char *name)
    {
        return avl_numnodes(&tarn_app_list_find(&world.tarn, name, TARN_DPI_KEY_LOC_LOCAL)->access_list_db);
    }
    size_t pfx_list_users(const char *name)
    {
        auto *p_list = tarn_pfx_list_find(&world.tarn, name, TARN_POLICY_PFX_LIST_TYPE_LOCAL);
        return avl_numnodes(&p_list->access_list_db);
    }

    AclWorld world;
};
using AclParserDeathTest = AclParser;

// A leaf: what it becomes when it is created and when it changes, as fields or as actions.
struct t_leaf_case {
    uint32_t tag;
    t_change (*place)(const t_change &values);
    confd_value_t first;
    confd_value_t second;
    const char *want_first;
    const char *want_second;
};

}  // namespace

TEST_F(AclParser, EveryMatchIsMadeChangedAndDeleted)
{
    const t_leaf_case cases[] = {
        {LUMORA_TAG_PROTOCOL, match, list({u8(6), u8(17)}), list({u8(1)}), "1:6-6 1:17-17", "1:1-1"},
        {LUMORA_TAG_SOURCE_PORT, match, list({text("80")}), list({text("1000-2000"), text("7")}), "2:80-80",
         "2:1000-2000 2:7-7"},
        {LUMORA_TAG_DESTINATION_PORT, match, list({text("80")}), list({text("0-9")}), "3:80-80", "3:0-9"},
        {LUMORA_TAG_PACKET_LENGTH, match, list({text("64")}), list({text("0-9")}), "11:64-64", "11:0-9"},
        {LUMORA_TAG_SOURCE_IP, match, list({prefix("10.0.0.0/8")}), list({prefix("0.0.0.0/0")}), "4:10/8",
         ""},
        {LUMORA_TAG_DESTINATION_IP, match, list({prefix("10.0.0.0/8")}), list({prefix("9.0.0.0/9")}),
         "5:10/8", "5:9/9"},
        {LUMORA_TAG_SOURCE_DATA_PREFIX_LIST, match, text("nets"), text("more"), "4:10/8 4:11/8", "4:12/8"},
        {LUMORA_TAG_DESTINATION_DATA_PREFIX_LIST, match, text("more"), text("nets"), "5:12/8",
         "5:10/8 5:11/8"},
        {LUMORA_TAG_DSCP, match, list({u8(46)}), list({u8(0)}), "8:46-46", "8:0-0"},
        {LUMORA_TAG_TRAFFIC_CLASS, match, list({u8(46)}), list({u8(0)}), "16:46-46", "16:0-0"},
        {LUMORA_TAG_NEXT_HEADER, match, list({u8(6)}), list({u8(58)}), "17:6-6", "17:58-58"},
        {LUMORA_TAG_PLP, match, enumerator(0), enumerator(2), "18:0-0", "18:1-1"},
        {LUMORA_TAG_TCP, match, bits(1), bits(2), "10:2-2", "10:0-0"},
        {LUMORA_TAG_DNS, match, enumerator(1), enumerator(2), "22:1-1", "22:2-2"},
        {LUMORA_TAG_CLASS, match, text("gold"), text("slow"), "9:1-1", "9:2-2"},
    };
    for (const t_leaf_case &c : cases) {
        SCOPED_TRACE(c.tag);
        world.sequence(MOP_CREATED, "in", 10, c.place({leaf(c.tag, c.first)}));
        EXPECT_EQ(world.fields("in", 10), c.want_first);
        world.sequence(MOP_MODIFIED, "in", 10, c.place({leaf(c.tag, c.second)}));
        EXPECT_EQ(world.fields("in", 10), c.want_second);
        world.sequence(MOP_MODIFIED, "in", 10, c.place({leaf(c.tag, none())}));
        EXPECT_EQ(world.fields("in", 10), "");
        EXPECT_EQ(world.actions("in", 10), "2.0");
        world.sequence(MOP_DELETED, "in", 10);
        EXPECT_EQ(pfx_list_users("nets") + pfx_list_users("more"), 0u);
    }
}

TEST_F(AclParser, EveryActionIsMadeChangedAndDeleted)
{
    const t_leaf_case cases[] = {
        {LUMORA_TAG_COUNT, action, text("c1"), text("c2"), "8", "8"},
        {LUMORA_TAG_MIRROR, action, text("gold"), text("slow"), "5", "5"},
        {LUMORA_TAG_POLICER, action, text("gold"), text("slow"), "7", "7"},
        {LUMORA_TAG_CLASS, action, text("gold"), text("slow"), "9", "9"},
        {LUMORA_TAG_LOG, action, empty(), empty(), "17", "17"},
        {LUMORA_TAG_DSCP, action_set, u8(46), u8(1), "14", "14"},
        {LUMORA_TAG_TRAFFIC_CLASS, action_set, u8(46), u8(1), "21", "21"},
        {LUMORA_TAG_NEXT_HOP, action_set, text("10.0.0.1"), text("fd00::1"), "10", "10"},
    };
    for (const t_leaf_case &c : cases) {
        SCOPED_TRACE(c.tag);
        auto value = [&] {
            t_dlnode *p_last = world.rule("in", 10)->action_list.p_tail;
            const t_tarn_config_action *p_action = DLL_RECORD(p_last, t_tarn_config_action, dlnode);
            return std::string(p_action->counter, sizeof(p_action->counter));
        };
        // The base action comes last and stands first.
        world.sequence(MOP_CREATED, "in", 10, c.place({leaf(c.tag, c.first)}));
        EXPECT_EQ(world.actions("in", 10), std::string("2.0 0.") + c.want_first);
        std::string before = value();
        world.sequence(MOP_MODIFIED, "in", 10, c.place({leaf(c.tag, c.second)}));
        EXPECT_EQ(world.actions("in", 10), std::string("2.0 0.") + c.want_second);
        EXPECT_EQ(value() == before, c.tag == LUMORA_TAG_LOG);
        world.sequence(MOP_MODIFIED, "in", 10, c.place({leaf(c.tag, none())}));
        EXPECT_EQ(world.actions("in", 10), "2.0");
        world.sequence(MOP_MODIFIED, "in", 10, action({leaf(LUMORA_TAG_BASE_ACTION, enumerator(1))}));
        EXPECT_EQ(world.actions("in", 10), "1.0");
        world.sequence(MOP_DELETED, "in", 10);
        const t_tarn_access_list *p_list = world.list_of("in");
        EXPECT_EQ(avl_numnodes(&p_list->policer_db) + avl_numnodes(&p_list->counter_db), 0u);
        EXPECT_EQ(policer_users("slow") + mirror_users("slow") + policer_users("gold") + mirror_users("gold"),
                  0u);
    }
}

TEST_F(AclParser, APolicersInstanceIsTheAccessLists)
{
    EXPECT_EQ(tarn_access_list_add(&world.tarn, "in6", TARN_AF_TYPE_IPV6, 0), 0);
    EXPECT_EQ(world.run(tarn_config_access_list_v6_seq, MOP_CREATED, {text("in6"), u16(20)},
                        action({leaf(LUMORA_TAG_POLICER, text("gold"))})),
              0);
    auto *p_instance =
        static_cast<t_tarn_policer_config *>(avl_first(&world.list_of("in6", TARN_AF_TYPE_IPV6)->policer_db));
    ASSERT_NE(p_instance, nullptr);
    EXPECT_STREQ(p_instance->key.name, "gold");
    EXPECT_EQ(p_instance->key.type, TARN_POLICY_POLICER_TYPE_LOCAL);
    EXPECT_EQ(p_instance->key.sequence_id, 20);
    EXPECT_EQ(p_instance->key.pol_af_type, 1);
    EXPECT_STREQ(p_instance->key.policy_name, "in6");
    EXPECT_EQ(p_instance->bind_type, TARN_BIND_TYPE_INTF);
    EXPECT_STREQ(p_instance->bind_name, "in6");
    EXPECT_STREQ(p_instance->bind_name2, "");
    EXPECT_EQ(world.generations(), 0) << "IPv6 does not tell the forwarding plane";
}

// The old object is gone when the sequence's change comes.
TEST_F(AclParser, WhatASequenceLetsGoMayBeGone)
{
    world.sequence(
        MOP_CREATED, "in", 10,
        match({leaf(LUMORA_TAG_SOURCE_DATA_PREFIX_LIST, text("nets"))}) +
            action({leaf(LUMORA_TAG_POLICER, text("gold")), leaf(LUMORA_TAG_MIRROR, text("gold"))}));
    world.pass();
    EXPECT_EQ(tarn_config_pfx_list_delete(&world.tarn, "nets", TARN_POLICY_PFX_LIST_TYPE_LOCAL), 0);
    EXPECT_EQ(tarn_config_mirror_delete(&world.tarn, "gold", nullptr, nullptr), 0);
    t_tarn_policer_config config = {};
    strcpy(config.key.name, "gold");
    config.key.type = TARN_POLICY_POLICER_TYPE_LOCAL;
    config.key.sequence_id = -1;
    EXPECT_EQ(tarn_config_policer_delete(&world.tarn, &config), 0);
    world.sequence(
        MOP_MODIFIED, "in", 10,
        match({leaf(LUMORA_TAG_SOURCE_DATA_PREFIX_LIST, text("more"))}) +
            action({leaf(LUMORA_TAG_POLICER, text("slow")), leaf(LUMORA_TAG_MIRROR, text("slow"))}));
    world.pass();
    EXPECT_EQ(world.fields("in", 10), "4:12/8");
    EXPECT_EQ(world.actions("in", 10), "2.0 0.7 0.5");
    EXPECT_EQ(policer_users("slow") + mirror_users("slow") + pfx_list_users("more"), 3u);
    world.delete_list("in");
    EXPECT_EQ(policer_users("slow") + mirror_users("slow") + pfx_list_users("more"), 0u);
}

TEST_F(AclParser, ApplicationListsAreCountedWhenASequenceIsMadeOnly)
{
    auto apps = [](const char *name) { return match({leaf(LUMORA_TAG_APP_LIST, text(name))}); };
    world.sequence(MOP_CREATED, "in", 10, apps("gold"));
    EXPECT_EQ(app_list_users("gold"), 1u);
    std::string expanded = world.fields("in", 10);
    EXPECT_NE(expanded, "");
    syslog_lines_take();
    world.sequence(MOP_MODIFIED, "in", 10, apps("slow"));
    EXPECT_EQ(app_list_users("gold") + app_list_users("slow"), 0u);
    EXPECT_EQ(world.fields("in", 10), expanded) << "the rule never widens";
    EXPECT_EQ(syslog_lines_take().at(0).text, "Could not add app list slow to access list in, err(2)");
    world.sequence(MOP_DELETED, "in", 10);

    EXPECT_EQ(tarn_access_list_add(&world.tarn, "in6", TARN_AF_TYPE_IPV6, 0), 0);
    EXPECT_EQ(world.run(tarn_config_access_list_v6_seq, MOP_CREATED, {text("in6"), u16(20)}, apps("gold")),
              0);
    EXPECT_EQ(syslog_lines_take().at(0).text, "Could not add app list gold to access list in6, err(2)");
    world.sequence(MOP_CREATED, "in", 10,
                   apps("gold") + match({leaf(LUMORA_TAG_DNS_APP_LIST, text("gold"))}));
    world.delete_list("in");
    EXPECT_EQ(app_list_users("gold"), 0u);
}

TEST_F(AclParser, UncacheableLeavesAreCounted)
{
    auto counts = [] {
        return std::to_string(g_fp_global_ctrl->cft_policy_cache_disable) + " " +
               std::to_string(g_fp_global_ctrl->cft_policy_dscp_disable);
    };
    world.generations();
    world.sequence(MOP_CREATED, "in", 10,
                   match({leaf(LUMORA_TAG_PACKET_LENGTH, list({text("1"), text("2")})),
                          leaf(LUMORA_TAG_DSCP, list({u8(1), u8(2), u8(3)}))}) +
                       action_set({leaf(LUMORA_TAG_DSCP, u8(4))}));
    EXPECT_EQ(counts(), "2 4");
    world.sequence(MOP_MODIFIED, "in", 10, action_set({leaf(LUMORA_TAG_DSCP, u8(5))}));
    EXPECT_EQ(counts(), "2 4");
    world.sequence(MOP_MODIFIED, "in", 10, action_set({leaf(LUMORA_TAG_DSCP, none())}));
    EXPECT_EQ(counts(), "2 3");
    world.sequence(MOP_DELETED, "in", 10);
    EXPECT_EQ(counts(), "2 3") << "deleted rules are not counted down";
    EXPECT_EQ(world.generations(), 4);
}

TEST_F(AclParser, RefusalsOfTheStoreAreLogged)
{
    auto line = [] {
        auto lines = syslog_lines_take();
        return lines.empty() ? "" : lines[0].text;
    };
    world.sequence(MOP_CREATED, "gone", 10);
    EXPECT_EQ(line(), "Failed to add rule (gone - 0, 10) err(2)\n");
    world.sequence(MOP_MODIFIED, "in", 11);
    EXPECT_EQ(line(), "Failed to change rule (in - 0, 11) err(2)\n");
    world.sequence(MOP_DELETED, "in", 11);
    EXPECT_EQ(line(), "Failed to change rule (in - 0, 11) err(2)\n");
    world.add_list("gone");
    world.delete_list("gone");
    world.delete_list("gone");
    EXPECT_EQ(line(), "Failed to delete access list gone, err(2)\n");
    EXPECT_EQ(world.run(tarn_config_access_list_v4, MOP_MODIFIED, {text("gone")}), 0);
    EXPECT_EQ(line(), "Failed to add access list gone, err(2)\n");
}

TEST_F(AclParserDeathTest, WhatARuleCannotTakeEndsTheDaemon)
{
    const t_change cases[] = {
        action({leaf(LUMORA_TAG_POLICER, text("gone"))}),
        action({leaf(LUMORA_TAG_MIRROR, text("gone"))}),
        action({leaf(LUMORA_TAG_CLASS, text("gone"))}),
        match({leaf(LUMORA_TAG_CLASS, text("gone"))}),
        match({leaf(LUMORA_TAG_SOURCE_DATA_PREFIX_LIST, text("gone"))}),
        {leaf(LUMORA_TAG_CLASS, text("gold"))},
        match({leaf(LUMORA_TAG_PROTOCOL, list({u16(6)}))}),
        match({leaf(LUMORA_TAG_PLP, u8(6))}),
        action({leaf(LUMORA_TAG_POLICER, text("gold")), leaf(LUMORA_TAG_POLICER, text("gold"))}),
    };
    for (const t_change &change : cases)
        EXPECT_EXIT(world.sequence(MOP_CREATED, "in", 10, change), testing::KilledBySignal(SIGSEGV), "");
    uint32_t value = 0;
    EXPECT_EQ(tarn_intf_config_rule_add(&world.tarn, "in", TARN_AF_TYPE_IPV4, 10, nullptr), 0);
    EXPECT_EXIT(tarn_intf_config_action_add(&world.tarn, "in", TARN_AF_TYPE_IPV4, 10, TARN_ACTION_TAG_TLOC,
                                            &value, nullptr),
                testing::KilledBySignal(SIGSEGV), "");
}
