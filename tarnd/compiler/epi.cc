#include "tarnd/compiler/epi.h"

#include "common/lum_assert.h"

#include <bit>
#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

static_assert(std::endian::native == std::endian::little, "words are read as eight digits, lowest first");

int epi_ceil(int n, int m)
{
    if (m == 0)
        return 0;
    return n / m + (n % m > 0 ? 1 : 0);
}

static size_t storage_size(const t_epi *p_val)
{
    return static_cast<size_t>(epi_words(p_val)) * 8;
}

t_epi *epi_create(int nbits)
{
    t_epi *p_val = static_cast<t_epi *>(calloc(1, sizeof(t_epi)));
    if (p_val == nullptr)
        return nullptr;
    p_val->nbits = nbits;
    p_val->ndigits = static_cast<unsigned short>(epi_ceil(nbits, 8));
    // One byte more than nothing, so that an empty vector has storage too.
    p_val->data = static_cast<unsigned char *>(calloc(1, storage_size(p_val) + 1));
    if (p_val->data == nullptr) {
        free(p_val);
        return nullptr;
    }
    return p_val;
}

t_epi *epi_create_copy(const t_epi *p_src)
{
    t_epi *p_val = epi_create(p_src->nbits);
    if (p_val != nullptr)
        memcpy(p_val->data, p_src->data, storage_size(p_src));
    return p_val;
}

void epi_free(t_epi *p_val)
{
    if (p_val == nullptr)
        return;
    free(p_val->data);
    free(p_val);
}

int epi_size(const t_epi *p_val)
{
    return p_val->nbits;
}

int epi_words(const t_epi *p_val)
{
    return epi_ceil(p_val->ndigits, 8);
}

uint64_t epi_get_word(const t_epi *p_val, int index)
{
    uint64_t word;
    memcpy(&word, p_val->data + static_cast<ptrdiff_t>(index) * 8, sizeof(word));
    return word;
}

int epi_get_bit(const t_epi *p_val, int pos)
{
    LUM_ASSERT(p_val, "pVal");
    LUM_ASSERT(pos < p_val->nbits, "bitPos < pVal->nbits");
    return p_val->data[pos / 8] >> (pos % 8) & 1;
}

void epi_set_bit(t_epi *p_val, int pos, int value)
{
    LUM_ASSERT(p_val, "pVal");
    LUM_ASSERT(pos < p_val->nbits, "bitPos < pVal->nbits");
    unsigned char mask = static_cast<unsigned char>(1 << (pos % 8));
    if (value == 1)
        p_val->data[pos / 8] |= mask;
    else
        p_val->data[pos / 8] &= static_cast<unsigned char>(~mask);
}

unsigned char epi_get_byte(const t_epi *p_val, int pos)
{
    LUM_ASSERT(p_val, "pVal");
    LUM_ASSERT(pos < p_val->ndigits, "bytePos < pVal->ndigits");
    return p_val->data[pos];
}

void epi_set_byte(t_epi *p_val, int pos, unsigned char byte)
{
    LUM_ASSERT(p_val, "pVal");
    LUM_ASSERT(pos < p_val->ndigits, "bytePos < pVal->ndigits");
    p_val->data[pos] = byte;
}

bool epi_find_first(const t_epi *p_val, int *p_index)
{
    LUM_ASSERT(p_index, "i");
    for (int i = 0; i < epi_words(p_val); i++) {
        uint64_t word = epi_get_word(p_val, i);
        if (word == 0)
            continue;
        *p_index = i * 64 + std::countr_zero(word);
        if (*p_index < p_val->nbits)
            return true;
        break;
    }
    *p_index = p_val->nbits;
    return false;
}

static void assert_operands(const t_epi *p_z, const t_epi *p_x, const t_epi *p_y)
{
    LUM_ASSERT(p_x, "X");
    LUM_ASSERT(p_y, "Y");
    LUM_ASSERT(p_z, "Z");
    LUM_ASSERT(p_x->nbits >= p_z->nbits, "X->nbits >= Z->nbits");
    LUM_ASSERT(p_y->nbits >= p_z->nbits, "Y->nbits >= Z->nbits");
}

void epi_and(t_epi *p_z, const t_epi *p_x, const t_epi *p_y)
{
    assert_operands(p_z, p_x, p_y);
    for (int i = 0; i < p_z->ndigits; i++)
        p_z->data[i] = p_x->data[i] & p_y->data[i];
}

void epi_or(t_epi *p_z, const t_epi *p_x, const t_epi *p_y)
{
    assert_operands(p_z, p_x, p_y);
    for (int i = 0; i < p_z->ndigits; i++)
        p_z->data[i] = p_x->data[i] | p_y->data[i];
}

void epi_write_binary(const t_epi *p_val)
{
    std::string text;
    for (int i = 0; i < p_val->nbits; i++)
        text += epi_get_bit(p_val, i) ? '1' : '0';
    puts(text.c_str());
}
