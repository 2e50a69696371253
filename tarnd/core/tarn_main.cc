#include "tarnd/core/tarn_main.h"

#include "common/lum_log.h"
#include "common/lum_process.h"
#include "common/lum_signal.h"
#include "common/lum_util.h"
#include "common/timer.h"
#include "tarnd/core/tarn_start.h"

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <event2/event.h>
#include <unistd.h>
#include <utility>

t_tarn g_tarn;
uint8_t run_foreground;
char g_hostname[128];
char g_progname[] = "TARND";

static constexpr uint64_t full_debug = ~uint64_t{TARN_DEBUG_STDOUT};
static constexpr uint32_t timer_budget_ms = 100;

void str_reverse(char *text)
{
    if (text == nullptr)
        return;
    for (size_t i = 0, j = strlen(text); i + 1 < j; i++)
        std::swap(text[i], text[--j]);
}

void tarn_set_config_params(int argc, char **argv)
{
    for (int option = getopt(argc, argv, "fd"); option != -1; option = getopt(argc, argv, "fd")) {
        switch (option) {
        case 'f':
            run_foreground = 1;
            break;
        case 'd':  // not in the usage: for developers
            g_tarn_debug_flags = full_debug;
            break;
        default:
            fprintf(stderr, "usage: tarnd [-f]\n");
            exit(1);
        }
    }
}

int tarn_event_create(t_tarn *p_tarn)
{
    event_config *p_config = event_config_new();
    if (p_config == nullptr)
        return TARN_INIT_NO_MEMORY;
    event_config_require_features(p_config, EV_FEATURE_ET | EV_FEATURE_O1);
    event_config_set_flag(p_config, EVENT_BASE_FLAG_NOLOCK);
    p_tarn->p_event_base = event_base_new_with_config(p_config);
    event_config_free(p_config);
    if (p_tarn->p_event_base == nullptr)
        return TARN_INIT_NO_MEMORY;
    // Priorities are fixed before the first event.
    event_base_priority_init(p_tarn->p_event_base, 2);

    p_tarn->p_signal1_event =
        event_new(p_tarn->p_event_base, SIGUSR1, EV_SIGNAL | EV_PERSIST, tarn_usr1_signal, p_tarn);
    if (p_tarn->p_signal1_event == nullptr)
        return TARN_INIT_NO_SIGNAL;
    event_add(p_tarn->p_signal1_event, nullptr);
    p_tarn->p_signal2_event =
        event_new(p_tarn->p_event_base, SIGUSR2, EV_SIGNAL | EV_PERSIST, tarn_usr2_signal, p_tarn);
    if (p_tarn->p_signal2_event == nullptr)
        return TARN_INIT_NO_SIGNAL;
    event_add(p_tarn->p_signal2_event, nullptr);

    lum_signal_install_spurious_handler();
    lum_signal_install_term_handler();
    return 0;
}

void tarn_event_destroy(t_tarn *p_tarn)
{
    event_free(std::exchange(p_tarn->p_signal1_event, nullptr));
    event_free(std::exchange(p_tarn->p_signal2_event, nullptr));
    event_base_free(std::exchange(p_tarn->p_event_base, nullptr));
}

static int base_timer_failed(t_tarn *p_tarn)
{
    event_free(std::exchange(p_tarn->p_base_timer, nullptr));
    return TARN_INIT_NO_MEMORY;
}

int tarn_base_timer_init(t_tarn *p_tarn)
{
    p_tarn->p_base_timer = event_new(p_tarn->p_event_base, -1, 0, tarn_base_timer_cb, p_tarn);
    if (p_tarn->p_base_timer == nullptr)
        return TARN_INIT_NO_MEMORY;
    p_tarn->p_timer_mgr = timer_mgr_create(TIMER_RESN_10MSEC, nullptr, nullptr, nullptr, TIMER_PRI_MASK_ALL);
    if (p_tarn->p_timer_mgr == nullptr)
        return base_timer_failed(p_tarn);
    timeval interval;
    timer_mgr_get_resolution(p_tarn->p_timer_mgr, &interval);
    if (event_add(p_tarn->p_base_timer, &interval) != 0) {
        timer_mgr_destroy(std::exchange(p_tarn->p_timer_mgr, nullptr));
        return base_timer_failed(p_tarn);
    }
    return 0;
}

void tarn_base_timer_destroy(t_tarn *p_tarn)
{
    event_del(p_tarn->p_base_timer);
    event_free(std::exchange(p_tarn->p_base_timer, nullptr));
    timer_mgr_destroy(std::exchange(p_tarn->p_timer_mgr, nullptr));
}

void tarn_base_timer_cb(int, short what, void *arg)
{
    // An activation by hand comes with no bit at all.
    if ((what & ~EV_TIMEOUT) != 0) {
        TARN_LOG("Spurious timer ignored what = %#x arg = %p", static_cast<unsigned>(what), arg);
        return;
    }
    t_tarn *p_tarn = static_cast<t_tarn *>(arg);
    // Re-armed before the work, so that the work does not stretch the period.
    timeval interval;
    timer_mgr_get_resolution(p_tarn->p_timer_mgr, &interval);
    event_add(p_tarn->p_base_timer, &interval);
    if (timer_exec(p_tarn->p_timer_mgr, TIMER_PRI_MASK_ALL, timer_budget_ms) == EAGAIN)
        event_active(p_tarn->p_base_timer, 0, 0);
}

void tarn_usr1_signal(int, short, void *)
{
    g_tarn_debug_flags = g_tarn_debug_flags == TARN_DEBUG_NONE ? full_debug : TARN_DEBUG_NONE;
    TARN_LOG("Setting debug-flags to %#lx", static_cast<unsigned long>(g_tarn_debug_flags));
}

void tarn_usr2_signal(int, short, void *arg)
{
    TARN_LOG("Received termination signal. Stopping and exiting gracefully..");
    event_base_loopbreak(static_cast<t_tarn *>(arg)->p_event_base);
    lum_signal_spurious_check();
}

int appmain(int argc, char **argv)
{
    const char *name = lum_util_module_name(LUM_MODULE_TARN);
    int pid = lum_util_check_pid_file(name, 0, nullptr);
    if (pid >= 0) {
        TARN_LOG("Daemon %s already exists @ pid %d", name, pid);
        return -1;
    }
    tarn_set_config_params(argc, argv);
    if (!run_foreground && daemon(0, 0) != 0) {
        TARN_LOG("Failed to daemonize process: %s", strerror(errno));
        exit(-1);
    }
    int status = tarn_init(&g_tarn);
    if (status != 0)
        return status;
    event_base_loop(g_tarn.p_event_base, 0);
    tarn_destroy(&g_tarn);
    return 0;
}
