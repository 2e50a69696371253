#include "common/crc32.h"

uint32_t g_crc_tbl[256];

static constexpr uint32_t POLYNOMIAL = 0xEDB88320;

void crc_init()
{
    if (g_crc_tbl[255] != 0)
        return;
    for (uint32_t i = 0; i < 256; i++) {
        uint32_t value = i;
        for (int bit = 0; bit < 8; bit++)
            value = value >> 1 ^ ((value & 1) != 0 ? POLYNOMIAL : 0);
        g_crc_tbl[i] = value;
    }
}

uint32_t crc_update(uint32_t crc, const void *p_bytes, size_t len)
{
    crc_init();
    const uint8_t *p_byte = static_cast<const uint8_t *>(p_bytes);
    for (size_t i = 0; i < len; i++)
        crc = crc >> 8 ^ g_crc_tbl[(crc ^ p_byte[i]) & 255];
    return crc;
}

uint32_t crc32c(const void *p_bytes, size_t len)
{
    return ~crc_update(0xFFFFFFFF, p_bytes, len);
}
