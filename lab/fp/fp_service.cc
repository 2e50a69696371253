#include "lab/fp/fp_service_private.h"

#include <nlohmann/json.hpp>

static fp_json filter_json(const t_fp_filter_info &info)
{
    fp_json json = {{"filter", info.filter_id},
                    {"valid", info.error.empty()},
                    {"hw-index", info.hw_index},
                    {"blocks", info.num_blocks},
                    {"activity", info.activity}};
    if (!info.error.empty()) {
        json["error"] = info.error;
        return json;
    }
    json["program"] = info.name;
    json["length"] = info.length;
    json["records"] = info.num_records;
    return json;
}

static fp_json load_answer(t_fp_service *p_service)
{
    fp_json filters = fp_json::array();
    for (const t_fp_filter_info &info : fp_engine_load(p_service->engine.get()))
        filters.push_back(filter_json(info));
    return {{"ok", true}, {"request", "load"}, {"filters", filters}};
}

t_fp_treated fp_filter_run(t_fp_service *p_service, const t_fp_use &use)
{
    t_fp_treated treated = {fp_engine_run(p_service->engine.get(), use), fp_treatment_begin(*use.p_header)};
    fp_treatment_add(&treated.treatment, treated.outcome, fp_flow_hash(*use.p_header, 0));
    fp_treatment_count(&p_service->treatments, treated.treatment);
    return treated;
}

fp_json fp_treated_json(const t_fp_treated &treated)
{
    fp_json json = fp_verdict_json(treated.outcome);
    json["treatment"] = fp_treatment_json(treated.treatment);
    return json;
}

static fp_json classify_answer(t_fp_service *p_service, const t_fp_request &request)
{
    t_fp_use use = {.filter_id = request.filter_id,
                    .p_header = &request.header,
                    .bytes = request.header.values[tarn_ip_pkt_len],
                    .now = fp_clock_now(&p_service->clock)};
    fp_json answer = {{"ok", true}, {"request", "classify"}};
    answer.update(fp_treated_json(fp_filter_run(p_service, use)));
    return answer;
}

fp_json fp_counts_json(const t_fp_filter_stats &stats)
{
    return {{"packets", stats.packets},
            {"bytes", stats.bytes},
            {"accepted", stats.accepted},
            {"rejected", stats.rejected},
            {"default", stats.defaults},
            {"no-program", stats.no_program},
            {"policer-drops", stats.policer_drops},
            {"policer-marks", stats.policer_marks}};
}

fp_json fp_frames_json(const t_fp_frame_stats &frames)
{
    return {{"frames", frames.frames},
            {"not-ip", frames.not_ip},
            {"truncated", frames.truncated},
            {"malformed", frames.malformed},
            {"fragments", frames.fragments}};
}

static fp_json stats_answer(const t_fp_service *p_service)
{
    fp_json answer = {{"ok", true}, {"request", "stats"}};
    answer.update(fp_counts_json(fp_engine_total(p_service->engine.get())));
    answer.update(fp_frames_json(p_service->frames));
    answer["treatments"] = fp_treatment_stats_json(p_service->treatments);
    answer["forwarding"] = fp_forward_stats_json(p_service->forwarding);
    answer["zones"] = fp_zone_stats_json(p_service->zone_stats);
    answer["filters"] = fp_json::array();
    uint32_t filter_id = 0;
    for (const t_fp_filter_stats &stats : fp_engine_stats(p_service->engine.get())) {
        fp_json row = {{"filter", filter_id++}};
        if (stats.packets == 0)
            continue;
        row.update(fp_counts_json(stats));
        answer["filters"].push_back(row);
    }
    return answer;
}

static fp_json bindings_answer(t_fp_service *p_service, const t_fp_request &request)
{
    if (request.has_bindings)
        p_service->bindings = request.bindings;
    fp_json answer = {{"ok", true}, {"request", "bindings"}};
    if (!request.has_bindings)
        answer.update(fp_bindings_json(p_service->bindings));
    return answer;
}

static fp_json zones_answer(const t_fp_service *p_service)
{
    fp_json answer = {{"ok", true}, {"request", "zones"}};
    answer.update(fp_zones_json(p_service->zones));
    return answer;
}

static fp_json flows_answer(t_fp_service *p_service)
{
    t_fp_clock *p_clock = &p_service->clock;
    fp_json answer = {{"ok", true}, {"request", "flows"}};
    answer.update(fp_flows_json(&p_service->flows, fp_clock_now(p_clock), p_clock->ticks_per_second));
    return answer;
}

static fp_json live_answer(const t_fp_service *p_service)
{
    return p_service->live ? p_service->live() : lab_answer_refusal("there is no live mode");
}

fp_json fp_service_answer(t_fp_service *p_service, const t_fp_request &request)
{
    switch (request.kind) {
    case FP_REQUEST_LOAD:
        return load_answer(p_service);
    case FP_REQUEST_CLASSIFY:
        return classify_answer(p_service, request);
    case FP_REQUEST_FORWARD:
        return fp_forward_answer(p_service, request);
    case FP_REQUEST_BINDINGS:
        return bindings_answer(p_service, request);
    case FP_REQUEST_STATS:
        return stats_answer(p_service);
    case FP_REQUEST_ZONES:
        return zones_answer(p_service);
    case FP_REQUEST_FLOWS:
        return flows_answer(p_service);
    case FP_REQUEST_LIVE:
        return live_answer(p_service);
    case FP_REQUEST_REPLAY:
        break;
    }
    return lab_answer_refusal("a replay runs in steps");
}
