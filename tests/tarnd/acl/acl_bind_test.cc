// Where access lists are bound, and what FTM hears of it.
#include <gtest/gtest.h>

#include "platform/confd/double/confd_double.h"
#include "tests/common/syslog_lines.h"
#include "tests/tarnd/acl/acl_world.h"

using t_texts = std::vector<std::string>;

static t_texts lines()
{
    t_texts texts;
    for (const t_syslog_line &line : syslog_lines_take())
        texts.push_back(line.text);
    return texts;
}

namespace {

class AclBind : public testing::Test {
protected:
    AclBind()
    {
        confd_double_reset();
        world.add_list("in");
        world.add_list("new");
        world.add_policer("unused");
        world.told();
        world.generations();
        lines();
    }

    // A binding's callback; before is what the store held, empty for nothing.
    void binding(confd_iter_op oper, const char *before, const char *now, int32_t direction = 0)
    {
        if (*before != '\0')
            confd_double_set_text("/vpn/vpn-instance{7}/interface{ge0}/access-list{" +
                                      std::to_string(direction) + "}/acl-name",
                                  before);
        t_change values = {leaf(LUMORA_TAG_DIRECTION, enumerator(direction)),
                           leaf(LUMORA_TAG_ACL_NAME, oper == MOP_DELETED ? none() : text(now))};
        EXPECT_EQ(world.run(tarn_config_intf_access_list_v4, oper,
                            {u64(7), text("ge0"), enumerator(direction)}, values),
                  0);
    }

    AclWorld world;
};

}  // namespace

TEST_F(AclBind, AChangeOfNameUnbindsWhatTheStoreHeldBefore)
{
    binding(MOP_CREATED, "", "in", 1);
    EXPECT_EQ(world.told(), t_texts{"+4 in #-1 7:ge0/2"});
    binding(MOP_MODIFIED, "in", "new", 1);
    EXPECT_EQ(world.told(), (t_texts{"-4 in #-1 7:ge0/2", "+4 new #-1 7:ge0/2"}));
    binding(MOP_DELETED, "new", "", 1);
    EXPECT_EQ(world.told(), t_texts{"-4 new #-1 7:ge0/2"});
    EXPECT_EQ(world.generations(), 3);
    EXPECT_EQ(lines(), t_texts{});
    t_texts calls;
    for (const t_confd_call &call : confd_double_calls())
        calls.push_back(call.function + " " + call.text);
    calls.resize(4);
    EXPECT_EQ(calls, (t_texts{"cdb_connect 127.0.0.1:4565", "cdb_start_session2 ",
                              "cdb_get_str /vpn/vpn-instance{7}/interface{ge0}/access-list{1}/acl-name",
                              "cdb_end_session "}));
}

TEST_F(AclBind, WhatFailsIsLoggedAndTheRestIsDone)
{
    binding(MOP_CREATED, "", "in");
    binding(MOP_CREATED, "", "in");
    EXPECT_EQ(lines(), t_texts{"Failed to bind acl: in"}) << "bound already";
    binding(MOP_MODIFIED, "new", "gone");
    EXPECT_EQ(lines(), (t_texts{"Failed to unbind acl : new", "Failed to bind acl: gone"}));
    binding(MOP_DELETED, "gone", "");
    EXPECT_EQ(lines(), t_texts{}) << "a list that has gone took its bindings along";
    const char *const failing[] = {"cdb_connect", "cdb_start_session2", "cdb_get_str"};
    const char *const want[] = {"Cannot connect to CDB (-1) scripted error (16) : ",
                                "Failed to start cdb session scripted error (16) : ",
                                "Failed to get access-list name scripted error (16) : "};
    for (size_t i = 0; i < 3; i++) {
        confd_double_fail(failing[i], 1);
        binding(MOP_DELETED, "in", "");
        EXPECT_EQ(lines(), t_texts{want[i]});
        EXPECT_EQ(avl_numnodes(&world.list_of("in")->intf_db), 1u);
    }
    EXPECT_EQ(world.generations(), 7);
}

