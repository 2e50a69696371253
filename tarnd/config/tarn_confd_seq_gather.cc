// Sequences: leaves that make an action together, gathered in the walk and written after it.
//
// A created rule gets what was gathered. In a change a leaf that was not touched keeps the value that stands
// in the present action; the action is then deleted and made anew, so that it moves to the tail. A change
// comes in two parts, deletions first, and each part is merged by itself.
#include "common/strlcpy.h"
#include "tarnd/config/tarn_confd_seq_private.h"
#include "tarnd/peers/tarn_ttm.h"

#include <cstring>

// ---- Gathering ----

namespace {

// Reads a leaf that exists.
using f_leaf_read = uint32_t (*)(t_tarn_seq_gathered *p_gathered, const confd_value_t *p_value);

struct t_leaf_row {
    uint32_t tag;
    uint32_t container;  // the row counts inside it only; 0: anywhere
    t_tarn_seq_leaf t_tarn_seq_gathered::*leaf;
    f_leaf_read read;
};

}  // namespace

static uint32_t read_presence(t_tarn_seq_gathered *, const confd_value_t *)
{
    return 1;
}

static uint32_t read_enum(t_tarn_seq_gathered *, const confd_value_t *p_value)
{
    TARN_CONFD_TYPE(p_value, C_ENUM_VALUE);
    return static_cast<uint32_t>(p_value->val.enumvalue);
}

static uint32_t read_number(t_tarn_seq_gathered *, const confd_value_t *p_value)
{
    TARN_CONFD_TYPE(p_value, C_UINT32);
    return p_value->val.u32;
}

static uint32_t read_bool(t_tarn_seq_gathered *, const confd_value_t *p_value)
{
    TARN_CONFD_TYPE(p_value, C_BOOL);
    return p_value->val.boolean != 0;
}

static uint32_t read_tloc_ip(t_tarn_seq_gathered *, const confd_value_t *p_value)
{
    return tarn_confd_tloc_ipv4(p_value).u.addr4.s_addr;
}

static uint32_t read_sla_class(t_tarn_seq_gathered *p_gathered, const confd_value_t *p_value)
{
    TARN_CONFD_TYPE(p_value, C_BUF);
    lum_strlcpy(p_gathered->sla_class, t_tarn_confd_name(p_value), sizeof(p_gathered->sla_class));
    return 1;
}

static uint32_t tloc_encap(uint32_t enumerator)
{
    LUM_ASSERT(enumerator == LUMORA_TLOC_ENCAP_GRE || enumerator == LUMORA_TLOC_ENCAP_IPSEC, "0");
    return enumerator;
}

static uint32_t read_tloc_encap(t_tarn_seq_gathered *p_gathered, const confd_value_t *p_value)
{
    return tloc_encap(read_enum(p_gathered, p_value));
}

static uint32_t color_bit(const confd_value_t *p_value)
{
    return tarn_yang_enum_to_filter_mask(read_enum(nullptr, p_value));
}

// In masks the encapsulations have bits of their own.
static uint32_t encap_bit(const confd_value_t *p_value)
{
    static constexpr uint32_t gre_bit = 6;
    static constexpr uint32_t ipsec_bit = 4;
    bool gre = tloc_encap(read_enum(nullptr, p_value)) == LUMORA_TLOC_ENCAP_GRE;
    return tarn_yang_enum_to_filter_mask(gre ? gre_bit : ipsec_bit);
}

static uint32_t read_color_bit(t_tarn_seq_gathered *, const confd_value_t *p_value)
{
    return color_bit(p_value);
}

static uint32_t read_encap_bit(t_tarn_seq_gathered *, const confd_value_t *p_value)
{
    return encap_bit(p_value);
}

uint32_t tarn_seq_color_mask(const confd_value_t *p_value)
{
    uint32_t mask = 0;
    for (const confd_value_t &element : tarn_confd_list(p_value))
        mask |= color_bit(&element);
    return mask;
}

static uint32_t read_color_mask(t_tarn_seq_gathered *, const confd_value_t *p_value)
{
    return tarn_seq_color_mask(p_value);
}

static uint32_t read_encap_mask(t_tarn_seq_gathered *, const confd_value_t *p_value)
{
    uint32_t mask = 0;
    for (const confd_value_t &element : tarn_confd_list(p_value))
        mask |= encap_bit(&element);
    return mask;
}

