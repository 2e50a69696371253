// The two zone tables in shared memory: which zone a VPN lies in, and which filter a pair of zones has.
//
// Both are hash tables of records taken from a free list (fp_api/fp_zbf.h). A bucket's head and the links of
// its chain are record indices; a new record goes to the front. The forwarding plane reads with no lock. A
// record is filled, linked and then made valid; it is made invalid, unlinked and then freed. Readers pass
// over invalid records, and one that stands on a record while it is unlinked sees its chain end there.
//
// The table of VPNs is kept entry by entry. The table of pairs is only ever filled: it is wiped and built
// again whole, and while that lasts packets find no pair. Neither refuses a second record of the same key;
// the later one is found first. The tables must be mapped. Main thread only.
#pragma once

#include <cstdint>

struct t_fp_vpn_zone_record;
struct t_fp_zbf_pair_record;

// ---- The tables ----

// Empty a table and put all its records on the free list, record 0 first.
void fp_zbf_pair_global_init();
void fp_vpn_zone_global_init();

// Empties the table of pairs; all readers see it empty from here on.
void fp_destroy_zbf_mappings();

// ---- Records ----

// A record off the free list, zero but for its index, or null. Freeing makes it invalid and leaves the rest.
t_fp_zbf_pair_record *fp_zbf_pair_alloc();
t_fp_vpn_zone_record *fp_vpn_zone_alloc();
void fp_zbf_pair_free(t_fp_zbf_pair_record *p_record);
void fp_vpn_zone_free(t_fp_vpn_zone_record *p_record);

// The new record, in its chain and valid; null when all records are in use.
t_fp_zbf_pair_record *fp_create_zb_pair_hash_record(uint16_t src_zone_id, uint16_t dst_zone_id,
                                                    uint32_t zbf_filter_id, uint32_t zb_pair_id);
t_fp_vpn_zone_record *fp_create_vpn_zone_hash_record(uint16_t vpn, uint16_t zone_id);

// Frees the first record of that VPN and zone: 0, or 2 when there is none.
int fp_delete_vpn_zone_hash_record(uint16_t vpn, uint16_t zone_id);

// ---- Switches ----

// Whether the forwarding plane looks at zones at all.
void fp_enable_zbf();
void fp_disable_zbf();

// Whether traffic passes between a zone and the internet, which lies in no zone.
void fp_allow_internet_zone();
void fp_deny_internet_zone();
