// A full dump of a configuration that holds every kind of object, action and field, against the stored text.
// To write it anew: run the suite DumpGolden with TARN_WRITE_GOLDEN=1 and read the difference.
#include <gtest/gtest.h>

#include <arpa/inet.h>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iterator>
#include <regex>

#include "common/cli_print.h"
#include "fp_api/fp_tables.h"
#include "libcvmx/sim/_cvmx-clock.h"
#include "platform/confd/confd_maapi.h"
#include "platform/confd/double/confd_double.h"
#include "tarnd/config/tarn_app_list.h"
#include "tarnd/config/tarn_pfx_list.h"
#include "tarnd/dpi/tarn_dpi.h"
#include "tarnd/filter/tarn_if_octeon_private.h"
#include "tarnd/oper/tarn_dump.h"
#include "tests/tarnd/acl/acl_world.h"
#include "tests/tarnd/config/rule_text.h"

static constexpr int session = 42;
static constexpr const char *golden_file = "tests/tarnd/oper/golden/dump_all.txt";

decltype(cvmx_clock_get_rate) wrap_clock_rate asm("__wrap__Z19cvmx_clock_get_rate12cvmx_clock_t");
uint64_t wrap_clock_rate(cvmx_clock_t)
{
    return 1'000'000'000;
}

// Runs of the urgent timers show in the text.
static t_lconfd_context *p_timers_context;

int wrap_timers() asm("__wrap__Z25tarn_exec_priority_timersv");
int wrap_timers()
{
    if (p_timers_context != nullptr)
        cli_print(p_timers_context, session, "<timers>\n");
    return 0;
}

__attribute__((format(printf, 3, 0))) static void print_to_session(t_lconfd_context *ctx, int usid,
                                                                   const char *format, va_list args)
{
    maapi_cli_vprintf(ctx->maapi_socket, usid, format, args);
}

// ---- The configuration ----

static const uint32_t number_1 = 1, number_5 = 5, fec_adaptive = 10, fec_always = 11,
                      mask_24 = 0x1000000 | 0x2;
static const uint8_t byte_46 = 46;
static const uint64_t vpn_512 = 512;
static const t_tarn_tloc_color_encap color_encap = {0xffffffff, 0xffffffff};
static const t_tarn_local_tloc_list local_list = {0x6, 0x4, 1};
static const t_tarn_action_sla_class gold = {"gold", 0, 1, 0x20};
static const t_tarn_tloc_args tloc = {test_tloc(5), 1001};

static void ok(int status)
{
    EXPECT_EQ(status, 0);
}

static t_ipaddr address(const char *text)
{
    t_ipaddr result = {};
    EXPECT_EQ(str_to_ip(text, &result), 1);
    return result;
}
static const t_ipaddr hop_v4 = address("10.1.2.3");
static const t_ipaddr hop_v6 = address("2001:db8::1");

// By sequence, each small enough for a record.
static const struct {
    uint32_t sequence;
    uint32_t tag;
    const void *value;
} action_rows[] = {
    {10, TARN_ACTION_TAG_TLOC, &tloc},
    {10, TARN_ACTION_TAG_TLOC_COLOR_ENCAP, &color_encap},
    {10, TARN_ACTION_TAG_MIRROR, "both"},
    {10, TARN_ACTION_TAG_CFLOWD, nullptr},
    {10, TARN_ACTION_TAG_POLICER, "pol"},
    {10, TARN_ACTION_TAG_COUNT, "web"},
    {10, TARN_ACTION_TAG_CLASS, "voice"},
    {10, TARN_ACTION_TAG_NEXT_HOP, &hop_v6},
    {20, TARN_ACTION_TAG_NAT_VPN, &vpn_512},
    {20, TARN_ACTION_TAG_SLA_CLASS, &gold},
    {20, TARN_ACTION_TAG_TLOC_LIST, nullptr},
    {20, TARN_ACTION_TAG_DSCP, &byte_46},
    {20, TARN_ACTION_TAG_SERVICE, &byte_46},
    {20, TARN_ACTION_TAG_NAT_POOL, &number_5},
    {20, TARN_ACTION_TAG_LOG, nullptr},
    {20, TARN_ACTION_TAG_SVC_LOCAL, nullptr},
    {20, TARN_ACTION_TAG_SVC_LOCAL_STRICT, nullptr},
    {20, TARN_ACTION_TAG_BACKUP_PREFERRED_COLOR, &mask_24},
    {30, TARN_ACTION_TAG_TRAFFIC_CLASS, &byte_46},
    {30, TARN_ACTION_TAG_LOCAL_TLOC_LIST, &local_list},
    {30, TARN_ACTION_TAG_TCP_OPTIMIZATION, nullptr},
    {30, TARN_ACTION_TAG_SSL_OPTIMIZATION, nullptr},
    {30, TARN_ACTION_TAG_FALLBACK, nullptr},
    {30, TARN_ACTION_TAG_REDIRECT_DNS, &hop_v4},
    {30, TARN_ACTION_TAG_LOSS_PROTECT, &fec_adaptive},
    {30, TARN_ACTION_TAG_PKT_DUP, nullptr},
    {40, TARN_ACTION_TAG_LOSS_PROTECT, &fec_always},
};

