// Sessions, rights, and the way from an rpc to its operation.

#include "mgmtd/rpc/mgmt_rpc_private.h"

#include <algorithm>
#include <cstring>
#include <new>

// ---- Sessions ----

mgmt_rpc_server_ptr mgmt_rpc_server_new(const t_netconf_monitor *p_monitor)
{
    auto server = std::make_shared<t_mgmt_rpc_server>();
    server->p_monitor = p_monitor;
    return server;
}

mgmt_rpc_session_ptr mgmt_rpc_session_open(t_mgmt_engine *p_engine, const std::string &user, bool is_recovery,
                                           uint32_t netconf_id, t_mgmt_rpc_stream stream)
{
    mgmt_rpc_session_ptr session(new t_mgmt_rpc_session{
        .p_engine = p_engine,
        .server = nullptr,
        .user = user,
        .is_recovery = is_recovery,
        .netconf_id = netconf_id,
        .session = mgmt_session_open(p_engine, {.name = user, .context = "netconf"}),
        .subscription = 0,
        .stream = std::move(stream),
    });
    mgmt_rpc_session_join(session.get(), mgmt_rpc_server_new(nullptr));
    return session;
}

static void session_leave(t_mgmt_rpc_session *p_session)
{
    if (p_session->server != nullptr)
        std::erase(p_session->server->sessions, p_session);
}

void mgmt_rpc_session_join(t_mgmt_rpc_session *p_session, const mgmt_rpc_server_ptr &server)
{
    session_leave(p_session);
    p_session->server = server;
    server->sessions.push_back(p_session);
}

void t_mgmt_rpc_session_deleter::operator()(t_mgmt_rpc_session *p_session) const
{
    if (p_session == nullptr)
        return;
    mgmt_session_close(p_session->p_engine, p_session->session);
    session_leave(p_session);
    delete p_session;
}

// ---- Rights ----

const t_mgmt_rights &rpc_rights(t_mgmt_rpc_session *p_session)
{
    t_mgmt_rpc_server *p_server = p_session->server.get();
    mgmt_tree_ptr running = mgmt_tree_of(p_session->p_engine, MGMT_DS_RUNNING);
    if (p_server->rights == nullptr || p_server->rights_config != running) {
        p_server->rights = mgmt_rights_new(*running, p_server->rights);
        p_server->rights_config = std::move(running);
    }
    return *p_server->rights;
}

t_mgmt_subject rpc_subject(t_mgmt_rpc_session *p_session)
{
    t_mgmt_subject subject = mgmt_rights_subject(rpc_rights(p_session), p_session->user);
    subject.is_recovery = p_session->is_recovery;
    return subject;
}

bool rpc_may_change_all(t_mgmt_rpc_session *p_session)
{
    return mgmt_rights_edits_all(rpc_rights(p_session), rpc_subject(p_session));
}

bool rpc_may_change(t_mgmt_rpc_session *p_session, mgmt_tree_ptr from, mgmt_tree_ptr to,
                    t_mgmt_error *p_error)
{
    return from == to || rpc_may_change_all(p_session) ||
           mgmt_rights_edit(rpc_rights(p_session), rpc_subject(p_session),
                            mgmt_diff_new(std::move(from), std::move(to)), p_error);
}

static bool may_call(t_mgmt_rpc_session *p_session, const lyd_node *p_operation, t_mgmt_rpc_error *p_error)
{
    t_mgmt_error error;
    if (mgmt_rights_exec(rpc_rights(p_session), rpc_subject(p_session), p_operation->schema, &error))
        return true;
    *p_error = mgmt_rpc_error_of(*p_session->p_engine, error);
    p_error->type = "protocol";
    if (p_error->path.empty())
        p_error->path =
            std::string("/") + p_operation->schema->module->name + ":" + p_operation->schema->name;
    return false;
}

bool mgmt_rpc_may(t_mgmt_rpc_session *p_session, const lyd_node *p_rpc, t_mgmt_rpc_reply *p_reply)
{
    t_mgmt_rpc_error error;
    if (may_call(p_session, p_rpc, &error))
        return true;
    p_reply->kind = MGMT_RPC_ERRORS;
    p_reply->errors.push_back(std::move(error));
    return false;
}

