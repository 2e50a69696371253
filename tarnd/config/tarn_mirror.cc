#include "tarnd/config/tarn_mirror.h"

#include "common/strlcpy.h"
#include "tarnd/acl/tarn_access_list_lists.h"
#include "tarnd/core/tarn.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <initializer_list>

int tarn_mirror_key_cmp(const void *p_key, const void *p_object)
{
    return tarn_name_cmp(static_cast<const t_tarn_mirror_config *>(p_key)->key.name,
                         static_cast<const t_tarn_mirror_config *>(p_object)->key.name);
}

int tarn_mirror_ref_key_cmp(const void *p_key, const void *p_object)
{
    const auto &key = *static_cast<const t_tarn_mirror_ref *>(p_key);
    const auto &other = *static_cast<const t_tarn_mirror_ref *>(p_object);
    if (key.ref_type != other.ref_type)
        return key.ref_type < other.ref_type ? -1 : 1;
    int order = strncmp(key.name, other.name, sizeof(key.name));
    return order != 0 ? order : strncmp(key.name2, other.name2, sizeof(key.name2));
}

t_tarn_mirror_config *tarn_mirror_find(const t_tarn *p_tarn, const char *name)
{
    t_tarn_mirror_config wanted = {};
    lum_strlcpy(wanted.key.name, name, sizeof(wanted.key.name));
    return static_cast<t_tarn_mirror_config *>(avl_find(&p_tarn->mirror_db, &wanted));
}

// ---- Users ----

static t_tarn_mirror_ref ref_key(int ref_type, const char *name, const char *name2)
{
    t_tarn_mirror_ref key = {};
    key.ref_type = ref_type;
    lum_strlcpy(key.name, name, sizeof(key.name));
    lum_strlcpy(key.name2, name2, sizeof(key.name2));
    return key;
}

int tarn_mirror_ref_take(t_tarn_mirror_config *p_mirror, int ref_type, const char *name, const char *name2)
{
    t_tarn_mirror_ref key = ref_key(ref_type, name, name2);
    auto *p_ref = static_cast<t_tarn_mirror_ref *>(avl_find(&p_mirror->ref_db, &key));
    if (p_ref != nullptr) {
        p_ref->ref_count++;
        return 0;
    }
    p_ref = static_cast<t_tarn_mirror_ref *>(calloc(1, sizeof(t_tarn_mirror_ref)));
    if (p_ref == nullptr)
        return ENOMEM;
    *p_ref = key;
    p_ref->ref_count = 1;
    return avl_insert(&p_mirror->ref_db, p_ref);
}

void tarn_mirror_ref_give(t_tarn_mirror_config *p_mirror, int ref_type, const char *name, const char *name2)
{
    t_tarn_mirror_ref key = ref_key(ref_type, name, name2);
    auto *p_ref = static_cast<t_tarn_mirror_ref *>(avl_find(&p_mirror->ref_db, &key));
    if (p_ref == nullptr || --p_ref->ref_count > 0)
        return;
    avl_remove(&p_mirror->ref_db, p_ref);
    free(p_ref);
}

// Contexts are looked for in data policies only, whatever kind of policy took the reference.
static void mark_context(t_tarn *p_tarn, const t_tarn_mirror_ref &ref)
{
    t_tarn_policy *p_policy = nullptr;
    t_tarn_policy_vpn_list *p_context = nullptr;
    if (tarn_policy_lookup(p_tarn, TARN_POLICY_TYPE_DATA, ref.name2, &p_policy) != 0)
        return;
    p_policy->changed = 1;
    if (tarn_vpn_list_lookup_in_policy(p_tarn, TARN_POLICY_TYPE_DATA, ref.name2, ref.name, &p_context) == 0)
        p_context->changed = 1;
}

static void mark_access_lists(t_tarn *p_tarn, const t_tarn_mirror_ref &ref)
{
    for (e_tarn_af_type af_type : {TARN_AF_TYPE_IPV4, TARN_AF_TYPE_IPV6}) {
        t_tarn_access_list *p_access_list = tarn_access_list_find(p_tarn, ref.name, af_type);
        if (p_access_list != nullptr)
            p_access_list->changed = 1;
    }
}

