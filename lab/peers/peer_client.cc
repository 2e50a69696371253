#include "common/unix_socket.h"
#include "lab/control/lab_program.h"
#include "lab/peers/peer_link.h"
#include "lab/peers/peer_stream.h"

#include <sys/un.h>

static constexpr timeval retry_pause = {.tv_sec = 0, .tv_usec = 500'000};

struct t_peer_client {
    event_base *p_base;
    t_peer_client_place place;
    const t_peer_client_ops *p_ops;
    void *p_user;
    lab_event_ptr retry;
    peer_stream_ptr stream;  // null while down
};

static t_peer_frame frame_make(const t_peer_client *p_client, e_peer_frame_type type, t_peer_bytes body)
{
    return {.type = type, .source = p_client->place.source, .target = p_client->place.target, .body = body};
}

static void fail(t_peer_client *p_client, const std::string &reason)
{
    if (p_client->p_ops->bad != nullptr)
        p_client->p_ops->bad(p_client->p_user, reason);
    peer_client_drop(p_client);
}

static void on_frame(void *p_user, const t_peer_frame &frame)
{
    t_peer_client *p_client = static_cast<t_peer_client *>(p_user);
    if (frame.type != PEER_FRAME_MESSAGE)
        return fail(p_client, "register frame from the server");
    if (frame.source != p_client->place.target || frame.target != p_client->place.source)
        return fail(p_client, "message from module " + std::to_string(frame.source) + " to module " +
                                  std::to_string(frame.target));
    p_client->p_ops->message(p_client->p_user, frame.body);
}

static void on_ended(void *p_user, const std::string &fault)
{
    t_peer_client *p_client = static_cast<t_peer_client *>(p_user);
    if (!fault.empty())
        return fail(p_client, fault);
    peer_client_drop(p_client);
}

static constexpr t_peer_stream_ops stream_ops = {.frame = on_frame, .ended = on_ended};

static void on_retry(evutil_socket_t, short, void *p_arg)
{
    t_peer_client *p_client = static_cast<t_peer_client *>(p_arg);
    int fd = unix_socket_connect(p_client->place.path);
    if (fd >= 0)
        p_client->stream = peer_stream_open(p_client->p_base, fd, &stream_ops, p_client);
    if (p_client->stream == nullptr) {
        event_add(p_client->retry.get(), &retry_pause);
        return;
    }
    peer_stream_send(p_client->stream.get(), frame_make(p_client, PEER_FRAME_REGISTER, {}));
    p_client->p_ops->up(p_client->p_user);
}

peer_client_ptr peer_client_open(event_base *p_base, const t_peer_client_place &place,
                                 const t_peer_client_ops *p_ops, void *p_user, std::string *p_error)
{
    static constexpr timeval at_once = {};
    if (place.path.empty() || place.path.size() >= sizeof(sockaddr_un::sun_path)) {
        *p_error = place.path + ": the path is empty or too long for a socket";
        return nullptr;
    }
    peer_client_ptr client(new t_peer_client{.p_base = p_base,
                                             .place = place,
                                             .p_ops = p_ops,
                                             .p_user = p_user,
                                             .retry = nullptr,
                                             .stream = nullptr});
    client->retry.reset(event_new(p_base, -1, 0, on_retry, client.get()));
    if (client->retry != nullptr && event_add(client->retry.get(), &at_once) == 0)
        return client;
    *p_error = "no timer for the connection to " + place.path;
    return nullptr;
}

bool peer_client_is_up(const t_peer_client *p_client)
{
    return p_client->stream != nullptr;
}

bool peer_client_send(t_peer_client *p_client, t_peer_bytes body)
{
    return p_client->stream != nullptr &&
           peer_stream_send(p_client->stream.get(), frame_make(p_client, PEER_FRAME_MESSAGE, body));
}

void peer_client_drop(t_peer_client *p_client)
{
    if (p_client->stream == nullptr)
        return;
    p_client->stream.reset();
    event_add(p_client->retry.get(), &retry_pause);
    p_client->p_ops->down(p_client->p_user);
}

void t_peer_client_deleter::operator()(t_peer_client *p_client) const
{
    delete p_client;
}
