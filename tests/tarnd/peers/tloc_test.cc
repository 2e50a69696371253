#include "tarnd/config/tarn_process.h"
#include "tarnd/config/tarn_rule.h"
#include "tarnd/core/tarn.h"
#include "tarnd/peers/tarn_ttm.h"

#include "platform/ttm/ttm.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <vector>

static int passes;

int tarn_process_config(t_tarn *)
{
    passes++;
    return 0;
}

static t_tloc_id tloc_id(uint32_t host_address, uint8_t color = 3, uint8_t encap = 2)
{
    t_tloc_id id = {};
    IPADDR_SET_V4(&id.addr, host_address);
    id.color = color;
    id.encap = encap;
    return id;
}

// A rule of a policy on a VPN list.
struct t_owned_rule {
    t_tarn_policy policy = {};
    t_tarn_policy_vpn_list vpn_list = {};
    t_tarn_config_rule rule = {};

    explicit t_owned_rule(uint32_t id = 10, const char *policy_name = "p",
                          e_tarn_policy_type type = TARN_POLICY_TYPE_DATA)
    {
        strcpy(policy.key.name, policy_name);
        policy.key.type = type;
        rule.key.id = id;
        strcpy(rule.key.name, "list");
        rule.policy = &policy;
        rule.vpn_list = &vpn_list;
        avl_create(&rule.tloc_ctx_db, tarn_rule_tloc_ctx_cmp, sizeof(t_tarn_config_rule_tloc_ctx),
                   offsetof(t_tarn_config_rule_tloc_ctx, ctx_avl_node));
    }

    bool take_marks()
    {
        bool marked = policy.changed && vpn_list.changed;
        EXPECT_EQ(policy.changed, vpn_list.changed);
        policy.changed = vpn_list.changed = 0;
        return marked;
    }
};

struct TlocTest : testing::Test {
    t_tarn tarn = {};

    TlocTest()
    {
        passes = 0;
        avl_create(&tarn.tloc_db, tarn_tloc_key_cmp, sizeof(t_tarn_tloc), offsetof(t_tarn_tloc, avl_node));
    }

    ~TlocTest() override
    {
        avl_destroy_nodes(&tarn.tloc_db, free);
    }

    t_tarn_tloc *find(uint32_t host_address)
    {
        t_tarn_tloc key = {};
        key.tloc = tloc_id(htonl(host_address));
        return static_cast<t_tarn_tloc *>(avl_find(&tarn.tloc_db, &key));
    }
};

static constexpr uint32_t address = 0x0a000001;

static t_ttm_tloc_msg announcement(uint32_t preference = 100, uint8_t origin = TTM_TLOC_ORIGIN_REMOTE)
{
    t_ttm_tloc_msg msg = {};
    msg.tloc = tloc_id(address);
    msg.tloc_origin = origin;
    msg.tloc_status = TTM_TLOC_STATUS_UP;
    msg.tloc_index = 7;
    msg.attr.preference = preference;
    msg.attr.weight = 1;
    return msg;
}

TEST_F(TlocTest, EachMessageRunsOnePassOrNone)
{
    struct t_step {
        const char *behaviour;
        bool is_add;
        t_ttm_tloc_msg msg;
        int passes;  // and marks
        int resolved;
        int local;
    };
    t_ttm_tloc_msg status = announcement(101, TTM_TLOC_ORIGIN_LOCAL);
    status.tloc_status = TTM_TLOC_STATUS_DOWN;
    t_ttm_tloc_msg wide_status = status;
    wide_status.tloc_status = static_cast<e_ttm_tloc_status>(0x102);
    t_ttm_tloc_msg index = status;
    index.tloc_index = -1;
    t_ttm_tloc_msg weight = index;
    weight.attr.weight = 0xffffffff;
    const t_step steps[] = {
        {"the configuration named it first", true, announcement(), 1, 1, 0},
        {"identical", true, announcement(), 0, 1, 0},
        {"local alone", true, announcement(100, TTM_TLOC_ORIGIN_LOCAL), 0, 1, 1},
        {"preference", true, announcement(101, TTM_TLOC_ORIGIN_LOCAL), 1, 1, 1},
        {"status", true, status, 1, 1, 1},
        {"status, low byte alike", true, wide_status, 0, 1, 1},
        {"index", true, index, 1, 1, 1},
        {"weight", true, weight, 1, 1, 1},
        {"withdrawn", false, weight, 1, 0, 1},
        {"again, with equal fields", true, weight, 1, 1, 1},
    };
    t_owned_rule rules[2] = {t_owned_rule(10), t_owned_rule(20)};
    t_tloc_id key = tloc_id(htonl(address));
    t_tarn_tloc *p_tloc = nullptr;
    for (t_owned_rule &rule : rules)
        p_tloc = tarn_tloc_take(&tarn, &key, &rule.rule);
    ASSERT_EQ(p_tloc, find(address));
    EXPECT_EQ(p_tloc->resolved, 0);
    for (const t_step &step : steps) {
        passes = 0;
        EXPECT_EQ((step.is_add ? tarn_tloc_add : tarn_tloc_delete)(&tarn, &step.msg), 0) << step.behaviour;
        EXPECT_EQ(passes, step.passes) << step.behaviour;
        for (t_owned_rule &rule : rules)
            EXPECT_EQ(rule.take_marks(), step.passes == 1) << step.behaviour;
        EXPECT_EQ(p_tloc->resolved, step.resolved) << step.behaviour;
        EXPECT_EQ(p_tloc->local, step.local) << step.behaviour;
    }
    EXPECT_EQ(p_tloc->weight, 0xffffffffu);
    EXPECT_EQ(p_tloc->tloc_index, -1);
    for (t_owned_rule &rule : rules)
        tarn_tloc_give(&tarn, p_tloc, &rule.rule);
    EXPECT_EQ(find(address), p_tloc) << "announced ones stay";
    EXPECT_EQ(tarn_tloc_delete(&tarn, &weight), 0);
    EXPECT_EQ(find(address), nullptr);
}

