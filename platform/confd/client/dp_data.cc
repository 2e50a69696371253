// Requests inside transactions: data, hooks and validation, and the answers to them.
#include "platform/confd/client/dp_private.h"

// ---- Answers ----

// The record behind a context that is serving a data request; null with CONFD_ERR_PROTOUSAGE otherwise.
static t_confd_trans *serving(confd_trans_ctx *tctx)
{
    t_confd_trans *p_trans = static_cast<t_confd_trans *>(tctx);
    if (p_trans->p_sock != nullptr)
        return p_trans;
    client_fail(CONFD_ERR_PROTOUSAGE, "Data replies are possible in data callbacks only");
    return nullptr;
}

// A second answer to one request is sent as well; the management daemon drops it.
static int send_data(confd_trans_ctx *tctx, const t_ipc_dp_data &data)
{
    t_confd_trans *p_trans = serving(tctx);
    if (p_trans == nullptr)
        return CONFD_ERR;
    std::vector<uint8_t> body = ipc_encode(data);
    if (body.empty())
        return client_fail(CONFD_ERR_BADTYPE, "The values can't be sent");
    p_trans->is_answered = true;
    return client_send(p_trans->p_sock,
                       {p_trans->op, IPC_KIND_REPLY, p_trans->request_id, 0, std::move(body)});
}

int confd_data_reply_not_found(confd_trans_ctx *tctx)
{
    return send_data(tctx, {IPC_DATA_NOT_FOUND, {}, {}, -1});
}

int confd_data_reply_tag_value_array(confd_trans_ctx *tctx, const confd_tag_value_t *tvs, int n)
{
    return confd_data_reply_next_object_tag_value_array(tctx, tvs, n, -1);
}

int confd_data_reply_next_object_tag_value_array(confd_trans_ctx *tctx, const confd_tag_value_t *tvs, int n,
                                                 long next)
{
    if (tvs == nullptr || n < 0)
        return send_data(tctx, {IPC_DATA_END, {}, {}, -1});
    return send_data(tctx, {IPC_DATA_OBJECT, ipc_tag_values_copy(tvs, static_cast<size_t>(n)), {}, next});
}

int confd_data_reply_next_key(confd_trans_ctx *tctx, const confd_value_t *v, int num_vals, long next)
{
    if (v == nullptr || num_vals < 0)
        return send_data(tctx, {IPC_DATA_END, {}, {}, -1});
    t_ipc_dp_data data = {IPC_DATA_KEY, {}, {}, next};
    for (int i = 0; i < num_vals; i++)
        data.keys.emplace_back(v[i]);
    return send_data(tctx, data);
}

// ---- Requests ----

static t_confd_trans *find_trans(const t_confd_trans_map &map, uint32_t thandle)
{
    auto found = map.find(thandle);
    return found == map.end() ? nullptr : found->second.get();
}

namespace {

// A request whose body is decoded and whose transaction and callpoint were found.
template <typename Message>
struct t_data_call {
    Message message;
    t_confd_trans *p_trans;
    const confd_data_cbs *p_cbs;
    confd_hkeypath_t keypath;
};

// Marks the transaction as serving a request for the time of a callback.
class ServedRequest {
public:
    ServedRequest(t_confd_trans *p_trans, const t_dp_request &request) : _p_trans(p_trans)
    {
        p_trans->p_sock = request.p_sock;
        p_trans->op = request.frame.op;
        p_trans->request_id = request.frame.id;
        p_trans->is_answered = false;
        p_trans->error.clear();
    }
    ~ServedRequest()
    {
        _p_trans->p_sock = nullptr;
    }

private:
    t_confd_trans *_p_trans;
};

}  // namespace

// Finds what a data request names, calls the callback, and sees to an answer where the callback gave none.
template <typename Message, typename Callback>
static int serve_object(const t_dp_request &request, Callback callback)
{
    auto call = std::make_unique<t_data_call<Message>>();
    if (!ipc_decode(request.frame.body, &call->message) ||
        !ipc_keypath_view(call->message.keypath, &call->keypath))
        return client_drop(request.p_sock);
    const t_confd_daemon &daemon = *request.dx->p_daemon;
    call->p_trans = find_trans(daemon.transactions, call->message.thandle);
    if (call->p_trans == nullptr)
        return dp_refuse(request, CONFD_ERR_BADSTATE, "No such transaction");
    auto found = daemon.data.find(call->message.point);
    if (found == daemon.data.end())
        return dp_refuse(request, CONFD_ERR_NOEXISTS, "No callpoint " + call->message.point);
    call->p_cbs = &found->second;
    ServedRequest served(call->p_trans, request);
    int result = callback(call.get());
    bool is_answered = call->p_trans->is_answered;
    if (result != CONFD_OK && is_answered)
        return client_fail(CONFD_ERR_EXTERNAL, "Callback of %s failed", call->message.point.c_str());
    if (result != CONFD_OK)
        return dp_refuse(request, CONFD_ERR_EXTERNAL, call->p_trans->error);
    return is_answered ? CONFD_OK : dp_refuse(request, CONFD_ERR_EXTERNAL, "The callback gave no answer");
}

