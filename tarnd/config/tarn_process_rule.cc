// From a configured rule to a compiler rule: fields into stages, actions into slots.
#include "common/lum_assert.h"
#include "common/strlcpy.h"
#include "platform/ttm/ttm.h"
#include "tarnd/compiler/tarn_context.h"
#include "tarnd/compiler/tarn_field.h"
#include "tarnd/compiler/tarn_program_format.h"
#include "tarnd/config/tarn_rule.h"
#include "tarnd/core/tarn.h"
#include "tarnd/peers/tarn_ttm.h"

#include <algorithm>
#include <cstdio>
#include <utility>

// ---- Fields ----

// By e_tarn_field_type; 0 for those that expansion has replaced.
static constexpr uint32_t compiler_field[TARN_FIELD_TYPE_MAX] = {
    0,
    tarn_ip_protocol,
    tarn_ip_src_port,
    tarn_ip_dst_port,
    tarn_ip_src_addr,
    tarn_ip_dst_addr,
    0,  // source prefix list
    0,  // destination prefix list
    tarn_ip_dscp,
    tarn_ip_fc,
    tarn_ip_tcp,
    tarn_ip_pkt_len,
    tarn_ip_dpi_app,
    tarn_ip_dpi_app_family,
    0,  // application list
    tarn_ip_match_any,
    tarn_ip_traffic_class,
    tarn_ip_next_header,
    tarn_ip_plp,
    tarn_ip_dpi_dns_app,
    tarn_ip_dpi_dns_app_family,
    0,  // DNS application list
    tarn_ip_dns,
};

static void add_field(t_tarn_context *p_context, t_tarn_rule *p_rule, const t_tarn_config_field &field)
{
    LUM_ASSERT(field.field_type < TARN_FIELD_TYPE_MAX && compiler_field[field.field_type] != 0, "0");
    tarn_field_id id = tarn_get_field_id(p_context, compiler_field[field.field_type]);
    if (field.field_type == TARN_FIELD_TYPE_SRC_ADDR || field.field_type == TARN_FIELD_TYPE_DST_ADDR)
        tarn_add_prefix_field(p_context, p_rule, id, reinterpret_cast<const uint8_t *>(field.pfx.prefix_str),
                              static_cast<uint32_t>(field.pfx.prefix_len));
    else
        tarn_add_range_field(p_context, p_rule, id, static_cast<uint32_t>(field.range.min_val),
                             static_cast<uint32_t>(field.range.max_val));
}

// A list's prefixes may be many thousand fields, so the timers get their turn.
static void add_fields(t_tarn_context *p_context, t_tarn_rule *p_rule, const t_tarn_config_rule &config_rule)
{
    static constexpr size_t steps_of_field = 50;
    for (t_dlnode *p_node = config_rule.field_list.p_head; p_node != nullptr; p_node = p_node->p_next) {
        add_field(p_context, p_rule, *DLL_RECORD(p_node, t_tarn_config_field, dlnode));
        tarn_context_work(p_context, steps_of_field);
    }
}

// ---- TLOCs ----

static bool is_up(const t_tarn_tloc &tloc)
{
    return tloc.resolved && tloc.tloc_status == TTM_TLOC_STATUS_UP;
}

// Member by member, as everywhere here: a slot's gaps stay 0.
static void set_tloc(t_tarn_hw_tloc *p_entry, const t_tarn_tloc_config &config)
{
    p_entry->tloc_index = config.tloc->tloc_index;
    p_entry->vpn_label = config.vpn_label;
    p_entry->resolved = is_up(*config.tloc);
    p_entry->vpn_id = config.vpn_id;
}

namespace {

// The locators that a list's packets are spread over.
struct t_choices {
    const t_tarn_tloc_config *taken[TARN_TLOCS_IN_ACTION];
    uint32_t count;
};

}  // namespace

// Those that are up, of the highest preference that one of them has. The list is in order of preference.
static t_choices choose_tlocs(const t_tarn_config_action &action)
{
    t_choices choices = {};
    uint32_t preference = 0;
    for (uint32_t i = 0; i < action.num_tlocs; i++) {
        const t_tarn_tloc_config &config = action.tloc_config[i];
        if (!is_up(*config.tloc) || config.vpn_label == 0)
            continue;
        if (preference == 0)
            preference = config.preference;
        if (config.preference >= preference)
            choices.taken[choices.count++] = &config;
    }
    return choices;
}

