#include "lab/fp/fp_verdict.h"

#include "lab/fp/fp_actions.h"
#include "lab/fp/fp_bindings.h"

#include <algorithm>
#include <cstring>
#include <nlohmann/json.hpp>
#include <string_view>

// ---- Values ----

static std::string text_of(const char *p_text, size_t size)
{
    return std::string(p_text, strnlen(p_text, size));
}

std::string fp_address_text(t_fp_ipaddr address)
{
    char text[128];
    fp_ipaddr_print_to_buf(&address, text, sizeof(text));
    return text;
}

static std::string tunnel_address_text(t_fp_ipaddr address)
{
    if (FP_IPADDR_IS_V4(&address))
        FP_IPADDR_SET_V4(&address, __builtin_bswap32(fp_ipaddr_v4(&address)));
    return fp_address_text(address);
}

fp_json fp_tloc_json(const t_tarn_hw_tloc &tloc)
{
    return {{"resolved", tloc.resolved != 0},
            {"tloc-index", tloc.tloc_index},
            {"vpn-label", tloc.vpn_label},
            {"vpn", tloc.vpn_id}};
}

fp_json fp_mirror_json(const t_tarn_mirror_info &mirror)
{
    return {{"type", static_cast<uint32_t>(mirror.mirror_type)},
            {"interface", text_of(mirror.intf_name, sizeof(mirror.intf_name))},
            {"source", tunnel_address_text(mirror.tunnel.src_ip)},
            {"destination", tunnel_address_text(mirror.tunnel.dst_ip)},
            {"copies", fp_mirror_copies(mirror)}};
}

// ---- One writer for each kind of action ----

static void write_tloc(const t_tarn_filter_action &slot, fp_json *p_json)
{
    p_json->update(fp_tloc_json(slot.tloc[0]));
}

static void write_tloc_list(const t_tarn_filter_action &slot, fp_json *p_json)
{
    fp_json list = fp_json::array();
    for (const t_tarn_hw_tloc &tloc : slot.tloc)
        list.push_back(fp_tloc_json(tloc));
    (*p_json)["tlocs"] = list;
}

static void write_color_encap(const t_tarn_filter_action &slot, fp_json *p_json)
{
    (*p_json)["color"] = slot.tloc_color_encap.color;
    (*p_json)["encap"] = slot.tloc_color_encap.encap;
}

static void write_mirror(const t_tarn_filter_action &slot, fp_json *p_json)
{
    p_json->update(fp_mirror_json(slot.mirror_info));
}

static void write_policer(const t_tarn_filter_action &slot, fp_json *p_json)
{
    const t_fp_policer &policer = slot.policer;
    size_t active = policer.version & 1;
    (*p_json)["name"] = text_of(policer.name, sizeof(policer.name));
    (*p_json)["rate"] = policer.rate;
    (*p_json)["burst"] = policer.burst;
    (*p_json)["tokens"] = policer.available_tokens;
    (*p_json)["oob-action"] = policer.oob_action == FP_POLICER_ACTION_DROP ? "drop" : "plp-high";
    (*p_json)["oob-packets"] = policer.oob_pkts[active];
    (*p_json)["oob-bytes"] = policer.oob_bytes[active];
}

static void write_counter(const t_tarn_filter_action &slot, fp_json *p_json)
{
    const t_tarn_counter &counter = slot.counter;
    size_t active = counter.version & 1;
    (*p_json)["name"] = text_of(counter.name, sizeof(counter.name));
    (*p_json)["packets"] = counter.pkts[active];
    (*p_json)["bytes"] = counter.bytes[active];
}

static void write_class(const t_tarn_filter_action &slot, fp_json *p_json)
{
    (*p_json)["class"] = slot._class;
}

static void write_next_hop(const t_tarn_filter_action &slot, fp_json *p_json)
{
    (*p_json)["next-hop"] = fp_address_text(slot.nh_ip_addr);
}

static void write_nat(const t_tarn_filter_action &slot, fp_json *p_json)
{
    (*p_json)["vrid"] = slot.nat_vrid;
}

static void write_sla_class(const t_tarn_filter_action &slot, fp_json *p_json)
{
    (*p_json)["primary"] = slot.sla_class._primary;
    (*p_json)["backup"] = slot.sla_class._backup;
    (*p_json)["preferred-color"] = slot.sla_class.preferred_color;
}

static void write_dscp(const t_tarn_filter_action &slot, fp_json *p_json)
{
    (*p_json)["dscp"] = slot.dscp;
}

static void write_svc_type(const t_tarn_filter_action &slot, fp_json *p_json)
{
    (*p_json)["svc-type"] = slot.svc_type;
}

static void write_nat_pool(const t_tarn_filter_action &slot, fp_json *p_json)
{
    (*p_json)["pool-id"] = slot.nat_pool_id;
}

