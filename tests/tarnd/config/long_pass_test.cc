// A pass of many seconds, seen by the system manager: the hellos go on.
//
// The daemon's own pass, compiler, filter memory, timers and hello client run here; at the other end of the
// manager's socket a thread writes down when each hello arrives. Filter memory has room for the first two
// programs, large ones; all other contexts are compiled in vain, which costs as much.
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <cstring>
#include <event2/event.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <thread>
#include <unistd.h>

#include "bench/median.h"
#include "common/lum_util.h"
#include "common/msgq_util.h"
#include "common/timer.h"
#include "fp_api/fp_scaling.h"
#include "sysmgr/sysmgr_app.h"
#include "tarnd/config/tarn_process.h"
#include "tests/common/own_root.h"
#include "tests/tarnd/config/long_pass_daemon.h"

using std::chrono::steady_clock;

// ---- The manager's end ----

namespace {

class Manager {
public:
    Manager();
    // After the client has gone. When hellos came.
    std::vector<steady_clock::time_point> finish();
    size_t hellos() const
    {
        return count;
    }

private:
    void serve();

    int listening;
    std::atomic<size_t> count = 0;
    std::vector<steady_clock::time_point> times;  // the thread's, until it has ended
    std::thread thread;
};

}  // namespace

Manager::Manager() : listening(socket(AF_UNIX, SOCK_STREAM, 0))
{
    sockaddr_un address = {AF_UNIX, "/var/run/.sysmgrd"};
    unlink(address.sun_path);
    EXPECT_EQ(bind(listening, reinterpret_cast<sockaddr *>(&address), sizeof(address)), 0);
    EXPECT_EQ(listen(listening, 1), 0);
    thread = std::thread(&Manager::serve, this);
}

void Manager::serve()
{
    int fd = accept(listening, nullptr, nullptr);
    msgq_hdr_t header;
    while (recv(fd, &header, sizeof(header), MSG_WAITALL) == sizeof(header)) {
        t_sysmgr_app_msg body = {};
        size_t size = header.size - sizeof(header);
        EXPECT_LE(size, sizeof(body));
        if (size == 0)
            continue;  // it says who it is
        EXPECT_EQ(recv(fd, &body, size, MSG_WAITALL), static_cast<ssize_t>(size));
        EXPECT_EQ(body.hdr.msg_type, SYSMGR_APP_MSG_HELLO);
        times.push_back(steady_clock::now());
        count++;
    }
    close(fd);
}

std::vector<steady_clock::time_point> Manager::finish()
{
    thread.join();
    close(listening);
    return std::move(times);
}

// ---- The longest stretches without a look at the timers, in CPU time: what others use does not count ----

static double g_looked_ms;
static double g_longest_ms;
static double g_longest_write_ms;  // while a program was written into filter memory
static bool g_is_writing;

static double cpu_ms()
{
    timespec now;
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &now);
    return static_cast<double>(now.tv_sec) * 1e3 + static_cast<double>(now.tv_nsec) / 1e6;
}

static void look()
{
    double now = cpu_ms();
    double stretch = now - std::exchange(g_looked_ms, now);
    g_longest_ms = std::max(g_longest_ms, stretch);
    if (g_is_writing)
        g_longest_write_ms = std::max(g_longest_write_ms, stretch);
}

static double longest_stretch_of(void (*work)())
{
    g_looked_ms = cpu_ms();
    g_longest_ms = 0;
    work();
    look();
    return g_longest_ms;
}

using f_exec = int();
f_exec real_exec asm("__real__Z25tarn_exec_priority_timersv");
f_exec wrap_exec asm("__wrap__Z25tarn_exec_priority_timersv");
int wrap_exec()
{
    look();
    return real_exec();
}

using f_alloc = void *(size_t);
f_alloc real_alloc asm("__real__Z25tarn_oct_filter_mem_allocm");
f_alloc wrap_alloc asm("__wrap__Z25tarn_oct_filter_mem_allocm");
void *wrap_alloc(size_t size)
{
    look();
    void *p_mem = real_alloc(size);
    g_is_writing = p_mem != nullptr;
    return p_mem;
}

using f_bind = int(t_tarn *, t_tarn_policy *, t_tarn_policy_vpn_list *, t_tarn_vpn *);
f_bind real_bind asm(
    "__real__Z27tarn_bind_policy_to_vpnlistP6t_tarnP13t_tarn_policyP22t_tarn_policy_vpn_listP10t_tarn_vpn");
f_bind wrap_bind asm(
    "__wrap__Z27tarn_bind_policy_to_vpnlistP6t_tarnP13t_tarn_policyP22t_tarn_policy_vpn_listP10t_tarn_vpn");
int wrap_bind(t_tarn *p_tarn, t_tarn_policy *p_policy, t_tarn_policy_vpn_list *p_context, t_tarn_vpn *p_vpn)
{
    look();
    g_is_writing = false;
    return real_bind(p_tarn, p_policy, p_context, p_vpn);
}

// ---- The pass ----

static LargeDaemon *g_daemon;

// Contexts whose programs fit into filter memory, with some 45 MiB each.
static constexpr size_t fitting = 2;
static constexpr size_t fitting_rules = 500;

