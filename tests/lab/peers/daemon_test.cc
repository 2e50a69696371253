#include "lab/sysmgrd/daemon.h"

#include "lab/sysmgrd/daemon_config.h"

#include <csignal>
#include <gtest/gtest.h>

// A system in which a daemon is started with the pids 100, 101 and so on; what is done to it is noted.
struct t_system {
    std::vector<std::string> done;
    pid_t next_pid = 100;
    pid_t living_pid = 0;  // of an earlier manager
    bool can_start = true;

    std::vector<std::string> take()
    {
        return std::exchange(done, {});
    }
};

static constexpr t_daemon_ops system_ops = {
    .adopt = [](void *p_user, const t_daemon_spec &) { return static_cast<t_system *>(p_user)->living_pid; },
    .start =
        [](void *p_user, const t_daemon_spec &) {
            t_system *p_system = static_cast<t_system *>(p_user);
            p_system->done.push_back("start");
            return p_system->can_start ? p_system->next_pid++ : -1;
        },
    .signal =
        [](void *p_user, pid_t pid, int number) {
            static_cast<t_system *>(p_user)->done.push_back("signal " + std::to_string(number) + " to " +
                                                            std::to_string(pid));
        },
    .pid_file =
        [](void *p_user, const t_daemon_spec &, pid_t pid) {
            static_cast<t_system *>(p_user)->done.push_back("pid file " + std::to_string(pid));
        },
    .log = [](void *, const t_daemon_spec &, const std::string &) {},
};

using t_lines = std::vector<std::string>;

class Daemon : public testing::Test {
protected:
    t_system system;
    t_daemon_spec spec = {.name = "tarnd",
                          .module = 9,
                          .command = {"tarnd", "-f"},
                          .has_hello = true,
                          .stop_signal = SIGUSR2,
                          .output = "",
                          .restart_with = {"mgmtd"}};
    t_daemon daemon = daemon_make(spec, {.p_ops = &system_ops, .p_user = &system});
    uint64_t now = 10'000;

    void step_to(uint64_t until)
    {
        for (; now < until; now += 50)
            daemon_step(&daemon, now);
    }
    void bring_up()
    {
        daemon_start(&daemon, now);
        step_to(now + 100);
        daemon_hello(&daemon, daemon.pid, now);
        system.take();
    }
};

