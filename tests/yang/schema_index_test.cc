#include "yang/schema_index.h"

#include "yang/schema_check.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <set>

class SchemaIndexTest : public testing::Test {
protected:
    void SetUp() override
    {
        std::string error;
        std::vector<std::string> errors;
        context = schema_context_new(YANG_MODULE_FOLDER, &error);
        ASSERT_NE(context, nullptr) << error;
        index = schema_index_new(context.get(), &errors);
        ASSERT_NE(index, nullptr) << errors.front();
    }

    const t_schema_node &node(std::string_view path)
    {
        static const t_schema_node none = {};
        const t_schema_node *p_node = schema_find(*index, path);
        EXPECT_NE(p_node, nullptr) << path;
        return p_node != nullptr ? *p_node : none;
    }

    schema_context_ptr context;
    std::unique_ptr<const t_schema_index> index;
};

TEST_F(SchemaIndexTest, finds_nodes_by_path_with_and_without_prefixes)
{
    static const struct {
        const char *path;
        const char *found;  // or null
    } rows[] = {
        {"/lumora-policy:policy/zone-pair", "/policy/zone-pair"},
        {"policy/class-map/class", "/policy/class-map/class"},
        {"/vpn/vpn-instance/vrf-id", "/vpn/vpn-instance/vrf-id"},
        {"vpn/lumora-vpn:vpn-instance", "/vpn/vpn-instance"},
        {"/debugs/tarn/config", "/debugs/tarn/config"},
        {"/lconfd-initial-read-priority", "/lconfd-initial-read-priority"},
        {"/data-policy-association-status/policy-name", "/data-policy-association-status/policy-name"},
        {"/lumora-debugs:tarn-dump-acl/output/text", "/tarn-dump-acl/output/text"},
        {"/lumora-vpn:policy/zone-pair", nullptr},
        {"/tarn-dump-acl/text", nullptr},
        {"/lumora-debugs:tarn-dump-acl/output", nullptr},
        {"/policy/", nullptr},
        {"/policy//zone", nullptr},
        {":policy", nullptr},
        {"", nullptr},
    };
    for (const auto &row : rows) {
        const t_schema_node *p_node = schema_find(*index, row.path);
        EXPECT_EQ(p_node != nullptr ? p_node->path : "nothing", row.found != nullptr ? row.found : "nothing")
            << row.path;
    }
}

TEST_F(SchemaIndexTest, leads_from_each_node_back_to_it)
{
    for (const auto &p_node : index->nodes) {
        EXPECT_EQ(schema_node_of(*index, p_node->yang), p_node.get());
        EXPECT_EQ(schema_find(*index, p_node->path), p_node.get());
        EXPECT_EQ(schema_hash_name(*index, p_node->tag), p_node->name);
        EXPECT_EQ(schema_name_tag(*index, p_node->name), p_node->tag);
        EXPECT_EQ(index->nodes[p_node->order], p_node);
        if (!p_node->output) {
            EXPECT_EQ(schema_child_by_tag(*index, p_node->parent, p_node->tag), p_node.get()) << p_node->path;
            EXPECT_EQ(schema_child_by_tag(*index, p_node->parent, p_node->tag, p_node->ns), p_node.get());
            EXPECT_EQ(schema_child_by_tag(*index, p_node->parent, p_node->tag, 1), nullptr);
        }
    }
    EXPECT_EQ(schema_hash_name(*index, 0x25640284), "lumora-policy");
    EXPECT_EQ(schema_module_ns(*index, "lumora-vpn"), 0x09ae20f2u);
}

TEST_F(SchemaIndexTest, derives_hashes_as_crc_32_without_the_top_bit)
{
    EXPECT_EQ(schema_derived_hash("123456789"), 0xcbf43926u & 0x7fffffff);
    EXPECT_EQ(node("/policy").tag, schema_derived_hash("policy"));
}

TEST_F(SchemaIndexTest, knows_where_the_daemon_is_called)
{
    std::multiset<std::string_view> callpoints, actionpoints;
    for (const auto &p_node : index->nodes) {
        if (!p_node->callpoint.empty())
            callpoints.insert(p_node->callpoint);
        if (!p_node->actionpoint.empty())
            actionpoints.insert(p_node->actionpoint);
    }
    EXPECT_EQ(callpoints, (std::multiset<std::string_view>{"app-route-policy-filters",
                                                           "app-route-policy-vpnlist",
                                                           "app-route-policy-counters",
                                                           "data-policy-filters",
                                                           "data-policy-vpnlist",
                                                           "data-policy-counters",
                                                           "data-policy-policers",
                                                           "zbfw-filter-statistics",
                                                           "zbfw-policy-counters",
                                                           "access-list-names",
                                                           "access-list-names-v6",
                                                           "access-list-counters",
                                                           "access-list-counters-v6",
                                                           "access-policy-counter-list",
                                                           "access-policy-counter-list-v6",
                                                           "policer-policy-name",
                                                           "access-list-policers-v6",
                                                           "access-policy-policer-list",
                                                           "access-policy-policer-list-v6",
                                                           "access-policy-list-for-interface",
                                                           "access-list-associations-v6",
                                                           "access-policy-interface-list",
                                                           "access-policy-interface-list-v6",
                                                           "filter-memory-usage"}));
    EXPECT_EQ(actionpoints.size(), 35u);
    for (const char *name : {"tarn_dump_admin_tech", "tarn_dpi_clear_protocol_hits", "tarn_clear_policy_acl6",
                             "tarn_debug_disable_all"})
        EXPECT_EQ(actionpoints.count(name), 1u) << name;
    EXPECT_EQ(node("/policy/zone-pair").hook, "zone-pair-id-cp");
    EXPECT_EQ(node("/policy/zone-pair/pair-id").hook, "");
    EXPECT_EQ(node("/policy/zone-based-policy/sequence").hook, "zone-policy-seq-cp");
    EXPECT_EQ(node("/policy/zone-based-policy/sequence/action/log").hook, "zone-policy-seq-cp");
    EXPECT_EQ(node("/policy/zone-based-policy/sequence/action/count").hook, "");
    EXPECT_EQ(node("/policy/access-list/sequence").hook, "");
}

