// Operations on application lists; their records are tarn_dpi_app_list.h's.
//
// A list holds applications or application families, never both. Unlike a prefix list it counts one use for
// each rule that names it, whatever its size: the parser takes the reference, the expansion does not.
#pragma once

#include "tarnd/dpi/tarn_dpi_app_list.h"

#include <cstdint>

// 17, 12, 2.
int tarn_config_app_list_add(t_tarn *p_tarn, const char *name, e_tarn_dpi_app_list_loc_type loc);
int tarn_config_app_list_change(t_tarn *p_tarn, const char *name, e_tarn_dpi_app_list_loc_type loc);
int tarn_config_app_list_delete(t_tarn *p_tarn, const char *name, e_tarn_dpi_app_list_loc_type loc);
t_tarn_dpi_app_list *tarn_app_list_find(const t_tarn *p_tarn, const char *name,
                                        e_tarn_dpi_app_list_loc_type loc);

// A name that the catalogue doesn't know is skipped with a message and 0. 2, 17, 12.
int tarn_config_app_list_add_app(t_tarn *p_tarn, const char *p_list_name, e_tarn_dpi_app_list_loc_type loc,
                                 e_tarn_dpi_app_list_type type, const char *p_app_name);
int tarn_config_app_list_delete_app(t_tarn *p_tarn, const char *p_list_name, e_tarn_dpi_app_list_loc_type loc,
                                    e_tarn_dpi_app_list_type type, const char *p_app_name);
int tarn_config_app_list_delete_all_app(t_tarn *p_tarn, const char *name, e_tarn_dpi_app_list_loc_type loc);

// Count a use, and give one back. KEELSON: by a context. LOCAL: by the IPv4 access list policy_name. 2, 12.
int tarn_config_add_app_list_to_policy(t_tarn *p_tarn, const char *app_list_name,
                                       e_tarn_dpi_app_list_loc_type loc_type, uint32_t policy_type,
                                       const char *policy_name, const char *vpn_list_name);
int tarn_config_remove_app_list_from_policy(t_tarn *p_tarn, const char *app_list_name,
                                            e_tarn_dpi_app_list_loc_type loc_type, uint32_t policy_type,
                                            const char *policy_name, const char *vpn_list_name);

// A value of the model's enumeration of applications or of families: its text (128 bytes; empty if the model
// doesn't know the value) and the catalogue's id of the application, 0 if unknown. A family's value is its id
// and comes back as it is.
uint32_t tarn_config_confd_app_to_qosmos_app(uint32_t app_id, char *app_name);
uint32_t tarn_config_confd_app_family_to_qosmos_app_family(uint32_t app_id, char *app_name);

void tarn_config_app_list_destroy(t_tarn *p_tarn);  // frees all, tells nobody; leaves the tree
