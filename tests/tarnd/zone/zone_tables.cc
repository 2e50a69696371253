#include "tests/tarnd/zone/zone_tables.h"

#include <algorithm>

#include "fp_api/fp_hash.h"
#include "tarnd/filter/tarn_if_octeon_zbf.h"

static constexpr int dirt = 0x5a;

template <typename t_record>
static std::vector<t_record> dirty(size_t count)
{
    std::vector<t_record> records(count);
    std::fill_n(reinterpret_cast<unsigned char *>(records.data()), count * sizeof(t_record),
                static_cast<unsigned char>(dirt));
    return records;
}

ZoneTables::ZoneTables()
    : pairs(dirty<t_fp_zbf_pair_record>(TEST_PAIR_RECORDS)), pair_heads(dirty<uint32_t>(TEST_HEADS)),
      vpns(dirty<t_fp_vpn_zone_record>(TEST_VPN_RECORDS)), vpn_heads(dirty<uint32_t>(TEST_HEADS)),
      stats(new t_fp_global_stats()), p_real_ctrl(g_fp_global_ctrl)
{
    if (g_fp_global_ctrl == nullptr) {
        own_ctrl = std::make_unique<t_fp_global_ctrl>();
        *own_ctrl = {};
        g_fp_global_ctrl = own_ctrl.get();
    }
    g_fp_zbf_pair_record = pairs.data();
    g_fp_zbf_pair_hash_record = pair_heads.data();
    g_fp_vpn_zone_record = vpns.data();
    g_fp_vpn_zone_hash_record = vpn_heads.data();
    g_fp_global_stats = stats.get();
    stats->version = 1;
    g_fp_scaling.num_zbf_pair_records = TEST_PAIR_RECORDS;
    g_fp_scaling.num_vpn_zone_records = TEST_VPN_RECORDS;
    g_fp_scaling.num_zbf_pair_hash_records = g_fp_scaling.num_vpn_zone_hash_records = TEST_HEADS;
    init();
}

void ZoneTables::init()
{
    p_ctrl = g_fp_global_ctrl;
    fp_zbf_pair_global_init();
    fp_vpn_zone_global_init();
}

ZoneTables::~ZoneTables()
{
    g_fp_scaling.num_zbf_pair_records = g_fp_scaling.num_vpn_zone_records = 0;
    g_fp_scaling.num_zbf_pair_hash_records = g_fp_scaling.num_vpn_zone_hash_records = 0;
    g_fp_zbf_pair_record = nullptr;
    g_fp_zbf_pair_hash_record = nullptr;
    g_fp_vpn_zone_record = nullptr;
    g_fp_vpn_zone_hash_record = nullptr;
    g_fp_global_stats = nullptr;
    g_fp_global_ctrl = p_real_ctrl;
}

std::vector<uint16_t> ZoneTables::zones_of(uint16_t vpn) const
{
    std::vector<uint16_t> zones;
    uint32_t index = vpn_heads[fp_crc32c(&vpn, sizeof(vpn), 0) % TEST_HEADS];
    for (; index != FP_ZBF_INDEX_NONE; index = vpns.at(index).hash_index.next_index)
        if (vpns[index].is_valid && vpns[index].vpn == vpn)
            zones.push_back(vpns[index].zone_id);
    return zones;
}

std::vector<const t_fp_zbf_pair_record *> ZoneTables::pairs_of(uint16_t src_zone_id,
                                                               uint16_t dst_zone_id) const
{
    std::vector<const t_fp_zbf_pair_record *> found;
    t_fp_zbf_pair_key key = {src_zone_id, dst_zone_id};
    uint32_t index = pair_heads[fp_crc32c(&key, sizeof(key), 0) % TEST_HEADS];
    for (; index != FP_ZBF_INDEX_NONE; index = pairs.at(index).hash_index.next_index)
        if (pairs[index].is_valid && pairs[index].key.src_zone_id == src_zone_id &&
            pairs[index].key.dst_zone_id == dst_zone_id)
            found.push_back(&pairs[index]);
    return found;
}

size_t ZoneTables::pair_count() const
{
    return static_cast<size_t>(
        std::count_if(pairs.begin(), pairs.end(), [](const auto &record) { return record.is_valid; }));
}
