// sysmgrd's configuration: which daemons it supervises.
//
//   {"daemons": [{"name": "tarnd", "module": 9, "command": ["tarnd", "-f"], "hello": true}]}
//
// Further members of a daemon: "stop_signal", "USR2" (which holds without it), "TERM" or "INT"; "output", a
// file to which its outputs are appended; "restart_with", names of other daemons of the configuration.
// "module" may be a name, and be missing where "hello" is false; "hello" is true without it.
#pragma once

#include "lab/sysmgrd/daemon.h"

// The daemons in the order of the text. False with the reason.
[[nodiscard]] bool daemon_config_parse(const std::string &text, std::vector<t_daemon_spec> *p_specs,
                                       std::string *p_error);
