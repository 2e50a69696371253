#include "mgmtd/store/mgmt_crash.h"

#ifdef MGMT_CRASH_POINTS

#include <csignal>
#include <cstdlib>
#include <cstring>

const char *g_mgmt_crash_point;

void mgmt_crash_here(const char *name)
{
    const char *p_wanted = g_mgmt_crash_point != nullptr ? g_mgmt_crash_point : getenv("MGMT_CRASH_POINT");
    if (p_wanted != nullptr && strcmp(p_wanted, name) == 0)
        raise(SIGKILL);
}

#endif
