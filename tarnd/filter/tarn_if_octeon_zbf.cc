#include "tarnd/filter/tarn_if_octeon_zbf.h"

#include "fp_api/fp_hash.h"
#include "fp_api/fp_tables.h"

#include <atomic>
#include <cerrno>
#include <cstring>

namespace {

// One of the two tables. Records differ in key and payload only.
template <typename t_record>
struct t_zone_table {
    t_record *p_records;
    uint32_t num_records;
    uint32_t *p_heads;
    uint32_t num_heads;  // a power of two
    t_record **pp_free_list;
    uint32_t key_size;                      // bytes at the record's start
    uint64_t t_fp_hash_stats::*collisions;  // insertions that found the bucket taken
};

}  // namespace

static t_zone_table<t_fp_zbf_pair_record> pair_table()
{
    return {g_fp_zbf_pair_record,
            static_cast<uint32_t>(g_fp_scaling.num_zbf_pair_records),
            g_fp_zbf_pair_hash_record,
            static_cast<uint32_t>(g_fp_scaling.num_zbf_pair_hash_records),
            &g_fp_global_ctrl->zbf_pair_free_list,
            sizeof(t_fp_zbf_pair_key),
            &t_fp_hash_stats::zbf_zone_pair_hash_collision};
}

// Packets are looked up by VPN alone.
static t_zone_table<t_fp_vpn_zone_record> vpn_table()
{
    return {g_fp_vpn_zone_record,
            static_cast<uint32_t>(g_fp_scaling.num_vpn_zone_records),
            g_fp_vpn_zone_hash_record,
            static_cast<uint32_t>(g_fp_scaling.num_vpn_zone_hash_records),
            &g_fp_global_ctrl->vpn_zone_free_list,
            sizeof(t_fp_vpn_zone_record::vpn),
            &t_fp_hash_stats::zbf_vpn_zone_hash_collision};
}

// ---- Free lists ----

template <typename t_record>
static void push_free(const t_zone_table<t_record> &table, t_record *p_record)
{
    p_record->next_free_node = *table.pp_free_list;
    *table.pp_free_list = p_record;
}

template <typename t_record>
static void init_table(const t_zone_table<t_record> &table)
{
    for (uint32_t head = 0; head < table.num_heads; head++)
        table.p_heads[head] = FP_ZBF_INDEX_NONE;
    *table.pp_free_list = nullptr;
    for (uint32_t index = table.num_records; index-- > 0;) {
        t_record *p_record = &table.p_records[index];
        memset(p_record, 0, sizeof(*p_record));
        p_record->index = index;
        p_record->hash_index.next_index = FP_ZBF_INDEX_NONE;
        push_free(table, p_record);
    }
}

template <typename t_record>
static t_record *alloc_record(const t_zone_table<t_record> &table)
{
    t_record *p_record = *table.pp_free_list;
    if (p_record == nullptr)
        return nullptr;
    *table.pp_free_list = p_record->next_free_node;
    uint32_t index = p_record->index;
    memset(p_record, 0, sizeof(*p_record));
    p_record->index = index;
    return p_record;
}

template <typename t_record>
static void free_record(const t_zone_table<t_record> &table, t_record *p_record)
{
    p_record->is_valid = 0;
    push_free(table, p_record);
}

void fp_zbf_pair_global_init()
{
    init_table(pair_table());
}

void fp_vpn_zone_global_init()
{
    init_table(vpn_table());
}

void fp_destroy_zbf_mappings()
{
    fp_zbf_pair_global_init();
    std::atomic_thread_fence(std::memory_order_seq_cst);
}

t_fp_zbf_pair_record *fp_zbf_pair_alloc()
{
    return alloc_record(pair_table());
}

t_fp_vpn_zone_record *fp_vpn_zone_alloc()
{
    return alloc_record(vpn_table());
}

void fp_zbf_pair_free(t_fp_zbf_pair_record *p_record)
{
    free_record(pair_table(), p_record);
}

