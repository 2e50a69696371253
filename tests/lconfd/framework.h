// A management daemon at the adapter's own address, on a thread of its own, that tests start and stop.
//
// The process moves into a network and mount namespace of its own, so that port 4565, the access file and
// shared memory are the tests' alone. Where the system allows none, OWN_SYSTEM_OR_SKIP skips the test.
#pragma once

#include "mgmtd/ipc/ipc_server.h"

#include <functional>
#include <future>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

// Once per process, before any thread. False when the system does not allow it.
bool own_system();

#define OWN_SYSTEM_OR_SKIP()                                                                                 \
    do {                                                                                                     \
        if (!own_system())                                                                                   \
            GTEST_SKIP() << "this system allows no namespaces";                                              \
    } while (0)

struct Framework {
    Framework(int phase = 2, bool supplies_mask = true);
    ~Framework();
    Framework(const Framework &) = delete;
    Framework &operator=(const Framework &) = delete;

    void start();
    void stop();  // connections end; the configuration stays
    void set_phase(int phase);

    // An operator, without waiting.
    std::future<t_mgmt_commit_result> commit(const std::string &json);
    std::future<std::string> command(const std::string &path);  // what an action point's command prints

    // What daemons have told: traps as "GROUP NAME VARBIND ...", notifications as JSON.
    std::vector<std::string> take_traps();
    std::future<std::vector<std::string>> notifications();

    // Another daemon's write, with notification of subscribers. Waits on a thread of its own.
    static std::future<int> set_mask(uint32_t mask);

    std::string folder;
    int start_phase;
    bool supplies_mask;
    event_base *p_base = nullptr;
    mgmt_engine_ptr engine;
    ipc_server_ptr server;
    uint32_t session = 0;
    std::thread owner;
    std::mutex traps_lock;
    std::vector<std::string> traps;
};
