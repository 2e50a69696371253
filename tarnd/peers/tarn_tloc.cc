// The TLOCs: the orders of their trees, what TTM announces, and the rules that name them.
#include "tarnd/acl/tarn_access_list.h"
#include "tarnd/config/tarn_process.h"
#include "tarnd/config/tarn_rule.h"
#include "tarnd/core/tarn.h"
#include "tarnd/peers/tarn_ttm.h"

#include "platform/ttm/ttm.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>

// ---- Orders ----

int tarn_tloc_key_cmp(const void *p_key, const void *p_object)
{
    return TLOC_CMP(&static_cast<const t_tarn_tloc *>(p_key)->tloc,
                    &static_cast<const t_tarn_tloc *>(p_object)->tloc);
}

int tarn_rule_tloc_ctx_cmp(const void *p_key, const void *p_object)
{
    return tarn_tloc_key_cmp(static_cast<const t_tarn_config_rule_tloc_ctx *>(p_key)->p_tloc,
                             static_cast<const t_tarn_config_rule_tloc_ctx *>(p_object)->p_tloc);
}

int tarn_tloc_rule_ctx_cmp(const void *p_key, const void *p_object)
{
    const t_tarn_config_rule *p_a = static_cast<const t_tarn_tloc_rule_ctx *>(p_key)->p_rule;
    const t_tarn_config_rule *p_b = static_cast<const t_tarn_tloc_rule_ctx *>(p_object)->p_rule;
    if (p_a->key.id != p_b->key.id)
        return ip_util_order(p_a->key.id, p_b->key.id);
    const t_tarn_policy_key &policy_a = p_a->policy->key;
    const t_tarn_policy_key &policy_b = p_b->policy->key;
    if (policy_a.type != policy_b.type)
        return ip_util_order<uint32_t>(policy_a.type, policy_b.type);
    if (int order = strncmp(p_a->key.name, p_b->key.name, sizeof(p_a->key.name)); order != 0)
        return order;
    return strncmp(policy_a.name, policy_b.name, sizeof(policy_a.name));
}

// ---- Records ----

static t_tarn_tloc *tloc_find(const t_tarn *p_tarn, const t_tloc_id *p_tloc)
{
    t_tarn_tloc key = {};
    key.tloc = *p_tloc;
    return static_cast<t_tarn_tloc *>(avl_find(&p_tarn->tloc_db, &key));
}

// A record that is not in the table yet, unresolved. Null without memory.
static t_tarn_tloc *tloc_new(t_tarn *p_tarn, const t_tloc_id *p_tloc)
{
    t_tarn_tloc *p_new = static_cast<t_tarn_tloc *>(calloc(1, sizeof(t_tarn_tloc)));
    if (p_new == nullptr)
        return nullptr;
    p_new->tloc = *p_tloc;
    avl_create(&p_new->rule_ctx_db, tarn_tloc_rule_ctx_cmp, sizeof(t_tarn_tloc_rule_ctx),
               offsetof(t_tarn_tloc_rule_ctx, ctx_avl_node));
    if (avl_insert(&p_tarn->tloc_db, p_new) != 0) {
        free(p_new);
        return nullptr;
    }
    return p_new;
}

static void tloc_free(t_tarn *p_tarn, t_tarn_tloc *p_tloc)
{
    avl_remove(&p_tarn->tloc_db, p_tloc);
    avl_destroy(&p_tloc->rule_ctx_db);
    free(p_tloc);
}

static bool is_named(const t_tarn_tloc *p_tloc)
{
    return avl_numnodes(&p_tloc->rule_ctx_db) != 0;
}

static void tloc_free_if_unknown(t_tarn *p_tarn, t_tarn_tloc *p_tloc)
{
    if (!p_tloc->resolved && !is_named(p_tloc))
        tloc_free(p_tarn, p_tloc);
}

// ---- What TTM announces ----

