#include "tarnd/acl/tarn_intf_config.h"

#include "common/strlcpy.h"
#include "tarnd/acl/tarn_access_list_lists.h"
#include "tarnd/compiler/tarn_mem_mgr.h"
#include "tarnd/compiler/tarn_ruletable.h"
#include "tarnd/config/tarn_pfx_list.h"
#include "tarnd/core/tarn.h"
#include "tarnd/dpi/tarn_dpi_app_list.h"
#include "tarnd/peers/tarn_ftm.h"

#include <cerrno>
#include <cstddef>
#include <cstdlib>
#include <initializer_list>
#include <utility>

int tarn_intf_config_init(t_tarn *p_tarn)
{
    if (p_tarn == nullptr)
        return EBADMSG;
    for (avl_tree_t *p_lists : {&p_tarn->access_list_db, &p_tarn->access_list6_db})
        avl_create(p_lists, tarn_access_list_key_cmp, sizeof(t_tarn_access_list),
                   offsetof(t_tarn_access_list, avl_node));
    avl_create(&p_tarn->mirror_db, tarn_mirror_key_cmp, sizeof(t_tarn_mirror_config),
               offsetof(t_tarn_mirror_config, avl_node));
    avl_create(&p_tarn->policer_db, tarn_policer_key_cmp, sizeof(t_tarn_policer_config),
               offsetof(t_tarn_policer_config, avl_node));
    return 0;
}

static avl_tree_t *lists_of(t_tarn *p_tarn, e_tarn_af_type af_type)
{
    return af_type != TARN_AF_TYPE_IPV4 ? &p_tarn->access_list6_db : &p_tarn->access_list_db;
}

int tarn_access_list_lookup(t_tarn *p_tarn, const char *name, e_tarn_af_type af_type,
                            t_tarn_access_list **pp_access_list)
{
    if (p_tarn == nullptr || name == nullptr)
        return EBADMSG;
    t_tarn_access_list *p_access_list = tarn_access_list_find(p_tarn, name, af_type);
    if (p_access_list == nullptr)
        return ENOENT;
    if (pp_access_list != nullptr)
        *pp_access_list = p_access_list;
    return 0;
}

// ---- Making ----

static void create_trees(t_tarn_access_list *p_access_list)
{
    avl_create(&p_access_list->intf_db, tarn_intf_key_cmp, sizeof(t_tarn_intf),
               offsetof(t_tarn_intf, avl_node));
    avl_create(&p_access_list->pfx_list_db, tarn_access_pfx_list_cmp, sizeof(t_tarn_access_pfx_ctx),
               offsetof(t_tarn_access_pfx_ctx, avl_node));
    avl_create(&p_access_list->rule_db, tarn_rule_key_cmp, sizeof(t_tarn_config_rule),
               offsetof(t_tarn_config_rule, avl_node));
    avl_create(&p_access_list->counter_db, tarn_counter_cmp, sizeof(t_tarn_config_counter_ref),
               offsetof(t_tarn_config_counter_ref, avl_node));
    avl_create(&p_access_list->class_db, tarn_class_cmp, sizeof(t_tarn_class),
               offsetof(t_tarn_class, avl_node));
    avl_create(&p_access_list->policer_db, tarn_policer_key_cmp, sizeof(t_tarn_policer_config),
               offsetof(t_tarn_policer_config, policy_avl_node));
    avl_create(&p_access_list->dpi_app_list_db, tarn_dpi_app_list_ctx_cmp, sizeof(t_tarn_dpi_app_ctx),
               offsetof(t_tarn_dpi_app_ctx, avl_node));
}

int tarn_access_list_add(t_tarn *p_tarn, const char *name, e_tarn_af_type af_type, uint32_t default_action)
{
    if (p_tarn == nullptr || name == nullptr)
        return EBADMSG;
    if (tarn_access_list_find(p_tarn, name, af_type) != nullptr)
        return EEXIST;
    auto *p_access_list = static_cast<t_tarn_access_list *>(calloc(1, sizeof(t_tarn_access_list)));
    if (p_access_list == nullptr)
        return ENOMEM;
    p_access_list->default_action =
        static_cast<t_tarn_config_action *>(calloc(1, sizeof(t_tarn_config_action)));
    if (p_access_list->default_action == nullptr) {
        free(p_access_list);
        return ENOMEM;
    }
    lum_strlcpy(p_access_list->key.name, name, sizeof(p_access_list->key.name));
    p_access_list->key.af_type = af_type;
    p_access_list->filter_id = TARN_FILTER_ID_NONE;
    p_access_list->default_action->action = default_action;
    p_access_list->added = 1;
    create_trees(p_access_list);
    (void)avl_insert(lists_of(p_tarn, af_type), p_access_list);  // not there, as looked up
    return 0;
}

