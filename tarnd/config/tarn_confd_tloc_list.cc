// Parser of the TLOC preference lists. Their elements come before the sequence that uses them.
#include "common/strlcpy.h"
#include "tarnd/config/tarn_confd_private.h"
#include "tarnd/config/tarn_tloc_list.h"

namespace {

struct t_elem_keys {
    t_tarn_vpn_list_key2 context;
    uint16_t seq;
    uint32_t list_num;
};

}  // namespace

static t_elem_keys read_keys(int num_keys, const confd_value_t *p_key)
{
    LUM_ASSERT(num_keys == 4, "num_keys == 4");
    TARN_CONFD_TYPE(p_key, C_BUF);
    TARN_CONFD_TYPE(p_key + 1, C_BUF);
    TARN_CONFD_TYPE(p_key + 2, C_UINT16);
    TARN_CONFD_TYPE(p_key + 3, C_UINT32);
    t_elem_keys keys = {};
    lum_strlcpy(keys.context.pol_name, t_tarn_confd_name(p_key), sizeof(keys.context.pol_name));
    lum_strlcpy(keys.context.name, t_tarn_confd_name(p_key + 1), sizeof(keys.context.name));
    keys.context.pol_type = TARN_POLICY_TYPE_DATA;
    keys.seq = p_key[2].val.u16;
    keys.list_num = p_key[3].val.u32;
    return keys;
}

static void mark_context(t_tarn *p_tarn, const t_elem_keys &keys)
{
    t_tarn_policy *p_policy = nullptr;
    t_tarn_policy_vpn_list *p_context = nullptr;
    const t_tarn_vpn_list_key2 &key = keys.context;
    int status = tarn_policy_lookup(p_tarn, key.pol_type, key.pol_name, &p_policy);
    if (status == 0)
        status = tarn_vpn_list_lookup_in_policy(p_tarn, key.pol_type, key.pol_name, key.name, &p_context);
    TARN_CONFD_CHECK(status, "Failed to change rule (%s, %d) err(%d)\n", key.pol_name, keys.seq, status);
    p_policy->changed = 1;
    p_context->changed = 1;
}

static uint32_t number_or_0(const confd_value_t *p_value)
{
    if (p_value->type == C_NOEXISTS)
        return 0;
    TARN_CONFD_TYPE(p_value, C_UINT32);
    return p_value->val.u32;
}

static uint8_t enumerator_of(const confd_value_t *p_value)
{
    TARN_CONFD_TYPE(p_value, C_ENUM_VALUE);
    return static_cast<uint8_t>(p_value->val.enumvalue);
}

static void read_leaf(t_tarn_tloc_elem *p_elem, const confd_tag_value_t &value)
{
    switch (value.tag.tag) {
    case LUMORA_TAG_TLOC_IP:
        p_elem->tloc.addr = tarn_confd_tloc_ipv4(&value.v);
        break;
    case LUMORA_TAG_TLOC_COLOR:
        p_elem->tloc.color = enumerator_of(&value.v);
        break;
    case LUMORA_TAG_TLOC_ENCAP:
        p_elem->tloc.encap = enumerator_of(&value.v);
        break;
    case LUMORA_TAG_TLOC_LABEL:
        p_elem->vpn_label = number_or_0(&value.v);
        break;
    case LUMORA_TAG_TLOC_PREFERENCE:
        p_elem->preference = number_or_0(&value.v);
        break;
    default:
        break;
    }
}

// What the change does not hold stays 0.
static void create_element(t_tarn_tloc_list *p_list, uint32_t list_num,
                           std::span<const confd_tag_value_t> values)
{
    t_tarn_tloc_elem elem = {};
    elem.list_num = list_num;
    for (const confd_tag_value_t &value : values)
        if (value.v.type != C_NOEXISTS)
            read_leaf(&elem, value);
    int status = tarn_tloc_list_elem_add(p_list, &elem);
    LUM_ASSERT(status == 0, "0");
}

static void change_element(t_tarn_tloc_list *p_list, uint32_t list_num,
                           std::span<const confd_tag_value_t> values)
{
    t_tarn_tloc_elem *p_elem = tarn_tloc_list_elem_find(p_list, list_num);
    if (p_elem == nullptr)
        return;
    for (const confd_tag_value_t &value : values)
        read_leaf(p_elem, value);
}

int tarn_config_data_policy_seq_tloc_pref_list(t_lconfd_sub_entry *p_lconfd_sub, confd_iter_op oper,
                                               int num_keys, const confd_value_t *p_key, int num_values,
                                               const confd_tag_value_t *p_val)
{
    t_tarn *p_tarn = tarn_confd_tarn(p_lconfd_sub);
    t_elem_keys keys = read_keys(num_keys, p_key);
    TARN_TRACE(TARN_DEBUG_CONFIG, "TLOC list: %s, vpn-list: %s, seq: %d, index: %u, oper:%d, num_values:%u",
               keys.context.pol_name, keys.context.name, keys.seq, keys.list_num, oper,
               static_cast<unsigned>(num_values));
    t_tarn_tloc_list *p_list = tarn_tloc_list_find_or_make(p_tarn, &keys.context, keys.seq);
    mark_context(p_tarn, keys);
    if (oper == MOP_CREATED)
        create_element(p_list, keys.list_num, tarn_confd_values(num_values, p_val));
    else if (oper == MOP_MODIFIED)
        change_element(p_list, keys.list_num, tarn_confd_values(num_values, p_val));
    else if (oper == MOP_DELETED)
        static_cast<void>(tarn_tloc_list_elem_delete(p_tarn, p_list, keys.list_num));
    tarn_confd_count_policy_change();
    return 0;
}
