// Files: crashes at every point, full disks, bad files, rollback.

#include "mgmtd/store/mgmt_crash.h"
#include "tests/mgmtd/store/store_world.h"

#include <cerrno>
#include <csignal>
#include <cstdarg>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

// ---- System calls that fail on demand ----

static int g_calls_until_failure = -1;  // of write, fsync, rename and open with creation; -1: none fails
static int g_errno;

static bool must_fail()
{
    if (g_calls_until_failure < 0 || g_calls_until_failure-- > 0)
        return false;
    errno = g_errno;
    return true;
}

extern "C" {
ssize_t __real_write(int fd, const void *p_data, size_t size);
ssize_t __wrap_write(int fd, const void *p_data, size_t size)
{
    return must_fail() ? -1 : __real_write(fd, p_data, size);
}

int __real_fsync(int fd);
int __wrap_fsync(int fd)
{
    return must_fail() ? -1 : __real_fsync(fd);
}

int __real_rename(const char *p_from, const char *p_to);
int __wrap_rename(const char *p_from, const char *p_to)
{
    return must_fail() ? -1 : __real_rename(p_from, p_to);
}

int __real_open(const char *p_file, int flags, ...);
int __wrap_open(const char *p_file, int flags, ...)
{
    va_list args;
    va_start(args, flags);
    mode_t mode = (flags & O_CREAT) != 0 ? va_arg(args, mode_t) : 0;
    va_end(args);
    return (flags & O_CREAT) != 0 && must_fail() ? -1 : __real_open(p_file, flags, mode);
}
}

static std::string zone_edit(const std::string &name)
{
    return world_edit("merge", "/policy/zone{" + name + "}");
}

static size_t files_in(const std::string &folder)
{
    return static_cast<size_t>(std::distance(std::filesystem::directory_iterator(folder), {}));
}

TEST(StoreFiles, AFailureAtAnyCallKeepsTheOldStore)
{
    t_world_store world;
    ASSERT_EQ(world.commit(zone_edit("a")), "");
    bool succeeded = false;
    for (int call = 0; !succeeded; call++) {
        ASSERT_LT(call, 20);
        world.events.clear();
        g_calls_until_failure = call;
        g_errno = ENOSPC;
        std::string outcome = world.commit(zone_edit("b"));
        succeeded = g_calls_until_failure >= 0;
        g_calls_until_failure = -1;
        if (succeeded)
            break;
        EXPECT_NE(outcome.find("No space left on device"), std::string::npos) << call << outcome;
        EXPECT_EQ(world.events.back(), "abort") << call;
        EXPECT_EQ(world_lines(world.store.running), "+ /policy/zone{a}\n") << call;
        EXPECT_EQ(files_in(world.folder), 1u) << call;
        ASSERT_TRUE(world.open());
        EXPECT_EQ(world_lines(world.store.running), "+ /policy/zone{a}\n") << call;
    }
    EXPECT_EQ(world_lines(world.store.running), "+ /policy/zone{a}\n+ /policy/zone{b}\n");
}

#ifdef MGMT_CRASH_POINTS

// A child process commits and dies at a point; whoever comes next finds the old or the new store.
TEST(StoreFiles, ACrashAtAnyPointLeavesOldOrNew)
{
    static const struct {
        const char *point;
        bool is_new;
    } points[] = {{"before-file", false},        {"file-created", false},
                  {"file-block-written", false}, {"file-written", false},
                  {"file-synchronised", false},  {"file-renamed", true},
                  {"folder-synchronised", true}, {"swapped", true},
                  {"old-file-removed", true}};
    for (const auto &c : points) {
        t_world_store world;
        ASSERT_EQ(world.commit(zone_edit("a")), "");
        // Old files are removed only when there are too many.
        for (int i = 0; c.point == std::string_view("old-file-removed") && i < 50; i++)
            ASSERT_EQ(world.commit(world_edit("merge", "/policy/log-frequency", std::to_string(i))), "");
        std::string before = world_lines(world.store.running);
        pid_t child = fork();
        ASSERT_GE(child, 0);
        if (child == 0) {
            g_mgmt_crash_point = c.point;
            world.commit(zone_edit("b"));
            _exit(0);
        }
        int status = 0;
        ASSERT_EQ(waitpid(child, &status, 0), child);
        EXPECT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == SIGKILL) << c.point;
        ASSERT_TRUE(world.open()) << c.point;
        EXPECT_EQ(world_lines(world.store.running), c.is_new ? before + "+ /policy/zone{b}\n" : before)
            << c.point;
        EXPECT_TRUE(world.store.files.alarms.empty()) << c.point;
        EXPECT_EQ(world.commit(zone_edit("c")), "") << c.point;
        EXPECT_LE(world.store.files.commits.size(), MGMT_FILES_ROLLBACKS + 1);
    }
}

