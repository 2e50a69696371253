// Daemon contexts, their connections, and registering.
#include "platform/confd/client/dp_private.h"

#include <cstdlib>
#include <cstring>

confd_daemon_ctx *confd_init_daemon(const char *name)
{
    confd_daemon_ctx *dx = new confd_daemon_ctx();
    dx->p_daemon = new t_confd_daemon();
    dx->p_daemon->name = name;
    dx->name = dx->p_daemon->name.data();
    return dx;
}

int confd_set_daemon_flags(confd_daemon_ctx *dx, int flags)
{
    dx->flags = flags;
    return CONFD_OK;
}

void confd_release_daemon(confd_daemon_ctx *dx)
{
    if (dx == nullptr)
        return;
    delete dx->p_daemon;
    delete dx;
}

static int connect_control(confd_daemon_ctx *dx, int sock, const sockaddr *p_address, int address_size)
{
    t_ipc_hello hello = {};
    hello.daemon = dx->p_daemon->name;
    hello.flags = static_cast<uint32_t>(dx->flags);
    t_confd_sock_ref control;
    int result = client_connect(sock, p_address, address_size, IPC_CONN_CONTROL, hello, &control);
    if (result != CONFD_OK)
        return result;
    client_forget_printed();
    std::string name = dx->p_daemon->name;
    *dx->p_daemon = {};
    dx->p_daemon->name = name;
    dx->p_daemon->control = control;
    dx->name = dx->p_daemon->name.data();
    return CONFD_OK;
}

int confd_connect(confd_daemon_ctx *dx, int sock, confd_sock_type type, const struct sockaddr *srv,
                  int addrsz)
{
    if (type == CONTROL_SOCKET)
        return connect_control(dx, sock, srv, addrsz);
    if (dx->p_daemon->control == nullptr)
        return client_fail(CONFD_ERR_PROTOUSAGE, "The control socket is to be connected first");
    t_ipc_hello hello = {};
    hello.daemon = dx->p_daemon->name;
    hello.daemon_id = dx->p_daemon->control->connection_id;
    return client_connect(sock, srv, addrsz, IPC_CONN_WORKER, hello);
}

// ---- Registering ----

static int control_call(confd_daemon_ctx *dx, e_ipc_op op, std::vector<uint8_t> body,
                        std::vector<uint8_t> *p_reply)
{
    t_confd_sock_ref control = dx->p_daemon->control;
    if (control == nullptr)
        return client_fail(CONFD_ERR_PROTOUSAGE, "The control socket is not connected");
    return client_call(control.get(), op, std::move(body), p_reply);
}

static int do_register(confd_daemon_ctx *dx, e_ipc_op op, std::vector<uint8_t> body)
{
    std::vector<uint8_t> reply;
    return control_call(dx, op, std::move(body), &reply);
}

// The bit if there is such a callback.
template <typename Callback>
static uint32_t call_bit(Callback *p_callback, e_ipc_call bit)
{
    return p_callback != nullptr ? static_cast<uint32_t>(bit) : 0;
}

// The name in a record's text field, which need not be terminated.
static std::string point_name(const char (&field)[MAX_CALLPOINT_LEN])
{
    return {field, strnlen(field, MAX_CALLPOINT_LEN)};
}

int confd_register_trans_cb(confd_daemon_ctx *dx, const confd_trans_cbs *trans)
{
    uint32_t calls = call_bit(trans->init, IPC_CALL_INIT) | call_bit(trans->finish, IPC_CALL_FINISH);
    dx->p_daemon->trans_cbs = *trans;
    return do_register(dx, IPC_OP_REG_TRANS, ipc_encode(t_ipc_reg_calls{calls}));
}

int confd_register_trans_validate_cb(confd_daemon_ctx *dx, const confd_trans_validate_cbs *vcbs)
{
    uint32_t calls = call_bit(vcbs->init, IPC_CALL_INIT) | call_bit(vcbs->stop, IPC_CALL_FINISH);
    dx->p_daemon->validate_cbs = *vcbs;
    return do_register(dx, IPC_OP_REG_VALIDATE, ipc_encode(t_ipc_reg_calls{calls}));
}

int confd_register_valpoint_cb(confd_daemon_ctx *dx, const confd_valpoint_cb *vcb)
{
    std::string name = point_name(vcb->valpoint);
    dx->p_daemon->valpoints[name] = *vcb;
    return do_register(dx, IPC_OP_REG_VALPOINT, ipc_encode(t_ipc_reg_point{name, IPC_CALL_VALIDATE}));
}

int confd_register_data_cb(confd_daemon_ctx *dx, const confd_data_cbs *data)
{
    std::string name = point_name(data->callpoint);
    uint32_t calls = call_bit(data->create, IPC_CALL_CREATE) |
                     call_bit(data->get_object, IPC_CALL_GET_OBJECT) |
                     call_bit(data->get_next_object, IPC_CALL_GET_NEXT_OBJECT) |
                     call_bit(data->find_next_object, IPC_CALL_FIND_NEXT_OBJECT);
    dx->p_daemon->data[name] = *data;
    return do_register(dx, IPC_OP_REG_DATA, ipc_encode(t_ipc_reg_point{name, calls}));
}

int confd_register_action_cbs(confd_daemon_ctx *dx, const confd_action_cbs *acb)
{
    std::string name = point_name(acb->actionpoint);
    uint32_t calls = call_bit(acb->init, IPC_CALL_INIT) | call_bit(acb->action, IPC_CALL_ACTION) |
                     call_bit(acb->command, IPC_CALL_COMMAND);
    dx->p_daemon->actions[name] = *acb;
    return do_register(dx, IPC_OP_REG_ACTION, ipc_encode(t_ipc_reg_point{name, calls}));
}

int confd_register_done(confd_daemon_ctx *dx)
{
    return do_register(dx, IPC_OP_REG_DONE, {});
}

static int register_sender(confd_daemon_ctx *dx, e_ipc_op op, int fd, t_ipc_reg_notif request,
                           confd_notification_ctx **pp_sender)
{
    t_confd_sock_ref worker = client_sock(fd, IPC_CONN_WORKER);
    if (worker == nullptr)
        return CONFD_ERR;
    request.worker_conn_id = worker->connection_id;
    std::vector<uint8_t> bytes;
    t_ipc_count reply;
    int result = control_call(dx, op, ipc_encode(request), &bytes);
    if (result != CONFD_OK)
        return result;
    if (!ipc_decode(bytes, &reply))
        return client_drop(dx->p_daemon->control.get());
    auto sender = std::make_unique<confd_notification_ctx>();
    *sender = {worker, reply.count, request.name};
    *pp_sender = sender.get();
    dx->p_daemon->senders.push_back(std::move(sender));
    return CONFD_OK;
}

int confd_register_notification_stream(confd_daemon_ctx *dx, const confd_notification_stream_cbs *ncbs,
                                       confd_notification_ctx **nctx)
{
    t_ipc_reg_notif request = {point_name(ncbs->streamname), "", 0};
    return register_sender(dx, IPC_OP_REG_NOTIF_STREAM, ncbs->fd, request, nctx);
}

int confd_register_snmp_notification(confd_daemon_ctx *dx, int fd, const char *notify_name,
                                     const char *ctx_name, confd_notification_ctx **nctx)
{
    t_ipc_reg_notif request = {notify_name, ctx_name != nullptr ? ctx_name : "", 0};
    return register_sender(dx, IPC_OP_REG_SNMP, fd, request, nctx);
}
