#include "lab/fp/fp_actions.h"

#include <algorithm>

// ---- The flow ----

static constexpr uint64_t fnv_prime = 0x100000001b3;
static constexpr uint64_t fnv_begin = 0xcbf29ce484222325;

static uint64_t fnv_add(uint64_t hash, uint32_t value, uint32_t size)
{
    for (uint32_t shift = size * 8; shift > 0; shift -= 8)
        hash = (hash ^ (value >> (shift - 8) & 0xff)) * fnv_prime;
    return hash;
}

uint32_t fp_flow_hash(const t_fp_header &header, uint32_t vpn)
{
    uint64_t hash = fnv_add(fnv_begin, header.values[tarn_ip_src_addr], 4);
    hash = fnv_add(hash, header.values[tarn_ip_dst_addr], 4);
    hash = fnv_add(hash, header.values[tarn_ip_src_port], 2);
    hash = fnv_add(hash, header.values[tarn_ip_dst_port], 2);
    hash = fnv_add(hash, header.values[tarn_ip_protocol], 1);
    hash = fnv_add(hash, vpn, 4);
    return static_cast<uint32_t>(hash ^ hash >> 32);
}

// ---- What each kind of action adds ----

// A value of the slot's, taken as it is.
template <auto slot_member, auto treatment_member>
static void add_value(const t_tarn_filter_action &slot, uint32_t, t_fp_treatment *p_treatment)
{
    p_treatment->*treatment_member = slot.*slot_member;
}

static void add_tloc(const t_tarn_filter_action &slot, uint32_t, t_fp_treatment *p_treatment)
{
    p_treatment->locator = {false, 0, slot.tloc[0]};
}

static void add_tloc_list(const t_tarn_filter_action &slot, uint32_t hash, t_fp_treatment *p_treatment)
{
    uint32_t entry = hash % TARN_TLOCS_IN_ACTION;
    p_treatment->locator = {true, entry, slot.tloc[entry]};
}

static void add_mirror(const t_tarn_filter_action &slot, uint32_t, t_fp_treatment *p_treatment)
{
    p_treatment->mirrors.push_back(slot.mirror_info);
}

static void add_log(const t_tarn_filter_action &, uint32_t, t_fp_treatment *p_treatment)
{
    p_treatment->num_logs++;
}

// Actions without a row carry no value: that they were seen tells all.
struct t_adder {
    uint32_t action;
    void (*p_add)(const t_tarn_filter_action &slot, uint32_t hash, t_fp_treatment *p_treatment);
};

static constexpr t_adder adders[] = {
    {TARN_FILTER_ACTION_TLOC, add_tloc},
    {TARN_FILTER_ACTION_TLOC_WITH_COLOR_ENCAP,
     add_value<&t_tarn_filter_action::tloc_color_encap, &t_fp_treatment::color_encap>},
    {TARN_FILTER_ACTION_MIRROR, add_mirror},
    {TARN_FILTER_ACTION_CLASS, add_value<&t_tarn_filter_action::_class, &t_fp_treatment::forwarding_class>},
    {TARN_FILTER_ACTION_NEXT_HOP, add_value<&t_tarn_filter_action::nh_ip_addr, &t_fp_treatment::next_hop>},
    {TARN_FILTER_ACTION_NAT, add_value<&t_tarn_filter_action::nat_vrid, &t_fp_treatment::nat_vrid>},
    {TARN_FILTER_ACTION_SLA_CLASS, add_value<&t_tarn_filter_action::sla_class, &t_fp_treatment::sla_class>},
    {TARN_FILTER_ACTION_TLOC_LIST, add_tloc_list},
    {TARN_FILTER_ACTION_DSCP, add_value<&t_tarn_filter_action::dscp, &t_fp_treatment::dscp>},
    {TARN_FILTER_ACTION_SVC_TYPE, add_value<&t_tarn_filter_action::svc_type, &t_fp_treatment::svc_type>},
    {TARN_FILTER_ACTION_NAT_POOL,
     add_value<&t_tarn_filter_action::nat_pool_id, &t_fp_treatment::nat_pool_id>},
    {TARN_FILTER_ACTION_LOG, add_log},
    {TARN_FILTER_ACTION_BACKUP_PREFERRED_COLOR,
     add_value<&t_tarn_filter_action::backup_preferred_color, &t_fp_treatment::backup_preferred_color>},
    {TARN_FILTER_ACTION_TRAFFIC_CLASS,
     add_value<&t_tarn_filter_action::traffic_class, &t_fp_treatment::traffic_class>},
    {TARN_FILTER_ACTION_LOCAL_TLOC_LIST,
     add_value<&t_tarn_filter_action::local_tloc_list, &t_fp_treatment::local_tlocs>},
    {TARN_FILTER_ACTION_REDIRECT_DNS,
     add_value<&t_tarn_filter_action::redirect_dns_nh_addr, &t_fp_treatment::redirect_dns>},
};