#endif

TEST(StoreFiles, ABadFileIsPutAsideAndThePreviousOneUsed)
{
    static const struct {
        const char *config, *reason;
    } bad[] = {
        {"{", ""},
        {R"({"commit": 2,)", ""},
        {R"({"lumora-policy:policy":{"zone":[{"name":"__x"}]}})",
         "names that begin with two underscores belong to the system"},
        {R"({"lumora-policy:policy":{"policer":[{"name":"p","rate":"9","burst":1}]}})", "/policy/policer{p}"},
        {R"({"lumora-vpn:vpn":{"vpn-instance":[{"vpn-id":"1","vrf-id":1}]}})", "vrf-id"},
    };
    for (const auto &c : bad) {
        t_world_store world;
        ASSERT_EQ(world.commit(zone_edit("a")), "");
        ASSERT_EQ(world.commit(zone_edit("b")), "");
        std::string file = world.folder + "/commit-2.json";
        std::ofstream(file) << c.config;
        t_mgmt_error error;
        EXPECT_FALSE(mgmt_file_check(&world_index(), world_context(), file, nullptr, &error));
        EXPECT_NE(mgmt_error_text(error).find(c.reason), std::string::npos) << mgmt_error_text(error);
        ASSERT_TRUE(world.open());
        EXPECT_EQ(world_lines(world.store.running), "+ /policy/zone{a}\n");
        ASSERT_EQ(world.store.files.alarms.size(), 1u);
        EXPECT_NE(world.store.files.alarms[0].find(file), std::string::npos);
        EXPECT_NE(world.store.files.alarms[0].find(c.reason), std::string::npos);
        EXPECT_TRUE(std::filesystem::exists(file + ".bad"));
        ASSERT_EQ(world.commit(zone_edit("c")), "");
        EXPECT_TRUE(std::filesystem::exists(world.folder + "/commit-3.json"))
            << "a number is never used twice";
    }
}

TEST(StoreFiles, FiftyCommitsCanBeGoneBackTo)
{
    t_world_store world;
    for (int i = 1; i <= 55; i++)
        ASSERT_EQ(world.commit(world_edit("merge", "/policy/log-frequency", std::to_string(i))), "");
    ASSERT_TRUE(world.open());
    ASSERT_EQ(world.store.files.commits.size(), 51u);
    EXPECT_EQ(files_in(world.folder), 51u);
    EXPECT_EQ(world.store.files.commits[50].number, 5u);
    EXPECT_EQ(world.store.files.commits[50].user, "tester");
    EXPECT_EQ(world.store.files.commits[50].comment, "a \"test\"");
    EXPECT_EQ(world.store.files.commits[50].time.size(), 20u);
    mgmt_work_tree_ptr tree;
    t_mgmt_error error;
    ASSERT_TRUE(mgmt_files_rollback(world.store.files, 50, &tree, &error));
    EXPECT_EQ(world_lines(tree), "+ /policy/log-frequency 5\n");
    EXPECT_FALSE(mgmt_files_rollback(world.store.files, 51, &tree, &error));
    struct stat info = {};
    ASSERT_EQ(stat((world.folder + "/commit-55.json").c_str(), &info), 0);
    EXPECT_EQ(info.st_mode & 0777, 0600u);
}
