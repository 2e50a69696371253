#include "tarnd/compiler/tarn_cmp.h"

#include "common/lum_assert.h"
#include "tarnd/compiler/epi.h"
#include "tarnd/compiler/interval.h"

#include <cstdint>

static int compare(uint32_t a, uint32_t b)
{
    return a < b ? -1 : a > b ? 1 : 0;
}

int uint32s_cmp(void *p_a, void *p_b)
{
    return compare(*static_cast<const uint32_t *>(p_a), *static_cast<const uint32_t *>(p_b));
}

int epi_cmp(const t_epi *p_x, const t_epi *p_y)
{
    LUM_ASSERT(p_x, "pX");
    LUM_ASSERT(p_y, "pY");
    LUM_ASSERT(p_x->ndigits == p_y->ndigits, "pX->ndigits == pY->ndigits");
    for (int i = epi_words(p_x) - 1; i >= 0; i--) {
        uint64_t x = epi_get_word(p_x, i);
        uint64_t y = epi_get_word(p_y, i);
        if (x != y)
            return x > y ? 1 : -1;
    }
    return 0;
}

int bitvectors_cmp(void *p_a, void *p_b)
{
    return epi_cmp(static_cast<const t_epi *>(p_a), static_cast<const t_epi *>(p_b));
}

int intervals_cmp(void *p_a, void *p_b)
{
    return compare(static_cast<const t_interval *>(p_a)->i_min, static_cast<const t_interval *>(p_b)->i_min);
}

int overlap_intervals_cmp(void *p_a, void *p_b)
{
    const t_interval *p_x = static_cast<const t_interval *>(p_a);
    const t_interval *p_y = static_cast<const t_interval *>(p_b);
    int by_width = compare(p_x->i_max - p_x->i_min, p_y->i_max - p_y->i_min);
    return by_width != 0 ? by_width : compare(p_x->i_min, p_y->i_min);
}

int intervals_within(void *p_value, void *p_interval)
{
    uint32_t value = *static_cast<const uint32_t *>(p_value);
    const t_interval *p_ival = static_cast<const t_interval *>(p_interval);
    if (value < p_ival->i_min)
        return -1;
    return value >= p_ival->i_max ? 1 : 0;
}
