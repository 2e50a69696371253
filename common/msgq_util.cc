#include "common/msgq_util.h"

#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <new>
#include <sys/socket.h>
#include <syslog.h>

#include "common/lum_assert.h"
#include "common/msgq_util_private.h"
#include "common/strlcpy.h"

msgq_instance_t *g_msgq_inst_p;
uint8_t msgq_dbg_enable;

void msgq_log_write(const char *format, ...)
{
    int facility = g_msgq_inst_p != nullptr ? g_msgq_inst_p->syslog_id : LOG_LOCAL7;
    va_list args;
    va_start(args, format);
    char text[1024];
    vsnprintf(text, sizeof(text), format, args);
    va_end(args);
    syslog(facility | LOG_DEBUG, "%s", text);
}

// ---- Lists ----

static void assert_unlisted(const msgq_handle_t *msgq_p)
{
    LUM_ASSERT(!msgq_p->in_reg_list, "msgq_p->in_reg_list == FALSE");
    LUM_ASSERT(!msgq_p->in_unreg_list, "msgq_p->in_unreg_list == FALSE");
    LUM_ASSERT(!msgq_p->in_tmp_list, "msgq_p->in_tmp_list == FALSE");
}

static void unreg_list_add(msgq_handle_t *msgq_p)
{
    assert_unlisted(msgq_p);
    TAILQ_INSERT_HEAD(&msgq_p->inst_p->unreg_msgq_listhead, msgq_p, unreg_list_entry);
    msgq_p->in_unreg_list = true;
}

static void unreg_list_remove(msgq_handle_t *msgq_p)
{
    LUM_ASSERT(msgq_p->in_unreg_list, "msgq_p->in_unreg_list == TRUE");
    TAILQ_REMOVE(&msgq_p->inst_p->unreg_msgq_listhead, msgq_p, unreg_list_entry);
    msgq_p->in_unreg_list = false;
}

void msgq_tmp_list_add(msgq_handle_t *msgq_p)
{
    assert_unlisted(msgq_p);
    TAILQ_INSERT_HEAD(&msgq_p->inst_p->tmp_msgq_listhead, msgq_p, tmp_list_entry);
    msgq_p->in_tmp_list = true;
}

void msgq_tmp_list_remove(msgq_handle_t *msgq_p)
{
    LUM_ASSERT(msgq_p->in_tmp_list, "msgq_p->in_tmp_list == TRUE");
    TAILQ_REMOVE(&msgq_p->inst_p->tmp_msgq_listhead, msgq_p, tmp_list_entry);
    msgq_p->in_tmp_list = false;
}

void msgq_move_to_reg_list(msgq_handle_t *msgq_p)
{
    unreg_list_remove(msgq_p);
    assert_unlisted(msgq_p);
    TAILQ_INSERT_HEAD(&msgq_p->inst_p->reg_msgq_listhead, msgq_p, reg_list_entry);
    msgq_p->in_reg_list = true;
}

void msgq_move_to_unreg_list(msgq_handle_t *msgq_p)
{
    LUM_ASSERT(msgq_p->in_reg_list, "msgq_p->in_reg_list == TRUE");
    TAILQ_REMOVE(&msgq_p->inst_p->reg_msgq_listhead, msgq_p, reg_list_entry);
    msgq_p->in_reg_list = false;
    unreg_list_add(msgq_p);
}

// ---- The instance ----

static msgq_instance_t *instance_create(const msgq_app_params_t *params_p)
{
    auto *inst_p = new (std::nothrow) msgq_instance_t{};
    if (inst_p == nullptr)
        return nullptr;
    TAILQ_INIT(&inst_p->reg_msgq_listhead);
    TAILQ_INIT(&inst_p->unreg_msgq_listhead);
    TAILQ_INIT(&inst_p->tmp_msgq_listhead);
    TAILQ_INIT(&inst_p->server_head);
    if (params_p == nullptr)
        return inst_p;
    inst_p->app_evbase_p = params_p->app_evbase_p;
    inst_p->timer_mgr_p = params_p->timer_mgr_p;
    inst_p->syslog_id = params_p->syslog_id;
    return inst_p;
}

void msgq_lib_destroy(msgq_instance_t *inst_p)
{
    LUM_ASSERT(TAILQ_EMPTY(&inst_p->reg_msgq_listhead) && TAILQ_EMPTY(&inst_p->unreg_msgq_listhead),
               "TAILQ_EMPTY(&inst_p->reg_msgq_listhead) && TAILQ_EMPTY(&inst_p->unreg_msgq_listhead)");
    while (!TAILQ_EMPTY(&inst_p->tmp_msgq_listhead))
        msgq_tmp_handle_destroy(TAILQ_FIRST(&inst_p->tmp_msgq_listhead));
    delete inst_p;
    g_msgq_inst_p = nullptr;
}

