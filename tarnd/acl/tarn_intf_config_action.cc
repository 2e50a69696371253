// Actions of access lists' rules. Policers, mirrors and counters know their users and get them back.
#include "common/lum_assert.h"
#include "common/lum_log.h"
#include "common/strlcpy.h"
#include "tarnd/acl/tarn_access_list_private.h"
#include "tarnd/acl/tarn_intf_config.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>

// ---- Policers ----

static int read_policer(t_tarn *p_tarn, const t_tarn_config_rule *p_rule, t_tarn_config_action *p_action,
                        const char *policer_name)
{
    t_tarn_access_list *p_access_list = p_rule->access_list;
    t_tarn_policer_config *p_policer =
        tarn_policer_find(p_tarn, policer_name, TARN_POLICY_POLICER_TYPE_LOCAL);
    if (p_policer == nullptr)
        return EINVAL;
    t_tarn_policer_key key = p_policer->key;
    key.sequence_id = static_cast<int>(p_rule->key.id);
    key.pol_af_type = static_cast<int>(p_access_list->key.af_type);
    memcpy(key.policy_name, p_access_list->key.name, sizeof(key.policy_name));
    t_tarn_policer_config *p_instance = &p_action->policer;
    int status = tarn_policer_instance_make(p_policer, &key, &p_access_list->policer_db, p_instance);
    if (status != 0)
        return status;
    p_instance->bind_type = TARN_BIND_TYPE_INTF;
    memcpy(p_instance->bind_name, p_access_list->key.name, sizeof(p_instance->bind_name));
    return 0;
}

// ---- Mirrors ----

static int read_mirror(t_tarn *p_tarn, const t_tarn_config_rule *p_rule, t_tarn_config_action *p_action,
                       const char *mirror_name)
{
    t_tarn_mirror_config *p_mirror = tarn_mirror_find(p_tarn, mirror_name);
    if (p_mirror == nullptr)
        return EINVAL;
    p_action->mirror_config = *p_mirror;
    return tarn_mirror_ref_take(p_mirror, TARN_BIND_TYPE_INTF, p_rule->access_list->key.name, "");
}

static void undo_mirror(t_tarn *p_tarn, const t_tarn_config_rule *p_rule,
                        const t_tarn_config_action *p_action)
{
    t_tarn_mirror_config *p_mirror = tarn_mirror_find(p_tarn, p_action->mirror_config.key.name);
    if (p_mirror != nullptr)
        tarn_mirror_ref_give(p_mirror, TARN_BIND_TYPE_INTF, p_rule->access_list->key.name, "");
}

// ---- Counters ----

static t_tarn_config_counter_ref counter_key(const t_tarn_config_action *p_action)
{
    t_tarn_config_counter_ref key = {};
    memcpy(key.name, p_action->counter, sizeof(key.name));
    return key;
}

// The action counts without its entry, too.
static int read_counter(const t_tarn_config_rule *p_rule, t_tarn_config_action *p_action,
                        const char *counter_name)
{
    lum_strlcpy(p_action->counter, counter_name, sizeof(p_action->counter));
    if (!tarn_access_list_count_up(&p_rule->access_list->counter_db, counter_key(p_action)))
        TARN_LOG("Failed to allocate memory for counter context!");
    return 0;
}

// ---- Actions ----

static int read_class(t_tarn *p_tarn, t_tarn_config_action *p_action, const char *class_name)
{
    const t_tarn_class *p_class = tarn_class_lookup(p_tarn, class_name);
    if (p_class == nullptr)
        return ENOENT;
    p_action->fc = *p_class;
    return 0;
}

static uint32_t fwding_action_of(uint32_t tag)
{
    switch (tag) {
    case TARN_ACTION_TAG_ACTION:
        return TARN_FILTER_ACTION_INVALID;
    case TARN_ACTION_TAG_POLICER:
        return TARN_FILTER_ACTION_POLICE;
    case TARN_ACTION_TAG_MIRROR:
        return TARN_FILTER_ACTION_MIRROR;
    case TARN_ACTION_TAG_COUNT:
        return TARN_FILTER_ACTION_COUNT;
    case TARN_ACTION_TAG_CLASS:
        return TARN_FILTER_ACTION_CLASS;
    case TARN_ACTION_TAG_DSCP:
        return TARN_FILTER_ACTION_DSCP;
    case TARN_ACTION_TAG_TRAFFIC_CLASS:
        return TARN_FILTER_ACTION_TRAFFIC_CLASS;
    case TARN_ACTION_TAG_LOG:
        return TARN_FILTER_ACTION_LOG;
    case TARN_ACTION_TAG_NEXT_HOP:
        return TARN_FILTER_ACTION_NEXT_HOP;
    default:
        LUM_ASSERT(false, "0");
    }
}

