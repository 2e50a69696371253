// The bytes that live mode writes and reads itself: what it changes in a packet on its way, ARP and IPv6
// neighbour discovery, answers and errors of ICMP, and the outer header of a mirrored packet.
//
// All of it works on bytes in memory. A packet is a span that begins with its IP header and ends with it, as
// its length tells and fp_packet_decode has checked; a frame begins with its Ethernet header. What is built
// is a whole frame, with the Ethernet addresses filled in only where the caller gives them.
#pragma once

#include "lab/fp/fp_live_config.h"

#include <array>
#include <cstdint>
#include <optional>
#include <span>
#include <vector>

using t_fp_mac = std::array<uint8_t, 6>;
using t_fp_wire_bytes = std::vector<uint8_t>;

inline constexpr size_t FP_WIRE_ETHERNET_SIZE = 14;  // without tags
inline constexpr t_fp_mac FP_WIRE_BROADCAST = {0xff, 0xff, 0xff, 0xff, 0xff, 0xff};

enum e_fp_wire_type : uint16_t {
    FP_WIRE_IPV4 = 0x0800,
    FP_WIRE_ARP = 0x0806,
    FP_WIRE_IPV6 = 0x86dd,
};

uint16_t fp_wire_type(std::span<const uint8_t> frame);
t_fp_mac fp_wire_destination(std::span<const uint8_t> frame);
t_fp_mac fp_wire_source(std::span<const uint8_t> frame);
void fp_wire_macs_set(std::span<uint8_t> frame, const t_fp_mac &destination, const t_fp_mac &source);

// ---- A packet on its way ----

t_fp_live_address fp_wire_ip_source(std::span<const uint8_t> packet);
t_fp_live_address fp_wire_ip_destination(std::span<const uint8_t> packet);

// IPv4: the checksum is right. IPv6, whose header has none: neither address is a mapped one of IPv4, which
// has no place on a wire and would be taken for that of the other family here.
bool fp_wire_header_is_sound(std::span<const uint8_t> packet);

uint8_t fp_wire_hops(std::span<const uint8_t> packet);

// One hop less; there is one. The checksum of an IPv4 header is changed along, not made anew, so that it
// stays as right or wrong as it was. The same holds for the two below.
void fp_wire_hops_lower(std::span<uint8_t> packet);

// IPv4 only: the upper six bits, congestion bits stay.
void fp_wire_dscp_set(std::span<uint8_t> packet, uint8_t dscp);

// IPv6 only: all eight bits.
void fp_wire_traffic_class_set(std::span<uint8_t> packet, uint8_t traffic_class);

// ---- Neighbours ----

// What an ARP packet or a message of neighbour discovery says.
struct t_fp_wire_neighbour {
    bool is_request;              // else an answer
    t_fp_live_address sender;     // of a request; unspecified for who looks for a free address
    t_fp_live_address target;     // of a request: who is asked; of an answer: who answers
    std::optional<t_fp_mac> mac;  // the sender's, or the answering one's
};

// None if the frame is no such packet or a broken one.
std::optional<t_fp_wire_neighbour> fp_wire_arp_read(std::span<const uint8_t> frame);

// A message of neighbour discovery must have the hop limit 255 and a right checksum, or it isn't from the
// link. What speaks of mapped addresses is broken: both addresses are of IPv6.
std::optional<t_fp_wire_neighbour> fp_wire_discovery_read(std::span<const uint8_t> packet);

// Who has `target`? A frame with all addresses; both addresses are of one family.
t_fp_wire_bytes fp_wire_request(const t_fp_mac &mac, const t_fp_live_address &sender,
                                const t_fp_live_address &target);

// The answer to a request for `target`, to whoever sent it from `asker_mac`.
t_fp_wire_bytes fp_wire_answer(const t_fp_mac &mac, const t_fp_wire_neighbour &request,
                               const t_fp_mac &asker_mac);

// ---- ICMP ----

enum e_fp_wire_error {
    FP_WIRE_NO_ROUTE,
    FP_WIRE_NO_NEIGHBOUR,
    FP_WIRE_TOO_BIG,
    FP_WIRE_HOPS_EXCEEDED,
};

// Turns a ping into its answer, in place, without hops and Ethernet addresses of its own. False: no ping.
bool fp_wire_echo_answer(std::span<uint8_t> packet);

// A frame with the error about the packet, from `source`, without Ethernet addresses. mtu counts for
// FP_WIRE_TOO_BIG. Empty when errors must not answer such a packet: errors themselves, later fragments,
// what came to or from no single host.
t_fp_wire_bytes fp_wire_error(std::span<const uint8_t> packet, e_fp_wire_error error,
                              const t_fp_live_address &source, uint32_t mtu);

// ---- Mirrors ----

// A copy for a mirror's remote address: the packet, byte by byte as it came, behind an outer header. That is
// an IP header (IPv4 of 20 bytes that must not be fragmented, or IPv6 of 40; 64 hops, protocol 47) and four
// bytes of GRE (RFC 2784): no flags, version 0, and the Ethernet type of the packet, 0x0800 or 0x86dd. The
// frame's own Ethernet header isn't copied; so the copy is 24 or 44 bytes longer than the packet. A frame
// without Ethernet addresses; both addresses are of one family.
t_fp_wire_bytes fp_wire_mirror(std::span<const uint8_t> packet, const t_fp_live_address &source,
                               const t_fp_live_address &destination);
