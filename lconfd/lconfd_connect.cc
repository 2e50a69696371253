// A connection's life: opened in steps, torn down as a whole, opened again by a timer.
#include "lconfd/lconfd_private.h"

#include "common/timer.h"
#include "lconfd/lconfd_notif.h"
#include "platform/confd/confd_maapi.h"

#include <arpa/inet.h>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <event2/event.h>
#include <fcntl.h>
#include <new>
#include <string>
#include <unistd.h>
#include <utility>

static constexpr uint32_t retry_interval_ms = 2000;

// ---- Sockets ----

const sockaddr *lconfd_address()
{
    static const sockaddr_in address = [] {
        sockaddr_in made = {};
        made.sin_family = AF_INET;
        made.sin_port = htons(CONFD_PORT);
        made.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        return made;
    }();
    return reinterpret_cast<const sockaddr *>(&address);
}

int lconfd_socket_new()
{
    return socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
}

LconfdSocket::LconfdSocket() : fd(lconfd_socket_new()) {}

LconfdSocket::~LconfdSocket()
{
    if (fd >= 0)
        close(fd);
}

static bool open_socket(int *p_fd, const char *name)
{
    *p_fd = lconfd_socket_new();
    if (*p_fd < 0)
        LCONFD_LOG("Failed to open %s socket (errno: %d)", name, errno);
    return *p_fd >= 0;
}

static bool check_connect(int result, const char *name)
{
    if (result != CONFD_OK)
        LCONFD_LOG("Failed to connect %s socket to confd %s (%d) : %s", name, LCONFD_WHY);
    return result == CONFD_OK;
}

bool lconfd_open_worker_sockets(t_lconfd_context *ctx)
{
    return open_socket(&ctx->ctrl_socket, "control") && open_socket(&ctx->worker_socket, "worker");
}

bool lconfd_connect_worker_sockets(t_lconfd_context *ctx)
{
    auto connected = [ctx](int fd, confd_sock_type type, const char *name) {
        return check_connect(
            confd_connect(ctx->confd_dctx_p, fd, type, lconfd_address(), LCONFD_ADDRESS_SIZE), name);
    };
    return connected(ctx->ctrl_socket, CONTROL_SOCKET, "control") &&
           connected(ctx->worker_socket, WORKER_SOCKET, "worker");
}

static bool open_sockets(t_lconfd_context *ctx)
{
    ctx->notification_socket = 0;
    return lconfd_open_worker_sockets(ctx) && open_socket(&ctx->data_socket, "data") &&
           open_socket(&ctx->sub_socket, "subscription") && open_socket(&ctx->maapi_socket, "maapi") &&
           (ctx->module_data.confd_notif_ctxt == nullptr ||
            open_socket(&ctx->notification_socket, "notification"));
}

static bool connect_notification_socket(const t_lconfd_context *ctx)
{
    const t_lconfd_notification *p_wish = ctx->module_data.confd_notif_ctxt;
    if (p_wish == nullptr)
        return true;
    confd_notifications_data data = {.heartbeat_interval = 0,
                                     .health_check_interval = p_wish->health_check_interval};
    int result = confd_notifications_connect2(ctx->notification_socket, lconfd_address(), LCONFD_ADDRESS_SIZE,
                                              p_wish->notification_events_mask,
                                              p_wish->health_check_interval != 0 ? &data : nullptr);
    return check_connect(result, "notification");
}

// The subscription socket is left to the registration thread.
static bool connect_sockets(t_lconfd_context *ctx)
{
    return lconfd_connect_worker_sockets(ctx) &&
           check_connect(
               cdb_connect(ctx->data_socket, CDB_DATA_SOCKET, lconfd_address(), LCONFD_ADDRESS_SIZE),
               "data") &&
           check_connect(maapi_connect(ctx->maapi_socket, lconfd_address(), LCONFD_ADDRESS_SIZE), "maapi") &&
           connect_notification_socket(ctx);
}

// ---- Events ----

bool lconfd_add_event(t_lconfd_context *ctx, event **pp_event, int fd, void (*cb)(int, short, void *),
                      bool is_added)
{
    *pp_event = event_new(ctx->module_data.evt_base_p, fd, EV_READ | EV_PERSIST, cb, ctx);
    bool is_good = *pp_event != nullptr && (!is_added || event_add(*pp_event, nullptr) == 0);
    if (!is_good)
        LCONFD_LOG("Failed to add an event for socket %d", fd);
    return is_good;
}

