// Records that break their format: of a wrong length, with a wrong byte.
#pragma once

#include <cstdint>
#include <gtest/gtest.h>
#include <span>
#include <string>
#include <vector>

using f_record_fault = std::string (*)(const std::vector<uint8_t> &bytes);  // empty for a record taken

// Each record cut at every length, and with up to 30 bytes behind it, is refused, also when the byte at
// size_offset, where it tells its size, agrees.
inline void expect_other_lengths_refused(const std::vector<std::vector<uint8_t>> &records, size_t size_offset,
                                         f_record_fault fault_of)
{
    for (const std::vector<uint8_t> &whole : records) {
        for (size_t size = 0; size <= whole.size() + 30; size++) {
            std::vector<uint8_t> bytes = whole;
            bytes.resize(size, size % 2 != 0 ? 'x' : 0);
            if (size == whole.size())
                continue;
            EXPECT_NE(fault_of(bytes), "") << size;
            if (size > size_offset)
                bytes[size_offset] = static_cast<uint8_t>(size);
            EXPECT_NE(fault_of(bytes), "") << size;
        }
    }
}

struct t_record_fault {
    size_t offset;
    uint8_t value;
    const char *reason;
};

// Each fault alone in the record gives its reason.
inline void expect_faults(const std::vector<uint8_t> &record, std::span<const t_record_fault> faults,
                          f_record_fault fault_of)
{
    for (const t_record_fault &fault : faults) {
        std::vector<uint8_t> bytes = record;
        bytes[fault.offset] = fault.value;
        EXPECT_EQ(fault_of(bytes), fault.reason) << fault.offset;
    }
}
