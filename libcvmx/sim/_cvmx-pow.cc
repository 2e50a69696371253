#include "libcvmx/sim/_cvmx-pow.h"

#include <chrono>
#include <cstdio>
#include <cstring>
#include <memory>
#include <unistd.h>

#include "common/lum_assert.h"
#include "libcvmx/sim/_cvmx-bootmem.h"
#include "libcvmx/sim/_cvmx-fpa.h"
#include "libcvmx/sim/_cvmx-helper.h"
#include "libcvmx/sim/cvmx-ownerlock.h"

static constexpr const char *RINGS_BLOCK = "cvmx_grp_rings";
static constexpr uint64_t RINGS_ALIGNMENT = 128;
static constexpr useconds_t IDLE_SLEEP_USEC = 50;

static t_cvmx_grp_rings *g_p_rings;
static uint16_t g_group_mask;

namespace {
// Holds a ring's lock.
class RingGuard {
public:
    explicit RingGuard(int group) : ring(g_p_rings->rings[group])
    {
        cvmx_ownerlock_lock(&ring.lock, "group ring", group);
        LUM_ASSERT_TRAP(ring.head < CVMX_GRP_RING_SLOTS, "ring.head < CVMX_GRP_RING_SLOTS");
        LUM_ASSERT_TRAP(ring.tail < CVMX_GRP_RING_SLOTS, "ring.tail < CVMX_GRP_RING_SLOTS");
    }
    ~RingGuard()
    {
        cvmx_ownerlock_unlock(&ring.lock);
    }
    RingGuard(const RingGuard &) = delete;
    RingGuard &operator=(const RingGuard &) = delete;

    t_cvmx_grp_ring &ring;
};
}  // namespace

static uint16_t next_of(uint16_t index)
{
    return static_cast<uint16_t>((index + 1) % CVMX_GRP_RING_SLOTS);
}

// By the lock's holder. Published last: the entry stands before tail names it, and is copied before head
// frees it.
static void publish(uint16_t *p_index, uint16_t value)
{
    __atomic_store_n(p_index, value, __ATOMIC_RELEASE);
}

// The process that holds the lock, itself. Others try to change the word meanwhile.
static uint32_t owner_of(const t_cvmx_grp_ring &ring)
{
    return static_cast<uint32_t>(cvmx_ownerlock_pid(__atomic_load_n(&ring.lock, __ATOMIC_RELAXED)));
}

// Without the lock: good for deciding whether it is worth taking.
static bool looks_empty(int group)
{
    const t_cvmx_grp_ring &ring = g_p_rings->rings[group];
    return __atomic_load_n(&ring.head, __ATOMIC_RELAXED) == __atomic_load_n(&ring.tail, __ATOMIC_RELAXED);
}

static bool is_ring_group(int group)
{
    return g_p_rings != nullptr && group >= 0 && group < CVMX_POW_TAP_GROUP;
}

// ---- Set up ----

int cvmx_grp_init(uint16_t group_mask, bool fresh)
{
    if (g_p_rings == nullptr)
        g_p_rings = static_cast<t_cvmx_grp_rings *>(
            cvmx_bootmem_alloc_named(sizeof(t_cvmx_grp_rings), RINGS_ALIGNMENT, RINGS_BLOCK));
    if (g_p_rings == nullptr)
        return -1;
    if (fresh)
        memset(g_p_rings, 0, sizeof(*g_p_rings));
    g_group_mask = group_mask;
    return 0;
}

// ---- Rings ----

int cvmx_work_push(const cvmx_wqe_t *p_work)
{
    if (!is_ring_group(p_work->grp))
        return -1;
    RingGuard guard(p_work->grp);
    t_cvmx_grp_ring &ring = guard.ring;
    uint16_t next = next_of(ring.tail);
    if (next == ring.head) {
        ring.drops++;
        return -1;
    }
    ring.slots[ring.tail] = {.work = *p_work, .sequence = ring.pushes, .pid = owner_of(ring)};
    publish(&ring.tail, next);
    ring.pushes++;
    return 0;
}

int cvmx_work_pull(int group, cvmx_wqe_t *p_work)
{
    if (!is_ring_group(group) || looks_empty(group))
        return -1;
    RingGuard guard(group);
    t_cvmx_grp_ring &ring = guard.ring;
    if (ring.head == ring.tail)
        return -1;
    *p_work = ring.slots[ring.head].work;
    publish(&ring.head, next_of(ring.head));
    ring.pulls++;
    return 0;
}

// ---- Work ----

int cvmx_pow_work_submit(cvmx_wqe_t *p_work)
{
    if (p_work->grp == CVMX_POW_TAP_GROUP)
        return cvmx_pow_handle_tap(p_work);
    if (cvmx_work_push(p_work) != 0)
        return -1;
    cvmx_fpa_free(p_work, CVMX_FPA_WQE_POOL, 0);
    return 0;
}

int cvmx_pow_tag_sw_desched(uint32_t tag, e_cvmx_pow_tag_type tag_type, uint8_t group, uint64_t)
{
    cvmx_wqe_t *p_work = cvmx_wqe_current();
    if (p_work == nullptr)
        return -1;
    cvmx_wqe_t before = *p_work;
    p_work->tag = tag;
    p_work->tag_type = tag_type;
    p_work->grp = group;
    if (cvmx_pow_work_submit(p_work) == 0)
        return 0;
    *p_work = before;
    return -1;
}

