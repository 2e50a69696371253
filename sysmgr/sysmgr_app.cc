#include "sysmgr/sysmgr_app.h"

#include "common/lum_log.h"
#include "common/lum_util.h"
#include "common/msgq_util.h"
#include "common/timer.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <sys/socket.h>
#include <syslog.h>
#include <unistd.h>

static constexpr uint8_t sysmgr_msg_version = 1;
static constexpr uint32_t hello_interval_msecs = 1000;
static constexpr size_t reason_length_max = UINT16_MAX - sizeof(msgq_hdr_t) - sizeof(t_sysmgr_app_msg) - 1;
static_assert(reason_length_max == 65494);

time_t g_sysmgr_app_last_hello_time;

// ---- Sending ----

// A message whose fixed part is filled in but for its payload, with room for text_size bytes behind it. Null
// without memory.
static t_sysmgr_app_msg *message_new(t_sysmgr_app *p_app, e_sysmgr_app_msg_type type, size_t text_size)
{
    uint16_t size = static_cast<uint16_t>(sizeof(t_sysmgr_app_msg) + text_size);
    void *p_buf = msgq_msg_malloc(p_app->p_msgq, size);
    if (p_buf == nullptr)
        return nullptr;
    memset(p_buf, 0, sizeof(t_sysmgr_app_msg));
    t_sysmgr_app_msg *p_msg = static_cast<t_sysmgr_app_msg *>(p_buf);
    p_msg->hdr.version = sysmgr_msg_version;
    p_msg->hdr.msg_type = type;
    p_msg->hdr.msg_len = size;
    p_msg->pid = p_app->pid;
    return p_msg;
}

static void message_send(t_sysmgr_app *p_app, t_sysmgr_app_msg *p_msg)
{
    if (msgq_write(p_app->p_msgq, p_msg, p_msg->hdr.msg_len) != ERR_OK)
        msgq_msg_free(p_app->p_msgq, p_msg);
}

static void request_with_reason(t_sysmgr_app *p_app, e_sysmgr_app_msg_type type, const char *reason)
{
    size_t length = strnlen(reason, reason_length_max);
    t_sysmgr_app_msg *p_msg = message_new(p_app, type, length + 1);
    if (p_msg == nullptr)
        return;
    memcpy(p_msg->msg, reason, length);
    p_msg->msg[length] = '\0';
    message_send(p_app, p_msg);
}

static void request_with_vpn(t_sysmgr_app *p_app, e_sysmgr_app_msg_type type, uint64_t vpn_id)
{
    t_sysmgr_app_msg *p_msg = message_new(p_app, type, 0);
    if (p_msg == nullptr)
        return;
    p_msg->vpn_id = vpn_id;
    message_send(p_app, p_msg);
}

void sysmgr_app_request_reboot(t_sysmgr_app *p_app, const char *reason)
{
    request_with_reason(p_app, SYSMGR_APP_MSG_REBOOT, reason);
}

void sysmgr_app_request_shutdown(t_sysmgr_app *p_app, const char *reason)
{
    request_with_reason(p_app, SYSMGR_APP_MSG_SHUTDOWN, reason);
}

void sysmgr_app_request_vpn_daemons_start(t_sysmgr_app *p_app, uint64_t vpn_id)
{
    request_with_vpn(p_app, SYSMGR_APP_MSG_VPN_DAEMON_START, vpn_id);
}

void sysmgr_app_request_vpn_daemons_stop(t_sysmgr_app *p_app, uint64_t vpn_id)
{
    request_with_vpn(p_app, SYSMGR_APP_MSG_VPN_DAEMON_STOP, vpn_id);
}

void sysmgr_app_request_confd_init_done(t_sysmgr_app *p_app)
{
    request_with_vpn(p_app, SYSMGR_APP_MSG_CFGMGR_CONFD_INIT_DONE, 0);
}

// ---- The beat ----

// A beat that the queue didn't take counts like one that it took: the daemon was alive.
static void sysmgr_app_hello_cb(t_timer *, void *arg1, void *, void *, void *)
{
    t_sysmgr_app *p_app = static_cast<t_sysmgr_app *>(arg1);
    t_sysmgr_app_msg *p_msg = message_new(p_app, SYSMGR_APP_MSG_HELLO, 0);
    if (p_msg == nullptr)
        return;
    message_send(p_app, p_msg);
    time(&g_sysmgr_app_last_hello_time);
}

char *sysmgr_app_get_last_hello_time(char *p_buf, size_t size)
{
    char text[32] = "";
    ctime_r(&g_sysmgr_app_last_hello_time, text);
    snprintf(p_buf, size, "%.24s", text);
    return p_buf;
}

