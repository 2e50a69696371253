// Values of every type to the framework's form and back, and the operational store that takes them.

#include "tests/mgmtd/store/store_world.h"

#include <climits>

TEST(StoreValue, EveryTypeConvertsBothWays)
{
    static const struct {
        const char *leaf, *text, *want, *refused;
    } cases[] = {
        {"t-int8", "-128", "i8:-128", "128"},
        {"t-int16", "-3", "i16:-3", "40000"},
        {"t-int32", "2147483647", "i32:2147483647", "x"},
        {"t-int64", "-9223372036854775808", "i64:-9223372036854775808", ""},
        {"t-uint8", "255", "u8:255", "256"},
        {"t-uint16", "65535", "u16:65535", "-1"},
        {"t-uint32", "4294967295", "u32:4294967295", "4294967296"},
        {"t-uint64", "18446744073709551615", "u64:18446744073709551615", "1.5"},
        {"t-bool", "true", "true", "yes"},
        {"t-empty", "", "empty", "x"},
        {"t-text", "a b{}", "buf:a b{}", "longer than twenty bytes"},
        {"t-enum", "minus", "enum:-5", "two"},
        {"t-bits", "low high", "b32:2147483649", "middle"},
        {"t-wide-bits", "top low", "b64:9223372036854775809", "high"},
        {"t-ipv4", "192.0.2.1", "ip4:192.0.2.1", "192.0.2"},
        {"t-ipv6", "2001:DB8:0::1", "ip6:2001:db8::1", "2001:"},
        {"t-prefix4", "10.1.0.0/16", "ip4:10.1.0.0/16", "10.1.0.0/33"},
        {"t-prefix6", "2001:db8::/32", "ip6:2001:db8::/32", "2001:db8::"},
        {"t-time", "2024-01-15T10:00:07.25-02:30", "time:2024 7.250000 0:0", "yesterday"},
        {"t-union", "10.0.0.1", "ip4:10.0.0.1", "ten"},
        {"t-union", "::1", "ip6:::1", ""},
    };
    for (const auto &c : cases) {
        std::string path = std::string("/store-test/types/") + c.leaf;
        const t_schema_node *p_schema = world_node(path);
        mgmt_work_tree_ptr tree = mgmt_tree_new(&world_index(), world_context());
        t_mgmt_error error;
        std::string text = c.text;
        ASSERT_TRUE(mgmt_edit_set(tree.get(), world_path(path), &text, &error))
            << path << mgmt_error_text(error);
        const lyd_node *p_node = mgmt_path_node(*tree, world_path(path), &error);
        ASSERT_NE(p_node, nullptr) << path;
        confd_value_t value = mgmt_value_of(p_schema, p_node);
        EXPECT_EQ(world_value(value), c.want);
        confd_value_t from_text;
        ASSERT_TRUE(mgmt_value_from_text(*tree, p_schema, c.text, &from_text, &error)) << path;
        EXPECT_EQ(world_value(from_text), c.want);
        ASSERT_TRUE(mgmt_value_text(p_schema, value, &text, &error)) << path;
        ASSERT_TRUE(mgmt_edit_set(tree.get(), world_path(path), &text, &error)) << path << text;
        EXPECT_EQ(world_value(mgmt_value_of(p_schema, p_node)), c.want) << text;
        EXPECT_FALSE(mgmt_value_from_text(*tree, p_schema, c.refused, &from_text, &error)) << path;
        EXPECT_EQ(error.code, MGMT_ERR_BADTYPE);
    }
}

// Every leaf of the product's model has a value type that a key or tag value can carry.
TEST(StoreValue, EveryLeafOfTheModelHasAValueType)
{
    for (const auto &node : world_index().nodes) {
        bool has_type = true;
        if (node->kind == SCHEMA_KIND_LEAF)
            has_type = node->value != SCHEMA_VALUE_NONE;
        else if (node->kind == SCHEMA_KIND_LEAF_LIST)
            has_type = node->element != SCHEMA_VALUE_NONE;
        EXPECT_TRUE(has_type) << node->path;
    }
}

static confd_value_t number(confd_vtype type, uint64_t bits)
{
    confd_value_t value = {};
    value.type = type;
    value.val.u64 = bits;
    return value;
}

TEST(StoreValue, ValuesOfAnotherWidthFitOrAreRefused)
{
    std::string text;
    t_mgmt_error error;
    const t_schema_node *p_small = world_node("/store-test/types/t-int8");
    EXPECT_TRUE(mgmt_value_text(p_small, number(C_UINT64, 127), &text, &error));
    EXPECT_EQ(text, "127");
    EXPECT_FALSE(mgmt_value_text(p_small, number(C_UINT64, 128), &text, &error));
    EXPECT_TRUE(mgmt_value_text(p_small, number(C_INT64, static_cast<uint64_t>(-128)), &text, &error));
    EXPECT_EQ(text, "-128");
    EXPECT_FALSE(mgmt_value_text(world_node("/store-test/types/t-uint64"),
                                 number(C_INT8, static_cast<uint64_t>(-1)), &text, &error));
    EXPECT_FALSE(mgmt_value_text(p_small, number(C_BOOL, 1), &text, &error));
    EXPECT_FALSE(mgmt_value_text(world_node("/store-test/types/t-bits"), number(C_BIT32, 2), &text, &error));
    EXPECT_FALSE(mgmt_value_text(world_node("/store-test/types"), number(C_INT8, 2), &text, &error));
    EXPECT_EQ(error.path, "/store-test/types");
}