// Notifications of changes are not read before the subscriptions are done.
static bool add_events(t_lconfd_context *ctx)
{
    return lconfd_add_event(ctx, &ctx->evt_ctrl, ctx->ctrl_socket, lconfd_ctrl_cb, true) &&
           lconfd_add_event(ctx, &ctx->evt_work, ctx->worker_socket, lconfd_work_cb, true) &&
           lconfd_add_event(ctx, &ctx->evt_sub, ctx->sub_socket, lconfd_sub_cb, false) &&
           (ctx->notification_socket <= 0 ||
            lconfd_add_event(ctx, &ctx->evt_notf, ctx->notification_socket, lconfd_notification_cb, true));
}

static bool open_pipe(t_lconfd_context *ctx)
{
    if (pipe2(ctx->pipe_fd, O_CLOEXEC) != 0) {
        LCONFD_LOG("Failed to open a pipe (errno: %d)", errno);
        return false;
    }
    return lconfd_add_event(ctx, &ctx->evt_pipe, ctx->pipe_fd[0], lconfd_pipe_cb, true);
}

// What a thread has to say.
void lconfd_pipe_cb(int fd, short, void *arg)
{
    t_lconfd_context *ctx = static_cast<t_lconfd_context *>(arg);
    char word = 0;
    if (read(fd, &word, sizeof(word)) != sizeof(word)) {
        LCONFD_LOG("Failed to read from the pipe");
    } else if (word == LCONFD_PIPE_SUBSCRIBED) {
        lconfd_read_own_config(ctx);
        // Behind the lock stands the socket as the thread has left it.
        std::lock_guard guard(ctx->anchor->lock);
        event_add(ctx->evt_sub, nullptr);
    } else if (word == LCONFD_PIPE_RETRY) {
        LCONFD_DEBUG("Thread notification for retry");
        lconfd_retry_connect(ctx);
    }
}

// ---- Opening ----

static bool open_daemon(t_lconfd_context *ctx)
{
    ctx->confd_dctx_p = confd_init_daemon(lconfd_module_name());
    if (ctx->confd_dctx_p == nullptr) {
        LCONFD_LOG("Failed to initialize confd daemon %s (%d) : %s", LCONFD_WHY);
        return false;
    }
    ctx->confd_dctx_p->d_opaque = ctx;
    return true;
}

static bool open_connection(t_lconfd_context *ctx)
{
    return open_daemon(ctx) && open_sockets(ctx) && connect_sockets(ctx) && add_events(ctx) &&
           lconfd_register_primary(ctx) && open_pipe(ctx);
}

// The framework's library looks into the environment whenever it connects, on threads too: nothing is written
// there that stands there already.
static void name_access_file()
{
    for (const char *variable : {"CONFD_IPC_ACCESS_FILE", "NCS_IPC_ACCESS_FILE"}) {
        const char *p_value = getenv(variable);
        if (p_value == nullptr || strcmp(p_value, LCONFD_ACCESS_FILE) != 0)
            setenv(variable, LCONFD_ACCESS_FILE, 1);
    }
}

static bool is_complete(const t_lconfd_module_data *p_data, t_lconfd_context **module_lconfd_ctx_p)
{
    return p_data != nullptr && module_lconfd_ctx_p != nullptr && p_data->opaque_p != nullptr &&
           p_data->sub_point_arr != nullptr && p_data->val_point_arr != nullptr &&
           p_data->action_cmd_arr != nullptr && p_data->data_register_cb != nullptr &&
           p_data->evt_base_p != nullptr && p_data->timer_mgr_p != nullptr;
}

static e_lconfd_status new_context(const t_lconfd_module_data *mod_data_p,
                                   t_lconfd_context **module_lconfd_ctx_p)
{
    bool has_all = is_complete(mod_data_p, module_lconfd_ctx_p);
    if (!has_all)
        LCONFD_LOG("Invalid lconfd registration: NULL Parameters");
    LUM_ASSERT(has_all, "0");
    const char *name = lum_util_module_name(mod_data_p->mod_id);
    if (confd_init_vsn_sz(name, stderr, CONFD_SILENT, CONFD_LIB_VSN, MAXDEPTH, MAXKEYLEN) != CONFD_OK) {
        LCONFD_LOG("Failed to initialize confd library %s (%d) : %s", LCONFD_WHY);
        return LCONFD_STATUS_FAIL;
    }
    t_lconfd_context *ctx = new (std::nothrow) t_lconfd_context{};
    if (ctx == nullptr) {
        LCONFD_LOG("Failed to allocate memory for lconfd context");
        return LCONFD_STATUS_MEM_FAIL;
    }
    ctx->module_data = *mod_data_p;
    ctx->anchor = std::make_shared<t_lconfd_anchor>();
    ctx->anchor->p_ctx = ctx;
    g_lconfd_mod_id = mod_data_p->mod_id;
    g_lconfd_log_id = lconfd_lum_module_to_log_id[mod_data_p->mod_id];
    *module_lconfd_ctx_p = ctx;
    return LCONFD_STATUS_OK;
}

