// Local stream sockets at a path, not blocking and closed on exec.
#pragma once

#include <string>
#include <sys/types.h>

// A bound socket with that mode, not listening yet; a socket that nobody serves any more is replaced. -1 with
// the reason.
[[nodiscard]] int peer_socket_bind(const std::string &path, mode_t mode, std::string *p_error);

// A connected socket, or -1 with errno; ENAMETOOLONG for what can't be a socket's path.
[[nodiscard]] int peer_socket_connect(const std::string &path);
