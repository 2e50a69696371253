// The listening thread: arrivals, the waiting room, who gets a thread, and the end of links.

#include "common/lum_log.h"
#include "mgmtd/netconf/netconf_address.h"
#include "mgmtd/netconf/netconf_ident.h"
#include "mgmtd/netconf/netconf_private.h"

#include <algorithm>
#include <cerrno>
#include <event2/event.h>
#include <event2/listener.h>
#include <sys/socket.h>
#include <unistd.h>

static constexpr timeval tick = {.tv_sec = 0, .tv_usec = 200 * 1000};
static constexpr int64_t stalled_ms = 1000;  // without a step forward: may be turned out
static constexpr size_t max_leaving = 64;    // links that are turned out and still have their thread
static constexpr const char *local_key = "local";

// ---- The waiting room ----

static std::list<t_netconf_waiter>::iterator waiter_find(t_netconf_waiter *p_waiter)
{
    return std::ranges::find_if(p_waiter->p_netconf->waiters,
                                [p_waiter](const t_netconf_waiter &item) { return &item == p_waiter; });
}

static void waiter_free(t_netconf_waiter *p_waiter)
{
    if (p_waiter->p_event != nullptr)
        event_free(p_waiter->p_event);
    if (p_waiter->fd >= 0)
        close(p_waiter->fd);
    p_waiter->p_netconf->waiters.erase(waiter_find(p_waiter));
}

// Makes room for one more: of the address, or in all, the oldest that is silent goes, then the oldest.
static void waiters_limit(t_mgmt_netconf *p_netconf, const std::string &address_key)
{
    std::list<t_netconf_waiter> &waiters = p_netconf->waiters;
    auto is_near = [&address_key](const t_netconf_waiter &item) { return item.address_key == address_key; };
    bool is_address_full =
        static_cast<size_t>(std::ranges::count_if(waiters, is_near)) >= NETCONF_WAITING_ADDRESS;
    if (!is_address_full && waiters.size() < NETCONF_WAITING)
        return;
    t_netconf_waiter *p_victim = nullptr;
    for (t_netconf_waiter &item : waiters) {
        if (is_address_full && !is_near(item))
            continue;
        if (p_victim == nullptr || (p_victim->is_identified && !item.is_identified))
            p_victim = &item;
    }
    waiter_free(p_victim);
}

// ---- Links ----

static bool link_start(t_netconf_waiter *p_waiter)
{
    t_mgmt_netconf *p_netconf = p_waiter->p_netconf;
    auto link = std::make_shared<t_netconf_link>();
    link->p_netconf = p_netconf;
    link->fd = std::exchange(p_waiter->fd, -1);
    link->is_ssh = p_waiter->address_key != local_key;
    link->host = p_waiter->host;
    link->address_key = p_waiter->address_key;
    link->stage_ms = netconf_now_ms();
    waiter_free(p_waiter);
    try {
        link->thread = std::thread(netconf_link_run, link);
    } catch (const std::system_error &error) {
        LUM_LOG(LUM_LOG_ERROR, "NETCONF: no thread for %s: %s", link->host.c_str(), error.what());
        return false;
    }
    p_netconf->links.push_back(std::move(link));
    return true;
}

static bool is_logging_in(const t_netconf_link &link)
{
    return link.stage < NETCONF_STAGE_SESSION && !link.is_ending;
}

// Who has got least far of those that have stalled, and of these the oldest.
static t_netconf_link *link_to_turn_out(t_mgmt_netconf *p_netconf, const std::string *p_address_key)
{
    t_netconf_link *p_victim = nullptr;
    for (const netconf_link_ptr &link : p_netconf->links) {
        bool concerns = p_address_key == nullptr || link->address_key == *p_address_key;
        if (!concerns || !is_logging_in(*link) || netconf_now_ms() - link->stage_ms < stalled_ms)
            continue;
        if (p_victim == nullptr || link->stage < p_victim->stage)
            p_victim = link.get();
    }
    return p_victim;
}

