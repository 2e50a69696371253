#include "tarnd/config/tarn_app_list.h"

#include "common/lum_log.h"
#include "common/strlcpy.h"
#include "platform/confd/confd_lib.h"
#include "tarnd/acl/tarn_access_list.h"
#include "tarnd/config/tarn_process.h"
#include "tarnd/core/tarn.h"
#include "tarnd/dpi/tarn_dpi.h"

#include <cerrno>
#include <cstdlib>

// ---- Lists ----

t_tarn_dpi_app_list *tarn_app_list_find(const t_tarn *p_tarn, const char *name,
                                        e_tarn_dpi_app_list_loc_type loc)
{
    t_tarn_dpi_app_list wanted = {};
    lum_strlcpy(wanted.key.name, name, sizeof(wanted.key.name));
    wanted.key.location = loc;
    return static_cast<t_tarn_dpi_app_list *>(avl_find(&p_tarn->dpi_app_list_db, &wanted));
}

int tarn_config_app_list_add(t_tarn *p_tarn, const char *name, e_tarn_dpi_app_list_loc_type loc)
{
    if (tarn_app_list_find(p_tarn, name, loc) != nullptr)
        return EEXIST;
    auto *p_list = static_cast<t_tarn_dpi_app_list *>(calloc(1, sizeof(t_tarn_dpi_app_list)));
    if (p_list == nullptr)
        return ENOMEM;
    lum_strlcpy(p_list->key.name, name, sizeof(p_list->key.name));
    p_list->key.location = loc;
    avl_create(&p_list->app_db, tarn_dpi_app_cmp, sizeof(t_tarn_dpi_app), offsetof(t_tarn_dpi_app, avl_node));
    avl_create(&p_list->vpn_list_db, tarn_dpi_vpn_list_ctx_cmp, sizeof(t_tarn_dpi_policy_vpn_list_ctx),
               offsetof(t_tarn_dpi_policy_vpn_list_ctx, avl_node));
    avl_create(&p_list->access_list_db, tarn_dpi_access_list_ctx_cmp, sizeof(t_tarn_dpi_access_list_ctx),
               offsetof(t_tarn_dpi_access_list_ctx, avl_node));
    return avl_insert(&p_tarn->dpi_app_list_db, p_list);
}

static int mark_context(void *p_node, void *arg1, void *)
{
    tarn_process_context_change(static_cast<t_tarn *>(arg1),
                                &static_cast<t_tarn_dpi_policy_vpn_list_ctx *>(p_node)->key);
    return 0;
}

static int mark_access_list(void *p_node, void *, void *)
{
    static_cast<t_tarn_dpi_access_list_ctx *>(p_node)->p_access_list->changed = 1;
    return 0;
}

int tarn_config_app_list_change(t_tarn *p_tarn, const char *name, e_tarn_dpi_app_list_loc_type loc)
{
    t_tarn_dpi_app_list *p_list = tarn_app_list_find(p_tarn, name, loc);
    if (p_list == nullptr)
        return ENOENT;
    avl_foreach(&p_list->vpn_list_db, mark_context, p_tarn, nullptr);
    avl_foreach(&p_list->access_list_db, mark_access_list, nullptr, nullptr);
    return 0;
}

// A user's memory of the list, or null.
static t_tarn_dpi_app_ctx *find_use(const avl_tree_t *p_uses, t_tarn_dpi_app_list *p_list)
{
    t_tarn_dpi_app_ctx wanted = {};
    wanted.p_app_list = p_list;
    return static_cast<t_tarn_dpi_app_ctx *>(avl_find(p_uses, &wanted));
}

static void drop_use(avl_tree_t *p_uses, t_tarn_dpi_app_list *p_list)
{
    t_tarn_dpi_app_ctx *p_use = find_use(p_uses, p_list);
    if (p_use == nullptr)
        return;
    avl_remove(p_uses, p_use);
    free(p_use);
}

static int forget_access_list(void *p_node, void *arg1, void *)
{
    t_tarn_dpi_access_list_ctx *p_user = static_cast<t_tarn_dpi_access_list_ctx *>(p_node);
    t_tarn_dpi_app_list *p_list = static_cast<t_tarn_dpi_app_list *>(arg1);
    drop_use(&p_user->p_access_list->dpi_app_list_db, p_list);
    avl_remove(&p_list->access_list_db, p_user);
    free(p_user);
    return 0;
}

// A context may still count uses: those of rules whose list was empty when they were taken apart. Its record
// points to the list, and so has to go along.
static int forget_context(void *p_node, void *arg1, void *arg2)
{
    auto *p_user = static_cast<t_tarn_dpi_policy_vpn_list_ctx *>(p_node);
    t_tarn_dpi_app_list *p_list = static_cast<t_tarn_dpi_app_list *>(arg1);
    t_tarn_policy_vpn_list *p_vpn_list = nullptr;
    if (tarn_vpn_list_lookup_in_policy(static_cast<t_tarn *>(arg2), p_user->key.pol_type,
                                       p_user->key.pol_name, p_user->key.name, &p_vpn_list) == 0)
        drop_use(&p_vpn_list->dpi_app_list_db, p_list);
    avl_remove(&p_list->vpn_list_db, p_user);
    free(p_user);
    return 0;
}

