// A box in this process's memory, as the lab's chassis manager fills it. It is the mapped block for as long
// as the object lives.
#pragma once

#include "chmgr_api/chmgr_hwapi.h"
#include "lab/chmgrd/chassis_fill.h"

class FilledBox {
public:
    explicit FilledBox(e_chassis_type type, uint8_t num_cores = 4)
    {
        t_chassis_options options = {type, "edge", {}, num_cores, "sim"};
        IPADDR_SET_V4(&options.system_ip, 0x0aff0102);
        block = chassis_fill(options);
        gp_chassis_info = block.get();
        chmgr_set_hwapi();
    }
    ~FilledBox()
    {
        gp_chassis_info = nullptr;
        gp_hwapi = nullptr;
    }
    FilledBox(const FilledBox &) = delete;
    FilledBox &operator=(const FilledBox &) = delete;

    std::unique_ptr<t_chassis_info> block;
};
