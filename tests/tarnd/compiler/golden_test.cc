// One program in bytes, against the dump in golden/edge3.hex.
//
// Search trees are compared in one agreed shape (program_canonical), since the compiler's are random. With
// TARN_UPDATE_GOLDEN set in the environment the test writes the dump anew; a change of it is a change of the
// format.
#include "tarnd/compiler/tarn_field.h"
#include "tests/support/compile.h"
#include "tests/support/program_content.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <fstream>
#include <sstream>

static const char golden_path[] = "tests/tarnd/compiler/golden/edge3.hex";

static std::vector<t_tarn_filter_action> record(e_tarn_filter_action action)
{
    std::vector<t_tarn_filter_action> slots(MAX_ACTIONS_IN_RULE);
    slots[0].action = action;
    return slots;
}

static std::vector<t_tarn_filter_action> counted_record(e_tarn_filter_action action, const char *name)
{
    std::vector<t_tarn_filter_action> slots = record(action);
    slots[1].fwding_action = TARN_FILTER_ACTION_COUNT;
    memcpy(slots[1].counter.name, name, strlen(name));
    return slots;
}

static std::vector<t_tarn_filter_action> policed_record()
{
    std::vector<t_tarn_filter_action> slots = record(TARN_FILTER_ACTION_ACCEPT);
    slots[11].fwding_action = TARN_FILTER_ACTION_POLICE;
    t_fp_policer &policer = slots[11].policer;
    policer.rate = 1250;
    policer.burst = 15000;
    policer.oob_action = FP_POLICER_ACTION_MARK_PLP_HIGH;
    policer.record_valid = 1;
    memcpy(policer.name, "20.gold", 8);
    return slots;
}

// The access list of a small edge: anti-spoofing with a counter, web with a policer, the other TCP ports
// closed.
static ruletable_ptr edge_table(t_tarn_context *p_context)
{
    static constexpr uint8_t inside[4] = {192, 0, 2, 0};
    ruletable_ptr table(tarn_ruletable_create("edge3", "0edge3", TARN_ACTION_DATA_SIZE,
                                              record(TARN_FILTER_ACTION_REJECT).data()));
    t_tarn_rule *p_rule = tarn_rule_create(table.get(), "10");
    tarn_add_prefix_field(p_context, p_rule, tarn_get_field_id(p_context, tarn_ip_src_addr), inside, 24);
    tarn_create_action(p_rule, TARN_ACTION_DATA_SIZE,
                       counted_record(TARN_FILTER_ACTION_REJECT, "spoofed").data());

    p_rule = tarn_rule_create(table.get(), "20");
    tarn_add_range_field(p_context, p_rule, tarn_get_field_id(p_context, tarn_ip_protocol), 6, 6);
    tarn_add_range_field(p_context, p_rule, tarn_get_field_id(p_context, tarn_ip_dst_port), 80, 80);
    tarn_add_range_field(p_context, p_rule, tarn_get_field_id(p_context, tarn_ip_dst_port), 443, 443);
    tarn_create_action(p_rule, TARN_ACTION_DATA_SIZE, policed_record().data());

    p_rule = tarn_rule_create(table.get(), "30");
    tarn_add_range_field(p_context, p_rule, tarn_get_field_id(p_context, tarn_ip_protocol), 6, 6);
    tarn_create_action(p_rule, TARN_ACTION_DATA_SIZE,
                       counted_record(TARN_FILTER_ACTION_REJECT, "closed").data());
    return table;
}

static std::vector<std::byte> golden_bytes()
{
    std::ifstream file(golden_path);
    std::ostringstream text;
    text << file.rdbuf();
    return program_from_hex(text.str());
}

TEST(GoldenProgram, HasTheBytesOfTheDump)
{
    t_test_memory memory;
    context_ptr context(tarn_context_create());
    ruletable_ptr table = edge_table(context.get());
    t_compiled compiled = compile_table(context.get(), table.get());
    ASSERT_EQ(compiled.status, tarn_status_ok);
    std::vector<std::byte> canonical = program_canonical(compiled.bytes());
    if (getenv("TARN_UPDATE_GOLDEN") != nullptr)
        std::ofstream(golden_path) << program_to_hex(canonical);

    std::vector<std::byte> golden = golden_bytes();
    ASSERT_FALSE(golden.empty()) << "tests run in the source folder";
    EXPECT_EQ(program_difference(compiled.bytes(), golden), "");
    ASSERT_EQ(canonical.size(), golden.size());
    for (size_t i = 0; i < golden.size(); i++)
        ASSERT_EQ(canonical[i], golden[i]) << "offset " << i;
}

TEST(GoldenProgram, ADumpReadsBackToItsBytes)
{
    std::vector<std::byte> golden = golden_bytes();
    EXPECT_EQ(program_from_hex(program_to_hex(golden)), golden);
}
