// A service on a pool of filters, asked with lines as they come in on the control socket.
#pragma once

#include "lab/fp/fp_service.h"
#include "tests/lab/fp/fp_pool.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

class FpAsking : public testing::Test {
protected:
    // The service goes by a clock that stands still.
    FpAsking();

    // The answer; a replay is worked off before.
    fp_json answer(const std::string &line);

    t_test_memory memory;
    t_test_pool pool;
    t_fp_service service;
    uint32_t replay_frames = 100;  // in one step
};
