// The pass: what is compiled again after a change, what reaches FTM, and what the rules take anew.
#include <gtest/gtest.h>

#include <arpa/inet.h>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <utility>

#include "fp_api/fp_tables.h"
#include "lconfd/lconfd_api.h"
#include "platform/confd/confd_lib.h"
#include "platform/ttm/ttm.h"
#include "tarnd/compiler/tarn_ruletable.h"
#include "tarnd/config/tarn_app_list.h"
#include "tarnd/config/tarn_pfx_list.h"
#include "tarnd/config/tarn_process.h"
#include "tarnd/config/tarn_tloc_list.h"
#include "tarnd/peers/tarn_ttm.h"
#include "tests/tarnd/config/pass_world.h"

using t_texts = std::vector<std::string>;

static constexpr e_tarn_policy_type DATA = TARN_POLICY_TYPE_DATA;
static constexpr e_tarn_policy_type PFR = TARN_POLICY_TYPE_PFR;
static constexpr e_tarn_policy_type ZBF = TARN_POLICY_TYPE_ZBF;

// ---- A rule table that finds no memory ----

static int g_tables_left = -1;  // until one fails; below 0: none does

using f_create = t_tarn_ruletable *(const char *, const char *, uint32_t, const void *);
f_create real_create asm("__real__Z21tarn_ruletable_createPKcS0_jPKv");
f_create wrap_create asm("__wrap__Z21tarn_ruletable_createPKcS0_jPKv");
t_tarn_ruletable *wrap_create(const char *name, const char *alias, uint32_t size, const void *data)
{
    return g_tables_left >= 0 && g_tables_left-- == 0 ? nullptr : real_create(name, alias, size, data);
}

// ---- A branch whose policies name something of every kind ----

static constexpr t_tarn_mirror_tunnel tunnel = {{{198, 51, 100, 1}, FP_AF_INET},
                                                {{198, 51, 100, 2}, FP_AF_INET}};
static char tap_intf[TARN_NAME_SIZE] = "ge0_1";

static void set_class(PassWorld *p_world, int (*operation)(t_tarn *, const t_tarn_class_params *),
                      const char *name)
{
    t_tarn_class_params params = {name, 3};
    EXPECT_EQ(operation(&p_world->tarn, &params), 0);
}

static t_tarn_policer_config policer(uint32_t burst)
{
    t_tarn_policer_config config = {};
    strcpy(config.key.name, "slow");
    config.key.type = TARN_POLICY_POLICER_TYPE_KEELSON;
    config.key.sequence_id = -1;
    config.bandwidth = 8000;
    config.burst = burst;
    return config;
}

static t_tarn_action_sla_class fast()
{
    t_tarn_action_sla_class value = {};
    strcpy(value.name, "fast");
    return value;
}

static void add_named_objects(PassWorld *p_world)
{
    p_world->add_vpn_list("A", 1);
    p_world->add_vpn_list("B", 2);
    p_world->add_vpn_list("C", 3);
    p_world->add_pfx_list("office", {"10.0.0.0/8", "172.16.0.0/12"});
    p_world->add_app_list("media", {"audio_video", "game"});
    set_class(p_world, tarn_class_add, "gold");
    EXPECT_EQ(tarn_sla_class_add(&p_world->tarn, "fast"), 0);
    EXPECT_EQ(tarn_config_mirror_add(&p_world->tarn, "tap", tap_intf, &tunnel), 0);
    t_tarn_policer_config slow = policer(1500);
    EXPECT_EQ(tarn_config_policer_add(&p_world->tarn, &slow), 0);
}

