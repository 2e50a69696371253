#include "tests/tarnd/dpi/dpi_world.h"

#include <gtest/gtest.h>

using t_texts = std::vector<std::string>;

static const t_texts cleared = {"malloc 140", "write 1 type 5"};

TEST(DpiKnob, HoldsTheNumberOfReasonsAndClearsWithTheLast)
{
    static const struct {
        const char *behaviour;
        int setting;
        int references;  // of policies, added before the commit
        uint32_t knob;
        bool is_cleared;
    } commits[] = {
        {"nothing set", 0, 0, 0, false},
        {"turned on", 1, 0, 1, false},
        {"twice the same", 1, 0, 1, false},
        {"two policies more", 1, 2, 3, false},
        {"turned off below references", 0, 0, 2, false},
        {"one reference gone", 0, -1, 1, false},
        {"the last one gone", 0, -1, 0, true},
        {"the next commit", 0, 0, 0, false},
    };
    DpiWorld world;
    world.connect();
    for (const auto &commit : commits) {
        world.events.clear();
        tarn_dpi_config_change(&world.tarn, commit.setting);
        world.tarn.dpi_ref += commit.references;
        tarn_dpi_update_knob(&world.tarn);
        EXPECT_EQ(world.knob, commit.knob) << commit.behaviour;
        EXPECT_EQ(world.tarn.dpi, commit.setting) << commit.behaviour;
        EXPECT_EQ(world.events, commit.is_cleared ? cleared : t_texts{}) << commit.behaviour;
    }
}

TEST(DpiKnob, ClearingMessage)
{
    DpiWorld world;
    EXPECT_EQ(tarn_dpi_clear_fp_flows(nullptr), 74);
    EXPECT_EQ(tarn_dpi_clear_fp_flows(&world.tarn), 74) << "no channel";
    world.connect();
    world.no_memory = true;
    EXPECT_EQ(tarn_dpi_clear_fp_flows(&world.tarn), 12);
    world.no_memory = false;
    world.write_result = ERR_AGAIN;
    EXPECT_EQ(tarn_dpi_clear_fp_flows(&world.tarn), 0);
    EXPECT_EQ(world.events, (t_texts{"malloc 140", "write 1 type 5", "free"}));
}

TEST(DpiHits, AClearKeepsTheFirstWord)
{
    DpiWorld world;
    world.hits.assign(world.hits.size(), 7);
    world.hits[0] = 3400;
    world.on_sleep = [&] {
        EXPECT_EQ(world.hits[0], 0u) << "shut while a core may still count";
        EXPECT_EQ(world.hits[4095], 7u);
        world.hits[17]++;
    };
    EXPECT_EQ(tarn_dpi_clear_protocol_hits(nullptr, nullptr, nullptr, nullptr, 0), 0);
    EXPECT_EQ(world.events, (t_texts{"sleep 1000"}));
    std::vector<uint32_t> want(dpi_world_entries);
    want[0] = 3400;
    EXPECT_EQ(world.hits, want);
}
