#include "tarnd/oper/double/tarn_notify_double.h"

#include "tarnd/oper/tarn_notify.h"

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

int tarn_notify_data_policy_association_notification(t_tarn *, const char *p_vpn_list_name,
                                                     const char *p_policy_name, const char *p_status_str)
{
    sent().push_back({p_vpn_list_name, p_policy_name, p_status_str});
    return 0;
}

int tarn_notify_access_list_association_notification(t_tarn *, const char *p_policy_name,
                                                     const char *p_status_str)
{
    sent().push_back({"", p_policy_name, p_status_str});
    return 0;
}
