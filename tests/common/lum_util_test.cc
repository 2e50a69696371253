#include "common/lum_util.h"

#include <gtest/gtest.h>

#include <csignal>
#include <cstring>
#include <set>
#include <string>

TEST(LumUtil, ColorNamesReadBackByTheirHead)
{
    static const char *const names[] = {
        "invalid",  "default",  "mpls",     "metro-ethernet", "biz-internet", "public-internet",
        "lte",      "3g",       "red",      "green",          "blue",         "gold",
        "silver",   "bronze",   "custom1",  "custom2",        "custom3",      "private1",
        "private2", "private3", "private4", "private5",       "private6"};
    for (uint32_t color = 0; color < std::size(names); color++) {
        EXPECT_STREQ(lum_util_tloc_color_name(color), names[color]);
        EXPECT_EQ(lum_util_color_str2enum(names[color]), color);
        EXPECT_EQ(lum_util_color_str2enum((std::string(names[color]) + "-x").c_str()), color);
    }
    for (uint32_t color : {23u, 255u, UINT32_MAX})
        EXPECT_STREQ(lum_util_tloc_color_name(color), "--");
    struct {
        const char *text;
        e_vpn_tloc_color_type color;
    } rows[] = {
        {"met-eth", LUM_TLOC_COLOR_METRO_ETHERNET},
        {"biz-int", LUM_TLOC_COLOR_BIZ_INTERNET},
        {"pub-int", LUM_TLOC_COLOR_PUBLIC_INTERNET},
        {"pub-int7", LUM_TLOC_COLOR_PUBLIC_INTERNET},
        {"private", LUM_TLOC_COLOR_INVALID},
        {"Red", LUM_TLOC_COLOR_INVALID},
        {" red", LUM_TLOC_COLOR_INVALID},
        {"re", LUM_TLOC_COLOR_INVALID},
        {"--", LUM_TLOC_COLOR_INVALID},
        {"", LUM_TLOC_COLOR_INVALID},
    };
    for (const auto &row : rows)
        EXPECT_EQ(lum_util_color_str2enum(row.text), row.color) << row.text;
}

TEST(LumUtil, EncapsulationsReadBackByTheirHead)
{
    const char *names[] = {"--", "gre", "ipsec", "--"};
    for (uint32_t encap = 0; encap < std::size(names); encap++)
        EXPECT_STREQ(lum_util_tloc_encap_name(encap), names[encap]);
    EXPECT_EQ(lum_util_encap_str2enum("ipsec-tunnel"), LUM_TLOC_ENCAP_IPSEC_TUNNEL);
    EXPECT_EQ(lum_util_encap_str2enum("gre"), LUM_TLOC_ENCAP_GRE);
    EXPECT_EQ(lum_util_encap_str2enum("ips"), LUM_TLOC_ENCAP_INVALID);
    EXPECT_EQ(lum_util_encap_str2enum(""), LUM_TLOC_ENCAP_INVALID);
}

TEST(LumUtil, ServicesAreWrittenLowerAndReadUpperCase)
{
    struct {
        const char *written;
        const char *read;
    } rows[] = {
        {"FW", "FW"},           {"IDS", "IDS"},         {"IDP", "IDP"},         {"netsvc1", "NETSVC1"},
        {"netsvc2", "NETSVC2"}, {"netsvc3", "NETSVC3"}, {"netsvc4", "NETSVC4"}, {"TE", "TE"}};
    for (uint32_t service = VPN_SVC_FW; service < VPN_SVC_MAX; service++) {
        EXPECT_STREQ(lum_util_svc_name(service), rows[service - 1].written);
        EXPECT_EQ(lum_util_svc_name_to_id(rows[service - 1].read), service);
    }
    EXPECT_EQ(lum_util_svc_name(0), nullptr);
    EXPECT_EQ(lum_util_svc_name(VPN_SVC_MAX), nullptr);
    for (const char *text : {"netsvc1", "fw", "FW1", "F", ""})
        EXPECT_EQ(lum_util_svc_name_to_id(text), 0u) << text;
}

TEST(LumUtil, DevicesOutOfRangeAreUnknown)
{
    const char *names[] = {"Unknown", "Pylon", "Hubric", "Keelson", "Tolmen",
                           "Gantry",  "ZTP",   "Carrel", "Unknown"};
    for (uint32_t device = 0; device < std::size(names); device++)
        EXPECT_STREQ(lum_util_device_name(device), names[device]);
    EXPECT_STREQ(lum_util_device_name(UINT32_MAX), "Unknown");
}

TEST(LumUtil, ModulesOfThePeersHaveTheirNames)
{
    struct {
        uint32_t id;
        const char *name;
    } rows[] = {{0, "unknown"}, {1, "ompd"},    {2, "ttmd"},  {3, "ftmd"},   {5, "cfgmgr"},
                {6, "chmgrd"},  {7, "sysmgrd"}, {9, "tarnd"}, {18, "fp-um"}, {21, "wland"}};
    for (const auto &row : rows)
        EXPECT_STREQ(lum_util_module_name(row.id), row.name);
    EXPECT_EQ(LUM_MODULE_BGP, 33);
}

TEST(LumUtil, EveryModuleHasANameOfItsOwn)
{
    std::set<std::string> names;
    for (uint32_t id = 0; id < 165; id++) {
        std::string name = lum_util_module_name(id);
        EXPECT_TRUE(names.insert(name).second) << name;
        EXPECT_LT(("/var/run/.__" + name).size(), 64u);  // the room of a socket path
        EXPECT_EQ(lum_util_module_name_to_id(name.c_str()), id);
    }
    EXPECT_EQ(lum_util_module_name_to_id("TarnD"), 9u);
    EXPECT_EQ(lum_util_module_name_to_id("tarn"), 0u);
    EXPECT_EQ(lum_util_module_name_to_id(""), 0u);
}

TEST(LumUtil, RouteMessageApplicationsReadBack)
{
    EXPECT_STREQ(lum_util_rtmsg_app_name(LUM_RTMSG_APP_UNKNOWN), "unknown");
    EXPECT_STREQ(lum_util_rtmsg_app_name(LUM_RTMSG_APP_SYSLOG), "device/log/");
    EXPECT_STREQ(lum_util_rtmsg_app_name(LUM_RTMSG_APP_SYSSTAT), "device/status/");
    for (uint32_t id = 0; id < 5; id++)
        EXPECT_EQ(lum_util_rtmsg_app_name_to_id(lum_util_rtmsg_app_name(id)), id);
    EXPECT_EQ(lum_util_rtmsg_app_name_to_id("device/log"), 0u);
}

TEST(LumUtilDeathTest, NumbersOutOfRangeAreAssertions)
{
    EXPECT_EXIT(lum_util_module_name(165), testing::KilledBySignal(SIGSEGV), "");
    EXPECT_EXIT(lum_util_rtmsg_app_name(5), testing::KilledBySignal(SIGSEGV), "");
}
