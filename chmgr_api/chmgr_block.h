// The chassis block: what the chassis manager knows of the box, in shared memory.
//
// One POSIX shared-memory object, "chassis_info", of 51,288 bytes. The chassis manager writes it; every
// daemon maps it at its first question and reads without locks, since the fields are simple. Integers are in
// host byte order. Bytes between the named fields belong to the chassis manager and the drivers behind it.
#pragma once

#include "common/ip_util.h"

#include <cstddef>
#include <cstdint>

inline constexpr const char *CHMGR_BLOCK_NAME = "chassis_info";
inline constexpr uint32_t CHMGR_MAX_MODULES = 5;
inline constexpr uint32_t CHMGR_MAX_MODULE_PORTS = 8;
inline constexpr size_t CHMGR_IFNAME_SIZE = 32;  // with its terminator

enum e_chassis_type : uint32_t {
    CHASSIS_TYPE_UNKNOWN = 0,
    CHASSIS_TYPE_PYLON_A2_R1 = 1,
    CHASSIS_TYPE_PYLON_A3_R1 = 2,
    CHASSIS_TYPE_PYLON_A1_R1 = 3,
    CHASSIS_TYPE_PYLON_A1_R2 = 4,
    CHASSIS_TYPE_PYLON_A1_R3 = 5,
    CHASSIS_TYPE_PYLON_CLOUD = 6,
    CHASSIS_TYPE_PYLON_A4 = 7,
    CHASSIS_TYPE_PYLON_E2_R1 = 8,
    CHASSIS_TYPE_PYLON_E1_R1 = 9,
    CHASSIS_TYPE_PYLON_E3_R1 = 10,
    MAX_CHASSIS_TYPES = 11,
};

union t_portid {
    struct {
        uint8_t slot;
        uint8_t mda;
        uint16_t port;
    };
    uint32_t value;
};
static_assert(sizeof(t_portid) == 4);

struct t_port_info {
    t_portid port_id;
    uint8_t to_user_name[20];
    char user_name[CHMGR_IFNAME_SIZE];    // "ge0/1"
    char kernel_name[CHMGR_IFNAME_SIZE];  // "ge0_1"
    uint8_t to_end[752];
};
static_assert(sizeof(t_port_info) == 840);
static_assert(offsetof(t_port_info, user_name) == 24);
static_assert(offsetof(t_port_info, kernel_name) == 56);

struct t_module_info {
    uint8_t to_num_ports[154];
    uint16_t num_ports;
    uint8_t to_ports[228];
    t_port_info ports[CHMGR_MAX_MODULE_PORTS];
    uint8_t to_end[256];
};
static_assert(sizeof(t_module_info) == 7360);
static_assert(offsetof(t_module_info, num_ports) == 154);
static_assert(offsetof(t_module_info, ports) == 384);

struct t_chassis_info {
    void *p_sysinfo;  // in the writer's memory
    uint32_t chassis_state;
    e_chassis_type chassis_type;
    uint32_t num_modules;
    uint32_t to_modules;
    t_module_info modules[CHMGR_MAX_MODULES];
    t_portid hw_port_to_user_port[10][8];
    uint8_t to_num_cores[20];
    uint8_t num_cores;
    uint8_t min_fp_cores;
    uint8_t max_fp_cores;
    uint8_t num_fp_dpi_cores;
    uint8_t num_cp_cores;
    uint8_t num_fp_cores;
    uint8_t num_fp_rx_cores;
    uint8_t has_mgmt_if;
    uint8_t to_board_serial_number[13796];
    char board_serial_number[40];
    char hostname[33];
    uint8_t to_system_ip[7];
    t_ipaddr system_ip;
    uint8_t to_sysfs_pfx[24];
    char sysfs_pfx[128];
    int num_wan_intf;
    uint8_t to_macaddr[4];
    uint64_t macaddr_base;
    uint16_t macaddr_count;
    uint8_t to_end[46];
};
static_assert(offsetof(t_chassis_info, chassis_state) == 8);
static_assert(offsetof(t_chassis_info, chassis_type) == 12);
static_assert(offsetof(t_chassis_info, num_modules) == 16);
static_assert(offsetof(t_chassis_info, modules) == 24);
static_assert(offsetof(t_chassis_info, hw_port_to_user_port) == 36824);
static_assert(offsetof(t_chassis_info, num_cores) == 37164);
static_assert(offsetof(t_chassis_info, board_serial_number) == 50968);
static_assert(offsetof(t_chassis_info, hostname) == 51008);
static_assert(offsetof(t_chassis_info, system_ip) == 51048);
static_assert(offsetof(t_chassis_info, sysfs_pfx) == 51096);
static_assert(offsetof(t_chassis_info, num_wan_intf) == 51224);
static_assert(offsetof(t_chassis_info, macaddr_base) == 51232);
static_assert(offsetof(t_chassis_info, macaddr_count) == 51240);
static_assert(sizeof(t_chassis_info) == 51288);
