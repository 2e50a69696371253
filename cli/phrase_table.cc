// The phrases of "show", "clear" and "debug", and the views of "show".
//
// A new view is a row of the phrases, with its sources and columns.

#include "cli/phrase.h"
#include "cli/view.h"

// ---- Where names come from ----

static constexpr const char *data_names[] = {"/policy-from-keelson/data-policy"};
static constexpr const char *app_names[] = {"/policy-from-keelson/app-route-policy"};
static constexpr const char *zone_names[] = {"/policy/zone-based-policy"};
static constexpr const char *policy_names[] = {data_names[0], app_names[0], zone_names[0]};
static constexpr const char *acl_names[] = {"/policy/access-list"};
static constexpr const char *acl6_names[] = {"/policy/ipv6/access-list"};
static constexpr const char *program_names[] = {data_names[0], app_names[0], zone_names[0], acl_names[0],
                                                acl6_names[0]};

// ---- Lists on the way to rows ----

static constexpr t_cli_level data_counters[] = {{nullptr, "name", "policy"},
                                                {"data-policy-vpnlist", "name", "vpn-list"},
                                                {"data-policy-counter", "counter-name", "counter"}};
static constexpr t_cli_level data_policers[] = {{nullptr, "name", "policy"},
                                                {"data-policy-vpnlist", "name", "vpn-list"},
                                                {"data-policy-policer", "policer-name", "policer"}};
static constexpr t_cli_level app_counters[] = {{nullptr, "name", "policy"},
                                               {"app-route-policy-vpnlist", "name", "vpn-list"},
                                               {"app-route-policy-counter", "counter-name", "counter"}};
static constexpr t_cli_level zone_counters[] = {{nullptr, "name", "policy"},
                                                {"zbfw-policy-counter", "counter-name", "counter"}};
static constexpr t_cli_level acl_counters[] = {{nullptr, "name", "access-list"},
                                               {"counter-list", "counter-name", "counter"}};
static constexpr t_cli_level acl_policers[] = {{nullptr, "name", "access-list"},
                                               {"policer-list", "policer-name", "policer"}};
static constexpr t_cli_level acl_interfaces[] = {{nullptr, "name", "access-list"},
                                                 {"interface-list", "interface-name", "interface"}};
static constexpr t_cli_level memory_usage[] = {{nullptr, nullptr, nullptr}};
static constexpr t_cli_level zone_vpns[] = {{nullptr, "name", "zone"}, {"vpn", "vpn-id", "vpn"}};
static constexpr t_cli_level zone_pairs[] = {{nullptr, "name", "pair"}};

static constexpr std::span<const t_cli_level> data_programs = std::span(data_counters).first(2);
static constexpr std::span<const t_cli_level> app_programs = std::span(app_counters).first(2);
static constexpr std::span<const t_cli_level> first_names = std::span(acl_counters).first(1);
static constexpr std::span<const t_cli_level> zone_programs = std::span(zone_counters).first(1);
static constexpr std::span<const t_cli_level> zone_names_only = std::span(zone_vpns).first(1);

// ---- Sources ----

static constexpr char data_path[] = "/policy/data-policy-filter";
static constexpr char app_path[] = "/policy/app-route-policy-filter";
static constexpr char zone_path[] = "/policy/zbfw-filter-statistics";

static constexpr t_cli_source policy_counters[] = {{"data", data_path, "state", data_counters},
                                                   {"app-route", app_path, "state", app_counters},
                                                   {"zone", zone_path, "state", zone_counters}};
