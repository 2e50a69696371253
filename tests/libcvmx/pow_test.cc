#include "libcvmx/sim/_cvmx-pow.h"

#include <csignal>
#include <sys/mman.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

#include "libcvmx/sim/_cvmx-bootmem.h"
#include "libcvmx/sim/_cvmx-loop.h"
#include "libcvmx/sim/cvmx-ownerlock.h"
#include "tests/libcvmx/packet_fixture.h"

using Pow = PacketFixture;
using PowGolden = PacketFixture;
using PowDeathTest = PacketFixture;

// ---- One process ----

TEST_F(Pow, WorkComesOutAsItWentInAndItsPacketIsTheSame)
{
    cvmx_wqe_t *p_work = packet(7, "a packet");
    p_work->grp = 3;
    p_work->tag = 0xabcd;
    ASSERT_EQ(cvmx_pow_work_submit(p_work), 0);
    EXPECT_EQ(cvmx_fpa_get_num_available_blocks(CVMX_FPA_WQE_POOL), TEST_BUFFERS)
        << "only a copy is on its way";
    cvmx_wqe_t *p_got = cvmx_pow_work_request_sync(CVMX_POW_NO_WAIT);
    ASSERT_NE(p_got, nullptr);
    EXPECT_EQ(p_got, cvmx_wqe_current());
    EXPECT_EQ(p_got->tag, 0xabcdu);
    EXPECT_EQ(p_got->ipprt, 7);
    EXPECT_EQ(packet_of(p_got), "a packet");
    EXPECT_EQ(cvmx_pow_tag_sw_desched(0x1234, CVMX_POW_TAG_TYPE_ATOMIC, 16, 0), -1) << "no such group";
    EXPECT_EQ(p_got->tag, 0xabcdu);
    EXPECT_EQ(cvmx_pow_tag_sw_desched(0x1234, CVMX_POW_TAG_TYPE_ATOMIC, 4, 0), 0);
    EXPECT_EQ(cvmx_wqe_current(), nullptr);
    p_got = cvmx_pull_work_from_grp_ring(4);
    EXPECT_EQ(p_got->tag, 0x1234u);
    cvmx_wqe_free(p_got);
    EXPECT_EQ(cvmx_pow_work_request_sync(CVMX_POW_WAIT), nullptr);
    expect_all_free();
}

TEST_F(Pow, AFullRingCountsDropsAndWhatItDidntTakeStaysTheCallers)
{
    for (int i = 0; i < CVMX_GRP_RING_SLOTS - 1; i++)
        ASSERT_EQ(cvmx_pow_work_submit(message(0)), 0);
    cvmx_wqe_t *p_work = message(0);
    EXPECT_EQ(cvmx_pow_work_submit(p_work), -1);
    EXPECT_EQ(cvmx_pow_work_submit(p_work), -1);
    EXPECT_EQ(ring(0).drops, 2u);
    EXPECT_EQ(ring(0).pushes, 511u);
    cvmx_wqe_t got;
    EXPECT_EQ(cvmx_work_pull(0, &got), 0);
    EXPECT_EQ(cvmx_pow_work_submit(p_work), 0);

    cvmx_wqe_t *p_last = message(0);
    while (auto *p_next = static_cast<cvmx_wqe_t *>(cvmx_fpa_alloc(CVMX_FPA_WQE_POOL)))
        p_last = p_next;
    EXPECT_EQ(cvmx_pow_work_request_sync(CVMX_POW_NO_WAIT), nullptr) << "no entry to put it in";
    cvmx_fpa_free(p_last, CVMX_FPA_WQE_POOL, 0);
    EXPECT_NE(cvmx_pow_work_request_sync(CVMX_POW_NO_WAIT), nullptr) << "it stayed in its ring";
}

