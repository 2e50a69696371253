// A packet's way through the filters that are bound where it is, and between zones.
#include "lab/fp/fp_service_private.h"

#include <algorithm>
#include <nlohmann/json.hpp>

// ---- The way ----

// A packet on its way.
struct t_way {
    t_fp_service *p_service;
    const t_fp_place &place;
    const f_fp_stage_seen &seen;
    t_fp_use use;
    t_fp_header header;  // as it is rewritten
    uint32_t hash;       // of its flow
    t_fp_fate fate;
};

static bool is_dropped(const t_fp_fate &fate)
{
    return fate.rejected || fate.policer_drop;
}

static void stage_note(t_way *p_way, e_fp_stage stage)
{
    p_way->fate.num_stages++;
    p_way->fate.last = stage;
}

// Executes the stage's filter and notes all but whether the packet is rejected.
static t_fp_outcome filter_run(t_way *p_way, const t_fp_stage &stage)
{
    p_way->use.filter_id = stage.filter_id;
    t_fp_outcome outcome = fp_engine_run(p_way->p_service->engine.get(), p_way->use);
    fp_filter_stats_count(&p_way->p_service->forwarding.stages[stage.stage], outcome, p_way->use.bytes);
    fp_treatment_add(&p_way->fate.treatment, outcome, p_way->hash);
    stage_note(p_way, stage.stage);
    return outcome;
}

static void stage_end(t_way *p_way, bool is_rejected, bool policer_drop)
{
    p_way->fate.rejected = is_rejected;
    p_way->fate.policer_drop = policer_drop && !is_rejected;
    p_way->fate.treatment.dropped |= is_dropped(p_way->fate);
    if (!is_dropped(p_way->fate))
        fp_treatment_rewrite(p_way->fate.treatment, &p_way->header);
}

static void binding_meet(t_way *p_way, const t_fp_stage &stage)
{
    t_fp_outcome outcome = filter_run(p_way, stage);
    p_way->seen({stage, &outcome, nullptr});
    stage_end(p_way, outcome.decision == FP_DECISION_REJECT, outcome.policer_drop);
}

// ---- Zones ----

static uint32_t out_vpn_of(const t_way &way)
{
    if (way.place.out_vpn)
        return *way.place.out_vpn;
    bool is_nat = fp_treatment_has(way.fate.treatment, TARN_FILTER_ACTION_NAT);
    return is_nat ? way.fate.treatment.nat_vrid : way.place.vpn;
}

static bool is_let_pass(const t_fp_outcome &outcome)
{
    return outcome.plain_action == TARN_FILTER_ACTION_ACCEPT ||
           outcome.plain_action == TARN_FILTER_ACTION_INSPECT;
}

// Whether the packet answers a flow whose zones still have a pair.
static void flow_look_up(t_way *p_way, const t_fp_inspected_key &key, t_fp_zone_case *p_zone)
{
    bool may_answer = p_zone->src_zone && p_zone->dst_zone &&
                      fp_zone_pair_of(p_way->p_service->zones, *p_zone->dst_zone, *p_zone->src_zone);
    if (!may_answer)
        return;
    const t_fp_inspected *p_flow = fp_flows_answer(&p_way->p_service->flows, key, p_way->use.now);
    if (p_flow == nullptr)
        return;
    p_zone->ruling = FP_ZONE_FLOW;
    p_zone->flow_pair_id = p_flow->pair_id;
    p_zone->is_passed = true;
}

// The filter of the pair decides. True when it inspects the packet and lets it pass.
static bool pair_meet(t_way *p_way, t_fp_zone_case *p_zone)
{
    t_fp_stage stage = {FP_STAGE_ZONE, p_zone->pair->filter_id, nullptr};
    t_fp_outcome outcome = filter_run(p_way, stage);
    bool is_passed = is_let_pass(outcome);
    p_zone->is_passed = is_passed && !outcome.policer_drop;
    p_way->seen({stage, &outcome, p_zone});
    stage_end(p_way, !is_passed, outcome.policer_drop);
    return p_zone->is_passed && outcome.plain_action == TARN_FILTER_ACTION_INSPECT;
}

// What stands between the zones of the packet's VPNs. The pair under which its flow is to be opened, or none.
static std::optional<uint32_t> zones_meet(t_way *p_way, const t_fp_inspected_key &key)
{
    t_fp_service *p_service = p_way->p_service;
    t_fp_zone_case zone = fp_zone_judge(p_service->zones, key.src_vpn, key.dst_vpn);
    flow_look_up(p_way, key, &zone);
    bool is_inspected = false;
    if (zone.ruling == FP_ZONE_PAIR) {
        is_inspected = pair_meet(p_way, &zone);
        if (p_way->fate.rejected)
            fp_flows_close(&p_service->flows, key);
    } else if (zone.ruling != FP_ZONE_NOT_MET) {
        stage_note(p_way, FP_STAGE_ZONE);
        p_way->seen({{FP_STAGE_ZONE, UINT32_MAX, nullptr}, nullptr, &zone});
        stage_end(p_way, !zone.is_passed, false);
    }
    fp_zone_count(&p_service->zone_stats, zone);
    return is_inspected ? std::optional(zone.pair->pair_id) : std::nullopt;
}

// ---- The whole way ----

