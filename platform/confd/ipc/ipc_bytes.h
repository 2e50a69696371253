// Writing and reading the bytes of messages: big-endian integers, and texts with their length before them.
//
// A reader never reads past its span. The first thing that doesn't fit makes it fail for good: from then on
// it gives zeros and empty texts, so a decoder reads all fields first and looks at failed() once. A writer
// fails in the same way when the bytes would no longer fit in a frame.
#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <vector>

class IpcWriter {
public:
    void integer(uint64_t value, size_t size);  // the low size bytes, 1 to 8
    void u8(uint8_t value)
    {
        integer(value, 1);
    }
    void u32(uint32_t value)
    {
        integer(value, 4);
    }
    void text(std::string_view value);
    void raw(const void *p_data, size_t size);
    void fail()
    {
        _failed = true;
    }

    bool failed() const
    {
        return _failed;
    }
    std::vector<uint8_t> take();  // empty if failed

private:
    std::vector<uint8_t> _bytes;
    bool _failed = false;
};

class IpcReader {
public:
    explicit IpcReader(std::span<const uint8_t> bytes) : _rest(bytes) {}

    uint64_t integer(size_t size);  // 1 to 8 bytes
    uint8_t u8()
    {
        return static_cast<uint8_t>(integer(1));
    }
    uint32_t u32()
    {
        return static_cast<uint32_t>(integer(4));
    }

    // The number of elements that follow; fails when each of them, with at least element_size bytes, could
    // not be there.
    uint32_t count(size_t element_size);

    std::span<const uint8_t> raw(size_t size);  // points into the reader's span
    std::string text();
    void fail();

    bool failed() const
    {
        return _failed;
    }
    bool at_end() const
    {
        return _rest.empty();
    }

private:
    std::span<const uint8_t> _rest;
    bool _failed = false;
};
