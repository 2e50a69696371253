#include "libcvmx/sim/sim_log.h"

#include <cstdarg>
#include <cstdio>
#include <syslog.h>

int g_fp_sim_use_printf;

void cvmx_sim_log(const char *format, ...)
{
    va_list arguments;
    va_start(arguments, format);
    if (g_fp_sim_use_printf != 0) {
        vprintf(format, arguments);
        fflush(stdout);
    } else {
        vsyslog(LOG_DEBUG, format, arguments);
    }
    va_end(arguments);
}
