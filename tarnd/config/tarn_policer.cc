#include "tarnd/config/tarn_policer.h"

#include "common/ip_util.h"
#include "common/strlcpy.h"
#include "fp_api/fp_policer.h"
#include "libcvmx/sim/_cvmx-clock.h"
#include "tarnd/acl/tarn_access_list_lists.h"
#include "tarnd/config/tarn_mirror.h"
#include "tarnd/core/tarn.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <initializer_list>

static constexpr int named_sequence = -1;

int tarn_policer_key_cmp(const void *p_key, const void *p_object)
{
    const t_tarn_policer_key &key = static_cast<const t_tarn_policer_config *>(p_key)->key;
    const t_tarn_policer_key &other = static_cast<const t_tarn_policer_config *>(p_object)->key;
    size_t length = strnlen(key.name, sizeof(key.name));
    size_t other_length = strnlen(other.name, sizeof(other.name));
    if (length != other_length)
        return ip_util_order(length, other_length);
    if (key.sequence_id != other.sequence_id)
        return ip_util_order(key.sequence_id, other.sequence_id);
    if (int order = strncmp(key.name, other.name, sizeof(key.name)); order != 0)
        return order;
    if (key.type != other.type)
        return ip_util_order<uint32_t>(key.type, other.type);
    if (key.pol_af_type != other.pol_af_type)
        return ip_util_order(key.pol_af_type, other.pol_af_type);
    return strncmp(key.policy_name, other.policy_name, sizeof(key.policy_name));
}

t_tarn_policer_config *tarn_policer_find(const t_tarn *p_tarn, const char *name,
                                         e_tarn_policy_policer_type type)
{
    t_tarn_policer_config wanted = {};
    lum_strlcpy(wanted.key.name, name, sizeof(wanted.key.name));
    wanted.key.type = type;
    wanted.key.sequence_id = named_sequence;
    return static_cast<t_tarn_policer_config *>(avl_find(&p_tarn->policer_db, &wanted));
}

// ---- Named policers ----

static uint8_t drop_action(uint8_t configured)
{
    return configured == 1 ? FP_POLICER_ACTION_MARK_PLP_HIGH : FP_POLICER_ACTION_DROP;
}

static t_tarn_policer_config *find_by_config(const t_tarn *p_tarn, const t_tarn_policer_config *p_cfg)
{
    return static_cast<t_tarn_policer_config *>(avl_find(&p_tarn->policer_db, p_cfg));
}

int tarn_config_policer_add(t_tarn *p_tarn, const t_tarn_policer_config *p_policer_cfg)
{
    if (p_tarn == nullptr || p_policer_cfg == nullptr)
        return EBADMSG;
    if (find_by_config(p_tarn, p_policer_cfg) != nullptr)
        return EEXIST;
    auto *p_policer = static_cast<t_tarn_policer_config *>(calloc(1, sizeof(t_tarn_policer_config)));
    if (p_policer == nullptr)
        return ENOMEM;
    const t_tarn_policer_key &key = p_policer_cfg->key;
    lum_strlcpy(p_policer->key.name, key.name, sizeof(p_policer->key.name));
    lum_strlcpy(p_policer->key.policy_name, key.policy_name, sizeof(p_policer->key.policy_name));
    p_policer->key.sequence_id = key.sequence_id;
    p_policer->key.type = key.type;
    p_policer->bandwidth = p_policer_cfg->bandwidth;
    p_policer->burst = p_policer_cfg->burst;
    p_policer->oob_action = drop_action(p_policer_cfg->oob_action);
    avl_create(&p_policer->instance_db, tarn_policer_key_cmp, sizeof(t_tarn_policer_config),
               offsetof(t_tarn_policer_config, instance_avl_node));
    int status = avl_insert(&p_tarn->policer_db, p_policer);
    if (status != 0)
        free(p_policer);
    return status;
}

int tarn_config_policer_change(t_tarn *p_tarn, uint8_t params_present,
                               const t_tarn_policer_config *p_policer_cfg)
{
    if (p_tarn == nullptr || p_policer_cfg == nullptr)
        return EBADMSG;
    t_tarn_policer_config *p_policer = find_by_config(p_tarn, p_policer_cfg);
    if (p_policer == nullptr)
        return ENOENT;
    if (params_present & POLICER_BW)
        p_policer->bandwidth = p_policer_cfg->bandwidth;
    if (params_present & POLICER_BURST)
        p_policer->burst = p_policer_cfg->burst;
    if (params_present & POLICER_ACTION)
        p_policer->oob_action = drop_action(p_policer_cfg->oob_action);
    avl_foreach(&p_policer->instance_db, tarn_config_policer_inst_change, p_tarn, p_policer);
    return 0;
}

