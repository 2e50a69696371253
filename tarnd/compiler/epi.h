// t_epi: a fixed-length bit vector with one bit for each rule of a table.
//
// It reads as an unsigned integer of any size, so that vectors have an order: rule 0 is bit 0, the lowest.
// A digit is one byte; the digit count has 16 bits, which limits a rule table to 524,280 rules. The storage
// is rounded up to whole 64-bit words, and the bits beyond nbits stay 0, so that loops may go by words.
#pragma once

#include <cstdint>

struct t_epi {
    int nbits;
    unsigned short ndigits;  // bytes
    unsigned char *data;     // least significant digit first; owned
};

inline constexpr int EPI_MAX_BITS = 65535 * 8;

// n / m rounded up for a positive remainder; 0 for m = 0.
int epi_ceil(int n, int m);

// A zeroed vector, or null when memory is short. The caller frees it with epi_free.
t_epi *epi_create(int nbits);
t_epi *epi_create_copy(const t_epi *p_src);
void epi_free(t_epi *p_val);

int epi_size(const t_epi *p_val);

// Bits. Setting: the value 1 sets, every other value clears. A position outside the vector is an assertion.
int epi_get_bit(const t_epi *p_val, int pos);
void epi_set_bit(t_epi *p_val, int pos, int value);

// Digits. A position outside the vector is an assertion.
unsigned char epi_get_byte(const t_epi *p_val, int pos);
void epi_set_byte(t_epi *p_val, int pos, unsigned char byte);

// Finds the lowest set bit. *p_index is its position, or nbits when the result is false.
bool epi_find_first(const t_epi *p_val, int *p_index);

// Z = X op Y over the digits of Z. X and Y are at least as long as Z (assertion).
void epi_and(t_epi *p_z, const t_epi *p_x, const t_epi *p_y);
void epi_or(t_epi *p_z, const t_epi *p_x, const t_epi *p_y);

// Numeric comparison: 1, -1 or 0. The vectors have the same number of digits (assertion).
int epi_cmp(const t_epi *p_x, const t_epi *p_y);

// Writes the bits to standard output, bit 0 first, and a new line.
void epi_write_binary(const t_epi *p_val);

// Number of 64-bit words behind a vector, and word `index` of it (bits 64 * index and up).
int epi_words(const t_epi *p_val);
uint64_t epi_get_word(const t_epi *p_val, int index);
