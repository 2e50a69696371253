// What daemons ask of the chassis: its block, the names of interfaces, its ports, its environment.
//
// An Ethernet port has two names: the operator writes "ge0/1", the kernel knows "ge0_1"; a VLAN stands behind
// a dot in both ("ge0/1.20"). A bridge is "irb5" and "irb.5". The block of the chassis manager
// (chmgr_block.h) ties the two together. Where the forwarding plane is simulated, the physical interface
// below a port is called "sim0_1", and "ge0_1" is the plane's tap device towards the kernel.
//
// The block is mapped at the first question, on whatever thread comes first, without a lock; after that
// everything here may be called from any thread, and what is read may change between two calls. Pointers to
// ports lead into the block and stay good until the process ends. The counts in the block are the writer's:
// no function follows them beyond the block's arrays. Functions that need the block and find none, or are
// asked for a device that the box has no place for, say CHMGR_ABSENT.
#pragma once

#include <cerrno>

#include "chmgr_api/chmgr_block.h"

extern t_chassis_info *gp_chassis_info;  // null until the block has been mapped

inline constexpr int CHMGR_ABSENT = -ENODEV;

// ---- Opening ----

// Maps the block and chooses the table of operations (chmgr_hwapi.h); readers pass O_RDWR, whoever makes it
// O_CREAT too. Without O_RDWR the mapping can't be accessed. 0; -1 there is none, -2 it can't get its size,
// -3 it can't be mapped.
int chmgr_info_get(int oflag);

// Makes the block if there is none, and maps it; a failure ends the process. With init_platform it becomes
// the block of this machine's board: state, type, description, and the platform's own initialisation. Gives
// the block, never null.
t_chassis_info *chmgr_api_common_init(bool init_platform);

// The chassis made of a board: the type of cvmx_sysinfo_t and its major revision.
e_chassis_type chmgr_chassis_type_of_board(uint16_t board_type, uint8_t board_rev_major);

// ---- Models ----

// One model. Texts are terminated; the counts are what the chassis manager puts into the block.
struct t_chassis_descr {
    char model[64] = {};
    char description[256] = {};
    char sysfs_pfx[128] = {};  // where the drivers of its devices stand
    uint32_t num_modules = 0;
    uint16_t num_ports[CHMGR_MAX_MODULES] = {};  // by slot; 0 for an empty one
    uint8_t has_mgmt_if = 0;
    uint8_t num_wan_intf = 0;
    uint8_t num_usb = 0;
    uint8_t num_fan_trays = 0;
    uint8_t num_fans = 0;  // of each tray
    uint8_t num_sensors = 0;
    uint8_t num_pems = 0;
    uint8_t reserved[67] = {};
};
static_assert(sizeof(t_chassis_descr) == 536);

extern const t_chassis_descr g_chassis_descr[MAX_CHASSIS_TYPES];  // by e_chassis_type

// Makes a block one of that model: state, type, description and the place of its drivers.
void chmgr_chassis_set_type(t_chassis_info *p_chassis, e_chassis_type type);

// ---- Names ----
//
// Names are cut to 31 characters. buf has len bytes, at least 1; what is written there is terminated, and it
// stays as it was where that is said. pp_port, if given, gets the port, or null.

// The kernel's name of what the operator calls `user`. The result is buf; null for a port that the box
// doesn't have (buf holds the name as it came), a VLAN that is not written as a plain number (buf holds the
// kernel's name of that VLAN), and a bridge number above 63 or a name that begins with a dot (buf stays).
char *chmgr_user_to_kernel_ifname(const char *user, char *buf, size_t len, t_port_info **pp_port);

// The operator's name of what the kernel calls `kernel`. The result is buf; null for a number that the box
// doesn't have (buf holds the name as it came) or a name that begins with a dot (buf stays). A port that has
// another name in the kernel is no failure here: the name passes unchanged, with no port.
char *chmgr_kernel_to_user_name(const char *kernel, char *buf, size_t len, t_port_info **pp_port);

// The same for bridges alone: "irb5" to "irb.5", for numbers below 64, and back. Null for other names, and
// buf stays.
char *chmgr_user_to_kernel_bridge_ifname(const char *user, char *buf, size_t len);
char *chmgr_kernel_to_user_bridge_name(const char *kernel, char *buf, size_t len);

// The kernel's name of a bridge, whatever its number.
char *chmgr_get_irb_if_name(int bridge_id, char *buf, size_t len);

// The number of a bridge; 0 if the name is none. The kernel's form may come without its dot.
int chmgr_bridge_id_from_user_irb_ifname(const char *user);
int chmgr_bridge_id_from_kernel_irb_ifname(const char *kernel);

// The VLAN of "ge0/1.20"; 0 for a name without one. -1 if "ge" is nowhere in the name.
int chmgr_vlan_id_from_user_if_name(const char *user, uint32_t *p_vlan);

// True if a text follows the first dot.
bool chmgr_is_sub_interface(const char *name);

