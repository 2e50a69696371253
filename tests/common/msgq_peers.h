// What the message queue's tests share: an application that writes down what it is told, a peer that is a
// bare socket, and a fixture whose event loop and clock the test turns by hand.
#pragma once

#include <gtest/gtest.h>

#include <deque>
#include <functional>
#include <string>
#include <utility>
#include <vector>

#include "common/msgq_util_private.h"

using lines = std::vector<std::string>;

inline constexpr uint32_t MSGQ_OWN = LUM_MODULE_TARN;  // 9, the side under test when it serves
inline constexpr uint32_t MSGQ_PEER = LUM_MODULE_FTM;  // 3
inline constexpr uint8_t MSGQ_TEST_APP_HEADER = 6;     // bytes of header, with the length at 2
inline constexpr uint8_t MSGQ_TEST_LENGTH_AT = 2;

// The user argument of a handle.
struct t_msgq_app {
    lines log;  // "up", "down", "got <body>"
    bool up = false;
    std::function<void(msgq_handle_t *, const std::string &)> on_message;  // may be empty

    static msgq_app_cb_t callbacks();
};

extern long g_msgq_blocks;          // of the application's allocator that live
extern long g_msgq_blocks_allowed;  // allocations until it fails; negative for no end
extern ssize_t g_msgq_send_limit;   // bytes that one send takes; -1 for all, -2 makes it fail
extern int g_msgq_poll_result;      // 1 is the real one; 0, or a negative error number
extern time_t g_msgq_clock_step;    // seconds by which gettimeofday goes on with each call

// A message as it goes over the wire.
std::string msgq_wire(uint8_t src, uint8_t tgt, uint8_t type, const std::string &body);
std::string msgq_wire_register(uint8_t src = MSGQ_PEER, uint8_t tgt = MSGQ_OWN);
std::string msgq_app_wire(const std::string &body);

// Takes the peer's end of a connection, by a bare socket.
struct t_raw_peer {
    int fd = -1;

    explicit t_raw_peer(const std::string &path);
    explicit t_raw_peer(int accepted_fd) : fd(accepted_fd) {}
    t_raw_peer(t_raw_peer &&other) noexcept : fd(std::exchange(other.fd, -1)) {}
    t_raw_peer &operator=(t_raw_peer &&other) noexcept;
    ~t_raw_peer();
    void send(const std::string &bytes) const;
    std::string take() const;  // what has arrived
    bool is_closed() const;    // nothing has arrived and nothing will
};

int msgq_count_descriptors();

struct MsgqTest : testing::Test {
    event_base *base;
    t_timer_mgr *timer_mgr;
    std::string folder;
    std::string path;
    int descriptors;
    std::deque<t_msgq_app> apps;  // outlive the handles

    t_msgq_app &new_app()
    {
        return apps.emplace_back();
    }

    MsgqTest();
    ~MsgqTest() override;

    msgq_app_params_t params() const;
    msgq_app_params_t app_params() const;  // with an application header
    msgq_handle_t *serve(t_msgq_app *app_p, const msgq_app_params_t &params) const;
    msgq_handle_t *call(t_msgq_app *app_p, const msgq_app_params_t &params) const;

    void pump() const;           // until what is there has been handled
    void pass(int msecs) const;  // time, and then pump
    t_raw_peer registered() const;
};

// Puts the text into a message and writes it; frees it if the library did not take it.
e_err msgq_write_text(msgq_handle_t *msgq_p, const std::string &text);
