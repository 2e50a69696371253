// Live mode without sockets: what the plane makes of frames, byte by byte.
#include "lab/fp/fp_live_plane.h"
#include "tests/lab/fp/fp_ask.h"
#include "tests/lab/fp/frames.h"

#include <algorithm>
#include <random>

static const char *const config_text = R"({
    "ports": [{"interface": "ge0/1", "vpn": 10, "address": ["192.168.1.1/24", "fd00:1::1/64"]},
              {"interface": "ge0/0", "vpn": 20, "side": "tunnel", "address": ["10.1.0.1/24", "fd00:2::1/64"]}],
    "routes": [{"prefix": "10.0.0.0/8", "via": "10.1.0.9"}, {"prefix": "10.2.0.0/16", "port": "ge0/1"},
               {"prefix": "::/0", "via": "fd00:2::9"}]})";

static const std::string macs = "02 00 00 00 00 01  06 00 00 00 00 05";  // to port 0, from the host there

static t_fp_wire_bytes wire(const std::string &text)
{
    t_bytes bytes = hex(text);
    t_fp_wire_bytes frame(bytes.size());
    std::transform(bytes.begin(), bytes.end(), frame.begin(),
                   [](std::byte b) { return std::to_integer<uint8_t>(b); });
    return frame;
}

class FpLiveGoldenTest : public FpAsking {
protected:
    void SetUp() override
    {
        std::string error;
        ASSERT_TRUE(fp_live_config_parse(config_text, &plane.config, &error)) << error;
        plane.p_service = &service;
        plane.ports = {{{2, 0, 0, 0, 0, 1}, 1500, {}}, {{2, 0, 0, 0, 0, 2}, 1500, {}}};
        plane.send = [this](size_t port, std::span<const uint8_t> frame) {
            sent.emplace_back(port, t_fp_wire_bytes(frame.begin(), frame.end()));
        };
    }

    void take(size_t port, t_fp_wire_bytes frame)
    {
        fp_live_frame(&plane, port, frame, now_ms);
    }

    // The only frame sent since the last call.
    t_fp_wire_bytes only(size_t port)
    {
        auto frames = std::exchange(sent, {});
        EXPECT_EQ(frames.size(), 1u);
        if (frames.size() != 1)
            return {};
        EXPECT_EQ(frames[0].first, port);
        return frames[0].second;
    }

    uint64_t drops(size_t port, e_fp_live_drop reason)
    {
        return plane.ports[port].counts.drops[reason];
    }

    t_fp_live_plane plane = {};
    std::vector<std::pair<size_t, t_fp_wire_bytes>> sent;
    uint64_t now_ms = 1000000;
};

// UDP 192.168.1.5:1 to 10.1.0.10:2, 64 hops, no congestion; its checksum is right.
static const std::string packet4 = "4500001c 00000000 4011af19 c0a80105 0a01000a 00010002 00080000";

TEST_F(FpLiveGoldenTest, APacketIsForwardedOnceItsNeighbourIsKnown)
{
    take(0, wire(macs + "0800" + packet4 + "0000"));  // padded
    EXPECT_EQ(only(1), wire("ffffffffffff 020000000002 0806 0001 0800 06 04 0001 020000000002 0a010001"
                            "000000000000 0a01000a"));
    take(1, wire("020000000002 0600000000aa 0806 0001 0800 06 04 0002 0600000000aa 0a01000a"
                 "020000000002 0a010001"));
    std::string out =
        "0600000000aa 020000000002 0800 4500001c 00000000 3f11b019 c0a80105 0a01000a 0001000200080000";
    EXPECT_EQ(only(1), wire(out));
    take(0, wire(macs + "0800" + packet4));
    EXPECT_EQ(only(1), wire(out));

    // Three unanswered questions, then what waits is dropped.
    take(0, wire(macs + "0800 4500001c 00000000 4011af18 c0a80105 0a01000b 0001000200080000"));
    for (int i = 0; i < 3; i++)
        fp_live_turn(&plane, now_ms += 1000);
    EXPECT_EQ(sent.size(), 3u);
    EXPECT_EQ(drops(1, FP_LIVE_DROP_WAITING), 1u);
}