// Classes by the beginning of the name; "loop" is looked for anywhere in it.
bool chmgr_ifname_is_irb(const char *name);
bool chmgr_ifname_is_ethernet(const char *name);
bool chmgr_ifname_is_wlan(const char *name);
bool chmgr_ifname_is_wwan(const char *name);
bool chmgr_ifname_is_docker(const char *name);
bool chmgr_ifname_is_system(const char *name);
bool chmgr_ifname_is_cellular(const char *name);
bool chmgr_ifname_is_loop(const char *name);

// ---- Ports ----

// Null if the box has no such slot, or the slot no such port.
t_port_info *chmgr_get_port_info(t_portid port_id);

// Walk the ports of all modules by slot and number. Null at the end. The walk goes on behind a port_id that
// the box no longer has.
t_port_info *chmgr_get_first_port_info();
t_port_info *chmgr_get_next_port_info(t_portid port_id);

// The port behind an interface and an index of the hardware, all zero outside the map.
t_portid chmgr_hw_port_to_user_port(uint32_t interface, uint32_t index);

// The hardware's numbers of that port for packets in and out. The caller knows that there is one: a missing
// port ends the process.
int chmgr_get_ipd_port(uint32_t interface, uint32_t index);
int chmgr_get_pko_port(uint32_t interface, uint32_t index);

// True for a port of the box that the forwarding plane may take: any but the management port.
bool chmgr_port_allowed(t_portid port_id);

// ---- The simulated platform's interfaces ----
//
// All names but the first function's result are the kernel's ("ge0_1", "ge0_1.20"); what is set up is the
// physical interface below ("sim0_1", "sim0_1.20"), in the network namespace of the caller. 0, -EINVAL for a
// name of another form, or the negative errno number of the kernel's answer.

// "sim0_1" for slot 0, port 1. Always buf; the port need not exist.
char *chmgr_get_sim_ifname(t_portid port_id, char *buf, size_t len);

// Sets the port's interface up and promiscuous, so that frames for the tap device's address come through.
int chmgr_sim_if_config(const t_port_info *p_port);

// Gives the interface an address; for IPv4 it replaces the one it has.
int chmgr_sim_ifaddr_set(const char *kernel_name, const t_ipprefix *p_prefix);

// Lets a multicast group's frames in.
int chmgr_sim_if_maddr_add(const char *kernel_name, const uint8_t macaddr[6]);

int chmgr_set_simif_promisc_mode(const char *kernel_name, bool is_promiscuous);

// The address that the port (of a sub-interface too) was made with. CHMGR_ABSENT for a name that belongs to
// no port.
int chmgr_if_get_default_macaddr(const char *kernel_name, uint8_t macaddr[6]);

// ---- Environment ----
//
// What the chassis manager last saw, copied out. 0, or CHMGR_ABSENT with the output untouched.

int chmgr_get_flash_info(t_storage_info *p_info);
int chmgr_get_emmc_info(t_storage_info *p_info);
int chmgr_get_sdcard_info(t_storage_info *p_info);
int chmgr_get_usb_info(uint32_t index, t_storage_info *p_info);
int chmgr_get_fantray_info(uint32_t tray, t_fantray_info *p_info);
int chmgr_get_fan_info(uint32_t tray, uint32_t fan, t_fan_info *p_info);
int chmgr_get_tempsensor_module_info(uint32_t module, t_tempsensor_module_info *p_info);
int chmgr_get_tempsensor_info(uint32_t module, uint32_t sensor, t_tempsensor_info *p_info);
int chmgr_get_pem_info(uint32_t pem, t_pem_info *p_info);

// ---- Lights ----
//
// A reader asks the hardware first, a writer passes to it what it has put into the block. 0, the operation's
// negative result, or CHMGR_ABSENT.

int chmgr_sfp_read_led_cfg(t_portid port_id, t_led_cfg *p_led);
int chmgr_sfp_write_led_cfg(t_portid port_id, const t_led_cfg *p_led);
int chmgr_pim_read_led_cfg(uint32_t slot, t_led_cfg *p_led);
int chmgr_pim_write_led_cfg(uint32_t slot, const t_led_cfg *p_led);
int chmgr_system_read_led_cfg(t_led_cfg *p_led);
int chmgr_system_write_led_cfg(const t_led_cfg *p_led);
int chmgr_status_get_led(t_led_cfg *p_led);
int chmgr_status_set_led(const t_led_cfg *p_led);
int chmgr_wlan_read_led_cfg(t_led_cfg *p_led);
int chmgr_wwan_read_led_cfg(t_led_cfg *p_led);

// ---- The box ----

// The block, or null.
t_chassis_info *chmgr_get_chassis_info();

// Without a block: CHASSIS_TYPE_UNKNOWN, 0 and false.
e_chassis_type chmgr_get_chassis_type();
uint8_t chmgr_get_num_fp_cores();
uint8_t chmgr_get_num_cp_cores();
uint8_t chmgr_get_num_total_cores();
bool chmgr_has_mgmt_if();

// Host names are cut to 32 characters, or to the buffer.
int chmgr_set_hostname(const char *hostname);
int chmgr_get_hostname(char *buf, size_t len);
int chmgr_set_system_ip(const t_ipaddr *p_addr);
int chmgr_get_system_ip(t_ipaddr *p_addr);

// Both ask the hardware; results like those of the lights.
int chmgr_get_reset_status(e_reset_reason *p_reason);
int chmgr_poweroff();