TEST_F(Daemon, ThePidFileFollowsTheFirstHello)
{
    daemon_start(&daemon, now);
    step_to(now + 60'000);  // however long it takes
    EXPECT_EQ(system.take(), t_lines{"start"});
    daemon_hello(&daemon, 4711, now);
    EXPECT_EQ(system.take(), t_lines{});
    EXPECT_EQ(daemon.foreign, 1u);
    daemon_hello(&daemon, 100, now);
    daemon_hello(&daemon, 100, now + 900);
    daemon_hello(&daemon, 100, now + 2000);
    EXPECT_EQ(system.take(), t_lines{"pid file 100"});
    EXPECT_EQ(daemon.hellos, 3u);
    EXPECT_EQ(daemon.longest_gap_ms, 1100u);
}

TEST_F(Daemon, SilenceIsDeadlyAfterThreeMissedHellos)
{
    bring_up();
    step_to(daemon.last_hello_ms + DAEMON_SILENCE_MSECS + 1);
    EXPECT_EQ(system.take(), t_lines{});
    step_to(now + 100);
    EXPECT_EQ(system.take(), t_lines{"signal 9 to 100"});
    daemon_hello(&daemon, 100, now);  // too late
    step_to(now + 1000);
    daemon_ended(&daemon, "killed", now);
    step_to(now + DAEMON_MIN_PAUSE_MSECS);
    EXPECT_EQ(system.take(), t_lines{"pid file 0"});
    step_to(now + 100);
    EXPECT_EQ(system.take(), t_lines{"start"});
    EXPECT_EQ(daemon.missed, 1u);
    step_to(now + 60'000);
    EXPECT_EQ(daemon.state, DAEMON_STARTED)
        << "the silence of the new process counts from its own first hello";
}

TEST_F(Daemon, TheOneThatEndsAtOnceIsStartedEverMoreSeldom)
{
    daemon_start(&daemon, now);
    std::vector<uint64_t> pauses;
    uint64_t ended = now;
    system.can_start = false;
    while (pauses.size() < 7) {
        daemon_step(&daemon, ++now);
        if (system.take().empty())
            continue;
        pauses.push_back(now - ended);
        ended = now;
    }
    EXPECT_EQ(pauses, (std::vector<uint64_t>{1, 500, 1000, 2000, 4000, 8000, 8000}));
    system.can_start = true;
    step_to(now + 8100);
    step_to(now + 2000);
    daemon_ended(&daemon, "ended", now);
    EXPECT_EQ(daemon.due_ms - now, DAEMON_MIN_PAUSE_MSECS) << "a steady life makes good";
}

TEST_F(Daemon, StoppingAsksFirst)
{
    bring_up();
    daemon_stop(&daemon, now);
    step_to(now + DAEMON_STOP_MSECS);
    EXPECT_EQ(system.take(), t_lines{"signal " + std::to_string(SIGUSR2) + " to 100"});
    step_to(now + 100);
    EXPECT_EQ(system.take(), t_lines{"signal 9 to 100"});
    daemon_ended(&daemon, "killed", now);
    step_to(now + 20'000);
    EXPECT_EQ(system.take(), t_lines{"pid file 0"});
    EXPECT_EQ(daemon.state, DAEMON_STOPPED);
    daemon_start(&daemon, now);
    step_to(now + 100);
    daemon_restart(&daemon, now);
    daemon_ended(&daemon, "ended", now);
    step_to(now + 1000);
    EXPECT_EQ(daemon.pid, 102);
}

TEST_F(Daemon, ALivingProcessIsTakenOver)
{
    system.living_pid = 77;
    daemon_start(&daemon, now);
    step_to(now + 100);
    EXPECT_EQ(system.take(), t_lines{});
    EXPECT_EQ(daemon.state, DAEMON_UP);
    step_to(now + 5000);
    EXPECT_EQ(system.take(), t_lines{"signal 9 to 77"}) << "its hellos must come back";
}

TEST_F(Daemon, ItBeginsAnewWithTheOneThatItFollows)
{
    std::string ask = "signal " + std::to_string(SIGUSR2) + " to 10";
    daemon_other_ended(&daemon, "mgmtd", now);
    EXPECT_EQ(daemon.is_wanted, false);
    bring_up();
    daemon_other_ended(&daemon, "ttmd", now);
    EXPECT_EQ(system.take(), t_lines{});
    daemon_other_ended(&daemon, "mgmtd", now);
    daemon_other_ended(&daemon, "mgmtd", now);
    daemon_ended(&daemon, "ended", now);
    step_to(now + 1000);
    EXPECT_EQ(system.take(), (t_lines{ask + "0", "pid file 0", "start"}));
    daemon_other_ended(&daemon, "mgmtd", now);
    EXPECT_EQ(system.take(), t_lines{ask + "1"}) << "also before its first hello";
}

TEST_F(Daemon, OneWithoutHellosIsUpWhenItHasLivedForASecond)
{
    daemon.spec.has_hello = false;
    daemon_start(&daemon, now);
    step_to(now + DAEMON_STEADY_MSECS);
    EXPECT_EQ(system.take(), t_lines{"start"});
    step_to(now + 60'000);
    EXPECT_EQ(system.take(), t_lines{"pid file 100"});
}

TEST(DaemonConfig, SpecsAndFaults)
{
    std::vector<t_daemon_spec> specs;
    std::string error;
    ASSERT_TRUE(daemon_config_parse(
        R"({"daemons": [{"name": "tarnd", "module": "tarnd", "command": ["tarnd", "-f"]},
            {"name": "x", "module": 2, "command": ["x"], "hello": false,
             "stop_signal": "TERM", "output": "/o"},
            {"name": "y", "command": ["y"], "hello": false, "restart_with": ["x", "tarnd"]},
            {"name": "z", "command": ["z"], "hello": false}]})",
        &specs, &error))
        << error;
    ASSERT_EQ(specs.size(), 4u);
    EXPECT_EQ(specs[0].module, 9u);
    EXPECT_EQ(specs[0].stop_signal, SIGUSR2);
    EXPECT_TRUE(specs[0].has_hello);
    EXPECT_EQ(specs[1].stop_signal, SIGTERM);
    EXPECT_EQ(specs[1].output, "/o");
    EXPECT_EQ(specs[2].restart_with, (t_lines{"x", "tarnd"}));
    static constexpr const char *faults[][2] = {
        {R"({"demons": []})", "the configuration has the unknown member demons"},
        {R"({"daemons": [{"name": "a/b", "module": 2, "command": ["x"]}]})",
         "a daemon's \"name\" is missing or no file name"},
        {R"({"daemons": [{"name": "a", "module": 165, "command": ["x"]}]})", "a: \"module\" is no module"},
        {R"({"daemons": [{"name": "a", "module": 2, "command": []}]})", "a: \"command\" is empty"},
        {R"({"daemons": [{"name": "a", "module": 2, "command": ["x"], "stop_signal": "HUP"}]})",
         "a: \"stop_signal\" is none of USR2, TERM, INT"},
        {R"({"daemons": [{"name": "a", "module": 2, "command": ["x"]},
            {"name": "b", "module": 2, "command": ["x"]}]})",
         "b: its name or module is another's, too"},
        {R"({"daemons": [{"name": "a", "command": ["x"]}]})", "a: \"module\" or \"command\" is missing"},
        {R"({"daemons": [{"name": "a", "module": 2, "command": ["x"], "restart_with": ["a"]}]})",
         "a: \"restart_with\" names a, which is no other daemon"},
    };
    for (const auto &[text, reason] : faults) {
        EXPECT_FALSE(daemon_config_parse(text, &specs, &error));
        EXPECT_EQ(error, reason);
    }
    EXPECT_FALSE(daemon_config_parse("{", &specs, &error));
}
