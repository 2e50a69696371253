// Linux interfaces by name: what the port table asks of the kernel.
//
// All work in the calling thread's network namespace, each by one short-lived socket. Names are cut off by
// the kernel at 15 characters; longer ones are refused here. Results are 0 or -1 with errno; nothing is
// logged, since only the caller knows whether it matters.
#pragma once

#include <cstdint>

// The interface's index, or -1.
[[nodiscard]] int if_find(const char *ifname);
bool cvmx_ifname_exists(const char *ifname);

// Gives the interface another name. It is down for a moment, and afterwards up again if it was up.
[[nodiscard]] int if_rename(const char *ifname, const char *new_name);

// Sets and clears bits of the interface's flags (IFF_UP, IFF_NOARP, ...); the others stay.
[[nodiscard]] int if_flags_change(const char *ifname, uint16_t set, uint16_t clear);

// All frames of the wire, or only those to the interface's own addresses.
[[nodiscard]] int if_promiscuous_change(const char *ifname, bool promiscuous);

// The Ethernet address.
[[nodiscard]] int if_addr_get(const char *ifname, uint8_t mac[6]);
[[nodiscard]] int if_addr_change(const char *ifname, const uint8_t mac[6]);

// The longest packet behind the Ethernet header, in bytes.
[[nodiscard]] int if_mtu_get(const char *ifname);
[[nodiscard]] int if_mtu_change(const char *ifname, int mtu);

// Switches segmentation, receive coalescing and transmit checksums off, each where the driver has it: frames
// then are no longer than the MTU and complete. 0 when none of them is left on.
[[nodiscard]] int if_offload_off(const char *ifname);

// Keeps the kernel's IPv6 away from the interface; without IPv6 in the kernel there is nothing to do.
[[nodiscard]] int if_ipv6_disable(const char *ifname);
