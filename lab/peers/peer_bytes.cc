#include "lab/peers/peer_bytes.h"

#include <algorithm>

t_peer_bytes peer_read_bytes(t_peer_reader *p_reader, size_t size)
{
    if (size > p_reader->rest.size()) {
        p_reader->is_short = true;
        p_reader->rest = {};
        return {};
    }
    t_peer_bytes bytes = p_reader->rest.first(size);
    p_reader->rest = p_reader->rest.subspan(size);
    return bytes;
}

static uint64_t integer_read(t_peer_reader *p_reader, size_t size)
{
    uint64_t value = 0;
    for (uint8_t byte : peer_read_bytes(p_reader, size))
        value = value << 8 | byte;
    return value;
}

uint8_t peer_read_u8(t_peer_reader *p_reader)
{
    return static_cast<uint8_t>(integer_read(p_reader, 1));
}

uint16_t peer_read_u16(t_peer_reader *p_reader)
{
    return static_cast<uint16_t>(integer_read(p_reader, 2));
}

uint32_t peer_read_u32(t_peer_reader *p_reader)
{
    return static_cast<uint32_t>(integer_read(p_reader, 4));
}

uint64_t peer_read_u64(t_peer_reader *p_reader)
{
    return integer_read(p_reader, 8);
}

bool peer_read_zeros(t_peer_reader *p_reader, size_t size)
{
    t_peer_bytes bytes = peer_read_bytes(p_reader, size);
    return bytes.size() == size && std::all_of(bytes.begin(), bytes.end(), [](uint8_t b) { return b == 0; });
}

static void integer_write(std::vector<uint8_t> *p_bytes, uint64_t value, int size)
{
    for (int shift = 8 * (size - 1); shift >= 0; shift -= 8)
        p_bytes->push_back(static_cast<uint8_t>(value >> shift));
}

void peer_write_u8(std::vector<uint8_t> *p_bytes, uint8_t value)
{
    integer_write(p_bytes, value, 1);
}

void peer_write_u16(std::vector<uint8_t> *p_bytes, uint16_t value)
{
    integer_write(p_bytes, value, 2);
}

void peer_write_u32(std::vector<uint8_t> *p_bytes, uint32_t value)
{
    integer_write(p_bytes, value, 4);
}

void peer_write_u64(std::vector<uint8_t> *p_bytes, uint64_t value)
{
    integer_write(p_bytes, value, 8);
}

void peer_write_bytes(std::vector<uint8_t> *p_bytes, t_peer_bytes bytes)
{
    p_bytes->insert(p_bytes->end(), bytes.begin(), bytes.end());
}

void peer_write_zeros(std::vector<uint8_t> *p_bytes, size_t size)
{
    p_bytes->insert(p_bytes->end(), size, 0);
}
