#include "lab/sysmgrd/daemon_process.h"

#include "common/lum_process.h"
#include "lab/control/lab_program.h"

#include <cerrno>
#include <csignal>
#include <cstring>
#include <fcntl.h>
#include <fstream>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

static void op_log(void *, const t_daemon_spec &spec, const std::string &text)
{
    lab_log("%s: %s", spec.name.c_str(), text.c_str());
}

// ---- Pid files ----

static void op_pid_file(void *, const t_daemon_spec &spec, pid_t pid)
{
    lum_util_delete_pid_file(spec.name.c_str(), 0);
    if (pid > 0 && lum_util_create_pid_file(spec.name.c_str(), 0, pid) != 0)
        lab_log("%s: the pid file can't be written: %s", spec.name.c_str(), strerror(errno));
}

// Whether the process runs the command's program, by its name as the kernel keeps it.
static bool is_program(pid_t pid, const std::string &command)
{
    static constexpr size_t kept = 15;
    std::ifstream file("/proc/" + std::to_string(pid) + "/comm");
    std::string name;
    return std::getline(file, name) && name == command.substr(command.rfind('/') + 1).substr(0, kept);
}

static pid_t op_adopt(void *p_user, const t_daemon_spec &spec)
{
    pid_t pid = lum_util_check_pid_file(spec.name.c_str(), 0, nullptr);
    if (pid > 0 && kill(pid, 0) == 0 && is_program(pid, spec.command[0]))
        return pid;
    if (pid >= 0) {
        op_log(p_user, spec, "a stale pid file is removed");
        op_pid_file(p_user, spec, 0);
    }
    return 0;
}

// ---- Processes ----

static void actions_fill(posix_spawn_file_actions_t *p_actions, const std::string &output)
{
    posix_spawn_file_actions_init(p_actions);
    posix_spawn_file_actions_addopen(p_actions, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
    if (output.empty())
        return;
    posix_spawn_file_actions_addopen(p_actions, STDOUT_FILENO, output.c_str(), O_WRONLY | O_CREAT | O_APPEND,
                                     0644);
    posix_spawn_file_actions_adddup2(p_actions, STDOUT_FILENO, STDERR_FILENO);
}

// The manager ignores SIGPIPE; a daemon has all signals as they are by default.
static void attributes_fill(posix_spawnattr_t *p_attributes)
{
    sigset_t all;
    sigset_t none;
    sigfillset(&all);
    sigemptyset(&none);
    posix_spawnattr_init(p_attributes);
    posix_spawnattr_setsigdefault(p_attributes, &all);
    posix_spawnattr_setsigmask(p_attributes, &none);
    posix_spawnattr_setflags(p_attributes, POSIX_SPAWN_SETSIGDEF | POSIX_SPAWN_SETSIGMASK);
}

static pid_t op_start(void *p_user, const t_daemon_spec &spec)
{
    std::vector<std::string> words = spec.command;
    std::vector<char *> arguments;
    for (std::string &word : words)
        arguments.push_back(word.data());
    arguments.push_back(nullptr);
    posix_spawn_file_actions_t actions;
    posix_spawnattr_t attributes;
    actions_fill(&actions, spec.output);
    attributes_fill(&attributes);
    pid_t pid = -1;
    int result = posix_spawnp(&pid, arguments[0], &actions, &attributes, arguments.data(), environ);
    posix_spawn_file_actions_destroy(&actions);
    posix_spawnattr_destroy(&attributes);
    if (result == 0)
        return pid;
    op_log(p_user, spec, words[0] + ": " + strerror(result));
    return -1;
}

static void op_signal(void *, pid_t pid, int number)
{
    if (pid > 0)
        kill(pid, number);
}

const t_daemon_ops g_daemon_process_ops = {
    .adopt = op_adopt, .start = op_start, .signal = op_signal, .pid_file = op_pid_file, .log = op_log};

bool daemon_process_gone(const t_daemon *p_daemon, std::string *p_how)
{
    int status = 0;
    pid_t result = waitpid(p_daemon->pid, &status, WNOHANG);
    if (result == 0)
        return false;
    if (result < 0) {  // it is no child
        *p_how = "has gone";
        return errno == ECHILD && kill(p_daemon->pid, 0) != 0 && errno == ESRCH;
    }
    *p_how = WIFSIGNALED(status) ? "ended by signal " + std::to_string(WTERMSIG(status))
                                 : "ended with status " + std::to_string(WEXITSTATUS(status));
    return true;
}
