// get and get-config: reading, rights, filter, in this order, so that a filter can't find out what the user
// may not read.

#include "mgmtd/rpc/mgmt_rpc_private.h"
#include "mgmtd/rpc/rpc_filter.h"

struct t_read {
    rpc_call_ptr call;
    t_rpc_filter filter;
    int with_defaults = 0;  // an NC_WD_MODE
};

static int with_defaults_of(const lyd_node *p_input)
{
    static constexpr const char *modes[] = {"", "report-all", "report-all-tagged", "trim", "explicit"};
    std::string name = rpc_leaf(p_input, "with-defaults");
    for (size_t mode = 0; mode < std::size(modes); mode++)
        if (name == modes[mode])
            return static_cast<int>(mode);
    return 0;
}

static bool read_begin(const rpc_call_ptr &call, t_read *p_read)
{
    t_mgmt_rpc_error error;
    p_read->call = call;
    p_read->with_defaults = with_defaults_of(call->input.get());
    if (rpc_filter_read(call->input.get(), &p_read->filter, &error))
        return true;
    rpc_fail(call, std::move(error));
    return false;
}

static bool reports_all(const t_read &read)
{
    return read.with_defaults == 1 || read.with_defaults == 2;
}

static void read_end(const t_read &read, const mgmt_work_tree_ptr &tree)
{
    t_mgmt_rpc_session *p_session = read.call->p_session;
    t_mgmt_rpc_error error;
    if (reports_all(read))
        lyd_new_implicit_all(&tree->p_first, tree->p_context, LYD_IMPLICIT_NO_STATE, nullptr);
    mgmt_tree_changed(tree.get());
    mgmt_rights_filter(rpc_rights(p_session), rpc_subject(p_session), tree.get());
    lyd_ptr data(tree->p_first);
    tree->p_first = nullptr;
    mgmt_tree_changed(tree.get());
    if (rpc_filter_apply(read.filter, tree->p_context, &data, &error))
        rpc_data(read.call, std::move(data), read.with_defaults);
    else
        rpc_fail(read.call, std::move(error));
}

void rpc_get_config(const rpc_call_ptr &call)
{
    t_read read;
    t_mgmt_engine *p_engine = call->p_session->p_engine;
    if (!read_begin(call, &read))
        return;
    bool is_candidate = rpc_child(rpc_child(call->input.get(), "source"), "candidate") != nullptr;
    mgmt_tree_ptr source = mgmt_tree_of(p_engine, is_candidate ? MGMT_DS_CANDIDATE : MGMT_DS_RUNNING);
    read_end(read, rpc_scope_copy(rpc_filter_scope(read.filter, mgmt_engine_schema(*p_engine)), *source));
}

// The server's own state beside the model's. Denials so far are those before this request's.
static void own_add(const t_read &read, const mgmt_work_tree_ptr &tree)
{
    if (rpc_filter_wants(read.filter, tree->p_context, "ietf-netconf-acm", "nacm"))
        mgmt_rights_add_state(rpc_rights(read.call->p_session), tree.get());
    auto wants = [&](const char *module, const char *name) {
        return rpc_filter_wants(read.filter, tree->p_context, module, name);
    };
    lyd_ptr own = rpc_own_state(read.call->p_session, wants);
    if (own != nullptr)
        lyd_insert_sibling(tree->p_first, own.release(), &tree->p_first);
}

void rpc_get(const rpc_call_ptr &call)
{
    t_read read;
    t_mgmt_engine *p_engine = call->p_session->p_engine;
    if (!read_begin(call, &read))
        return;
    t_rpc_scope scope = rpc_filter_scope(read.filter, mgmt_engine_schema(*p_engine));
    if (!scope.is_everything && scope.paths.empty()) {
        mgmt_work_tree_ptr tree =
            mgmt_tree_new(&mgmt_engine_schema(*p_engine), mgmt_engine_context(*p_engine));
        own_add(read, tree);
        return read_end(read, tree);
    }
    t_mgmt_get_request request = {.paths = std::move(scope.paths), .with_config = true, .done = nullptr};
    request.done = [read = std::move(read)](t_mgmt_get_result result) {
        if (result.error.code != MGMT_OK)
            return rpc_fail_engine(read.call, result.error);
        own_add(read, result.tree);
        read_end(read, result.tree);
    };
    mgmt_get(p_engine, call->p_session->session, std::move(request));
}
