// What live mode makes of a processor: packets a second from one port to another, through a data policy.
//
// Workload: UDP and TCP headers in frames of 64 bytes, drawn with seed 1 inside the rules of a generated
// access list (family acl, seed 1); the argument is its number of rules, 0 for no policy at all. Frames go
// over two veth pairs in batches of 64. An item is one packet pulled out of one ring, classified, rewritten,
// pushed into the other and flushed, which takes it to the receiving interface; sender's and receiver's own
// work isn't in the time. In a network namespace of its own, so that it needs root or user namespaces;
// otherwise it reports an error.
#include "lab/fp/fp_live_plane.h"
#include "libcvmx/sim/_cvmx-helper-if.h"
#include "libcvmx/sim/cvmx-ring.h"
#include "tools/header_source.h"
#include "tools/heap_arena.h"
#include "tools/rule_compile.h"
#include "tools/rule_fields.h"
#include "tools/rule_generator.h"
#include "tools/rule_loader.h"

#include <benchmark/benchmark.h>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <sched.h>
#include <unistd.h>

static constexpr uint32_t buffer_size = 2048;
static constexpr size_t num_frames = 4096;
static constexpr t_fp_mac in_mac = {2, 0, 0, 0, 0, 1};
static constexpr t_fp_mac out_mac = {2, 0, 0, 0, 0, 2};
static constexpr t_fp_mac host_mac = {6, 0, 0, 0, 0, 1};

using ring_ptr = std::unique_ptr<cvmx_ring_t, void (*)(cvmx_ring_t *)>;

namespace {

struct t_block {
    alignas(128) t_tarn_filter_mem_block block;
};

// A policy in filter memory, and frames for it.
struct t_workload {
    std::vector<t_block> blocks;
    std::vector<t_tarn_filter> filters;
    std::vector<t_fp_wire_bytes> frames;
};

struct t_batch {
    std::vector<uint8_t> memory;
    cvmx_ring_pkt_t pkts[CVMX_RING_BATCH];
};

}  // namespace

static bool enter_namespaces()
{
    uid_t uid = geteuid();
    if (unshare(uid == 0 ? CLONE_NEWNET : CLONE_NEWNET | CLONE_NEWUSER) != 0)
        return false;
    if (uid != 0)
        std::ofstream("/proc/self/uid_map") << "0 " << uid << " 1";
    for (const char *name : {"0", "1"}) {
        std::string host = std::string("host") + name;
        std::string port = std::string("port") + name;
        std::string command = "ip link add " + host + " type veth peer name " + port;
        if (system(command.c_str()) != 0)
            return false;
        for (const std::string &end : {host, port}) {
            if (if_ipv6_disable(end.c_str()) != 0 || if_offload_off(end.c_str()) != 0)
                return false;
        }
    }
    return true;
}

static ring_ptr ring_open(const char *ifname)
{
    return {cvmx_ring_create(ifname), cvmx_ring_destroy};
}

// ---- Workload ----

static t_fp_wire_bytes frame_of(const t_fp_header &header)
{
    t_fp_wire_bytes frame(64);
    fp_wire_macs_set(frame, in_mac, host_mac);
    frame[12] = 8;
    uint8_t *p_ip = &frame[FP_WIRE_ETHERNET_SIZE];
    auto put = [p_ip](size_t offset, size_t size, uint32_t value) {
        for (size_t i = 0; i < size; i++)
            p_ip[offset + i] = static_cast<uint8_t>(value >> 8 * (size - 1 - i));
    };
    p_ip[0] = 0x45;
    put(2, 2, 50);
    p_ip[8] = 64;
    p_ip[9] = header.values[tarn_ip_protocol] == 17 ? 17 : 6;
    put(12, 4, header.values[tarn_ip_src_addr]);
    put(16, 4, 0x0a000000 | (header.values[tarn_ip_dst_addr] & 0xffffff));  // a route leads there
    put(20, 2, header.values[tarn_ip_src_port]);
    put(22, 2, header.values[tarn_ip_dst_port]);
    uint32_t sum = 0;
    for (size_t i = 0; i < 20; i += 2)
        sum += static_cast<uint32_t>(p_ip[i] << 8 | p_ip[i + 1]);
    sum = (sum & 0xffff) + (sum >> 16);
    put(10, 2, ~((sum & 0xffff) + (sum >> 16)) & 0xffff);
    return frame;
}

static std::vector<uint32_t> default_order()
{
    std::vector<uint32_t> order;
    std::string reason;
    if (!rule_field_order_read("", &order, &reason))
        abort();
    return order;
}

static void policy_compile(const t_rule_set &set, t_workload *p_workload)
{
    t_compile_result result = rule_set_compile(set, default_order(), 0, true);
    std::span<const std::byte> bytes = compile_result_bytes(result);
    if (bytes.empty())
        abort();
    p_workload->blocks.resize((bytes.size() + sizeof(t_block) - 1) / sizeof(t_block));
    memcpy(static_cast<void *>(p_workload->blocks.data()), bytes.data(), bytes.size());
    p_workload->filters = {{.record_valid = 1,
                            .activity = 0,
                            .unused = 0,
                            .hw_index = 0,
                            .num_hw_mem_blocks = static_cast<uint32_t>(p_workload->blocks.size())}};
}