TEST_F(FpLiveGoldenTest, OwnAddressesAnswer)
{
    // ARP, a ping, neighbour discovery, a ping of IPv6.
    take(0, wire("ffffffffffff 060000000005 0806 0001 0800 06 04 0001 060000000005 c0a80105 000000000000 "
                 "c0a80101"));
    EXPECT_EQ(only(0), wire("060000000005 020000000001 0806 0001 0800 06 04 0002 020000000001 c0a80101"
                            "060000000005 c0a80105"));
    take(0, wire(macs + "0800 45000020 00000000 20011787 c0a80105 c0a80101 0800f3f6 00010002 01020304"));
    EXPECT_EQ(only(0), wire("060000000005 020000000001 0800 45000020 00000000 4001f786 c0a80101 c0a80105"
                            "0000fbf6 00010002 01020304"));
    std::string host6 = "fd000001000000000000000000000005";
    std::string own6 = "fd000001000000000000000000000001";
    take(0, wire("3333ff000001 060000000005 86dd 60000000 0020 3a ff " + host6 +
                 "ff0200000000000000000001ff000001 8700798f 00000000" + own6 + "0101060000000005"));
    EXPECT_EQ(only(0), wire("060000000005 020000000001 86dd 60000000 0020 3a ff" + own6 + host6 +
                            "88009c95 e0000000" + own6 + "0201020000000001"));
    take(0, wire(macs + "86dd 60000000 0008 3a 40" + host6 + own6 + "8000 85b0 0001 0002"));
    EXPECT_EQ(only(0), wire("060000000005 020000000001 86dd 60000000 0008 3a 40" + own6 + host6 +
                            "8100 84b0 0001 0002"));
    take(0, wire(macs + "0800 4500001c 00000000 4011 f77a c0a80105 c0a80101 0001000200080000"));
    EXPECT_EQ(drops(0, FP_LIVE_DROP_LOCAL), 1u);
}

TEST_F(FpLiveGoldenTest, WhatCannotGoOnIsCountedAndItsSenderTold)
{
    take(0, wire(macs + "0800 4500001c 00000000 0111ee19 c0a80105 0a01000a 0001000200080000"));
    EXPECT_EQ(only(0),
              wire("060000000005 020000000001 0800 45000038 00004000 4001b76e c0a80101 c0a80105"
                   "0b00f4f4 00000000 4500001c 00000000 0111ee19 c0a80105 0a01000a 0001000200080000"));
    plane.ports[1].mtu = 27;
    take(0, wire(macs + "0800" + packet4));
    t_fp_wire_bytes told = only(0);
    ASSERT_GE(told.size(), 42u);
    EXPECT_EQ(t_fp_wire_bytes(told.begin() + 34, told.begin() + 42),
              (t_fp_wire_bytes{3, 4, 0xfc, 0xd5, 0, 0, 0, 27}));
    take(0, wire(macs + "0800 4500001c 00000000 4011ae19 c0a80105 0a01000a 0001000200080000"));  // checksum
    take(0, wire("020000000009 060000000005 0800" + packet4));
    take(0, wire(macs + "8100 0007 0800" + packet4));
    take(0, wire(macs + "0800 4500001c 00000000 40117d22 c0a80105 cb007101 0001000200080000"));
    for (e_fp_live_drop reason : {FP_LIVE_DROP_HOPS, FP_LIVE_DROP_TOO_BIG, FP_LIVE_DROP_MALFORMED,
                                  FP_LIVE_DROP_NOT_FOR_US, FP_LIVE_DROP_NOT_IP, FP_LIVE_DROP_NO_ROUTE})
        EXPECT_EQ(drops(0, reason), 1u) << fp_live_drop_name(reason);
}

// An answer built for such an address would be of the other family, and shorter than what is put into it.
TEST_F(FpLiveGoldenTest, MappedAddressesHaveNoPlaceInIpv6)
{
    std::string host6 = "fd000001000000000000000000000005";
    std::string mapped = "00000000000000000000ffffc0a80101";
    std::string group = "ff0200000000000000000001ff000001";
    take(0, wire(macs + "86dd 60000000 0008 11 01" + mapped + host6 + "0001000200080000"));
    take(0, wire(macs + "86dd 60000000 0008 11 40" + host6 + mapped + "0001000200080000"));
    EXPECT_EQ(drops(0, FP_LIVE_DROP_MALFORMED), 2u);
    take(0, wire("3333ff000001 060000000005 86dd 60000000 0018 3a ff " + host6 + group + "8700bbf6 00000000" +
                 mapped));
    EXPECT_EQ(drops(0, FP_LIVE_DROP_GROUP), 1u);
    EXPECT_TRUE(sent.empty());
}