int tarn_access_list_change(t_tarn *p_tarn, const char *name, e_tarn_af_type af_type, uint32_t default_action)
{
    t_tarn_access_list *p_access_list = nullptr;
    int status = tarn_access_list_lookup(p_tarn, name, af_type, &p_access_list);
    if (status != 0)
        return status;
    p_access_list->default_action->action = default_action;
    p_access_list->changed = 1;
    return 0;
}

// ---- Deleting ----

// Takes the user that equals `wanted` out of a list's memory of its users.
template <typename t_user>
static void forget_user(avl_tree_t *p_users, const t_user &wanted)
{
    void *p_user = avl_find(p_users, &wanted);
    if (p_user == nullptr)
        return;
    avl_remove(p_users, p_user);
    free(p_user);
}

static int forget_pfx_list(void *p_node, void *arg1, void *)
{
    auto *p_use = static_cast<t_tarn_access_pfx_ctx *>(p_node);
    auto *p_access_list = static_cast<t_tarn_access_list *>(arg1);
    forget_user<t_tarn_pfx_access_ctx>(&p_use->p_pfx_list->access_list_db, {{}, p_access_list, 0});
    avl_remove(&p_access_list->pfx_list_db, p_use);
    free(p_use);
    return 0;
}

static int forget_app_list(void *p_node, void *arg1, void *)
{
    auto *p_use = static_cast<t_tarn_dpi_app_ctx *>(p_node);
    auto *p_access_list = static_cast<t_tarn_access_list *>(arg1);
    forget_user<t_tarn_dpi_access_list_ctx>(&p_use->p_app_list->access_list_db, {{}, p_access_list, 0});
    avl_remove(&p_access_list->dpi_app_list_db, p_use);
    free(p_use);
    return 0;
}

// What rules did not give back: a rule whose list of applications was empty had no field that named it.
static void forget_lists(t_tarn_access_list *p_access_list)
{
    avl_foreach(&p_access_list->pfx_list_db, forget_pfx_list, p_access_list, nullptr);
    avl_foreach(&p_access_list->dpi_app_list_db, forget_app_list, p_access_list, nullptr);
}

static void delete_rules(t_tarn *p_tarn, t_tarn_access_list *p_access_list)
{
    while (t_dlnode *p_head = p_access_list->rule_list.p_head) {
        const t_tarn_config_rule *p_rule = DLL_RECORD(p_head, t_tarn_config_rule, dlnode);
        tarn_intf_config_rule_delete(p_tarn, p_access_list->key.name, p_access_list->key.af_type,
                                     p_rule->key.id);
    }
}

int tarn_access_list_delete(t_tarn *p_tarn, const char *name, e_tarn_af_type af_type)
{
    t_tarn_access_list *p_access_list = nullptr;
    int status = tarn_access_list_lookup(p_tarn, name, af_type, &p_access_list);
    if (status == 0)
        status = tarn_unbind_acl(p_tarn, p_access_list);
    if (status != 0)
        return status;
    avl_destroy_nodes(&p_access_list->intf_db, free);
    tarn_delete_ruletable(std::exchange(p_access_list->p_table, nullptr));
    if (p_access_list->p_program != nullptr)
        tarn_mem_free(std::exchange(p_access_list->p_program, nullptr), g_tarn_mem_mgr);
    delete_rules(p_tarn, p_access_list);
    forget_lists(p_access_list);
    free(p_access_list->default_action);
    avl_remove(lists_of(p_tarn, af_type), p_access_list);
    free(p_access_list);
    return 0;
}

// ---- Values of the data model ----

uint8_t tarn_yang_direction_to_filter_direction(uint32_t value)
{
    switch (value) {
    case 0:
        return 1;
    case 1:
        return 2;
    default:
        return 0;
    }
}

uint32_t tarn_filter_direction_to_yang_direction(uint8_t direction)
{
    return direction == 2 ? 1 : 0;
}
