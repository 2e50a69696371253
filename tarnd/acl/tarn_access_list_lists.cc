#include "tarnd/acl/tarn_access_list_lists.h"

#include "common/strlcpy.h"
#include "tarnd/acl/tarn_access_list_private.h"
#include "tarnd/config/tarn_pfx_list.h"
#include "tarnd/core/tarn.h"

#include <cerrno>

t_tarn_access_list *tarn_access_list_find(const t_tarn *p_tarn, const char *name, e_tarn_af_type af_type)
{
    t_tarn_access_list wanted = {};
    lum_strlcpy(wanted.key.name, name, sizeof(wanted.key.name));
    wanted.key.af_type = af_type;
    const avl_tree_t *p_tree =
        af_type != TARN_AF_TYPE_IPV4 ? &p_tarn->access_list6_db : &p_tarn->access_list_db;
    return static_cast<t_tarn_access_list *>(avl_find(p_tree, &wanted));
}

int tarn_intf_config_add_pfx_list_to_acl(t_tarn *p_tarn, const char *pfx_list_name,
                                         t_tarn_access_list *p_access_list)
{
    if (p_tarn == nullptr || pfx_list_name == nullptr || p_access_list == nullptr)
        return EBADMSG;
    t_tarn_pfx_list *p_list = tarn_pfx_list_find(p_tarn, pfx_list_name, TARN_POLICY_PFX_LIST_TYPE_LOCAL);
    if (p_list == nullptr)
        return ENOENT;
    tarn_access_list_count_up<t_tarn_pfx_access_ctx>(&p_list->access_list_db, {{}, p_access_list, 0});
    tarn_access_list_count_up<t_tarn_access_pfx_ctx>(&p_access_list->pfx_list_db, {{}, p_list, 0});
    return 0;
}

int tarn_intf_config_remove_pfx_list_from_acl(t_tarn *p_tarn, const char *pfx_list_name,
                                              t_tarn_access_list *p_access_list)
{
    if (p_tarn == nullptr || pfx_list_name == nullptr || p_access_list == nullptr)
        return EBADMSG;
    t_tarn_pfx_list *p_list = tarn_pfx_list_find(p_tarn, pfx_list_name, TARN_POLICY_PFX_LIST_TYPE_LOCAL);
    if (p_list == nullptr)
        return 0;
    tarn_access_list_count_down<t_tarn_pfx_access_ctx>(&p_list->access_list_db, {{}, p_access_list, 0});
    tarn_access_list_count_down<t_tarn_access_pfx_ctx>(&p_access_list->pfx_list_db, {{}, p_list, 0});
    return 0;
}
