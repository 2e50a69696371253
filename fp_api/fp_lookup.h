// Finding records of the shared tables.
//
// Call after fp_global_shmem_init. Results point into the block and stay good; the record's contents may
// change under the reader, as the forwarding plane goes on. A chain is followed for at most as many records
// as the table has, so a damaged one ends as "not found".
#pragma once

#include "fp_api/fp_tables.h"

// ---- By index ----

// The low 16 bits of ifindex; null past num_if_records. p_stats, if given, receives the interface's counters,
// or null.
t_fp_if_record *fp_lookup_if_record(uint32_t ifindex, t_fp_if_stats **p_stats);

// Null past num_nh_records.
t_fp_nh_record *fp_get_nh_record(uint32_t index);

// ---- By key ----

// Null if there is none. p_stats as above.
t_fp_if_record *fp_lookup_if_hash_record(uint16_t port_id, uint16_t vlan_id, uint16_t hw_iftype,
                                         t_fp_if_stats **p_stats);

// hash is fp_crc32c of the key; callers have it already. Null if there is none.
t_fp_arp_record *fp_arp_lookup(const t_fp_arp_key *p_key, uint32_t hash);

// 0 and the record; -22 for a null pointer or a VPN past num_vrfs; -2 if there is no valid record.
int fp_cxp_record_lookup(t_vrid vrid, uint16_t appid, t_fp_cxp_record **p_cxp);

// The same results. portid is in host order.
int fp_server_appid_record_lookup(t_vrid vrid, const t_fp_ipaddr *p_ipaddr, uint16_t portid, uint8_t proto,
                                  t_fp_server_appid_record **p_record);
