// The messages by which the policy daemon tells the forwarding table manager where its filters apply.
//
// A message is what stands behind the transport's header. Integers are big-endian and without alignment:
//
//   VPN filter (types 1 add, 2 delete)        interface filter (types 3 add, 4 delete)
//     0    type                                 0    type
//     1    filter type                          1    family
//     2    policy direction                     2    0
//     3    filter id, 4 bytes                   3    filter id, 4 bytes
//     7    name, 128 bytes                      7    name, 128 bytes
//     135  number of entries, 4 bytes           135  number of entries, 4 bytes
//     139  entries of 8 bytes:                  139  entries of 38 bytes:
//            lowest and highest VPN, 4 each            VPN, 4; direction, 1; interface name, 33
//
//   clearing of flows (types 5, 6): the type alone
//
// Names end with a zero inside their field; what follows it says nothing. A decoder of its own: it shares
// nothing with who writes these messages, and it is strict, so that a writer's fault shows.
#pragma once

#include "lab/fp/fp_bindings.h"

#include <cstdint>
#include <span>
#include <string>
#include <vector>

enum e_ftm_message : uint8_t {
    FTM_MESSAGE_NONE,
    FTM_MESSAGE_VPN_ADD,
    FTM_MESSAGE_VPN_DELETE,
    FTM_MESSAGE_INTERFACE_ADD,
    FTM_MESSAGE_INTERFACE_DELETE,
    FTM_MESSAGE_DPI_CLEAR_FLOWS,
    FTM_MESSAGE_CFLOWD_CLEAR_FLOWS,
    FTM_MESSAGES,
};

struct t_ftm_vpn_range {
    uint32_t min_vpn;
    uint32_t max_vpn;
};

struct t_ftm_interface {
    uint32_t vpn;
    e_fp_interface_direction direction;
    std::string name;
};

struct t_ftm_message {
    e_ftm_message type;
    uint32_t filter_id;
    std::string name;
    e_fp_filter_type filter_type;     // of VPN filters
    e_fp_policy_direction direction;  // of VPN filters
    std::vector<t_ftm_vpn_range> vpns;
    e_fp_family family;  // of interface filters
    std::vector<t_ftm_interface> interfaces;
};

// Decodes a whole message. False with the reason: a type or value that nobody knows, a name without an end,
// no entries, or a size that is not the one the number of entries asks for. The message is written on success
// only.
bool ftm_decode(std::span<const uint8_t> bytes, t_ftm_message *p_message, std::string *p_error);

const char *ftm_message_name(e_ftm_message type);

// The message by its fields, "message" with the name first.
nlohmann::ordered_json ftm_message_json(const t_ftm_message &message);