TEST_F(TlocTest, RecordsThatNoRuleNames)
{
    t_ttm_tloc_msg v6 = announcement();
    v6.tloc.addr.addr_type = IP_ADDR_V6;
    EXPECT_EQ(tarn_tloc_add(&tarn, &v6), 74);
    EXPECT_EQ(tarn_tloc_delete(&tarn, &v6), 74);
    t_ttm_tloc_msg unknown = announcement();
    EXPECT_EQ(tarn_tloc_delete(&tarn, &unknown), 0);
    t_ttm_tloc_msg zeros = {};
    zeros.tloc = tloc_id(address);
    EXPECT_EQ(tarn_tloc_add(&tarn, &zeros), 0);
    EXPECT_EQ(passes, 0);
    ASSERT_NE(find(address), nullptr);
    EXPECT_EQ(find(address)->resolved, 1);
    EXPECT_EQ(tarn_tloc_delete(&tarn, &zeros), 0);
    EXPECT_EQ(passes, 0);
    EXPECT_EQ(avl_numnodes(&tarn.tloc_db), 0u);
    t_ttm_tloc_msg fresh = announcement();
    EXPECT_EQ(tarn_tloc_add(&tarn, &fresh), 0);
    EXPECT_EQ(passes, 1) << "values that aren't zero are a change, named or not";
}

TEST_F(TlocTest, CountsOnBothSidesFallTogether)
{
    t_owned_rule a(10, "a");
    t_owned_rule b(10, "b");
    t_owned_rule c(10, "a", TARN_POLICY_TYPE_PFR);
    t_tloc_id key = tloc_id(htonl(address));
    t_tarn_tloc *p_tloc = tarn_tloc_take(&tarn, &key, &a.rule);
    EXPECT_EQ(tarn_tloc_take(&tarn, &key, &a.rule), p_tloc);
    EXPECT_EQ(tarn_tloc_take(&tarn, &key, &b.rule), p_tloc);
    EXPECT_EQ(tarn_tloc_take(&tarn, &key, &c.rule), p_tloc);
    t_tloc_id other_color = tloc_id(htonl(address), 4);
    t_tarn_tloc *p_other = tarn_tloc_take(&tarn, &other_color, &a.rule);
    EXPECT_NE(p_other, p_tloc);
    EXPECT_EQ(avl_numnodes(&a.rule.tloc_ctx_db), 2u);
    EXPECT_EQ(avl_numnodes(&p_tloc->rule_ctx_db), 3u);
    tarn_tloc_give(&tarn, p_tloc, &a.rule);
    EXPECT_EQ(avl_numnodes(&p_tloc->rule_ctx_db), 3u);
    tarn_tloc_give(&tarn, p_tloc, &a.rule);
    EXPECT_EQ(avl_numnodes(&p_tloc->rule_ctx_db), 2u);
    tarn_tloc_give(&tarn, p_tloc, &b.rule);
    tarn_tloc_give(&tarn, p_other, &a.rule);
    EXPECT_EQ(avl_numnodes(&tarn.tloc_db), 1u);
    tarn_tloc_give(&tarn, p_tloc, &c.rule);
    EXPECT_EQ(avl_numnodes(&tarn.tloc_db), 0u) << "unresolved, named by none";
    EXPECT_EQ(avl_numnodes(&a.rule.tloc_ctx_db), 0u);
}

TEST_F(TlocTest, AChangeNeedsItsRule)
{
    t_tarn_tloc_rule_ctx without_rule = {};
    EXPECT_EQ(tarn_process_tloc_change(nullptr, &tarn, nullptr), 74);
    EXPECT_EQ(tarn_process_tloc_change(&without_rule, nullptr, nullptr), 74);
    EXPECT_EQ(tarn_process_tloc_change(&without_rule, &tarn, nullptr), 74);
}