TEST_F(FpLiveGoldenTest, AMirrorsCopyIsThePacketBehindAnOuterHeader)
{
    t_fp_wire_bytes packet = wire(packet4);
    t_fp_live_address from = fp_live_address_v4(std::array<uint8_t, 4>{10, 1, 0, 1});
    t_fp_live_address to = fp_live_address_v4(std::array<uint8_t, 4>{10, 1, 0, 9});
    EXPECT_EQ(fp_wire_mirror(packet, from, to),
              wire("000000000000 000000000000 0800 45000034 00004000 402f2690 0a010001 0a010009 00000800" +
                   packet4));
    EXPECT_EQ(fp_wire_mirror(packet, {1}, {2}),
              wire("000000000000 000000000000 86dd 60000000 0020 2f 40 01000000000000000000000000000000"
                   "02000000000000000000000000000000 00000800" +
                   packet4));
}

// A changed checksum is the one that would be made anew, whatever the header holds.
TEST(FpLiveShortTest, RewritingKeepsTheHeaderSound)
{
    std::mt19937 random(20261);
    for (int i = 0; i < 20000; i++) {
        t_fp_wire_bytes packet(20);
        std::generate(packet.begin(), packet.end(), [&] { return static_cast<uint8_t>(random()); });
        packet[0] = 0x45;
        packet[8] |= 2;
        packet[10] = packet[11] = 0;
        uint32_t sum = 0;
        for (size_t k = 0; k < 20; k += 2)
            sum += static_cast<uint32_t>(packet[k] << 8 | packet[k + 1]);
        sum = (sum & 0xffff) + (sum >> 16);
        sum = ~((sum & 0xffff) + (sum >> 16));
        packet[10] = static_cast<uint8_t>(sum >> 8);
        packet[11] = static_cast<uint8_t>(sum);
        ASSERT_TRUE(fp_wire_header_is_sound(packet));
        uint8_t low_bits = packet[1] & 3;
        fp_wire_hops_lower(packet);
        ASSERT_TRUE(fp_wire_header_is_sound(packet));
        fp_wire_dscp_set(packet, static_cast<uint8_t>(i & 63));
        ASSERT_TRUE(fp_wire_header_is_sound(packet));
        ASSERT_EQ(packet[1], (i & 63) << 2 | low_bits);
    }
}

TEST_F(FpLiveGoldenTest, TheLongestPrefixOfTheFamilyCounts)
{
    struct t_case {
        const char *behaviour;
        t_fp_live_address address;
        size_t port;
        bool is_via;
    };
    auto v4 = [](uint8_t a, uint8_t b, uint8_t c, uint8_t d) {
        return fp_live_address_v4(std::array<uint8_t, 4>{a, b, c, d});
    };
    const t_case cases[] = {
        {"a port's own network", v4(10, 1, 0, 77), 1, false},
        {"a route by a neighbour", v4(10, 9, 0, 1), 1, true},
        {"a longer route by a port", v4(10, 2, 0, 1), 0, false},
        {"the default of IPv6", {0x20, 1}, 1, true},
        {"no default of IPv4", v4(203, 0, 113, 1), 2, false},
    };
    for (const t_case &c : cases) {
        const t_fp_live_route *p_route = fp_live_route_find(plane.config, c.address);
        EXPECT_EQ(p_route == nullptr ? 2 : p_route->port, c.port) << c.behaviour;
        EXPECT_EQ(p_route != nullptr && p_route->via.has_value(), c.is_via) << c.behaviour;
    }
    for (const char *text :
         {"[]", "{}", R"({"ports": [{"vpn": 1}]})", R"({"ports": [{"interface": 3}]})",
          R"({"ports": [{"interface": "a", "address": ["1.2.3.4/33"]}]})",
          R"({"ports": [{"interface": "a"}], "routes": [{"prefix": "::/0", "via": "::1"}]})"}) {
        std::string error;
        t_fp_live_config config;
        EXPECT_FALSE(fp_live_config_parse(text, &config, &error)) << text;
        EXPECT_NE(error, "");
    }
}
