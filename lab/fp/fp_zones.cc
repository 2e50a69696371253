#include "lab/fp/fp_zones.h"

#include "fp_api/fp_hash.h"
#include "lab/fp/fp_bindings.h"

#include <algorithm>
#include <atomic>
#include <iterator>
#include <nlohmann/json.hpp>

using t_json = nlohmann::ordered_json;

static constexpr uint32_t internet_vpn = 0;

// ---- Flags ----

// Byte 28 of the control record; bit fields have no address.
static constexpr size_t flags_byte = 28;
static constexpr uint8_t enabled_bit = 1 << 1;
static constexpr uint8_t deny_internet_bit = 1 << 2;

static bool flag_read(const t_fp_zone_tables &tables, uint8_t bit)
{
    if (tables.p_ctrl == nullptr)
        return false;
    const void *p_record = tables.p_ctrl;
    return (__atomic_load_n(static_cast<const uint8_t *>(p_record) + flags_byte, __ATOMIC_ACQUIRE) & bit) !=
           0;
}

bool fp_zones_enabled(const t_fp_zone_tables &tables)
{
    return flag_read(tables, enabled_bit);
}

bool fp_zones_deny_internet(const t_fp_zone_tables &tables)
{
    return flag_read(tables, deny_internet_bit);
}

// ---- Records ----

// In both kinds of records.
static constexpr size_t valid_byte = 4;
static constexpr uint8_t valid_bit = 1;

static bool is_valid(const void *p_record)
{
    uint8_t byte = __atomic_load_n(static_cast<const uint8_t *>(p_record) + valid_byte, __ATOMIC_ACQUIRE);
    return (byte & valid_bit) != 0;
}

template <typename t_value>
static t_value value_read(const t_value *p_value)
{
    return __atomic_load_n(p_value, __ATOMIC_RELAXED);
}

struct t_vpn_row {
    uint16_t vpn;
    uint16_t zone;
};

struct t_pair_row {
    uint16_t src_zone;
    uint16_t dst_zone;
    t_fp_zone_pair pair;
};

static t_vpn_row row_read(const t_fp_vpn_zone_record &record)
{
    return {value_read(&record.vpn), value_read(&record.zone_id)};
}

static t_pair_row row_read(const t_fp_zbf_pair_record &record)
{
    return {value_read(&record.key.src_zone_id),
            value_read(&record.key.dst_zone_id),
            {value_read(&record.zb_pair_id), value_read(&record.zbf_filter_id)}};
}

// ---- Chains ----

enum e_walk {
    WALK_ENDED,  // whoever was told to stop has done so, or the chain has been seen whole
    WALK_DISTURBED,
};

// Gives the chain's rows to seen, until it returns true.
template <typename t_record, typename t_seen>
static e_walk chain_walk(std::span<const t_record> records, uint32_t index, t_seen seen)
{
    bool is_disturbed = false;
    for (size_t steps = 0; index < records.size(); steps++) {
        if (steps == records.size())
            return WALK_DISTURBED;
        const t_record *p_record = &records[index];
        bool was_valid = is_valid(p_record);
        auto row = row_read(*p_record);
        index = value_read(&p_record->hash_index.next_index);
        std::atomic_thread_fence(std::memory_order_acquire);
        bool is_good = was_valid && is_valid(p_record);
        if (is_good && seen(row))
            return WALK_ENDED;
        is_disturbed |= !is_good;
    }
    return is_disturbed ? WALK_DISTURBED : WALK_ENDED;
}

// The first row of the key's chain that fits. The key is what the daemon hashes, key_size bytes.
template <typename t_row, typename t_record, typename t_fits>
static std::optional<t_row> row_find(std::span<const t_record> records, std::span<const uint32_t> heads,
                                     const void *p_key, size_t key_size, t_fits fits)
{
    static constexpr uint32_t num_tries = 4;
    if (heads.empty())
        return std::nullopt;
    std::optional<t_row> found;
    size_t bucket = fp_crc32c(p_key, key_size, 0) & (heads.size() - 1);
    auto seen = [&found, &fits](const t_row &row) {
        if (fits(row))
            found = row;
        return found.has_value();
    };
    for (uint32_t i = 0; i < num_tries; i++) {
        uint32_t head = __atomic_load_n(&heads[bucket], __ATOMIC_ACQUIRE);
        if (chain_walk(records, head, seen) == WALK_ENDED)
            break;
    }
    return found;
}

// All rows, bucket by bucket.
template <typename t_row, typename t_record>
static std::vector<t_row> rows_all(std::span<const t_record> records, std::span<const uint32_t> heads)
{
    std::vector<t_row> rows;
    for (const uint32_t &head : heads) {
        chain_walk(records, __atomic_load_n(&head, __ATOMIC_ACQUIRE), [&rows](const t_row &row) {
            rows.push_back(row);
            return false;
        });
    }
    return rows;
}

std::optional<uint16_t> fp_zone_of(const t_fp_zone_tables &tables, uint32_t vpn)
{
    uint16_t key = static_cast<uint16_t>(vpn);
    auto fits = [key](const t_vpn_row &row) { return row.vpn == key; };
    std::optional<t_vpn_row> row =
        row_find<t_vpn_row>(tables.vpns, tables.vpn_heads, &key, sizeof(key), fits);
    return row ? std::optional(row->zone) : std::nullopt;
}

