// A listening socket at a path.
#pragma once

#include <string>
#include <sys/types.h>

// Binds a UNIX stream socket, 0600, or 0660 for a group. A socket that nobody serves any more is replaced;
// anything else at the path is left alone. The descriptor, or -1 with the reason.
[[nodiscard]] int control_socket_bind(const std::string &path, gid_t group, std::string *p_error);
