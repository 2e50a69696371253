// What packet rings cost: frames from one end of a veth pair to the other, both ends worked by one thread, in
// batches of 64. An item is one frame pushed, flushed, through the kernel, and pulled; the argument is its
// size in bytes. Receiver's offloads are off. In network and mount namespaces of its own, so that it needs
// root or user namespaces; otherwise it reports an error.
#include <benchmark/benchmark.h>

#include <cstdlib>
#include <fstream>
#include <memory>
#include <sched.h>
#include <unistd.h>
#include <vector>

#include "libcvmx/sim/_cvmx-helper-if.h"
#include "libcvmx/sim/cvmx-ring.h"

static constexpr uint32_t BUFFER_SIZE = 2048;

static bool enter_namespaces()
{
    uid_t uid = geteuid();
    if (unshare(uid == 0 ? CLONE_NEWNET : CLONE_NEWNET | CLONE_NEWUSER) != 0)
        return false;
    if (uid != 0)
        std::ofstream("/proc/self/uid_map") << "0 " << uid << " 1";
    return system("ip link add left type veth peer name right") == 0 && if_ipv6_disable("left") == 0 &&
           if_ipv6_disable("right") == 0 && if_offload_off("left") == 0 && if_offload_off("right") == 0;
}

// One batch through the wire; the number of frames that came.
static int pass_batch(cvmx_ring_t *p_from, cvmx_ring_t *p_to, const std::vector<uint8_t> &frame,
                      cvmx_ring_pkt_t *p_pkts)
{
    for (uint32_t i = 0; i < CVMX_RING_BATCH; i++)
        cvmx_ring_tx_push(p_from, frame.data(), static_cast<uint32_t>(frame.size()));
    cvmx_ring_tx_flush(p_from);
    int count = 0;
    for (int pulled = 1; pulled > 0; count += pulled)
        pulled = cvmx_ring_rx_pull(p_to, p_pkts, CVMX_RING_BATCH);
    return count;
}

static void BM_RingFrames(benchmark::State &state)
{
    static const bool has_network = enter_namespaces();
    std::unique_ptr<cvmx_ring_t, void (*)(cvmx_ring_t *)> left(nullptr, cvmx_ring_destroy);
    std::unique_ptr<cvmx_ring_t, void (*)(cvmx_ring_t *)> right(nullptr, cvmx_ring_destroy);
    if (has_network) {
        left.reset(cvmx_ring_create("left"));
        right.reset(cvmx_ring_create("right"));
    }
    if (left == nullptr || right == nullptr)
        return state.SkipWithError("no network namespace with a veth pair");
    std::vector<uint8_t> memory(CVMX_RING_BATCH * BUFFER_SIZE);
    cvmx_ring_pkt_t pkts[CVMX_RING_BATCH];
    for (uint32_t i = 0; i < CVMX_RING_BATCH; i++)
        pkts[i] = {.buf = memory.data() + i * BUFFER_SIZE, .size = BUFFER_SIZE};
    std::vector<uint8_t> frame(static_cast<size_t>(state.range(0)), 2);
    int64_t frames = 0;
    for (auto _ : state)
        frames += pass_batch(left.get(), right.get(), frame, pkts);
    state.SetItemsProcessed(frames);
    state.SetBytesProcessed(frames * state.range(0));
    state.counters["lost"] =
        static_cast<double>(state.iterations()) * CVMX_RING_BATCH - static_cast<double>(frames);
}
BENCHMARK(BM_RingFrames)->Arg(64)->Arg(1514);

BENCHMARK_MAIN();
