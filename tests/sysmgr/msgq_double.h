// A message queue of a test's own, for clients of msgq_util.h: link msgq_double.cc instead of the library.
//
// One handle at a time. Nothing is sent: what is written is kept, and the test calls the callbacks. Buffers
// come from the client's own allocator at their exact size, so that a sanitizer sees each byte too far.
#pragma once

#include "common/msgq_util.h"

#include <cstdint>
#include <span>
#include <vector>

struct t_msgq_double {
    // What the client gave at msgq_init.
    uint32_t srcid;
    uint32_t tgtid;
    msgq_handle_type_e type;
    msgq_app_params_t params;
    msgq_app_cb_t cb;
    void *user_arg_p;
    // How the queue behaves.
    bool refuses_init;
    bool refuses_alloc;
    e_err write_result;
    // What has happened.
    int handles;  // open now
    int buffers;  // the client's, now
    std::vector<std::vector<uint8_t>> written;
};

extern t_msgq_double g_msgq_double;

// Empty, and with success for all calls.
void msgq_double_reset();

void msgq_double_up();
void msgq_double_down();
void msgq_double_deliver(std::span<const uint8_t> body);

// Hands out what was written since the last call.
std::vector<std::vector<uint8_t>> msgq_double_take();
