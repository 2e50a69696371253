#include "lab/sysmgrd/sysmgr_record.h"

#include "tests/lab/peers/record_faults.h"

#include <gtest/gtest.h>

using t_bytes = std::vector<uint8_t>;

static t_bytes golden_hello()
{
    t_bytes bytes = {1, 1, 32, 0, 0, 0, 0, 0, 0x39, 0x30, 0, 0};
    bytes.resize(32);
    return bytes;
}

static t_bytes golden_reboot()
{
    t_bytes bytes = golden_hello();
    bytes[1] = SYSMGR_RECORD_REBOOT;
    bytes[2] = 36;
    bytes.insert(bytes.end(), {'w', 'h', 'y', 0});
    return bytes;
}

static std::string fault_of(const t_bytes &bytes)
{
    t_sysmgr_record record;
    std::string reason;
    return sysmgr_record_decode(bytes, &record, &reason) ? "" : reason;
}

TEST(SysmgrRecordGolden, EachType)
{
    t_sysmgr_record record;
    std::string reason;
    ASSERT_TRUE(sysmgr_record_decode(golden_hello(), &record, &reason)) << reason;
    EXPECT_EQ(record.type, SYSMGR_RECORD_HELLO);
    EXPECT_EQ(record.pid, 12345u);
    ASSERT_TRUE(sysmgr_record_decode(golden_reboot(), &record, &reason)) << reason;
    EXPECT_EQ(record.reason, "why");
    t_bytes bytes = golden_hello();
    bytes[1] = SYSMGR_RECORD_VPN_START;
    bytes[24] = 0x0A;
    ASSERT_TRUE(sysmgr_record_decode(bytes, &record, &reason)) << reason;
    EXPECT_EQ(record.vpn, 10u);

    t_bytes reply(32);
    reply[0] = 1;
    reply[1] = 4;
    reply[2] = 32;
    reply[8] = 7;
    reply[17] = 2;  // module 9
    EXPECT_EQ(sysmgr_reply_encode(7, uint64_t{1} << 9), reply);
}

TEST(SysmgrRecord, EveryOtherLengthIsRefused)
{
    expect_other_lengths_refused({golden_hello(), golden_reboot()}, 2, fault_of);
}

TEST(SysmgrRecord, WhatDoesNotBelongIsRefused)
{
    static constexpr t_record_fault faults[] = {
        {0, 2, "the version is not 1"},
        {1, 0, "the type is none for the manager"},
        {1, 4, "the type is none for the manager"},
        {1, 8, "the type is none for the manager"},
        {3, 1, "the size in the record is not the record's"},
        {7, 1, "reserved bytes are not 0"},
        {12, 1, "reserved bytes are not 0"},
        {31, 1, "a VPN where none belongs"},
    };
    expect_faults(golden_hello(), faults, fault_of);
    t_bytes bytes = golden_reboot();
    bytes[33] = 0;
    EXPECT_EQ(fault_of(bytes), "bytes behind the reason");
}
