// Changing policers in a running program.
#include <gtest/gtest.h>

#include <cstring>
#include <string>

#include "tarnd/compiler/tarn_program_format.h"
#include "tarnd/filter/tarn_if_octeon.h"
#include "tests/support/program_builder.h"
#include "tests/tarnd/filter/filter_pool.h"

static void set_name(t_fp_policer *p_policer, const std::string &name)
{
    ASSERT_LE(name.size(), sizeof(p_policer->name));
    memset(p_policer->name, 0, sizeof(p_policer->name));
    memcpy(p_policer->name, name.data(), name.size());
}

// A policer with every byte set, so that a write too many shows.
static t_tarn_filter_action policer_slot(const std::string &name)
{
    t_tarn_filter_action slot;
    memset(&slot, 0x5a, sizeof(slot));
    slot.fwding_action = TARN_FILTER_ACTION_POLICE;
    slot.policer.oob_action = FP_POLICER_ACTION_DROP;
    set_name(&slot.policer, name);
    return slot;
}

static t_fp_policer new_values(const std::string &name)
{
    t_fp_policer policer = {};
    policer.rate = 111;
    policer.burst = 222;
    policer.oob_action = FP_POLICER_ACTION_MARK_PLP_HIGH;
    set_name(&policer, name);
    return policer;
}

static bool is_same(const t_tarn_filter_action &a, const t_tarn_filter_action &b)
{
    return memcmp(&a, &b, sizeof(a)) == 0;
}

TEST(FilterPolicer, TheNameBehindTheNumberDecides)
{
    static const struct {
        std::string in_slot;
        std::string given;
        bool is_changed;
    } cases[] = {
        {"10.limit", "limit", true},
        {"-3.limit", "limit", true},
        {"10. limit", "limit", true},
        {"10.2.limit", "2.limit", true},
        {"10.limits", "limit", false},
        {"10.limit", "limits", false},
        {"10.limit", "Limit", false},
        {"10.limit", "10.limit", false},
        {"10.", "", false},
        {"limit", "limit", false},
        {"10limit", "limit", false},
        {"", "", false},
        {"10.two words", "two words", false},  // a name ends at a blank
        {"10.two words", "two", true},
        {"1." + std::string(62, 'x'), std::string(62, 'x'), true},  // a full name has no end
        {"1." + std::string(62, 'x'), std::string(64, 'x'), false},
        {"1." + std::string(62, 'x'), std::string(61, 'x'), false},
    };
    for (const auto &c : cases) {
        t_tarn_filter_action slots[MAX_ACTIONS_IN_RULE] = {};
        slots[MAX_ACTIONS_IN_RULE - 1] = policer_slot(c.in_slot);
        t_tarn_filter_action wanted = slots[MAX_ACTIONS_IN_RULE - 1];
        t_fp_policer policer = new_values(c.given);
        if (c.is_changed) {
            wanted.policer.rate = policer.rate;
            wanted.policer.burst = policer.burst;
            wanted.policer.oob_action = policer.oob_action;
        }
        tarn_oct_filter_pol_change_cb(slots, &policer);
        EXPECT_TRUE(is_same(slots[MAX_ACTIONS_IN_RULE - 1], wanted)) << c.in_slot << " for " << c.given;
    }
}

TEST(FilterPolicer, EverySlotOfThatNameIsChangedAndNoOtherAction)
{
    t_tarn_filter_action slots[MAX_ACTIONS_IN_RULE];
    for (t_tarn_filter_action &slot : slots)
        slot = policer_slot("7.limit");
    slots[3].fwding_action = TARN_FILTER_ACTION_COUNT;
    slots[4].fwding_action = 0;
    slots[4].action = TARN_FILTER_ACTION_POLICE;
    t_fp_policer policer = new_values("limit");
    tarn_oct_filter_pol_change_cb(slots, &policer);
    for (size_t i = 0; i < MAX_ACTIONS_IN_RULE; i++)
        EXPECT_EQ(slots[i].policer.rate == 111, i != 3 && i != 4) << i;
}

TEST(FilterPolicer, AFilterWithoutAProgramIsRefused)
{
    FilterPool pool(8, 64);
    ASSERT_EQ(pool.init(), 0);
    t_fp_policer policer = new_values("limit");
    for (int filter_id : {-1, 0, 7, 8, 9, 1 << 30})
        EXPECT_EQ(tarn_oct_filter_policer_change(filter_id, &policer), 22) << filter_id;

    // A program that lies anywhere but at block 0, with two records.
    std::vector<std::byte> bytes = program_build({.name = "policers",
                                                  .fields = {},
                                                  .tables = {},
                                                  .instructions = {},
                                                  .num_records = 2,
                                                  .record_size = 3080});
    tarn_oct_filter_mem_alloc(1);
    auto *p_program = static_cast<std::byte *>(tarn_oct_filter_mem_alloc(bytes.size()));
    ASSERT_NE(p_program, nullptr);
    t_tarn_filter_action slot = policer_slot("7.limit");
    for (uint32_t record : {0u, 1u})
        memcpy(bytes.data() + record_place(bytes, record) + sizeof(t_tarn_action), &slot, sizeof(slot));
    memcpy(p_program, bytes.data(), bytes.size());
    EXPECT_EQ(tarn_oct_filter_policer_change(1, &policer), 0);
    for (uint32_t record : {0u, 1u}) {
        memcpy(&slot, p_program + record_place(bytes, record) + sizeof(t_tarn_action), sizeof(slot));
        EXPECT_EQ(slot.policer.rate, 111u) << record;
        EXPECT_EQ(slot.policer.burst, 222u) << record;
        EXPECT_EQ(slot.policer.available_tokens, 0x5a5a5a5a5a5a5a5au) << record;
    }
}
