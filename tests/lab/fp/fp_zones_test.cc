// The zone tables as a reader sees them: against a plain twin while the daemon's functions write them, and
// with contents that no daemon leaves.
#include "lab/fp/fp_zones.h"

#include "fp_api/fp_hash.h"
#include "tarnd/filter/tarn_if_octeon_zbf.h"
#include "tests/lab/fp/zone_block.h"

#include <gtest/gtest.h>
#include <map>
#include <nlohmann/json.hpp>
#include <random>

namespace {

// A VPN's zones and a pair's filters, the latest first.
struct t_twin {
    std::map<uint16_t, std::vector<uint16_t>> vpns;
    std::map<std::pair<uint16_t, uint16_t>, std::vector<uint32_t>> pairs;
};

}  // namespace

static void vpn_change(std::mt19937 *p_random, t_twin *p_twin)
{
    uint16_t vpn = static_cast<uint16_t>((*p_random)() % 40 * 1013);
    uint16_t zone = static_cast<uint16_t>((*p_random)() % 4 + 1);
    std::vector<uint16_t> *p_zones = &p_twin->vpns[vpn];
    if ((*p_random)() % 2 == 0) {
        if (fp_create_vpn_zone_hash_record(vpn, zone) != nullptr)
            p_zones->insert(p_zones->begin(), zone);
        return;
    }
    auto found = std::find(p_zones->begin(), p_zones->end(), zone);
    ASSERT_EQ(fp_delete_vpn_zone_hash_record(vpn, zone), found == p_zones->end() ? ENOENT : 0);
    if (found != p_zones->end())
        p_zones->erase(found);
}

static void pairs_rebuild(std::mt19937 *p_random, t_twin *p_twin)
{
    fp_destroy_zbf_mappings();
    p_twin->pairs.clear();
    for (uint32_t i = static_cast<uint32_t>((*p_random)() % 20); i > 0; i--) {
        uint16_t src = static_cast<uint16_t>((*p_random)() % 5);
        uint16_t dst = static_cast<uint16_t>((*p_random)() % 5);
        ASSERT_NE(fp_create_zb_pair_hash_record(src, dst, i, 100 + i), nullptr);
        std::vector<uint32_t> *p_filters = &p_twin->pairs[{src, dst}];
        p_filters->insert(p_filters->begin(), i);
    }
}

TEST(FpZonesShortTest, LookUpsAgreeWithATwinWhileTheDaemonChangesTheTables)
{
    static constexpr uint32_t seed = 20240611;
    std::mt19937 random(seed);
    t_zone_block block;
    t_twin twin;
    for (uint32_t round = 0; round < 2000; round++) {
        vpn_change(&random, &twin);
        if (round % 50 == 0)
            pairs_rebuild(&random, &twin);
        for (const auto &[vpn, zones] : twin.vpns) {
            std::optional<uint16_t> zone = fp_zone_of(block.tables(), 0x10000u + vpn);
            ASSERT_EQ(zone.has_value(), !zones.empty()) << "seed " << seed << " round " << round;
            ASSERT_TRUE(zones.empty() || *zone == zones[0]) << "seed " << seed << " round " << round;
        }
        for (uint16_t i = 0; i < 25; i++) {
            std::pair<uint16_t, uint16_t> key = {i / 5, i % 5};
            std::optional<t_fp_zone_pair> pair = fp_zone_pair_of(block.tables(), key.first, key.second);
            ASSERT_EQ(pair.has_value(), twin.pairs.contains(key)) << "seed " << seed << " round " << round;
            ASSERT_TRUE(!pair || pair->filter_id == twin.pairs[key][0]);
            ASSERT_TRUE(!pair || pair->pair_id == 100 + twin.pairs[key][0]);
        }
    }
}

TEST(FpZonesShortTest, RecordsThatAreNotValidAndDamagedChainsAreNoAnswer)
{
    t_zone_block block;
    fp_create_vpn_zone_hash_record(7, 3);
    t_fp_vpn_zone_record *p_record = &block.vpns[0];
    EXPECT_EQ(fp_zone_of(block.tables(), 7), 3);
    p_record->is_valid = 0;
    EXPECT_EQ(fp_zone_of(block.tables(), 7), std::nullopt) << "being inserted or removed";
    p_record->is_valid = 1;
    for (uint32_t next : {0u, 1u, 31u, 0x7fffffffu}) {  // itself, free ones, none
        p_record->hash_index.next_index = next;
        EXPECT_EQ(fp_zone_of(block.tables(), 7), 3) << next;
        p_record->vpn = 8;
        EXPECT_EQ(fp_zone_of(block.tables(), 7), std::nullopt) << next;
        p_record->vpn = 7;
    }
    EXPECT_EQ(fp_zone_of({}, 7), std::nullopt) << "no tables";
    EXPECT_EQ(fp_zone_judge({}, 7, 0).ruling, FP_ZONE_NOT_MET);
}

TEST(FpZonesShortTest, TheFirstRuleThatFitsHolds)
{
    t_zone_block block;
    for (auto [vpn, zone] : {std::pair<uint16_t, uint16_t>(10, 1), {11, 1}, {20, 2}, {30, 3}, {31, 3}})
        fp_create_vpn_zone_hash_record(vpn, zone);
    fp_create_zb_pair_hash_record(1, 2, 5, 50);
    fp_create_zb_pair_hash_record(3, 3, 6, 60);
    struct t_case {
        uint32_t src_vpn;
        uint32_t dst_vpn;
        e_fp_zone_ruling allowed;  // with zone_no_zone_inet clear
        e_fp_zone_ruling denied;
    };
    static const t_case cases[] = {
        {10, 20, FP_ZONE_PAIR, FP_ZONE_PAIR},
        {0x1000a, 20, FP_ZONE_PAIR, FP_ZONE_PAIR},
        {20, 10, FP_ZONE_NO_PAIR, FP_ZONE_NO_PAIR},
        {10, 11, FP_ZONE_SAME, FP_ZONE_SAME},
        {30, 31, FP_ZONE_PAIR, FP_ZONE_PAIR},
        {10, 0, FP_ZONE_INTERNET_ALLOWED, FP_ZONE_INTERNET_DENIED},
        {0, 10, FP_ZONE_INTERNET_ALLOWED, FP_ZONE_INTERNET_DENIED},
        {10, 40, FP_ZONE_NO_PAIR, FP_ZONE_NO_PAIR},
        {40, 0, FP_ZONE_NOT_MET, FP_ZONE_NOT_MET},
    };
    for (const t_case &c : cases) {
        fp_disable_zbf();
        EXPECT_EQ(fp_zone_judge(block.tables(), c.src_vpn, c.dst_vpn).ruling, FP_ZONE_NOT_MET);
        fp_enable_zbf();
        fp_allow_internet_zone();
        EXPECT_EQ(fp_zone_judge(block.tables(), c.src_vpn, c.dst_vpn).ruling, c.allowed) << c.src_vpn;
        fp_deny_internet_zone();
        EXPECT_EQ(fp_zone_judge(block.tables(), c.src_vpn, c.dst_vpn).ruling, c.denied) << c.src_vpn;
    }
}