static int serve_get(const t_dp_request &request)
{
    return serve_object<t_ipc_dp_object>(request, [](t_data_call<t_ipc_dp_object> *p_call) {
        auto *get_object = p_call->p_cbs->get_object;
        return get_object != nullptr ? get_object(p_call->p_trans, &p_call->keypath) : CONFD_ERR;
    });
}

static int serve_get_next(const t_dp_request &request)
{
    return serve_object<t_ipc_dp_next>(request, [](t_data_call<t_ipc_dp_next> *p_call) {
        auto *get_next = p_call->p_cbs->get_next_object;
        long next = static_cast<long>(p_call->message.next);
        return get_next != nullptr ? get_next(p_call->p_trans, &p_call->keypath, next) : CONFD_ERR;
    });
}

static int serve_find_next(const t_dp_request &request)
{
    return serve_object<t_ipc_dp_find_next>(request, [](t_data_call<t_ipc_dp_find_next> *p_call) {
        auto *find_next = p_call->p_cbs->find_next_object;
        std::vector<IpcValue> &from = p_call->message.keys;
        if (find_next == nullptr || from.size() >= MAXKEYLEN)
            return CONFD_ERR;
        confd_value_t keys[MAXKEYLEN] = {};
        for (size_t i = 0; i < from.size(); i++)
            keys[i] = from[i].v;
        auto type = p_call->message.type == CONFD_FIND_NEXT ? CONFD_FIND_NEXT : CONFD_FIND_SAME_OR_NEXT;
        return find_next(p_call->p_trans, &p_call->keypath, type, keys, static_cast<int>(from.size()));
    });
}

// A hook's answer is its result alone.
static int serve_hook(const t_dp_request &request)
{
    return serve_object<t_ipc_dp_object>(request, [&request](t_data_call<t_ipc_dp_object> *p_call) {
        auto *create = p_call->p_cbs->create;
        int result = create != nullptr ? create(p_call->p_trans, &p_call->keypath) : CONFD_ERR;
        if (result != CONFD_OK)
            return result;
        p_call->p_trans->is_answered = true;
        return dp_reply(request, {});
    });
}

static int serve_validate(const t_dp_request &request)
{
    t_ipc_dp_validate message;
    std::unique_ptr<confd_hkeypath_t> keypath = std::make_unique_for_overwrite<confd_hkeypath_t>();
    if (!ipc_decode(request.frame.body, &message) || !ipc_keypath_view(message.keypath, keypath.get()))
        return client_drop(request.p_sock);
    const t_confd_daemon &daemon = *request.dx->p_daemon;
    t_confd_trans *p_trans = find_trans(daemon.validations, message.thandle);
    auto found = daemon.valpoints.find(message.point);
    if (p_trans == nullptr)
        return dp_refuse(request, CONFD_ERR_BADSTATE, "No such validation");
    if (found == daemon.valpoints.end() || found->second.validate == nullptr)
        return dp_refuse(request, CONFD_ERR_NOEXISTS, "No validation point " + message.point);
    p_trans->error.clear();
    if (found->second.validate(p_trans, keypath.get(), &message.value.v) != CONFD_OK)
        return dp_refuse(request, CONFD_ERR_EXTERNAL, p_trans->error);
    return dp_reply(request, {});
}

// The end of a transaction or a validation, with its callback if there is one.
static int serve_end(const t_dp_request &request, t_confd_trans_map *p_map,
                     int (*callback)(confd_trans_ctx *))
{
    t_ipc_thandle message;
    if (!ipc_decode(request.frame.body, &message))
        return client_drop(request.p_sock);
    auto found = p_map->find(message.thandle);
    if (found == p_map->end())
        return dp_refuse(request, CONFD_ERR_BADSTATE, "No such transaction");
    std::unique_ptr<t_confd_trans> trans = std::move(found->second);
    p_map->erase(found);
    if (callback != nullptr && callback(trans.get()) != CONFD_OK)
        return dp_refuse(request, CONFD_ERR_EXTERNAL, trans->error);
    return dp_reply(request, {});
}

int dp_serve_data(const t_dp_request &request)
{
    t_confd_daemon *p_daemon = request.dx->p_daemon;
    switch (request.frame.op) {
    case IPC_OP_DP_GET_OBJECT:
        return serve_get(request);
    case IPC_OP_DP_GET_NEXT_OBJECT:
        return serve_get_next(request);
    case IPC_OP_DP_FIND_NEXT_OBJECT:
        return serve_find_next(request);
    case IPC_OP_DP_HOOK_CREATE:
        return serve_hook(request);
    case IPC_OP_DP_VALIDATE:
        return serve_validate(request);
    case IPC_OP_DP_TRANS_FINISH:
        return serve_end(request, &p_daemon->transactions, p_daemon->trans_cbs.finish);
    case IPC_OP_DP_VALIDATE_STOP:
        return serve_end(request, &p_daemon->validations, p_daemon->validate_cbs.stop);
    default:
        return client_drop(request.p_sock);
    }
}