// ---- The operational store ----

TEST(StoreOper, TheReadPriorityAndVrfIdsAreSupplied)
{
    t_world_store world;
    t_mgmt_error error;
    const lyd_node *p_mask =
        mgmt_path_node(*world.store.operational, world_path("/lconfd-initial-read-priority"), &error);
    ASSERT_NE(p_mask, nullptr);
    EXPECT_EQ(world_value(mgmt_value_of(world_node("/lconfd-initial-read-priority"), p_mask)), "b32:7");
    auto vrf_ids = [&] {
        std::string text;
        for (int64_t i = 0;
             i < mgmt_path_count(*world.store.operational, world_path("/vpn/vpn-instance"), &error); i++) {
            t_mgmt_path path = world_path("/vpn/vpn-instance[" + std::to_string(i) + "]/vrf-id");
            const lyd_node *p_node = mgmt_path_node(*world.store.operational, path, &error);
            text += mgmt_node_path(*world.store.operational, p_node).substr(17) + "=" +
                    mgmt_node_text(p_node) + " ";
        }
        return text;
    };
    EXPECT_EQ(
        world.commit(
            R"([{"path":"/vpn/vpn-instance","value":[{"vpn-id":"0"},{"vpn-id":"32767"},{"vpn-id":"40000"},{"vpn-id":"4294967295"}]}])"),
        "");
    EXPECT_EQ(vrf_ids(), "{0}/vrf-id=0 {32767}/vrf-id=32767 {40000}/vrf-id=32766 {4294967295}/vrf-id=32765 ");
    // An id that is given stays, unless its number's own instance comes.
    EXPECT_EQ(
        world.commit(
            R"([{"op":"delete","path":"/vpn/vpn-instance{40000}"},{"path":"/vpn/vpn-instance{32765}"}])"),
        "");
    EXPECT_EQ(vrf_ids(), "{0}/vrf-id=0 {32765}/vrf-id=32765 {32767}/vrf-id=32767 {4294967295}/vrf-id=32766 ");
    ASSERT_TRUE(world.open());
    EXPECT_EQ(vrf_ids(), "{0}/vrf-id=0 {32765}/vrf-id=32765 {32767}/vrf-id=32767 {4294967295}/vrf-id=32766 ");
}

TEST(StoreOper, WritesTellWhatIsWrong)
{
    t_world_store world;
    t_mgmt_store *p_store = &world.store;
    t_mgmt_error error;
    EXPECT_TRUE(mgmt_oper_create(p_store, world_path("/debugs/tarn/ttm"), &error)) << mgmt_error_text(error);
    EXPECT_FALSE(mgmt_oper_create(p_store, world_path("/debugs/tarn/ttm"), &error));
    EXPECT_EQ(error.code, MGMT_ERR_ALREADY_EXISTS);
    EXPECT_TRUE(mgmt_oper_delete(p_store, world_path("/debugs/tarn/ttm"), &error));
    EXPECT_FALSE(mgmt_oper_delete(p_store, world_path("/debugs/tarn/ttm"), &error));
    EXPECT_EQ(error.code, MGMT_ERR_NOEXISTS);
    EXPECT_FALSE(mgmt_oper_set(p_store, world_path("/policy/log-frequency"), number(C_INT32, 1), &error));
    EXPECT_EQ(error.code, MGMT_ERR_NOT_WRITABLE);
    EXPECT_FALSE(mgmt_oper_set(p_store, world_path("/vpn/vpn-instance{5}/label"), number(C_BOOL, 1), &error));
    EXPECT_EQ(error.code, MGMT_ERR_BADTYPE);
    EXPECT_EQ(mgmt_path_count(*p_store->operational, world_path("/vpn/vpn-instance"), &error), 0)
        << "nothing half made";
    EXPECT_FALSE(mgmt_oper_create(p_store, world_path("/vpn/vpn-instance{x}"), &error));
    EXPECT_EQ(error.code, MGMT_ERR_BADTYPE);
    EXPECT_TRUE(mgmt_oper_create(p_store, world_path("/vpn/vpn-instance{5}"), &error))
        << mgmt_error_text(error);
    EXPECT_FALSE(mgmt_oper_create(p_store, world_path("/policy/zone{a}"), &error));
    EXPECT_EQ(error.code, MGMT_ERR_NOT_WRITABLE);
}
