// The line by which an SSH client tells what it is: the first that it sends (RFC 4253, 4.2).
#pragma once

#include <cstddef>
#include <string_view>

inline constexpr size_t NETCONF_IDENT_MAX = 255;  // bytes, with the line's end

enum e_netconf_ident { NETCONF_IDENT_MORE, NETCONF_IDENT_GOOD, NETCONF_IDENT_BAD };

// Judges the first bytes of a connection, as many as have come, up to NETCONF_IDENT_MAX. Good: a whole line
// that begins with "SSH-2.0-", of printable characters. Bad as soon as that can't come any more.
e_netconf_ident netconf_ident_read(std::string_view bytes);
