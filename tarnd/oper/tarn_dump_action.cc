// One action of a rule as text.
#include "tarnd/oper/tarn_dump_private.h"
#include "tarnd/peers/tarn_ttm.h"

static void dump_color_encap(const t_tarn_dump &dump, const t_tarn_tloc_color_encap &masks)
{
    char colors[TARN_MASK_TEXT_SIZE];
    char encaps[TARN_MASK_TEXT_SIZE];
    tarn_dump_color_mask(masks.color, colors);
    tarn_dump_encap_mask(masks.encap, encaps);
    DUMP(dump, "                 TLOC_C/E: color: 0x%x %s encap: 0x%x %s\n", masks.color, colors, masks.encap,
         encaps);
}

static void dump_tloc(const t_tarn_dump &dump, const t_tarn_tloc_config &config)
{
    DUMP(dump, "                 TLOC: vpn-label: %d preference: %d vpn-id: %d\n",
         static_cast<int>(config.vpn_label), static_cast<int>(config.preference), config.vpn_id);
    DUMP(dump, "                 tloc: %s tloc-index: %d\n", tarn_dump_tloc_id(config.tloc->tloc).text,
         config.tloc->tloc_index);
}

static void dump_tloc_list(const t_tarn_dump &dump, const t_tarn_config_action &action)
{
    DUMP(dump, "                 TLOC-List\n");
    for (uint32_t i = 0; i < action.num_tlocs; i++) {
        const t_tarn_tloc_config &config = action.tloc_config[i];
        DUMP(dump, "                 TLOC: %s Label: %u preference: %u vpn-id: %d\n",
             tarn_dump_tloc_id(config.tloc->tloc).text, config.vpn_label, config.preference, config.vpn_id);
    }
}

static void dump_sla_class(const t_tarn_dump &dump, const t_tarn_action_sla_class &sla_class)
{
    char colors[TARN_MASK_TEXT_SIZE];
    tarn_dump_color_mask(sla_class.preferred_color, colors);
    DUMP(dump, "                 SLA name: %s id: %d strict: %d preferred-color: 0x%x %s\n", sla_class.name,
         sla_class.id, sla_class.strict, sla_class.preferred_color, colors);
}

static void dump_local_tloc_list(const t_tarn_dump &dump, const t_tarn_local_tloc_list &list)
{
    char colors[TARN_MASK_TEXT_SIZE];
    char encaps[TARN_MASK_TEXT_SIZE];
    tarn_dump_color_mask(list.color_mask, colors);
    tarn_dump_encap_mask(list.encap_mask, encaps);
    DUMP(dump, "                 Color Mask: 0x%x %s, Encap Mask: 0x%x %s, Restrict: %s\n", list.color_mask,
         colors, list.encap_mask, encaps, list.restrict1 ? "Yes" : "No");
}

static void dump_backup_color(const t_tarn_dump &dump, uint32_t mask)
{
    char colors[TARN_MASK_TEXT_SIZE];
    tarn_dump_color_mask(mask, colors);
    DUMP(dump, "                 Backup preferred color: 0x%x %s\n", mask, colors);
}

static void dump_police(const t_tarn_dump &dump, const t_tarn_policer_key &key)
{
    DUMP(dump, "                 Police: %d.%s Type: %d Policy Name: %s\n", key.sequence_id, key.name,
         static_cast<int>(key.type), key.policy_name);
}

// The line of an action without parameters; null for the others.
static const char *plain_line(uint32_t fwding_action)
{
    switch (fwding_action) {
    case TARN_FILTER_ACTION_LOG:
        return "Log";
    case TARN_FILTER_ACTION_SVC_LOCAL:
        return "Svc-Local";
    case TARN_FILTER_ACTION_SVC_LOCAL_STRICT:
        return "Svc-Local-Strict";
    case TARN_FILTER_ACTION_TCP_OPTIMIZATION:
        return "TCP Optimization";
    case TARN_FILTER_ACTION_FEC_ADAPTIVE:
        return "Fec adaptive ";
    case TARN_FILTER_ACTION_FEC_ALWAYS:
        return "Fec always ";
    case TARN_FILTER_ACTION_PKT_DUP:
        return "Pkt dup ";
    case TARN_FILTER_ACTION_FALLBACK:
        return "Fallback";
    default:
        return nullptr;
    }
}

