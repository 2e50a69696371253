// The three dumps, in a session and against the stored texts.
#include <gtest/gtest.h>

#include <cstring>
#include <fstream>
#include <functional>
#include <span>
#include <sstream>

#include "common/cli_print.h"
#include "lconfd/lconfd_api.h"
#include "platform/confd/confd_maapi.h"
#include "platform/confd/double/confd_double.h"
#include "tarnd/compiler/tarn_program_format.h"
#include "tarnd/filter/tarn_if_octeon.h"
#include "tests/support/program_builder.h"
#include "tests/tarnd/filter/filter_pool.h"

static constexpr int session = 42;
static constexpr int num_filters = 8;
static constexpr int num_blocks = 80;

__attribute__((format(printf, 3, 0))) static void print_to_session(t_lconfd_context *, int usid,
                                                                   const char *format, va_list args)
{
    maapi_cli_vprintf(3, usid, format, args);
}

using f_dump = void (*)(t_lconfd_context *ctx, int usid, int verbosity);
using f_command = int (*)(confd_user_info *uinfo, char *path, int argc, char **argv);

static t_lconfd_context some_context;

// What a dump prints to the session.
static std::string session_text(const std::function<void()> &dump)
{
    confd_double_reset();
    cli_print_register(print_to_session);
    dump();
    cli_print_register(nullptr);
    return confd_double_cli_text(session);
}

static std::string dump_text(f_dump dump, int verbosity)
{
    return session_text([&] { dump(&some_context, session, verbosity); });
}

static std::string command_text(f_command command)
{
    confd_daemon_ctx daemon = {nullptr, &some_context};
    confd_user_info user = {session, {&daemon}};
    return session_text([&] { EXPECT_EQ(command(&user, nullptr, 0, nullptr), 0); });
}

static std::string stored_text(const std::string &name)
{
    std::ifstream file("tests/tarnd/filter/golden/" + name + ".txt");
    std::ostringstream text;
    text << file.rdbuf();
    return text.str();
}

// ---- What is dumped ----

static void fill_first_record(t_tarn_filter_action *p_slots)
{
    p_slots[0].fwding_action = TARN_FILTER_ACTION_COUNT;
    strcpy(p_slots[0].counter.name, "web");
    p_slots[1].fwding_action = TARN_FILTER_ACTION_POLICE;
    t_fp_policer *p_policer = &p_slots[1].policer;
    strcpy(p_policer->name, "10.slow");
    p_policer->version = 1;
    p_policer->rate = 1000;
    p_policer->burst = 0x123456789a;
    p_policer->oob_pkts[1] = 17;
    p_policer->oob_bytes[1] = 1700;
    p_policer->oob_pkts[0] = 99;
    p_slots[2].action = TARN_FILTER_ACTION_ACCEPT;
    p_slots[4].fwding_action = TARN_FILTER_ACTION_LOG;
}

static std::vector<std::byte> handmade_program()
{
    static const uint32_t classes[] = {0, 1, 0};
    std::vector<std::byte> bytes =
        program_build({.name = "handmade",
                       .fields = {{tarn_ip_dst_port, 1}},
                       .tables = {built_tree(1, dense_entries(classes))},
                       .instructions = {ins_lookup_field(1, 1, 1), ins_terminate(1)},
                       .num_records = 2,
                       .record_size = 3080});
    t_tarn_filter_action slots[MAX_ACTIONS_IN_RULE] = {};
    fill_first_record(slots);
    memcpy(bytes.data() + record_place(bytes, 0) + sizeof(t_tarn_action), slots, sizeof(slots));
    memset(slots, 0, sizeof(slots));
    slots[0].action = TARN_FILTER_ACTION_REJECT;
    memcpy(bytes.data() + record_place(bytes, 1) + sizeof(t_tarn_action), slots, sizeof(slots));
    return bytes;
}

static void place_program(std::span<const std::byte> bytes)
{
    void *p_program = tarn_oct_filter_mem_alloc(bytes.size());
    ASSERT_NE(p_program, nullptr);
    memcpy(p_program, bytes.data(), bytes.size());
}

// A free stretch, a program in use, an empty one next to it, a free rest. Slot 5 has nothing but the activity
// bit, and slots 6 and 7 were left by an earlier run: one names the middle of a program, one a block that
// does not exist.
static void fill_pool(FilterPool *p_pool)
{
    ASSERT_EQ(p_pool->init(), 0);
    void *p_gone = tarn_oct_filter_mem_alloc(5 * 128);
    place_program(handmade_program());
    place_program(std::vector<std::byte>(sizeof(t_tarn_program_hdr)));
    tarn_oct_filter_mem_free(p_gone);
    p_pool->advance_ms(500);
    g_fp_filter[1].activity = 1;
    g_fp_filter[5].activity = 1;
    g_fp_filter[6] = {.record_valid = 1, .activity = 0, .unused = 0, .hw_index = 30, .num_hw_mem_blocks = 4};
    g_fp_filter[7] = {
        .record_valid = 1, .activity = 0, .unused = 0, .hw_index = 4000, .num_hw_mem_blocks = 1};
}

TEST(FilterDumpGolden, TheThreeDumps)
{
    static const struct {
        const char *name;
        f_dump dump;
        f_command command;
    } cases[] = {
        {"stats", tarn_oct_filter_stats_dump, tarn_dump_memory_stats},
        {"table", tarn_oct_filter_table_dump, tarn_dump_filter},
        {"memory_map", tarn_oct_filter_memory_map_dump, tarn_dump_memory_map},
    };
    FilterPool pool(num_filters, num_blocks);
    ASSERT_NO_FATAL_FAILURE(fill_pool(&pool));
    for (const auto &c : cases) {
        EXPECT_EQ(dump_text(c.dump, 0), stored_text(c.name)) << c.name;
        EXPECT_EQ(dump_text(c.dump, 3), stored_text(c.name)) << c.name << " does not depend on verbosity";
        EXPECT_EQ(command_text(c.command), stored_text(c.name)) << c.name << " as a command";
    }
}

TEST(FilterDump, AFullPoolHasNoFreeStretch)
{
    FilterPool pool(num_filters, num_blocks);
    ASSERT_EQ(pool.init(), 0);
    ASSERT_NE(tarn_oct_filter_mem_alloc(num_blocks * 128), nullptr);
    EXPECT_EQ(dump_text(tarn_oct_filter_memory_map_dump, 0),
              "Dumping the filter memory map\n\n"
              "Used Block start index: 0/0 - end index 80 (#80/80)\n\tFilterId: 0\n\n");
}
