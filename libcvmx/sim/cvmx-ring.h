// Packet rings: whole Ethernet frames in and out of one Linux interface.
//
// A ring is an AF_PACKET raw socket for all protocols, bound to the interface by its index, which it has set
// up and running. It never blocks. Frames go through in batches, one system call for many, and both ways as
// they stand on the wire: a VLAN tag that the kernel took off a received frame is put back in place.
//
// The creator owns the ring. One thread may receive while another sends; two of one kind may not. When the
// interface goes down or away the ring turns inactive and stays so, even if the interface comes back by
// itself, until cvmx_ring_reopen; all calls on an inactive ring are harmless.
//
// The sender's interface should have its offloads off (if_offload_off): with them, a veth pair hands over
// TCP segments of up to 64 KiB and unfinished checksums. Both arrive well here, if the buffers are large
// enough, but a segment beyond the MTU can't leave again.
#pragma once

#include <cstddef>
#include <cstdint>
#include <sys/socket.h>

struct cvmx_ring_t;

inline constexpr uint32_t CVMX_RING_BATCH = 64;           // frames of one system call
inline constexpr uint32_t CVMX_RING_VLAN_SIZE = 4;        // bytes of a VLAN tag
inline constexpr uint32_t CVMX_RING_FRAME_MAX = 0x10000;  // bytes of the longest frame that can be sent

enum e_cvmx_ring_pkt_flag : uint16_t {
    CVMX_RING_PKT_VLAN = 1,             // vlan_tci and vlan_tpid hold a tag, which also stands in the frame
    CVMX_RING_PKT_CSUM_UNFINISHED = 2,  // the transport checksum covers the pseudo header only
};

// One frame to receive. The caller gives buf and size; CVMX_RING_VLAN_SIZE bytes of it stay in reserve for a
// tag. The rest is filled.
struct cvmx_ring_pkt_t {
    uint8_t *buf = nullptr;
    uint32_t size = 0;        // bytes; 64 KiB hold whatever a veth peer with offloads sends
    uint32_t length = 0;      // bytes of the frame, without preamble and frame check sequence
    uint8_t *data = nullptr;  // the frame's first byte, within buf
    uint16_t vlan_tci = 0;    // host byte order: priority, drop bit, VLAN number
    uint16_t vlan_tpid = 0;   // host byte order: 0x8100 or 0x88a8
    uint16_t flags = 0;       // e_cvmx_ring_pkt_flag
};

// Written by the receiving and the sending thread, each its half.
struct cvmx_ring_stats_t {
    uint64_t rx_frames;
    uint64_t rx_bytes;
    uint64_t rx_too_long;  // frames that the buffer couldn't hold; dropped
    uint64_t tx_frames;
    uint64_t tx_bytes;
    uint64_t tx_drops;  // frames that the kernel had no room for or refused, and those of an inactive ring
};

// ---- Setting up ----

// A ring on the interface. Null on failure, reported with perror; ENODEV: no such interface.
[[nodiscard]] cvmx_ring_t *cvmx_ring_create(const char *ifname);

// Closes the socket and drops what is queued. Accepts null. The interface stays as it is.
void cvmx_ring_destroy(cvmx_ring_t *p_ring);

// Makes the socket anew, on the interface that bears the name now, while no other thread is in the ring. The
// record and its statistics stay, the descriptor may change, what was queued is lost. 0; -1 on failure,
// reported with perror: the ring is inactive.
[[nodiscard]] int cvmx_ring_reopen(cvmx_ring_t *p_ring, const char *ifname);

// The descriptor, for poll; -1 for null and when the last reopening failed. An interface that goes away wakes
// the poller by an error event, and the next pull finds it; but a flush may find it first, and then there is
// no event any more: who polls looks at cvmx_ring_active now and then.
int cvmx_ring_sock(const cvmx_ring_t *p_ring);

// False for null, and from the call that found the interface down or away.
bool cvmx_ring_active(const cvmx_ring_t *p_ring);

cvmx_ring_stats_t cvmx_ring_stats(const cvmx_ring_t *p_ring);

// Frames that the kernel dropped because nobody pulled in time, since the last call.
uint32_t cvmx_ring_rx_lost(const cvmx_ring_t *p_ring);

// ---- Receiving ----

// Fills up to `count` records, at most CVMX_RING_BATCH, in the order of arrival, and gives their number; 0
// when nothing waits. Frames that left through this interface, whoever sent them, are no arrivals. Too long
// frames are dropped; for that the call may exchange buf and size between the records. -1: inactive.
[[nodiscard]] int cvmx_ring_rx_pull(cvmx_ring_t *p_ring, cvmx_ring_pkt_t *p_pkts, uint32_t count);

// Takes VLAN tag and checksum state from a message's auxiliary data. A message without leaves none of both.
void cvmx_ring_pkt_parse_auxdata(const msghdr *p_msg, cvmx_ring_pkt_t *p_pkt);

// Completes an unfinished checksum: TCP and UDP over IPv4 and IPv6, below up to two VLAN tags. The frame's
// bytes can have come from anybody. False, and the frame untouched, when it isn't such a frame.
bool cvmx_ring_csum_finish(uint8_t *p_frame, uint32_t length);

// ---- Sending ----

// Queues a copy of the frame, `length` bytes with its tags and without frame check sequence. A full queue is
// flushed first. 0; -1 when the ring is inactive or the length impossible: counted as a drop.
int cvmx_ring_tx_push(cvmx_ring_t *p_ring, const uint8_t *p_frame, uint32_t length);

// Sends what is queued and gives the number of frames that the driver took; the interface's queueing
// discipline is passed by. Never waits: frames that find no room or no carrier (EAGAIN, ENOBUFS) or are
// refused (too long for the interface) are dropped and counted; the queue is empty afterwards. -1: the
// interface turned out to be down or away.
int cvmx_ring_tx_flush(cvmx_ring_t *p_ring);
