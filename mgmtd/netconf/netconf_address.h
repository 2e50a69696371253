// Addresses of peers, and the port where they are awaited.
#pragma once

#include <cstdint>
#include <string>

// Listens on a TCP port (0: any) of a numeric address; "::" takes IPv4 too. The descriptor, which does not
// block, and the port; or -1 with the reason.
[[nodiscard]] int netconf_port_bind(const std::string &address, int port, uint16_t *p_port,
                                    std::string *p_error);

struct t_netconf_address {
    std::string host;  // "192.0.2.1"
    std::string key;   // what counts as one address: the host, of IPv6 its /64
};

// The peer of a TCP connection. Also sets what its descriptor needs: no delay, keeping alive.
[[nodiscard]] bool netconf_peer_read(int fd, t_netconf_address *p_address);