static void add_data_policy(PassWorld *p_world)
{
    p_world->add_policy(DATA, "data", {"A", "B", "C"});
    t_tarn_config_rule *p_rule = p_world->add_rule(DATA, "data", "A", 10);
    p_world->add_pfx_list_match(p_rule, TARN_FIELD_TYPE_SRC_PFX_LIST, "office");
    p_world->add_action(p_rule, TARN_ACTION_TAG_CLASS, "gold");
    p_rule = p_world->add_rule(DATA, "data", "B", 10);
    p_world->add_app_list_match(p_rule, TARN_FIELD_TYPE_DPI_APP_LIST, "media");
    p_world->add_action(p_rule, TARN_ACTION_TAG_MIRROR, "tap");
    p_world->add_action(p_rule, TARN_ACTION_TAG_POLICER, "slow");
    p_rule = p_world->add_rule(DATA, "data", "C", 10);
    p_world->add_pfx_list_match(p_rule, TARN_FIELD_TYPE_DST_PFX_LIST, "office");
    t_tarn_action_sla_class sla_class = fast();
    p_world->add_action(p_rule, TARN_ACTION_TAG_SLA_CLASS, &sla_class);
}

static void add_pfr_policy(PassWorld *p_world)
{
    p_world->add_policy(PFR, "pfr", {"A"});
    t_tarn_config_rule *p_rule = p_world->add_rule(PFR, "pfr", "A", 10);
    t_tarn_action_sla_class sla_class = fast();
    p_world->add_action(p_rule, TARN_ACTION_TAG_SLA_CLASS, &sla_class);
    p_world->add_action(p_rule, TARN_ACTION_TAG_MIRROR, "tap");
    EXPECT_EQ(tarn_vpn_list_add_to_policy(&p_world->tarn, PFR, "pfr", "B", TARN_FILTER_ACTION_ACCEPT, "fast"),
              0);
    p_world->add_rule(PFR, "pfr", "B", 10);
    EXPECT_EQ(
        tarn_vpn_list_add_to_policy(&p_world->tarn, PFR, "pfr", "C", TARN_FILTER_ACTION_ACCEPT, nullptr), 0);
    p_rule = p_world->add_rule(PFR, "pfr", "C", 10);
    p_world->add_action(p_rule, TARN_ACTION_TAG_CLASS, "gold");
}

static void load_branch(PassWorld *p_world)
{
    add_named_objects(p_world);
    add_data_policy(p_world);
    add_pfr_policy(p_world);
    p_world->pass();
}

// ---- Loading ----

TEST(Pass, OneCompilationForACommitThatCreatesEverything)
{
    PassWorld world;
    struct {
        void (*step)(PassWorld *);
        t_texts messages;
    } levels[] = {
        {[](PassWorld *p) {
             p->add_pfx_list("office", {"10.0.0.0/8", "172.16.0.0/12"});
         },
         {}},
        {[](PassWorld *p) { p->add_vpn_list("A", 7); }, {}},
        {[](PassWorld *p) { p->add_policy(DATA, "branch", {}); }, {}},
        {[](PassWorld *p) {
             EXPECT_EQ(tarn_vpn_list_add_to_policy(&p->tarn, DATA, "branch", "A", 2, nullptr), 0);
         },
         {}},
        {[](PassWorld *p) {
             for (uint32_t id : {30u, 10u, 20u})
                 p->add_pfx_list_match(p->add_rule(DATA, "branch", "A", id), TARN_FIELD_TYPE_SRC_PFX_LIST,
                                       "office");
         },
         {"+1 branch/7 #0"}},
        {[](PassWorld *) {}, {}},
    };
    for (const auto &level : levels) {
        level.step(&world);
        world.pass();
        EXPECT_EQ(world.messages(), level.messages) << "level " << &level - levels;
    }
    EXPECT_EQ(world.memory.allocations, 1);
    const t_tarn_ruletable *p_table = world.context(DATA, "branch", "A")->p_table;
    EXPECT_STREQ(p_table->name, "branch");
    EXPECT_STREQ(p_table->alias, "1A");
    std::string order;
    for (const t_tarn_rule *p_rule = p_table->rules; p_rule != nullptr; p_rule = p_rule->r_next)
        order += std::string(p_rule->r_name) + " ";
    EXPECT_EQ(order, "10 20 30 ");
}

