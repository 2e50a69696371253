// Traps: which notifications become SNMP traps, under which names, and for which groups.
//
// A table, the same in every daemon, ties tags of the data model to names of the MIB: notifications with the
// index of their trap, and their fields. A trap group is a set of trap indices that the operator configures
// by module and severity; its name is the name that the framework's targets go by. Groups live here, in the
// order of their configuration, and die with the connection; they are read again after the next one.
//
// A notification's trap is put together when it is queued (lconfd_trap_populate), on the main thread, and
// goes out once for each group that wants it (lconfd_trap_send), on the throttler's thread. The table belongs
// to the main thread. The list of groups has a lock: lconfd_trap_send holds it, and so do the two
// configuration callbacks and lconfd_trap_module_init and _free. The functions on single groups take none;
// whoever calls them from elsewhere does so while no throttler runs.
#pragma once

#include "common/dll.h"
#include "lconfd/lconfd_api.h"

#include <cstddef>
#include <cstdint>

struct t_lconfd_notification_queue_item;

// Indices of traps; part of the configuration's meaning, never renumbered.
enum e_lconfd_trap_index {
    LCONFD_TRAP_START = 0,
    LCONFD_TRAP_SYSTEM_SOFTWARE_INSTALL_STATUS = 1,
    LCONFD_TRAP_SYSTEM_REBOOT_ISSUED = 2,
    LCONFD_TRAP_SYSTEM_REBOOT_COMPLETE = 3,
    LCONFD_TRAP_BFD_STATE_CHANGE = 4,
    LCONFD_TRAP_APP_ROUTE_SLA_CHANGE = 5,
    LCONFD_TRAP_HW_FLASH_FAULT = 6,
    LCONFD_TRAP_HW_EMMC_FAULT = 7,
    LCONFD_TRAP_HW_SDCARD_FAULT = 8,
    LCONFD_TRAP_HW_TEMPSENSOR_FAULT = 9,
    LCONFD_TRAP_HW_TEMPSENSOR_STATE = 10,
    LCONFD_TRAP_HW_FAN_FAULT = 11,
    LCONFD_TRAP_HW_FANTRAY_FAULT = 12,
    LCONFD_TRAP_HW_PEM_FAULT = 13,
    LCONFD_TRAP_HW_PEM_STATE_CHANGE = 14,
    LCONFD_TRAP_HW_PIM_FAULT = 15,
    LCONFD_TRAP_HW_PIM_STATE_CHANGE = 16,
    LCONFD_TRAP_HW_SFP_STATE_CHANGE = 17,
    LCONFD_TRAP_HW_SFP_SUPPORT_STATE = 18,
    LCONFD_TRAP_HW_USB_STATE_CHANGE = 19,
    LCONFD_TRAP_OMP_NUMBER_OF_KEELSONS_CHANGE = 20,
    LCONFD_TRAP_OMP_STATE_CHANGE = 21,
    LCONFD_TRAP_OMP_PEER_STATE_CHANGE = 22,
    LCONFD_TRAP_OMP_TLOC_STATE_CHANGE = 23,
    LCONFD_TRAP_OMP_POLICY = 24,
    LCONFD_TRAP_CONTROL_CONNECTION_STATE_CHANGE = 25,
    LCONFD_TRAP_CONTROL_CONNECTION_AUTH_FAIL = 26,
    LCONFD_TRAP_CONTROL_TOLMEN_STATE_CHANGE = 27,
    LCONFD_TRAP_CONTROL_CONNECTION_TLOC_IP_CHANGE = 28,
    LCONFD_TRAP_CONTROL_NO_ACTIVE_KEELSON = 29,
    LCONFD_TRAP_CONTROL_NO_ACTIVE_TOLMEN = 30,
    LCONFD_TRAP_TUNNEL_IPSEC_REKEY = 31,
    LCONFD_TRAP_TUNNEL_IPSEC_MANUAL_REKEY = 32,
    LCONFD_TRAP_SECURITY_ROOT_CERT_CHAIN_INSTALLED = 33,
    LCONFD_TRAP_SECURITY_CERTIFICATE_INSTALLED = 34,
    LCONFD_TRAP_SECURITY_NEW_CSR_GENERATED = 35,
    LCONFD_TRAP_SECURITY_ROOT_CERT_CHAIN_UNINSTALLED = 36,
    LCONFD_TRAP_SECURITY_CLEAR_INSTALLED_CERTIFICATE = 37,
    LCONFD_TRAP_SECURITY_PYLON_SERIAL_FILE_UPLOADED = 38,
    LCONFD_TRAP_SECURITY_KEELSON_SERIAL_FILE_UPLOADED = 39,
    LCONFD_TRAP_SECURITY_PYLON_ENTRY_ADDED = 40,
    LCONFD_TRAP_SECURITY_PYLON_ENTRY_REMOVED = 41,
    LCONFD_TRAP_SECURITY_KEELSON_ENTRY_ADDED = 42,
    LCONFD_TRAP_SECURITY_KEELSON_ENTRY_REMOVED = 43,
    LCONFD_TRAP_PROCESS_RESTART = 44,
    LCONFD_TRAP_DISK_USAGE = 45,
    LCONFD_TRAP_MEMORY_USAGE = 46,
    LCONFD_TRAP_AAA_ADMIN_PWD_CHANGE = 47,
    LCONFD_TRAP_SITE_ID_CHANGE = 48,
    LCONFD_TRAP_DOMAIN_ID_CHANGE = 49,
    LCONFD_TRAP_SYSTEM_IP_CHANGE = 50,
    LCONFD_TRAP_ORG_NAME_CHANGE = 51,
    LCONFD_TRAP_SYSTEM_LOGIN_CHANGE = 52,
    LCONFD_TRAP_SYSTEM_LOGOUT_CHANGE = 53,
    LCONFD_TRAP_SYSTEM_AAA_LOGIN_FAIL = 54,
    LCONFD_TRAP_SYSTEM_COMMIT = 55,
    LCONFD_TRAP_BGP_PEER_STATE_CHANGE = 56,
    LCONFD_TRAP_INTERFACE_STATE_CHANGE = 57,
    LCONFD_TRAP_VRRP_GROUP_STATE_CHANGE = 58,
    LCONFD_TRAP_ROUTE_INSTALL_FAIL = 59,
    LCONFD_TRAP_TUNNEL_INSTALL_FAIL = 60,
    LCONFD_TRAP_DHCP_ADDRESS_ASSIGNED = 61,
    LCONFD_TRAP_DHCP_ADDRESS_RENEWED = 62,
    LCONFD_TRAP_DHCP_ADDRESS_RELEASED = 63,
    LCONFD_TRAP_DHCP_REQUEST_REJECTED = 64,
    LCONFD_TRAP_DHCP_SERVER_STATE_CHANGE = 65,
    LCONFD_TRAP_PIM_NEIGHBOR_STATE_CHANGE = 66,
    LCONFD_TRAP_PIM_INTERFACE_STATE_CHANGE = 67,
    LCONFD_TRAP_PIM_TUNNEL_STATE_CHANGE = 68,
    LCONFD_TRAP_OSPF_NEIGHBOR_STATE_CHANGE = 69,
    LCONFD_TRAP_OSPF_INTERFACE_STATE_CHANGE = 70,
    LCONFD_TRAP_SYSTEM_PSEUDO_COMMIT_STATUS = 71,
    LCONFD_TRAP_SECURITY_CERTIFICATE_EXPIRED = 72,
    LCONFD_TRAP_VPN_FIB_UPDATE = 73,
    LCONFD_TRAP_BRIDGE_CREATION = 74,
    LCONFD_TRAP_BRIDGE_DELETION = 75,
    LCONFD_TRAP_BRIDGE_MAX_MAC_REACHED = 76,
    LCONFD_TRAP_CONTROL_PYLON_LIST_REQUEST = 77,
    LCONFD_TRAP_POLICY_SLA_VIOLATION = 78,
    LCONFD_TRAP_POLICY_SLA_VIOLATION_PKT_DROP = 79,
    LCONFD_TRAP_INTERFACE_PCS_FAULT_DETECTED = 80,
    LCONFD_TRAP_SYSTEM_APP_DPI_FLOW_OUT_OF_MEMORY = 81,
    LCONFD_TRAP_SECURITY_SERVICE_GRE_STATE_UPDATE = 82,
    LCONFD_TRAP_VPN_IF_BW_UPDATE = 83,
    LCONFD_TRAP_POLICY_DATA_POLICY_ASSOCIATION_STATUS = 84,
    LCONFD_TRAP_POLICY_ACCESS_LIST_ASSOCIATION_STATUS = 85,
    LCONFD_TRAP_SECURITY_GANTRY_CONNECTION_PREFERENCE_CHANGED = 86,
    LCONFD_TRAP_VPN_AEROLANE_MAX_LOCAL_EXIT_EXCEEDED = 87,
    LCONFD_TRAP_VPN_AEROLANE_APPLICATION_CHANGE = 88,
    LCONFD_TRAP_VPN_AEROLANE_SCORE_CHANGE = 89,
    LCONFD_TRAP_WWAN_SIM_STATE_CHANGE = 90,
    LCONFD_TRAP_SYSTEM_APP_DPI_FLOW_WRITE_FAILED_PYLON = 91,
    LCONFD_TRAP_INTERFACE_ADMIN_STATE_CHANGE = 92,
    LCONFD_TRAP_WWAN_DOMAIN_STATE_CHANGE = 93,
    LCONFD_TRAP_WWAN_REG_STATE_CHANGE = 94,
    LCONFD_TRAP_WWAN_BEARER_CHANGE = 95,
    LCONFD_TRAP_PROCESS_DOWN = 96,
    LCONFD_TRAP_SYSTEM_REBOOT_ABORTED = 97,
    LCONFD_TRAP_SECURITY_TOLMEN_REJECT_PYLON_CONNECTION = 98,
    LCONFD_TRAP_SECURITY_DEVICE_TEMPLATE_MISSING = 99,
    LCONFD_TRAP_SECURITY_DEVICE_TEMPLATE_ATTACHED_DURING_ZTP = 100,
    LCONFD_TRAP_POLICY_ZBF_FLOW_CREATION = 101,
    LCONFD_TRAP_POLICY_ZBF_FLOW_DELETION = 102,
    LCONFD_TRAP_POLICY_ZBF_FLOW_TABLE_FULL = 103,
    LCONFD_TRAP_POLICY_ZBF_CLEAR_FLOW_TABLE_FULL = 104,
    LCONFD_TRAP_POLICY_ZBF_PKT_LOG = 105,
    LCONFD_TRAP_POLICY_ZBF_HALF_OPEN_LIMIT_HIT = 106,
    LCONFD_TRAP_POLICY_ZBF_CLEAR_HALF_OPEN_HIT = 107,
    LCOND_TRAP_POLICY_SLA_CONFIG = 108,
    LCONFD_TRAP_LAST_RESORT_STATE_CHANGE = 109,
    LCONFD_TRAP_WWAN_QOS_STATE_CHANGE = 110,
    LCONFD_TRAP_END = 111,
};

