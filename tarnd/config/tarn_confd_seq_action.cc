// Sequences: actions that one leaf makes, a row a leaf. The leaf's tag is the action's.
#include "lconfd/lconfd_util.h"
#include "tarnd/config/tarn_confd_seq_private.h"

#include <cstring>

namespace {

// A value in the form that the action's tag calls for.
union t_action_value {
    uint8_t octet;
    uint32_t word;
    uint64_t vpn_id;
    t_ipaddr address;
    char name[TARN_NAME_SIZE];
};

// Reads a leaf that exists; false if its value means that there is no action.
using f_action_read = bool (*)(t_action_value *p_out, const confd_value_t *p_value);

namespace {

struct t_action_row {
    uint32_t tag;
    f_action_read read;
};

}  // namespace

}  // namespace

static bool read_nothing(t_action_value *, const confd_value_t *)
{
    return true;
}

static bool read_verdict(t_action_value *p_out, const confd_value_t *p_value)
{
    TARN_CONFD_TYPE(p_value, C_ENUM_VALUE);
    p_out->word = tarn_yang_action_to_filter_action(static_cast<uint32_t>(p_value->val.enumvalue));
    return true;
}

static bool read_name(t_action_value *p_out, const confd_value_t *p_value)
{
    TARN_CONFD_TYPE(p_value, C_BUF);
    t_tarn_confd_name name(p_value);
    memcpy(p_out->name, name.text, sizeof(p_out->name));
    return true;
}

static bool read_octet(t_action_value *p_out, const confd_value_t *p_value)
{
    TARN_CONFD_TYPE(p_value, C_UINT8);
    p_out->octet = p_value->val.u8;
    return true;
}

static bool read_word(t_action_value *p_out, const confd_value_t *p_value)
{
    TARN_CONFD_TYPE(p_value, C_UINT32);
    p_out->word = p_value->val.u32;
    return true;
}

static bool read_vpn_id(t_action_value *p_out, const confd_value_t *p_value)
{
    TARN_CONFD_TYPE(p_value, C_UINT32);
    p_out->vpn_id = p_value->val.u32;
    return true;
}

static bool read_next_hop(t_action_value *p_out, const confd_value_t *p_value)
{
    TARN_CONFD_TYPE(p_value, C_BUF);
    t_tarn_confd_name text(p_value);
    lconfd_ip_addr_str_to_t_ipaddr(text, &p_out->address);
    return true;
}

// Anything but an IPv4 address leaves the zero address.
static bool read_redirect_dns(t_action_value *p_out, const confd_value_t *p_value)
{
    if (p_value->type == C_IPV4)
        p_out->address = tarn_confd_ipv4(p_value);
    return true;
}

static bool read_loss_protect(t_action_value *p_out, const confd_value_t *p_value)
{
    if (p_value->type != C_ENUM_VALUE)
        return false;
    p_out->word = static_cast<uint32_t>(p_value->val.enumvalue);
    return true;
}

static bool read_colors(t_action_value *p_out, const confd_value_t *p_value)
{
    p_out->word = tarn_seq_color_mask(p_value);
    return true;
}

static bool read_if_true(t_action_value *, const confd_value_t *p_value)
{
    TARN_CONFD_TYPE(p_value, C_BOOL);
    return p_value->val.boolean != 0;
}

static const t_action_row action_rows[] = {
    {LUMORA_TAG_BASE_ACTION, read_verdict},
    {LUMORA_TAG_COUNT, read_name},
    {LUMORA_TAG_MIRROR, read_name},
    {LUMORA_TAG_POLICER, read_name},
    {LUMORA_TAG_CLASS, read_name},
    {LUMORA_TAG_POOL, read_word},
    {LUMORA_TAG_USE_VPN, read_vpn_id},
    {LUMORA_TAG_NEXT_HOP, read_next_hop},
    {LUMORA_TAG_REDIRECT_DNS, read_redirect_dns},
    {LUMORA_TAG_LOSS_PROTECT, read_loss_protect},
    {LUMORA_TAG_BACKUP_PREFERRED_COLOR, read_colors},
    {LUMORA_TAG_CFLOWD, read_nothing},
    {LUMORA_TAG_LOG, read_nothing},
    {LUMORA_TAG_TCP_OPTIMIZATION, read_nothing},
    {LUMORA_TAG_SSL_OPTIMIZATION, read_nothing},
    {LUMORA_TAG_PACKET_DUPLICATION, read_nothing},
    {LUMORA_TAG_FALLBACK, read_if_true},
    {LUMORA_TAG_RESTRICT, read_nothing},
    {LUMORA_TAG_DSCP, read_octet},
};

static const t_action_row *find_row(uint32_t tag)
{
    for (const t_action_row &row : action_rows)
        if (row.tag == tag)
            return &row;
    return nullptr;
}

bool tarn_seq_action(t_tarn_seq *p_seq, const confd_tag_value_t &value)
{
    const t_action_row *p_row = find_row(value.tag.tag);
    if (p_row == nullptr)
        return false;
    if (!p_seq->created)
        tarn_seq_action_delete(p_seq, p_row->tag);
    t_action_value out;
    memset(&out, 0, sizeof(out));
    if (value.v.type != C_NOEXISTS && p_row->read(&out, &value.v))
        tarn_seq_action_add(p_seq, p_row->tag, &out);
    return true;
}

// ---- The rule's actions, for all parts ----

void tarn_seq_action_add(t_tarn_seq *p_seq, uint32_t tag, const void *value)
{
    int status = tarn_config_action_add(p_seq->p_tarn, p_seq->type, p_seq->policy, p_seq->vpn_list, p_seq->id,
                                        tag, value, nullptr);
    TARN_CONFD_CHECK(status, "Failed to add action 0x%x to rule (%s, %d) err(%d)\n", tag, p_seq->policy,
                     p_seq->id, status);
}

void tarn_seq_action_delete(t_tarn_seq *p_seq, uint32_t tag)
{
    int status =
        tarn_config_action_delete(p_seq->p_tarn, p_seq->type, p_seq->policy, p_seq->vpn_list, p_seq->id, tag);
    TARN_CONFD_CHECK(status, "Failed to delete action 0x%x of rule (%s, %d) err(%d)\n", tag, p_seq->policy,
                     p_seq->id, status);
}

t_tarn_config_action *tarn_seq_action_find(const t_tarn_seq *p_seq, uint32_t tag)
{
    t_tarn_config_action *p_action = nullptr;
    tarn_config_action_find(p_seq->p_tarn, p_seq->type, p_seq->policy, p_seq->vpn_list, p_seq->id, tag,
                            &p_action);
    return p_action;
}
