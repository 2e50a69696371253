// The order of start-up as a table: a row a part, with what is taken down, and in which order, when it fails.
//
// The orders are part of the daemon's behaviour and not one the reverse of the other. A new part adds its row
// at its place and its destroy function to the rows below it and to the stop order.
#pragma once

#include "tarnd/core/tarn.h"

#include <span>

using f_tarn_start = int (*)(t_tarn *p_tarn);
using f_tarn_stop = void (*)(t_tarn *p_tarn);

struct t_tarn_start_step {
    const char *name;
    f_tarn_start start;                      // 0, or the status that start-up ends with
    std::span<const f_tarn_stop> unwinding;  // in this order when start fails
};

// The rows in order. Replaceable, so that each row's failure can be tried.
extern std::span<const t_tarn_start_step> g_tarn_start_steps;

// What an orderly stop takes down, in this order.
extern std::span<const f_tarn_stop> g_tarn_stop_order;
