#include "lab/peers/peer_stream.h"

#include <algorithm>
#include <event2/buffer.h>
#include <event2/bufferevent.h>
#include <event2/event.h>
#include <unistd.h>

static constexpr size_t max_unsent = 16 * 1024 * 1024;  // bytes that the other side doesn't read

struct t_peer_stream {
    bufferevent *p_bev;
    const t_peer_stream_ops *p_ops;
    void *p_user;
    bool is_in_callback;  // released when the callback has returned
    bool has_ended;
    bool is_released;
};

static void stream_free(t_peer_stream *p_stream)
{
    bufferevent_free(p_stream->p_bev);
    delete p_stream;
}

static void stream_end(t_peer_stream *p_stream, const std::string &fault)
{
    if (p_stream->has_ended || p_stream->is_released)
        return;
    p_stream->has_ended = true;
    bufferevent_disable(p_stream->p_bev, EV_READ | EV_WRITE);
    p_stream->p_ops->ended(p_stream->p_user, fault);
}

// False when there is no further frame.
static bool frame_take(t_peer_stream *p_stream)
{
    evbuffer *p_input = bufferevent_get_input(p_stream->p_bev);
    size_t size = std::min(evbuffer_get_length(p_input), PEER_FRAME_HEADER + PEER_FRAME_MAX_BODY);
    const unsigned char *p_bytes = size != 0 ? evbuffer_pullup(p_input, static_cast<ssize_t>(size)) : nullptr;
    if (p_bytes == nullptr)
        return false;
    t_peer_frame frame = {};
    std::string reason;
    e_peer_frame_state state = peer_frame_peek({p_bytes, size}, &frame, &reason);
    if (state == PEER_FRAME_BAD)
        stream_end(p_stream, reason);
    if (state != PEER_FRAME_WHOLE)
        return false;
    size_t used = PEER_FRAME_HEADER + frame.body.size();
    p_stream->p_ops->frame(p_stream->p_user, frame);
    evbuffer_drain(p_input, used);
    return true;
}

static void on_read(bufferevent *, void *p_arg)
{
    t_peer_stream *p_stream = static_cast<t_peer_stream *>(p_arg);
    p_stream->is_in_callback = true;
    while (!p_stream->is_released && frame_take(p_stream)) {
    }
    p_stream->is_in_callback = false;
    if (p_stream->is_released)
        stream_free(p_stream);
}

static void on_event(bufferevent *p_bev, short what, void *p_arg)
{
    if ((what & (BEV_EVENT_EOF | BEV_EVENT_ERROR)) == 0)
        return;
    t_peer_stream *p_stream = static_cast<t_peer_stream *>(p_arg);
    size_t rest = evbuffer_get_length(bufferevent_get_input(p_bev));
    p_stream->is_in_callback = true;
    stream_end(p_stream,
               rest != 0 ? "the connection ended " + std::to_string(rest) + " bytes into a frame" : "");
    p_stream->is_in_callback = false;
    if (p_stream->is_released)
        stream_free(p_stream);
}

peer_stream_ptr peer_stream_open(event_base *p_base, int fd, const t_peer_stream_ops *p_ops, void *p_user)
{
    bufferevent *p_bev = bufferevent_socket_new(p_base, fd, BEV_OPT_CLOSE_ON_FREE);
    if (p_bev == nullptr) {
        close(fd);
        return nullptr;
    }
    peer_stream_ptr stream(new t_peer_stream{.p_bev = p_bev,
                                             .p_ops = p_ops,
                                             .p_user = p_user,
                                             .is_in_callback = false,
                                             .has_ended = false,
                                             .is_released = false});
    bufferevent_setcb(p_bev, on_read, nullptr, on_event, stream.get());
    bufferevent_enable(p_bev, EV_READ | EV_WRITE);
    return stream;
}

bool peer_stream_send(t_peer_stream *p_stream, const t_peer_frame &frame)
{
    std::vector<uint8_t> bytes = peer_frame_encode(frame);
    evbuffer *p_output = bufferevent_get_output(p_stream->p_bev);
    if (bytes.empty() || p_stream->has_ended || evbuffer_get_length(p_output) > max_unsent)
        return false;
    return bufferevent_write(p_stream->p_bev, bytes.data(), bytes.size()) == 0;
}

int peer_stream_fd(const t_peer_stream *p_stream)
{
    return bufferevent_getfd(p_stream->p_bev);
}

void t_peer_stream_deleter::operator()(t_peer_stream *p_stream) const
{
    p_stream->is_released = true;
    if (!p_stream->is_in_callback)
        stream_free(p_stream);
}