namespace {

class DumpWorld : public AclWorld {
public:
    DumpWorld();
    ~DumpWorld();
    std::string printed(decltype(confd_action_cbs::command) command);

private:
    void add_mirrors();
    void add_lists();
    void add_fields(t_tarn_config_rule *p_rule);
    void add_data_policy();
    void add_access_list(e_tarn_af_type af_type, const char *name);

    uint32_t dpi_knob = 2;
    t_tarn_filter filters[RETRY_ID] = {};
    t_tarn_mem_node nodes[4] = {};
    t_fp_filter_log_config log_config = {1024, 3, {1, 2}, 0};
};

}  // namespace

void DumpWorld::add_mirrors()
{
    t_tarn_mirror_tunnel v4 = {}, v6 = {};
    fp_ipaddr_set_v4(&v4.src_ip, htonl(0x0a000001));
    fp_ipaddr_set_v4(&v4.dst_ip, htonl(0xc0000209));
    FP_IPADDR_SET_V6(&v6.src_ip, hop_v6.u.addr6_b);
    FP_IPADDR_SET_V6(&v6.dst_ip, hop_v6.u.addr6_b);
    char intf[TARN_NAME_SIZE] = "ge0_0";
    ok(tarn_config_mirror_add(&tarn, "both", intf, &v4));
    ok(tarn_config_mirror_add(&tarn, "intf", intf, nullptr));
    ok(tarn_config_mirror_add(&tarn, "tunnel", nullptr, &v6));
    ok(tarn_config_mirror_add(&tarn, "empty", nullptr, nullptr));
}

void DumpWorld::add_lists()
{
    add_vpn_list("branch", 1);
    ok(tarn_vpn_add(&tarn, "branch", 10, 20));
    add_pfx_list("nets", {"10.0.0.0/8", "192.0.2.0/24"});
    add_local_pfx_list("near", {"172.16.0.0/12"});
    add_app_list("families", {"web"});
    ok(tarn_config_app_list_add(&tarn, "apps", TARN_DPI_KEY_LOC_KEELSON));
    for (const char *app : {"http", "unclassified"})
        ok(tarn_config_app_list_add_app(&tarn, "apps", TARN_DPI_KEY_LOC_KEELSON, TARN_DPI_TYPE_APP, app));
    announce_tloc(this, 5, 1);
    announce_tloc(this, 6, 9, false);
}

// All that can be configured, twice the lists.
void DumpWorld::add_fields(t_tarn_config_rule *p_rule)
{
    confd_ipv4_prefix prefix = test_prefix("198.51.100.0/24");
    t_tarn_range range = {80, 443};
    auto add = [&](e_tarn_field_type type, const void *value) {
        ok(tarn_config_field_add(&tarn, type, value, p_rule));
    };
    for (e_tarn_field_type type :
         {TARN_FIELD_TYPE_PROTOCOL, TARN_FIELD_TYPE_DSCP, TARN_FIELD_TYPE_TCP, TARN_FIELD_TYPE_TRAFFIC_CLASS,
          TARN_FIELD_TYPE_NEXT_HEADER, TARN_FIELD_TYPE_PLP, TARN_FIELD_TYPE_DNS})
        add(type, &number_5);
    for (e_tarn_field_type type :
         {TARN_FIELD_TYPE_SRC_PORT, TARN_FIELD_TYPE_DST_PORT, TARN_FIELD_TYPE_PKT_LEN})
        add(type, &range);
    add(TARN_FIELD_TYPE_SRC_ADDR, &prefix);
    add(TARN_FIELD_TYPE_DST_ADDR, &prefix);
    add(TARN_FIELD_TYPE_FC, "voice");
    add_pfx_list_match(p_rule, TARN_FIELD_TYPE_SRC_PFX_LIST, "nets");
    add_pfx_list_match(p_rule, TARN_FIELD_TYPE_DST_PFX_LIST, "nets");
    for (const char *list : {"apps", "families"}) {
        add_app_list_match(p_rule, TARN_FIELD_TYPE_DPI_APP_LIST, list);
        add_app_list_match(p_rule, TARN_FIELD_TYPE_DPI_DNS_APP_LIST, list);
    }
}

