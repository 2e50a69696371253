#include "common/ip_util.h"

#include "tests/common/address_helpers.h"

#include <gtest/gtest.h>

#include <bit>
#include <csignal>
#include <cstdint>

TEST(IpAddr, SettersWriteTheValueOfTheFamilyAlone)
{
    t_ipaddr addr;
    memset(&addr, 0xa5, sizeof(addr));
    IPADDR_SET_V4(&addr, 0x0a010203);
    EXPECT_EQ(test_text(addr), "10.1.2.3");
    EXPECT_EQ(addr.u.addr4.s_addr, 0x0a010203u);
    EXPECT_EQ(addr.u.addr32_b[1], 0xa5a5a5a5u);
    EXPECT_EQ(addr.u.addr6[1], 0xa5a5a5a5a5a5a5a5u);

    t_ipaddr copy;
    memset(&copy, 0x77, sizeof(copy));
    IPADDR_COPY(&copy, &addr);
    EXPECT_EQ(copy.u.addr4.s_addr, 0x0a010203u);
    EXPECT_EQ(copy.u.addr32_b[1], 0x77777777u);

    IPADDR_INIT(&copy, IP_ADDR_V4);
    EXPECT_TRUE(IPADDR_IS_V4(&copy) && (copy.u.addr6[0] | copy.u.addr6[1]) == 0);
    addr.addr_type = IP_ADDR_UNKNOWN;
    IPADDR_COPY(&copy, &addr);
    EXPECT_EQ(copy.addr_type, IP_ADDR_UNKNOWN);
    EXPECT_EQ(copy.u.addr4.s_addr, 0u);
}

TEST(IpAddr, ValuesAreReadFromTheWireByFamily)
{
    static const uint8_t wire[16] = {0x20, 0x01, 0x0d, 0xb8, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 9};
    t_ipaddr addr = test_addr("0.0.0.0");
    EXPECT_EQ(IPADDR_GET(&addr, wire), 4);
    EXPECT_EQ(test_text(addr), "32.1.13.184");
    addr.addr_type = IP_ADDR_V6;
    EXPECT_EQ(IPADDR_GET(&addr, wire), 16);
    EXPECT_EQ(test_text(addr), "2001:db8::9");
    EXPECT_EQ(IPADDR_GET_IPV6(&addr, wire), 16);
}

TEST(IpAddr, ZeroIsAskedOfTheFamilysBytesOnly)
{
    struct {
        const char *text;
        bool is_zero;
    } rows[] = {{"0.0.0.0", true}, {"0.0.0.1", false}, {"128.0.0.0", false}, {"::", true}, {"::1", false},
                {"8000::", false}, {"", true}};
    for (const auto &row : rows) {
        t_ipaddr addr = test_addr(row.text);
        EXPECT_EQ(IPADDR_IS_ZERO(&addr), row.is_zero) << row.text;
    }
}

TEST(IpAddr, OrderIsByFamilyThenUnsignedValue)
{
    const char *ascending[] = {
        "0.0.0.0", "0.0.0.1", "1.0.0.0", "127.255.255.255", "128.0.0.0", "255.255.255.254", "::",
        "::1",     "::ff",    "::1:0",   "7fff::",          "8000::",    "ffff::ff",        "ffff::100"};
    int count = static_cast<int>(std::size(ascending));
    for (int i = 0; i < count; i++)
        for (int k = 0; k < count; k++) {
            t_ipaddr a = test_addr(ascending[i]);
            t_ipaddr b = test_addr(ascending[k]);
            EXPECT_EQ(IPADDR_CMP(&a, &b), (i > k) - (i < k)) << ascending[i] << " " << ascending[k];
        }
}

TEST(IpAddrDeathTest, TwoAddressesWithoutFamilyHaveNoOrder)
{
    t_ipaddr a = test_addr("");
    t_ipaddr b = test_addr("");
    EXPECT_EXIT(IPADDR_CMP(&a, &b), testing::KilledBySignal(SIGSEGV), "");
}

TEST(TlocId, OrderIsAddressThenColorThenEncap)
{
    t_tloc_id ascending[] = {
        {test_addr("1.1.1.1"), 200, 2}, {test_addr("1.1.1.2"), 1, 2}, {test_addr("1.1.1.2"), 2, 1},
        {test_addr("1.1.1.2"), 2, 200}, {test_addr("::"), 0, 0},
    };
    int count = static_cast<int>(std::size(ascending));
    for (int i = 0; i < count; i++)
        for (int k = 0; k < count; k++)
            EXPECT_EQ(TLOC_CMP(&ascending[i], &ascending[k]), (i > k) - (i < k)) << i << " " << k;
}

