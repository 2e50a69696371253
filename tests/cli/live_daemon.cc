#include "tests/cli/live_daemon.h"

#include <chrono>
#include <csignal>
#include <filesystem>
#include <gtest/gtest.h>
#include <poll.h>
#include <pty.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

using t_clock = std::chrono::steady_clock;

static constexpr auto patience = std::chrono::seconds(30);

t_live_daemon::t_live_daemon() : socket(folder.path("control"))
{
    std::string store = folder.path("store");
    std::string secret = folder.path("secret");
    pid = fork();
    if (pid == 0) {
        execl(MGMTD, MGMTD, "-f", "--folder", store.c_str(), "--port", "0", "--access-file", secret.c_str(),
              "--control", socket.c_str(), "--no-netconf", nullptr);
        _exit(127);
    }
    auto deadline = t_clock::now() + patience;
    while (!std::filesystem::exists(socket) && t_clock::now() < deadline)
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
    EXPECT_TRUE(std::filesystem::exists(socket)) << "mgmtd does not start";
}

t_live_daemon::~t_live_daemon()
{
    kill(pid, SIGTERM);
    waitpid(pid, nullptr, 0);
}

t_command_result t_live_daemon::script(const std::string &lines, const std::string &options) const
{
    std::string file = folder.write("script", lines);
    return run_command(std::string(LUMORA_CLI) + " -s " + socket + ' ' + options + " < " + file);
}

t_live_terminal::t_live_terminal(const t_live_daemon &daemon)
{
    winsize size = {.ws_row = 24, .ws_col = 80, .ws_xpixel = 0, .ws_ypixel = 0};
    pid = forkpty(&fd, nullptr, nullptr, &size);
    if (pid == 0) {
        setenv("HOME", daemon.folder.folder.c_str(), 1);
        setenv("TERM", "vt100", 1);
        execl(LUMORA_CLI, LUMORA_CLI, "-s", daemon.socket.c_str(), nullptr);
        _exit(127);
    }
}

t_live_terminal::~t_live_terminal()
{
    if (pid > 0) {
        kill(pid, SIGKILL);
        waitpid(pid, nullptr, 0);
    }
    close(fd);
}

void t_live_terminal::type(const std::string &keys) const
{
    EXPECT_EQ(write(fd, keys.data(), keys.size()), static_cast<ssize_t>(keys.size()));
}

std::string t_live_terminal::until(const std::string &text)
{
    auto deadline = t_clock::now() + patience;
    size_t at;
    while ((at = came.find(text)) == std::string::npos) {
        char piece[65536];
        pollfd poll_fd = {.fd = fd, .events = POLLIN, .revents = 0};
        ssize_t size = poll(&poll_fd, 1, 100) > 0 ? read(fd, piece, sizeof(piece)) : 0;
        if (t_clock::now() > deadline || size < 0) {
            ADD_FAILURE() << "\"" << text << "\" does not come; what came: " << came;
            return std::exchange(came, "");
        }
        came.append(piece, static_cast<size_t>(size));
    }
    std::string found = came.substr(0, at + text.size());
    came.erase(0, at + text.size());
    return found;
}

int t_live_terminal::end()
{
    auto deadline = t_clock::now() + patience;
    int status = -1;
    while (t_clock::now() < deadline) {
        char piece[4096];
        pollfd poll_fd = {.fd = fd, .events = POLLIN, .revents = 0};
        if (poll(&poll_fd, 1, 50) > 0 && read(fd, piece, sizeof(piece)) < 0)
            poll(nullptr, 0, 20);  // the program has closed its side
        if (waitpid(pid, &status, WNOHANG) == pid) {
            pid = -1;
            return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
        }
    }
    return -1;
}