static bool tarn_tloc_weight_cmp(const t_tarn_tloc_config *p_a, const t_tarn_tloc_config *p_b)
{
    return p_a->tloc->weight > p_b->tloc->weight;
}

// Fills the entries behind those that each choice has already, in proportion to the weights. The number of
// further entries is unsigned: a share of less than one entry takes all that is left.
static void spread_by_weight(t_choices choices, uint64_t sum, t_tarn_hw_tloc (&table)[TARN_TLOCS_IN_ACTION])
{
    std::stable_sort(choices.taken, choices.taken + choices.count, tarn_tloc_weight_cmp);
    uint32_t index = choices.count;
    for (uint32_t i = 0; index < TARN_TLOCS_IN_ACTION; i++) {
        const t_tarn_tloc_config &config = *choices.taken[i % choices.count];
        uint32_t more = 1;
        if (i < choices.count)
            more = static_cast<uint32_t>(uint64_t{config.tloc->weight} * TARN_TLOCS_IN_ACTION / sum) - 1;
        for (; more > 0 && index < TARN_TLOCS_IN_ACTION; more--)
            set_tloc(&table[index++], config);
    }
}

// The forwarding plane picks one of the 16 entries by a packet's flow.
static void spread_tlocs(const t_tarn_config_action &action, t_tarn_hw_tloc (&table)[TARN_TLOCS_IN_ACTION])
{
    t_choices choices = choose_tlocs(action);
    if (choices.count == 0)
        return;
    uint64_t sum = 0;
    bool equal = true;
    for (uint32_t i = 0; i < choices.count; i++) {
        set_tloc(&table[i], *choices.taken[i]);
        sum += choices.taken[i]->tloc->weight;
        equal = equal && choices.taken[i]->tloc->weight == choices.taken[0]->tloc->weight;
    }
    if (!equal)
        return spread_by_weight(choices, sum, table);
    for (uint32_t i = choices.count; i < TARN_TLOCS_IN_ACTION; i++)
        set_tloc(&table[i], *choices.taken[i % choices.count]);
}

// ---- Other slots ----

static void set_address(t_fp_ipaddr *p_address, const t_ipaddr &address)
{
    if (IPADDR_IS_V4(&address))
        FP_IPADDR_SET_V4(p_address, address.u.addr4.s_addr);
    else if (IPADDR_IS_V6(&address))
        FP_IPADDR_SET_V6(p_address, address.u.addr6_b);
}

// No interface name is carried.
static void set_mirror(t_tarn_mirror_info *p_info, const t_tarn_mirror_config &mirror)
{
    p_info->mirror_type = static_cast<e_tarn_mirror_type>(mirror.mirror_type);
    if (mirror.tunnel_list.p_head == nullptr)
        return;
    const auto *p_tunnel = DLL_RECORD(mirror.tunnel_list.p_head, t_tarn_mirror_tunnel_config, dlnode);
    p_info->tunnel.src_ip = p_tunnel->src_ip;
    p_info->tunnel.dst_ip = p_tunnel->dst_ip;
}

static void set_policer(t_fp_policer *p_fp_policer, const t_tarn_policer_config &policer, uint32_t rule_id)
{
    tarn_policer_fill(p_fp_policer, &policer);
    p_fp_policer->record_valid = 1;
    char name[TARN_NAME_SIZE + 16];
    snprintf(name, sizeof(name), "%d.%s", static_cast<int>(rule_id), policer.key.name);
    lum_strlcpy(p_fp_policer->name, name, sizeof(p_fp_policer->name));
}

void tarn_sla_class_fill(t_tarn_sla_class_info *p_info, const t_tarn_action_sla_class *p_sla_class)
{
    static constexpr uint8_t strict_backup = 5;
    p_info->_primary = p_sla_class->id;
    p_info->_backup = p_sla_class->strict ? strict_backup : 0;
    p_info->preferred_color = p_sla_class->preferred_color;
}

static void set_local_tlocs(t_tarn_hw_local_tloc_list *p_list, const t_tarn_local_tloc_list &configured)
{
    p_list->color_mask = configured.color_mask;
    p_list->encap_mask = configured.encap_mask;
    p_list->restrict1 = configured.restrict1;
}