// ---- Classes ----

enum e_class {
    LINK = 1,
    SITE = 2,
    UNIQUE = 4,
    MULTI = 8,
    LOOP = 16,
    UNI = 32,
    RELAXED = 64,
    NEXTHOP = 128,
    HOST = UNI | RELAXED | NEXTHOP,  // an address like any other
};

static int classes_of(const t_ipaddr &addr)
{
    return ipaddr_is_link_local(&addr) * LINK | ipaddr_is_site_local(&addr) * SITE |
           ipaddr_is_unique_local(&addr) * UNIQUE | ipaddr_is_multicast(&addr) * MULTI |
           ipaddr_is_loopback(&addr) * LOOP | ipaddr_is_unicast(&addr) * UNI |
           ipaddr_is_unicast_relaxed_low_byte_check(&addr) * RELAXED | ipnexthop_is_unicast(&addr) * NEXTHOP;
}

TEST(IpAddr, ClassesFollowTheFirstBytes)
{
    struct {
        const char *text;
        int classes;
    } rows[] = {
        {"0.0.0.0", 0},
        {"0.255.255.1", 0},
        {"1.0.0.1", HOST},
        {"192.0.2.0", RELAXED | NEXTHOP},
        {"192.0.2.255", NEXTHOP},
        {"126.1.1.1", HOST},
        {"127.0.0.1", LOOP},
        {"127.255.255.254", LOOP},
        {"128.0.0.1", HOST},
        {"223.255.255.254", HOST},
        {"224.0.0.5", MULTI},
        {"239.255.255.250", MULTI},
        {"240.0.0.1", 0},
        {"254.128.0.1", 0},  // the bytes of a link-local IPv6 address
        {"::", LOOP | NEXTHOP},
        {"::1", LOOP | HOST},
        {"::2", HOST},
        {"0:0:0:1::1", HOST},
        {"100::", HOST},
        {"2001:db8::", HOST},
        {"fbff::1", HOST},
        {"fc00::1", UNIQUE | HOST},
        {"fdff::1", UNIQUE | HOST},
        {"fe00::1", HOST},
        {"fe80::1", LINK | NEXTHOP},
        {"fe81::1", HOST},  // inside the /10, yet not link-local here
        {"febf::1", HOST},
        {"fec0::1", SITE | HOST},
        {"feff::1", SITE | HOST},
        {"ff02::1", MULTI | NEXTHOP},
        {"", HOST},
    };
    for (const auto &row : rows)
        EXPECT_EQ(classes_of(test_addr(row.text)), row.classes) << row.text;
}

TEST(IpAddr, ALinkLocalAddressCarriesAnInterfaceIndex)
{
    t_ipaddr addr = test_addr("fe80::a");
    ipaddr_link_local_embed_ifindex(&addr, 0x01020304);
    EXPECT_EQ(test_text(addr), "fe80:0:102:304::a");
    uint32_t ifindex = 0;
    ipaddr_link_local_extract_ifindex(&addr, &ifindex, nullptr);
    EXPECT_EQ(ifindex, 0x01020304u);
    ipaddr_link_local_extract_ifindex(&addr, nullptr, &addr);
    EXPECT_EQ(test_text(addr), "fe80::a");

    for (const char *other : {"fe81::a", "10.0.0.1"}) {
        addr = test_addr(other);
        ipaddr_link_local_embed_ifindex(&addr, 7);
        t_ipaddr clean = {};
        ipaddr_link_local_extract_ifindex(&addr, &ifindex, &clean);
        EXPECT_EQ(test_text(clean), other);
        EXPECT_EQ(ifindex, 0u);
    }
}

// ---- Masks ----

