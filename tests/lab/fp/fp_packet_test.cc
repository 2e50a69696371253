// What a frame becomes, and where its bytes end too early.
#include "lab/fp/fp_packet.h"

#include "tests/lab/fp/frames.h"

#include <gtest/gtest.h>
#include <random>

struct t_good {
    const char *behaviour;
    t_bytes frame;
    size_t headers;                                   // bytes that have to be captured
    std::vector<std::pair<uint32_t, uint32_t>> want;  // fields that are not 0, without match-any
};

static std::vector<t_good> good_frames()
{
    static constexpr size_t link = 14;
    t_bytes dns = udp(40000, 53, 12);
    uint32_t a = 0x0a000001;
    uint32_t b = 0x0a000002;
    auto v4_fields = [a, b](uint32_t length, uint32_t protocol) {
        return std::vector<std::pair<uint32_t, uint32_t>>{{tarn_ip_protocol, protocol},
                                                          {tarn_ip_src_addr, a},
                                                          {tarn_ip_dst_addr, b},
                                                          {tarn_ip_pkt_len, length}};
    };
    auto with = [](std::vector<std::pair<uint32_t, uint32_t>> fields,
                   std::vector<std::pair<uint32_t, uint32_t>> more) {
        fields.insert(fields.end(), more.begin(), more.end());
        return fields;
    };
    using t_fields = std::vector<std::pair<uint32_t, uint32_t>>;
    t_fields ports = {{tarn_ip_src_port, 40000}, {tarn_ip_dst_port, 53}};
    auto v6_fields = [](uint32_t length, uint32_t next) {
        return t_fields{{tarn_ip_protocol, next}, {tarn_ip_next_header, next}, {tarn_ip_pkt_len, length}};
    };
    t_bytes v6_chain = join({hex("2b 00 0000 00000000"), hex("33 00 0000 00000000"),
                             hex("3c 04 0000 00000000"), t_bytes(16, std::byte{0}), hex("06 01 000000000000"),
                             t_bytes(8, std::byte{0}), tcp(1, 2, 0x10)});
    return {
        {"UDP", ethernet("0800", v4({}, dns)), link + 28, with(v4_fields(40, 17), ports)},
        {"DSCP is the upper six bits", ethernet("0800", v4({.tos = 0xbb}, dns)), link + 28,
         with(with(v4_fields(40, 17), ports), {{tarn_ip_dscp, 46}})},
        {"TCP has flags", ethernet("0800", v4({.protocol = 6}, tcp(40000, 53, 0xd2))), link + 40,
         with(with(v4_fields(40, 6), ports), {{tarn_ip_tcp, 0xd2}})},
        {"options move the ports", ethernet("0800", v4({.options = 40}, dns)), link + 68,
         with(v4_fields(80, 17), ports)},
        {"one tag", ethernet("8100 e007 0800", v4({}, dns)), link + 4 + 28, with(v4_fields(40, 17), ports)},
        {"two tags", ethernet("88a8 0064 8100 0007 0800", v4({}, dns)), link + 8 + 28,
         with(v4_fields(40, 17), ports)},
        {"ICMP has no ports", ethernet("0800", v4({.protocol = 1}, hex("0800 0000 0001 0001"))), link + 20,
         v4_fields(28, 1)},
        {"GRE has no ports", ethernet("0800", v4({.protocol = 47}, hex("0000 0800"))), link + 20,
         v4_fields(24, 47)},
        {"the first fragment has ports", ethernet("0800", v4({.fragment = 0x2000}, dns)), link + 28,
         with(v4_fields(40, 17), ports)},
        {"a later fragment has none", ethernet("0800", v4({.fragment = 0x0001, .protocol = 6}, hex("0102"))),
         link + 20, v4_fields(22, 6)},
        {"padding behind the packet is not part of it",
         join({ethernet("0800", v4({.protocol = 1}, {})), t_bytes(26, std::byte{0xff})}), link + 20,
         v4_fields(20, 1)},
        {"IPv6", ethernet("86dd", v6({.traffic_class = 0xb8}, dns)), link + 48,
         with(with(v6_fields(60, 17), ports), {{tarn_ip_traffic_class, 0xb8}})},
        {"IPv6 extension headers are stepped over", ethernet("86dd", v6({.next = 0}, v6_chain)),
         link + 40 + v6_chain.size(),
         with(v6_fields(static_cast<uint32_t>(40 + v6_chain.size()), 6),
              {{tarn_ip_src_port, 1}, {tarn_ip_dst_port, 2}, {tarn_ip_tcp, 0x10}})},
        {"an IPv6 packet that is whole in its fragment header has ports",
         ethernet("86dd", v6({.next = 44}, join({hex("11 00 0000 00000001"), dns}))), link + 56,
         with(v6_fields(68, 17), ports)},
        {"a later IPv6 fragment has none, whatever it seems to carry",
         ethernet("86dd", v6({.next = 44}, join({hex("3c 00 0008 00000001"), hex("06ff")}))), link + 48,
         v6_fields(50, 60)},
        {"no next header", ethernet("86dd", v6({.next = 59}, {})), link + 40, v6_fields(40, 59)},
    };
}

static t_fp_header header_of(const std::vector<std::pair<uint32_t, uint32_t>> &fields)
{
    t_fp_header header = fp_header_blank();
    for (auto [type, value] : fields)
        header.values[type] = value;
    return header;
}

