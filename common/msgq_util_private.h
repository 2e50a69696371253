// What the message queue's own files and its tests share: the records, and the steps from one file to the
// next.
//
// The instance knows its handles by three lists, and a handle is on exactly one of them. Without a live
// connection it is on the unregistered list, connected on the registered one. The nameless handle of a
// connection that a server accepted waits on the temporary list for the register message, which hands its
// socket to the handle of the named peer. A server listens on one path for all handles that serve there.
//
// msgq_util.cc makes and ends handles and keeps the lists, msgq_server.cc listens, accepts and registers,
// msgq_connect.cc connects a client and closes every connection, msgq_msg.cc makes buffers, msgq_read.cc and
// msgq_write.cc move messages.
#pragma once

#include <event2/event.h>
#include <event2/listener.h>
#include <sys/queue.h>

#include "common/msgq_util.h"
#include "common/timer.h"

struct msgq_server;
using msgq_server_t = msgq_server;

// Counters of a handle. tx_queued and tx_dequeued describe the present connection, the others all of them.
struct msgq_stats_t {
    uint32_t tx_msg;
    uint32_t tx_fail;
    uint32_t rx_msg;
    uint32_t rx_fail;
    uint32_t tx_resched;
    uint32_t tx_write_cb;
    uint32_t rx_register;
    uint32_t tx_register;
    uint32_t conn_up;
    uint32_t conn_down;
    uint32_t conn_close;
    uint32_t conn_exist;
    uint32_t msg_allocs;
    uint32_t msg_frees;
    uint32_t alloc_failed;
    uint32_t tx_queued;
    uint32_t tx_dequeued;
    uint32_t tx_queue_failed;
    uint32_t rx_read_helper_cb;
    uint32_t rx_read_helper_scheduled;
};

// A message that waits for the socket; the record comes from the application's allocator too.
struct msgq_buf_t {
    msgq_buf_t *buf_next_p;
    uint16_t buf_offset;  // where the message begins in its block; always 0, so that buf_p can be freed
    uint16_t buf_size;    // bytes on the wire
    uint8_t *buf_p;
    uint16_t buf_sent;  // bytes that the socket has taken
};

struct msgq_handle {
    e_lum_module srcid;  // both LUM_MODULE_UNKNOWN in a temporary handle
    e_lum_module tgtid;
    msgq_handle_type_e type;
    msgq_instance_t *inst_p;
    msgq_server_t *server_p;  // null in a client and in a temporary handle
    int sock_fd;              // -1 when closed
    TAILQ_ENTRY(msgq_handle) reg_list_entry;
    TAILQ_ENTRY(msgq_handle) unreg_list_entry;
    TAILQ_ENTRY(msgq_handle) tmp_list_entry;
    t_timer *conn_timer_p;  // null: never connects again
    msgq_app_cb_t app_cb;   // empty in a temporary handle
    bool dont_register : 1;
    bool in_reg_list : 1;
    bool in_unreg_list : 1;
    bool in_tmp_list : 1;
    bool use_app_header : 1;
    bool client_socket_blocking : 1;
    bool down_pending : 1;  // a send failed; the write event closes
    uint8_t app_msglen_offset;
    uint8_t app_header_size;
    event *read_ev_p;  // none in a blocking client
    uint8_t rx_hdr[MSGQ_APP_HEADER_MAX];
    uint16_t rx_bytes;     // of the message under way, its header included
    uint16_t rx_msg_size;  // 0 until its header is whole
    uint8_t *rx_buf_p;     // its block, null until its header is whole
    event *write_ev_p[2];  // take turns, so that a flush in the callback of one can arm the other
    bool write_ev_set[2];
    uint8_t write_ev_index;
    event *read_helper_ev_p[2];  // on no descriptor; take turns too
    bool read_helper_ev_set[2];
    uint8_t read_helper_ev_index;
    void *user_arg_p;
    int socket_type;
    uint16_t host_port;
    msgq_buf_t *buf_head_p;  // write queue
    msgq_buf_t *buf_tail_p;
    char host_addr[MSGQ_HOST_SIZE];
    char msgq_path[MSGQ_PATH_SIZE];  // empty with AF_INET
    msgq_stats_t stats;
};

