// Whole compilations of rule sets: one row a set.
//
// Workload: generated sets of three families, five sizes each, and the files named on the command line. For
// each set, in a process of its own: fill a rule table and compile it (median of the rounds), peak memory of
// one compilation above the filled table, walker look-ups over 100,000 headers drawn from the rules, and
// beside them the peer classifier's build and look-ups on the same set and headers. Verdicts of both are
// compared. A set whose program passes the limit gives a row of the refusal instead.
#include "bench/median.h"
#include "bench/peer_classifier.h"
#include "common/priority_timers.h"
#include "lab/fp/walker.h"
#include "tarnd/compiler/eclass.h"
#include "tarnd/compiler/tarn_compiler.h"
#include "tarnd/compiler/tarn_mem_mgr.h"
#include "tools/header_source.h"
#include "tools/heap_arena.h"
#include "tools/rule_compile.h"
#include "tools/rule_fields.h"
#include "tools/rule_generator.h"
#include "tools/rule_loader.h"

#include <CLI/CLI.hpp>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <string>
#include <sys/wait.h>
#include <unistd.h>

namespace {

struct t_options {
    std::vector<std::string> files;
    uint64_t limit = 0;  // bytes of program; 0 for what the format allows
    int rounds = 9;
    bool generated = true;
    bool timers = false;  // register a timer manager, so that the compiler reads the clock
    std::string order;
};

// One compilation. Times in milliseconds.
struct t_compiled {
    uint32_t right_classes;  // most classes of a stage that is the right input of another
    double fill_ms;
    double compile_ms;
    e_tarn_status status;
    int length;     // bytes of program, as tarn_compile tells them
    uint64_t size;  // bytes of program, from its header
    uint64_t entries;
    void *p_program;  // owned
};

struct t_figures {
    double fill_ms;
    double compile_ms;
    double peak_mb;
    t_compiled last;
    double walker_rate;
    double burst_rate;
};

constexpr size_t header_count = 100000;
constexpr double mb = 1e6;

}  // namespace

static void count_stages(const t_tarn_context *p_context, t_compiled *p_result)
{
    for (t_rbst_node *p_node = rbst_first(&p_context->c_ecs); p_node != nullptr;
         p_node = rbst_getnext(&p_context->c_ecs, p_node)) {
        const t_ec *p_ec = static_cast<const t_ec *>(p_node->data);
        p_result->entries += p_ec->ival_ec.count;
        if (p_ec->root != nullptr && p_ec->root->right == p_ec)
            p_result->right_classes = std::max(p_result->right_classes, p_ec->ec_values);
    }
}

// Bytes of a field of /proc/self/status that the kernel gives in kB.
static double status_bytes(const char *field)
{
    FILE *p_file = fopen("/proc/self/status", "r");
    if (p_file == nullptr)
        return 0;
    char line[256];
    double bytes = 0;
    while (fgets(line, sizeof(line), p_file) != nullptr)
        if (strncmp(line, field, strlen(field)) == 0)
            bytes = strtod(line + strlen(field), nullptr) * 1024;
    fclose(p_file);
    return bytes;
}

// From here on VmHWM is the peak since now.
static void reset_peak()
{
    FILE *p_file = fopen("/proc/self/clear_refs", "w");
    if (p_file == nullptr)
        return;
    fputs("5", p_file);
    fclose(p_file);
}

static t_compiled compile_once(t_tarn_context *p_context, const t_rule_set &set,
                               std::span<const uint32_t> order, double *p_peak_mb)
{
    t_compiled result = {};
    auto start = bench_now();
    t_tarn_ruletable *p_table = rule_set_fill(p_context, set, order);
    result.fill_ms = bench_ms_since(start);
    double before = 0;
    if (p_peak_mb != nullptr) {
        reset_peak();
        before = status_bytes("VmRSS:");
    }
    start = bench_now();
    result.status = tarn_compile(p_context, p_table, &result.p_program, &result.length);
    result.compile_ms = bench_ms_since(start);
    if (p_peak_mb != nullptr)
        *p_peak_mb = (status_bytes("VmHWM:") - before) / mb;
    count_stages(p_context, &result);
    if (result.p_program != nullptr)
        result.size = static_cast<const t_tarn_program_hdr *>(result.p_program)->p_length;
    tarn_reinit_context(p_context);
    tarn_delete_ruletable(p_table);
    return result;
}

