// The daemon between a policy daemon's end of the channel and a forwarding plane, all on one loop.
#include "lab/ftmd/ftm_daemon.h"

#include "lab/control/lab_program.h"
#include "lab/fp/fp_control.h"
#include "lab/peers/peer_link.h"
#include "tests/lab/fp/fp_pool.h"
#include "tests/lab/fp/frames.h"
#include "tests/lab/ftmd/ftm_bytes.h"

#include <chrono>
#include <csignal>
#include <functional>
#include <gtest/gtest.h>

static constexpr uint8_t module_tarn = 9;
static constexpr uint8_t module_ftm = 3;

static uint64_t one_tick()
{
    return 1;
}

class FtmDaemonTest : public testing::Test {
protected:
    FtmDaemonTest() : file(t_bytes()), base(event_base_new())
    {
        signal(SIGPIPE, SIG_IGN);
        service = {fp_engine_new(pool.spans()), fp_clock_make(one_tick, 1000), {}};
    }

    void open_tarnd()
    {
        static constexpr t_peer_server_ops ops = {
            .up = on_up,
            .down = [](void *, t_peer_session *) {},
            .message = [](void *, t_peer_session *, t_peer_bytes) {},
            .bad = nullptr,
        };
        tarnd = peer_server_open(base.get(), file.folder + "/tarnd", module_tarn, &ops, this, &error);
        ASSERT_NE(tarnd, nullptr) << error;
    }

    void open_fpd()
    {
        fpd = fp_control_open(base.get(), &service, file.folder + "/fpd", &error);
        ASSERT_NE(fpd, nullptr) << error;
    }

    void open_ftmd()
    {
        ftmd = ftm_daemon_open(base.get(),
                               {file.folder + "/tarnd", file.folder + "/fpd", file.folder + "/ftmd"}, &error);
        ASSERT_NE(ftmd, nullptr) << error;
    }

    // The replay.
    static void on_up(void *p_user, t_peer_session *p_session)
    {
        FtmDaemonTest *p_test = static_cast<FtmDaemonTest *>(p_user);
        EXPECT_EQ(peer_session_module(p_session), module_ftm);
        for (const t_message_bytes &message : p_test->replay)
            peer_session_send(p_session, message);
    }

    // The names of the forwarding plane's VPN bindings.
    std::string fpd_names() const
    {
        std::string names;
        for (const t_fp_vpn_binding &row : service.bindings.vpns)
            names += row.name;
        return names;
    }

    ::testing::AssertionResult wait_for(const std::function<bool()> &condition)
    {
        auto end = std::chrono::steady_clock::now() + std::chrono::seconds(10);
        while (!condition()) {
            if (std::chrono::steady_clock::now() > end)
                return ::testing::AssertionFailure() << "bindings: " << fpd_names();
            timeval slice = {0, 5000};
            event_base_loopexit(base.get(), &slice);
            event_base_dispatch(base.get());
        }
        return ::testing::AssertionSuccess();
    }

    t_test_memory memory;
    t_test_pool pool;
    t_test_file file;
    t_fp_service service;
    std::string error;
    lab_base_ptr base;
    std::vector<t_message_bytes> replay;
    peer_server_ptr tarnd;
    lab_control_ptr fpd;
    ftm_daemon_ptr ftmd;
};

TEST_F(FtmDaemonTest, BindingsReachTheForwardingPlaneWhoeverComesAndGoes)
{
    replay = {vpn_message({1, 1, 3, 5, "a"}, {{1, 9}}), {1, 2, 3}, vpn_message({1, 2, 3, 6, "b"}, {{1, 9}})};
    open_ftmd();
    open_tarnd();
    open_fpd();
    EXPECT_TRUE(wait_for([this] { return fpd_names() == "ab"; }));

    peer_session_send(peer_server_sessions(tarnd.get())[0], vpn_message({2, 1, 3, 5, "a"}, {{1, 9}}));
    EXPECT_TRUE(wait_for([this] { return fpd_names() == "b"; }));

    fpd.reset();
    service.bindings = {};
    open_fpd();
    EXPECT_TRUE(wait_for([this] { return fpd_names() == "b"; })) << "a new forwarding plane gets the table";

    tarnd.reset();
    replay = {vpn_message({1, 1, 3, 7, "c"}, {{1, 9}})};
    open_tarnd();
    EXPECT_TRUE(wait_for([this] { return fpd_names() == "c"; })) << "a new connection begins with nothing";
}

TEST_F(FtmDaemonTest, ALargeTableIsHandedOver)
{
    std::vector<t_range_entry> ranges;
    for (uint32_t vpn = 0; vpn < 8000; vpn++)
        ranges.push_back({vpn, vpn});
    replay = {vpn_message({1, 1, 3, 5, std::string(127, 'n')}, ranges)};
    open_tarnd();
    open_fpd();
    open_ftmd();
    EXPECT_TRUE(wait_for([this] { return service.bindings.vpns.size() == 8000; }));
}
