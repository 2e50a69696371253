// The control socket: requests of fp_request.h, a line each.
//
// Answers are JSON on one line, or text with an empty line behind it; a text that begins with "error:" is a
// refusal. Replays are worked off in slices. A line has up to 4 MiB: a large table is one. All else is as
// lab_control.h has it.
#pragma once

#include "lab/control/lab_control.h"
#include "lab/fp/fp_service.h"

#include <string>

inline constexpr char FP_CONTROL_SOCKET[] = "/var/run/fpd.sock";

// Listens at the path; a socket that nobody serves any more is replaced. Null with the reason. Base and
// service must outlive the control.
lab_control_ptr fp_control_open(event_base *p_base, t_fp_service *p_service, const std::string &path,
                                std::string *p_error);
