// Operations that change or check the candidate.
//
// An edit is read as a whole before anything is done and applied as a whole by the engine, so whatever the
// error option says, a refused edit leaves no trace. The trial, on a copy of the candidate, is made for who
// may not change everything, and when a test is asked for.

#include "mgmtd/rpc/mgmt_rpc_private.h"
#include "mgmtd/rpc/rpc_edit.h"
#include "mgmtd/store/mgmt_checks.h"

#include <algorithm>

// ---- Reading ----

static bool candidate_is_target(const rpc_call_ptr &call)
{
    if (rpc_child(rpc_child(call->input.get(), "target"), "candidate") != nullptr)
        return true;
    rpc_fail(call, rpc_error("protocol", "operation-not-supported",
                             "only the candidate can be changed; commit makes it running"));
    return false;
}

static bool config_read(const rpc_call_ptr &call, const lyd_node *p_config, const t_rpc_edit_options &options,
                        t_mgmt_edit *p_edit)
{
    std::vector<t_rpc_element> elements;
    t_mgmt_rpc_error error;
    const t_schema_index &index = mgmt_engine_schema(*call->p_session->p_engine);
    if (rpc_elements_read(p_config, &elements, &error) &&
        rpc_edit_read(index, elements, options, p_edit, &error))
        return true;
    rpc_fail(call, std::move(error));
    return false;
}

// A whole configuration as a tree; null when the call has been answered.
static mgmt_work_tree_ptr tree_read(const rpc_call_ptr &call, const lyd_node *p_config,
                                    const t_rpc_edit_options &options)
{
    t_mgmt_engine *p_engine = call->p_session->p_engine;
    t_mgmt_edit edit;
    t_mgmt_error error;
    if (!config_read(call, p_config, options, &edit))
        return nullptr;
    std::vector<t_mgmt_edit> edits;
    edits.push_back(std::move(edit));
    mgmt_work_tree_ptr tree = mgmt_tree_new(&mgmt_engine_schema(*p_engine), mgmt_engine_context(*p_engine));
    if (mgmt_edit_apply(tree, std::move(edits), &error))
        return tree;
    rpc_fail_engine(call, error);
    return nullptr;
}

// ---- Trials ----

// Applies edits to a copy of the candidate. A hook's values are missing there; *p_has_hooks tells that there
// would be some.
static mgmt_work_tree_ptr trial_make(t_mgmt_engine *p_engine, std::vector<t_mgmt_edit> edits,
                                     bool *p_has_hooks, t_mgmt_error *p_error)
{
    mgmt_work_tree_ptr tree = mgmt_tree_copy(*mgmt_tree_of(p_engine, MGMT_DS_CANDIDATE));
    mgmt_apply_ptr apply = mgmt_apply_new(tree, std::move(edits), true);
    t_mgmt_hook_call hook;
    e_mgmt_apply state = MGMT_APPLY_HOOK;
    *p_has_hooks = false;
    while ((state = mgmt_apply_run(apply.get(), &hook, p_error)) == MGMT_APPLY_HOOK)
        *p_has_hooks = true;
    return state == MGMT_APPLY_DONE ? tree : nullptr;
}

static bool tree_check(t_mgmt_engine *p_engine, const mgmt_work_tree_ptr &tree, t_mgmt_error *p_error)
{
    return mgmt_tree_validate(tree.get(), p_error) &&
           mgmt_checks_run(mgmt_diff_new(mgmt_tree_of(p_engine, MGMT_DS_RUNNING), tree), p_error);
}

// An edit that makes what a daemon completes can't be tested without that daemon: the commit will.
static bool edit_try(const rpc_call_ptr &call, const std::vector<t_mgmt_edit> &edits, bool with_test)
{
    t_mgmt_rpc_session *p_session = call->p_session;
    t_mgmt_error error;
    bool has_hooks;
    if (!with_test && rpc_may_change_all(p_session))
        return true;
    mgmt_work_tree_ptr trial = trial_make(p_session->p_engine, edits, &has_hooks, &error);
    bool is_good =
        trial != nullptr &&
        rpc_may_change(p_session, mgmt_tree_of(p_session->p_engine, MGMT_DS_CANDIDATE), trial, &error) &&
        (!with_test || has_hooks || tree_check(p_session->p_engine, trial, &error));
    if (!is_good)
        rpc_fail_engine(call, error);
    return is_good;
}

