// What the process of the forwarding plane puts into fresh tables, and small questions about them.
//
// The initialisers belong to the process that creates the layout; they run once, after fp_global_shmem_init
// and before anybody else looks. None of them allocates.
#pragma once

#include "fp_api/fp_tables.h"

// ---- Initialisers ----

// All policers of the table free and zero.
void fp_policer_init();

// No tracing: no topic, no condition, no limit.
void fp_debug_init();

// No capture: no flags, no condition, nothing counted.
void fp_pcap_init();

// All profilers empty.
void fp_profiler_init();

// Both hash tables empty, all their records invalid and in no chain.
void fp_cxp_record_init();
void fp_server_appid_record_init();

// Notes that a pool has num_blocks free blocks of block_size bytes; fewer than a sixteenth count as short.
// 0, or -1 for a pool number past num_fpa_pools or a size or count of 0.
int fp_setup_fpa_pool(int pool, uint32_t block_size, uint32_t num_blocks);

// ---- Questions ----

enum e_fp_fpa_status {
    FP_FPA_STATUS_NONE,   // no such pool, or not set up
    FP_FPA_STATUS_OK,     // enough free blocks
    FP_FPA_STATUS_SHORT,  // below the low watermark
    FP_FPA_STATUS_EMPTY,
};
e_fp_fpa_status fp_get_fpa_status(int pool);

// Whether the port is one of the three loopback ranges of the control record.
bool is_loopback_port(uint16_t port);

// Whether no wire hangs on the port: a loopback, the bridge's or the tunnel server's.
bool is_virtual_port(uint16_t port);

// Milliseconds since 1970 by the shared clock: the time-stamp counter at the control record's rate, moved by
// its epoch_delta_msecs. All processes of a machine agree on it. The delta alone while the rate is 0.
int64_t fp_get_synchronized_time();

// The greatest common divisor; gcd(a, 0) is a.
uint64_t gcd(uint64_t a, uint64_t b);
