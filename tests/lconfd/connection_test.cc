// Connections that can't be had, are lost, and come back.

#include <gtest/gtest.h>

#include "tests/common/syslog_lines.h"
#include "tests/lconfd/framework.h"
#include "tests/lconfd/subscriber.h"

#include "common/timer.h"
#include "lconfd/lconfd_util.h"

#include <cstring>

using t_lines = std::vector<std::string>;

// Does not wait for the retry, but for what comes of it.
static void retry_soon(Subscriber *p_daemon)
{
    const t_timer *p_timer = p_daemon->ctx->retry_timer;
    ASSERT_NE(p_timer, nullptr);
    EXPECT_STREQ(p_timer->name, "lconfd_timer");
    EXPECT_EQ(p_timer->type, TIMER_TYPE_CYCLIC);
    EXPECT_EQ(p_timer->priority, TIMER_PRI_HIGH);
    EXPECT_EQ(timer_get_interval_msec(p_timer), 2000);
    EXPECT_TRUE(timer_is_active(p_timer));
    EXPECT_EQ(p_daemon->p_timers->num_timers_created - p_daemon->p_timers->num_timers_deleted, 1u);
    timer_reset(p_daemon->ctx->retry_timer, 20);
}

TEST(Connection, ComesBackByItselfAndServesChangesWithoutReadingAgain)
{
    OWN_SYSTEM_OR_SKIP();
    Framework framework;
    framework.stop();
    Subscriber daemon;
    EXPECT_EQ(daemon.start(), LCONFD_STATUS_IN_RETRY);
    ASSERT_NE(daemon.ctx, nullptr);
    for (int round = 0; round < 2; round++) {
        ASSERT_NO_FATAL_FAILURE(retry_soon(&daemon));
        uint32_t fired = daemon.p_timers->num_timers_fired;
        ASSERT_TRUE(daemon.until([&] { return daemon.p_timers->num_timers_fired > fired; }));
        EXPECT_NE(daemon.ctx->retry_timer, nullptr) << "nobody is there yet";
        EXPECT_EQ(daemon.ctx->confd_dctx_p, nullptr);
        framework.start();
        ASSERT_TRUE(daemon.until([&] {
            return daemon.connections == round + 1 && daemon.is_subscribed() &&
                   daemon.ctx->init_config_read_done == 1;
        }));
        EXPECT_EQ(daemon.ctx->retry_timer, nullptr);
        // The adapter reads its own entries again, and none of the daemon's.
        if (round > 0) {
            ASSERT_TRUE(daemon.until_seen("end of trigger"));
            EXPECT_EQ(daemon.seen, t_lines{"end of trigger"});
        }
        daemon.take();
        std::string zone = "z" + std::to_string(round);
        daemon.wait(framework.commit(R"([{"op":"merge","path":"/policy/zone{)" + zone + R"(}"}])"));
        EXPECT_EQ(daemon.take(), (t_lines{"policy/zone created {" + zone + "} name=" + zone, "end", "end"}));
        framework.stop();
        ASSERT_TRUE(daemon.until([&] { return daemon.ctx->retry_timer != nullptr; }));
        EXPECT_EQ(daemon.ctx->evt_sub, nullptr);
        for (int fd : {daemon.ctx->ctrl_socket, daemon.ctx->sub_socket, daemon.ctx->pipe_fd[0]})
            EXPECT_EQ(fd, -1);
        lconfd_retry_connect(daemon.ctx);  // a second report during the teardown
    }
}

TEST(Connection, ASecondDaemonOfTheModuleGoesWithTheFirst)
{
    OWN_SYSTEM_OR_SKIP();
    Framework framework;
    Subscriber daemon;
    ASSERT_EQ(daemon.start(), LCONFD_STATUS_OK);
    t_lconfd_module_data data = daemon.data;
    data.evt_base_p = nullptr;
    for (int i = 0; i < 2; i++)
        EXPECT_EQ(lconfd_module_secondary_context_register(&data, daemon.ctx), LCONFD_STATUS_OK);
    EXPECT_STREQ(daemon.ctx->sec_lconfd_ctx_p->confd_dctx_p->name, "tarnd-secondary");
    framework.stop();
    ASSERT_TRUE(daemon.until([&] { return daemon.ctx->retry_timer != nullptr; }));
    EXPECT_EQ(daemon.ctx->sec_lconfd_ctx_p, nullptr);
}

TEST(Connection, EventsOfTheFrameworkReachTheHandler)
{
    OWN_SYSTEM_OR_SKIP();
    Framework framework;
    Subscriber daemon;
    t_lconfd_notification wish = {
        .notification_events_mask = CONFD_NOTIF_COMMIT_SIMPLE,
        .health_check_interval = 0,
        .notification_handler = [](t_lconfd_context *ctx, confd_notification *p_event) {
            static_cast<Subscriber *>(ctx->module_data.opaque_p)
                ->seen.push_back("event " + std::to_string(p_event->type));
        }};
    daemon.data.confd_notif_ctxt = &wish;
    ASSERT_EQ(daemon.start(), LCONFD_STATUS_OK);
    ASSERT_TRUE(daemon.until([&] { return daemon.ctx->init_config_read_done == 1; }));
    daemon.wait(framework.commit(R"([{"op":"merge","path":"/policy/zone{a}"}])"));
    EXPECT_TRUE(daemon.until_seen("event " + std::to_string(CONFD_NOTIF_COMMIT_SIMPLE)));
    daemon.take();
    framework.stop();
    EXPECT_TRUE(daemon.until([&] { return daemon.ctx->retry_timer != nullptr; }));
}

TEST(ConnectionDeathTest, AnIncompleteRegistrationIsAFault)
{
    for (auto spoil : {+[](t_lconfd_module_data *p_data) { p_data->opaque_p = nullptr; },
                       +[](t_lconfd_module_data *p_data) { p_data->timer_mgr_p = nullptr; },
                       +[](t_lconfd_module_data *p_data) { p_data->data_register_cb = nullptr; }}) {
        Subscriber daemon;
        spoil(&daemon.data);
        EXPECT_EXIT(daemon.start(), testing::KilledBySignal(SIGSEGV), "");
    }
    EXPECT_EXIT(lconfd_module_init(nullptr, nullptr, nullptr), testing::KilledBySignal(SIGSEGV), "");
    EXPECT_EXIT(lconfd_retry_connect(nullptr), testing::KilledBySignal(SIGSEGV), "");
}