// Whether a login of the address may begin now; turns another out for it.
static bool login_has_place(t_mgmt_netconf *p_netconf, const std::string &address_key)
{
    size_t all = 0;
    size_t near = 0;
    size_t leaving = 0;
    for (const netconf_link_ptr &link : p_netconf->links) {
        all += is_logging_in(*link) ? 1 : 0;
        near += is_logging_in(*link) && link->address_key == address_key ? 1 : 0;
        leaving += link->is_ending ? 1 : 0;
    }
    bool is_near_full = near >= NETCONF_LOGINS_ADDRESS;
    if (!is_near_full && all < NETCONF_LOGINS)
        return true;
    t_netconf_link *p_victim =
        leaving < max_leaving ? link_to_turn_out(p_netconf, is_near_full ? &address_key : nullptr) : nullptr;
    if (p_victim == nullptr)
        return false;
    LUM_LOG(LUM_LOG_DEBUG, "NETCONF: %s gives way to another login", p_victim->host.c_str());
    netconf_link_end(p_victim);
    return true;
}

// The newest first: peers that only take places are older than one that logs in at once.
static void waiters_promote(t_mgmt_netconf *p_netconf)
{
    std::vector<t_netconf_waiter *> identified;
    for (t_netconf_waiter &item : p_netconf->waiters)
        if (item.is_identified)
            identified.push_back(&item);
    std::ranges::reverse(identified);
    for (t_netconf_waiter *p_waiter : identified)
        if (login_has_place(p_netconf, p_waiter->address_key))
            link_start(p_waiter);
}

// ---- Identification ----

static void on_bytes(evutil_socket_t fd, short, void *p_ctx)
{
    t_netconf_waiter *p_waiter = static_cast<t_netconf_waiter *>(p_ctx);
    t_mgmt_netconf *p_netconf = p_waiter->p_netconf;
    char room[NETCONF_IDENT_MAX];
    ssize_t size = recv(fd, room, sizeof(room), MSG_PEEK | MSG_DONTWAIT);
    if (size < 0 && (errno == EAGAIN || errno == EINTR))
        return;
    e_netconf_ident ident =
        size > 0 ? netconf_ident_read({room, static_cast<size_t>(size)}) : NETCONF_IDENT_BAD;
    if (ident == NETCONF_IDENT_MORE)
        return;
    if (ident == NETCONF_IDENT_BAD)
        return waiter_free(p_waiter);
    event_del(p_waiter->p_event);
    p_waiter->is_identified = true;
    waiters_promote(p_netconf);
}

static t_netconf_waiter *waiter_new(t_mgmt_netconf *p_netconf, int fd, const t_netconf_address &address)
{
    waiters_limit(p_netconf, address.key);
    return &p_netconf->waiters.emplace_back(t_netconf_waiter{.fd = fd,
                                                             .host = address.host,
                                                             .address_key = address.key,
                                                             .since = netconf_clock::now(),
                                                             .p_netconf = p_netconf});
}

// ---- Arrivals ----

// Looking at bytes leaves them there, so the event comes by the edge.
static void on_ssh(evconnlistener *, evutil_socket_t fd, sockaddr *, int, void *p_ctx)
{
    t_mgmt_netconf *p_netconf = static_cast<t_mgmt_netconf *>(p_ctx);
    t_netconf_address address;
    if (!netconf_peer_read(fd, &address)) {
        close(fd);
        return;
    }
    t_netconf_waiter *p_waiter = waiter_new(p_netconf, fd, address);
    p_waiter->p_event = event_new(p_netconf->p_base, fd, EV_READ | EV_ET | EV_PERSIST, on_bytes, p_waiter);
    if (p_waiter->p_event == nullptr || event_add(p_waiter->p_event, nullptr) != 0)
        waiter_free(p_waiter);
}

// The kernel has told who that is: there is nothing to wait for.
static void on_local(evconnlistener *, evutil_socket_t fd, sockaddr *, int, void *p_ctx)
{
    t_mgmt_netconf *p_netconf = static_cast<t_mgmt_netconf *>(p_ctx);
    waiter_new(p_netconf, fd, {.host = "", .key = local_key})->is_identified = true;
    waiters_promote(p_netconf);
}

// Out of descriptors: until the next tick, since libevent would try again at once.
static void on_accept_error(evconnlistener *p_listener, void *)
{
    LUM_LOG(LUM_LOG_ERROR, "NETCONF: a connection could not be accepted");
    evconnlistener_disable(p_listener);
}

// ---- The loop ----

static void links_reap(t_mgmt_netconf *p_netconf)
{
    std::erase_if(p_netconf->links, [](const netconf_link_ptr &link) {
        if (!link->is_finished)
            return false;
        link->thread.join();
        return true;
    });
}

static void listeners_free(t_mgmt_netconf *p_netconf)
{
    for (evconnlistener **p_listener : {&p_netconf->p_ssh_listener, &p_netconf->p_socket_listener})
        if (*p_listener != nullptr)
            evconnlistener_free(std::exchange(*p_listener, nullptr));
}

