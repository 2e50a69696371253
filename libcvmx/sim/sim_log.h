// Log lines of the services and of fp_api.
//
// These libraries run inside several processes and know none of their log settings: a process that wants to
// see the lines sets g_fp_sim_use_printf, otherwise they go to syslog.
#pragma once

// Non-zero: standard output. Zero: syslog at priority 7, the process's own facility.
extern int g_fp_sim_use_printf;

// Writes one line; the format brings its own newline. Standard output is flushed, since the line is often the
// last that a process says before a failed assertion stops it.
__attribute__((format(printf, 1, 2))) void cvmx_sim_log(const char *format, ...);
