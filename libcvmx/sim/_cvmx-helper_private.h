// What the sources of the port table share.
#pragma once

#include "libcvmx/sim/_cvmx-helper.h"

// Opens a tap device of this name with the address (null: the kernel chooses one) and the MTU, sets it up,
// with these flags beside. The descriptor, or a negative e_cvmx_tap_failure, reported with perror.
[[nodiscard]] int cvmx_tap_open(const char *name, const uint8_t *p_mac, int mtu, uint16_t flags);
