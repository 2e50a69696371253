#include "tarnd/compiler/epi.h"

#include "tests/support/random_table.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <csignal>
#include <memory>
#include <random>
#include <vector>

struct t_epi_deleter {
    void operator()(t_epi *p_val) const
    {
        epi_free(p_val);
    }
};
using epi_ptr = std::unique_ptr<t_epi, t_epi_deleter>;

namespace {

// The same bits twice: bit i of `bits` is bit i of `val`.
struct t_twin {
    epi_ptr val;
    std::vector<bool> bits;
};

}  // namespace

static t_twin twin_random(std::mt19937 *p_random, int nbits)
{
    t_twin twin = {epi_ptr(epi_create(nbits)), std::vector<bool>(static_cast<size_t>(nbits))};
    uint32_t density = random_below(p_random, 5);
    for (int i = 0; i < nbits; i++) {
        bool bit = random_below(p_random, 4) < density;
        epi_set_bit(twin.val.get(), i, bit ? 1 : 0);
        twin.bits[static_cast<size_t>(i)] = bit;
    }
    return twin;
}

static std::vector<bool> bits_of(const t_epi *p_val)
{
    std::vector<bool> bits;
    for (int i = 0; i < epi_size(p_val); i++)
        bits.push_back(epi_get_bit(p_val, i) != 0);
    return bits;
}

// Numeric order: the highest bit that differs decides.
static int bits_cmp(const std::vector<bool> &x, const std::vector<bool> &y)
{
    for (size_t i = x.size(); i-- > 0;)
        if (x[i] != y[i])
            return x[i] ? 1 : -1;
    return 0;
}

static void expect_same_as_bits(const t_twin &x, const t_twin &y)
{
    int nbits = epi_size(x.val.get());
    epi_ptr z(epi_create(nbits));
    std::vector<bool> want = x.bits;
    epi_and(z.get(), x.val.get(), y.val.get());
    std::transform(want.begin(), want.end(), y.bits.begin(), want.begin(), std::logical_and<>());
    EXPECT_EQ(bits_of(z.get()), want);
    epi_or(z.get(), x.val.get(), y.val.get());
    std::transform(x.bits.begin(), x.bits.end(), y.bits.begin(), want.begin(), std::logical_or<>());
    EXPECT_EQ(bits_of(z.get()), want);

    EXPECT_EQ(epi_cmp(x.val.get(), y.val.get()), bits_cmp(x.bits, y.bits));
    EXPECT_EQ(epi_cmp(x.val.get(), x.val.get()), 0);
    epi_ptr copy(epi_create_copy(x.val.get()));
    EXPECT_EQ(bits_of(copy.get()), x.bits);

    auto first = std::find(x.bits.begin(), x.bits.end(), true);
    int index = -1;
    EXPECT_EQ(epi_find_first(x.val.get(), &index), first != x.bits.end());
    EXPECT_EQ(index, first - x.bits.begin());
}

TEST(Epi, BehavesAsAVectorOfBits)
{
    for (int nbits : {1, 2, 7, 8, 9, 63, 64, 65, 127, 129, 400, 1000})
        for (unsigned seed = 1; seed <= 40; seed++) {
            SCOPED_TRACE(testing::Message() << nbits << " bits, seed " << seed);
            std::mt19937 random(seed);
            expect_same_as_bits(twin_random(&random, nbits), twin_random(&random, nbits));
        }
}

TEST(Epi, OnlyTheValueOneSetsABit)
{
    epi_ptr val(epi_create(12));
    for (int value : {0, 2, 3, -1, 256}) {
        epi_set_bit(val.get(), 9, 1);
        epi_set_bit(val.get(), 9, value);
        EXPECT_EQ(epi_get_bit(val.get(), 9), 0) << value;
    }
    epi_set_byte(val.get(), 1, 0x0a);  // bits 9 and 11
    EXPECT_EQ(epi_get_bit(val.get(), 9) << 1 | epi_get_bit(val.get(), 11) << 3, epi_get_byte(val.get(), 1));
    testing::internal::CaptureStdout();
    epi_write_binary(val.get());
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "000000000101\n");
}

TEST(Epi, CountsDigits)
{
    EXPECT_EQ(epi_ceil(7, 0), 0);
    EXPECT_EQ(epi_ceil(16, 8), 2);
    EXPECT_EQ(epi_ceil(17, 8), 3);
    epi_ptr largest(epi_create(EPI_MAX_BITS));
    EXPECT_EQ(largest->ndigits, 65535);
    epi_set_bit(largest.get(), EPI_MAX_BITS - 1, 1);
    int index = 0;
    EXPECT_TRUE(epi_find_first(largest.get(), &index));
    EXPECT_EQ(index, EPI_MAX_BITS - 1);
}

TEST(EpiDeathTest, StopsOnMisuse)
{
    epi_ptr short_val(epi_create(8));
    epi_ptr long_val(epi_create(9));
    auto killed = testing::KilledBySignal(SIGSEGV);
    EXPECT_EXIT(epi_get_bit(short_val.get(), 8), killed, "");
    EXPECT_EXIT(epi_set_bit(nullptr, 0, 1), killed, "");
    EXPECT_EXIT(epi_get_byte(short_val.get(), 1), killed, "");
    EXPECT_EXIT(epi_find_first(short_val.get(), nullptr), killed, "");
    EXPECT_EXIT(epi_and(long_val.get(), short_val.get(), long_val.get()), killed, "");
    EXPECT_EXIT(epi_or(long_val.get(), long_val.get(), short_val.get()), killed, "");
    EXPECT_EXIT(epi_cmp(short_val.get(), long_val.get()), killed, "");
}
