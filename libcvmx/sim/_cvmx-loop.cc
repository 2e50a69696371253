#include "libcvmx/sim/_cvmx-loop.h"

#include "libcvmx/sim/_cvmx-fpa.h"
#include "libcvmx/sim/_cvmx-helper.h"
#include "libcvmx/sim/cvmx-spinlock.h"

namespace {
struct t_loop_ring {
    cvmx_spinlock_t lock;
    uint32_t head;  // index of the next entry to receive
    uint32_t tail;  // index of the next entry to fill; empty when it equals head
    t_cvmx_loop_entry entries[CVMX_LOOP_ENTRIES];
};

class LoopGuard {
public:
    explicit LoopGuard(cvmx_spinlock_t *p) : p_lock(p)
    {
        cvmx_spinlock_lock(p_lock);
    }
    ~LoopGuard()
    {
        cvmx_spinlock_unlock(p_lock);
    }
    LoopGuard(const LoopGuard &) = delete;
    LoopGuard &operator=(const LoopGuard &) = delete;

private:
    cvmx_spinlock_t *p_lock;
};
}  // namespace

static t_loop_ring g_loop;

static bool put(const t_cvmx_loop_entry &entry)
{
    LoopGuard guard(&g_loop.lock);
    uint32_t next = (g_loop.tail + 1) % CVMX_LOOP_ENTRIES;
    if (next == g_loop.head)
        return false;
    g_loop.entries[g_loop.tail] = entry;
    g_loop.tail = next;
    return true;
}

static bool take(t_cvmx_loop_entry *p_entry)
{
    LoopGuard guard(&g_loop.lock);
    if (g_loop.head == g_loop.tail)
        return false;
    *p_entry = g_loop.entries[g_loop.head];
    g_loop.head = (g_loop.head + 1) % CVMX_LOOP_ENTRIES;
    return true;
}

int cvmx_loopback_tx_push(int ipd_port, cvmx_wqe_t *p_work)
{
    int partner = cvmx_helper_loop_partner(ipd_port);
    if (partner < 0 || cvmx_wqe_packet(p_work) == nullptr)
        return -1;
    if (!put({.packet = p_work->packet_ptr,
              .len = p_work->len,
              .ipprt = static_cast<uint16_t>(partner),
              .tag = p_work->tag}))
        return -1;
    cvmx_fpa_free(p_work, CVMX_FPA_WQE_POOL, 0);
    return 0;
}

static bool nothing_waits()
{
    LoopGuard guard(&g_loop.lock);
    return g_loop.head == g_loop.tail;
}

cvmx_wqe_t *cvmx_loopback_rx()
{
    if (nothing_waits())
        return nullptr;
    auto *p_work = static_cast<cvmx_wqe_t *>(cvmx_fpa_alloc(CVMX_FPA_WQE_POOL));
    t_cvmx_loop_entry entry;
    if (p_work == nullptr)
        return nullptr;
    if (!take(&entry)) {
        cvmx_fpa_free(p_work, CVMX_FPA_WQE_POOL, 0);
        return nullptr;
    }
    *p_work = {};
    p_work->tag = entry.tag;
    p_work->bufs = 1;
    p_work->len = entry.len;
    p_work->ipprt = entry.ipprt;
    p_work->packet_ptr = entry.packet;
    return p_work;
}
