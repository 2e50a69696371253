// The compiler's quick steps beside the plain ones that they replace.
//
// Workload: generated access lists, seed 1; the argument is the number of rules, or of keys. Pairs to
// compare: Sweep and Evaluate (a leaf's classes), TableWrite and TreeInsert (a lookup table), Compile and
// PlainCompile (everything), Walk and DescendLinks (one header). Counters: items are intervals, keys, pairs
// of classes or headers.
#include "lab/fp/walker.h"
#include "tarnd/compiler/eclass.h"
#include "tarnd/compiler/epi.h"
#include "tarnd/compiler/tarn_compiler.h"
#include "tarnd/compiler/tarn_field.h"
#include "tarnd/compiler/tarn_mem_mgr.h"
#include "tests/support/plain_compiler.h"
#include "tests/support/plain_executor.h"
#include "tools/header_source.h"
#include "tools/heap_arena.h"
#include "tools/rule_fields.h"
#include "tools/rule_generator.h"
#include "tools/rule_loader.h"

#include <benchmark/benchmark.h>

#include <cstdlib>
#include <cstring>

namespace {

// A generated rule set, filled into a table.
struct t_workload {
    t_rule_set set;
    std::vector<uint32_t> order;
    t_tarn_context *p_context;
    t_tarn_ruletable *p_table;

    explicit t_workload(int64_t rules)
    {
        t_text_error error;
        std::string reason;
        std::string text =
            generated_rules_print(rules_generate(e_rule_family::acl, static_cast<size_t>(rules), 1));
        if (!rule_set_read(text, "acl", e_rule_format::classbench, &set, &error) ||
            !rule_field_order_read("", &order, &reason))
            abort();
        heap_arena_register();
        p_context = tarn_context_create();
        fill();
    }
    ~t_workload()
    {
        tarn_delete_context(p_context);
        tarn_delete_ruletable(p_table);
    }
    t_workload(const t_workload &) = delete;
    t_workload &operator=(const t_workload &) = delete;

    void fill()
    {
        p_table = rule_set_fill(p_context, set, order);
    }
    void refill()
    {
        tarn_reinit_context(p_context);
        tarn_delete_ruletable(p_table);
        fill();
    }
    // The leaf of the destination addresses, which has the most intervals.
    t_ec *leaf() const
    {
        uint32_t id = tarn_get_field_id(p_context, tarn_ip_dst_addr);
        return static_cast<t_ec *>(rbst_search(&p_context->c_ecs, &id)->data);
    }
};

}  // namespace

static void Sweep(benchmark::State &state)
{
    t_workload work(state.range(0));
    work.p_context->c_num_rules = work.p_table->num_rules;
    work.p_context->p_rule_keys = rule_keys_create(work.p_table->num_rules);
    t_ec *p_ec = work.leaf();
    for (auto _ : state)
        tarn_compile_field(work.p_context, work.p_table, p_ec);
    state.SetItemsProcessed(state.iterations() * static_cast<int64_t>(p_ec->ival_ec.count));
}
BENCHMARK(Sweep)->Arg(200)->Arg(1000)->Arg(4000);

static void Evaluate(benchmark::State &state)
{
    t_workload work(state.range(0));
    t_ec *p_ec = work.leaf();
    t_epi *p_vector = epi_create(static_cast<int>(work.p_table->num_rules));
    int64_t intervals = 0;
    for (auto _ : state) {
        for (t_rbst_node *p_node = rbst_first(&p_ec->endpoints); p_node != nullptr;
             p_node = rbst_getnext(&p_ec->endpoints, p_node), intervals++) {
            tarn_evaluate_field(work.p_table, p_ec, p_vector, *static_cast<const uint32_t *>(p_node->key));
            benchmark::DoNotOptimize(p_vector->data[0]);
        }
    }
    epi_free(p_vector);
    state.SetItemsProcessed(intervals);
}
BENCHMARK(Evaluate)->Arg(200)->Arg(1000)->Arg(4000);

