#include "platform/ttm/ttm.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <random>
#include <vector>

using t_bytes = std::vector<uint8_t>;

static t_bytes encode(const t_ttm_msg &msg)
{
    t_bytes bytes(TTM_WIRE_SIZE_MAX, 0xee);
    uint16_t length = 0;
    if (ttm_msg_encode(&msg, bytes.data(), &length) != 0)
        return {};
    bytes.resize(length);
    return bytes;
}

// From a block of exactly that size, so that a sanitizer sees each byte too far.
static int decode(const t_bytes &bytes, t_ttm_msg *p_msg)
{
    t_bytes exact(bytes.begin(), bytes.end());
    exact.shrink_to_fit();
    memset(p_msg, 0xee, sizeof(*p_msg));
    return ttm_msg_decode(p_msg, exact.data(), exact.size());
}

static bool is_all_zero(const t_ttm_msg &msg)
{
    const uint8_t *p_bytes = reinterpret_cast<const uint8_t *>(&msg);
    return std::all_of(p_bytes, p_bytes + sizeof(msg), [](uint8_t byte) { return byte == 0; });
}

// A TLOC with a value of its own in each field.
static t_ttm_msg sample_tloc()
{
    t_ttm_msg msg = {};
    msg.msg_type = TTM_MSG_TLOC_ADD;
    msg.client_id = 0x0102;
    msg.af = TTM_AF_TLOC_IPV4;
    t_ttm_tloc_msg &tloc = msg.u.tloc_msg;
    tloc.epoch_id = 0x11121314;
    IPADDR_SET_V4(&tloc.tloc.addr, 0x0a000102);
    tloc.tloc.color = 3;
    tloc.tloc.encap = 2;
    tloc.tloc_origin = TTM_TLOC_ORIGIN_REMOTE;
    tloc.tloc_status = TTM_TLOC_STATUS_UP;
    tloc.tloc_index = -2;
    tloc.tloc_label = 0x21222324;
    tloc.path_count = 1;
    tloc.paths[0] = {-3, 0x31323334, 0x4142, 2, {0x51525354, 0x61626364}, 0x71727374};
    tloc.bfd_enabled = 4;
    tloc.lr_enabled = 5;
    tloc.lr_hold_time_down = 0x81828384;
    t_ttm_attr &attr = tloc.attr;
    attr.attr_flags = 0x9192939495969798;
    attr.preference = 0xa1a2a3a4;
    attr.weight = 0xb1b2b3b4;
    attr.site_id = 0xc1c2c3c4;
    attr.version = 0xd1d2d3d4;
    attr.gen_id = 0xe1e2e3e4;
    attr.carrier = 6;
    attr.restrict1 = 7;
    attr.border = 8;
    attr.tloc_stale = 9;
    attr.group_count = 4;
    attr.tloc_installed = 10;
    attr.lr_enabled = 11;
    for (uint32_t i = 0; i < TTM_GROUPS_MAX; i++)
        attr.group[i] = 0xf1f2f300 + i;
    attr.sla = {0x01010101, 0x02020202, 0x03030303};
    attr.lr_hold_time_down = 0x04040404;
    return msg;
}

