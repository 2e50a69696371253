// Control connections, which register, and subscription connections.

#include "mgmtd/ipc/ipc_server_private.h"

// ---- Control ----

static bool reg_calls(t_ipc_connection *p_connection, const t_ipc_frame &frame)
{
    t_ipc_reg_calls calls;
    t_mgmt_error error;
    if (!ipc_decode(frame.body, &calls) || p_connection->is_ready)
        return false;
    t_ipc_reg_point point = {.point = "", .calls = calls.calls};
    if (!mgmt_daemon_register(p_connection->p_server->p_engine, p_connection->id, frame.op, point, &error))
        ipc_refuse(p_connection, frame, error);
    else
        ipc_reply(p_connection, frame, {});
    return true;
}

static bool reg_point(t_ipc_connection *p_connection, const t_ipc_frame &frame)
{
    t_ipc_reg_point point;
    t_mgmt_error error;
    if (!ipc_decode(frame.body, &point) || p_connection->is_ready)
        return false;
    if (!mgmt_daemon_register(p_connection->p_server->p_engine, p_connection->id, frame.op, point, &error))
        ipc_refuse(p_connection, frame, error);
    else
        ipc_reply(p_connection, frame, {});
    return true;
}

static bool reg_sender(t_ipc_connection *p_connection, const t_ipc_frame &frame)
{
    t_ipc_reg_notif sender;
    t_mgmt_error error;
    if (!ipc_decode(frame.body, &sender) || p_connection->is_ready)
        return false;
    t_mgmt_engine *p_engine = p_connection->p_server->p_engine;
    int32_t id = mgmt_daemon_sender(p_engine, p_connection->id, frame.op, sender, &error);
    if (id == 0)
        ipc_refuse(p_connection, frame, error);
    else
        ipc_reply(p_connection, frame, ipc_encode(t_ipc_count{id}));
    return true;
}

static bool reg_done(t_ipc_connection *p_connection, const t_ipc_frame &frame)
{
    if (!frame.body.empty() || p_connection->is_ready)
        return false;
    p_connection->is_ready = true;
    ipc_reply(p_connection, frame, {});
    mgmt_daemon_ready(p_connection->p_server->p_engine, p_connection->id);
    return true;
}

static constexpr t_ipc_row control_rows[] = {
    {IPC_OP_REG_TRANS, reg_calls}, {IPC_OP_REG_VALIDATE, reg_calls}, {IPC_OP_REG_VALPOINT, reg_point},
    {IPC_OP_REG_DATA, reg_point},  {IPC_OP_REG_ACTION, reg_point},   {IPC_OP_REG_NOTIF_STREAM, reg_sender},
    {IPC_OP_REG_SNMP, reg_sender}, {IPC_OP_REG_DONE, reg_done},
};
const std::span<const t_ipc_row> g_ipc_control_rows = control_rows;

// ---- Subscriptions ----

static bool subscribe(t_ipc_connection *p_connection, const t_ipc_frame &frame)
{
    t_ipc_subscribe request;
    t_mgmt_error error;
    if (!ipc_decode(frame.body, &request) || p_connection->is_ready)
        return false;
    int32_t id = mgmt_subscribe(p_connection->p_server->p_engine, p_connection->id, request, &error);
    if (id == 0)
        ipc_refuse(p_connection, frame, error);
    else
        ipc_reply(p_connection, frame, ipc_encode(t_ipc_count{id}));
    return true;
}

static bool subscribe_done(t_ipc_connection *p_connection, const t_ipc_frame &frame)
{
    if (!frame.body.empty() || p_connection->is_ready)
        return false;
    p_connection->is_ready = true;
    ipc_reply(p_connection, frame, {});
    mgmt_subscribe_done(p_connection->p_server->p_engine, p_connection->id);
    return true;
}

// A reader of differences that asks for what is not there has lost its way: it is dropped, never refused.
static bool diff(t_ipc_connection *p_connection, const t_ipc_frame &frame)
{
    t_ipc_diff_request request;
    t_ipc_diff_page page;
    if (!ipc_decode(frame.body, &request) ||
        !mgmt_batch_diff(p_connection->p_server->p_engine, p_connection->id, request, &page))
        return false;
    std::vector<uint8_t> body = ipc_encode(page);
    if (body.empty())
        return false;
    ipc_reply(p_connection, frame, std::move(body));
    return true;
}

static bool modifications(t_ipc_connection *p_connection, const t_ipc_frame &frame)
{
    t_ipc_modifications request;
    t_ipc_tag_values values;
    t_mgmt_error error;
    if (!ipc_decode(frame.body, &request))
        return false;
    if (mgmt_batch_modifications(p_connection->p_server->p_engine, p_connection->id, request, &values,
                                 &error))
        ipc_reply(p_connection, frame, ipc_encode(values));
    else
        ipc_refuse(p_connection, frame, error);
    return true;
}

static bool sync_or_abort(t_ipc_connection *p_connection, const t_ipc_frame &frame)
{
    t_ipc_sync sync;
    t_ipc_abort abort;
    t_mgmt_error error;
    bool is_sync = frame.op == IPC_OP_SUB_SYNC;
    if (!(is_sync ? ipc_decode(frame.body, &sync) : ipc_decode(frame.body, &abort)))
        return false;
    t_mgmt_engine *p_engine = p_connection->p_server->p_engine;
    // The answer goes before the next batch does.
    if (!mgmt_batch_can_end(p_engine, p_connection->id, !is_sync, &error)) {
        ipc_refuse(p_connection, frame, error);
        return true;
    }
    ipc_reply(p_connection, frame, {});
    mgmt_batch_end(p_engine, p_connection->id, is_sync ? nullptr : &abort);
    return true;
}

static constexpr t_ipc_row subscription_rows[] = {
    {IPC_OP_SUB_SUBSCRIBE, subscribe}, {IPC_OP_SUB_DONE, subscribe_done},
    {IPC_OP_SUB_DIFF, diff},           {IPC_OP_SUB_MODIFICATIONS, modifications},
    {IPC_OP_SUB_SYNC, sync_or_abort},  {IPC_OP_SUB_ABORT, sync_or_abort},
};
const std::span<const t_ipc_row> g_ipc_subscription_rows = subscription_rows;
