#include <cerrno>
#include <cstring>
#include <sys/socket.h>
#include <sys/time.h>
#include <utility>

#include "common/lum_assert.h"
#include "common/msgq_util_private.h"

// How one step of the reader ended.
enum e_msgq_read {
    MSGQ_READ_DONE,  // what was asked for is there
    MSGQ_READ_WAIT,  // for the next readable event; the handle keeps its place
    MSGQ_READ_GONE,  // the connection is closed, and a temporary handle may be freed
};

static void msgq_handle_recv_failed(msgq_handle_t *msgq_p, ssize_t result)
{
    if (result == -1 && (errno == EAGAIN || errno == EINTR))
        return;
    msgq_p->stats.rx_fail++;
    msgq_close_conn(msgq_p, true);
}

// Reads on to buf_p until so many bytes of the message are there.
static e_msgq_read receive_up_to(msgq_handle_t *msgq_p, uint8_t *buf_p, uint16_t wanted)
{
    bool is_header = buf_p == msgq_p->rx_hdr;
    int missing = wanted - msgq_p->rx_bytes;
    int flag = msgq_p->client_socket_blocking ? MSG_WAITALL : MSG_DONTWAIT;
    ssize_t result = recv(msgq_p->sock_fd, buf_p + msgq_p->rx_bytes, static_cast<size_t>(missing), flag);
    if (result < 1) {
        int got = static_cast<int>(result);
        if (msgq_p->use_app_header && result < 0 && errno != EAGAIN) {
            int error = errno;
            MSGQ_ERR("Failed to %s %d bytes, errno: %d, read_bytes: %d", is_header ? "peek" : "read", missing,
                     error, got);
            errno = error;
        }
        msgq_handle_recv_failed(msgq_p, result);
        return msgq_p->sock_fd == -1 ? MSGQ_READ_GONE : MSGQ_READ_WAIT;
    }
    msgq_p->rx_bytes = static_cast<uint16_t>(msgq_p->rx_bytes + result);
    if (result == missing)
        return MSGQ_READ_DONE;
    if (is_header)
        MSGQ_DBG("Read fewer bytes (%d) than header bytes to read (%d) on fd '%d'", static_cast<int>(result),
                 missing, msgq_p->sock_fd);
    return MSGQ_READ_WAIT;
}

// The header is whole: a block for the message, in which the body is read to its final place.
static void body_begin(msgq_handle_t *msgq_p, uint16_t msg_size)
{
    auto *buf_p = static_cast<uint8_t *>(msgq_p->app_cb.malloc_cb(msg_size));
    if (buf_p == nullptr)
        msgq_p->stats.alloc_failed++;
    LUM_ASSERT(buf_p != nullptr, "msg_buf_p != NULL");
    memcpy(buf_p, msgq_p->rx_hdr, msgq_p->rx_bytes);
    memset(msgq_p->rx_hdr, 0, sizeof(msgq_p->rx_hdr));
    msgq_p->rx_buf_p = buf_p;
    msgq_p->rx_msg_size = msg_size;
    msgq_p->stats.msg_allocs++;
}

static void message_deliver(msgq_handle_t *msgq_p)
{
    void *msg_p = std::exchange(msgq_p->rx_buf_p, nullptr);
    uint16_t msg_size = std::exchange(msgq_p->rx_msg_size, uint16_t{0});
    msgq_p->rx_bytes = 0;
    msgq_p->stats.rx_msg++;
    msgq_p->app_cb.msg_read_cb(msgq_p, msgq_buf_msgp_to_app(msgq_p, msg_p),
                               msgq_size_msg_to_app(msgq_p, msg_size), msgq_p->user_arg_p);
}

// ---- What the whole header says, in each of the modes ----

static e_msgq_read msghdr_take(msgq_handle_t *msgq_p)
{
    msgq_hdr_t hdr;
    memcpy(&hdr, msgq_p->rx_hdr, sizeof(hdr));
    if (hdr.msg_type == MSGQ_HDR_TYPE_REGISTER) {
        LUM_ASSERT(msgq_p->in_tmp_list, "msgq_handle_p->in_tmp_list == TRUE");
        msgq_handle_register_msg(msgq_p, hdr);
        return MSGQ_READ_GONE;
    }
    if (hdr.size <= sizeof(hdr)) {
        msgq_p->rx_bytes = 0;
        MSGQ_ERR("Bad message size (%d). Must be more than (%d). Magic1 (%d)"
                 "Dropping the message on fd '%d'",
                 hdr.size, static_cast<int>(sizeof(hdr)), hdr.magic1, msgq_p->sock_fd);
        return MSGQ_READ_WAIT;
    }
    if (msgq_p->in_tmp_list) {  // there is nobody to give it to
        MSGQ_ERR("Message before registration on fd '%d'", msgq_p->sock_fd);
        msgq_tmp_handle_destroy(msgq_p);
        return MSGQ_READ_GONE;
    }
    body_begin(msgq_p, hdr.size);
    return MSGQ_READ_DONE;
}