TEST(FpPacketShortTest, EveryFieldIsWhatTheFrameSays)
{
    for (const t_good &good : good_frames()) {
        t_fp_packet packet = {};
        ASSERT_EQ(fp_packet_decode(good.frame, &packet), FP_DECODE_OK) << good.behaviour;
        t_fp_header want = header_of(good.want);
        for (uint32_t type = 0; type < tarn_ip_field_type_max; type++)
            EXPECT_EQ(packet.header.values[type], want.values[type]) << good.behaviour << ", field " << type;
        EXPECT_EQ(packet.length, packet.header.values[tarn_ip_pkt_len]) << good.behaviour;
    }
}

// Copies the prefix to memory of its exact size, so that the address sanitizer sees a byte too far.
TEST(FpPacketShortTest, CutFramesAreTruncatedUpToTheLastHeaderAndWholeBehindIt)
{
    for (const t_good &good : good_frames()) {
        for (size_t size = 0; size <= good.frame.size(); size++) {
            t_bytes cut(good.frame.begin(), good.frame.begin() + static_cast<ptrdiff_t>(size));
            cut.shrink_to_fit();
            t_fp_packet packet = {};
            e_fp_decode want = size < good.headers ? FP_DECODE_TRUNCATED : FP_DECODE_OK;
            EXPECT_EQ(fp_packet_decode(cut, &packet), want) << good.behaviour << ", cut to " << size;
        }
    }
}

TEST(FpPacketShortTest, PlacesAndFragmentsAreTold)
{
    t_fp_packet packet = {};
    ASSERT_EQ(
        fp_packet_decode(ethernet("88a8 a064 8100 0007 0800", v4({.fragment = 0x20b9}, hex("00"))), &packet),
        FP_DECODE_OK);
    EXPECT_EQ(packet.num_vlans, 2);
    EXPECT_EQ(packet.vlan_ids[0], 0x064);
    EXPECT_EQ(packet.vlan_ids[1], 7);
    EXPECT_EQ(packet.ip_offset, 22u);
    EXPECT_EQ(packet.version, 4);
    EXPECT_TRUE(packet.is_fragment);
    EXPECT_TRUE(packet.is_later_fragment);
}

TEST(FpPacketShortTest, WhatIsNoPacketIsRefusedAndLeavesTheOutputAlone)
{
    struct t_bad {
        const char *behaviour;
        t_bytes frame;
        e_fp_decode want;
    };
    t_bytes dns = udp(40000, 53, 12);
    t_bytes version_6 = v4({}, dns);
    version_6[0] = std::byte{0x65};
    t_bytes short_header = v4({}, dns);
    short_header[0] = std::byte{0x44};
    const t_bad bad[] = {
        {"ARP", ethernet("0806", t_bytes(28)), FP_DECODE_NOT_IP},
        {"a length instead of a type", ethernet("0026", t_bytes(38)), FP_DECODE_NOT_IP},
        {"three tags", ethernet("8100 0001 8100 0002 8100 0003 0800", v4({}, dns)), FP_DECODE_NOT_IP},
        {"version and type differ", ethernet("0800", version_6), FP_DECODE_MALFORMED},
        {"version and type differ, IPv6", ethernet("86dd", v4({}, dns)), FP_DECODE_MALFORMED},
        {"header of 16 bytes", ethernet("0800", short_header), FP_DECODE_MALFORMED},
        {"total length below the header", ethernet("0800", v4({.total_change = -21}, dns)),
         FP_DECODE_MALFORMED},
        {"total length below the options", ethernet("0800", v4({.options = 8, .total_change = -21}, dns)),
         FP_DECODE_MALFORMED},
        {"UDP header cut by the total length", ethernet("0800", v4({.total_change = -13}, dns)),
         FP_DECODE_MALFORMED},
        {"TCP of 19 bytes", ethernet("0800", v4({.protocol = 6, .total_change = -1}, tcp(1, 2, 3))),
         FP_DECODE_MALFORMED},
        {"IPv6 payload cut by its length", ethernet("86dd", v6({.length_change = -13}, dns)),
         FP_DECODE_MALFORMED},
        {"extension header longer than the packet",
         ethernet("86dd", v6({.next = 60}, hex("11 01 0000 00000000"))), FP_DECODE_MALFORMED},
        {"extension header at the packet's end", ethernet("86dd", v6({.next = 43}, {})), FP_DECODE_MALFORMED},
    };
    for (const t_bad &c : bad) {
        t_fp_packet packet = {};
        packet.length = 77;
        EXPECT_EQ(fp_packet_decode(c.frame, &packet), c.want) << c.behaviour;
        EXPECT_EQ(packet.length, 77u) << c.behaviour;
    }
}

TEST(FpPacketShortTest, FlippedBytesAreNeverReadPastTheFrame)
{
    std::mt19937 random(3);
    std::vector<t_good> frames = good_frames();
    for (int round = 0; round < 20000; round++) {
        t_bytes frame = frames[random() % frames.size()].frame;
        for (int i = 0; i < 3; i++)
            frame[random() % frame.size()] = std::byte(random() & 0xff);
        frame.resize(random() % (frame.size() + 1));
        frame.shrink_to_fit();
        t_fp_packet packet = {};
        if (fp_packet_decode(frame, &packet) == FP_DECODE_OK) {
            EXPECT_LE(packet.ip_offset, frame.size());
            EXPECT_GE(packet.length, 20u);
        }
    }
}
