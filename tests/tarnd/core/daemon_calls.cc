#include "tests/tarnd/core/daemon_calls.h"

#include <cerrno>
#include <cstring>
#include <event2/event.h>
#include <unistd.h>

#include "common/lum_log.h"
#include "common/timer.h"
#include "fp_api/fp_tables.h"
#include "sysmgr/sysmgr_app.h"
#include "tarnd/compiler/tarn_context.h"

static DaemonCalls *g_calls;

// ---- Filter memory ----

static int fake_filter_init(t_tarn *p_tarn, uint8_t do_init)
{
    g_calls->started.push_back("filter_init " + std::to_string(do_init));
    return g_calls->filter_init ? g_calls->filter_init(p_tarn, do_init) : 0;
}

static int fake_filter_destroy()
{
    g_calls->stopped.push_back("filter memory");
    return 0;
}

static void *fake_mem_alloc(size_t)
{
    return nullptr;
}

static void fake_mem_free(void *) {}

DaemonCalls::DaemonCalls() : real_api(g_tarn_octeon_api), global_ctrl(new t_fp_global_ctrl())
{
    g_fp_global_ctrl = global_ctrl.get();
    g_calls = this;
    g_tarn_octeon_api.filter_init = fake_filter_init;
    g_tarn_octeon_api.filter_destroy = fake_filter_destroy;
    g_tarn_octeon_api.filter_mem_alloc = fake_mem_alloc;
    g_tarn_octeon_api.filter_mem_free = fake_mem_free;
}

DaemonCalls::~DaemonCalls()
{
    g_tarn_octeon_api = real_api;
    g_fp_global_ctrl = nullptr;
    g_calls = nullptr;
}

bool DaemonCalls::fails(const std::string &function)
{
    auto found = countdown.find(function);
    return found != countdown.end() && --found->second == 0;
}

// ---- Wrapped calls ----

static bool start(const char *function)
{
    if (g_calls == nullptr)
        return true;
    g_calls->started.emplace_back(function);
    return !g_calls->fails(function);
}

static void stop(const char *what)
{
    if (g_calls != nullptr)
        g_calls->stopped.emplace_back(what);
}

extern "C" {
event_config *__real_event_config_new();
event_base *__real_event_base_new_with_config(const event_config *p_config);
event *__real_event_new(event_base *p_base, int fd, short what, event_callback_fn callback, void *arg);
int __real_event_add(event *p_event, const timeval *p_interval);
void __real_event_active(event *p_event, int what, short count);
int __real_gethostname(char *name, size_t size);
void __real_openlog(const char *ident, int option, int facility);
void __real_closelog();

event_config *__wrap_event_config_new()
{
    return start("event_config_new") ? __real_event_config_new() : nullptr;
}

event_base *__wrap_event_base_new_with_config(const event_config *p_config)
{
    return start("event_base_new_with_config") ? __real_event_base_new_with_config(p_config) : nullptr;
}

event *__wrap_event_new(event_base *p_base, int fd, short what, event_callback_fn callback, void *arg)
{
    return start("event_new") ? __real_event_new(p_base, fd, what, callback, arg) : nullptr;
}

int __wrap_event_add(event *p_event, const timeval *p_interval)
{
    if (g_calls != nullptr && p_interval != nullptr) {
        long usecs = p_interval->tv_sec * 1000000 + p_interval->tv_usec;
        g_calls->timer_calls.push_back("event_add " + std::to_string(usecs) + " us");
        if (g_calls->fails("event_add"))
            return -1;
    }
    return __real_event_add(p_event, p_interval);
}

void __wrap_event_active(event *p_event, int what, short count)
{
    g_calls->timer_calls.push_back("event_active " + std::to_string(what) + ' ' + std::to_string(count));
    __real_event_active(p_event, what, count);
}

int __wrap_gethostname(char *name, size_t size)
{
    return start("gethostname") ? __real_gethostname(name, size) : -1;
}

int __wrap_daemon(int, int)
{
    bool started = start("daemon");
    errno = started ? 0 : EAGAIN;
    return started ? 0 : -1;
}

void __wrap_openlog(const char *ident, int option, int facility)
{
    start(("openlog " + std::string(ident) + ' ' + std::to_string(option) + ' ' + std::to_string(facility))
              .c_str());
    __real_openlog(ident, option, facility);
}

void __wrap_closelog()
{
    stop("log");
    __real_closelog();
}
}

