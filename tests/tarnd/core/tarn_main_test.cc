#include "tarnd/core/tarn_main.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <event2/event.h>
#include <fstream>
#include <string>
#include <sys/wait.h>
#include <unistd.h>

#include "common/lum_log.h"
#include "tests/common/own_root.h"
#include "tests/common/syslog_lines.h"
#include "tests/tarnd/core/daemon_calls.h"

static constexpr uint64_t full_debug = ~uint64_t{1};

TEST(StrReverse, ReversesInPlaceAndTakesNull)
{
    str_reverse(nullptr);
    static const char *const cases[][2] = {
        {"", ""}, {"a", "a"}, {"ab", "ba"}, {"abc", "cba"}, {"abcd", "dcba"}};
    for (const auto &c : cases) {
        char text[8];
        strcpy(text, c[0]);
        str_reverse(text);
        EXPECT_STREQ(text, c[1]);
    }
}

// ---- Events ----

namespace {

class TarnEvents : public testing::Test {
protected:
    void SetUp() override
    {
        ASSERT_EQ(tarn_event_create(&tarn), 0);
        ASSERT_EQ(tarn_base_timer_init(&tarn), 0);
        calls.timer_calls.clear();
        syslog_lines_take();
    }

    void TearDown() override
    {
        tarn_base_timer_destroy(&tarn);
        tarn_event_destroy(&tarn);
        g_tarn_debug_flags = 0;
    }

    DaemonCalls calls;
    t_tarn tarn = {};
};

}  // namespace

using t_calls = std::vector<std::string>;

TEST_F(TarnEvents, TheTickIsReArmedBeforeTimersRun)
{
    calls.timer_exec_results = {0, 0};
    for (short what : {short{EV_TIMEOUT}, short{0}}) {
        calls.timer_calls.clear();
        tarn_base_timer_cb(-1, what, &tarn);
        EXPECT_EQ(calls.timer_calls, (t_calls{"event_add 10000 us", "timer_exec 3 100"})) << what;
    }
    EXPECT_EQ(syslog_lines_take(), std::vector<t_syslog_line>());
}

TEST_F(TarnEvents, AnyOtherEventIsIgnoredAndReArmsNothing)
{
    for (short what : {short{EV_READ}, short{EV_TIMEOUT | EV_READ}, short{EV_SIGNAL}}) {
        tarn_base_timer_cb(-1, what, &tarn);
        EXPECT_EQ(calls.timer_calls, t_calls()) << what;
        char text[128];
        snprintf(text, sizeof(text), "Spurious timer ignored what = %#x arg = %p",
                 static_cast<unsigned>(what), static_cast<void *>(&tarn));
        EXPECT_EQ(syslog_lines_take(), (std::vector<t_syslog_line>{{191, text}}));
    }
}

TEST_F(TarnEvents, TimersThatAreLeftOverRunAgainAtOnce)
{
    calls.timer_exec_results = {EAGAIN, 0};
    tarn_base_timer_cb(-1, EV_TIMEOUT, &tarn);
    EXPECT_EQ(calls.timer_calls, (t_calls{"event_add 10000 us", "timer_exec 3 100", "event_active 0 0"}));
    // The activation comes back through the loop without waiting for the tick.
    event_base_loop(tarn.p_event_base, EVLOOP_NONBLOCK);
    EXPECT_TRUE(calls.timer_exec_results.empty());
}

TEST_F(TarnEvents, Usr1TogglesBetweenFullDebugAndNone)
{
    static const struct {
        uint64_t before;
        uint64_t after;
        const char *text;
    } cases[] = {
        {0, 32, "Setting debug-flags to 0x20"},
        {32, full_debug, "Setting debug-flags to 0xfffffffffffffffe"},
        {full_debug, 32, "Setting debug-flags to 0x20"},
        {32 | 2, 32, "Setting debug-flags to 0x20"},
        {16, 32, "Setting debug-flags to 0x20"},
    };
    for (const auto &c : cases) {
        g_tarn_debug_flags = c.before;
        raise(SIGUSR1);
        event_base_loop(tarn.p_event_base, EVLOOP_NONBLOCK);
        EXPECT_EQ(g_tarn_debug_flags, c.after);
        EXPECT_EQ(syslog_lines_take(), (std::vector<t_syslog_line>{{191, c.text}}));
    }
}

TEST_F(TarnEvents, Usr2LeavesTheLoop)
{
    raise(SIGUSR2);
    EXPECT_EQ(event_base_loop(tarn.p_event_base, 0), 0);
    EXPECT_TRUE(event_base_got_break(tarn.p_event_base));
    EXPECT_EQ(syslog_lines_take(),
              (std::vector<t_syslog_line>{
                  {191, "Received termination signal. Stopping and exiting gracefully.."}}));
}

// ---- The process ----

namespace {

struct t_end {
    int exit_status;  // -1 when a signal ended it
    std::string out;
    std::string err;
};

}  // namespace

static std::string take_file(FILE *p_file)
{
    std::string text;
    rewind(p_file);
    for (int c; (c = fgetc(p_file)) != EOF;)
        text += static_cast<char>(c);
    fclose(p_file);
    return text;
}

