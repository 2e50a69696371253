#include "tarnd/filter/tarn_if_octeon.h"

#include "common/lum_assert.h"
#include "common/priority_timers.h"
#include "common/timer.h"
#include "fp_api/fp_cores.h"
#include "fp_api/fp_scaling.h"
#include "fp_api/fp_shmem.h"
#include "fp_api/fp_tables.h"
#include "tarnd/compiler/tarn_mem_mgr.h"
#include "tarnd/compiler/tarn_program.h"
#include "tarnd/filter/tarn_if_octeon_private.h"

#include <algorithm>
#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <unistd.h>
#include <utility>

static constexpr int delete_delay_ms = 500;
static constexpr int no_memory = 12;
static constexpr int bad_filter = 22;

t_tarn_mem_node *tarn_mem;
static t_dll delete_list;
static t_timer *delete_timer;

static uint32_t num_blocks()
{
    return static_cast<uint32_t>(g_fp_scaling.num_filter_blocks);
}

static uint32_t num_filters()
{
    return static_cast<uint32_t>(g_fp_scaling.num_filters);
}

bool is_hw_initialized()
{
    return true;
}

// The forwarding plane sets the bit from another process, so it is read anew each time, and before anything
// else.
static bool forwarding_plane_ready()
{
    const volatile t_fp_global_ctrl *p_ctrl = g_fp_global_ctrl;
    bool ready = p_ctrl->is_hw_initialized;
    std::atomic_thread_fence(std::memory_order_acquire);
    return ready;
}

static void clear_shared_tables()
{
    memset(g_fp_filter_mem_block, 0, size_t{num_blocks()} * sizeof(t_tarn_filter_mem_block));
    // As many bytes as there are slots: what lies behind stays as the last run left it.
    memset(g_fp_filter, 0, num_filters());
    memset(g_fp_dpi_proto_family_mapping, 0,
           static_cast<size_t>(g_fp_scaling.num_dpi_proto_family_mapping_entries) * 4);
    memset(g_fp_dpi_proto_hits, 0, static_cast<size_t>(g_fp_scaling.num_dpi_proto_hits) * 4);
    memset(g_fp_dpi_enable_knob, 0, 4);
    memset(g_fp_filter_log_config, 0, 140);
    memset(g_fp_filter_flow_enable_knob, 0, 4);
}

int tarn_oct_filter_init(t_tarn *p_tarn, uint8_t do_init)
{
    while (!is_hw_initialized())
        sleep(1);
    int status = fp_global_shmem_init(0, 1);
    if (status != 0)
        return status;
    fp_readjust_num_cores(0, 0);
    while (!forwarding_plane_ready())
        sleep(1);
    tarn_mem = static_cast<t_tarn_mem_node *>(calloc(num_blocks(), sizeof(t_tarn_mem_node)));
    if (tarn_mem == nullptr)
        return no_memory;
    if (do_init)
        clear_shared_tables();
    delete_list = {};
    delete_timer = timer_util_create(p_tarn->p_timer_mgr, TIMER_PRI_NORMAL, TIMER_TYPE_ONESHOT,
                                     delete_delay_ms, tarn_oct_filter_mem_delete, p_tarn, nullptr, nullptr,
                                     nullptr, "tarn-delayed-del-timer");
    if (delete_timer == nullptr) {
        free(std::exchange(tarn_mem, nullptr));
        return no_memory;
    }
    return 0;
}

// Shared memory stays as it is: the forwarding plane goes on with the programs it has.
int tarn_oct_filter_destroy()
{
    timer_util_delete(std::exchange(delete_timer, nullptr));
    free(std::exchange(tarn_mem, nullptr));
    delete_list = {};
    return 0;
}

// The lowest free slot, or num_filters.
static uint32_t find_slot()
{
    uint32_t slot = 0;
    while (slot < num_filters() && g_fp_filter[slot].record_valid)
        slot++;
    return slot;
}

// First fit: the lowest block from which `wanted` blocks are free, or num_blocks. Only the first block of a
// run in use is marked, and the cursor steps from run to run.
static uint32_t find_run(uint32_t wanted)
{
    uint32_t start = 0;
    for (uint32_t i = 0; i - start < wanted;) {
        if (i >= num_blocks())
            return num_blocks();
        if (tarn_mem[i].is_allocated) {
            i += tarn_mem[i].num_hw_blocks;
            start = i;
        } else {
            i++;
        }
    }
    return start;
}

static void take_run(uint32_t start, uint32_t blocks, uint32_t slot)
{
    t_tarn_mem_node *p_node = &tarn_mem[start];
    p_node->is_allocated = 1;
    p_node->num_hw_blocks = blocks;
    p_node->filter_id = slot;
    p_node->ptr = &g_fp_filter_mem_block[start];
    t_tarn_filter *p_filter = &g_fp_filter[slot];
    p_filter->activity = 0;
    p_filter->hw_index = start;
    p_filter->num_hw_mem_blocks = blocks;
    p_filter->record_valid = 1;
}