static e_msgq_read apphdr_take(msgq_handle_t *msgq_p)
{
    const uint8_t *length_p = msgq_p->rx_hdr + msgq_p->app_msglen_offset;
    uint16_t msg_size = static_cast<uint16_t>(length_p[0] << 8 | length_p[1]);
    LUM_ASSERT(msg_size > msgq_p->app_header_size, "msg_size > app_hdrlen");
    body_begin(msgq_p, msg_size);
    return MSGQ_READ_DONE;
}

// One message, or as much of it as there is.
static e_msgq_read message_read(msgq_handle_t *msgq_p)
{
    if (msgq_p->rx_buf_p == nullptr) {
        e_msgq_read header = receive_up_to(msgq_p, msgq_p->rx_hdr, msgq_hdr_size(msgq_p));
        if (header == MSGQ_READ_DONE)
            header = msgq_p->use_app_header ? apphdr_take(msgq_p) : msghdr_take(msgq_p);
        if (header != MSGQ_READ_DONE)
            return header;
    }
    e_msgq_read body = receive_up_to(msgq_p, msgq_p->rx_buf_p, msgq_p->rx_msg_size);
    if (body == MSGQ_READ_DONE)
        message_deliver(msgq_p);
    return body;
}

// ---- The loops ----

// A talkative peer must not starve the daemon's timers.
static bool has_had_its_turn(const timeval &start)
{
    timeval now;
    gettimeofday(&now, nullptr);
    timeval spent;
    timersub(&now, &start, &spent);
    return spent.tv_sec > 1;
}

static void msgq_read_msghdr_cb(msgq_handle_t *msgq_p)
{
    timeval start;
    gettimeofday(&start, nullptr);
    e_msgq_read read;
    while ((read = message_read(msgq_p)) == MSGQ_READ_DONE)
        if (has_had_its_turn(start) || msgq_p->sock_fd == -1)
            return;
    // The event of a temporary handle fires once.
    if (read == MSGQ_READ_WAIT && msgq_p->in_tmp_list)
        event_add(msgq_p->read_ev_p, nullptr);
}

// A blocking client has the answer that it came for after one message.
static void msgq_read_apphdr_cb(msgq_handle_t *msgq_p)
{
    timeval start;
    gettimeofday(&start, nullptr);
    while (message_read(msgq_p) == MSGQ_READ_DONE)
        if (msgq_p->client_socket_blocking || has_had_its_turn(start) || msgq_p->sock_fd == -1)
            return;
}

void msgq_read_cb(evutil_socket_t, short, void *arg)
{
    auto *msgq_p = static_cast<msgq_handle_t *>(arg);
    if (msgq_p->use_app_header)
        msgq_read_apphdr_cb(msgq_p);
    else
        msgq_read_msghdr_cb(msgq_p);
}

// ---- Another turn on request ----

void msgq_read_helper_schedule(msgq_handle_t *msgq_p)
{
    uint8_t index = msgq_p->read_helper_ev_index;
    if (msgq_p->read_helper_ev_set[index] || msgq_p->read_helper_ev_p[index] == nullptr)
        return;
    msgq_p->read_helper_ev_set[index] = true;
    msgq_p->stats.rx_read_helper_scheduled++;
    event_active(msgq_p->read_helper_ev_p[index], EV_READ, 0);
}

void msgq_read_helper_cb(evutil_socket_t, short, void *arg)
{
    auto *msgq_p = static_cast<msgq_handle_t *>(arg);
    msgq_p->read_helper_ev_set[msgq_p->read_helper_ev_index] = false;
    msgq_p->read_helper_ev_index ^= 1;
    msgq_p->stats.rx_read_helper_cb++;
    if (!msgq_p->down_pending)
        msgq_read_cb(-1, 0, msgq_p);
}