static t_figures measure_compilation(const t_options &options, const t_rule_set &set,
                                     std::span<const uint32_t> order)
{
    t_tarn_context *p_context = tarn_context_create();
    p_context->c_program_limit = options.limit;
    t_figures figures = {};
    std::vector<double> fill;
    std::vector<double> compile;
    for (int round = 0; round < options.rounds; round++) {
        tarn_mem_free(figures.last.p_program, g_tarn_mem_mgr);
        figures.last = compile_once(p_context, set, order, round == 0 ? &figures.peak_mb : nullptr);
        // The first round has the cold caches and the page faults of a fresh process; it is there for the
        // memory.
        if (round > 0 || options.rounds == 1) {
            fill.push_back(figures.last.fill_ms);
            compile.push_back(figures.last.compile_ms);
        }
    }
    figures.fill_ms = bench_median(fill);
    figures.compile_ms = bench_median(compile);
    tarn_delete_context(p_context);
    return figures;
}

static double rate_of(int rounds, size_t count, const std::function<void()> &pass)
{
    std::vector<double> ms;
    for (int round = 0; round < rounds; round++) {
        auto start = bench_now();
        pass();
        ms.push_back(bench_ms_since(start));
    }
    return static_cast<double>(count) / bench_median(ms) * 1000;
}

static void measure_walker(int rounds, const t_fp_walker *p_walker, std::span<const t_fp_header> headers,
                           std::vector<t_fp_verdict> *p_verdicts, t_figures *p_figures)
{
    p_figures->walker_rate = rate_of(rounds, headers.size(), [&] {
        for (size_t i = 0; i < headers.size(); i++)
            (*p_verdicts)[i] = fp_walker_classify(p_walker, headers[i]);
    });
    p_figures->burst_rate =
        rate_of(rounds, headers.size(), [&] { fp_walker_classify_burst(p_walker, headers, *p_verdicts); });
}

static std::vector<t_fp_header> draw_headers(const t_rule_set &set, std::span<const uint32_t> order)
{
    t_header_source source;
    header_source_random(header_count, 1, rule_set_used_fields(set, order), &set, &source);
    std::vector<t_fp_header> headers(header_count);
    size_t drawn = 0;
    std::string reason;
    if (!header_source_next(&source, headers, &drawn, &reason) || drawn != header_count) {
        fprintf(stderr, "compile_bench: no headers: %s\n", reason.c_str());
        exit(1);
    }
    return headers;
}

static uint32_t rule_of(const void *p_program, const t_fp_verdict &verdict)
{
    if (verdict.record_offset == FP_NO_RECORD)
        return 0;
    const auto *p_record = static_cast<const unsigned char *>(p_program) + verdict.record_offset;
    const auto *p_slots = reinterpret_cast<const t_tarn_filter_action *>(p_record + sizeof(t_tarn_action));
    return rule_number_of_record({p_slots, MAX_ACTIONS_IN_RULE});
}

// The peer's part of the row. Verdicts that differ end the run, but for headers with the one value that no
// program covers.
static void print_peer(const t_options &options, const t_rule_set &set, std::span<const t_fp_header> headers,
                       std::span<const t_fp_verdict> verdicts, const t_figures &figures)
{
    t_peer_result peer = {};
    if (!peer_available() || !peer_measure(set, headers, options.rounds, &peer)) {
        printf(" %9s %6s %7s %6s\n", "-", "-", "-", "-");
        return;
    }
    size_t differ = 0;
    for (size_t i = 0; i < headers.size(); i++)
        differ += verdicts[i].record_offset != FP_NO_RECORD &&
                  rule_of(figures.last.p_program, verdicts[i]) != peer.verdicts[i];
    printf(" %9.2f %6.2f %7.1f %6.2f\n", peer.build_ms,
           (figures.fill_ms + figures.compile_ms) / peer.build_ms, peer.lookups_per_second / 1e6,
           figures.walker_rate / peer.lookups_per_second);
    if (differ > 0) {
        fprintf(stderr, "compile_bench: %s: %zu verdicts differ from the peer's\n", set.table.c_str(),
                differ);
        exit(1);
    }
}

static void print_titles()
{
    printf("%-12s %6s | %8s %9s %9s %8s %9s %10s %6s | %7s %7s | %9s %6s %7s %6s\n", "set", "rules",
           "fill ms", "compile", "whole ms", "peak MB", "prog MB", "entries", "ns/ent", "walk M/s", "burst",
           "peer ms", "ratio", "peer M/s", "ratio");
}

