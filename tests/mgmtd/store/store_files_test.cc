// Files: crashes at every point, full disks, bad files, rollback.

#include "mgmtd/store/mgmt_crash.h"
#include "tests/mgmtd/store/store_world.h"

#include <cerrno>
#include <csignal>
#include <cstdarg>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <sched.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
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

// ---- Steps that may fail or crash: commits, plain and unconfirmed ----

enum e_step { STEP_COMMIT, STEP_GIVE, STEP_EXTEND, STEP_CONFIRM, STEP_UNDO };
static constexpr e_step steps[] = {STEP_COMMIT, STEP_GIVE, STEP_EXTEND, STEP_CONFIRM, STEP_UNDO};

static constexpr const char *only_a = "+ /policy/zone{a}\n";
static constexpr const char *a_and_b = "+ /policy/zone{a}\n+ /policy/zone{b}\n";

// Commit 1 is "a"; commit 2 adds "b" and is unconfirmed, unless the step gives it.
static void before_step(t_world_store *p_world, e_step step)
{
    ASSERT_EQ(p_world->commit(zone_edit("a")), "");
    if (step >= STEP_EXTEND) {
        ASSERT_EQ(p_world->commit(zone_edit("b"), 1), "");
    }
}

// False: it has failed.
static bool do_step(t_world_store *p_world, e_step step)
{
    t_mgmt_error error;
    switch (step) {
    case STEP_COMMIT:
        return p_world->commit(zone_edit("b")).empty();
    case STEP_CONFIRM:
        return mgmt_files_confirm(&p_world->store.files, &error);
    case STEP_UNDO:
        mgmt_store_undo(&p_world->store, world_tree(zone_edit("a")), "system", "test");
        return true;
    default:
        return p_world->commit(zone_edit(step == STEP_GIVE ? "b" : "c"), 1).empty();
    }
}

// What a step leaves for the next start: "a" alone, or, when it has come far enough to keep "b", both.
static bool can_keep(e_step step)
{
    return step == STEP_COMMIT || step == STEP_CONFIRM;
}

TEST(StoreFiles, AFailureAtAnyCallRefusesOrUndoesAllTheSame)
{
    for (e_step step : steps) {
        bool failed = true;
        for (int call = 0; failed; call++) {
            SCOPED_TRACE(testing::Message() << "step " << step << " call " << call);
            ASSERT_LT(call, 20);
            t_world_store world;
            before_step(&world, step);
            world.events.clear();
            g_errno = EIO;
            g_calls_until_failure = call;
            bool done = do_step(&world, step);
            failed = g_calls_until_failure < 0;
            g_calls_until_failure = -1;
            if (step == STEP_UNDO) {
                EXPECT_EQ(world_lines(world.store.running), only_a);
                EXPECT_EQ(world_lines(world.store.candidate), a_and_b);
                EXPECT_EQ(world.store.files.alarms.size(), failed ? 1u : 0u);
                EXPECT_EQ(world.store.files.commits.front().number, failed ? 1u : 3u);
            } else {
                EXPECT_EQ(done, !failed);
                EXPECT_EQ(step != STEP_CONFIRM && failed,
                          !world.events.empty() && world.events.back() == "abort");
            }
            EXPECT_EQ(files_in(world.folder), world.store.files.commits.size());
            ASSERT_TRUE(world.open());
            EXPECT_EQ(world_lines(world.store.running), can_keep(step) && done ? a_and_b : only_a);
            EXPECT_EQ(world.commit(zone_edit("d")), "");
            ASSERT_TRUE(world.open());
            EXPECT_NE(world_lines(world.store.running).find("zone{d}"), std::string::npos);
        }
    }
}

TEST(StoreFiles, AStartTakesNoUnconfirmedCommitNorABadOneBelow)
{
    t_world_store world;
    ASSERT_EQ(world.commit(zone_edit("a")), "");
    ASSERT_EQ(world.commit(zone_edit("b")), "");
    ASSERT_EQ(world.commit(zone_edit("c"), 2), "");
    ASSERT_EQ(world.commit(zone_edit("d"), 2), "");
    std::ofstream(world.folder + "/commit-2.json") << "{";
    ASSERT_TRUE(world.open());
    EXPECT_EQ(world_lines(world.store.running), only_a);
    ASSERT_EQ(world.store.files.commits.size(), 4u) << "the undoing, the two that were undone, the first";
    EXPECT_EQ(world.store.files.commits[0].comment, "commit 4 of tester not confirmed, undone: restart");
    EXPECT_EQ(world.store.files.alarms.size(), 1u);
    // What may come back outlives the limit of the list.
    for (int i = 0; i < 60; i++)
        ASSERT_EQ(world.commit(world_edit("merge", "/policy/log-frequency", std::to_string(i)), 5), "");
    ASSERT_TRUE(world.open());
    EXPECT_EQ(world_lines(world.store.running), only_a);
    EXPECT_EQ(world.store.files.commits.size(), 51u);
}

// ---- A disk that is full ----

static bool id_map_write(const char *file, const std::string &text)
{
    int fd = open(file, O_WRONLY | O_CLOEXEC);
    bool good = fd >= 0 && write(fd, text.data(), text.size()) == static_cast<ssize_t>(text.size());
    close(fd);
    return good;
}

