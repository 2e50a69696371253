#include "fp_api/fp_lookup.h"

#include <gtest/gtest.h>

#include <cstring>
#include <random>
#include <vector>

#include "fp_api/fp_common.h"
#include "fp_api/fp_hash.h"
#include "tests/fp_api/laid_out.h"

// ---- Hash ----

TEST(FpCrc32c, IsCastagnolisContinuedOverTheSeed)
{
    // The known check value of "123456789" is 0xe3069283; a seed of four of its bytes continues to it.
    EXPECT_EQ(fp_crc32c("12345", 5, 0x39383736), 0xe3069283u);
    EXPECT_EQ(fp_crc32c("", 0, 0), 0x48674bc7u) << "four zero bytes";
    std::vector<uint8_t> zeros(28);
    EXPECT_EQ(fp_crc32c(zeros.data(), 28, 0), 0x8a9136aau) << "32 zero bytes";
    std::vector<uint8_t> ones(28, 0xff);
    EXPECT_EQ(fp_crc32c(ones.data(), 28, 0xffffffff), 0x62a8ab43u) << "32 bytes of ones";
}

// ---- By index ----

class Lookup : public LaidOut {};

TEST_F(Lookup, InterfacesAndNextHopsByIndexEndWithTheirTables)
{
    uint32_t count = static_cast<uint32_t>(g_fp_scaling.num_if_records);
    t_fp_if_stats *p_stats = nullptr;
    EXPECT_EQ(fp_lookup_if_record(0, &p_stats), g_fp_if_record);
    EXPECT_EQ(p_stats, g_fp_if_stats);
    EXPECT_EQ(fp_lookup_if_record(count - 1, &p_stats), g_fp_if_record + count - 1);
    EXPECT_EQ(p_stats, g_fp_if_stats + count - 1);
    EXPECT_EQ(fp_lookup_if_record(0xabc00000 + 5, nullptr), g_fp_if_record + 5) << "the low 16 bits count";
    EXPECT_EQ(fp_lookup_if_record(count, &p_stats), nullptr);
    EXPECT_EQ(p_stats, nullptr);

    uint32_t next_hops = static_cast<uint32_t>(g_fp_scaling.num_nh_records);
    EXPECT_EQ(fp_get_nh_record(next_hops - 1), g_fp_nh_record + next_hops - 1);
    EXPECT_EQ(fp_get_nh_record(next_hops), nullptr);
    EXPECT_EQ(fp_get_nh_record(65536), nullptr) << "no bit is cut here";
}

// ---- By key: tables filled at random, each look-up against a linear search ----

static constexpr uint32_t SEED = 20260921;

// Puts record `index` in front of its bucket's chain.
template <typename T>
static void chain_in(T *p_records, uint16_t *p_heads, int count, uint16_t index)
{
    T *p_record = &p_records[index];
    uint32_t bucket = fp_crc32c(&p_record->key, sizeof(p_record->key), 0) & (count - 1);
    p_record->next_index = p_heads[bucket];
    p_heads[bucket] = index;
}

// The index of the record in front, or -1. Younger records stand in front of older ones of the same key.
template <typename T, typename K>
static int linear(const T *p_records, int used, const K &key)
{
    for (int i = used - 1; i >= 0; i--)
        if (memcmp(&p_records[i].key, &key, sizeof(key)) == 0)
            return i;
    return -1;
}

TEST_F(Lookup, InterfacesByKeyAgreeWithALinearSearch)
{
    std::mt19937 random(SEED);
    auto key = [&] {
        return t_fp_if_key{.port_id = static_cast<uint16_t>(random() % 16),
                           .vlan_id = static_cast<uint16_t>(random() % 16),
                           .hw_iftype = static_cast<uint16_t>(random() % 4),
                           .zero = 0};
    };
    int count = g_fp_scaling.num_if_records;
    memset(g_fp_if_hash_record, 0xff, count * sizeof(uint16_t));
    for (int i = 0; i < count; i++) {
        g_fp_if_record[i].key = key();
        chain_in(g_fp_if_record, g_fp_if_hash_record, count, static_cast<uint16_t>(i));
    }
    for (int i = 0; i < 3000; i++) {
        t_fp_if_key sought = key();
        int want = linear(g_fp_if_record, count, sought);
        t_fp_if_stats *p_stats = g_fp_if_stats;
        t_fp_if_record *p_found =
            fp_lookup_if_hash_record(sought.port_id, sought.vlan_id, sought.hw_iftype, &p_stats);
        EXPECT_EQ(p_found, want >= 0 ? g_fp_if_record + want : nullptr);
        EXPECT_EQ(p_stats, want >= 0 ? g_fp_if_stats + want : nullptr);
    }
}

TEST_F(Lookup, NeighboursAgreeWithALinearSearchAndTheCallersHashDecides)
{
    std::mt19937 random(SEED);
    auto key = [&] {
        t_fp_arp_key made = {};
        fp_ipaddr_set_v4(&made.ipaddr, 0x0a000000 + random() % 1024);
        made.ifindex = static_cast<t_hw_ifindex>(random() % 2);
        return made;
    };
    int count = g_fp_scaling.num_arp_records;
    memset(g_fp_arp_hash_record, 0xff, count * sizeof(uint16_t));
    for (int i = 0; i < count; i++) {
        g_fp_arp_record[i].key = key();
        chain_in(g_fp_arp_record, g_fp_arp_hash_record, count, static_cast<uint16_t>(i));
    }
    for (int i = 0; i < 3000; i++) {
        t_fp_arp_key sought = key();
        int want = linear(g_fp_arp_record, count, sought);
        EXPECT_EQ(fp_arp_lookup(&sought, fp_crc32c(&sought, sizeof(sought), 0)),
                  want >= 0 ? g_fp_arp_record + want : nullptr);
    }
    t_fp_arp_key present = g_fp_arp_record[0].key;
    uint32_t hash = fp_crc32c(&present, sizeof(present), 0);
    EXPECT_EQ(fp_arp_lookup(&present, hash ^ 1), nullptr) << "another bucket";
}

