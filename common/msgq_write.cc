#include <cerrno>
#include <sys/socket.h>

#include "common/lum_assert.h"
#include "common/msgq_util_private.h"

static void send_error_log(const msgq_handle_t &handle, uint16_t msg_size, int error)
{
    if (handle.socket_type != AF_INET)
        return;
    MSGQ_ERR("Error in sending message to %d, err %d, msg_size is %d", handle.tgtid, error, msg_size);
    if (error == EPIPE)
        MSGQ_ERR("BROKEN PIPE");
}

// ---- The write queue ----

static void msgq_write_schedule(msgq_handle_t *msgq_p)
{
    uint8_t index = msgq_p->write_ev_index;
    if (msgq_p->write_ev_set[index])
        return;
    event_add(msgq_p->write_ev_p[index], nullptr);
    msgq_p->write_ev_set[index] = true;
}

// Sends the rest of an entry; false when the socket didn't take it all.
static bool entry_send(msgq_handle_t *msgq_p, msgq_buf_t *entry_p)
{
    size_t rest = static_cast<size_t>(entry_p->buf_size - entry_p->buf_sent);
    errno = EAGAIN;  // a short send sets none, and goes on as a full socket does
    ssize_t sent =
        send(msgq_p->sock_fd, entry_p->buf_p + entry_p->buf_offset + entry_p->buf_sent, rest, MSG_NOSIGNAL);
    if (sent == static_cast<ssize_t>(rest))
        return true;
    if (errno == EAGAIN) {
        if (sent > 0)
            entry_p->buf_sent = static_cast<uint16_t>(entry_p->buf_sent + sent);
        msgq_p->stats.tx_resched++;
        return false;
    }
    send_error_log(*msgq_p, entry_p->buf_size, errno);
    msgq_p->stats.tx_fail++;
    msgq_p->down_pending = true;
    return false;
}

static void entry_free(msgq_handle_t *msgq_p, msgq_buf_t *entry_p)
{
    msgq_p->stats.tx_msg++;
    msgq_p->stats.msg_frees++;
    msgq_p->stats.tx_dequeued++;
    msgq_p->app_cb.free_cb(entry_p->buf_p + entry_p->buf_offset);
    msgq_p->app_cb.free_cb(entry_p);
}

void msgq_flush(msgq_handle_t *msgq_p)
{
    while (msgq_p->buf_head_p != nullptr && entry_send(msgq_p, msgq_p->buf_head_p)) {
        msgq_buf_t *entry_p = msgq_p->buf_head_p;
        msgq_p->buf_head_p = entry_p->buf_next_p;
        entry_free(msgq_p, entry_p);
    }
    if (msgq_p->buf_head_p != nullptr)
        msgq_write_schedule(msgq_p);
    else
        msgq_p->buf_tail_p = nullptr;
}

void msgq_write_cb(evutil_socket_t, short, void *arg)
{
    auto *msgq_p = static_cast<msgq_handle_t *>(arg);
    msgq_p->write_ev_set[msgq_p->write_ev_index] = false;
    msgq_p->write_ev_index ^= 1;
    msgq_p->stats.tx_write_cb++;
    if (msgq_p->down_pending)
        msgq_close_conn(msgq_p, true);
    else
        msgq_flush(msgq_p);
}

// ---- Sending ----

static e_err msgq_send_non_blocking(msgq_handle_t *msgq_p, uint8_t *msg_p, uint16_t msg_size)
{
    auto *entry_p = static_cast<msgq_buf_t *>(msgq_p->app_cb.malloc_cb(sizeof(msgq_buf_t)));
    if (entry_p == nullptr) {
        msgq_p->stats.tx_queue_failed++;
        return ERR_WRITE_FAILED;
    }
    *entry_p = {.buf_next_p = nullptr, .buf_offset = 0, .buf_size = msg_size, .buf_p = msg_p, .buf_sent = 0};
    if (msgq_p->buf_tail_p != nullptr)
        msgq_p->buf_tail_p->buf_next_p = entry_p;
    else
        msgq_p->buf_head_p = entry_p;
    msgq_p->buf_tail_p = entry_p;
    msgq_p->stats.tx_queued++;
    msgq_flush(msgq_p);
    return ERR_OK;
}

static e_err msgq_send_blocking(msgq_handle_t *msgq_p, uint8_t *msg_p, uint16_t msg_size)
{
    errno = 0;
    if (send(msgq_p->sock_fd, msg_p, msg_size, MSG_NOSIGNAL) == msg_size) {
        msgq_p->stats.tx_msg++;
        msgq_p->stats.msg_frees++;
        msgq_p->app_cb.free_cb(msg_p);
        msgq_read_cb(0, 0, msgq_p);  // a blocking client has no read event
        return ERR_OK;
    }
    int error = errno;
    send_error_log(*msgq_p, msg_size, error);
    LUM_ASSERT(error != EAGAIN, "FALSE");
    msgq_p->stats.tx_fail++;
    return ERR_WRITE_FAILED;
}

static void msgq_init_header(const msgq_handle_t &handle, uint8_t *msg_p, uint16_t msg_size)
{
    auto *hdr_p = reinterpret_cast<msgq_hdr_t *>(msg_p);
    hdr_p->src_mod = static_cast<uint8_t>(handle.srcid);
    hdr_p->tgt_mod = static_cast<uint8_t>(handle.tgtid);
    hdr_p->msg_type = MSGQ_HDR_TYPE_APP;
    hdr_p->size = msg_size;
}

e_err msgq_write(msgq_handle_t *msgq_p, void *app_p, uint16_t app_size)
{
    if (msgq_p == nullptr || app_p == nullptr)
        return ERR_BAD_PARAM;
    if (msgq_validate_buf(msgq_p, app_p, app_size) != 0) {
        MSGQ_ERR("Bad message buffer provided");
        return ERR_BAD_PARAM;
    }
    auto *msg_p = static_cast<uint8_t *>(msgq_buf_app_to_msgp(msgq_p, app_p));
    uint16_t msg_size = msgq_size_app_to_msg(msgq_p, app_size);
    if (!msgq_p->use_app_header)
        msgq_init_header(*msgq_p, msg_p, msg_size);
    if (!msgq_ready(msgq_p))
        return ERR_AGAIN;
    return msgq_p->client_socket_blocking ? msgq_send_blocking(msgq_p, msg_p, msg_size)
                                          : msgq_send_non_blocking(msgq_p, msg_p, msg_size);
}