// ---- Treating ----

t_fp_treatment fp_treatment_begin(const t_fp_header &header)
{
    t_fp_treatment treatment = {};
    treatment.plp_high = header.values[tarn_ip_plp] != 0;
    return treatment;
}

bool fp_treatment_has(const t_fp_treatment &treatment, e_tarn_filter_action action)
{
    return (treatment.seen & 1u << action) != 0;
}

// A record may hold any number.
static void action_see(uint32_t action, t_fp_treatment *p_treatment)
{
    if (action < TARN_FILTER_ACTION_MAX)
        p_treatment->seen |= 1u << action;
}

static void slot_add(const t_tarn_filter_action &slot, uint32_t hash, t_fp_treatment *p_treatment)
{
    uint32_t action = slot.fwding_action;
    action_see(action, p_treatment);
    auto found = std::find_if(std::begin(adders), std::end(adders),
                              [action](const t_adder &adder) { return adder.action == action; });
    if (found != std::end(adders))
        found->p_add(slot, hash, p_treatment);
}

void fp_treatment_add(t_fp_treatment *p_treatment, const t_fp_outcome &outcome, uint32_t hash)
{
    p_treatment->plp_high |= outcome.plp_high;
    p_treatment->dropped |= outcome.decision == FP_DECISION_REJECT || outcome.policer_drop;
    action_see(outcome.plain_action, p_treatment);
    for (uint32_t i = 0; i < outcome.num_executed; i++)
        slot_add(outcome.p_slots[outcome.executed[i].slot], hash, p_treatment);
}

void fp_treatment_rewrite(const t_fp_treatment &treatment, t_fp_header *p_header)
{
    if (treatment.plp_high && p_header->values[tarn_ip_plp] == 0)
        p_header->values[tarn_ip_plp] = 1;
    if (fp_treatment_has(treatment, TARN_FILTER_ACTION_CLASS))
        p_header->values[tarn_ip_fc] = static_cast<uint32_t>(treatment.forwarding_class);
    if (fp_treatment_has(treatment, TARN_FILTER_ACTION_DSCP))
        p_header->values[tarn_ip_dscp] = treatment.dscp;
    if (fp_treatment_has(treatment, TARN_FILTER_ACTION_TRAFFIC_CLASS))
        p_header->values[tarn_ip_traffic_class] = treatment.traffic_class;
}

static bool has_locator(const t_fp_treatment &treatment)
{
    return fp_treatment_has(treatment, TARN_FILTER_ACTION_TLOC) ||
           fp_treatment_has(treatment, TARN_FILTER_ACTION_TLOC_LIST);
}

e_fp_path fp_treatment_path(const t_fp_treatment &treatment)
{
    if (treatment.dropped)
        return FP_PATH_DROPPED;
    if (fp_treatment_has(treatment, TARN_FILTER_ACTION_SVC_LOCAL))
        return FP_PATH_LOCAL_SERVICE;
    if (has_locator(treatment) && treatment.locator.tloc.resolved != 0)
        return FP_PATH_LOCATOR;
    if (has_locator(treatment))
        return fp_treatment_has(treatment, TARN_FILTER_ACTION_FALLBACK) ? FP_PATH_FALLBACK
                                                                        : FP_PATH_UNRESOLVED;
    if (fp_treatment_has(treatment, TARN_FILTER_ACTION_NEXT_HOP))
        return FP_PATH_NEXT_HOP;
    bool is_nat = fp_treatment_has(treatment, TARN_FILTER_ACTION_NAT) ||
                  fp_treatment_has(treatment, TARN_FILTER_ACTION_NAT_POOL);
    return is_nat ? FP_PATH_NAT : FP_PATH_ROUTING;
}

uint32_t fp_mirror_copies(const t_tarn_mirror_info &mirror)
{
    switch (mirror.mirror_type) {
    case TARN_MIRROR_INTF:
    case TARN_MIRROR_TUNNEL:
        return 1;
    case TARN_MIRROR_BOTH:
        return 2;
    }
    return 0;
}

uint32_t fp_treatment_copies(const t_fp_treatment &treatment)
{
    uint32_t copies = 0;
    for (const t_tarn_mirror_info &mirror : treatment.mirrors)
        copies += fp_mirror_copies(mirror);
    return copies;
}

void fp_treatment_count(t_fp_treatment_stats *p_stats, const t_fp_treatment &treatment)
{
    e_fp_path path = fp_treatment_path(treatment);
    p_stats->logged += treatment.num_logs;
    p_stats->copies += fp_treatment_copies(treatment);
    p_stats->locators += path == FP_PATH_LOCATOR;
    p_stats->unresolved += path == FP_PATH_UNRESOLVED;
    p_stats->fallbacks += path == FP_PATH_FALLBACK;
}
