#include "tarnd/compiler/tarn_mem_mgr.h"

#include <cstring>

static t_tarn_mem_mgr g_registered;
t_tarn_mem_mgr *g_tarn_mem_mgr;
int g_filter_id = -1;

void tarn_register_mem_mgr(const t_tarn_mem_mgr *p_mgr)
{
    if (p_mgr == nullptr) {
        g_tarn_mem_mgr = nullptr;
        return;
    }
    g_registered.alloc = p_mgr->alloc;
    g_registered.free = p_mgr->free;
    g_tarn_mem_mgr = &g_registered;
}

void *tarn_mem_alloc_dirty(size_t size, const t_tarn_mem_mgr *p_mgr)
{
    return p_mgr == nullptr ? nullptr : p_mgr->alloc(size);
}

void *tarn_mem_alloc(size_t size, const t_tarn_mem_mgr *p_mgr)
{
    void *p_mem = tarn_mem_alloc_dirty(size, p_mgr);
    if (p_mem != nullptr)
        memset(p_mem, 0, size);
    return p_mem;
}

void tarn_mem_free(void *p_mem, const t_tarn_mem_mgr *p_mgr)
{
    if (p_mgr != nullptr)
        p_mgr->free(p_mem);
}
