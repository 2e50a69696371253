#include "mgmtd/control/control_socket.h"

#include "mgmtd/control/control_peer.h"

#include <cerrno>
#include <cstring>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

static bool refuse(const std::string &path, const char *reason, std::string *p_error)
{
    *p_error = path + ": " + reason;
    return false;
}

static int stream_socket()
{
    return socket(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
}

// Connects and closes again.
static bool is_served(const sockaddr_un &address)
{
    int fd = stream_socket();
    const void *p_address = &address;
    bool connected = fd >= 0 && connect(fd, static_cast<const sockaddr *>(p_address), sizeof(address)) == 0;
    bool is_busy = !connected && errno == EAGAIN;
    close(fd);
    return connected || is_busy;
}

static bool path_clear(const sockaddr_un &address, std::string *p_error)
{
    struct stat status;
    if (lstat(address.sun_path, &status) != 0)
        return true;
    if (!S_ISSOCK(status.st_mode))
        return refuse(address.sun_path, "there is something else than a socket", p_error);
    if (is_served(address))
        return refuse(address.sun_path, "another process serves this socket", p_error);
    return unlink(address.sun_path) == 0 || refuse(address.sun_path, strerror(errno), p_error);
}

// Nobody else can connect before the rights stand: the socket is made with none for others and not listening.
static bool bind_with_rights(int fd, const sockaddr_un &address, gid_t group, std::string *p_error)
{
    const void *p_address = &address;
    mode_t mask = umask(0177);
    bool bound = bind(fd, static_cast<const sockaddr *>(p_address), sizeof(address)) == 0;
    int reason = errno;
    umask(mask);
    if (!bound)
        return refuse(address.sun_path, strerror(reason), p_error);
    if (group == CONTROL_NO_GROUP)
        return true;
    if (chown(address.sun_path, static_cast<uid_t>(-1), group) == 0 && chmod(address.sun_path, 0660) == 0)
        return true;
    refuse(address.sun_path, strerror(errno), p_error);
    unlink(address.sun_path);
    return false;
}

int control_socket_bind(const std::string &path, gid_t group, std::string *p_error)
{
    sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    if (path.empty() || path.size() >= sizeof(address.sun_path)) {
        refuse(path, "the path is empty or too long for a socket", p_error);
        return -1;
    }
    memcpy(address.sun_path, path.data(), path.size());
    if (!path_clear(address, p_error))
        return -1;
    int fd = stream_socket();
    if (fd >= 0 && bind_with_rights(fd, address, group, p_error))
        return fd;
    if (fd < 0)
        refuse(path, strerror(errno), p_error);
    close(fd);
    return -1;
}
