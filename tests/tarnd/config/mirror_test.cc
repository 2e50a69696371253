// Mirrors: what a change does to the type and to the users.
#include <gtest/gtest.h>

#include <cerrno>
#include <cstring>

#include "tarnd/acl/tarn_access_list.h"
#include "tests/tarnd/config/rule_text.h"

// A context of a data policy and one of an application-route policy, both called p/l, that use the mirror,
// and access lists of both families called acl that do.
class Mirror : public testing::Test {
protected:
    Mirror()
    {
        world.add_vpn_list("l", 1);
        for (e_tarn_policy_type type : {TARN_POLICY_TYPE_DATA, TARN_POLICY_TYPE_PFR})
            world.add_policy(type, "p", {"l"});
        for (int af : {0, 1}) {
            strcpy(access_lists[af].key.name, "acl");
            access_lists[af].key.af_type = static_cast<e_tarn_af_type>(af);
            avl_tree_t *p_tree = af == 0 ? &world.tarn.access_list_db : &world.tarn.access_list6_db;
            EXPECT_EQ(avl_insert(p_tree, &access_lists[af]), 0);
        }
        EXPECT_EQ(tarn_config_mirror_add(&world.tarn, "m", nullptr, nullptr), 0);
        p_mirror = tarn_mirror_find(&world.tarn, "m");
        data_rule = world.add_rule(TARN_POLICY_TYPE_DATA, "p", "l", 10);
        pfr_rule = world.add_rule(TARN_POLICY_TYPE_PFR, "p", "l", 10);
        EXPECT_EQ(tarn_mirror_ref_take(p_mirror, TARN_BIND_TYPE_INTF, "acl", ""), 0);
    }

    ~Mirror() override
    {
        avl_remove(&world.tarn.access_list_db, &access_lists[0]);
        avl_remove(&world.tarn.access_list6_db, &access_lists[1]);
    }

    // Users marked since the last call: d data policy and context, a application-route, 4 and 6 access lists.
    std::string marked()
    {
        std::string text;
        auto take = [&](uint8_t *p_flag, const char *name) { text += std::exchange(*p_flag, 0) ? name : ""; };
        take(&data_rule->policy->changed, "d");
        take(&data_rule->vpn_list->changed, "d");
        take(&pfr_rule->policy->changed, "a");
        take(&pfr_rule->vpn_list->changed, "a");
        take(&access_lists[0].changed, "4");
        take(&access_lists[1].changed, "6");
        return text;
    }

    // The tunnel's addresses by their first byte.
    static t_tarn_mirror_tunnel tunnel(uint8_t src, uint8_t dst, e_fp_af_type type = FP_AF_INET)
    {
        t_tarn_mirror_tunnel ends = {};
        ends.src_ip = {{src}, type};
        ends.dst_ip = {{dst}, type};
        return ends;
    }

    std::string destinations() const
    {
        std::string text;
        for (const t_dlnode *p = p_mirror->tunnel_list.p_head; p != nullptr; p = p->p_next) {
            const auto *p_tunnel = reinterpret_cast<const t_tarn_mirror_tunnel_config *>(p);
            text += std::to_string(p_tunnel->src_ip.addr[0]) + ">" +
                    std::to_string(p_tunnel->dst_ip.addr[0]) + "." +
                    std::to_string(p_tunnel->dst_ip.addr[15]) + " ";
        }
        return text;
    }

    t_tarn_access_list access_lists[2] = {};
    PassWorld world;
    t_tarn_mirror_config *p_mirror;
    t_tarn_config_rule *data_rule, *pfr_rule;
};

static const char eth1[TARN_NAME_SIZE] = "eth1", eth2[TARN_NAME_SIZE] = "eth2";

