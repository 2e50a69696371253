// Small numbers that stand in many shared records.
#pragma once

#include <cstddef>
#include <cstdint>

using t_hw_ifindex = uint16_t;  // the forwarding plane's number of an interface
using t_vrid = uint16_t;        // the forwarding plane's number of a VPN

// The map of groups to cores has room for this many groups, the map of cores to groups for this many cores.
inline constexpr size_t FP_MAX_WORK_GRPS = 64;
inline constexpr size_t FP_MAX_GRP_CORES = 32;

// Cores are numbered in 8 bits.
inline constexpr size_t FP_MAX_CORES = 256;

// "None" in hash heads and at the end of a chain. The zone tables use all 32 bits instead.
inline constexpr uint32_t FP_HASH_EMPTY = 65535;
