#include "tests/tarnd/dpi/dpi_world.h"

#include <gtest/gtest.h>

TEST(DpiNames, Applications)
{
    DpiWorld world;
    world.load("small_bundle.txt");
    dpi_world_log();
    static const struct {
        const char *name;
        uint32_t want;
    } cases[] = {
        {"unclassified", 1}, {"lamp", 17}, {"page", 3400}, {"Unclassified", 0}, {"unclassified2", 0}, {"", 0},
    };
    for (const auto &c : cases)
        EXPECT_EQ(tarn_dpi_get_qosmos_id(c.name), c.want) << c.name;
    EXPECT_EQ(dpi_world_log()[0],
              "Could not find signature for protocol string: Unclassified, error: file does not exists");
    EXPECT_STREQ(tarn_dpi_confd_to_qosmos(3400), "Page of the Web");
    EXPECT_STREQ(tarn_dpi_confd_to_qosmos(1), "UNKNOWN");
    EXPECT_STREQ(tarn_dpi_confd_to_qosmos(0xffffffff), "UNKNOWN");
}

TEST(DpiNames, EveryFamilyIsFoundByBothItsNames)
{
    EXPECT_STREQ(tarn_dpi_qosmos_app_family_enum_str[E_TARN_DPI_MICROSOFT_OFFICE], "microsoft_office");
    EXPECT_STREQ(tarn_dpi_qosmos_app_family_str[E_TARN_DPI_AUDIO_VIDEO], "Audio/Video");
    for (uint32_t family = E_TARN_DPI_ANTIVIRUS; family < E_TARN_DPI_MAX; family++) {
        EXPECT_EQ(tarn_dpi_get_qosmos_app_family(tarn_dpi_qosmos_app_family_str[family]), family);
        EXPECT_EQ(tarn_dpi_get_qosmos_app_family_enum(tarn_dpi_qosmos_app_family_enum_str[family]), family);
    }
    // The bounds' own names, letters without a family, letters outside A to W, and near misses.
    for (const char *name :
         {"Min", "Max", "Home", "Oracle", "Zoo", "web", "@", "", "Webmail ", "Web Mail", "ERPs"})
        EXPECT_EQ(tarn_dpi_get_qosmos_app_family(name), E_TARN_DPI_MAX) << name;
    for (const char *name : {"min", "max", "Web", "", "webmails", "file server"})
        EXPECT_EQ(tarn_dpi_get_qosmos_app_family_enum(name), E_TARN_DPI_MIN) << name;
}
