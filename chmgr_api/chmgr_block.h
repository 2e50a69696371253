// The chassis block: what the chassis manager knows of the box, in shared memory.
//
// One POSIX shared-memory object, "chassis_info", of 51,288 bytes. The chassis manager writes it; every
// daemon maps it at its first question and reads without locks, since the fields are simple. Integers are in
// host byte order, texts are terminated, reserved bytes are zero. A state of 0 says that nothing is known of
// a device, which is what a new block says of everything.
//
// Modules are the box's slots: slot 0 is built in, others may be empty. A module's ports are numbered from 0.
// The forwarding plane's hardware numbers its ports by interface and index; hw_port_to_user_port leads from
// there to slot and port.
#pragma once

#include "common/ip_util.h"

#include <cstddef>
#include <cstdint>
#include <type_traits>

inline constexpr const char *CHMGR_BLOCK_NAME = "chassis_info";
inline constexpr uint32_t CHMGR_MAX_MODULES = 5;
inline constexpr uint32_t CHMGR_MAX_MODULE_PORTS = 8;
inline constexpr uint32_t CHMGR_MAX_HW_INTERFACES = 10;
inline constexpr uint32_t CHMGR_MAX_HW_INDEXES = 8;
inline constexpr uint32_t CHMGR_MAX_USB = 4;
inline constexpr uint32_t CHMGR_MAX_FAN_TRAYS = 4;
inline constexpr uint32_t CHMGR_MAX_FANS = 8;            // of a tray
inline constexpr uint32_t CHMGR_MAX_SENSOR_MODULES = 8;  // groups of temperature sensors
inline constexpr uint32_t CHMGR_MAX_SENSORS = 16;        // of a group
inline constexpr uint32_t CHMGR_MAX_PEMS = 4;            // power entry modules
inline constexpr size_t CHMGR_IFNAME_SIZE = 32;          // with its terminator

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

// States of the chassis and of everything in it.
enum e_hw_state : uint32_t {
    HW_STATE_UNKNOWN = 0,
    HW_STATE_OK = 1,
    HW_STATE_ABSENT = 2,
    HW_STATE_FAULT = 3,
    HW_STATE_OFF = 4,
};

enum e_reset_reason : uint32_t {
    RESET_REASON_UNKNOWN = 0,
    RESET_REASON_POWER_ON = 1,
    RESET_REASON_SOFTWARE = 2,
    RESET_REASON_WATCHDOG = 3,
    RESET_REASON_BUTTON = 4,
};

enum e_led_color : uint32_t {
    LED_COLOR_OFF = 0,
    LED_COLOR_GREEN = 1,
    LED_COLOR_AMBER = 2,
    LED_COLOR_RED = 3,
};

struct t_led_cfg {
    e_led_color color;
    uint32_t is_blinking;  // 0 or 1
};
static_assert(sizeof(t_led_cfg) == 8);

// ---- Ports ----

union t_portid {
    struct {
        uint8_t slot;
        uint8_t mda;  // 0: modules aren't divided
        uint16_t port;
    };
    uint32_t value;
};
static_assert(sizeof(t_portid) == 4);

