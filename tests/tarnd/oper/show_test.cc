// What the show commands are told, callpoint by callpoint.
#include <gtest/gtest.h>

#include "tests/common/syslog_lines.h"
#include "tests/tarnd/oper/show_world.h"

#include "fp_api/fp_scaling.h"
#include "fp_api/fp_tables.h"
#include "platform/confd/double/confd_double.h"
#include "tarnd/acl/tarn_access_list_lists.h"
#include "tarnd/acl/tarn_intf_config.h"
#include "tarnd/oper/tarn_show.h"

#include <csignal>

using t_rows = std::vector<std::string>;

// Tags of lists, as the framework gives them.
enum e_list_tag : uint32_t {
    PFR = 0x64d3d948,
    PFR_LIST = 0x199eea0a,
    PFR_COUNTER = 0x0e5abb71,
    DATA = 0x692fc3f2,
    DATA_LIST = 0x5e089540,
    DATA_COUNTER = 0x71b9987d,
    DATA_POLICER = 0x3faefcec,
    ZBF = 0x62d4f46a,
    ZBF_COUNTER = 0x223da8b8,
    ACL_NAMES = 0x097a20f3,
    ACL_COUNTERS = 0x27f47908,
    ACL_COUNTER = 0x22592248,
    ACL_POLICERS = 0x2eb19ff7,
    ACL_POLICER = 0x3d6b962a,
    ACL_INTFS = 0x2b05e33f,
    ACL_INTF = 0x1d7c9be6,
};

static const t_rows counters = {"5a01054e=c1 16ebed30=7 4258b159=700", "5a01054e=c2 16ebed30=7 4258b159=700"};
static const t_rows policers = {"57809244=10.pol 528ffc0b=3 77c99227=300",
                                "57809244=20.pol 528ffc0b=3 77c99227=300"};
static const t_rows interfaces = {"4ed9d764=ge0/0 20ba4552=enum 0", "4ed9d764=ge0/0 20ba4552=enum 1"};

static t_rows names(const t_rows &texts)
{
    t_rows rows;
    for (const std::string &name : texts)
        rows.push_back("771b3037=" + name);
    return rows;
}

struct t_callpoint {
    std::string name;
    t_path path;
    t_rows rows;
};

// All of them, in the order of registration.
static std::vector<t_callpoint> callpoints()
{
    std::vector<t_callpoint> all = {
        // A second application-route policy is never shown.
        {"app-route-policy-filters", {{PFR, {}}}, names({"a1"})},
        {"app-route-policy-vpnlist", {{PFR, {text("a1")}}, {PFR_LIST, {}}}, names({"v1", "v2"})},
        {"app-route-policy-counters",
         {{PFR, {text("a1")}}, {PFR_LIST, {text("v1")}}, {PFR_COUNTER, {}}},
         counters},
        {"data-policy-filters", {{DATA, {}}}, names({"d1", "d2"})},
        {"data-policy-vpnlist", {{DATA, {text("d1")}}, {DATA_LIST, {}}}, names({"v1", "v2"})},
        {"data-policy-counters",
         {{DATA, {text("d1")}}, {DATA_LIST, {text("v1")}}, {DATA_COUNTER, {}}},
         counters},
        {"data-policy-policers",
         {{DATA, {text("d1")}}, {DATA_LIST, {text("v1")}}, {DATA_POLICER, {}}},
         policers},
        {"zbfw-filter-statistics", {{ZBF, {}}}, names({"z1", "z2"})},
        {"zbfw-policy-counters", {{ZBF, {text("z1")}}, {ZBF_COUNTER, {}}}, counters},
    };
    const std::pair<const char *, const char *> families[] = {
        {"access-list-names", "access-list-names-v6"},
        {"access-list-counters", "access-list-counters-v6"},
        {"access-policy-counter-list", "access-policy-counter-list-v6"},
        {"policer-policy-name", "access-list-policers-v6"},
        {"access-policy-policer-list", "access-policy-policer-list-v6"},
        {"access-policy-list-for-interface", "access-list-associations-v6"},
        {"access-policy-interface-list", "access-policy-interface-list-v6"}};
    const std::pair<t_path, t_rows> contents[] = {
        {{{ACL_NAMES, {}}}, names({"l1", "l2"})},
        {{{ACL_COUNTERS, {}}}, names({"l1", "l2"})},
        {{{ACL_COUNTERS, {text("l1")}}, {ACL_COUNTER, {}}}, counters},
        {{{ACL_POLICERS, {}}}, names({"l1", "l2"})},
        {{{ACL_POLICERS, {text("l1")}}, {ACL_POLICER, {}}}, policers},
        {{{ACL_INTFS, {}}}, names({"l1", "l2"})},
        {{{ACL_INTFS, {text("l1")}}, {ACL_INTF, {}}}, interfaces}};
    for (size_t i = 0; i < std::size(families); i++)
        for (const char *name : {families[i].first, families[i].second})
            all.push_back({name, contents[i].first, contents[i].second});
    return all;
}