TEST_F(Pow, TheHostsGroupWritesToTheTapAndNeverQueues)
{
    static const struct {
        int port;
        int read_at;  // -1: nowhere
    } cases[] = {{1, 1}, {LOOP_PORT_A, LOOP_PORT_B}, {2, -1}, {LOOP_PORT_B, -1}};
    for (const auto &c : cases) {
        cvmx_wqe_t *p_work = packet(c.port, "to the host");
        p_work->grp = CVMX_POW_TAP_GROUP;
        EXPECT_EQ(cvmx_pow_work_submit(p_work), c.read_at >= 0 ? 0 : -1) << c.port;
        if (c.read_at >= 0)
            EXPECT_EQ(read_tap(c.read_at), "to the host");
        else
            cvmx_wqe_free(p_work);
    }
    EXPECT_EQ(ring(15).pushes, 2u);
    EXPECT_EQ(ring(15).drops, 2u);
    EXPECT_EQ(ring(15).tail, 0);
    expect_all_free();
}

TEST_F(Pow, WhatAnEntryNamesIsCheckedBeforeItIsUsed)
{
    cvmx_wqe_t *p_work = packet(1, "bytes");
    EXPECT_EQ(packet_of(p_work), "bytes");
    static void (*const changes[])(cvmx_wqe_t &) = {
        [](cvmx_wqe_t &work) { work.bufs = 0; },
        [](cvmx_wqe_t &work) { work.packet_ptr.index = TEST_BUFFERS; },
        [](cvmx_wqe_t &work) { work.packet_ptr.index = -1; },
        [](cvmx_wqe_t &work) { work.packet_ptr.pool = 200; },
        [](cvmx_wqe_t &work) { work.len = TEST_BUFFER_SIZE - CVMX_PACKET_HEADROOM + 1; },
        [](cvmx_wqe_t &work) { work.packet_ptr.offset = TEST_BUFFER_SIZE; },
    };
    for (const auto &change : changes) {
        cvmx_wqe_t work = *p_work;
        change(work);
        EXPECT_EQ(cvmx_wqe_packet(&work), nullptr);
    }
    EXPECT_EQ(packet(1, std::string(TEST_BUFFER_SIZE - CVMX_PACKET_HEADROOM + 1, 'x')), nullptr);
    EXPECT_EQ(packet(1, ""), nullptr);
}

TEST_F(Pow, WhatALoopPortSendsComesInByItsPartner)
{
    EXPECT_EQ(cvmx_loopback_rx(), nullptr);
    cvmx_wqe_t *p_work = packet(1, "around");
    EXPECT_EQ(cvmx_loopback_tx_push(1, p_work), -1) << "no loop port";
    ASSERT_EQ(cvmx_loopback_tx_push(LOOP_PORT_A, p_work), 0);
    cvmx_wqe_t *p_got = cvmx_loopback_rx();
    EXPECT_EQ(p_got->ipprt, LOOP_PORT_B);
    EXPECT_EQ(packet_of(p_got), "around");

    int sent = 0;  // the same packet over and over: the ring takes its name only
    for (;; sent++) {
        cvmx_wqe_t *p_copy = message(0);
        *p_copy = *p_got;
        if (cvmx_loopback_tx_push(LOOP_PORT_B, p_copy) != 0)
            break;
    }
    EXPECT_EQ(sent, CVMX_LOOP_ENTRIES - 1);
    while (cvmx_wqe_t *p_next = cvmx_loopback_rx()) {
        cvmx_fpa_free(p_next, CVMX_FPA_WQE_POOL, 0);
        sent--;
    }
    EXPECT_EQ(sent, 0);
}

TEST_F(PowGolden, BytesOfARing)
{
    cvmx_wqe_t work = {0x11223344,      CVMX_POW_TAG_TYPE_NULL, 5,     2, 1, 0x0102, 0x0304, 0x05060708,
                       {9, 0, 0, 0x80}, 0x1112131415161718,     {0xaa}};
    static constexpr std::string_view expected("\0\0\1\0\0\0\0\0"                  // head, tail, lock
                                               "\x44\x33\x22\x11\2\5\2\1"          // tag to bufs
                                               "\2\1\4\3\x08\7\6\5"                // len, port, flags
                                               "\x09\0\0\0\0\0\x80\0"              // packet
                                               "\x18\x17\x16\x15\x14\x13\x12\x11"  // the plane's own
                                               "\xaa\0",
                                               42);
    ASSERT_EQ(cvmx_work_push(&work), 0);
    EXPECT_EQ(std::string_view(reinterpret_cast<const char *>(&ring(2)), expected.size()), expected);
    EXPECT_EQ(ring(2).slots[0].pid, static_cast<uint32_t>(getpid()));
}

