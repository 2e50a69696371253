#include "common/ip_util.h"

#include "tests/common/address_helpers.h"

#include <arpa/inet.h>

#include <gtest/gtest.h>

#include <ctime>

TEST(IpText, AddressesParseAndPrint)
{
    struct {
        const char *text;
        const char *printed;  // null: refused
    } rows[] = {
        {"10.1.2.3", "10.1.2.3"},
        {"255.255.255.254", "255.255.255.254"},
        {"255.255.255.255", nullptr},  // the value that inet_network has for a failure
        {"10", "0.0.0.10"},            // short forms
        {"10.1", "0.0.10.1"},
        {"1.2.3", "0.1.2.3"},
        {"0x0a.010.1", "0.10.8.1"},
        {"256.1.1.1", nullptr},
        {"1.2.3.4.5", nullptr},
        {"10.1.2.3x", nullptr},
        {"2001:DB8::1", "2001:db8::1"},
        {"1::2", "1::2"},
        {"::ffff:10.0.0.1", "::ffff:10.0.0.1"},
        {"1:2:3:4:5:6:7:8", "1:2:3:4:5:6:7:8"},
        {"1:2:3:4:5:6:7:8:9", nullptr},
        {"fe80::1%eth0", nullptr},
        {"10.0.0.0/8", nullptr},
        {"", nullptr},
        {"name", nullptr},
    };
    for (const auto &row : rows) {
        t_ipaddr addr;
        memset(&addr, 0xee, sizeof(addr));
        EXPECT_EQ(str_to_ip(row.text, &addr), row.printed != nullptr) << row.text;
        if (row.printed != nullptr) {
            EXPECT_EQ(test_text(addr), row.printed);
            continue;
        }
        t_ipaddr zero = {};
        EXPECT_EQ(memcmp(&addr, &zero, sizeof(addr)), 0) << row.text;
    }
}

TEST(IpText, ParsingByAKnownFamilyTakesThatFamilyAlone)
{
    struct {
        const char *before;
        const char *text;
        const char *after;  // null: refused, the address stays
    } rows[] = {
        {"1.1.1.1", "255.255.255.255", "255.255.255.255"},
        {"1.1.1.1", "10.1", nullptr},
        {"1.1.1.1", "::1", nullptr},
        {"1::", "::1", "::1"},
        {"1::", "10.1.2.3", nullptr},
        {"", "10.1.2.3", nullptr},
    };
    for (const auto &row : rows) {
        t_ipaddr addr = test_addr(row.before);
        EXPECT_EQ(ipaddr_str_to_ip(&addr, row.text), row.after != nullptr) << row.text;
        EXPECT_EQ(test_text(addr), row.after != nullptr ? row.after : row.before);
    }
}

TEST(IpText, RecordsPrintInTheirForms)
{
    char buf[128];
    t_ipaddr_port port4 = {test_addr("192.0.2.7"), 65535};
    EXPECT_STREQ(ipaddr_port_print(&port4, buf, sizeof(buf)), "192.0.2.7:65535");
    t_ipaddr_port port6 = {test_addr("2001:db8::7"), 80};
    EXPECT_STREQ(ipaddr_port_print(&port6, buf, sizeof(buf)), "2001:db8::7:80");
    t_tloc_id tloc = {test_addr("172.16.0.1"), 4, 2};
    EXPECT_STREQ(tloc_id_print(&tloc, buf, sizeof(buf)), "Originator: 172.16.0.1 Color: 4 Encap: 2");
    EXPECT_STREQ(tloc_id_print_short(&tloc, buf, sizeof(buf)), "172.16.0.1 : biz-internet : ipsec");
    tloc = {test_addr("::1"), 200, 0};
    EXPECT_STREQ(tloc_id_print_short(&tloc, buf, sizeof(buf)), "::1 : -- : --");
    EXPECT_STREQ(ipv4_print(0xfffefd00, buf, sizeof(buf)), "255.254.253.0");
}

TEST(IpTextShort, SmallBuffersCutTheText)
{
    char buf[8] = "xxxxxxx";
    t_ipaddr addr = test_addr("192.0.2.77");
    EXPECT_STREQ(ipaddr_print(&addr, buf, 6), "192.0");
    addr = test_addr("2001:db8::1");
    EXPECT_STREQ(ipaddr_print(&addr, buf, sizeof(buf)), "");
    t_ipaddr_port port = {test_addr("1.2.3.4"), 80};
    EXPECT_STREQ(ipaddr_port_print(&port, buf, sizeof(buf)), "1.2.3.4");
    EXPECT_STREQ(print_timeofday(buf, 4), "");
}

