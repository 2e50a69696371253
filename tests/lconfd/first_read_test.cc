// The router's order of first reading, and what comes before and after it.

#include <gtest/gtest.h>

#include "tests/common/syslog_lines.h"
#include "tests/lconfd/framework.h"
#include "tests/lconfd/subscriber.h"

using t_lines = std::vector<std::string>;

static const t_lines everything = {"policy/zone created {a} name=a",
                                   "policy modified {} log-frequency=100",
                                   "end of trigger",
                                   "policy/zone/vpn created {a 7} vpn-id=7",
                                   "end of trigger",
                                   "end of trigger",
                                   "end of trigger"};

static constexpr const char *zone_and_frequency =
    R"([{"op":"merge","path":"/policy/zone{a}","value":{"vpn":[{"vpn-id":7}]}},
        {"op":"merge","path":"/policy","value":{"log-frequency":100}}])";

static size_t triggers_logged()
{
    size_t count = 0;
    for (const t_syslog_line &line : syslog_lines_take())
        count += line.text == "Triggered 7 config subscriptions";
    return count;
}

TEST(FirstRead, WaitsForTheThirdBitSkipsChangesBeforeAndReadsOnce)
{
    OWN_SYSTEM_OR_SKIP();
    Framework framework(2, false);
    Subscriber daemon;
    lconfd_debug_enable(1);
    ASSERT_EQ(daemon.start(), LCONFD_STATUS_OK);
    ASSERT_TRUE(daemon.until([&] { return daemon.is_subscribed(); }));
    EXPECT_EQ(daemon.wait(Framework::set_mask(3)), CONFD_OK);
    EXPECT_EQ(daemon.wait(framework.commit(zone_and_frequency)).error.code, MGMT_OK);
    EXPECT_EQ(daemon.ctx->init_read_started, 0);
    daemon.take();  // the ends of the skipped batches
    syslog_lines_take();

    // Every change of the mask is a wake-up, but not while a read is under way or when there was one.
    daemon.ctx->init_read_started = 1;
    EXPECT_EQ(daemon.wait(Framework::set_mask(7)), CONFD_OK);
    EXPECT_EQ(daemon.wait(Framework::set_mask(6)), CONFD_OK);
    daemon.ctx->init_read_started = 0;
    EXPECT_EQ(daemon.wait(Framework::set_mask(7)), CONFD_OK);
    EXPECT_TRUE(daemon.until([&] { return daemon.ctx->init_config_read_done == 1; }));
    EXPECT_EQ(daemon.wait(Framework::set_mask(6)), CONFD_OK);
    EXPECT_EQ(daemon.wait(Framework::set_mask(7)), CONFD_OK);
    EXPECT_EQ(triggers_logged(), 1u);
    EXPECT_EQ(daemon.take(), everything);
    lconfd_debug_disable();
}

TEST(FirstRead, AModuleWithABitReadsInItsTurnAndSetsItForTheNext)
{
    OWN_SYSTEM_OR_SKIP();
    Framework framework(2, false);
    Subscriber daemon(LUM_MODULE_CFGMGR);
    ASSERT_EQ(daemon.start(), LCONFD_STATUS_OK);
    ASSERT_TRUE(daemon.until([&] { return daemon.is_subscribed(); }));
    EXPECT_EQ(daemon.wait(Framework::set_mask(1)), CONFD_OK);
    EXPECT_TRUE(daemon.until([&] { return lconfd_mask_allows_read(LUM_MODULE_FTM) == 1; }));
    EXPECT_EQ(lconfd_mask_allows_read(LUM_MODULE_TARN), 0);
    EXPECT_EQ(lconfd_set_initial_config_read_done(LUM_MODULE_TARN), 0);
}

TEST(FirstRead, AWaitingThreadOutlivesItsConnectionAndItsContext)
{
    OWN_SYSTEM_OR_SKIP();
    Framework framework(1);
    {
        Subscriber gone;
        ASSERT_EQ(gone.start(), LCONFD_STATUS_OK);
    }
    Subscriber daemon;
    ASSERT_EQ(daemon.start(), LCONFD_STATUS_OK);
    lconfd_retry_connect(daemon.ctx);
    lconfd_retry_cb(nullptr, daemon.ctx, nullptr, nullptr, nullptr);
    EXPECT_EQ(daemon.ctx->retry_timer, nullptr);
    framework.set_phase(2);
    EXPECT_TRUE(daemon.until([&] { return daemon.ctx->init_config_read_done == 1; }));
    EXPECT_EQ(daemon.connections, 2);
    EXPECT_EQ(daemon.ctx->retry_timer, nullptr) << "a thread of before has asked for a retry";
}
