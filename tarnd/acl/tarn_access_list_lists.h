// Which lists an access list uses.
//
// The link is two-way and counted: the prefix list knows the access list, and the access list the prefix
// list. Each field that a list was expanded into counts one on both sides. Access lists use local lists only.
#pragma once

#include "tarnd/acl/tarn_access_list.h"

// The access list of that name, or null. Any family but 0 means the IPv6 tree.
t_tarn_access_list *tarn_access_list_find(const t_tarn *p_tarn, const char *name, e_tarn_af_type af_type);

// Count a use of the local prefix list by the access list, and give one back. 74 for null; the first gives 2
// when there is no such list, and counts what it can when memory is short; the second gives 0 also when the
// list has gone.
int tarn_intf_config_add_pfx_list_to_acl(t_tarn *p_tarn, const char *pfx_list_name,
                                         t_tarn_access_list *p_access_list);
int tarn_intf_config_remove_pfx_list_from_acl(t_tarn *p_tarn, const char *pfx_list_name,
                                              t_tarn_access_list *p_access_list);
