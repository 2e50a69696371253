#include "sysmgr/sysmgr_app.h"

#include "common/timer.h"
#include "tests/common/own_clock.h"
#include "tests/sysmgr/msgq_double.h"

#include <gtest/gtest.h>

#include <cstring>
#include <functional>
#include <string>
#include <sys/socket.h>
#include <unistd.h>

using t_bytes = std::vector<uint8_t>;

static std::vector<t_sysmgr_app_connect_reply> replies;

static void note_reply(void *app_handle, const t_sysmgr_app_msg *p_msg)
{
    EXPECT_EQ(app_handle, &replies);
    replies.push_back(p_msg->connect_reply);
}

struct SysmgrAppTest : testing::Test {
    t_timer_mgr *p_mgr = timer_mgr_create(TIMER_RESN_10MSEC, nullptr, nullptr, nullptr, TIMER_PRI_MASK_ALL);
    t_sysmgr_app *p_app = nullptr;

    SysmgrAppTest()
    {
        msgq_double_reset();
        replies.clear();
    }

    ~SysmgrAppTest() override
    {
        app_sysmgr_disconnect(p_app);
        EXPECT_EQ(g_msgq_double.handles, 0);
        EXPECT_EQ(g_msgq_double.buffers, 0);
        timer_mgr_destroy(p_mgr);
    }

    void connect(f_app_read_cb read_cb = note_reply)
    {
        p_app = app_sysmgr_connect(nullptr, p_mgr, 0, LUM_MODULE_TARN, &replies, read_cb);
    }

    // Messages sent while the high-priority wheel alone runs for so long.
    size_t sent_in(int msecs)
    {
        for (int i = 0; i < msecs; i += 10) {
            own_clock_advance(10 * OWN_CLOCK_MSEC);
            timer_exec(p_mgr, TIMER_PRI_MASK_HIGH, 100);
        }
        return msgq_double_take().size();
    }
};

// Type and length, the process id, the VPN, the text.
static t_bytes golden(uint8_t type, uint8_t len, uint64_t vpn_id, const std::string &text)
{
    t_bytes bytes = {1, type, len, 0, 0, 0, 0, 0};
    for (int i = 0; i < 4; i++)
        bytes.push_back(static_cast<uint8_t>(getpid() >> (8 * i)));
    bytes.resize(24);
    for (int i = 0; i < 8; i++)
        bytes.push_back(static_cast<uint8_t>(vpn_id >> (8 * i)));
    bytes.insert(bytes.end(), text.begin(), text.end());
    return bytes;
}

struct SysmgrAppGolden : SysmgrAppTest {};

TEST_F(SysmgrAppGolden, EachMessageInBytes)
{
    connect();
    struct t_case {
        std::function<void(t_sysmgr_app *)> request;
        t_bytes want;
    };
    static const t_case cases[] = {
        {[](auto *) { msgq_double_up(); }, golden(1, 32, 0, "")},
        {[](auto *p) { sysmgr_app_request_reboot(p, "why"); }, golden(2, 36, 0, std::string("why\0", 4))},
        {[](auto *p) { sysmgr_app_request_shutdown(p, ""); }, golden(3, 33, 0, std::string("\0", 1))},
        {[](auto *p) { sysmgr_app_request_vpn_daemons_start(p, 0x0102030405060708); },
         golden(5, 32, 0x0102030405060708, "")},
        {[](auto *p) { sysmgr_app_request_vpn_daemons_stop(p, 512); }, golden(6, 32, 512, "")},
        {[](auto *p) { sysmgr_app_request_confd_init_done(p); }, golden(7, 32, 0, "")},
    };
    for (const t_case &c : cases) {
        c.request(p_app);
        EXPECT_EQ(msgq_double_take(), std::vector<t_bytes>{c.want}) << int(c.want[1]);
    }
}

TEST_F(SysmgrAppTest, LongReasonsAreCutToWhatAMessageHolds)
{
    connect();
    for (size_t length : {300u, 65494u, 65495u, 70000u}) {
        sysmgr_app_request_reboot(p_app, std::string(length, 'r').c_str());
        t_bytes message = msgq_double_take().at(0);
        size_t carried = std::min<size_t>(length, 65494);
        ASSERT_EQ(message.size(), 33 + carried) << length;
        EXPECT_EQ(message[2] | message[3] << 8, static_cast<int>(message.size())) << length;
        EXPECT_EQ(strlen(reinterpret_cast<char *>(&message[32])), carried) << length;
    }
}

