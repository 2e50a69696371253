// Data connections: sessions, reading, operational writes, triggers.

#include "mgmtd/ipc/ipc_server_private.h"

// ---- Sessions ----

static bool start_session(t_ipc_connection *p_connection, const t_ipc_frame &frame)
{
    t_ipc_start_session start;
    if (!ipc_decode(frame.body, &start))
        return false;
    t_mgmt_engine *p_engine = p_connection->p_server->p_engine;
    e_mgmt_datastore datastore = MGMT_DS_RUNNING;
    if (start.db == CDB_OPERATIONAL)
        datastore = MGMT_DS_OPERATIONAL;
    else if (start.db == CDB_PRE_COMMIT_RUNNING)
        datastore = MGMT_DS_PRE_COMMIT;
    if (start.db < CDB_RUNNING || start.db > CDB_PRE_COMMIT_RUNNING) {
        ipc_refuse_with(p_connection, frame, CONFD_ERR_PROTOUSAGE, "there is no such database");
        return true;
    }
    if (datastore == MGMT_DS_PRE_COMMIT && !mgmt_pre_commit_is_open(*p_engine)) {
        ipc_refuse_with(p_connection, frame, CONFD_ERR_NOEXISTS, "no commit is being told");
        return true;
    }
    constexpr uint32_t notify = CDB_LOCK_REQUEST | CDB_LOCK_WAIT;
    p_connection->session = {.db = static_cast<cdb_db_type>(start.db),
                             .notify = (start.flags & notify) == notify,
                             .tree = mgmt_tree_of(p_engine, datastore),
                             .place = {}};
    ipc_reply(p_connection, frame, {});
    return true;
}

static bool end_session(t_ipc_connection *p_connection, const t_ipc_frame &frame)
{
    if (!frame.body.empty())
        return false;
    bool had_session = p_connection->session.has_value();
    p_connection->session.reset();
    if (had_session)
        ipc_reply(p_connection, frame, {});
    else
        ipc_refuse_with(p_connection, frame, CONFD_ERR_NOSESSION, "no session is open");
    return true;
}

// Reads the path of a request in a session. False: the request is answered with a refusal.
static bool session_path(t_ipc_connection *p_connection, const t_ipc_frame &frame, const std::string &text,
                         t_mgmt_path *p_path)
{
    t_mgmt_error error;
    if (!p_connection->session) {
        ipc_refuse_with(p_connection, frame, CONFD_ERR_NOSESSION, "no session is open");
        return false;
    }
    if (ipc_path_take(*p_connection, &p_connection->session->place, text, p_path, &error))
        return true;
    ipc_refuse(p_connection, frame, error);
    return false;
}

// ---- Reading ----

bool ipc_value_at(const t_mgmt_tree &tree, const t_mgmt_path &path, IpcValue *p_value, t_mgmt_error *p_error)
{
    t_mgmt_place place;
    t_mgmt_values kept;
    if (!mgmt_path_find(tree, path, &place, p_error))
        return false;
    bool is_whole_list = place.schema != nullptr && place.schema->kind == SCHEMA_KIND_LEAF_LIST &&
                         path.steps.back().keys.empty() && path.steps.back().position < 0;
    bool is_leaf = place.schema != nullptr &&
                   (place.schema->kind == SCHEMA_KIND_LEAF || place.schema->kind == SCHEMA_KIND_LEAF_LIST);
    if (!is_leaf)
        return mgmt_fail(p_error, MGMT_ERR_BADPATH, mgmt_path_text(path), "this node has no value");
    if (is_whole_list && place.p_parent != nullptr)
        *p_value = IpcValue(mgmt_value_of_list(tree, place.p_parent, place.schema, &kept));
    else if (place.p_node != nullptr)
        *p_value = IpcValue(mgmt_value_of(place.schema, place.p_node));
    bool is_empty =
        p_value->v.type == C_NOEXISTS || (p_value->v.type == C_LIST && p_value->v.val.list.size == 0);
    return !is_empty || mgmt_fail(p_error, MGMT_ERR_NOEXISTS, mgmt_path_text(path), "there is no such value");
}

// What a request reads in an open session: fills the reply's body, or the error. False: it is an error.
using f_read = bool (*)(t_ipc_session *p_session, const t_mgmt_path &path, std::vector<uint8_t> *p_body,
                        t_mgmt_error *p_error);

static bool read_at_path(t_ipc_connection *p_connection, const t_ipc_frame &frame, f_read read)
{
    t_ipc_path request;
    t_mgmt_path path;
    t_mgmt_error error;
    std::vector<uint8_t> body;
    if (!ipc_decode(frame.body, &request))
        return false;
    if (!session_path(p_connection, frame, request.path, &path))
        return true;
    if (read(&*p_connection->session, path, &body, &error))
        ipc_reply(p_connection, frame, std::move(body));
    else
        ipc_refuse(p_connection, frame, error);
    return true;
}

static bool get_read(t_ipc_session *p_session, const t_mgmt_path &path, std::vector<uint8_t> *p_body,
                     t_mgmt_error *p_error)
{
    t_ipc_value_reply reply;
    if (!ipc_value_at(*p_session->tree, path, &reply.value, p_error))
        return false;
    *p_body = ipc_encode(reply);
    return true;
}