// Everybody out; the loop ends with the last link.
static void stop_step(t_mgmt_netconf *p_netconf)
{
    listeners_free(p_netconf);
    while (!p_netconf->waiters.empty())
        waiter_free(&p_netconf->waiters.front());
    for (const netconf_link_ptr &link : p_netconf->links)
        netconf_link_end(link.get());
    if (p_netconf->links.empty())
        event_base_loopbreak(p_netconf->p_base);
}

static void on_bell(evutil_socket_t, short, void *p_ctx)
{
    t_mgmt_netconf *p_netconf = static_cast<t_mgmt_netconf *>(p_ctx);
    p_netconf->bell.quiet();
    links_reap(p_netconf);
    if (p_netconf->is_stopping)
        return stop_step(p_netconf);
    waiters_promote(p_netconf);
}

static void on_tick(evutil_socket_t, short, void *p_ctx)
{
    t_mgmt_netconf *p_netconf = static_cast<t_mgmt_netconf *>(p_ctx);
    auto oldest = netconf_clock::now() - std::chrono::milliseconds(NETCONF_IDENT_MS);
    while (!p_netconf->waiters.empty() && p_netconf->waiters.front().since < oldest)
        waiter_free(&p_netconf->waiters.front());
    for (evconnlistener *p_listener : {p_netconf->p_ssh_listener, p_netconf->p_socket_listener})
        if (p_listener != nullptr)
            evconnlistener_enable(p_listener);
    waiters_promote(p_netconf);
}

static evconnlistener *listener_new(t_mgmt_netconf *p_netconf, int *p_fd, evconnlistener_cb on_accept)
{
    evconnlistener *p_listener = evconnlistener_new(p_netconf->p_base, on_accept, p_netconf,
                                                    LEV_OPT_CLOSE_ON_FREE | LEV_OPT_CLOSE_ON_EXEC, -1, *p_fd);
    if (p_listener == nullptr)
        return nullptr;
    *p_fd = -1;  // the listener's from here
    evconnlistener_set_error_cb(p_listener, on_accept_error);
    return p_listener;
}

static bool events_make(t_mgmt_netconf *p_netconf)
{
    p_netconf->p_base = event_base_new();
    if (p_netconf->p_base == nullptr)
        return false;
    p_netconf->p_bell_event =
        event_new(p_netconf->p_base, p_netconf->bell.fd, EV_READ | EV_PERSIST, on_bell, p_netconf);
    p_netconf->p_tick_event = event_new(p_netconf->p_base, -1, EV_PERSIST, on_tick, p_netconf);
    if (p_netconf->p_bell_event == nullptr || event_add(p_netconf->p_bell_event, nullptr) != 0 ||
        p_netconf->p_tick_event == nullptr || event_add(p_netconf->p_tick_event, &tick) != 0)
        return false;
    bool has_ssh = p_netconf->ssh_fd >= 0;
    bool has_socket = p_netconf->socket_fd >= 0;
    if (has_ssh)
        p_netconf->p_ssh_listener = listener_new(p_netconf, &p_netconf->ssh_fd, on_ssh);
    if (has_socket)
        p_netconf->p_socket_listener = listener_new(p_netconf, &p_netconf->socket_fd, on_local);
    return (!has_ssh || p_netconf->p_ssh_listener != nullptr) &&
           (!has_socket || p_netconf->p_socket_listener != nullptr);
}

bool netconf_listen_prepare(t_mgmt_netconf *p_netconf, std::string *p_error)
{
    if (events_make(p_netconf))
        return true;
    *p_error = "NETCONF: no event loop";
    return false;
}

// At its end the owner is told, which joins this thread.
void netconf_listen_run(t_mgmt_netconf *p_netconf)
{
    event_base_dispatch(p_netconf->p_base);
    mgmt_engine_post(p_netconf->p_engine, [p_netconf] {
        p_netconf->thread.join();
        p_netconf->stopped();
    });
}

void netconf_listen_free(t_mgmt_netconf *p_netconf)
{
    if (p_netconf->p_base == nullptr)
        return;
    listeners_free(p_netconf);
    for (event *p_event : {p_netconf->p_bell_event, p_netconf->p_tick_event})
        if (p_event != nullptr)
            event_free(p_event);
    event_base_free(p_netconf->p_base);
    p_netconf->p_base = nullptr;
}