static const t_bytes golden_tloc = {
    1,    5,    0,    0,    0x01, 0x02, 0,    164,   // header
    0x11, 0x12, 0x13, 0x14, 4,    3,    2,    0,     // epoch, address type, color, encapsulation
    10,   0,    1,    2,    0,    0,    0,    0,     // address
    0,    0,    0,    0,    0,    0,    0,    0,     //
    2,    1,    1,    4,    0xff, 0xff, 0xff, 0xfe,  // origin, status, paths, bfd, index
    0x21, 0x22, 0x23, 0x24, 0x91, 0x92, 0x93, 0x94,  // label, flags
    0x95, 0x96, 0x97, 0x98, 0xa1, 0xa2, 0xa3, 0xa4,  // preference
    0xb1, 0xb2, 0xb3, 0xb4, 0xc1, 0xc2, 0xc3, 0xc4,  // weight, site
    0xd1, 0xd2, 0xd3, 0xd4, 0xe1, 0xe2, 0xe3, 0xe4,  // version, generation
    6,    7,    8,    9,    0,    4,    10,   11,    // carrier ... groups, installed, lr
    0xf1, 0xf2, 0xf3, 0x00, 0xf1, 0xf2, 0xf3, 0x01,  // groups
    0xf1, 0xf2, 0xf3, 0x02, 0xf1, 0xf2, 0xf3, 0x03,  //
    1,    1,    1,    1,    2,    2,    2,    2,    3, 3,
    3,    3,    4,    4,    4,    4,                       // loss, latency, jitter, hold time
    5,    0,    0,    0,    0x81, 0x82, 0x83, 0x84,        // lr, hold time
    0,    0,    0,    0,    0,    0,    0,    0,    0, 0,  //
    0,    0,    0,    0,    0,    0,    0,    0,    0, 0,  //
    0xff, 0xff, 0xff, 0xfd, 0x31, 0x32, 0x33, 0x34,        // path: indices
    0x41, 0x42, 2,    0,    0x51, 0x52, 0x53, 0x54,        // mtu, labels
    0x61, 0x62, 0x63, 0x64, 0x71, 0x72, 0x73, 0x74,        // sla
};

TEST(TtmCodecGolden, MessagesInBytes)
{
    t_ttm_msg msg = {};
    msg.msg_type = TTM_MSG_REGISTER;
    msg.client_id = 9;
    msg.af = TTM_AF_TLOC_IPV6;
    msg.u.register_msg = {.announce = 1, .originate = 0};
    EXPECT_EQ(encode(msg), (t_bytes{1, 1, 1, 0, 0, 9, 0, 12, 1, 0, 0, 0}));
    EXPECT_EQ(encode(sample_tloc()), golden_tloc);

    t_ttm_msg read;
    ASSERT_EQ(decode(golden_tloc, &read), 0);
    EXPECT_EQ(encode(read), golden_tloc);
    EXPECT_EQ(read.client_id, 0x0102u);
    EXPECT_EQ(read.u.tloc_msg.tloc.addr.u.addr4.s_addr, 0x0a000102u);
    EXPECT_EQ(read.u.tloc_msg.tloc_index, -2);
    EXPECT_EQ(read.u.tloc_msg.tloc_status, TTM_TLOC_STATUS_UP);
    EXPECT_EQ(read.u.tloc_msg.attr.preference, 0xa1a2a3a4u);
    EXPECT_EQ(read.u.tloc_msg.attr.weight, 0xb1b2b3b4u);
}

TEST(TtmCodecTest, MessagesOfTheWrongLengthAreNone)
{
    t_ttm_msg msg;
    for (t_bytes whole : {golden_tloc, t_bytes{1, 1, 1, 0, 0, 9, 0, 12, 1, 0, 0, 0}})
        for (size_t size = 0; size < whole.size() + 30; size++) {
            t_bytes cut = whole;
            cut.resize(size);
            EXPECT_EQ(decode(cut, &msg) == 0, size == whole.size()) << size;
            if (size >= TTM_WIRE_HEADER_SIZE)
                cut[7] = static_cast<uint8_t>(size);
            EXPECT_EQ(decode(cut, &msg) == 0, size == whole.size()) << size << " as told";
            EXPECT_TRUE(size == whole.size() || is_all_zero(msg)) << size;
        }
}

TEST(TtmCodecTest, BadBytesAreNoMessage)
{
    struct t_case {
        const char *behaviour;
        size_t at;
        uint8_t value;
    };
    static const t_case cases[] = {
        {"version", 0, 2},
        {"type 0", 1, 0},
        {"type behind the last", 1, 20},
        {"family", 2, 2},
        {"header gap", 3, 1},
        {"address type", 12, 6 + 4},
        {"gap", 15, 1},
        {"behind IPv4", 20, 1},
        {"behind IPv4, last", 31, 1},
        {"paths", 34, 9},
        {"fewer paths", 34, 0},
        {"more paths", 34, 2},
        {"groups", 77, 5},
        {"groups, high", 76, 1},
        {"gap of 3", 113, 1},
        {"pad", 120, 1},
        {"pad, last", 139, 1},
        {"labels", 150, 3},
        {"gap in a path", 151, 1},
        {"length, high", 6, 1},
    };
    t_ttm_msg msg;
    for (const t_case &c : cases) {
        t_bytes bytes = golden_tloc;
        bytes[c.at] = c.value;
        EXPECT_EQ(decode(bytes, &msg), 74) << c.behaviour;
        EXPECT_TRUE(is_all_zero(msg)) << c.behaviour;
    }
}