static e_lconfd_status connect_now(t_lconfd_context *ctx)
{
    if (!open_connection(ctx)) {
        lconfd_retry_connect(ctx);
        return LCONFD_STATUS_IN_RETRY;
    }
    if (lconfd_sub_next(ctx, nullptr) != nullptr)
        lconfd_register_subscriptions(ctx);
    timer_util_delete(std::exchange(ctx->retry_timer, nullptr));
    if (ctx->module_data.connected_cb != nullptr)
        ctx->module_data.connected_cb(ctx);
    lconfd_setup_shm();
    lconfd_notification_throttler_init(ctx);
    return LCONFD_STATUS_OK;
}

e_lconfd_status lconfd_module_init(t_lconfd_module_data *mod_data_p, t_lconfd_context *lconfd_ctx_p,
                                   t_lconfd_context **module_lconfd_ctx_p)
{
    lconfd_trap_module_init();
    name_access_file();
    if (mod_data_p != nullptr || module_lconfd_ctx_p != nullptr) {
        e_lconfd_status status = new_context(mod_data_p, module_lconfd_ctx_p);
        if (status != LCONFD_STATUS_OK)
            return status;
        lconfd_ctx_p = *module_lconfd_ctx_p;
    }
    if (lconfd_ctx_p == nullptr)
        LCONFD_LOG("NULL lconfd context pointer");
    LUM_ASSERT(lconfd_ctx_p != nullptr, "0");
    return connect_now(lconfd_ctx_p);
}

// ---- Tearing down ----

static void free_event(event **pp_event)
{
    if (*pp_event != nullptr)
        event_free(*pp_event);
    *pp_event = nullptr;
}

static void close_fd(int *p_fd)
{
    if (*p_fd > 0)
        close(*p_fd);
    *p_fd = -1;
}

// Events go before their descriptors: the number of a closed one may at once be a thread's new socket.
static void close_all(t_lconfd_context *ctx)
{
    for (event **pp_event : {&ctx->evt_ctrl, &ctx->evt_work, &ctx->evt_sub, &ctx->evt_notf, &ctx->evt_pipe})
        free_event(pp_event);
    for (int *p_fd : {&ctx->sub_socket, &ctx->ctrl_socket, &ctx->worker_socket, &ctx->data_socket,
                      &ctx->maapi_socket, &ctx->notification_socket, &ctx->pipe_fd[0], &ctx->pipe_fd[1]})
        close_fd(p_fd);
}

void lconfd_destroy(t_lconfd_context *ctx)
{
    // Before the contexts go by which notifications are sent, which waits for a send that is under way.
    if (ctx->sub_socket > 0) {
        lconfd_notification_throttler_connection_reset();
        lconfd_trap_module_free();
    }
    std::unique_lock<std::mutex> guard;
    if (ctx->anchor != nullptr) {
        // The registration thread may be waiting for an answer on this socket, with the lock.
        if (ctx->sub_socket > 0)
            shutdown(ctx->sub_socket, SHUT_RDWR);
        guard = std::unique_lock(ctx->anchor->lock);
        ctx->anchor->generation++;
    }
    close_all(ctx);
    if (ctx->confd_dctx_p != nullptr)
        confd_release_daemon(std::exchange(ctx->confd_dctx_p, nullptr));
}

void lconfd_secondary_free(t_lconfd_context *primary_p)
{
    t_lconfd_context *secondary_p = std::exchange(primary_p->sec_lconfd_ctx_p, nullptr);
    if (secondary_p == nullptr)
        return;
    lconfd_destroy(secondary_p);
    delete secondary_p;
}

void lconfd_retry_cb(t_timer *, void *ctx, void *, void *, void *)
{
    if (lconfd_module_init(nullptr, static_cast<t_lconfd_context *>(ctx), nullptr) != LCONFD_STATUS_OK)
        LCONFD_DEBUG("lconfd retry: Failed to init lconfd");
}