// C++ names, as the linker sees them.

using f_timer_mgr_create = t_timer_mgr *(e_timer_resn, f_timer_alloc, f_timer_free, void *, uint32_t);
f_timer_mgr_create real_timer_mgr_create asm("__real__Z16timer_mgr_create12e_timer_resnPFPvmEPFvS0_ES0_j");
f_timer_mgr_create wrap_timer_mgr_create asm("__wrap__Z16timer_mgr_create12e_timer_resnPFPvmEPFvS0_ES0_j");
t_timer_mgr *wrap_timer_mgr_create(e_timer_resn resolution, f_timer_alloc alloc_fn, f_timer_free free_fn,
                                   void *mem_arg, uint32_t pri_mask)
{
    return start("timer_mgr_create") ? real_timer_mgr_create(resolution, alloc_fn, free_fn, mem_arg, pri_mask)
                                     : nullptr;
}

using f_timer_exec = int(t_timer_mgr *, uint32_t, uint32_t);
f_timer_exec real_timer_exec asm("__real__Z10timer_execP11t_timer_mgrjj");
f_timer_exec wrap_timer_exec asm("__wrap__Z10timer_execP11t_timer_mgrjj");
int wrap_timer_exec(t_timer_mgr *p_mgr, uint32_t pri_mask, uint32_t msecs)
{
    g_calls->timer_calls.push_back("timer_exec " + std::to_string(pri_mask) + ' ' + std::to_string(msecs));
    if (g_calls->timer_exec_results.empty())
        return real_timer_exec(p_mgr, pri_mask, msecs);
    int result = g_calls->timer_exec_results.front();
    g_calls->timer_exec_results.pop_front();
    return result;
}

using f_context_create = t_tarn_context *();
f_context_create real_context_create asm("__real__Z19tarn_context_createv");
f_context_create wrap_context_create asm("__wrap__Z19tarn_context_createv");
t_tarn_context *wrap_context_create()
{
    return start("tarn_context_create") ? real_context_create() : nullptr;
}

using f_context_delete = void(t_tarn_context *);
f_context_delete real_delete_context asm("__real__Z19tarn_delete_contextP14t_tarn_context");
f_context_delete wrap_delete_context asm("__wrap__Z19tarn_delete_contextP14t_tarn_context");
void wrap_delete_context(t_tarn_context *p_context)
{
    stop("compiler context");
    real_delete_context(p_context);
}

// Parts of t_tarn. carried_out: whether the real function runs, too; those that reach other processes or
// shared memory do not.

using f_part_start = int(t_tarn *);
using f_part_stop = void(t_tarn *);
using f_part_stop_told = int(t_tarn *);

static constexpr int part_status = 78;

