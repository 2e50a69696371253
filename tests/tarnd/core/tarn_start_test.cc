// Start-up and its unwinding: what starts and stops, in which order, and what a failure leaves.
#include "tarnd/core/tarn_start.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <event2/event.h>
#include <unistd.h>

#include "common/cli_print.h"
#include "common/priority_timers.h"
#include "lconfd/lconfd_api.h"
#include "platform/confd/double/confd_double.h"
#include "tarnd/compiler/tarn_mem_mgr.h"
#include "tarnd/config/tarn_class.h"
#include "tarnd/core/tarn_main.h"
#include "tests/common/syslog_lines.h"
#include "tests/tarnd/core/daemon_calls.h"

namespace {

class TarnStart : public testing::Test {
protected:
    void SetUp() override
    {
        syslog_lines_take();
    }

    void TearDown() override
    {
        g_tarn_start_steps = real_steps;
        free_classes();
    }

    // The bit strings stay on every road, and on the stop the classes, too.
    void free_classes()
    {
        tarn_class_destroy(&tarn);
        tarn_sla_class_destroy(&tarn);
        free(tarn.class_index);
        free(tarn.sla_class_index);
        tarn = {};
    }

    DaemonCalls calls;
    t_tarn tarn = {};
    std::span<const t_tarn_start_step> real_steps = g_tarn_start_steps;
};

// What a step's failure takes down, in this order. Every step that can fail has a row.
struct t_unwinding {
    const char *step;
    std::vector<std::string> stopped;
};

}  // namespace

static const t_unwinding unwindings[] = {
    {"event base", {}},
    {"timers", {"event base"}},
    {"filter memory", {"timers", "event base"}},
    {"classes", {"filter memory", "timers", "event base"}},
    {"SLA classes", {"classes", "filter memory", "timers", "event base"}},
    {"store", {"SLA classes", "classes", "filter memory", "timers", "event base"}},
    {"access lists", {"store", "SLA classes", "classes", "filter memory", "timers", "event base"}},
    {"FTM", {"store", "SLA classes", "classes", "filter memory", "timers", "event base"}},
    {"TTM", {"FTM", "store", "SLA classes", "classes", "filter memory", "timers", "event base"}},
    {"compiler context",
     {"TTM", "FTM", "store", "SLA classes", "classes", "filter memory", "timers", "event base"}},
    {"management adapter",
     {"compiler context", "TTM", "FTM", "SLA classes", "classes", "store", "filter memory", "timers",
      "event base"}},
    {"system manager",
     {"management adapter", "compiler context", "TTM", "FTM", "SLA classes", "classes", "store",
      "filter memory", "timers", "event base"}},
};

static const char *const never_fail[] = {"host name",
                                         "log",
                                         "session printing",
                                         "forwarding-plane operations",
                                         "program memory",
                                         "zone tables",
                                         "application catalogue",
                                         "end of stage 1",
                                         "end of application catalogue"};

static const t_unwinding *unwinding_of(const char *step)
{
    auto found = std::find_if(std::begin(unwindings), std::end(unwindings),
                              [step](const t_unwinding &row) { return strcmp(row.step, step) == 0; });
    return found != std::end(unwindings) ? found : nullptr;
}

static bool never_fails(const char *step)
{
    return std::any_of(std::begin(never_fail), std::end(never_fail),
                       [step](const char *name) { return strcmp(name, step) == 0; });
}

static int fail_77(t_tarn *)
{
    return 77;
}

TEST_F(TarnStart, DumpTextGoesToTheSessionThatAskedForIt)
{
    for (const t_tarn_start_step &step : real_steps) {
        if (strcmp(step.name, "session printing") == 0) {
            ASSERT_EQ(step.start(&tarn), 0);
        }
    }
    confd_double_reset();
    t_lconfd_context context = {.module_data = {.opaque_p = &tarn}, .maapi_socket = 7};
    cli_print(&context, 42, "%d filters", 3);
    cli_print_register(nullptr);
    EXPECT_EQ(confd_double_cli_text(42), "3 filters");
    EXPECT_EQ(confd_double_calls().back().sock, 7);
}

