// A link's thread: login, then bytes to and from the library, message by message.

#include "common/lum_log.h"
#include "mgmtd/netconf/netconf_private.h"
#include "mgmtd/netconf/netconf_wire.h"

#include <algorithm>
#include <cerrno>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <unistd.h>

static constexpr size_t piece_size = 32 * 1024;              // bytes read at once, either way
static constexpr auto flush_time = std::chrono::seconds(5);  // for the last bytes to a peer

// ---- Bells ----

t_netconf_bell::t_netconf_bell() : fd(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) {}

t_netconf_bell::~t_netconf_bell()
{
    close(fd);
}

void t_netconf_bell::ring() const
{
    eventfd_write(fd, 1);
}

void t_netconf_bell::quiet() const
{
    eventfd_t count;
    eventfd_read(fd, &count);
}

// ---- Links ----

int64_t netconf_now_ms()
{
    return std::chrono::duration_cast<std::chrono::milliseconds>(netconf_clock::now().time_since_epoch())
        .count();
}

t_netconf_link::~t_netconf_link()
{
    for (int open_fd : {fd, library_fds[0], library_fds[1]})
        if (open_fd >= 0)
            close(open_fd);
}

void netconf_link_advance(t_netconf_link *p_link, e_netconf_stage stage)
{
    p_link->stage_ms = netconf_now_ms();
    p_link->stage = stage;
}

void netconf_link_end(t_netconf_link *p_link)
{
    p_link->is_ending = true;
    shutdown(p_link->fd, SHUT_RDWR);
    p_link->bell.ring();
    netconf_mail_end(p_link);
}

// ---- Places ----

static bool place_find(t_netconf_link *p_link)
{
    t_mgmt_netconf *p_netconf = p_link->p_netconf;
    std::lock_guard guard(p_netconf->lock);
    if (p_link->is_recovery) {
        bool is_free = p_netconf->recovery_count < NETCONF_SESSIONS_RECOVERY;
        p_netconf->recovery_count += is_free ? 1 : 0;
        return is_free;
    }
    size_t &of_user = p_netconf->user_sessions[p_link->user];
    bool is_free = p_netconf->session_count < NETCONF_SESSIONS && of_user < NETCONF_SESSIONS_USER;
    p_netconf->session_count += is_free ? 1 : 0;
    of_user += is_free ? 1 : 0;
    return is_free;
}

bool netconf_place_take(t_netconf_link *p_link)
{
    if (place_find(p_link)) {
        netconf_link_advance(p_link, NETCONF_STAGE_SESSION);
        return true;
    }
    LUM_LOG(LUM_LOG_NOTICE, "NETCONF: user %s from %s is refused: there are too many sessions",
            netconf_log_name(p_link->user).c_str(), p_link->host.c_str());
    return false;
}

void netconf_place_leave(t_netconf_link *p_link)
{
    t_mgmt_netconf *p_netconf = p_link->p_netconf;
    if (p_link->stage != NETCONF_STAGE_SESSION)
        return;
    std::lock_guard guard(p_netconf->lock);
    if (p_link->is_recovery) {
        p_netconf->recovery_count--;
        return;
    }
    p_netconf->session_count--;
    if (--p_netconf->user_sessions[p_link->user] == 0)
        p_netconf->user_sessions.erase(p_link->user);
}

// ---- Carrying ----

struct t_carry {
    t_netconf_link *p_link;
    const t_netconf_wire_ops *p_ops;
    void *p_wire;
    t_netconf_guard guard;
    std::string in = {};          // of the peer, not looked at yet
    std::string to_library = {};  // a message with its framing, from `handed_size` on
    size_t handed_size = 0;
    std::string out = {};  // to the peer
    uint32_t handed = 0;   // messages; the next one waits until they are served
    bool is_chunked = false;
    bool is_library_done = false;
    bool is_lost = false;  // nothing can be carried any more
    netconf_clock::time_point deadline = netconf_clock::now() + std::chrono::milliseconds(NETCONF_HELLO_MS);
};

static bool is_passing()
{
    return errno == EAGAIN || errno == EWOULDBLOCK || errno == EINTR;
}

