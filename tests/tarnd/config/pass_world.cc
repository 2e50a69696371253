#include "tests/tarnd/config/pass_world.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <arpa/inet.h>
#include <cstdlib>
#include <cstring>
#include <utility>

#include "fp_api/fp_scaling.h"
#include "platform/confd/confd_lib.h"
#include "tarnd/compiler/tarn_context.h"
#include "tarnd/compiler/tarn_mem_mgr.h"
#include "tarnd/config/tarn_app_list.h"
#include "tarnd/config/tarn_pfx_list.h"
#include "tarnd/config/tarn_process.h"

// ---- Filter memory ----

static FilterMemory *g_memory;

FilterMemory::FilterMemory() : real_num_filters(std::exchange(g_fp_scaling.num_filters, RETRY_ID))
{
    g_memory = this;
    t_tarn_mem_mgr mgr = {[](size_t size) { return g_memory->alloc(size); },
                          [](void *p_mem) { g_memory->free_late(p_mem); }};
    tarn_register_mem_mgr(&mgr);
}

FilterMemory::~FilterMemory()
{
    release();
    EXPECT_TRUE(programs.empty()) << "programs that nobody freed";
    tarn_register_mem_mgr(nullptr);
    g_fp_scaling.num_filters = real_num_filters;
    g_memory = nullptr;
}

void *FilterMemory::alloc(size_t size)
{
    int blocks = static_cast<int>((size + 127) / 128);
    wanted = static_cast<int>(size);
    g_filter_id = -1;
    int slot = 0;
    auto is_taken = [&](const auto &entry) { return entry.second.slot == slot; };
    while (std::any_of(programs.begin(), programs.end(), is_taken))
        slot++;
    if (slot == RETRY_ID || used() + blocks > budget)
        return nullptr;
    void *p_mem = malloc(size);
    programs[p_mem] = {slot, blocks, false};
    allocations++;
    g_filter_id = slot;
    return p_mem;
}

void FilterMemory::free_late(void *p_mem)
{
    EXPECT_FALSE(std::exchange(programs.at(p_mem).freed, true)) << "freed twice";
}

int FilterMemory::release()
{
    int before = used();
    std::erase_if(programs, [](const auto &entry) {
        if (entry.second.freed)
            free(entry.first);
        return entry.second.freed;
    });
    return before - used();
}

int FilterMemory::used() const
{
    int blocks = 0;
    for (const auto &[p_mem, program] : programs)
        blocks += program.blocks;
    return blocks;
}

int FilterMemory::blocks_of(const void *p_program) const
{
    const t_program &program = programs.at(const_cast<void *>(p_program));
    return program.freed ? -1 : program.blocks;
}

// ---- The pass ----

static PassWorld *g_world;

PassWorld::PassWorld()
{
    g_world = this;
    tarn.p_context = tarn_context_create();
    tarn.p_hwapi = &hwapi;
    hwapi.filter_policy_chg = tarn_process_oom_policies;
    hwapi.filter_policer_chg = [](int filter_id, t_fp_policer *) {
        g_world->policer_changes.push_back(filter_id);
        return 0;
    };
}

PassWorld::~PassWorld()
{
    tarn_delete_context(tarn.p_context);
    g_world = nullptr;
}

void PassWorld::pass()
{
    EXPECT_EQ(tarn_process_config(&tarn), 0);
    check();
}

void PassWorld::release()
{
    int freed = memory.release();
    if (freed > 0) {
        EXPECT_EQ(hwapi.filter_policy_chg(&tarn, freed), 0);
    }
    check();
}

template <typename F>
static void contexts_foreach(const t_tarn &tarn, F visit)
{
    for (void *p = avl_first(&tarn.policy_db); p != nullptr; p = avl_walk(&tarn.policy_db, p)) {
        auto *p_policy = static_cast<t_tarn_policy *>(p);
        for (void *q = avl_first(&p_policy->vpn_list_db); q != nullptr;
             q = avl_walk(&p_policy->vpn_list_db, q))
            visit(p_policy, static_cast<t_tarn_policy_vpn_list *>(q));
    }
}