// ---- Operations ----

namespace {

struct t_operation {
    const char *module;
    const char *name;
    void (*run)(const rpc_call_ptr &call);
    bool checks =
        false;  // its parameters itself, since the model's checks give other errors than are asked for
};

}  // namespace

static constexpr t_operation operations[] = {
    {"ietf-netconf", "get", rpc_get},
    {"ietf-netconf", "get-config", rpc_get_config},
    {"ietf-netconf", "edit-config", rpc_edit_config},
    {"ietf-netconf", "copy-config", rpc_copy_config},
    {"ietf-netconf", "lock", rpc_lock},
    {"ietf-netconf", "unlock", rpc_unlock},
    {"ietf-netconf", "validate", rpc_validate},
    {"ietf-netconf", "commit", rpc_commit},
    {"ietf-netconf", "cancel-commit", rpc_cancel_commit},
    {"ietf-netconf", "discard-changes", rpc_discard_changes},
    {"ietf-netconf-monitoring", "get-schema", rpc_get_schema},
    {"notifications", "create-subscription", rpc_create_subscription, true},
};

// The operation in what the library has parsed: the top, or for an action a node below. Null if there is
// none.
static const lyd_node *operation_of(const lyd_node *p_rpc)
{
    const lyd_node *p_node = p_rpc;
    while (p_node != nullptr && p_node->schema != nullptr &&
           (p_node->schema->nodetype & (LYS_RPC | LYS_ACTION)) == 0) {
        // Keys stand first; the way to the action is the last child.
        const lyd_node *p_child = lyd_child(p_node);
        p_node = p_child != nullptr ? p_child->prev : nullptr;
    }
    return p_node != nullptr && p_node->schema != nullptr ? p_node : nullptr;
}

static t_mgmt_rpc_error validation_error(const ly_ctx *p_context)
{
    const char *p_message = ly_errmsg(p_context);
    std::string message = p_message != nullptr ? p_message : "the operation is not valid";
    bool is_missing = message.starts_with("Mandatory");
    return rpc_error("protocol", is_missing ? "missing-element" : "invalid-value", std::move(message));
}

static const t_operation *operation_find(const lysc_node *p_schema)
{
    for (const t_operation &operation : operations)
        if (strcmp(p_schema->name, operation.name) == 0 &&
            strcmp(p_schema->module->name, operation.module) == 0)
            return &operation;
    static constexpr t_operation of_the_model = {"", "", rpc_action};
    return &of_the_model;
}

void mgmt_rpc_run(t_mgmt_rpc_session *p_session, const lyd_node *p_rpc, f_mgmt_rpc_done done)
{
    auto call = std::make_shared<t_rpc_call>(t_rpc_call{p_session, nullptr, std::move(done)});
    const lyd_node *p_operation = operation_of(p_rpc);
    t_mgmt_rpc_error error;
    if (p_operation == nullptr)
        return rpc_fail(call, rpc_error("rpc", "operation-not-supported", "the message holds no operation"));
    if (!may_call(p_session, p_operation, &error))
        return rpc_fail(call, std::move(error));
    if (p_operation->schema->nodetype == LYS_ACTION)
        return rpc_fail(call,
                        rpc_error("protocol", "operation-not-supported",
                                  std::string(p_operation->schema->name) + ": nothing serves this action"));
    lyd_node *p_input = nullptr;
    if (lyd_dup_single(p_operation, nullptr, LYD_DUP_RECURSIVE, &p_input) != LY_SUCCESS)
        throw std::bad_alloc();
    call->input.reset(p_input);
    const t_operation *p_found = operation_find(p_input->schema);
    if (!p_found->checks && lyd_validate_op(p_input, nullptr, LYD_TYPE_RPC_YANG, nullptr) != LY_SUCCESS)
        return rpc_fail(call, validation_error(LYD_CTX(p_input)));
    p_found->run(call);
}
