#include "common/lum_exec.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <csignal>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <sys/mount.h>
#include <sys/resource.h>
#include <sys/time.h>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

#include "tests/common/own_root.h"
#include "tests/common/syslog_lines.h"

namespace fs = std::filesystem;

extern "C" pid_t __real_fork();

static bool g_fork_fails;
static int g_syncs;

extern "C" pid_t __wrap_fork()
{
    return g_fork_fails ? -1 : __real_fork();
}

// The tests leave the machine's disks alone.
extern "C" void __wrap_sync()
{
    g_syncs++;
}

using lines = std::vector<t_syslog_line>;

static void put(const fs::path &path, const std::string &text)
{
    std::ofstream(path) << text;
}

static std::string content(const fs::path &path)
{
    std::ifstream in(path);
    std::ostringstream text;
    text << in.rdbuf();
    return text.str();
}

struct LumExecTest : testing::Test {
    fs::path folder;

    LumExecTest()
    {
        char name[] = "/tmp/lum_exec_test.XXXXXX";
        folder = mkdtemp(name);
        syslog_lines_take();
    }
    ~LumExecTest() override
    {
        fs::remove_all(folder);
    }

    // A command that does what shell text says.
    std::string script(const std::string &text)
    {
        fs::path path = folder / "script";
        put(path, "#!/bin/sh\n" + text + "\n");
        fs::permissions(path, fs::perms::owner_all);
        return path;
    }

    std::string file_of(size_t size)
    {
        put(folder / "file", std::string(size, 'x'));
        return folder / "file";
    }
};

static std::string echo_of(int words)
{
    std::string command = "/bin/echo";
    for (int i = 1; i < words; i++)
        command += " w";
    return command;
}

TEST_F(LumExecTest, ACommandIsUpTo31WordsWithoutShellOrSearch)
{
    std::string echoed;
    for (int i = 0; i < 30; i++)
        echoed += i == 0 ? "w" : " w";
    const struct {
        std::string command;
        int result;
        std::string output;
    } rows[] = {
        {echo_of(31), 0, echoed + "\n"},
        {echo_of(32), 1, ""},
        {"", 1, ""},
        {"   ", 1, ""},
        {"  /bin/echo   a  b ", 0, "a b\n"},
        {"/bin/echo $HOME * 'a b' > x", 0, "$HOME * 'a b' > x\n"},
        {"echo a", 2, ""},
        {"/bin/no-such-program", 2, ""},
        {"/tmp", 2, ""},
        {script("echo out; echo err >&2; exit 200"), 200, "out\nerr\n"},
        {"/usr/bin/env", 0,
         "CONFD_IPC_ACCESS_FILE=/etc/confd/confd_ipc_secret\n"
         "NCS_IPC_ACCESS_FILE=/etc/confd/confd_ipc_secret\n"
         "PATH=/sbin:/bin:/usr/sbin:/usr/bin\n"},
    };
    for (const auto &row : rows) {
        char output[1024] = "untouched";
        EXPECT_EQ(lum_execute_output(row.command.c_str(), output, sizeof(output)), row.result) << row.command;
        EXPECT_EQ(output, row.output) << row.command;
        lines expected;
        if (row.result != 0)
            expected = {{191, "[" + row.command + "] exited with ret: " + std::to_string(row.result) +
                                  ", output: " + row.output}};
        EXPECT_EQ(syslog_lines_take(), expected) << row.command;

        char bytes[1024];
        size_t size = sizeof(bytes);
        EXPECT_EQ(lum_execute_output_bin(row.command.c_str(), bytes, &size), row.result) << row.command;
        EXPECT_EQ(std::string(bytes, size), row.output) << row.command;
        if (row.result != 0)
            expected = {{191, "[" + row.command + "] exited with ret: " + std::to_string(row.result)}};
        EXPECT_EQ(syslog_lines_take(), expected) << row.command;
    }
}