TEST(Pass, ExactlyTheUsersOfAChangedObjectAreCompiledAgain)
{
    static const t_texts nobody;
    static const struct {
        const char *behaviour;
        void (*change)(PassWorld *);
        t_texts messages;
    } cases[] = {
        {"a prefix list: its users once, however many members",
         [](PassWorld *p) {
             p->add_prefix("office", "192.0.2.0/24");
             p->delete_prefix("office", "10.0.0.0/8");
         },
         {"-1 data/1 #0", "+1 data/1 #6", "-1 data/3 #2", "+1 data/3 #7"}},
        {"a local list of that name",
         [](PassWorld *p) {
             confd_ipv4_prefix prefix = test_prefix("10.0.0.0/8");
             EXPECT_EQ(tarn_config_pfx_list_add(&p->tarn, "office", TARN_POLICY_PFX_LIST_TYPE_LOCAL), 0);
             EXPECT_EQ(tarn_config_ip_pfx_add(&p->tarn, "office", TARN_POLICY_PFX_LIST_TYPE_LOCAL, &prefix),
                       0);
             EXPECT_EQ(tarn_config_pfx_list_change(&p->tarn, "office", TARN_POLICY_PFX_LIST_TYPE_LOCAL), 0);
             EXPECT_EQ(tarn_config_app_list_add(&p->tarn, "media", TARN_DPI_KEY_LOC_LOCAL), 0);
             EXPECT_EQ(tarn_config_app_list_change(&p->tarn, "media", TARN_DPI_KEY_LOC_LOCAL), 0);
         },
         nobody},
        {"an application list",
         [](PassWorld *p) { p->add_app("media", "web"); },
         {"-1 data/2 #1", "+1 data/2 #6"}},
        {"a class: policies of every type",
         [](PassWorld *p) { set_class(p, tarn_class_modify, "gold"); },
         {"-1 data/1 #0", "+1 data/1 #6", "-2 pfr/3 #5", "+2 pfr/3 #7"}},
        {"a class deleted and made again: once",
         [](PassWorld *p) {
             set_class(p, tarn_class_delete, "gold");
             set_class(p, tarn_class_add, "gold");
         },
         {"-1 data/1 #0", "+1 data/1 #6", "-2 pfr/3 #5", "+2 pfr/3 #7"}},
        {"a class that nobody names", [](PassWorld *p) { set_class(p, tarn_class_add, "golden"); }, nobody},
        {"an SLA class: application-route policies alone, by rule and by default action",
         [](PassWorld *p) { EXPECT_EQ(tarn_sla_class_delete(&p->tarn, "fast"), 0); },
         {"-2 pfr/1 #3", "+2 pfr/1 #6", "-2 pfr/2 #4", "+2 pfr/2 #7"}},
        {"a mirror: data policies alone",
         [](PassWorld *p) { EXPECT_EQ(tarn_config_mirror_change(&p->tarn, "tap", nullptr, &tunnel), 0); },
         {"-1 data/2 #1", "+1 data/2 #6"}},
        {"an interface taken off a mirror",
         [](PassWorld *p) { EXPECT_EQ(tarn_config_mirror_delete(&p->tarn, "tap", tap_intf, nullptr), 0); },
         nobody},
        {"a policer, whose change is written into the program",
         [](PassWorld *p) {
             t_tarn_policer_config slow = policer(3000);
             EXPECT_EQ(tarn_config_policer_change(&p->tarn, POLICER_BURST, &slow), 0);
             EXPECT_EQ(p->policer_changes, std::vector<int>{1});
         },
         nobody},
        {"a sequence", [](PassWorld *p) { p->add_rule(PFR, "pfr", "B", 5); }, {"-2 pfr/2 #4", "+2 pfr/2 #6"}},
        {"a default action",
         [](PassWorld *p) {
             EXPECT_EQ(tarn_policy_vpn_list_change(&p->tarn, DATA, "data", "C", 1, nullptr), 0);
         },
         {"-1 data/3 #2", "+1 data/3 #6"}},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.behaviour);
        PassWorld world;
        load_branch(&world);
        EXPECT_EQ(world.messages(), (t_texts{"+1 data/1 #0", "+1 data/2 #1", "+1 data/3 #2", "+2 pfr/1 #3",
                                             "+2 pfr/2 #4", "+2 pfr/3 #5"}));
        auto ids = world.filter_ids();
        c.change(&world);
        world.pass();
        EXPECT_EQ(world.messages(), c.messages);
        EXPECT_EQ(world.memory.allocations, 6 + static_cast<int>(c.messages.size()) / 2);
        size_t kept = 0;
        for (const auto &[name, id] : world.filter_ids())
            kept += ids.at(name) == id;
        EXPECT_EQ(kept, 6 - c.messages.size() / 2) << "siblings keep their filters";
    }
}

