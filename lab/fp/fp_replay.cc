// Replaying a capture file through a filter, or through those bound at a place.
#include "lab/fp/fp_fields.h"
#include "lab/fp/fp_packet.h"
#include "lab/fp/fp_pcap.h"
#include "lab/fp/fp_service_private.h"

#include <algorithm>
#include <fstream>
#include <map>
#include <nlohmann/json.hpp>

struct t_record_hits {
    uint64_t packets;
    uint64_t bytes;
    uint64_t policer_drops;
    bool is_default;
    e_fp_decision decision;
    uint32_t plain_action;
};

// What came of the packets that met a filter.
struct t_filter_hits {
    t_fp_filter_stats counts;
    std::map<uint32_t, t_record_hits> records;  // by number
    std::string program_error;                  // why the last packet met no program
};

using t_bound_key = std::pair<e_fp_stage, uint32_t>;  // and filter id

struct t_fp_replay {
    t_fp_service *p_service;
    t_fp_request request;
    t_fp_place place;  // of the present packet
    fp_pcap_ptr pcap;
    t_fp_sidecar sidecar;
    t_fp_applications own_applications;
    const t_fp_applications *p_applications;
    fp_mirror_ptr own_mirror;
    t_fp_mirror *p_mirror;   // null: copies are only counted
    std::ofstream verdicts;  // a line for each frame, if asked for
    uint64_t now;            // clock at the last frame
    uint64_t time_ns;        // of the last frame in the file; 0 before the first
    t_fp_frame_stats frames;
    t_filter_hits hits;  // of the request's filter
    t_fp_treatment_stats treatments;
    t_fp_forward_stats forwarding;                // with a place; without the stages' counts
    t_fp_zone_stats zones;                        // with a place
    std::map<t_bound_key, t_filter_hits> bounds;  // with a place
    std::string error;                            // that ended the replay
};

void t_fp_replay_deleter::operator()(t_fp_replay *p_replay) const
{
    delete p_replay;
}

// Opens the files beside the capture. False with the reason.
static bool files_open(t_fp_replay *p_replay, std::string *p_error)
{
    const t_fp_request &request = p_replay->request;
    if (request.sidecar && !fp_sidecar_open(fp_sidecar_path(request.file), &p_replay->sidecar, p_error))
        return false;
    bool own_table = !request.applications.empty();
    if (own_table && !fp_applications_read(request.applications, &p_replay->own_applications, p_error))
        return false;
    p_replay->p_applications = own_table ? &p_replay->own_applications : &p_replay->p_service->applications;
    if (!request.mirror.empty())
        p_replay->own_mirror = fp_mirror_open(request.mirror, p_error);
    if (!request.mirror.empty() && p_replay->own_mirror == nullptr)
        return false;
    p_replay->p_mirror =
        p_replay->own_mirror != nullptr ? p_replay->own_mirror.get() : p_replay->p_service->mirror.get();
    if (request.verdicts.empty())
        return true;
    p_replay->verdicts.open(request.verdicts);
    if (!p_replay->verdicts.is_open())
        *p_error = request.verdicts + ": can't be written";
    return p_replay->verdicts.is_open();
}

fp_replay_ptr fp_replay_start(t_fp_service *p_service, const t_fp_request &request, std::string *p_error)
{
    fp_replay_ptr replay(new t_fp_replay());
    replay->p_service = p_service;
    replay->request = request;
    replay->now = fp_clock_now(&p_service->clock);
    replay->pcap = fp_pcap_open(request.file, p_error);
    if (replay->pcap == nullptr || !files_open(replay.get(), p_error))
        return nullptr;
    return replay;
}

// Moves the clock on by the frame's distance from the one before. Frames out of order have none; a pause
// longer than an hour, by which every bucket is full, counts as an hour.
static void clock_follow(t_fp_replay *p_replay, const t_fp_frame &frame)
{
    static constexpr uint64_t second_ns = 1000000000;
    static constexpr uint64_t longest_ns = 3600 * second_ns;
    t_fp_clock *p_clock = &p_replay->p_service->clock;
    int64_t distance = static_cast<int64_t>(frame.time_ns - p_replay->time_ns);
    bool is_later = p_replay->time_ns != 0 && distance > 0;
    uint64_t elapsed_ns = is_later ? std::min(static_cast<uint64_t>(distance), longest_ns) : 0;
    uint64_t rate = p_clock->ticks_per_second;
    // Seconds and remainder apart, since an hour of nanoseconds times a rate would overflow.
    uint64_t ticks = elapsed_ns / second_ns * rate + elapsed_ns % second_ns * rate / second_ns;
    p_replay->now = fp_clock_at(p_clock, p_replay->now + ticks);
    p_replay->time_ns = frame.time_ns;
}

