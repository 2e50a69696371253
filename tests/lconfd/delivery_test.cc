// Notifications on their whole way: from a daemon through the framework to its stream, to trap groups as the
// operator configures them, and to syslog.

#include <gtest/gtest.h>

#include "tests/common/syslog_lines.h"
#include "tests/lconfd/framework.h"
#include "tests/lconfd/subscriber.h"

#include "common/timer.h"
#include "lconfd/lconfd_notif.h"

using t_lines = std::vector<std::string>;

static constexpr uint32_t policy_space = 0x25640284;
static constexpr uint32_t association_tag = 0x73e916a8;

static confd_tag_value_t tagged(uint32_t tag, confd_vtype type, uint32_t number = 0, uint32_t ns = 0)
{
    confd_tag_value_t made = {{tag, ns}, {.type = type, .val = {}}};
    made.v.val.u32 = number;
    return made;
}

static confd_tag_value_t text(uint32_t tag, const char *p_text)
{
    confd_tag_value_t made = tagged(tag, C_STR);
    made.v.val.c_s = p_text;
    return made;
}

static int send(t_lconfd_context *ctx)
{
    const confd_tag_value_t values[] = {tagged(association_tag, C_XMLBEGIN, 0, policy_space),
                                        tagged(0x18f30f38, C_ENUM_VALUE, 2),
                                        text(0x5808a665, "edge-1"),
                                        tagged(0x5e5f3f28, C_IPV4, htonl(0x0a000001)),
                                        text(0x61fe004e, "gold"),
                                        text(0x0ed4d8e3, "corp"),
                                        text(0x74470328, "Failed"),
                                        tagged(association_tag, C_XMLEND, 0, policy_space)};
    return lconfd_event_send_notification(ctx, values, std::size(values));
}

static const std::string trap_of_ops =
    "ops lumoraPolicyDataPolicyAssociationStatus eventTime netconfNotificationSeverity lumoraPolicyName "
    "lumoraPolicyVpnListName lumoraPolicyStatus";

static void expect_trap(Framework *p_framework, Subscriber *p_daemon)
{
    t_lines traps;
    ASSERT_EQ(send(p_daemon->ctx), 0);
    EXPECT_TRUE(p_daemon->until([&] { return !(traps = p_framework->take_traps()).empty(); }));
    EXPECT_EQ(traps, t_lines{trap_of_ops});
}

static std::string line_of_notification()
{
    for (const t_syslog_line &line : syslog_lines_take())
        if (line.text.starts_with("%Lumora"))
            return line.text;
    return "";
}

static bool has_group(const Subscriber &daemon)
{
    const t_lconfd_trap_tag_map *p_group = lconfd_trap_find_tag("ops");
    return daemon.is_subscribed() && p_group != nullptr && lconfd_trap_is_enabled(p_group, 84);
}

TEST(Delivery, ReachesStreamTrapsAndSyslogBeforeAndAfterALostConnection)
{
    OWN_SYSTEM_OR_SKIP();
    Framework framework;
    Subscriber daemon;
    g_lconfd_notification_throttler.state = LCONFD_THROTTLER_INIT;  // as in a new process
    ASSERT_EQ(daemon.start(), LCONFD_STATUS_OK);
    ASSERT_TRUE(
        daemon.until([&] { return daemon.is_subscribed() && daemon.ctx->init_config_read_done == 1; }));
    daemon.wait(framework.commit(
        R"([{"op":"merge","path":"/snmp/trap/group{ops}/enable{vpn}","value":{"level":["major"]}},
            {"op":"merge","path":"/snmp/trap/group{none}/enable{bfd}","value":{"level":["major"]}}])"));
    ASSERT_TRUE(has_group(daemon));
    syslog_lines_take();
    expect_trap(&framework, &daemon);
    std::string line;
    ASSERT_TRUE(daemon.until([&] { return !(line = line_of_notification()).empty(); }));
    EXPECT_TRUE(line.starts_with("%Lumora-edge-1-tarnd-6-INFO-1400002: Notification: ")) << line;
    EXPECT_TRUE(line.ends_with(" data-policy-association-status severity-level:major host-name:edge-1 "
                               "system-ip:10.0.0.1 policy-name:gold vpn-list-name:corp status:Failed "))
        << line;

    framework.stop();
    ASSERT_TRUE(daemon.until([&] { return daemon.ctx->retry_timer != nullptr; }));
    EXPECT_EQ(g_lconfd_notification_throttler.state, LCONFD_THROTTLER_RESET);
    EXPECT_EQ(lconfd_trap_find_tag("ops"), nullptr);
    EXPECT_EQ(send(daemon.ctx), 1);
    framework.start();
    timer_reset(daemon.ctx->retry_timer, 20);
    ASSERT_TRUE(daemon.until([&] { return has_group(daemon); }));
    expect_trap(&framework, &daemon);
    EXPECT_EQ(daemon.wait(framework.notifications()).size(), 2u);

    daemon.wait(framework.commit(R"([{"op":"delete","path":"/snmp/trap/group{ops}"}])"));
    EXPECT_EQ(lconfd_trap_find_tag("ops"), nullptr);
    EXPECT_NE(lconfd_trap_find_tag("none"), nullptr);
}
