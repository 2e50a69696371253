#include "mgmtd/netconf/netconf_address.h"

#include <arpa/inet.h>
#include <cerrno>
#include <cstring>
#include <netdb.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>
#include <unistd.h>

static constexpr int backlog = 256;
static constexpr int keep_idle_s = 60;  // then a probe each 10 s, and after 6 of them the peer has gone
static constexpr int keep_step_s = 10;
static constexpr int keep_count = 6;
static constexpr int prefix_bytes = 8;  // of an IPv6 address, that one site has

static void flag_set(int fd, int level, int name, int value)
{
    setsockopt(fd, level, name, &value, sizeof(value));
}

// ---- Listening ----

static uint16_t port_of(const sockaddr_storage &address)
{
    const void *p_address = &address;
    if (address.ss_family == AF_INET6)
        return ntohs(static_cast<const sockaddr_in6 *>(p_address)->sin6_port);
    return ntohs(static_cast<const sockaddr_in *>(p_address)->sin_port);
}

static bool socket_listen(int fd, const addrinfo &where, uint16_t *p_port)
{
    sockaddr_storage bound = {};
    socklen_t size = sizeof(bound);
    void *p_bound = &bound;
    flag_set(fd, SOL_SOCKET, SO_REUSEADDR, 1);
    if (where.ai_family == AF_INET6)
        flag_set(fd, IPPROTO_IPV6, IPV6_V6ONLY, 0);
    if (bind(fd, where.ai_addr, where.ai_addrlen) != 0 || listen(fd, backlog) != 0 ||
        getsockname(fd, static_cast<sockaddr *>(p_bound), &size) != 0)
        return false;
    *p_port = port_of(bound);
    return true;
}

int netconf_port_bind(const std::string &address, int port, uint16_t *p_port, std::string *p_error)
{
    addrinfo hints = {};
    hints.ai_flags = AI_NUMERICHOST | AI_NUMERICSERV | AI_PASSIVE;
    hints.ai_socktype = SOCK_STREAM;
    addrinfo *p_found = nullptr;
    std::string where = address + " port " + std::to_string(port);
    int result = getaddrinfo(address.c_str(), std::to_string(port).c_str(), &hints, &p_found);
    if (result != 0) {
        *p_error = where + ": " + gai_strerror(result);
        return -1;
    }
    int fd = socket(p_found->ai_family, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
    bool listens = fd >= 0 && socket_listen(fd, *p_found, p_port);
    int reason = errno;
    freeaddrinfo(p_found);
    if (listens)
        return fd;
    if (fd >= 0)
        close(fd);
    *p_error = where + ": " + strerror(reason);
    return -1;
}

// ---- Peers ----

static std::string text_of(int family, const void *p_bytes)
{
    char text[INET6_ADDRSTRLEN] = "";
    inet_ntop(family, p_bytes, text, sizeof(text));
    return text;
}

static t_netconf_address address_of(const sockaddr_storage &peer)
{
    const void *p_peer = &peer;
    if (peer.ss_family == AF_INET) {
        std::string host = text_of(AF_INET, &static_cast<const sockaddr_in *>(p_peer)->sin_addr);
        return {.host = host, .key = host};
    }
    in6_addr address = static_cast<const sockaddr_in6 *>(p_peer)->sin6_addr;
    if (IN6_IS_ADDR_V4MAPPED(&address)) {
        std::string host = text_of(AF_INET, &address.s6_addr[12]);
        return {.host = host, .key = host};
    }
    std::string host = text_of(AF_INET6, &address);
    memset(&address.s6_addr[prefix_bytes], 0, sizeof(address) - prefix_bytes);
    return {.host = host, .key = text_of(AF_INET6, &address)};
}

bool netconf_peer_read(int fd, t_netconf_address *p_address)
{
    sockaddr_storage peer = {};
    socklen_t size = sizeof(peer);
    void *p_peer = &peer;
    if (getpeername(fd, static_cast<sockaddr *>(p_peer), &size) != 0)
        return false;
    *p_address = address_of(peer);
    flag_set(fd, IPPROTO_TCP, TCP_NODELAY, 1);
    flag_set(fd, SOL_SOCKET, SO_KEEPALIVE, 1);
    flag_set(fd, IPPROTO_TCP, TCP_KEEPIDLE, keep_idle_s);
    flag_set(fd, IPPROTO_TCP, TCP_KEEPINTVL, keep_step_s);
    flag_set(fd, IPPROTO_TCP, TCP_KEEPCNT, keep_count);
    return true;
}