TEST_F(Lookup, ApplicationsOfAVpnNeedAValidRecord)
{
    fp_cxp_record_init();
    t_fp_cxp_record *p_found = nullptr;
    EXPECT_EQ(fp_cxp_record_lookup(3, 100, &p_found), -2);
    g_fp_cxp_record[9].key = {.vrid = 3, .appid = 100};
    chain_in(g_fp_cxp_record, g_fp_cxp_hash_record, g_fp_scaling.num_cxp_records, 9);
    EXPECT_EQ(fp_cxp_record_lookup(3, 100, &p_found), -2) << "not valid yet";
    EXPECT_EQ(p_found, nullptr);
    g_fp_cxp_record[9].record_valid = 1;
    EXPECT_EQ(fp_cxp_record_lookup(3, 100, &p_found), 0);
    EXPECT_EQ(p_found, g_fp_cxp_record + 9);
    EXPECT_EQ(fp_cxp_record_lookup(100, 3, &p_found), -22) << "no such VPN";
    EXPECT_EQ(fp_cxp_record_lookup(static_cast<t_vrid>(g_fp_scaling.num_vrfs), 100, &p_found), -22);
    EXPECT_EQ(fp_cxp_record_lookup(3, 100, nullptr), -22);

    // An invalid record in front of the valid one of the same key is passed over.
    g_fp_cxp_record[10].key = {.vrid = 3, .appid = 100};
    chain_in(g_fp_cxp_record, g_fp_cxp_hash_record, g_fp_scaling.num_cxp_records, 10);
    EXPECT_EQ(fp_cxp_record_lookup(3, 100, &p_found), 0);
    EXPECT_EQ(p_found, g_fp_cxp_record + 9);
}

TEST_F(Lookup, ServersAreFoundByAllPartsOfTheirKey)
{
    fp_server_appid_record_init();
    t_fp_ipaddr v4;
    fp_ipaddr_set_v4(&v4, 0x0a010203);
    t_fp_ipaddr v6 = {.addr = {0x0a, 1, 2, 3}, .addr_type = FP_AF_INET6};
    t_fp_server_appid_record *p_record = &g_fp_server_appid_record[1];
    p_record->key = {.vrid = 2, .ipaddr = v4, .portid = 443, .proto = 6, .zero = 0};
    p_record->record_valid = 1;
    chain_in(g_fp_server_appid_record, g_fp_server_appid_hash_record, g_fp_scaling.num_server_appids, 1);

    t_fp_server_appid_record *p_found = nullptr;
    EXPECT_EQ(fp_server_appid_record_lookup(2, &v4, 443, 6, &p_found), 0);
    EXPECT_EQ(p_found, p_record);
    t_fp_ipaddr stained = v4;
    stained.addr[15] = 9;
    EXPECT_EQ(fp_server_appid_record_lookup(2, &stained, 443, 6, &p_found), 0) << "IPv4 has four bytes";
    EXPECT_EQ(fp_server_appid_record_lookup(1, &v4, 443, 6, &p_found), -2);
    EXPECT_EQ(fp_server_appid_record_lookup(2, &v6, 443, 6, &p_found), -2);
    EXPECT_EQ(fp_server_appid_record_lookup(2, &v4, 444, 6, &p_found), -2);
    EXPECT_EQ(fp_server_appid_record_lookup(2, &v4, 443, 17, &p_found), -2);
    EXPECT_EQ(fp_server_appid_record_lookup(2, nullptr, 443, 6, &p_found), -22);
    EXPECT_EQ(fp_server_appid_record_lookup(2, &v4, 443, 6, nullptr), -22);
    EXPECT_EQ(fp_server_appid_record_lookup(64, &v4, 443, 6, &p_found), -22);
    p_record->record_valid = 0;
    EXPECT_EQ(fp_server_appid_record_lookup(2, &v4, 443, 6, &p_found), -2);
}

TEST_F(Lookup, ADamagedChainEndsAsNotFound)
{
    fp_cxp_record_init();
    t_fp_cxp_record *p_found = nullptr;
    t_fp_cxp_key sought = {.vrid = 1, .appid = 1};
    uint32_t bucket = fp_crc32c(&sought, sizeof(sought), 0) & (g_fp_scaling.num_cxp_records - 1);
    g_fp_cxp_hash_record[bucket] = 5;
    g_fp_cxp_record[5].next_index = 5;
    EXPECT_EQ(fp_cxp_record_lookup(1, 1, &p_found), -2) << "a circle";
    g_fp_cxp_record[5].next_index = 60000;
    EXPECT_EQ(fp_cxp_record_lookup(1, 1, &p_found), -2) << "a link past the table";
    g_fp_cxp_hash_record[bucket] = static_cast<uint16_t>(g_fp_scaling.num_cxp_records);
    EXPECT_EQ(fp_cxp_record_lookup(1, 1, &p_found), -2) << "a head past the table";
}
