// A peer's byte stream, as the carrying loop sees it: SSH's channel or a local socket.
//
// All entries set. The stream's descriptor does not block, and neither does anything here but `login`, which
// ends within its time. One thread.
#pragma once

#include <span>
#include <string_view>
#include <sys/types.h>

struct t_netconf_link;

struct t_netconf_wire_ops {
    // Everything before the first byte of NETCONF. Null when the peer does not get that far; else the
    // stream's record, which `close` frees. The link's user is set then.
    void *(*login)(t_netconf_link *p_link);
    // Events to poll the descriptor for, given what the caller wants to do next.
    short (*wants)(void *p_wire, bool read, bool write);
    bool (*turn)(void *p_wire, short happened);              // after poll; false: the stream has ended
    ssize_t (*read)(void *p_wire, std::span<char> room);     // bytes; 0: nothing now; -1: has ended
    ssize_t (*write)(void *p_wire, std::string_view bytes);  // bytes taken; 0: not now; -1: has ended
    void (*close)(void *p_wire);
};

extern const t_netconf_wire_ops g_netconf_ssh_wire;
extern const t_netconf_wire_ops g_netconf_local_wire;
