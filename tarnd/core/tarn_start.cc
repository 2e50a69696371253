#include "tarnd/core/tarn_start.h"

#include "common/cli_print.h"
#include "common/lum_log.h"
#include "common/lum_util.h"
#include "common/priority_timers.h"
#include "common/timer.h"
#include "lconfd/lconfd_api.h"
#include "platform/confd/confd_maapi.h"
#include "sysmgr/sysmgr_app.h"
#include "tarnd/acl/tarn_intf_config.h"
#include "tarnd/compiler/tarn_context.h"
#include "tarnd/compiler/tarn_mem_mgr.h"
#include "tarnd/config/tarn_class.h"
#include "tarnd/config/tarn_confd.h"
#include "tarnd/config/tarn_policy.h"
#include "tarnd/core/tarn_main.h"
#include "tarnd/core/tarn_system_message.h"
#include "tarnd/dpi/tarn_dpi.h"
#include "tarnd/filter/tarn_if_octeon_zbf.h"
#include "tarnd/peers/tarn_ftm.h"
#include "tarnd/peers/tarn_ttm.h"

#include <cstdarg>
#include <cstdio>
#include <syslog.h>
#include <unistd.h>
#include <utility>

static int name_host(t_tarn *)
{
    if (gethostname(g_hostname, sizeof(g_hostname)) != 0)
        snprintf(g_hostname, sizeof(g_hostname), "Plinth");
    return 0;
}

static int open_log(t_tarn *)
{
    openlog(g_progname, LOG_PID | LOG_NDELAY, LOG_LOCAL7);
    tarn_system_message(TARN_MSG_STARTING);
    return 0;
}

__attribute__((format(printf, 3, 0))) static void print_to_session(t_lconfd_context *ctx, int usid,
                                                                   const char *format, va_list args)
{
    maapi_cli_vprintf(ctx->maapi_socket, usid, format, args);
}

// Dumps that operators ask for go to their sessions.
static int open_session_road(t_tarn *)
{
    cli_print_register(print_to_session);
    return 0;
}

static int bind_hw_api(t_tarn *p_tarn)
{
    p_tarn->p_hwapi = &g_tarn_octeon_api;
    return 0;
}

static void run_high_timers(void *p_ctx, uint32_t budget_ms)
{
    timer_exec(static_cast<t_tarn *>(p_ctx)->p_timer_mgr, TIMER_PRI_MASK_HIGH, budget_ms);
}

// The timers, and with them the long loops' way to keep the urgent ones alive.
static int start_timers(t_tarn *p_tarn)
{
    int status = tarn_base_timer_init(p_tarn);
    if (status == 0)
        tarn_priority_timers_register(run_high_timers, p_tarn, &p_tarn->last_hello_time);
    return status;
}

static void stop_timers(t_tarn *p_tarn)
{
    tarn_priority_timers_register(nullptr, nullptr);
    tarn_base_timer_destroy(p_tarn);
}

static int start_filter(t_tarn *p_tarn)
{
    return p_tarn->p_hwapi->filter_init(p_tarn, 1);
}

static void stop_filter(t_tarn *p_tarn)
{
    tarn_register_mem_mgr(nullptr);
    p_tarn->p_hwapi->filter_destroy();
}

// The compiler allocates its programs in filter memory.
static int register_filter_memory(t_tarn *p_tarn)
{
    t_tarn_mem_mgr mgr = {p_tarn->p_hwapi->filter_mem_alloc, p_tarn->p_hwapi->filter_mem_free};
    tarn_register_mem_mgr(&mgr);
    return 0;
}

// The daemon alone writes the zone tables; what its last run left in them is gone.
static int empty_zone_tables(t_tarn *)
{
    fp_zbf_pair_global_init();
    fp_vpn_zone_global_init();
    return 0;
}

static int create_context(t_tarn *p_tarn)
{
    p_tarn->p_context = tarn_context_create();
    return p_tarn->p_context != nullptr ? 0 : TARN_INIT_NO_MEMORY;
}

static void delete_context(t_tarn *p_tarn)
{
    tarn_delete_context(std::exchange(p_tarn->p_context, nullptr));
}

static void stop_ftm(t_tarn *p_tarn)
{
    tarn_ftm_destroy(p_tarn);
}

static void stop_ttm(t_tarn *p_tarn)
{
    tarn_ttm_destroy(p_tarn);
}

static int connect_sysmgr(t_tarn *p_tarn)
{
    p_tarn->p_sysmgr_app =
        app_sysmgr_connect(p_tarn->p_event_base, p_tarn->p_timer_mgr, 0, LUM_MODULE_TARN, p_tarn, nullptr);
    return p_tarn->p_sysmgr_app != nullptr ? 0 : TARN_INIT_NO_SYSMGR;
}

