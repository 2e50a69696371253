// Parsers of prefix lists and application lists, local ones and the controller's.
#include "tarnd/config/tarn_app_list.h"
#include "tarnd/config/tarn_confd_private.h"
#include "tarnd/config/tarn_pfx_list.h"
#include "tarnd/core/tarn.h"
#include "tarnd/dpi/tarn_dpi_app_list.h"

// ---- Prefix lists ----

static int pfx_list(t_lconfd_sub_entry *p_lconfd_sub, confd_iter_op oper, int num_keys,
                    const confd_value_t *p_key, e_tarn_policy_pfx_list_type type)
{
    t_tarn *p_tarn = tarn_confd_tarn(p_lconfd_sub);
    LUM_ASSERT(num_keys == 1, "num_keys == 1");
    TARN_CONFD_TYPE(p_key, C_BUF);
    t_tarn_confd_name name(p_key);
    TARN_TRACE(TARN_DEBUG_CONFIG, "Fwding Pfx list: %s, oper:%d", name.text, oper);
    if (oper == MOP_CREATED) {
        int status = tarn_config_pfx_list_add(p_tarn, name, type);
        TARN_CONFD_CHECK(status, "Failed to add Fwding Pfx list %s, err(%d)\n", name.text, status);
    } else if (oper == MOP_MODIFIED) {
        int status = tarn_config_pfx_list_change(p_tarn, name, type);
        TARN_CONFD_CHECK(status, "Failed to change Fwding Pfx list %s, err(%d)\n", name.text, status);
    } else if (oper == MOP_DELETED) {
        int status = tarn_config_pfx_list_delete(p_tarn, name, type);
        TARN_CONFD_CHECK(status, "Failed to delete Fwding Pfx list %s, err(%d)\n", name.text, status);
    }
    return 0;
}

int tarn_config_policy_local_pfx_list(t_lconfd_sub_entry *p_lconfd_sub, confd_iter_op oper, int num_keys,
                                      const confd_value_t *p_key, int, const confd_tag_value_t *)
{
    return pfx_list(p_lconfd_sub, oper, num_keys, p_key, TARN_POLICY_PFX_LIST_TYPE_LOCAL);
}

int tarn_config_policy_pfx_list(t_lconfd_sub_entry *p_lconfd_sub, confd_iter_op oper, int num_keys,
                                const confd_value_t *p_key, int, const confd_tag_value_t *)
{
    return pfx_list(p_lconfd_sub, oper, num_keys, p_key, TARN_POLICY_PFX_LIST_TYPE_KEELSON);
}

// A member comes or goes, and the list's users hear of it.
static int pfx_list_ip(t_lconfd_sub_entry *p_lconfd_sub, confd_iter_op oper, int num_keys,
                       const confd_value_t *p_key, e_tarn_policy_pfx_list_type type)
{
    t_tarn *p_tarn = tarn_confd_tarn(p_lconfd_sub);
    LUM_ASSERT(num_keys == 2, "num_keys == 2");
    TARN_CONFD_TYPE(p_key, C_BUF);
    TARN_CONFD_TYPE(p_key + 1, C_IPV4PREFIX);
    t_tarn_confd_name name(p_key);
    const confd_ipv4_prefix *p_prefix = &p_key[1].val.ipv4prefix;
    TARN_TRACE(TARN_DEBUG_CONFIG, "Fwding Pfx list: %s, length %u, oper:%d", name.text,
               static_cast<unsigned>(p_prefix->len), oper);
    if (oper != MOP_CREATED && oper != MOP_DELETED)
        return 0;
    if (oper == MOP_CREATED) {
        int status = tarn_config_ip_pfx_add(p_tarn, name, type, p_prefix);
        TARN_CONFD_CHECK(status, "Failed to add prefix to Fwding Pfx list %s, err(%d)\n", name.text, status);
    } else {
        int status = tarn_config_ip_pfx_delete(p_tarn, name, type, p_prefix);
        TARN_CONFD_CHECK(status, "Failed to delete prefix from Fwding Pfx list %s, err(%d)\n", name.text,
                         status);
    }
    int status = tarn_config_pfx_list_change(p_tarn, name, type);
    TARN_CONFD_CHECK(status, "Failed to change Fwding Pfx list %s, err(%d)\n", name.text, status);
    return 0;
}

int tarn_config_policy_local_pfx_list_ip(t_lconfd_sub_entry *p_lconfd_sub, confd_iter_op oper, int num_keys,
                                         const confd_value_t *p_key, int, const confd_tag_value_t *)
{
    return pfx_list_ip(p_lconfd_sub, oper, num_keys, p_key, TARN_POLICY_PFX_LIST_TYPE_LOCAL);
}

int tarn_config_policy_pfx_list_ip(t_lconfd_sub_entry *p_lconfd_sub, confd_iter_op oper, int num_keys,
                                   const confd_value_t *p_key, int, const confd_tag_value_t *)
{
    return pfx_list_ip(p_lconfd_sub, oper, num_keys, p_key, TARN_POLICY_PFX_LIST_TYPE_KEELSON);
}

// ---- Application lists ----

static void add_app_list(t_tarn *p_tarn, const char *name, e_tarn_dpi_app_list_loc_type loc)
{
    int status = tarn_config_app_list_add(p_tarn, name, loc);
    TARN_CONFD_CHECK(status, "Failed to add App List %s, err(%d)\n", name, status);
}