// ---- Operations ----

// Makes the candidate the tree, if the session may.
static void candidate_become(const rpc_call_ptr &call, mgmt_work_tree_ptr tree, bool test_only)
{
    t_mgmt_rpc_session *p_session = call->p_session;
    t_mgmt_error error;
    if (!rpc_may_change(p_session, mgmt_tree_of(p_session->p_engine, MGMT_DS_CANDIDATE), tree, &error))
        return rpc_fail_engine(call, error);
    if (test_only)
        return rpc_ok(call);
    mgmt_replace(p_session->p_engine, p_session->session, std::move(tree), rpc_done(call));
}

// The test option, if the client names it: by default an incomplete candidate is none of an edit's business.
static std::string test_option(const rpc_call_ptr &call)
{
    const lyd_node *p_option = rpc_child(call->input.get(), "test-option");
    bool is_named = p_option != nullptr && (p_option->flags & LYD_DEFAULT) == 0;
    return is_named ? lyd_get_value(p_option) : "set";
}

// default-operation replace: what the configuration does not name goes.
static void edit_replace(const rpc_call_ptr &call, const lyd_node *p_config)
{
    t_mgmt_error error;
    std::string test = test_option(call);
    mgmt_work_tree_ptr tree = tree_read(call, p_config, {});
    if (tree == nullptr)
        return;
    if (test != "set") {
        mgmt_work_tree_ptr trial = mgmt_tree_copy(*tree);
        if (!tree_check(call->p_session->p_engine, trial, &error))
            return rpc_fail_engine(call, error);
    }
    candidate_become(call, std::move(tree), test == "test-only");
}

void rpc_edit_config(const rpc_call_ptr &call)
{
    const lyd_node *p_config = rpc_child(call->input.get(), "config");
    if (!candidate_is_target(call))
        return;
    if (p_config == nullptr)
        return rpc_fail(call,
                        rpc_error_element("missing-element", "config", "there is no config to edit with"));
    std::string default_op = rpc_leaf(call->input.get(), "default-operation");
    if (default_op == "replace")
        return edit_replace(call, p_config);
    std::vector<t_mgmt_edit> edits(1);
    e_mgmt_op op = default_op == "none" ? MGMT_OP_NONE : MGMT_OP_MERGE;
    std::string test = test_option(call);
    if (!config_read(call, p_config, {.default_op = op}, &edits[0]) || !edit_try(call, edits, test != "set"))
        return;
    if (test == "test-only")
        return rpc_ok(call);
    mgmt_edit(call->p_session->p_engine, call->p_session->session, std::move(edits), rpc_done(call));
}

void rpc_copy_config(const rpc_call_ptr &call)
{
    t_mgmt_rpc_session *p_session = call->p_session;
    const lyd_node *p_source = rpc_child(call->input.get(), "source");
    if (!candidate_is_target(call))
        return;
    if (rpc_child(p_source, "candidate") != nullptr)
        return rpc_fail(call, rpc_error("protocol", "invalid-value", "source and target are the candidate"));
    if (rpc_child(p_source, "running") != nullptr)
        return mgmt_discard(p_session->p_engine, p_session->session, rpc_done(call));
    const lyd_node *p_config = rpc_child(p_source, "config");
    if (p_config == nullptr)
        return rpc_fail(call,
                        rpc_error_element("missing-element", "source", "there is no source to copy from"));
    mgmt_work_tree_ptr tree = tree_read(call, p_config, {.has_operations = false});
    if (tree != nullptr)
        candidate_become(call, std::move(tree), false);
}

void rpc_validate(const rpc_call_ptr &call)
{
    t_mgmt_engine *p_engine = call->p_session->p_engine;
    const lyd_node *p_source = rpc_child(call->input.get(), "source");
    if (rpc_child(p_source, "candidate") != nullptr)
        return mgmt_check(p_engine, call->p_session->session, rpc_done(call));
    const lyd_node *p_config = rpc_child(p_source, "config");
    if (p_config == nullptr)
        return rpc_ok(call);  // running was valid when it became running
    mgmt_work_tree_ptr tree = tree_read(call, p_config, {.has_operations = false});
    t_mgmt_error error;
    if (tree == nullptr)
        return;
    if (tree_check(p_engine, tree, &error))
        rpc_ok(call);
    else
        rpc_fail_engine(call, error);
}
