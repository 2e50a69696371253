// Transactions as daemons see them, create hooks and validation points.

#include "mgmtd/engine/mgmt_engine_private.h"

mgmt_trans_ptr mgmt_trans_new(t_mgmt_engine *p_engine, const t_ipc_user &user, bool validation,
                              t_mgmt_txn *p_txn)
{
    auto trans = std::make_shared<t_mgmt_trans>();
    trans->thandle = ++p_engine->last_thandle;
    trans->validation = validation;
    trans->p_txn = p_txn;
    bool writes = p_txn != nullptr;
    trans->init = {.thandle = trans->thandle,
                   .mode = static_cast<uint8_t>(writes ? CONFD_READ_WRITE : CONFD_READ),
                   .dbname = static_cast<uint8_t>(writes ? CONFD_CANDIDATE : CONFD_OPERATIONAL),
                   .user = user};
    p_engine->transactions.emplace(trans->thandle, trans);
    return trans;
}

static void ask_worker(t_mgmt_engine *p_engine, uint32_t control, uint32_t worker, uint16_t op,
                       std::vector<uint8_t> body, f_mgmt_reply done)
{
    mgmt_daemon_ask(
        p_engine, control,
        {.connection = worker, .op = op, .body = std::move(body), .thandle = 0, .done = std::move(done)});
}

static t_mgmt_reply refusal(const std::string &text)
{
    return {.answered = false, .text = text};
}

void mgmt_trans_ask(t_mgmt_engine *p_engine, const mgmt_trans_ptr &trans, uint32_t control, uint16_t op,
                    std::vector<uint8_t> body, f_mgmt_reply done)
{
    auto bound = trans->workers.find(control);
    auto daemon = p_engine->daemons.find(control);
    if (bound != trans->workers.end() || daemon == p_engine->daemons.end()) {
        ask_worker(p_engine, control, bound != trans->workers.end() ? bound->second : 0, op, std::move(body),
                   std::move(done));
        return;
    }
    uint32_t calls = trans->validation ? daemon->second.validate_calls : daemon->second.trans_calls;
    if ((calls & IPC_CALL_INIT) == 0) {
        const std::set<uint32_t> &workers = daemon->second.workers;
        trans->workers[control] = workers.empty() ? 0 : *workers.begin();
        ask_worker(p_engine, control, trans->workers[control], op, std::move(body), std::move(done));
        return;
    }
    auto opened = [=, body = std::move(body), done = std::move(done)](const t_mgmt_reply &reply) {
        if (!reply.answered || reply.status != 0) {
            done(reply);
        } else if (!mgmt_daemon_has_worker(*p_engine, control, reply.worker.worker_conn_id)) {
            done(refusal("its provider names no worker connection of its own"));
        } else {
            trans->workers[control] = reply.worker.worker_conn_id;
            ask_worker(p_engine, control, reply.worker.worker_conn_id, op, body, done);
        }
    };
    mgmt_daemon_ask(p_engine, control,
                    {.connection = control,
                     .op = trans->validation ? IPC_OP_DP_VALIDATE_INIT : IPC_OP_DP_TRANS_INIT,
                     .body = ipc_encode(trans->init),
                     .thandle = trans->thandle,
                     .done = std::move(opened)});
}

void mgmt_trans_end(t_mgmt_engine *p_engine, const mgmt_trans_ptr &trans)
{
    p_engine->transactions.erase(trans->thandle);
    trans->p_txn = nullptr;
    for (const auto &[control, worker] : trans->workers)
        ask_worker(p_engine, control, worker,
                   trans->validation ? IPC_OP_DP_VALIDATE_STOP : IPC_OP_DP_TRANS_FINISH,
                   ipc_encode(t_ipc_thandle{trans->thandle}), nullptr);
}

// ---- Clients in a transaction ----

const t_mgmt_tree *mgmt_transaction_tree(t_mgmt_engine *p_engine, uint32_t thandle)
{
    auto found = p_engine->transactions.find(thandle);
    if (found == p_engine->transactions.end())
        return nullptr;
    t_mgmt_txn *p_txn = found->second->p_txn;
    return p_txn != nullptr ? &mgmt_txn_tree(*p_txn) : p_engine->store.running.get();
}

