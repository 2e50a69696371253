// The word of debug flags and its leaves, and the table of actions.
#include <gtest/gtest.h>

#include <string>

#include "common/lum_log.h"
#include "lconfd/lconfd_util.h"
#include "tarnd/oper/tarn_action_table.h"
#include "tarnd/oper/tarn_debug.h"
#include "tests/common/syslog_lines.h"

// Leaves written since the row began: "+config", "-all".
static std::string written;
static std::string failing;
static t_lconfd_context context;

decltype(lconfd_set_cdb_oper_value) wrap_set asm(
    "__wrap__Z25lconfd_set_cdb_oper_valueP16t_lconfd_contextPK13confd_value_tPKc18e_lconfd_oper_typei");
int wrap_set(t_lconfd_context *ctx, const confd_value_t *p_val, const char *path, e_lconfd_oper_type oper,
             int notify_subscribers)
{
    EXPECT_EQ(ctx, &context);
    EXPECT_EQ(p_val, nullptr);
    EXPECT_EQ(notify_subscribers, 1);
    EXPECT_TRUE(oper == E_LCONFD_OPER_CREATE || oper == E_LCONFD_OPER_DEL);
    std::string place = path;
    EXPECT_EQ(place.substr(0, 13), "/debugs/tarn/");
    std::string text = (oper == E_LCONFD_OPER_CREATE ? "+" : "-") + place.substr(13);
    written += (written.empty() ? "" : " ") + text;
    confd_errno = CONFD_ERR_OS;
    return text == failing;
}

static constexpr uint64_t ALL = ~uint64_t{1};
static constexpr int ON = 1, OFF = 0, AS_BEFORE = 7;

static const struct {
    const char *behaviour;
    decltype(confd_action_cbs::action) action;
    uint64_t before;
    const char *failing;
    int result;
    uint64_t after;
    const char *written;
    int adapter;  // its debug output
} rows[] = {
    {"a topic beside the resting bit", tarn_debug_config, 32, "", 0, 34, "+config", AS_BEFORE},
    {"a topic beside another", tarn_debug_ttm, 2, "", 0, 6, "+ttm", AS_BEFORE},
    {"from nothing", tarn_debug_dpi, 0, "", 0, 8, "+dpi", AS_BEFORE},
    {"a topic that is on", tarn_debug_policy, 16, "", 0, 16, "+policy", AS_BEFORE},
    {"a topic under all", tarn_debug_policy, ALL, "", 0, ALL, "", AS_BEFORE},
    {"all with the lowest bit isn't all", tarn_debug_config, ~uint64_t{0}, "", 0, ~uint64_t{0}, "+config",
     AS_BEFORE},
    {"a topic fails", tarn_debug_ttm, 2, "+ttm", -1, 2, "+ttm", AS_BEFORE},
    {"all from nothing", tarn_debug_all, 0, "", 0, ALL, "+all", ON},
    {"all from rest", tarn_debug_all, 32, "", 0, ALL, "+all", OFF},
    {"all from topics", tarn_debug_all, 18, "", 0, ALL, "-config -policy +all", OFF},
    {"all from all", tarn_debug_all, ALL, "", 0, ALL, "-all +all", OFF},
    {"all fails", tarn_debug_all, 2, "+all", -1, 32, "-config +all", OFF},
    {"all fails from nothing", tarn_debug_all, 0, "+all", -1, 0, "+all", ON},
    {"all goes on when a deletion fails", tarn_debug_all, 6, "-ttm", 0, ALL, "-config -ttm +all", ON},
    {"off from topics", tarn_debug_disable_all, 31, "", 0, 32, "-config -ttm -dpi -policy", OFF},
    {"off from rest", tarn_debug_disable_all, 32, "", 0, 32, "", OFF},
    {"off from all", tarn_debug_disable_all, ALL, "", 0, 32, "-all", OFF},
    {"off from all bits", tarn_debug_disable_all, ~uint64_t{0}, "", 0, 32, "-all", OFF},
    {"off fails halfway", tarn_debug_disable_all, 58, "-dpi", -1, 58, "-config -dpi", AS_BEFORE},
    {"off from all fails", tarn_debug_disable_all, ALL, "-all", -1, ALL, "-all", AS_BEFORE},
};

TEST(Debug, TheWordItsLeavesAndTheAdapter)
{
    confd_daemon_ctx daemon = {nullptr, &context};
    confd_user_info user = {1, {&daemon}};
    for (const auto &row : rows) {
        SCOPED_TRACE(row.behaviour);
        written.clear();
        failing = row.failing;
        syslog_lines_take();
        g_tarn_debug_flags = row.before;
        g_lconfd_debug_enable = AS_BEFORE;
        EXPECT_EQ(row.action(&user, nullptr, nullptr, nullptr, 0), row.result);
        EXPECT_EQ(g_tarn_debug_flags, row.after);
        EXPECT_EQ(written, row.written);
        EXPECT_EQ(g_lconfd_debug_enable, row.adapter);
        std::vector<t_syslog_line> lines = syslog_lines_take();
        ASSERT_EQ(lines.size(), failing.empty() ? 0u : 1u);
        if (!failing.empty()) {
            EXPECT_EQ(lines[0].text, std::string("Failed to ") + (failing[0] == '+' ? "create" : "delete") +
                                         " value in cdb scripted error (24) : ");
        }
    }
    g_tarn_debug_flags = TARN_DEBUG_NONE;
}

TEST(ActionTable, CommandsThenActionsThenTheEnd)
{
    for (int i = 0; i < TARN_NUM_ACTION_COMMANDS; i++) {
        const confd_action_cbs &row = tarn_action_commands[i];
        EXPECT_EQ(row.command != nullptr, i < 23) << row.actionpoint;
        EXPECT_EQ(row.action != nullptr, i >= 23 && i < 35) << row.actionpoint;
        EXPECT_EQ(row.actionpoint[0] == '\0', i == 35);
    }
    EXPECT_STREQ(tarn_action_commands[18].actionpoint, "tarn_dump_app_list");
    EXPECT_STREQ(tarn_action_commands[27].actionpoint, "tarn_clear_zonepair_policy");
    EXPECT_EQ(tarn_action_commands[34].action, tarn_debug_disable_all);
}
