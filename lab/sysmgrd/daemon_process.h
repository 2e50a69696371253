// The supervised daemons as processes of this system: t_daemon_ops over spawning, signals and pid files.
//
// Started processes are children; those that were taken over are not, and are asked after instead.
#pragma once

#include "lab/sysmgrd/daemon.h"

extern const t_daemon_ops g_daemon_process_ops;

// Whether the daemon's process has gone, with how in words; a child is reaped. For one that has a process.
[[nodiscard]] bool daemon_process_gone(const t_daemon *p_daemon, std::string *p_how);