int tarn_mirror_ref_change(void *p_node, void *arg1, void *)
{
    if (p_node == nullptr || arg1 == nullptr)
        return EBADMSG;
    const auto &ref = *static_cast<const t_tarn_mirror_ref *>(p_node);
    auto *p_tarn = static_cast<t_tarn *>(arg1);
    if (ref.ref_type == TARN_BIND_TYPE_VPN)
        mark_context(p_tarn, ref);
    else if (ref.ref_type == TARN_BIND_TYPE_INTF)
        mark_access_lists(p_tarn, ref);
    return 0;
}

static void mark_users(t_tarn *p_tarn, t_tarn_mirror_config *p_mirror)
{
    avl_foreach(&p_mirror->ref_db, tarn_mirror_ref_change, p_tarn, nullptr);
}

// ---- Mirrors and their elements ----

static t_tarn_mirror_config *make_mirror(t_tarn *p_tarn, const char *name)
{
    auto *p_mirror = static_cast<t_tarn_mirror_config *>(calloc(1, sizeof(t_tarn_mirror_config)));
    if (p_mirror == nullptr)
        return nullptr;
    lum_strlcpy(p_mirror->key.name, name, sizeof(p_mirror->key.name));
    avl_create(&p_mirror->ref_db, tarn_mirror_ref_key_cmp, sizeof(t_tarn_mirror_ref),
               offsetof(t_tarn_mirror_ref, avl_node));
    if (avl_insert(&p_tarn->mirror_db, p_mirror) == 0)
        return p_mirror;
    free(p_mirror);
    return nullptr;
}

static int add_intf(t_tarn_mirror_config *p_mirror, const char *intf_name)
{
    auto *p_intf = static_cast<t_tarn_mirror_intf_config *>(calloc(1, sizeof(t_tarn_mirror_intf_config)));
    if (p_intf == nullptr)
        return ENOMEM;
    memcpy(p_intf->name, intf_name, sizeof(p_intf->name));
    DLL_ADD(&p_mirror->intf_list, &p_intf->dlnode);
    return 0;
}

static int add_tunnel(t_tarn_mirror_config *p_mirror, const t_tarn_mirror_tunnel &ends)
{
    auto *p_tunnel =
        static_cast<t_tarn_mirror_tunnel_config *>(calloc(1, sizeof(t_tarn_mirror_tunnel_config)));
    if (p_tunnel == nullptr)
        return ENOMEM;
    p_tunnel->src_ip = ends.src_ip;
    p_tunnel->dst_ip = ends.dst_ip;
    DLL_ADD(&p_mirror->tunnel_list, &p_tunnel->dlnode);
    return 0;
}

// Without elements the type stays as it was.
static void set_type(t_tarn_mirror_config *p_mirror)
{
    bool intfs = p_mirror->intf_list.count > 0;
    bool tunnels = p_mirror->tunnel_list.count > 0;
    if (intfs && tunnels)
        p_mirror->mirror_type = TARN_MIRROR_BOTH;
    else if (intfs)
        p_mirror->mirror_type = TARN_MIRROR_INTF;
    else if (tunnels)
        p_mirror->mirror_type = TARN_MIRROR_TUNNEL;
}

int tarn_config_mirror_add(t_tarn *p_tarn, const char *name, const char *intf_name,
                           const t_tarn_mirror_tunnel *p_tunnel)
{
    if (p_tarn == nullptr || name == nullptr)
        return EBADMSG;
    t_tarn_mirror_config *p_mirror = tarn_mirror_find(p_tarn, name);
    if (p_mirror == nullptr)
        p_mirror = make_mirror(p_tarn, name);
    if (p_mirror == nullptr)
        return ENOMEM;
    if (intf_name != nullptr && add_intf(p_mirror, intf_name) != 0)
        return ENOMEM;
    if (p_tunnel != nullptr && add_tunnel(p_mirror, *p_tunnel) != 0)
        return ENOMEM;
    set_type(p_mirror);
    if (intf_name != nullptr || p_tunnel != nullptr)
        mark_users(p_tarn, p_mirror);
    return 0;
}

static t_tarn_mirror_intf_config *intf_of(t_dlnode *p_node)
{
    return DLL_RECORD(p_node, t_tarn_mirror_intf_config, dlnode);
}

static t_tarn_mirror_tunnel_config *tunnel_of(t_dlnode *p_node)
{
    return DLL_RECORD(p_node, t_tarn_mirror_tunnel_config, dlnode);
}