bool mgmt_transaction_set(t_mgmt_engine *p_engine, uint32_t thandle, const t_mgmt_path &path,
                          const std::string *p_text, t_mgmt_error *p_error)
{
    auto found = p_engine->transactions.find(thandle);
    if (found == p_engine->transactions.end())
        return mgmt_fail(p_error, MGMT_ERR_NOEXISTS, mgmt_path_text(path), "there is no such transaction");
    if (found->second->p_txn == nullptr || found->second->validation)
        return mgmt_fail(p_error, MGMT_ERR_NOT_WRITABLE, mgmt_path_text(path), "the transaction only reads");
    return mgmt_txn_set(found->second->p_txn, path, p_text, p_error);
}

// ---- Hooks and validation ----

// The user of the piece of work that is under way.
static t_ipc_user user_of(const t_mgmt_engine &engine, const t_mgmt_writer &writer)
{
    auto found = engine.sessions.find(writer.session);
    if (found == engine.sessions.end())
        return {.usid = writer.session, .name = "system", .context = "system"};
    return {.usid = writer.session, .name = found->second.name, .context = found->second.context};
}

// Takes a daemon's answer to the transaction that waits for it, if it still does.
static f_mgmt_reply answer_taker(const std::shared_ptr<t_mgmt_writer> &writer, const std::string &path,
                                 const std::string &point)
{
    return [writer, path, point](const t_mgmt_reply &reply) {
        t_mgmt_error error;
        if (!reply.answered || reply.status != 0)
            mgmt_fail(&error, MGMT_ERR_EXTERNAL, path,
                      point + ": " + (reply.text.empty() ? "refused by its provider" : reply.text));
        mgmt_txn_answer(writer->txn.get(), error);
    };
}

static bool no_provider(t_mgmt_error *p_error, const std::string &path, const std::string &point)
{
    return mgmt_fail(p_error, MGMT_ERR_EXTERNAL, path, point + ": its provider is not connected");
}

e_mgmt_answer mgmt_hook_call(void *p_ctx, t_mgmt_txn *p_txn, const t_mgmt_hook_call &call,
                             t_mgmt_error *p_error)
{
    t_mgmt_engine *p_engine = static_cast<t_mgmt_engine *>(p_ctx);
    std::shared_ptr<t_mgmt_writer> writer = p_engine->writers.front();
    std::string point(call.callpoint);
    std::string path = mgmt_node_path(mgmt_txn_tree(*p_txn), call.p_node);
    uint32_t control = mgmt_daemon_of(*p_engine, &t_mgmt_daemon::data, point, IPC_CALL_CREATE);
    if (control == 0) {
        no_provider(p_error, path, point);
        return MGMT_ANSWER_NO;
    }
    if (writer->hooks == nullptr)
        writer->hooks = mgmt_trans_new(p_engine, user_of(*p_engine, *writer), false, p_txn);
    t_ipc_dp_object object = {
        .thandle = writer->hooks->thandle, .point = point, .keypath = mgmt_ipc_keypath(call.keypath)};
    mgmt_trans_ask(p_engine, writer->hooks, control, IPC_OP_DP_HOOK_CREATE, ipc_encode(object),
                   answer_taker(writer, path, point));
    return MGMT_ANSWER_LATER;
}

e_mgmt_answer mgmt_validation_call(void *p_ctx, t_mgmt_txn *p_txn, const t_mgmt_validation_call &call,
                                   t_mgmt_error *p_error)
{
    t_mgmt_engine *p_engine = static_cast<t_mgmt_engine *>(p_ctx);
    std::shared_ptr<t_mgmt_writer> writer = p_engine->writers.front();
    std::string point(call.point);
    uint32_t control = mgmt_daemon_of(*p_engine, &t_mgmt_daemon::validations, point, IPC_CALL_VALIDATE);
    std::string path = call.report.p_new != nullptr ? mgmt_node_path(mgmt_txn_tree(*p_txn), call.report.p_new)
                                                    : call.report.schema->path;
    if (control == 0) {
        no_provider(p_error, path, point);
        return MGMT_ANSWER_NO;
    }
    if (writer->validations == nullptr)
        writer->validations = mgmt_trans_new(p_engine, user_of(*p_engine, *writer), true, p_txn);
    bool has_value = call.report.schema->kind == SCHEMA_KIND_LEAF && call.report.p_new != nullptr;
    t_ipc_dp_validate validate = {
        .thandle = writer->validations->thandle,
        .point = point,
        .keypath = mgmt_ipc_keypath(call.keypath),
        .value = has_value ? IpcValue(mgmt_value_of(call.report.schema, call.report.p_new)) : IpcValue()};
    mgmt_trans_ask(p_engine, writer->validations, control, IPC_OP_DP_VALIDATE, ipc_encode(validate),
                   answer_taker(writer, path, point));
    return MGMT_ANSWER_LATER;
}