static const char not_found[] = "not_found";
static const char first_end[] = "next_object_tag_value_array (-1, -1)";
static const char next_end[] = "next_key (-1, -1)";

// ---- Rows ----

TEST(Show, EveryCallpointIsRegisteredAndShowsItsRows)
{
    ShowWorld world;
    t_rows order;
    for (const t_callpoint &point : callpoints()) {
        order.push_back(point.name);
        if (point.path.size() == 1) {
            EXPECT_EQ(world.walk(point.name, point.path), t_rows()) << point.name << " of nothing";
        }
    }
    order.push_back("filter-memory-usage");
    EXPECT_EQ(world.order, order);

    world.add_objects();
    world.load();
    for (const t_callpoint &point : callpoints()) {
        SCOPED_TRACE(point.name);
        EXPECT_EQ(world.walk(point.name, point.path), point.rows);
        EXPECT_EQ(world.get_next(point.name, point.path, 0), t_rows{first_end}) << "there are no positions";
        t_rows again = world.find_next(point.name, point.path, {});
        EXPECT_EQ(again, world.get_next(point.name, point.path)) << "no keys mean the first row";
        t_path nobody = point.path;
        nobody.back().second = {text("nobody")};
        if (nobody.back().first == ACL_INTF)
            nobody.back().second.push_back(enumerator(0));
        EXPECT_EQ(world.get(point.name, nobody), t_rows{not_found});
        if (point.path.size() > 1) {
            bool ends = point.name.starts_with("access-") || point.name.ends_with("vpnlist");
            nobody = point.path;
            nobody[0].second = {text("nobody")};
            EXPECT_EQ(world.get_next(point.name, nobody), t_rows{ends ? first_end : not_found});
            EXPECT_EQ(world.find_next(point.name, nobody, {text("c1")}), t_rows{ends ? next_end : not_found});
            nobody.back().second = {text("c1")};
            EXPECT_EQ(world.get(point.name, nobody), t_rows{not_found});
        }
    }
}

TEST(Show, WhatIsNotLoadedHasNamesOnly)
{
    ShowWorld world;
    world.add_objects();
    world.load();
    t_path path = {{DATA, {text("d1")}}, {DATA_LIST, {text("v1")}}, {DATA_COUNTER, {}}};
    t_tarn_policy_vpn_list *p_context = world.context(TARN_POLICY_TYPE_DATA, "d1", "v1");
    t_tarn_access_list *p_list = tarn_access_list_find(&world.tarn, "l1", TARN_AF_TYPE_IPV6);
    int64_t pkts = -1, bytes = -1;
    tarn_policy_counter(p_context, "c1", &pkts, &bytes);
    EXPECT_EQ(pkts * 1000 + bytes, 7700);
    tarn_acl_counter(p_list, "c2", &pkts, &bytes);
    EXPECT_EQ(pkts * 1000 + bytes, 7700);
    int loaded = p_context->filter_id;
    for (int filter_id : {-1, RETRY_ID}) {
        p_context->filter_id = filter_id;
        EXPECT_EQ(world.walk("data-policy-counters", path), (t_rows{"5a01054e=c1", "5a01054e=c2"}));
        path.back().first = DATA_POLICER;
        EXPECT_EQ(world.walk("data-policy-policers", path), (t_rows{"57809244=10.pol", "57809244=20.pol"}));
        path.back().first = DATA_COUNTER;
        tarn_policy_counter(p_context, "c1", &pkts, &bytes);
        EXPECT_EQ(pkts + bytes, 0);
    }
    p_context->filter_id = loaded;
}

