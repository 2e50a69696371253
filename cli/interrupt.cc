#include "cli/interrupt.h"

#include <cerrno>
#include <chrono>
#include <csignal>
#include <poll.h>
#include <sys/eventfd.h>
#include <unistd.h>

static int g_cli_interrupt_fd = -1;  // an eventfd, so that a signal between a look and a wait is not lost

static void on_interrupt(int)
{
    int kept = errno;
    uint64_t one = 1;
    [[maybe_unused]] ssize_t written = write(g_cli_interrupt_fd, &one, sizeof(one));
    errno = kept;
}

bool cli_interrupt_install()
{
    if (g_cli_interrupt_fd < 0)
        g_cli_interrupt_fd = eventfd(0, EFD_NONBLOCK | EFD_CLOEXEC);
    struct sigaction action = {};
    action.sa_handler = on_interrupt;
    return g_cli_interrupt_fd >= 0 && sigaction(SIGINT, &action, nullptr) == 0;
}

bool cli_interrupted()
{
    pollfd poll_fd = {.fd = g_cli_interrupt_fd, .events = POLLIN, .revents = 0};
    return poll(&poll_fd, 1, 0) > 0;
}

void cli_interrupt_forget()
{
    uint64_t count;
    if (g_cli_interrupt_fd >= 0) [[maybe_unused]]
        ssize_t size = read(g_cli_interrupt_fd, &count, sizeof(count));
}

bool cli_wait(int fd, short events)
{
    pollfd poll_fds[] = {{.fd = fd, .events = events, .revents = 0},
                         {.fd = g_cli_interrupt_fd, .events = POLLIN, .revents = 0}};
    while (poll(poll_fds, 2, -1) < 0) {
        if (errno != EINTR)
            return false;
    }
    return poll_fds[1].revents == 0;
}

bool cli_wait_ms(int64_t time_ms)
{
    auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(time_ms);
    pollfd poll_fd = {.fd = g_cli_interrupt_fd, .events = POLLIN, .revents = 0};
    int64_t left_ms = time_ms;
    while (left_ms > 0 && poll(&poll_fd, 1, static_cast<int>(left_ms)) <= 0)
        left_ms =
            std::chrono::ceil<std::chrono::milliseconds>(deadline - std::chrono::steady_clock::now()).count();
    return poll_fd.revents == 0;
}
