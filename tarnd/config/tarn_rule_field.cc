// Match fields: what the configuration names, one field for each value or list member.
#include "common/lum_log.h"
#include "common/priority_timers.h"
#include "common/strlcpy.h"
#include "fp_api/fp_tables.h"
#include "platform/confd/confd_lib.h"
#include "tarnd/acl/tarn_access_list_lists.h"
#include "tarnd/config/tarn_app_list.h"
#include "tarnd/config/tarn_pfx_list.h"
#include "tarnd/config/tarn_rule.h"
#include "tarnd/core/tarn.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>

static t_tarn_config_field *field_of(t_dlnode *p_node)
{
    return DLL_RECORD(p_node, t_tarn_config_field, dlnode);
}

static void free_field(t_tarn_config_rule *p_rule, t_tarn_config_field *p_field)
{
    DLL_REMOVE(&p_rule->field_list, &p_field->dlnode);
    free(p_field);
}

// ---- Making fields ----

// A new field at the tail of the rule's, or null without memory.
static t_tarn_config_field *append_field(t_tarn_config_rule *p_rule, e_tarn_field_type field_type,
                                         e_tarn_field_type f_config_type)
{
    auto *p_field = static_cast<t_tarn_config_field *>(calloc(1, sizeof(t_tarn_config_field)));
    if (p_field == nullptr)
        return nullptr;
    p_field->field_type = field_type;
    p_field->f_config_type = f_config_type;
    DLL_ADD(&p_rule->field_list, &p_field->dlnode);
    return p_field;
}

static int add_range(t_tarn_config_rule *p_rule, e_tarn_field_type f_type, const t_tarn_range &range)
{
    t_tarn_config_field *p_field = append_field(p_rule, f_type, f_type);
    if (p_field == nullptr)
        return ENOMEM;
    p_field->range = range;
    return 0;
}

static int add_value(t_tarn_config_rule *p_rule, e_tarn_field_type f_type, const void *f_data)
{
    uint32_t value = *static_cast<const uint32_t *>(f_data);
    return add_range(p_rule, f_type, {static_cast<int>(value), static_cast<int>(value)});
}

// A prefix of length 0 is no condition.
static int add_prefix(t_tarn_config_rule *p_rule, e_tarn_field_type f_type, const confd_ipv4_prefix &prefix)
{
    if (prefix.len == 0)
        return 0;
    t_tarn_config_field *p_field = append_field(p_rule, f_type, f_type);
    if (p_field == nullptr)
        return ENOMEM;
    memcpy(p_field->pfx.prefix_str, &prefix.ip.s_addr, sizeof(p_field->pfx.prefix_str));
    p_field->pfx.prefix_len = prefix.len;
    return 0;
}

static int add_class(t_tarn *p_tarn, t_tarn_config_rule *p_rule, const char *class_name)
{
    const t_tarn_class *p_class = tarn_class_lookup(p_tarn, class_name);
    if (p_class == nullptr)
        return EINVAL;
    return add_range(p_rule, TARN_FIELD_TYPE_FC, {p_class->_class, p_class->_class});
}

static int add_pfx_list(t_tarn *p_tarn, t_tarn_config_rule *p_rule, e_tarn_field_type f_type,
                        const t_tarn_pfx_list_key &key)
{
    t_tarn_pfx_list *p_list = tarn_pfx_list_find(p_tarn, key.name, key.pfx_list_type);
    return p_list != nullptr ? tarn_config_pfx_list_fields(p_tarn, f_type, p_list, p_rule) : ENOENT;
}

static int add_app_list(t_tarn *p_tarn, t_tarn_config_rule *p_rule, e_tarn_field_type f_type,
                        const t_tarn_dpi_app_list_key &key)
{
    t_tarn_dpi_app_list *p_list = tarn_app_list_find(p_tarn, key.name, key.location);
    if (p_list == nullptr)
        return ENOENT;
    return tarn_config_app_list_fields(f_type, p_list, p_rule, f_type == TARN_FIELD_TYPE_DPI_DNS_APP_LIST);
}

