#include "tests/libcvmx/fake_system.h"

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <sys/stat.h>
#include <sys/sysinfo.h>
#include <sys/wait.h>
#include <unistd.h>

static const FakeSystem *g_fake;

static const char *const g_fixed_paths[] = {
    "/etc/default/", "/etc/lumora/", "/boot/", "/proc/cpuinfo", "/tmp/serial-num", "/tmp/system-version",
};

static const char *const g_folders[] = {"/etc/default", "/etc/lumora", "/boot", "/proc", "/tmp", "/shm"};

FakeSystem::FakeSystem()
{
    char pattern[] = "/tmp/fake-system.XXXXXX";
    root = mkdtemp(pattern);
    for (const char *folder : g_folders)
        std::filesystem::create_directories(root + folder);
    g_fake = this;
}

FakeSystem::~FakeSystem()
{
    g_fake = nullptr;
    std::filesystem::remove_all(root);
}

std::string FakeSystem::path_of(const std::string &path) const
{
    return root + path;
}

std::string FakeSystem::block_path(const std::string &name) const
{
    return root + "/shm/" + name;
}

void FakeSystem::remove_block(const std::string &name) const
{
    std::filesystem::remove(block_path(name));
}

void FakeSystem::put(const std::string &path, const std::string &text) const
{
    std::ofstream(path_of(path), std::ios::binary) << text;
}

std::string FakeSystem::get(const std::string &path) const
{
    std::ifstream file(path_of(path), std::ios::binary);
    if (!file)
        return "(none)";
    std::ostringstream text;
    text << file.rdbuf();
    return text.str();
}

void FakeSystem::remove(const std::string &path) const
{
    std::filesystem::remove(path_of(path));
}

// The path to use in place of a fixed one.
static std::string redirected(const char *path)
{
    if (g_fake != nullptr)
        for (const char *prefix : g_fixed_paths)
            if (strncmp(path, prefix, strlen(prefix)) == 0)
                return g_fake->path_of(path);
    return path;
}

// ---- Wrapped calls ----

extern "C" {
FILE *__real_fopen(const char *path, const char *mode);
int __real_access(const char *path, int mode);
int __real_shm_open(const char *name, int flags, mode_t mode);
int __real_sysinfo(struct sysinfo *p_info);
long __real_sysconf(int name);
int __real_system(const char *command);

FILE *__wrap_fopen(const char *path, const char *mode)
{
    return __real_fopen(redirected(path).c_str(), mode);
}

int __wrap_access(const char *path, int mode)
{
    return __real_access(redirected(path).c_str(), mode);
}

int __wrap_shm_open(const char *name, int flags, mode_t mode)
{
    if (g_fake == nullptr)
        return __real_shm_open(name, flags, mode);
    if (g_fake->shm_fails) {
        errno = EACCES;
        return -1;
    }
    return open(g_fake->block_path(name).c_str(), flags | O_CLOEXEC, mode);
}

int __wrap_sysinfo(struct sysinfo *p_info)
{
    if (g_fake == nullptr)
        return __real_sysinfo(p_info);
    *p_info = {};
    p_info->totalram = g_fake->ram;
    p_info->mem_unit = 1;
    return 0;
}

long __wrap_sysconf(int name)
{
    return g_fake != nullptr && name == _SC_NPROCESSORS_ONLN ? g_fake->processors : __real_sysconf(name);
}

int __wrap_system(const char *command)
{
    if (g_fake == nullptr)
        return __real_system(command);
    if (std::string(command) == "dmidecode -s system-version > /tmp/system-version")
        g_fake->put("/tmp/system-version", g_fake->system_version);
    return g_fake->system_result;
}
}

int wrap_get_board_type(int) asm("__wrap__Z23lum_util_get_board_typei");
int wrap_get_board_type(int)
{
    return g_fake != nullptr ? g_fake->board_code : -1;
}

int wrap_execute_output(const char *, char *, size_t) asm("__wrap__Z18lum_execute_outputPKcPcm");
int wrap_execute_output(const char *command, char *out_buf, size_t out_len)
{
    if (g_fake == nullptr || !g_fake->output.contains(command))
        return 2;
    snprintf(out_buf, out_len, "%s", g_fake->output.at(command).c_str());
    return g_fake->output_result;
}

// ---- Children ----

t_child_end run_in_child(const std::function<void()> &function)
{
    int ends[2];
    if (pipe(ends) != 0)
        return {};
    fflush(nullptr);
    pid_t pid = fork();
    if (pid == 0) {
        dup2(ends[1], STDOUT_FILENO);
        function();
        fflush(stdout);
        _exit(0);
    }
    close(ends[1]);
    t_child_end end = {};
    char buffer[4096];
    for (ssize_t count; (count = read(ends[0], buffer, sizeof(buffer))) > 0;)
        end.text.append(buffer, static_cast<size_t>(count));
    close(ends[0]);
    int status = 0;
    waitpid(pid, &status, 0);
    end.signal = WIFSIGNALED(status) ? WTERMSIG(status) : 0;
    end.exit_code = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    return end;
}
