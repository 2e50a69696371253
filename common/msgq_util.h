// Message queue: how the router's daemons talk to each other.
//
// A daemon names the two modules of a channel, says whether it serves or calls, and gets a handle; sockets,
// listening, connecting every 500 ms, framing and queueing are the library's. It is driven by the libevent
// loop of its process: no thread, no lock, one instance per process (g_msgq_inst_p), made by the first
// msgq_init and gone with the last msgq_destroy. The first call's event base, timer manager and syslog id
// serve all handles.
//
// A message is an 8-byte header (msgq_hdr_t) and a body, at most 65535 bytes together; a client's first
// message is the header alone, which tells the server who it is. A channel may instead bring a header of its
// own that holds the message's length (use_app_header); then the library adds nothing. Nothing is queued for
// a peer that is down, and nothing survives a connection: conn_up_cb sends again what the peer needs.
//
// Who owns a buffer: msgq_msg_malloc gives one to the caller; msgq_write takes it over with ERR_OK only;
// msg_read_cb gets one to keep and to free with msgq_msg_free. Callbacks may write, but must not destroy the
// handle that calls them.
#pragma once

#include "common/e_err.h"
#include "common/lum_util.h"

#include <cstddef>
#include <cstdint>
#include <type_traits>

struct event_base;
struct msgq_handle;
struct msgq_instance;
struct t_lconfd_context;
struct t_timer_mgr;

using msgq_handle_t = msgq_handle;
using msgq_instance_t = msgq_instance;

// ---- The wire, host byte order: both ends are on one machine ----

inline constexpr uint16_t MAGIC1 = 0xBEAF;
inline constexpr uint8_t MAGIC2 = 0x0C;

enum msgq_hdr_type_e : uint8_t {
    MSGQ_HDR_TYPE_INVALID = 0,
    MSGQ_HDR_TYPE_REGISTER = 1,
    MSGQ_HDR_TYPE_APP = 2,
};

struct msgq_hdr_t {
    uint16_t magic1;
    uint16_t size;    // of the whole message, this header included
    uint8_t src_mod;  // e_lum_module
    uint8_t tgt_mod;
    uint8_t msg_type;  // msgq_hdr_type_e
    uint8_t magic2;
};
static_assert(sizeof(msgq_hdr_t) == 8);
static_assert(offsetof(msgq_hdr_t, size) == 2);
static_assert(offsetof(msgq_hdr_t, src_mod) == 4);
static_assert(offsetof(msgq_hdr_t, tgt_mod) == 5);
static_assert(offsetof(msgq_hdr_t, msg_type) == 6);
static_assert(offsetof(msgq_hdr_t, magic2) == 7);
static_assert(std::is_standard_layout_v<msgq_hdr_t>);

// ---- What a handle is made of ----

enum msgq_handle_type_e {
    MSGQ_HANDLE_TYPE_UNKNOWN = 0,
    MSGQ_HANDLE_TYPE_SERVER = 1,
    MSGQ_HANDLE_TYPE_CLIENT = 2,
};

inline constexpr size_t MSGQ_PATH_SIZE = 64;  // with the terminator
inline constexpr size_t MSGQ_HOST_SIZE = 128;
inline constexpr size_t MSGQ_APP_HEADER_MAX = 64;  // bytes
inline constexpr uint32_t MSGQ_RETRY_MSECS = 500;

struct msgq_app_params_t {
    event_base *app_evbase_p;
    t_timer_mgr *timer_mgr_p;  // a client needs it, from the first handle of the process on
    bool dont_register;
    bool use_app_header;
    uint8_t app_header_size;    // bytes, 1 to 64
    uint8_t app_msglen_offset;  // where the header holds the whole length, 2 bytes, big-endian; to 62
    int syslog_id;              // syslog facility; the library logs at debug level
    int socket_type;            // AF_UNIX (1), or AF_INET (2) for clients
    uint16_t host_port;         // host order
    char host_addr[MSGQ_HOST_SIZE];
    char msg_path[MSGQ_PATH_SIZE];  // empty: "/var/run/.<server module's name>"
    unsigned client_socket_blocking : 1;
};

