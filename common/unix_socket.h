// Local stream sockets at a path, closed on exec.
#pragma once

#include <string>
#include <sys/types.h>

// Makes sure that no other process serves the path and removes a socket that one left. False with the reason.
// For asking before anything is changed that another process may be using.
[[nodiscard]] bool unix_socket_clear(const std::string &path, std::string *p_error);

// A bound socket with that mode, not blocking, not listening yet; a socket that nobody serves any more is
// replaced. -1 with the reason.
[[nodiscard]] int unix_socket_bind(const std::string &path, mode_t mode, std::string *p_error);

// A connected socket, or -1 with errno; ENAMETOOLONG for what can't be a socket's path. With waits, this call
// and those on the socket wait; else none does.
[[nodiscard]] int unix_socket_connect(const std::string &path, bool waits = false);