int tarn_config_app_list_delete(t_tarn *p_tarn, const char *name, e_tarn_dpi_app_list_loc_type loc)
{
    t_tarn_dpi_app_list *p_list = tarn_app_list_find(p_tarn, name, loc);
    if (p_list == nullptr)
        return ENOENT;
    avl_destroy_nodes(&p_list->app_db, free);
    avl_remove(&p_tarn->dpi_app_list_db, p_list);
    avl_foreach(&p_list->access_list_db, forget_access_list, p_list, nullptr);
    avl_foreach(&p_list->vpn_list_db, forget_context, p_list, p_tarn);
    free(p_list);
    return 0;
}

// Users have gone by now; records that they left are freed along.
static void release_list(void *p_object)
{
    t_tarn_dpi_app_list *p_list = static_cast<t_tarn_dpi_app_list *>(p_object);
    avl_destroy_nodes(&p_list->app_db, free);
    avl_destroy_nodes(&p_list->vpn_list_db, free);
    avl_destroy_nodes(&p_list->access_list_db, free);
    free(p_list);
}

void tarn_config_app_list_destroy(t_tarn *p_tarn)
{
    avl_destroy_nodes(&p_tarn->dpi_app_list_db, release_list);
}

// ---- Members ----

// 0, with a message, for a name that is not known.
static uint32_t member_id(e_tarn_dpi_app_list_type type, const char *name)
{
    uint32_t id = type == TARN_DPI_TYPE_APP ? tarn_dpi_get_qosmos_id(name)
                                            : uint32_t{tarn_dpi_get_qosmos_app_family_enum(name)};
    if (id == 0)
        TARN_LOG("Skipping the app%s - %s. Not supported.", type == TARN_DPI_TYPE_APP ? "" : " family", name);
    return id;
}

static t_tarn_dpi_app *find_member(const t_tarn_dpi_app_list *p_list, uint32_t id)
{
    t_tarn_dpi_app wanted = {};
    wanted.id = id;
    return static_cast<t_tarn_dpi_app *>(avl_find(&p_list->app_db, &wanted));
}

int tarn_config_app_list_add_app(t_tarn *p_tarn, const char *p_list_name, e_tarn_dpi_app_list_loc_type loc,
                                 e_tarn_dpi_app_list_type type, const char *p_app_name)
{
    t_tarn_dpi_app_list *p_list = tarn_app_list_find(p_tarn, p_list_name, loc);
    if (p_list == nullptr)
        return ENOENT;
    if (p_list->type != type)
        avl_destroy_nodes(&p_list->app_db, free);
    uint32_t id = member_id(type, p_app_name);
    if (id == 0)
        return 0;
    if (find_member(p_list, id) != nullptr)
        return EEXIST;
    t_tarn_dpi_app *p_app = static_cast<t_tarn_dpi_app *>(calloc(1, sizeof(t_tarn_dpi_app)));
    if (p_app == nullptr)
        return ENOMEM;
    p_app->id = id;
    lum_strlcpy(p_app->name, p_app_name, sizeof(p_app->name));
    p_list->type = type;
    return avl_insert(&p_list->app_db, p_app);
}

int tarn_config_app_list_delete_app(t_tarn *p_tarn, const char *p_list_name, e_tarn_dpi_app_list_loc_type loc,
                                    e_tarn_dpi_app_list_type type, const char *p_app_name)
{
    t_tarn_dpi_app_list *p_list = tarn_app_list_find(p_tarn, p_list_name, loc);
    if (p_list == nullptr)
        return ENOENT;
    // A list of which no name is known has no type yet.
    if (p_list->type != type && p_list->type != TARN_DPI_TYPE_INVALID)
        return ENOENT;
    uint32_t id = member_id(type, p_app_name);
    t_tarn_dpi_app *p_app = id != 0 ? find_member(p_list, id) : nullptr;
    if (p_app == nullptr)
        return 0;
    avl_remove(&p_list->app_db, p_app);
    free(p_app);
    return 0;
}

int tarn_config_app_list_delete_all_app(t_tarn *p_tarn, const char *name, e_tarn_dpi_app_list_loc_type loc)
{
    t_tarn_dpi_app_list *p_list = tarn_app_list_find(p_tarn, name, loc);
    if (p_list == nullptr)
        return ENOENT;
    avl_destroy_nodes(&p_list->app_db, free);
    return 0;
}

// ---- Values of the data model ----

static constexpr uint32_t model_namespace = 0x25640284;

static void enumerator_text(const char *type_name, uint32_t value, char *text)
{
    confd_value_t enumerator = {};
    enumerator.type = C_ENUM_VALUE;
    enumerator.val.enumvalue = static_cast<int32_t>(value);
    text[0] = '\0';
    confd_val2str(confd_find_ns_type(model_namespace, type_name), &enumerator, text, TARN_NAME_SIZE);
}

uint32_t tarn_config_confd_app_to_qosmos_app(uint32_t app_id, char *app_name)
{
    enumerator_text("app-enum", app_id, app_name);
    return tarn_dpi_get_qosmos_id(app_name);
}

uint32_t tarn_config_confd_app_family_to_qosmos_app_family(uint32_t app_id, char *app_name)
{
    enumerator_text("app-family-enum", app_id, app_name);
    return app_id;
}
