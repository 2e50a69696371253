// What the message queue costs: a client and a server handle of one process, joined by a unix socket and
// driven by one loop. Time per message (ten in flight) and bytes per second by the size of the body, then the
// time of a question and its answer, then of a connection from its loss to the register message at the other
// end. The wheel's time is the bench's own, so that no retry is waited for.
#include <benchmark/benchmark.h>

#include <cstdlib>
#include <cstring>
#include <string>
#include <sys/socket.h>
#include <unistd.h>

#include <event2/event.h>

#include "common/msgq_util.h"
#include "common/timer.h"
#include "common/timer_private.h"

static timespec g_now = {1000, 0};

timespec timer_clock_read()
{
    return g_now;
}

// What a handle of the pair has seen.
struct t_end {
    uint64_t received = 0;
    uint64_t ups = 0;
    bool answers = false;
};

static void take_up(msgq_handle_t *, void *user_arg_p)
{
    static_cast<t_end *>(user_arg_p)->ups++;
}

static void take_message(msgq_handle_t *msgq_p, void *msg_p, uint16_t size, void *user_arg_p)
{
    auto *end_p = static_cast<t_end *>(user_arg_p);
    end_p->received++;
    if (!end_p->answers || msgq_write(msgq_p, msg_p, size) != ERR_OK)
        msgq_msg_free(msgq_p, msg_p);
}

static const msgq_app_cb_t g_callbacks = {.conn_up_cb = take_up,
                                          .conn_down_cb = nullptr,
                                          .msg_write_cb = [](msgq_handle_t *, void *) {},
                                          .msg_read_cb = take_message,
                                          .malloc_cb = malloc,
                                          .free_cb = free,
                                          .reboot_status_cb = nullptr};

struct t_pair {
    event_base *base = event_base_new();
    t_timer_mgr *timer_mgr =
        timer_mgr_create(TIMER_RESN_10MSEC, nullptr, nullptr, nullptr, TIMER_PRI_MASK_ALL);
    char folder[32] = "/tmp/msgq_bench.XXXXXX";
    t_end served, called;
    msgq_app_params_t params = {};
    msgq_handle_t *client_p;

    t_pair()
    {
        params.app_evbase_p = base;
        params.timer_mgr_p = timer_mgr;
        params.socket_type = AF_UNIX;
        snprintf(params.msg_path, sizeof(params.msg_path), "%s/q", mkdtemp(folder));
        msgq_init(LUM_MODULE_TARN, LUM_MODULE_FTM, MSGQ_HANDLE_TYPE_SERVER, &params, &g_callbacks, &served);
        call();
    }
    ~t_pair()
    {
        msgq_destroy_all();
        timer_mgr_destroy(timer_mgr);
        event_base_free(base);
        rmdir(folder);
    }
    t_pair(const t_pair &) = delete;
    t_pair &operator=(const t_pair &) = delete;

    // A client that is connected, and known at the other end.
    void call()
    {
        client_p = msgq_init(LUM_MODULE_FTM, LUM_MODULE_TARN, MSGQ_HANDLE_TYPE_CLIENT, &params, &g_callbacks,
                             &called);
        g_now.tv_sec += 1;
        (void)timer_exec(timer_mgr, TIMER_PRI_MASK_ALL, 1000);
        uint64_t ups = served.ups;
        while (served.ups == ups)
            event_base_loop(base, EVLOOP_ONCE);
    }

    void write(uint16_t size)
    {
        void *msg_p = msgq_msg_malloc(client_p, size);
        memset(msg_p, 'm', size);
        if (msgq_write(client_p, msg_p, size) != ERR_OK)
            abort();
    }
};

static void one_way(benchmark::State &state)
{
    t_pair pair;
    auto size = static_cast<uint16_t>(state.range(0));
    uint64_t sent = 0;
    for (auto _ : state) {
        for (int i = 0; i < 10; i++)
            pair.write(size);
        sent += 10;
        while (pair.served.received < sent)
            event_base_loop(pair.base, EVLOOP_ONCE);
    }
    state.SetItemsProcessed(static_cast<int64_t>(sent));
    state.SetBytesProcessed(static_cast<int64_t>(sent * size));
}
BENCHMARK(one_way)->Arg(32)->Arg(1'000)->Arg(10'000)->Arg(60'000);

static void question_and_answer(benchmark::State &state)
{
    t_pair pair;
    pair.served.answers = true;
    auto size = static_cast<uint16_t>(state.range(0));
    uint64_t sent = 0;
    for (auto _ : state) {
        pair.write(size);
        sent++;
        while (pair.called.received < sent)
            event_base_loop(pair.base, EVLOOP_ONCE);
    }
}
BENCHMARK(question_and_answer)->Arg(32)->Arg(1'000)->Arg(60'000)->Unit(benchmark::kMicrosecond);

static void reconnect(benchmark::State &state)
{
    t_pair pair;
    for (auto _ : state) {
        msgq_destroy(pair.client_p);
        pair.call();
    }
}
BENCHMARK(reconnect)->Unit(benchmark::kMicrosecond);

BENCHMARK_MAIN();