TEST(TtmCodecTest, OtherMessagesGiveTheirHeader)
{
    t_ttm_msg msg;
    ASSERT_EQ(decode({1, 17, 9, 0, 0xff, 0xff, 0, 11, 1, 2, 3}, &msg), 0);
    EXPECT_EQ(msg.msg_type, TTM_MSG_TRACKER_ADD);
    EXPECT_EQ(msg.af, TTM_AF_TRACKER);
    EXPECT_EQ(msg.client_id, 0xffffu);
    msg.msg_type = {};
    msg.af = {};
    msg.client_id = 0;
    EXPECT_TRUE(is_all_zero(msg));
}

TEST(TtmCodecTest, WhatDoesNotFitIsNotEncoded)
{
    auto refused = [](auto change) {
        t_ttm_msg msg = sample_tloc();
        change(&msg);
        return encode(msg).empty();
    };
    EXPECT_TRUE(refused([](t_ttm_msg *p) { p->msg_type = TTM_MSG_LINK_ADD; }));
    EXPECT_TRUE(refused([](t_ttm_msg *p) { p->u.tloc_msg.tloc.addr.addr_type = IP_ADDR_UNKNOWN; }));
    EXPECT_TRUE(refused([](t_ttm_msg *p) { p->u.tloc_msg.path_count = 9; }));
    EXPECT_TRUE(refused([](t_ttm_msg *p) { p->u.tloc_msg.paths[0].label_count = 3; }));
    EXPECT_TRUE(refused([](t_ttm_msg *p) { p->u.tloc_msg.attr.group_count = 5; }));
    EXPECT_TRUE(refused([](t_ttm_msg *p) {
        p->msg_type = TTM_MSG_REGISTER;
        p->af = TTM_AF_LINK;
    }));
}

// Random bytes in all places that a message may have them.
static t_bytes random_message(std::mt19937 *p_random)
{
    uint8_t paths = static_cast<uint8_t>((*p_random)() % 9);
    t_bytes bytes(140 + 24u * paths);
    for (uint8_t &byte : bytes)
        byte = static_cast<uint8_t>((*p_random)());
    bool is_v6 = (*p_random)() % 2 != 0;
    const uint8_t header[] = {1, static_cast<uint8_t>(5 + (*p_random)() % 2), is_v6, 0};
    memcpy(bytes.data(), header, sizeof(header));
    bytes[6] = static_cast<uint8_t>(bytes.size() >> 8);
    bytes[7] = static_cast<uint8_t>(bytes.size());
    bytes[12] = is_v6 ? 6 : 4;
    bytes[15] = 0;
    if (!is_v6)
        memset(&bytes[20], 0, 12);
    bytes[34] = paths;
    bytes[76] = 0;
    bytes[77] = static_cast<uint8_t>((*p_random)() % 5);
    memset(&bytes[113], 0, 3);
    memset(&bytes[120], 0, 20);
    for (size_t at = 140; at < bytes.size(); at += 24) {
        bytes[at + 10] = static_cast<uint8_t>((*p_random)() % 3);
        bytes[at + 11] = 0;
    }
    return bytes;
}

TEST(TtmCodecTest, EveryTlocComesBackInTheSameBytes)
{
    const uint32_t seed = std::random_device{}();
    std::mt19937 random(seed);
    for (int i = 0; i < 2000; i++) {
        t_bytes bytes = random_message(&random);
        t_ttm_msg msg;
        ASSERT_EQ(decode(bytes, &msg), 0) << "seed " << seed;
        ASSERT_EQ(encode(msg), bytes) << "seed " << seed;
    }
}
