// A daemon as the management daemon sees it: registering, requests on control and worker connections, and
// what the daemon sends by itself.
#include "platform/confd/client/client_private.h"
#include "platform/confd/confd_dp.h"
#include "platform/confd/confd_maapi.h"
#include "tests/platform/confd_client/scripted_server.h"

#include <cstring>
#include <functional>
#include <gtest/gtest.h>

static constexpr uint32_t name_tag = 0x771b3037;

// What callbacks saw; set to null after each test.
static std::string *p_seen;
static int worker_fd;
static int maapi_fd;

static confd_tag_value_t name_leaf(const char *p_text)
{
    confd_tag_value_t leaf = {{name_tag, 0}, {C_STR, {}}};
    leaf.v.val.c_s = p_text;
    return leaf;
}

// ---- Callbacks ----

static int trans_init(confd_trans_ctx *tctx)
{
    *p_seen +=
        "init " + std::string(tctx->uinfo->username) + " of " + static_cast<char *>(tctx->dx->d_opaque) + ";";
    if (tctx->thandle == 13) {
        confd_trans_seterr(tctx, "not %d", tctx->thandle);
        return CONFD_ERR;
    }
    confd_trans_set_fd(tctx, worker_fd);
    return CONFD_OK;
}

static int trans_finish(confd_trans_ctx *)
{
    *p_seen += "finish;";
    return CONFD_OK;
}

static int validate(confd_trans_ctx *tctx, confd_hkeypath_t *, confd_value_t *newval)
{
    confd_trans_seterr(tctx, "too big");
    return newval->val.u32 > 9 ? CONFD_ERR : CONFD_OK;
}

static int create(confd_trans_ctx *, confd_hkeypath_t *kp)
{
    *p_seen += "create " + std::string(reinterpret_cast<char *>(kp->v[0][0].val.buf.ptr)) + ";";
    return kp->v[1][0].val.xmltag.tag == name_tag ? CONFD_OK : CONFD_ERR;
}

static int get_object(confd_trans_ctx *tctx, confd_hkeypath_t *kp)
{
    std::string key(reinterpret_cast<char *>(kp->v[0][0].val.buf.ptr), kp->v[0][0].val.buf.size);
    if (key == "silent")
        return CONFD_OK;
    if (key == "unknown")
        return confd_data_reply_not_found(tctx);
    confd_tag_value_t leaf = name_leaf(key.c_str());
    return confd_data_reply_tag_value_array(tctx, &leaf, 1);
}

// Answers twice.
static int get_next_object(confd_trans_ctx *tctx, confd_hkeypath_t *, long next)
{
    EXPECT_EQ(next, -1);
    confd_tag_value_t leaf = name_leaf("first");
    EXPECT_EQ(confd_data_reply_next_object_tag_value_array(tctx, &leaf, 1, -1), CONFD_OK);
    return confd_data_reply_next_object_tag_value_array(tctx, nullptr, -1, -1);
}

static int find_next_object(confd_trans_ctx *tctx, confd_hkeypath_t *, confd_find_next_type type,
                            confd_value_t *inkeys, int n)
{
    *p_seen += "find " + std::to_string(type) + " " + std::to_string(n) + ";";
    if (n == 0)
        return confd_data_reply_next_key(tctx, nullptr, -1, -1);
    return confd_data_reply_next_key(tctx, inkeys, n, -1);
}

static int action_init(confd_user_info *uinfo)
{
    confd_action_set_fd(uinfo, worker_fd);
    return CONFD_OK;
}

static int action(confd_user_info *uinfo, xml_tag *name, confd_hkeypath_t *kp, confd_tag_value_t *params,
                  int nparams)
{
    *p_seen += "action " + std::to_string(name->tag) + " " + std::to_string(kp->len) + " " +
               std::to_string(nparams) + ";";
    confd_action_seterr(uinfo, "no parameters");
    return nparams == 0 ? CONFD_ERR : confd_action_reply_values(uinfo, params, nparams);
}

