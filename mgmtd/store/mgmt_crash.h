// Places where the process may be told to die, so that tests see every state that a crash can leave behind.
//
// A point has a name. With MGMT_CRASH_POINTS defined (builds other than Release) the process kills itself
// with SIGKILL at the point that g_mgmt_crash_point names, or, when that is null, the environment's
// MGMT_CRASH_POINT. In a release build a point is nothing.
#pragma once

#ifdef MGMT_CRASH_POINTS

extern const char *g_mgmt_crash_point;

// Kills the process if name is the point in force.
void mgmt_crash_here(const char *name);

#define MGMT_CRASH_POINT(name) mgmt_crash_here(name)

#else

#define MGMT_CRASH_POINT(name) static_cast<void>(0)

#endif
