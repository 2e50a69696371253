#include "tests/lab/control/control_loop.h"

#include "common/unix_socket.h"

#include <algorithm>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <sys/socket.h>
#include <unistd.h>

ControlLoop::ControlLoop() : base(event_base_new())
{
    signal(SIGPIPE, SIG_IGN);
    char pattern[] = "/tmp/lab-control-XXXXXX";
    folder = mkdtemp(pattern);
    path = folder + "/control.sock";
}

ControlLoop::~ControlLoop()
{
    for (int fd : clients)
        close(fd);
    control.reset();
    std::filesystem::remove_all(folder);
}

int ControlLoop::connect_client()
{
    int fd = unix_socket_connect(path);
    EXPECT_GE(fd, 0);
    clients.push_back(fd);
    return fd;
}

void ControlLoop::close_client(int fd)
{
    std::erase(clients, fd);
    close(fd);
}

void ControlLoop::turn_loop()
{
    event_base_loop(base.get(), EVLOOP_ONCE | EVLOOP_NONBLOCK);
}

bool ControlLoop::send_some(int fd, std::string_view *p_text)
{
    ssize_t sent = send(fd, p_text->data(), p_text->size(), MSG_NOSIGNAL);
    bool has_failed = sent < 0 && errno != EAGAIN;
    p_text->remove_prefix(sent > 0 ? static_cast<size_t>(sent) : 0);
    turn_loop();
    return !has_failed;
}

void ControlLoop::send_text(int fd, std::string_view text)
{
    while (!text.empty() && send_some(fd, &text))
        continue;
}

std::vector<std::string> ControlLoop::receive_lines(int fd, size_t count)
{
    std::string text;
    char piece[65536];
    for (int turn = 0; turn < 100000; turn++) {
        turn_loop();
        ssize_t size = recv(fd, piece, sizeof(piece), 0);
        if (size == 0)
            break;
        if (size > 0)
            text.append(piece, static_cast<size_t>(size));
        if (static_cast<size_t>(std::count(text.begin(), text.end(), '\n')) >= count)
            break;
    }
    std::vector<std::string> lines;
    for (size_t end; (end = text.find('\n')) != std::string::npos; text.erase(0, end + 1))
        lines.push_back(text.substr(0, end));
    return lines;
}

bool ControlLoop::has_ended(int fd)
{
    char byte;
    turn_loop();
    turn_loop();
    return recv(fd, &byte, 1, 0) == 0;
}
