#include "lab/ttmd/ttm_record.h"

#include "platform/ttm/ttm.h"
#include "tests/lab/peers/record_faults.h"

#include <gtest/gtest.h>
#include <random>

using t_bytes = std::vector<uint8_t>;

static t_bytes golden_registration()
{
    return {1, 1, 1, 0, 0, 9, 0, 12, 1, 0, 0, 0};
}

// Each field of the golden locator has a value of its own.
static t_ttm_record golden_record()
{
    t_ttm_record record = {};
    record.type = TTM_RECORD_TLOC_ADD;
    record.client = 2;
    t_ttm_locator &locator = record.locator;
    locator.epoch = 0x01020304;
    locator.name = {.ip_version = 4, .address = {10, 1, 2, 3}, .color = 4, .encap = 2};
    locator.origin = 1;
    locator.status = 2;
    locator.path_count = 1;
    locator.bfd = 5;
    locator.index = -2;
    locator.label = 0x11121314;
    locator.attributes = {.flags = 0x2122232425262728,
                          .preference = 0x31,
                          .weight = 0x32,
                          .site = 0x33,
                          .version = 0x34,
                          .generation = 0x35,
                          .carrier = 0x36,
                          .restricted = 0x37,
                          .border = 0x38,
                          .stale = 0x39,
                          .group_count = 4,
                          .installed = 0x3a,
                          .last_resort = 0x3b,
                          .groups = {0x41, 0x42, 0x43, 0x44},
                          .loss = 0x45,
                          .latency = 0x46,
                          .jitter = 0x47,
                          .last_resort_hold = 0x48};
    locator.last_resort = 0x51;
    locator.last_resort_hold = 0x52;
    locator.paths[0] = {.local_index = 0x61,
                        .border_index = -1,
                        .mtu = 1500,
                        .label_count = 2,
                        .labels = {0x62, 0x63},
                        .sla_bitmap = 0x64};
    return record;
}

static t_bytes golden_locator()
{
    return {
        1,
        5,
        0,
        0,
        0,
        2,
        0,
        164,  // header
        1,
        2,
        3,
        4,
        4,
        4,
        2,
        0,
        10,
        1,
        2,
        3,
        0,
        0,
        0,
        0,
        0,
        0,
        0,
        0,
        0,
        0,
        0,
        0,  // epoch, name
        1,
        2,
        1,
        5,
        0xff,
        0xff,
        0xff,
        0xfe,
        0x11,
        0x12,
        0x13,
        0x14,  // origin to label
        0x21,
        0x22,
        0x23,
        0x24,
        0x25,
        0x26,
        0x27,
        0x28,  // flags
        0,
        0,
        0,
        0x31,
        0,
        0,
        0,
        0x32,
        0,
        0,
        0,
        0x33,
        0,
        0,
        0,
        0x34,
        0,
        0,
        0,
        0x35,
        0x36,
        0x37,
        0x38,
        0x39,
        0,
        4,
        0x3a,
        0x3b,  // carrier to last resort
        0,
        0,
        0,
        0x41,
        0,
        0,
        0,
        0x42,
        0,
        0,
        0,
        0x43,
        0,
        0,
        0,
        0x44,  // groups
        0,
        0,
        0,
        0x45,
        0,
        0,
        0,
        0x46,
        0,
        0,
        0,
        0x47,
        0,
        0,
        0,
        0x48,  // SLA, hold
               // time
        0x51,
        0,
        0,
        0,
        0,
        0,
        0,
        0x52,  // last resort
        0,
        0,
        0,
        0,
        0,
        0,
        0,
        0,
        0,
        0,
        0,
        0,
        0,
        0,
        0,
        0,
        0,
        0,
        0,
        0,  // up to 140
        0,
        0,
        0,
        0x61,
        0xff,
        0xff,
        0xff,
        0xff,
        5,
        0xdc,
        2,
        0,
        0,
        0,
        0,
        0x62,
        0,
        0,
        0,
        0x63,
        0,
        0,
        0,
        0x64,
    };
}

