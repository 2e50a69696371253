#include "fp_api/fp_ipaddr.h"

#include "tests/common/address_helpers.h"

#include <gtest/gtest.h>

#include <csignal>
#include <string>

// The shared form of an address, with dirty unused bytes.
static t_fp_ipaddr fp_addr(const std::string &text)
{
    t_ipaddr addr = test_addr(text);
    t_fp_ipaddr shared;
    memset(&shared, 0xd1, sizeof(shared));
    shared.addr_type = FP_AF_NONE;
    if (IPADDR_IS_V4(&addr))
        FP_IPADDR_SET_V4(&shared, addr.u.addr4.s_addr);
    else if (IPADDR_IS_V6(&addr))
        FP_IPADDR_SET_V6(&shared, addr.u.addr6_b);
    return shared;
}

TEST(FpIpAddr, PrintsTheFirstLongestRunOfZeroGroupsShort)
{
    struct {
        const char *text;
        const char *printed;
    } rows[] = {
        {"10.1.2.3", "10.1.2.3"},
        {"255.255.255.254", "255.255.255.254"},
        {"::", "::"},
        {"::1", "::1"},
        {"1::", "1::"},
        {"2001:db8:0:1:1:1:1:1", "2001:db8::1:1:1:1:1"},  // a run of one group
        {"0:1:2:3:4:5:6:7", "::1:2:3:4:5:6:7"},
        {"1:2:3:4:5:6:7:0", "1:2:3:4:5:6:7::"},
        {"1:0:0:2:0:0:3:4", "1::2:0:0:3:4"},  // the first of equal runs
        {"1:0:2:0:0:3:0:4", "1:0:2::3:0:4"},
        {"0:0:1:0:0:0:2:3", "0:0:1::2:3"},
        {"ABCD:ef01:2:3:4:5:6:7", "abcd:ef01:2:3:4:5:6:7"},
        {"", ""},
    };
    for (const auto &row : rows) {
        t_fp_ipaddr addr = fp_addr(row.text);
        size_t length = 99;
        EXPECT_STREQ(fp_ipaddr_print(&addr, &length), row.printed) << row.text;
        EXPECT_EQ(length, strlen(row.printed));
    }
}

TEST(FpIpAddr, EightPrintedResultsStandAtOnce)
{
    const char *texts[9];
    for (uint32_t i = 0; i < 9; i++) {
        t_fp_ipaddr addr;
        fp_ipaddr_set_v4(&addr, i);
        texts[i] = fp_ipaddr_print(&addr, nullptr);
    }
    for (uint32_t i = 1; i < 9; i++)
        EXPECT_EQ(texts[i], "0.0.0." + std::to_string(i));
    EXPECT_EQ(texts[0], texts[8]);
    EXPECT_EQ(fp_ipaddr_print(nullptr, nullptr), nullptr);
}

TEST(FpIpAddr, OrderIsByFamilyThenUnsignedValue)
{
    const char *ascending[] = {"0.0.0.0", "0.0.1.0", "1.0.0.0", "128.0.0.0", "::", "::1", "::1:0", "8000::"};
    int count = static_cast<int>(std::size(ascending));
    for (int i = 0; i < count; i++)
        for (int k = 0; k < count; k++) {
            t_fp_ipaddr a = fp_addr(ascending[i]);
            t_fp_ipaddr b = fp_addr(ascending[k]);
            EXPECT_EQ(FP_IPADDR_CMP(&a, &b), (i > k) - (i < k)) << ascending[i] << " " << ascending[k];
        }
}

TEST(FpIpAddrDeathTest, TwoAddressesWithoutFamilyHaveNoOrder)
{
    t_fp_ipaddr a = fp_addr("");
    t_fp_ipaddr b = fp_addr("");
    EXPECT_EXIT(FP_IPADDR_CMP(&a, &b), testing::KilledBySignal(SIGILL), "");
}

TEST(FpIpAddr, ValuesAreSetCopiedAndReadByFamily)
{
    t_fp_ipaddr v4 = fp_addr("192.0.2.1");
    EXPECT_EQ(fp_ipaddr_v4(&v4), 0xc0000201u);
    EXPECT_EQ(v4.addr[4], 0xd1);
    t_fp_ipaddr copy = fp_addr("");
    copy.addr[4] = 0x33;
    FP_IPADDR_COPY(&copy, &v4);
    EXPECT_EQ(FP_IPADDR_CMP(&copy, &v4), 0);
    EXPECT_EQ(copy.addr[4], 0x33);
    t_fp_ipaddr v6 = fp_addr("2001:db8::1");
    FP_IPADDR_COPY(&copy, &v6);
    EXPECT_EQ(FP_IPADDR_CMP(&copy, &v6), 0);

    static const uint8_t wire[16] = {1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15, 16};
    EXPECT_EQ(FP_IPADDR_GET(&v4, wire), 4);
    EXPECT_EQ(fp_ipaddr_v4(&v4), 0x01020304u);
    EXPECT_EQ(FP_IPADDR_GET(&v6, wire), 16);
    EXPECT_EQ(memcmp(v6.addr, wire, sizeof(wire)), 0);
}

TEST(FpIpAddr, ZeroIsAskedOfTheFamilysBytesOnly)
{
    struct {
        const char *text;
        bool is_zero;
    } rows[] = {{"0.0.0.0", true}, {"0.0.0.1", false}, {"::", true},
                {"::1", false},    {"8000::", false},  {"", true}};
    for (const auto &row : rows) {
        t_fp_ipaddr addr = fp_addr(row.text);
        EXPECT_EQ(FP_IPADDR_IS_ZERO(&addr), row.is_zero) << row.text;
    }
    t_fp_ipaddr addr = fp_addr("1::");
    FP_IPADDR_INIT(&addr, FP_AF_INET6);
    EXPECT_TRUE(FP_IPADDR_IS_ZERO(&addr) && FP_IPADDR_IS_V6(&addr) && !FP_IPADDR_IS_V4(&addr));
}