TEST(Pass, TheLastRuleGoneUnbindsAndANewOneBindsAgain)
{
    PassWorld world;
    world.add_vpn_list("A", 1);
    world.add_policy(DATA, "branch", {"A"});
    t_tarn_config_rule *p_rule = world.add_rule(DATA, "branch", "A", 10);
    world.pass();
    world.delete_rule(p_rule);
    world.pass();
    EXPECT_EQ(world.messages(), (t_texts{"+1 branch/1 #0", "-1 branch/1 #0"}));
    world.add_rule(DATA, "branch", "A", 10);
    world.pass();
    EXPECT_EQ(world.messages(), t_texts{"+1 branch/1 #1"});
}

TEST(Pass, ZoneBasedProgramsAreLeftToTheZones)
{
    PassWorld world;
    EXPECT_EQ(tarn_policy_add(&world.tarn, ZBF, "zones", TARN_POLICY_DIR_ALL, 2), 0);
    world.add_rule(ZBF, "zones", TARN_ZBF_VPN_LIST, 1);
    world.tarn.process_zbf_config = 0;
    t_fp_zbf_pair_record leftover = {};
    world.store.global_ctrl->zbf_pair_free_list = &leftover;
    world.pass();
    EXPECT_EQ(world.store.global_ctrl->zbf_pair_free_list, nullptr) << "the table of pairs is built again";
    EXPECT_EQ(world.tarn.process_zbf_config, 0);
    EXPECT_EQ(world.context(ZBF, "zones", TARN_ZBF_VPN_LIST)->filter_id, 0);
    EXPECT_EQ(world.context(ZBF, "zones", TARN_ZBF_VPN_LIST)->filter_type, TARN_FILTER_ZBF);
    EXPECT_EQ(world.messages(), t_texts{});
}

// ---- What rules take anew ----

static t_tarn_config_action *action_of(const t_tarn_policy_vpn_list *p_vpn_list, uint32_t fwding_action)
{
    auto *p_rule = DLL_RECORD(p_vpn_list->rule_list.p_head, t_tarn_config_rule, dlnode);
    for (t_dlnode *p_link = p_rule->action_list.p_head; p_link != nullptr; p_link = p_link->p_next) {
        auto *p_action = DLL_RECORD(p_link, t_tarn_config_action, dlnode);
        if (p_action->fwding_action == fwding_action)
            return p_action;
    }
    return nullptr;
}

TEST(Pass, AClassIsFoundByNameAtEachRebuild)
{
    PassWorld world;
    load_branch(&world);
    const t_tarn_class &fc = action_of(world.context(DATA, "data", "A"), TARN_FILTER_ACTION_CLASS)->fc;
    EXPECT_EQ(fc._class, 1);
    set_class(&world, tarn_class_delete, "gold");
    EXPECT_EQ(fc.ignore, 0) << "until the pass";
    world.pass();
    EXPECT_EQ(fc.ignore, 1);
    set_class(&world, tarn_class_add, "silver");
    set_class(&world, tarn_class_add, "gold");
    world.pass();
    EXPECT_EQ(fc.ignore, 0);
    EXPECT_EQ(fc._class, 2) << "the other took its number";
}

TEST(Pass, AnSlaClassThatHasGoneCostsRulesTheirIdAndDefaultActionsNothing)
{
    PassWorld world;
    load_branch(&world);
    const auto &by_rule = action_of(world.context(PFR, "pfr", "A"), TARN_FILTER_ACTION_SLA_CLASS)->sla_class;
    const auto &by_default = world.context(PFR, "pfr", "B")->default_action->sla_class;
    const auto &of_data =
        action_of(world.context(DATA, "data", "C"), TARN_FILTER_ACTION_SLA_CLASS)->sla_class;
    EXPECT_EQ(tarn_sla_class_delete(&world.tarn, "fast"), 0);
    EXPECT_EQ(by_rule.id, 1) << "the old id goes round, not 0";
    world.pass();
    EXPECT_EQ(by_rule.id, 0);
    EXPECT_EQ(by_default.id, 1);
    EXPECT_EQ(of_data.id, 1);
    EXPECT_EQ(tarn_sla_class_add(&world.tarn, "other"), 0);
    EXPECT_EQ(tarn_sla_class_add(&world.tarn, "fast"), 0);
    EXPECT_EQ(by_rule.id, 2) << "written at once";
    EXPECT_EQ(by_default.id, 2);
}