static std::string fault_of(const t_bytes &bytes)
{
    t_ttm_record record;
    std::string reason;
    return ttm_record_decode(bytes, &record, &reason) ? "" : reason;
}

TEST(TtmRecordGolden, RegistrationAndLocator)
{
    EXPECT_EQ(ttm_record_encode(golden_record()), golden_locator());
    for (const t_bytes &bytes : {golden_locator(), golden_registration()}) {
        t_ttm_record record;
        std::string reason;
        ASSERT_TRUE(ttm_record_decode(bytes, &record, &reason)) << reason;
        EXPECT_EQ(ttm_record_encode(record), bytes);
    }
    t_ttm_record record;
    std::string reason;
    ASSERT_TRUE(ttm_record_decode(golden_registration(), &record, &reason));
    EXPECT_EQ(record.family, TTM_RECORD_IPV6);
    EXPECT_EQ(record.client, 9);
    EXPECT_EQ(record.announce, 1);
    EXPECT_EQ(record.originate, 0);
}

TEST(TtmRecord, EveryOtherLengthIsRefused)
{
    expect_other_lengths_refused({golden_locator(), golden_registration()}, 7, fault_of);
}

TEST(TtmRecord, WhatIsOutOfItsRangeIsRefused)
{
    static constexpr t_record_fault faults[] = {
        {0, 2, "the version is not 1"},
        {1, 2, "the type is unknown"},
        {1, 7, "the type is unknown"},
        {2, 2, "the address family is not one of locators"},
        {3, 1, "a reserved byte of the header is not 0"},
        {6, 1, "the size in the header is not the record's"},
        {12, 5, "the locator's address is neither of IPv4 nor of IPv6"},
        {31, 1, "the locator's address is neither of IPv4 nor of IPv6"},
        {15, 1, "a reserved byte of the locator's name is not 0"},
        {34, 9, "too many paths"},
        {34, 2, "the record is cut"},
        {34, 0, "bytes behind the record"},
        {77, 5, "too many groups"},
        {115, 1, "reserved bytes of the locator are not 0"},
        {120, 1, "the locator's last bytes are not 0"},
        {139, 1, "the locator's last bytes are not 0"},
        {150, 3, "too many labels"},
        {151, 1, "a reserved byte of a path is not 0, or the paths are cut"},
    };
    expect_faults(golden_locator(), faults, fault_of);
    t_bytes bytes = golden_registration();
    bytes[11] = 1;
    EXPECT_EQ(fault_of(bytes), "reserved bytes of the registration are not 0");
}

// Type and family are left alone: the daemons' codec knows types by their headers that no peer sends, and
// doesn't look at a locator's family.
TEST(TtmRecord, TheDaemonsCodecAgrees)
{
    std::mt19937 random(20);
    int taken = 0;
    for (int round = 0; round < 20'000; round++) {
        t_bytes bytes = round % 8 == 0 ? golden_registration() : golden_locator();
        for (size_t changes = random() % 4; changes > 0; changes--) {
            size_t offset = random() % bytes.size();
            if (offset != 1 && offset != 2)
                bytes[offset] = static_cast<uint8_t>(random() % 3 == 0 ? random() % 10 : random());
        }
        t_ttm_msg message;
        bool is_taken = fault_of(bytes).empty();
        ASSERT_EQ(ttm_msg_decode(&message, bytes.data(), bytes.size()) == 0, is_taken)
            << round << fault_of(bytes);
        if (!is_taken)
            continue;
        taken++;
        uint8_t again[TTM_WIRE_SIZE_MAX];
        uint16_t size = 0;
        ASSERT_EQ(ttm_msg_encode(&message, again, &size), 0) << round;
        bytes[2] = again[2];
        ASSERT_EQ(t_bytes(again, again + size), bytes) << round;
    }
    EXPECT_GT(taken, 5'000);
}
