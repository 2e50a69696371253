// A packet's way through the filters that are bound where it is.
#include "lab/fp/fp_service_private.h"

#include <nlohmann/json.hpp>

// ---- The way ----

t_fp_fate fp_forward_run(t_fp_service *p_service, const t_fp_place &place, t_fp_use use,
                         const f_fp_stage_seen &seen)
{
    t_fp_fate fate = {};
    t_fp_header header = *use.p_header;
    uint32_t hash = fp_flow_hash(header, place.vpn);
    use.p_header = &header;
    fate.treatment = fp_treatment_begin(header);
    for (const t_fp_stage &stage : fp_bindings_lookup(p_service->bindings, place)) {
        use.filter_id = stage.filter_id;
        t_fp_outcome outcome = fp_engine_run(p_service->engine.get(), use);
        fp_filter_stats_count(&p_service->forwarding.stages[stage.stage], outcome, use.bytes);
        fp_treatment_add(&fate.treatment, outcome, hash);
        seen(stage, outcome);
        fate.num_stages++;
        fate.last = stage.stage;
        fate.rejected = outcome.decision == FP_DECISION_REJECT;
        fate.policer_drop = outcome.policer_drop && !fate.rejected;
        if (fate.rejected || fate.policer_drop)
            break;
        fp_treatment_rewrite(fate.treatment, &header);
    }
    fp_treatment_count(&p_service->treatments, fate.treatment);
    fp_forward_count(&p_service->forwarding, fate, use.bytes);
    return fate;
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
    return {{"vpn", place.vpn},
            {"interface", place.interface},
            {"direction", fp_interface_direction_name(place.direction)},
            {"from", fp_side_name(place.side)}};
}

fp_json fp_stage_json(const t_fp_stage &stage, const t_fp_outcome &outcome)
{
    fp_json json = {{"stage", fp_stage_name(stage.stage)}, {"name", *stage.p_name}};
    json.update(fp_verdict_json(outcome));
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
    bool dropped = fate.rejected || fate.policer_drop;
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
    auto seen = [&stages](const t_fp_stage &stage, const t_fp_outcome &outcome) {
        stages.push_back(fp_stage_json(stage, outcome));
    };
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
