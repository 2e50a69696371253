#include "mgmtd/control/control_peer.h"

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <grp.h>
#include <pwd.h>
#include <sys/socket.h>

static constexpr size_t max_groups = 65536;  // the kernel's limit

// The supplementary groups. A kernel may have more of them than fit at first.
static bool groups_read(int fd, std::vector<gid_t> *p_groups)
{
    p_groups->resize(64);
    while (p_groups->size() <= max_groups) {
        socklen_t size = static_cast<socklen_t>(p_groups->size() * sizeof(gid_t));
        if (getsockopt(fd, SOL_SOCKET, SO_PEERGROUPS, p_groups->data(), &size) == 0) {
            p_groups->resize(size / sizeof(gid_t));
            return true;
        }
        if (errno != ERANGE)
            return false;
        p_groups->resize(p_groups->size() * 4);
    }
    return false;
}

bool control_peer_of(int fd, t_control_peer *p_peer)
{
    ucred credentials = {};
    socklen_t size = sizeof(credentials);
    if (getsockopt(fd, SOL_SOCKET, SO_PEERCRED, &credentials, &size) != 0)
        return false;
    t_control_peer peer = {.uid = credentials.uid, .groups = {}};
    if (!groups_read(fd, &peer.groups))
        return false;
    peer.groups.push_back(credentials.gid);
    *p_peer = std::move(peer);
    return true;
}

e_control_right control_peer_right(const t_control_peer &peer, gid_t group)
{
    bool is_member = group != CONTROL_NO_GROUP && std::ranges::count(peer.groups, group) > 0;
    return peer.uid == 0 || is_member ? CONTROL_RIGHT_ADMIN : CONTROL_RIGHT_NONE;
}

std::string control_user_name(uid_t uid)
{
    passwd entry;
    passwd *p_found = nullptr;
    char room[4096];
    if (uid == 0)
        return "root";  // without a look into the name service
    if (getpwuid_r(uid, &entry, room, sizeof(room), &p_found) == 0 && p_found != nullptr)
        return p_found->pw_name;
    return std::to_string(uid);
}

bool control_group_find(const std::string &name, gid_t *p_group)
{
    gid_t number = CONTROL_NO_GROUP;
    const char *p_end = name.data() + name.size();
    auto [p_rest, result] = std::from_chars(name.data(), p_end, number);
    if (result == std::errc() && p_rest == p_end && number != CONTROL_NO_GROUP) {
        *p_group = number;
        return true;
    }
    const group *p_found = getgrnam(name.c_str());
    if (p_found == nullptr)
        return false;
    *p_group = p_found->gr_gid;
    return true;
}