int tarn_process_tloc_change(void *p_ctx, void *arg1, void *)
{
    if (p_ctx == nullptr || arg1 == nullptr)
        return EBADMSG;
    const t_tarn_config_rule *p_rule = static_cast<t_tarn_tloc_rule_ctx *>(p_ctx)->p_rule;
    if (p_rule == nullptr)
        return EBADMSG;
    p_rule->policy->changed = 1;
    if (p_rule->vpn_list != nullptr)
        p_rule->vpn_list->changed = 1;
    if (p_rule->access_list != nullptr)
        p_rule->access_list->changed = 1;
    return 0;
}

// Marks the owners of all rules that name the TLOC, and runs one pass.
static void tloc_changed(t_tarn *p_tarn, t_tarn_tloc *p_tloc)
{
    avl_foreach(&p_tloc->rule_ctx_db, tarn_process_tloc_change, p_tarn, nullptr);
    tarn_process_config(p_tarn);
}

// The key of a record: an announced TLOC with its IPv4 address in network order.
static t_tloc_id announced_key(const t_ttm_tloc_msg *p_tloc_msg)
{
    t_tloc_id key = {};
    IPADDR_SET_V4(&key.addr, htonl(p_tloc_msg->tloc.addr.u.addr4.s_addr));
    key.color = p_tloc_msg->tloc.color;
    key.encap = p_tloc_msg->tloc.encap;
    return key;
}

template <typename T>
static bool update(T *p_value, T announced)
{
    bool differs = *p_value != announced;
    *p_value = announced;
    return differs;
}

// True when something changed that a program depends on, which the origin is not.
static bool tloc_update(t_tarn_tloc *p_tloc, const t_ttm_tloc_msg *p_tloc_msg)
{
    bool changed = update(&p_tloc->preference, p_tloc_msg->attr.preference);
    changed |= update(&p_tloc->weight, p_tloc_msg->attr.weight);
    changed |= update(&p_tloc->tloc_status, static_cast<uint8_t>(p_tloc_msg->tloc_status));
    changed |= update(&p_tloc->tloc_index, p_tloc_msg->tloc_index);
    p_tloc->local = p_tloc_msg->tloc_origin == TTM_TLOC_ORIGIN_LOCAL;
    return changed;
}

int tarn_tloc_add(t_tarn *p_tarn, const t_ttm_tloc_msg *p_tloc_msg)
{
    if (!IPADDR_IS_V4(&p_tloc_msg->tloc.addr))
        return EBADMSG;
    t_tloc_id key = announced_key(p_tloc_msg);
    t_tarn_tloc *p_tloc = tloc_find(p_tarn, &key);
    if (p_tloc == nullptr) {
        p_tloc = tloc_new(p_tarn, &key);
        if (p_tloc == nullptr)
            return ENOMEM;
        p_tloc->resolved = 1;  // no rule names it yet, so that its coming alone is no change
    }
    if (!tloc_update(p_tloc, p_tloc_msg) && p_tloc->resolved)
        return 0;
    p_tloc->resolved = 1;
    tloc_changed(p_tarn, p_tloc);
    return 0;
}

int tarn_tloc_delete(t_tarn *p_tarn, const t_ttm_tloc_msg *p_tloc_msg)
{
    if (!IPADDR_IS_V4(&p_tloc_msg->tloc.addr))
        return EBADMSG;
    t_tloc_id key = announced_key(p_tloc_msg);
    t_tarn_tloc *p_tloc = tloc_find(p_tarn, &key);
    if (p_tloc == nullptr)
        return 0;
    if (!is_named(p_tloc)) {
        tloc_free(p_tarn, p_tloc);
        return 0;
    }
    p_tloc->resolved = 0;
    tloc_changed(p_tarn, p_tloc);
    return 0;
}

// ---- Rules that name a TLOC: one record in the TLOC and one in the rule, with equal counts ----