int tarn_config_field_add(t_tarn *p_tarn, e_tarn_field_type f_type, const void *f_data,
                          t_tarn_config_rule *p_rule)
{
    if (p_rule == nullptr || f_data == nullptr || f_type == TARN_FIELD_TYPE_MIN ||
        f_type >= TARN_FIELD_TYPE_MAX)
        return EBADMSG;
    switch (f_type) {
    case TARN_FIELD_TYPE_PROTOCOL:
    case TARN_FIELD_TYPE_DSCP:
    case TARN_FIELD_TYPE_TCP:
    case TARN_FIELD_TYPE_TRAFFIC_CLASS:
    case TARN_FIELD_TYPE_NEXT_HEADER:
    case TARN_FIELD_TYPE_PLP:
    case TARN_FIELD_TYPE_DNS:
        return add_value(p_rule, f_type, f_data);
    case TARN_FIELD_TYPE_SRC_PORT:
    case TARN_FIELD_TYPE_DST_PORT:
    case TARN_FIELD_TYPE_PKT_LEN:
        return add_range(p_rule, f_type, *static_cast<const t_tarn_range *>(f_data));
    case TARN_FIELD_TYPE_SRC_ADDR:
    case TARN_FIELD_TYPE_DST_ADDR:
        return add_prefix(p_rule, f_type, *static_cast<const confd_ipv4_prefix *>(f_data));
    case TARN_FIELD_TYPE_FC:
        return add_class(p_tarn, p_rule, static_cast<const char *>(f_data));
    case TARN_FIELD_TYPE_MATCH_ANY:
        return add_range(p_rule, f_type, {1, 1});
    case TARN_FIELD_TYPE_SRC_PFX_LIST:
    case TARN_FIELD_TYPE_DST_PFX_LIST:
        return add_pfx_list(p_tarn, p_rule, f_type, *static_cast<const t_tarn_pfx_list_key *>(f_data));
    case TARN_FIELD_TYPE_DPI_APP_LIST:
    case TARN_FIELD_TYPE_DPI_DNS_APP_LIST:
        return add_app_list(p_tarn, p_rule, f_type, *static_cast<const t_tarn_dpi_app_list_key *>(f_data));
    default:
        return EINVAL;
    }
}

// ---- Expansion ----

// Counts one use of the list by the rule's owner.
static int take_pfx_list(t_tarn *p_tarn, t_tarn_config_rule *p_rule, const char *name)
{
    if (p_rule->access_list != nullptr)
        return tarn_intf_config_add_pfx_list_to_acl(p_tarn, name, p_rule->access_list);
    return tarn_config_add_pfx_list_to_policy(p_tarn, name, p_rule->policy, p_rule->vpn_list);
}

static int tarn_config_field_ip_pfx(t_tarn *p_tarn, e_tarn_field_type f_type, const char *list_name,
                                    const t_tarn_ip_pfx &member, t_tarn_config_rule *p_rule)
{
    bool source = f_type == TARN_FIELD_TYPE_SRC_PFX_LIST;
    t_tarn_config_field *p_field =
        append_field(p_rule, source ? TARN_FIELD_TYPE_SRC_ADDR : TARN_FIELD_TYPE_DST_ADDR, f_type);
    if (p_field == nullptr)
        return ENOMEM;
    memcpy(p_field->pfx.prefix_str, member.key.prefix_str, sizeof(p_field->pfx.prefix_str));
    p_field->pfx.prefix_len = member.key.prefix_len;
    lum_strlcpy(p_field->name, list_name, sizeof(p_field->name));
    int status = take_pfx_list(p_tarn, p_rule, list_name);
    if (status != 0)
        free_field(p_rule, p_field);
    return status;
}

int tarn_config_pfx_list_fields(t_tarn *p_tarn, e_tarn_field_type f_type, t_tarn_pfx_list *p_pfx_list,
                                t_tarn_config_rule *p_rule)
{
    static constexpr int fields_between_timers = 1024;
    const avl_tree_t &members = p_pfx_list->ip_pfx_db;
    int count = 0;
    for (void *p = avl_first(&members); p != nullptr; p = avl_walk(&members, p)) {
        int status = tarn_config_field_ip_pfx(p_tarn, f_type, p_pfx_list->key.name,
                                              *static_cast<t_tarn_ip_pfx *>(p), p_rule);
        if (status != 0)
            return status;
        if (++count % fields_between_timers == 0)
            tarn_exec_priority_timers();
    }
    return 0;
}

static e_tarn_field_type app_field_type(e_tarn_dpi_app_list_type list_type, int dns)
{
    if (list_type == TARN_DPI_TYPE_APP)
        return dns ? TARN_FIELD_TYPE_DPI_DNS_APP : TARN_FIELD_TYPE_DPI_APP;
    return dns ? TARN_FIELD_TYPE_DPI_DNS_APP_FAMILY : TARN_FIELD_TYPE_DPI_APP_FAMILY;
}

static int tarn_config_field_app(e_tarn_field_type f_type, const t_tarn_dpi_app_list &list,
                                 const t_tarn_dpi_app &app, t_tarn_config_rule *p_rule, int dns)
{
    t_tarn_config_field *p_field = append_field(p_rule, app_field_type(list.type, dns), f_type);
    if (p_field == nullptr)
        return ENOMEM;
    p_field->range = {static_cast<int>(app.id), static_cast<int>(app.id)};
    lum_strlcpy(p_field->name, list.key.name, sizeof(p_field->name));
    return 0;
}

