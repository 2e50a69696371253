// What the memory half of the packet path costs: a block of a shared pool taken and freed, a work entry
// through a group's ring, copied in and out by one thread, and through submit and request with their blocks
// of the pool: time for one. Then the rate of entries between producer and consumer processes, one each and
// two each, in batches of 400,000. The shared blocks are the bench's own.
#include <benchmark/benchmark.h>

#include <cstdlib>
#include <functional>
#include <sched.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

#include "libcvmx/sim/_cvmx-fpa.h"
#include "libcvmx/sim/_cvmx-pow.h"

static constexpr uint64_t BLOCKS = 4096;
static constexpr int GROUP = 3;
static constexpr int BATCH = 400'000;
static constexpr uint32_t LAST_TAG = 1;

// A forwarding plane of this machine keeps its blocks.
extern "C" int __wrap_shm_open(const char *name, int flags, mode_t mode);
extern "C" int __wrap_shm_open(const char *name, int, mode_t)
{
    return memfd_create(name, MFD_CLOEXEC);
}

static void set_up()
{
    for (uint32_t pool = 0; pool < 2; pool++) {
        uint64_t size = pool == CVMX_FPA_PACKET_POOL ? 2048 : sizeof(cvmx_wqe_t);
        void *p_buffers =
            mmap(nullptr, size * BLOCKS, PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
        if (p_buffers == MAP_FAILED || cvmx_fpa_setup_pool(pool, "bench", p_buffers, size, BLOCKS) != 0)
            abort();
    }
    if (cvmx_grp_init(1 << GROUP, true) != 0)
        abort();
}

static void pool_alloc_and_free(benchmark::State &state)
{
    for (auto _ : state)
        cvmx_fpa_free(cvmx_fpa_alloc(CVMX_FPA_PACKET_POOL), CVMX_FPA_PACKET_POOL, 0);
    state.SetItemsProcessed(state.iterations());
}
BENCHMARK(pool_alloc_and_free);

static void ring_push_and_pull(benchmark::State &state)
{
    cvmx_wqe_t work = {};
    work.grp = GROUP;
    for (auto _ : state) {
        benchmark::DoNotOptimize(cvmx_work_push(&work));
        benchmark::DoNotOptimize(cvmx_work_pull(GROUP, &work));
    }
    state.SetItemsProcessed(state.iterations());
}
BENCHMARK(ring_push_and_pull);

static void submit_and_request(benchmark::State &state)
{
    auto *p_work = static_cast<cvmx_wqe_t *>(cvmx_fpa_alloc(CVMX_FPA_WQE_POOL));
    *p_work = {};
    p_work->grp = GROUP;
    for (auto _ : state) {
        benchmark::DoNotOptimize(cvmx_pow_work_submit(p_work));
        p_work = cvmx_pow_work_request_sync(CVMX_POW_NO_WAIT);
    }
    cvmx_wqe_free(p_work);
    state.SetItemsProcessed(state.iterations());
}
BENCHMARK(submit_and_request);

static void push_until_taken(const cvmx_wqe_t &work)
{
    while (cvmx_work_push(&work) != 0)
        sched_yield();
}

static void produce(int count)
{
    cvmx_wqe_t work = {};
    work.grp = GROUP;
    for (int i = 0; i < count; i++)
        push_until_taken(work);
}

static void consume_until_told()
{
    cvmx_wqe_t work = {};
    while (work.tag != LAST_TAG)
        if (cvmx_work_pull(GROUP, &work) != 0)
            sched_yield();
}

static pid_t in_process(const std::function<void()> &function)
{
    pid_t pid = fork();
    if (pid != 0)
        return pid;
    function();
    _exit(0);
}

// So many producers, and as many consumers.
static void ring_between_processes(benchmark::State &state)
{
    int pairs = static_cast<int>(state.range(0));
    for (auto _ : state) {
        std::vector<pid_t> producers;
        for (int i = 0; i < pairs; i++) {
            in_process(consume_until_told);
            producers.push_back(in_process([pairs] { produce(BATCH / pairs); }));
        }
        for (pid_t pid : producers)
            waitpid(pid, nullptr, 0);
        cvmx_wqe_t last = {};
        last.grp = GROUP;
        last.tag = LAST_TAG;
        for (int i = 0; i < pairs; i++)
            push_until_taken(last);
        while (wait(nullptr) > 0)
            continue;
    }
    state.SetItemsProcessed(state.iterations() * BATCH);
}
BENCHMARK(ring_between_processes)->Arg(1)->Arg(2)->UseRealTime()->Unit(benchmark::kMillisecond);

int main(int argc, char **argv)
{
    set_up();
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    return 0;
}
