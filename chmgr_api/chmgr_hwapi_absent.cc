// The tables of boxes whose drivers aren't in this tree: every operation says that there is no such device.
#include "chmgr_api/chmgr_api.h"
#include "chmgr_api/chmgr_hwapi.h"

#define PA2_OPERATION(member, thing, operation)                                                              \
    static int thing##_pa2_##operation(t_chassis_info *)                                                     \
    {                                                                                                        \
        return CHMGR_ABSENT;                                                                                 \
    }
#define PD1_OPERATION(member, thing, operation)                                                              \
    static int thing##_pd1_##operation(t_chassis_info *)                                                     \
    {                                                                                                        \
        return CHMGR_ABSENT;                                                                                 \
    }
CHMGR_HWAPI_OPERATIONS(PA2_OPERATION)
CHMGR_HWAPI_OPERATIONS(PD1_OPERATION)

#define PA2_ENTRY(member, thing, operation) .member = thing##_pa2_##operation,
#define PD1_ENTRY(member, thing, operation) .member = thing##_pd1_##operation,
const t_chassis_hwapi g_pylon_pa2_hwapi = {CHMGR_HWAPI_OPERATIONS(PA2_ENTRY)};
const t_chassis_hwapi g_pylon_pd1_hwapi = {CHMGR_HWAPI_OPERATIONS(PD1_ENTRY)};