static t_workload workload_make(size_t num_rules)
{
    t_workload workload;
    t_rule_set set;
    t_text_error error;
    std::string text =
        generated_rules_print(rules_generate(e_rule_family::acl, std::max<size_t>(num_rules, 1), 1));
    if (!rule_set_read(text, "acl", e_rule_format::classbench, &set, &error))
        abort();
    if (num_rules > 0)
        policy_compile(set, &workload);
    t_header_source source;
    header_source_random(num_frames, 1, rule_set_used_fields(set, default_order()), &set, &source);
    std::vector<t_fp_header> headers(num_frames);
    size_t drawn = 0;
    std::string reason;
    if (!header_source_next(&source, headers, &drawn, &reason))
        abort();
    for (const t_fp_header &header : headers)
        workload.frames.push_back(frame_of(header));
    return workload;
}

// ---- Measuring ----

static uint64_t still_clock()
{
    return 1;
}

static void plane_make(t_fp_live_plane *p_plane, t_fp_service *p_service, cvmx_ring_t *p_out)
{
    std::string error;
    if (!fp_live_config_parse(R"({"ports": [{"interface": "in", "vpn": 10},
                                            {"interface": "out", "vpn": 10, "address": ["192.0.2.1/24"]}],
                                  "routes": [{"prefix": "10.0.0.0/8", "via": "192.0.2.2"}]})",
                              &p_plane->config, &error))
        abort();
    p_plane->p_service = p_service;
    p_plane->ports = {{in_mac, 1500, {}}, {out_mac, 1500, {}}};
    p_plane->send = [p_out](size_t, std::span<const uint8_t> frame) {
        cvmx_ring_tx_push(p_out, frame.data(), static_cast<uint32_t>(frame.size()));
    };
    const t_fp_live_address hop = fp_live_address_v4(std::array<uint8_t, 4>{192, 0, 2, 2});
    fp_neighbour_hear(&p_plane->neighbours, {1, hop}, host_mac, 0, true);
}

static void batch_make(t_batch *p_batch)
{
    p_batch->memory.resize(size_t{CVMX_RING_BATCH} * buffer_size);
    for (uint32_t i = 0; i < CVMX_RING_BATCH; i++)
        p_batch->pkts[i] = {.buf = &p_batch->memory[size_t{i} * buffer_size], .size = buffer_size};
}

static void BM_LiveForward(benchmark::State &state)
{
    static const bool has_network = enter_namespaces();
    ring_ptr host0 = ring_open("host0");
    ring_ptr port0 = ring_open("port0");
    ring_ptr port1 = ring_open("port1");
    ring_ptr host1 = ring_open("host1");
    if (!has_network || !host0 || !port0 || !port1 || !host1)
        return state.SkipWithError("no network namespace with veth pairs");
    t_workload workload = workload_make(static_cast<size_t>(state.range(0)));
    t_fp_pool pool = {workload.filters, {}};
    if (!workload.blocks.empty())
        pool.blocks = {&workload.blocks[0].block, workload.blocks.size()};
    t_fp_service service = {
        .engine = fp_engine_new(pool), .clock = fp_clock_make(still_clock, 1000), .frames = {}};
    if (state.range(0) > 0)
        service.bindings.vpns = {{FP_FILTER_DATA, 10, 10, 0, FP_POLICY_DIRECTION_ALL, "acl"}};
    t_fp_live_plane plane = {};
    plane_make(&plane, &service, port1.get());
    t_batch in;
    t_batch out;
    batch_make(&in);
    batch_make(&out);
    int64_t received = 0;
    for (size_t next = 0; auto _ : state) {
        for (uint32_t i = 0; i < CVMX_RING_BATCH; i++, next = (next + 1) % num_frames)
            cvmx_ring_tx_push(host0.get(), workload.frames[next].data(), 64);
        cvmx_ring_tx_flush(host0.get());
        auto begin = std::chrono::steady_clock::now();
        int count = cvmx_ring_rx_pull(port0.get(), in.pkts, CVMX_RING_BATCH);
        for (int i = 0; i < count; i++)
            fp_live_frame(&plane, 0, {in.pkts[i].data, in.pkts[i].length}, 1);
        cvmx_ring_tx_flush(port1.get());
        state.SetIterationTime(
            std::chrono::duration<double>(std::chrono::steady_clock::now() - begin).count());
        while ((count = cvmx_ring_rx_pull(host1.get(), out.pkts, CVMX_RING_BATCH)) > 0)
            received += count;
    }
    state.SetItemsProcessed(static_cast<int64_t>(plane.forwarded));
    state.counters["lost"] = static_cast<double>(static_cast<int64_t>(plane.forwarded) - received);
    state.counters["not_forwarded"] =
        static_cast<double>(state.iterations() * CVMX_RING_BATCH - static_cast<int64_t>(plane.forwarded));
}
BENCHMARK(BM_LiveForward)->Arg(0)->Arg(1000)->UseManualTime();

int main(int argc, char **argv)
{
    heap_arena_register();
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    return 0;
}