static t_tarn_tloc_elem tloc_element(uint32_t number, uint32_t preference)
{
    t_tarn_tloc_elem element = {};
    element.list_num = number;
    IPADDR_SET_V4(&element.tloc.addr, 0x0a000000 + number);
    element.vpn_label = 100 + number;
    element.preference = preference;
    return element;
}

TEST(Pass, ATlocListIsReadAnewAndItsTlocsGoWithIt)
{
    PassWorld world;
    world.add_vpn_list("A", 1);
    world.add_policy(DATA, "data", {"A"});
    t_tarn_vpn_list_key2 key = {"A", "data", DATA};
    t_tarn_tloc_list *p_list = tarn_tloc_list_find_or_make(&world.tarn, &key, 10);
    for (uint32_t number : {1u, 2u}) {
        t_tarn_tloc_elem element = tloc_element(number, 5);
        EXPECT_EQ(tarn_tloc_list_elem_add(p_list, &element), 0);
    }
    const t_tarn_config_rule *p_rule = world.add_rule(DATA, "data", "A", 10);
    const t_tarn_config_action *p_action = world.add_action(p_rule, TARN_ACTION_TAG_TLOC_LIST, nullptr);
    world.pass();
    EXPECT_EQ(p_action->num_tlocs, 2u);

    t_tarn_tloc_elem preferred = tloc_element(3, 9);
    EXPECT_EQ(tarn_tloc_list_elem_add(p_list, &preferred), 0);
    EXPECT_EQ(tarn_tloc_list_elem_delete(&world.tarn, p_list, 1), 0);
    p_rule->policy->changed = p_rule->vpn_list->changed = 1;
    world.pass();
    EXPECT_EQ(p_action->num_tlocs, 2u);
    EXPECT_EQ(p_action->tloc_config[0].vpn_label, 103u);
    EXPECT_EQ(p_action->tloc_config[1].vpn_label, 102u);
    EXPECT_EQ(avl_numnodes(&world.tarn.tloc_db), 2u);

    for (uint32_t number : {2u, 3u})
        EXPECT_EQ(tarn_tloc_list_elem_delete(&world.tarn, p_list, number), 0);
    p_rule->policy->changed = p_rule->vpn_list->changed = 1;
    world.pass();
    EXPECT_EQ(p_action->num_tlocs, 0u);
    EXPECT_EQ(avl_numnodes(&world.tarn.tloc_db), 0u);
}