static void write_backup_color(const t_tarn_filter_action &slot, fp_json *p_json)
{
    (*p_json)["color"] = slot.backup_preferred_color;
}

static void write_traffic_class(const t_tarn_filter_action &slot, fp_json *p_json)
{
    (*p_json)["traffic-class"] = slot.traffic_class;
}

static void write_local_tlocs(const t_tarn_filter_action &slot, fp_json *p_json)
{
    (*p_json)["color-mask"] = slot.local_tloc_list.color_mask;
    (*p_json)["encap-mask"] = slot.local_tloc_list.encap_mask;
    (*p_json)["restrict"] = slot.local_tloc_list.restrict1 != 0;
}

static void write_redirect_dns(const t_tarn_filter_action &slot, fp_json *p_json)
{
    (*p_json)["next-hop"] = fp_address_text(slot.redirect_dns_nh_addr);
}

namespace {

struct t_writer {
    uint32_t action;
    void (*p_write)(const t_tarn_filter_action &slot, fp_json *p_json);  // adds the details
};

}  // namespace

static constexpr t_writer writers[] = {
    {TARN_FILTER_ACTION_TLOC, write_tloc},
    {TARN_FILTER_ACTION_TLOC_WITH_COLOR_ENCAP, write_color_encap},
    {TARN_FILTER_ACTION_MIRROR, write_mirror},
    {TARN_FILTER_ACTION_POLICE, write_policer},
    {TARN_FILTER_ACTION_COUNT, write_counter},
    {TARN_FILTER_ACTION_CLASS, write_class},
    {TARN_FILTER_ACTION_NEXT_HOP, write_next_hop},
    {TARN_FILTER_ACTION_NAT, write_nat},
    {TARN_FILTER_ACTION_SLA_CLASS, write_sla_class},
    {TARN_FILTER_ACTION_TLOC_LIST, write_tloc_list},
    {TARN_FILTER_ACTION_DSCP, write_dscp},
    {TARN_FILTER_ACTION_SVC_TYPE, write_svc_type},
    {TARN_FILTER_ACTION_NAT_POOL, write_nat_pool},
    {TARN_FILTER_ACTION_BACKUP_PREFERRED_COLOR, write_backup_color},
    {TARN_FILTER_ACTION_TRAFFIC_CLASS, write_traffic_class},
    {TARN_FILTER_ACTION_LOCAL_TLOC_LIST, write_local_tlocs},
    {TARN_FILTER_ACTION_REDIRECT_DNS, write_redirect_dns},
};

// ---- The verdict ----

std::string fp_action_name(uint32_t action)
{
    if (action == TARN_FILTER_ACTION_SSL_OPTIMIZATION)
        return "ssl-optimization";
    if (action == TARN_FILTER_ACTION_INSPECT)
        return "inspect";
    std::string_view name = tarn_filter_action_str(action);
    return name != "-" ? std::string(name) : "action-" + std::to_string(action);
}

std::string fp_decision_name(e_fp_decision decision, uint32_t plain_action)
{
    if (decision == FP_DECISION_NO_PROGRAM)
        return "no-program";
    return decision == FP_DECISION_NONE ? "none" : fp_action_name(plain_action);
}

static fp_json action_json(const t_fp_outcome &outcome, const t_fp_executed &executed)
{
    static constexpr const char *police_names[] = {"in-bounds", "marked", "dropped"};
    const t_tarn_filter_action &slot = outcome.p_slots[executed.slot];
    uint32_t action = slot.fwding_action;
    fp_json json = {{"slot", executed.slot}, {"action", fp_action_name(action)}};
    auto found = std::find_if(std::begin(writers), std::end(writers),
                              [action](const t_writer &writer) { return writer.action == action; });
    if (found != std::end(writers))
        found->p_write(slot, &json);
    if (action == TARN_FILTER_ACTION_POLICE)
        json["packet"] = police_names[executed.police];
    return json;
}

fp_json fp_verdict_json(const t_fp_outcome &outcome)
{
    fp_json json = {{"filter", fp_filter_shown(outcome.filter_id)},
                    {"verdict", fp_decision_name(outcome.decision, outcome.plain_action)}};
    if (outcome.p_error != nullptr) {
        json["reason"] = *outcome.p_error;
        return json;
    }
    json["program"] = *outcome.p_name;
    json["dropped"] = outcome.decision == FP_DECISION_REJECT || outcome.policer_drop;
    json["plp"] = outcome.plp_high || outcome.came_high ? "high" : "low";
    json["default"] = outcome.is_default;
    if (outcome.record != FP_NO_RECORD)
        json["record"] = outcome.record;
    json["actions"] = fp_json::array();
    for (uint32_t i = 0; i < outcome.num_executed; i++)
        json["actions"].push_back(action_json(outcome, outcome.executed[i]));
    return json;
}