TEST(Show, FilterMemoryIsARowAndAnEndAtOnce)
{
    ShowWorld world;
    g_fp_scaling.num_filter_blocks = 500;
    g_fp_filter[5] = {.record_valid = 1, .activity = 0, .unused = 0, .hw_index = 1, .num_hw_mem_blocks = 4};
    g_fp_filter[63] = {.record_valid = 0, .activity = 1, .unused = 0, .hw_index = 9, .num_hw_mem_blocks = 7};
    g_fp_filter[7] = {.record_valid = 0, .activity = 0, .unused = 0, .hw_index = 9, .num_hw_mem_blocks = 70};
    t_rows usage = {"next_object_tag_value_array 197390ac=2 03647cc1=11 3a378571=64 21125a01=500 (4, -1)",
                    first_end};
    for (long next : {-1, 5})
        EXPECT_EQ(world.get_next("filter-memory-usage", {}, next), usage);
    EXPECT_EQ(world.get("filter-memory-usage", {}), t_rows{not_found});
    EXPECT_EQ(world.find_next("filter-memory-usage", {}, {}), t_rows{next_end});
    g_fp_scaling.num_filter_blocks = 0;
}

// ---- Between two rows ----

TEST(Show, ARowThatVanishesEndsPoliciesButNoOtherList)
{
    ShowWorld world;
    world.add_objects();
    auto first = [](const char *name) {
        return t_rows{"next_object_tag_value_array 771b3037=" + std::string(name) + " (1, -1)"};
    };
    auto same = CONFD_FIND_SAME_OR_NEXT;
    t_path lists = {{DATA, {text("d1")}}, {DATA_LIST, {}}};
    struct {
        const char *point;
        t_path path;
        const char *key;
        confd_find_next_type type;
        t_rows reply;
    } const cases[] = {
        {"data-policy-filters", {{DATA, {}}}, "d1", same, first("d1")},
        {"data-policy-filters", {{DATA, {}}}, "d0", same, {next_end}},
        {"data-policy-filters", {{DATA, {}}}, "d0", CONFD_FIND_NEXT, {next_end}},
        {"app-route-policy-filters", {{PFR, {}}}, "a2", same, first("a2")},
        {"zbfw-filter-statistics", {{ZBF, {}}}, "z1", CONFD_FIND_NEXT, first("z2")},
        {"data-policy-vpnlist", lists, "v2", same, first("v2")},
        {"data-policy-vpnlist", lists, "v0", same, first("v1")},
        {"data-policy-vpnlist", lists, "v11", CONFD_FIND_NEXT, {next_end}},
        {"access-list-names", {{ACL_NAMES, {}}}, "l1", same, first("l1")},
        {"access-list-names-v6", {{ACL_NAMES, {}}}, "l0", CONFD_FIND_NEXT, first("l1")},
        {"access-policy-policer-list",
         {{ACL_POLICERS, {text("l1")}}, {ACL_POLICER, {}}},
         "15.pol",
         CONFD_FIND_NEXT,
         {"next_object_tag_value_array 57809244=20.pol (1, -1)"}},
        {"access-policy-policer-list",
         {{ACL_POLICERS, {text("l1")}}, {ACL_POLICER, {}}},
         "pol",
         CONFD_FIND_NEXT,
         {next_end}},
        {"access-policy-interface-list",
         {{ACL_INTFS, {text("l1")}}, {ACL_INTF, {}}},
         "ge0/",
         CONFD_FIND_NEXT,
         {"next_object_tag_value_array 4ed9d764=ge0/0 20ba4552=enum 0 (2, -1)"}},
    };
    tarn_access_list_find(&world.tarn, "l1", TARN_AF_TYPE_IPV4)->filter_id = -1;
    for (const auto &[point, path, key, type, reply] : cases)
        EXPECT_EQ(world.find_next(point, path, {text(key)}, type), reply) << point << " " << key;
}

