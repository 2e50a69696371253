#include "tarnd/core/tarn_system_message.h"

#include <gtest/gtest.h>

#include <cstring>

#include "tarnd/core/tarn_main.h"
#include "tests/common/syslog_lines.h"

TEST(TarnSystemMessage, EachCodeHasItsSeverityAndText)
{
    strcpy(g_hostname, "edge-1");
    syslog_lines_take();
    tarn_system_message(TARN_MSG_STARTING);
    tarn_system_message(TARN_MSG_POLICY_NO_MEMORY, "branch", "guests");
    tarn_system_message(TARN_MSG_ACL_NO_MEMORY, "edge-in");
    tarn_system_message(TARN_MSG_POLICY_REPROGRAMMED, "branch", "100%s");
    tarn_system_message(TARN_MSG_ACL_REPROGRAMMED, "edge-in");
    tarn_system_message(1100006);
    EXPECT_EQ(
        syslog_lines_take(),
        (std::vector<t_syslog_line>{
            {190, "%Lumora-edge-1-TARND-6-INFO-1100001: Starting"},
            {185,
             "%Lumora-edge-1-TARND-1-ALRT-1100002: Failed to allocate memory for policy branch - guests. "
             "Continuing without the policy."},
            {185, "%Lumora-edge-1-TARND-1-ALRT-1100003: Failed to allocate program memory for access list - "
                  "edge-in. Continuing without the access-list."},
            {190, "%Lumora-edge-1-TARND-6-INFO-1100004: Successfully re-programmed policy branch - 100%s"},
            {190, "%Lumora-edge-1-TARND-6-INFO-1100005: Successfully re-programmed access list - edge-in"},
        }));
}