TEST(IpMask, EveryLengthMakesItsMask)
{
    for (uint32_t len = 0; len <= 130; len++) {
        t_ipaddr mask6 = test_addr("1.2.3.4");
        ipv6_prefixlen_to_mask(len, &mask6);
        for (uint32_t bit = 0; bit < 128; bit++)
            ASSERT_EQ(mask6.u.addr6_b[bit / 8] >> (7 - bit % 8) & 1, bit < len) << len << " " << bit;
        EXPECT_EQ(ipaddr_mask_to_len(&mask6), static_cast<int>(std::min(len, 128u)));

        t_ipaddr by_family = test_addr("::");
        ip_prefixlen_to_mask(len, &by_family);
        t_ipaddr misnamed = test_addr("1.2.3.4");
        ipv4_prefixlen_to_val(len, &misnamed);  // IPv6 in spite of its name
        EXPECT_EQ(IPADDR_CMP(&mask6, &by_family), 0);
        EXPECT_EQ(IPADDR_CMP(&mask6, &misnamed), 0);

        t_ipaddr mask4 = test_addr("");
        ip_prefixlen_to_mask(len, &mask4);
        EXPECT_EQ(mask4.u.addr4.s_addr, len > 31 ? UINT32_MAX : ~(UINT32_MAX >> len)) << len;
        EXPECT_EQ(ipaddr_mask_to_len(&mask4), static_cast<int>(std::min(len, 32u)));
    }
}

TEST(IpMask, TheWordMaskWrapsAt32)
{
    static_assert(IPV4_PREFIXLEN_TO_VAL(0) == 0xffffffff);
    static_assert(IPV4_PREFIXLEN_TO_VAL(1) == 0x80000000);
    static_assert(IPV4_PREFIXLEN_TO_VAL(24) == 0xffffff00);
    static_assert(IPV4_PREFIXLEN_TO_VAL(32) == 0xffffffff);
    static_assert(IPV4_PREFIXLEN_TO_VAL(33) == 0x80000000);
}

TEST(IpMask, BitsOfAByteAreCounted)
{
    for (uint32_t byte = 0; byte < 256; byte++)
        EXPECT_EQ(ip_util_bit_mask_to_len[byte], std::popcount(byte));
    t_ipaddr holes = test_addr("255.0.255.1");
    EXPECT_EQ(ipaddr_mask_to_len(&holes), 17);
    t_ipaddr unknown = test_addr("");
    EXPECT_EQ(ipaddr_mask_to_len(&unknown), 0);
}

TEST(IpMask, InvertAndApplyStayWithinTheFamily)
{
    t_ipaddr mask = test_addr("255.255.240.0");
    t_ipaddr addr = test_addr("10.1.255.9");
    ipaddr_mask_apply(&addr, &mask);
    EXPECT_EQ(test_text(addr), "10.1.240.0");
    ipaddr_mask_invert(&mask);
    EXPECT_EQ(test_text(mask), "0.0.15.255");
    t_ipaddr addr6 = test_addr("2001:db8::1");
    ipaddr_mask_apply(&addr6, &mask);
    EXPECT_EQ(test_text(addr6), "2001:db8::1");
    t_ipaddr mask6 = test_addr("ffff:ff00::");
    ipaddr_mask_apply(&addr6, &mask6);
    EXPECT_EQ(test_text(addr6), "2001:d00::");
    ipaddr_mask_invert(&mask6);
    EXPECT_EQ(test_text(mask6), "0:ff:ffff:ffff:ffff:ffff:ffff:ffff");
}

// ---- Prefixes ----

TEST(IpPrefix, ValidityForItsUses)
{
    struct {
        const char *text;
        bool valid;
        bool interface;
        bool v4_interface;
        bool natpool;
    } rows[] = {
        {"10.0.0.0/8", true, false, false, true},
        {"10.0.0.1/8", true, true, true, false},
        {"10.255.255.255/8", true, false, false, false},
        {"10.0.0.2/30", true, true, true, false},
        {"10.0.0.3/30", true, false, false, false},
        {"10.0.0.0/31", true, true, true, true},
        {"10.0.0.1/31", true, true, true, false},
        {"10.0.0.1/32", true, true, true, true},
        {"10.0.0.1/33", false, true, true, false},
        {"0.0.0.0/0", true, false, false, true},
        {"10.0.0.1/0", true, true, true, false},
        {"2001:db8::/64", true, false, true, true},
        {"2001:db8::1/64", true, true, true, false},
        {"2001:db8::ffff:ffff:ffff:ffff/64", true, false, true, false},
        {"2001:db8::1/32", true, true, true, true},
        {"2001:db8::/127", true, true, true, true},
        {"2001:db8::1/128", true, true, true, true},
        {"2001:db8::/129", false, true, true, false},
        {"/24", false, true, true, false},
    };
    for (const auto &row : rows) {
        t_ipprefix prefix = test_prefix(row.text);
        EXPECT_EQ(ipprefix_is_valid(&prefix), row.valid) << row.text;
        EXPECT_EQ(ipprefix_is_valid_interface(&prefix), row.interface) << row.text;
        EXPECT_EQ(ipprefix_is_valid_v4_interface(&prefix), row.v4_interface) << row.text;
        EXPECT_EQ(ipprefix_is_valid_natpool_interface(&prefix), row.natpool) << row.text;
    }
}

