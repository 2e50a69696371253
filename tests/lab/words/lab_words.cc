// lab_words: prints the words and zone records of the shared block that the daemon writes for the forwarding
// plane, as one line of JSON. Run inside a lab in which the block exists.
#include "fp_api/fp_shmem.h"
#include "fp_api/fp_tables.h"

#include <cstdio>
#include <nlohmann/json.hpp>

using t_json = nlohmann::ordered_json;

static t_json words_json()
{
    const t_fp_global_ctrl *p_ctrl = g_fp_global_ctrl;
    return {{"generation", p_ctrl->fp_cft_policy_gen_num},
            {"cache-disable", p_ctrl->cft_policy_cache_disable},
            {"dscp-disable", p_ctrl->cft_policy_dscp_disable},
            {"zones", p_ctrl->zbf_enabled != 0},
            {"deny-internet", p_ctrl->zone_no_zone_inet != 0},
            {"log-frequency", g_fp_filter_log_config->frequency},
            {"applications", *g_fp_dpi_enable_knob},
            {"flows", *g_fp_filter_flow_enable_knob}};
}

static t_json vpns_json()
{
    t_json rows = t_json::array();
    for (int i = 0; i < g_fp_scaling.num_vpn_zone_records; i++) {
        const t_fp_vpn_zone_record &record = g_fp_vpn_zone_record[i];
        if (record.is_valid != 0)
            rows.push_back({{"vpn", record.vpn}, {"zone", record.zone_id}});
    }
    return rows;
}

static t_json pairs_json()
{
    t_json rows = t_json::array();
    for (int i = 0; i < g_fp_scaling.num_zbf_pair_records; i++) {
        const t_fp_zbf_pair_record &record = g_fp_zbf_pair_record[i];
        if (record.is_valid != 0)
            rows.push_back({{"source", record.key.src_zone_id},
                            {"destination", record.key.dst_zone_id},
                            {"pair", record.zb_pair_id},
                            {"filter", record.zbf_filter_id}});
    }
    return rows;
}

int main()
{
    if (fp_global_shmem_init(0, 1) != 0) {
        fprintf(stderr, "lab_words: there is no block\n");
        return 1;
    }
    t_json answer = words_json();
    answer["vpn-zones"] = vpns_json();
    answer["zone-pairs"] = pairs_json();
    printf("%s\n", answer.dump().c_str());
    return 0;
}
