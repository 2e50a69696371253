// A store with filter memory and a compiler context, for tests of the pass.
//
// The memory counts blocks against a budget. As in the daemon, what is freed stays taken, with its slot,
// until it is released, and the release lets those who wait try again. Objects are made the way the parsers
// make them.
#pragma once

#include "tarnd/config/tarn_rule.h"
#include "tests/support/tarn_store.h"

#include <cstdint>
#include <map>
#include <string>
#include <vector>

struct confd_ipv4_prefix;

class FilterMemory {
public:
    FilterMemory();
    ~FilterMemory();
    FilterMemory(const FilterMemory &) = delete;
    FilterMemory &operator=(const FilterMemory &) = delete;

    // Blocks that came free now.
    int release();
    int used() const;  // blocks, with those waiting for release
    int blocks_of(const void *p_program) const;

    int budget = 1 << 20;  // blocks
    int allocations = 0;   // successful, so far
    int wanted = 0;        // bytes, of the last request

    // For the memory manager.
    void *alloc(size_t size);
    void free_late(void *p_mem);

private:
    struct t_program {
        int slot;
        int blocks;
        bool freed;
    };
    std::map<void *, t_program> programs;
    int real_num_filters;
};

inline constexpr int RETRY_ID = 64;  // num_filters, while a FilterMemory lives

class PassWorld {
public:
    PassWorld();
    ~PassWorld();

    FilterMemory memory;  // outlives the store
    TarnStore store;
    t_tarn &tarn = store.tarn;
    t_tarn_hw_api hwapi = {};
    std::vector<int> policer_changes;  // filter ids

    // One pass, expected to succeed, and what must hold after each.
    void pass();
    void release();  // of memory, with the pass that follows

    // Messages to FTM since the last call, as "+1 policy/2 #7": announced, filter type, policy, first VPN,
    // filter.
    std::vector<std::string> messages();
    std::map<std::string, int> filter_ids() const;  // by "type policy/list"

    t_tarn_policy_vpn_list *context(e_tarn_policy_type type, const char *policy, const char *list) const;
    void add_vpn_list(const char *name, uint64_t vpn);
    void add_policy(e_tarn_policy_type type, const char *policy, const std::vector<const char *> &lists,
                    const char *default_sla_class = nullptr);
    // With an accepting base action.
    t_tarn_config_rule *add_rule(e_tarn_policy_type type, const char *policy, const char *list, uint32_t id);
    void delete_rule(const t_tarn_config_rule *p_rule);
    t_tarn_config_action *add_action(const t_tarn_config_rule *p_rule, uint32_t tag, const void *value);
    void add_pfx_list_match(t_tarn_config_rule *p_rule, e_tarn_field_type f_type, const char *list);
    void add_app_list_match(t_tarn_config_rule *p_rule, e_tarn_field_type f_type, const char *list);

    // Controller lists.
    void add_pfx_list(const char *name, const std::vector<const char *> &prefixes);
    void add_prefix(const char *list, const char *prefix);
    void delete_prefix(const char *list, const char *prefix);
    void add_app_list(const char *name, const std::vector<const char *> &apps);
    void add_app(const char *list, const char *app);

private:
    void check_context(const t_tarn_policy_vpn_list *p_vpn_list, int *p_blocks) const;
    void check() const;
};

// "10.0.0.0/8".
confd_ipv4_prefix test_prefix(const char *text);
