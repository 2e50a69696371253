// Writing and reading the operational store, and what stands there of VPNs and services.
#include "lconfd/lconfd_util.h"

#include "common/strlcpy.h"
#include "lconfd/lconfd_private.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <new>
#include <unistd.h>

static constexpr unsigned connect_tries = 4;
static constexpr useconds_t connect_pause_us = 100 * 1000;
static constexpr size_t path_size = 100;  // of a background write, with its terminator

int lconfd_cdb_connect(int sock, cdb_sock_type type, const sockaddr *addr, socklen_t addr_len)
{
    int result = CONFD_ERR;
    for (unsigned attempt = 0; attempt < connect_tries; attempt++) {
        int before = result;
        result = cdb_connect(sock, type, addr, static_cast<int>(addr_len));
        if (result == CONFD_OK)
            break;
        if (attempt > 0)
            LCONFD_LOG("cdb_connect Retry %d Prev Status %d %s  : ", attempt, before,
                       confd_strerror(confd_errno));
        usleep(connect_pause_us);
    }
    return result;
}

// ---- Writing ----

static int session_flags(bool locks)
{
    return locks ? CDB_LOCK_WAIT | CDB_LOCK_REQUEST : 0;
}

static bool open_session(const LconfdSocket &data, bool notifies)
{
    if (data.fd < 0) {
        LCONFD_LOG("Cannot allocate socket (errno: %d)", errno);
        return false;
    }
    int result = lconfd_cdb_connect(data.fd, CDB_DATA_SOCKET, lconfd_address(), LCONFD_ADDRESS_SIZE);
    if (result != CONFD_OK) {
        LCONFD_LOG("Cannot connect to CDB (%d)%s (%d) : %s", result, LCONFD_WHY);
        return false;
    }
    if (cdb_start_session2(data.fd, CDB_OPERATIONAL, session_flags(notifies)) != CONFD_OK) {
        LCONFD_LOG("Failed start session %s (%d) : %s", LCONFD_WHY);
        return false;
    }
    return true;
}

static int write_element(int fd, confd_value_t *p_val, e_lconfd_oper_type oper, const char *fmt, va_list args)
{
    switch (oper) {
    case E_LCONFD_OPER_ADD:
        return cdb_vset_elem(fd, p_val, fmt, args);
    case E_LCONFD_OPER_DEL:
        return cdb_vdelete(fd, fmt, args);
    case E_LCONFD_OPER_CREATE:
        return cdb_vcreate(fd, fmt, args);
    default:
        return CONFD_OK;
    }
}

static const char *oper_name(e_lconfd_oper_type oper)
{
    if (oper == E_LCONFD_OPER_CREATE)
        return "create";
    return oper == E_LCONFD_OPER_ADD ? "add" : "del";
}

// Whether a result says no more than that nothing was to be done.
static bool is_expected(int result, e_lconfd_oper_type oper)
{
    return result == 0 ||
           result == (oper == E_LCONFD_OPER_DEL ? CONFD_ERR_NOEXISTS : CONFD_ERR_ALREADY_EXISTS);
}

int lconfd_vset_cdb_oper_value(t_lconfd_context *, confd_value_t *p_val, e_lconfd_oper_type oper,
                               int notify_subscribers, const char *fmt, ...)
{
    LconfdSocket data;
    if (!open_session(data, notify_subscribers == 1))
        return 1;
    va_list args;
    va_start(args, fmt);
    int result = write_element(data.fd, p_val, oper, fmt, args);
    va_end(args);
    if (result != CONFD_OK)
        result = confd_errno;
    if (!is_expected(result, oper))
        LCONFD_LOG("Failed to %s elem %s (%d) : %s", oper_name(oper), LCONFD_WHY);
    cdb_end_session(data.fd);
    cdb_close(data.fd);
    return result;
}

// ---- Writing in the background ----

