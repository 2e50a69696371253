// What daemons ask of the chassis: its block, and the names of interfaces.
//
// An Ethernet port has two names: the operator writes "ge0/1", the kernel knows "ge0_1"; a VLAN stands behind
// a dot in both ("ge0/1.20"). The block of the chassis manager (chmgr_block.h) ties the two together. It is
// mapped at the first question, on whatever thread comes first; without a block names pass unchanged.
#pragma once

#include "chmgr_api/chmgr_block.h"

extern t_chassis_info *gp_chassis_info;  // null until the block has been mapped

// Maps the block; readers pass O_RDWR, whoever makes it O_CREAT too. Without O_RDWR the mapping can't be
// accessed. 0; -1 there is none, -2 it can't get its size, -3 it can't be mapped.
int chmgr_info_get(int oflag);

// The kernel's name of what the operator calls `user` (cut to 31 characters), into buf of len bytes, always
// terminated. pp_port, if given, gets the port, or null. The result is buf; null for a port that the box
// doesn't have, a VLAN that is not written as a plain number, or a bridge number above 63: buf then holds the
// name as it came, the kernel's name of that VLAN, or nothing.
char *chmgr_user_to_kernel_ifname(const char *user, char *buf, size_t len, t_port_info **pp_port);