TEST(Show, AnInterfaceNameThatFillsTheFieldIsFoundAndPassed)
{
    ShowWorld world;
    world.add_objects();
    std::string name(TARN_INTF_NAME_SIZE, 'x');
    t_tarn_acl_bind_param param = {7, name.c_str(), 2};
    EXPECT_EQ(tarn_access_list_bind(&world.tarn, TARN_AF_TYPE_IPV4, "l1", &param), 0);
    t_path row = {{ACL_INTFS, {text("l1")}}, {ACL_INTF, {text(name), enumerator(1)}}};
    EXPECT_NE(world.get("access-policy-interface-list", row), t_rows{not_found});
    EXPECT_EQ(world.find_next("access-policy-interface-list", {row[0], {ACL_INTF, {}}}, row[1].second),
              t_rows{next_end});
}

// ---- Failures ----

TEST(Show, TheFirstRefusalEndsTheRegistration)
{
    const std::pair<int, const char *> refusals[] = {
        {0, "Failed to register data cb"},
        {19, "Failed to register data cb for access-list interfaces"},
        {23, "Failed to register data cb for filter memory usage"}};
    for (auto [count, line] : refusals) {
        ShowWorld world;
        world.callbacks.clear();
        world.refused_after = count;
        syslog_lines_take();
        EXPECT_EQ(tarn_show_init(&world.adapter), -1);
        EXPECT_EQ(world.callbacks.size(), static_cast<size_t>(count));
        std::vector<t_syslog_line> lines = syslog_lines_take();
        ASSERT_EQ(lines.size(), 1u);
        EXPECT_EQ(lines[0].text, line);
    }
}

TEST(Show, AReplyThatCantBeSentIsLoggedAndForgotten)
{
    ShowWorld world;
    confd_hkeypath_t keypath = keypath_of({{DATA, {}}});
    confd_double_fail("confd_data_reply_next_object_tag_value_array", 1);
    syslog_lines_take();
    EXPECT_EQ(world.callbacks.at("data-policy-filters").get_next_object(&world.tctx, &keypath, -1), CONFD_OK);
    std::vector<t_syslog_line> lines = syslog_lines_take();
    ASSERT_EQ(lines.size(), 1u);
    EXPECT_EQ(lines[0].text, "Failed to send oper data reply - scripted error (16) : ");
}

TEST(ShowDeathTest, AKeyOfAnotherTypeIsAnAssertion)
{
    ShowWorld world;
    world.add_objects();
    auto dies = [&](const char *point, const t_path &path) {
        EXPECT_EXIT(world.get(point, path), testing::KilledBySignal(SIGSEGV), "") << point;
    };
    dies("data-policy-filters", {{DATA, {u32(1)}}});
    dies("data-policy-counters", {{DATA, {u32(1)}}, {DATA_LIST, {text("v1")}}, {DATA_COUNTER, {text("c")}}});
    dies("data-policy-counters", {{DATA, {text("d1")}}, {DATA_LIST, {u32(1)}}, {DATA_COUNTER, {text("c")}}});
    dies("access-policy-interface-list", {{ACL_INTFS, {text("l1")}}, {ACL_INTF, {text("ge0/0"), u32(0)}}});
    EXPECT_EXIT(world.find_next("access-policy-interface-list", {{ACL_INTFS, {text("l1")}}, {ACL_INTF, {}}},
                                {u32(0)}),
                testing::KilledBySignal(SIGSEGV), "");
}