TEST_F(TarnStart, TheFailureOfEachStepTakesDownWhatItsRowSaysAndIsTheStatus)
{
    for (size_t i = 0; i < real_steps.size(); i++) {
        SCOPED_TRACE(real_steps[i].name);
        const t_unwinding *p_row = unwinding_of(real_steps[i].name);
        ASSERT_NE(p_row != nullptr, never_fails(real_steps[i].name))
            << "a step stands in one of the two tables";
        if (p_row == nullptr)
            continue;
        std::vector<t_tarn_start_step> steps(real_steps.begin(), real_steps.end());
        steps[i].start = fail_77;
        g_tarn_start_steps = steps;
        free_classes();
        calls.stopped.clear();
        syslog_lines_take();
        EXPECT_EQ(tarn_init(&tarn), 77);
        EXPECT_EQ(calls.stopped, p_row->stopped);
        EXPECT_EQ(tarn.p_event_base, nullptr);
        EXPECT_EQ(tarn.p_timer_mgr, nullptr);
        EXPECT_EQ(tarn.p_context, nullptr);
        EXPECT_EQ(g_tarn_mem_mgr, nullptr);
        EXPECT_FALSE(tarn_priority_timers_active());
        EXPECT_EQ(syslog_lines_take().size(), 1u) << "nothing but the starting message is logged";
    }
}

namespace {

// A failure of something below a step.
struct t_inner_failure {
    const char *function;
    int nth;  // call of it
    int status;
    std::vector<std::string> stopped;
};

}  // namespace

TEST_F(TarnStart, FailuresBelowTheStepsComeThroughWithTheirStatus)
{
    static const t_inner_failure cases[] = {
        {"event_config_new", 1, 12, {}},
        {"event_base_new_with_config", 1, 12, {}},
        {"event_new", 1, 5, {}},
        {"event_new", 2, 5, {}},
        {"event_new", 3, 12, {"event base"}},
        {"timer_mgr_create", 1, 12, {"event base"}},
        {"event_add", 1, 12, {"event base"}},
        {"tarn_context_create",
         1,
         12,
         {"TTM", "FTM", "store", "SLA classes", "classes", "filter memory", "timers", "event base"}},
        {"tarn_ttm_init",
         1,
         78,
         {"FTM", "store", "SLA classes", "classes", "filter memory", "timers", "event base"}},
        {"app_sysmgr_connect",
         1,
         -10,
         {"management adapter", "compiler context", "TTM", "FTM", "SLA classes", "classes", "store",
          "filter memory", "timers", "event base"}},
    };
    for (const t_inner_failure &c : cases) {
        SCOPED_TRACE(std::string(c.function) + ' ' + std::to_string(c.nth));
        free_classes();
        calls.stopped.clear();
        calls.fail(c.function, c.nth);
        EXPECT_EQ(tarn_init(&tarn), c.status);
        EXPECT_EQ(calls.stopped, c.stopped);
        EXPECT_EQ(tarn.p_base_timer, nullptr);
        // A failed event base stays, since the process is about to end.
        if (tarn.p_signal1_event != nullptr)
            event_free(tarn.p_signal1_event);
        if (tarn.p_event_base != nullptr)
            event_base_free(tarn.p_event_base);
    }
}

TEST_F(TarnStart, TheStatusOfFilterMemoryIsHandedOn)
{
    calls.filter_init = [](t_tarn *, uint8_t) { return -1; };
    EXPECT_EQ(tarn_init(&tarn), -1);
    EXPECT_EQ(calls.stopped, (std::vector<std::string>{"timers", "event base"}));
}

