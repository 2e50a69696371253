#include "tarnd/oper/double/tarn_notify_double.h"

#include "tarnd/oper/tarn_notify.h"

#include <utility>

// Never destroyed, so that calls at process end find it.
static std::vector<t_tarn_notification> &sent()
{
    static std::vector<t_tarn_notification> &instance = *new std::vector<t_tarn_notification>();
    return instance;
}

void tarn_notify_double_reset()
{
    sent().clear();
}

const std::vector<t_tarn_notification> &tarn_notify_double_sent()
{
    return sent();
}

// The daemon runs on for long: only the first ones are kept.
static void keep(t_tarn_notification notification)
{
    static constexpr size_t max_kept = 1'000;
    if (sent().size() < max_kept)
        sent().push_back(std::move(notification));
}

int tarn_notify_data_policy_association_notification(t_tarn *, const char *p_vpn_list_name,
                                                     const char *p_policy_name, const char *p_status_str)
{
    keep({p_vpn_list_name, p_policy_name, p_status_str});
    return 0;
}

int tarn_notify_access_list_association_notification(t_tarn *, const char *p_policy_name,
                                                     const char *p_status_str)
{
    keep({"", p_policy_name, p_status_str});
    return 0;
}
