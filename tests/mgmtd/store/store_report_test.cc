// What subscriptions hear of a change.

#include "tests/mgmtd/store/store_world.h"

// One report a line: "created /policy/zone{a}: name=buf:a".
static std::string reports_of(const t_mgmt_diff &diff, const std::string &path)
{
    static const char *const names[] = {"", "created", "deleted", "modified", "set"};
    std::string text;
    for (const t_mgmt_report &report : mgmt_report_instances(diff, world_node(path))) {
        const t_mgmt_tree &tree = report.p_new != nullptr ? *diff.new_tree : *diff.old_tree;
        const lyd_node *p_node = report.p_new != nullptr ? report.p_new : report.p_old;
        text += std::string(names[report.op]) + " " + mgmt_node_path(tree, p_node) + ": " +
                world_values(mgmt_report_modifications(diff, report)) + "\n";
    }
    EXPECT_EQ(mgmt_report_concerns(diff, world_node(path)), !text.empty()) << path;
    return text;
}

static const char *const g_base =
    R"([{"path":"/policy","value":{"log-frequency":7,
        "lists":{"data-prefix-list":[{"name":"stays","ip-prefix":[{"prefix":"10.0.0.0/8"},{"prefix":"9.0.0.0/8"}]},{"name":"goes","ip-prefix":[{"prefix":"11.0.0.0/8"}]}]},
        "zone":[{"name":"z","vpn":[{"vpn-id":1},{"vpn-id":2}]}],
        "access-list":[{"name":"acl","default-action":"drop","sequence":[
            {"number":10,"match":{"protocol":[6,17],"plp":"high"},"action":{"base-action":"accept","log":[null],"set":{"dscp":1}}},
            {"number":9,"action":{"base-action":"drop"}}]}]}}])";

struct t_report_case {
    const char *behaviour;
    const char *edits;
    const char *path;
    const char *want;
};

TEST(StoreReport, InstancesAndValuesAreThoseOfTheRules)
{
    static const t_report_case cases[] = {
        {"a created entry brings its key", R"([{"path":"/policy/lists/data-prefix-list{new}"}])",
         "/policy/lists/data-prefix-list", "created /policy/lists/data-prefix-list{new}: name=buf:new\n"},
        {"members of a created entry are created",
         R"([{"path":"/policy/lists/data-prefix-list{new}/ip-prefix{1.0.0.0/8}"}])",
         "/policy/lists/data-prefix-list/ip-prefix",
         "created /policy/lists/data-prefix-list{new}/ip-prefix{1.0.0.0/8}: prefix=ip4:1.0.0.0/8\n"},
        {"a change of members modifies the entry, with no values",
         R"([{"path":"/policy/lists/data-prefix-list{stays}/ip-prefix{1.0.0.0/8}"}])",
         "/policy/lists/data-prefix-list", "modified /policy/lists/data-prefix-list{stays}: \n"},
        {"a deleted member of an entry that stays",
         R"([{"op":"delete","path":"/policy/lists/data-prefix-list{stays}/ip-prefix{9.0.0.0/8}"}])",
         "/policy/lists/data-prefix-list/ip-prefix",
         "deleted /policy/lists/data-prefix-list{stays}/ip-prefix{9.0.0.0/8}: prefix=none\n"},
        {"a deleted entry", R"([{"op":"delete","path":"/policy/lists/data-prefix-list{goes}"}])",
         "/policy/lists/data-prefix-list", "deleted /policy/lists/data-prefix-list{goes}: name=none\n"},
        {"members of a deleted entry are not told",
         R"([{"op":"delete","path":"/policy/lists/data-prefix-list{goes}"}])",
         "/policy/lists/data-prefix-list/ip-prefix", ""},
        {"members of a deleted container are told", R"([{"op":"delete","path":"/policy"}])",
         "/policy/lists/data-prefix-list",
         "deleted /policy/lists/data-prefix-list{goes}: name=none\ndeleted "
         "/policy/lists/data-prefix-list{stays}: name=none\n"},
        {"numbers order keys by value",
         R"([{"op":"remove","path":"/policy/access-list{acl}/sequence"},{"path":"/policy/access-list{acl}/sequence{100}/action/base-action","value":"drop"}])",
         "/policy/access-list/sequence",
         "deleted /policy/access-list{acl}/sequence{9}: number=none begin(action) base-action=none "
         "end(action)\n"
         "deleted /policy/access-list{acl}/sequence{10}: number=none begin(match) protocol=none plp=none "
         "end(match) "
         "begin(action) base-action=none log=none begin(set) dscp=none end(set) end(action)\n"
         "created /policy/access-list{acl}/sequence{100}: number=u16:100 begin(action) base-action=enum:1 "
         "end(action)\n"},
        {"changed, new and gone leaves in their containers",
         R"([{"path":"/policy/access-list{acl}/sequence{10}","value":{"match":{"protocol":[5],"source-port":["1-2"]},"action":{"set":{"dscp":2}}}},
             {"op":"delete","path":"/policy/access-list{acl}/sequence{10}/match/plp"},{"op":"delete","path":"/policy/access-list{acl}/sequence{10}/action/log"}])",
         "/policy/access-list/sequence",
         "modified /policy/access-list{acl}/sequence{10}: begin(match) source-port=[buf:1-2] "
         "protocol=[u8:5 u8:6 u8:17] plp=none end(match) "
         "begin(action) log=none begin(set) dscp=u8:2 end(set) end(action)\n"},
        {"a leaf-list that is empty now",
         R"([{"op":"delete","path":"/policy/access-list{acl}/sequence{10}/match/protocol"}])",
         "/policy/access-list/sequence",
         "modified /policy/access-list{acl}/sequence{10}: begin(match) protocol=none end(match)\n"},
        {"an empty leaf", R"([{"path":"/policy/access-list{acl}/sequence{9}/action/log"}])",
         "/policy/access-list/sequence",
         "modified /policy/access-list{acl}/sequence{9}: begin(action) log=empty end(action)\n"},
        {"a container without keys has its own leaves only",
         R"([{"path":"/policy","value":{"app-visibility":true,"zone":[{"name":"y"}]}},{"op":"delete","path":"/policy/log-frequency"}])",
         "/policy", "modified /policy: app-visibility=true log-frequency=none\n"},
        {"a leaf as subscription", R"([{"path":"/policy/log-frequency","value":9}])", "/policy/log-frequency",
         "set /policy/log-frequency: log-frequency=i32:9\n"},
        {"what did not change is no concern", R"([{"path":"/policy/log-frequency","value":7}])", "/policy",
         ""},
        {"an entry that went and came back alike did not change",
         R"([{"op":"delete","path":"/policy/zone{z}"},{"path":"/policy/zone{z}","value":{"vpn":[{"vpn-id":2},{"vpn-id":1}]}}])",
         "/policy/zone", ""},
    };
    mgmt_tree_ptr base = world_tree(g_base);
    for (const t_report_case &c : cases) {
        t_mgmt_diff diff = mgmt_diff_new(base, world_tree(c.edits, base.get()));
        EXPECT_EQ(reports_of(diff, c.path), c.want) << c.behaviour;
    }
}