static void delete_app_list(t_tarn *p_tarn, const char *name, e_tarn_dpi_app_list_loc_type loc)
{
    int status = tarn_config_app_list_delete(p_tarn, name, loc);
    TARN_CONFD_CHECK(status, "Failed to delete App List %s, err(%d)\n", name, status);
}

static void change_app_list(t_tarn *p_tarn, const char *name, e_tarn_dpi_app_list_loc_type loc)
{
    int status = tarn_config_app_list_change(p_tarn, name, loc);
    TARN_CONFD_CHECK(status, "Failed to change App List %s, err(%d)\n", name, status);
}

static int app_list(t_lconfd_sub_entry *p_lconfd_sub, confd_iter_op oper, int num_keys,
                    const confd_value_t *p_key, e_tarn_dpi_app_list_loc_type loc)
{
    t_tarn *p_tarn = tarn_confd_tarn(p_lconfd_sub);
    LUM_ASSERT(num_keys == 1, "num_keys == 1");
    TARN_CONFD_TYPE(p_key, C_BUF);
    t_tarn_confd_name name(p_key);
    TARN_TRACE(TARN_DEBUG_CONFIG, "App List: %s, oper:%d", name.text, oper);
    if (oper == MOP_CREATED)
        add_app_list(p_tarn, name, loc);
    else if (oper == MOP_DELETED)
        delete_app_list(p_tarn, name, loc);
    else if (oper == MOP_MODIFIED && loc == TARN_DPI_KEY_LOC_LOCAL)
        change_app_list(p_tarn, name, loc);
    return 0;
}

int tarn_config_policy_local_app_list(t_lconfd_sub_entry *p_lconfd_sub, confd_iter_op oper, int num_keys,
                                      const confd_value_t *p_key, int, const confd_tag_value_t *)
{
    return app_list(p_lconfd_sub, oper, num_keys, p_key, TARN_DPI_KEY_LOC_LOCAL);
}

int tarn_config_policy_app_list(t_lconfd_sub_entry *p_lconfd_sub, confd_iter_op oper, int num_keys,
                                const confd_value_t *p_key, int, const confd_tag_value_t *)
{
    int status = app_list(p_lconfd_sub, oper, num_keys, p_key, TARN_DPI_KEY_LOC_KEELSON);
    tarn_confd_count_policy_change();
    return status;
}

// The users are told before the member comes or goes: they look at the list in the pass.
static int app_list_member(t_lconfd_sub_entry *p_lconfd_sub, confd_iter_op oper, int num_keys,
                           const confd_value_t *p_key, e_tarn_dpi_app_list_loc_type loc,
                           e_tarn_dpi_app_list_type type)
{
    t_tarn *p_tarn = tarn_confd_tarn(p_lconfd_sub);
    LUM_ASSERT(num_keys == 2, "num_keys == 2");
    TARN_CONFD_TYPE(p_key, C_BUF);
    TARN_CONFD_TYPE(p_key + 1, C_BUF);
    t_tarn_confd_name name(p_key);
    t_tarn_confd_name app(p_key + 1);
    TARN_TRACE(TARN_DEBUG_CONFIG, "App List: %s, app: %s, oper:%d", name.text, app.text, oper);
    if (oper != MOP_CREATED && oper != MOP_DELETED)
        return 0;
    change_app_list(p_tarn, name, loc);
    if (oper == MOP_CREATED) {
        int status = tarn_config_app_list_add_app(p_tarn, name, loc, type, app);
        TARN_CONFD_CHECK(status, "Failed to add app %s in app-list %s, err(%d)", app.text, name.text, status);
    } else {
        int status = tarn_config_app_list_delete_app(p_tarn, name, loc, type, app);
        TARN_CONFD_CHECK(status, "Failed to delete app %s in app-list %s, err(%d)", app.text, name.text,
                         status);
    }
    return 0;
}

int tarn_config_policy_local_app_list_app(t_lconfd_sub_entry *p_lconfd_sub, confd_iter_op oper, int num_keys,
                                          const confd_value_t *p_key, int, const confd_tag_value_t *)
{
    return app_list_member(p_lconfd_sub, oper, num_keys, p_key, TARN_DPI_KEY_LOC_LOCAL, TARN_DPI_TYPE_APP);
}

int tarn_config_policy_local_app_list_app_family(t_lconfd_sub_entry *p_lconfd_sub, confd_iter_op oper,
                                                 int num_keys, const confd_value_t *p_key, int,
                                                 const confd_tag_value_t *)
{
    return app_list_member(p_lconfd_sub, oper, num_keys, p_key, TARN_DPI_KEY_LOC_LOCAL,
                           TARN_DPI_TYPE_APP_FAMILY);
}

int tarn_config_policy_app_list_app(t_lconfd_sub_entry *p_lconfd_sub, confd_iter_op oper, int num_keys,
                                    const confd_value_t *p_key, int, const confd_tag_value_t *)
{
    int status =
        app_list_member(p_lconfd_sub, oper, num_keys, p_key, TARN_DPI_KEY_LOC_KEELSON, TARN_DPI_TYPE_APP);
    tarn_confd_count_policy_change();
    return status;
}

int tarn_config_policy_app_list_app_family(t_lconfd_sub_entry *p_lconfd_sub, confd_iter_op oper, int num_keys,
                                           const confd_value_t *p_key, int, const confd_tag_value_t *)
{
    int status = app_list_member(p_lconfd_sub, oper, num_keys, p_key, TARN_DPI_KEY_LOC_KEELSON,
                                 TARN_DPI_TYPE_APP_FAMILY);
    tarn_confd_count_policy_change();
    return status;
}