void *tarn_oct_filter_mem_alloc(size_t size)
{
    size_t blocks = (size + sizeof(t_tarn_filter_mem_block) - 1) / sizeof(t_tarn_filter_mem_block);
    g_filter_id = -1;
    uint32_t slot = find_slot();
    if (slot == num_filters() || blocks == 0 || blocks > num_blocks())
        return nullptr;
    uint32_t start = find_run(static_cast<uint32_t>(blocks));
    if (start == num_blocks())
        return nullptr;
    take_run(start, static_cast<uint32_t>(blocks), slot);
    g_filter_id = static_cast<int>(slot);
    return &g_fp_filter_mem_block[start];
}

void tarn_oct_filter_mem_free(void *ptr)
{
    size_t offset = static_cast<size_t>(static_cast<unsigned char *>(ptr) -
                                        reinterpret_cast<unsigned char *>(g_fp_filter_mem_block));
    size_t hw_index = offset / sizeof(t_tarn_filter_mem_block);
    LUM_ASSERT(hw_index < num_blocks() && tarn_mem[hw_index].is_allocated == 1,
               "tarn_mem[hw_index].is_allocated == 1");
    LUM_ASSERT(tarn_mem[hw_index].ptr == ptr, "tarn_mem[hw_index].ptr == ptr");
    t_tarn_mem_node *p_node = &tarn_mem[hw_index];
    p_node->dlnode = {};
    DLL_ADD(&delete_list, &p_node->dlnode);
    timer_reset(delete_timer, delete_delay_ms);
}

// Piece by piece: a program may be as large as filter memory, and the urgent timers must not wait for it.
static void clear_blocks(void *p_first, size_t size)
{
    static constexpr size_t bytes_between_looks = size_t{1} << 20;
    auto *p_bytes = static_cast<unsigned char *>(p_first);
    for (size_t done = 0; done < size; done += bytes_between_looks) {
        memset(p_bytes + done, 0, std::min(bytes_between_looks, size - done));
        tarn_exec_priority_timers();
    }
}

// Gives a program's blocks and slot back; the number of blocks.
static uint32_t release_run(t_tarn_mem_node *p_node)
{
    uint32_t blocks = p_node->num_hw_blocks;
    clear_blocks(p_node->ptr, size_t{blocks} * sizeof(t_tarn_filter_mem_block));
    DLL_REMOVE(&delete_list, &p_node->dlnode);
    memset(&g_fp_filter[p_node->filter_id], 0, sizeof(t_tarn_filter));
    memset(p_node, 0, sizeof(*p_node));
    return blocks;
}

void tarn_oct_filter_mem_delete(t_timer *, void *tarn, void *, void *, void *)
{
    uint32_t freed = 0;
    for (t_dlnode *p_link = delete_list.p_head; p_link != nullptr;) {
        t_tarn_mem_node *p_node = DLL_RECORD(p_link, t_tarn_mem_node, dlnode);
        p_link = p_link->p_next;
        t_tarn_filter *p_filter = &g_fp_filter[p_node->filter_id];
        if (p_filter->activity)
            p_filter->activity = 0;  // used since the last pass: look again at the next
        else
            freed += release_run(p_node);
    }
    if (delete_list.count != 0)
        timer_reset(delete_timer, delete_delay_ms);
    t_tarn *p_tarn = static_cast<t_tarn *>(tarn);
    if (freed > 0)
        p_tarn->p_hwapi->filter_policy_chg(p_tarn, static_cast<int>(freed));
}

int tarn_oct_filter_policer_change(int filter_id, t_fp_policer *p_policer)
{
    if (filter_id < 0 || static_cast<uint32_t>(filter_id) >= num_filters() ||
        !g_fp_filter[filter_id].record_valid)
        return bad_filter;
    tarn_change_policer(&g_fp_filter_mem_block[g_fp_filter[filter_id].hw_index], p_policer,
                        tarn_oct_filter_pol_change_cb);
    return 0;
}

// Whether a slot's policer name is "<number>.<name>" with the policer's name. A name ends at a blank.
static bool policer_name_matches(const t_fp_policer &slot, const t_fp_policer &policer)
{
    char text[FP_POLICER_NAME_SIZE + 1] = {};
    memcpy(text, slot.name, FP_POLICER_NAME_SIZE);
    int sequence;
    char name[FP_POLICER_NAME_SIZE + 1];
    return sscanf(text, "%d.%64s", &sequence, name) == 2 &&
           strncmp(name, policer.name, FP_POLICER_NAME_SIZE) == 0;
}

void tarn_oct_filter_pol_change_cb(void *action_data, t_fp_policer *p_policer)
{
    t_tarn_filter_action *p_slots = static_cast<t_tarn_filter_action *>(action_data);
    for (t_tarn_filter_action *p_slot = p_slots; p_slot < p_slots + MAX_ACTIONS_IN_RULE; p_slot++) {
        if (p_slot->fwding_action != TARN_FILTER_ACTION_POLICE ||
            !policer_name_matches(p_slot->policer, *p_policer))
            continue;
        // Tokens and counters stay, so that a change of rate costs no state.
        p_slot->policer.rate = p_policer->rate;
        p_slot->policer.burst = p_policer->burst;
        p_slot->policer.oob_action = p_policer->oob_action;
    }
}
