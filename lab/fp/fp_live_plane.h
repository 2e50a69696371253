// The forwarding plane between its ports, without sockets: frames in, frames out by a function.
//
// A packet for a host elsewhere is classified where it comes in, by what is bound there and between zones
// (fp_service.h), with the VPN and the interface of the port that the routes send it to. If the treatment
// lets it pass it leaves by that port, with one hop less, the DSCP or traffic class that was set, and the
// Ethernet addresses of port and neighbour. A next hop that a policy sets is looked up in the routes in place
// of the destination; the egress list and the zones are still those of the destination's route. Locators have
// no tunnels here, nor has NAT an address: such packets go as routed, those of an unresolved locator nowhere.
//
// Mirrors get the packet as it came, also one that is then dropped: the capture file a frame for each copy, a
// tunnel's remote address the packet behind an outer header (fp_wire_mirror). Programs don't name a mirror's
// interface, so those copies are in the file alone.
//
// The plane answers for its own addresses: ARP, neighbour discovery and pings. Those meet no filter, and no
// other packet for an own address has a receiver. It doesn't fragment: what is longer than the way out is
// dropped, with an error to the sender. At most FP_LIVE_ERRORS errors go out in a second. Frames with a VLAN
// tag are dropped.
//
// One thread. Times are milliseconds of a clock that never goes back.
#pragma once

#include "lab/fp/fp_live_config.h"
#include "lab/fp/fp_live_neighbours.h"
#include "lab/fp/fp_live_wire.h"
#include "lab/fp/fp_service.h"

#include <functional>

inline constexpr uint32_t FP_LIVE_ERRORS = 100;  // a second

// Why a packet went no further. Counted at the port where it came in, but FP_LIVE_DROP_WAITING and
// FP_LIVE_DROP_MIRROR, which are counted where it would have left.
enum e_fp_live_drop {
    FP_LIVE_DROP_NOT_FOR_US,  // another station's frame
    FP_LIVE_DROP_GROUP,       // to many; none of neighbour discovery
    FP_LIVE_DROP_NOT_IP,      // also tagged ones
    FP_LIVE_DROP_MALFORMED,   // or cut, or with a wrong header checksum
    FP_LIVE_DROP_LOCAL,       // to an own address, and no ping
    FP_LIVE_DROP_HOPS,        // has no hop left
    FP_LIVE_DROP_REJECTED,    // by a filter or between zones
    FP_LIVE_DROP_POLICED,
    FP_LIVE_DROP_UNRESOLVED,  // its locator isn't resolved
    FP_LIVE_DROP_NO_ROUTE,
    FP_LIVE_DROP_TOO_BIG,
    FP_LIVE_DROP_WAITING,  // the neighbour didn't answer, or too many waited for it
    FP_LIVE_DROP_MIRROR,   // a copy that has no way, or is too big for it
    FP_LIVE_DROPS,
};

const char *fp_live_drop_name(e_fp_live_drop drop);

// Frames of all kinds, with their Ethernet headers.
struct t_fp_live_counts {
    uint64_t rx_frames;
    uint64_t rx_bytes;
    uint64_t tx_frames;
    uint64_t tx_bytes;
    std::array<uint64_t, FP_LIVE_DROPS> drops;
};

struct t_fp_live_port {
    t_fp_mac mac;
    uint32_t mtu;  // bytes of an IP packet
    t_fp_live_counts counts;
};

struct t_fp_live_plane {
    t_fp_service *p_service;
    t_fp_live_config config;
    std::vector<t_fp_live_port> ports;  // by the configuration's order
    std::function<void(size_t port, std::span<const uint8_t> frame)> send;
    t_fp_neighbours neighbours = {};
    uint64_t now_ms = 0;     // of the present frame or turn
    uint64_t forwarded = 0;  // packets that left
    uint64_t mirrored = 0;   // copies to tunnels
    uint64_t local = 0;      // answers and errors of own addresses
    uint32_t errors_left = FP_LIVE_ERRORS;
    std::string mirror_error = {};  // why the capture file takes no copies any more
};

// Takes a frame in, complete with its checksums. Its bytes are changed.
void fp_live_frame(t_fp_live_plane *p_plane, size_t port, std::span<uint8_t> frame, uint64_t now_ms);

// To be called once a second: neighbours are asked again or given up.
void fp_live_turn(t_fp_live_plane *p_plane, uint64_t now_ms);

// {"forwarded": ..., "mirrored": ..., "local": ..., "ports": [...], "drops": [...], "neighbours": [...]},
// each row of the latter with its interface; see docs/fpd.md.
fp_json fp_live_json(const t_fp_live_plane &plane);
