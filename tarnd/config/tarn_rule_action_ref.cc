// Actions that name an object: policer, mirror, counter, class.
#include "common/lum_log.h"
#include "common/strlcpy.h"
#include "tarnd/config/tarn_rule.h"
#include "tarnd/config/tarn_rule_private.h"
#include "tarnd/core/tarn.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>

// ---- Policers ----

// "list_policy", cut to the size of a name.
static void join_names(char (&out)[TARN_NAME_SIZE], const char *vpn_list_name, const char *policy_name)
{
    size_t length = lum_strlcpy(out, vpn_list_name, sizeof(out));
    if (length < sizeof(out))
        length += lum_strlcpy(out + length, "_", sizeof(out) - length);
    if (length < sizeof(out))
        lum_strlcpy(out + length, policy_name, sizeof(out) - length);
}

int tarn_action_policer_read(t_tarn *p_tarn, t_tarn_config_rule *p_rule, t_tarn_config_action *p_action,
                             const void *value)
{
    t_tarn_policer_config *p_policer =
        tarn_policer_find(p_tarn, static_cast<const char *>(value), TARN_POLICY_POLICER_TYPE_KEELSON);
    if (p_policer == nullptr)
        return EINVAL;
    const char *vpn_list_name = p_rule->vpn_list->key.name;
    const char *policy_name = p_rule->policy->key.name;
    t_tarn_policer_key key = p_policer->key;
    key.sequence_id = static_cast<int>(p_rule->key.id);
    join_names(key.policy_name, vpn_list_name, policy_name);

    t_tarn_policer_config *p_instance = &p_action->policer;
    int status = tarn_policer_instance_make(p_policer, &key, &p_rule->vpn_list->policer_db, p_instance);
    if (status != 0)
        return status;
    p_instance->bind_type = TARN_BIND_TYPE_VPN;
    lum_strlcpy(p_instance->bind_name, vpn_list_name, sizeof(p_instance->bind_name));
    lum_strlcpy(p_instance->bind_name2, policy_name, sizeof(p_instance->bind_name2));
    return 0;
}

void tarn_action_policer_undo(t_tarn *p_tarn, t_tarn_config_rule *p_rule, t_tarn_config_action *p_action)
{
    tarn_policer_instance_drop(p_tarn, &p_rule->vpn_list->policer_db, &p_action->policer);
}

// ---- Mirrors ----

int tarn_action_mirror_read(t_tarn *p_tarn, t_tarn_config_rule *p_rule, t_tarn_config_action *p_action,
                            const void *value)
{
    t_tarn_mirror_config *p_mirror = tarn_mirror_find(p_tarn, static_cast<const char *>(value));
    if (p_mirror == nullptr)
        return EINVAL;
    p_action->mirror_config = *p_mirror;
    return tarn_mirror_ref_take(p_mirror, TARN_BIND_TYPE_VPN, p_rule->vpn_list->key.name,
                                p_rule->policy->key.name);
}

void tarn_action_mirror_undo(t_tarn *p_tarn, t_tarn_config_rule *p_rule, t_tarn_config_action *p_action)
{
    t_tarn_mirror_config *p_mirror = tarn_mirror_find(p_tarn, p_action->mirror_config.key.name);
    if (p_mirror != nullptr)
        tarn_mirror_ref_give(p_mirror, TARN_BIND_TYPE_VPN, p_rule->vpn_list->key.name,
                             p_rule->policy->key.name);
}

// ---- Counters ----

static t_tarn_config_counter_ref *find_counter(const avl_tree_t *p_counter_db, const char *name)
{
    t_tarn_config_counter_ref wanted = {};
    lum_strlcpy(wanted.name, name, sizeof(wanted.name));
    return static_cast<t_tarn_config_counter_ref *>(avl_find(p_counter_db, &wanted));
}

// The action counts without its entry, too.
int tarn_action_counter_read(t_tarn *, t_tarn_config_rule *p_rule, t_tarn_config_action *p_action,
                             const void *value)
{
    lum_strlcpy(p_action->counter, static_cast<const char *>(value), sizeof(p_action->counter));
    avl_tree_t *p_counter_db = &p_rule->vpn_list->counter_db;
    t_tarn_config_counter_ref *p_counter = find_counter(p_counter_db, p_action->counter);
    if (p_counter != nullptr) {
        p_counter->ref_count++;
        return 0;
    }
    p_counter = static_cast<t_tarn_config_counter_ref *>(calloc(1, sizeof(t_tarn_config_counter_ref)));
    if (p_counter == nullptr) {
        TARN_LOG("Failed to allocate memory for counter context!");
        return 0;
    }
    memcpy(p_counter->name, p_action->counter, sizeof(p_counter->name));
    p_counter->ref_count = 1;
    return avl_insert(p_counter_db, p_counter);
}

void tarn_action_counter_undo(t_tarn *, t_tarn_config_rule *p_rule, t_tarn_config_action *p_action)
{
    avl_tree_t *p_counter_db = &p_rule->vpn_list->counter_db;
    t_tarn_config_counter_ref *p_counter = find_counter(p_counter_db, p_action->counter);
    if (p_counter == nullptr || --p_counter->ref_count > 0)
        return;
    avl_remove(p_counter_db, p_counter);
    free(p_counter);
}

// ---- Classes ----

// A class that isn't there leaves its name behind, and the action waits for it.
int tarn_action_class_read(t_tarn *p_tarn, t_tarn_config_rule *, t_tarn_config_action *p_action,
                           const void *value)
{
    const char *class_name = static_cast<const char *>(value);
    const t_tarn_class *p_class = tarn_class_lookup(p_tarn, class_name);
    if (p_class != nullptr) {
        p_action->fc = *p_class;
        return 0;
    }
    lum_strlcpy(p_action->fc.name, class_name, sizeof(p_action->fc.name));
    p_action->fc.ignore = 1;
    return 0;
}

int tarn_action_sla_class_read(t_tarn *p_tarn, t_tarn_config_rule *, t_tarn_config_action *p_action,
                               const void *value)
{
    const auto &wanted = *static_cast<const t_tarn_action_sla_class *>(value);
    t_tarn_action_sla_class &sla_class = p_action->sla_class;
    lum_strlcpy(sla_class.name, wanted.name, sizeof(sla_class.name));
    sla_class.strict = wanted.strict;
    sla_class.preferred_color = wanted.preferred_color;
    t_tarn_sla_class *p_found = nullptr;
    sla_class.id = tarn_sla_class_lookup(p_tarn, sla_class.name, &p_found) == 0 ? p_found->id : 0;
    return 0;
}
