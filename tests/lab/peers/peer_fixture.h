// An event loop with a deadline and a folder of its own, for tests of connections.
#pragma once

#include "lab/control/lab_program.h"
#include "lab/peers/peer_link.h"

#include <chrono>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <gtest/gtest.h>

class PeerLoop : public testing::Test {
protected:
    lab_base_ptr base{event_base_new()};
    std::string folder;
    std::string error;

    PeerLoop()
    {
        signal(SIGPIPE, SIG_IGN);
        char pattern[] = "/tmp/lab-peers-XXXXXX";
        folder = mkdtemp(pattern);
    }
    ~PeerLoop() override
    {
        std::filesystem::remove_all(folder);
    }

    std::string path(const char *name) const
    {
        return folder + "/" + name;
    }

    // Runs the loop until the condition holds; false after 5 seconds.
    template <typename F>
    bool runs_until(F condition)
    {
        auto end = std::chrono::steady_clock::now() + std::chrono::seconds(5);
        lab_event_ptr tick(event_new(
            base.get(), -1, EV_PERSIST, [](evutil_socket_t, short, void *) {}, nullptr));
        static constexpr timeval pause = {.tv_sec = 0, .tv_usec = 5000};
        event_add(tick.get(), &pause);
        while (!condition() && std::chrono::steady_clock::now() < end)
            event_base_loop(base.get(), EVLOOP_ONCE);
        return condition();
    }
};