// The reference to the list is the caller's.
int tarn_config_app_list_fields(e_tarn_field_type f_type, t_tarn_dpi_app_list *p_app_list,
                                t_tarn_config_rule *p_rule, int dns)
{
    const avl_tree_t &apps = p_app_list->app_db;
    for (void *p = avl_first(&apps); p != nullptr; p = avl_walk(&apps, p)) {
        int status =
            tarn_config_field_app(f_type, *p_app_list, *static_cast<t_tarn_dpi_app *>(p), p_rule, dns);
        if (status != 0) {
            TARN_LOG("Error in populating app list fields, dns: %d", dns);
            return status;
        }
    }
    return 0;
}

// ---- Deletion ----

static bool is_pfx_list(e_tarn_field_type f_type)
{
    return f_type == TARN_FIELD_TYPE_SRC_PFX_LIST || f_type == TARN_FIELD_TYPE_DST_PFX_LIST;
}

static bool is_app_list(e_tarn_field_type f_type)
{
    return f_type == TARN_FIELD_TYPE_DPI_APP_LIST || f_type == TARN_FIELD_TYPE_DPI_DNS_APP_LIST;
}

static bool has_context(const t_tarn_config_rule *p_rule)
{
    return p_rule->policy != nullptr && p_rule->vpn_list != nullptr;
}

static void give_context_pfx_list(t_tarn *p_tarn, t_tarn_config_rule *p_rule,
                                  const t_tarn_config_field &field)
{
    if (is_pfx_list(field.f_config_type) && has_context(p_rule))
        tarn_config_remove_pfx_list_from_policy(p_tarn, field.name, p_rule->policy, p_rule->vpn_list);
}

static void give_access_list_pfx_list(t_tarn *p_tarn, t_tarn_config_rule *p_rule,
                                      const t_tarn_config_field &field)
{
    if (is_pfx_list(field.f_config_type) && p_rule->access_list != nullptr)
        tarn_intf_config_remove_pfx_list_from_acl(p_tarn, field.name, p_rule->access_list);
}

// One reference for all fields of the list. Those of an access list's rules are given back by its parser.
static void give_app_list(t_tarn *p_tarn, t_tarn_config_rule *p_rule, const char *name)
{
    if (name[0] == '\0' || !has_context(p_rule))
        return;
    tarn_config_remove_app_list_from_policy(p_tarn, name, TARN_DPI_KEY_LOC_KEELSON, p_rule->policy->key.type,
                                            p_rule->policy->key.name, p_rule->vpn_list->key.name);
}

// The forwarding plane caches no verdicts while rules look at these fields. The first count stops at 0 by
// jumping to 9998; the second wraps.
static void uncount_uncacheable(e_tarn_field_type field_type)
{
    if (field_type == TARN_FIELD_TYPE_PKT_LEN) {
        if (g_fp_global_ctrl->cft_policy_cache_disable == 0)
            g_fp_global_ctrl->cft_policy_cache_disable = 9999;
        g_fp_global_ctrl->cft_policy_cache_disable--;
    } else if (field_type == TARN_FIELD_TYPE_DSCP) {
        g_fp_global_ctrl->cft_policy_dscp_disable--;
    }
}

int tarn_config_field_delete(t_tarn *p_tarn, e_tarn_field_type f_type, t_tarn_config_rule *p_rule,
                             int *present, char *ptr)
{
    char name[TARN_NAME_SIZE] = {};
    bool found = false;
    for (t_dlnode *p_node = p_rule->field_list.p_head; p_node != nullptr;) {
        t_tarn_config_field *p_field = field_of(p_node);
        p_node = p_node->p_next;
        if (p_field->f_config_type != f_type)
            continue;
        found = true;
        memcpy(name, p_field->name, sizeof(name));
        give_context_pfx_list(p_tarn, p_rule, *p_field);
        give_access_list_pfx_list(p_tarn, p_rule, *p_field);
        uncount_uncacheable(p_field->field_type);
        free_field(p_rule, p_field);
    }
    if (is_app_list(f_type))
        give_app_list(p_tarn, p_rule, name);
    if (found && present != nullptr)
        *present = 1;
    if (found && present != nullptr && ptr != nullptr)
        memcpy(ptr, name, sizeof(name));
    return 0;
}

void tarn_config_field_delete_all(t_tarn *p_tarn, t_tarn_config_rule *p_rule)
{
    char app_list[TARN_NAME_SIZE] = {};
    char dns_app_list[TARN_NAME_SIZE] = {};
    while (t_dlnode *p_node = p_rule->field_list.p_head) {
        t_tarn_config_field *p_field = field_of(p_node);
        if (is_app_list(p_field->f_config_type))
            memcpy(p_field->f_config_type == TARN_FIELD_TYPE_DPI_APP_LIST ? app_list : dns_app_list,
                   p_field->name, TARN_NAME_SIZE);
        give_context_pfx_list(p_tarn, p_rule, *p_field);
        free_field(p_rule, p_field);
    }
    give_app_list(p_tarn, p_rule, app_list);
    give_app_list(p_tarn, p_rule, dns_app_list);
}
