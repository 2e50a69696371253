// Sequences: what they match, a row a leaf.
#include "tarnd/config/tarn_app_list.h"
#include "tarnd/config/tarn_confd_seq_private.h"
#include "tarnd/config/tarn_pfx_list.h"

#include <cstdio>
#include <cstring>

namespace {

struct t_match_row;

// Adds one value of a leaf, whose type has been looked at.
using f_match_add = int (*)(t_tarn_seq *p_seq, const t_match_row &row, const confd_value_t *p_value);

struct t_match_row {
    uint32_t tag;
    bool is_list;
    confd_vtype type;  // of the leaf, or of a leaf-list's elements
    e_tarn_field_type field;
    f_match_add add;
};

}  // namespace

static int add_field(t_tarn_seq *p_seq, const t_match_row &row, const void *p_data)
{
    return tarn_config_field_add(p_seq->p_tarn, row.field, p_data, p_seq->p_rule);
}

static int add_octet(t_tarn_seq *p_seq, const t_match_row &row, const confd_value_t *p_value)
{
    uint32_t number = p_value->val.u8;
    return add_field(p_seq, row, &number);
}

static int add_tcp(t_tarn_seq *p_seq, const t_match_row &row, const confd_value_t *p_value)
{
    uint32_t number = tarn_yang_tcp_match_to_filter_tcp_match(p_value->val.b32);
    return add_field(p_seq, row, &number);
}

static int add_plp(t_tarn_seq *p_seq, const t_match_row &row, const confd_value_t *p_value)
{
    auto enumerator = static_cast<uint32_t>(p_value->val.enumvalue);
    uint32_t number = tarn_yang_plp_match_to_filter_plp_match(enumerator);
    return add_field(p_seq, row, &number);
}

static int add_dns(t_tarn_seq *p_seq, const t_match_row &row, const confd_value_t *p_value)
{
    auto enumerator = static_cast<uint32_t>(p_value->val.enumvalue);
    uint32_t number = tarn_yang_dns_match_to_filter_dns_match(enumerator);
    return add_field(p_seq, row, &number);
}

// One number is a range of equal ends.
static int add_range(t_tarn_seq *p_seq, const t_match_row &row, const confd_value_t *p_value)
{
    t_tarn_confd_name text(p_value);
    unsigned min = 0;
    unsigned max = 0;
    int count = sscanf(text, "%u-%u", &min, &max);
    LUM_ASSERT(count >= 1, "count >= 1");
    t_tarn_range range = {static_cast<int>(min), static_cast<int>(count == 2 ? max : min)};
    return add_field(p_seq, row, &range);
}

static int add_prefix(t_tarn_seq *p_seq, const t_match_row &row, const confd_value_t *p_value)
{
    return add_field(p_seq, row, &p_value->val.ipv4prefix);
}

static int add_prefix_list(t_tarn_seq *p_seq, const t_match_row &row, const confd_value_t *p_value)
{
    t_tarn_confd_name name(p_value);
    t_tarn_pfx_list_key key = {};
    memcpy(key.name, name.text, sizeof(key.name));
    key.pfx_list_type = tarn_get_pfx_list_type_from_policy_type(p_seq->type);
    return add_field(p_seq, row, &key);
}

// The reference to the list is taken here, once for all of its fields.
static int add_app_list(t_tarn_seq *p_seq, const t_match_row &row, const confd_value_t *p_value)
{
    t_tarn_confd_name name(p_value);
    int status = tarn_config_add_app_list_to_policy(p_seq->p_tarn, name, TARN_DPI_KEY_LOC_KEELSON,
                                                    p_seq->type, p_seq->policy, p_seq->vpn_list);
    if (status != 0)
        return status;
    t_tarn_dpi_app_list_key key = {};
    memcpy(key.name, name.text, sizeof(key.name));
    key.location = TARN_DPI_KEY_LOC_KEELSON;
    return add_field(p_seq, row, &key);
}

static const t_match_row match_rows[] = {
    {LUMORA_TAG_PROTOCOL, true, C_UINT8, TARN_FIELD_TYPE_PROTOCOL, add_octet},
    {LUMORA_TAG_SOURCE_PORT, true, C_BUF, TARN_FIELD_TYPE_SRC_PORT, add_range},
    {LUMORA_TAG_DESTINATION_PORT, true, C_BUF, TARN_FIELD_TYPE_DST_PORT, add_range},
    {LUMORA_TAG_PACKET_LENGTH, true, C_BUF, TARN_FIELD_TYPE_PKT_LEN, add_range},
    {LUMORA_TAG_SOURCE_IP, true, C_IPV4PREFIX, TARN_FIELD_TYPE_SRC_ADDR, add_prefix},
    {LUMORA_TAG_DESTINATION_IP, true, C_IPV4PREFIX, TARN_FIELD_TYPE_DST_ADDR, add_prefix},
    {LUMORA_TAG_SOURCE_DATA_PREFIX_LIST, false, C_BUF, TARN_FIELD_TYPE_SRC_PFX_LIST, add_prefix_list},
    {LUMORA_TAG_DESTINATION_DATA_PREFIX_LIST, false, C_BUF, TARN_FIELD_TYPE_DST_PFX_LIST, add_prefix_list},
    {LUMORA_TAG_DSCP, true, C_UINT8, TARN_FIELD_TYPE_DSCP, add_octet},
    {LUMORA_TAG_TCP, false, C_BIT32, TARN_FIELD_TYPE_TCP, add_tcp},
    {LUMORA_TAG_PLP, false, C_ENUM_VALUE, TARN_FIELD_TYPE_PLP, add_plp},
    {LUMORA_TAG_DNS, false, C_ENUM_VALUE, TARN_FIELD_TYPE_DNS, add_dns},
    {LUMORA_TAG_APP_LIST, false, C_BUF, TARN_FIELD_TYPE_DPI_APP_LIST, add_app_list},
    {LUMORA_TAG_DNS_APP_LIST, false, C_BUF, TARN_FIELD_TYPE_DPI_DNS_APP_LIST, add_app_list},
};

static const t_match_row *find_row(uint32_t tag)
{
    for (const t_match_row &row : match_rows)
        if (row.tag == tag)
            return &row;
    return nullptr;
}

static void add_value(t_tarn_seq *p_seq, const t_match_row &row, const confd_value_t *p_value)
{
    LUM_ASSERT(p_value->type == row.type, "(p_value)->type == row.type");
    int status = row.add(p_seq, row, p_value);
    TARN_CONFD_CHECK(status, "Failed to add field %u to rule (%s, %d) err(%d)\n",
                     static_cast<unsigned>(row.field), p_seq->policy, p_seq->id, status);
}

bool tarn_seq_match(t_tarn_seq *p_seq, const confd_tag_value_t &value)
{
    const t_match_row *p_row = find_row(value.tag.tag);
    if (p_row == nullptr || p_seq->scope.inside(LUMORA_TAG_SET))
        return false;
    if (!p_seq->created)
        tarn_config_field_delete(p_seq->p_tarn, p_row->field, p_seq->p_rule, nullptr, nullptr);
    if (value.v.type == C_NOEXISTS)
        return true;
    if (!p_row->is_list) {
        add_value(p_seq, *p_row, &value.v);
        return true;
    }
    for (const confd_value_t &element : tarn_confd_list(&value.v))
        add_value(p_seq, *p_row, &element);
    return true;
}