// The multiplier of an instruction has 16 bits; with more classes on the right the program's keys collide.
static bool program_is_right(const t_compiled &compiled)
{
    return compiled.right_classes < RIGHT_INPUT_CLASS_LIMIT;
}

static void print_row(const t_options &options, const t_rule_set &set, std::span<const uint32_t> order)
{
    t_figures figures = measure_compilation(options, set, order);
    printf("%-12s %6zu | %8.2f %9.2f %9.2f %8.1f", set.table.c_str(), set.rules.size(), figures.fill_ms,
           figures.compile_ms, figures.fill_ms + figures.compile_ms, figures.peak_mb);
    if (figures.last.status != tarn_status_ok) {
        printf(" refused: needs more than %.0f MB\n", figures.last.length / mb);
        return;
    }
    printf(" %9.1f %10llu %6.1f", static_cast<double>(figures.last.size) / mb,
           static_cast<unsigned long long>(figures.last.entries),
           figures.compile_ms * 1e6 / static_cast<double>(figures.last.entries));

    if (!program_is_right(figures.last)) {
        printf(" | no look-ups: %u classes on the right of a stage\n", figures.last.right_classes);
        return;
    }
    std::string error;
    const auto *p_bytes = static_cast<const std::byte *>(figures.last.p_program);
    fp_walker_ptr walker = fp_walker_open({p_bytes, figures.last.size}, &error);
    if (walker == nullptr) {
        fprintf(stderr, "compile_bench: %s: %s\n", set.table.c_str(), error.c_str());
        exit(1);
    }
    std::vector<t_fp_header> headers = draw_headers(set, order);
    std::vector<t_fp_verdict> verdicts(headers.size());
    measure_walker(options.rounds, walker.get(), headers, &verdicts, &figures);
    printf(" | %7.1f %7.1f |", figures.walker_rate / 1e6, figures.burst_rate / 1e6);
    print_peer(options, set, headers, verdicts, figures);
}

static void run_timers(void *, uint32_t) {}

// Measures in a child, so that one set's memory does not show in the next one's row.
static void measure_set(const t_options &options, const t_rule_set &set, std::span<const uint32_t> order)
{
    fflush(stdout);
    pid_t pid = fork();
    if (pid == 0) {
        heap_arena_register();
        if (options.timers)
            tarn_priority_timers_register(run_timers, nullptr);
        print_row(options, set, order);
        fflush(stdout);
        _exit(0);
    }
    int status = 0;
    if (pid < 0 || waitpid(pid, &status, 0) != pid || status != 0)
        exit(1);
}

static void measure_generated(const t_options &options, std::span<const uint32_t> order)
{
    for (const char *name : {"acl", "fw", "ipc"}) {
        e_rule_family family = {};
        rule_family_read(name, &family);
        for (size_t count : {250, 500, 1000, 2000, 4000}) {
            std::string text = generated_rules_print(rules_generate(family, count, 1));
            t_rule_set set;
            t_text_error error;
            if (!rule_set_read(text, name + ("-" + std::to_string(count)), e_rule_format::classbench, &set,
                               &error))
                exit(1);
            measure_set(options, set, order);
        }
    }
}

static void measure_files(const t_options &options, std::span<const uint32_t> order)
{
    for (const std::string &file : options.files) {
        t_rule_set set;
        t_text_error error;
        if (!rule_set_load(file, e_rule_format::detect, &set, &error)) {
            fprintf(stderr, "compile_bench: %s: passed over, no rule set\n", file.c_str());
            continue;
        }
        measure_set(options, set, order);
    }
}

int main(int argc, char **argv)
{
    t_options options;
    CLI::App app{"Compiles rule sets and measures time, memory and look-ups."};
    app.add_option("files", options.files, "rule files");
    app.add_option("--limit", options.limit, "largest program in bytes")->transform(CLI::AsSizeValue(false));
    app.add_option("--rounds", options.rounds, "rounds, of which the median counts")
        ->check(CLI::PositiveNumber);
    app.add_option("--order", options.order, "order of fields, as in tarnc");
    app.add_flag("!--no-generated", options.generated, "leave the generated sets out");
    app.add_flag("--timers", options.timers, "with a timer manager");
    CLI11_PARSE(app, argc, argv);
    std::vector<uint32_t> order;
    std::string reason;
    if (!rule_field_order_read(options.order, &order, &reason)) {
        fprintf(stderr, "compile_bench: --order: %s\n", reason.c_str());
        return 2;
    }
    print_titles();
    if (options.generated)
        measure_generated(options, order);
    measure_files(options, order);
    return 0;
}