// The rules that name a policer go before it, and with them its instances.
int tarn_config_policer_delete(t_tarn *p_tarn, const t_tarn_policer_config *p_policer_cfg)
{
    if (p_tarn == nullptr || p_policer_cfg == nullptr)
        return EBADMSG;
    t_tarn_policer_config *p_policer = find_by_config(p_tarn, p_policer_cfg);
    if (p_policer == nullptr)
        return ENOENT;
    avl_remove(&p_tarn->policer_db, p_policer);
    free(p_policer);
    return 0;
}

void tarn_config_policer_destroy(t_tarn *p_tarn)
{
    avl_destroy_nodes(&p_tarn->policer_db, free);
    avl_destroy(&p_tarn->policer_db);
}

// ---- Instances ----

int tarn_policer_instance_make(t_tarn_policer_config *p_policer, const t_tarn_policer_key *p_key,
                               avl_tree_t *p_owner_db, t_tarn_policer_config *p_instance)
{
    *p_instance = {};
    p_instance->key = *p_key;
    p_instance->bandwidth = p_policer->bandwidth;
    p_instance->burst = p_policer->burst;
    p_instance->oob_action = p_policer->oob_action;
    int status = avl_insert(p_owner_db, p_instance);
    if (status != 0)
        return status;
    status = avl_insert(&p_policer->instance_db, p_instance);
    if (status != 0)
        avl_remove(p_owner_db, p_instance);
    return status;
}

void tarn_policer_instance_drop(t_tarn *p_tarn, avl_tree_t *p_owner_db, t_tarn_policer_config *p_instance)
{
    t_tarn_policer_config *p_policer = tarn_policer_find(p_tarn, p_instance->key.name, p_instance->key.type);
    if (p_policer != nullptr && avl_find(&p_policer->instance_db, p_instance) == p_instance)
        avl_remove(&p_policer->instance_db, p_instance);
    avl_remove(p_owner_db, p_instance);
}

void tarn_policer_fill(t_fp_policer *p_fp_policer, const t_tarn_policer_config *p_policer)
{
    p_fp_policer->rate = cvmx_clock_get_rate(CVMX_CLOCK_CORE) / (p_policer->bandwidth >> 3);
    p_fp_policer->burst = p_fp_policer->rate * p_policer->burst;
    p_fp_policer->oob_action = static_cast<e_fp_policer_drop_action>(p_policer->oob_action);
}

static void change_context(t_tarn *p_tarn, const t_tarn_policer_config &instance, t_fp_policer *p_fp_policer)
{
    t_tarn_policy_vpn_list *p_context = nullptr;
    if (tarn_vpn_list_lookup_in_policy(p_tarn, TARN_POLICY_TYPE_DATA, instance.bind_name2, instance.bind_name,
                                       &p_context) == 0)
        p_tarn->p_hwapi->filter_policer_chg(p_context->filter_id, p_fp_policer);
}

static void change_access_lists(t_tarn *p_tarn, const t_tarn_policer_config &instance,
                                t_fp_policer *p_fp_policer)
{
    for (e_tarn_af_type af_type : {TARN_AF_TYPE_IPV4, TARN_AF_TYPE_IPV6}) {
        t_tarn_access_list *p_access_list = tarn_access_list_find(p_tarn, instance.bind_name, af_type);
        if (p_access_list != nullptr)
            p_tarn->p_hwapi->filter_policer_chg(p_access_list->filter_id, p_fp_policer);
    }
}

int tarn_config_policer_inst_change(void *p_node, void *arg1, void *arg2)
{
    auto &instance = *static_cast<t_tarn_policer_config *>(p_node);
    auto *p_tarn = static_cast<t_tarn *>(arg1);
    const auto &policer = *static_cast<const t_tarn_policer_config *>(arg2);
    // The next compilation takes its figures from the instance.
    instance.bandwidth = policer.bandwidth;
    instance.burst = policer.burst;
    instance.oob_action = policer.oob_action;

    t_fp_policer fp_policer = {};
    tarn_policer_fill(&fp_policer, &policer);
    // The bare name: programs have the sequence number in front, which the search splits off.
    lum_strlcpy(fp_policer.name, policer.key.name, sizeof(fp_policer.name));
    if (instance.bind_type == TARN_BIND_TYPE_VPN)
        change_context(p_tarn, instance, &fp_policer);
    else if (instance.bind_type == TARN_BIND_TYPE_INTF)
        change_access_lists(p_tarn, instance, &fp_policer);
    return 0;
}
