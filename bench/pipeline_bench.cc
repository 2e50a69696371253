// From a dirty flag to the binding: the configuration's road through the daemon, in figures.
//
// Workload: the daemon's own store, pass, compiler and filter memory, sized as on a large machine (128 MiB of
// filter memory), FTM as one who takes notes; rules from the generator's access lists. Three cases: a field
// of one rule changed in a policy of 1,000 rules; the initial load of 50 policies of 200 rules; a member of a
// prefix list exchanged, 10,000 members long, which one of a policy's 200 rules names. Every round ends with
// the last announcement handed to FTM's channel; between rounds the old filters are released. Medians of the
// rounds after the first, in milliseconds. A program of more than 60 MiB or a context without a filter ends
// the benchmark.
#include "bench/median.h"
#include "platform/confd/confd_lib.h"
#include "tarnd/compiler/tarn_compiler.h"
#include "tarnd/config/tarn_pfx_list.h"
#include "tarnd/config/tarn_process.h"
#include "tarnd/config/tarn_rule.h"
#include "tests/tarnd/config/long_pass_daemon.h"

#include <CLI/CLI.hpp>

#include <algorithm>
#include <arpa/inet.h>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

static constexpr char pfx_list[] = "servers";
static constexpr double mib = 1 << 20;
static constexpr double program_limit = 60 * mib;

// ---- Calls whose time counts ----

namespace {

// Since the round's start.
struct t_marks {
    std::chrono::steady_clock::time_point start;
    double fill_ms;     // from rules to rule tables
    double compile_ms;  // within tarn_compile
    double bind_ms;     // until the last announcement was handed over
    int compilations;
    uint64_t largest;  // bytes of program
};

}  // namespace

static t_marks g_marks;

static void start_round()
{
    g_marks = {bench_now(), 0, 0, 0, 0, 0};
}

using f_compile = e_tarn_status(t_tarn_context *, const t_tarn_ruletable *, void **, int *);
f_compile real_compile asm("__real__Z12tarn_compileP14t_tarn_contextPK16t_tarn_ruletablePPvPi");
f_compile wrap_compile asm("__wrap__Z12tarn_compileP14t_tarn_contextPK16t_tarn_ruletablePPvPi");
e_tarn_status wrap_compile(t_tarn_context *p_context, const t_tarn_ruletable *p_table, void **pp_program,
                           int *p_length)
{
    auto start = bench_now();
    e_tarn_status status = real_compile(p_context, p_table, pp_program, p_length);
    g_marks.compile_ms += bench_ms_since(start);
    g_marks.compilations++;
    large_daemon_require(status == tarn_status_ok, "a compilation without filter memory");
    g_marks.largest =
        std::max(g_marks.largest, uint64_t{static_cast<t_tarn_program_hdr *>(*pp_program)->p_length});
    return status;
}

using f_process_rule = int(t_tarn *, t_tarn_rule *, const t_tarn_config_rule *);
f_process_rule
    real_process_rule asm("__real__Z17tarn_process_ruleP6t_tarnP11t_tarn_rulePK18t_tarn_config_rule");
f_process_rule
    wrap_process_rule asm("__wrap__Z17tarn_process_ruleP6t_tarnP11t_tarn_rulePK18t_tarn_config_rule");
int wrap_process_rule(t_tarn *p_tarn, t_tarn_rule *p_rule, const t_tarn_config_rule *p_config_rule)
{
    auto start = bench_now();
    int status = real_process_rule(p_tarn, p_rule, p_config_rule);
    g_marks.fill_ms += bench_ms_since(start);
    return status;
}

using f_bind = int(t_tarn *, t_tarn_policy *, t_tarn_policy_vpn_list *, t_tarn_vpn *);
f_bind real_bind asm(
    "__real__Z27tarn_bind_policy_to_vpnlistP6t_tarnP13t_tarn_policyP22t_tarn_policy_vpn_listP10t_tarn_vpn");
f_bind wrap_bind asm(
    "__wrap__Z27tarn_bind_policy_to_vpnlistP6t_tarnP13t_tarn_policyP22t_tarn_policy_vpn_listP10t_tarn_vpn");
int wrap_bind(t_tarn *p_tarn, t_tarn_policy *p_policy, t_tarn_policy_vpn_list *p_context, t_tarn_vpn *p_vpn)
{
    int status = real_bind(p_tarn, p_policy, p_context, p_vpn);
    g_marks.bind_ms = bench_ms_since(g_marks.start);
    return status;
}

// A pass, whose compilations are expected.
static void run_pass(LargeDaemon *p_daemon, int compilations)
{
    large_daemon_require(tarn_process_config(&p_daemon->tarn) == 0, "a pass that failed");
    large_daemon_require(g_marks.compilations == compilations, "not as many compilations as expected");
    large_daemon_require(static_cast<double>(g_marks.largest) < program_limit,
                         "a program of more than 60 MiB");
    p_daemon->store.take_bytes();
}

// ---- A prefix list ----

// Networks of 16 addresses that lie apart.
static confd_ipv4_prefix member(uint32_t number)
{
    return {{htonl(0x0a000000 + (number * 2654435761u >> 14 << 5))}, 28};
}

static void add_prefix(t_tarn *p_tarn, uint32_t number)
{
    confd_ipv4_prefix prefix = member(number);
    tarn_config_ip_pfx_add(p_tarn, pfx_list, TARN_POLICY_PFX_LIST_TYPE_KEELSON, &prefix);
}

