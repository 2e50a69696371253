// The management adapter: what stands between a daemon and the management framework.
//
// A daemon describes itself once in a t_lconfd_module_data (what it subscribes to, validates, acts on) and
// calls lconfd_module_init. From then on the adapter keeps the connections to the framework on 127.0.0.1
// port 4565, registers everything, hands each change of configuration to the daemon as keys and tag values,
// and, whenever a connection is lost, tears all of them down and starts again every two seconds. The
// framework's callbacks find the context in the daemon context's d_opaque, and through its module data the
// daemon's own record.
//
// Configuration comes first as one read of everything (a trigger), at a moment that a bit mask in the
// operational store decides: the router's daemons read one after the other. Changes before that are skipped,
// since the read has them. A path with a delete priority is subscribed twice: the first subscription delivers
// all but deletions, at `priority`, the second deletions only, of whole entries and of single leaves, at
// `del_priority`. Lower numbers come first. All of one level is one batch, after which sub_end_cb runs.
//
// Everything here belongs to the main thread with its event base, unless a comment says otherwise, and every
// callback runs there. The adapter's own threads are told in docs/adapter.md. What concerns the connection
// ends in a retry; a callback that fails on a change that can't be refused any more ends the process.
#pragma once

#include "common/ip_util.h"
#include "common/lum_util.h"
#include "platform/confd/confd_cdb.h"
#include "platform/confd/confd_dp.h"

#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <ctime>
#include <memory>
#include <pthread.h>

struct event;
struct event_base;
struct t_timer;
struct t_timer_mgr;

enum e_lconfd_status {
    LCONFD_STATUS_OK = 0,
    LCONFD_STATUS_FAIL = 1,
    LCONFD_STATUS_MEM_FAIL = 2,
    LCONFD_STATUS_IN_RETRY = 3,  // no failure: the adapter goes on by itself
};

struct t_lconfd_anchor;
struct t_lconfd_context;
struct t_lconfd_sub_entry;

// ---- What a daemon tells the adapter ----

// Takes a change of one instance of a subscribed path. The keys stand outermost first. The values are the
// leaves of the instance and its containers, as the framework gives them; in a deletion, and for a leaf that
// is deleted, their type is C_NOEXISTS. Keys and values are good during the call. An e_lconfd_status;
// anything but 0 is failure.
using lconfd_config_cb_fn = int (*)(t_lconfd_sub_entry *p_lconfd_sub, confd_iter_op oper, int num_keys,
                                    const confd_value_t *p_key, int num_values,
                                    const confd_tag_value_t *p_val);

inline constexpr size_t LCONFD_PATH_SIZE = 128;  // with its terminator

// One subscribed path. The daemon fills in path, config_cb, name_space, num_keys, priority and del_priority,
// rarely oper_data or two_phase; the rest is the adapter's.
struct t_lconfd_sub_entry {
    t_lconfd_context *lconfd_ctx_p = nullptr;  // set at registration
    char path[LCONFD_PATH_SIZE] = "";          // without keys and leading slash; empty ends a table
    lconfd_config_cb_fn config_cb = nullptr;
    int name_space = 0;    // hash of the path's module
    int id = 0;            // of the subscription, or of the one without deletions
    int del_sub_id = 0;    // of the one with deletions only
    uint8_t num_keys = 0;  // on the path; 0: changes of the whole path come as one MOP_MODIFIED without keys
    unsigned priority : 4 = 0;
    unsigned del_priority : 4 = 0;  // 0: one subscription for everything
    unsigned oper_data : 1 = 0;
    unsigned two_phase : 1 = 0;
    unsigned : 0;  // threads read what stands above while the main thread writes what stands below
    unsigned init_cfg_read : 1 = 0;  // the first triggered read has reached this entry
    unsigned error : 1 = 0;          // the last callback failed
    unsigned is_triggered : 1 = 0;   // a triggered read is being served
    time_t start_time = 0;           // of the last processing
    time_t end_time = 0;
};

// Wishes for the framework's own events.
struct t_lconfd_notification {
    int notification_events_mask;
    int health_check_interval;  // milliseconds, or 0
    // The record is freed after the call. Called after a failed read too, with a record that says nothing,
    // and then perhaps on a context whose connections are gone.
    void (*notification_handler)(t_lconfd_context *ctx, confd_notification *p_notification);
};

// Required: opaque_p, the three arrays, data_register_cb, evt_base_p, timer_mgr_p and mod_id. The arrays must
// outlive the context.
struct t_lconfd_module_data {
    void *opaque_p = nullptr;                           // the daemon's own record
    t_lconfd_sub_entry *sub_point_arr = nullptr;        // ended by an empty path
    confd_valpoint_cb *val_point_arr = nullptr;         // ended by an empty name
    confd_action_cbs *action_cmd_arr = nullptr;         // ended by an empty name; `init` is the adapter's
    confd_notification_ctx *notif_ctxt = nullptr;       // of the stream; filled in
    t_lconfd_notification *confd_notif_ctxt = nullptr;  // null: no events of the framework
    confd_notification_ctx *snmp_notif_ctxt = nullptr;  // filled in
    int (*data_register_cb)(t_lconfd_context *ctx) = nullptr;  // registers data callbacks; 0 is success
    void (*sub_end_cb)(t_lconfd_context *ctx, int triggered) = nullptr;  // after each batch; may be null
    void (*connected_cb)(t_lconfd_context *ctx) = nullptr;               // all is registered; may be null
    event_base *evt_base_p = nullptr;
    t_timer_mgr *timer_mgr_p = nullptr;
    e_lum_module mod_id = LUM_MODULE_UNKNOWN;
    int initial_read_priority_sub_id = 0;  // filled in
};