// Of rows with one tag the first that counts.
static const t_leaf_row leaf_rows[] = {
    {LUMORA_TAG_SLA_CLASS_NAME, 0, &t_tarn_seq_gathered::sla_name, read_sla_class},
    {LUMORA_TAG_STRICT, 0, &t_tarn_seq_gathered::sla_strict, read_bool},
    {LUMORA_TAG_PREFERRED_COLOR, 0, &t_tarn_seq_gathered::sla_colors, read_color_mask},
    {LUMORA_TAG_IP, 0, &t_tarn_seq_gathered::tloc_ip, read_tloc_ip},
    {LUMORA_TAG_LABEL, 0, &t_tarn_seq_gathered::tloc_label, read_number},
    {LUMORA_TAG_TLOC_LIST, 0, &t_tarn_seq_gathered::tloc_list, read_presence},
    {LUMORA_TAG_LOCAL, 0, &t_tarn_seq_gathered::local, read_presence},
    {LUMORA_TAG_SERVICE_TYPE, 0, &t_tarn_seq_gathered::service_type, read_enum},
    {LUMORA_TAG_COLOR, LUMORA_TAG_COLOR_ENCAP, &t_tarn_seq_gathered::pair_color, read_color_bit},
    {LUMORA_TAG_COLOR, LUMORA_TAG_LOCAL_TLOC_LIST, &t_tarn_seq_gathered::local_colors, read_color_mask},
    {LUMORA_TAG_COLOR, 0, &t_tarn_seq_gathered::tloc_color, read_enum},
    {LUMORA_TAG_ENCAP, LUMORA_TAG_COLOR_ENCAP, &t_tarn_seq_gathered::pair_encap, read_encap_bit},
    {LUMORA_TAG_ENCAP, LUMORA_TAG_LOCAL_TLOC_LIST, &t_tarn_seq_gathered::local_encaps, read_encap_mask},
    {LUMORA_TAG_ENCAP, 0, &t_tarn_seq_gathered::tloc_encap, read_tloc_encap},
    {LUMORA_TAG_RESTRICT, LUMORA_TAG_LOCAL_TLOC_LIST, &t_tarn_seq_gathered::local_restrict, read_presence},
};

static const t_leaf_row *find_row(const t_tarn_seq &seq, uint32_t tag)
{
    for (const t_leaf_row &row : leaf_rows)
        if (row.tag == tag && (row.container == 0 || seq.scope.inside(row.container)))
            return &row;
    return nullptr;
}

// The VPN goes into the rule at once: the actions made after the walk take it from there.
static void set_vpn(t_tarn_seq *p_seq, const confd_value_t *p_value)
{
    if (p_value->type == C_NOEXISTS) {
        p_seq->p_rule->rule_vpn_id = 0;
        return;
    }
    TARN_CONFD_TYPE(p_value, C_UINT32);
    p_seq->p_rule->rule_vpn_id = static_cast<uint16_t>(p_value->val.u32);
}

bool tarn_seq_gather(t_tarn_seq *p_seq, const confd_tag_value_t &value)
{
    if (value.tag.tag == LUMORA_TAG_VPN) {
        set_vpn(p_seq, &value.v);
        return true;
    }
    const t_leaf_row *p_row = find_row(*p_seq, value.tag.tag);
    if (p_row == nullptr)
        return false;
    t_tarn_seq_leaf &leaf = p_seq->gathered.*p_row->leaf;
    if (value.v.type == C_NOEXISTS)
        leaf = {TARN_SEQ_LEAF_DELETED, 0};
    else
        leaf = {TARN_SEQ_LEAF_SET, p_row->read(&p_seq->gathered, &value.v)};
    return true;
}

// ---- Writing ----

static uint32_t overlay(const t_tarn_seq_leaf &leaf, uint32_t present, uint32_t when_deleted = 0)
{
    if (leaf.set())
        return leaf.value;
    return leaf.deleted() ? when_deleted : present;
}

static bool has_action(const t_tarn_seq *p_seq, uint32_t tag)
{
    return tarn_seq_action_find(p_seq, tag) != nullptr;
}

