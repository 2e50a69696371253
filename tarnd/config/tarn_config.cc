#include "fp_api/fp_tables.h"
#include "tarnd/acl/tarn_intf_config.h"
#include "tarnd/config/tarn_app_list.h"
#include "tarnd/config/tarn_mirror.h"
#include "tarnd/config/tarn_pfx_list.h"
#include "tarnd/config/tarn_policer.h"
#include "tarnd/config/tarn_policy_private.h"
#include "tarnd/config/tarn_tloc_list.h"
#include "tarnd/core/tarn.h"
#include "tarnd/zone/tarn_zbf.h"

#include <cerrno>
#include <cstring>

// ---- Orders ----

// Trees of different records share an order where their keys stand at the same place.
static_assert(offsetof(t_tarn_policy_ref, key) == offsetof(t_tarn_policy, key));
static_assert(offsetof(t_tarn_policy_vpn_list, key) == offsetof(t_tarn_vpn_list, key));

template <typename t_number>
static int order_of(t_number a, t_number b)
{
    return (a > b) - (a < b);
}

int tarn_name_cmp(const char *p_name1, const char *p_name2)
{
    int order = order_of(strnlen(p_name1, TARN_NAME_SIZE), strnlen(p_name2, TARN_NAME_SIZE));
    return order != 0 ? order : strncmp(p_name1, p_name2, TARN_NAME_SIZE);
}

int tarn_policy_key_cmp(const void *p_key, const void *p_object)
{
    const t_tarn_policy_key &key = static_cast<const t_tarn_policy *>(p_key)->key;
    const t_tarn_policy_key &other = static_cast<const t_tarn_policy *>(p_object)->key;
    int order = order_of<uint32_t>(key.type, other.type);
    return order != 0 ? order : tarn_name_cmp(key.name, other.name);
}

int tarn_vpn_list_key_cmp(const void *p_key, const void *p_object)
{
    return tarn_name_cmp(static_cast<const t_tarn_vpn_list *>(p_key)->key.name,
                         static_cast<const t_tarn_vpn_list *>(p_object)->key.name);
}

int tarn_vpn_list_ref_key_cmp(const void *p_key, const void *p_object)
{
    const t_tarn_vpn_list_key2 &key = static_cast<const t_tarn_vpn_list_ref *>(p_key)->key;
    const t_tarn_vpn_list_key2 &other = static_cast<const t_tarn_vpn_list_ref *>(p_object)->key;
    int order = order_of<uint32_t>(key.pol_type, other.pol_type);
    if (order == 0)
        order = strncmp(key.pol_name, other.pol_name, sizeof(key.pol_name));
    return order != 0 ? order : strncmp(key.name, other.name, sizeof(key.name));
}

int tarn_vpn_key_cmp(const void *p_key, const void *p_object)
{
    const t_tarn_vpn_key &key = static_cast<const t_tarn_vpn *>(p_key)->key;
    const t_tarn_vpn_key &other = static_cast<const t_tarn_vpn *>(p_object)->key;
    int order = order_of(key.min_vpn_id, other.min_vpn_id);
    return order != 0 ? order : order_of(key.max_vpn_id, other.max_vpn_id);
}

int tarn_get_filter_type(uint32_t policy_type)
{
    switch (policy_type) {
    case TARN_POLICY_TYPE_DATA:
        return TARN_FILTER_INGRESS;
    case TARN_POLICY_TYPE_ZBF:
        return TARN_FILTER_ZBF;
    default:
        return TARN_FILTER_PFR;
    }
}

// ---- The store ----

int tarn_config_init(t_tarn *p_tarn)
{
    if (p_tarn == nullptr)
        return EBADMSG;
    avl_create(&p_tarn->policy_db, tarn_policy_key_cmp, sizeof(t_tarn_policy),
               offsetof(t_tarn_policy, avl_node));
    avl_create(&p_tarn->vpn_list_db, tarn_vpn_list_key_cmp, sizeof(t_tarn_vpn_list),
               offsetof(t_tarn_vpn_list, avl_node));
    avl_create(&p_tarn->pfx_list_db, tarn_pfx_list_key_cmp, sizeof(t_tarn_pfx_list),
               offsetof(t_tarn_pfx_list, avl_node));
    avl_create(&p_tarn->tloc_list_db, tarn_tloc_list_cmp, sizeof(t_tarn_tloc_list),
               offsetof(t_tarn_tloc_list, avl_node));
    avl_create(&p_tarn->dpi_app_list_db, tarn_dpi_app_list_cmp, sizeof(t_tarn_dpi_app_list),
               offsetof(t_tarn_dpi_app_list, avl_node));
    avl_create(&p_tarn->zone_db, tarn_zone_key_cmp, sizeof(t_tarn_zone), offsetof(t_tarn_zone, avl_node));
    avl_create(&p_tarn->zone_pair_db, tarn_zone_pair_key_cmp, sizeof(t_tarn_zone_pair),
               offsetof(t_tarn_zone_pair, avl_node));
    p_tarn->flow_p = g_fp_filter_flow_enable_knob;
    return 0;
}

static void delete_policies(t_tarn *p_tarn)
{
    t_tarn_policy *p_next = nullptr;
    for (t_tarn_policy *p_policy = static_cast<t_tarn_policy *>(avl_first(&p_tarn->policy_db));
         p_policy != nullptr; p_policy = p_next) {
        p_next = static_cast<t_tarn_policy *>(avl_walk(&p_tarn->policy_db, p_policy));
        tarn_policy_delete(p_tarn, p_policy->key.type, p_policy->key.name);
    }
    avl_destroy(&p_tarn->policy_db);
}

static void delete_access_lists(t_tarn *p_tarn, avl_tree_t *p_lists)
{
    void *p_next = nullptr;
    for (void *p = avl_first(p_lists); p != nullptr; p = p_next) {
        p_next = avl_walk(p_lists, p);
        const t_tarn_access_list_key &key = static_cast<t_tarn_access_list *>(p)->key;
        tarn_access_list_delete(p_tarn, key.name, key.af_type);
    }
    avl_destroy(p_lists);
}

void tarn_config_destroy(t_tarn *p_tarn)
{
    delete_access_lists(p_tarn, &p_tarn->access_list_db);
    delete_access_lists(p_tarn, &p_tarn->access_list6_db);
    tarn_config_zbf_destroy(p_tarn);
    delete_policies(p_tarn);
    tarn_vpn_list_destroy(p_tarn);
    tarn_config_app_list_destroy(p_tarn);
    tarn_config_pfx_list_destroy(p_tarn);
    tarn_config_mirror_destroy(p_tarn);
    tarn_config_tloc_list_destroy(p_tarn);
    tarn_config_policer_destroy(p_tarn);
}
