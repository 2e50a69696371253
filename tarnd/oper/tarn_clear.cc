#include "tarnd/oper/tarn_clear.h"

#include "common/lum_assert.h"
#include "generated/lumora_schema.h"
#include "tarnd/acl/tarn_access_list_lists.h"
#include "tarnd/compiler/tarn_program.h"
#include "tarnd/config/tarn_policy_private.h"
#include "tarnd/config/tarn_rule.h"
#include "tarnd/core/tarn.h"
#include "tarnd/oper/tarn_oper_private.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>

// ---- Lists and policies ----

// Steps of avl_foreach over the counters and the policers of a list; arg1 is its filter id.

static int tarn_clear_counter_cb(void *p_node, void *arg1, void *)
{
    void *p_program = tarn_oper_program(*static_cast<const int *>(arg1));
    if (p_program != nullptr)
        tarn_program_clear_counter(p_program, static_cast<t_tarn_config_counter_ref *>(p_node)->name);
    return 0;
}

static int tarn_clear_policer_cb(void *p_node, void *arg1, void *)
{
    void *p_program = tarn_oper_program(*static_cast<const int *>(arg1));
    if (p_program == nullptr)
        return 0;
    const t_tarn_policer_key &key = static_cast<t_tarn_policer_config *>(p_node)->key;
    // As the program names it.
    char name[TARN_NAME_SIZE + 16];
    snprintf(name, sizeof(name), "%d.%s", key.sequence_id, key.name);
    name[TARN_NAME_SIZE - 1] = '\0';
    tarn_program_clear_policer(p_program, name);
    return 0;
}

// A VPN list's context or an access list.
template <typename t_list>
static int clear_list(t_list *p_list)
{
    int status = avl_foreach(&p_list->counter_db, tarn_clear_counter_cb, &p_list->filter_id, nullptr);
    if (status == 0)
        status = avl_foreach(&p_list->policer_db, tarn_clear_policer_cb, &p_list->filter_id, nullptr);
    return status;
}

static int tarn_clear_one_acl(void *p_node, void *, void *)
{
    return clear_list(static_cast<t_tarn_access_list *>(p_node));
}

static int tarn_clear_vpn_list(void *p_node, void *, void *)
{
    return clear_list(static_cast<t_tarn_policy_vpn_list *>(p_node));
}

static int tarn_clear_one_policy(t_tarn_policy *p_policy)
{
    return avl_foreach(&p_policy->vpn_list_db, tarn_clear_vpn_list, nullptr, nullptr);
}

int tarn_clear_acl(t_tarn *p_tarn, const char *name, e_tarn_af_type af_type)
{
    avl_tree_t *p_lists = af_type == TARN_AF_TYPE_IPV4 ? &p_tarn->access_list_db : &p_tarn->access_list6_db;
    if (name == nullptr)
        return avl_foreach(p_lists, tarn_clear_one_acl, nullptr, nullptr);
    t_tarn_access_list *p_list = tarn_access_list_find(p_tarn, name, af_type);
    return p_list != nullptr ? tarn_clear_one_acl(p_list, nullptr, nullptr) : ENOENT;
}

static int clear_policies(const t_tarn *p_tarn, e_tarn_policy_type type)
{
    const avl_tree_t *p_policies = &p_tarn->policy_db;
    int status = 0;
    for (void *p = avl_first(p_policies); p != nullptr && status == 0; p = avl_walk(p_policies, p)) {
        t_tarn_policy *p_policy = static_cast<t_tarn_policy *>(p);
        if (p_policy->key.type == type)
            status = tarn_clear_one_policy(p_policy);
    }
    return status;
}

int tarn_clear_policy(t_tarn *p_tarn, e_tarn_policy_type type, const char *name)
{
    if (name == nullptr)
        return clear_policies(p_tarn, type);
    t_tarn_policy *p_policy = tarn_policy_find(p_tarn, type, name);
    return p_policy != nullptr ? tarn_clear_one_policy(p_policy) : ENOENT;
}

// ---- Actions ----

static_assert(LUMORA_TAG_NAME == 0x771b3037);

// The object that an action names; the text goes to buffer. Null: all of them.
static const char *name_among(const confd_tag_value_t *params, int nparams, char (&buffer)[TARN_NAME_SIZE])
{
    const char *name = nullptr;
    for (const confd_tag_value_t *curr_param_p = params; curr_param_p < params + nparams; curr_param_p++) {
        if (curr_param_p->tag.tag != LUMORA_TAG_NAME)
            continue;
        LUM_ASSERT((&curr_param_p->v)->type == C_BUF, "(&curr_param_p->v)->type == C_BUF");
        const confd_buf_t &text = curr_param_p->v.val.buf;
        size_t length = std::min<size_t>(text.size, sizeof(buffer) - 1);
        memcpy(buffer, text.ptr, length);
        buffer[length] = '\0';
        name = buffer;
    }
    return name;
}

static int clear_acl(const confd_user_info *uinfo, e_tarn_af_type af_type, const confd_tag_value_t *params,
                     int nparams)
{
    char buffer[TARN_NAME_SIZE];
    tarn_clear_acl(tarn_oper_daemon(uinfo), name_among(params, nparams, buffer), af_type);
    return 0;
}

static int clear_policy(const confd_user_info *uinfo, e_tarn_policy_type type,
                        const confd_tag_value_t *params, int nparams)
{
    char buffer[TARN_NAME_SIZE];
    tarn_clear_policy(tarn_oper_daemon(uinfo), type, name_among(params, nparams, buffer));
    return 0;
}

int tarn_clear_policy_acl(confd_user_info *uinfo, xml_tag *, confd_hkeypath_t *, confd_tag_value_t *params,
                          int nparams)
{
    return clear_acl(uinfo, TARN_AF_TYPE_IPV4, params, nparams);
}

int tarn_clear_policy_acl6(confd_user_info *uinfo, xml_tag *, confd_hkeypath_t *, confd_tag_value_t *params,
                           int nparams)
{
    return clear_acl(uinfo, TARN_AF_TYPE_IPV6, params, nparams);
}

int tarn_clear_data_policy(confd_user_info *uinfo, xml_tag *, confd_hkeypath_t *, confd_tag_value_t *params,
                           int nparams)
{
    return clear_policy(uinfo, TARN_POLICY_TYPE_DATA, params, nparams);
}

int tarn_clear_zonepair_policy(confd_user_info *uinfo, xml_tag *, confd_hkeypath_t *,
                               confd_tag_value_t *params, int nparams)
{
    return clear_policy(uinfo, TARN_POLICY_TYPE_ZBF, params, nparams);
}

int tarn_clear_app_route_policy(confd_user_info *uinfo, xml_tag *, confd_hkeypath_t *,
                                confd_tag_value_t *params, int nparams)
{
    return clear_policy(uinfo, TARN_POLICY_TYPE_PFR, params, nparams);
}