// Actions with one number, one name or one address. False for the others.
static bool dump_one_value(const t_tarn_dump &dump, const t_tarn_config_action &action)
{
    switch (action.fwding_action) {
    case TARN_FILTER_ACTION_MIRROR:
        DUMP(dump, "                 Mirror: name: %s\n", action.mirror_config.key.name);
        return true;
    case TARN_FILTER_ACTION_COUNT:
        DUMP(dump, "                 Counter: %s\n", action.counter);
        return true;
    case TARN_FILTER_ACTION_CLASS:
        DUMP(dump, "                 Class: %s [%d]\n", action.fc.name, action.fc._class);
        return true;
    case TARN_FILTER_ACTION_NEXT_HOP:
        DUMP(dump, "                 Next-hop: %s\n", tarn_dump_address(action.nh_ip_addr).text);
        return true;
    case TARN_FILTER_ACTION_NAT:
        DUMP(dump, "                 NAT use-vpn (vrid): %u\n", action.nat_vrid);
        return true;
    case TARN_FILTER_ACTION_DSCP:
        DUMP(dump, "                 DSCP: %u\n", action.dscp);
        return true;
    case TARN_FILTER_ACTION_SVC_TYPE:
        DUMP(dump, "                 Svc-type: %u\n", action.svc_type);
        return true;
    case TARN_FILTER_ACTION_NAT_POOL:
        DUMP(dump, "                 Nat-Pool id: %u\n", action.nat_pool_id);
        return true;
    case TARN_FILTER_ACTION_TRAFFIC_CLASS:
        DUMP(dump, "                 Traffic-Class: %u\n", action.traffic_class);
        return true;
    case TARN_FILTER_ACTION_REDIRECT_DNS:
        DUMP(dump, "                 Redirect DNS NH: %s\n",
             tarn_dump_address(action.redirect_dns_nh_addr).text);
        return true;
    default:
        return false;
    }
}

// The others; actions that have nothing to tell print nothing.
static void dump_record(const t_tarn_dump &dump, const t_tarn_config_action &action)
{
    switch (action.fwding_action) {
    case TARN_FILTER_ACTION_TLOC:
        return dump_tloc(dump, action.tloc_config[0]);
    case TARN_FILTER_ACTION_TLOC_WITH_COLOR_ENCAP:
        return dump_color_encap(dump, action.tloc_color_encap);
    case TARN_FILTER_ACTION_POLICE:
        return dump_police(dump, action.policer.key);
    case TARN_FILTER_ACTION_SLA_CLASS:
        return dump_sla_class(dump, action.sla_class);
    case TARN_FILTER_ACTION_TLOC_LIST:
        return dump_tloc_list(dump, action);
    case TARN_FILTER_ACTION_BACKUP_PREFERRED_COLOR:
        return dump_backup_color(dump, action.backup_preferred_color);
    case TARN_FILTER_ACTION_LOCAL_TLOC_LIST:
        return dump_local_tloc_list(dump, action.local_tloc_list);
    default:
        return;
    }
}

void tarn_dump_action(t_lconfd_context *ctx, int usid, const t_tarn_config_action *p_action)
{
    const t_tarn_dump dump = {ctx, usid, nullptr};
    uint32_t named = p_action->fwding_action != 0 ? p_action->fwding_action : p_action->action;
    DUMP(dump, "            [%d/%d] %s type: %d tlocs: %u\n", static_cast<int>(p_action->action),
         static_cast<int>(p_action->fwding_action), tarn_filter_action_str(named),
         static_cast<int>(p_action->action_type), p_action->num_tlocs);
    const char *line = plain_line(p_action->fwding_action);
    if (line != nullptr)
        DUMP(dump, "                 %s\n", line);
    else if (!dump_one_value(dump, *p_action))
        dump_record(dump, *p_action);
}