TEST_F(AclBind, InterfacesAndVpnsTakeTheirBindingsAlong)
{
    EXPECT_EQ(tarn_access_list_add(&world.tarn, "in", TARN_AF_TYPE_IPV6, 1), 0);
    t_tarn_acl_bind_param out = {9, "ge0", 2};
    EXPECT_EQ(tarn_access_list_bind(&world.tarn, TARN_AF_TYPE_IPV6, "in", &out), 0);
    for (const char *intf : {"ge0", "ge1", "ge2"})
        world.bind("in", intf, *intf == 'g' && intf[2] == '1' ? 8 : 9);
    world.bind("new", "ge0", 8);
    world.told();
    EXPECT_EQ(world.run(tarn_config_vpn_if, MOP_MODIFIED, {u64(7), text("ge0")}), 0);
    EXPECT_EQ(world.told(), t_texts{});
    EXPECT_EQ(world.run(tarn_config_vpn_if, MOP_DELETED, {u64(7), text("ge0")}), 0);
    EXPECT_EQ(world.told(), (t_texts{"-4 in #-1 9:ge0/1", "-4 new #-1 8:ge0/1", "-6 in #-1 9:ge0/2"}));
    world.bind("new", "ge9", 9);
    world.told();
    EXPECT_EQ(world.run(tarn_config_vpn, MOP_DELETED, {u64(9)}), 0);
    EXPECT_EQ(world.told(), (t_texts{"-4 in #-1 9:ge2/1", "-4 new #-1 9:ge9/1"}));
    EXPECT_EQ(avl_numnodes(&world.list_of("in")->intf_db), 1u);

    world.add_vpn_list("guests", 9);
    world.add_policy(TARN_POLICY_TYPE_DATA, "p", {"guests"});
    world.add_rule(TARN_POLICY_TYPE_DATA, "p", "guests", 1);
    world.pass();
    world.store.take();
    EXPECT_EQ(world.run(tarn_config_vpn, MOP_CREATED, {u64(9)}), 0);
    EXPECT_EQ(world.messages(), t_texts{"+1 p/9 #0"}) << "a new VPN is told to its policies";
}

TEST_F(AclBind, ANameThatFillsTheFieldKeepsEveryMessageBack)
{
    world.bind("in", std::string(33, 'i').c_str());
    EXPECT_EQ(world.told(), t_texts{});
    EXPECT_EQ(tarn_access_list_delete(&world.tarn, "in", TARN_AF_TYPE_IPV4), 22);
    EXPECT_EQ(tarn_access_list_unbind_from_vpn(&world.tarn, 7), 0);
    EXPECT_EQ(tarn_access_list_delete(&world.tarn, "in", TARN_AF_TYPE_IPV4), 0);
}

TEST_F(AclBind, Results)
{
    t_tarn *p_tarn = &world.tarn;
    t_tarn_acl_bind_param param = {7, "ge0", 1};
    EXPECT_EQ(tarn_access_list_bind(p_tarn, TARN_AF_TYPE_IPV4, "gone", &param), 2);
    EXPECT_EQ(tarn_access_list_bind(p_tarn, TARN_AF_TYPE_IPV4, "in", nullptr), 74);
    EXPECT_EQ(tarn_access_list_unbind(p_tarn, TARN_AF_TYPE_IPV4, "in", &param), 2);
    EXPECT_EQ(tarn_access_list_add(p_tarn, "in", TARN_AF_TYPE_IPV4, 1), 17);
    EXPECT_EQ(tarn_access_list_change(p_tarn, "in", TARN_AF_TYPE_IPV6, 1), 2);
    EXPECT_EQ(tarn_access_list_delete(p_tarn, nullptr, TARN_AF_TYPE_IPV6), 74);
    EXPECT_EQ(tarn_intf_config_rule_add(p_tarn, "in", TARN_AF_TYPE_IPV4, 5, nullptr), 0);
    EXPECT_EQ(tarn_intf_config_rule_add(p_tarn, "in", TARN_AF_TYPE_IPV4, 5, nullptr), 17);
    auto add = [&](uint32_t tag, const char *name) {
        return tarn_intf_config_action_add(p_tarn, "in", TARN_AF_TYPE_IPV4, 5, tag, name, nullptr);
    };
    EXPECT_EQ(add(TARN_ACTION_TAG_POLICER, "gone"), 22);
    EXPECT_EQ(add(TARN_ACTION_TAG_MIRROR, "gone"), 22);
    EXPECT_EQ(add(TARN_ACTION_TAG_CLASS, "gone"), 2);
    EXPECT_EQ(add(TARN_ACTION_TAG_POLICER, "unused"), 0);
    EXPECT_EQ(add(TARN_ACTION_TAG_POLICER, "unused"), 17);
    EXPECT_EQ(tarn_intf_config_action_delete(p_tarn, "in", TARN_AF_TYPE_IPV4, 5, TARN_ACTION_TAG_LOG), 0);
    EXPECT_EQ(tarn_intf_config_action_delete(p_tarn, "in", TARN_AF_TYPE_IPV4, 6, TARN_ACTION_TAG_LOG), 2);
    EXPECT_EQ(tarn_yang_direction_to_filter_direction(2), 0);
    EXPECT_EQ(tarn_filter_direction_to_yang_direction(2), 1u);
    EXPECT_EQ(tarn_filter_direction_to_yang_direction(0), 0u);
}