static bool exists_read(t_ipc_session *p_session, const t_mgmt_path &path, std::vector<uint8_t> *p_body,
                        t_mgmt_error *p_error)
{
    t_mgmt_place place;
    if (!mgmt_path_find(*p_session->tree, path, &place, p_error))
        return false;
    *p_body = ipc_encode(t_ipc_count{place.p_node != nullptr ? 1 : 0});
    return true;
}

static bool num_instances_read(t_ipc_session *p_session, const t_mgmt_path &path,
                               std::vector<uint8_t> *p_body, t_mgmt_error *p_error)
{
    int64_t count = mgmt_path_count(*p_session->tree, path, p_error);
    if (count < 0)
        return false;
    *p_body = ipc_encode(t_ipc_count{static_cast<int32_t>(count)});
    return true;
}

// Whether a session may stand at a path: containers are always there, list entries if they exist.
static bool can_stand(const t_mgmt_tree &tree, const t_mgmt_path &path, t_mgmt_error *p_error)
{
    t_mgmt_place place;
    if (path.steps.empty())
        return true;
    if (!mgmt_path_find(tree, path, &place, p_error))
        return false;
    bool is_container = place.schema->kind == SCHEMA_KIND_CONTAINER;
    if (place.p_node != nullptr || (is_container && place.parent_exists))
        return true;
    bool is_list = place.schema->kind == SCHEMA_KIND_LIST && path.steps.back().keys.empty() &&
                   path.steps.back().position < 0;
    return mgmt_fail(p_error, is_list ? MGMT_ERR_BADPATH : MGMT_ERR_NOEXISTS, mgmt_path_text(path),
                     is_list ? "a list is no place to be" : "there is no such instance");
}

static bool cd_read(t_ipc_session *p_session, const t_mgmt_path &path, std::vector<uint8_t> *,
                    t_mgmt_error *p_error)
{
    if (!can_stand(*p_session->tree, path, p_error))
        return false;
    p_session->place = path;
    return true;
}

template <f_read read>
static bool serve_read(t_ipc_connection *p_connection, const t_ipc_frame &frame)
{
    return read_at_path(p_connection, frame, read);
}

static bool get_phase(t_ipc_connection *p_connection, const t_ipc_frame &frame)
{
    if (!frame.body.empty())
        return false;
    int32_t phase = mgmt_engine_phase(*p_connection->p_server->p_engine);
    ipc_reply(p_connection, frame, ipc_encode(t_ipc_phase{.phase = phase, .flags = 0}));
    return true;
}

// ---- Writing ----

static void oper_write(t_ipc_connection *p_connection, const t_ipc_frame &frame, e_mgmt_oper_op op,
                       const std::string &text, const IpcValue &value)
{
    t_mgmt_path path;
    if (!session_path(p_connection, frame, text, &path))
        return;
    const t_ipc_session &session = *p_connection->session;
    if (session.db != CDB_OPERATIONAL) {
        ipc_refuse_with(p_connection, frame, CONFD_ERR_NOT_WRITABLE, "only the operational store is written");
        return;
    }
    mgmt_oper_write(p_connection->p_server->p_engine, op, path, value, session.notify,
                    ipc_answer_later(p_connection, frame));
}

static bool set_elem(t_ipc_connection *p_connection, const t_ipc_frame &frame)
{
    t_ipc_set_elem request;
    if (!ipc_decode(frame.body, &request))
        return false;
    oper_write(p_connection, frame, MGMT_OPER_SET, request.path, request.value);
    return true;
}

static bool create_or_delete(t_ipc_connection *p_connection, const t_ipc_frame &frame)
{
    t_ipc_path request;
    if (!ipc_decode(frame.body, &request))
        return false;
    e_mgmt_oper_op op = frame.op == IPC_OP_CDB_CREATE ? MGMT_OPER_CREATE : MGMT_OPER_DELETE;
    oper_write(p_connection, frame, op, request.path, IpcValue());
    return true;
}

static bool trigger(t_ipc_connection *p_connection, const t_ipc_frame &frame)
{
    t_ipc_trigger request;
    if (!ipc_decode(frame.body, &request))
        return false;
    mgmt_trigger(p_connection->p_server->p_engine, p_connection->hello.daemon, request,
                 frame.op == IPC_OP_CDB_TRIGGER_OPER, ipc_answer_later(p_connection, frame));
    return true;
}

static constexpr t_ipc_row rows[] = {
    {IPC_OP_CDB_START_SESSION, start_session},
    {IPC_OP_CDB_END_SESSION, end_session},
    {IPC_OP_CDB_GET, serve_read<get_read>},
    {IPC_OP_CDB_EXISTS, serve_read<exists_read>},
    {IPC_OP_CDB_NUM_INSTANCES, serve_read<num_instances_read>},
    {IPC_OP_CDB_CD, serve_read<cd_read>},
    {IPC_OP_CDB_SET_ELEM, set_elem},
    {IPC_OP_CDB_CREATE, create_or_delete},
    {IPC_OP_CDB_DELETE, create_or_delete},
    {IPC_OP_CDB_GET_PHASE, get_phase},
    {IPC_OP_CDB_TRIGGER, trigger},
    {IPC_OP_CDB_TRIGGER_OPER, trigger},
};
const std::span<const t_ipc_row> g_ipc_data_rows = rows;