static int read_value(t_tarn *p_tarn, const t_tarn_config_rule *p_rule, t_tarn_config_action *p_action,
                      const void *value)
{
    switch (p_action->action_type) {
    case TARN_ACTION_TAG_ACTION:
        p_action->action = *static_cast<const uint32_t *>(value);
        return 0;
    case TARN_ACTION_TAG_POLICER:
        return read_policer(p_tarn, p_rule, p_action, static_cast<const char *>(value));
    case TARN_ACTION_TAG_MIRROR:
        return read_mirror(p_tarn, p_rule, p_action, static_cast<const char *>(value));
    case TARN_ACTION_TAG_COUNT:
        return read_counter(p_rule, p_action, static_cast<const char *>(value));
    case TARN_ACTION_TAG_CLASS:
        return read_class(p_tarn, p_action, static_cast<const char *>(value));
    case TARN_ACTION_TAG_DSCP:
        p_action->dscp = *static_cast<const uint8_t *>(value);
        return 0;
    case TARN_ACTION_TAG_TRAFFIC_CLASS:
        p_action->traffic_class = *static_cast<const uint8_t *>(value);
        return 0;
    case TARN_ACTION_TAG_NEXT_HOP:
        p_action->nh_ip_addr = *static_cast<const t_ipaddr *>(value);
        return 0;
    default:  // presence is all
        return 0;
    }
}

int tarn_intf_config_action_add(t_tarn *p_tarn, const char *name, e_tarn_af_type af_type, uint32_t sequence,
                                uint32_t tag, const void *value, t_tarn_config_action **pp_action)
{
    t_tarn_config_rule *p_rule = nullptr;
    int status = tarn_intf_config_rule_lookup(p_tarn, name, af_type, sequence, &p_rule);
    if (status != 0)
        return status;
    auto *p_action = static_cast<t_tarn_config_action *>(calloc(1, sizeof(t_tarn_config_action)));
    if (p_action == nullptr)
        return ENOMEM;
    p_action->action_type = tag;
    p_action->fwding_action = fwding_action_of(tag);
    status = read_value(p_tarn, p_rule, p_action, value);
    if (status != 0) {
        free(p_action);
        return status;
    }
    if (tag == TARN_ACTION_TAG_ACTION)
        DLL_INSERT(&p_rule->action_list, nullptr, &p_action->dlnode);
    else
        DLL_ADD(&p_rule->action_list, &p_action->dlnode);
    if (pp_action != nullptr)
        *pp_action = p_action;
    return 0;
}

// ---- Deleting ----

static void undo(t_tarn *p_tarn, const t_tarn_config_rule *p_rule, t_tarn_config_action *p_action)
{
    switch (p_action->fwding_action) {
    case TARN_FILTER_ACTION_COUNT:
        tarn_access_list_count_down(&p_rule->access_list->counter_db, counter_key(p_action));
        break;
    case TARN_FILTER_ACTION_POLICE:
        tarn_policer_instance_drop(p_tarn, &p_rule->access_list->policer_db, &p_action->policer);
        break;
    case TARN_FILTER_ACTION_MIRROR:
        undo_mirror(p_tarn, p_rule, p_action);
        break;
    default:
        break;
    }
}

int tarn_intf_config_action_delete(t_tarn *p_tarn, const char *name, e_tarn_af_type af_type,
                                   uint32_t sequence, uint32_t tag)
{
    t_tarn_config_rule *p_rule = nullptr;
    int status = tarn_intf_config_rule_lookup(p_tarn, name, af_type, sequence, &p_rule);
    if (status != 0)
        return status;
    for (t_dlnode *p_node = p_rule->action_list.p_head; p_node != nullptr; p_node = p_node->p_next) {
        t_tarn_config_action *p_action = DLL_RECORD(p_node, t_tarn_config_action, dlnode);
        if (p_action->action_type != tag)
            continue;
        undo(p_tarn, p_rule, p_action);
        DLL_REMOVE(&p_rule->action_list, p_node);
        free(p_action);
        return 0;
    }
    return 0;
}
