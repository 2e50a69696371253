#include "tests/libcvmx/own_network.h"

#include <fstream>
#include <gtest/gtest.h>
#include <memory>
#include <poll.h>
#include <sched.h>
#include <sys/mount.h>
#include <unistd.h>

static bool enter_namespaces()
{
    uid_t uid = geteuid();
    gid_t gid = getegid();
    int flags = CLONE_NEWNET | CLONE_NEWNS;
    if (unshare(uid == 0 ? flags : flags | CLONE_NEWUSER) != 0)
        return false;
    if (uid != 0) {
        std::ofstream("/proc/self/uid_map") << "0 " << uid << " 1";
        std::ofstream("/proc/self/setgroups") << "deny";
        std::ofstream("/proc/self/gid_map") << "0 " << gid << " 1";
    }
    if (mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0 ||
        mount("none", "/dev/shm", "tmpfs", 0, nullptr) != 0)
        return false;
    std::ofstream("/proc/sys/net/ipv6/conf/default/disable_ipv6") << "1";
    return true;
}

bool own_network()
{
    static const bool is_made = enter_namespaces();
    return is_made;
}

void ip_command(const std::string &arguments)
{
    std::string command = "ip " + arguments;
    ASSERT_EQ(system(command.c_str()), 0) << command;
}

bool wait_readable(int fd, int timeout_ms)
{
    pollfd entry = {.fd = fd, .events = POLLIN, .revents = 0};
    return poll(&entry, 1, timeout_ms) == 1;
}

t_frames pull_frames(cvmx_ring_t *p_ring, size_t count, cvmx_ring_pkt_t *p_last)
{
    constexpr uint32_t size = 2048;
    auto memory = std::make_unique<uint8_t[]>(CVMX_RING_BATCH * size);
    cvmx_ring_pkt_t pkts[CVMX_RING_BATCH] = {};
    for (uint32_t i = 0; i < CVMX_RING_BATCH; i++)
        pkts[i] = {.buf = memory.get() + i * size, .size = size};
    t_frames frames;
    while (frames.size() < count && wait_readable(cvmx_ring_sock(p_ring))) {
        int pulled = cvmx_ring_rx_pull(p_ring, pkts, CVMX_RING_BATCH);
        for (int i = 0; i < pulled; i++)
            frames.emplace_back(pkts[i].data, pkts[i].data + pkts[i].length);
        if (pulled > 0 && p_last != nullptr)
            *p_last = pkts[pulled - 1];
        if (pulled < 0)
            break;
    }
    return frames;
}

void send_frame(cvmx_ring_t *p_ring, const t_frame &frame)
{
    EXPECT_EQ(cvmx_ring_tx_push(p_ring, frame.data(), static_cast<uint32_t>(frame.size())), 0);
    EXPECT_EQ(cvmx_ring_tx_flush(p_ring), 1);
}
