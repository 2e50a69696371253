// Access lists in the pass: what is compiled, what FTM hears, and lists that wait for memory.
#include <gtest/gtest.h>

#include <cstring>

#include "fp_api/fp_filter_action.h"
#include "tarnd/config/tarn_pfx_list.h"
#include "tarnd/config/tarn_process.h"
#include "tarnd/core/tarn_main.h"
#include "tests/common/syslog_lines.h"
#include "tests/tarnd/acl/acl_world.h"
#include "tests/tarnd/oper/notification_record.h"

using t_texts = std::vector<std::string>;

static t_texts lines()
{
    t_texts texts;
    for (const t_syslog_line &line : syslog_lines_take())
        texts.push_back(std::to_string(line.priority) + " " + line.text);
    return texts;
}

// ---- A list's life ----

TEST(AclPass, AListIsAnnouncedWithEachProgram)
{
    AclWorld world;
    world.add_list("in");
    world.bind("in", "ge0");
    world.bind("in", "ge1");
    world.pass();
    EXPECT_EQ(world.told(), (t_texts{"+4 in #-1 7:ge0/1", "+4 in #-1 7:ge1/1"}));
    EXPECT_EQ(world.list_of("in")->filter_id, -1);
    EXPECT_EQ(world.memory.allocations, 0);

    world.sequence(MOP_CREATED, "in", 20);
    world.sequence(MOP_CREATED, "in", 10);
    world.pass();
    EXPECT_EQ(world.told(), t_texts{"+4 in #0 7:ge0/1 7:ge1/1"});
    EXPECT_EQ(world.memory.allocations, 1);
    EXPECT_EQ(world.list_of("in")->p_table, nullptr);
    EXPECT_NE(world.list_of("in")->p_program, nullptr);
    EXPECT_EQ(DLL_RECORD(world.list_of("in")->rule_list.p_head, t_tarn_config_rule, dlnode)->key.id, 10u);
    world.pass();
    EXPECT_EQ(world.told(), t_texts{}) << "nothing changed";

    // The old program's slot is taken until the forwarding plane has left it.
    EXPECT_EQ(world.run(tarn_config_access_list_v4, MOP_MODIFIED, {text("in")},
                        {leaf(LUMORA_TAG_DEFAULT_ACTION, enumerator(1))}),
              0);
    EXPECT_EQ(world.list_of("in")->default_action->action, TARN_FILTER_ACTION_REJECT);
    world.pass();
    EXPECT_EQ(world.told(), (t_texts{"-4 in #0 7:ge0/1 7:ge1/1", "+4 in #1 7:ge0/1 7:ge1/1"}));
    world.delete_list("in");
    EXPECT_EQ(world.told(), t_texts{"-4 in #1 7:ge0/1 7:ge1/1"});
}

TEST(AclPass, AnEmptiedListKeepsItsFilterIdAndIsWithdrawnOnceMore)
{
    AclWorld world;
    world.add_list("in");
    world.bind("in", "ge0");
    world.sequence(MOP_CREATED, "in", 10);
    world.pass();
    world.sequence(MOP_DELETED, "in", 10);
    world.told();
    world.pass();
    EXPECT_EQ(world.told(), t_texts{"-4 in #0 7:ge0/1"});
    EXPECT_EQ(world.list_of("in")->filter_id, 0);
    EXPECT_EQ(world.list_of("in")->p_program, nullptr);
    world.release();
    world.bind("in", "ge1");
    EXPECT_EQ(world.told(), t_texts{"+4 in #0 7:ge1/1"}) << "the id of a slot that is free by now";
    world.sequence(MOP_CREATED, "in", 10);
    world.pass();
    EXPECT_EQ(world.told(), (t_texts{"-4 in #0 7:ge0/1 7:ge1/1", "+4 in #0 7:ge0/1 7:ge1/1"}));
}