static void TableWrite(benchmark::State &state)
{
    t_tarn_context *p_context = tarn_context_create();
    t_ec_table table = {};
    ec_table_reserve(&table, static_cast<size_t>(state.range(0)));
    memset(table.classes.get(), 0, table.count * sizeof(uint32_t));
    std::vector<t_tarn_table_entry> entries(table.count);
    for (auto _ : state) {
        ec_table_write(p_context, &table, entries.data());
        benchmark::ClobberMemory();
    }
    tarn_delete_context(p_context);
    state.SetItemsProcessed(state.iterations() * state.range(0));
}
BENCHMARK(TableWrite)->Arg(1000)->Arg(1000000);

static void TreeInsert(benchmark::State &state)
{
    std::vector<uint32_t> keys(static_cast<size_t>(state.range(0)));
    for (uint32_t i = 0; i < keys.size(); i++)
        keys[i] = i;
    for (auto _ : state) {
        t_rbst tree;
        rbst_init(&tree);
        for (uint32_t &key : keys)
            rbst_add(&tree, &key, nullptr);
        rbst_delete_all(&tree, free_node);
    }
    state.SetItemsProcessed(state.iterations() * state.range(0));
}
BENCHMARK(TreeInsert)->Arg(1000)->Arg(1000000);

static void Compile(benchmark::State &state)
{
    t_workload work(state.range(0));
    for (auto _ : state) {
        void *p_program = nullptr;
        int length = 0;
        if (tarn_compile(work.p_context, work.p_table, &p_program, &length) != tarn_status_ok)
            state.SkipWithError("compilation failed");
        state.PauseTiming();
        tarn_mem_free(p_program, g_tarn_mem_mgr);
        work.refill();
        state.ResumeTiming();
    }
}
BENCHMARK(Compile)->Arg(50)->Arg(200)->Unit(benchmark::kMillisecond);

static void PlainCompile(benchmark::State &state)
{
    t_workload work(state.range(0));
    for (auto _ : state)
        benchmark::DoNotOptimize(plain_compile(work.p_context, work.p_table));
}
BENCHMARK(PlainCompile)->Arg(50)->Arg(200)->Unit(benchmark::kMillisecond);

namespace {

// A compiled workload with headers drawn from its rules.
struct t_traffic {
    t_workload work;
    void *p_program = nullptr;
    int length = 0;
    std::vector<t_fp_header> headers = std::vector<t_fp_header>(65536);

    explicit t_traffic(int64_t rules) : work(rules)
    {
        t_header_source source;
        size_t count = 0;
        std::string reason;
        header_source_random(headers.size(), 1, rule_set_used_fields(work.set, work.order), &work.set,
                             &source);
        if (!header_source_next(&source, headers, &count, &reason) ||
            tarn_compile(work.p_context, work.p_table, &p_program, &length) != tarn_status_ok)
            abort();
    }
    ~t_traffic()
    {
        tarn_mem_free(p_program, g_tarn_mem_mgr);
    }
    t_traffic(const t_traffic &) = delete;
    t_traffic &operator=(const t_traffic &) = delete;

    std::span<const std::byte> bytes() const
    {
        return {static_cast<const std::byte *>(p_program), static_cast<size_t>(length)};
    }
};

}  // namespace

static void Walk(benchmark::State &state)
{
    t_traffic traffic(state.range(0));
    std::string error;
    fp_walker_ptr walker = fp_walker_open(traffic.bytes(), &error);
    size_t i = 0;
    for (auto _ : state)
        benchmark::DoNotOptimize(
            fp_walker_classify(walker.get(), traffic.headers[i++ % traffic.headers.size()]));
    state.SetItemsProcessed(state.iterations());
}
BENCHMARK(Walk)->Arg(1000);

static void DescendLinks(benchmark::State &state)
{
    t_traffic traffic(state.range(0));
    size_t i = 0;
    for (auto _ : state)
        benchmark::DoNotOptimize(
            plain_execute(traffic.bytes(), traffic.headers[i++ % traffic.headers.size()]));
    state.SetItemsProcessed(state.iterations());
}
BENCHMARK(DescendLinks)->Arg(1000);

BENCHMARK_MAIN();
