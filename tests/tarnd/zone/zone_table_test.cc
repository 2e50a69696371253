// The zone tables: their bytes, and the table of VPNs against plain lists.
#include "tarnd/filter/tarn_if_octeon_zbf.h"

#include <gtest/gtest.h>

#include <cstring>
#include <deque>
#include <random>

#include "fp_api/fp_hash.h"
#include "tests/tarnd/zone/zone_tables.h"

using t_bytes = std::vector<uint8_t>;

template <typename t_object>
static t_bytes bytes_of(const t_object &object)
{
    t_bytes bytes(sizeof(object));
    memcpy(bytes.data(), &object, sizeof(object));
    return bytes;
}

// Both pairs are hashed to bucket 6: CRC-32C of 01 00 02 00 and four zero bytes is 1e986f6e.
TEST(ZoneTableGolden, PairsOfZones)
{
    ZoneTables tables;
    EXPECT_EQ(bytes_of(g_fp_zbf_pair_hash_record[6]), (t_bytes{255, 255, 255, 255}));
    ASSERT_EQ(fp_create_zb_pair_hash_record(1, 2, 0x0a0b0c0d, 7), &g_fp_zbf_pair_record[0]);
    ASSERT_EQ(fp_create_zb_pair_hash_record(1, 2, 0xffffffff, 0x1020304), &g_fp_zbf_pair_record[1]);
    EXPECT_EQ(bytes_of(g_fp_zbf_pair_record[0]),
              (t_bytes{1, 0, 2, 0, 1,   0,   0,   0,   0, 0, 0, 0, 7, 0, 0, 0, 13, 12, 11, 10,
                       6, 0, 0, 0, 255, 255, 255, 255, 0, 0, 0, 0, 0, 0, 0, 0, 0,  0,  0,  0}));
    EXPECT_EQ(bytes_of(g_fp_zbf_pair_record[1]),
              (t_bytes{1, 0, 2, 0, 1, 0, 0, 0, 1, 0, 0, 0, 4, 3, 2, 1, 255, 255, 255, 255,
                       6, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0,   0,   0,   0}));
    EXPECT_EQ(bytes_of(g_fp_zbf_pair_hash_record[6]), (t_bytes{1, 0, 0, 0}));
    EXPECT_EQ(g_fp_global_stats->stats[1].hash.zbf_zone_pair_hash_collision, 1u);
    EXPECT_EQ(g_fp_global_stats->stats[0].hash.zbf_zone_pair_hash_collision, 0u);
    fp_destroy_zbf_mappings();
    EXPECT_EQ(tables.pair_count(), 0u);
    EXPECT_EQ(fp_zbf_pair_alloc(), &g_fp_zbf_pair_record[0]);
}

// VPN 10 in bucket 6, whatever its zone: CRC-32C of 0a 00 and four zero bytes is eca0c456.
TEST(ZoneTableGolden, VpnsOfZones)
{
    ZoneTables tables;
    ASSERT_EQ(fp_create_vpn_zone_hash_record(10, 0x304), &g_fp_vpn_zone_record[0]);
    t_bytes linked = {10,  0,   4,   3,   1, 0, 0, 0, 0, 0, 0, 0, 6, 0, 0, 0,
                      255, 255, 255, 255, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0};
    EXPECT_EQ(bytes_of(g_fp_vpn_zone_record[0]), linked);
    EXPECT_EQ(bytes_of(g_fp_vpn_zone_hash_record[6]), (t_bytes{0, 0, 0, 0}));
    EXPECT_EQ(fp_delete_vpn_zone_hash_record(10, 0x305), 2);
    EXPECT_EQ(fp_delete_vpn_zone_hash_record(10, 0x304), 0);
    g_fp_vpn_zone_record[0].next_free_node = nullptr;
    linked[4] = 0;
    EXPECT_EQ(bytes_of(g_fp_vpn_zone_record[0]), linked) << "freed records keep their contents";
    EXPECT_EQ(bytes_of(g_fp_vpn_zone_hash_record[6]), (t_bytes{255, 255, 255, 255}));
}

// ---- Against plain lists ----

namespace {

struct t_plain_record {
    uint32_t index;
    uint16_t vpn;
    uint16_t zone_id;
};

// Each chain from its front, and the free records, the next one last.
struct t_plain_table {
    std::deque<t_plain_record> chains[TEST_HEADS];
    std::vector<uint32_t> free_records;
    uint64_t collisions = 0;

    t_plain_table()
    {
        for (uint32_t index = TEST_VPN_RECORDS; index-- > 0;)
            free_records.push_back(index);
    }
    std::deque<t_plain_record> &chain_of(uint16_t vpn)
    {
        return chains[fp_crc32c(&vpn, sizeof(vpn), 0) % TEST_HEADS];
    }
    bool create(uint16_t vpn, uint16_t zone_id)
    {
        if (free_records.empty())
            return false;
        collisions += !chain_of(vpn).empty();
        chain_of(vpn).push_front({free_records.back(), vpn, zone_id});
        free_records.pop_back();
        return true;
    }
    int destroy(uint16_t vpn, uint16_t zone_id)
    {
        std::deque<t_plain_record> &chain = chain_of(vpn);
        for (auto record = chain.begin(); record != chain.end(); ++record)
            if (record->vpn == vpn && record->zone_id == zone_id) {
                free_records.push_back(record->index);
                chain.erase(record);
                return 0;
            }
        return 2;
    }
};

}  // namespace

static void compare(const t_plain_table &plain)
{
    for (uint32_t head = 0; head < TEST_HEADS; head++) {
        uint32_t index = g_fp_vpn_zone_hash_record[head];
        for (const t_plain_record &want : plain.chains[head]) {
            ASSERT_EQ(index, want.index);
            const t_fp_vpn_zone_record &record = g_fp_vpn_zone_record[index];
            ASSERT_TRUE(record.is_valid && record.vpn == want.vpn && record.zone_id == want.zone_id);
            ASSERT_TRUE(record.index == index && record.hash_index.hash == head);
            index = record.hash_index.next_index;
        }
        ASSERT_EQ(index, FP_ZBF_INDEX_NONE);
    }
    const t_fp_vpn_zone_record *p_free = g_fp_global_ctrl->vpn_zone_free_list;
    for (auto index = plain.free_records.rbegin(); index != plain.free_records.rend(); ++index) {
        ASSERT_TRUE(p_free != nullptr && p_free->index == *index && !p_free->is_valid);
        p_free = p_free->next_free_node;
    }
    ASSERT_EQ(p_free, nullptr);
    ASSERT_EQ(g_fp_global_stats->stats[1].hash.zbf_vpn_zone_hash_collision, plain.collisions);
}

TEST(ZoneTable, TheTableOfVpnsEqualsPlainLists)
{
    for (uint32_t seed = 1; seed <= 20; seed++) {
        SCOPED_TRACE(seed);
        ZoneTables tables;
        t_plain_table plain;
        std::mt19937 random(seed);
        for (int step = 0; step < 300; step++) {
            auto vpn = static_cast<uint16_t>(random() % 14);
            auto zone_id = static_cast<uint16_t>(random() % 3);
            if (random() % 100 < 55)
                ASSERT_EQ(fp_create_vpn_zone_hash_record(vpn, zone_id) != nullptr,
                          plain.create(vpn, zone_id));
            else
                ASSERT_EQ(fp_delete_vpn_zone_hash_record(vpn, zone_id), plain.destroy(vpn, zone_id));
            compare(plain);
            ASSERT_FALSE(HasFatalFailure()) << "step " << step;
        }
    }
}