static t_tarn_tloc_rule_ctx *rule_ctx_find(const t_tarn_tloc *p_tloc, t_tarn_config_rule *p_rule)
{
    t_tarn_tloc_rule_ctx key = {};
    key.p_rule = p_rule;
    return static_cast<t_tarn_tloc_rule_ctx *>(avl_find(&p_tloc->rule_ctx_db, &key));
}

static t_tarn_config_rule_tloc_ctx *tloc_ctx_find(const t_tarn_config_rule *p_rule, t_tarn_tloc *p_tloc)
{
    t_tarn_config_rule_tloc_ctx key = {};
    key.p_tloc = p_tloc;
    return static_cast<t_tarn_config_rule_tloc_ctx *>(avl_find(&p_rule->tloc_ctx_db, &key));
}

static bool rule_ctx_take(t_tarn_tloc *p_tloc, t_tarn_config_rule *p_rule)
{
    t_tarn_tloc_rule_ctx *p_ctx = rule_ctx_find(p_tloc, p_rule);
    if (p_ctx == nullptr) {
        p_ctx = static_cast<t_tarn_tloc_rule_ctx *>(calloc(1, sizeof(t_tarn_tloc_rule_ctx)));
        if (p_ctx == nullptr)
            return false;
        p_ctx->p_rule = p_rule;
        if (avl_insert(&p_tloc->rule_ctx_db, p_ctx) != 0) {
            free(p_ctx);
            return false;
        }
    }
    p_ctx->ref_count++;
    return true;
}

static bool tloc_ctx_take(t_tarn_config_rule *p_rule, t_tarn_tloc *p_tloc)
{
    t_tarn_config_rule_tloc_ctx *p_ctx = tloc_ctx_find(p_rule, p_tloc);
    if (p_ctx == nullptr) {
        p_ctx = static_cast<t_tarn_config_rule_tloc_ctx *>(calloc(1, sizeof(t_tarn_config_rule_tloc_ctx)));
        if (p_ctx == nullptr)
            return false;
        p_ctx->p_tloc = p_tloc;
        if (avl_insert(&p_rule->tloc_ctx_db, p_ctx) != 0) {
            free(p_ctx);
            return false;
        }
    }
    p_ctx->ref_count++;
    return true;
}

static void rule_ctx_give(t_tarn_tloc *p_tloc, t_tarn_config_rule *p_rule)
{
    t_tarn_tloc_rule_ctx *p_ctx = rule_ctx_find(p_tloc, p_rule);
    if (p_ctx == nullptr || --p_ctx->ref_count != 0)
        return;
    avl_remove(&p_tloc->rule_ctx_db, p_ctx);
    free(p_ctx);
}

static void tloc_ctx_give(t_tarn_config_rule *p_rule, t_tarn_tloc *p_tloc)
{
    t_tarn_config_rule_tloc_ctx *p_ctx = tloc_ctx_find(p_rule, p_tloc);
    if (p_ctx == nullptr || --p_ctx->ref_count != 0)
        return;
    avl_remove(&p_rule->tloc_ctx_db, p_ctx);
    free(p_ctx);
}

t_tarn_tloc *tarn_tloc_take(t_tarn *p_tarn, const t_tloc_id *p_tloc, t_tarn_config_rule *p_rule)
{
    t_tarn_tloc *p_record = tloc_find(p_tarn, p_tloc);
    if (p_record == nullptr)
        p_record = tloc_new(p_tarn, p_tloc);
    if (p_record == nullptr)
        return nullptr;
    bool taken = rule_ctx_take(p_record, p_rule);
    if (taken && tloc_ctx_take(p_rule, p_record))
        return p_record;
    if (taken)
        rule_ctx_give(p_record, p_rule);
    tloc_free_if_unknown(p_tarn, p_record);
    return nullptr;
}

void tarn_tloc_give(t_tarn *p_tarn, t_tarn_tloc *p_tloc, t_tarn_config_rule *p_rule)
{
    tloc_ctx_give(p_rule, p_tloc);
    rule_ctx_give(p_tloc, p_rule);
    tloc_free_if_unknown(p_tarn, p_tloc);
}