static void exchange_prefix(t_tarn *p_tarn, uint32_t old_number, uint32_t new_number)
{
    confd_ipv4_prefix prefix = member(old_number);
    tarn_config_ip_pfx_delete(p_tarn, pfx_list, TARN_POLICY_PFX_LIST_TYPE_KEELSON, &prefix);
    tarn_config_pfx_list_change(p_tarn, pfx_list, TARN_POLICY_PFX_LIST_TYPE_KEELSON);
    add_prefix(p_tarn, new_number);
    tarn_config_pfx_list_change(p_tarn, pfx_list, TARN_POLICY_PFX_LIST_TYPE_KEELSON);
}

// ---- The cases ----

namespace {

class Rows {
public:
    // Takes the round's marks, but for the first, whose caches are cold.
    void take(double store_ms)
    {
        if (rounds++ == 0)
            return;
        store.push_back(store_ms);
        bind.push_back(g_marks.bind_ms);
        fill.push_back(g_marks.fill_ms);
        compile.push_back(g_marks.compile_ms);
    }
    void print(const char *name) const
    {
        double parts = bench_median(store) + bench_median(fill) + bench_median(compile);
        printf("%-34s %9.2f %9.2f %9.2f %9.2f %9.2f %9d %12.2f\n", name, bench_median(bind),
               bench_median(store), bench_median(fill), bench_median(compile), bench_median(bind) - parts,
               g_marks.compilations, static_cast<double>(g_marks.largest) / mib);
        fflush(stdout);
    }

private:
    int rounds = 0;
    std::vector<double> bind, store, fill, compile;
};

}  // namespace

static void measure_rule_change(int rounds)
{
    static constexpr uint32_t changed_id = 5000;
    LargeDaemon daemon;
    daemon.add_policy("edge", rules_generate(e_rule_family::acl, 1000, 1));
    start_round();
    run_pass(&daemon, 1);
    t_tarn_config_rule *p_rule = nullptr;
    tarn_config_rule_lookup(&daemon.tarn, TARN_POLICY_TYPE_DATA, "edge", LARGE_DAEMON_VPN_LIST, changed_id,
                            &p_rule);
    Rows rows;
    for (int round = 0; round <= rounds; round++) {
        start_round();
        p_rule->policy->changed = p_rule->vpn_list->changed = 1;
        t_tarn_range ports = {2000 + round, 2000 + round};
        tarn_config_field_delete(&daemon.tarn, TARN_FIELD_TYPE_DST_PORT, p_rule, nullptr, nullptr);
        daemon.add_field(p_rule, TARN_FIELD_TYPE_DST_PORT, &ports);
        double store_ms = bench_ms_since(g_marks.start);
        run_pass(&daemon, 1);
        rows.take(store_ms);
        daemon.release();
    }
    rows.print("one rule of 1,000 changed");
}

static void measure_initial_load(int rounds)
{
    static constexpr int policies = 50;
    std::vector<std::vector<t_generated_rule>> rules;
    for (uint64_t seed = 1; seed <= policies; seed++)
        rules.push_back(rules_generate(e_rule_family::acl, 200, seed));
    Rows rows;
    for (int round = 0; round <= rounds; round++) {
        LargeDaemon daemon;
        start_round();
        for (int i = 0; i < policies; i++)
            daemon.add_policy(("p" + std::to_string(i)).c_str(), rules[static_cast<size_t>(i)]);
        double store_ms = bench_ms_since(g_marks.start);
        run_pass(&daemon, policies);
        rows.take(store_ms);
    }
    rows.print("50 policies of 200 rules loaded");
}

static void measure_prefix_list(int rounds)
{
    static constexpr uint32_t members = 10000;
    LargeDaemon daemon;
    tarn_config_pfx_list_add(&daemon.tarn, pfx_list, TARN_POLICY_PFX_LIST_TYPE_KEELSON);
    for (uint32_t i = 0; i < members; i++)
        add_prefix(&daemon.tarn, i);
    daemon.add_policy("edge", rules_generate(e_rule_family::acl, 199, 1));
    t_tarn_pfx_list_key key = {"", TARN_POLICY_PFX_LIST_TYPE_KEELSON};
    strcpy(key.name, pfx_list);
    daemon.add_field(daemon.add_rule("edge", 5), TARN_FIELD_TYPE_SRC_PFX_LIST, &key);
    start_round();
    run_pass(&daemon, 1);
    Rows rows;
    for (uint32_t round = 0; round <= static_cast<uint32_t>(rounds); round++) {
        start_round();
        exchange_prefix(&daemon.tarn, round, members + round);
        double store_ms = bench_ms_since(g_marks.start);
        run_pass(&daemon, 1);
        rows.take(store_ms);
        daemon.release();
    }
    rows.print("one member of 10,000 exchanged");
}

int main(int argc, char **argv)
{
    static const struct {
        const char *name;
        void (*measure)(int rounds);
    } cases[] = {
        {"rule", measure_rule_change}, {"load", measure_initial_load}, {"list", measure_prefix_list}};
    int rounds = 9;
    std::string only;
    CLI::App app{"Measures the road from a changed object to the binding of its filter."};
    app.add_option("--rounds", rounds, "rounds, of which the median counts")->check(CLI::PositiveNumber);
    app.add_option("--only", only, "one case: rule, load or list")
        ->check(CLI::IsMember({"rule", "load", "list"}));
    CLI11_PARSE(app, argc, argv);
    printf("%-34s %9s %9s %9s %9s %9s %9s %12s\n", "change", "to bind", "store", "fill", "compile", "rest",
           "programs", "largest MiB");
    for (const auto &[name, measure] : cases)
        if (only.empty() || only == name)
            measure(rounds);
    return 0;
}
