// The block of shared memory in which a router's daemons find its system address and host name.
//
// 280 bytes, in the processor's byte order: at 0 the address's family, 2 or 10, in 4 bytes; at 8 the address,
// for IPv4 as a number in host order in 4 bytes, for IPv6 as 16 bytes in network order; at 24 the host name
// in 253 bytes, zeros behind it. Everything else is zero. There is no lock: who reads while it is written may
// see half.
#pragma once

#include <array>
#include <cstdint>
#include <string>

inline constexpr const char *SHARED_REGION_NAME = "/lconfd_shared_region";
inline constexpr size_t SHARED_REGION_SIZE = 280;
inline constexpr size_t SHARED_REGION_HOST_NAME_OFFSET = 24;
inline constexpr size_t SHARED_REGION_HOST_NAME_SIZE = 253;

using t_shared_region_bytes = std::array<uint8_t, SHARED_REGION_SIZE>;

// An empty address leaves the family 0. False with the reason: no address, or a host name that is too long.
[[nodiscard]] bool shared_region_fill(const std::string &address, const std::string &host_name,
                                      t_shared_region_bytes *p_bytes, std::string *p_error);

// Makes the block if need be, readable for all, and writes it. It stays when the process ends. False with the
// reason.
[[nodiscard]] bool shared_region_publish(const t_shared_region_bytes &bytes, std::string *p_error);