struct t_port_info {
    t_portid port_id;
    uint16_t fp_port;     // running number over all ports of the box
    uint8_t admin_state;  // 1: in use
    uint8_t reserved0;
    uint64_t vpn_id;
    e_hw_state link_state;
    uint32_t reserved1;
    char user_name[CHMGR_IFNAME_SIZE];    // "ge0/1"
    char kernel_name[CHMGR_IFNAME_SIZE];  // "ge0_1"
    char orig_ifname[CHMGR_IFNAME_SIZE];  // the physical interface before it was renamed, or empty
    uint32_t hw_interface_id;             // row of hw_port_to_user_port
    uint32_t hw_port_index;               // and column
    uint32_t hw_ipd_port;                 // number of the port where packets come in
    uint32_t hw_pko_port;                 // and where they go out
    uint32_t pko_queue_base;
    uint32_t pko_num_queues;
    uint64_t default_macaddr;  // as a number: the first byte of the address is bits 47 to 40
    uint32_t hw_max_macs;
    uint32_t link_speed;  // Mbit/s
    e_hw_state sfp_state;
    uint32_t sfp_tx_enabled;  // 0 or 1
    int32_t sfp_temperature;  // thousandths of a degree Celsius
    uint32_t poe_power;       // mW, 0: no power over this port
    t_led_cfg led;
    uint8_t sfp_raw_data[512];  // the plug-in's own memory
    uint8_t reserved2[144];
};
static_assert(sizeof(t_port_info) == 840);
static_assert(offsetof(t_port_info, fp_port) == 4);
static_assert(offsetof(t_port_info, admin_state) == 6);
static_assert(offsetof(t_port_info, vpn_id) == 8);
static_assert(offsetof(t_port_info, user_name) == 24);
static_assert(offsetof(t_port_info, kernel_name) == 56);
static_assert(offsetof(t_port_info, orig_ifname) == 88);
static_assert(offsetof(t_port_info, hw_interface_id) == 120);
static_assert(offsetof(t_port_info, hw_port_index) == 124);
static_assert(offsetof(t_port_info, hw_ipd_port) == 128);
static_assert(offsetof(t_port_info, hw_pko_port) == 132);
static_assert(offsetof(t_port_info, pko_queue_base) == 136);
static_assert(offsetof(t_port_info, pko_num_queues) == 140);
static_assert(offsetof(t_port_info, default_macaddr) == 144);
static_assert(offsetof(t_port_info, hw_max_macs) == 152);
static_assert(offsetof(t_port_info, sfp_raw_data) == 184);

// ---- Modules ----

struct t_module_eeprom {
    char part_number[32];
    char serial_number[40];
    char description[48];
    uint32_t revision;
    uint32_t reserved0;
};
static_assert(sizeof(t_module_eeprom) == 128);

struct t_module_info {
    t_module_eeprom module_eeprom;
    e_hw_state pim_status;  // of what is plugged into the slot
    e_hw_state module_state;
    uint32_t expected_module_type;  // 0: none
    uint32_t module_type;           // the same numbers
    uint32_t module_id;             // the slot
    uint8_t reserved0[6];
    uint16_t num_ports;
    uint16_t max_ports;
    uint16_t pci_domain;
    uint8_t pci_bus;
    uint8_t pci_device;
    uint8_t pci_function;
    uint8_t reserved1;
    uint16_t pci_vendor_id;
    uint16_t pci_device_id;
    t_led_cfg led;
    uint8_t reserved2[208];
    t_port_info ports[CHMGR_MAX_MODULE_PORTS];
    uint8_t reserved3[256];
};
static_assert(sizeof(t_module_info) == 7360);
static_assert(offsetof(t_module_info, pim_status) == 128);
static_assert(offsetof(t_module_info, module_id) == 144);
static_assert(offsetof(t_module_info, num_ports) == 154);
static_assert(offsetof(t_module_info, max_ports) == 156);
static_assert(offsetof(t_module_info, pci_domain) == 158);
static_assert(offsetof(t_module_info, led) == 168);
static_assert(offsetof(t_module_info, ports) == 384);

// ---- Environment ----

// Flash, eMMC, card and USB sticks.
struct t_storage_info {
    e_hw_state state;
    uint32_t size;  // MiB
    char model[40];
};
static_assert(sizeof(t_storage_info) == 48);

struct t_fan_info {
    e_hw_state state;
    uint32_t speed;       // turns a minute
    uint32_t duty_cycle;  // percent
};
static_assert(sizeof(t_fan_info) == 12);

struct t_fantray_info {
    e_hw_state state;
    uint32_t num_fans;
    t_fan_info fans[CHMGR_MAX_FANS];
};
static_assert(sizeof(t_fantray_info) == 104);

// Temperatures are in degrees Celsius.
struct t_tempsensor_info {
    e_hw_state state;
    int32_t temperature;
    int32_t warning_threshold;
    int32_t critical_threshold;
    char name[24];
};
static_assert(sizeof(t_tempsensor_info) == 40);

struct t_tempsensor_module_info {
    e_hw_state state;
    uint32_t num_sensors;
    t_tempsensor_info sensors[CHMGR_MAX_SENSORS];
};
static_assert(sizeof(t_tempsensor_module_info) == 648);

