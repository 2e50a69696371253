// The shared tables in this process's own memory, with the queue's and the engine's functions wrapped at link
// time.
#pragma once

#include "common/e_err.h"
#include "fp_api/fp_tables.h"
#include "tarnd/core/tarn.h"
#include "tarnd/dpi/tarn_dpi.h"

#include <functional>
#include <string>
#include <vector>

struct msgq_handle;

inline constexpr int dpi_world_entries = 4096;

class DpiWorld {
public:
    DpiWorld();
    ~DpiWorld();
    DpiWorld(const DpiWorld &) = delete;
    DpiWorld &operator=(const DpiWorld &) = delete;

    // Starts with a bundle of tests/tarnd/dpi instead of the one that is linked in, and fills the table.
    void load(const char *file);

    t_tarn tarn = {};
    std::vector<uint32_t> mapping;  // as g_fp_dpi_proto_family_mapping
    std::vector<uint32_t> hits;     // as g_fp_dpi_proto_hits
    uint32_t knob = 0;

    // Of the wrapped calls.
    std::string failing;              // this one of the engine's functions fails
    std::vector<std::string> events;  // of the queue, and sleeps
    e_err write_result = ERR_OK;
    bool no_memory = false;
    std::function<void()> on_sleep = [] {};

    void connect();  // gives the daemon its channel
};

// What was logged since the last call, in order.
std::vector<std::string> dpi_world_log();