static int command(confd_user_info *uinfo, char *path, int argc, char **argv)
{
    *p_seen += std::string(path) + " " + argv[argc - 1] + (argv[argc] == nullptr ? ";" : "?");
    return maapi_cli_printf(maapi_fd, uinfo->usid, "%s", std::string(300000, 'x').c_str());
}

namespace {

// A registered daemon: connections 0 control, 1 worker, 2 MAAPI.
class ClientProvider : public testing::Test {
protected:
    ClientProvider()
    {
        p_seen = &_seen;
        for (e_ipc_op op : {IPC_OP_REG_TRANS, IPC_OP_REG_VALIDATE, IPC_OP_REG_VALPOINT, IPC_OP_REG_DATA,
                            IPC_OP_REG_ACTION, IPC_OP_REG_DONE})
            _server.answer(op, {});
        _server.answer(IPC_OP_REG_NOTIF_STREAM, ipc_encode(t_ipc_count{21}));
        _server.answer(IPC_OP_REG_SNMP, ipc_encode(t_ipc_count{22}));
    }
    ~ClientProvider() override
    {
        confd_release_daemon(_dx);
        p_seen = nullptr;
    }
    void SetUp() override;

    // Sends a request and gives the daemon's answers, `count` of them. *p_result: what confd_fd_ready gave.
    std::vector<t_ipc_frame> ask(size_t connection, e_ipc_op op, std::vector<uint8_t> body, int *p_result,
                                 size_t count = 1);

    // The one answer to an open request, which must succeed.
    void open(e_ipc_op op, uint32_t thandle);
    t_ipc_dp_data ask_data(e_ipc_op op, std::vector<uint8_t> body);

    ScriptedServer _server;
    t_client_fd _control;
    t_client_fd _worker;
    t_client_fd _maapi;
    confd_daemon_ctx *_dx = nullptr;
    confd_notification_ctx *_stream = nullptr;
    confd_notification_ctx *_snmp = nullptr;
    size_t _received[3] = {};
    uint32_t _last_id = 0;
    std::string _seen;
};

}  // namespace

void ClientProvider::SetUp()
{
    static char opaque[] = "context";
    const sockaddr *p_address = _server.address();
    _dx = confd_init_daemon("tarnd");
    _dx->d_opaque = opaque;
    EXPECT_STREQ(_dx->name, "tarnd");
    EXPECT_EQ(confd_connect(_dx, _worker.fd, WORKER_SOCKET, p_address, sizeof(sockaddr_in)), CONFD_ERR);
    ASSERT_EQ(confd_connect(_dx, _control.fd, CONTROL_SOCKET, p_address, sizeof(sockaddr_in)), CONFD_OK);
    ASSERT_EQ(confd_connect(_dx, _worker.fd, WORKER_SOCKET, p_address, sizeof(sockaddr_in)), CONFD_OK);
    ASSERT_EQ(maapi_connect(_maapi.fd, p_address, sizeof(sockaddr_in)), CONFD_OK);
    worker_fd = _worker.fd;
    maapi_fd = _maapi.fd;
    confd_trans_cbs trans = {trans_init, trans_finish};
    confd_trans_validate_cbs validation = {trans_init, nullptr};
    confd_valpoint_cb valpoint = {"vp", validate, nullptr};
    confd_data_cbs data = {"cp", create, get_object, get_next_object, find_next_object, nullptr};
    confd_action_cbs both = {"ap", action_init, action, command, nullptr};
    confd_notification_stream_cbs stream = {"lumora", _worker.fd, nullptr};
    EXPECT_EQ(confd_register_trans_cb(_dx, &trans), CONFD_OK);
    EXPECT_EQ(confd_register_trans_validate_cb(_dx, &validation), CONFD_OK);
    EXPECT_EQ(confd_register_valpoint_cb(_dx, &valpoint), CONFD_OK);
    EXPECT_EQ(confd_register_data_cb(_dx, &data), CONFD_OK);
    EXPECT_EQ(confd_register_action_cbs(_dx, &both), CONFD_OK);
    EXPECT_EQ(confd_register_notification_stream(_dx, &stream, &_stream), CONFD_OK);
    EXPECT_EQ(confd_register_snmp_notification(_dx, _worker.fd, "lumora_snmpv2_trap", "", &_snmp), CONFD_OK);
    EXPECT_EQ(confd_register_done(_dx), CONFD_OK);
    _received[0] = _server.wait_frames(0, 8).size();
    ASSERT_EQ(_received[0], 8u);
}

