// The orders of the trees of applications and application lists.
#include "tarnd/acl/tarn_access_list.h"
#include "tarnd/dpi/tarn_dpi_app_list.h"

template <typename t_value>
static int compare(t_value key, t_value object)
{
    return (key > object) - (key < object);
}

int tarn_dpi_app_cmp(const void *p_key, const void *p_object)
{
    return compare(static_cast<const t_tarn_dpi_app *>(p_key)->id,
                   static_cast<const t_tarn_dpi_app *>(p_object)->id);
}

int tarn_dpi_app_list_cmp(const void *p_key, const void *p_object)
{
    const t_tarn_dpi_app_list_key &key = static_cast<const t_tarn_dpi_app_list *>(p_key)->key;
    const t_tarn_dpi_app_list_key &object = static_cast<const t_tarn_dpi_app_list *>(p_object)->key;
    int order = tarn_name_cmp(key.name, object.name);
    return order != 0 ? order : compare<uint32_t>(key.location, object.location);
}

int tarn_dpi_app_list_ctx_cmp(const void *p_key, const void *p_object)
{
    return tarn_dpi_app_list_cmp(static_cast<const t_tarn_dpi_app_ctx *>(p_key)->p_app_list,
                                 static_cast<const t_tarn_dpi_app_ctx *>(p_object)->p_app_list);
}

int tarn_dpi_vpn_list_ctx_cmp(const void *p_key, const void *p_object)
{
    const t_tarn_vpn_list_key2 &key = static_cast<const t_tarn_dpi_policy_vpn_list_ctx *>(p_key)->key;
    const t_tarn_vpn_list_key2 &object = static_cast<const t_tarn_dpi_policy_vpn_list_ctx *>(p_object)->key;
    if (key.pol_type != object.pol_type)
        return compare<uint32_t>(key.pol_type, object.pol_type);
    int order = tarn_name_cmp(key.pol_name, object.pol_name);
    return order != 0 ? order : tarn_name_cmp(key.name, object.name);
}

int tarn_dpi_access_list_ctx_cmp(const void *p_key, const void *p_object)
{
    return tarn_access_list_key_cmp(static_cast<const t_tarn_dpi_access_list_ctx *>(p_key)->p_access_list,
                                    static_cast<const t_tarn_dpi_access_list_ctx *>(p_object)->p_access_list);
}