TEST(StoreReport, ATriggerIsTheStateAsCreations)
{
    mgmt_tree_ptr empty = mgmt_tree_new(&world_index(), world_context());
    t_mgmt_diff diff = mgmt_diff_new(empty, world_tree(g_base));
    EXPECT_EQ(reports_of(diff, "/policy"), "modified /policy: log-frequency=i32:7\n");
    EXPECT_EQ(reports_of(diff, "/policy/zone/vpn"),
              "created /policy/zone{z}/vpn{1}: vpn-id=u32:1\ncreated /policy/zone{z}/vpn{2}: vpn-id=u32:2\n");
    EXPECT_EQ(reports_of(diff, "/policy/mirror"), "");
    // The adapter wants exactly the keys of the path.
    t_mgmt_report vpn = mgmt_report_instances(diff, world_node("/policy/zone/vpn"))[1];
    t_mgmt_keypath keypath = mgmt_report_keypath(diff, vpn);
    ASSERT_EQ(keypath.size(), 5u);
    EXPECT_EQ(keypath[0].tag.tag, world_node("/policy")->tag);
    EXPECT_EQ(world_value(keypath[2].keys[0]), "buf:z");
    EXPECT_EQ(world_value(keypath[4].keys[0]), "u32:2");
}

TEST(StoreReport, RecursionGoesLevelByLevel)
{
    mgmt_tree_ptr base = world_tree(g_base);
    t_mgmt_diff diff = mgmt_diff_new(
        base, world_tree(R"([{"path":"/policy/access-list{acl}/sequence{10}/match/plp","value":"low"},
        {"path":"/policy/access-list{new}/sequence{1}/action/base-action","value":"drop"}])",
                         base.get()));
    std::vector<t_mgmt_report> lists = mgmt_report_instances(diff, world_node("/policy/access-list"));
    ASSERT_EQ(lists.size(), 2u);
    t_mgmt_report sequence = mgmt_report_children(diff, lists[0]).at(0);
    t_mgmt_report plp = mgmt_report_children(diff, mgmt_report_children(diff, sequence).at(0)).at(0);
    t_mgmt_values values;
    EXPECT_EQ(plp.op, MGMT_REPORT_VALUE_SET);
    EXPECT_EQ(world_value(mgmt_report_old_value(diff, plp, &values)), "enum:1");
    EXPECT_EQ(world_value(mgmt_report_new_value(diff, plp, &values)), "enum:0");
    std::vector<t_mgmt_report> created = mgmt_report_children(diff, lists[1]);
    ASSERT_EQ(created.size(), 2u);
    EXPECT_EQ(created[1].op, MGMT_REPORT_CREATED);
    EXPECT_EQ(created[1].schema, world_node("/policy/access-list/sequence"));
}

TEST(StoreReport, TheUsersOrderIsNoticedButNotReported)
{
    mgmt_tree_ptr base =
        world_tree(R"([{"path":"/store-test/rule","value":[{"number":1},{"number":2},{"number":3}]}])");
    t_mgmt_diff moved =
        mgmt_diff_new(base, world_tree(R"([{"path":"/store-test/rule{3}","insert":"first"}])", base.get()));
    EXPECT_TRUE(moved.order_changed);
    EXPECT_TRUE(moved.tops.empty());
    t_mgmt_diff gone =
        mgmt_diff_new(base, world_tree(R"([{"op":"delete","path":"/store-test/rule{2}"}])", base.get()));
    EXPECT_FALSE(gone.order_changed);
    EXPECT_EQ(reports_of(gone, "/store-test/rule"), "deleted /store-test/rule{2}: number=none\n");
}
