// Management sessions and transactions.
#include "platform/confd/confd_maapi.h"

#include "platform/confd/client/client_private.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <string_view>

int maapi_connect(int sock, const struct sockaddr *srv, int srv_sz)
{
    return client_connect(sock, srv, srv_sz, IPC_CONN_MAAPI, {});
}

int maapi_close(int sock)
{
    return client_disconnect(sock);
}

int maapi_wait_start(int sock, int phase)
{
    return client_do(sock, IPC_CONN_MAAPI, IPC_OP_MAAPI_WAIT_START, ipc_encode(t_ipc_count{phase}));
}

int maapi_install_crypto_keys(int sock)
{
    return client_do(sock, IPC_CONN_MAAPI, IPC_OP_MAAPI_INSTALL_CRYPTO_KEYS, {});
}

// ---- Transactions ----

int maapi_attach(int sock, int hashed_ns, confd_trans_ctx *ctx)
{
    t_ipc_attach request = {static_cast<uint32_t>(hashed_ns), static_cast<uint32_t>(ctx->uinfo->usid),
                            static_cast<uint32_t>(ctx->thandle)};
    return client_do(sock, IPC_CONN_MAAPI, IPC_OP_MAAPI_ATTACH, ipc_encode(request));
}

int maapi_detach(int sock, confd_trans_ctx *ctx)
{
    t_ipc_thandle request = {static_cast<uint32_t>(ctx->thandle)};
    return client_do(sock, IPC_CONN_MAAPI, IPC_OP_MAAPI_DETACH, ipc_encode(request));
}

int maapi_set_elem(int sock, int thandle, confd_value_t *v, const char *fmt, ...)
{
    CLIENT_PATH(path, fmt);
    t_ipc_maapi_set request = {static_cast<uint32_t>(thandle), path, IpcValue(*v)};
    std::vector<uint8_t> body = ipc_encode(request);
    if (body.empty())
        return client_fail(CONFD_ERR_BADTYPE, "The value of %s can't be sent", path.c_str());
    return client_do(sock, IPC_CONN_MAAPI, IPC_OP_MAAPI_SET_ELEM, std::move(body));
}

int maapi_set_elem2(int sock, int thandle, const char *strval, const char *fmt, ...)
{
    CLIENT_PATH(path, fmt);
    t_ipc_maapi_set_text request = {static_cast<uint32_t>(thandle), path, strval};
    return client_do(sock, IPC_CONN_MAAPI, IPC_OP_MAAPI_SET_ELEM2, ipc_encode(request));
}

int maapi_vget_elem(int sock, int thandle, confd_value_t *v, const char *fmt, va_list args)
{
    t_ipc_maapi_path request = {static_cast<uint32_t>(thandle), ""};
    int result = client_path(&request.path, fmt, args);
    t_ipc_value_reply reply;
    if (result == CONFD_OK)
        result = client_ask(sock, IPC_CONN_MAAPI, IPC_OP_MAAPI_GET_ELEM, ipc_encode(request), &reply);
    if (result == CONFD_OK)
        *v = reply.value.release();
    return result;
}

int maapi_get_elem(int sock, int thandle, confd_value_t *v, const char *fmt, ...)
{
    va_list args;
    va_start(args, fmt);
    int result = maapi_vget_elem(sock, thandle, v, fmt, args);
    va_end(args);
    return result;
}

// ---- Cursors ----

int maapi_init_cursor(int sock, int thandle, maapi_cursor *mc, const char *fmt, ...)
{
    CLIENT_PATH(path, fmt);
    *mc = {};
    if (client_sock(sock, IPC_CONN_MAAPI) == nullptr)
        return CONFD_ERR;
    mc->sock = sock;
    mc->thandle = thandle;
    mc->path = strdup(path.c_str());
    return CONFD_OK;
}

static void free_keys(maapi_cursor *mc)
{
    for (int i = 0; i < mc->n; i++)
        ipc_value_free(&mc->keys[i]);
    mc->n = 0;
}

int maapi_get_next(maapi_cursor *mc)
{
    t_ipc_maapi_next request = {static_cast<uint32_t>(mc->thandle), mc->path, {}};
    for (int i = 0; i < mc->n; i++)
        request.keys.emplace_back(mc->keys[i]);
    t_ipc_keys reply;
    int result = client_ask(mc->sock, IPC_CONN_MAAPI, IPC_OP_MAAPI_NEXT_KEY, ipc_encode(request), &reply);
    if (result != CONFD_OK)
        return result;
    if (reply.keys.size() >= MAXKEYLEN)
        return client_fail(CONFD_ERR_INTERNAL, "Too many keys in %s", mc->path);
    free_keys(mc);
    for (IpcValue &key : reply.keys)
        mc->keys[mc->n++] = key.release();
    return CONFD_OK;
}

void maapi_destroy_cursor(maapi_cursor *mc)
{
    free_keys(mc);
    free(mc->path);
    mc->path = nullptr;
}

// ---- Printing ----

namespace {

struct t_printed {
    std::mutex lock;
    std::map<uint32_t, uint64_t> bytes;  // by session
};

}  // namespace

// Never destroyed, so that calls at process end find it.
static t_printed &printed()
{
    static t_printed &instance = *new t_printed();
    return instance;
}

uint64_t client_take_printed(uint32_t usid)
{
    std::lock_guard guard(printed().lock);
    auto node = printed().bytes.extract(usid);
    return node.empty() ? 0 : node.mapped();
}

void client_forget_printed()
{
    std::lock_guard guard(printed().lock);
    printed().bytes.clear();
}

static int print_chunk(t_confd_sock *p_sock, uint32_t usid, std::string_view chunk)
{
    t_ipc_cli_write message = {usid, std::string(chunk)};
    int result = client_send(p_sock, {IPC_OP_MAAPI_CLI_WRITE, IPC_KIND_ONEWAY, 0, 0, ipc_encode(message)});
    if (result != CONFD_OK)
        return result;
    std::lock_guard guard(printed().lock);
    printed().bytes[usid] += chunk.size();
    return CONFD_OK;
}

int maapi_cli_vprintf(int sock, int usess, const char *fmt, va_list args)
{
    t_confd_sock_ref ref = client_sock(sock, IPC_CONN_MAAPI);
    if (ref == nullptr)
        return CONFD_ERR;
    std::string text = client_vformat(fmt, args);
    int result = CONFD_OK;
    for (size_t at = 0; at < text.size() && result == CONFD_OK; at += IPC_PAGE_SIZE)
        result = print_chunk(ref.get(), static_cast<uint32_t>(usess),
                             std::string_view(text).substr(at, IPC_PAGE_SIZE));
    return result;
}

int maapi_cli_printf(int sock, int usess, const char *fmt, ...)
{
    va_list args;
    va_start(args, fmt);
    int result = maapi_cli_vprintf(sock, usess, fmt, args);
    va_end(args);
    return result;
}
