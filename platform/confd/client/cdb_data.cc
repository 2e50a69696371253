// Sessions on data connections.
#include "platform/confd/confd_cdb.h"

#include "platform/confd/client/client_private.h"

#include <utility>

int cdb_connect(int sock, cdb_sock_type type, const struct sockaddr *srv, int srv_sz)
{
    e_ipc_conn conn = type == CDB_SUBSCRIPTION_SOCKET ? IPC_CONN_CDB_SUB : IPC_CONN_CDB_DATA;
    return client_connect(sock, srv, srv_sz, conn, {});
}

int cdb_close(int sock)
{
    return client_disconnect(sock);
}

int cdb_start_session2(int sock, cdb_db_type db, int flags)
{
    t_ipc_start_session request = {static_cast<uint8_t>(db), static_cast<uint32_t>(flags)};
    return client_do(sock, IPC_CONN_CDB_DATA, IPC_OP_CDB_START_SESSION, ipc_encode(request));
}

int cdb_start_session(int sock, cdb_db_type db)
{
    return cdb_start_session2(sock, db, 0);
}

int cdb_end_session(int sock)
{
    return client_do(sock, IPC_CONN_CDB_DATA, IPC_OP_CDB_END_SESSION, {});
}

int cdb_get_phase(int sock, cdb_phase *phase)
{
    t_ipc_phase reply;
    int result = client_ask(sock, IPC_CONN_CDB_DATA, IPC_OP_CDB_GET_PHASE, {}, &reply);
    if (result == CONFD_OK)
        *phase = {reply.phase, reply.flags};
    return result;
}

static int path_request(int sock, e_ipc_op op, const std::string &path)
{
    return client_do(sock, IPC_CONN_CDB_DATA, op, ipc_encode(t_ipc_path{path}));
}

// A count, or the failure.
static int count_request(int sock, e_ipc_op op, const std::string &path)
{
    t_ipc_count reply;
    int result = client_ask(sock, IPC_CONN_CDB_DATA, op, ipc_encode(t_ipc_path{path}), &reply);
    return result == CONFD_OK ? reply.count : result;
}

int cdb_cd(int sock, const char *fmt, ...)
{
    CLIENT_PATH(path, fmt);
    return path_request(sock, IPC_OP_CDB_CD, path);
}

int cdb_exists(int sock, const char *fmt, ...)
{
    CLIENT_PATH(path, fmt);
    return count_request(sock, IPC_OP_CDB_EXISTS, path);
}

int cdb_num_instances(int sock, const char *fmt, ...)
{
    CLIENT_PATH(path, fmt);
    return count_request(sock, IPC_OP_CDB_NUM_INSTANCES, path);
}

// ---- Values ----

static int get_value(int sock, const std::string &path, IpcValue *p_value)
{
    t_ipc_value_reply reply;
    int result = client_ask(sock, IPC_CONN_CDB_DATA, IPC_OP_CDB_GET, ipc_encode(t_ipc_path{path}), &reply);
    if (result == CONFD_OK)
        *p_value = std::move(reply.value);
    return result;
}

static int get_typed(int sock, const std::string &path, confd_vtype type, IpcValue *p_value)
{
    IpcValue value;
    int result = get_value(sock, path, &value);
    if (result != CONFD_OK)
        return result;
    if (value.v.type != type)
        return client_fail(CONFD_ERR_BADTYPE, "%s is of another type", path.c_str());
    *p_value = std::move(value);
    return CONFD_OK;
}

int cdb_vget(int sock, confd_value_t *v, const char *fmt, va_list args)
{
    std::string path;
    int result = client_path(&path, fmt, args);
    IpcValue value;
    if (result == CONFD_OK)
        result = get_value(sock, path, &value);
    if (result == CONFD_OK)
        *v = value.release();
    return result;
}

int cdb_get(int sock, confd_value_t *v, const char *fmt, ...)
{
    va_list args;
    va_start(args, fmt);
    int result = cdb_vget(sock, v, fmt, args);
    va_end(args);
    return result;
}

int cdb_get_int16(int sock, int16_t *rval, const char *fmt, ...)
{
    CLIENT_PATH(path, fmt);
    IpcValue value;
    int result = get_typed(sock, path, C_INT16, &value);
    if (result == CONFD_OK)
        *rval = value.v.val.i16;
    return result;
}

int cdb_get_int32(int sock, int32_t *rval, const char *fmt, ...)
{
    CLIENT_PATH(path, fmt);
    IpcValue value;
    int result = get_typed(sock, path, C_INT32, &value);
    if (result == CONFD_OK)
        *rval = value.v.val.i32;
    return result;
}

int cdb_get_u_int32(int sock, uint32_t *rval, const char *fmt, ...)
{
    CLIENT_PATH(path, fmt);
    IpcValue value;
    int result = get_typed(sock, path, C_UINT32, &value);
    if (result == CONFD_OK)
        *rval = value.v.val.u32;
    return result;
}

int cdb_get_str(int sock, char *rval, int n, const char *fmt, ...)
{
    CLIENT_PATH(path, fmt);
    IpcValue value;
    int result = get_typed(sock, path, C_BUF, &value);
    if (result == CONFD_OK)
        client_copy_text(rval, n > 0 ? static_cast<size_t>(n) : 0, client_value_text(value.v));
    return result;
}

int cdb_vset_elem(int sock, confd_value_t *val, const char *fmt, va_list args)
{
    t_ipc_set_elem request;
    int result = client_path(&request.path, fmt, args);
    if (result != CONFD_OK)
        return result;
    request.value = IpcValue(*val);
    std::vector<uint8_t> body = ipc_encode(request);
    if (body.empty())
        return client_fail(CONFD_ERR_BADTYPE, "The value of %s can't be sent", request.path.c_str());
    return client_do(sock, IPC_CONN_CDB_DATA, IPC_OP_CDB_SET_ELEM, std::move(body));
}

int cdb_set_elem(int sock, confd_value_t *val, const char *fmt, ...)
{
    va_list args;
    va_start(args, fmt);
    int result = cdb_vset_elem(sock, val, fmt, args);
    va_end(args);
    return result;
}

static int vpath_request(int sock, e_ipc_op op, const char *fmt, va_list args)
{
    std::string path;
    int result = client_path(&path, fmt, args);
    return result == CONFD_OK ? path_request(sock, op, path) : result;
}

int cdb_vcreate(int sock, const char *fmt, va_list args)
{
    return vpath_request(sock, IPC_OP_CDB_CREATE, fmt, args);
}

int cdb_create(int sock, const char *fmt, ...)
{
    CLIENT_PATH(path, fmt);
    return path_request(sock, IPC_OP_CDB_CREATE, path);
}

int cdb_vdelete(int sock, const char *fmt, va_list args)
{
    return vpath_request(sock, IPC_OP_CDB_DELETE, fmt, args);
}

int cdb_delete(int sock, const char *fmt, ...)
{
    CLIENT_PATH(path, fmt);
    return path_request(sock, IPC_OP_CDB_DELETE, path);
}