TEST(IpPrefix, SubnetIsTheNetworkAtALengthOrAtItsOwn)
{
    struct {
        const char *source;
        uint32_t len;
        const char *subnet;
    } rows[] = {
        {"10.1.2.3/16", 0, "10.1.0.0/16"},      {"10.1.2.3/16", 24, "10.1.2.0/24"},
        {"10.1.2.3/16", 4, "0.0.0.0/4"},        {"10.1.2.3/0", 0, "0.0.0.0/0"},
        {"10.1.2.3/32", 0, "10.1.2.3/32"},      {"10.1.2.3/40", 0, "10.1.2.3/32"},
        {"2001:db8::1/33", 0, "2001:db8::/33"}, {"2001:dbf::1/64", 29, "2001:db8::/29"},
        {"2001:db8::1/0", 0, "::/0"},           {"2001:db8::1/128", 0, "2001:db8::1/128"},
    };
    for (const auto &row : rows) {
        t_ipprefix source = test_prefix(row.source);
        t_ipprefix subnet = {};
        ip_prefix_to_subnet(&source, &subnet, row.len);
        EXPECT_EQ(test_text(subnet), row.subnet) << row.source;

        t_ipprefix by_family = test_prefix("/77");
        ipv4_prefix_to_subnet(&source, &by_family, row.len);
        EXPECT_EQ(by_family.prefixlen == 77, !IPPREFIX_IS_V4(&source)) << row.source;
        ipv6_prefix_to_subnet(&source, &by_family, row.len);
        EXPECT_EQ(test_text(by_family), row.subnet) << row.source;

        ip_prefix_to_subnet(&source, &source, row.len);
        EXPECT_EQ(test_text(source), row.subnet);
    }
    t_ipprefix unknown = test_prefix("/8");
    t_ipprefix left_alone = test_prefix("10.1.2.3/16");
    ip_prefix_to_subnet(&unknown, &left_alone, 0);
    EXPECT_EQ(test_text(left_alone), "10.1.2.3/16");
}

TEST(IpPrefix, ContainedLooksAtTheAddressOfTheFirstOnly)
{
    struct {
        const char *a;
        const char *b;
        bool contained;
    } rows[] = {
        {"10.1.2.3/8", "10.1.0.0/16", true},
        {"10.2.2.3/24", "10.1.0.0/16", false},
        {"10.1.2.3/99", "10.1.7.7/16", true},
        {"1.2.3.4/32", "9.9.9.9/0", true},
        {"1.2.3.4/32", "1.2.3.4/32", true},
        {"1.2.3.5/32", "1.2.3.4/32", false},
        {"2001:db8::1/0", "2001:db8::/127", true},
        {"2001:db8::2/0", "2001:db8::/127", false},
        {"fe80::/10", "::/0", true},
        {"::/0", "0.0.0.0/0", false},
        {"0.0.0.0/0", "::/200", false},
    };
    for (const auto &row : rows) {
        t_ipprefix a = test_prefix(row.a);
        t_ipprefix b = test_prefix(row.b);
        EXPECT_EQ(ipprefix_is_contained(&a, &b), row.contained) << row.a << " " << row.b;
    }
}

TEST(IpPrefixDeathTest, AnImpossibleLengthCannotContain)
{
    t_ipprefix a = test_prefix("10.0.0.1/32");
    t_ipprefix b = test_prefix("10.0.0.1/33");
    EXPECT_EXIT(ipprefix_is_contained(&a, &b), testing::KilledBySignal(SIGSEGV), "");
    a = test_prefix("::/0");
    b = test_prefix("::/129");
    EXPECT_EXIT(ipprefix_is_contained(&a, &b), testing::KilledBySignal(SIGSEGV), "");
}
