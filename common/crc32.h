// The CRC-32 of IEEE 802.3 (reflected polynomial 0xEDB88320).
//
// The table is filled on first use, which must come from the main thread. The hash of the shared tables is
// another one, fp_crc32c, over the Castagnoli polynomial.
#pragma once

#include <cstddef>
#include <cstdint>

extern uint32_t g_crc_tbl[256];

// Fills the table unless that is done already.
void crc_init();

// Continues a CRC over len bytes, without inversion before or after.
uint32_t crc_update(uint32_t crc, const void *p_bytes, size_t len);

// The checksum of one block. In spite of the name it is the CRC of IEEE 802.3; the name stays because the
// callers know it.
uint32_t crc32c(const void *p_bytes, size_t len);
