// The text of action slots, the same in the daemon's dumps and in the tools.
#include "common/cli_print.h"
#include "tarnd/compiler/tarn_program.h"

#include <cstring>

namespace {

struct t_printer {
    t_lconfd_context *ctx;
    int usid;
};

}  // namespace

static void print_address(const t_printer &out, const char *label, const t_fp_ipaddr &addr)
{
    char text[64];
    fp_ipaddr_print_to_buf(&addr, text, sizeof(text));
    cli_print(out.ctx, out.usid, "\t%s: %s\n", label, text);
}

// A mirror's IPv4 word is in network order.
static void print_mirror_address(const t_printer &out, const char *label, const t_fp_ipaddr *p_addr)
{
    t_fp_ipaddr addr;
    memcpy(&addr, p_addr, sizeof(addr));
    if (addr.addr_type == FP_AF_INET)
        fp_ipaddr_set_v4(&addr, __builtin_bswap32(fp_ipaddr_v4(&addr)));
    print_address(out, label, addr);
}

static void print_tloc(const t_printer &out, const t_tarn_hw_tloc &tloc)
{
    cli_print(out.ctx, out.usid, "\tresolved: %d\n", tloc.resolved);
    cli_print(out.ctx, out.usid, "\tvpn-label: %d\n", static_cast<int>(tloc.vpn_label));
    cli_print(out.ctx, out.usid, "\ttloc-index: %d\n", tloc.tloc_index);
}

static void print_policer(const t_printer &out, const t_fp_policer &policer)
{
    char name[FP_POLICER_NAME_SIZE + 1] = {};
    memcpy(name, policer.name, FP_POLICER_NAME_SIZE);
    auto number = [&](const char *label, uint64_t value) {
        cli_print(out.ctx, out.usid, "\t%11s %#016lx\n", label, static_cast<unsigned long>(value));
    };
    uint8_t active = policer.version & 1;
    cli_print(out.ctx, out.usid, "\t%11s %s\n", "name:", name);
    number("rate:", policer.rate);
    number("burst:", policer.burst);
    cli_print(out.ctx, out.usid, "\t%11s %s\n",
              "oob-action:", policer.oob_action != FP_POLICER_ACTION_DROP ? "plp-high" : "drop");
    number("Last Seen:", policer.last_sent_ticks);
    number("Tokens:", policer.available_tokens);
    number("Drops:", static_cast<uint64_t>(policer.oob_pkts[active]));
    number("Bytes:", static_cast<uint64_t>(policer.oob_bytes[active]));
}

static void print_sla_class(const t_printer &out, const t_tarn_sla_class_info &info)
{
    cli_print(out.ctx, out.usid, "\tprimary: %d\n", info._primary);
    cli_print(out.ctx, out.usid, "\tbackup: %d\n", info._backup);
    cli_print(out.ctx, out.usid, "\tpreferred_color: 0x%x\n", info.preferred_color);
}

static void print_counter(const t_printer &out, const t_tarn_counter &counter)
{
    char name[TARN_COUNTER_NAME_SIZE + 1] = {};
    memcpy(name, counter.name, TARN_COUNTER_NAME_SIZE);
    cli_print(out.ctx, out.usid, "  %s\n", name);
}

static void print_local_tlocs(const t_printer &out, const t_tarn_hw_local_tloc_list &list)
{
    cli_print(out.ctx, out.usid, "\tColor Mask: 0x%x, Encap Mask: 0x%x, Restrict: %s\n", list.color_mask,
              list.encap_mask, list.restrict1 ? "Yes" : "No");
}

// Text of the forwarding actions that have no parameters; null for the others.
static const char *plain_detail(uint32_t fwding_action)
{
    switch (fwding_action) {
    case TARN_FILTER_ACTION_LOG:
        return "\tLog\n";
    case TARN_FILTER_ACTION_SVC_LOCAL:
        return "\tSvc-Local\n";
    case TARN_FILTER_ACTION_SVC_LOCAL_STRICT:
        return "\tSvc-Local-Strict\n";
    case TARN_FILTER_ACTION_TCP_OPTIMIZATION:
        return "\tTCP Optimization \n";
    case TARN_FILTER_ACTION_FALLBACK:
        return "\tFallback\n";
    // These two texts are the reverse of the action names, and operators' tools know them so.
    case TARN_FILTER_ACTION_FEC_ADAPTIVE:
        return "\tFEC Always\n";
    case TARN_FILTER_ACTION_FEC_ALWAYS:
        return "\tFEC Adaptive\n";
    case TARN_FILTER_ACTION_PKT_DUP:
        return "\tPkt Dup\n";
    default:
        return nullptr;
    }
}

