#include "mgmtd/control/control_socket.h"

#include "common/unix_socket.h"
#include "mgmtd/control/control_peer.h"

#include <cerrno>
#include <cstring>
#include <sys/stat.h>
#include <unistd.h>

int control_socket_bind(const std::string &path, gid_t group, std::string *p_error)
{
    int fd = unix_socket_bind(path, 0600, p_error);
    if (fd < 0 || group == CONTROL_NO_GROUP)
        return fd;
    if (chown(path.c_str(), static_cast<uid_t>(-1), group) == 0 && chmod(path.c_str(), 0660) == 0)
        return fd;
    *p_error = path + ": " + strerror(errno);
    unlink(path.c_str());
    close(fd);
    return -1;
}
