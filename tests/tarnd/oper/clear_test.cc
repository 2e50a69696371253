// Clears against programs in shared memory: each makes zeros of what it names, and of nothing else.
#include <gtest/gtest.h>

#include <csignal>

#include "tarnd/acl/tarn_access_list_lists.h"
#include "tarnd/compiler/tarn_program.h"
#include "tarnd/oper/tarn_clear.h"
#include "tarnd/oper/tarn_oper_private.h"
#include "tests/tarnd/oper/show_world.h"

using f_action = decltype(confd_action_cbs::action);

namespace {

// The rules of show_world.h, and a second data policy with some.
class ClearWorld : public ShowWorld {
public:
    ClearWorld();

    // Runs an action on `name`, all for null: the names of what is zero then. All count again after it.
    std::string cleared(f_action action, const char *name);

    t_tarn_policy_vpn_list *p_d1;

private:
    std::vector<std::pair<std::string, void *>> programs;
};

}  // namespace

ClearWorld::ClearWorld()
{
    add_objects();
    add_policy(TARN_POLICY_TYPE_DATA, "d3", {"v2"});
    t_tarn_config_rule *p_rule = add_rule(TARN_POLICY_TYPE_DATA, "d3", "v2", 10);
    add_action(p_rule, TARN_ACTION_TAG_COUNT, "c1");
    add_action(p_rule, TARN_ACTION_TAG_POLICER, "pol");
    pass();
    load();
    p_d1 = context(TARN_POLICY_TYPE_DATA, "d1", "v1");
    auto program = [](auto *p_list) { return tarn_oper_program(p_list->filter_id); };
    programs = {{"d1", program(p_d1)},
                {"d3", program(p_rule->vpn_list)},
                {"a1", program(context(TARN_POLICY_TYPE_PFR, "a1", "v1"))},
                {"z1", program(context(TARN_POLICY_TYPE_ZBF, "z1", TARN_ZBF_VPN_LIST))},
                {"l1", program(tarn_access_list_find(&tarn, "l1", TARN_AF_TYPE_IPV4))},
                {"l1/6", program(tarn_access_list_find(&tarn, "l1", TARN_AF_TYPE_IPV6))}};
}

static void count_again(void *action_data, t_fp_policer *)
{
    auto *p_slots = static_cast<t_tarn_filter_action *>(action_data);
    for (t_tarn_filter_action *p = p_slots; p < p_slots + MAX_ACTIONS_IN_RULE; p++) {
        if (p->fwding_action == TARN_FILTER_ACTION_COUNT)
            p->counter.pkts[p->counter.version] = 7;
        if (p->fwding_action == TARN_FILTER_ACTION_POLICE)
            p->policer.oob_pkts[p->policer.version] = 3;
    }
}

std::string ClearWorld::cleared(f_action action, const char *name)
{
    confd_user_info user = {1, {&dx}};
    t_change params;
    if (name != nullptr)
        params = {leaf(LUMORA_TAG_POLICY, u32(1)), leaf(LUMORA_TAG_NAME, text(name))};
    EXPECT_EQ(action(&user, nullptr, nullptr, params.data(), static_cast<int>(params.size())), 0);
    std::string names;
    for (const auto &[program_name, p_program] : programs) {
        int64_t counted = -1, policed = -1, bytes;
        tarn_program_get_counter(p_program, "c1", &counted, &bytes);
        tarn_program_get_policer(p_program, "10.pol", &policed, &bytes);
        EXPECT_TRUE((counted == 0) == (policed == 0) || program_name == "a1" || program_name == "z1");
        if (counted == 0)
            names += (names.empty() ? "" : " ") + program_name;
        tarn_change_policer(p_program, nullptr, count_again);
    }
    return names;
}

TEST(Clear, WhatIsNamedAndNothingElse)
{
    static const struct {
        f_action action;
        const char *name;
        const char *want;
    } cases[] = {
        {tarn_clear_data_policy, nullptr, "d1 d3"}, {tarn_clear_data_policy, "d3", "d3"},
        {tarn_clear_data_policy, "none", ""},       {tarn_clear_data_policy, "z1", ""},
        {tarn_clear_data_policy, "", ""},           {tarn_clear_app_route_policy, nullptr, "a1"},
        {tarn_clear_app_route_policy, "a1", "a1"},  {tarn_clear_zonepair_policy, nullptr, "z1"},
        {tarn_clear_zonepair_policy, "z1", "z1"},   {tarn_clear_policy_acl, nullptr, "l1"},
        {tarn_clear_policy_acl, "l1", "l1"},        {tarn_clear_policy_acl, "l2", ""},
        {tarn_clear_policy_acl6, nullptr, "l1/6"},  {tarn_clear_policy_acl6, "l1", "l1/6"},
    };
    ClearWorld world;
    for (const auto &c : cases)
        EXPECT_EQ(world.cleared(c.action, c.name), c.want) << c.want << " by " << (c.name ? c.name : "all");
    EXPECT_EQ(tarn_clear_policy(&world.tarn, TARN_POLICY_TYPE_DATA, "none"), 2);
    EXPECT_EQ(tarn_clear_acl(&world.tarn, "none", TARN_AF_TYPE_IPV6), 2);

    // Without a program in force: unbound, and waiting for memory.
    for (int unloaded : {-1, RETRY_ID}) {
        int loaded = std::exchange(world.p_d1->filter_id, unloaded);
        EXPECT_EQ(world.cleared(tarn_clear_data_policy, nullptr), "d3");
        world.p_d1->filter_id = loaded;
    }
}

TEST(ClearDeathTest, ANameThatIsNoText)
{
    t_lconfd_context context = {};
    confd_daemon_ctx daemon = {nullptr, &context};
    confd_user_info user = {1, {&daemon}};
    confd_tag_value_t param = leaf(LUMORA_TAG_NAME, u32(1));
    EXPECT_EXIT(tarn_clear_policy_acl(&user, nullptr, nullptr, &param, 1), testing::KilledBySignal(SIGSEGV),
                "");
}
