// Notifications that the daemon hands to the adapter, kept for tests instead of being sent: whoever links
// tarn_test_store has them here.
#pragma once

#include "platform/confd/confd_lib.h"

#include <string>
#include <vector>

// What became of a policy's filter.
struct t_tarn_notification {
    std::string vpn_list;  // empty for an access list
    std::string policy;
    std::string status;

    friend bool operator==(const t_tarn_notification &, const t_tarn_notification &) = default;
};

// Those since the last call.
std::vector<t_tarn_notification> notification_record_take();

// All entries of the last one, "namespace:tag type value" each.
std::vector<std::string> notification_record_entries();

// What the calls give from now on.
void notification_record_set_result(int result);
