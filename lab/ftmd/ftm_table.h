// The table of bindings: which filter applies where, as the messages so far have told.
//
// A VPN binding is known by filter type and VPN range, an interface binding by family, interface and
// direction; neither by the filter's name nor by a policy's direction, since a replay names the same binding
// differently. An add overwrites what is there. A delete removes a row only if the row holds the delete's
// filter id: an old filter's delete can come behind the new one's add.
#pragma once

#include "lab/ftmd/ftm_decode.h"

#include <cstdint>
#include <map>
#include <string>
#include <tuple>

struct t_ftm_vpn_key {
    e_fp_filter_type type;
    uint32_t min_vpn;
    uint32_t max_vpn;

    bool operator<(const t_ftm_vpn_key &other) const
    {
        return std::tie(type, min_vpn, max_vpn) < std::tie(other.type, other.min_vpn, other.max_vpn);
    }
};

struct t_ftm_interface_key {
    e_fp_family family;
    std::string interface;
    e_fp_interface_direction direction;

    bool operator<(const t_ftm_interface_key &other) const
    {
        return std::tie(family, interface, direction) <
               std::tie(other.family, other.interface, other.direction);
    }
};

struct t_ftm_table {
    std::map<t_ftm_vpn_key, t_fp_vpn_binding> vpns;
    std::map<t_ftm_interface_key, t_fp_interface_binding> interfaces;
};

// Applies an add or a delete; other messages change nothing. Returns the number of entries of a delete that
// met no row, or one with another filter.
uint32_t ftm_table_apply(t_ftm_table *p_table, const t_ftm_message &message);

// The rows in the order of their keys.
t_fp_bindings ftm_table_bindings(const t_ftm_table &table);