cvmx_wqe_t *cvmx_pull_work_from_grp_ring(int group)
{
    // The block comes before the entry, which would otherwise have no place to be; most looks find nothing.
    if (!is_ring_group(group) || looks_empty(group))
        return nullptr;
    auto *p_work = static_cast<cvmx_wqe_t *>(cvmx_fpa_alloc(CVMX_FPA_WQE_POOL));
    if (p_work == nullptr || cvmx_work_pull(group, p_work) == 0)
        return p_work;
    cvmx_fpa_free(p_work, CVMX_FPA_WQE_POOL, 0);
    return nullptr;
}

// One look at every group of the mask, beginning behind the one that was served last.
static cvmx_wqe_t *pull_in_turn()
{
    static thread_local int next_group;
    for (int i = 0; i < CVMX_POW_TAP_GROUP; i++) {
        int group = (next_group + i) % CVMX_POW_TAP_GROUP;
        cvmx_wqe_t *p_work = g_group_mask >> group & 1 ? cvmx_pull_work_from_grp_ring(group) : nullptr;
        if (p_work == nullptr)
            continue;
        next_group = group + 1;
        return p_work;
    }
    return nullptr;
}

cvmx_wqe_t *cvmx_pow_work_request_sync(e_cvmx_pow_wait wait)
{
    using std::chrono::steady_clock;
    cvmx_wqe_t *p_work = pull_in_turn();
    if (p_work == nullptr && wait == CVMX_POW_WAIT) {
        auto end = steady_clock::now() + std::chrono::microseconds(CVMX_POW_WAIT_USEC);
        while (p_work == nullptr && steady_clock::now() < end) {
            usleep(IDLE_SLEEP_USEC);
            p_work = pull_in_turn();
        }
    }
    cvmx_wqe_set_current(p_work);
    return p_work;
}

cvmx_wqe_t *cvmx_pow_work_response_async(uint64_t)
{
    return cvmx_pow_work_request_sync(CVMX_POW_NO_WAIT);
}

// ---- The host's side ----

// An entry for a packet whose buffer is filled already.
static cvmx_wqe_t *new_work(int ipd_port, size_t size, void *p_buffer)
{
    auto *p_work = static_cast<cvmx_wqe_t *>(cvmx_fpa_alloc(CVMX_FPA_WQE_POOL));
    if (p_work == nullptr)
        return nullptr;
    *p_work = {};
    p_work->bufs = 1;
    p_work->len = static_cast<uint16_t>(size);
    p_work->ipprt = static_cast<uint16_t>(ipd_port);
    p_work->packet_ptr = {.index = cvmx_fpa_addr2idx(CVMX_FPA_PACKET_POOL, p_buffer),
                          .pool = CVMX_FPA_PACKET_POOL,
                          .reserved0 = 0,
                          .offset = CVMX_PACKET_HEADROOM};
    return p_work;
}

cvmx_wqe_t *cvmx_oct0_pkt_to_wqe(int ipd_port, const uint8_t *p_frame, size_t size)
{
    int64_t room = cvmx_fpa_get_block_size(CVMX_FPA_PACKET_POOL) - CVMX_PACKET_HEADROOM;
    if (size == 0 || size > UINT16_MAX || static_cast<int64_t>(size) > room)
        return nullptr;
    auto *p_buffer = static_cast<uint8_t *>(cvmx_fpa_alloc(CVMX_FPA_PACKET_POOL));
    if (p_buffer == nullptr)
        return nullptr;
    memcpy(p_buffer + CVMX_PACKET_HEADROOM, p_frame, size);
    cvmx_wqe_t *p_work = new_work(ipd_port, size, p_buffer);
    if (p_work == nullptr)
        cvmx_fpa_free(p_buffer, CVMX_FPA_PACKET_POOL, 0);
    return p_work;
}

static bool write_to_tap(const cvmx_wqe_t *p_work)
{
    const uint8_t *p_packet = cvmx_wqe_packet(p_work);
    int partner = cvmx_helper_loop_partner(p_work->ipprt);
    int sock = cvmx_helper_tap_sock(partner >= 0 ? partner : p_work->ipprt);
    return p_packet != nullptr && sock >= 0 && write(sock, p_packet, p_work->len) == p_work->len;
}

static void count_for_tap(bool written)
{
    if (g_p_rings == nullptr)
        return;
    RingGuard guard(CVMX_POW_TAP_GROUP);
    (written ? guard.ring.pushes : guard.ring.drops)++;
}

int cvmx_pow_handle_tap(cvmx_wqe_t *p_work)
{
    bool written = write_to_tap(p_work);
    count_for_tap(written);
    if (!written)
        return -1;
    cvmx_wqe_free(p_work);
    return 0;
}

// ---- Dump ----

void cvmx_grp_ring_dump(int group)
{
    if (g_p_rings == nullptr || group < 0 || group >= NUM_CVMX_GROUPS)
        return;
    auto p_copy = std::make_unique<t_cvmx_grp_ring>();  // nobody waits while this prints
    {
        RingGuard guard(group);
        *p_copy = guard.ring;
    }
    printf("group %d: head %u tail %u pushes %u pulls %u drops %u\n", group, p_copy->head, p_copy->tail,
           p_copy->pushes, p_copy->pulls, p_copy->drops);
    for (uint16_t i = p_copy->head; i != p_copy->tail; i = next_of(i)) {
        const t_cvmx_grp_slot &slot = p_copy->slots[i];
        printf("  slot %u: sequence %u pid %u tag 0x%08x port %u len %u pool %u buffer %d\n", i,
               slot.sequence, slot.pid, slot.work.tag, slot.work.ipprt, slot.work.len,
               slot.work.packet_ptr.pool, slot.work.packet_ptr.index);
    }
}
