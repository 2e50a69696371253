// The schema after loading: lookups by path, tag and type, and texts that use its names. The library keeps
// one schema for the life of the process, so one test covers all of it.
#include "platform/confd/confd_cdb.h"
#include "tests/platform/confd_client/scripted_server.h"

#include <arpa/inet.h>
#include <gtest/gtest.h>

static constexpr uint32_t policy_ns = 0x25640284;
static constexpr uint32_t vpn_ns = 0x09ae20f2;

// policy{zone-pair{name, mode, by-name: (alias)}, levels}, vpn (of another namespace), notice{mode}.
static t_ipc_schema test_schema()
{
    t_ipc_schema schema;
    schema.namespaces = {{policy_ns, "lumora-policy", "lumora-policy"}, {vpn_ns, "lumora-vpn", "vpn"}};
    schema.names = {{1, "policy"}, {2, "zone-pair"}, {3, "name"},    {4, "mode"}, {5, "levels"},
                    {6, "vpn"},    {7, "notice"},    {8, "by-name"}, {9, "alias"}};
    schema.types = {{policy_ns, "mode-enum", C_ENUM_VALUE, {{0, "off"}, {7, "on"}}},
                    {policy_ns, "", C_BUF, {}},
                    {policy_ns, "level-bits", C_BIT32, {{0, "low"}, {2, "high"}}}};
    schema.nodes = {
        {1, policy_ns, IPC_NO_INDEX, IPC_NODE_CONTAINER, CS_NODE_IS_WRITE, IPC_NO_INDEX, {}},
        {2, policy_ns, 0, IPC_NODE_LIST, CS_NODE_IS_WRITE, IPC_NO_INDEX, {3}},
        {3, policy_ns, 1, IPC_NODE_LEAF, CS_NODE_IS_WRITE, 1, {}},
        {4, policy_ns, 1, IPC_NODE_LEAF, CS_NODE_IS_WRITE, 0, {}},
        {8, policy_ns, 1, IPC_NODE_CASE, CS_NODE_IS_WRITE, IPC_NO_INDEX, {}},
        {9, policy_ns, 4, IPC_NODE_LEAF, CS_NODE_IS_WRITE, 1, {}},
        {5, policy_ns, 0, IPC_NODE_LEAF_LIST, CS_NODE_IS_WRITE, 0, {}},
        {6, vpn_ns, IPC_NO_INDEX, IPC_NODE_CONTAINER, 0, IPC_NO_INDEX, {}},
        {7, policy_ns, IPC_NO_INDEX, IPC_NODE_NOTIFICATION, 0, IPC_NO_INDEX, {}},
        {4, policy_ns, 8, IPC_NODE_LEAF, 0, 0, {}},
    };
    return schema;
}

static void check_nodes()
{
    static const struct {
        const char *path;
        int kind;
    } cases[] = {
        {"/policy", CS_NODE_IS_CONTAINER},
        {"/lumora-policy:policy/zone-pair", CS_NODE_IS_LIST},
        {"/policy/zone-pair{x}/mode", CS_NODE_IS_LEAF},
        {"policy/levels", CS_NODE_IS_LEAF_LIST},
        {"/policy/zone-pair/by-name", CS_NODE_IS_CASE},
        {"/policy/zone-pair/alias", CS_NODE_IS_LEAF},
        {"/vpn:vpn", CS_NODE_IS_CONTAINER},
        {"/notice/mode", CS_NODE_IS_LEAF},
        {"/notice", CS_NODE_IS_NOTIF},
        {"/lumora-policy:vpn", 0},
        {"/policy/mode", 0},
        {"/", 0},
        {"/policy//", 0},
    };
    int kinds = CS_NODE_IS_CONTAINER | CS_NODE_IS_LIST | CS_NODE_IS_LEAF | CS_NODE_IS_LEAF_LIST |
                CS_NODE_IS_CASE | CS_NODE_IS_NOTIF;
    for (const auto &c : cases) {
        confd_cs_node *p_node = confd_cs_node_cd(nullptr, "%s", c.path);
        EXPECT_EQ(p_node == nullptr ? 0 : p_node->info.flags & kinds, c.kind) << c.path;
    }
    confd_cs_node *p_list = confd_cs_node_cd(confd_find_cs_root(policy_ns), "zone-pair");
    ASSERT_NE(p_list, nullptr);
    EXPECT_EQ(p_list->info.keys[0], 3u);
    EXPECT_EQ(p_list->info.keys[1], 0u);
    EXPECT_EQ(p_list->parent->next->tag, 7u) << "top-level nodes of one namespace";
    EXPECT_EQ(p_list->children->next->info.shallow_type, C_ENUM_VALUE);
}

