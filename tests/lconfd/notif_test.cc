// The throttler: what leaves when, what waits, what is dropped.

#include <gtest/gtest.h>

#include "tests/common/syslog_lines.h"
#include "tests/lconfd/notif_fake.h"

#include <atomic>
#include <cstdlib>
#include <cstring>
#include <thread>

using t_texts = std::vector<std::string>;
using std::chrono::milliseconds;

static std::atomic<int> g_num_blocks;
static int g_blocks_left;  // until memory is full; below 0: never

static void *counted_alloc(size_t size)
{
    if (g_blocks_left == 0)
        return nullptr;
    g_blocks_left--;
    g_num_blocks++;
    return malloc(size);
}

static void counted_free(void *p_mem)
{
    g_num_blocks--;
    free(p_mem);
}

struct Throttler : testing::Test {
    Throttler()
    {
        fake_reset();
        syslog_lines_take();
        g_blocks_left = -1;
        lconfd_mem_fn_init(counted_alloc, counted_free);
        lconfd_trap_module_init();
        g_lconfd_notification_throttler.state = LCONFD_THROTTLER_INIT;  // as in a new process
        connect(1);
    }

    ~Throttler() override
    {
        lconfd_notification_throttler_free();
        lconfd_trap_module_free();
        EXPECT_EQ(g_num_blocks, 0);
    }

    void connect(int id)
    {
        stream = {id};
        ctx.module_data.notif_ctxt = &stream;
        ctx.module_data.snmp_notif_ctxt = &stream;
    }

    void start(int interval_ms)
    {
        lconfd_notification_throttler_init(&ctx);
        lconfd_notification_sleep_interval_init(interval_ms);
    }

    int send(int32_t severity, uint32_t number)
    {
        t_notification notification(severity);
        notification.add(0x1, fake_value(C_UINT32, number));
        notification.end();
        return lconfd_event_send_notification(&ctx, notification.values.data(),
                                              static_cast<int>(notification.values.size()));
    }

    // Waits until that many have left. What there was then.
    t_texts wait(size_t count)
    {
        auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(20);
        while (fake_sent().size() < count && std::chrono::steady_clock::now() < deadline)
            std::this_thread::sleep_for(milliseconds(1));
        return fake_texts();
    }

    t_lconfd_context ctx = {};
    confd_notification_ctx stream = {1};
};

TEST_F(Throttler, ABurstLeavesBySeverityAtItsPaceAndWhatDoesNotFitIsDropped)
{
    lconfd_notification_throttler_init(&ctx);
    lconfd_notification_throttler_connection_reset();  // nothing leaves before all are queued
    lconfd_notification_sleep_interval_init(2);
    t_texts wanted[3];
    static constexpr size_t limits[] = {100, 50, 50};
    for (uint32_t number = 0; number < 1000; number++) {
        int severity = static_cast<int>(number % 3) + 1;
        EXPECT_EQ(send(severity, number), 0) << "dropping is no failure";
        t_texts *p_queue = &wanted[severity - 1];
        if (p_queue->size() < limits[severity - 1])
            p_queue->push_back("stream 1 field=" + std::to_string(number));
    }
    t_texts all = wanted[0];
    all.insert(all.end(), wanted[1].begin(), wanted[1].end());
    all.insert(all.end(), wanted[2].begin(), wanted[2].end());
    lconfd_notification_throttler_init(&ctx);
    EXPECT_EQ(wait(all.size()), all);
    std::vector<t_sent> sent = fake_sent();
    for (size_t i = 1; i < sent.size(); i++)
        EXPECT_GE(sent[i].when - sent[i - 1].when, milliseconds(2));
}

TEST_F(Throttler, TheRoundOfANewProcessIs200Milliseconds)
{
    lconfd_notification_throttler_init(&ctx);
    EXPECT_EQ(g_lconfd_notification_throttler.sleep_interval, 200);
    for (int severity : {7, 2, 1})
        send(severity, static_cast<uint32_t>(severity));
    wait(2);
    std::vector<t_sent> sent = fake_sent();
    ASSERT_GE(sent.size(), 2u);
    EXPECT_GE(sent[1].when - sent[0].when, milliseconds(200));
}

TEST_F(Throttler, WhatIsQueuedSurvivesALostConnectionAndTheCallersTexts)
{
    start(1);
    lconfd_notification_throttler_connection_reset();
    t_notification notification(2);
    char name[] = "gold";
    char octets[] = "blue-and-more";
    notification.add_text(0x61fe004e, name);
    confd_value_t value = {.type = C_BUF, .val = {}};
    value.val.buf = {4, reinterpret_cast<unsigned char *>(octets)};
    notification.add(0x1, value);
    notification.end();
    EXPECT_EQ(lconfd_enqueue_notification(notification.values.data(), 7), 0);
    memset(name, 'x', 4);
    memset(octets, 'x', 4);
    std::this_thread::sleep_for(milliseconds(10));
    EXPECT_EQ(fake_texts(), t_texts());
    connect(2);
    lconfd_notification_throttler_init(&ctx);
    EXPECT_EQ(wait(1), (t_texts{"stream 2 policy-name=gold field=blue"}));
}

