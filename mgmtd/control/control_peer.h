// Who is at the other end of a local socket, and what that one may do.
//
// The kernel tells uid and groups of the process that connected, so nothing is asked of the client. uid 0 is
// an administrator, and so is a member of the group that the daemon was given; everybody else is refused.
#pragma once

#include <span>
#include <string>
#include <sys/types.h>
#include <vector>

struct t_control_peer {
    uid_t uid;
    std::vector<gid_t> groups;  // primary and supplementary ones
};

enum e_control_right {
    CONTROL_RIGHT_NONE,
    CONTROL_RIGHT_ADMIN,  // everything
};

inline constexpr gid_t CONTROL_NO_GROUP = static_cast<gid_t>(-1);

// Asks the kernel about a connected UNIX stream socket. False with errno.
[[nodiscard]] bool control_peer_of(int fd, t_control_peer *p_peer);

// group is the one whose members are administrators, or CONTROL_NO_GROUP.
e_control_right control_peer_right(const t_control_peer &peer, gid_t group);

// The user's name for the commits' list; the number where it has no name.
std::string control_user_name(uid_t uid);

// A group by its name or number. False if there is none of that name.
[[nodiscard]] bool control_group_find(const std::string &name, gid_t *p_group);