static void frame_count(t_fp_frame_stats *p_frames, e_fp_decode decode, bool is_fragment)
{
    p_frames->frames++;
    p_frames->not_ip += decode == FP_DECODE_NOT_IP;
    p_frames->truncated += decode == FP_DECODE_TRUNCATED;
    p_frames->malformed += decode == FP_DECODE_MALFORMED;
    p_frames->fragments += is_fragment;
}

static void outcome_count(t_filter_hits *p_hits, const t_fp_outcome &outcome, uint32_t bytes)
{
    p_hits->program_error = outcome.p_error != nullptr ? *outcome.p_error : "";
    fp_filter_stats_count(&p_hits->counts, outcome, bytes);
    if (outcome.record == FP_NO_RECORD)
        return;
    t_record_hits *p_record = &p_hits->records[outcome.record];
    p_record->packets++;
    p_record->bytes += bytes;
    p_record->policer_drops += outcome.policer_drop;
    p_record->is_default = outcome.is_default;
    p_record->decision = outcome.decision;
    p_record->plain_action = outcome.plain_action;
}

// Writes the frame's line, if they are asked for. False when it can't be written.
static bool verdict_write(t_fp_replay *p_replay, const fp_json &verdict)
{
    fp_json line = {{"frame", p_replay->frames.frames}};
    line.update(verdict);
    p_replay->verdicts << lab_answer_line(line) << '\n';
    if (p_replay->verdicts.good())
        return true;
    p_replay->error = p_replay->request.verdicts + ": can't be written";
    return false;
}

// Sends a packet through the request's filter.
static bool filter_send(t_fp_replay *p_replay, const t_fp_use &use, t_fp_treatment *p_treatment)
{
    t_fp_treated treated = fp_filter_run(p_replay->p_service, use);
    outcome_count(&p_replay->hits, treated.outcome, use.bytes);
    *p_treatment = treated.treatment;
    return !p_replay->verdicts.is_open() || verdict_write(p_replay, fp_treated_json(treated));
}

// Sends a packet through what is bound at the request's place.
static bool place_send(t_fp_replay *p_replay, const t_fp_use &use, t_fp_treatment *p_treatment)
{
    bool is_told = p_replay->verdicts.is_open();
    fp_json stages = fp_json::array();
    auto seen = [p_replay, is_told, &use, &stages](const t_fp_seen &stage) {
        if (stage.p_outcome != nullptr)
            outcome_count(&p_replay->bounds[{stage.stage.stage, stage.stage.filter_id}], *stage.p_outcome,
                          use.bytes);
        if (stage.p_zone != nullptr)
            fp_zone_count(&p_replay->zones, *stage.p_zone);
        if (is_told)
            stages.push_back(fp_stage_json(stage));
    };
    t_fp_fate fate = fp_forward_run(p_replay->p_service, p_replay->place, use, seen);
    fp_forward_count(&p_replay->forwarding, fate, use.bytes);
    *p_treatment = fate.treatment;
    return !is_told || verdict_write(p_replay, fp_fate_json(fate, stages));
}

// False on an error in a file that is written.
static bool packet_send(t_fp_replay *p_replay, const t_fp_frame &frame, const t_fp_packet &packet)
{
    t_fp_use use = {.filter_id = p_replay->request.filter_id,
                    .p_header = &packet.header,
                    .bytes = packet.length,
                    .now = p_replay->now};
    p_replay->place.family = packet.version == 6 ? FP_FAMILY_IPV6 : FP_FAMILY_IPV4;
    p_replay->place.addresses6 = packet.addresses6;
    t_fp_treatment treatment;
    bool by_place = p_replay->request.by_place;
    if (!(by_place ? place_send : filter_send)(p_replay, use, &treatment))
        return false;
    fp_treatment_count(&p_replay->treatments, treatment);
    return p_replay->p_mirror == nullptr ||
           fp_mirror_write(p_replay->p_mirror, frame, fp_treatment_copies(treatment), &p_replay->error);
}

static bool undecoded_tell(t_fp_replay *p_replay, e_fp_decode decode)
{
    static constexpr const char *reasons[] = {"", "not-ip", "truncated", "malformed"};
    return !p_replay->verdicts.is_open() ||
           verdict_write(p_replay, {{"verdict", "no-packet"}, {"reason", reasons[decode]}});
}

