// What tells where a packet is, by name: requests and sidecar files write places with these.
//
//   vpn            a number
//   interface      a name
//   direction      in, out
//   from           service, tunnel
//   out-vpn        a number
//   out-interface  a name
//   family         ipv4, ipv6                  of the packet, so not for replays
//   src6, dst6     IPv6 addresses              the same
#pragma once

#include "lab/fp/fp_bindings.h"

#include <span>
#include <string>
#include <string_view>

struct t_fp_place_row {
    std::string_view name;
    bool is_required;
    bool is_of_packet;                                             // a replay has it from its packets
    bool (*p_read)(const std::string &word, t_fp_place *p_place);  // false: no such value
};

// All of them, the required ones first, in the order in which a request in words has them.
std::span<const t_fp_place_row> fp_place_rows();

// Null for another name.
const t_fp_place_row *fp_place_row_find(std::string_view name);

// A place before anything is told: a packet from the service side.
t_fp_place fp_place_blank();

// Sets what the row tells. False with the reason.
bool fp_place_set(const t_fp_place_row &row, const std::string &word, t_fp_place *p_place,
                  std::string *p_error);
