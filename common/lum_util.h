// The vocabulary that the router's processes share: colors and encapsulations of TLOCs, services, kinds of
// device, the modules (daemons), and the applications of route messages.
//
// The numbers stand in wire messages, in shared memory and in the data model; the texts stand in
// configuration, in operators' output and in socket paths. Look-ups are pure and callable from any thread;
// the texts are constants. A text is never null where a function takes one.
#pragma once

#include <cstdint>

// ---- TLOC colors ----

enum e_vpn_tloc_color_type : uint8_t {
    LUM_TLOC_COLOR_INVALID = 0,
    LUM_TLOC_COLOR_DEFAULT = 1,
    LUM_TLOC_COLOR_MPLS = 2,
    LUM_TLOC_COLOR_METRO_ETHERNET = 3,
    LUM_TLOC_COLOR_BIZ_INTERNET = 4,
    LUM_TLOC_COLOR_PUBLIC_INTERNET = 5,
    LUM_TLOC_COLOR_LTE = 6,
    LUM_TLOC_COLOR_3G = 7,
    LUM_TLOC_COLOR_RED = 8,
    LUM_TLOC_COLOR_GREEN = 9,
    LUM_TLOC_COLOR_BLUE = 10,
    LUM_TLOC_COLOR_GOLD = 11,
    LUM_TLOC_COLOR_SILVER = 12,
    LUM_TLOC_COLOR_BRONZE = 13,
    LUM_TLOC_COLOR_CUSTOM1 = 14,
    LUM_TLOC_COLOR_CUSTOM2 = 15,
    LUM_TLOC_COLOR_CUSTOM3 = 16,
    LUM_TLOC_COLOR_PRIVATE1 = 17,
    LUM_TLOC_COLOR_PRIVATE2 = 18,
    LUM_TLOC_COLOR_PRIVATE3 = 19,
    LUM_TLOC_COLOR_PRIVATE4 = 20,
    LUM_TLOC_COLOR_PRIVATE5 = 21,
    LUM_TLOC_COLOR_PRIVATE6 = 22,
};

// "--" for a number that is no color.
const char *lum_util_tloc_color_name(uint32_t color);

// The color whose name, or short form "met-eth", "biz-int", "pub-int", stands at the head of the text; what
// follows is ignored, so "default-x" is "default". LUM_TLOC_COLOR_INVALID if there is none.
e_vpn_tloc_color_type lum_util_color_str2enum(const char *text);

// ---- TLOC encapsulations ----

enum e_lum_tloc_encap_type : uint8_t {
    LUM_TLOC_ENCAP_INVALID = 0,
    LUM_TLOC_ENCAP_GRE = 1,
    LUM_TLOC_ENCAP_IPSEC_TUNNEL = 2,
    LUM_TLOC_ENCAP_MAX = 3,
};

// "--" for anything but the two.
const char *lum_util_tloc_encap_name(uint32_t encap);

// By the head of the text, like the colors. LUM_TLOC_ENCAP_INVALID if there is none.
e_lum_tloc_encap_type lum_util_encap_str2enum(const char *text);

// ---- Services ----

enum e_vpn_svc_type : uint8_t {
    VPN_SVC_FW = 1,
    VPN_SVC_IDS = 2,
    VPN_SVC_IDP = 3,
    VPN_SVC_NETSVC1 = 4,
    VPN_SVC_NETSVC2 = 5,
    VPN_SVC_NETSVC3 = 6,
    VPN_SVC_NETSVC4 = 7,
    VPN_SVC_TE = 8,
    VPN_SVC_MAX = 9,
};

// The name as operational paths write it, "netsvc1" in lower case. Null for a number that is no service.
const char *lum_util_svc_name(uint32_t service);

// The number of the name as the configuration writes it, "NETSVC1" in upper case; the text must match whole.
// The two directions differ for the four netsvc on purpose. 0 for an unknown text.
uint32_t lum_util_svc_name_to_id(const char *text);

// ---- Kinds of device ----

enum e_lum_device : uint32_t {
    LUM_DEVICE_UNKNOWN = 0,
    LUM_DEVICE_PYLON = 1,
    LUM_DEVICE_HUBRIC = 2,
    LUM_DEVICE_KEELSON = 3,
    LUM_DEVICE_TOLMEN = 4,
    LUM_DEVICE_GANTRY = 5,
    LUM_DEVICE_ZTP = 6,
    LUM_DEVICE_CARREL = 7,
    LUM_DEVICE_MAX = 8,
};

