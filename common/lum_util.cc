#include "common/lum_util.h"

#include <strings.h>

#include <algorithm>
#include <cstring>
#include <iterator>
#include <span>
#include <string_view>

#include "common/lum_assert.h"

// A text that is read back into a number.
struct t_name {
    std::string_view text;
    uint8_t value;
};

// The value of the first name that stands at the head of the text, or 0.
static uint8_t find_by_head(std::span<const t_name> names, std::string_view text)
{
    auto found = std::ranges::find_if(names, [=](const t_name &name) { return text.starts_with(name.text); });
    return found == names.end() ? uint8_t{0} : found->value;
}

// ---- TLOC colors ----

static constexpr const char *color_names[] = {
    "invalid",  "default",  "mpls",     "metro-ethernet", "biz-internet", "public-internet",
    "lte",      "3g",       "red",      "green",          "blue",         "gold",
    "silver",   "bronze",   "custom1",  "custom2",        "custom3",      "private1",
    "private2", "private3", "private4", "private5",       "private6",
};
static_assert(std::size(color_names) == LUM_TLOC_COLOR_PRIVATE6 + 1);

static constexpr t_name color_short_forms[] = {
    {"met-eth", LUM_TLOC_COLOR_METRO_ETHERNET},
    {"biz-int", LUM_TLOC_COLOR_BIZ_INTERNET},
    {"pub-int", LUM_TLOC_COLOR_PUBLIC_INTERNET},
};

const char *lum_util_tloc_color_name(uint32_t color)
{
    return color < std::size(color_names) ? color_names[color] : "--";
}

e_vpn_tloc_color_type lum_util_color_str2enum(const char *text)
{
    for (uint32_t color = 0; color < std::size(color_names); color++)
        if (std::string_view(text).starts_with(color_names[color]))
            return static_cast<e_vpn_tloc_color_type>(color);
    return static_cast<e_vpn_tloc_color_type>(find_by_head(color_short_forms, text));
}

// ---- TLOC encapsulations ----

static constexpr t_name encap_names[] = {
    {"ipsec", LUM_TLOC_ENCAP_IPSEC_TUNNEL},
    {"gre", LUM_TLOC_ENCAP_GRE},
};

const char *lum_util_tloc_encap_name(uint32_t encap)
{
    auto *p_name = std::ranges::find(encap_names, encap, &t_name::value);
    return p_name == std::end(encap_names) ? "--" : p_name->text.data();
}

e_lum_tloc_encap_type lum_util_encap_str2enum(const char *text)
{
    return static_cast<e_lum_tloc_encap_type>(find_by_head(encap_names, text));
}

// ---- Services ----

// Position is the service's number; the configuration's form stands beside the operational one.
struct t_service_names {
    const char *operational;
    const char *configured;
};

static constexpr t_service_names service_names[VPN_SVC_MAX] = {
    {nullptr, ""},          {"FW", "FW"},           {"IDS", "IDS"},
    {"IDP", "IDP"},         {"netsvc1", "NETSVC1"}, {"netsvc2", "NETSVC2"},
    {"netsvc3", "NETSVC3"}, {"netsvc4", "NETSVC4"}, {"TE", "TE"},
};

const char *lum_util_svc_name(uint32_t service)
{
    return service < VPN_SVC_MAX ? service_names[service].operational : nullptr;
}

uint32_t lum_util_svc_name_to_id(const char *text)
{
    for (uint32_t service = VPN_SVC_FW; service < VPN_SVC_MAX; service++)
        if (strcmp(text, service_names[service].configured) == 0)
            return service;
    return 0;
}

// ---- Kinds of device ----

static constexpr const char *device_names[] = {
    "Unknown", "Pylon", "Hubric", "Keelson", "Tolmen", "Gantry", "ZTP", "Carrel",
};
static_assert(std::size(device_names) == LUM_DEVICE_MAX);

const char *lum_util_device_name(uint32_t device)
{
    return device_names[device < LUM_DEVICE_MAX ? device : LUM_DEVICE_UNKNOWN];
}

// ---- Modules ----

// Names of instances, numbered in octal digits: "inst-a00" to "inst-a77".
#define INSTANCES_8(head) head "0", head "1", head "2", head "3", head "4", head "5", head "6", head "7"
#define INSTANCES_64(head)                                                                                   \
    INSTANCES_8(head "0"), INSTANCES_8(head "1"), INSTANCES_8(head "2"), INSTANCES_8(head "3"),              \
        INSTANCES_8(head "4"), INSTANCES_8(head "5"), INSTANCES_8(head "6"), INSTANCES_8(head "7")

const char *const g_lum_module_name[LUM_MODULE_MAX] = {
    "unknown",
    "ompd",
    "ttmd",
    "ftmd",
    "vpnmgrd",
    "cfgmgr",
    "chmgrd",
    "sysmgrd",
    "logmgrd",
    "tarnd",
    "ifmgrd",
    "trackd",
    "natmgrd",
    "certmgrd",
    "keymgrd",
    "qosmgrd",
    "flowmgrd",
    "dpimgrd",
    "fp-um",
    "bridged",
    "cellulard",
    "wland",
    "leasemgrd",
    "namemgrd",
    "clockmgrd",
    "trapmgrd",
    "usermgrd",
    "imagemgrd",
    "statmgrd",
    "captured",
    "speedtestd",
    "ncs",
    "ospfd",
    "bgpd",
    "internal-max",
    INSTANCES_64("inst-a"),
    INSTANCES_64("inst-b"),
    "external-a",
    "external-b",
};

const char *lum_util_module_name(uint32_t id)
{
    LUM_ASSERT(id < LUM_MODULE_MAX, "id < LUM_MODULE_MAX");
    return g_lum_module_name[id];
}

uint32_t lum_util_module_name_to_id(const char *text)
{
    for (uint32_t id = 0; id < LUM_MODULE_MAX; id++)
        if (strcasecmp(text, g_lum_module_name[id]) == 0)
            return id;
    return LUM_MODULE_UNKNOWN;
}

// ---- Applications of route messages ----

const char *const g_lum_rtmsg_app_name[LUM_RTMSG_APP_MAX] = {
    "unknown", "device/log/", "device/status/", "device/pcap/", "device/speed/",
};

const char *lum_util_rtmsg_app_name(uint32_t id)
{
    LUM_ASSERT(id < LUM_RTMSG_APP_MAX, "id < LUM_RTMSG_APP_MAX");
    return g_lum_rtmsg_app_name[id];
}

uint32_t lum_util_rtmsg_app_name_to_id(const char *text)
{
    for (uint32_t id = 0; id < LUM_RTMSG_APP_MAX; id++)
        if (strcmp(text, g_lum_rtmsg_app_name[id]) == 0)
            return id;
    return LUM_RTMSG_APP_UNKNOWN;
}
