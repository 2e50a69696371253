// Notifications of daemons on their way out: to the framework's stream, to SNMP and to syslog.
//
// A daemon may have many to tell at once; nobody outside should see more than five a second. All go through
// the process's one throttler: a queue for each severity and a thread that sends one notification per round,
// critical before major before minor. A full queue drops the newest. While the connection is lost, what is
// queued waits; queues and thread survive reconnections.
//
// Notifications come from the main thread, which copies texts and puts traps together, so that a round is
// only sending. The thread holds state_lock for the whole of a send, and takes it by trylock: it never waits
// for the main thread, and the main thread waits for one send at most before a connection goes away. Order of
// locks: state_lock, then the queues' in ascending order.
#pragma once

#include "common/dll.h"
#include "lconfd/lconfd_api.h"
#include "lconfd/lconfd_trap.h"

#include <atomic>
#include <pthread.h>
#include <string>

// Hands a notification to the throttler. values: the start (C_XMLBEGIN, whose tag names the notification),
// the severity (C_ENUM_VALUE: 1 critical, 2 major, others minor), the fields, the end; below 20 in all. They
// are copied, with the text of a C_STR or C_BUF. 0 also for what is dropped: before the framework runs (phase
// 2) and when the queue is full. 1: no context, no connection, or a failed sending past the throttler, which
// is what happens before the first connection and after the end. Main thread.
int lconfd_event_send_notification(t_lconfd_context *ctx, const confd_tag_value_t *values, int num_values);

// The same, whatever the connection: 0 queued, -1 the throttler can't take it, -2 the queue is full.
int lconfd_enqueue_notification(const confd_tag_value_t *values, int num_values);

// Time between two rounds in milliseconds, from the next round on; each process starts with 200.
void lconfd_notification_sleep_interval_init(int interval_ms);

// Memory of queued notifications comes from these; plain heap at first. To be set before the first
// notification.
using f_lconfd_alloc = void *(*)(size_t size);
using f_lconfd_free = void (*)(void *p_mem);
void lconfd_mem_fn_init(f_lconfd_alloc alloc, f_lconfd_free free);

// ---- The throttler; for the adapter and white-box tests ----

enum e_lconfd_notif_queue_index {
    LCONFD_NOTIF_QUEUE_CRITICAL = 0,
    LCONFD_NOTIF_QUEUE_MAJOR = 1,
    LCONFD_NOTIF_QUEUE_MINOR = 2,
};
inline constexpr int LCONFD_NUM_NOTIF_QUEUES = 3;

enum e_lconfd_throttler_state {
    LCONFD_THROTTLER_INIT = 0,   // before the first connection: no thread, no locks
    LCONFD_THROTTLER_RESET = 1,  // between two connections: notifications wait
    LCONFD_THROTTLER_ACTIVE = 2,
    LCONFD_THROTTLER_TERMINATE = 3,  // never left
};

struct t_lconfd_notification_queue_item {
    confd_datetime event_time;
    confd_tag_value_t val[LCONFD_NOTIF_MAX_VALUES];
    int num_values;
    void *buffers[LCONFD_NOTIF_MAX_VALUES];  // copies of the values' texts; owned
    t_lconfd_snmp_trap trap;
    t_dlnode entries;  // of its queue
};

struct t_lconfd_notification_throttler {
    t_dll queue[LCONFD_NUM_NOTIF_QUEUES];
    pthread_spinlock_t queue_lock[LCONFD_NUM_NOTIF_QUEUES];  // held for linking only
    pthread_spinlock_t state_lock;                           // held for a whole send
    pthread_t send_thread;                                   // 0: not started
    std::atomic<e_lconfd_throttler_state> state;
    confd_notification_ctx *p_notification_ctx;  // of the present connection, or null
    confd_notification_ctx *p_snmp_notification_ctx;
    std::atomic<int> sleep_interval;  // milliseconds
    int queue_size[LCONFD_NUM_NOTIF_QUEUES];
};

extern t_lconfd_notification_throttler g_lconfd_notification_throttler;

// At each connection, at its loss, and at the end. The first starts the thread once in a process's life, the
// last joins it, which takes up to one interval, and drops what is queued.
void lconfd_notification_throttler_init(const t_lconfd_context *ctx);
void lconfd_notification_throttler_connection_reset();
void lconfd_notification_throttler_free();

// One round: sends the first notification of the first queue that has one, if there is a connection.
void lconfd_notification_throttler_send();

// The notification as a line of syslog tells it: its name, then "FIELD:VALUE " for each value between the
// first and the last. Cut to 2047 characters.
std::string lconfd_notification_text(const confd_tag_value_t *values, int num_values);

// Writes it to syslog, at information level of the local7 facility.
void lconfd_add_to_syslog(const confd_datetime *event_time, const confd_tag_value_t *values, int num_values);