std::vector<t_ipc_frame> ClientProvider::ask(size_t connection, e_ipc_op op, std::vector<uint8_t> body,
                                             int *p_result, size_t count)
{
    _server.push(connection, {op, IPC_KIND_REQUEST, ++_last_id, 0, std::move(body)});
    *p_result = confd_fd_ready(_dx, connection == 0 ? _control.fd : _worker.fd);
    std::vector<t_ipc_frame> frames = _server.wait_frames(connection, _received[connection] + count);
    frames.erase(frames.begin(), frames.begin() + static_cast<ptrdiff_t>(_received[connection]));
    _received[connection] += frames.size();
    EXPECT_EQ(frames.size(), count);
    for (const t_ipc_frame &frame : frames)
        EXPECT_TRUE(frame.kind == IPC_KIND_REPLY && frame.op == op && frame.id == _last_id);
    frames.resize(count);
    return frames;
}

void ClientProvider::open(e_ipc_op op, uint32_t thandle)
{
    int result = CONFD_ERR;
    t_ipc_trans_init init = {thandle, CONFD_READ_WRITE, CONFD_RUNNING, {42, "ann", "cli"}};
    t_ipc_frame reply = ask(0, op, ipc_encode(init), &result).at(0);
    EXPECT_EQ(result, CONFD_OK);
    EXPECT_EQ(reply.body, ipc_encode(t_ipc_worker{2})) << "the id that the server gave the worker connection";
}

t_ipc_dp_data ClientProvider::ask_data(e_ipc_op op, std::vector<uint8_t> body)
{
    int result = CONFD_ERR;
    t_ipc_frame reply = ask(1, op, std::move(body), &result).at(0);
    EXPECT_EQ(result, CONFD_OK);
    EXPECT_EQ(reply.status, 0);
    t_ipc_dp_data data = {};
    EXPECT_TRUE(ipc_decode(reply.body, &data));
    return data;
}

static IpcKeypath entry_path(const char *p_key)
{
    return {{{IpcValue::text(p_key)}, {IpcValue::tag(C_XMLTAG, name_tag, 1)}}};
}

static std::vector<uint8_t> object_request(const char *p_key, const char *p_point = "cp",
                                           uint32_t thandle = 6)
{
    return ipc_encode(t_ipc_dp_object{thandle, p_point, entry_path(p_key)});
}

static void expect_error(const t_ipc_frame &reply, int result, int code, const char *p_text)
{
    t_ipc_error error;
    EXPECT_EQ(reply.status, code) << p_text;
    EXPECT_TRUE(ipc_decode(reply.body, &error));
    EXPECT_EQ(error.text, p_text);
    EXPECT_EQ(result, CONFD_ERR);
    EXPECT_EQ(confd_errno, code);
}

