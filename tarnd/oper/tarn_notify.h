// Notifications to operators: what became of a policy's filter.
//
// They go out on the management framework's stream, beside the message in syslog. Sending never fails for the
// caller: what can't leave now is the adapter's business. Main thread only.
#pragma once

struct t_tarn;

// A policy's filter on a VPN list found no memory ("Failed"), or was built after it had waited ("Success").
// Returns 0.
int tarn_notify_data_policy_association_notification(t_tarn *p_tarn, const char *p_vpn_list_name,
                                                     const char *p_policy_name, const char *p_status_str);

// The same of an access list's program; p_policy_name is the list's name.
int tarn_notify_access_list_association_notification(t_tarn *p_tarn, const char *p_policy_name,
                                                     const char *p_status_str);
