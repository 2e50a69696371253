#include "common/lum_process.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <csignal>
#include <cstdarg>
#include <fcntl.h>
#include <fstream>
#include <sched.h>
#include <sstream>
#include <string>
#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

#include "tests/common/own_root.h"

extern "C" int __real_open(const char *path, int flags, ...);

static int g_open_errno;  // what open fails with, 0 for the system's own

extern "C" int __wrap_open(const char *path, int flags, ...)
{
    if (g_open_errno != 0) {
        errno = g_open_errno;
        return -1;
    }
    va_list args;
    va_start(args, flags);
    mode_t mode = flags & O_CREAT ? va_arg(args, mode_t) : 0;
    va_end(args);
    return __real_open(path, flags, mode);
}

static std::string content(const std::string &path)
{
    std::ifstream in(path);
    std::ostringstream text;
    text << in.rdbuf();
    return text.str();
}

static void put(const char *path, const char *text)
{
    std::ofstream(path) << text;
}

static void work_daemon_pid_file()
{
    int reason = 0;
    EXPECT_EQ(lum_util_check_pid_file("tarnd", 0, &reason), -1);
    EXPECT_EQ(reason, ENOENT);
    EXPECT_EQ(lum_util_check_pid_file("tarnd", 0, nullptr), -1);
    EXPECT_EQ(lum_util_delete_pid_file("tarnd", 0), 0);

    umask(022);
    EXPECT_EQ(lum_util_create_pid_file("tarnd", 0, 4711), 0);
    EXPECT_EQ(content("/var/run/tarnd.0.pid"), "4711\n");
    struct stat status;
    EXPECT_EQ(stat("/var/run/tarnd.0.pid", &status), 0);
    EXPECT_EQ(status.st_mode & 07777, 0644u);
    EXPECT_EQ(lum_util_check_pid_file("tarnd", 0, nullptr), 4711);
    EXPECT_EQ(lum_util_create_pid_file("tarnd", 0, 9), -2);
    EXPECT_EQ(content("/var/run/tarnd.0.pid"), "4711\n");

    EXPECT_EQ(lum_util_create_pid_file("tarnd", 4294967296, 12), 0);
    EXPECT_EQ(content("/var/run/tarnd.4294967296.pid"), "12\n");
    EXPECT_EQ(lum_util_create_pid_file("no/such/folder", 0, 12), -1);

    for (const char *text : {"", "pid 3", "\n"}) {
        put("/var/run/tarnd.0.pid", text);
        EXPECT_EQ(lum_util_check_pid_file("tarnd", 0, &reason), 0) << text;
    }
    EXPECT_EQ(lum_util_delete_pid_file("tarnd", 0), 0);
    EXPECT_NE(access("/var/run/tarnd.0.pid", F_OK), 0);
}

TEST(LumProcess, ADaemonsPidFileIsNeverOverwritten)
{
    in_own_root(work_daemon_pid_file);
}

static void work_quagga_pid_file()
{
    char path[64];
    lum_util_get_quagga_pid_file("bgpd", 0, path, sizeof(path));
    EXPECT_STREQ(path, "/var/run/quagga/bgpd.pid");
    lum_util_get_quagga_pid_file("bgpd", 512, path, sizeof(path));
    EXPECT_STREQ(path, "/var/run/quagga/bgpd.pid.512");
    lum_util_get_quagga_pid_file("bgpd", 512, path, 5);
    EXPECT_STREQ(path, "/var");

    EXPECT_EQ(lum_util_delete_quagga_pid_file("bgpd", 512), -1);
    EXPECT_EXIT((void)lum_util_get_quagga_pid("bgpd", 512), testing::KilledBySignal(SIGSEGV), "");
    mkdir("/var/run/quagga", 0755);
    put("/var/run/quagga/bgpd.pid.512", "88\n");
    put("/var/run/quagga/bgpd.pid", "none\n");
    EXPECT_EQ(lum_util_get_quagga_pid("bgpd", 512), 88);
    EXPECT_EQ(lum_util_get_quagga_pid("bgpd", 0), 0);
    EXPECT_EQ(lum_util_delete_quagga_pid_file("bgpd", 512), 0);
    EXPECT_NE(access("/var/run/quagga/bgpd.pid.512", F_OK), 0);
}

