#include "common/unix_socket.h"

#include <cerrno>
#include <cstring>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

static bool address_fill(const std::string &path, sockaddr_un *p_address)
{
    *p_address = {};
    p_address->sun_family = AF_UNIX;
    if (path.empty() || path.size() >= sizeof(p_address->sun_path))
        return false;
    memcpy(p_address->sun_path, path.data(), path.size());
    return true;
}

static int stream_socket(bool waits)
{
    return socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | (waits ? 0 : SOCK_NONBLOCK), 0);
}

static bool refuse(const std::string &path, const char *reason, std::string *p_error)
{
    *p_error = path + ": " + reason;
    return false;
}

int unix_socket_connect(const std::string &path, bool waits)
{
    sockaddr_un address;
    errno = ENAMETOOLONG;
    int fd = address_fill(path, &address) ? stream_socket(waits) : -1;
    const void *p_address = &address;
    if (fd < 0 || connect(fd, static_cast<const sockaddr *>(p_address), sizeof(address)) == 0)
        return fd;
    int reason = errno;
    close(fd);
    errno = reason;
    return -1;
}

// Whether a process listens there. One that is too busy to be asked listens, too.
static bool is_served(const std::string &path)
{
    int fd = unix_socket_connect(path);
    if (fd < 0)
        return errno == EAGAIN;
    close(fd);
    return true;
}

bool unix_socket_clear(const std::string &path, std::string *p_error)
{
    sockaddr_un address;
    struct stat status;
    if (!address_fill(path, &address))
        return refuse(path, "the path is empty or too long for a socket", p_error);
    if (lstat(path.c_str(), &status) != 0)
        return true;
    if (!S_ISSOCK(status.st_mode))
        return refuse(path, "there is something else than a socket", p_error);
    if (is_served(path))
        return refuse(path, "another process serves this socket", p_error);
    return unlink(path.c_str()) == 0 || refuse(path, strerror(errno), p_error);
}

int unix_socket_bind(const std::string &path, mode_t mode, std::string *p_error)
{
    sockaddr_un address;
    if (!unix_socket_clear(path, p_error) || !address_fill(path, &address))
        return -1;
    int fd = stream_socket(false);
    const void *p_address = &address;
    mode_t mask = umask(~mode & 0777);
    int result = bind(fd, static_cast<const sockaddr *>(p_address), sizeof(address));
    int reason = errno;
    umask(mask);
    if (result == 0)
        return fd;
    close(fd);
    refuse(path, strerror(reason), p_error);
    return -1;
}
