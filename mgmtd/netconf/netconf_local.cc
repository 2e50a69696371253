// The local socket's streams: bytes as they are, the user as the kernel tells.

#include "mgmtd/netconf/netconf_private.h"
#include "mgmtd/netconf/netconf_wire.h"

#include <cerrno>
#include <poll.h>
#include <sys/socket.h>

// The record of the stream is the link itself.
static void *local_login(t_netconf_link *p_link)
{
    return netconf_login_local(p_link) ? p_link : nullptr;
}

static bool is_passing(ssize_t size)
{
    return size < 0 && (errno == EAGAIN || errno == EWOULDBLOCK || errno == EINTR);
}

static short local_wants(void *, bool read, bool write)
{
    return static_cast<short>((read ? POLLIN : 0) | (write ? POLLOUT : 0));
}

static bool local_turn(void *, short happened)
{
    return (happened & (POLLHUP | POLLERR)) == 0;
}

static ssize_t local_read(void *p_wire, std::span<char> room)
{
    ssize_t size = recv(static_cast<t_netconf_link *>(p_wire)->fd, room.data(), room.size(), MSG_DONTWAIT);
    if (is_passing(size))
        return 0;
    return size > 0 ? size : -1;
}

static ssize_t local_write(void *p_wire, std::string_view bytes)
{
    int fd = static_cast<t_netconf_link *>(p_wire)->fd;
    ssize_t size = send(fd, bytes.data(), bytes.size(), MSG_DONTWAIT | MSG_NOSIGNAL);
    return is_passing(size) ? 0 : size;
}

static void local_close(void *p_wire)
{
    shutdown(static_cast<t_netconf_link *>(p_wire)->fd, SHUT_RDWR);
}

const t_netconf_wire_ops g_netconf_local_wire = {
    .login = local_login,
    .wants = local_wants,
    .turn = local_turn,
    .read = local_read,
    .write = local_write,
    .close = local_close,
};