TEST(IpText, HexTextIsCutAndItsWholeLengthGiven)
{
    static const uint8_t bytes[] = {0x00, 0xab, 0x0f};
    struct {
        size_t out_size;
        size_t in_len;
        const char *text;
        int whole;
    } rows[] = {{16, 3, "00:ab:0f", 8}, {9, 3, "00:ab:0f", 8}, {8, 3, "00:ab:0", 8}, {4, 3, "00:", 8},
                {1, 3, "", 8},          {16, 1, "00", 2},      {16, 0, "", -1}};
    for (const auto &row : rows) {
        char out[16] = "untouched";
        EXPECT_EQ(binary_to_hexstr(out, row.out_size, bytes, row.in_len), row.whole);
        EXPECT_STREQ(out, row.text);
    }
    EXPECT_EQ(binary_to_hexstr(nullptr, 0, bytes, 3), 8);
}

TEST(IpText, HardwareAddresses)
{
    struct {
        const char *text;
        const char *printed;  // null: refused
    } rows[] = {
        {"02:00:0A:ff:1:fE", "02:00:0a:ff:01:fe"},
        {"102:0:0:0:0:0", "02:00:00:00:00:00"},
        {"1:2:3:4:5:6 trailing", "01:02:03:04:05:06"},
        {"1:2:3:4:5", nullptr},
        {"1-2-3-4-5-6", nullptr},
        {"", nullptr},
    };
    for (const auto &row : rows) {
        uint8_t bytes[6] = {9, 9, 9, 9, 9, 9};
        char buf[18];
        EXPECT_EQ(str_to_macaddr(row.text, bytes), row.printed != nullptr ? bytes : nullptr) << row.text;
        EXPECT_STREQ(macaddr_print(bytes, buf, sizeof(buf)),
                     row.printed != nullptr ? row.printed : "09:09:09:09:09:09");
    }
    char buf[18];
    EXPECT_STREQ(get_intf_macaddr("lo", false, buf, sizeof(buf)), "00:00:00:00:00:00");
    EXPECT_STREQ(get_intf_macaddr("lo", true, buf, sizeof(buf)), "000000000000");
    EXPECT_EQ(get_intf_macaddr("no-such-interface-name", false, buf, sizeof(buf)), nullptr);
}

TEST(IpText, TheTimeOfDayIsThePresentOne)
{
    char buf[32];
    time_t before = time(nullptr);
    print_timeofday(buf, sizeof(buf));
    struct tm read = {};
    localtime_r(&before, &read);  // the year and the zone
    ASSERT_NE(strptime(buf, "%b %d %T", &read), nullptr) << buf;
    EXPECT_LE(mktime(&read) - before, 5);
    EXPECT_GE(mktime(&read) - before, 0);
}

TEST(IpText, TheIpv6PortOfASocketAddressStaysAsItStands)
{
    t_ipaddr_port read = {test_addr("9.9.9.9"), 1};
    struct sockaddr_in in = {};
    in.sin_family = AF_INET;
    in.sin_port = htons(0x1234);
    in.sin_addr.s_addr = htonl(0xc0000201);
    ipaddr_port_from_sockaddr(&read, reinterpret_cast<struct sockaddr *>(&in));
    EXPECT_EQ(read.port, 0x1234);
    EXPECT_EQ(test_text(read.addr), "192.0.2.1");

    struct sockaddr_in6 in6 = {};
    in6.sin6_family = AF_INET6;
    in6.sin6_port = htons(0x1234);
    inet_pton(AF_INET6, "2001:db8::5", &in6.sin6_addr);
    ipaddr_port_from_sockaddr(&read, reinterpret_cast<struct sockaddr *>(&in6));
    EXPECT_EQ(read.port, htons(0x1234));
    EXPECT_EQ(test_text(read.addr), "2001:db8::5");

    struct sockaddr local = {};
    local.sa_family = AF_UNIX;
    ipaddr_port_from_sockaddr(&read, &local);
    EXPECT_EQ(test_text(read.addr), "2001:db8::5");
}