TEST_F(LumExecTest, TextOutputIsCutAtItsBufferAndAtTheReader)
{
    std::vector<char> output(20'000);
    std::string command = "/bin/cat " + file_of(10'000);
    EXPECT_EQ(lum_execute_output(command.c_str(), output.data(), output.size()), 0);
    EXPECT_EQ(strlen(output.data()), 8191u);
    EXPECT_EQ(lum_execute_output(command.c_str(), output.data(), 5), 0);
    EXPECT_STREQ(output.data(), "xxxx");
    EXPECT_EQ(lum_execute_output(command.c_str(), nullptr, 0), 0);
    EXPECT_EQ(syslog_lines_take(), lines{});
    // More than a pipe holds: the command is still writing when nobody reads any more.
    command = "/bin/cat " + file_of(300'000);
    EXPECT_EQ(lum_execute_output(command.c_str(), output.data(), output.size()), -1);
    EXPECT_EQ(strlen(output.data()), 8191u);
    lines log = syslog_lines_take();
    ASSERT_EQ(log.size(), 1u);
    EXPECT_EQ(log[0].priority, 187);
    EXPECT_EQ(
        log[0].text.find("[" + command + "] exited abnormally (ret: 13), reason: Broken pipe, output: xxx"),
        0u);
}

TEST_F(LumExecTest, BinaryOutputIsDrainedAndCounted)
{
    static const struct {
        size_t file_size;
        size_t capacity;
    } rows[] = {{100, 10}, {100, 100}, {100, 101}, {0, 10}, {300'000, 10}, {300'000, 0}, {300'000, 299'999}};
    for (const auto &row : rows) {
        std::string command = "/bin/cat " + file_of(row.file_size);
        std::string stored(300'010, '-');
        size_t size = row.capacity;
        EXPECT_EQ(lum_execute_output_bin(command.c_str(), stored.data(), &size), 0);
        EXPECT_EQ(size, row.file_size);
        size_t expected = std::min(row.file_size, row.capacity);
        EXPECT_EQ(stored.find('-'), expected) << row.file_size << " into " << row.capacity;
        size = 77;
        EXPECT_EQ(lum_execute_output_bin(command.c_str(), nullptr, &size), 0);
        EXPECT_EQ(size, row.file_size);
        EXPECT_EQ(lum_execute_output_bin(command.c_str(), stored.data(), nullptr), 0);
    }
    char bytes[8] = {};
    size_t size = sizeof(bytes);
    EXPECT_EQ(lum_execute_output_bin("/usr/bin/printf a\\0b", bytes, &size), 0);
    EXPECT_EQ(std::string(bytes, size), std::string("a\0b", 3));
}

TEST_F(LumExecTest, ASignalIsAFailure)
{
    std::string command = script("echo last words; kill -KILL $$");
    char output[64];
    size_t size = sizeof(output);
    EXPECT_EQ(lum_execute_output(command.c_str(), output, sizeof(output)), -1);
    EXPECT_STREQ(output, "last words\n");
    EXPECT_EQ(lum_execute_output_bin(command.c_str(), output, &size), -1);
    EXPECT_EQ(size, 11u);
    std::string text = "[" + command + "] exited abnormally (ret: 9), reason: Killed";
    EXPECT_EQ(syslog_lines_take(), (lines{{187, text + ", output: last words\n"}, {187, text}}));
}

static void ignore_signal(int) {}

// The child closes its output at once, so that the signals hit the wait, which must not end by them.
TEST_F(LumExecTest, InterruptedWaitsGoOn)
{
    struct sigaction action = {};
    action.sa_handler = ignore_signal;
    sigaction(SIGALRM, &action, nullptr);
    itimerval often = {{0, 5000}, {0, 5000}};
    setitimer(ITIMER_REAL, &often, nullptr);
    EXPECT_EQ(lum_execute_output(script("exec >/dev/null 2>&1; sleep 0.1; exit 3").c_str(), nullptr, 0), 3);
    EXPECT_EQ(lum_execute_output(script("sleep 0.1; exit 4").c_str(), nullptr, 0), 4);
    often = {};
    setitimer(ITIMER_REAL, &often, nullptr);
    signal(SIGALRM, SIG_DFL);
}

TEST_F(LumExecTest, FailuresOfTheMachineryGiveMinusOne)
{
    rlimit limits;
    getrlimit(RLIMIT_NOFILE, &limits);
    rlimit none = {0, limits.rlim_max};
    setrlimit(RLIMIT_NOFILE, &none);
    EXPECT_EQ(lum_execute_output("/bin/true", nullptr, 0), -1);
    EXPECT_EQ(lum_execute_output_bin("/bin/true", nullptr, nullptr), -1);
    setrlimit(RLIMIT_NOFILE, &limits);
    std::string text = "pipe failed for [/bin/true], reason: Too many open files";
    EXPECT_EQ(syslog_lines_take(), (lines{{187, text}, {187, text}}));

    g_fork_fails = true;
    EXPECT_EQ(lum_execute_output("/bin/true", nullptr, 0), -1);
    EXPECT_EQ(lum_execute_output_bin("/bin/true", nullptr, nullptr), -1);
    EXPECT_EQ(lum_execute_nowait("/bin/true"), -1);
    g_fork_fails = false;
    EXPECT_EQ(syslog_lines_take(), (lines{{187, "fork failed for [/bin/true]"},
                                          {187, "fork failed for [/bin/true]"},
                                          {187, "Fork failed for [/bin/true]"}}));

    signal(SIGCHLD, SIG_IGN);
    EXPECT_EQ(lum_execute_output("/bin/true", nullptr, 0), -1);
    signal(SIGCHLD, SIG_DFL);
    EXPECT_EQ(syslog_lines_take(), (lines{{187, "[/bin/true] failed, reason: No child processes"}}));
}

TEST_F(LumExecTest, NullArgumentsAreRefused)
{
    size_t size = 5;
    EXPECT_EQ(lum_execute_output(nullptr, nullptr, 0), -EINVAL);
    EXPECT_EQ(lum_execute_output_bin(nullptr, nullptr, &size), -EINVAL);
    EXPECT_EQ(lum_execute_nowait(nullptr), -EINVAL);
    EXPECT_EQ(lum_write_val_to_file(nullptr, "x", 1), -EINVAL);
    EXPECT_EQ(lum_write_val_to_file("/tmp", nullptr, 1), -EINVAL);
    EXPECT_EQ(lum_rmdir(nullptr), -EINVAL);
    EXPECT_EQ(lum_rmfile_with_prefix(nullptr, "a"), -EINVAL);
    EXPECT_EQ(lum_rmfile_with_prefix("/tmp", nullptr), -EINVAL);
    EXPECT_EQ(lum_rmfile_with_suffix(nullptr, "a"), -EINVAL);
    EXPECT_EQ(lum_rmfile_with_suffix("/tmp", nullptr), -EINVAL);
    EXPECT_EQ(size, 5u);
}

// Waits for a child that nowait has started. It stays a zombie until here.
static int exit_code_of(pid_t pid)
{
    siginfo_t info;
    EXPECT_EQ(waitid(P_PID, static_cast<id_t>(pid), &info, WEXITED | WNOWAIT), 0);
    int status = 0;
    EXPECT_EQ(waitpid(pid, &status, 0), pid);
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

TEST_F(LumExecTest, ADetachedCommandHasItsOwnGroupAndNoEnvironment)
{
    std::string env = folder / "environ";
    EXPECT_EQ(exit_code_of(lum_execute_nowait(("/bin/cp /proc/self/environ " + env).c_str())), 0);
    ASSERT_TRUE(fs::exists(env));
    EXPECT_EQ(content(env), "");
    std::string state = folder / "stat";
    pid_t pid = lum_execute_nowait(("/bin/cp /proc/self/stat " + state).c_str());
    EXPECT_EQ(exit_code_of(pid), 0);
    int group = 0;
    sscanf(content(state).c_str(), "%*d (%*[^)]) %*c %*d %d", &group);
    EXPECT_EQ(group, pid);
    EXPECT_EQ(exit_code_of(lum_execute_nowait(echo_of(31).c_str())), 0);
    EXPECT_EQ(exit_code_of(lum_execute_nowait(echo_of(32).c_str())), 1);
    EXPECT_EQ(exit_code_of(lum_execute_nowait("/bin/no-such-program")), 2);
    EXPECT_EQ(syslog_lines_take(), lines{});
}

TEST_F(LumExecTest, AValueIsWrittenAndSynced)
{
    std::string path = folder / "value";
    std::string missing = folder / "no" / "value";
    put(path, "longer than what follows");
    g_syncs = 0;
    EXPECT_EQ(lum_write_val_to_file(path.c_str(), "128+", 3), 0);
    EXPECT_EQ(content(path), "128");
    EXPECT_EQ(g_syncs, 1);
    EXPECT_EQ(lum_write_val_to_file(missing.c_str(), "1", 1), -1);
    EXPECT_EQ(lum_write_val_to_file("/dev/full", "12", 2), -1);
    EXPECT_EQ(g_syncs, 1);
    EXPECT_EQ(syslog_lines_take(),
              (lines{{189, "[echo 128 -> " + path + "] successful"},
                     {187, "Error opening " + missing + ", reason: No such file or directory"},
                     {187, "[echo 12 -> /dev/full] failed"}}));
}

TEST_F(LumExecTest, ATreeIsRemovedWithoutFollowingLinks)
{
    fs::create_directories(folder / "tree" / "a" / "b");
    put(folder / "tree" / "a" / "b" / "file", "");
    fs::create_directories(folder / "outside");
    put(folder / "outside" / "kept", "");
    fs::create_directory_symlink(folder / "outside", folder / "tree" / "link");
    std::string tree = folder / "tree";
    EXPECT_EQ(lum_rmfile_with_prefix(tree.c_str(), "fi"), 0);
    EXPECT_EQ(lum_rmfile_with_suffix(tree.c_str(), "le"), 0);
    EXPECT_TRUE(fs::exists(folder / "tree" / "a" / "b" / "file"));
    EXPECT_EQ(lum_rmdir(tree.c_str()), 0);
    EXPECT_FALSE(fs::exists(tree));
    EXPECT_TRUE(fs::exists(folder / "outside" / "kept"));
    EXPECT_EQ(lum_rmdir(tree.c_str()), -1);
    EXPECT_EQ(syslog_lines_take(), lines{});
}

// A mount point can't be removed.
static void work_rmdir_of_a_mount()
{
    fs::create_directories("/run/tree/mounted");
    ASSERT_EQ(mount("none", "/run/tree/mounted", "tmpfs", 0, nullptr), 0);
    syslog_lines_take();
    EXPECT_EQ(lum_rmdir("/run/tree"), -1);
    EXPECT_TRUE(fs::exists("/run/tree/mounted"));
    EXPECT_EQ(syslog_lines_take(),
              (lines{{189, "Error removing /run/tree/mounted, reason: Device or resource busy"}}));
}

TEST(LumExec, TheFirstEntryThatStaysEndsTheRemoval)
{
    in_own_root(work_rmdir_of_a_mount);
}