// What filter_init, which may block for long, finds there already.
static int check_before_filter_memory(t_tarn *p_tarn, uint8_t)
{
    EXPECT_NE(p_tarn->p_event_base, nullptr);
    EXPECT_NE(p_tarn->p_signal1_event, nullptr);
    EXPECT_NE(p_tarn->p_signal2_event, nullptr);
    EXPECT_NE(p_tarn->p_timer_mgr, nullptr);
    EXPECT_EQ(p_tarn->p_hwapi, &g_tarn_octeon_api);
    EXPECT_EQ(p_tarn->p_context, nullptr);
    EXPECT_EQ(g_tarn_mem_mgr, nullptr);
    return 0;
}

TEST_F(TarnStart, StartsInOrderAndStopsInAnOrderOfItsOwn)
{
    calls.filter_init = check_before_filter_memory;
    ASSERT_EQ(tarn_init(&tarn), 0);
    EXPECT_EQ(calls.started, (std::vector<std::string>{"gethostname",
                                                       "openlog TARND 9 184",
                                                       "event_config_new",
                                                       "event_base_new_with_config",
                                                       "event_new",
                                                       "event_new",
                                                       "event_new",
                                                       "timer_mgr_create",
                                                       "filter_init 1",
                                                       "fp_zbf_pair_global_init",
                                                       "fp_vpn_zone_global_init",
                                                       "tarn_class_init",
                                                       "tarn_sla_class_init",
                                                       "tarn_config_init",
                                                       "tarn_intf_config_init",
                                                       "tarn_ftm_init",
                                                       "tarn_ttm_init",
                                                       "tarn_context_create",
                                                       "tarn_confd_init",
                                                       "app_sysmgr_connect 0 9"}));
    ASSERT_NE(g_tarn_mem_mgr, nullptr);
    EXPECT_EQ(g_tarn_mem_mgr->alloc, g_tarn_octeon_api.filter_mem_alloc);
    EXPECT_EQ(g_tarn_mem_mgr->free, g_tarn_octeon_api.filter_mem_free);
    EXPECT_EQ(event_base_get_npriorities(tarn.p_event_base), 2);
    EXPECT_EQ(event_get_priority(tarn.p_base_timer), 1);
    EXPECT_EQ(calls.stopped, std::vector<std::string>());

    EXPECT_EQ(tarn_destroy(&tarn), 0);
    EXPECT_EQ(calls.stopped,
              (std::vector<std::string>{"system manager", "application catalogue", "management adapter",
                                        "compiler context", "FTM", "TTM", "store", "filter memory", "timers",
                                        "event base", "log"}));
    EXPECT_EQ(g_tarn_mem_mgr, nullptr);
    EXPECT_FALSE(tarn_priority_timers_active());
}

TEST_F(TarnStart, TellsOfTheStartAndOfItsTwoStages)
{
    char host[128];
    ASSERT_EQ(gethostname(host, sizeof(host)), 0);
    ASSERT_EQ(tarn_init(&tarn), 0);
    EXPECT_EQ(syslog_lines_take(),
              (std::vector<t_syslog_line>{
                  {190, "%Lumora-" + std::string(host) + "-TARND-6-INFO-1100001: Starting"},
                  {191, "Initialization - Stage 1 complete"},
                  {191, "application catalogue"},
                  {191, "Initialization - Stage 2 complete"},
              }));
    tarn_destroy(&tarn);
}

TEST_F(TarnStart, AHostWithoutANameGetsOne)
{
    calls.fail("gethostname");
    ASSERT_EQ(tarn_init(&tarn), 0);
    EXPECT_STREQ(g_hostname, "Plinth");
    EXPECT_EQ(syslog_lines_take()[0].text, "%Lumora-Plinth-TARND-6-INFO-1100001: Starting");
    tarn_destroy(&tarn);
}

TEST_F(TarnStart, LongLoopsRunTheHighPriorityTimersOnly)
{
    ASSERT_EQ(tarn_init(&tarn), 0);
    calls.timer_calls.clear();
    tarn_exec_priority_timers();
    EXPECT_EQ(calls.timer_calls, (std::vector<std::string>{"timer_exec 2 100"}));
    EXPECT_NE(tarn.last_hello_time.tv_sec, 0);
    tarn_destroy(&tarn);
}