inline constexpr size_t LCONFD_MIB_NAME_SIZE = 64;  // with its terminator
inline constexpr size_t LCONFD_NOTIF_MAX_VALUES = 20;

// The trap of one notification; inside its queue item, which owns what it points to.
struct t_lconfd_snmp_trap {
    char trap_name[LCONFD_MIB_NAME_SIZE];
    confd_snmp_varbind *varbind;  // null: the notification has no trap
    int num_values;               // varbinds
    e_lconfd_trap_index trap_index;
    void *buffers[LCONFD_NOTIF_MAX_VALUES];  // texts made for varbinds
};

// One trap group.
struct t_lconfd_trap_tag_map {
    uint8_t bitmap[32];      // what is set for single modules; trap n is bit n % 8 of byte n / 8
    uint8_t all_bitmap[32];  // what is set for all modules at once
    char notify_name[32];    // the group's name, terminated
    t_dlnode entry;          // of the list of groups
};

// ---- The adapter's life ----

// Makes the table and an empty list of groups. At the head of each lconfd_module_init.
void lconfd_trap_module_init();

// Frees both.
void lconfd_trap_module_free();

// ---- The table. A namespace of 0 in a search takes the first row with that tag. ----

struct t_lconfd_trap_hash_entry {
    xml_tag key;
    char mib_name[LCONFD_MIB_NAME_SIZE];
    e_lconfd_trap_index trap_index;  // 0: a field
    t_lconfd_trap_hash_entry *next;
};