static constexpr t_cli_source policy_policers[] = {{"data", data_path, "state", data_policers}};
static constexpr t_cli_source acl_sources[] = {
    {"acl", "/policy/access-list-names", "state", first_names},
    {"acl", "/policy/access-list-counters", "state", acl_counters},
    {"acl", "/policy/access-list-policers", "state", acl_policers},
    {"acl", "/policy/access-list-associations", "state", acl_interfaces},
};
static constexpr t_cli_source acl6_sources[] = {
    {"acl6", "/policy/ipv6/access-list-names", "state", first_names},
    {"acl6", "/policy/ipv6/access-list-counters", "state", acl_counters},
    {"acl6", "/policy/ipv6/access-list-policers", "state", acl_policers},
    {"acl6", "/policy/ipv6/access-list-associations", "state", acl_interfaces},
};
static constexpr t_cli_source program_sources[] = {
    {"data", data_path, "state", data_programs},
    {"data", data_path, "state", data_counters},
    {"data", data_path, "state", data_policers},
    {"app-route", app_path, "state", app_programs},
    {"app-route", app_path, "state", app_counters},
    {"zone", zone_path, "state", zone_programs},
    {"zone", zone_path, "state", zone_counters},
    acl_sources[0],
    acl_sources[1],
    acl_sources[2],
    acl_sources[3],
    acl6_sources[0],
    acl6_sources[1],
    acl6_sources[2],
    acl6_sources[3],
};
static constexpr t_cli_source memory_source[] = {
    {nullptr, "/policy/filter-memory-usage", "state", memory_usage}};
static constexpr t_cli_source debugs_source[] = {{nullptr, "/debugs", "state", {}}};
static constexpr t_cli_source status_source[] = {{nullptr, nullptr, "status", {}}};
static constexpr t_cli_source zone_sources[] = {{nullptr, "/policy/zone", "running", zone_names_only},
                                                {nullptr, "/policy/zone", "running", zone_vpns}};
static constexpr t_cli_source pair_source[] = {{nullptr, "/policy/zone-pair", "running", zone_pairs}};

// ---- Columns ----

static constexpr t_cli_column kind_column = {"kind", "kind", CLI_COLUMN_TEXT};
static constexpr t_cli_column policy_column = {"policy", "policy", CLI_COLUMN_TEXT};
static constexpr t_cli_column vpn_list_column = {"vpn-list", "vpn-list", CLI_COLUMN_TEXT};
static constexpr t_cli_column acl_column = {"access-list", "access-list", CLI_COLUMN_TEXT};
static constexpr t_cli_column counter_column = {"counter", "counter", CLI_COLUMN_TEXT};
static constexpr t_cli_column policer_column = {"policer", "policer", CLI_COLUMN_TEXT};
static constexpr t_cli_column packets_column = {"packets", "packets", CLI_COLUMN_COUNT};
static constexpr t_cli_column bytes_column = {"bytes", "bytes", CLI_COLUMN_COUNT};
static constexpr t_cli_column packet_rate = {"packets/s", "packets-per-second", CLI_COLUMN_RATE, "packets"};
static constexpr t_cli_column bit_rate = {"bits/s", "bits-per-second", CLI_COLUMN_BIT_RATE, "bytes"};
static constexpr t_cli_column oob_packets = {"oob-packets", "oob-packets", CLI_COLUMN_COUNT};
static constexpr t_cli_column oob_bytes = {"oob-bytes", "oob-bytes", CLI_COLUMN_COUNT};
static constexpr t_cli_column oob_rate = {"packets/s", "oob-packets-per-second", CLI_COLUMN_RATE,
                                          "oob-packets"};
static constexpr t_cli_column oob_bit_rate = {"bits/s", "oob-bits-per-second", CLI_COLUMN_BIT_RATE,
                                              "oob-bytes"};
static constexpr t_cli_column counters_column = {"counters", "counters", CLI_COLUMN_COUNT};
static constexpr t_cli_column policers_column = {"policers", "policers", CLI_COLUMN_COUNT};
static constexpr t_cli_column interfaces_column = {"interfaces", "interfaces", CLI_COLUMN_COUNT};
static constexpr t_cli_column program_column = {"program", "program", CLI_COLUMN_TEXT};

static constexpr t_cli_column counter_columns[] = {kind_column,    policy_column,  vpn_list_column,
                                                   counter_column, packets_column, bytes_column,
                                                   packet_rate,    bit_rate};
static constexpr t_cli_column zone_counter_columns[] = {policy_column, counter_column, packets_column,
                                                        bytes_column,  packet_rate,    bit_rate};
static constexpr t_cli_column policer_columns[] = {
    policy_column, vpn_list_column, policer_column, oob_packets, oob_bytes, oob_rate, oob_bit_rate};
static constexpr t_cli_column acl_counter_columns[] = {acl_column,   counter_column, packets_column,
                                                       bytes_column, packet_rate,    bit_rate};
