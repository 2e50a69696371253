#include "tests/tarnd/config/long_pass_daemon.h"

#include "common/priority_timers.h"
#include "common/timer.h"
#include "fp_api/fp_scaling.h"
#include "fp_api/fp_tables.h"
#include "platform/confd/confd_lib.h"
#include "tarnd/compiler/tarn_context.h"
#include "tarnd/compiler/tarn_mem_mgr.h"
#include "tarnd/config/tarn_process.h"
#include "tarnd/filter/tarn_if_octeon.h"

#include <arpa/inet.h>
#include <cstdio>
#include <cstdlib>
#include <cstring>

static constexpr e_tarn_policy_type DATA = TARN_POLICY_TYPE_DATA;

void large_daemon_require(bool holds, const char *what)
{
    if (holds)
        return;
    fprintf(stderr, "large daemon: %s\n", what);
    exit(1);
}

// ---- Wrapped calls ----

int wrap_shmem_init(int do_init, int do_locking) asm("__wrap__Z20fp_global_shmem_initii");
int wrap_shmem_init(int, int)
{
    return 0;
}

int wrap_readjust(int coremask_valid, uint64_t coremask) asm("__wrap__Z21fp_readjust_num_coresim");
int wrap_readjust(int, uint64_t)
{
    return 1;
}

// ---- Life ----

void LargeDaemon::t_free::operator()(void *p_mem) const
{
    free(p_mem);
}

// What the named block holds for the filters. All pages are there, as they are once the daemon has cleared
// them at its start.
void LargeDaemon::lay_out_block()
{
    static constexpr size_t huge_page = 2 << 20;
    g_fp_scaling = g_fp_scaling_Pylon_A2;  // the large machine's
    size_t size = static_cast<size_t>(g_fp_scaling.num_filter_blocks) * sizeof(t_tarn_filter_mem_block);
    blocks.reset(static_cast<t_tarn_filter_mem_block *>(aligned_alloc(huge_page, size)));
    large_daemon_require(blocks != nullptr, "no memory for the block");
    memset(blocks.get(), 0, size);
    filters.resize(static_cast<size_t>(g_fp_scaling.num_filters));
    ctrl.is_hw_initialized = 1;
    g_fp_filter_mem_block = blocks.get();
    g_fp_filter = filters.data();
    g_fp_global_ctrl = &ctrl;
}

static void run_timers(void *p_ctx, uint32_t budget_ms)
{
    timer_exec(static_cast<t_tarn *>(p_ctx)->p_timer_mgr, TIMER_PRI_MASK_HIGH, budget_ms);
}

LargeDaemon::LargeDaemon()
{
    lay_out_block();
    tarn.p_hwapi = &hwapi;
    hwapi.filter_policy_chg = tarn_process_oom_policies;
    tarn.p_timer_mgr = timer_mgr_create(TIMER_RESN_10MSEC, nullptr, nullptr, nullptr, TIMER_PRI_MASK_ALL);
    tarn_priority_timers_register(run_timers, &tarn, &tarn.last_hello_time);
    large_daemon_require(tarn_oct_filter_init(&tarn, 0) == 0, "no filter memory");
    t_tarn_mem_mgr mgr = {tarn_oct_filter_mem_alloc, tarn_oct_filter_mem_free};
    tarn_register_mem_mgr(&mgr);
    tarn.p_context = tarn_context_create();
    large_daemon_require(tarn_vpn_list_add(&tarn, LARGE_DAEMON_VPN_LIST) == 0 &&
                             tarn_vpn_add(&tarn, LARGE_DAEMON_VPN_LIST, 10, 19) == 0,
                         "no VPN list");
}

LargeDaemon::~LargeDaemon()
{
    while (auto *p_policy = static_cast<t_tarn_policy *>(avl_first(&tarn.policy_db)))
        tarn_policy_delete(&tarn, DATA, std::string(p_policy->key.name).c_str());
    release();
    tarn_delete_context(tarn.p_context);
    tarn_register_mem_mgr(nullptr);
    tarn_priority_timers_register(nullptr, nullptr);
    tarn_oct_filter_destroy();
    timer_mgr_destroy(tarn.p_timer_mgr);
    g_fp_scaling = {};
    g_fp_filter_mem_block = nullptr;
    g_fp_filter = nullptr;
    g_fp_global_ctrl = nullptr;
}

