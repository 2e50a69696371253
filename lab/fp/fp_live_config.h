// What live mode works with: ports, their addresses, and routes.
//
// As JSON, all but the ports' interfaces may be missing:
//
//   {"ports": [{"interface": "ge0/1", "vpn": 10, "side": "service",
//               "address": ["192.168.1.1/24", "fd00:1::1/64"]}],
//    "routes": [{"prefix": "10.0.0.0/8", "via": "192.168.2.9"}, {"prefix": "fd00:9::/64", "port": "ge0/0"}]}
//
// An interface is named as operators name it. "vpn" is the one whose policies packets meet that come in, and
// the one that packets go to that leave, 0 if it isn't told; "side" is where they come from, "service" if it
// isn't told. One table of routes serves all VPNs, since what may pass between them is for policies and zones
// to say. A port's prefixes are routes of the port; of others, "via" is a neighbour in one of these prefixes,
// and with "port" every destination is a neighbour at that port.
//
// Addresses of both families stand as 16 bytes in network order, those of IPv4 mapped (::ffff:192.0.2.1), so
// one table and one comparison do for both.
#pragma once

#include "lab/fp/fp_bindings.h"

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <vector>

using t_fp_live_address = t_fp_address6;

struct t_fp_live_prefix {
    t_fp_live_address address;  // with its host bits
    uint8_t length;             // bits of the 128
};

struct t_fp_live_port_config {
    std::string interface;
    uint32_t vpn;
    e_fp_side side;
    std::vector<t_fp_live_prefix> prefixes;
};

struct t_fp_live_route {
    t_fp_live_prefix prefix;
    size_t port;                           // index
    std::optional<t_fp_live_address> via;  // none: the destination itself is the neighbour
};

struct t_fp_live_config {
    std::vector<t_fp_live_port_config> ports;
    std::vector<t_fp_live_route> routes;  // of ports and told ones, the longest prefix first
};

// False with the reason.
bool fp_live_config_parse(const std::string &text, t_fp_live_config *p_config, std::string *p_error);
bool fp_live_config_read(const std::string &path, t_fp_live_config *p_config, std::string *p_error);

// The first route that has the address, which is the one with the longest prefix; null: none.
const t_fp_live_route *fp_live_route_find(const t_fp_live_config &config, const t_fp_live_address &address);

// The address of the port in that family, or null.
const t_fp_live_address *fp_live_port_address(const t_fp_live_port_config &port, bool is_v4);

// ---- Addresses ----

t_fp_live_address fp_live_address_v4(std::span<const uint8_t, 4> bytes);
t_fp_live_address fp_live_address_v6(std::span<const uint8_t, 16> bytes);
bool fp_live_is_v4(const t_fp_live_address &address);

// Its bytes on the wire: 4 or 16.
std::span<const uint8_t> fp_live_address_bytes(const t_fp_live_address &address);

std::string fp_live_address_text(const t_fp_live_address &address);
std::string fp_live_prefix_text(const t_fp_live_prefix &prefix);