namespace {

struct t_load {
    size_t rules;          // of a context that finds no memory
    int hello_msecs;       // between hellos
    double pass_msecs;     // at least
    double stretch_msecs;  // at most
};

struct t_result {
    double pass_ms;
    double stretch_ms;
    double write_stretch_ms;
    double release_stretch_ms;
    double longest_gap_ms;  // between hellos
    size_t hellos;          // during the pass
};

}  // namespace

static void fill_memory(LargeDaemon *p_daemon, const t_load &load, size_t contexts)
{
    for (uint64_t i = 0; i < contexts; i++) {
        size_t rules = i < fitting ? fitting_rules : load.rules;
        p_daemon->add_policy(("p" + std::to_string(i)).c_str(),
                             rules_generate(e_rule_family::fw, rules, i + 1));
    }
}

static t_sysmgr_app *connect(event_base *p_base, const Manager &manager)
{
    t_timer_mgr *p_timer_mgr = g_daemon->tarn.p_timer_mgr;
    t_sysmgr_app *p_app =
        app_sysmgr_connect(p_base, p_timer_mgr, 0, LUM_MODULE_TARN, &g_daemon->tarn, nullptr);
    for (auto start = bench_now(); manager.hellos() == 0 && bench_ms_since(start) < 10000; usleep(1000)) {
        event_base_loop(p_base, EVLOOP_NONBLOCK);
        timer_exec(p_timer_mgr, TIMER_PRI_MASK_ALL, 100);
    }
    EXPECT_EQ(manager.hellos(), 1u);
    return p_app;
}

static void check_contexts(size_t contexts)
{
    int waiting = 0;
    for (const t_tarn_policy_vpn_list *p_context : g_daemon->contexts())
        waiting += p_context->filter_id == g_fp_scaling.num_filters;
    EXPECT_EQ(waiting, static_cast<int>(contexts - fitting));
    EXPECT_EQ(g_daemon->store.take().size(), contexts) << "all are announced";
}

static double longest_gap_of(const std::vector<steady_clock::time_point> &times)
{
    double longest = 0;
    for (size_t i = 1; i < times.size(); i++)
        longest =
            std::max(longest, std::chrono::duration<double, std::milli>(times[i] - times[i - 1]).count());
    return longest;
}

// The release clears filter memory. Those who wait have gone by then, or they would try again.
static double release_all()
{
    std::vector<std::string> names;
    for (void *p = avl_first(&g_daemon->tarn.policy_db); p != nullptr;
         p = avl_walk(&g_daemon->tarn.policy_db, p))
        names.push_back(static_cast<t_tarn_policy *>(p)->key.name);
    for (const std::string &name : names)
        EXPECT_EQ(tarn_policy_delete(&g_daemon->tarn, TARN_POLICY_TYPE_DATA, name.c_str()), 0);
    return longest_stretch_of([] { g_daemon->release(); });
}

static t_result run_pass(const t_load &load, size_t contexts)
{
    LargeDaemon daemon;
    g_daemon = &daemon;
    fill_memory(&daemon, load, contexts);
    Manager manager;
    event_base *p_base = event_base_new();
    t_sysmgr_app *p_app = connect(p_base, manager);
    timer_reset(p_app->hello_timer, load.hello_msecs);

    t_result result = {};
    g_longest_write_ms = 0;
    auto start = bench_now();
    result.stretch_ms = longest_stretch_of([] { EXPECT_EQ(tarn_process_config(&g_daemon->tarn), 0); });
    result.write_stretch_ms = g_longest_write_ms;
    result.pass_ms = bench_ms_since(start);
    timer_exec(daemon.tarn.p_timer_mgr, TIMER_PRI_MASK_HIGH, 100);
    result.hellos = manager.hellos() - 1;
    check_contexts(contexts);

    app_sysmgr_disconnect(p_app);
    event_base_free(p_base);
    result.longest_gap_ms = longest_gap_of(manager.finish());
    result.release_stretch_ms = release_all();
    return result;
}

// As many contexts as it takes on this machine.
static void check_liveness(const t_load &load, size_t contexts)
{
    t_result result;
    do {
        result = run_pass(load, contexts);
        printf(
            "%zu contexts: pass %.0f ms, %zu hellos, longest gap %.0f ms; longest stretch %.1f ms, writing "
            "%.1f ms, releasing %.1f ms\n",
            contexts, result.pass_ms, result.hellos, result.longest_gap_ms, result.stretch_ms,
            result.write_stretch_ms, result.release_stretch_ms);
        EXPECT_LE(result.longest_gap_ms, load.hello_msecs + 100);
        EXPECT_GE(static_cast<double>(result.hellos), result.pass_ms / (load.hello_msecs + 100) - 1);
        EXPECT_LE(result.stretch_ms, load.stretch_msecs);
        EXPECT_LE(result.write_stretch_ms, 10);
        EXPECT_LE(result.release_stretch_ms, 100);
        contexts *= 2;
    } while (result.pass_ms < load.pass_msecs && !testing::Test::HasFailure());
}

TEST(LongPass, NoHelloIsLate)
{
    in_own_root([] { check_liveness({1000, 100, 2000, 25}, 16); });
}

TEST(LongPassSoak, NoHelloIsLateInTenSeconds)
{
    in_own_root([] { check_liveness({2000, 1000, 10000, 100}, 50); });
}
