#include <arpa/inet.h>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>
#include <utility>

#include "common/lum_assert.h"
#include "common/msgq_util_private.h"
#include "common/strlcpy.h"

static constexpr int DELAYED_CONNECT_MSECS = 5000;

// ---- Events of a connection ----

static event *event_create(msgq_handle_t *msgq_p, int fd, short events, event_callback_fn callback)
{
    event *ev_p = event_new(msgq_p->inst_p->app_evbase_p, fd, events, callback, msgq_p);
    LUM_ASSERT(ev_p != nullptr, "ev_p != NULL");
    return ev_p;
}

static void event_release(event **pp_event)
{
    if (*pp_event != nullptr)
        event_free(std::exchange(*pp_event, nullptr));
}

void msgq_read_event_add(msgq_handle_t *msgq_p, short events)
{
    event_release(&msgq_p->read_ev_p);
    msgq_p->read_ev_p = event_create(msgq_p, msgq_p->sock_fd, events, msgq_read_cb);
    event_add(msgq_p->read_ev_p, nullptr);
}

void msgq_write_events_create(msgq_handle_t *msgq_p)
{
    for (event *&ev_p : msgq_p->write_ev_p)
        ev_p = event_create(msgq_p, msgq_p->sock_fd, EV_WRITE, msgq_write_cb);
}

bool msgq_read_helpers_create(msgq_handle_t *msgq_p)
{
    for (event *&ev_p : msgq_p->read_helper_ev_p) {
        ev_p = event_new(msgq_p->inst_p->app_evbase_p, -1, EV_READ | EV_PERSIST, msgq_read_helper_cb, msgq_p);
        if (ev_p == nullptr)
            return false;
        event_add(ev_p, nullptr);
    }
    return true;
}

static void events_release(msgq_handle_t *msgq_p)
{
    event_release(&msgq_p->read_ev_p);
    for (int i = 0; i < 2; i++) {
        event_release(&msgq_p->write_ev_p[i]);
        msgq_p->write_ev_set[i] = false;
        event_release(&msgq_p->read_helper_ev_p[i]);
        msgq_p->read_helper_ev_set[i] = false;
    }
    msgq_p->write_ev_index = 0;
    msgq_p->read_helper_ev_index = 0;
}

// ---- One attempt to connect ----

union t_msgq_addr {
    sockaddr any;
    sockaddr_un unix_path;
    sockaddr_in inet;
};

// The size of the address; 0 for a socket type that there is not.
static socklen_t address_build(const msgq_handle_t &handle, t_msgq_addr *addr_p)
{
    *addr_p = {};
    if (handle.socket_type == AF_UNIX) {
        addr_p->unix_path.sun_family = AF_UNIX;
        lum_strlcpy(addr_p->unix_path.sun_path, handle.msgq_path, sizeof(addr_p->unix_path.sun_path));
        return sizeof(addr_p->unix_path);
    }
    if (handle.socket_type != AF_INET)
        return 0;
    addr_p->inet.sin_family = AF_INET;
    addr_p->inet.sin_port = htons(handle.host_port);
    // The text is not judged: what names no host can't be reached.
    if (inet_pton(AF_INET, handle.host_addr, &addr_p->inet.sin_addr) != 1)
        addr_p->inet.sin_addr.s_addr = INADDR_NONE;
    return sizeof(addr_p->inet);
}

static int socket_open(const msgq_handle_t &handle)
{
    int fd = socket(handle.socket_type, SOCK_STREAM, 0);
    if (fd < 0) {
        MSGQ_ERR("Socket init failed %d", errno);
        return -1;
    }
    if (!handle.client_socket_blocking)
        evutil_make_socket_nonblocking(fd);
    evutil_make_socket_closeonexec(fd);
    return fd;
}

// The other end is asked already. poll and not select, which has no room for descriptors above its set.
static bool delayed_connect_done(int fd)
{
    pollfd waiting = {.fd = fd, .events = POLLOUT, .revents = 0};
    int ready = poll(&waiting, 1, DELAYED_CONNECT_MSECS);
    if (ready > 0) {
        int error = 0;
        socklen_t size = sizeof(error);
        if (getsockopt(fd, SOL_SOCKET, SO_ERROR, &error, &size) < 0) {
            MSGQ_ERR("ERROR in getsockopt: %d - %s", errno, strerror(errno));
            return false;
        }
        if (error != 0)
            MSGQ_DBG("ERROR in delayed connection: %d - %s", error, strerror(error));
        return error == 0;
    }
    if (ready < 0 && errno != EINTR)
        MSGQ_ERR("Failed to connect for fd: %d, error: %d", fd, errno);
    else
        MSGQ_ERR("Timeout in select");
    return false;
}

static bool socket_connect(const msgq_handle_t &handle, int fd, const t_msgq_addr &addr, socklen_t size)
{
    if (connect(fd, &addr.any, size) == 0)
        return true;
    return handle.socket_type == AF_INET && errno == EINPROGRESS && delayed_connect_done(fd);
}

static bool msgq_send_register(msgq_handle_t *msgq_p)
{
    msgq_hdr_t hdr;
    msgq_init_msg(&hdr, sizeof(hdr));
    hdr.src_mod = static_cast<uint8_t>(msgq_p->srcid);
    hdr.tgt_mod = static_cast<uint8_t>(msgq_p->tgtid);
    hdr.msg_type = MSGQ_HDR_TYPE_REGISTER;
    msgq_p->stats.tx_register++;
    if (send(msgq_p->sock_fd, &hdr, sizeof(hdr), MSG_NOSIGNAL) == sizeof(hdr))
        return true;
    MSGQ_DBG("Error in sending register message to %d, err %d", msgq_p->tgtid, errno);
    return false;
}

