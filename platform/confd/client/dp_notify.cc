// Notifications of daemons, and events of the framework.
#include "platform/confd/client/dp_private.h"

#include <cstdlib>
#include <cstring>

// ---- Sending; from any thread ----

static int send_oneway(t_confd_sock *p_sock, e_ipc_op op, std::vector<uint8_t> body)
{
    if (body.empty())
        return client_fail(CONFD_ERR_BADTYPE, "The values can't be sent");
    return client_send(p_sock, {op, IPC_KIND_ONEWAY, 0, 0, std::move(body)});
}

int confd_notification_send(confd_notification_ctx *nctx, const confd_datetime *time,
                            const confd_tag_value_t *values, int nvalues)
{
    t_ipc_notification message = {};
    message.sender_id = nctx->sender_id;
    message.time = {time->year,  time->month,    time->day,
                    time->hour,  time->min,      time->sec,
                    time->micro, time->timezone, time->timezone_minutes};
    message.values = ipc_tag_values_copy(values, nvalues > 0 ? static_cast<size_t>(nvalues) : 0);
    return send_oneway(nctx->sock.get(), IPC_OP_NOTIF_SEND, ipc_encode(message));
}

int confd_notification_set_snmp_notify_name(confd_notification_ctx *nctx, const char *notify_name)
{
    nctx->notify_name = notify_name;
    return CONFD_OK;
}

static t_ipc_varbind varbind_of(const confd_snmp_varbind &from)
{
    t_ipc_varbind varbind = {};
    varbind.type = static_cast<uint8_t>(from.type);
    if (from.type == CONFD_SNMP_VARIABLE)
        varbind.name = {from.var.name, strnlen(from.var.name, sizeof(from.var.name))};
    else
        varbind.oid = {from.var.oid.oid, from.var.oid.oid + from.var.oid.len};
    varbind.value = IpcValue(from.val);
    return varbind;
}

int confd_notification_send_snmp(confd_notification_ctx *nctx, const char *notification,
                                 const confd_snmp_varbind *varbinds, int num_vars)
{
    t_ipc_snmp_notification message = {nctx->sender_id, nctx->notify_name, notification, {}};
    for (int i = 0; i < num_vars; i++)
        message.varbinds.push_back(varbind_of(varbinds[i]));
    return send_oneway(nctx->sock.get(), IPC_OP_NOTIF_SEND_SNMP, ipc_encode(message));
}

// ---- Events ----

int confd_notifications_connect2(int sock, const struct sockaddr *srv, int srv_sz, int mask,
                                 const confd_notifications_data *data)
{
    int result = client_connect(sock, srv, srv_sz, IPC_CONN_EVENTS, {});
    if (result != CONFD_OK)
        return result;
    t_ipc_events request = {static_cast<uint32_t>(mask), 0, 0};
    if (data != nullptr) {
        request.heartbeat_interval_ms = data->heartbeat_interval;
        request.health_check_interval_ms = data->health_check_interval;
    }
    return client_do(sock, IPC_CONN_EVENTS, IPC_OP_EVENTS_SUBSCRIBE, ipc_encode(request));
}

static int read_event(t_confd_sock *p_sock, t_ipc_event *p_event)
{
    std::lock_guard guard(p_sock->call_lock);
    t_ipc_frame frame;
    int result = client_receive(p_sock, &frame);
    if (result != CONFD_OK)
        return result;
    bool is_event = frame.kind == IPC_KIND_ONEWAY && frame.op == IPC_OP_EVENT &&
                    ipc_decode(frame.body, p_event) && p_event->type <= CONFD_NOTIF_HEALTH_CHECK &&
                    p_event->database <= CONFD_PRE_COMMIT_RUNNING;
    return is_event ? CONFD_OK : client_drop(p_sock);
}

int confd_read_notification(int sock, confd_notification *n)
{
    *n = {};
    t_confd_sock_ref ref = client_sock(sock, IPC_CONN_EVENTS);
    if (ref == nullptr)
        return CONFD_ERR;
    t_ipc_event event;
    int result = read_event(ref.get(), &event);
    if (result != CONFD_OK)
        return result;
    n->type = static_cast<confd_notification_type>(event.type);
    n->usid = event.usid;
    n->database = static_cast<confd_dbname>(event.database);
    n->text = strdup(event.text.c_str());
    return CONFD_OK;
}

void confd_free_notification(confd_notification *n)
{
    if (n == nullptr)
        return;
    free(n->text);
    n->text = nullptr;
}