TEST_F(PowDeathTest, AHeadThatCantBeEndsTheProcess)
{
    ring(0).head = CVMX_GRP_RING_SLOTS;
    cvmx_wqe_t work;
    EXPECT_EXIT(static_cast<void>(cvmx_work_pull(0, &work)), testing::KilledBySignal(SIGILL), "");
}

// ---- A holder that is killed ----

// A process that takes the ring's lock and dies with it. Unless waited for, it stays known to the system.
static pid_t die_with_lock(t_cvmx_grp_ring *p_ring)
{
    pid_t pid = fork();
    if (pid == 0) {
        cvmx_ownerlock_lock(&p_ring->lock, "ring", 0);
        kill(getpid(), SIGKILL);
    }
    siginfo_t info;
    waitid(P_PID, static_cast<id_t>(pid), &info, WEXITED | WNOWAIT);
    return pid;
}

// The word of a process with this one's id that started at another time, which is never 0.
static uint32_t own_word_of_another_time()
{
    uint32_t word = 0;
    cvmx_ownerlock_lock(&word, "own", 0);
    uint32_t start = word >> CVMX_OWNER_PID_BITS;
    return (start == 1 ? 2 : start - 1) << CVMX_OWNER_PID_BITS | static_cast<uint32_t>(getpid());
}

TEST_F(Pow, ADeadHoldersLockIsTakenOverAndReported)
{
    static const struct {
        const char *behaviour;
        bool waited_for;
        bool id_used_again;  // by this process, which started at another time
    } cases[] = {
        {"gone", true, false}, {"not waited for", false, false}, {"another process has its id", true, true}};
    for (const auto &c : cases) {
        pid_t pid = die_with_lock(&ring(0));
        if (c.waited_for)
            waitpid(pid, nullptr, 0);
        if (c.id_used_again) {
            pid = getpid();
            ring(0).lock = own_word_of_another_time();
        }
        cvmx_wqe_t work = {};
        testing::internal::CaptureStdout();
        EXPECT_EQ(cvmx_work_push(&work), 0) << c.behaviour;
        EXPECT_EQ(testing::internal::GetCapturedStdout(), "group ring 0: process " + std::to_string(pid) +
                                                              " died holding the lock, it is taken over\n")
            << c.behaviour;
        EXPECT_EQ(ring(0).lock, 0u);
        if (!c.waited_for)
            waitpid(pid, nullptr, 0);
    }
}

