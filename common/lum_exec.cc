#include "common/lum_exec.h"

#include "common/lum_log.h"

#include <algorithm>
#include <cerrno>
#include <climits>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <ftw.h>
#include <span>
#include <sys/wait.h>
#include <unistd.h>

static constexpr size_t max_words = 31;
static constexpr size_t output_size = 8192;  // with its terminator
static constexpr int walk_descriptors = 64;

// Exit codes of a child that doesn't become the command.
static constexpr int exit_no_command = 1;
static constexpr int exit_no_program = 2;

static constexpr const char *environment[] = {
    "CONFD_IPC_ACCESS_FILE=/etc/confd/confd_ipc_secret",
    "NCS_IPC_ACCESS_FILE=/etc/confd/confd_ipc_secret",
    "PATH=/sbin:/bin:/usr/sbin:/usr/bin",
    nullptr,
};
static constexpr const char *no_environment[] = {nullptr};

// Splits the command at blanks. Gives the first word, or null when there is none or more than 31. The words
// stand in a copy that lasts as long as the child.
static const char *prepare_exec_args(char *(&argv)[max_words + 1], const char *command)
{
    char *p_copy = strdup(command);
    if (p_copy == nullptr)
        return nullptr;
    size_t count = 0;
    char *p_rest = nullptr;
    for (char *p_word = strtok_r(p_copy, " ", &p_rest); p_word != nullptr;
         p_word = strtok_r(nullptr, " ", &p_rest)) {
        if (count == max_words)
            return nullptr;
        argv[count++] = p_word;
    }
    argv[count] = nullptr;
    return argv[0];
}

// Turns the child into the command, with both outputs on fd. Leaves by _exit on failure: other threads' locks
// and unwritten output of the parent are not the child's business.
[[noreturn]] static void child_exec(const char *command, int fd, const char *const *env)
{
    char *argv[max_words + 1];
    const char *program = prepare_exec_args(argv, command);
    if (program == nullptr)
        _exit(exit_no_command);
    dup2(fd, STDOUT_FILENO);
    dup2(fd, STDERR_FILENO);
    if (fd > STDERR_FILENO)
        close(fd);
    execve(program, argv, const_cast<char *const *>(env));
    _exit(exit_no_program);
}

// A running command and the reading end of its output.
struct t_exec {
    pid_t pid;
    int fd;
};

// 0, or the result of what failed.
static int exec_start(const char *command, t_exec *p_exec)
{
    int ends[2];
    int result = pipe(ends);
    if (result != 0) {
        LUM_LOG(LUM_LOG_ERROR, "pipe failed for [%s], reason: %s", command, strerror(errno));
        return result;
    }
    pid_t pid = fork();
    if (pid == 0) {
        close(ends[0]);
        child_exec(command, ends[1], environment);
    }
    close(ends[1]);
    if (pid < 0) {
        LUM_LOG(LUM_LOG_ERROR, "fork failed for [%s]", command);
        close(ends[0]);
        return -1;
    }
    *p_exec = {pid, ends[0]};
    return 0;
}

// Reads until the buffer is full or the output ends. Gives the count of bytes.
static size_t read_until_full(int fd, std::span<char> buffer)
{
    size_t used = 0;
    while (used < buffer.size()) {
        ssize_t count = read(fd, buffer.data() + used, buffer.size() - used);
        if (count < 0 && errno == EINTR)
            continue;
        if (count <= 0)
            break;
        used += static_cast<size_t>(count);
    }
    return used;
}

// Reads and drops the rest of the output. Gives the count of bytes.
static size_t read_and_drop(int fd)
{
    char dropped[4096];
    size_t total = 0;
    while (size_t count = read_until_full(fd, dropped))
        total += count;
    return total;
}