TEST_F(Throttler, ProducersChangesOfConnectionAndTheThreadMeet)
{
    start(0);
    uint32_t number = 0;
    for (int round = 0; round < 50; round++) {
        for (int i = 0; i < 10; i++)
            send(2, number++);
        lconfd_notification_throttler_connection_reset();
        send(1, number++);
        lconfd_notification_throttler_init(&ctx);
    }
    // The 50 critical ones, and a full queue of the others.
    EXPECT_GE(wait(100).size(), 100u);
}

TEST_F(Throttler, AFailedSendingGoesOnToTrapsAndSyslog)
{
    start(1);
    fake_fail_sending(true);
    lconfd_trap_set(lconfd_trap_add_tag("ops"), LCONFD_TRAP_POLICY_DATA_POLICY_ASSOCIATION_STATUS, true);
    t_notification notification(2);
    notification.add_text(0x61fe004e, "gold");
    notification.end();
    EXPECT_EQ(lconfd_event_send_notification(&ctx, notification.values.data(), 6), 0);
    EXPECT_EQ(wait(2), (t_texts{"stream 1 policy-name=gold",
                                "trap 1 ops lumoraPolicyDataPolicyAssociationStatus lumoraPolicyName=gold"}));
    lconfd_notification_throttler_connection_reset();  // waits for the end of the sending
    std::vector<t_syslog_line> lines = syslog_lines_take();
    ASSERT_FALSE(lines.empty());
    EXPECT_NE(lines.back().text.find(" data-policy-association-status severity:2 host-name:edge-1 "
                                     "system-ip:ipv4 policy-name:gold "),
              std::string::npos)
        << lines.back();
}

TEST_F(Throttler, WhatItCannotTakeIsSentDirectlyOrNotAtAll)
{
    EXPECT_EQ(lconfd_enqueue_notification(nullptr, 0), -1) << "before the first connection";
    EXPECT_EQ(send(1, 5), 0);
    EXPECT_EQ(fake_texts(), (t_texts{"stream 1 field=5"}));
    fake_fail_sending(true);
    EXPECT_EQ(send(1, 6), 1);
    fake_reset();

    EXPECT_EQ(lconfd_event_send_notification(nullptr, nullptr, 19), 1);
    fake_phase(-1);
    EXPECT_EQ(send(1, 7), 1);
    fake_phase(1);
    EXPECT_EQ(send(1, 8), 0) << "dropped: the framework does not run yet";
    EXPECT_EQ(fake_texts(), t_texts());
    fake_phase(2);

    start(1);
    lconfd_notification_throttler_connection_reset();
    for (int blocks : {0, 1}) {  // for the item, for the host name's copy
        g_blocks_left = blocks;
        EXPECT_EQ(send(1, 9), 0);
        EXPECT_EQ(g_num_blocks, 0);
    }
    EXPECT_EQ(fake_texts(), (t_texts{"stream 1 field=9", "stream 1 field=9"}));
    fake_reset();
    g_blocks_left = -1;
    send(1, 10);
    lconfd_notification_throttler_free();  // drops what is queued
    lconfd_notification_throttler_connection_reset();
    lconfd_notification_throttler_init(&ctx);
    EXPECT_EQ(g_lconfd_notification_throttler.state, LCONFD_THROTTLER_TERMINATE);
    EXPECT_EQ(send(1, 11), 0);
    EXPECT_EQ(fake_texts(), (t_texts{"stream 1 field=11"}));
}

TEST_F(Throttler, GoldenLineOfSyslog)
{
    t_notification notification(1);
    notification.add_text(0x61fe004e, "gold");
    notification.add(0xbad, fake_value(C_UINT32, 7));
    notification.end();
    confd_datetime time = {2024, 3, 9, 8, 5, 7, 1, 0, 0};
    lconfd_add_to_syslog(&time, notification.values.data(), 7);
    lconfd_add_to_syslog(&time, nullptr, 7);
    EXPECT_EQ(syslog_lines_take(),
              (std::vector<t_syslog_line>{
                  {190, "%Lumora-edge-1-unknown-6-INFO-1400002: Notification: 3/9/2024 8:5:7 "
                        "data-policy-association-status severity:1 host-name:edge-1 system-ip:ipv4 "
                        "policy-name:gold 2989:7 "},
                  {191, "Notification: Failed to write notification information to syslog"}}));
    std::string longest(3000, 'x');
    notification.values[2].v.val.c_s = longest.c_str();
    EXPECT_EQ(lconfd_notification_text(notification.values.data(), 7).size(), 2047u);
}

TEST(ThrottlerDeathTest, TooManyValuesAndOtherTypes)
{
    t_lconfd_context ctx = {};
    std::vector<confd_tag_value_t> values(20);
    EXPECT_EXIT(lconfd_event_send_notification(&ctx, values.data(), 20), testing::KilledBySignal(SIGSEGV),
                "");
    auto queue_text_as_severity = [&] {
        lconfd_notification_throttler_init(&ctx);
        values[1].v = fake_value(C_UINT32, 1);
        lconfd_enqueue_notification(values.data(), 19);
    };
    g_lconfd_notification_throttler.state = LCONFD_THROTTLER_INIT;
    EXPECT_EXIT(queue_text_as_severity(), testing::KilledBySignal(SIGSEGV), "");
}
