// Bindings: which filter a packet meets where it is. The forwarding table manager keeps the table and hands
// the whole of it over; the forwarding plane only looks up in it.
//
// A VPN binding puts a filter on a range of VPNs; which side a data policy's packets come from is told by the
// policy's direction. An interface binding puts an access list on an interface, for one address family and
// one direction of the packets. A row may hold a filter id without a program: it is met all the same, and the
// packet goes on.
//
// As JSON, with "filter" -1 for 0xffffffff:
//
//   {"vpns": [{"type": "data", "min": 10, "max": 20, "filter": 3, "direction": "all", "name": "edge"}],
//    "interfaces": [{"family": "ipv4", "interface": "ge0/1", "direction": "in", "vpn": 10, "filter": 5,
//                    "name": "deny-telnet"}]}
#pragma once

#include "lab/fp/fp_address.h"

#include <cstdint>
#include <nlohmann/json_fwd.hpp>
#include <optional>
#include <string>
#include <vector>

enum e_fp_filter_type : uint8_t {
    FP_FILTER_NONE,  // bound before the policy had a filter; no packet meets it
    FP_FILTER_DATA,
    FP_FILTER_APP_ROUTE,
    FP_FILTER_ZONE,  // no packet meets it here: zones are looked up by pairs of zones
    FP_FILTER_TYPES,
};

enum e_fp_policy_direction : uint8_t {
    FP_POLICY_DIRECTION_NONE,
    FP_POLICY_DIRECTION_TUNNEL,
    FP_POLICY_DIRECTION_SERVICE,
    FP_POLICY_DIRECTION_ALL,
    FP_POLICY_DIRECTIONS,
};

enum e_fp_family : uint8_t {
    FP_FAMILY_IPV4,
    FP_FAMILY_IPV6,
    FP_FAMILIES,
};

enum e_fp_interface_direction : uint8_t {
    FP_INTERFACE_DIRECTION_NONE,  // of no packet
    FP_INTERFACE_DIRECTION_IN,
    FP_INTERFACE_DIRECTION_OUT,
    FP_INTERFACE_DIRECTIONS,
};

// Where a packet comes from.
enum e_fp_side : uint8_t {
    FP_SIDE_TUNNEL = FP_POLICY_DIRECTION_TUNNEL,
    FP_SIDE_SERVICE = FP_POLICY_DIRECTION_SERVICE,
};

struct t_fp_vpn_binding {
    e_fp_filter_type type;
    uint32_t min_vpn;
    uint32_t max_vpn;
    uint32_t filter_id;
    e_fp_policy_direction direction;
    std::string name;
};

struct t_fp_interface_binding {
    e_fp_family family;
    std::string interface;
    e_fp_interface_direction direction;
    uint32_t vpn;
    uint32_t filter_id;
    std::string name;
};

struct t_fp_bindings {
    std::vector<t_fp_vpn_binding> vpns;
    std::vector<t_fp_interface_binding> interfaces;
};

// ---- Looking up ----

// Where a packet is, and where it goes. With direction "in" it is followed from the interface on which it
// comes in to the one on which it leaves, if that is told; with "out" from the policies to the interface on
// which it leaves.
struct t_fp_place {
    uint32_t vpn;           // whose policies it meets
    std::string interface;  // on which it comes in or leaves
    e_fp_interface_direction direction;
    e_fp_side side;
    e_fp_family family;
    std::optional<uint32_t> out_vpn = {};  // if told
    std::string out_interface = {};        // of "in"; empty: not told
    t_fp_addresses6 addresses6 = {};
};

// In the order in which a packet meets them: what came in is filtered before any policy sees it, policies
// decide where it goes and so to which VPN, which zones have to know, and what leaves is filtered last.
enum e_fp_stage {
    FP_STAGE_INGRESS_LIST,
    FP_STAGE_APP_ROUTE,
    FP_STAGE_DATA_POLICY,
    FP_STAGE_ZONE,  // of no binding; see fp_zones.h
    FP_STAGE_EGRESS_LIST,
    FP_STAGES,
};

struct t_fp_stage {
    e_fp_stage stage;
    uint32_t filter_id;
    const std::string *p_name;  // of the binding; good until the table changes. Null for zones
};

// What is bound there, in order; at most one of each stage. An interface binding is found by family,
// interface and direction, whatever its VPN. Of several ranges with the VPN in them the narrowest counts,
// then the lowest; data policies whose direction doesn't have the packet's side in it are passed over before
// that.
std::vector<t_fp_stage> fp_bindings_lookup(const t_fp_bindings &bindings, const t_fp_place &place);

// ---- Text and JSON ----

// A filter id as it is shown: -1 for 0xffffffff.
int64_t fp_filter_shown(uint32_t filter_id);

const char *fp_stage_name(e_fp_stage stage);
const char *fp_filter_type_name(e_fp_filter_type type);
const char *fp_policy_direction_name(e_fp_policy_direction direction);
const char *fp_interface_direction_name(e_fp_interface_direction direction);
const char *fp_side_name(e_fp_side side);
const char *fp_family_name(e_fp_family family);

// Only "in" and "out", and "tunnel" and "service", are names of what a packet can have. False for others.
bool fp_packet_direction_read(const std::string &name, e_fp_interface_direction *p_direction);
bool fp_side_read(const std::string &name, e_fp_side *p_side);
bool fp_family_read(const std::string &name, e_fp_family *p_family);

// An object with "vpns" and "interfaces".
nlohmann::ordered_json fp_bindings_json(const t_fp_bindings &bindings);

// Reads such an object; every member of every row must be there, further members of the object itself are
// passed over. False with the reason, the table untouched.
bool fp_bindings_read(const nlohmann::json &object, t_fp_bindings *p_bindings, std::string *p_error);
