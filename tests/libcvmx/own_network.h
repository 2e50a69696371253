// A network of the test's own: the process leaves the system's interfaces and shared blocks for namespaces in
// which only a loopback interface and an empty /dev/shm are, without IPv6. Needs root or user namespaces.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "libcvmx/sim/cvmx-ring.h"

using t_frame = std::vector<uint8_t>;
using t_frames = std::vector<t_frame>;

// Enters the namespaces, once for the process. False where the system doesn't allow it.
bool own_network();

// Runs `ip` with these arguments; it must succeed.
void ip_command(const std::string &arguments);

// Pulls until `count` frames have come, or none more for a second. p_last, if given, gets the last record.
t_frames pull_frames(cvmx_ring_t *p_ring, size_t count, cvmx_ring_pkt_t *p_last = nullptr);

// Waits until the descriptor can be read; false after the timeout.
bool wait_readable(int fd, int timeout_ms = 1000);

// Queues the frame and flushes.
void send_frame(cvmx_ring_t *p_ring, const t_frame &frame);