static constexpr t_cli_column acl_policer_columns[] = {acl_column, policer_column, oob_packets,
                                                       oob_bytes,  oob_rate,       oob_bit_rate};
static constexpr t_cli_column acl_interface_columns[] = {
    acl_column,
    {"interface", "interface", CLI_COLUMN_TEXT},
    {"direction", "interface-direction", CLI_COLUMN_TEXT}};
static constexpr t_cli_column acl_columns[] = {acl_column, counters_column, policers_column,
                                               interfaces_column, program_column};
static constexpr t_cli_column program_columns[] = {kind_column,     policy_column,   vpn_list_column,
                                                   counters_column, policers_column, interfaces_column,
                                                   program_column};
static constexpr t_cli_column summary_columns[] = {kind_column,
                                                   {"policies", "policies", CLI_COLUMN_COUNT},
                                                   {"programs", "programs", CLI_COLUMN_COUNT},
                                                   counters_column,
                                                   policers_column,
                                                   interfaces_column,
                                                   {"not loaded", "not-loaded", CLI_COLUMN_COUNT}};
static constexpr t_cli_column memory_columns[] = {{"what", "what", CLI_COLUMN_TEXT},
                                                  {"in use", "in-use", CLI_COLUMN_COUNT},
                                                  {"total", "total", CLI_COLUMN_COUNT},
                                                  {"used", "percent", CLI_COLUMN_PERCENT}};
static constexpr t_cli_column debug_columns[] = {{"daemon", "daemon", CLI_COLUMN_TEXT},
                                                 {"debug", "debug", CLI_COLUMN_TEXT}};
static constexpr t_cli_column daemon_columns[] = {{"daemon", "name", CLI_COLUMN_TEXT},
                                                  {"state", "state", CLI_COLUMN_TEXT},
                                                  {"points", "points", CLI_COLUMN_COUNT},
                                                  {"subscriptions", "subscriptions", CLI_COLUMN_COUNT}};
static constexpr t_cli_column zone_columns[] = {{"zone", "zone", CLI_COLUMN_TEXT},
                                                {"vpns", "vpns", CLI_COLUMN_TEXT}};
static constexpr t_cli_column pair_columns[] = {{"pair", "pair", CLI_COLUMN_TEXT},
                                                {"number", "pair-id", CLI_COLUMN_COUNT},
                                                {"from", "source-zone", CLI_COLUMN_TEXT},
                                                {"to", "destination-zone", CLI_COLUMN_TEXT},
                                                {"policy", "zone-policy", CLI_COLUMN_TEXT}};

static constexpr std::span<const t_cli_column> of_kind = std::span(counter_columns).subspan(1);
static constexpr std::span<const t_cli_column> acl_name_columns = std::span(acl_counter_columns).first(1);

// ---- Views ----

static constexpr t_cli_view summary_view = {"policy-summary", program_sources, summary_columns,
                                            cli_rows_of_summary, false};
static constexpr t_cli_view programs_view = {"policy-filters", program_sources, program_columns,
                                             cli_rows_of_programs, false};
static constexpr t_cli_view counters_view = {"policy-counters", policy_counters, counter_columns, nullptr,
                                             true};
static constexpr t_cli_view data_view = {"policy-counters", std::span(policy_counters).subspan(0, 1), of_kind,
                                         nullptr, true};
static constexpr t_cli_view app_view = {"policy-counters", std::span(policy_counters).subspan(1, 1), of_kind,
                                        nullptr, true};
static constexpr t_cli_view zone_view = {"policy-counters", std::span(policy_counters).subspan(2, 1),
                                         zone_counter_columns, nullptr, true};
static constexpr t_cli_view policers_view = {"policy-policers", policy_policers, policer_columns, nullptr,
                                             true};
static constexpr t_cli_view memory_view = {"filter-memory", memory_source, memory_columns, cli_rows_of_memory,
                                           false};
static constexpr t_cli_view debugs_view = {"debugs", debugs_source, debug_columns, cli_rows_of_debugs, false};
static constexpr t_cli_view daemons_view = {"daemons", status_source, daemon_columns, cli_rows_of_daemons,
                                            false};