TEST_F(Pow, ASlowHolderIsWaitedFor)
{
    pid_t pid = fork();
    if (pid == 0) {
        cvmx_ownerlock_lock(&ring(0).lock, "ring", 0);
        usleep(50'000);
        ring(0).pulls = 77;
        cvmx_ownerlock_unlock(&ring(0).lock);
        _exit(0);
    }
    while (__atomic_load_n(&ring(0).lock, __ATOMIC_RELAXED) == 0)
        usleep(100);
    cvmx_wqe_t work = {};
    EXPECT_EQ(cvmx_work_push(&work), 0);
    EXPECT_EQ(ring(0).pulls, 77u);
    waitpid(pid, nullptr, 0);
}

// ---- Many producers and consumers ----

namespace {
// What all of them share.
struct t_flow {
    uint32_t count;                 // entries, half of them by each producer
    std::atomic<uint32_t> pulled;   // so far
    std::atomic<uint32_t> refused;  // pushes to a full ring
    std::atomic<uint32_t>
        faults;  // entries that came twice, torn, or before an earlier one of their producer
    std::atomic<uint8_t> seen[];
};
}  // namespace

static constexpr int FLOW_GROUP = 9;

static void produce(t_flow *p_flow, uint32_t producer)
{
    cvmx_wqe_t work = {};
    work.grp = FLOW_GROUP;
    for (uint32_t tag = producer; tag < p_flow->count; tag += 2) {
        work.tag = tag;
        memset(work.packet_data, static_cast<int>(tag & 0xff), sizeof(work.packet_data));
        for (; cvmx_work_push(&work) != 0; p_flow->refused++)
            sched_yield();
    }
}

static bool is_whole(const cvmx_wqe_t &work)
{
    for (uint8_t byte : work.packet_data)
        if (byte != (work.tag & 0xff))
            return false;
    return true;
}

static void consume(t_flow *p_flow)
{
    int64_t last[2] = {-1, -1};
    cvmx_wqe_t work;
    while (p_flow->pulled < p_flow->count) {
        if (cvmx_work_pull(FLOW_GROUP, &work) != 0) {
            sched_yield();
            continue;
        }
        p_flow->pulled++;
        bool good = is_whole(work) && p_flow->seen[work.tag]++ == 0 && work.tag > last[work.tag % 2];
        last[work.tag % 2] = work.tag;
        p_flow->faults += !good;
    }
}

using f_part = std::function<void()>;

static void run_in_threads(const std::vector<f_part> &parts)
{
    std::vector<std::thread> threads;
    for (const f_part &part : parts)
        threads.emplace_back(part);
    for (std::thread &thread : threads)
        thread.join();
}

static void run_in_processes(const std::vector<f_part> &parts)
{
    for (const f_part &part : parts)
        if (fork() == 0) {
            part();
            _exit(0);
        }
    for (size_t i = 0; i < parts.size(); i++)
        wait(nullptr);
}

static void expect_flow(uint32_t count, void (*run)(const std::vector<f_part> &parts),
                        const t_cvmx_grp_ring &ring)
{
    size_t size = sizeof(t_flow) + count;
    auto *p_flow =
        static_cast<t_flow *>(mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0));
    p_flow->count = count;
    run({[=] { produce(p_flow, 0); }, [=] { produce(p_flow, 1); }, [=] { consume(p_flow); },
         [=] { consume(p_flow); }});
    EXPECT_EQ(p_flow->pulled, count);
    EXPECT_EQ(p_flow->faults, 0u);
    EXPECT_EQ(ring.pushes, count);
    EXPECT_EQ(ring.pulls, count);
    EXPECT_EQ(ring.drops, p_flow->refused);
    EXPECT_EQ(ring.head, ring.tail);
    munmap(p_flow, size);
}

TEST_F(Pow, TwoProducersAndTwoConsumersLoseAndDoubleNothing)
{
    expect_flow(300'000, run_in_threads, ring(FLOW_GROUP));
}

class PowSoak : public PacketFixture {};

TEST_F(PowSoak, FourProcessesLoseAndDoubleNothing)
{
    expect_flow(10'000'000, run_in_processes, ring(FLOW_GROUP));
}

TEST_F(Pow, AProducerKilledAtAnyMomentLeavesARingOfWholeEntries)
{
    uint32_t next = 0;  // the tag that must come next: producers go on where the last one's entries end
    for (int round = 0; round < 60; round++) {
        pid_t pid = fork();
        if (pid == 0) {
            cvmx_wqe_t work = {};
            for (work.tag = next;; work.tag++) {
                memset(work.packet_data, static_cast<int>(work.tag & 0xff), sizeof(work.packet_data));
                while (cvmx_work_push(&work) != 0)
                    sched_yield();
            }
        }
        cvmx_wqe_t work;
        auto pull_all = [&] {
            while (cvmx_work_pull(0, &work) == 0) {
                ASSERT_TRUE(is_whole(work)) << round;
                ASSERT_EQ(work.tag, next++) << round;
            }
        };
        for (int i = 0; i < 30 + round * 7; i++)
            pull_all();
        kill(pid, SIGKILL);
        pull_all();
        waitpid(pid, nullptr, 0);
        pull_all();
    }
}
