#include "tarnd/peers/tarn_ttm.h"

#include "common/lum_log.h"
#include "platform/ttm/ttm.h"
#include "tarnd/core/tarn.h"
#include "tests/common/syslog_lines.h"
#include "tests/sysmgr/msgq_double.h"

#include <gtest/gtest.h>

#include <csignal>
#include <cstdlib>
#include <sys/socket.h>
#include <vector>

using t_bytes = std::vector<uint8_t>;

struct TtmChannelTest : testing::Test {
    t_tarn tarn = {};

    TtmChannelTest()
    {
        msgq_double_reset();
        EXPECT_EQ(tarn_ttm_init(&tarn), 0);
    }

    ~TtmChannelTest() override
    {
        EXPECT_EQ(tarn_ttm_destroy(&tarn), 0);
        EXPECT_EQ(tarn.p_ttm_msgq, nullptr);
        EXPECT_EQ(g_msgq_double.handles, 0);
        EXPECT_EQ(g_msgq_double.buffers, 0);
        avl_destroy_nodes(&tarn.tloc_db, free);
        g_tarn_debug_flags = 0;
    }

    static t_bytes tloc_bytes(e_ttm_msg_type type)
    {
        t_ttm_msg msg = {};
        msg.msg_type = type;
        msg.client_id = LUM_MODULE_TTM;
        IPADDR_SET_V4(&msg.u.tloc_msg.tloc.addr, 0x0a000001);
        t_bytes bytes(TTM_WIRE_SIZE_MAX);
        uint16_t length = 0;
        EXPECT_EQ(ttm_msg_encode(&msg, bytes.data(), &length), 0);
        bytes.resize(length);
        return bytes;
    }
};

TEST_F(TtmChannelTest, EachConnectionRegistersBothFamilies)
{
    EXPECT_EQ(g_msgq_double.srcid, 9u);
    EXPECT_EQ(g_msgq_double.tgtid, 2u);
    EXPECT_EQ(g_msgq_double.type, MSGQ_HANDLE_TYPE_CLIENT);
    EXPECT_EQ(g_msgq_double.params.socket_type, AF_UNIX);
    EXPECT_EQ(g_msgq_double.params.syslog_id, 184);
    const std::vector<t_bytes> want = {
        {1, 1, 0, 0, 0, 9, 0, 12, 1, 0, 0, 0},
        {1, 1, 1, 0, 0, 9, 0, 12, 1, 0, 0, 0},
    };
    for (int round = 0; round < 2; round++) {
        msgq_double_up();
        EXPECT_EQ(msgq_double_take(), want);
        msgq_double_deliver(tloc_bytes(TTM_MSG_TLOC_ADD));
        msgq_double_down();
        EXPECT_EQ(avl_numnodes(&tarn.tloc_db), 1u) << "a loss changes nothing";
    }
    msgq_double_deliver(tloc_bytes(TTM_MSG_TLOC_DELETE));
    EXPECT_EQ(avl_numnodes(&tarn.tloc_db), 0u);
}

TEST_F(TtmChannelTest, WhatIsOfNoUseIsDropped)
{
    g_tarn_debug_flags = TARN_DEBUG_TTM;
    syslog_lines_take();
    t_bytes cut = tloc_bytes(TTM_MSG_TLOC_ADD);
    cut.pop_back();
    for (const t_bytes &bytes : {cut, t_bytes{0}, t_bytes{1, 7, 8, 0, 0xff, 0xff, 0, 8}})
        msgq_double_deliver(bytes);
    msgq_double_deliver(tloc_bytes(TTM_MSG_TLOC_DELETE));
    EXPECT_EQ(avl_numnodes(&tarn.tloc_db), 0u);
    std::vector<std::string> lines;
    for (const t_syslog_line &line : syslog_lines_take())
        lines.push_back(line.text);
    EXPECT_EQ(lines, (std::vector<std::string>{"Received TTM Msg 0 of 139 bytes from unknown",
                                               "Received TTM Msg 0 of 1 bytes from unknown",
                                               "Received TTM Msg 7 of 8 bytes from unknown",
                                               "Received TTM Msg 6 of 140 bytes from ttmd"}));
}

TEST_F(TtmChannelTest, WithoutAHandleThereIsNoChannel)
{
    tarn_ttm_destroy(&tarn);
    g_msgq_double.refuses_init = true;
    EXPECT_EQ(tarn_ttm_init(&tarn), 12);
}

using TtmChannelDeathTest = TtmChannelTest;

TEST_F(TtmChannelDeathTest, ARegistrationThatCannotBeSentEndsTheDaemon)
{
    auto up_with = [](bool refuses_alloc, e_err write_result) {
        g_msgq_double.refuses_alloc = refuses_alloc;
        g_msgq_double.write_result = write_result;
        msgq_double_up();
    };
    EXPECT_EXIT(up_with(true, ERR_OK), testing::KilledBySignal(SIGSEGV), "");
    EXPECT_EXIT(up_with(false, ERR_AGAIN), testing::KilledBySignal(SIGSEGV), "");
}
