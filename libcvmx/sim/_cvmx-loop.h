// Loopback inside the process: packets sent by a loop port come in by its partner.
//
// One ring of 8192 entries stands between sending and receiving; it holds 8191 packets. An entry names the
// packet's buffer and nothing else of the work that it was sent by: what comes in is a new packet. Any thread
// of the process may send or receive.
#pragma once

#include <cstddef>
#include <cstdint>

#include "libcvmx/sim/cvmx-wqe.h"

inline constexpr int CVMX_LOOP_ENTRIES = 8192;

struct t_cvmx_loop_entry {
    cvmx_buf_ptr_t packet;
    uint16_t len;    // bytes
    uint16_t ipprt;  // the port by which it comes in
    uint32_t tag;
};
static_assert(sizeof(t_cvmx_loop_entry) == 16);
static_assert(offsetof(t_cvmx_loop_entry, ipprt) == 10);

// Sends the entry's packet by a loop port. On 0 the entry is freed and the packet is on its way; on -1, when
// the port is no loop port, the entry has no packet or the ring is full, they are still the caller's.
[[nodiscard]] int cvmx_loopback_tx_push(int ipd_port, cvmx_wqe_t *p_work);

// The oldest packet in a new work entry of group 0, with the partner of the port that sent it as its port.
// Null when there is none, or when pool 1 is empty; the packet waits then.
cvmx_wqe_t *cvmx_loopback_rx();