// 0, EBADMSG without a daemon or a name, or ENOENT.
static int find_named(t_tarn *p_tarn, const char *name, t_tarn_mirror_config **pp_mirror)
{
    if (p_tarn == nullptr || name == nullptr)
        return EBADMSG;
    *pp_mirror = tarn_mirror_find(p_tarn, name);
    return *pp_mirror != nullptr ? 0 : ENOENT;
}

int tarn_config_mirror_change(t_tarn *p_tarn, const char *name, const char *intf_name,
                              const t_tarn_mirror_tunnel *p_tunnel)
{
    t_tarn_mirror_config *p_mirror;
    if (int status = find_named(p_tarn, name, &p_mirror); status != 0)
        return status;
    if (intf_name != nullptr) {
        if (p_mirror->intf_list.p_head == nullptr)
            return ENOENT;
        memcpy(intf_of(p_mirror->intf_list.p_head)->name, intf_name, TARN_NAME_SIZE);
    }
    if (p_tunnel != nullptr) {
        if (p_mirror->tunnel_list.p_head == nullptr)
            return ENOENT;
        t_tarn_mirror_tunnel_config *p_first = tunnel_of(p_mirror->tunnel_list.p_head);
        p_first->src_ip = p_tunnel->src_ip;
        p_first->dst_ip = p_tunnel->dst_ip;
    }
    if (intf_name != nullptr || p_tunnel != nullptr)
        mark_users(p_tarn, p_mirror);
    return 0;
}

static void delete_intf(t_tarn_mirror_config *p_mirror, const char *intf_name)
{
    for (t_dlnode *p_node = p_mirror->intf_list.p_head; p_node != nullptr; p_node = p_node->p_next) {
        if (memcmp(intf_of(p_node)->name, intf_name, TARN_NAME_SIZE) != 0)
            continue;
        DLL_REMOVE(&p_mirror->intf_list, p_node);
        free(intf_of(p_node));
        return;
    }
}

// The first 32 bits of an IPv6 destination decide, too.
static bool same_destination(const t_fp_ipaddr &a, const t_fp_ipaddr &b)
{
    return a.addr_type == b.addr_type && memcmp(a.addr, b.addr, sizeof(uint32_t)) == 0;
}

static void delete_tunnel(t_tarn_mirror_config *p_mirror, const t_fp_ipaddr &dst_ip)
{
    for (t_dlnode *p_node = p_mirror->tunnel_list.p_head; p_node != nullptr; p_node = p_node->p_next) {
        if (!same_destination(tunnel_of(p_node)->dst_ip, dst_ip))
            continue;
        DLL_REMOVE(&p_mirror->tunnel_list, p_node);
        free(tunnel_of(p_node));
        return;
    }
}

static void free_mirror(void *p_object)
{
    auto *p_mirror = static_cast<t_tarn_mirror_config *>(p_object);
    while (t_dlnode *p_node = p_mirror->intf_list.p_head) {
        DLL_REMOVE(&p_mirror->intf_list, p_node);
        free(intf_of(p_node));
    }
    while (t_dlnode *p_node = p_mirror->tunnel_list.p_head) {
        DLL_REMOVE(&p_mirror->tunnel_list, p_node);
        free(tunnel_of(p_node));
    }
    avl_destroy_nodes(&p_mirror->ref_db, free);
    avl_destroy(&p_mirror->ref_db);
    free(p_mirror);
}

int tarn_config_mirror_delete(t_tarn *p_tarn, const char *name, const char *intf_name,
                              const t_tarn_mirror_tunnel *p_tunnel)
{
    t_tarn_mirror_config *p_mirror;
    if (int status = find_named(p_tarn, name, &p_mirror); status != 0)
        return status;
    if (intf_name != nullptr)
        delete_intf(p_mirror, intf_name);
    if (p_tunnel != nullptr) {
        delete_tunnel(p_mirror, p_tunnel->dst_ip);
        mark_users(p_tarn, p_mirror);
    }
    if (intf_name == nullptr && p_tunnel == nullptr) {
        avl_remove(&p_tarn->mirror_db, p_mirror);
        free_mirror(p_mirror);
    }
    return 0;
}

void tarn_config_mirror_destroy(t_tarn *p_tarn)
{
    avl_destroy_nodes(&p_tarn->mirror_db, free_mirror);
    avl_destroy(&p_tarn->mirror_db);
}
