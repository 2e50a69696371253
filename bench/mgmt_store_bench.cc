// What the datastores cost with a data policy of many sequences (10,000 unless the argument says otherwise),
// each with four matches and three actions: the load of all at once, a commit of one leaf from the edit to
// the file on disk (with the steps that it consists of), a restart, and a row of a list shown. Times in
// milliseconds. The files go to the folder of temporary files, so the disk's time is in the commits.
#include <benchmark/benchmark.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>

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

static std::string sequence_text(long number)
{
    std::string id = std::to_string(number);
    return R"({"number":)" + id + R"(,"match":{"protocol":[6,17],"source-ip":["10.)" +
           std::to_string(number / 256) + "." + std::to_string(number % 256) +
           R"(.0/24"],"destination-port":[")" + id + R"("],"source-data-prefix-list":"list-)" +
           std::to_string(number % 100) + R"("},"action":{"base-action":"accept","count":"counter-)" + id +
           R"(","set":{"dscp":10}}})";
}

static std::string policy_text(long sequences)
{
    std::string lists, rows;
    for (int i = 0; i < 100; i++)
        lists += (i > 0 ? "," : "") + (R"({"name":"list-)" + std::to_string(i)) +
                 R"(","ip-prefix":[{"prefix":"10.0.0.0/8"}]})";
    for (long i = 1; i <= sequences; i++)
        rows += (i > 1 ? "," : "") + sequence_text(i);
    return R"([{"path":"/policy-from-keelson","value":{"lists":{"vpn-list":[{"name":"v","vpn":[{"range":"1"}]}],)"
           R"("data-prefix-list":[)" +
           lists + R"(]},"data-policy":[{"name":"p","vpn-list":[{"name":"v","sequence":[)" + rows +
           "]}]}]}}]";
}

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
    std::string text = policy_text(state.range(0));
    for (auto _ : state) {
        t_bench bench;
        commit(&bench, text);
    }
}
BENCHMARK(full_load)->Arg(1000)->Arg(10000)->Unit(benchmark::kMillisecond)->Iterations(2);

static void one_leaf_commit(benchmark::State &state)
{
    t_bench bench;
    commit(&bench, policy_text(state.range(0)));
    int dscp = 0;
    for (auto _ : state) {
        dscp = (dscp + 1) % 64;
        commit(
            &bench,
            R"([{"path":"/policy-from-keelson/data-policy{p}/vpn-list{v}/sequence{500}/action/set/dscp","value":)" +
                std::to_string(dscp) + "}]");
    }
}
BENCHMARK(one_leaf_commit)->Arg(1000)->Arg(10000)->Unit(benchmark::kMillisecond)->Iterations(20);

// The same at a leaf that others refer to the list of, so that everything is validated.
static void list_commit(benchmark::State &state)
{
    t_bench bench;
    commit(&bench, policy_text(state.range(0)));
    int number = 0;
    for (auto _ : state)
        commit(&bench, R"([{"path":"/policy-from-keelson/lists/data-prefix-list{more-)" +
                           std::to_string(number++) + R"(}"}])");
}
BENCHMARK(list_commit)->Arg(10000)->Unit(benchmark::kMillisecond)->Iterations(10);

static void step_copy(benchmark::State &state)
{
    t_bench bench;
    commit(&bench, policy_text(state.range(0)));
    for (auto _ : state)
        benchmark::DoNotOptimize(mgmt_tree_copy(*bench.store.running));
}
BENCHMARK(step_copy)->Arg(10000)->Unit(benchmark::kMillisecond);

static void step_diff(benchmark::State &state)
{
    t_bench bench;
    commit(&bench, policy_text(state.range(0)));
    mgmt_tree_ptr copy = mgmt_tree_copy(*bench.store.running);
    for (auto _ : state)
        benchmark::DoNotOptimize(mgmt_diff_new(bench.store.running, copy).tops.size());
}
BENCHMARK(step_diff)->Arg(10000)->Unit(benchmark::kMillisecond);

static void step_print(benchmark::State &state)
{
    t_bench bench;
    commit(&bench, policy_text(state.range(0)));
    for (auto _ : state) {
        std::string text;
        mgmt_tree_print(*bench.store.running, nullptr, 0, &text);
        benchmark::DoNotOptimize(text.size());
    }
}
BENCHMARK(step_print)->Arg(10000)->Unit(benchmark::kMillisecond);

static void restart(benchmark::State &state)
{
    t_bench bench;
    commit(&bench, policy_text(state.range(0)));
    for (auto _ : state) {
        if (!bench.open())
            abort();
    }
}
BENCHMARK(restart)->Arg(10000)->Unit(benchmark::kMillisecond);

static void show_row(benchmark::State &state)
{
    t_bench bench;
    commit(&bench, policy_text(state.range(0)));
    for (auto _ : state) {
        t_mgmt_path path;
        t_mgmt_error error;
        std::string text;
        if (!mgmt_path_read(*bench.index, nullptr,
                            "/policy-from-keelson/data-policy{p}/vpn-list{v}/sequence{777}", &path, &error))
            abort();
        mgmt_tree_print(*bench.store.running, mgmt_path_node(*bench.store.running, path, &error), 2, &text);
        benchmark::DoNotOptimize(text.size());
    }
}
BENCHMARK(show_row)->Arg(10000)->Unit(benchmark::kMillisecond);

// All sequences as creations: what a trigger delivers.
static void trigger_content(benchmark::State &state)
{
    t_bench bench;
    commit(&bench, policy_text(state.range(0)));
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
