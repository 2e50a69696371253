// Lists, classes, mirrors and policers from changes of the configuration.
#include <gtest/gtest.h>

#include <arpa/inet.h>
#include <csignal>

#include "tarnd/config/tarn_app_list.h"
#include "tarnd/config/tarn_class.h"
#include "tarnd/config/tarn_mirror.h"
#include "tarnd/config/tarn_pfx_list.h"
#include "tarnd/config/tarn_policer.h"
#include "tests/tarnd/config/confd_change.h"

namespace {

struct t_prefix_parsers {
    f_tarn_config_cb *list;
    f_tarn_config_cb *member;
    e_tarn_policy_pfx_list_type type;
};

struct t_app_parsers {
    f_tarn_config_cb *list;
    f_tarn_config_cb *app;
    f_tarn_config_cb *family;
    e_tarn_dpi_app_list_loc_type loc;
    int generations;  // of each call
};

}  // namespace

TEST(ConfdLists, PrefixListsGetTheirMembers)
{
    ConfdWorld world;
    for (const t_prefix_parsers &parsers :
         {t_prefix_parsers{tarn_config_policy_local_pfx_list, tarn_config_policy_local_pfx_list_ip,
                           TARN_POLICY_PFX_LIST_TYPE_LOCAL},
          t_prefix_parsers{tarn_config_policy_pfx_list, tarn_config_policy_pfx_list_ip,
                           TARN_POLICY_PFX_LIST_TYPE_KEELSON}}) {
        auto members = [&] {
            t_tarn_pfx_list *p_list = tarn_pfx_list_find(&world.tarn, "l", parsers.type);
            return p_list == nullptr ? -1 : static_cast<int>(avl_numnodes(&p_list->ip_pfx_db));
        };
        EXPECT_EQ(world.run(parsers.list, MOP_CREATED, {text("l")}), 0);
        for (const char *member : {"10.0.0.0/8", "10.1.0.0/16"})
            EXPECT_EQ(world.run(parsers.member, MOP_CREATED, {text("l"), prefix(member)}), 0);
        EXPECT_EQ(members(), 2);
        EXPECT_EQ(world.run(parsers.member, MOP_DELETED, {text("l"), prefix("10.0.0.0/8")}), 0);
        EXPECT_EQ(members(), 1);
        EXPECT_EQ(world.run(parsers.list, MOP_MODIFIED, {text("l")}), 0);
        EXPECT_EQ(world.run(parsers.list, MOP_DELETED, {text("l")}), 0);
        EXPECT_EQ(members(), -1);
        EXPECT_EQ(world.generations(), 0);
    }
}

TEST(ConfdLists, ApplicationsThatAreNotKnownArePassedOver)
{
    ConfdWorld world;
    for (const t_app_parsers &parsers :
         {t_app_parsers{tarn_config_policy_local_app_list, tarn_config_policy_local_app_list_app,
                        tarn_config_policy_local_app_list_app_family, TARN_DPI_KEY_LOC_LOCAL, 0},
          t_app_parsers{tarn_config_policy_app_list, tarn_config_policy_app_list_app,
                        tarn_config_policy_app_list_app_family, TARN_DPI_KEY_LOC_KEELSON, 1}}) {
        EXPECT_EQ(world.run(parsers.list, MOP_CREATED, {text("apps")}), 0);
        EXPECT_EQ(world.run(parsers.list, MOP_CREATED, {text("families")}), 0);
        EXPECT_EQ(world.run(parsers.app, MOP_CREATED, {text("apps"), text("unknown")}), 0);
        EXPECT_EQ(world.run(parsers.family, MOP_CREATED, {text("families"), text("unknown")}), 0);
        t_tarn_dpi_app_list *p_apps = tarn_app_list_find(&world.tarn, "apps", parsers.loc);
        ASSERT_NE(p_apps, nullptr);
        EXPECT_EQ(avl_numnodes(&p_apps->app_db), 0u);
        EXPECT_EQ(world.run(parsers.app, MOP_DELETED, {text("apps"), text("unknown")}), 0);
        EXPECT_EQ(world.run(parsers.list, MOP_MODIFIED, {text("families")}), 0);
        EXPECT_EQ(world.run(parsers.list, MOP_DELETED, {text("apps")}), 0);
        EXPECT_EQ(tarn_app_list_find(&world.tarn, "apps", parsers.loc), nullptr);
        EXPECT_EQ(world.generations(), 7 * parsers.generations);
    }
}

TEST(ConfdLists, ClassesKeepTheirQueues)
{
    ConfdWorld world;
    auto queue = [&] { return tarn_class_lookup(&world.tarn, "c")->queue; };
    EXPECT_EQ(world.run(tarn_config_class, MOP_CREATED, {text("c")}, {leaf(LUMORA_TAG_QUEUE, u8(3))}), 0);
    EXPECT_EQ(queue(), 3);
    EXPECT_EQ(world.run(tarn_config_class, MOP_MODIFIED, {text("c")}, {leaf(LUMORA_TAG_QUEUE, none())}), 0);
    EXPECT_EQ(queue(), 0);
    EXPECT_EQ(world.run(tarn_config_class, MOP_CREATED, {text("c")}), 1) << "it is there";
    EXPECT_EQ(world.run(tarn_config_class, MOP_DELETED, {text("c")}), 0);
    EXPECT_EQ(world.run(tarn_config_class, MOP_DELETED, {text("c")}), 1) << "it has gone";

    t_tarn_sla_class *p_sla = nullptr;
    EXPECT_EQ(world.run(tarn_config_policy_sla_class, MOP_CREATED, {text("s")}), 0);
    EXPECT_EQ(tarn_sla_class_lookup(&world.tarn, "s", &p_sla), 0);
    EXPECT_EQ(world.run(tarn_config_policy_sla_class, MOP_DELETED, {text("s")}), 0);
}