TEST_F(ClientProvider, RegistersWhatItHas)
{
    EXPECT_EQ(_server.hello(0).daemon, "tarnd");
    EXPECT_EQ(_server.hello(1).daemon_id, 1u);
    std::vector<t_ipc_frame> frames = _server.wait_frames(0, 8);
    uint32_t data =
        IPC_CALL_CREATE | IPC_CALL_GET_OBJECT | IPC_CALL_GET_NEXT_OBJECT | IPC_CALL_FIND_NEXT_OBJECT;
    EXPECT_EQ(frames[0].body, ipc_encode(t_ipc_reg_calls{IPC_CALL_INIT | IPC_CALL_FINISH}));
    EXPECT_EQ(frames[1].body, ipc_encode(t_ipc_reg_calls{IPC_CALL_INIT}));
    EXPECT_EQ(frames[2].body, ipc_encode(t_ipc_reg_point{"vp", IPC_CALL_VALIDATE}));
    EXPECT_EQ(frames[3].body, ipc_encode(t_ipc_reg_point{"cp", data}));
    EXPECT_EQ(frames[4].body,
              ipc_encode(t_ipc_reg_point{"ap", IPC_CALL_INIT | IPC_CALL_ACTION | IPC_CALL_COMMAND}));
    EXPECT_EQ(frames[5].body, ipc_encode(t_ipc_reg_notif{"lumora", "", 2}));
    EXPECT_EQ(frames[6].body, ipc_encode(t_ipc_reg_notif{"lumora_snmpv2_trap", "", 2}));
    EXPECT_EQ(frames[7].op, IPC_OP_REG_DONE);
    _server.refuse(IPC_OP_REG_ACTION, CONFD_ERR_NOEXISTS, "no such action point");
    confd_action_cbs unknown = {"other", action_init, action, nullptr, nullptr};
    EXPECT_EQ(confd_register_action_cbs(_dx, &unknown), CONFD_ERR);
    EXPECT_EQ(confd_errno, CONFD_ERR_NOEXISTS);
}

TEST_F(ClientProvider, AnswersDataRequests)
{
    open(IPC_OP_DP_TRANS_INIT, 6);
    t_ipc_dp_data object = ask_data(IPC_OP_DP_GET_OBJECT, object_request("row"));
    EXPECT_EQ(object.what, IPC_DATA_OBJECT);
    EXPECT_EQ(object.values, (std::vector<IpcTagValue>{{{name_tag, 0}, IpcValue::text("row")}}));
    EXPECT_EQ(ask_data(IPC_OP_DP_GET_OBJECT, object_request("unknown")).what, IPC_DATA_NOT_FOUND);

    IpcKeypath list = {{{IpcValue::tag(C_XMLTAG, name_tag, 1)}}};
    std::vector<IpcValue> keys = {IpcValue::text("a"), IpcValue::text("b")};
    t_ipc_dp_find_next find = {6, "cp", list, CONFD_FIND_SAME_OR_NEXT, keys};
    t_ipc_dp_data found = ask_data(IPC_OP_DP_FIND_NEXT_OBJECT, ipc_encode(find));
    EXPECT_EQ(found.what, IPC_DATA_KEY);
    EXPECT_EQ(found.keys, keys);
    find.keys.clear();
    EXPECT_EQ(ask_data(IPC_OP_DP_FIND_NEXT_OBJECT, ipc_encode(find)).what, IPC_DATA_END);

    int result = CONFD_ERR;
    std::vector<uint8_t> next = ipc_encode(t_ipc_dp_next{6, "cp", list, -1});
    std::vector<t_ipc_frame> two = ask(1, IPC_OP_DP_GET_NEXT_OBJECT, next, &result, 2);
    t_ipc_dp_data first = {};
    t_ipc_dp_data second = {};
    EXPECT_TRUE(ipc_decode(two[0].body, &first) && ipc_decode(two[1].body, &second));
    EXPECT_EQ(first.what, IPC_DATA_OBJECT);
    EXPECT_EQ(first.next, -1);
    EXPECT_EQ(second.what, IPC_DATA_END);

    EXPECT_EQ(ask(1, IPC_OP_DP_TRANS_FINISH, ipc_encode(t_ipc_thandle{6}), &result).at(0).status, 0);
    t_ipc_frame late = ask(1, IPC_OP_DP_GET_OBJECT, object_request("row"), &result).at(0);
    expect_error(late, result, CONFD_ERR_BADSTATE, "No such transaction");
    EXPECT_EQ(_seen, "init ann of context;find 1 2;find 1 0;finish;");
}