// Three contexts name the locator, one of them by a list; each announcement runs the pass by itself.
TEST(Pass, ALocatorThatChangesCompilesItsUsersOnce)
{
    PassWorld world;
    load_branch(&world);
    t_tarn_tloc_elem element = tloc_element(1, 5);
    t_tarn_vpn_list_key2 key = {"C", "data", DATA};
    t_tarn_tloc_list *p_list = tarn_tloc_list_find_or_make(&world.tarn, &key, 20);
    EXPECT_EQ(tarn_tloc_list_elem_add(p_list, &element), 0);
    world.add_action(world.add_rule(DATA, "data", "C", 20), TARN_ACTION_TAG_TLOC_LIST, nullptr);
    t_tarn_tloc_args args = {element.tloc, 101};
    world.add_action(world.add_rule(DATA, "data", "A", 20), TARN_ACTION_TAG_TLOC, &args);
    world.add_action(world.add_rule(PFR, "pfr", "B", 20), TARN_ACTION_TAG_TLOC, &args);
    world.pass();
    world.messages();
    world.memory.release();

    t_ttm_tloc_msg known = {};
    IPADDR_SET_V4(&known.tloc.addr, ntohl(0x0a000001));
    known.tloc_status = TTM_TLOC_STATUS_UP;
    t_ttm_tloc_msg down = known;
    down.tloc_status = TTM_TLOC_STATUS_DOWN;
    t_ttm_tloc_msg other = known;
    other.tloc.color = 9;
    const struct {
        const char *behaviour;
        int (*tell)(t_tarn *, const t_ttm_tloc_msg *);
        t_ttm_tloc_msg msg;
        bool users;
    } steps[] = {
        {"announced", tarn_tloc_add, known, true},
        {"again, unchanged", tarn_tloc_add, known, false},
        {"down", tarn_tloc_add, down, true},
        {"one that nobody names", tarn_tloc_add, other, false},
        {"gone again", tarn_tloc_delete, other, false},
        {"withdrawn", tarn_tloc_delete, down, true},
    };
    for (const auto &step : steps) {
        SCOPED_TRACE(step.behaviour);
        auto before = world.filter_ids();
        EXPECT_EQ(step.tell(&world.tarn, &step.msg), 0);
        auto after = world.filter_ids();
        t_texts expected;
        for (const auto &[name, text] : {std::pair("1 data/A", "1 data/1"), std::pair("1 data/C", "1 data/3"),
                                         std::pair("2 pfr/B", "2 pfr/2")}) {
            if (!step.users)
                break;
            expected.push_back("-" + std::string(text) + " #" + std::to_string(before.at(name)));
            expected.push_back("+" + std::string(text) + " #" + std::to_string(after.at(name)));
        }
        world.pass();
        EXPECT_EQ(world.messages(), expected);
        for (const char *sibling : {"1 data/B", "2 pfr/A", "2 pfr/C"})
            EXPECT_EQ(before.at(sibling), after.at(sibling)) << sibling;
        world.memory.release();
    }
}

TEST(PassDeathTest, AMirrorMissingAtRebuild)
{
    PassWorld world;
    load_branch(&world);
    EXPECT_EQ(tarn_config_mirror_delete(&world.tarn, "tap", nullptr, nullptr), 0);
    world.add_app("media", "web");
    EXPECT_EXIT(tarn_process_config(&world.tarn), testing::KilledBySignal(SIGSEGV), "");
}

// ---- No memory for a rule table ----

// Only a later change brings the context back. The knobs are written although the pass stopped.
TEST(Pass, ARuleTableWithoutMemoryEndsThePass)
{
    PassWorld world;
    uint32_t dpi_knob = 77;
    uint32_t *p_real_knob = std::exchange(g_fp_dpi_enable_knob, &dpi_knob);
    load_branch(&world);
    world.messages();
    world.add_prefix("office", "192.0.2.0/24");
    world.add_rule(PFR, "pfr", "B", 5);
    world.tarn.flow = 1;
    g_tables_left = 1;
    t_lconfd_context lconfd = {.module_data = {.opaque_p = &world.tarn}};
    tarn_confd_sub_end_cb(&lconfd, 3);
    EXPECT_EQ(dpi_knob, 1u);
    EXPECT_EQ(world.store.flow_knob, 1u);
    EXPECT_EQ(world.messages(), (t_texts{"-1 data/1 #0", "+1 data/1 #6", "-1 data/3 #2"}));
    const t_tarn_policy_vpn_list *p_failed = world.context(DATA, "data", "C");
    EXPECT_EQ(p_failed->changed, 0);
    EXPECT_EQ(p_failed->filter_id, -1);
    EXPECT_EQ(p_failed->p_table, nullptr);
    t_tarn_policy *p_policy = nullptr;
    EXPECT_EQ(tarn_policy_lookup(&world.tarn, DATA, "data", &p_policy), 0);
    EXPECT_EQ(p_policy->changed, 0);
    EXPECT_EQ(tarn_process_config(&world.tarn), 0);
    EXPECT_EQ(world.messages(), (t_texts{"-2 pfr/2 #4", "+2 pfr/2 #7"}));
    g_tables_left = 0;
    world.add_prefix("office", "198.51.100.0/24");
    EXPECT_EQ(tarn_process_config(&world.tarn), ENOMEM);
    g_fp_dpi_enable_knob = p_real_knob;
}