// The life of a daemon with these words, in a process of its own; with_calls runs there first.
static t_end run_daemon(std::vector<std::string> words, void (*with_calls)(DaemonCalls *) = nullptr)
{
    FILE *p_out = tmpfile();
    FILE *p_err = tmpfile();
    fflush(nullptr);
    pid_t pid = fork();
    if (pid == 0) {
        dup2(fileno(p_out), STDOUT_FILENO);
        dup2(fileno(p_err), STDERR_FILENO);
        DaemonCalls calls;
        if (with_calls != nullptr)
            with_calls(&calls);
        g_tarn_debug_flags = TARN_DEBUG_STDOUT;
        std::vector<char *> argv;
        for (std::string &word : words)
            argv.push_back(word.data());
        argv.push_back(nullptr);
        optind = 0;  // begin anew
        int status = appmain(static_cast<int>(words.size()), argv.data());
        fflush(nullptr);
        _exit(status);
    }
    int status = 0;
    waitpid(pid, &status, 0);
    return {WIFEXITED(status) ? WEXITSTATUS(status) : -1, take_file(p_out), take_file(p_err)};
}

static void leave_pid_file(const char *text)
{
    std::ofstream("/var/run/tarnd.0.pid") << text;
}

static void work_pid_file()
{
    static const struct {
        const char *behaviour;
        const char *file;
        const char *pid;
    } cases[] = {
        {"an empty file", "", "0"},
        {"a stale file", "4194303\n", "4194303"},
        {"a file without a number", "tarnd\n", "0"},
    };
    for (const auto &c : cases) {
        leave_pid_file(c.file);
        t_end end = run_daemon({"tarnd", "-x"});
        EXPECT_EQ(end.exit_status, 255) << c.behaviour;
        EXPECT_TRUE(end.out.ends_with(std::string(": Daemon tarnd already exists @ pid ") + c.pid + '\n'))
            << end.out;
        EXPECT_EQ(end.err, "") << "the file is reported before the options are read";
    }
    std::string text;
    std::getline(std::ifstream("/var/run/tarnd.0.pid"), text);
    EXPECT_EQ(text, "tarnd") << "the daemon leaves the file alone";
}

TEST(TarnProcess, ALeftoverPidFileRefusesWhateverItHolds)
{
    in_own_root(work_pid_file);
}

static void work_usage()
{
    for (const char *word : {"-x", "--help"}) {
        t_end end = run_daemon({"tarnd", "-f", word});
        EXPECT_EQ(end.exit_status, 1);
        EXPECT_TRUE(end.err.ends_with("\nusage: tarnd [-f]\n")) << end.err;
        EXPECT_EQ(end.out, "");
    }
}

TEST(TarnProcess, AnUnknownOptionEndsWithTheUsage)
{
    in_own_root(work_usage);
}

static void stop_while_filter_memory_waits(DaemonCalls *p_calls)
{
    p_calls->filter_init = [](t_tarn *, uint8_t) {
        raise(SIGUSR2);
        printf("filter memory goes on\n");
        return 0;
    };
}

static void work_whole_life()
{
    t_end end = run_daemon({"tarnd", "-f"}, stop_while_filter_memory_waits);
    EXPECT_EQ(end.exit_status, 0);
    size_t place = 0;
    for (const char *line : {"filter memory goes on\n", ": Initialization - Stage 1 complete\n",
                             ": Initialization - Stage 2 complete\n", ": Received termination signal. "}) {
        place = end.out.find(line, place);
        EXPECT_NE(place, std::string::npos) << line << " in " << end.out;
    }
}

TEST(TarnProcess, AStopDuringStartUpIsServedInTheLoop)
{
    in_own_root(work_whole_life);
}

static void fail_to_leave_the_foreground(DaemonCalls *p_calls)
{
    p_calls->fail("daemon");
}

static void fail_in_filter_memory(DaemonCalls *p_calls)
{
    p_calls->filter_init = [](t_tarn *, uint8_t) { return 12; };
}

static void work_failures()
{
    t_end end = run_daemon({"tarnd"}, fail_to_leave_the_foreground);
    EXPECT_EQ(end.exit_status, 255);
    EXPECT_TRUE(end.out.ends_with(": Failed to daemonize process: Resource temporarily unavailable\n"))
        << end.out;
    // In the foreground nothing is asked of daemon().
    for (const t_end &failed :
         {run_daemon({"tarnd"}, fail_in_filter_memory), run_daemon({"tarnd", "-f"}, [](DaemonCalls *p_calls) {
              fail_to_leave_the_foreground(p_calls);
              fail_in_filter_memory(p_calls);
          })})
        EXPECT_EQ(failed.exit_status, 12);
}

TEST(TarnProcess, AFailedStartIsTheExitStatus)
{
    in_own_root(work_failures);
}

TEST(TarnOptions, OneLetterEach)
{
    static const struct {
        std::vector<const char *> words;
        int foreground;
        uint64_t flags;
    } cases[] = {
        {{"tarnd"}, 0, 0},
        {{"tarnd", "-f"}, 1, 0},
        {{"tarnd", "-d"}, 0, full_debug},
        {{"tarnd", "-fd"}, 1, full_debug},
    };
    for (const auto &c : cases) {
        std::vector<std::string> words(c.words.begin(), c.words.end());
        std::vector<char *> argv;
        for (std::string &word : words)
            argv.push_back(word.data());
        argv.push_back(nullptr);
        optind = 0;  // begin anew
        run_foreground = 0;
        g_tarn_debug_flags = 0;
        tarn_set_config_params(static_cast<int>(words.size()), argv.data());
        EXPECT_EQ(run_foreground, c.foreground) << words.back();
        EXPECT_EQ(g_tarn_debug_flags, c.flags) << words.back();
    }
    g_tarn_debug_flags = 0;
    run_foreground = 0;
}