void PassWorld::check_context(const t_tarn_policy_vpn_list *p_vpn_list, int *p_blocks) const
{
    EXPECT_EQ(p_vpn_list->changed, 0);
    bool is_loaded = p_vpn_list->filter_id >= 0 && p_vpn_list->filter_id < RETRY_ID;
    EXPECT_EQ(p_vpn_list->p_program != nullptr, is_loaded);
    EXPECT_EQ(p_vpn_list->filter_id == -1, p_vpn_list->rule_list.count == 0);
    EXPECT_EQ(p_vpn_list->filter_type == 0, p_vpn_list->filter_id == -1);
    EXPECT_EQ(p_vpn_list->p_table != nullptr, p_vpn_list->filter_id != -1);
    if (is_loaded)
        *p_blocks += memory.blocks_of(p_vpn_list->p_program);
}

void PassWorld::check() const
{
    int blocks = 0;
    contexts_foreach(tarn, [&](const t_tarn_policy *p_policy, const t_tarn_policy_vpn_list *p_vpn_list) {
        SCOPED_TRACE(std::string(p_policy->key.name) + "/" + p_vpn_list->key.name);
        EXPECT_EQ(p_policy->added + p_policy->changed, 0);
        check_context(p_vpn_list, &blocks);
    });
    EXPECT_LE(blocks, memory.used());
    EXPECT_EQ(tarn.p_context->c_latest_ec_id, 0u) << "the compiler's context is empty between passes";
}

std::vector<std::string> PassWorld::messages()
{
    std::vector<std::string> texts;
    for (const t_ftm_words &words : store.take())
        texts.push_back((words.type == 1 ? "+" : "-") + std::to_string(words.kind) + " " + words.name + "/" +
                        std::to_string(words.vpns.at(0).first) + " #" + std::to_string(words.filter_id));
    return texts;
}

std::map<std::string, int> PassWorld::filter_ids() const
{
    std::map<std::string, int> ids;
    contexts_foreach(tarn, [&](const t_tarn_policy *p_policy, const t_tarn_policy_vpn_list *p_vpn_list) {
        ids[std::to_string(p_policy->key.type) + " " + p_policy->key.name + "/" + p_vpn_list->key.name] =
            p_vpn_list->filter_id;
    });
    return ids;
}

// ---- Objects ----

t_tarn_policy_vpn_list *PassWorld::context(e_tarn_policy_type type, const char *policy,
                                           const char *list) const
{
    t_tarn_policy_vpn_list *p_vpn_list = nullptr;
    EXPECT_EQ(tarn_vpn_list_lookup_in_policy(&tarn, type, policy, list, &p_vpn_list), 0);
    return p_vpn_list;
}

void PassWorld::add_vpn_list(const char *name, uint64_t vpn)
{
    EXPECT_EQ(tarn_vpn_list_add(&tarn, name), 0);
    EXPECT_EQ(tarn_vpn_add(&tarn, name, vpn, vpn), 0);
}

void PassWorld::add_policy(e_tarn_policy_type type, const char *policy,
                           const std::vector<const char *> &lists, const char *default_sla_class)
{
    EXPECT_EQ(tarn_policy_add(&tarn, type, policy, TARN_POLICY_DIR_ALL, 0), 0);
    for (const char *list : lists)
        EXPECT_EQ(tarn_vpn_list_add_to_policy(&tarn, type, policy, list, TARN_FILTER_ACTION_ACCEPT,
                                              default_sla_class),
                  0);
}

t_tarn_config_rule *PassWorld::add_rule(e_tarn_policy_type type, const char *policy, const char *list,
                                        uint32_t id)
{
    t_tarn_config_rule *p_rule = nullptr;
    EXPECT_EQ(tarn_config_rule_add(&tarn, type, policy, list, id, &p_rule), 0);
    uint32_t accept = TARN_FILTER_ACTION_ACCEPT;
    add_action(p_rule, TARN_ACTION_TAG_ACTION, &accept);
    return p_rule;
}