// Kinds whose detail is one number.
static void fill_number(t_tarn_filter_action *p_slot, const t_tarn_config_action &action)
{
    switch (action.fwding_action) {
    case TARN_FILTER_ACTION_CLASS:
        p_slot->_class = action.fc._class;
        break;
    case TARN_FILTER_ACTION_NAT:
        p_slot->nat_vrid = action.nat_vrid;
        break;
    case TARN_FILTER_ACTION_DSCP:
        p_slot->dscp = action.dscp;
        break;
    case TARN_FILTER_ACTION_SVC_TYPE:
        p_slot->svc_type = action.svc_type;
        break;
    case TARN_FILTER_ACTION_TRAFFIC_CLASS:
        p_slot->traffic_class = action.traffic_class;
        break;
    case TARN_FILTER_ACTION_NAT_POOL:
        p_slot->nat_pool_id = action.nat_pool_id;
        break;
    case TARN_FILTER_ACTION_BACKUP_PREFERRED_COLOR:
        p_slot->backup_preferred_color = action.backup_preferred_color;
        break;
    default:
        break;
    }
}

static void fill_detail(t_tarn_filter_action *p_slot, const t_tarn_config_action &action, uint32_t rule_id)
{
    switch (action.fwding_action) {
    case TARN_FILTER_ACTION_TLOC:
        set_tloc(&p_slot->tloc[0], action.tloc_config[0]);
        break;
    case TARN_FILTER_ACTION_TLOC_LIST:
        spread_tlocs(action, p_slot->tloc);
        break;
    case TARN_FILTER_ACTION_TLOC_WITH_COLOR_ENCAP:
        p_slot->tloc_color_encap = {action.tloc_color_encap.color, action.tloc_color_encap.encap};
        break;
    case TARN_FILTER_ACTION_LOCAL_TLOC_LIST:
        set_local_tlocs(&p_slot->local_tloc_list, action.local_tloc_list);
        break;
    case TARN_FILTER_ACTION_MIRROR:
        set_mirror(&p_slot->mirror_info, action.mirror_config);
        break;
    case TARN_FILTER_ACTION_POLICE:
        set_policer(&p_slot->policer, action.policer, rule_id);
        break;
    case TARN_FILTER_ACTION_COUNT:
        lum_strlcpy(p_slot->counter.name, action.counter, sizeof(p_slot->counter.name));
        break;
    case TARN_FILTER_ACTION_NEXT_HOP:
        set_address(&p_slot->nh_ip_addr, action.nh_ip_addr);
        break;
    case TARN_FILTER_ACTION_REDIRECT_DNS:
        set_address(&p_slot->redirect_dns_nh_addr, action.redirect_dns_nh_addr);
        break;
    case TARN_FILTER_ACTION_SLA_CLASS:
        tarn_sla_class_fill(&p_slot->sla_class, &action.sla_class);
        break;
    default:
        fill_number(p_slot, action);
        break;
    }
}

static bool waits_for_class(const t_tarn_config_action &action)
{
    return action.fwding_action == TARN_FILTER_ACTION_CLASS && action.fc.ignore;
}

// The forwarding plane polices before all else and looks for the policer right behind the base action.
static void fill_slots(t_tarn_filter_action (&slots)[MAX_ACTIONS_IN_RULE], const t_tarn_config_rule &rule)
{
    uint32_t count = 0;
    uint32_t police = 0;
    for (t_dlnode *p_node = rule.action_list.p_head; p_node != nullptr; p_node = p_node->p_next) {
        const auto &action = *DLL_RECORD(p_node, t_tarn_config_action, dlnode);
        if (waits_for_class(action))
            continue;
        LUM_ASSERT(count < MAX_ACTIONS_IN_RULE, "i <= MAX_ACTIONS_IN_RULE");
        slots[count].action = action.action;
        slots[count].fwding_action = action.fwding_action;
        fill_detail(&slots[count], action, rule.key.id);
        if (action.fwding_action == TARN_FILTER_ACTION_POLICE && count >= 2)
            police = count;
        count++;
    }
    if (police != 0)
        std::swap(slots[police], slots[1]);
}

int tarn_process_rule(t_tarn *p_tarn, t_tarn_rule *p_rule, const t_tarn_config_rule *p_config_rule)
{
    add_fields(p_tarn->p_context, p_rule, *p_config_rule);
    LUM_ASSERT(p_config_rule->action_list.p_head, "p_config_action");
    t_tarn_filter_action slots[MAX_ACTIONS_IN_RULE] = {};
    static_assert(sizeof(slots) == TARN_ACTION_DATA_SIZE);
    fill_slots(slots, *p_config_rule);
    tarn_create_action(p_rule, sizeof(slots), slots);
    return 0;
}