TEST(ConfdListsDeathTest, WhatTheStoreRefusesEndsTheDaemon)
{
    ConfdWorld world;
    auto dies = [&](f_tarn_config_cb *callback, const std::vector<confd_value_t> &keys) {
        EXPECT_EXIT(world.run(callback, MOP_DELETED, keys), testing::KilledBySignal(SIGSEGV), "");
    };
    dies(tarn_config_policy_sla_class, {text("none")});
    dies(tarn_config_policy_pfx_list, {text("none")});
    dies(tarn_config_policy_local_app_list, {text("none")});
    dies(tarn_config_mirror_list, {text("none")});
    dies(tarn_config_data_policy_policer, {text("none")});
    dies(tarn_config_policy_pfx_list, {u32(1)});
}

TEST(ConfdLists, MirrorsGetInterfacesAndTunnels)
{
    ConfdWorld world;
    auto run = [&](f_tarn_config_cb *callback, confd_iter_op oper, const std::vector<confd_value_t> &keys,
                   const t_change &values = {}) { EXPECT_EQ(world.run(callback, oper, keys, values), 0); };
    run(tarn_config_mirror_list, MOP_CREATED, {text("m")});
    run(tarn_config_mirror_list_interface, MOP_CREATED, {text("m"), text("irb7")});
    run(tarn_config_mirror_list_remote_dest, MOP_CREATED, {text("m"), ipv4("10.0.0.2")},
        {leaf(LUMORA_TAG_SOURCE, ipv4("10.0.0.1"))});
    t_tarn_mirror_config *p_mirror = tarn_mirror_find(&world.tarn, "m");
    ASSERT_NE(p_mirror, nullptr);
    ASSERT_NE(p_mirror->intf_list.p_head, nullptr);
    auto *p_interface = DLL_RECORD(p_mirror->intf_list.p_head, t_tarn_mirror_intf_config, dlnode);
    EXPECT_STREQ(p_interface->name, "irb.7") << "the kernel's name";
    ASSERT_NE(p_mirror->tunnel_list.p_head, nullptr);
    auto *p_tunnel = DLL_RECORD(p_mirror->tunnel_list.p_head, t_tarn_mirror_tunnel_config, dlnode);
    EXPECT_EQ(fp_ipaddr_v4(&p_tunnel->src_ip), inet_addr("10.0.0.1")) << "network order";
    EXPECT_EQ(fp_ipaddr_v4(&p_tunnel->dst_ip), inet_addr("10.0.0.2"));
    run(tarn_config_mirror_list_remote_dest, MOP_MODIFIED, {text("m"), ipv4("10.0.0.2")},
        {leaf(LUMORA_TAG_SOURCE, ipv4("10.0.0.3"))});
    EXPECT_EQ(fp_ipaddr_v4(&p_tunnel->src_ip), inet_addr("10.0.0.3"));
    run(tarn_config_mirror_list_interface, MOP_DELETED, {text("m"), text("irb7")});
    EXPECT_EQ(p_mirror->intf_list.p_head, nullptr);
    run(tarn_config_mirror_list_interface, MOP_CREATED, {text("m"), text("irb64")});
    p_interface = DLL_RECORD(p_mirror->intf_list.p_head, t_tarn_mirror_intf_config, dlnode);
    EXPECT_STREQ(p_interface->name, "irb64") << "a name that the box doesn't know";
    run(tarn_config_mirror_list_interface, MOP_DELETED, {text("m"), text("irb64")});
    run(tarn_config_mirror_list_remote_dest, MOP_DELETED, {text("m"), ipv4("10.0.0.2")});
    EXPECT_EQ(p_mirror->tunnel_list.p_head, nullptr);
    run(tarn_config_mirror_list, MOP_DELETED, {text("m")});
    EXPECT_EQ(tarn_mirror_find(&world.tarn, "m"), nullptr);
}

TEST(ConfdLists, PolicersTakeTheLeavesThatCame)
{
    ConfdWorld world;
    for (auto [parser, type] :
         {std::pair(&tarn_config_data_policy_policer, TARN_POLICY_POLICER_TYPE_KEELSON),
          std::pair(&tarn_config_access_list_policer, TARN_POLICY_POLICER_TYPE_LOCAL)}) {
        EXPECT_EQ(world.run(parser, MOP_CREATED, {text("p")},
                            {leaf(LUMORA_TAG_RATE, confd_value_t{.type = C_UINT64, .val = {.u64 = 8000}}),
                             leaf(LUMORA_TAG_BURST, u32(1500)), leaf(LUMORA_TAG_EXCEED, enumerator(1))}),
                  0);
        t_tarn_policer_config *p_policer = tarn_policer_find(&world.tarn, "p", type);
        ASSERT_NE(p_policer, nullptr);
        EXPECT_EQ(p_policer->bandwidth, 8000u);
        EXPECT_EQ(p_policer->burst, 1500u);
        EXPECT_EQ(p_policer->oob_action, 1);
        EXPECT_EQ(world.run(parser, MOP_MODIFIED, {text("p")},
                            {leaf(LUMORA_TAG_BURST, u32(9000)), leaf(LUMORA_TAG_EXCEED, none())}),
                  0);
        EXPECT_EQ(p_policer->bandwidth, 8000u);
        EXPECT_EQ(p_policer->burst, 9000u);
        EXPECT_EQ(p_policer->oob_action, 1);
        EXPECT_EQ(world.run(parser, MOP_DELETED, {text("p")}), 0);
        EXPECT_EQ(tarn_policer_find(&world.tarn, "p", type), nullptr);
        EXPECT_EQ(world.generations(), 3);
    }
}
