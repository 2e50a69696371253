// Paths: forms, positions, refusals, keypaths.

#include "tests/mgmtd/store/store_world.h"

TEST(StorePath, AllFormsLeadToTheirNodes)
{
    mgmt_work_tree_ptr tree = world_tree(
        R"([{"path":"/policy/zone","value":[{"name":"b"},{"name":"a\"{","vpn":[{"vpn-id":20},{"vpn-id":3}]}]},
        {"path":"/store-test/hooked","value":[{"a":"x y","b":-2,"value":1},{"a":"x y","b":-10,"value":2}]},
        {"path":"/store-test/types/t-list","value":[4,1]}])");
    static const struct {
        const char *base, *path, *want;
    } cases[] = {
        {"/", "/policy/zone{\"a\\\"{\"}/vpn{3}", "/policy/zone{\"a\\\"{\"}/vpn{3}"},
        {"/", "/lumora-policy:policy/zone[0]/vpn[1]", "/policy/zone{\"a\\\"{\"}/vpn{20}"},
        {"/policy", "zone{b}", "/policy/zone{b}"},
        {"/policy/zone[1]", "../zone[0]/vpn{003}", "no value"},
        {"/policy/zone[1]", "", "/policy/zone{b}"},
        {"/policy/zone[2]", "", "absent"},
        {"/", "/store-test/hooked{\"x y\" -10}/value", "/store-test/hooked{\"x y\" -10}/value"},
        {"/", "/store-test/hooked[1]/value", "/store-test/hooked{\"x y\" -2}/value"},
        {"/", "/store-test/types/t-list{4}", "/store-test/types/t-list{4}"},
        {"/", "/store-test/types/t-list[0]", "/store-test/types/t-list{1}"},
        {"/", "/policy/zone{b}/vpn{x}", "no value"},
        {"/", "/policy/zone/vpn{3}", "absent"},
        {"/", "store-test/types/t-bool", "absent"},
    };
    for (const auto &c : cases) {
        t_mgmt_path base = world_path(c.base);
        t_mgmt_path path;
        t_mgmt_error error;
        ASSERT_TRUE(mgmt_path_read(world_index(), &base, c.path, &path, &error))
            << c.path << mgmt_error_text(error);
        const lyd_node *p_node = mgmt_path_node(*tree, path, &error);
        std::string found = p_node != nullptr                 ? mgmt_node_path(*tree, p_node)
                            : error.code == MGMT_ERR_NOEXISTS ? "absent"
                                                              : "no value";
        // libyang takes leading zeros for the number.
        EXPECT_EQ(found, c.path == std::string_view("../zone[0]/vpn{003}") ? "/policy/zone{\"a\\\"{\"}/vpn{3}"
                                                                           : c.want)
            << c.path;
        if (p_node == nullptr)
            continue;
        t_mgmt_path back;
        ASSERT_TRUE(mgmt_keypath_path(world_index(), mgmt_keypath_of(*tree, p_node), &back, &error));
        EXPECT_EQ(mgmt_path_text(back), found);
    }
    t_mgmt_error error;
    EXPECT_EQ(mgmt_path_count(*tree, world_path("/policy/zone[0]/vpn"), &error), 2);
    EXPECT_EQ(mgmt_path_count(*tree, world_path("/policy/zone{nope}/vpn"), &error), 0);
    EXPECT_EQ(mgmt_path_count(*tree, world_path("/policy/zone{b}"), &error), -1);
}

TEST(StorePath, BadPathsAreRefusedWithTheReason)
{
    static const struct {
        const char *path, *reason;
    } cases[] = {
        {"/nope", "there is no node \"nope\" in the model"},
        {"/policy/nope", "there is no node \"nope\" in /policy"},
        {"/lumora-vpn:policy", "there is no node \"lumora-vpn:policy\" in the model"},
        {"//policy", "there is no node \"\" in the model"},
        {"/policy/", "there is no node \"\" in /policy"},
        {"/..", "there is nothing above the top"},
        {"/policy/zone{a", "a brace is not closed"},
        {"/policy/zone{\"a}", "a quoted key is not closed"},
        {"/policy/zone{\"a\"b}", "a blank or a brace must follow a quoted key"},
        {"/policy/zone{a{b}", "a key with braces, quotes or backslashes must be quoted"},
        {"/policy/zone{}", "zone has 1 keys, not 0"},
        {"/policy/zone{a b}", "zone has 1 keys, not 2"},
        {"/policy{a}", "policy has 0 keys, not 1"},
        {"/policy[0]", "policy is no list"},
        {"/policy/zone[-1]", "a position is a number from 0"},
        {"/policy/zone[1", "a bracket is not closed"},
        {"/policy/zone[99999999999999999999]", "a position is a number from 0"},
        {"/policy/zone{a}x", "a slash must follow a step"},
    };
    for (const auto &c : cases) {
        t_mgmt_path path;
        t_mgmt_error error;
        EXPECT_FALSE(mgmt_path_read(world_index(), nullptr, c.path, &path, &error)) << c.path;
        EXPECT_EQ(error.reason, c.reason) << c.path;
    }
}