// ---- Making a handle ----

static e_err msgq_validate_init_params(msgq_handle_type_e type, const msgq_app_params_t *params_p,
                                       const msgq_app_cb_t *cb_p)
{
    if (params_p == nullptr || cb_p == nullptr || params_p->app_evbase_p == nullptr)
        return ERR_BAD_PARAM;
    if (type == MSGQ_HANDLE_TYPE_CLIENT && params_p->timer_mgr_p == nullptr)
        return ERR_BAD_PARAM;
    if (cb_p->msg_read_cb == nullptr || cb_p->msg_write_cb == nullptr)
        return ERR_BAD_PARAM;
    if (!params_p->use_app_header)
        return ERR_OK;
    if (params_p->app_header_size == 0 || params_p->app_header_size > MSGQ_APP_HEADER_MAX)
        return ERR_BAD_PARAM;
    // The length is read from rx_hdr, whatever the header's size.
    return params_p->app_msglen_offset + sizeof(uint16_t) > MSGQ_APP_HEADER_MAX ? ERR_BAD_PARAM : ERR_OK;
}

// Clients of a module come to the path on which it serves.
static void path_make(const msgq_app_params_t &params, uint32_t server_id, char *path_p)
{
    path_p[0] = '\0';
    if (params.socket_type != AF_UNIX)
        return;
    if (params.msg_path[0] != '\0')
        snprintf(path_p, MSGQ_PATH_SIZE, "%.*s", static_cast<int>(MSGQ_PATH_SIZE - 1), params.msg_path);
    else
        snprintf(path_p, MSGQ_PATH_SIZE, "/var/run/.%s", lum_util_module_name(server_id));
}

struct t_msgq_identity {
    uint32_t srcid;
    uint32_t tgtid;
    msgq_handle_type_e type;
    char path[MSGQ_PATH_SIZE];
};

static bool msgq_is_equal(const msgq_handle_t &handle, const t_msgq_identity &wanted)
{
    if (handle.srcid != wanted.srcid || handle.tgtid != wanted.tgtid || handle.type != wanted.type)
        return false;
    return wanted.path[0] == '\0' || strncmp(handle.msgq_path, wanted.path, MSGQ_PATH_SIZE) == 0;
}

static bool handle_exists(const msgq_instance_t &inst, const t_msgq_identity &wanted)
{
    const msgq_handle_t *msgq_p;
    TAILQ_FOREACH(msgq_p, &inst.reg_msgq_listhead, reg_list_entry)
    if (msgq_is_equal(*msgq_p, wanted))
        return true;
    TAILQ_FOREACH(msgq_p, &inst.unreg_msgq_listhead, unreg_list_entry)
    if (msgq_is_equal(*msgq_p, wanted))
        return true;
    TAILQ_FOREACH(msgq_p, &inst.tmp_msgq_listhead, tmp_list_entry)
    if (msgq_is_equal(*msgq_p, wanted))
        return true;
    return false;
}

static void address_set(msgq_handle_t *msgq_p, const msgq_app_params_t &params, const char *path)
{
    bool serves_on_inet = msgq_p->type == MSGQ_HANDLE_TYPE_SERVER && params.socket_type == AF_INET;
    if ((params.socket_type != AF_UNIX && params.socket_type != AF_INET) || serves_on_inet) {
        MSGQ_ERR("Unsupported socket type");
        LUM_ASSERT(false, "FALSE");
    }
    msgq_p->socket_type = params.socket_type;
    if (params.socket_type == AF_UNIX) {
        lum_strlcpy(msgq_p->msgq_path, path, sizeof(msgq_p->msgq_path));
        return;
    }
    msgq_p->host_port = params.host_port;
    memcpy(msgq_p->host_addr, params.host_addr, sizeof(msgq_p->host_addr));
    msgq_p->host_addr[sizeof(msgq_p->host_addr) - 1] = '\0';
}

static msgq_handle_t *handle_create(const t_msgq_identity &identity, const msgq_app_params_t &params,
                                    const msgq_app_cb_t &cb, void *user_arg_p)
{
    auto *msgq_p = new (std::nothrow) msgq_handle_t{};
    if (msgq_p == nullptr)
        return nullptr;
    msgq_p->srcid = static_cast<e_lum_module>(identity.srcid);
    msgq_p->tgtid = static_cast<e_lum_module>(identity.tgtid);
    msgq_p->type = identity.type;
    msgq_p->inst_p = g_msgq_inst_p;
    msgq_p->user_arg_p = user_arg_p;
    msgq_p->sock_fd = -1;
    msgq_p->client_socket_blocking =
        identity.type == MSGQ_HANDLE_TYPE_CLIENT && params.client_socket_blocking;
    msgq_p->dont_register = params.dont_register || params.use_app_header;
    msgq_p->use_app_header = params.use_app_header;
    msgq_p->app_header_size = params.app_header_size;
    msgq_p->app_msglen_offset = params.app_msglen_offset;
    address_set(msgq_p, params, identity.path);
    msgq_p->app_cb = cb;
    return msgq_p;
}

