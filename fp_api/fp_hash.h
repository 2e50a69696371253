// The hash of the shared tables: CRC-32C (Castagnoli, reflected polynomial 0x82f63b78, inverted before and
// after) of the key, continued over the four bytes of the seed, lowest byte first. The seed is 0 in all
// tables. A table has a power of two of heads, and the bucket is the hash masked with their number less one.
//
// Not to be confused with crc32c of common/crc32.h, which is another polynomial in spite of its name.
#pragma once

#include <cstddef>
#include <cstdint>

// len is in bytes.
uint32_t fp_crc32c(const void *p_key, size_t len, uint32_t seed);
