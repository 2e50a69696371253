#include "libcvmx/sim/cvmx-wqe.h"

#include "libcvmx/sim/_cvmx-fpa.h"

static thread_local cvmx_wqe_t *g_p_current;

uint8_t *cvmx_wqe_packet(const cvmx_wqe_t *p_work)
{
    const cvmx_buf_ptr_t &packet = p_work->packet_ptr;
    if (p_work->bufs != 1 || int64_t{packet.offset} + p_work->len > cvmx_fpa_get_block_size(packet.pool))
        return nullptr;
    auto *p_block = static_cast<uint8_t *>(cvmx_fpa_idx2addr(packet.pool, packet.index));
    return p_block != nullptr ? p_block + packet.offset : nullptr;
}

void cvmx_wqe_free(cvmx_wqe_t *p_work)
{
    if (p_work == nullptr)
        return;
    const cvmx_buf_ptr_t &packet = p_work->packet_ptr;
    if (cvmx_wqe_packet(p_work) != nullptr)
        cvmx_fpa_free(cvmx_fpa_idx2addr(packet.pool, packet.index), packet.pool, 0);
    cvmx_fpa_free(p_work, CVMX_FPA_WQE_POOL, 0);
}

cvmx_wqe_t *cvmx_wqe_current()
{
    return g_p_current;
}

void cvmx_wqe_set_current(cvmx_wqe_t *p_work)
{
    g_p_current = p_work;
}
