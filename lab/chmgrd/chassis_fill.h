// What a lab router's chassis block says: a healthy box of one model, all ports in use, nothing plugged in.
//
// The model gives modules, ports and environment (g_chassis_descr); the rest follows from the lab's options,
// so that two starts with the same options write the same bytes. Slot 0 is built in; ports stand in order of
// slot and number. Interface and index of the hardware are slot and port, numbers for packets in and out are
// 16 times the slot and the port, each with eight queues. Ethernet addresses are 02, the four bytes of the
// IPv4 system address (else zeros) and the running number of the port.
#pragma once

#include "chmgr_api/chmgr_api.h"

#include <memory>
#include <string>

struct t_chassis_options {
    e_chassis_type type;
    std::string host_name;      // the block has its first 32 characters
    t_ipaddr system_ip;         // family 0: none
    uint8_t num_cores;          // of the machine; all but one forward
    std::string serial_number;  // the block has its first 39 characters
};

// The type of a name on the command line: that of its enumerator, in small letters and with hyphens
// ("pylon-a2-r1", "unknown"). False if there is none.
[[nodiscard]] bool chassis_type_find(const std::string &name, e_chassis_type *p_type);
const char *chassis_type_name(e_chassis_type type);

// A whole new block; p_sysinfo is null in it.
std::unique_ptr<t_chassis_info> chassis_fill(const t_chassis_options &options);