// ---- The channel ----

static void sysmgr_app_conn_up(msgq_handle_t *, void *user_arg_p)
{
    t_sysmgr_app *p_app = static_cast<t_sysmgr_app *>(user_arg_p);
    sysmgr_app_hello_cb(p_app->hello_timer, p_app, nullptr, nullptr, nullptr);
    timer_enable(p_app->hello_timer);
}

static void sysmgr_app_conn_down(msgq_handle_t *, void *user_arg_p)
{
    timer_disable(static_cast<t_sysmgr_app *>(user_arg_p)->hello_timer);
}

static void sysmgr_app_write_cb(msgq_handle_t *, void *) {}

// A reply is passed on only when all that it claims to hold is there.
static bool is_connect_reply(const t_sysmgr_app_msg *p_msg, uint16_t size)
{
    return size >= sizeof(*p_msg) && p_msg->hdr.msg_type == SYSMGR_APP_MSG_CONNECT_REPLY &&
           p_msg->hdr.msg_len <= size;
}

static void sysmgr_app_read_cb(msgq_handle_t *msgq_p, void *msg_p, uint16_t size, void *user_arg_p)
{
    const t_sysmgr_app *p_app = static_cast<t_sysmgr_app *>(user_arg_p);
    const t_sysmgr_app_msg *p_msg = static_cast<t_sysmgr_app_msg *>(msg_p);
    if (p_app->read_cb != nullptr && is_connect_reply(p_msg, size))
        p_app->read_cb(p_app->app_handle, p_msg);
    msgq_msg_free(msgq_p, msg_p);
}

static void *sysmgr_app_malloc(size_t size)
{
    return malloc(size);
}

static void sysmgr_app_free(void *p_mem)
{
    free(p_mem);
}

static msgq_handle_t *channel_open(t_sysmgr_app *p_app, event_base *p_event_base, t_timer_mgr *p_timer_mgr,
                                   uint32_t app_module_id)
{
    static constexpr msgq_app_cb_t callbacks = {
        .conn_up_cb = sysmgr_app_conn_up,
        .conn_down_cb = sysmgr_app_conn_down,
        .msg_write_cb = sysmgr_app_write_cb,
        .msg_read_cb = sysmgr_app_read_cb,
        .malloc_cb = sysmgr_app_malloc,
        .free_cb = sysmgr_app_free,
        .reboot_status_cb = nullptr,
    };
    msgq_app_params_t params = {};
    params.app_evbase_p = p_event_base;
    params.timer_mgr_p = p_timer_mgr;
    params.syslog_id = LOG_LOCAL7;
    params.socket_type = AF_UNIX;
    return msgq_init(app_module_id, LUM_MODULE_SYSMGR, MSGQ_HANDLE_TYPE_CLIENT, &params, &callbacks, p_app);
}

// ---- Set up and take down ----

t_sysmgr_app *app_sysmgr_connect(event_base *p_event_base, t_timer_mgr *p_timer_mgr, uint64_t,
                                 uint32_t app_module_id, void *app_handle, f_app_read_cb app_read_cb)
{
    g_sysmgr_app_last_hello_time = 0;
    t_sysmgr_app *p_app = static_cast<t_sysmgr_app *>(calloc(1, sizeof(t_sysmgr_app)));
    if (p_app == nullptr)
        return nullptr;
    p_app->pid = getpid();
    p_app->hello_timer =
        timer_util_create(p_timer_mgr, TIMER_PRI_HIGH, TIMER_TYPE_CYCLIC, hello_interval_msecs,
                          sysmgr_app_hello_cb, p_app, nullptr, nullptr, nullptr, "sysmgr-hello");
    if (p_app->hello_timer == nullptr) {
        free(p_app);
        return nullptr;
    }
    p_app->p_msgq = channel_open(p_app, p_event_base, p_timer_mgr, app_module_id);
    if (p_app->p_msgq == nullptr) {
        LUM_LOG(LUM_LOG_ERROR, "Module %s .. msgq_init FAILED", lum_util_module_name(app_module_id));
        timer_util_delete(p_app->hello_timer);
        free(p_app);
        return nullptr;
    }
    p_app->app_handle = app_handle;
    p_app->read_cb = app_read_cb;
    return p_app;
}

void app_sysmgr_disconnect(t_sysmgr_app *p_app)
{
    if (p_app == nullptr)
        return;
    msgq_destroy(p_app->p_msgq);
    timer_util_delete(p_app->hello_timer);
    free(p_app);
}