TEST(AclPass, PrefixListsAndMirrorsAreTakenAnewAndClassesAreNot)
{
    AclWorld world;
    world.add_local_pfx_list("b", {"10.0.0.0/8"});
    world.add_local_pfx_list("a", {"20.0.0.0/8"});
    EXPECT_EQ(tarn_config_mirror_add(&world.tarn, "m", nullptr, nullptr), 0);
    t_tarn_class_params params = {"gold", 3};
    EXPECT_EQ(tarn_class_add(&world.tarn, &params), 0);
    world.add_list("in");
    world.sequence(MOP_CREATED, "in", 10,
                   match({leaf(LUMORA_TAG_SOURCE_DATA_PREFIX_LIST, text("b")),
                          leaf(LUMORA_TAG_DESTINATION_DATA_PREFIX_LIST, text("a")),
                          leaf(LUMORA_TAG_PROTOCOL, list({u8(6)}))}) +
                       action({leaf(LUMORA_TAG_MIRROR, text("m")), leaf(LUMORA_TAG_CLASS, text("gold"))}));
    world.pass();
    EXPECT_EQ(world.fields("in", 10), "4:10/8 5:20/8 1:6-6");

    confd_ipv4_prefix added = test_prefix("30.0.0.0/8");
    EXPECT_EQ(tarn_config_ip_pfx_add(&world.tarn, "b", TARN_POLICY_PFX_LIST_TYPE_LOCAL, &added), 0);
    EXPECT_EQ(tarn_config_pfx_list_change(&world.tarn, "b", TARN_POLICY_PFX_LIST_TYPE_LOCAL), 0);
    t_tarn_mirror_tunnel tunnel = {};
    EXPECT_EQ(tarn_config_mirror_add(&world.tarn, "m", nullptr, &tunnel), 0);
    params.queue = 5;
    EXPECT_EQ(tarn_class_modify(&world.tarn, &params), 0);
    world.pass();
    EXPECT_EQ(world.fields("in", 10), "1:6-6 4:10/8 4:30/8 5:20/8");
    t_dlnode *p_mirror = world.rule("in", 10)->action_list.p_head->p_next;
    EXPECT_EQ(DLL_RECORD(p_mirror, t_tarn_config_action, dlnode)->mirror_config.mirror_type,
              TARN_MIRROR_TUNNEL);
    EXPECT_EQ(DLL_RECORD(p_mirror->p_next, t_tarn_config_action, dlnode)->fc.queue, 3);
    EXPECT_EQ(world.memory.allocations, 2);

    EXPECT_EQ(tarn_config_pfx_list_delete(&world.tarn, "a", TARN_POLICY_PFX_LIST_TYPE_LOCAL), 0);
    world.list_of("in")->changed = 1;
    world.pass();
    EXPECT_EQ(world.fields("in", 10), "1:6-6 4:10/8 4:30/8") << "a list that has gone leaves in silence";
}

// ---- Memory ----

TEST(AclPass, AListWithoutMemoryIsAnnouncedAndComesBackOnce)
{
    strcpy(g_hostname, "edge-1");
    AclWorld world;
    world.add_list("first");
    world.sequence(MOP_CREATED, "first", 10);
    world.pass();
    world.memory.budget = world.memory.used();
    world.add_list("late");
    world.bind("late", "ge0");
    world.sequence(MOP_CREATED, "late", 10);
    world.told();
    lines();
    world.pass();
    EXPECT_EQ(world.told(), t_texts{"+4 late #64 7:ge0/1"});
    int bytes = world.memory.wanted;
    EXPECT_EQ(
        lines(),
        (t_texts{"191 Failed to allocate program memory [" + std::to_string(bytes) + "/" +
                     std::to_string((bytes + 127) / 128) +
                     "] for access list - late. Continuing without the access-list.",
                 "185 %Lumora-edge-1-TARND-1-ALRT-1100003: Failed to allocate program memory for access "
                 "list - late. Continuing without the access-list."}));

    world.delete_list("first");
    world.release();
    EXPECT_EQ(world.told(), (t_texts{"-4 late #64 7:ge0/1", "+4 late #0 7:ge0/1"}));
    t_texts logged = lines();
    EXPECT_EQ(logged.back(),
              "190 %Lumora-edge-1-TARND-6-INFO-1100005: Successfully re-programmed access list - late");
    world.sequence(MOP_CREATED, "late", 20);
    world.memory.budget *= 4;
    world.pass();
    EXPECT_EQ(lines(), t_texts{});
    EXPECT_EQ(notification_record_take(),
              (std::vector<t_tarn_notification>{{"", "late", "Failed"}, {"", "late", "Success"}}));
}