// A file system of a few pages at the folder, which this process alone sees. False: this machine gives none.
static bool small_disk_mount(const std::string &folder, const char *options)
{
    uid_t uid = getuid();
    gid_t gid = getgid();
    if (unshare(uid == 0 ? CLONE_NEWNS : CLONE_NEWNS | CLONE_NEWUSER) != 0)
        return false;
    if (uid != 0 && (!id_map_write("/proc/self/setgroups", "deny") ||
                     !id_map_write("/proc/self/uid_map", "0 " + std::to_string(uid) + " 1") ||
                     !id_map_write("/proc/self/gid_map", "0 " + std::to_string(gid) + " 1")))
        return false;
    return mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0 &&
           mount("none", folder.c_str(), "tmpfs", 0, options) == 0;
}

// Leaves that many bytes free.
static void disk_fill(const std::string &file, size_t free_size, size_t disk_size)
{
    std::filesystem::remove(file);
    struct statvfs status = {};
    ASSERT_EQ(statvfs(file.substr(0, file.rfind('/')).c_str(), &status), 0);
    size_t size = status.f_bavail * status.f_bsize;
    ASSERT_LE(size, disk_size);
    std::ofstream(file) << std::string(size > free_size ? size - free_size : 0, 'x');
}

static void commits_on_a_full_disk()
{
    static constexpr size_t page = 4096;
    static constexpr size_t disk = 64 * page;
    t_world_store world;
    if (!small_disk_mount(world.folder, "size=256k"))
        _exit(77);
    std::string zones;
    for (int i = 0; i < 1000; i++)
        zones += (i > 0 ? "," : "") + (R"({"name":"zone-)" + std::to_string(i)) + "\"}";
    std::string many = world_edit("merge", "/policy/zone", "[" + zones + "]");
    EXPECT_TRUE(world.open());
    EXPECT_EQ(world.commit(zone_edit("a")), "");
    size_t refused = 0;
    for (std::string outcome = "?"; !outcome.empty() && refused < 40; refused++) {
        disk_fill(world.folder + "/filler", refused * page, disk);
        outcome = world.commit(many);
        if (outcome.empty())
            break;
        EXPECT_NE(outcome.find("No space left on device"), std::string::npos) << outcome;
        EXPECT_EQ(files_in(world.folder), 2u) << "nothing is left behind";
        EXPECT_TRUE(world.open());
        EXPECT_EQ(world_lines(world.store.running), only_a);
    }
    EXPECT_GT(refused, 3u) << "the file takes several pages";
    EXPECT_TRUE(world.open());
    EXPECT_NE(world_lines(world.store.running).find("zone-999"), std::string::npos);
    umount(world.folder.c_str());
    std::filesystem::remove_all(world.folder);
}

TEST(StoreFiles, AFullDiskRefusesTheCommitAtEachPage)
{
    pid_t child = fork();
    if (child == 0) {
        commits_on_a_full_disk();
        _exit(testing::Test::HasFailure() ? 1 : 0);
    }
    int status = 0;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    if (WIFEXITED(status) && WEXITSTATUS(status) == 77)
        GTEST_SKIP() << "no namespace of mounts can be made here";
    EXPECT_EQ(status, 0);
}

#ifdef MGMT_CRASH_POINTS

static int status_of_crash(const char *point, const std::function<void()> &work)
{
    pid_t child = fork();
    if (child == 0) {
        g_mgmt_crash_point = point;
        work();
        _exit(0);
    }
    int status = 0;
    EXPECT_EQ(waitpid(child, &status, 0), child);
    return status;
}

// A child process takes a step and dies at a point; whoever comes next finds the old or the new store.
TEST(StoreFiles, ACrashAtAnyPointLeavesOldOrNewAndNothingUnconfirmed)
{
    static constexpr const char *points[] = {"before-file",         "file-created",      "file-block-written",
                                             "file-written",        "file-synchronised", "file-renamed",
                                             "folder-synchronised", "swapped",           "file-confirmed",
                                             "old-file-removed"};
    size_t crashes = 0;
    for (e_step step : steps) {
        bool is_new = false;
        for (const char *point : points) {
            SCOPED_TRACE(testing::Message() << "step " << step << " at " << point);
            t_world_store world;
            before_step(&world, step);
            // Old files are removed only when there are too many.
            bool has_many = step == STEP_COMMIT && point == std::string_view("old-file-removed");
            for (int i = 0; has_many && i < 50; i++)
                ASSERT_EQ(world.commit(world_edit(i % 2 == 0 ? "create" : "delete", "/policy/zone{x}")), "");
            int status = status_of_crash(point, [&] { do_step(&world, step); });
            crashes += WIFSIGNALED(status);
            is_new = is_new || !WIFSIGNALED(status) || point == std::string_view("file-renamed");
            for (int i = 0; i < 2; i++) {
                ASSERT_TRUE(world.open());
                EXPECT_EQ(world_lines(world.store.running), can_keep(step) && is_new ? a_and_b : only_a);
            }
            EXPECT_TRUE(world.store.files.alarms.empty());
            EXPECT_EQ(world.commit(zone_edit("c")), "");
            EXPECT_LE(world.store.files.commits.size(), MGMT_FILES_ROLLBACKS + 1);
        }
    }
    EXPECT_EQ(crashes, 4u * 8 + 1 + 1);
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