void DumpWorld::add_data_policy()
{
    add_policy(TARN_POLICY_TYPE_DATA, "web", {"branch"});
    t_tarn_config_rule *p_rule = nullptr;
    for (const auto &[sequence, tag, value] : action_rows) {
        if (p_rule == nullptr || p_rule->key.id != sequence) {
            p_rule = add_rule(TARN_POLICY_TYPE_DATA, "web", "branch", sequence);
            p_rule->rule_vpn_id = 300;
        }
        if (tag == TARN_ACTION_TAG_TLOC_LIST) {
            add_tloc_element(this, p_rule, 1, 6, 10, 1002);
            add_tloc_element(this, p_rule, 2, 7, 20, 1003);
        }
        add_action(p_rule, tag, value);
    }
    add_fields(p_rule);
}

void DumpWorld::add_access_list(e_tarn_af_type af_type, const char *name)
{
    static const std::pair<uint32_t, const void *> rows[] = {{TARN_ACTION_TAG_ACTION, &number_1},
                                                             {TARN_ACTION_TAG_COUNT, "seen"},
                                                             {TARN_ACTION_TAG_POLICER, "local"},
                                                             {TARN_ACTION_TAG_MIRROR, "intf"}};
    ok(tarn_access_list_add(&tarn, name, af_type, TARN_FILTER_ACTION_ACCEPT));
    t_tarn_acl_bind_param param = {7, "ge0_0", 1};
    ok(tarn_access_list_bind(&tarn, af_type, name, &param));
    t_tarn_config_rule *p_rule = nullptr;
    ok(tarn_intf_config_rule_add(&tarn, name, af_type, 10, &p_rule));
    for (const auto &[tag, value] : rows)
        ok(tarn_intf_config_action_add(&tarn, name, af_type, 10, tag, value, nullptr));
    t_tarn_pfx_list_key near = {"near", TARN_POLICY_PFX_LIST_TYPE_LOCAL};
    ok(tarn_config_field_add(&tarn, TARN_FIELD_TYPE_SRC_PFX_LIST, &near, p_rule));
}

DumpWorld::DumpWorld()
{
    g_fp_filter = filters;
    tarn_mem = nodes;
    g_fp_scaling.num_filter_blocks = 4;
    g_fp_dpi_enable_knob = tarn.dpi_p = &dpi_knob;
    g_fp_filter_log_config = &log_config;
    confd_double_reset();
    confd_double_set_int16("/vpn/vpn-instance{512}/vrf-id", 7);
    ok(tarn_classification_engine_init());

    t_tarn_class_params voice = {"voice", 2};
    t_tarn_policer_config policer = policer_config("pol", 8'000'000, 15000, 1);
    ok(tarn_class_add(&tarn, &voice));
    ok(tarn_sla_class_add(&tarn, "gold"));
    ok(tarn_config_policer_add(&tarn, &policer));
    add_policer("local");
    add_mirrors();
    add_lists();
    add_data_policy();
    add_policy(TARN_POLICY_TYPE_ZBF, "zones", {});
    add_policy(TARN_POLICY_TYPE_PFR, "paths", {"branch"}, "gold");
    add_access_list(TARN_AF_TYPE_IPV4, "inward");
    add_access_list(TARN_AF_TYPE_IPV6, "inward6");
    pass();
    // One list waits for memory, one policy for the pass.
    memory.budget = memory.used();
    add_list("late");
    sequence(MOP_CREATED, "late", 10);
    pass();
    add_policy(TARN_POLICY_TYPE_DATA, "new", {"branch"});
    clock_gettime(CLOCK_MONOTONIC, &tarn.last_hello_time);
    tarn.last_hello_time.tv_sec -= 90;
}

DumpWorld::~DumpWorld()
{
    ok(tarn_policy_delete(&tarn, TARN_POLICY_TYPE_DATA, "web"));
    withdraw_tlocs(this);
    tarn_classification_engine_exit();
    g_fp_scaling.num_filter_blocks = 0;
    g_fp_filter = nullptr;
    tarn_mem = nullptr;
    g_fp_dpi_enable_knob = nullptr;
    g_fp_filter_log_config = nullptr;
}

std::string DumpWorld::printed(decltype(confd_action_cbs::command) command)
{
    confd_daemon_ctx daemon = {nullptr, &context_record};
    confd_user_info user = {session, {&daemon}};
    confd_double_reset();
    cli_print_register(print_to_session);
    p_timers_context = &context_record;
    ok(command(&user, nullptr, 0, nullptr));
    p_timers_context = nullptr;
    cli_print_register(nullptr);
    return std::regex_replace(confd_double_cli_text(session), std::regex("\\[0x[0-9a-f]+\\]"), "[%p]");
}

TEST(DumpGolden, Everything)
{
    DumpWorld world;
    std::string text = world.printed(tarn_dump_all);
    if (getenv("TARN_WRITE_GOLDEN") != nullptr)
        std::ofstream(golden_file) << text;
    std::ifstream file(golden_file);
    EXPECT_EQ(text, std::string(std::istreambuf_iterator<char>(file), {}));
    EXPECT_EQ(world.printed(tarn_dump_admin_tech), text);
}