msgq_handle_t *msgq_init(uint32_t srcid, uint32_t tgtid, msgq_handle_type_e type,
                         const msgq_app_params_t *params_p, const msgq_app_cb_t *cb_p, void *user_arg_p)
{
    if (srcid < 1 || srcid >= LUM_MODULE_MAX || tgtid < 1 || tgtid >= LUM_MODULE_MAX)
        return nullptr;
    if (g_msgq_inst_p == nullptr)
        g_msgq_inst_p = instance_create(params_p);
    LUM_ASSERT(g_msgq_inst_p != nullptr, "g_msgq_inst_p != NULL");
    if (msgq_validate_init_params(type, params_p, cb_p) != ERR_OK) {
        MSGQ_ERR("Validation of parameters failed");
        LUM_ASSERT(false, "FALSE");
    }
    t_msgq_identity identity = {srcid, tgtid, type, {}};
    path_make(*params_p, type == MSGQ_HANDLE_TYPE_CLIENT ? tgtid : srcid, identity.path);
    if (handle_exists(*g_msgq_inst_p, identity)) {
        MSGQ_ERR("Duplicate msgq_handle found");
        LUM_ASSERT(false, "FALSE");
    }
    msgq_handle_t *msgq_p = handle_create(identity, *params_p, *cb_p, user_arg_p);
    if (msgq_p == nullptr)
        return nullptr;
    unreg_list_add(msgq_p);
    // A start that failed has said so; the application keeps a handle that stays down.
    if (type == MSGQ_HANDLE_TYPE_SERVER)
        (void)msgq_init_start_server(msgq_p);
    else if (type == MSGQ_HANDLE_TYPE_CLIENT)
        (void)msgq_init_start_client(msgq_p);
    return msgq_p;
}

// ---- Ending handles ----

void msgq_destroy(msgq_handle_t *msgq_p)
{
    if (msgq_p == nullptr)
        return;
    msgq_instance_t *inst_p = msgq_p->inst_p;
    msgq_close_conn(msgq_p, false);
    LUM_ASSERT(msgq_p->in_unreg_list, "msgq_p->in_unreg_list");
    unreg_list_remove(msgq_p);
    timer_util_delete(msgq_p->conn_timer_p);
    msgq_unlink_server(msgq_p);
    delete msgq_p;
    if (TAILQ_EMPTY(&inst_p->reg_msgq_listhead) && TAILQ_EMPTY(&inst_p->unreg_msgq_listhead))
        msgq_lib_destroy(inst_p);
}

void msgq_destroy_all()
{
    while (g_msgq_inst_p != nullptr && !TAILQ_EMPTY(&g_msgq_inst_p->reg_msgq_listhead))
        msgq_destroy(TAILQ_FIRST(&g_msgq_inst_p->reg_msgq_listhead));
    while (g_msgq_inst_p != nullptr && !TAILQ_EMPTY(&g_msgq_inst_p->unreg_msgq_listhead))
        msgq_destroy(TAILQ_FIRST(&g_msgq_inst_p->unreg_msgq_listhead));
}

// ---- Questions and settings ----

bool msgq_ready(const msgq_handle_t *msgq_p)
{
    return msgq_p != nullptr && msgq_p->sock_fd >= 0 && !msgq_p->down_pending;
}

void msgq_set_user_arg(msgq_handle_t *msgq_p, void *user_arg_p)
{
    msgq_p->user_arg_p = user_arg_p;
}

int msgq_set_blocking(msgq_handle_t *msgq_p, bool blocking)
{
    int flags = fcntl(msgq_p->sock_fd, F_GETFL);
    if (flags < 0)
        return -1;
    flags = blocking ? flags & ~O_NONBLOCK : flags | O_NONBLOCK;
    return fcntl(msgq_p->sock_fd, F_SETFL, flags) < 0 ? -1 : 0;
}

bool msgq_get_client_socket_blocking(const msgq_handle_t *msgq_p)
{
    return msgq_p->client_socket_blocking;
}

void msgq_set_client_socket_blocking(msgq_handle_t *msgq_p, bool blocking)
{
    msgq_p->client_socket_blocking = blocking;
}