// Details that are one number.
static void print_number(const t_printer &out, const t_tarn_filter_action &slot)
{
    switch (slot.fwding_action) {
    case TARN_FILTER_ACTION_CLASS:
        cli_print(out.ctx, out.usid, "  %d\n", slot._class);
        break;
    case TARN_FILTER_ACTION_NAT:
        cli_print(out.ctx, out.usid, "\tnat use-vpn (vrid): %u\n", unsigned{slot.nat_vrid});
        break;
    case TARN_FILTER_ACTION_DSCP:
        cli_print(out.ctx, out.usid, "\tdscp: %u\n", unsigned{slot.dscp});
        break;
    case TARN_FILTER_ACTION_SVC_TYPE:
        cli_print(out.ctx, out.usid, "\tsvc-type: %d\n", slot.svc_type);
        break;
    case TARN_FILTER_ACTION_NAT_POOL:
        cli_print(out.ctx, out.usid, "\tnat pool-id: %u\n", slot.nat_pool_id);
        break;
    case TARN_FILTER_ACTION_BACKUP_PREFERRED_COLOR:
        cli_print(out.ctx, out.usid, "\tBackup preferred color: 0x%x\n", slot.backup_preferred_color);
        break;
    case TARN_FILTER_ACTION_TRAFFIC_CLASS:
        cli_print(out.ctx, out.usid, "\tTraffic-Class: %u\n", unsigned{slot.traffic_class});
        break;
    default:
        break;
    }
}

// Details that are a record.
static void print_record(const t_printer &out, const t_tarn_filter_action &slot)
{
    switch (slot.fwding_action) {
    case TARN_FILTER_ACTION_TLOC:
        print_tloc(out, slot.tloc[0]);
        break;
    case TARN_FILTER_ACTION_TLOC_LIST:
        for (const t_tarn_hw_tloc &tloc : slot.tloc)
            print_tloc(out, tloc);
        break;
    case TARN_FILTER_ACTION_TLOC_WITH_COLOR_ENCAP:
        cli_print(out.ctx, out.usid, "\tcolor: 0x%x\n", slot.tloc_color_encap.color);
        cli_print(out.ctx, out.usid, "\tencap: 0x%x\n", slot.tloc_color_encap.encap);
        break;
    case TARN_FILTER_ACTION_MIRROR:
        print_mirror_address(out, "src-ip", &slot.mirror_info.tunnel.src_ip);
        print_mirror_address(out, "dst-ip", &slot.mirror_info.tunnel.dst_ip);
        break;
    case TARN_FILTER_ACTION_POLICE:
        print_policer(out, slot.policer);
        break;
    case TARN_FILTER_ACTION_COUNT:
        print_counter(out, slot.counter);
        break;
    case TARN_FILTER_ACTION_NEXT_HOP:
        print_address(out, "next-hop", slot.nh_ip_addr);
        break;
    case TARN_FILTER_ACTION_SLA_CLASS:
        print_sla_class(out, slot.sla_class);
        break;
    case TARN_FILTER_ACTION_LOCAL_TLOC_LIST:
        print_local_tlocs(out, slot.local_tloc_list);
        break;
    case TARN_FILTER_ACTION_REDIRECT_DNS:
        print_address(out, "Redirect DNS next-hop", slot.redirect_dns_nh_addr);
        break;
    default:
        print_number(out, slot);
        break;
    }
}

void tarn_oct_filter_action_print(t_lconfd_context *ctx, int usid, const t_tarn_filter_action *p_action)
{
    const char *text = plain_detail(p_action->fwding_action);
    if (text != nullptr)
        cli_print(ctx, usid, "%s", text);
    else
        print_record({ctx, usid}, *p_action);
}

void ftm_oct_filter_action_dump(t_lconfd_context *ctx, int usid, const void *action_data)
{
    const auto *p_slots = static_cast<const t_tarn_filter_action *>(action_data);
    for (uint32_t i = 0; i < MAX_ACTIONS_IN_RULE; i++) {
        const t_tarn_filter_action &slot = p_slots[i];
        if (slot.fwding_action != 0) {
            cli_print(ctx, usid, "%s\n", tarn_filter_action_str(slot.fwding_action));
            tarn_oct_filter_action_print(ctx, usid, &slot);
        } else if (slot.action != 0) {
            cli_print(ctx, usid, "%s\n", tarn_filter_action_str(slot.action));
        }
    }
}
