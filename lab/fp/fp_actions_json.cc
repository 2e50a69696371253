// Treatments as JSON.
#include "lab/fp/fp_actions.h"
#include "lab/fp/fp_verdict.h"

#include <nlohmann/json.hpp>

static const char *path_name(e_fp_path path)
{
    static constexpr const char *names[] = {"routing",  "dropped",    "local-service", "locator",
                                            "fallback", "unresolved", "next-hop",      "nat"};
    return names[path];
}

static fp_json locator_json(const t_fp_locator &locator)
{
    fp_json json = {{"from", locator.is_from_list ? "tloc-list" : "tloc"}};
    if (locator.is_from_list)
        json["entry"] = locator.entry;
    json.update(fp_tloc_json(locator.tloc));
    return json;
}

// ---- One writer for each member ----

static void write_class(const t_fp_treatment &treatment, fp_json *p_value)
{
    *p_value = treatment.forwarding_class;
}

static void write_dscp(const t_fp_treatment &treatment, fp_json *p_value)
{
    *p_value = treatment.dscp;
}

static void write_traffic_class(const t_fp_treatment &treatment, fp_json *p_value)
{
    *p_value = treatment.traffic_class;
}

static void write_locator(const t_fp_treatment &treatment, fp_json *p_value)
{
    *p_value = locator_json(treatment.locator);
}

static void write_color_encap(const t_fp_treatment &treatment, fp_json *p_value)
{
    *p_value = {{"color", treatment.color_encap.color}, {"encap", treatment.color_encap.encap}};
}

static void write_local_tlocs(const t_fp_treatment &treatment, fp_json *p_value)
{
    *p_value = {{"color-mask", treatment.local_tlocs.color_mask},
                {"encap-mask", treatment.local_tlocs.encap_mask},
                {"restrict", treatment.local_tlocs.restrict1 != 0}};
}

static void write_sla_class(const t_fp_treatment &treatment, fp_json *p_value)
{
    *p_value = {{"primary", treatment.sla_class._primary},
                {"backup", treatment.sla_class._backup},
                {"preferred-color", treatment.sla_class.preferred_color}};
}

static void write_backup_color(const t_fp_treatment &treatment, fp_json *p_value)
{
    *p_value = treatment.backup_preferred_color;
}

static void write_next_hop(const t_fp_treatment &treatment, fp_json *p_value)
{
    *p_value = fp_address_text(treatment.next_hop);
}

static void write_redirect_dns(const t_fp_treatment &treatment, fp_json *p_value)
{
    *p_value = fp_address_text(treatment.redirect_dns);
}

static void write_nat(const t_fp_treatment &treatment, fp_json *p_value)
{
    *p_value = treatment.nat_vrid;
}

static void write_nat_pool(const t_fp_treatment &treatment, fp_json *p_value)
{
    *p_value = treatment.nat_pool_id;
}

static void write_svc_type(const t_fp_treatment &treatment, fp_json *p_value)
{
    *p_value = treatment.svc_type;
}

static void write_mirrors(const t_fp_treatment &treatment, fp_json *p_value)
{
    *p_value = fp_json::array();
    for (const t_tarn_mirror_info &mirror : treatment.mirrors)
        p_value->push_back(fp_mirror_json(mirror));
}

static void write_logs(const t_fp_treatment &treatment, fp_json *p_value)
{
    *p_value = treatment.num_logs;
}

static void write_true(const t_fp_treatment &, fp_json *p_value)
{
    *p_value = true;
}

namespace {

struct t_writer {
    uint32_t actions;  // a bit each: the member is there if any of them was seen
    const char *member;
    void (*p_write)(const t_fp_treatment &treatment, fp_json *p_value);
};

}  // namespace

static constexpr uint32_t bit(e_tarn_filter_action action)
{
    return 1u << action;
}

static constexpr t_writer writers[] = {
    {bit(TARN_FILTER_ACTION_CLASS), "class", write_class},
    {bit(TARN_FILTER_ACTION_DSCP), "dscp", write_dscp},
    {bit(TARN_FILTER_ACTION_TRAFFIC_CLASS), "traffic-class", write_traffic_class},
    {bit(TARN_FILTER_ACTION_SLA_CLASS), "sla-class", write_sla_class},
    {bit(TARN_FILTER_ACTION_BACKUP_PREFERRED_COLOR), "backup-preferred-color", write_backup_color},
    {bit(TARN_FILTER_ACTION_TLOC) | bit(TARN_FILTER_ACTION_TLOC_LIST), "locator", write_locator},
    {bit(TARN_FILTER_ACTION_TLOC_WITH_COLOR_ENCAP), "color-encap", write_color_encap},
    {bit(TARN_FILTER_ACTION_LOCAL_TLOC_LIST), "local-tloc-list", write_local_tlocs},
    {bit(TARN_FILTER_ACTION_FALLBACK), "fallback", write_true},
    {bit(TARN_FILTER_ACTION_SVC_TYPE), "service-type", write_svc_type},
    {bit(TARN_FILTER_ACTION_SVC_LOCAL), "service-local", write_true},
    {bit(TARN_FILTER_ACTION_SVC_LOCAL_STRICT), "service-local-strict", write_true},
    {bit(TARN_FILTER_ACTION_NEXT_HOP), "next-hop", write_next_hop},
    {bit(TARN_FILTER_ACTION_REDIRECT_DNS), "redirect-dns", write_redirect_dns},
    {bit(TARN_FILTER_ACTION_NAT), "nat-vrid", write_nat},
    {bit(TARN_FILTER_ACTION_NAT_POOL), "nat-pool", write_nat_pool},
    {bit(TARN_FILTER_ACTION_MIRROR), "mirrors", write_mirrors},
    {bit(TARN_FILTER_ACTION_LOG), "logged", write_logs},
    {bit(TARN_FILTER_ACTION_CFLOWD), "cflowd", write_true},
    {bit(TARN_FILTER_ACTION_INSPECT), "inspect", write_true},
    {bit(TARN_FILTER_ACTION_TCP_OPTIMIZATION), "tcp-optimization", write_true},
    {bit(TARN_FILTER_ACTION_SSL_OPTIMIZATION), "ssl-optimization", write_true},
    {bit(TARN_FILTER_ACTION_FEC_ADAPTIVE), "fec-adaptive", write_true},
    {bit(TARN_FILTER_ACTION_FEC_ALWAYS), "fec-always", write_true},
    {bit(TARN_FILTER_ACTION_PKT_DUP), "packet-duplication", write_true},
};

fp_json fp_treatment_json(const t_fp_treatment &treatment)
{
    fp_json json = {{"path", path_name(fp_treatment_path(treatment))}};
    for (const t_writer &writer : writers) {
        if ((treatment.seen & writer.actions) != 0)
            writer.p_write(treatment, &json[writer.member]);
    }
    return json;
}

fp_json fp_treatment_stats_json(const t_fp_treatment_stats &stats)
{
    return {{"logged", stats.logged},
            {"mirror-copies", stats.copies},
            {"locators", stats.locators},
            {"unresolved", stats.unresolved},
            {"fallbacks", stats.fallbacks}};
}