// The message as the library expects it from a descriptor.
static void message_hand(t_carry *p_carry)
{
    t_netconf_guard *p_guard = &p_carry->guard;
    p_carry->handed++;
    if (p_guard->refusal != NETCONF_ADMITTED) {
        std::lock_guard guard(p_carry->p_link->mailbox.lock);
        p_carry->p_link->mailbox.refused = {p_guard->refusal, std::string(netconf_message_id(p_guard->text))};
        p_carry->p_link->mailbox.bell.ring();
        return;
    }
    std::string text = std::move(p_guard->text);
    if (p_carry->is_chunked) {
        std::string head = "\n#" + std::to_string(text.size()) + "\n";
        p_carry->to_library = std::move(text.insert(0, head).append("\n##\n"));
    } else {
        p_carry->to_library = std::move(text.append("]]>]]>"));
    }
}

// A hello that is refused ends the session: there is nobody to answer yet.
static void bytes_take(t_carry *p_carry)
{
    bool was_begun = p_carry->guard.is_begun;
    size_t taken = 0;
    e_netconf_feed feed = netconf_guard_feed(&p_carry->guard, p_carry->in, &taken);
    p_carry->in.erase(0, taken);
    if (feed == NETCONF_FEED_MESSAGE && (p_carry->handed > 0 || p_carry->guard.refusal == NETCONF_ADMITTED))
        return message_hand(p_carry);
    if (feed != NETCONF_FEED_MORE) {
        LUM_LOG(LUM_LOG_NOTICE, "NETCONF: the framing of user %s from %s is broken",
                netconf_log_name(p_carry->p_link->user).c_str(), p_carry->p_link->host.c_str());
        p_carry->is_lost = true;
    }
    if (!was_begun && p_carry->handed > 0)
        p_carry->deadline = netconf_clock::now() + std::chrono::milliseconds(NETCONF_MESSAGE_MS);
}

// The library is done with the message: the next may come.
static bool message_release(t_carry *p_carry)
{
    bool is_served = p_carry->handed > 0 && p_carry->p_link->served == p_carry->handed;
    if (!is_served || !p_carry->to_library.empty())
        return false;
    if (p_carry->guard.is_complete)
        netconf_guard_next(&p_carry->guard);
    if (!p_carry->is_chunked && p_carry->p_link->version == 1) {
        p_carry->is_chunked = true;
        netconf_guard_use_chunks(&p_carry->guard);
    }
    return true;
}

static bool may_read(t_carry *p_carry)
{
    return !p_carry->is_library_done && (p_carry->handed == 0 || message_release(p_carry));
}

// Towards the library. True when something has moved.
static bool carry_in(t_carry *p_carry)
{
    if (!p_carry->to_library.empty()) {
        std::string_view left = std::string_view(p_carry->to_library).substr(p_carry->handed_size);
        ssize_t sent =
            send(p_carry->p_link->library_fds[0], left.data(), left.size(), MSG_DONTWAIT | MSG_NOSIGNAL);
        if (sent < 0)
            return !is_passing() && (p_carry->to_library.clear(), true);
        p_carry->handed_size += static_cast<size_t>(sent);
        if (p_carry->handed_size == p_carry->to_library.size()) {
            p_carry->to_library = std::string();
            p_carry->handed_size = 0;
        }
        return true;
    }
    if (!may_read(p_carry))
        return false;
    if (p_carry->in.empty()) {
        p_carry->in.resize(piece_size);
        ssize_t size = p_carry->p_ops->read(p_carry->p_wire, p_carry->in);
        p_carry->in.resize(size > 0 ? static_cast<size_t>(size) : 0);
        p_carry->is_lost |= size < 0;
    }
    if (p_carry->in.empty())
        return false;
    bytes_take(p_carry);
    return true;
}

// Towards the peer. True when something has moved.
static bool carry_out(t_carry *p_carry)
{
    bool has_moved = false;
    if (p_carry->out.empty() && !p_carry->is_library_done) {
        p_carry->out.resize(piece_size);
        ssize_t size =
            recv(p_carry->p_link->library_fds[0], p_carry->out.data(), p_carry->out.size(), MSG_DONTWAIT);
        p_carry->is_library_done = size == 0 || (size < 0 && !is_passing());
        p_carry->out.resize(size > 0 ? static_cast<size_t>(size) : 0);
        has_moved = size > 0;
    }
    if (p_carry->out.empty())
        return has_moved;
    ssize_t written = p_carry->p_ops->write(p_carry->p_wire, p_carry->out);
    p_carry->is_lost |= written < 0;
    p_carry->out.erase(0, written > 0 ? static_cast<size_t>(written) : 0);
    return has_moved || written > 0;
}

