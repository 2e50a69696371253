// A recording double of the notifications: what would have been sent is kept in order.
#pragma once

#include <string>
#include <vector>

struct t_tarn_notification {
    std::string vpn_list;  // empty for an access list
    std::string policy;
    std::string status;

    friend bool operator==(const t_tarn_notification &, const t_tarn_notification &) = default;
};

void tarn_notify_double_reset();
const std::vector<t_tarn_notification> &tarn_notify_double_sent();
