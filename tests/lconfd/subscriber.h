// A daemon on the adapter, which writes down what its callbacks get.
//
// One line for each callback: path, operation (created, deleted, modified), keys, values. A deleted leaf
// reads "name=-", a container "name( ... )". After each batch comes "end", or "end of trigger".
#pragma once

#include "lconfd/lconfd_private.h"

#include <functional>
#include <future>
#include <string>
#include <vector>

// Paths in the order of their table; the first three have both priorities, "class" has one, "policy" no keys.
extern t_lconfd_sub_entry subscriber_points[];

struct Subscriber {
    explicit Subscriber(e_lum_module module = LUM_MODULE_TARN);
    ~Subscriber();
    Subscriber(const Subscriber &) = delete;
    Subscriber &operator=(const Subscriber &) = delete;

    e_lconfd_status start();

    // Turns the loop and the timers until the condition holds; false after 20 s.
    bool until(const std::function<bool()> &condition);

    // Until a line was seen, or the future is ready.
    bool until_seen(const std::string &line);
    template <typename Result>
    Result wait(std::future<Result> future)
    {
        EXPECT_TRUE(
            until([&] { return future.wait_for(std::chrono::seconds(0)) == std::future_status::ready; }));
        return future.get();
    }

    // What was seen since the last call.
    std::vector<std::string> take();

    // Whether the subscriptions are registered and served.
    bool is_subscribed() const;

    event_base *p_base;
    t_timer_mgr *p_timers;
    t_lconfd_module_data data;
    t_lconfd_context *ctx = nullptr;
    std::vector<std::string> seen;
    std::string failing_path;  // callbacks of this path fail
    int connections = 0;       // times that everything was registered
};
