// The calls that the daemon's frame makes of others, recorded and made to fail.
//
// Link daemon_calls.cc with the wrapped names of this folder's CMakeLists.txt. Unless told otherwise every
// call is carried out, but for those into shared memory and to other processes: a DaemonCalls puts a filter
// memory of its own behind g_tarn_octeon_api and a control record behind g_fp_global_ctrl, and the catalogue
// and the channels only seem to start.
#pragma once

#include "fp_api/fp_global_ctrl.h"
#include "tarnd/core/tarn.h"

#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <vector>

class DaemonCalls {
public:
    DaemonCalls();
    ~DaemonCalls();
    DaemonCalls(const DaemonCalls &) = delete;
    DaemonCalls &operator=(const DaemonCalls &) = delete;

    // The nth call of a function from now on fails, as that function fails.
    void fail(const std::string &function, int nth = 1)
    {
        countdown[function] = nth;
    }
    bool fails(const std::string &function);

    std::vector<std::string> started;      // of start-up: functions that make something
    std::vector<std::string> stopped;      // functions that take something down
    std::vector<std::string> timer_calls;  // event_add with an interval, event_active, timer_exec
    std::deque<int> timer_exec_results;    // for the next calls, in place of running timers
    std::function<int(t_tarn *, uint8_t)> filter_init;  // null: it succeeds

private:
    std::map<std::string, int> countdown;
    t_tarn_hw_api real_api;
    std::unique_ptr<t_fp_global_ctrl> global_ctrl;
};
