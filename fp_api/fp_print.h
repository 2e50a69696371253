// One log line for a key or a record of the shared tables, through cvmx_sim_log. Addresses are printed by
// fp_ipaddr_print_to_buf, so one of no family is empty; ports are in host order.
#pragma once

#include "fp_api/fp_tables.h"

void fp_nat_filter_key_print(const t_fp_nat_filter_key *p_key);
void fp_zbf_flow_key_print(const t_fp_zbf_flow_key *p_key);
void fp_flow_print(const t_fp_flow_record *p_flow);

// The client side of an optimised connection with its state, and its server side.
void fp_tcpopt_print(const t_fp_tcpopt_record *p_record);
void fp_tcpopt_ss_print(const t_fp_tcpopt_record *p_record);
