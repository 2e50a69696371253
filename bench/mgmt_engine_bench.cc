// What operators wait for with a data policy of many sequences: engine and port of the daemons as they ship,
// with a subscriber of the sequences that acknowledges at once. The load of all, a commit of one leaf from
// the edit to the last acknowledgement, one row shown, a restart. Time is the clock's, CPU the process's;
// client and server share the thread.
#include <benchmark/benchmark.h>

#include <cstdlib>

#include "bench/mgmt_policy.h"
#include "tests/mgmtd/test_daemon.h"

static void must(const t_mgmt_error &error)
{
    if (error.code == MGMT_OK)
        return;
    fprintf(stderr, "%s\n", mgmt_error_text(error).c_str());
    abort();
}

static void load(TestWorld *p_world, long sequences)
{
    must(p_world->edit(bench_policy(sequences)));
    must(p_world->commit().error);
}

static void subscribe(TestSubscriber *p_subscriber)
{
    p_subscriber->add("policy-from-keelson/data-policy/vpn-list/sequence", 1);
    p_subscriber->done();
}

static void full_load(benchmark::State &state)
{
    for (auto _ : state) {
        TestWorld world;
        TestSubscriber subscriber(&world, "d");
        subscribe(&subscriber);
        load(&world, state.range(0));
    }
}
BENCHMARK(full_load)->Arg(1000)->Arg(10000)->Unit(benchmark::kMillisecond)->Iterations(3);

static void one_leaf_commit(benchmark::State &state)
{
    TestWorld world;
    TestSubscriber subscriber(&world, "d");
    subscribe(&subscriber);
    load(&world, state.range(0));
    int dscp = 10;
    for (auto _ : state) {
        must(world.edit(bench_leaf(++dscp)));
        must(world.commit().error);
    }
    if (subscriber.batches.size() < static_cast<size_t>(state.iterations()))
        abort();
}
BENCHMARK(one_leaf_commit)->Arg(1000)->Arg(10000)->Unit(benchmark::kMillisecond)->Iterations(30);

static void show_row(benchmark::State &state)
{
    TestWorld world;
    load(&world, state.range(0));
    t_mgmt_path path;
    t_mgmt_error error;
    for (auto _ : state) {
        if (!mgmt_path_read(mgmt_engine_schema(*world.engine), nullptr,
                            std::string(BENCH_SEQUENCES) + "{777}", &path, &error))
            abort();
        mgmt_tree_ptr tree = mgmt_tree_of(world.engine.get(), MGMT_DS_RUNNING);
        std::string text;
        mgmt_tree_print(*tree, mgmt_path_node(*tree, path, &error), 2, &text);
        benchmark::DoNotOptimize(text.size());
    }
}
BENCHMARK(show_row)->Arg(10000)->Unit(benchmark::kMillisecond);

static void restart(benchmark::State &state)
{
    TestWorld world;
    load(&world, state.range(0));
    for (auto _ : state)
        world.restart();
}
BENCHMARK(restart)->Arg(10000)->Unit(benchmark::kMillisecond)->Iterations(5);

BENCHMARK_MAIN();