// A client counts itself as up without any answer of the server, and even if the register message failed.
static void client_connected(msgq_handle_t *msgq_p)
{
    msgq_write_events_create(msgq_p);
    if (!msgq_read_helpers_create(msgq_p)) {
        MSGQ_ERR("Failed to create read helper events");
        return;
    }
    if (!msgq_p->client_socket_blocking)
        msgq_read_event_add(msgq_p, EV_READ | EV_PERSIST);
    if (!msgq_p->dont_register && !msgq_send_register(msgq_p))
        msgq_close_conn(msgq_p, true);
    if (!msgq_p->in_reg_list)  // it may stand there since a register message that failed
        msgq_move_to_reg_list(msgq_p);
    msgq_p->stats.conn_up++;
    if (msgq_p->app_cb.conn_up_cb != nullptr)
        msgq_p->app_cb.conn_up_cb(msgq_p, msgq_p->user_arg_p);
}

void msgq_connect_timer(t_timer *timer_p, void *arg, void *, void *, void *)
{
    auto *msgq_p = static_cast<msgq_handle_t *>(arg);
    LUM_ASSERT(msgq_p->sock_fd == -1, "msgq_p->sock_fd == -1");
    t_msgq_addr addr;
    socklen_t size = address_build(*msgq_p, &addr);
    if (size == 0) {
        MSGQ_ERR("Unsupported socket type %d", msgq_p->socket_type);
        return;
    }
    int fd = socket_open(*msgq_p);
    if (fd < 0)
        return;
    bool connected = socket_connect(*msgq_p, fd, addr, size);
    if (timer_p != nullptr)
        timer_disable(timer_p);
    if (!connected) {
        close(fd);
        if (timer_p != nullptr)
            timer_enable(timer_p);
        return;
    }
    msgq_p->sock_fd = fd;
    client_connected(msgq_p);
}

e_err msgq_init_start_client(msgq_handle_t *msgq_p)
{
    if (msgq_p->app_cb.reboot_status_cb != nullptr && msgq_p->app_cb.reboot_status_cb(msgq_p)) {
        MSGQ_ERR("Reboot in progress, skip connecting to server %s", lum_util_module_name(msgq_p->tgtid));
        return ERR_NOT_FOUND;
    }
    if (msgq_p->client_socket_blocking) {
        while (msgq_p->sock_fd == -1)
            msgq_connect_timer(nullptr, msgq_p, nullptr, nullptr, nullptr);
        return ERR_OK;
    }
    if (msgq_p->inst_p->timer_mgr_p != nullptr)
        msgq_p->conn_timer_p = timer_util_create(msgq_p->inst_p->timer_mgr_p, TIMER_PRI_NORMAL,
                                                 TIMER_TYPE_ONESHOT, MSGQ_RETRY_MSECS, msgq_connect_timer,
                                                 msgq_p, nullptr, nullptr, nullptr, "msgq-timer");
    if (msgq_p->conn_timer_p == nullptr) {
        MSGQ_ERR("Failed to init connect timer for %p", static_cast<void *>(msgq_p));
        return ERR_ALLOC;
    }
    timer_enable(msgq_p->conn_timer_p);
    return ERR_OK;
}

// ---- Closing ----

static void write_queue_drop(msgq_handle_t *msgq_p)
{
    while (msgq_p->buf_head_p != nullptr) {
        msgq_buf_t *entry_p = msgq_p->buf_head_p;
        msgq_p->buf_head_p = entry_p->buf_next_p;
        msgq_p->stats.msg_frees++;
        msgq_p->app_cb.free_cb(entry_p->buf_p + entry_p->buf_offset);
        msgq_p->app_cb.free_cb(entry_p);
    }
    msgq_p->buf_tail_p = nullptr;
    msgq_p->stats.tx_queued = 0;
    msgq_p->stats.tx_dequeued = 0;
}

static void received_part_drop(msgq_handle_t *msgq_p)
{
    if (msgq_p->rx_buf_p != nullptr)
        msgq_p->app_cb.free_cb(std::exchange(msgq_p->rx_buf_p, nullptr));
    msgq_p->rx_msg_size = 0;
    msgq_p->rx_bytes = 0;
    memset(msgq_p->rx_hdr, 0, sizeof(msgq_p->rx_hdr));
}

void msgq_close_conn(msgq_handle_t *msgq_p, bool retry)
{
    msgq_p->stats.conn_close++;
    msgq_p->down_pending = false;
    events_release(msgq_p);
    write_queue_drop(msgq_p);
    received_part_drop(msgq_p);
    if (msgq_p->sock_fd >= 0) {
        shutdown(msgq_p->sock_fd, SHUT_RDWR);
        close(msgq_p->sock_fd);
    }
    msgq_p->sock_fd = -1;
    if (msgq_p->in_reg_list) {
        msgq_move_to_unreg_list(msgq_p);
        msgq_p->stats.conn_down++;
        if (msgq_p->app_cb.conn_down_cb != nullptr)
            msgq_p->app_cb.conn_down_cb(msgq_p, msgq_p->user_arg_p);
    }
    if (retry && msgq_p->conn_timer_p != nullptr && msgq_p->type == MSGQ_HANDLE_TYPE_CLIENT)
        timer_enable(msgq_p->conn_timer_p);
}