static std::string typed_text(const char *p_type, const confd_value_t &value)
{
    char text[32];
    int size = confd_val2str(confd_find_ns_type(policy_ns, p_type), &value, text, sizeof(text));
    return size < 0 ? "failed" : text;
}

static void check_types()
{
    confd_value_t mode = {C_ENUM_VALUE, {}};
    mode.val.enumvalue = 7;
    EXPECT_EQ(typed_text("mode-enum", mode), "on");
    const char *p_name = nullptr;
    confd_type *p_type = confd_cs_node_cd(nullptr, "/notice/mode")->info.type;
    EXPECT_EQ(confd_val2str_ptr(p_type, &mode, &p_name), 2);
    EXPECT_STREQ(p_name, "on");
    confd_value_t both[2] = {mode, mode};
    confd_value_t list = {C_LIST, {}};
    list.val.list = {2, both};
    EXPECT_EQ(typed_text("mode-enum", list), "on on");
    mode.val.enumvalue = 1;
    EXPECT_EQ(typed_text("mode-enum", mode), "failed");
    EXPECT_EQ(confd_val2str_ptr(p_type, &mode, &p_name), CONFD_ERR);
    confd_value_t bits = {C_BIT32, {}};
    bits.val.b32 = 5;
    EXPECT_EQ(typed_text("level-bits", bits), "low high");
    EXPECT_EQ(typed_text("no-such-type", bits), "failed");
    EXPECT_STREQ(confd_hash2str(2), "zone-pair");
    EXPECT_EQ(confd_hash2str(99), nullptr);
    EXPECT_EQ(confd_str2hash("zone-pair"), 2u);
}

static void check_texts()
{
    confd_hkeypath_t path = {};
    path.len = 4;
    path.v[3][0] = IpcValue::tag(C_XMLTAG, 1, policy_ns).v;
    path.v[2][0] = IpcValue::tag(C_XMLTAG, 2, policy_ns).v;
    path.v[1][0].type = C_STR;
    path.v[1][0].val.c_s = "a b";
    path.v[0][0] = IpcValue::tag(C_XMLTAG, 4, policy_ns).v;
    for (int i = 0; i < path.len; i++)
        path.v[i][1].type = C_NOEXISTS;
    static const std::string whole = "/lumora-policy:policy/zone-pair{\"a b\"}/mode";
    char text[128];
    EXPECT_EQ(confd_pp_kpath(text, sizeof(text), &path), static_cast<int>(whole.size()));
    EXPECT_EQ(text, whole);
    EXPECT_EQ(confd_pp_kpath(text, 9, &path), static_cast<int>(whole.size()));
    EXPECT_STREQ(text, "/lumora-");

    confd_value_t time = {C_DATETIME, {}};
    time.val.datetime = {2026, 11, 21, 12, 30, 5, 42, CONFD_TIMEZONE_UNDEF, 0};
    confd_value_t address = {C_IPV6, {}};
    inet_pton(AF_INET6, "2001:db8::1", &address.val.ip6);
    confd_value_t number = {C_INT64, {}};
    number.val.i64 = INT64_MIN;
    for (const auto &[value, wanted] :
         {std::pair<confd_value_t, const char *>{time, "2026-11-21T12:30:05.000042"},
          {address, "2001:db8::1"},
          {number, "-9223372036854775808"}}) {
        confd_pp_value(text, sizeof(text), &value);
        EXPECT_STREQ(text, wanted);
    }
}

TEST(ClientSchema, IsLoadedOnceAndLookedUp)
{
    ScriptedServer server;
    EXPECT_EQ(confd_cs_node_cd(nullptr, "/policy"), nullptr);
    EXPECT_EQ(confd_hash2str(1), nullptr);
    t_ipc_schema unsound = test_schema();
    unsound.nodes[1].parent = 1;
    server.answer(IPC_OP_SCHEMA_LOAD, ipc_encode(unsound));
    EXPECT_EQ(confd_load_schemas(server.address(), server.address_size()), CONFD_ERR);
    server.answer(IPC_OP_SCHEMA_LOAD, {1});
    EXPECT_EQ(confd_load_schemas(server.address(), server.address_size()), CONFD_EOF);
    server.answer(IPC_OP_SCHEMA_LOAD, ipc_encode(test_schema()));
    ASSERT_EQ(confd_load_schemas(server.address(), server.address_size()), CONFD_OK);
    const char *p_name = confd_hash2str(2);
    server.death = DEATH_AT_ACCEPT;
    EXPECT_EQ(confd_load_schemas(server.address(), server.address_size()), CONFD_OK);
    EXPECT_EQ(confd_hash2str(2), p_name) << "never replaced";
    check_nodes();
    check_types();
    check_texts();
}