// Waits for the child. Its output stands at the end of the log lines, after label; both are empty for raw
// output.
static int exec_wait(const char *command, pid_t pid, const char *label, const char *output)
{
    int status = 0;
    pid_t waited;
    do {
        waited = waitpid(pid, &status, 0);
    } while (waited < 0 && errno == EINTR);
    if (waited < 0) {
        LUM_LOG(LUM_LOG_ERROR, "[%s] failed, reason: %s", command, strerror(errno));
        return -1;
    }
    if (WIFSIGNALED(status)) {
        int number = WTERMSIG(status);
        LUM_LOG(LUM_LOG_ERROR, "[%s] exited abnormally (ret: %u), reason: %s%s%s", command,
                static_cast<unsigned>(number), strsignal(number), label, output);
        return -1;
    }
    int code = WEXITSTATUS(status);
    if (code != 0)
        LUM_LOG(LUM_LOG_DEBUG, "[%s] exited with ret: %u%s%s", command, static_cast<unsigned>(code), label,
                output);
    return code;
}

int lum_execute_output(const char *command, char *out_buf, size_t out_len)
{
    if (command == nullptr)
        return -EINVAL;
    t_exec exec;
    int result = exec_start(command, &exec);
    if (result != 0)
        return result;
    char output[output_size];
    size_t used = read_until_full(exec.fd, {output, sizeof(output) - 1});
    output[used] = '\0';
    close(exec.fd);
    if (out_buf != nullptr)
        snprintf(out_buf, out_len, "%s", output);
    return exec_wait(command, exec.pid, ", output: ", output);
}

int lum_execute_output_bin(const char *command, void *buf, size_t *p_size)
{
    if (command == nullptr)
        return -EINVAL;
    size_t capacity = buf != nullptr && p_size != nullptr ? *p_size : 0;
    t_exec exec;
    int result = exec_start(command, &exec);
    if (result != 0)
        return result;
    size_t size = read_until_full(exec.fd, {static_cast<char *>(buf), capacity});
    size += read_and_drop(exec.fd);
    close(exec.fd);
    if (p_size != nullptr)
        *p_size = size;
    return exec_wait(command, exec.pid, "", "");
}

pid_t lum_execute_nowait(const char *command)
{
    if (command == nullptr)
        return -EINVAL;
    pid_t pid = fork();
    if (pid < 0)
        LUM_LOG(LUM_LOG_ERROR, "Fork failed for [%s]", command);
    if (pid != 0)
        return pid;
    setpgid(0, 0);  // signals to the daemon's group are not for the command
    child_exec(command, open("/dev/null", O_WRONLY), no_environment);
}

int lum_write_val_to_file(const char *path, const char *value, size_t size)
{
    if (path == nullptr || value == nullptr)
        return -EINVAL;
    FILE *file = fopen(path, "we");
    if (file == nullptr) {
        LUM_LOG(LUM_LOG_ERROR, "Error opening %s, reason: %s", path, strerror(errno));
        return -1;
    }
    int length = static_cast<int>(std::min<size_t>(size, INT_MAX));  // value need not be terminated
    bool written = fwrite(value, 1, size, file) == size;
    written = fclose(file) == 0 && written;
    if (!written) {
        LUM_LOG(LUM_LOG_ERROR, "[echo %.*s -> %s] failed", length, value, path);
        return -1;
    }
    sync();
    LUM_LOG(LUM_LOG_NOTICE, "[echo %.*s -> %s] successful", length, value, path);
    return 0;
}

static int remove_entry(const char *path, const struct stat *, int, FTW *)
{
    int result = remove(path);
    if (result != 0)
        LUM_LOG(LUM_LOG_NOTICE, "Error removing %s, reason: %s", path, strerror(errno));
    return result;
}

int lum_rmdir(const char *path)
{
    if (path == nullptr)
        return -EINVAL;
    return nftw(path, remove_entry, walk_descriptors, FTW_DEPTH | FTW_PHYS);
}

static int keep_entry(const char *, const struct stat *, int, FTW *)
{
    return 0;
}

int lum_rmfile_with_prefix(const char *dir, const char *prefix)
{
    if (dir == nullptr || prefix == nullptr)
        return -EINVAL;
    return nftw(dir, keep_entry, walk_descriptors, FTW_DEPTH | FTW_PHYS);
}

int lum_rmfile_with_suffix(const char *dir, const char *suffix)
{
    if (dir == nullptr || suffix == nullptr)
        return -EINVAL;
    return nftw(dir, keep_entry, walk_descriptors, FTW_DEPTH | FTW_PHYS);
}