#define PART_START(name, symbol, carried_out)                                                                \
    f_part_start real_##name asm("__real_" symbol);                                                          \
    f_part_start wrap_##name asm("__wrap_" symbol);                                                          \
    int wrap_##name(t_tarn *p_tarn)                                                                          \
    {                                                                                                        \
        if (!start(#name))                                                                                   \
            return part_status;                                                                              \
        return (carried_out) ? real_##name(p_tarn) : 0;                                                      \
    }

#define PART_STOP(name, symbol, what)                                                                        \
    f_part_stop real_##name asm("__real_" symbol);                                                           \
    f_part_stop wrap_##name asm("__wrap_" symbol);                                                           \
    void wrap_##name(t_tarn *p_tarn)                                                                         \
    {                                                                                                        \
        stop(what);                                                                                          \
        real_##name(p_tarn);                                                                                 \
    }

#define CHANNEL_STOP(name, symbol, what)                                                                     \
    f_part_stop_told wrap_##name asm("__wrap_" symbol);                                                      \
    int wrap_##name(t_tarn *)                                                                                \
    {                                                                                                        \
        stop(what);                                                                                          \
        return 0;                                                                                            \
    }

PART_START(tarn_class_init, "_Z15tarn_class_initP6t_tarn", true)
PART_START(tarn_sla_class_init, "_Z19tarn_sla_class_initP6t_tarn", true)
PART_START(tarn_config_init, "_Z16tarn_config_initP6t_tarn", true)
PART_START(tarn_ftm_init, "_Z13tarn_ftm_initP6t_tarn", false)
PART_START(tarn_ttm_init, "_Z13tarn_ttm_initP6t_tarn", false)

PART_START(tarn_intf_config_init, "_Z21tarn_intf_config_initP6t_tarn", true)

void wrap_zbf_pair_init() asm("__wrap__Z23fp_zbf_pair_global_initv");
void wrap_zbf_pair_init()
{
    start("fp_zbf_pair_global_init");
}

void wrap_vpn_zone_init() asm("__wrap__Z23fp_vpn_zone_global_initv");
void wrap_vpn_zone_init()
{
    start("fp_vpn_zone_global_init");
}

PART_START(tarn_confd_init, "_Z15tarn_confd_initP6t_tarn", false)

f_part_stop wrap_confd_destroy asm("__wrap__Z18tarn_confd_destroyP6t_tarn");
void wrap_confd_destroy(t_tarn *)
{
    stop("management adapter");
}

PART_STOP(base_timer_destroy, "_Z23tarn_base_timer_destroyP6t_tarn", "timers")
PART_STOP(event_destroy, "_Z18tarn_event_destroyP6t_tarn", "event base")
PART_STOP(class_destroy, "_Z18tarn_class_destroyP6t_tarn", "classes")
PART_STOP(sla_class_destroy, "_Z22tarn_sla_class_destroyP6t_tarn", "SLA classes")
PART_STOP(config_destroy, "_Z19tarn_config_destroyP6t_tarn", "store")
CHANNEL_STOP(ftm_destroy, "_Z16tarn_ftm_destroyP6t_tarn", "FTM")
CHANNEL_STOP(ttm_destroy, "_Z16tarn_ttm_destroyP6t_tarn", "TTM")

// Logs, so that its place among the daemon's own lines shows.
f_part_start wrap_dpi_finish_start asm("__wrap__Z21tarn_dpi_finish_startP6t_tarn");
int wrap_dpi_finish_start(t_tarn *)
{
    TARN_LOG("application catalogue");
    return 0;
}

void wrap_dpi_destroy() asm("__wrap__Z16tarn_dpi_destroyv");
void wrap_dpi_destroy()
{
    stop("application catalogue");
}

static t_sysmgr_app sysmgr_app;

using f_sysmgr_connect = t_sysmgr_app *(event_base *, t_timer_mgr *, uint64_t, uint32_t, void *,
                                        f_app_read_cb);
f_sysmgr_connect wrap_sysmgr_connect asm(
    "__wrap__Z18app_sysmgr_connectP10event_baseP11t_timer_mgrmjPvPFvS3_PK16t_sysmgr_app_msgE");
t_sysmgr_app *wrap_sysmgr_connect(event_base *, t_timer_mgr *, uint64_t vpn_id, uint32_t module, void *,
                                  f_app_read_cb)
{
    bool started = start("app_sysmgr_connect");
    if (g_calls != nullptr)
        g_calls->started.back() += ' ' + std::to_string(vpn_id) + ' ' + std::to_string(module);
    return started ? &sysmgr_app : nullptr;
}

void wrap_sysmgr_disconnect(t_sysmgr_app *) asm("__wrap__Z21app_sysmgr_disconnectP12t_sysmgr_app");
void wrap_sysmgr_disconnect(t_sysmgr_app *)
{
    stop("system manager");
}