std::optional<t_fp_zone_pair> fp_zone_pair_of(const t_fp_zone_tables &tables, uint16_t src_zone,
                                              uint16_t dst_zone)
{
    t_fp_zbf_pair_key key = {src_zone, dst_zone};
    auto fits = [key](const t_pair_row &row) {
        return row.src_zone == key.src_zone_id && row.dst_zone == key.dst_zone_id;
    };
    std::optional<t_pair_row> row =
        row_find<t_pair_row>(tables.pairs, tables.pair_heads, &key, sizeof(key), fits);
    return row ? std::optional(row->pair) : std::nullopt;
}

// ---- Judging ----

// At least one of the VPNs is in a zone, and there is no pair.
static e_fp_zone_ruling unpaired_judge(const t_fp_zone_tables &tables, const t_fp_zone_case &zone)
{
    if (zone.src_zone && zone.dst_zone)
        return *zone.src_zone == *zone.dst_zone ? FP_ZONE_SAME : FP_ZONE_NO_PAIR;
    uint32_t outside = zone.src_zone ? zone.dst_vpn : zone.src_vpn;
    if (outside != internet_vpn)
        return FP_ZONE_NO_PAIR;
    return fp_zones_deny_internet(tables) ? FP_ZONE_INTERNET_DENIED : FP_ZONE_INTERNET_ALLOWED;
}

t_fp_zone_case fp_zone_judge(const t_fp_zone_tables &tables, uint32_t src_vpn, uint32_t dst_vpn)
{
    t_fp_zone_case zone = {};
    zone.src_vpn = src_vpn;
    zone.dst_vpn = dst_vpn;
    zone.ruling = FP_ZONE_NOT_MET;
    zone.is_passed = true;
    if (!fp_zones_enabled(tables))
        return zone;
    zone.src_zone = fp_zone_of(tables, src_vpn);
    zone.dst_zone = fp_zone_of(tables, dst_vpn);
    if (!zone.src_zone && !zone.dst_zone)
        return zone;
    if (zone.src_zone && zone.dst_zone)
        zone.pair = fp_zone_pair_of(tables, *zone.src_zone, *zone.dst_zone);
    zone.ruling = zone.pair ? FP_ZONE_PAIR : unpaired_judge(tables, zone);
    zone.is_passed = zone.ruling == FP_ZONE_SAME || zone.ruling == FP_ZONE_INTERNET_ALLOWED;
    return zone;
}

void fp_zone_count(t_fp_zone_stats *p_stats, const t_fp_zone_case &zone)
{
    p_stats->by_ruling[zone.ruling]++;
    p_stats->pair_drops += zone.ruling == FP_ZONE_PAIR && !zone.is_passed;
}

// ---- JSON ----

static constexpr const char *ruling_names[FP_ZONE_RULINGS] = {
    "not-met", "pair", "flow", "same-zone", "internet-allowed", "internet-denied", "no-pair"};

static t_json zone_json(std::optional<uint16_t> zone)
{
    return zone ? t_json(*zone) : t_json("none");
}

t_json fp_zone_case_json(const t_fp_zone_case &zone)
{
    t_json json = {{"source-vpn", zone.src_vpn},
                   {"destination-vpn", zone.dst_vpn},
                   {"source-zone", zone_json(zone.src_zone)},
                   {"destination-zone", zone_json(zone.dst_zone)},
                   {"ruling", ruling_names[zone.ruling]}};
    if (zone.ruling == FP_ZONE_PAIR)
        json["pair"] = zone.pair->pair_id;
    if (zone.ruling == FP_ZONE_FLOW)
        json["pair"] = *zone.flow_pair_id;
    return json;
}

t_json fp_zone_stats_json(const t_fp_zone_stats &stats)
{
    t_json json = t_json::object();
    for (size_t ruling = FP_ZONE_PAIR; ruling < FP_ZONE_RULINGS; ruling++)
        json[ruling_names[ruling]] = stats.by_ruling[ruling];
    json["pair-drops"] = stats.pair_drops;
    return json;
}

t_json fp_zones_json(const t_fp_zone_tables &tables)
{
    t_json json = {{"enabled", fp_zones_enabled(tables)},
                   {"internet", fp_zones_deny_internet(tables) ? "deny" : "allow"},
                   {"vpns", t_json::array()},
                   {"pairs", t_json::array()}};
    std::vector<t_vpn_row> vpns = rows_all<t_vpn_row>(tables.vpns, tables.vpn_heads);
    std::stable_sort(vpns.begin(), vpns.end(),
                     [](const t_vpn_row &a, const t_vpn_row &b) { return a.vpn < b.vpn; });
    for (const t_vpn_row &row : vpns)
        json["vpns"].push_back({{"vpn", row.vpn}, {"zone", row.zone}});
    std::vector<t_pair_row> pairs = rows_all<t_pair_row>(tables.pairs, tables.pair_heads);
    std::stable_sort(pairs.begin(), pairs.end(), [](const t_pair_row &a, const t_pair_row &b) {
        return std::pair(a.src_zone, a.dst_zone) < std::pair(b.src_zone, b.dst_zone);
    });
    for (const t_pair_row &row : pairs) {
        json["pairs"].push_back({{"pair", row.pair.pair_id},
                                 {"source-zone", row.src_zone},
                                 {"destination-zone", row.dst_zone},
                                 {"filter", fp_filter_shown(row.pair.filter_id)}});
    }
    return json;
}
