// Actions and commands of operators.
#include "platform/confd/client/dp_private.h"

int confd_action_reply_values(confd_user_info *uinfo, confd_tag_value_t *values, int nvalues)
{
    size_t count = nvalues > 0 ? static_cast<size_t>(nvalues) : 0;
    static_cast<t_confd_user *>(uinfo)->results = ipc_tag_values_copy(values, count);
    return CONFD_OK;
}

// The record that the init callback saw; a new one where there was none.
static std::unique_ptr<t_confd_user> take_user(confd_daemon_ctx *dx, const t_ipc_user &from)
{
    std::map<uint32_t, std::unique_ptr<t_confd_user>> &users = dx->p_daemon->users;
    auto found = users.find(from.usid);
    if (found != users.end()) {
        std::unique_ptr<t_confd_user> user = std::move(found->second);
        users.erase(found);
        return user;
    }
    std::unique_ptr<t_confd_user> user = std::make_unique<t_confd_user>();
    dp_fill_user(user.get(), dx, from);
    return user;
}

// With what was printed, so that the management daemon waits for all of it.
static int answer(const t_dp_request &request, int result, t_confd_user *p_user)
{
    uint64_t printed = client_take_printed(static_cast<uint32_t>(p_user->usid));
    if (result == CONFD_OK) {
        t_ipc_dp_action_reply reply = {std::move(p_user->results), printed};
        return dp_reply(request, ipc_encode(reply));
    }
    std::vector<uint8_t> body = ipc_encode(t_ipc_error{p_user->error, printed});
    int sent = client_send(request.p_sock, {request.frame.op, IPC_KIND_REPLY, request.frame.id,
                                            CONFD_ERR_EXTERNAL, std::move(body)});
    return sent == CONFD_OK ? client_fail(CONFD_ERR_EXTERNAL, "%s", p_user->error.c_str()) : sent;
}

static const confd_action_cbs *find_action(const confd_daemon_ctx *dx, const std::string &point)
{
    auto found = dx->p_daemon->actions.find(point);
    return found == dx->p_daemon->actions.end() ? nullptr : &found->second;
}

static int serve_action(const t_dp_request &request)
{
    t_ipc_dp_action message;
    std::unique_ptr<confd_hkeypath_t> keypath = std::make_unique_for_overwrite<confd_hkeypath_t>();
    if (!ipc_decode(request.frame.body, &message) || !ipc_keypath_view(message.keypath, keypath.get()))
        return client_drop(request.p_sock);
    const confd_action_cbs *p_cbs = find_action(request.dx, message.point);
    if (p_cbs == nullptr || p_cbs->action == nullptr)
        return dp_refuse(request, CONFD_ERR_NOEXISTS, "No action point " + message.point);
    std::unique_ptr<t_confd_user> user = take_user(request.dx, message.user);
    std::vector<confd_tag_value_t> params;
    for (const IpcTagValue &param : message.params)
        params.push_back({param.tag, param.value.v});
    xml_tag name = {message.name_tag, message.name_ns};
    int result =
        p_cbs->action(user.get(), &name, keypath.get(), params.data(), static_cast<int>(params.size()));
    return answer(request, result, user.get());
}

static int serve_command(const t_dp_request &request)
{
    t_ipc_dp_command message;
    if (!ipc_decode(request.frame.body, &message))
        return client_drop(request.p_sock);
    const confd_action_cbs *p_cbs = find_action(request.dx, message.point);
    if (p_cbs == nullptr || p_cbs->command == nullptr)
        return dp_refuse(request, CONFD_ERR_NOEXISTS, "No action point " + message.point);
    std::unique_ptr<t_confd_user> user = take_user(request.dx, message.user);
    std::vector<char *> argv;
    for (std::string &arg : message.argv)
        argv.push_back(arg.data());
    argv.push_back(nullptr);
    int argc = static_cast<int>(message.argv.size());
    int result = p_cbs->command(user.get(), message.path.data(), argc, argv.data());
    return answer(request, result, user.get());
}

int dp_serve_action(const t_dp_request &request)
{
    return request.frame.op == IPC_OP_DP_ACTION ? serve_action(request) : serve_command(request);
}