// Every rule of an application-route policy has an SLA class; its name is never lost by a change.
static t_tarn_action_sla_class merged_sla_class(const t_tarn_seq *p_seq)
{
    const t_tarn_seq_gathered &gathered = p_seq->gathered;
    t_tarn_action_sla_class sla_class = {};
    lum_strlcpy(sla_class.name, TARN_ALL_TUNNELS, sizeof(sla_class.name));
    if (const t_tarn_config_action *p_present = tarn_seq_action_find(p_seq, LUMORA_TAG_SLA_CLASS))
        sla_class = p_present->sla_class;
    if (gathered.sla_name.set())
        lum_strlcpy(sla_class.name, gathered.sla_class, sizeof(sla_class.name));
    sla_class.strict = static_cast<uint8_t>(overlay(gathered.sla_strict, sla_class.strict));
    sla_class.preferred_color = overlay(gathered.sla_colors, sla_class.preferred_color);
    if (p_seq->created && !gathered.sla_name.set())
        sla_class.strict = 0;
    return sla_class;
}

static void write_sla_class(t_tarn_seq *p_seq)
{
    const t_tarn_seq_gathered &gathered = p_seq->gathered;
    bool touched =
        gathered.sla_name.touched() || gathered.sla_strict.touched() || gathered.sla_colors.touched();
    if (p_seq->type != TARN_POLICY_TYPE_PFR || (!touched && !p_seq->created))
        return;
    t_tarn_action_sla_class sla_class = merged_sla_class(p_seq);
    tarn_seq_action_delete(p_seq, LUMORA_TAG_SLA_CLASS);
    tarn_seq_action_add(p_seq, LUMORA_TAG_SLA_CLASS, &sla_class);
}

// In a change, an action and those that can't stand beside it: they go, too.
static void make_way(t_tarn_seq *p_seq, uint32_t tag)
{
    static constexpr uint32_t exclusive[] = {LUMORA_TAG_TLOC, LUMORA_TAG_TLOC_LIST, LUMORA_TAG_LOCAL};
    for (uint32_t other : exclusive)
        if (other == tag || !p_seq->created)
            tarn_seq_action_delete(p_seq, other);
}

// A missing address is address 0, a missing encapsulation IPsec.
static t_tarn_tloc_args merged_tloc(const t_tarn_seq *p_seq)
{
    const t_tarn_seq_gathered &gathered = p_seq->gathered;
    t_tarn_tloc_args args = {};
    IPADDR_SET_V4(&args.tloc.addr, 0);
    args.tloc.encap = LUMORA_TLOC_ENCAP_IPSEC;
    if (const t_tarn_config_action *p_present = tarn_seq_action_find(p_seq, LUMORA_TAG_TLOC))
        args = {p_present->tloc_config[0].tloc->tloc, p_present->tloc_config[0].vpn_label};
    IPADDR_SET_V4(&args.tloc.addr, overlay(gathered.tloc_ip, args.tloc.addr.u.addr4.s_addr));
    args.tloc.color = static_cast<uint8_t>(overlay(gathered.tloc_color, args.tloc.color));
    args.tloc.encap =
        static_cast<uint8_t>(overlay(gathered.tloc_encap, args.tloc.encap, LUMORA_TLOC_ENCAP_IPSEC));
    args.vpn_label = overlay(gathered.tloc_label, args.vpn_label);
    return args;
}

// A change that deletes leaves, sets none and leaves neither address nor color deletes the whole TLOC.
static void write_tloc(t_tarn_seq *p_seq)
{
    const t_tarn_seq_gathered &gathered = p_seq->gathered;
    bool set = false;
    bool touched = false;
    for (const t_tarn_seq_leaf *p_leaf :
         {&gathered.tloc_ip, &gathered.tloc_color, &gathered.tloc_encap, &gathered.tloc_label}) {
        set |= p_leaf->set();
        touched |= p_leaf->touched();
    }
    if (!touched)
        return;
    t_tarn_tloc_args args = merged_tloc(p_seq);
    if (!set && args.tloc.addr.u.addr4.s_addr == 0 && args.tloc.color == 0) {
        tarn_seq_action_delete(p_seq, LUMORA_TAG_TLOC);
        return;
    }
    make_way(p_seq, LUMORA_TAG_TLOC);
    tarn_seq_action_add(p_seq, LUMORA_TAG_TLOC, &args);
}