TEST_F(SchemaIndexTest, has_the_keys_that_the_daemon_asserts)
{
    static const struct {
        const char *path;
        std::vector<e_schema_value> keys;
    } rows[] = {
        {"/policy/lists/data-prefix-list/ip-prefix", {SCHEMA_VALUE_IPV4PREFIX}},
        {"/policy-from-keelson/lists/vpn-list/vpn", {SCHEMA_VALUE_STRING}},
        {"/policy-from-keelson/data-policy/vpn-list", {SCHEMA_VALUE_STRING}},
        {"/policy-from-keelson/data-policy/vpn-list/sequence", {SCHEMA_VALUE_UINT16}},
        {"/policy-from-keelson/data-policy/vpn-list/sequence/action/set/lum-tloc-pref-list",
         {SCHEMA_VALUE_UINT32}},
        {"/policy/mirror/remote-dest", {SCHEMA_VALUE_UNION}},
        {"/policy/zone/vpn", {SCHEMA_VALUE_UINT32}},
        {"/vpn/vpn-instance", {SCHEMA_VALUE_UINT64}},
        {"/vpn/vpn-instance/interface/access-list", {SCHEMA_VALUE_ENUM}},
        {"/snmp/trap/group/enable", {SCHEMA_VALUE_ENUM}},
        {"/policy/access-list-associations/interface-list", {SCHEMA_VALUE_STRING, SCHEMA_VALUE_ENUM}},
        {"/policy/filter-memory-usage", {}},
    };
    for (const auto &row : rows) {
        std::vector<e_schema_value> keys;
        for (const t_schema_node *p_key : node(row.path).keys)
            keys.push_back(p_key->value);
        EXPECT_EQ(keys, row.keys) << row.path;
    }
}

// A further leaf would be delivered as a change that the daemon takes for something else.
TEST_F(SchemaIndexTest, has_no_leaf_where_the_daemon_wants_none)
{
    static const struct {
        const char *path;
        std::vector<std::string_view> leaves;
    } rows[] = {
        {"/policy", {"app-visibility", "flow-visibility", "log-frequency", "zone-to-nozone-internet"}},
        {"/policy/zone", {"name"}},
        {"/policy/zone-based-policy", {"name", "default-action"}},
        {"/policy/zone-based-policy/sequence", {"number"}},
        {"/policy/mirror", {"name"}},
        {"/policy/lists/data-prefix-list", {"name"}},
        {"/policy/lists/app-list", {"name"}},
        {"/policy-from-keelson/lists/vpn-list", {"name"}},
        {"/policy-from-keelson/data-policy", {"name", "direction"}},
        {"/policy-from-keelson/data-policy/vpn-list", {"name", "default-action"}},
        {"/policy-from-keelson/app-route-policy/vpn-list", {"name", "sla-class-name"}},
        {"/policy-from-keelson/data-policy/vpn-list/sequence", {"number"}},
    };
    for (const auto &row : rows) {
        std::vector<std::string_view> leaves;
        for (const t_schema_node *p_child : node(row.path).children)
            if (p_child->kind == SCHEMA_KIND_LEAF || p_child->kind == SCHEMA_KIND_LEAF_LIST)
                leaves.push_back(p_child->name);
        EXPECT_EQ(leaves, row.leaves) << row.path;
    }
}

TEST_F(SchemaIndexTest, tells_state_parameters_and_cases_apart)
{
    EXPECT_TRUE(node("/policy/zone-pair/pair-id").config);
    EXPECT_FALSE(node("/vpn/vpn-instance/vrf-id").config);
    EXPECT_EQ(node("/vpn/vpn-instance/vrf-id").value, SCHEMA_VALUE_INT16);
    EXPECT_EQ(node("/lconfd-initial-read-priority").value, SCHEMA_VALUE_BIT32);
    EXPECT_TRUE(node("/tarn-dump-acl/output/text").output);
    EXPECT_EQ(node("/policy/lists/app-list/app").choice_case, "applications");
    EXPECT_EQ(node("/policy/lists/app-list/app-family").choice_case, "families");
    EXPECT_EQ(node("/policy/lists/app-list/app-family").choice, "kind");
    EXPECT_EQ(node("/policy/lists/app-list/app-family/name").choice, "");
}

TEST_F(SchemaIndexTest, has_the_catalogue_as_enumerations)
{
    const t_schema_typedef *p_apps = schema_typedef_find(*index, 0x25640284, "app-enum");
    const t_schema_typedef *p_families = schema_typedef_find(*index, 0x25640284, "app-family-enum");
    ASSERT_NE(p_apps, nullptr);
    ASSERT_NE(p_families, nullptr);
    EXPECT_GE(p_apps->enums.size(), 400u);
    EXPECT_EQ(p_families->enums.size(), 31u);
    EXPECT_TRUE(
        std::ranges::any_of(p_apps->enums, [](const t_schema_enum &app) { return app.name == "http"; }));
    EXPECT_EQ(schema_typedef_find(*index, 1, "app-enum"), nullptr);
}

TEST_F(SchemaIndexTest, keeps_the_rules_of_the_model)
{
    EXPECT_EQ(schema_check(*index), std::vector<std::string>());
}
