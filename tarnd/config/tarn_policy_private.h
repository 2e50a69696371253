// The store's own look-ups and steps, shared by its files. Arguments are not null here; look-ups give the
// object or null.
#pragma once

#include "tarnd/config/tarn_policy.h"

t_tarn_policy *tarn_policy_find(const t_tarn *p_tarn, e_tarn_policy_type type, const char *name);
t_tarn_vpn_list *tarn_vpn_list_find(const t_tarn *p_tarn, const char *vpn_list_name);
t_tarn_policy_vpn_list *tarn_policy_vpn_list_find(const t_tarn_policy *p_policy, const char *vpn_list_name);

// Deletes a context, alone or on its policy's way out. Then a zone-based filter is not unbound, since its
// zone pairs carry the binding.
enum e_tarn_context_end { TARN_CONTEXT_ALONE, TARN_CONTEXT_WITH_POLICY };
void tarn_policy_vpn_list_delete(t_tarn *p_tarn, t_tarn_policy *p_policy, t_tarn_policy_vpn_list *p_context,
                                 e_tarn_context_end end);

// Frees all VPN lists with their ranges and tells nobody. No policy is left by then.
void tarn_vpn_list_destroy(t_tarn *p_tarn);
