// Rules of access lists. Their fields are made by the functions that policies' rules use, too.
#include "common/lum_log.h"
#include "tarnd/acl/tarn_access_list_lists.h"
#include "tarnd/acl/tarn_intf_config.h"
#include "tarnd/config/tarn_app_list.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>

static t_tarn_config_rule *find_rule(const t_tarn_access_list *p_access_list, uint32_t sequence)
{
    t_tarn_config_rule wanted = {};
    wanted.key.id = sequence;
    return static_cast<t_tarn_config_rule *>(avl_find(&p_access_list->rule_db, &wanted));
}

int tarn_intf_config_rule_lookup(t_tarn *p_tarn, const char *name, e_tarn_af_type af_type, uint32_t sequence,
                                 t_tarn_config_rule **pp_rule)
{
    t_tarn_access_list *p_access_list = nullptr;
    int status = tarn_access_list_lookup(p_tarn, name, af_type, &p_access_list);
    if (status != 0)
        return status;
    t_tarn_config_rule *p_rule = find_rule(p_access_list, sequence);
    if (p_rule == nullptr)
        return ENOENT;
    if (pp_rule != nullptr)
        *pp_rule = p_rule;
    return 0;
}

// ---- Making ----

// Behind the last rule that is not greater: the list's order is the rules' priority.
static void insert_by_sequence(t_dll *p_rules, t_tarn_config_rule *p_rule)
{
    t_dlnode *p_last = p_rules->p_tail;
    while (p_last != nullptr && DLL_RECORD(p_last, t_tarn_config_rule, dlnode)->key.id > p_rule->key.id)
        p_last = p_last->p_prev;
    DLL_INSERT(p_rules, p_last, &p_rule->dlnode);
}

static t_tarn_config_rule *make_rule(t_tarn_access_list *p_access_list, uint32_t sequence)
{
    auto *p_rule = static_cast<t_tarn_config_rule *>(calloc(1, sizeof(t_tarn_config_rule)));
    if (p_rule == nullptr)
        return nullptr;
    p_rule->key.id = sequence;
    memcpy(p_rule->key.name, p_access_list->key.name, sizeof(p_rule->key.name));
    p_rule->access_list = p_access_list;
    (void)avl_insert(&p_access_list->rule_db, p_rule);  // not there, as looked up
    insert_by_sequence(&p_access_list->rule_list, p_rule);
    return p_rule;
}

int tarn_intf_config_rule_add(t_tarn *p_tarn, const char *name, e_tarn_af_type af_type, uint32_t sequence,
                              t_tarn_config_rule **pp_rule)
{
    t_tarn_access_list *p_access_list = nullptr;
    int status = tarn_access_list_lookup(p_tarn, name, af_type, &p_access_list);
    if (status != 0)
        return status;
    if (find_rule(p_access_list, sequence) != nullptr)
        return EEXIST;
    t_tarn_config_rule *p_rule = make_rule(p_access_list, sequence);
    if (p_rule == nullptr)
        return ENOMEM;
    p_access_list->changed = 1;
    if (pp_rule != nullptr)
        *pp_rule = p_rule;

    status = tarn_config_field_add(p_tarn, TARN_FIELD_TYPE_MATCH_ANY, &sequence, p_rule);
    if (status != 0)
        TARN_LOG("Failed to add match any rule (%s, %d) err(%d)\n", name, static_cast<int>(sequence), status);
    return 0;
}

// ---- Deleting ----

// Application lists are kept by the IPv4 tree alone.
static void give_app_list(t_tarn *p_tarn, const t_tarn_access_list *p_access_list, const char *app_list)
{
    if (app_list[0] != '\0')
        tarn_config_remove_app_list_from_policy(p_tarn, app_list, TARN_DPI_KEY_LOC_LOCAL, TARN_AF_TYPE_IPV4,
                                                p_access_list->key.name, p_access_list->key.name);
}

// A prefix list counts each of its fields, an application list the rule once for either use.
static void give_lists(t_tarn *p_tarn, const t_tarn_config_rule *p_rule)
{
    const char *app_list = "";
    const char *dns_app_list = "";
    for (t_dlnode *p_node = p_rule->field_list.p_head; p_node != nullptr; p_node = p_node->p_next) {
        const t_tarn_config_field *p_field = DLL_RECORD(p_node, t_tarn_config_field, dlnode);
        switch (p_field->f_config_type) {
        case TARN_FIELD_TYPE_SRC_PFX_LIST:
        case TARN_FIELD_TYPE_DST_PFX_LIST:
            tarn_intf_config_remove_pfx_list_from_acl(p_tarn, p_field->name, p_rule->access_list);
            break;
        case TARN_FIELD_TYPE_DPI_APP_LIST:
            app_list = p_field->name;
            break;
        case TARN_FIELD_TYPE_DPI_DNS_APP_LIST:
            dns_app_list = p_field->name;
            break;
        default:
            break;
        }
    }
    give_app_list(p_tarn, p_rule->access_list, app_list);
    give_app_list(p_tarn, p_rule->access_list, dns_app_list);
}

static void delete_actions(t_tarn *p_tarn, const t_tarn_config_rule *p_rule)
{
    const t_tarn_access_list_key &key = p_rule->access_list->key;
    while (t_dlnode *p_head = p_rule->action_list.p_head)
        tarn_intf_config_action_delete(p_tarn, key.name, key.af_type, p_rule->key.id,
                                       DLL_RECORD(p_head, t_tarn_config_action, dlnode)->action_type);
}

int tarn_intf_config_rule_delete(t_tarn *p_tarn, const char *name, e_tarn_af_type af_type, uint32_t sequence)
{
    t_tarn_config_rule *p_rule = nullptr;
    int status = tarn_intf_config_rule_lookup(p_tarn, name, af_type, sequence, &p_rule);
    if (status != 0)
        return status;
    t_tarn_access_list *p_access_list = p_rule->access_list;
    give_lists(p_tarn, p_rule);
    tarn_config_field_delete_all(p_tarn, p_rule);
    delete_actions(p_tarn, p_rule);
    DLL_REMOVE(&p_access_list->rule_list, &p_rule->dlnode);
    avl_remove(&p_access_list->rule_db, p_rule);
    free(p_rule);
    p_access_list->changed = 1;
    return 0;
}