// How long nothing may happen; negative: for ever.
static int carry_patience(const t_carry &carry)
{
    bool is_limited =
        carry.handed == 0 || carry.is_library_done || (carry.guard.is_begun && !carry.guard.is_complete);
    if (!is_limited)
        return -1;
    auto left = std::chrono::ceil<std::chrono::milliseconds>(carry.deadline - netconf_clock::now()).count();
    return static_cast<int>(std::max<int64_t>(left, 0));
}

static void carry_wait(t_carry *p_carry)
{
    t_netconf_link *p_link = p_carry->p_link;
    short library = static_cast<short>((p_carry->out.empty() && !p_carry->is_library_done ? POLLIN : 0) |
                                       (p_carry->to_library.empty() ? 0 : POLLOUT));
    bool reads = p_carry->to_library.empty() && may_read(p_carry);
    pollfd fds[] = {
        {.fd = p_link->fd,
         .events = p_carry->p_ops->wants(p_carry->p_wire, reads, !p_carry->out.empty()),
         .revents = 0},
        {.fd = p_carry->is_library_done ? -1 : p_link->library_fds[0], .events = library, .revents = 0},
        {.fd = p_link->bell.fd, .events = POLLIN, .revents = 0}};
    int patience = carry_patience(*p_carry);
    int count = poll(fds, 3, patience);
    if (count == 0 && patience >= 0) {
        LUM_LOG(LUM_LOG_NOTICE, "NETCONF: user %s from %s took too long for a message",
                netconf_log_name(p_link->user).c_str(), p_link->host.c_str());
        p_carry->is_lost = true;
    }
    if (fds[2].revents != 0)
        p_link->bell.quiet();
    if (count > 0 && !p_carry->p_ops->turn(p_carry->p_wire, fds[0].revents))
        p_carry->is_lost = true;
}

static void carry_run(t_carry *p_carry)
{
    while (!p_carry->is_lost && !p_carry->p_link->is_ending) {
        bool was_done = p_carry->is_library_done;
        bool has_moved = carry_out(p_carry);
        has_moved |= carry_in(p_carry);
        if (p_carry->is_library_done && p_carry->out.empty())
            return;
        if (p_carry->is_library_done && !was_done)
            p_carry->deadline = netconf_clock::now() + flush_time;
        if (!has_moved)
            carry_wait(p_carry);
    }
}

// ---- The thread ----

static void session_carry(const netconf_link_ptr &link, const t_netconf_wire_ops &ops, void *p_wire)
{
    if (socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, link->library_fds) != 0)
        return;
    link->session_thread = std::thread(netconf_session_run, link);
    t_carry carry = {.p_link = link.get(),
                     .p_ops = &ops,
                     .p_wire = p_wire,
                     .guard = t_netconf_guard(&link->p_netconf->budget)};
    carry_run(&carry);
    netconf_mail_end(link.get());
    shutdown(link->library_fds[0], SHUT_RDWR);
    link->session_thread.join();
}

static void link_serve(const netconf_link_ptr &link)
{
    const t_netconf_wire_ops &ops = link->is_ssh ? g_netconf_ssh_wire : g_netconf_local_wire;
    void *p_wire = link->bell.fd >= 0 && link->mailbox.bell.fd >= 0 ? ops.login(link.get()) : nullptr;
    if (p_wire == nullptr)
        return;
    session_carry(link, ops, p_wire);
    ops.close(p_wire);
}

void netconf_link_run(netconf_link_ptr link)
{
    try {
        link_serve(link);
    } catch (const std::exception &error) {
        LUM_LOG(LUM_LOG_ERROR, "NETCONF: the connection of %s ends: %s", link->host.c_str(), error.what());
    }
    netconf_place_leave(link.get());
    shutdown(link->fd, SHUT_RDWR);
    link->is_finished = true;
    link->p_netconf->bell.ring();
}