static constexpr t_cli_view zones_view = {"zones", zone_sources, zone_columns, cli_rows_of_zones, false};
static constexpr t_cli_view pairs_view = {"zone-pairs", pair_source, pair_columns, nullptr, false};

// Access lists of one family.
static constexpr t_cli_view acl_view(std::span<const t_cli_source> sources)
{
    return {"access-lists", sources, acl_columns, cli_rows_of_access_lists, false};
}

static constexpr t_cli_view acl_views[] = {
    acl_view(acl_sources),
    {"access-list-names", std::span(acl_sources).subspan(0, 1), acl_name_columns, nullptr, false},
    {"access-list-counters", std::span(acl_sources).subspan(1, 1), acl_counter_columns, nullptr, true},
    {"access-list-policers", std::span(acl_sources).subspan(2, 1), acl_policer_columns, nullptr, true},
    {"access-list-interfaces", std::span(acl_sources).subspan(3, 1), acl_interface_columns, nullptr, false},
};
static constexpr t_cli_view acl6_views[] = {
    acl_view(acl6_sources),
    {"access-list-names", std::span(acl6_sources).subspan(0, 1), acl_name_columns, nullptr, false},
    {"access-list-counters", std::span(acl6_sources).subspan(1, 1), acl_counter_columns, nullptr, true},
    {"access-list-policers", std::span(acl6_sources).subspan(2, 1), acl_policer_columns, nullptr, true},
    {"access-list-interfaces", std::span(acl6_sources).subspan(3, 1), acl_interface_columns, nullptr, false},
};

// ---- Phrases ----

static constexpr t_cli_phrase show_phrases[] = {
    {"policy summary", "policies and access lists in numbers", {}, &summary_view, {}},
    {"policy filters",
     "programs of policies and access lists, and whether they are loaded",
     program_names,
     &programs_view,
     {}},
    {"policy counters", "counters of policies", policy_names, &counters_view, {}},
    {"policy counters data", "of data policies", data_names, &data_view, {}},
    {"policy counters app-route", "of application-route policies", app_names, &app_view, {}},
    {"policy counters zone", "of zone-based policies", zone_names, &zone_view, {}},
    {"policy policers", "policers of data policies", data_names, &policers_view, {}},
    {"access-list", "access lists for IPv4", acl_names, &acl_views[0], {}},
    {"access-list names", "their names", acl_names, &acl_views[1], {}},
    {"access-list counters", "their counters", acl_names, &acl_views[2], {}},
    {"access-list policers", "their policers", acl_names, &acl_views[3], {}},
    {"access-list interfaces", "where they are bound", acl_names, &acl_views[4], {}},
    {"ipv6 access-list", "access lists for IPv6", acl6_names, &acl6_views[0], {}},
    {"ipv6 access-list names", "their names", acl6_names, &acl6_views[1], {}},
    {"ipv6 access-list counters", "their counters", acl6_names, &acl6_views[2], {}},
    {"ipv6 access-list policers", "their policers", acl6_names, &acl6_views[3], {}},
    {"ipv6 access-list interfaces", "where they are bound", acl6_names, &acl6_views[4], {}},
    {"zones", "zones and their VPNs", {}, &zones_view, {}},
    {"zones pairs", "zone pairs and their policies", {}, &pairs_view, {}},
    {"zones counters", "counters of zone-based policies", zone_names, &zone_view, {}},
    {"filter memory", "use of the memory that holds programs", {}, &memory_view, {}},
    {"daemons", "daemons that are connected", {}, &daemons_view, {}},
    {"debugs", "debugging that is on", {}, &debugs_view, {}},
    {"application list", "applications of the catalogue", {}, nullptr, {"tarn-dpi-dump-protocol-list"}},
    {"application families",
     "families of the applications",
     {},
     nullptr,
     {"tarn-dpi-dump-protocol-family-mapping"}},
    {"application hits", "packets by application", {}, nullptr, {"tarn-dpi-dump-protocol-hits"}},
    {"application configuration",
     "what is configured for the recognition of applications",
     {},
     nullptr,
     {"tarn-dpi-dump-configuration"}},
    {"tech", "what support staff asks for first", {}, nullptr, {"tarn-dump-admin-tech"}},
    {"dump all", "everything that follows", {}, nullptr, {"tarn-dump-all"}},
    {"dump config", "settings for logs and visibility", {}, nullptr, {"tarn-dump-config"}},
    {"dump policy", "policies with their rules", {}, nullptr, {"tarn-dump-policy"}},
    {"dump acl", "access lists for IPv4", {}, nullptr, {"tarn-dump-acl"}},
    {"dump acl6", "access lists for IPv6", {}, nullptr, {"tarn-dump-acl6"}},
    {"dump vpn-list", "VPN lists", {}, nullptr, {"tarn-dump-vpn-list"}},
    {"dump prefix-list", "prefix lists", {}, nullptr, {"tarn-dump-prefix-list"}},
    {"dump tloc-list", "lists of transport locators", {}, nullptr, {"tarn-dump-tloc-list"}},
    {"dump tloc", "transport locators", {}, nullptr, {"tarn-dump-tloc"}},
    {"dump mirror", "mirrors", {}, nullptr, {"tarn-dump-mirror"}},
    {"dump policer", "policers", {}, nullptr, {"tarn-dump-policer"}},
    {"dump class", "forwarding classes", {}, nullptr, {"tarn-dump-class"}},
    {"dump sla-class", "SLA classes", {}, nullptr, {"tarn-dump-sla-class"}},
    {"dump app-list", "application lists", {}, nullptr, {"tarn-dump-app-list"}},
    {"dump memory-stats", "use of the memory of programs", {}, nullptr, {"tarn-dump-memory-stats"}},
    {"dump memory-map", "map of that memory", {}, nullptr, {"tarn-dump-memory-map"}},
    {"dump filter", "the programs in that memory", {}, nullptr, {"tarn-dump-filter"}},
    {"dump msgq", "message queues to the other daemons", {}, nullptr, {"tarn-dump-msgq"}},
};