TEST_F(ClientProvider, TellsFailuresOfCallbacks)
{
    int result = CONFD_OK;
    t_ipc_trans_init init = {13, CONFD_READ, CONFD_RUNNING, {1, "bob", "netconf"}};
    t_ipc_frame refused = ask(0, IPC_OP_DP_TRANS_INIT, ipc_encode(init), &result).at(0);
    expect_error(refused, result, CONFD_ERR_EXTERNAL, "not 13");
    open(IPC_OP_DP_TRANS_INIT, 6);
    t_ipc_frame silent = ask(1, IPC_OP_DP_GET_OBJECT, object_request("silent"), &result).at(0);
    expect_error(silent, result, CONFD_ERR_EXTERNAL, "The callback gave no answer");
    t_ipc_frame unknown = ask(1, IPC_OP_DP_GET_OBJECT, object_request("row", "nowhere"), &result).at(0);
    expect_error(unknown, result, CONFD_ERR_NOEXISTS, "No callpoint nowhere");

    EXPECT_EQ(ask(1, IPC_OP_DP_HOOK_CREATE, object_request("zp"), &result).at(0).status, 0);
    t_ipc_dp_object other = {6, "cp", {{{IpcValue::text("zp")}, {IpcValue::tag(C_XMLTAG, 1, 1)}}}};
    t_ipc_frame hook = ask(1, IPC_OP_DP_HOOK_CREATE, ipc_encode(other), &result).at(0);
    expect_error(hook, result, CONFD_ERR_EXTERNAL, "");

    open(IPC_OP_DP_VALIDATE_INIT, 7);
    confd_value_t number = {C_UINT32, {}};
    for (uint32_t value : {9u, 10u}) {
        number.val.u32 = value;
        t_ipc_dp_validate request = {7, "vp", entry_path("x"), IpcValue(number)};
        t_ipc_frame reply = ask(1, IPC_OP_DP_VALIDATE, ipc_encode(request), &result).at(0);
        if (value == 10)
            expect_error(reply, result, CONFD_ERR_EXTERNAL, "too big");
        else
            EXPECT_EQ(reply.status, 0);
    }
    EXPECT_EQ(ask(1, IPC_OP_DP_VALIDATE_STOP, ipc_encode(t_ipc_thandle{7}), &result).at(0).status, 0);
}

TEST_F(ClientProvider, ServesActionsAndCountsWhatTheyPrint)
{
    int result = CONFD_ERR;
    t_ipc_user user = {77, "ann", "cli"};
    auto begin = [&] {
        t_ipc_frame reply =
            ask(0, IPC_OP_DP_ACTION_INIT, ipc_encode(t_ipc_action_init{"ap", user}), &result).at(0);
        EXPECT_EQ(reply.body, ipc_encode(t_ipc_worker{2}));
    };
    begin();
    t_ipc_dp_action request = {"ap", user, 5, 1, {}, {{{name_tag, 0}, IpcValue::text("acl")}}};
    t_ipc_frame reply = ask(1, IPC_OP_DP_ACTION, ipc_encode(request), &result).at(0);
    EXPECT_EQ(reply.body, ipc_encode(t_ipc_dp_action_reply{request.params, 0}));

    begin();
    t_ipc_frame printed =
        ask(1, IPC_OP_DP_COMMAND, ipc_encode(t_ipc_dp_command{"ap", user, "/show", {"dump", "all"}}), &result)
            .at(0);
    EXPECT_EQ(printed.body, ipc_encode(t_ipc_dp_action_reply{{}, 300000}));
    EXPECT_EQ(_server.wait_frames(2, 2).size(), 2u) << "long texts come in pieces";

    EXPECT_EQ(maapi_cli_printf(_maapi.fd, 77, "%s", "late"), CONFD_OK);
    request.params.clear();
    t_ipc_frame failed = ask(1, IPC_OP_DP_ACTION, ipc_encode(request), &result).at(0);
    EXPECT_EQ(failed.body, ipc_encode(t_ipc_error{"no parameters", 4}));
    EXPECT_EQ(result, CONFD_ERR);
    EXPECT_EQ(confd_errno, CONFD_ERR_EXTERNAL);
    EXPECT_EQ(_seen, "action 5 0 1;/show all;action 5 0 0;");

    EXPECT_EQ(maapi_cli_printf(_maapi.fd, 77, "%s", "lost"), CONFD_OK);
    t_client_fd again;
    EXPECT_EQ(confd_connect(_dx, again.fd, CONTROL_SOCKET, _server.address(), sizeof(sockaddr_in)), CONFD_OK);
    EXPECT_EQ(client_take_printed(77), 0u) << "a new connection counts anew";
}

