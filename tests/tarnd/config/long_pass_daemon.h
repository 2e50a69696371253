// The daemon's road from objects to filters, as large as it gets: store, pass, compiler and filter memory of
// a large machine (128 MiB), an FTM that takes notes, and timers of which those of high priority run inside
// the pass. Objects are made the way the parsers make them.
//
// One at a time in a process. Needs the link options of a store that takes notes (tarn_store.h), and
// fp_global_shmem_init and fp_readjust_num_cores wrapped: the block is this process's own.
#pragma once

#include "fp_api/fp_filter.h"
#include "fp_api/fp_global_ctrl.h"
#include "tarnd/config/tarn_rule.h"
#include "tests/support/tarn_store.h"
#include "tools/rule_generator.h"

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

inline constexpr char LARGE_DAEMON_VPN_LIST[] = "corp";

// Ends the process unless it holds.
void large_daemon_require(bool holds, const char *what);

class LargeDaemon {
public:
    LargeDaemon();
    ~LargeDaemon();
    LargeDaemon(const LargeDaemon &) = delete;
    LargeDaemon &operator=(const LargeDaemon &) = delete;

    // A data policy on the one VPN list; its sequences are 10, 20 and so on.
    void add_policy(const char *policy, const std::vector<t_generated_rule> &rules);
    // A sequence that accepts and counts.
    t_tarn_config_rule *add_rule(const char *policy, uint32_t id);
    void add_field(t_tarn_config_rule *p_rule, e_tarn_field_type type, const void *value);
    std::vector<t_tarn_policy_vpn_list *> contexts() const;
    // The forwarding plane has left the filters that were freed; what waits tries again.
    void release();

    TarnStore store;
    t_tarn &tarn = store.tarn;

private:
    struct t_free {
        void operator()(void *p_mem) const;
    };

    void lay_out_block();
    void add_ports(t_tarn_config_rule *p_rule, e_tarn_field_type type, const t_generated_ports &ports);
    void add_match(t_tarn_config_rule *p_rule, const t_generated_rule &rule);

    std::unique_ptr<t_tarn_filter_mem_block[], t_free> blocks;
    std::vector<t_tarn_filter> filters;
    t_fp_global_ctrl ctrl = {};
    t_tarn_hw_api hwapi = {};
};
