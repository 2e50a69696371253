// What the sources of this folder share.
#pragma once

#include "chmgr_api/chmgr_api.h"

// The block, mapped at the first call; null while there is none.
t_chassis_info *chmgr_block();

// A port by its numbers, from a block that is mapped. Null if the box doesn't have it.
t_port_info *chmgr_find_port(uint32_t slot, uint32_t port);