static constexpr t_cli_phrase clear_phrases[] = {
    {"policy counters",
     "of all policies",
     policy_names,
     nullptr,
     {"tarn-clear-data-policy", "tarn-clear-app-route-policy", "tarn-clear-zonepair-policy"}},
    {"policy counters data", "of data policies", data_names, nullptr, {"tarn-clear-data-policy"}},
    {"policy counters app-route",
     "of application-route policies",
     app_names,
     nullptr,
     {"tarn-clear-app-route-policy"}},
    {"policy counters zone", "of zone-based policies", zone_names, nullptr, {"tarn-clear-zonepair-policy"}},
    {"access-list counters", "of access lists for IPv4", acl_names, nullptr, {"tarn-clear-policy-acl"}},
    {"ipv6 access-list counters",
     "of access lists for IPv6",
     acl6_names,
     nullptr,
     {"tarn-clear-policy-acl6"}},
    {"application hits", "packets by application", {}, nullptr, {"tarn-dpi-clear-protocol-hits"}},
};

static constexpr t_cli_phrase debug_phrases[] = {
    {"config", "what happens to the configuration", {}, nullptr, {"tarn-debug-config"}},
    {"ttm", "what happens to transport locators", {}, nullptr, {"tarn-debug-ttm"}},
    {"dpi", "the recognition of applications", {}, nullptr, {"tarn-debug-dpi"}},
    {"policy", "what happens to policies", {}, nullptr, {"tarn-debug-policy"}},
    {"all", "everything", {}, nullptr, {"tarn-debug-all"}},
};

static constexpr t_cli_phrase undebug_phrases[] = {
    {"all", "end all debugging", {}, nullptr, {"tarn-debug-disable-all"}},
};

static constexpr t_cli_phrase no_phrases[] = {
    {"debug", "end all debugging", {}, nullptr, {"tarn-debug-disable-all"}},
};

const std::span<const t_cli_phrase> g_cli_show_phrases = show_phrases;
const std::span<const t_cli_phrase> g_cli_clear_phrases = clear_phrases;
const std::span<const t_cli_phrase> g_cli_debug_phrases = debug_phrases;
const std::span<const t_cli_phrase> g_cli_undebug_phrases = undebug_phrases;
const std::span<const t_cli_phrase> g_cli_no_phrases = no_phrases;
