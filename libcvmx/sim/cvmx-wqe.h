// Work entry: what the groups of the forwarding plane hand each other, a packet or a message.
//
// Entries are blocks of CVMX_FPA_WQE_POOL. One is on its way between processes as a copy in a group's ring,
// and these map memory at addresses of their own: an entry therefore names its packet by pool and block index
// and holds no address. A packet lies in one block, at most block size less offset long; there are no chains.
// Whoever has the entry owns its packet, too.
//
// The order of packets of one flow is that of the ring. Tag and tag type travel with the entry and nothing
// here waits for a tag: a plane that spreads a group over several processes keeps flows apart by the group.
#pragma once

#include <cstddef>
#include <cstdint>
#include <type_traits>

inline constexpr uint32_t CVMX_FPA_PACKET_POOL = 0;
inline constexpr uint32_t CVMX_FPA_WQE_POOL = 1;

// Bytes left free before a received packet, for headers that are put in front.
inline constexpr uint16_t CVMX_PACKET_HEADROOM = 128;

enum e_cvmx_pow_tag_type : uint8_t {
    CVMX_POW_TAG_TYPE_ORDERED = 0,
    CVMX_POW_TAG_TYPE_ATOMIC = 1,
    CVMX_POW_TAG_TYPE_NULL = 2,
};

// Where a packet begins: in the block `index` of the pool, `offset` bytes behind its start.
struct cvmx_buf_ptr_t {
    int32_t index;
    uint8_t pool;
    uint8_t reserved0;
    uint16_t offset;
};
static_assert(sizeof(cvmx_buf_ptr_t) == 8);
static_assert(offsetof(cvmx_buf_ptr_t, offset) == 6);

struct cvmx_wqe_t {
    uint32_t tag;
    e_cvmx_pow_tag_type tag_type;
    uint8_t qos;
    uint8_t grp;     // who works on it: 0 to 14 a ring, 15 the tap of the port
    uint8_t bufs;    // 1: packet_ptr names a packet; 0: there is none, the message stands in packet_data
    uint16_t len;    // bytes of the packet
    uint16_t ipprt;  // the port that it came in by or, for group 15, whose tap it goes to
    uint32_t flags;  // the plane's own
    cvmx_buf_ptr_t packet_ptr;
    uint64_t user;  // the plane's own
    uint8_t packet_data[96];
};
static_assert(sizeof(cvmx_wqe_t) == 128);
static_assert(offsetof(cvmx_wqe_t, grp) == 6);
static_assert(offsetof(cvmx_wqe_t, len) == 8);
static_assert(offsetof(cvmx_wqe_t, packet_ptr) == 16);
static_assert(offsetof(cvmx_wqe_t, packet_data) == 32);
static_assert(std::is_trivially_copyable_v<cvmx_wqe_t>);

// The first byte of the packet as this process sees it. Null when the entry has no packet, or when what it
// names doesn't lie wholly in one block of a pool that this process has: entries come from other processes.
uint8_t *cvmx_wqe_packet(const cvmx_wqe_t *p_work);

// Frees packet and entry. Accepts null.
void cvmx_wqe_free(cvmx_wqe_t *p_work);

// The entry that the calling thread works on: what its last work request gave; null when it has been
// submitted again or freed since.
cvmx_wqe_t *cvmx_wqe_current();
void cvmx_wqe_set_current(cvmx_wqe_t *p_work);
