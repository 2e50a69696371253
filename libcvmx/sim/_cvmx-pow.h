// Work queues between the processes of the forwarding plane.
//
// The named block "cvmx_grp_rings" holds a ring of 512 slots for each of 16 groups. Work goes into the ring
// of its group as a copy of the work entry, so that processes may see memory at different addresses and the
// entry itself may be reused at once; the packet stays in its buffer and the copy names it. Any number of
// threads and processes push and pull. A ring with 511 entries is full: pushing more fails and counts a drop.
//
// Group 15 is the host's. Its work isn't queued: the packet is written to the tap device of the entry's port;
// a loop port stands for its partner.
//
// The rings' lock outlives a process that is killed while it holds it: the next one logs that and goes on.
// Each change is finished by the one store of head or tail, so at most a counter is short by one then. Heads
// and tails that can't be end the process.
#pragma once

#include <cstddef>
#include <cstdint>
#include <type_traits>

#include "libcvmx/sim/cvmx-wqe.h"

inline constexpr int NUM_CVMX_GROUPS = 16;
inline constexpr int CVMX_GRP_RING_SLOTS = 512;
inline constexpr int CVMX_POW_TAP_GROUP = 15;

// How long a work request that waits does so, in microseconds.
inline constexpr uint32_t CVMX_POW_WAIT_USEC = 1000;

struct t_cvmx_grp_slot {
    cvmx_wqe_t work;
    uint32_t sequence;  // low 32 bits of the ring's pushes before this one
    uint32_t pid;       // who pushed it
};
static_assert(sizeof(t_cvmx_grp_slot) == 136);
static_assert(offsetof(t_cvmx_grp_slot, sequence) == 128);

struct t_cvmx_grp_ring {
    uint16_t head;  // index of the next slot to pull
    uint16_t tail;  // index of the next slot to push; empty when it equals head
    uint32_t lock;  // cvmx-ownerlock.h
    t_cvmx_grp_slot slots[CVMX_GRP_RING_SLOTS];
    uint32_t pushes;  // group 15: packets written to a tap
    uint32_t pulls;
    uint32_t drops;  // pushes to a full ring; group 15: packets that no tap took
    uint32_t reserved0;
};
static_assert(sizeof(t_cvmx_grp_ring) == 69656);
static_assert(offsetof(t_cvmx_grp_ring, tail) == 2);
static_assert(offsetof(t_cvmx_grp_ring, lock) == 4);
static_assert(offsetof(t_cvmx_grp_ring, slots) == 8);
static_assert(offsetof(t_cvmx_grp_ring, pushes) == 69640);

struct t_cvmx_grp_rings {
    t_cvmx_grp_ring rings[NUM_CVMX_GROUPS];
};
static_assert(sizeof(t_cvmx_grp_rings) == 1114496);
static_assert(std::is_standard_layout_v<t_cvmx_grp_rings>);

enum e_cvmx_pow_wait {
    CVMX_POW_NO_WAIT = 0,
    CVMX_POW_WAIT = 1,
};

// ---- Set up ----

// Maps the rings; 0, or -1. group_mask says, a bit per group, whose work this process's requests take.
// `fresh` empties the rings of what an earlier run left in them: for the process that starts the plane,
// before the others come. May be called again to change the groups.
int cvmx_grp_init(uint16_t group_mask, bool fresh);

// ---- Rings ----

// Copies the entry into the ring of its group; 0, or -1 when the ring is full, the group is 15 or above, or
// the rings aren't mapped. The entry stays the caller's, the packet goes with the copy.
[[nodiscard]] int cvmx_work_push(const cvmx_wqe_t *p_work);

// Copies the oldest entry of the group out; 0, or -1 when there is none.
[[nodiscard]] int cvmx_work_pull(int group, cvmx_wqe_t *p_work);

// ---- Work ----

// Hands a work entry of pool 1 to its group. On 0 entry and packet are gone; on -1 they are still the
// caller's.
[[nodiscard]] int cvmx_pow_work_submit(cvmx_wqe_t *p_work);

// Gives the current entry back under another tag and group; 0, or -1 when there is none or the group doesn't
// take it, and then it stays the current one, unchanged. no_sched isn't used: it is to be had at once.
[[nodiscard]] int cvmx_pow_tag_sw_desched(uint32_t tag, e_cvmx_pow_tag_type tag_type, uint8_t group,
                                          uint64_t no_sched);

// The next entry for this process, in a block of pool 1 that the caller owns and that becomes the thread's
// current one. The groups of the mask take turns, so that a busy one starves none. Null when there is no work
// (with CVMX_POW_WAIT: none for CVMX_POW_WAIT_USEC, during which the processor is given away), or when pool 1
// is empty; the work stays in its ring then.
cvmx_wqe_t *cvmx_pow_work_request_sync(e_cvmx_pow_wait wait);

// The second half of a request that hardware would have served meanwhile: a request that doesn't wait.
cvmx_wqe_t *cvmx_pow_work_response_async(uint64_t scr_addr);

// The oldest entry of one group, in a block of pool 1; null as above. Not the current one.
cvmx_wqe_t *cvmx_pull_work_from_grp_ring(int group);

// ---- The host's side ----

// Makes work of a frame that the host sent by the tap of the port: the frame goes into a buffer of pool 0,
// behind the headroom, and the entry has group 0 and tag 0. Null when the frame is empty or too long for a
// buffer, or when a pool is empty.
cvmx_wqe_t *cvmx_oct0_pkt_to_wqe(int ipd_port, const uint8_t *p_frame, size_t size);

// Writes the packet to the tap of the entry's port. On 0 entry and packet are freed; on -1, when there is no
// packet or no tap, or the tap takes none at the moment, they are still the caller's, and group 15 counts a
// drop.
[[nodiscard]] int cvmx_pow_handle_tap(cvmx_wqe_t *p_work);

// State of a group's ring and a line for each entry in it, to standard output.
void cvmx_grp_ring_dump(int group);
