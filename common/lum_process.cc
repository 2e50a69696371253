#include "common/lum_process.h"

#include "common/lum_assert.h"

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <sched.h>
#include <unistd.h>

struct t_pid_path {
    char text[64];
};

static t_pid_path daemon_pid_path(const char *name, uint64_t vpn)
{
    t_pid_path path;
    snprintf(path.text, sizeof(path.text), "/var/run/%s.%lu.pid", name, vpn);
    return path;
}

static t_pid_path quagga_pid_path(const char *name, uint64_t vpn)
{
    t_pid_path path;
    lum_util_get_quagga_pid_file(name, vpn, path.text, sizeof(path.text));
    return path;
}

// Reads the number in an open pid file, and closes it.
static int pid_read(FILE *file)
{
    int pid = 0;
    if (fscanf(file, "%d", &pid) != 1)
        pid = 0;
    fclose(file);
    return pid;
}

int lum_util_create_pid_file(const char *name, uint64_t vpn, pid_t pid)
{
    t_pid_path path = daemon_pid_path(name, vpn);
    int fd = open(path.text, O_RDONLY | O_CLOEXEC);
    if (fd >= 0) {
        close(fd);
        return -2;
    }
    fd = open(path.text, O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
    if (fd < 0)
        return -1;
    int written = dprintf(fd, "%d\n", pid);
    close(fd);
    return written > 0 ? 0 : -1;
}

int lum_util_delete_pid_file(const char *name, uint64_t vpn)
{
    unlink(daemon_pid_path(name, vpn).text);
    return 0;
}

int lum_util_check_pid_file(const char *name, uint64_t vpn, int *p_errno)
{
    FILE *file = fopen(daemon_pid_path(name, vpn).text, "re");
    if (file != nullptr)
        return pid_read(file);
    if (p_errno != nullptr)
        *p_errno = errno;
    return -1;
}

void lum_util_get_quagga_pid_file(const char *name, uint64_t vpn, char *buf, size_t len)
{
    static constexpr char directory[] = "/var/run/quagga";
    if (vpn != 0)
        snprintf(buf, len, "%s/%s.pid.%lu", directory, name, vpn);
    else
        snprintf(buf, len, "%s/%s.pid", directory, name);
}

int lum_util_get_quagga_pid(const char *name, uint64_t vpn)
{
    FILE *file = fopen(quagga_pid_path(name, vpn).text, "re");
    LUM_ASSERT(file != nullptr, "file != NULL");
    return pid_read(file);
}

int lum_util_delete_quagga_pid_file(const char *name, uint64_t vpn)
{
    return unlink(quagga_pid_path(name, vpn).text);
}

// Enters the network namespace that the open file stands for, and closes it.
static void enter_ns(int fd)
{
    LUM_ASSERT(fd >= 0, "fd >= 0");
    int result = setns(fd, CLONE_NEWNET);
    LUM_ASSERT(result == 0, "result == 0");
    close(fd);
}

int lum_util_set_ns(uint64_t vpn)
{
    if (vpn == 0)
        return 0;
    char path[64];
    snprintf(path, sizeof(path), "/var/run/netns/%lu", vpn);
    enter_ns(open(path, O_RDONLY | O_CLOEXEC));
    return 0;
}

int lum_util_reset_ns(uint64_t vpn)
{
    if (vpn == 0)
        return 0;
    int fd = open("/proc/1/ns/net", O_RDONLY | O_CLOEXEC);
    if (fd < 0 && errno == ENOENT)
        exit(0);
    enter_ns(fd);
    return 0;
}

void lum_util_set_coredump_filter()
{
    FILE *file = fopen("/proc/self/coredump_filter", "we");
    LUM_ASSERT(file != nullptr, "file != NULL");
    fputs("0x7F\n", file);
    fclose(file);
}

static int set_limit(__rlimit_resource_t resource, rlim_t limit)
{
    rlimit limits = {limit, limit};
    return setrlimit(resource, &limits);
}

int lum_util_set_fd_limits(rlim_t limit)
{
    return set_limit(RLIMIT_NOFILE, limit);
}

int lum_util_set_max_fd_limits()
{
    return lum_util_set_fd_limits(RLIM_INFINITY);
}

int lum_util_set_core_limits(rlim_t limit)
{
    return set_limit(RLIMIT_CORE, limit);
}

int lum_util_set_max_core_limits()
{
    return lum_util_set_core_limits(RLIM_INFINITY);
}