namespace {

struct t_lconfd_thread_set_cdb_list {
    ~t_lconfd_thread_set_cdb_list()
    {
        free(val_buf_p);
    }

    t_lconfd_context *lconfd_ctx_p;  // handed on, not looked into
    confd_value_t confd_val;         // C_NOEXISTS: none was given
    char *val_buf_p = nullptr;       // what the value points to
    char confd_path[path_size];
    e_lconfd_oper_type oper;
    int notify_subscribers;
    pthread_t previous_thread_id;
};

}  // namespace

// One byte more than the bytes, which ends a text.
static char *copy_bytes(const void *p_bytes, size_t size)
{
    char *p_copy = static_cast<char *>(calloc(size + 1, 1));
    if (p_copy == nullptr)
        LCONFD_LOG("Failed to allocate memory");
    else
        memcpy(p_copy, p_bytes, size);
    return p_copy;
}

// The value, made independent of its owner. False without memory.
static bool lconfd_copy_confd_value(const confd_value_t *p_val, t_lconfd_thread_set_cdb_list *p_list)
{
    confd_value_t *p_copy = &p_list->confd_val;
    *p_copy = p_val != nullptr ? *p_val : confd_value_t{.type = C_NOEXISTS, .val = {}};
    if (p_copy->type == C_STR) {
        p_list->val_buf_p = copy_bytes(p_val->val.c_s, strlen(p_val->val.c_s));
        p_copy->val.s = p_list->val_buf_p;
    } else if (p_copy->type == C_BUF) {
        p_list->val_buf_p = copy_bytes(p_val->val.buf.ptr, p_val->val.buf.size);
        p_copy->val.buf.ptr = reinterpret_cast<unsigned char *>(p_list->val_buf_p);
    } else {
        return true;
    }
    return p_list->val_buf_p != nullptr;
}

static void join_previous(const t_lconfd_thread_set_cdb_list &list)
{
    if (list.previous_thread_id == 0)
        return;
    LCONFD_DEBUG("\n%s Waiting for previous thread: %lu to exit", list.confd_path, list.previous_thread_id);
    int result = pthread_join(list.previous_thread_id, nullptr);
    LCONFD_DEBUG("\n%s: Previous thread: %lu exited, ret_val: %d", list.confd_path, list.previous_thread_id,
                 result);
}

static void *lconfd_thread_set_cdb_oper_value(void *arg)
{
    std::unique_ptr<t_lconfd_thread_set_cdb_list> list(static_cast<t_lconfd_thread_set_cdb_list *>(arg));
    lconfd_thread_block_sigpipe();
    join_previous(*list);
    confd_value_t *p_val = list->confd_val.type != C_NOEXISTS ? &list->confd_val : nullptr;
    int result = lconfd_vset_cdb_oper_value(list->lconfd_ctx_p, p_val, list->oper, list->notify_subscribers,
                                            "%s", list->confd_path);
    if (is_expected(result, list->oper))
        return nullptr;
    LCONFD_LOG("Failed to do operation %d for %s with type %d", static_cast<int>(list->oper),
               list->confd_path, static_cast<int>(list->confd_val.type));
    return reinterpret_cast<void *>(1);
}

int lconfd_set_cdb_oper_value(t_lconfd_context *ctx, const confd_value_t *p_val, const char *path,
                              e_lconfd_oper_type oper, int notify_subscribers)
{
    std::unique_ptr<t_lconfd_thread_set_cdb_list> list(new (std::nothrow) t_lconfd_thread_set_cdb_list{});
    if (list == nullptr) {
        LCONFD_LOG("Failed to allocate memory for list");
        return 2;
    }
    list->lconfd_ctx_p = ctx;
    list->oper = oper;
    list->notify_subscribers = notify_subscribers;
    list->previous_thread_id = ctx->last_thread_id;
    lum_strlcpy(list->confd_path, path, sizeof(list->confd_path));
    if (!lconfd_copy_confd_value(p_val, list.get()))
        return 2;
    pthread_t thread;
    int error = pthread_create(&thread, nullptr, lconfd_thread_set_cdb_oper_value, list.get());
    if (error != 0) {
        LCONFD_LOG("Failed to create lconfd thread (error %d, errno %d))", error, errno);
        return 1;
    }
    static_cast<void>(list.release());
    ctx->last_thread_id = thread;
    return 0;
}

