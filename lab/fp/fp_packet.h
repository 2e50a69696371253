// Decoding a frame into the fields that programs look at.
//
// Ethernet with up to two VLAN tags (0x8100, 0x88a8), then IPv4 or IPv6. Every length is checked before a
// byte is read: against the packet's own lengths, which decide what belongs to it, and against the bytes that
// were captured. Only headers must be there, a payload may be cut.
//
// Fields, in host order: protocol, ports and flags of TCP, ports of UDP, packet length as the IP header tells
// it; for IPv4 also the addresses and DSCP; for IPv6 the traffic class and the next header, which like the
// protocol is the first one behind the extension headers. match-any is 1. All others are 0: the addresses of
// IPv6, which do not fit a field, ports of any other protocol, and ports and flags of a later fragment, which
// does not carry them.
#pragma once

#include "lab/fp/fp_address.h"
#include "lab/fp/walker.h"

#include <cstddef>
#include <cstdint>
#include <span>

enum e_fp_decode {
    FP_DECODE_OK,
    FP_DECODE_NOT_IP,     // another protocol, or more than two tags
    FP_DECODE_TRUNCATED,  // captured bytes end inside the headers
    FP_DECODE_MALFORMED,  // the headers contradict each other or the packet's length
};

struct t_fp_packet {
    t_fp_header header;
    t_fp_addresses6 addresses6;  // all zero for IPv4
    uint32_t length;             // of the IP packet, in bytes
    uint32_t ip_offset;          // of the IP header in the frame, in bytes
    uint8_t version;             // 4 or 6
    uint8_t num_vlans;
    uint16_t vlan_ids[2];  // outer tag first
    bool is_fragment;
    bool is_later_fragment;  // not the first one
};

// The frame begins with its destination address and is without check sequence. The packet is written on
// FP_DECODE_OK only.
e_fp_decode fp_packet_decode(std::span<const std::byte> frame, t_fp_packet *p_packet);