TEST_F(ClientProvider, SendsNotificationsFromAnotherThread)
{
    confd_datetime time = {2026, 11, 21, 12, 30, 59, 7, 0, 0};
    confd_tag_value_t values[] = {name_leaf("x")};
    confd_snmp_varbind varbind = {CONFD_SNMP_VARIABLE, {}, name_leaf("y").v};
    strcpy(varbind.var.name, "lumoraPolicyName");
    std::thread([&] {
        EXPECT_EQ(confd_notification_send(_stream, &time, values, 1), CONFD_OK);
        EXPECT_EQ(confd_notification_set_snmp_notify_name(_snmp, "group"), CONFD_OK);
        EXPECT_EQ(confd_notification_send_snmp(_snmp, "lumoraTrap", &varbind, 1), CONFD_OK);
    }).join();
    std::vector<t_ipc_frame> frames = _server.wait_frames(1, 2);
    ASSERT_EQ(frames.size(), 2u);
    t_ipc_notification wanted = {
        21, {2026, 11, 21, 12, 30, 59, 7, 0, 0}, {{{name_tag, 0}, IpcValue::text("x")}}};
    EXPECT_EQ(frames[0].body, ipc_encode(wanted));
    t_ipc_snmp_notification trap = {
        22, "group", "lumoraTrap", {{CONFD_SNMP_VARIABLE, "lumoraPolicyName", {}, IpcValue::text("y")}}};
    EXPECT_EQ(frames[1].body, ipc_encode(trap));

    _server.hang_up(1);
    EXPECT_EQ(confd_fd_ready(_dx, _worker.fd), CONFD_EOF);
    EXPECT_EQ(confd_notification_send(_stream, &time, values, 1), CONFD_EOF);
}

TEST_F(ClientProvider, RefusesWhatDoesNotBelong)
{
    _server.push(1, {IPC_OP_DP_TRANS_INIT, IPC_KIND_REQUEST, 1, 0, {}});
    EXPECT_EQ(confd_fd_ready(_dx, _worker.fd), CONFD_EOF) << "of the other connection";
    _server.push(0, {IPC_OP_DP_TRANS_INIT, IPC_KIND_REQUEST, 1, 0, {1, 2}});
    EXPECT_EQ(confd_fd_ready(_dx, _control.fd), CONFD_EOF) << "of another form";
    EXPECT_EQ(confd_fd_ready(_dx, _maapi.fd), CONFD_ERR);
    EXPECT_EQ(confd_errno, CONFD_ERR_PROTOUSAGE);
}

TEST(ClientEvents, AreReadAndFreed)
{
    ScriptedServer server;
    server.answer(IPC_OP_EVENTS_SUBSCRIBE, {});
    t_client_fd client;
    confd_notifications_data data = {0, 500};
    ASSERT_EQ(confd_notifications_connect2(client.fd, server.address(), server.address_size(),
                                           CONFD_NOTIF_HEALTH_CHECK, &data),
              CONFD_OK);
    EXPECT_EQ(server.wait_frames(0, 1).at(0).body,
              ipc_encode(t_ipc_events{CONFD_NOTIF_HEALTH_CHECK, 0, 500}));
    t_ipc_event event = {CONFD_NOTIF_COMMIT_SIMPLE, 3, CONFD_RUNNING, "ann"};
    server.push(0, {IPC_OP_EVENT, IPC_KIND_ONEWAY, 0, 0, ipc_encode(event)});
    confd_notification notification;
    ASSERT_EQ(confd_read_notification(client.fd, &notification), CONFD_OK);
    EXPECT_EQ(notification.type, CONFD_NOTIF_COMMIT_SIMPLE);
    EXPECT_STREQ(notification.text, "ann");
    confd_free_notification(&notification);
    server.hang_up(0);
    EXPECT_EQ(confd_read_notification(client.fd, &notification), CONFD_EOF);
    confd_free_notification(&notification);
    confd_free_notification(nullptr);
}