TEST_F(Mirror, MarksItsUsersButNotForAnInterfaceThatGoes)
{
    t_tarn *p_tarn = &world.tarn;
    world.add_action(pfr_rule, TARN_ACTION_TAG_MIRROR, "m");  // entered as the data policy of that name
    marked();
    t_tarn_mirror_tunnel first = tunnel(1, 2), second = tunnel(3, 2), third = tunnel(9, 8);
    EXPECT_EQ(tarn_config_mirror_add(p_tarn, "m", nullptr, nullptr), 0);
    EXPECT_EQ(marked(), "");
    EXPECT_EQ(p_mirror->mirror_type, 0);
    EXPECT_EQ(tarn_config_mirror_add(p_tarn, "m", eth1, nullptr), 0);
    EXPECT_EQ(marked(), "dd46");
    EXPECT_EQ(p_mirror->mirror_type, 1);
    EXPECT_EQ(tarn_config_mirror_add(p_tarn, "m", nullptr, &first), 0);
    EXPECT_EQ(marked(), "dd46");
    EXPECT_EQ(p_mirror->mirror_type, 3);
    EXPECT_EQ(tarn_config_mirror_add(p_tarn, "m", nullptr, &third), 0);
    marked();
    EXPECT_EQ(tarn_config_mirror_change(p_tarn, "m", nullptr, &second), 0);
    EXPECT_EQ(marked(), "dd46");
    EXPECT_EQ(destinations(), "3>2.0 9>8.0 ") << "the first one's addresses";

    EXPECT_EQ(tarn_config_mirror_delete(p_tarn, "m", eth2, nullptr), 0);
    EXPECT_EQ(p_mirror->intf_list.count, 1);
    EXPECT_EQ(tarn_config_mirror_delete(p_tarn, "m", eth1, nullptr), 0);
    EXPECT_EQ(p_mirror->intf_list.count, 0);
    EXPECT_EQ(marked(), "");
    EXPECT_EQ(tarn_config_mirror_delete(p_tarn, "m", nullptr, &first), 0);
    EXPECT_EQ(tarn_config_mirror_delete(p_tarn, "m", nullptr, &third), 0);
    EXPECT_EQ(marked(), "dd46");
    EXPECT_EQ(destinations(), "");
    EXPECT_EQ(p_mirror->mirror_type, 3) << "the type stays";
    EXPECT_EQ(tarn_config_mirror_add(p_tarn, "m", nullptr, &first), 0);
    EXPECT_EQ(p_mirror->mirror_type, 2);
}

TEST_F(Mirror, TunnelsAreFoundByTheFirst32BitsOfTheDestination)
{
    t_tarn_mirror_tunnel first = tunnel(1, 0x20, FP_AF_INET6), second = first, v4 = tunnel(2, 0x20);
    second.dst_ip.addr[15] = 7;
    for (const t_tarn_mirror_tunnel *p_tunnel : {&v4, &first, &second})
        EXPECT_EQ(tarn_config_mirror_add(&world.tarn, "m", nullptr, p_tunnel), 0);
    EXPECT_EQ(tarn_config_mirror_delete(&world.tarn, "m", nullptr, &second), 0);
    EXPECT_EQ(destinations(), "2>32.0 1>32.7 ");
}

TEST_F(Mirror, StatusesAndUses)
{
    t_tarn_mirror_tunnel ends = tunnel(1, 2);
    EXPECT_EQ(tarn_config_mirror_add(&world.tarn, nullptr, nullptr, nullptr), EBADMSG);
    EXPECT_EQ(tarn_config_mirror_change(&world.tarn, "none", nullptr, nullptr), ENOENT);
    EXPECT_EQ(tarn_config_mirror_change(&world.tarn, "m", eth1, nullptr), ENOENT);
    EXPECT_EQ(tarn_config_mirror_change(&world.tarn, "m", nullptr, &ends), ENOENT);
    EXPECT_EQ(tarn_config_mirror_delete(&world.tarn, "none", nullptr, nullptr), ENOENT);
    EXPECT_EQ(tarn_mirror_ref_change(nullptr, &world.tarn, nullptr), EBADMSG);

    world.add_action(data_rule, TARN_ACTION_TAG_MIRROR, "m");
    world.add_action(pfr_rule, TARN_ACTION_TAG_MIRROR, "m");
    EXPECT_EQ(avl_numnodes(&p_mirror->ref_db), 2u);
    EXPECT_EQ(static_cast<t_tarn_mirror_ref *>(avl_first(&p_mirror->ref_db))->ref_count, 2);
    world.delete_rule(pfr_rule);
    EXPECT_EQ(static_cast<t_tarn_mirror_ref *>(avl_first(&p_mirror->ref_db))->ref_count, 1);
    world.delete_rule(data_rule);
    tarn_mirror_ref_give(p_mirror, TARN_BIND_TYPE_INTF, "acl", "");
    EXPECT_EQ(avl_numnodes(&p_mirror->ref_db), 0u);
    EXPECT_EQ(tarn_config_mirror_delete(&world.tarn, "m", nullptr, nullptr), 0);
    EXPECT_EQ(tarn_mirror_find(&world.tarn, "m"), nullptr);
}
