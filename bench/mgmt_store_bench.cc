// What the datastores alone cost with a data policy of many sequences (10,000 unless the argument says
// otherwise): the load of all at once, a commit of one leaf from the edit to the file on disk, with the steps
// that it consists of, and the content of a trigger. Times in milliseconds. The files go to the folder of
// temporary files, so the disk's time is in the commits. mgmt_engine_bench is the same with the daemon
// around.
#include <benchmark/benchmark.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>

#include "bench/mgmt_policy.h"
#include "mgmtd/store/mgmt_txn.h"

// The model and a store on disk in a folder of its own.
struct t_bench {
    schema_context_ptr context;
    std::unique_ptr<const t_schema_index> index;
    char folder[32] = "/tmp/mgmt_bench.XXXXXX";
    t_mgmt_store store;

    t_bench()
    {
        std::string error;
        std::vector<std::string> errors;
        context = schema_context_new(YANG_MODULE_FOLDER, &error);
        index = context != nullptr ? schema_index_new(context.get(), &errors) : nullptr;
        if (index == nullptr || mkdtemp(folder) == nullptr || !open())
            abort();
    }
    ~t_bench()
    {
        store = {};
        std::filesystem::remove_all(folder);
    }
    t_bench(const t_bench &) = delete;
    t_bench &operator=(const t_bench &) = delete;

    bool open()
    {
        t_mgmt_error error;
        return mgmt_store_open(&store, index.get(), context.get(), folder, &error);
    }
};

static const t_mgmt_txn_ops g_ops = {
    .create_hook = nullptr,
    .validate = nullptr,
    .prepare = nullptr,
    .abort = nullptr,
    .swapped =
        [](void *p_ctx, t_mgmt_txn *, const std::shared_ptr<const t_mgmt_diff> &) {
            static_cast<t_mgmt_store *>(p_ctx)->pre_commit = nullptr;
        },
    .complete =
        [](void *, t_mgmt_txn *, const t_mgmt_error &error) {
            if (error.code == MGMT_OK)
                return;
            fprintf(stderr, "%s\n", mgmt_error_text(error).c_str());
            abort();
        },
};

static void commit(t_bench *p_bench, const std::string &edits_text)
{
    std::vector<t_mgmt_edit> edits;
    t_mgmt_error error;
    if (!mgmt_edit_read_json(*p_bench->index, edits_text, &edits, &error))
        abort();
    mgmt_txn_ptr txn = mgmt_txn_new(&p_bench->store, MGMT_TXN_PRIVATE, &g_ops, &p_bench->store);
    mgmt_txn_edit(txn.get(), std::move(edits));
    mgmt_txn_commit(txn.get(), {0, "bench", "", ""});
}

static void full_load(benchmark::State &state)
{
    std::string text = bench_policy(state.range(0));
    for (auto _ : state) {
        t_bench bench;
        commit(&bench, text);
    }
}
BENCHMARK(full_load)->Arg(1000)->Arg(10000)->Unit(benchmark::kMillisecond)->Iterations(2);

static void one_leaf_commit(benchmark::State &state)
{
    t_bench bench;
    commit(&bench, bench_policy(state.range(0)));
    int dscp = 0;
    for (auto _ : state)
        commit(&bench, bench_leaf(++dscp));
}
BENCHMARK(one_leaf_commit)->Arg(1000)->Arg(10000)->Unit(benchmark::kMillisecond)->Iterations(20);

// The same at a leaf that others refer to the list of, so that everything is validated.
static void list_commit(benchmark::State &state)
{
    t_bench bench;
    commit(&bench, bench_policy(state.range(0)));
    int number = 0;
    for (auto _ : state)
        commit(&bench, R"([{"path":"/policy-from-keelson/lists/data-prefix-list{more-)" +
                           std::to_string(number++) + R"(}"}])");
}
BENCHMARK(list_commit)->Arg(10000)->Unit(benchmark::kMillisecond)->Iterations(10);

static void step_copy(benchmark::State &state)
{
    t_bench bench;
    commit(&bench, bench_policy(state.range(0)));
    for (auto _ : state)
        benchmark::DoNotOptimize(mgmt_tree_copy(*bench.store.running));
}
BENCHMARK(step_copy)->Arg(10000)->Unit(benchmark::kMillisecond);

static void step_diff(benchmark::State &state)
{
    t_bench bench;
    commit(&bench, bench_policy(state.range(0)));
    mgmt_tree_ptr copy = mgmt_tree_copy(*bench.store.running);
    for (auto _ : state)
        benchmark::DoNotOptimize(mgmt_diff_new(bench.store.running, copy).tops.size());
}
BENCHMARK(step_diff)->Arg(10000)->Unit(benchmark::kMillisecond);

static void step_print(benchmark::State &state)
{
    t_bench bench;
    commit(&bench, bench_policy(state.range(0)));
    for (auto _ : state) {
        std::string text;
        mgmt_tree_print(*bench.store.running, nullptr, 0, &text);
        benchmark::DoNotOptimize(text.size());
    }
}
BENCHMARK(step_print)->Arg(10000)->Unit(benchmark::kMillisecond);

// All sequences as creations: what a trigger delivers.
static void trigger_content(benchmark::State &state)
{
    t_bench bench;
    commit(&bench, bench_policy(state.range(0)));
    const t_schema_node *p_path =
        schema_find(*bench.index, "/policy-from-keelson/data-policy/vpn-list/sequence");
    for (auto _ : state) {
        t_mgmt_diff diff =
            mgmt_diff_new(mgmt_tree_new(bench.index.get(), bench.context.get()), bench.store.running);
        size_t count = 0;
        for (const t_mgmt_report &report : mgmt_report_instances(diff, p_path))
            count += mgmt_report_modifications(diff, report).items.size();
        benchmark::DoNotOptimize(count);
    }
}
BENCHMARK(trigger_content)->Arg(1000)->Arg(10000)->Unit(benchmark::kMillisecond);

BENCHMARK_MAIN();