// A TLOC list or the local service: an action without a value.
static void write_presence(t_tarn_seq *p_seq, const t_tarn_seq_leaf &leaf, uint32_t tag)
{
    if (leaf.deleted())
        tarn_seq_action_delete(p_seq, tag);
    if (!leaf.set())
        return;
    make_way(p_seq, tag);
    tarn_seq_action_add(p_seq, tag, nullptr);
}

// A service is looked for along TLOCs: without any, and away from this router, it gets a TLOC list.
static void complete_service(t_tarn_seq *p_seq)
{
    if (!has_action(p_seq, LUMORA_TAG_SERVICE_TYPE) || has_action(p_seq, LUMORA_TAG_LOCAL) ||
        has_action(p_seq, LUMORA_TAG_TLOC) || has_action(p_seq, LUMORA_TAG_TLOC_LIST))
        return;
    tarn_seq_action_add(p_seq, LUMORA_TAG_TLOC_LIST, nullptr);
}

// Without its service type the whole group goes.
static void write_service(t_tarn_seq *p_seq)
{
    const t_tarn_seq_leaf &service = p_seq->gathered.service_type;
    if (service.touched())
        tarn_seq_action_delete(p_seq, LUMORA_TAG_SERVICE_TYPE);
    if (service.deleted()) {
        tarn_seq_action_delete(p_seq, LUMORA_TAG_TLOC);
        tarn_seq_action_delete(p_seq, LUMORA_TAG_TLOC_LIST);
        tarn_seq_action_delete(p_seq, LUMORA_TAG_LOCAL);
    }
    if (service.set()) {
        auto type = static_cast<uint8_t>(service.value);
        tarn_seq_action_add(p_seq, LUMORA_TAG_SERVICE_TYPE, &type);
    }
    complete_service(p_seq);
}

static void write_color_encap(t_tarn_seq *p_seq)
{
    const t_tarn_seq_gathered &gathered = p_seq->gathered;
    if (!gathered.pair_color.touched() && !gathered.pair_encap.touched())
        return;
    t_tarn_tloc_color_encap pair = {};
    if (const t_tarn_config_action *p_present = tarn_seq_action_find(p_seq, LUMORA_TAG_COLOR_ENCAP))
        pair = p_present->tloc_color_encap;
    pair.color = overlay(gathered.pair_color, pair.color);
    pair.encap = overlay(gathered.pair_encap, pair.encap);
    tarn_seq_action_delete(p_seq, LUMORA_TAG_COLOR_ENCAP);
    if (pair.color != 0 || pair.encap != 0)
        tarn_seq_action_add(p_seq, LUMORA_TAG_COLOR_ENCAP, &pair);
}

static void write_local_tloc_list(t_tarn_seq *p_seq)
{
    const t_tarn_seq_gathered &gathered = p_seq->gathered;
    if (!gathered.local_colors.touched() && !gathered.local_encaps.touched() &&
        !gathered.local_restrict.touched())
        return;
    t_tarn_local_tloc_list list = {};
    if (const t_tarn_config_action *p_present = tarn_seq_action_find(p_seq, LUMORA_TAG_LOCAL_TLOC_LIST))
        list = p_present->local_tloc_list;
    list.color_mask = overlay(gathered.local_colors, list.color_mask);
    list.encap_mask = overlay(gathered.local_encaps, list.encap_mask);
    list.restrict1 = static_cast<uint8_t>(overlay(gathered.local_restrict, list.restrict1));
    tarn_seq_action_delete(p_seq, LUMORA_TAG_LOCAL_TLOC_LIST);
    if (list.color_mask != 0 || list.encap_mask != 0 || list.restrict1 != 0)
        tarn_seq_action_add(p_seq, LUMORA_TAG_LOCAL_TLOC_LIST, &list);
}

void tarn_seq_write_gathered(t_tarn_seq *p_seq)
{
    write_sla_class(p_seq);
    write_tloc(p_seq);
    write_presence(p_seq, p_seq->gathered.tloc_list, LUMORA_TAG_TLOC_LIST);
    write_presence(p_seq, p_seq->gathered.local, LUMORA_TAG_LOCAL);
    write_service(p_seq);
    write_color_encap(p_seq);
    write_local_tloc_list(p_seq);
}
