// t_tarn: the daemon's top-level record.
//
// One instance exists, g_tarn, zero at start. It owns the object stores, the compiler context and the
// connections, and every part of the daemon gets a pointer to it. Members are set up in the order of start-up
// and released by the part that set them up (tarn_main.h). Main thread only, no locks.
#pragma once

#include "platform/avl/avl.h"

#include <cstddef>
#include <cstdint>
#include <ctime>

struct event;
struct event_base;
struct msgq_handle;
struct t_fp_policer;
struct t_lconfd_context;
struct t_sysmgr_app;
struct t_tarn;
struct t_tarn_context;
struct t_timer;
struct t_timer_mgr;

using bitstr_t = unsigned char;
using msgq_handle_t = msgq_handle;

// The forwarding-plane operations, which keep policy logic apart from the place where programs live. All
// slots are set; all run on the main thread, and filter_init may block until the forwarding plane is up.
struct t_tarn_hw_api {
    int (*filter_init)(t_tarn *p_tarn, uint8_t do_init);
    int (*filter_destroy)();
    void *(*filter_mem_alloc)(size_t size);
    void (*filter_mem_free)(void *ptr);
    int (*filter_policer_chg)(int filter_id, t_fp_policer *p_policer);
    int (*filter_policy_chg)(t_tarn *p_tarn, int freed_blocks);
};

struct t_tarn {
    event_base *p_event_base;
    event *p_signal1_event;  // SIGUSR1
    event *p_signal2_event;  // SIGUSR2
    event *p_base_timer;     // pumps the timer manager
    msgq_handle_t *p_ftm_msgq;
    msgq_handle_t *p_ttm_msgq;
    t_timer *p_timer;
    t_timer_mgr *p_timer_mgr;
    t_lconfd_context *p_tarn_lconfd_ctx;
    t_sysmgr_app *p_sysmgr_app;

    avl_tree_t policy_db;
    avl_tree_t vpn_list_db;
    avl_tree_t pfx_list_db;
    avl_tree_t tloc_db;
    avl_tree_t access_list_db;
    avl_tree_t access_list6_db;
    avl_tree_t mirror_db;
    avl_tree_t policer_db;
    avl_tree_t class_db;
    avl_tree_t sla_class_db;
    avl_tree_t tloc_list_db;
    avl_tree_t dpi_app_list_db;
    avl_tree_t zone_db;
    avl_tree_t zone_pair_db;
    bitstr_t *class_index;
    bitstr_t *sla_class_index;

    t_tarn_context *p_context;  // the one compiler context
    t_tarn_hw_api *p_hwapi;
    int dpi;          // application classification is wanted now
    int dpi_ref;      // its users
    uint32_t *dpi_p;  // its knob in shared memory
    char dpi_version[128];
    int flow;                     // flow export is wanted now
    int flow_ref;                 // its users
    uint32_t *flow_p;             // its knob in shared memory
    uint16_t process_zbf_config;  // zones must be processed at the next pass
    uint16_t zbf_uid;             // running number of zone-based rule sets
    timespec last_hello_time;     // monotonic: last run of the high-priority timers in a long loop
};

extern t_tarn g_tarn;
extern t_tarn_hw_api g_tarn_octeon_api;
