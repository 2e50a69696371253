// Settings of a daemon's process: pid files, network namespaces, limits, what goes into a core.
//
// A VPN other than 0 has a network namespace, named by its number below /var/run/netns; VPN 0 is the
// namespace that the daemon was started in. Switching the namespace concerns the calling thread only. Pid
// files hold the pid as text and a line end. An error that leaves the process in the wrong namespace fails an
// assertion.
#pragma once

#include <cstddef>
#include <cstdint>
#include <sys/resource.h>
#include <sys/types.h>

// A daemon's pid file, "/var/run/NAME.VPN.pid", in the hands of whoever starts the daemon.

// 0; -2 when there is a file already, which is left alone; -1 when it can't be created or written.
[[nodiscard]] int lum_util_create_pid_file(const char *name, uint64_t vpn, pid_t pid);

// Always 0, also when there is no file.
int lum_util_delete_pid_file(const char *name, uint64_t vpn);

// The pid in the file, 0 when it holds no number. -1 when the file can't be opened, with the reason in
// p_errno if that is given. Whether the process lives is not tested.
[[nodiscard]] int lum_util_check_pid_file(const char *name, uint64_t vpn, int *p_errno);

// A routing daemon's pid file, "/var/run/quagga/NAME.pid.VPN", without the last part for VPN 0.

// The path, cut to len bytes with the terminator.
void lum_util_get_quagga_pid_file(const char *name, uint64_t vpn, char *buf, size_t len);

// The pid in the file, 0 when it holds no number. A missing file fails an assertion.
[[nodiscard]] int lum_util_get_quagga_pid(const char *name, uint64_t vpn);

// 0, or -1 when the file can't be removed.
int lum_util_delete_quagga_pid_file(const char *name, uint64_t vpn);

// Network namespaces. Both do nothing for VPN 0 and return 0.

// Enters the namespace of the VPN.
int lum_util_set_ns(uint64_t vpn);

// Goes back from the VPN's namespace to that of process 1. Without a /proc to find it in the process exits
// with 0.
int lum_util_reset_ns(uint64_t vpn);

// Crashes and limits.

// Lets anonymous, file-backed and shared mappings into a core, those of huge pages too.
void lum_util_set_coredump_filter();

// Set the soft and the hard limit, in descriptors or bytes; the max forms ask for none. 0, or -1 with errno:
// raising a hard limit needs privilege, and the kernel bounds the number of descriptors for everybody.
int lum_util_set_fd_limits(rlim_t limit);
int lum_util_set_max_fd_limits();
int lum_util_set_core_limits(rlim_t limit);
int lum_util_set_max_core_limits();