void lconfd_trap_add_hash_entry(uint32_t tag, uint32_t ns, const char *mib_name, e_lconfd_trap_index index);

// Null for what the table does not have.
const t_lconfd_trap_hash_entry *lconfd_trap_table_lookup(const xml_tag *p_tag);
const char *lconfd_trap_get_mib_name(uint32_t tag, uint32_t ns);

// ---- Groups. Names count up to 31 characters. ----

// Null, logged, without memory. The list owns the group.
t_lconfd_trap_tag_map *lconfd_trap_add_tag(const char *name);
void lconfd_trap_remove_tag(const char *name);
t_lconfd_trap_tag_map *lconfd_trap_find_tag(const char *name);

// Whether the group gets the trap, by single modules or by all. An index of no trap is logged and gives
// false.
bool lconfd_trap_is_enabled(const t_lconfd_trap_tag_map *p_map, int trap_index);

// Sets or clears a trap for single modules.
void lconfd_trap_set(t_lconfd_trap_tag_map *p_map, int trap_index, bool on);

// module and level are values of the configuration: modules 0 (all) to 13; levels 0 critical, 1 major, 2
// minor, which are not the severities that notifications carry. The first clears all of a module's traps in
// `bitmap`, the second sets those of one level.
void lconfd_trap_reset_group(t_lconfd_trap_tag_map *p_map, int module);
void lconfd_trap_set_group(t_lconfd_trap_tag_map *p_map, int module, int level);

