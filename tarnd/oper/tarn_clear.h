// Clearing of counters and policers, on an operator's demand.
//
// A clear acts on the program that is loaded, in shared memory, and is remembered nowhere: the next program
// of the same policy starts from 0 anyway. Lists whose program isn't loaded are passed over. The forwarding
// plane counts on meanwhile (tarn_program.h says what may be lost).
#pragma once

#include "platform/confd/confd_dp.h"
#include "tarnd/acl/tarn_access_list.h"
#include "tarnd/config/tarn_policy.h"

struct t_tarn;

// A null name means all of the family, or of the type. 2 when there is no object of that name. Any family but
// 0 means IPv6.
int tarn_clear_acl(t_tarn *p_tarn, const char *name, e_tarn_af_type af_type);
int tarn_clear_policy(t_tarn *p_tarn, e_tarn_policy_type type, const char *name);

// ---- Actions of operators (the framework's callbacks) ----
//
// One optional parameter, the object's name; a value of another type than text is an assertion. Always 0: a
// name that doesn't exist clears nothing.

int tarn_clear_policy_acl(confd_user_info *uinfo, xml_tag *name, confd_hkeypath_t *kp,
                          confd_tag_value_t *params, int nparams);
int tarn_clear_policy_acl6(confd_user_info *uinfo, xml_tag *name, confd_hkeypath_t *kp,
                           confd_tag_value_t *params, int nparams);
int tarn_clear_data_policy(confd_user_info *uinfo, xml_tag *name, confd_hkeypath_t *kp,
                           confd_tag_value_t *params, int nparams);
int tarn_clear_zonepair_policy(confd_user_info *uinfo, xml_tag *name, confd_hkeypath_t *kp,
                               confd_tag_value_t *params, int nparams);
int tarn_clear_app_route_policy(confd_user_info *uinfo, xml_tag *name, confd_hkeypath_t *kp,
                                confd_tag_value_t *params, int nparams);
