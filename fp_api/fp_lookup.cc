#include "fp_api/fp_lookup.h"

#include <cerrno>
#include <cstring>

#include "fp_api/fp_hash.h"

// ---- By index ----

t_fp_if_record *fp_lookup_if_record(uint32_t ifindex, t_fp_if_stats **p_stats)
{
    uint32_t index = ifindex & 0xffff;
    bool found = index < static_cast<uint32_t>(g_fp_scaling.num_if_records);
    if (p_stats != nullptr)
        *p_stats = found ? &g_fp_if_stats[index] : nullptr;
    return found ? &g_fp_if_record[index] : nullptr;
}

t_fp_nh_record *fp_get_nh_record(uint32_t index)
{
    if (index >= static_cast<uint32_t>(g_fp_scaling.num_nh_records))
        return nullptr;
    return &g_fp_nh_record[index];
}

// ---- By key ----

// Says for record `index` of a table whether it is the one sought, and where its chain goes on.
using f_match = bool (*)(uint32_t index, const void *p_key);
using f_next = uint32_t (*)(uint32_t index);

// Follows the chain of the hash's bucket. Heads and records are equal in number, a power of two. Returns the
// record's index, or FP_HASH_EMPTY.
static uint32_t chain_find(const uint16_t *p_heads, int count, uint32_t hash, const void *p_key,
                           f_match match, f_next next)
{
    uint32_t records = static_cast<uint32_t>(count);
    uint32_t index = p_heads[hash & (records - 1)];
    for (uint32_t steps = 0; steps < records && index < records; steps++) {
        if (match(index, p_key))
            return index;
        index = next(index);
    }
    return FP_HASH_EMPTY;
}

static bool if_match(uint32_t index, const void *p_key)
{
    uint64_t sought;
    uint64_t present;
    memcpy(&sought, p_key, sizeof(sought));
    memcpy(&present, &g_fp_if_record[index].key, sizeof(present));
    return sought == present;
}

static uint32_t if_next(uint32_t index)
{
    return g_fp_if_record[index].next_index;
}

t_fp_if_record *fp_lookup_if_hash_record(uint16_t port_id, uint16_t vlan_id, uint16_t hw_iftype,
                                         t_fp_if_stats **p_stats)
{
    t_fp_if_key key = {.port_id = port_id, .vlan_id = vlan_id, .hw_iftype = hw_iftype, .zero = 0};
    uint32_t hash = fp_crc32c(&key, sizeof(key), 0);
    uint32_t index =
        chain_find(g_fp_if_hash_record, g_fp_scaling.num_if_records, hash, &key, if_match, if_next);
    return fp_lookup_if_record(index, p_stats);
}

static bool arp_match(uint32_t index, const void *p_key)
{
    return memcmp(&g_fp_arp_record[index].key, p_key, sizeof(t_fp_arp_key)) == 0;
}

static uint32_t arp_next(uint32_t index)
{
    return g_fp_arp_record[index].next_index;
}

t_fp_arp_record *fp_arp_lookup(const t_fp_arp_key *p_key, uint32_t hash)
{
    uint32_t index =
        chain_find(g_fp_arp_hash_record, g_fp_scaling.num_arp_records, hash, p_key, arp_match, arp_next);
    return index != FP_HASH_EMPTY ? &g_fp_arp_record[index] : nullptr;
}

static bool cxp_match(uint32_t index, const void *p_key)
{
    const t_fp_cxp_record *p_record = &g_fp_cxp_record[index];
    return p_record->record_valid != 0 && memcmp(&p_record->key, p_key, sizeof(p_record->key)) == 0;
}

static uint32_t cxp_next(uint32_t index)
{
    return g_fp_cxp_record[index].next_index;
}

int fp_cxp_record_lookup(t_vrid vrid, uint16_t appid, t_fp_cxp_record **p_cxp)
{
    if (p_cxp == nullptr || vrid >= g_fp_scaling.num_vrfs)
        return -EINVAL;
    t_fp_cxp_key key = {.vrid = vrid, .appid = appid};
    uint32_t hash = fp_crc32c(&key, sizeof(key), 0);
    uint32_t index =
        chain_find(g_fp_cxp_hash_record, g_fp_scaling.num_cxp_records, hash, &key, cxp_match, cxp_next);
    if (index == FP_HASH_EMPTY)
        return -ENOENT;
    *p_cxp = &g_fp_cxp_record[index];
    return 0;
}

static bool server_match(uint32_t index, const void *p_key)
{
    const t_fp_server_appid_record *p_record = &g_fp_server_appid_record[index];
    return p_record->record_valid != 0 && memcmp(&p_record->key, p_key, sizeof(p_record->key)) == 0;
}

static uint32_t server_next(uint32_t index)
{
    return g_fp_server_appid_record[index].next_index;
}

int fp_server_appid_record_lookup(t_vrid vrid, const t_fp_ipaddr *p_ipaddr, uint16_t portid, uint8_t proto,
                                  t_fp_server_appid_record **p_record)
{
    if (p_ipaddr == nullptr || p_record == nullptr || vrid >= g_fp_scaling.num_vrfs)
        return -EINVAL;
    t_fp_server_appid_key key = {};
    key.vrid = vrid;
    FP_IPADDR_COPY(&key.ipaddr, p_ipaddr);
    key.portid = portid;
    key.proto = proto;
    uint32_t hash = fp_crc32c(&key, sizeof(key), 0);
    uint32_t index = chain_find(g_fp_server_appid_hash_record, g_fp_scaling.num_server_appids, hash, &key,
                                server_match, server_next);
    if (index == FP_HASH_EMPTY)
        return -ENOENT;
    *p_record = &g_fp_server_appid_record[index];
    return 0;
}