// The application's side. msg_read_cb, msg_write_cb, malloc_cb and free_cb are required, the others may be
// null. msg_write_cb is never called. reboot_status_cb says whether the system is going down.
struct msgq_app_cb_t {
    void (*conn_up_cb)(msgq_handle_t *msgq_p, void *user_arg_p);
    void (*conn_down_cb)(msgq_handle_t *msgq_p, void *user_arg_p);
    void (*msg_write_cb)(msgq_handle_t *msgq_p, void *user_arg_p);
    void (*msg_read_cb)(msgq_handle_t *msgq_p, void *msg_p, uint16_t size, void *user_arg_p);
    void *(*malloc_cb)(size_t size);
    void (*free_cb)(void *buf_p);
    bool (*reboot_status_cb)(msgq_handle_t *msgq_p);
};

extern msgq_instance_t *g_msgq_inst_p;
extern uint8_t msgq_dbg_enable;  // 1 logs the "[MSG] " lines

// ---- Handles ----

// A handle between two modules, null for a module id out of range or without memory. A server listens at
// once; a client tries for the first time after 500 ms (a blocking client connects before this returns). Bad
// parameters and a second handle of the same modules, type and path are assertions. A start that failed is
// only logged.
msgq_handle_t *msgq_init(uint32_t srcid, uint32_t tgtid, msgq_handle_type_e type,
                         const msgq_app_params_t *params_p, const msgq_app_cb_t *cb_p, void *user_arg_p);

// Closes for good and frees; the last handle takes the instance along. Null is accepted.
void msgq_destroy(msgq_handle_t *msgq_p);
void msgq_destroy_all();

// Asserts that no named handle is left; closes connections that never told who they are.
void msgq_lib_destroy(msgq_instance_t *inst_p);

// Connected, and no send has failed since.
bool msgq_ready(const msgq_handle_t *msgq_p);

void msgq_set_user_arg(msgq_handle_t *msgq_p, void *user_arg_p);

// Switches O_NONBLOCK of the live socket; -1 if fcntl fails.
int msgq_set_blocking(msgq_handle_t *msgq_p, bool blocking);
bool msgq_get_client_socket_blocking(const msgq_handle_t *msgq_p);
void msgq_set_client_socket_blocking(msgq_handle_t *msgq_p, bool blocking);

// ---- Messages ----

// A message of app_size bytes of body, not filled; the pointer is the body (with an application header: the
// message). Null without memory, or if body and header exceed 65535 bytes.
void *msgq_msg_malloc(msgq_handle_t *msgq_p, uint16_t app_size);
void msgq_msg_free(msgq_handle_t *msgq_p, void *app_p);

// Sends the first app_size bytes of the body, which may be fewer than were allocated. ERR_OK: the library
// owns the buffer. ERR_AGAIN: the peer is down. ERR_BAD_PARAM, ERR_WRITE_FAILED: as named. On all but ERR_OK
// the caller keeps the buffer. A send error shows later, as a connection that goes down. In a blocking client
// the peer's answer comes to msg_read_cb before this returns; without an application header the reader waits
// there for further messages too, until the peer closes.
e_err msgq_write(msgq_handle_t *msgq_p, void *app_p, uint16_t app_size);

// Asks for another turn of the reader, for an application that stopped in the middle of its input.
void msgq_read_helper_schedule(msgq_handle_t *msgq_p);

// Between the application's view of a message and the wire's: the header's bytes apart, or the same with an
// application header. msgq_hdr_size is the size in bytes of the header that the wire carries.
uint16_t msgq_hdr_size(const msgq_handle_t *msgq_p);
void *msgq_buf_app_to_msgp(const msgq_handle_t *msgq_p, void *app_p);
void *msgq_buf_msgp_to_app(const msgq_handle_t *msgq_p, void *msg_p);
uint16_t msgq_size_app_to_msg(const msgq_handle_t *msgq_p, uint16_t app_size);
uint16_t msgq_size_msg_to_app(const msgq_handle_t *msgq_p, uint16_t msg_size);

// 0, or an assertion for a buffer that msgq_msg_malloc did not make or that is too small.
int msgq_validate_buf(const msgq_handle_t *msgq_p, void *app_p, uint16_t app_size);

// ---- Dumps, to an operator's session or standard output (cli_print.h) ----

void msgq_dump_instance(t_lconfd_context *ctx, int usid);
void msgq_dump_all_handles(t_lconfd_context *ctx, int usid);
void msgq_dump_handle(t_lconfd_context *ctx, int usid, const msgq_handle_t *msgq_p);
struct msgq_server;
void msgq_dump_server(t_lconfd_context *ctx, int usid, const msgq_server *server_p);
