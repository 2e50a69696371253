#include "tarnd/acl/tarn_access_list.h"

#include <cstring>

int tarn_access_list_key_cmp(const void *p_key, const void *p_object)
{
    const t_tarn_access_list_key &key = static_cast<const t_tarn_access_list *>(p_key)->key;
    const t_tarn_access_list_key &other = static_cast<const t_tarn_access_list *>(p_object)->key;
    int order = tarn_name_cmp(key.name, other.name);
    if (order != 0)
        return order;
    return (key.af_type > other.af_type) - (key.af_type < other.af_type);
}

// A name of full length has no terminator.
int tarn_intf_key_cmp(const void *p_key, const void *p_object)
{
    const t_tarn_intf_key &key = static_cast<const t_tarn_intf *>(p_key)->key;
    const t_tarn_intf_key &other = static_cast<const t_tarn_intf *>(p_object)->key;
    int order = strncmp(key.name, other.name, sizeof(key.name));
    if (order != 0)
        return order;
    return (key.direction > other.direction) - (key.direction < other.direction);
}