static void way_go(t_way *p_way)
{
    t_fp_service *p_service = p_way->p_service;
    t_fp_header came = p_way->header;
    std::vector<t_fp_stage> stages = fp_bindings_lookup(p_service->bindings, p_way->place);
    auto egress = std::find_if(stages.begin(), stages.end(),
                               [](const t_fp_stage &stage) { return stage.stage == FP_STAGE_EGRESS_LIST; });
    for (auto stage = stages.begin(); stage != egress && !is_dropped(p_way->fate); ++stage)
        binding_meet(p_way, *stage);
    if (is_dropped(p_way->fate))
        return;
    t_fp_inspected_key key = fp_flow_key_of(came, p_way->place, out_vpn_of(*p_way));
    std::optional<uint32_t> flow_pair_id = zones_meet(p_way, key);
    if (!is_dropped(p_way->fate) && egress != stages.end())
        binding_meet(p_way, *egress);
    if (flow_pair_id && !is_dropped(p_way->fate))
        fp_flows_open(&p_service->flows, key, *flow_pair_id, p_way->use.now);
}

t_fp_fate fp_forward_run(t_fp_service *p_service, const t_fp_place &place, const t_fp_use &use,
                         const f_fp_stage_seen &seen)
{
    t_way way = {p_service, place, seen, use, *use.p_header, fp_flow_hash(*use.p_header, place.vpn), {}};
    way.use.p_header = &way.header;
    way.fate.treatment = fp_treatment_begin(way.header);
    way_go(&way);
    fp_treatment_count(&p_service->treatments, way.fate.treatment);
    fp_forward_count(&p_service->forwarding, way.fate, use.bytes);
    return way.fate;
}

void fp_forward_count(t_fp_forward_stats *p_stats, const t_fp_fate &fate, uint32_t bytes)
{
    p_stats->packets++;
    p_stats->bytes += bytes;
    p_stats->rejected += fate.rejected;
    p_stats->policer_drops += fate.policer_drop;
    p_stats->accepted += !fate.rejected && !fate.policer_drop;
    p_stats->unbound += fate.num_stages == 0;
}

// ---- Answers ----

fp_json fp_place_json(const t_fp_place &place)
{
    fp_json json = {{"vpn", place.vpn},
                    {"interface", place.interface},
                    {"direction", fp_interface_direction_name(place.direction)},
                    {"from", fp_side_name(place.side)}};
    if (place.out_vpn)
        json["out-vpn"] = *place.out_vpn;
    if (!place.out_interface.empty())
        json["out-interface"] = place.out_interface;
    return json;
}

fp_json fp_stage_json(const t_fp_seen &seen)
{
    fp_json json = {{"stage", fp_stage_name(seen.stage.stage)}};
    if (seen.stage.p_name != nullptr)
        json["name"] = *seen.stage.p_name;
    if (seen.p_zone != nullptr)
        json.update(fp_zone_case_json(*seen.p_zone));
    if (seen.p_outcome != nullptr)
        json.update(fp_verdict_json(*seen.p_outcome));
    else
        json["verdict"] = seen.p_zone->is_passed ? "accept" : "reject";
    if (seen.p_zone != nullptr)
        json["dropped"] = !seen.p_zone->is_passed;
    return json;
}

static const char *fate_name(const t_fp_fate &fate)
{
    if (fate.rejected)
        return "reject";
    return fate.policer_drop ? "policer-drop" : "accept";
}

fp_json fp_fate_json(const t_fp_fate &fate, const fp_json &stages)
{
    bool dropped = is_dropped(fate);
    fp_json json = {{"verdict", fate_name(fate)}, {"dropped", dropped}};
    if (dropped)
        json["dropped-by"] = fp_stage_name(fate.last);
    json["plp"] = fate.treatment.plp_high ? "high" : "low";
    json["stages"] = stages;
    json["treatment"] = fp_treatment_json(fate.treatment);
    return json;
}

fp_json fp_forward_answer(t_fp_service *p_service, const t_fp_request &request)
{
    t_fp_use use = {.filter_id = 0,
                    .p_header = &request.header,
                    .bytes = request.header.values[tarn_ip_pkt_len],
                    .now = fp_clock_now(&p_service->clock)};
    fp_json stages = fp_json::array();
    auto seen = [&stages](const t_fp_seen &stage) { stages.push_back(fp_stage_json(stage)); };
    t_fp_fate fate = fp_forward_run(p_service, request.place, use, seen);
    fp_json answer = {{"ok", true}, {"request", "forward"}};
    answer.update(fp_place_json(request.place));
    answer["family"] = fp_family_name(request.place.family);
    answer.update(fp_fate_json(fate, stages));
    return answer;
}

fp_json fp_forward_counts_json(const t_fp_forward_stats &stats)
{
    return {{"packets", stats.packets},
            {"bytes", stats.bytes},
            {"accepted", stats.accepted},
            {"rejected", stats.rejected},
            {"policer-drops", stats.policer_drops},
            {"unbound", stats.unbound}};
}

fp_json fp_forward_stats_json(const t_fp_forward_stats &stats)
{
    fp_json json = fp_forward_counts_json(stats);
    json["by-stage"] = fp_json::array();
    for (size_t i = 0; i < FP_STAGES; i++) {
        fp_json row = {{"stage", fp_stage_name(static_cast<e_fp_stage>(i))}};
        row.update(fp_counts_json(stats.stages[i]));
        json["by-stage"].push_back(row);
    }
    return json;
}
