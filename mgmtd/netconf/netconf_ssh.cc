// SSH's streams: key exchange, login, the one channel with the subsystem "netconf".

#include "common/lum_log.h"
#include "mgmtd/netconf/netconf_private.h"
#include "mgmtd/netconf/netconf_wire.h"

#include <libssh/callbacks.h>
#include <poll.h>
#include <unistd.h>

static constexpr auto close_time = std::chrono::seconds(2);

struct t_ssh_wire {
    t_netconf_link *p_link;
    ssh_session p_session = nullptr;
    ssh_event p_event = nullptr;
    ssh_channel p_channel = nullptr;
    ssh_server_callbacks_struct server = {};
    ssh_channel_callbacks_struct channel = {};
    int requests = 0;
    int wrong_passwords = 0;
    bool is_refused = false;  // nothing more is expected of this peer
    bool is_open = false;     // the subsystem is running
    bool has_left = false;    // the peer has closed its side

    ~t_ssh_wire();
};

t_ssh_wire::~t_ssh_wire()
{
    if (p_channel != nullptr)
        ssh_channel_free(p_channel);
    if (p_event != nullptr) {
        ssh_event_remove_session(p_event, p_session);
        ssh_event_free(p_event);
    }
    if (p_session != nullptr) {
        ssh_disconnect(p_session);
        ssh_free(p_session);
    }
}

// ---- Logging in ----

// Whether the peer may try once more.
static bool request_count(t_ssh_wire *p_wire)
{
    if (++p_wire->requests > NETCONF_LOGIN_REQUESTS)
        p_wire->is_refused = true;
    return !p_wire->is_refused;
}

static void logged_in(t_ssh_wire *p_wire, const char *user)
{
    p_wire->p_link->user = user;
    netconf_link_advance(p_wire->p_link, NETCONF_STAGE_LOGIN);
}

static int on_none(ssh_session, const char *, void *p_ctx)
{
    request_count(static_cast<t_ssh_wire *>(p_ctx));
    return SSH_AUTH_DENIED;
}

static int on_password(ssh_session, const char *user, const char *password, void *p_ctx)
{
    t_ssh_wire *p_wire = static_cast<t_ssh_wire *>(p_ctx);
    if (!request_count(p_wire))
        return SSH_AUTH_DENIED;
    if (netconf_login_password(p_wire->p_link, user, password)) {
        logged_in(p_wire, user);
        return SSH_AUTH_SUCCESS;
    }
    if (++p_wire->wrong_passwords >= NETCONF_PASSWORDS)
        p_wire->is_refused = true;
    return SSH_AUTH_DENIED;
}

// Comes once without a signature, when the client asks whether the key would do, and once with one.
static int on_key(ssh_session, const char *user, ssh_key_struct *p_key, char state, void *p_ctx)
{
    t_ssh_wire *p_wire = static_cast<t_ssh_wire *>(p_ctx);
    bool is_question = state == SSH_PUBLICKEY_STATE_NONE;
    if (!request_count(p_wire) || (!is_question && state != SSH_PUBLICKEY_STATE_VALID) ||
        !netconf_login_key(p_wire->p_link, user, p_key))
        return SSH_AUTH_DENIED;
    if (!is_question)
        logged_in(p_wire, user);
    return SSH_AUTH_SUCCESS;
}

// ---- The channel ----

static int on_subsystem(ssh_session, ssh_channel, const char *subsystem, void *p_ctx)
{
    t_ssh_wire *p_wire = static_cast<t_ssh_wire *>(p_ctx);
    if (p_wire->is_open || std::string_view(subsystem) != "netconf")
        return 1;
    if (!netconf_place_take(p_wire->p_link)) {
        p_wire->is_refused = true;
        return 1;
    }
    p_wire->is_open = true;
    return 0;
}

static void on_close(ssh_session, ssh_channel, void *p_ctx)
{
    static_cast<t_ssh_wire *>(p_ctx)->has_left = true;
}

static ssh_channel on_channel(ssh_session p_session, void *p_ctx)
{
    t_ssh_wire *p_wire = static_cast<t_ssh_wire *>(p_ctx);
    if (p_wire->p_channel != nullptr)
        return nullptr;  // a connection has one session
    p_wire->p_channel = ssh_channel_new(p_session);
    if (p_wire->p_channel != nullptr)
        ssh_set_channel_callbacks(p_wire->p_channel, &p_wire->channel);
    return p_wire->p_channel;
}

static void callbacks_set(t_ssh_wire *p_wire)
{
    ssh_callbacks_init(&p_wire->server);
    ssh_callbacks_init(&p_wire->channel);
    p_wire->server.userdata = p_wire;
    p_wire->server.auth_none_function = on_none;
    p_wire->server.auth_password_function = on_password;
    p_wire->server.auth_pubkey_function = on_key;
    p_wire->server.channel_open_request_session_function = on_channel;
    p_wire->channel.userdata = p_wire;
    p_wire->channel.channel_subsystem_request_function = on_subsystem;
    p_wire->channel.channel_close_function = on_close;
    ssh_set_server_callbacks(p_wire->p_session, &p_wire->server);
    ssh_set_auth_methods(p_wire->p_session, SSH_AUTH_METHOD_PASSWORD | SSH_AUTH_METHOD_PUBLICKEY);
}

// ---- Up to the session ----

