#include "fp_api/fp_print.h"

#include <cstdio>

#include "libcvmx/sim/sim_log.h"

// "address:port -> address:port" of two ends.
struct t_ends_text {
    char text[128];
};

static t_ends_text ends_text(const t_fp_ipaddr *p_src, uint16_t src_port, const t_fp_ipaddr *p_dst,
                             uint16_t dst_port)
{
    char src[46];
    char dst[46];
    fp_ipaddr_print_to_buf(p_src, src, sizeof(src));
    fp_ipaddr_print_to_buf(p_dst, dst, sizeof(dst));
    t_ends_text ends;
    snprintf(ends.text, sizeof(ends.text), "%s:%u -> %s:%u", src, src_port, dst, dst_port);
    return ends;
}

void fp_nat_filter_key_print(const t_fp_nat_filter_key *p_key)
{
    t_ends_text ends = ends_text(&p_key->src_ip, p_key->src_port, &p_key->dst_ip, p_key->dst_port);
    cvmx_sim_log("nat-filter: vrid %u %s proto %u\n", p_key->vrid, ends.text, p_key->proto);
}

void fp_zbf_flow_key_print(const t_fp_zbf_flow_key *p_key)
{
    t_ends_text ends = ends_text(&p_key->src_ip, p_key->src_port, &p_key->dst_ip, p_key->dst_port);
    cvmx_sim_log("zbf-flow: vrid %u -> %u %s proto %u\n", p_key->src_vrid, p_key->dst_vrid, ends.text,
                 p_key->proto);
}

void fp_flow_print(const t_fp_flow_record *p_flow)
{
    const t_fp_flow_key *p_key = &p_flow->key;
    t_ends_text ends = ends_text(&p_key->src_ip, p_key->src_port, &p_key->dst_ip, p_key->dst_port);
    cvmx_sim_log("flow: vrid %u %s proto %u dscp %u app %u pkts %lu bytes %lu\n", p_key->vrid, ends.text,
                 p_key->proto, p_key->dscp, p_flow->appid, p_flow->pkts, p_flow->bytes);
}

static const char *tcpopt_state_name(e_fp_tcpopt_state state)
{
    static const char *const names[] = {"free", "init", "optimized", "pass-through", "expired"};
    return state < sizeof(names) / sizeof(names[0]) ? names[state] : "-";
}

static void print_tcpopt_side(const char *side, const t_fp_tcpopt_key *p_key, e_fp_tcpopt_state state)
{
    t_ends_text ends = ends_text(&p_key->src_ip, p_key->src_port, &p_key->dst_ip, p_key->dst_port);
    cvmx_sim_log("%s: vrid %u %s state %s\n", side, p_key->vrid, ends.text, tcpopt_state_name(state));
}

void fp_tcpopt_print(const t_fp_tcpopt_record *p_record)
{
    print_tcpopt_side("tcpopt", &p_record->key, p_record->state);
}

void fp_tcpopt_ss_print(const t_fp_tcpopt_record *p_record)
{
    print_tcpopt_side("tcpopt-ss", &p_record->ss_key, p_record->state);
}