// Logs what the group gets, one digit for each trap from 1 on, behind a blank.
void lconfd_trap_bitmap_dump(const t_lconfd_trap_tag_map *p_map);

// What a module's traps of one severity do to a group: the functions set or clear them; null for none.
struct t_lconfd_trap_set_map {
    void (*critical_fp)(t_lconfd_trap_tag_map *p_map, bool on);
    void (*major_fp)(t_lconfd_trap_tag_map *p_map, bool on);
    void (*minor_fp)(t_lconfd_trap_tag_map *p_map, bool on);
};

inline constexpr int LCONFD_NUM_TRAP_SETS = 16;
extern const t_lconfd_trap_set_map g_trap_set_table[LCONFD_NUM_TRAP_SETS];  // by module

// ---- Traps ----

// Puts the item's trap together. An item that the table does not know keeps none, which is logged.
void lconfd_trap_populate(t_lconfd_notification_queue_item *p_item);

// Sends the item's trap to every group that wants it. On the throttler's thread, with its state lock.
void lconfd_trap_send(const t_lconfd_notification_queue_item *p_item);

// ---- Configuration: callbacks of the adapter's own subscriptions ----

int lconfd_config_trap_group(t_lconfd_sub_entry *p_lconfd_sub, confd_iter_op oper, int num_keys,
                             const confd_value_t *p_key, int num_values, const confd_tag_value_t *p_val);
int lconfd_config_trap_group_enable(t_lconfd_sub_entry *p_lconfd_sub, confd_iter_op oper, int num_keys,
                                    const confd_value_t *p_key, int num_values,
                                    const confd_tag_value_t *p_val);