// False on an error in one of the files.
static bool frame_send(t_fp_replay *p_replay, const t_fp_frame &frame)
{
    t_fp_header extra = fp_header_blank();
    p_replay->place = p_replay->request.place;
    t_fp_place *p_place = p_replay->request.by_place ? &p_replay->place : nullptr;
    if (p_replay->request.sidecar && !fp_sidecar_next(&p_replay->sidecar, &extra, p_place, &p_replay->error))
        return false;
    t_fp_packet packet = {};
    e_fp_decode decode = fp_packet_decode(frame.bytes, &packet);
    frame_count(&p_replay->frames, decode, packet.is_fragment);
    frame_count(&p_replay->p_service->frames, decode, packet.is_fragment);
    clock_follow(p_replay, frame);
    if (decode != FP_DECODE_OK)
        return undecoded_tell(p_replay, decode);
    for (size_t type = 0; type < std::size(extra.values); type++)
        packet.header.values[type] |= extra.values[type];  // no field is set by both
    fp_applications_apply(*p_replay->p_applications, &packet.header);
    return packet_send(p_replay, frame, packet);
}

// False at the end or an error.
static bool frames_send(t_fp_replay *p_replay, uint32_t max_frames)
{
    t_fp_frame frame;
    for (uint32_t i = 0; i < max_frames; i++) {
        if (fp_pcap_next(p_replay->pcap.get(), &frame, &p_replay->error) != FP_PCAP_FRAME ||
            !frame_send(p_replay, frame))
            return false;
    }
    return true;
}

bool fp_replay_step(t_fp_replay *p_replay, uint32_t max_frames)
{
    bool goes_on = frames_send(p_replay, max_frames);
    p_replay->verdicts.flush();  // they are there when the answer is
    return goes_on;
}

// Adds a row for each record, `row` with its members behind.
static void records_write(const t_filter_hits &hits, const fp_json &row, fp_json *p_rows)
{
    for (const auto &[record, record_hits] : hits.records) {
        fp_json json = row;
        json.update({{"record", record},
                     {"verdict", fp_decision_name(record_hits.decision, record_hits.plain_action)},
                     {"default", record_hits.is_default},
                     {"packets", record_hits.packets},
                     {"bytes", record_hits.bytes},
                     {"policer-drops", record_hits.policer_drops}});
        p_rows->push_back(json);
    }
}

static fp_json hits_json(const t_filter_hits &hits)
{
    fp_json json = fp_json::object();
    if (!hits.program_error.empty())
        json["reason"] = hits.program_error;
    json.update(fp_counts_json(hits.counts));
    return json;
}

static void filter_write(const t_fp_replay *p_replay, fp_json *p_answer)
{
    (*p_answer)["filter"] = fp_filter_shown(p_replay->request.filter_id);
    p_answer->update(hits_json(p_replay->hits));
    p_answer->update(fp_frames_json(p_replay->frames));
    (*p_answer)["records"] = fp_json::array();
    records_write(p_replay->hits, fp_json::object(), &(*p_answer)["records"]);
}

static void place_write(const t_fp_replay *p_replay, fp_json *p_answer)
{
    p_answer->update(fp_place_json(p_replay->request.place));
    p_answer->update(fp_forward_counts_json(p_replay->forwarding));
    p_answer->update(fp_frames_json(p_replay->frames));
    fp_json filters = fp_json::array();
    fp_json records = fp_json::array();
    for (const auto &[key, hits] : p_replay->bounds) {
        fp_json row = {{"stage", fp_stage_name(key.first)}, {"filter", fp_filter_shown(key.second)}};
        records_write(hits, row, &records);
        row.update(hits_json(hits));
        filters.push_back(row);
    }
    (*p_answer)["filters"] = filters;
    (*p_answer)["zones"] = fp_zone_stats_json(p_replay->zones);
    (*p_answer)["records"] = records;
}

fp_json fp_replay_answer(const t_fp_replay *p_replay)
{
    fp_json answer = {{"ok", p_replay->error.empty()}};
    if (!p_replay->error.empty())
        answer["error"] = p_replay->error;
    answer["request"] = "replay";
    if (p_replay->request.by_place)
        place_write(p_replay, &answer);
    else
        filter_write(p_replay, &answer);
    answer["treatments"] = fp_treatment_stats_json(p_replay->treatments);
    return answer;
}
