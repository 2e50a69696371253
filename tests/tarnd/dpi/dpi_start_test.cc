#include "tests/tarnd/dpi/dpi_world.h"

#include <gtest/gtest.h>

#include <algorithm>

#include "classification/qmdpi.h"
#include "common/lum_log.h"
#include "tarnd/dpi/tarn_dpi_private.h"

using t_texts = std::vector<std::string>;

static int collect(qmdpi_bundle *, qmdpi_signature *signature, void *arg)
{
    static_cast<std::vector<qmdpi_signature *> *>(arg)->push_back(signature);
    return 0;
}

TEST(DpiStart, TheLinkedCatalogueFillsTheTables)
{
    DpiWorld world;
    EXPECT_EQ(tarn_dpi_begin_start(&world.tarn), 0);
    EXPECT_TRUE(dpi_world_log().empty()) << "nothing runs in the background";
    EXPECT_EQ(tarn_dpi_finish_start(&world.tarn), 0);
    EXPECT_EQ(dpi_world_log(),
              (t_texts{"Inline initialization - DPI start", "Inline Initialization - DPI end"}));
    EXPECT_EQ(world.tarn.dpi_p, &world.knob);
    EXPECT_STREQ(world.tarn.dpi_version, "Lumora application catalogue 1.0");

    std::vector<qmdpi_signature *> signatures;
    qmdpi_bundle_signature_foreach(p_bundle, collect, &signatures);
    uint32_t highest = 0;
    for (qmdpi_signature *p_signature : signatures) {
        uint32_t id = static_cast<uint32_t>(qmdpi_signature_id_get(p_signature));
        highest = std::max(highest, id);
        uint32_t family = world.mapping[id];
        ASSERT_TRUE(family > E_TARN_DPI_MIN && family < E_TARN_DPI_MAX) << id;
        EXPECT_STREQ(tarn_dpi_qosmos_app_family_str[family], qmdpi_signature_family_get(p_signature));
    }
    EXPECT_EQ(world.mapping[0], highest);
    EXPECT_EQ(world.hits[0], highest);
}

TEST(DpiStart, AFamilyThatIsUnknownLeavesItsWordAndIsLogged)
{
    DpiWorld world;
    world.mapping[17] = 99;
    world.load("small_bundle.txt");
    EXPECT_EQ(dpi_world_log(),
              (t_texts{"Error when getting the family for protocol [17] lamp - Home Automation",
                       "Error when getting the family for protocol [6] lion - Zoo"}));
    EXPECT_EQ(world.mapping[17], 99u);
    EXPECT_EQ(world.mapping[5], E_TARN_DPI_MAIL);
    EXPECT_EQ(world.mapping[3400], E_TARN_DPI_WEB);
    EXPECT_EQ(world.mapping[0], 3400u);
    EXPECT_EQ(world.hits[0], 3400u);
}

TEST(DpiStart, FailuresAreLoggedAndTheDaemonGoesOn)
{
    static const struct {
        const char *failing;
        const char *reason;
        const char *phase;
        bool engine_stays;
    } cases[] = {
        {"engine_create", "cannot create engine instance: invalid param",
         "Error: Failed: dpi engine init; err: -1", false},
        {"create_from_file", "cannot create bundle instance: file does not exists",
         "Error: Failed: dpi engine init; err: -1", false},
        {"enable_all", "error enabling all protocols: device or resource busy",
         "Error: Failed: dpi engine init; err: -1", false},
        {"activate", "cannot activate bundle: bundle can't be swapped",
         "Error: Failed: dpi engine init; err: -1", false},
        {"foreach", "Error when getting the protocol list for protocol-family init - module not initialized",
         "Error: Could not register for protocol families; err: -1", true},
    };
    for (const auto &c : cases) {
        DpiWorld world;
        world.failing = c.failing;
        world.hits[0] = 7;
        EXPECT_EQ(tarn_dpi_begin_start(&world.tarn), 0);
        EXPECT_EQ(tarn_dpi_finish_start(&world.tarn), 0) << c.failing;
        EXPECT_EQ(dpi_world_log(),
                  (t_texts{"Inline initialization - DPI start", c.reason, c.phase,
                           "Inline DPI initialization failed: -1", "Inline Initialization - DPI end"}));
        EXPECT_EQ(world.tarn.dpi_p, &world.knob) << c.failing;
        EXPECT_STREQ(world.tarn.dpi_version, "") << c.failing;
        EXPECT_EQ(world.hits[0], 7u) << c.failing;
        EXPECT_EQ(tarn_dpi_get_qosmos_id("http") != 0, c.engine_stays) << c.failing;
        EXPECT_STREQ(tarn_dpi_confd_to_qosmos(5000), "UNKNOWN") << c.failing;
    }
}

TEST(DpiStart, DestroyIsLoggedUnderItsTopicAndMayComeTwice)
{
    DpiWorld world;
    ASSERT_EQ(tarn_dpi_init(&world.tarn), 0);
    g_tarn_debug_flags = TARN_DEBUG_DPI;
    tarn_dpi_destroy();
    EXPECT_EQ(dpi_world_log(), (t_texts{"DPI Cleanup...", "DPI Cleaup done!"}));
    g_tarn_debug_flags = TARN_DEBUG_NONE;
    tarn_dpi_destroy();
    EXPECT_TRUE(dpi_world_log().empty());
}

TEST(DpiStart, AnExceptionIsLogged)
{
    DpiWorld world;
    EXPECT_EQ(tarn_dpi_exception_handler(3, nullptr, nullptr), 0);
    EXPECT_EQ(
        dpi_world_log(),
        (t_texts{"Error: DPI ixEngine exception: flow path is full : cannot append new layer in path"}));
}