// "Unknown" for a number out of range.
const char *lum_util_device_name(uint32_t device);

// ---- Modules ----
//
// A module's name makes up its socket path "/var/run/.<name>" and its pid file, so names are unique and
// short. Fixed by the peers are OMP, TTM, FTM, CFGMGR, CHMGR, SYSMGR, TARN, FP, WLAN, BGP and the bounds; the
// numbers and names of the others are this tree's own. Nothing here talks to those: they only have to be
// there.

enum e_lum_module : uint32_t {
    LUM_MODULE_UNKNOWN = 0,
    LUM_MODULE_OMP = 1,
    LUM_MODULE_TTM = 2,
    LUM_MODULE_FTM = 3,
    LUM_MODULE_VPNMGR = 4,
    LUM_MODULE_CFGMGR = 5,
    LUM_MODULE_CHMGR = 6,
    LUM_MODULE_SYSMGR = 7,
    LUM_MODULE_LOGMGR = 8,
    LUM_MODULE_TARN = 9,
    LUM_MODULE_IFMGR = 10,
    LUM_MODULE_TRACK = 11,
    LUM_MODULE_NATMGR = 12,
    LUM_MODULE_CERTMGR = 13,
    LUM_MODULE_KEYMGR = 14,
    LUM_MODULE_QOSMGR = 15,
    LUM_MODULE_FLOWMGR = 16,
    LUM_MODULE_DPIMGR = 17,
    LUM_MODULE_FP = 18,
    LUM_MODULE_BRIDGE = 19,
    LUM_MODULE_CELLULAR = 20,
    LUM_MODULE_WLAN = 21,
    LUM_MODULE_LEASEMGR = 22,
    LUM_MODULE_NAMEMGR = 23,
    LUM_MODULE_CLOCKMGR = 24,
    LUM_MODULE_TRAPMGR = 25,
    LUM_MODULE_USERMGR = 26,
    LUM_MODULE_IMAGEMGR = 27,
    LUM_MODULE_STATMGR = 28,
    LUM_MODULE_CAPTURE = 29,
    LUM_MODULE_SPEEDTEST = 30,
    LUM_MODULE_NCS = 31,
    LUM_MODULE_OSPF = 32,
    LUM_MODULE_BGP = 33,
    LUM_MODULE_INTERNAL_MAX = 34,
    LUM_MODULE_INSTANCE_A_FIRST = 35,  // two runs of 64 instance modules
    LUM_MODULE_INSTANCE_A_LAST = 98,
    LUM_MODULE_INSTANCE_B_FIRST = 99,
    LUM_MODULE_INSTANCE_B_LAST = 162,
    LUM_MODULE_EXTERNAL_A = 163,
    LUM_MODULE_EXTERNAL_B = 164,
    LUM_MODULE_MAX = 165,
};

extern const char *const g_lum_module_name[LUM_MODULE_MAX];

// Asserts that the number is below LUM_MODULE_MAX.
const char *lum_util_module_name(uint32_t id);

// Upper and lower case count as equal. LUM_MODULE_UNKNOWN if no name fits.
uint32_t lum_util_module_name_to_id(const char *text);

// ---- Applications of route messages ----

enum e_lum_rtmsg_app : uint32_t {
    LUM_RTMSG_APP_UNKNOWN = 0,
    LUM_RTMSG_APP_SYSLOG = 1,
    LUM_RTMSG_APP_SYSSTAT = 2,
    LUM_RTMSG_APP_SYSPCAP = 3,
    LUM_RTMSG_APP_SYSSPED = 4,
    LUM_RTMSG_APP_MAX = 5,
};

extern const char *const g_lum_rtmsg_app_name[LUM_RTMSG_APP_MAX];

// Asserts that the number is below LUM_RTMSG_APP_MAX.
const char *lum_util_rtmsg_app_name(uint32_t id);

// The text must match whole. LUM_RTMSG_APP_UNKNOWN if it is none.
uint32_t lum_util_rtmsg_app_name_to_id(const char *text);