void LargeDaemon::release()
{
    tarn_oct_filter_mem_delete(nullptr, &tarn, nullptr, nullptr, nullptr);
}

std::vector<t_tarn_policy_vpn_list *> LargeDaemon::contexts() const
{
    std::vector<t_tarn_policy_vpn_list *> all;
    for (void *p = avl_first(&tarn.policy_db); p != nullptr; p = avl_walk(&tarn.policy_db, p))
        all.push_back(
            static_cast<t_tarn_policy_vpn_list *>(avl_first(&static_cast<t_tarn_policy *>(p)->vpn_list_db)));
    return all;
}

// ---- Objects ----

void LargeDaemon::add_policy(const char *policy, const std::vector<t_generated_rule> &rules)
{
    bool made = tarn_policy_add(&tarn, DATA, policy, TARN_POLICY_DIR_SERVICE, 0) == 0 &&
                tarn_vpn_list_add_to_policy(&tarn, DATA, policy, LARGE_DAEMON_VPN_LIST,
                                            TARN_FILTER_ACTION_ACCEPT, nullptr) == 0;
    large_daemon_require(made, "a policy that the store refused");
    uint32_t id = 0;
    for (const t_generated_rule &rule : rules)
        add_match(add_rule(policy, id += 10), rule);
}

t_tarn_config_rule *LargeDaemon::add_rule(const char *policy, uint32_t id)
{
    t_tarn_config_rule *p_rule = nullptr;
    uint32_t accept = TARN_FILTER_ACTION_ACCEPT;
    char counter[16];
    snprintf(counter, sizeof(counter), "c%u", id);
    const std::pair<e_tarn_action_tag, const void *> actions[] = {{TARN_ACTION_TAG_ACTION, &accept},
                                                                  {TARN_ACTION_TAG_COUNT, counter}};
    bool made = tarn_config_rule_add(&tarn, DATA, policy, LARGE_DAEMON_VPN_LIST, id, &p_rule) == 0;
    for (const auto &[tag, value] : actions)
        made = made && tarn_config_action_add(&tarn, DATA, policy, LARGE_DAEMON_VPN_LIST, id, tag, value,
                                              nullptr) == 0;
    large_daemon_require(made, "a rule that the store refused");
    return p_rule;
}

void LargeDaemon::add_field(t_tarn_config_rule *p_rule, e_tarn_field_type type, const void *value)
{
    large_daemon_require(tarn_config_field_add(&tarn, type, value, p_rule) == 0,
                         "a field that the store refused");
}

void LargeDaemon::add_ports(t_tarn_config_rule *p_rule, e_tarn_field_type type,
                            const t_generated_ports &ports)
{
    t_tarn_range range = {static_cast<int>(ports.low), static_cast<int>(ports.high)};
    if (ports.low != 0 || ports.high != UINT16_MAX)
        add_field(p_rule, type, &range);
}

void LargeDaemon::add_match(t_tarn_config_rule *p_rule, const t_generated_rule &rule)
{
    confd_ipv4_prefix src = {{htonl(rule.src.address)}, static_cast<uint8_t>(rule.src.length)};
    confd_ipv4_prefix dst = {{htonl(rule.dst.address)}, static_cast<uint8_t>(rule.dst.length)};
    add_field(p_rule, TARN_FIELD_TYPE_SRC_ADDR, &src);
    add_field(p_rule, TARN_FIELD_TYPE_DST_ADDR, &dst);
    add_ports(p_rule, TARN_FIELD_TYPE_SRC_PORT, rule.sport);
    add_ports(p_rule, TARN_FIELD_TYPE_DST_PORT, rule.dport);
    if (rule.protocol_mask != 0)
        add_field(p_rule, TARN_FIELD_TYPE_PROTOCOL, &rule.protocol);
}