struct t_pem_info {
    e_hw_state state;
    uint32_t voltage;  // mV
    uint32_t power;    // mW
    uint32_t reserved0;
    char model[32];
};
static_assert(sizeof(t_pem_info) == 48);

// ---- The block ----

struct t_chassis_info {
    void *p_sysinfo;  // in the writer's memory
    e_hw_state chassis_state;
    e_chassis_type chassis_type;
    uint32_t num_modules;
    uint32_t reserved0;
    t_module_info modules[CHMGR_MAX_MODULES];
    t_portid hw_port_to_user_port[CHMGR_MAX_HW_INTERFACES][CHMGR_MAX_HW_INDEXES];
    uint32_t num_usb;  // how many of the environment's devices this box has places for
    uint32_t num_fan_trays;
    uint32_t num_sensor_modules;
    uint32_t num_pems;
    e_reset_reason reset_status;  // why the box started last
    uint8_t num_cores;
    uint8_t min_fp_cores;
    uint8_t max_fp_cores;
    uint8_t num_fp_dpi_cores;
    uint8_t num_cp_cores;
    uint8_t num_fp_cores;
    uint8_t num_fp_rx_cores;
    uint8_t has_mgmt_if;  // 1: port 0 of slot 0 is the management port
    char description[256];
    t_storage_info flash;
    t_storage_info emmc;
    t_storage_info sdcard;
    t_storage_info usb[CHMGR_MAX_USB];
    t_fantray_info fan_trays[CHMGR_MAX_FAN_TRAYS];
    t_tempsensor_module_info sensor_modules[CHMGR_MAX_SENSOR_MODULES];
    t_pem_info pems[CHMGR_MAX_PEMS];
    t_led_cfg system_led;
    t_led_cfg status_led;
    t_led_cfg wlan_led;
    t_led_cfg wwan_led;
    e_hw_state wwan_state;
    uint32_t wwan_connector;  // number of the antenna's connector in use
    e_hw_state poe_state;
    uint32_t cpld_version;
    uint8_t reserved1[7364];
    char board_serial_number[40];
    char hostname[33];
    uint8_t reserved2[7];
    t_ipaddr system_ip;
    uint8_t reserved3[24];
    char sysfs_pfx[128];
    int num_wan_intf;
    uint32_t reserved4;
    uint64_t macaddr_base;  // like default_macaddr of the ports
    uint16_t macaddr_count;
    uint8_t reserved5[46];
};
static_assert(offsetof(t_chassis_info, chassis_state) == 8);
static_assert(offsetof(t_chassis_info, chassis_type) == 12);
static_assert(offsetof(t_chassis_info, num_modules) == 16);
static_assert(offsetof(t_chassis_info, modules) == 24);
static_assert(offsetof(t_chassis_info, hw_port_to_user_port) == 36824);
static_assert(offsetof(t_chassis_info, num_usb) == 37144);
static_assert(offsetof(t_chassis_info, num_cores) == 37164);
static_assert(offsetof(t_chassis_info, has_mgmt_if) == 37171);
static_assert(offsetof(t_chassis_info, description) == 37172);
static_assert(offsetof(t_chassis_info, flash) == 37428);
static_assert(offsetof(t_chassis_info, fan_trays) == 37764);
static_assert(offsetof(t_chassis_info, sensor_modules) == 38180);
static_assert(offsetof(t_chassis_info, pems) == 43364);
static_assert(offsetof(t_chassis_info, system_led) == 43556);
static_assert(offsetof(t_chassis_info, wwan_state) == 43588);
static_assert(offsetof(t_chassis_info, board_serial_number) == 50968);
static_assert(offsetof(t_chassis_info, hostname) == 51008);
static_assert(offsetof(t_chassis_info, system_ip) == 51048);
static_assert(offsetof(t_chassis_info, sysfs_pfx) == 51096);
static_assert(offsetof(t_chassis_info, num_wan_intf) == 51224);
static_assert(offsetof(t_chassis_info, macaddr_base) == 51232);
static_assert(offsetof(t_chassis_info, macaddr_count) == 51240);
static_assert(sizeof(t_chassis_info) == 51288);
static_assert(std::is_standard_layout_v<t_chassis_info>);