// The library closes its descriptor, so it gets one of its own: the link's may be shut down by others.
static bool session_begin(t_ssh_wire *p_wire)
{
    t_mgmt_netconf *p_netconf = p_wire->p_link->p_netconf;
    p_wire->p_session = ssh_new();
    int fd = p_wire->p_session != nullptr ? dup(p_wire->p_link->fd) : -1;
    if (fd < 0)
        return false;
    std::lock_guard guard(p_netconf->bind_lock);
    if (ssh_bind_accept_fd(p_netconf->bind.get(), p_wire->p_session, fd) != SSH_OK) {
        close(fd);
        return false;
    }
    // A compressed stream can become any size before somebody has logged in.
    ssh_options_set(p_wire->p_session, SSH_OPTIONS_COMPRESSION, "no");
    callbacks_set(p_wire);
    ssh_set_blocking(p_wire->p_session, 0);
    return true;
}

static short ssh_wants(void *p_ctx, bool, bool)
{
    t_ssh_wire *p_wire = static_cast<t_ssh_wire *>(p_ctx);
    bool is_writing = (ssh_get_poll_flags(p_wire->p_session) & SSH_WRITE_PENDING) != 0;
    return static_cast<short>(POLLIN | (is_writing ? POLLOUT : 0));
}

// Waits for the peer. False when the time is over or the link is ended from outside.
static bool peer_wait(t_ssh_wire *p_wire, netconf_clock::time_point deadline)
{
    auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline - netconf_clock::now()).count();
    if (left <= 0 || p_wire->p_link->is_ending)
        return false;
    pollfd fds[] = {{.fd = p_wire->p_link->fd, .events = ssh_wants(p_wire, true, true), .revents = 0},
                    {.fd = p_wire->p_link->bell.fd, .events = POLLIN, .revents = 0}};
    poll(fds, 2, static_cast<int>(left));
    return !p_wire->p_link->is_ending;
}

static bool keys_exchange(t_ssh_wire *p_wire, netconf_clock::time_point deadline)
{
    for (;;) {
        int result = ssh_handle_key_exchange(p_wire->p_session);
        if (result != SSH_AGAIN)
            return result == SSH_OK;
        if (!peer_wait(p_wire, deadline))
            return false;
    }
}

static bool channel_await(t_ssh_wire *p_wire, netconf_clock::time_point deadline)
{
    p_wire->p_event = ssh_event_new();
    if (p_wire->p_event == nullptr || ssh_event_add_session(p_wire->p_event, p_wire->p_session) != SSH_OK)
        return false;
    while (!p_wire->is_open) {
        if (ssh_event_dopoll(p_wire->p_event, 0) == SSH_ERROR || p_wire->is_refused ||
            !ssh_is_connected(p_wire->p_session))
            return false;
        if (!p_wire->is_open && !peer_wait(p_wire, deadline))
            return false;
    }
    return true;
}

static void *ssh_login(t_netconf_link *p_link)
{
    auto deadline = netconf_clock::now() + std::chrono::milliseconds(NETCONF_LOGIN_MS);
    auto wire = std::make_unique<t_ssh_wire>();
    wire->p_link = p_link;
    if (!session_begin(wire.get()) || !keys_exchange(wire.get(), deadline)) {
        LUM_LOG(LUM_LOG_DEBUG, "NETCONF: %s did not get to its login", p_link->host.c_str());
        return nullptr;
    }
    netconf_link_advance(p_link, NETCONF_STAGE_KEYS);
    return channel_await(wire.get(), deadline) ? wire.release() : nullptr;
}

// ---- Carrying ----

static bool ssh_turn(void *p_ctx, short)
{
    t_ssh_wire *p_wire = static_cast<t_ssh_wire *>(p_ctx);
    return ssh_event_dopoll(p_wire->p_event, 0) != SSH_ERROR && ssh_is_connected(p_wire->p_session) &&
           !ssh_channel_is_closed(p_wire->p_channel);
}

static ssize_t ssh_read(void *p_ctx, std::span<char> room)
{
    ssh_channel p_channel = static_cast<t_ssh_wire *>(p_ctx)->p_channel;
    int size = ssh_channel_read_nonblocking(p_channel, room.data(), static_cast<uint32_t>(room.size()), 0);
    return size >= 0 ? size : -1;
}

// No more than the peer's window takes, and only when the last has gone out to the system.
static ssize_t ssh_write(void *p_ctx, std::string_view bytes)
{
    t_ssh_wire *p_wire = static_cast<t_ssh_wire *>(p_ctx);
    size_t size = std::min<size_t>(bytes.size(), ssh_channel_window_size(p_wire->p_channel));
    if (size == 0 || (ssh_get_poll_flags(p_wire->p_session) & SSH_WRITE_PENDING) != 0)
        return 0;
    int written = ssh_channel_write(p_wire->p_channel, bytes.data(), static_cast<uint32_t>(size));
    return written >= 0 ? written : -1;
}

// The peer may not have read yet what came last, and a disconnect lets it drop that: its own close comes
// first.
static void ssh_close(void *p_ctx)
{
    std::unique_ptr<t_ssh_wire> wire(static_cast<t_ssh_wire *>(p_ctx));
    auto deadline = netconf_clock::now() + close_time;
    ssh_channel_request_send_exit_status(wire->p_channel, 0);
    ssh_channel_send_eof(wire->p_channel);
    ssh_channel_close(wire->p_channel);
    while (ssh_event_dopoll(wire->p_event, 0) != SSH_ERROR && ssh_is_connected(wire->p_session) &&
           !wire->has_left && peer_wait(wire.get(), deadline))
        continue;
}

const t_netconf_wire_ops g_netconf_ssh_wire = {
    .login = ssh_login,
    .wants = ssh_wants,
    .turn = ssh_turn,
    .read = ssh_read,
    .write = ssh_write,
    .close = ssh_close,
};
