#include "tests/tarnd/acl/acl_world.h"

#include <gtest/gtest.h>

#include <cstring>

#include "tarnd/acl/tarn_access_list_lists.h"
#include "tarnd/config/tarn_pfx_list.h"

t_change match(const t_change &values)
{
    return inside({LUMORA_TAG_MATCH}, values);
}

t_change action(const t_change &values)
{
    return inside({LUMORA_TAG_ACTION}, values);
}

t_change action_set(const t_change &values)
{
    return inside({LUMORA_TAG_ACTION, LUMORA_TAG_SET}, values);
}

confd_value_t u64(uint64_t value)
{
    confd_value_t result = {};
    result.type = C_UINT64;
    result.val.u64 = value;
    return result;
}

// ---- Objects ----

void AclWorld::add_list(const char *name)
{
    EXPECT_EQ(run(tarn_config_access_list_v4, MOP_CREATED, {text(name)},
                  {leaf(LUMORA_TAG_NAME, text(name)), leaf(LUMORA_TAG_DEFAULT_ACTION, enumerator(0))}),
              0);
}

void AclWorld::delete_list(const char *name)
{
    EXPECT_EQ(run(tarn_config_access_list_v4, MOP_DELETED, {text(name)}), 0);
}

t_tarn_access_list *AclWorld::list_of(const char *name, e_tarn_af_type af_type) const
{
    return tarn_access_list_find(&tarn, name, af_type);
}

void AclWorld::sequence(confd_iter_op oper, const char *name, uint16_t id, const t_change &values)
{
    t_change change = values;
    if (oper == MOP_CREATED)
        change = change + action({leaf(LUMORA_TAG_BASE_ACTION, enumerator(0))});
    EXPECT_EQ(run(tarn_config_access_list_v4_seq, oper, {text(name), u16(id)}, change), 0);
}

t_tarn_config_rule *AclWorld::rule(const char *name, uint16_t id) const
{
    t_tarn_config_rule *p_rule = nullptr;
    EXPECT_EQ(tarn_intf_config_rule_lookup(&tarn, name, TARN_AF_TYPE_IPV4, id, &p_rule), 0);
    return p_rule;
}

void AclWorld::bind(const char *list, const char *intf, uint64_t vpn_id)
{
    t_tarn_acl_bind_param param = {vpn_id, intf, 1};
    EXPECT_EQ(tarn_access_list_bind(&tarn, TARN_AF_TYPE_IPV4, list, &param), 0);
}

void AclWorld::add_local_pfx_list(const char *name, const std::vector<const char *> &prefixes)
{
    EXPECT_EQ(tarn_config_pfx_list_add(&tarn, name, TARN_POLICY_PFX_LIST_TYPE_LOCAL), 0);
    for (const char *text : prefixes) {
        confd_ipv4_prefix value = test_prefix(text);
        EXPECT_EQ(tarn_config_ip_pfx_add(&tarn, name, TARN_POLICY_PFX_LIST_TYPE_LOCAL, &value), 0);
    }
}

void AclWorld::add_policer(const char *name)
{
    t_tarn_policer_config config = {};
    strcpy(config.key.name, name);
    config.key.type = TARN_POLICY_POLICER_TYPE_LOCAL;
    config.key.sequence_id = -1;
    config.bandwidth = 8000;
    EXPECT_EQ(tarn_config_policer_add(&tarn, &config), 0);
}

// ---- Reading ----

std::string AclWorld::fields(const char *name, uint16_t id) const
{
    std::string result;
    for (t_dlnode *p_node = rule(name, id)->field_list.p_head; p_node != nullptr; p_node = p_node->p_next) {
        const t_tarn_config_field *p_field = DLL_RECORD(p_node, t_tarn_config_field, dlnode);
        if (p_field->field_type == TARN_FIELD_TYPE_MATCH_ANY)
            continue;
        result += (result.empty() ? "" : " ") + std::to_string(p_field->field_type) + ":";
        if (p_field->field_type == TARN_FIELD_TYPE_SRC_ADDR ||
            p_field->field_type == TARN_FIELD_TYPE_DST_ADDR)
            result += std::to_string(static_cast<uint8_t>(p_field->pfx.prefix_str[0])) + "/" +
                      std::to_string(p_field->pfx.prefix_len);
        else
            result += std::to_string(p_field->range.min_val) + "-" + std::to_string(p_field->range.max_val);
    }
    return result;
}

std::string AclWorld::actions(const char *name, uint16_t id) const
{
    std::string result;
    for (t_dlnode *p_node = rule(name, id)->action_list.p_head; p_node != nullptr; p_node = p_node->p_next) {
        const t_tarn_config_action *p_action = DLL_RECORD(p_node, t_tarn_config_action, dlnode);
        result += (result.empty() ? "" : " ") + std::to_string(p_action->action) + "." +
                  std::to_string(p_action->fwding_action);
    }
    return result;
}

std::vector<std::string> AclWorld::told()
{
    std::vector<std::string> texts;
    for (const t_ftm_words &words : store.take()) {
        std::string text = std::string(words.type == 3 ? "+" : "-") + (words.kind == 0 ? "4 " : "6 ") +
                           words.name + " #" + std::to_string(words.filter_id);
        for (const auto &[vpn, intf] : words.intfs)
            text += " " + std::to_string(vpn) + ":" + intf;
        texts.push_back(text);
    }
    return texts;
}
