// One connection as a stream of frames; what client and server of peer_link.h are made of.
//
// The stream reads by itself from its making on. It ends once, by the other side or by bytes that are no
// frame, and is silent from then on; the owner then releases it. Releasing closes the connection and may be
// done at any time, also in the stream's own callbacks.
#pragma once

#include "lab/peers/peer_frame.h"

#include <memory>

struct event_base;
struct t_peer_stream;

struct t_peer_stream_ops {
    void (*frame)(void *p_user, const t_peer_frame &frame);  // the body is good until it returns
    void (*ended)(void *p_user, const std::string &fault);  // empty: the other side closed between two frames
};

struct t_peer_stream_deleter {
    void operator()(t_peer_stream *p_stream) const;
};
using peer_stream_ptr = std::unique_ptr<t_peer_stream, t_peer_stream_deleter>;

// Takes over the connected socket, which is closed on failure, too. Null when memory is out.
peer_stream_ptr peer_stream_open(event_base *p_base, int fd, const t_peer_stream_ops *p_ops, void *p_user);

// Queues a frame. False when it can't be encoded, the stream has ended, or too much waits already.
bool peer_stream_send(t_peer_stream *p_stream, const t_peer_frame &frame);

[[nodiscard]] int peer_stream_fd(const t_peer_stream *p_stream);
