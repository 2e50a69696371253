#include "fp_api/fp_hash.h"

#include <array>

static constexpr uint32_t POLYNOMIAL = 0x82f63b78;

static constexpr std::array<uint32_t, 256> make_table()
{
    std::array<uint32_t, 256> table = {};
    for (uint32_t byte = 0; byte < table.size(); byte++) {
        uint32_t crc = byte;
        for (int bit = 0; bit < 8; bit++)
            crc = (crc >> 1) ^ ((crc & 1) != 0 ? POLYNOMIAL : 0);
        table[byte] = crc;
    }
    return table;
}

static constexpr std::array<uint32_t, 256> g_table = make_table();

static uint32_t update(uint32_t crc, uint8_t byte)
{
    return (crc >> 8) ^ g_table[(crc ^ byte) & 255];
}

uint32_t fp_crc32c(const void *p_key, size_t len, uint32_t seed)
{
    const uint8_t *p_bytes = static_cast<const uint8_t *>(p_key);
    uint32_t crc = ~0u;
    for (size_t i = 0; i < len; i++)
        crc = update(crc, p_bytes[i]);
    for (int shift = 0; shift < 32; shift += 8)
        crc = update(crc, static_cast<uint8_t>(seed >> shift));
    return ~crc;
}
