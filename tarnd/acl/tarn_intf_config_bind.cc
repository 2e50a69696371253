// Bindings of access lists to interfaces. FTM is told before the store changes; what it could not be told
// comes with its next replay.
#include "tarnd/acl/tarn_access_list_lists.h"
#include "tarnd/acl/tarn_intf_config.h"
#include "tarnd/core/tarn.h"
#include "tarnd/peers/tarn_ftm.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <initializer_list>

// A name of more than 32 characters fills the field and leaves it without a terminator, by which the builder
// of messages knows it.
static t_tarn_intf make_intf(const char *name, uint8_t direction, uint64_t vpn_id)
{
    t_tarn_intf intf = {};
    memcpy(intf.key.name, name, strnlen(name, sizeof(intf.key.name)));
    intf.key.direction = direction;
    intf.vpn_id = vpn_id;
    return intf;
}

int tarn_access_list_bind(t_tarn *p_tarn, e_tarn_af_type af_type, const char *name,
                          const t_tarn_acl_bind_param *p_param)
{
    if (p_tarn == nullptr || name == nullptr || p_param == nullptr || p_param->intf_name == nullptr)
        return EBADMSG;
    t_tarn_access_list *p_access_list = tarn_access_list_find(p_tarn, name, af_type);
    if (p_access_list == nullptr)
        return ENOENT;
    t_tarn_intf wanted = make_intf(p_param->intf_name, p_param->direction, p_param->vpn_id);
    if (avl_find(&p_access_list->intf_db, &wanted) != nullptr)
        return EEXIST;
    auto *p_intf = static_cast<t_tarn_intf *>(malloc(sizeof(t_tarn_intf)));
    if (p_intf == nullptr)
        return ENOMEM;
    *p_intf = wanted;
    tarn_bind_acl_to_intf(p_tarn, p_access_list, p_intf);
    return avl_insert(&p_access_list->intf_db, p_intf);
}

static void unbind(t_tarn *p_tarn, t_tarn_access_list *p_access_list, t_tarn_intf *p_intf)
{
    tarn_unbind_acl_from_intf(p_tarn, p_access_list, p_intf);
    avl_remove(&p_access_list->intf_db, p_intf);
    free(p_intf);
}

static int unbind_name(t_tarn *p_tarn, t_tarn_access_list *p_access_list, const char *intf_name,
                       uint8_t direction)
{
    t_tarn_intf wanted = make_intf(intf_name, direction, 0);
    auto *p_intf = static_cast<t_tarn_intf *>(avl_find(&p_access_list->intf_db, &wanted));
    if (p_intf == nullptr)
        return ENOENT;
    unbind(p_tarn, p_access_list, p_intf);
    return 0;
}

int tarn_access_list_unbind(t_tarn *p_tarn, e_tarn_af_type af_type, const char *name,
                            const t_tarn_acl_bind_param *p_param)
{
    if (p_tarn == nullptr || name == nullptr || p_param == nullptr || p_param->intf_name == nullptr)
        return EBADMSG;
    t_tarn_access_list *p_access_list = tarn_access_list_find(p_tarn, name, af_type);
    if (p_access_list == nullptr)
        return 0;
    return unbind_name(p_tarn, p_access_list, p_param->intf_name, p_param->direction);
}

static int tarn_access_list_unbind_from_intf_cb(void *p_node, void *arg1, void *arg2)
{
    for (uint8_t direction : {uint8_t{1}, uint8_t{2}})
        unbind_name(static_cast<t_tarn *>(arg1), static_cast<t_tarn_access_list *>(p_node),
                    static_cast<const char *>(arg2), direction);
    return 0;
}

int tarn_access_list_unbind_from_intf(t_tarn *p_tarn, const char *intf_name)
{
    void *p_name = const_cast<char *>(intf_name);
    avl_foreach(&p_tarn->access_list_db, tarn_access_list_unbind_from_intf_cb, p_tarn, p_name);
    avl_foreach(&p_tarn->access_list6_db, tarn_access_list_unbind_from_intf_cb, p_tarn, p_name);
    return 0;
}

static t_tarn_intf *first_in_vpn(const avl_tree_t *p_intfs, uint64_t vpn_id)
{
    auto *p_intf = static_cast<t_tarn_intf *>(avl_first(p_intfs));
    while (p_intf != nullptr && p_intf->vpn_id != vpn_id)
        p_intf = static_cast<t_tarn_intf *>(avl_walk(p_intfs, p_intf));
    return p_intf;
}

// The search begins anew after each removal.
static int tarn_access_list_unbind_from_vpn_cb(void *p_node, void *arg1, void *arg2)
{
    auto *p_access_list = static_cast<t_tarn_access_list *>(p_node);
    uint64_t vpn_id = *static_cast<const uint64_t *>(arg2);
    while (t_tarn_intf *p_intf = first_in_vpn(&p_access_list->intf_db, vpn_id))
        unbind(static_cast<t_tarn *>(arg1), p_access_list, p_intf);
    return 0;
}

int tarn_access_list_unbind_from_vpn(t_tarn *p_tarn, uint64_t vpn_id)
{
    avl_foreach(&p_tarn->access_list_db, tarn_access_list_unbind_from_vpn_cb, p_tarn, &vpn_id);
    avl_foreach(&p_tarn->access_list6_db, tarn_access_list_unbind_from_vpn_cb, p_tarn, &vpn_id);
    return 0;
}