void fp_vpn_zone_free(t_fp_vpn_zone_record *p_record)
{
    free_record(vpn_table(), p_record);
}

// ---- Chains ----

template <typename t_record>
static uint32_t bucket_of(const t_zone_table<t_record> &table, const void *p_key)
{
    return fp_crc32c(p_key, table.key_size, 0) & (table.num_heads - 1);
}

// What was written before is seen by whoever sees what is written after.
static void publish()
{
    std::atomic_thread_fence(std::memory_order_release);
}

static void count_collision(uint64_t t_fp_hash_stats::*counter)
{
    (g_fp_global_stats->stats[g_fp_global_stats->version & 1].hash.*counter)++;
}

// Links a filled record in. Null, with the record freed, for a bucket that can't be told from an empty one,
// which no mask gives.
template <typename t_record>
static t_record *link_record(const t_zone_table<t_record> &table, t_record *p_record)
{
    uint32_t bucket = bucket_of(table, p_record);
    if (bucket == FP_ZBF_INDEX_NONE) {
        free_record(table, p_record);
        return nullptr;
    }
    uint32_t *p_head = &table.p_heads[bucket];
    if (*p_head != FP_ZBF_INDEX_NONE)
        count_collision(table.collisions);
    p_record->hash_index = {bucket, *p_head};
    publish();
    *p_head = p_record->index;
    publish();
    p_record->is_valid = 1;
    return p_record;
}

t_fp_zbf_pair_record *fp_create_zb_pair_hash_record(uint16_t src_zone_id, uint16_t dst_zone_id,
                                                    uint32_t zbf_filter_id, uint32_t zb_pair_id)
{
    t_fp_zbf_pair_record *p_record = fp_zbf_pair_alloc();
    if (p_record == nullptr)
        return nullptr;
    p_record->key = {src_zone_id, dst_zone_id};
    p_record->zb_pair_id = zb_pair_id;
    p_record->zbf_filter_id = zbf_filter_id;
    return link_record(pair_table(), p_record);
}

t_fp_vpn_zone_record *fp_create_vpn_zone_hash_record(uint16_t vpn, uint16_t zone_id)
{
    t_fp_vpn_zone_record *p_record = fp_vpn_zone_alloc();
    if (p_record == nullptr)
        return nullptr;
    p_record->vpn = vpn;
    p_record->zone_id = zone_id;
    return link_record(vpn_table(), p_record);
}

int fp_delete_vpn_zone_hash_record(uint16_t vpn, uint16_t zone_id)
{
    t_zone_table<t_fp_vpn_zone_record> table = vpn_table();
    uint32_t *p_link = &table.p_heads[bucket_of(table, &vpn)];  // the head, or the predecessor's link
    // A chain that another process has damaged ends as "not found".
    for (uint32_t steps = 0; steps < table.num_records && *p_link < table.num_records; steps++) {
        t_fp_vpn_zone_record *p_record = &table.p_records[*p_link];
        if (p_record->is_valid && p_record->vpn == vpn && p_record->zone_id == zone_id) {
            p_record->is_valid = 0;
            publish();
            *p_link = p_record->hash_index.next_index;
            publish();
            p_record->hash_index.next_index = FP_ZBF_INDEX_NONE;
            fp_vpn_zone_free(p_record);
            return 0;
        }
        p_link = &p_record->hash_index.next_index;
    }
    return ENOENT;
}

// ---- Switches ----

void fp_enable_zbf()
{
    g_fp_global_ctrl->zbf_enabled = 1;
}

void fp_disable_zbf()
{
    g_fp_global_ctrl->zbf_enabled = 0;
}

void fp_allow_internet_zone()
{
    g_fp_global_ctrl->zone_no_zone_inet = 0;
}

void fp_deny_internet_zone()
{
    g_fp_global_ctrl->zone_no_zone_inet = 1;
}