// ---- The context ----

// Sockets are -1 or 0 while there is no connection.
struct t_lconfd_context {
    t_lconfd_module_data module_data = {};
    confd_daemon_ctx *confd_dctx_p = nullptr;
    t_lconfd_context *pri_lconfd_ctx_p = nullptr;  // of a secondary context
    t_lconfd_context *sec_lconfd_ctx_p = nullptr;  // of a primary that has one; owned
    event *evt_ctrl = nullptr;
    event *evt_work = nullptr;
    event *evt_sub = nullptr;
    event *evt_notf = nullptr;
    event *evt_pipe = nullptr;
    t_timer *retry_timer = nullptr;  // exists while the adapter tries to connect again
    int pipe_fd[2] = {-1, -1};       // threads tell the main thread by it
    int ctrl_socket = -1;
    int sub_socket = -1;
    int worker_socket = -1;
    int data_socket = -1;
    int maapi_socket = -1;
    int notification_socket = -1;
    std::atomic<int> init_config_read_done = 0;    // survives reconnections
    std::atomic<int> init_read_started = 0;        // somebody has begun, or ended, the first read
    pthread_t last_thread_id = 0;                  // of the last background write; see lconfd_util.h
    std::shared_ptr<t_lconfd_anchor> anchor = {};  // what threads hold of this context
};

// First call: with mod_data_p, which is copied, and where the context's pointer goes. It is stored before the
// connections are made. LCONFD_STATUS_OK, or LCONFD_STATUS_IN_RETRY: then the daemon just goes on, too.
// Anything else is fatal. The adapter's own retries give lconfd_ctx_p alone.
e_lconfd_status lconfd_module_init(t_lconfd_module_data *mod_data_p, t_lconfd_context *lconfd_ctx_p,
                                   t_lconfd_context **module_lconfd_ctx_p);

// Closes and frees everything and makes the pointer null.
void lconfd_module_deinit(t_lconfd_context **pp_ctx);

// A second daemon of the framework for the same module, "NAME-secondary", with the primary's event base:
// actions, transactions and data only. Replaces an earlier one.
e_lconfd_status lconfd_module_secondary_context_register(t_lconfd_module_data *mod_data_p,
                                                         t_lconfd_context *lconfd_ctx_p);

// ---- Subscriptions ----

inline constexpr size_t LCONFD_MAX_SUB_IDS = 128;  // ids of one daemon

// Reads these subscriptions again, on a thread of its own; what they hold comes by the callbacks. 0, or
// LCONFD_STATUS_MEM_FAIL. A count of 0 does nothing.
int lconfd_read_sub_config(t_lconfd_context *ctx, const int *sub_ids, int count);

// The same for all of the daemon's and the adapter's own entries.
int lconfd_read_sub_config_all(t_lconfd_context *ctx);

// What every daemon subscribes to beside its own table; ended by an empty path. All walks over subscriptions
// take the module's table first.
extern t_lconfd_sub_entry lconfd_subscription_points[];

// "list", "container", "case", "leaf-list" or "leaf". The path is without leading slash and must exist.
const char *lconfd_subs_path_node_type(const char *path);

// Frees the array and what the values in it own.
void lconfd_free_confd_tag_value(int count, confd_tag_value_t *values);

// ---- The order of first reading ----

inline constexpr uint32_t LCONFD_NUM_INITIAL_READ_PRIORITIES = 4;

// 0 to 3; a daemon waits for those of lower numbers. 3 is every module that nobody waits for.
uint32_t lconfd_lum_module_get_initial_read_priority(uint32_t module);

// The module of a priority, and its bit in the mask. 0 for priority 3 and above.
uint32_t lconfd_get_initial_read_priority_to_lum_module(uint32_t priority);
uint32_t lconfd_get_initial_read_priority_to_confd_val(uint32_t priority);

// ---- What the router shares ----

// A block in shared memory that another daemon writes and this library only reads.
inline constexpr const char *LCONFD_SHARED_REGION = "lconfd_shared_region";

struct t_lconfd_shared_region {
    t_ipaddr system_ip;
    char system_hostname[253];
};
static_assert(sizeof(t_lconfd_shared_region) == 280);
static_assert(offsetof(t_lconfd_shared_region, system_ip) == 0);
static_assert(sizeof(t_lconfd_shared_region::system_ip) == 24);
static_assert(offsetof(t_lconfd_shared_region, system_hostname) == 24);
static_assert(sizeof(t_lconfd_shared_region::system_hostname) == 253);

// Host name and address as the region has them now; without a region, as they were read last, at first an
// empty text and an unknown address. The text is good until the next call.
const char *lconfd_get_hostname();
void lconfd_get_system_ip(t_ipaddr *p_addr);

// ---- Logging ----

// The syslog facility of each module.
extern const std::array<uint8_t, LUM_MODULE_MAX> lconfd_lum_module_to_log_id;
static_assert(sizeof(lconfd_lum_module_to_log_id) == 165);

// Set by the first lconfd_module_init; read by threads.
extern std::atomic<uint32_t> g_lconfd_mod_id;
extern std::atomic<int> g_lconfd_log_id;

// Debug lines are written while this is set, and always before the module is known.
extern std::atomic<int> g_lconfd_debug_enable;
extern std::atomic<int> g_lconfd_debug_level;

void lconfd_debug_enable(int level);
void lconfd_debug_disable();
