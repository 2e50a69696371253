// Requests of the management daemon: reading them, and those that open transactions and actions.
#include "platform/confd/client/dp_private.h"

int dp_reply(const t_dp_request &request, std::vector<uint8_t> body)
{
    return client_send(request.p_sock,
                       {request.frame.op, IPC_KIND_REPLY, request.frame.id, 0, std::move(body)});
}

int dp_refuse(const t_dp_request &request, int code, const std::string &text)
{
    std::vector<uint8_t> body = ipc_encode(t_ipc_error{text, 0});
    int result = client_send(request.p_sock,
                             {request.frame.op, IPC_KIND_REPLY, request.frame.id, code, std::move(body)});
    return result == CONFD_OK ? client_fail(code, "%s", text.c_str()) : result;
}

void dp_fill_user(t_confd_user *p_user, confd_daemon_ctx *dx, const t_ipc_user &from)
{
    p_user->usid = static_cast<int>(from.usid);
    p_user->actx.dx = dx;
    client_copy_text(p_user->username, sizeof(p_user->username), from.name);
    client_copy_text(p_user->context, sizeof(p_user->context), from.context);
}

// After an init callback: tells which worker connection it has named.
static int reply_worker(const t_dp_request &request, int worker_fd)
{
    t_confd_sock_ref worker = client_sock(worker_fd, IPC_CONN_WORKER);
    if (worker == nullptr)
        return dp_refuse(request, CONFD_ERR_EXTERNAL, "The init callback named no worker socket");
    return dp_reply(request, ipc_encode(t_ipc_worker{worker->connection_id}));
}

static int open_trans(const t_dp_request &request, t_confd_trans_map *p_map, int (*init)(confd_trans_ctx *))
{
    t_ipc_trans_init message;
    if (!ipc_decode(request.frame.body, &message) || message.dbname > CONFD_PRE_COMMIT_RUNNING)
        return client_drop(request.p_sock);
    std::unique_ptr<t_confd_trans> &trans = (*p_map)[message.thandle];
    trans = std::make_unique<t_confd_trans>();
    dp_fill_user(&trans->user, request.dx, message.user);
    trans->fd = -1;
    trans->dx = request.dx;
    trans->mode = message.mode == CONFD_READ ? CONFD_READ : CONFD_READ_WRITE;
    trans->dbname = static_cast<confd_dbname>(message.dbname);
    trans->uinfo = &trans->user;
    trans->thandle = static_cast<int>(message.thandle);
    int result = init != nullptr ? init(trans.get()) : CONFD_OK;
    std::string error = trans->error;
    int worker_fd = trans->fd;
    if (result != CONFD_OK)
        p_map->erase(message.thandle);
    return result == CONFD_OK ? reply_worker(request, worker_fd)
                              : dp_refuse(request, CONFD_ERR_EXTERNAL, error);
}

static int open_action(const t_dp_request &request)
{
    t_ipc_action_init message;
    if (!ipc_decode(request.frame.body, &message))
        return client_drop(request.p_sock);
    t_confd_daemon *p_daemon = request.dx->p_daemon;
    auto found = p_daemon->actions.find(message.point);
    if (found == p_daemon->actions.end() || found->second.init == nullptr)
        return dp_refuse(request, CONFD_ERR_NOEXISTS, "No action point " + message.point);
    std::unique_ptr<t_confd_user> user = std::make_unique<t_confd_user>();
    dp_fill_user(user.get(), request.dx, message.user);
    if (found->second.init(user.get()) != CONFD_OK)
        return dp_refuse(request, CONFD_ERR_EXTERNAL, user->error);
    int worker_fd = user->worker_fd;
    p_daemon->users[message.user.usid] = std::move(user);
    return reply_worker(request, worker_fd);
}

int dp_serve_control(const t_dp_request &request)
{
    t_confd_daemon *p_daemon = request.dx->p_daemon;
    switch (request.frame.op) {
    case IPC_OP_DP_TRANS_INIT:
        return open_trans(request, &p_daemon->transactions, p_daemon->trans_cbs.init);
    case IPC_OP_DP_VALIDATE_INIT:
        return open_trans(request, &p_daemon->validations, p_daemon->validate_cbs.init);
    case IPC_OP_DP_ACTION_INIT:
        return open_action(request);
    default:
        return client_drop(request.p_sock);
    }
}

static int serve_worker(const t_dp_request &request)
{
    if (request.frame.op == IPC_OP_DP_ACTION || request.frame.op == IPC_OP_DP_COMMAND)
        return dp_serve_action(request);
    return dp_serve_data(request);
}

// The daemon's connection with that descriptor, of either kind.
static t_confd_sock_ref sock_of(const confd_daemon_ctx *dx, int fd)
{
    t_confd_sock_ref control = dx->p_daemon->control;
    if (control != nullptr && control->fd == fd)
        return control;
    return client_sock(fd, IPC_CONN_WORKER);
}

int confd_fd_ready(confd_daemon_ctx *dx, int fd)
{
    t_confd_sock_ref sock = sock_of(dx, fd);
    if (sock == nullptr)
        return CONFD_ERR;
    t_dp_request request = {dx, sock.get(), {}};
    {
        std::lock_guard guard(sock->call_lock);
        int result = client_receive(sock.get(), &request.frame);
        if (result != CONFD_OK)
            return result;
    }
    if (request.frame.kind != IPC_KIND_REQUEST)
        return client_drop(sock.get());
    return sock->conn == IPC_CONN_CONTROL ? dp_serve_control(request) : serve_worker(request);
}

// ---- In callbacks ----

void confd_trans_set_fd(confd_trans_ctx *tctx, int sock)
{
    tctx->fd = sock;
}

void confd_action_set_fd(confd_user_info *uinfo, int sock)
{
    static_cast<t_confd_user *>(uinfo)->worker_fd = sock;
}

void confd_trans_seterr(confd_trans_ctx *tctx, const char *fmt, ...)
{
    va_list args;
    va_start(args, fmt);
    static_cast<t_confd_trans *>(tctx)->error = client_vformat(fmt, args);
    va_end(args);
}

void confd_action_seterr(confd_user_info *uinfo, const char *fmt, ...)
{
    va_list args;
    va_start(args, fmt);
    static_cast<t_confd_user *>(uinfo)->error = client_vformat(fmt, args);
    va_end(args);
}
