#include "tests/common/own_root.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <fcntl.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/wait.h>
#include <unistd.h>

enum e_child_end { CHILD_PASSED = 0, CHILD_FAILED = 1, CHILD_NOT_ALLOWED = 2 };

static bool write_file(const char *path, const char *text)
{
    int fd = open(path, O_WRONLY);
    if (fd < 0)
        return false;
    bool written = dprintf(fd, "%s", text) > 0;
    close(fd);
    return written;
}

static bool enter_namespaces()
{
    int flags = CLONE_NEWNS | CLONE_NEWNET | CLONE_NEWPID;
    uid_t uid = geteuid();
    if (uid == 0)
        return unshare(flags) == 0;
    char uid_map[32], gid_map[32];
    snprintf(uid_map, sizeof(uid_map), "0 %u 1", uid);
    snprintf(gid_map, sizeof(gid_map), "0 %u 1", getegid());
    return unshare(CLONE_NEWUSER | flags) == 0 && write_file("/proc/self/uid_map", uid_map) &&
           write_file("/proc/self/setgroups", "deny") && write_file("/proc/self/gid_map", gid_map);
}

static bool mount_root()
{
    return mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0 &&
           mount("none", "/run", "tmpfs", 0, nullptr) == 0 && mount("none", "/proc", "proc", 0, nullptr) == 0;
}

static int wait_for(pid_t pid)
{
    int status = 0;
    waitpid(pid, &status, 0);
    return WIFEXITED(status) ? WEXITSTATUS(status) : CHILD_FAILED;
}

// In process 1 of the new namespaces.
[[noreturn]] static void do_work(void (*work)())
{
    if (!mount_root())
        _exit(CHILD_NOT_ALLOWED);
    work();
    fflush(stdout);
    _exit(testing::Test::HasFailure() ? CHILD_FAILED : CHILD_PASSED);
}

void in_own_root(void (*work)())
{
    fflush(stdout);
    pid_t pid = fork();
    if (pid == 0) {
        if (!enter_namespaces())
            _exit(CHILD_NOT_ALLOWED);
        pid_t inner = fork();  // only children come into the process namespace
        if (inner == 0)
            do_work(work);
        _exit(wait_for(inner));
    }
    int end = wait_for(pid);
    if (end == CHILD_NOT_ALLOWED)
        GTEST_SKIP() << "this system allows no namespaces";
    EXPECT_EQ(end, CHILD_PASSED) << "see the failures above";
}