TEST_F(SysmgrAppTest, BeatsEverySecondWhileUp)
{
    connect();
    EXPECT_EQ(g_msgq_double.srcid, 9u);
    EXPECT_EQ(g_msgq_double.tgtid, 7u);
    EXPECT_EQ(g_msgq_double.type, MSGQ_HANDLE_TYPE_CLIENT);
    EXPECT_EQ(g_msgq_double.params.socket_type, AF_UNIX);
    EXPECT_EQ(g_msgq_double.params.syslog_id, 184);
    EXPECT_EQ(sent_in(3000), 0u) << "before the first connection";
    for (int round = 0; round < 2; round++) {
        msgq_double_up();
        EXPECT_EQ(msgq_double_take().size(), 1u) << "at once";
        EXPECT_EQ(sent_in(980), 0u);
        EXPECT_EQ(sent_in(40), 1u);
        EXPECT_EQ(sent_in(5000), 5u);
        msgq_double_down();
        EXPECT_EQ(sent_in(3000), 0u) << "after a loss";
    }
}

TEST_F(SysmgrAppTest, TheLastBeatIsKnown)
{
    char text[40];
    char want[40];
    time_t never = 0;
    g_sysmgr_app_last_hello_time = 77;
    connect();
    EXPECT_EQ(sysmgr_app_get_last_hello_time(text, sizeof(text)), text);
    EXPECT_EQ(std::string(text) + "\n", ctime_r(&never, want));
    g_msgq_double.refuses_alloc = true;
    msgq_double_up();
    EXPECT_EQ(g_sysmgr_app_last_hello_time, 0) << "a beat that was skipped";
    g_msgq_double.refuses_alloc = false;
    g_msgq_double.write_result = ERR_AGAIN;
    msgq_double_up();
    EXPECT_EQ(msgq_double_take().size(), 0u);
    EXPECT_NE(g_sysmgr_app_last_hello_time, 0) << "a beat that the queue refused";
    msgq_double_down();
    EXPECT_EQ(strlen(sysmgr_app_get_last_hello_time(text, sizeof(text))), 24u);
    EXPECT_EQ(strlen(sysmgr_app_get_last_hello_time(text, 9)), 8u);
}

TEST_F(SysmgrAppTest, OnlyWholeConnectRepliesArePassedOn)
{
    static const t_bytes reply = {1, 4, 32, 0, 0, 0, 0, 0, 5, 1, 0, 0, 0, 0, 0, 0,
                                  0, 2, 0,  0, 0, 0, 0, 1, 0, 0, 0, 0, 0, 0, 0, 0};
    struct t_case {
        const char *behaviour;
        size_t size;
        size_t at;
        uint8_t value;
        size_t want;
    };
    static const t_case cases[] = {
        {"whole", 32, 1, 4, 1},        {"longer", 40, 1, 4, 1},  {"cut", 31, 1, 4, 0},
        {"one byte", 1, 0, 1, 0},      {"a hello", 32, 1, 1, 0}, {"a type that is none", 32, 1, 0xff, 0},
        {"claims more", 32, 2, 33, 0},
    };
    connect();
    for (const t_case &c : cases) {
        t_bytes bytes = reply;
        bytes[c.at] = c.value;
        bytes.resize(c.size);
        replies.clear();
        msgq_double_deliver(bytes);
        EXPECT_EQ(replies.size(), c.want) << c.behaviour;
        EXPECT_EQ(g_msgq_double.buffers, 0) << c.behaviour;
    }
    msgq_double_deliver(reply);
    EXPECT_EQ(replies.back().vpn_id, 0x105u);
    EXPECT_EQ(replies.back().modules_up_mask, 0x0100000000000200u);
    p_app->read_cb = nullptr;
    msgq_double_deliver(reply);
    EXPECT_EQ(replies.size(), 1u);
}

TEST_F(SysmgrAppTest, NoHandleLeavesNothingBehind)
{
    g_msgq_double.refuses_init = true;
    connect();
    EXPECT_EQ(p_app, nullptr);
    EXPECT_EQ(p_mgr->created_timers.p_head, nullptr);
    app_sysmgr_disconnect(nullptr);
}