void PassWorld::delete_rule(const t_tarn_config_rule *p_rule)
{
    EXPECT_EQ(tarn_config_rule_delete(&tarn, p_rule->policy->key.type, p_rule->policy->key.name,
                                      p_rule->vpn_list->key.name, p_rule->key.id),
              0);
}

t_tarn_config_action *PassWorld::add_action(const t_tarn_config_rule *p_rule, uint32_t tag, const void *value)
{
    t_tarn_config_action *p_action = nullptr;
    EXPECT_EQ(tarn_config_action_add(&tarn, p_rule->policy->key.type, p_rule->policy->key.name,
                                     p_rule->vpn_list->key.name, p_rule->key.id, tag, value, &p_action),
              0);
    return p_action;
}

void PassWorld::add_pfx_list_match(t_tarn_config_rule *p_rule, e_tarn_field_type f_type, const char *list)
{
    t_tarn_pfx_list_key key = {"", TARN_POLICY_PFX_LIST_TYPE_KEELSON};
    strcpy(key.name, list);
    EXPECT_EQ(tarn_config_field_add(&tarn, f_type, &key, p_rule), 0);
}

void PassWorld::add_app_list_match(t_tarn_config_rule *p_rule, e_tarn_field_type f_type, const char *list)
{
    t_tarn_dpi_app_list_key key = {"", TARN_DPI_KEY_LOC_KEELSON};
    strcpy(key.name, list);
    EXPECT_EQ(tarn_config_add_app_list_to_policy(&tarn, list, key.location, p_rule->policy->key.type,
                                                 p_rule->policy->key.name, p_rule->vpn_list->key.name),
              0);
    EXPECT_EQ(tarn_config_field_add(&tarn, f_type, &key, p_rule), 0);
}

// ---- Lists ----

confd_ipv4_prefix test_prefix(const char *text)
{
    confd_ipv4_prefix prefix = {};
    const char *slash = strchr(text, '/');
    EXPECT_EQ(inet_pton(AF_INET, std::string(text, slash).c_str(), &prefix.ip), 1) << text;
    prefix.len = static_cast<uint8_t>(atoi(slash + 1));
    return prefix;
}

void PassWorld::add_prefix(const char *list, const char *prefix)
{
    confd_ipv4_prefix value = test_prefix(prefix);
    EXPECT_EQ(tarn_config_ip_pfx_add(&tarn, list, TARN_POLICY_PFX_LIST_TYPE_KEELSON, &value), 0);
    EXPECT_EQ(tarn_config_pfx_list_change(&tarn, list, TARN_POLICY_PFX_LIST_TYPE_KEELSON), 0);
}

void PassWorld::delete_prefix(const char *list, const char *prefix)
{
    confd_ipv4_prefix value = test_prefix(prefix);
    EXPECT_EQ(tarn_config_ip_pfx_delete(&tarn, list, TARN_POLICY_PFX_LIST_TYPE_KEELSON, &value), 0);
    EXPECT_EQ(tarn_config_pfx_list_change(&tarn, list, TARN_POLICY_PFX_LIST_TYPE_KEELSON), 0);
}

void PassWorld::add_pfx_list(const char *name, const std::vector<const char *> &prefixes)
{
    EXPECT_EQ(tarn_config_pfx_list_add(&tarn, name, TARN_POLICY_PFX_LIST_TYPE_KEELSON), 0);
    for (const char *prefix : prefixes)
        add_prefix(name, prefix);
}

void PassWorld::add_app(const char *list, const char *app)
{
    EXPECT_EQ(tarn_config_app_list_change(&tarn, list, TARN_DPI_KEY_LOC_KEELSON), 0);
    EXPECT_EQ(
        tarn_config_app_list_add_app(&tarn, list, TARN_DPI_KEY_LOC_KEELSON, TARN_DPI_TYPE_APP_FAMILY, app),
        0);
}

void PassWorld::add_app_list(const char *name, const std::vector<const char *> &apps)
{
    EXPECT_EQ(tarn_config_app_list_add(&tarn, name, TARN_DPI_KEY_LOC_KEELSON), 0);
    for (const char *app : apps)
        add_app(name, app);
}
