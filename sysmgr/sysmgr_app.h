// Client of the system manager: how a daemon proves that it lives.
//
// A daemon connects once, at start-up, and from then on a hello goes to the manager every second while the
// connection is up; the message queue connects anew after a loss. The beat is a high-priority timer, so that
// it goes on in long loops that run those alone. A manager that is away is no error, and what can't be sent
// is dropped. A few requests can be made of the manager, too.
//
// All on the thread of the event loop.
#pragma once

#include <cstddef>
#include <cstdint>
#include <ctime>
#include <sys/types.h>
#include <type_traits>

struct event_base;
struct msgq_handle;
struct t_timer;
struct t_timer_mgr;

// ---- The wire, host byte order: both ends are on one machine ----

enum e_sysmgr_app_msg_type : uint8_t {
    SYSMGR_APP_MSG_HELLO = 1,
    SYSMGR_APP_MSG_REBOOT = 2,
    SYSMGR_APP_MSG_SHUTDOWN = 3,
    SYSMGR_APP_MSG_CONNECT_REPLY = 4,  // from the manager; all others go to it
    SYSMGR_APP_MSG_VPN_DAEMON_START = 5,
    SYSMGR_APP_MSG_VPN_DAEMON_STOP = 6,
    SYSMGR_APP_MSG_CFGMGR_CONFD_INIT_DONE = 7,
};

struct tarn_msg_hdr_t {
    uint8_t version;  // 1
    uint8_t msg_type;
    uint16_t msg_len;  // bytes of the whole record, its text included
};
static_assert(sizeof(tarn_msg_hdr_t) == 4);
static_assert(offsetof(tarn_msg_hdr_t, msg_type) == 1);
static_assert(offsetof(tarn_msg_hdr_t, msg_len) == 2);

struct t_sysmgr_app_connect_reply {
    uint64_t vpn_id;
    uint64_t modules_up_mask;  // bit n: module n is up
};

struct t_sysmgr_app_msg {
    tarn_msg_hdr_t hdr;  // msg_type: e_sysmgr_app_msg_type
    uint32_t reserved;   // 0
    union {
        int32_t pid;  // of the sender, in all messages to the manager
        t_sysmgr_app_connect_reply connect_reply;
    };
    uint64_t vpn_id;  // of the VPN daemon requests
    char msg[];       // reason of reboot and shutdown, with its terminator
};
static_assert(sizeof(t_sysmgr_app_msg) == 32);
static_assert(offsetof(t_sysmgr_app_msg, pid) == 8);
static_assert(offsetof(t_sysmgr_app_msg, connect_reply.vpn_id) == 8);
static_assert(offsetof(t_sysmgr_app_msg, connect_reply.modules_up_mask) == 16);
static_assert(offsetof(t_sysmgr_app_msg, vpn_id) == 24);
static_assert(offsetof(t_sysmgr_app_msg, msg) == 32);
static_assert(std::is_standard_layout_v<t_sysmgr_app_msg>);

// ---- The client ----

// Gets a connect reply; the message is gone when it returns.
using f_app_read_cb = void (*)(void *app_handle, const t_sysmgr_app_msg *p_msg);

struct t_sysmgr_app {
    msgq_handle *p_msgq;
    t_timer *hello_timer;  // runs while the connection is up
    pid_t pid;
    void *app_handle;       // the daemon's, passed to read_cb
    f_app_read_cb read_cb;  // may be null
};

extern time_t g_sysmgr_app_last_hello_time;  // 0 before the first one

// Null without memory, a timer or a handle. app_module_id: the daemon's own. vpn_id is for callers that have
// one, and not used. The first attempt to connect is made after 500 ms.
t_sysmgr_app *app_sysmgr_connect(event_base *p_event_base, t_timer_mgr *p_timer_mgr, uint64_t vpn_id,
                                 uint32_t app_module_id, void *app_handle, f_app_read_cb app_read_cb);

// Accepts null.
void app_sysmgr_disconnect(t_sysmgr_app *p_app);

// Requests; nothing comes back, and a manager that is down misses them. A reason that no message holds is cut
// to 65494 characters.
void sysmgr_app_request_reboot(t_sysmgr_app *p_app, const char *reason);
void sysmgr_app_request_shutdown(t_sysmgr_app *p_app, const char *reason);
void sysmgr_app_request_vpn_daemons_start(t_sysmgr_app *p_app, uint64_t vpn_id);
void sysmgr_app_request_vpn_daemons_stop(t_sysmgr_app *p_app, uint64_t vpn_id);
void sysmgr_app_request_confd_init_done(t_sysmgr_app *p_app);

// When the last hello was sent, or tried, in the form of ctime without the line end, cut to size bytes with
// the terminator. Returns p_buf.
char *sysmgr_app_get_last_hello_time(char *p_buf, size_t size);