static t_timer *new_retry_timer(t_lconfd_context *ctx)
{
    t_timer *p_timer =
        timer_util_create(ctx->module_data.timer_mgr_p, TIMER_PRI_HIGH, TIMER_TYPE_CYCLIC, retry_interval_ms,
                          lconfd_retry_cb, ctx, nullptr, nullptr, nullptr, "lconfd_timer");
    if (p_timer == nullptr)
        LCONFD_LOG("Failed to create lconfd retry timer");
    LUM_ASSERT(p_timer != nullptr, "0");
    return p_timer;
}

void lconfd_retry_connect(t_lconfd_context *ctx)
{
    if (ctx == nullptr)
        LCONFD_LOG("NULL lconfd context pointer");
    LUM_ASSERT(ctx != nullptr, "0");
    if (ctx->pri_lconfd_ctx_p != nullptr)
        ctx = ctx->pri_lconfd_ctx_p;
    lconfd_secondary_free(ctx);
    lconfd_destroy(ctx);
    if (ctx->retry_timer != nullptr)
        return;
    ctx->retry_timer = new_retry_timer(ctx);
    timer_enable(ctx->retry_timer);
}

void lconfd_module_deinit(t_lconfd_context **pp_ctx)
{
    t_lconfd_context *ctx = pp_ctx != nullptr ? std::exchange(*pp_ctx, nullptr) : nullptr;
    if (ctx == nullptr)
        return;
    lconfd_notification_throttler_free();
    lconfd_free_shm();
    lconfd_secondary_free(ctx);
    lconfd_destroy(ctx);
    timer_util_delete(ctx->retry_timer);
    if (ctx->last_thread_id != 0)
        pthread_detach(ctx->last_thread_id);
    {
        std::lock_guard guard(ctx->anchor->lock);
        ctx->anchor->p_ctx = nullptr;
    }
    delete ctx;
}

// ---- The second daemon of a module ----

static constexpr int secondary_daemon_flags = 32;

static bool open_secondary(t_lconfd_context *ctx)
{
    std::string name = std::string(lconfd_module_name()) + "-secondary";
    ctx->confd_dctx_p = confd_init_daemon(name.c_str());
    if (ctx->confd_dctx_p == nullptr) {
        LCONFD_LOG("Failed to initialize confd daemon %s (%d) : %s", LCONFD_WHY);
        return false;
    }
    ctx->confd_dctx_p->d_opaque = ctx;
    confd_set_daemon_flags(ctx->confd_dctx_p, secondary_daemon_flags);
    if (!lconfd_open_worker_sockets(ctx) || !lconfd_connect_worker_sockets(ctx) ||
        !lconfd_add_event(ctx, &ctx->evt_ctrl, ctx->ctrl_socket, lconfd_ctrl_cb, true) ||
        !lconfd_add_event(ctx, &ctx->evt_work, ctx->worker_socket, lconfd_work_cb, true) ||
        !lconfd_register_callbacks(ctx))
        return false;
    int result = confd_register_done(ctx->confd_dctx_p);
    if (result != CONFD_OK)
        LCONFD_LOG("confd_register_done() failed (%u-secondary - %d)", g_lconfd_mod_id.load(), result);
    return result == CONFD_OK;
}

e_lconfd_status lconfd_module_secondary_context_register(t_lconfd_module_data *mod_data_p,
                                                         t_lconfd_context *lconfd_ctx_p)
{
    lconfd_secondary_free(lconfd_ctx_p);
    t_lconfd_context *ctx = new (std::nothrow) t_lconfd_context{};
    if (ctx == nullptr) {
        LCONFD_LOG("Failed to allocate memory for lconfd context");
        return LCONFD_STATUS_MEM_FAIL;
    }
    ctx->module_data = *mod_data_p;
    ctx->module_data.evt_base_p = lconfd_ctx_p->module_data.evt_base_p;
    ctx->module_data.timer_mgr_p = lconfd_ctx_p->module_data.timer_mgr_p;
    ctx->pri_lconfd_ctx_p = lconfd_ctx_p;
    lconfd_ctx_p->sec_lconfd_ctx_p = ctx;
    if (open_secondary(ctx))
        return LCONFD_STATUS_OK;
    lconfd_retry_connect(ctx);
    return LCONFD_STATUS_IN_RETRY;
}
