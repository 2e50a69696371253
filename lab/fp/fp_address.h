// The addresses of an IPv6 packet. They fit no field of a program, so they travel beside the fields.
#pragma once

#include <array>
#include <cstdint>

using t_fp_address6 = std::array<uint8_t, 16>;  // network order

struct t_fp_addresses6 {
    t_fp_address6 src;
    t_fp_address6 dst;

    bool operator==(const t_fp_addresses6 &) const = default;
};