struct msgq_server {
    TAILQ_ENTRY(msgq_server) server_entry;
    msgq_instance_t *inst_p;
    e_lum_module srcid;  // of the first handle
    char msgq_path[MSGQ_PATH_SIZE];
    evconnlistener *server_listener_p;  // null while the path can't be bound
    msgq_handle_t *apphead_msgq_handle_p;
    bool listener_apphdr;
    uint32_t ref_count;  // handles
    msgq_stats_t stats;  // has a place in the dump; nothing counts here
};

TAILQ_HEAD(msgq_handle_list, msgq_handle);
TAILQ_HEAD(msgq_server_list, msgq_server);

struct msgq_instance {
    msgq_handle_list reg_msgq_listhead;
    msgq_handle_list unreg_msgq_listhead;
    msgq_handle_list tmp_msgq_listhead;
    msgq_server_list server_head;
    event_base *app_evbase_p;
    t_timer_mgr *timer_mgr_p;  // null if the first handle was a server's that brought none
    int syslog_id;
};

// ---- Logging, at the instance's facility ----

__attribute__((format(printf, 1, 2))) void msgq_log_write(const char *format, ...);

#define MSGQ_ERR(format, ...)                                                                                \
    msgq_log_write("[MSG-ERR] %s[%d]: " format, __func__, __LINE__ __VA_OPT__(, ) __VA_ARGS__)
#define MSGQ_DBG(...)                                                                                        \
    do {                                                                                                     \
        if (msgq_dbg_enable == 1)                                                                            \
            msgq_log_write("[MSG] " __VA_ARGS__);                                                            \
    } while (0)

// ---- Lists (msgq_util.cc): insertion is at the head; the wrong list is an assertion ----

void msgq_tmp_list_add(msgq_handle_t *msgq_p);
void msgq_tmp_list_remove(msgq_handle_t *msgq_p);
void msgq_move_to_reg_list(msgq_handle_t *msgq_p);
void msgq_move_to_unreg_list(msgq_handle_t *msgq_p);

// ---- Servers (msgq_server.cc) ----

// ERR_EXIST: shares a listener that is there, or the path can't be cleared. ERR_ALLOC: no memory, or the path
// can't be bound.
[[nodiscard]] e_err msgq_init_start_server(msgq_handle_t *msgq_p);

// The last handle takes the listener and the socket file along. A handle without server is left alone.
void msgq_unlink_server(msgq_handle_t *msgq_p);

// The temporary handle has read a register message: its socket goes to the handle of that peer, or is closed.
// The temporary handle is gone afterwards.
void msgq_handle_register_msg(msgq_handle_t *tmp_msgq_p, const msgq_hdr_t &hdr);

// Closes and frees a temporary handle.
void msgq_tmp_handle_destroy(msgq_handle_t *tmp_msgq_p);

// ---- Connections (msgq_connect.cc) ----

// ERR_NOT_FOUND: the system is going down, and this handle never connects. ERR_ALLOC: no timer.
[[nodiscard]] e_err msgq_init_start_client(msgq_handle_t *msgq_p);

// The timer's callback: one attempt. Without a timer for a blocking client, whose caller repeats it.
void msgq_connect_timer(t_timer *timer_p, void *msgq_p, void *, void *, void *);

// Events of a fresh connection.
void msgq_write_events_create(msgq_handle_t *msgq_p);
[[nodiscard]] bool msgq_read_helpers_create(msgq_handle_t *msgq_p);
void msgq_read_event_add(msgq_handle_t *msgq_p, short events);

// Ends the connection with all that is queued or half read, and tells the application if it was up. With
// retry a client connects again after 500 ms.
void msgq_close_conn(msgq_handle_t *msgq_p, bool retry);

// ---- Messages (msgq_read.cc, msgq_write.cc): callbacks of events, the handle is their argument ----

void msgq_read_cb(evutil_socket_t, short, void *msgq_p);
void msgq_read_helper_cb(evutil_socket_t, short, void *msgq_p);
void msgq_write_cb(evutil_socket_t, short, void *msgq_p);

// Sends from the write queue what the socket takes, and arms a write event for the rest.
void msgq_flush(msgq_handle_t *msgq_p);

// Magics and size of a message in its block.
void msgq_init_msg(msgq_hdr_t *hdr_p, uint16_t msg_size);