TEST(LumProcessDeathTest, ARoutingDaemonsPidFileIsNamedByTheVpn)
{
    in_own_root(work_quagga_pid_file);
}

static ino_t current_ns()
{
    struct stat status = {};
    stat("/proc/self/ns/net", &status);
    return status.st_ino;
}

// Names the present network namespace for a VPN.
static void name_current_ns(const char *path)
{
    put(path, "");
    ASSERT_EQ(mount("/proc/self/ns/net", path, nullptr, MS_BIND, nullptr), 0);
}

static void work_namespaces()
{
    auto died = testing::KilledBySignal(SIGSEGV);
    mkdir("/var/run/netns", 0755);
    put("/var/run/netns/8", "no namespace");
    // Goes out to a new namespace and comes back to that of process 1, which is this one.
    EXPECT_EXIT(
        {
            ino_t home = current_ns();
            unshare(CLONE_NEWNET);
            name_current_ns("/var/run/netns/7");
            ino_t other = current_ns();
            unshare(CLONE_NEWNET);
            bool entered = lum_util_set_ns(7) == 0 && current_ns() == other;
            bool stayed = lum_util_set_ns(0) == 0 && lum_util_reset_ns(0) == 0 && current_ns() == other;
            bool returned = lum_util_reset_ns(7) == 0 && current_ns() == home && home != other;
            _exit(entered && stayed && returned ? 0 : 1);
        },
        testing::ExitedWithCode(0), "");
    EXPECT_EXIT(lum_util_set_ns(8), died, "");
    EXPECT_EXIT(lum_util_set_ns(9), died, "");
}

TEST(LumProcessDeathTest, NamespacesAreEnteredByVpnAndLeftForThatOfProcessOne)
{
    in_own_root(work_namespaces);
}

TEST(LumProcessDeathTest, WithoutProcessOnesNamespaceTheProcessLeaves)
{
    static const struct {
        int open_errno;
        bool dies;
    } rows[] = {{ENOENT, false}, {EACCES, true}, {EMFILE, true}};
    for (const auto &row : rows) {
        auto leave = [&] {
            g_open_errno = row.open_errno;
            lum_util_reset_ns(7);
            _exit(9);
        };
        if (row.dies)
            EXPECT_EXIT(leave(), testing::KilledBySignal(SIGSEGV), "") << row.open_errno;
        else
            EXPECT_EXIT(leave(), testing::ExitedWithCode(0), "") << row.open_errno;
    }
}

static bool limits_are(__rlimit_resource_t resource, rlim_t limit)
{
    rlimit limits;
    getrlimit(resource, &limits);
    return limits.rlim_cur == limit && limits.rlim_max == limit;
}

// In a child, whose limits can be spoilt.
TEST(LumProcessDeathTest, LimitsAndTheCoreFilterAreSetForThisProcess)
{
    EXPECT_EXIT(
        {
            lum_util_set_coredump_filter();
            bool filter = content("/proc/self/coredump_filter") == "0000007f\n";
            bool fd = lum_util_set_fd_limits(64) == 0 && limits_are(RLIMIT_NOFILE, 64);
            bool max_fd =
                lum_util_set_max_fd_limits() == -1 && errno == EPERM && limits_are(RLIMIT_NOFILE, 64);
            bool core = lum_util_set_core_limits(8192) == 0 && limits_are(RLIMIT_CORE, 8192);
            bool raised = lum_util_set_max_core_limits() == 0;  // depends on privilege
            bool max_core = limits_are(RLIMIT_CORE, raised ? RLIM_INFINITY : 8192);
            _exit(filter | fd << 1 | max_fd << 2 | core << 3 | max_core << 4);
        },
        testing::ExitedWithCode(0x1F), "");
}
