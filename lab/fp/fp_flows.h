// Flows that zones inspect: their return traffic passes although the pair of zones back would not let it.
//
// A flow is opened by a packet that a pair's filter inspects and that is then forwarded; it is known by
// protocol, addresses, ports and both VPNs, as that packet came. Each further packet of that direction meets
// the filter again: it keeps the flow, and one that the filter does not let pass closes it. A packet with
// both ends changed over answers the flow and keeps it, too. IPv4 and IPv6 flows never answer each other.
// Later fragments carry no ports and answer only flows that have none.
//
// The table is bounded: a new flow beyond the limit takes the place of the one that was not used for the
// longest time. A flow without packets for longer than the idle time is gone. Times are those of fp_clock.h,
// which never go back. One thread.
#pragma once

#include "lab/fp/fp_address.h"
#include "lab/fp/fp_bindings.h"
#include "lab/fp/walker.h"

#include <cstdint>
#include <list>
#include <nlohmann/json_fwd.hpp>
#include <unordered_map>

// All of it belongs to the key; unused addresses are zero.
struct t_fp_inspected_key {
    e_fp_family family;
    uint8_t protocol;
    uint16_t src_port;
    uint16_t dst_port;
    uint32_t src_vpn;
    uint32_t dst_vpn;
    uint32_t src;  // of IPv4, host order
    uint32_t dst;
    t_fp_addresses6 addresses6;  // of IPv6

    bool operator==(const t_fp_inspected_key &) const = default;
};

struct t_fp_inspected_hash {
    size_t operator()(const t_fp_inspected_key &key) const;
};

struct t_fp_inspected {
    t_fp_inspected_key key;  // as it was opened
    uint32_t pair_id;        // of the zone pair under which it was opened
    uint64_t used;           // ticks
    uint64_t packets;        // in that direction
    uint64_t answers;
};

struct t_fp_inspected_stats {
    uint64_t opened;
    uint64_t closed;   // by their filter
    uint64_t idle;     // gone by time
    uint64_t evicted;  // for newer ones
};

struct t_fp_flows {
    size_t limit = 4096;                   // at least 1
    uint64_t idle_ticks = 0;               // 0: flows stay until there are too many
    std::list<t_fp_inspected> flows = {};  // the one that was not used for the longest time is the first
    std::unordered_map<t_fp_inspected_key, std::list<t_fp_inspected>::iterator, t_fp_inspected_hash> by_key =
        {};
    t_fp_inspected_stats stats = {};
};

inline constexpr uint64_t FP_FLOW_IDLE_SECONDS = 300;

// The key of a packet that goes from the place's VPN to dst_vpn.
t_fp_inspected_key fp_flow_key_of(const t_fp_header &header, const t_fp_place &place, uint32_t dst_vpn);

// Sets the idle time.
void fp_flows_idle_after(t_fp_flows *p_flows, uint64_t seconds, uint64_t ticks_per_second);

// Opens the packet's flow, or keeps the one that is open.
void fp_flows_open(t_fp_flows *p_flows, const t_fp_inspected_key &key, uint32_t pair_id, uint64_t now);

// Closes the packet's flow, if it is open.
void fp_flows_close(t_fp_flows *p_flows, const t_fp_inspected_key &key);

// The flow that a packet with this key answers, which is thereby used, or null. Good until the next call.
const t_fp_inspected *fp_flows_answer(t_fp_flows *p_flows, const t_fp_inspected_key &key, uint64_t now);

// {"count": 1, "limit": 4096, "idle-timeout": 300, "opened": 1, ..., "flows": [{"pair": 2, "family":
// "ipv4", "protocol": 6,
// "source": "10.0.0.1", "source-port": 40000, "source-vpn": 10, "destination": ..., "packets": 3,
// "answers": 2, "unused": 7}]}, the longest unused first; times in seconds.
nlohmann::ordered_json fp_flows_json(t_fp_flows *p_flows, uint64_t now, uint64_t ticks_per_second);