static void disconnect_sysmgr(t_tarn *p_tarn)
{
    app_sysmgr_disconnect(std::exchange(p_tarn->p_sysmgr_app, nullptr));
}

// The channels are up.
static int end_stage_1(t_tarn *)
{
    TARN_LOG("Initialization - Stage 1 complete");
    return 0;
}

static void stop_dpi(t_tarn *)
{
    tarn_dpi_destroy();
}

static void close_log(t_tarn *)
{
    closelog();
}

static const f_tarn_stop after_event[] = {tarn_event_destroy};
static const f_tarn_stop after_timers[] = {stop_timers, tarn_event_destroy};
static const f_tarn_stop after_filter[] = {stop_filter, stop_timers, tarn_event_destroy};
static const f_tarn_stop after_classes[] = {tarn_class_destroy, stop_filter, stop_timers, tarn_event_destroy};
static const f_tarn_stop after_sla_classes[] = {tarn_sla_class_destroy, tarn_class_destroy, stop_filter,
                                                stop_timers, tarn_event_destroy};
static const f_tarn_stop after_config[] = {tarn_config_destroy, tarn_sla_class_destroy,
                                           tarn_class_destroy,  stop_filter,
                                           stop_timers,         tarn_event_destroy};
static const f_tarn_stop after_ftm[] = {stop_ftm,           tarn_config_destroy, tarn_sla_class_destroy,
                                        tarn_class_destroy, stop_filter,         stop_timers,
                                        tarn_event_destroy};
static const f_tarn_stop after_ttm[] = {
    stop_ttm,           stop_ftm,    tarn_config_destroy, tarn_sla_class_destroy,
    tarn_class_destroy, stop_filter, stop_timers,         tarn_event_destroy};
// From here on the classes go before the store.
static const f_tarn_stop after_context[] = {
    delete_context,      stop_ttm,    stop_ftm,    tarn_sla_class_destroy, tarn_class_destroy,
    tarn_config_destroy, stop_filter, stop_timers, tarn_event_destroy};
static const f_tarn_stop after_confd[] = {
    tarn_confd_destroy, delete_context,      stop_ttm,    stop_ftm,    tarn_sla_class_destroy,
    tarn_class_destroy, tarn_config_destroy, stop_filter, stop_timers, tarn_event_destroy};

static const t_tarn_start_step start_steps[] = {
    {"host name", name_host, {}},
    {"log", open_log, {}},
    {"session printing", open_session_road, {}},
    {"event base", tarn_event_create, {}},
    {"forwarding-plane operations", bind_hw_api, {}},
    {"timers", start_timers, after_event},
    {"filter memory", start_filter, after_timers},
    {"program memory", register_filter_memory, {}},
    {"zone tables", empty_zone_tables, {}},
    {"application catalogue", tarn_dpi_begin_start, {}},
    {"classes", tarn_class_init, after_filter},
    {"SLA classes", tarn_sla_class_init, after_classes},
    {"store", tarn_config_init, after_sla_classes},
    {"access lists", tarn_intf_config_init, after_config},
    {"FTM", tarn_ftm_init, after_config},
    {"TTM", tarn_ttm_init, after_ftm},
    {"compiler context", create_context, after_ttm},
    {"management adapter", tarn_confd_init, after_context},
    {"system manager", connect_sysmgr, after_confd},
    {"end of stage 1", end_stage_1, {}},
    {"end of application catalogue", tarn_dpi_finish_start, {}},
};

// The classes stay, and FTM goes before TTM.
static const f_tarn_stop stop_order[] = {
    disconnect_sysmgr,   stop_dpi,    tarn_confd_destroy, delete_context,     stop_ftm, stop_ttm,
    tarn_config_destroy, stop_filter, stop_timers,        tarn_event_destroy, close_log};

std::span<const t_tarn_start_step> g_tarn_start_steps = start_steps;
std::span<const f_tarn_stop> g_tarn_stop_order = stop_order;

int tarn_init(t_tarn *p_tarn)
{
    for (const t_tarn_start_step &step : g_tarn_start_steps) {
        int status = step.start(p_tarn);
        if (status == 0)
            continue;
        for (f_tarn_stop stop : step.unwinding)
            stop(p_tarn);
        return status;
    }
    TARN_LOG("Initialization - Stage 2 complete");
    return 0;
}

int tarn_destroy(t_tarn *p_tarn)
{
    for (f_tarn_stop stop : g_tarn_stop_order)
        stop(p_tarn);
    return 0;
}
