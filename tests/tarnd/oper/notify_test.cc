// Events of policies and access lists, entry by entry.
#include <gtest/gtest.h>

#include "lconfd/lconfd_api.h"
#include "tarnd/core/tarn.h"
#include "tarnd/oper/tarn_notify.h"
#include "tests/tarnd/oper/notification_record.h"

// The router's name and address, as the adapter gives them.
static const char *host_name;
static t_ipaddr system_ip;

decltype(lconfd_get_hostname) wrap_hostname asm("__wrap__Z19lconfd_get_hostnamev");
const char *wrap_hostname()
{
    return host_name;
}

decltype(lconfd_get_system_ip) wrap_system_ip asm("__wrap__Z20lconfd_get_system_ipP8t_ipaddr");
void wrap_system_ip(t_ipaddr *p_addr)
{
    EXPECT_EQ(p_addr->addr_type, IP_ADDR_V4);
    *p_addr = system_ip;
}

static t_tarn daemon_record;

TEST(NotifyGolden, EntriesInTheModelsOrder)
{
    host_name = "edge-1";
    ASSERT_EQ(str_to_ip("172.16.255.14", &system_ip), 1);
    notification_record_set_result(1);  // looked at by nobody
    EXPECT_EQ(tarn_notify_data_policy_association_notification(&daemon_record, "branch", "web", "Failed"), 0);
    EXPECT_EQ(notification_record_entries(),
              (std::vector<std::string>{"25640284:73e916a8 32 -", "00000000:18f30f38 28 2",
                                        "00000000:5808a665 5 edge-1", "00000000:5e5f3f28 15 ac10ff0e",
                                        "00000000:61fe004e 5 web", "00000000:0ed4d8e3 5 branch",
                                        "00000000:74470328 5 Failed", "25640284:73e916a8 33 -"}));
    notification_record_set_result(0);

    host_name = nullptr;
    ASSERT_EQ(str_to_ip("2001:db8::e", &system_ip), 1);
    EXPECT_EQ(tarn_notify_access_list_association_notification(&daemon_record, "inward", "any text"), 0);
    EXPECT_EQ(notification_record_entries(),
              (std::vector<std::string>{
                  "25640284:026db0d4 32 -", "00000000:18f30f38 28 2", "00000000:5808a665 5 default",
                  "00000000:5e5f3f28 16 20010db800000000000000000000000e", "00000000:1420cbfa 5 inward",
                  "00000000:74470328 5 any text", "25640284:026db0d4 33 -"}));
    host_name = "";
    tarn_notify_access_list_association_notification(&daemon_record, "inward", "Success");
    EXPECT_EQ(notification_record_entries().at(2), "00000000:5808a665 5 default");
}
