#include "common/crc32.h"

#include <gtest/gtest.h>

TEST(Crc32, IsThatOfIeee8023InSpiteOfItsName)
{
    EXPECT_EQ(crc32c("123456789", 9), 0xCBF43926u);
    EXPECT_EQ(crc32c("", 0), 0u);
    EXPECT_EQ(g_crc_tbl[1], 0x77073096u);
    EXPECT_EQ(g_crc_tbl[255], 0x2D02EF8Du);
}

TEST(Crc32, GoesOnOverPieces)
{
    uint32_t crc = crc_update(crc_update(0xFFFFFFFF, "1234", 4), "56789", 5);
    EXPECT_EQ(~crc, 0xCBF43926u);
}