// ---- Reading ----

int lconfd_get_cdb_int32_value(t_lconfd_context *ctx, int32_t *p_value, const char *path, int lock)
{
    if (cdb_start_session2(ctx->data_socket, CDB_OPERATIONAL, session_flags(lock == 1)) != CONFD_OK) {
        LCONFD_LOG("Failed start session %s (%d) : %s", LCONFD_WHY);
        return 1;
    }
    int result = cdb_get_int32(ctx->data_socket, p_value, "%s", path);
    if (result != CONFD_OK)
        LCONFD_LOG("Failed to get operational value for element %s : %s (%d) : %s", path, LCONFD_WHY);
    cdb_end_session(ctx->data_socket);
    return result == CONFD_OK ? 0 : 1;
}

// ---- Labels ----

static constexpr const char *vpn_label_format = "/vpn/vpn-instance{%lu}/label";
static constexpr const char *service_label_format = "/vpn/vpn-instance{%lu}/service{%s}/label";
static constexpr const char *service_state_format = "/vpn/vpn-instance{%lu}/service{%s}/tracker-state-up";
static constexpr size_t label_path_size = 128;

// 0 or -1. All three setters tell it in the same words.
static int label_result(int result)
{
    if (result == 0)
        return 0;
    LCONFD_LOG("Failed to set VPN label value in CDB");
    return -1;
}

static confd_value_t int32_value(int32_t number)
{
    confd_value_t value = {.type = C_INT32, .val = {}};
    value.val.i32 = number;
    return value;
}

static int get_label(t_lconfd_context *ctx, const char *path)
{
    int32_t label = -1;
    return lconfd_get_cdb_int32_value(ctx, &label, path, 0) == 0 ? label : -1;
}

int lconfd_set_vpn_label(t_lconfd_context *ctx, uint64_t vpn_id, int32_t label)
{
    confd_value_t value = int32_value(label);
    return label_result(
        lconfd_vset_cdb_oper_value(ctx, &value, E_LCONFD_OPER_ADD, 0, vpn_label_format, vpn_id));
}

int lconfd_get_vpn_label(t_lconfd_context *ctx, uint64_t vpn_id)
{
    char path[label_path_size];
    snprintf(path, sizeof(path), "/vpn/vpn-instance{%lu}/label", vpn_id);
    return get_label(ctx, path);
}

int lconfd_set_service_label(t_lconfd_context *ctx, uint64_t vpn_id, uint32_t service, int32_t label)
{
    confd_value_t value = int32_value(label);
    return label_result(lconfd_vset_cdb_oper_value(ctx, &value, E_LCONFD_OPER_ADD, 0, service_label_format,
                                                   vpn_id, lum_util_svc_name(service)));
}

int lconfd_get_service_label(t_lconfd_context *ctx, uint64_t vpn_id, uint32_t service)
{
    char path[label_path_size];
    snprintf(path, sizeof(path), "/vpn/vpn-instance{%lu}/service{%s}/label", vpn_id,
             lum_util_svc_name(service));
    return get_label(ctx, path);
}

int lconfd_set_service_tracker_state(t_lconfd_context *ctx, uint64_t vpn_id, uint32_t service, bool state)
{
    confd_value_t value = {.type = C_BOOL, .val = {}};
    value.val.boolean = state;
    return label_result(lconfd_vset_cdb_oper_value(ctx, &value, E_LCONFD_OPER_ADD, 0, service_state_format,
                                                   vpn_id, lum_util_svc_name(service)));
}
