// Each synchronous call of the library: what it sends, what it makes of the answer, of a refusal, of an
// answer that is no answer, and of a server that dies. Then the handshake, paths, and sending from several
// threads.
#include "platform/confd/confd_cdb.h"
#include "platform/confd/confd_dp.h"
#include "platform/confd/confd_maapi.h"
#include "tests/platform/confd_client/scripted_server.h"

#include <cstdlib>
#include <fstream>
#include <functional>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <unistd.h>

namespace {

struct t_call_case {
    const char *name;
    e_ipc_op op;
    std::function<int(int fd, std::string *p_got)> call;  // p_got: what the call gave beside its result
    std::vector<uint8_t> request;
    std::vector<uint8_t> reply;
    std::string got;
    int result;
};

}  // namespace

// A call that gives its result alone.
static t_call_case plain(const char *p_name, e_ipc_op op, int (*call)(int fd), std::vector<uint8_t> request,
                         std::vector<uint8_t> reply = {}, int result = CONFD_OK)
{
    return {p_name, op, [call](int fd, std::string *) { return call(fd); }, request, reply, "", result};
}

static t_call_case giving(const char *p_name, e_ipc_op op, int (*call)(int fd, std::string *p_got),
                          std::vector<uint8_t> request, std::vector<uint8_t> reply, const char *p_got)
{
    return {p_name, op, call, request, reply, p_got, CONFD_OK};
}

static e_ipc_conn conn_of(e_ipc_op op)
{
    if (op >= IPC_OP_MAAPI_WAIT_START)
        return IPC_CONN_MAAPI;
    return op >= IPC_OP_SUB_SUBSCRIBE ? IPC_CONN_CDB_SUB : IPC_CONN_CDB_DATA;
}

static confd_value_t u32_value(uint32_t number)
{
    confd_value_t value = {C_UINT32, {}};
    value.val.u32 = number;
    return value;
}

static std::vector<uint8_t> value_reply(const confd_value_t &value)
{
    return ipc_encode(t_ipc_value_reply{IpcValue(value)});
}

static std::vector<uint8_t> path_body(const char *p_path)
{
    return ipc_encode(t_ipc_path{p_path});
}

static int connect_as(const ScriptedServer &server, e_ipc_conn conn, int fd)
{
    const sockaddr *p_address = server.address();
    switch (conn) {
    case IPC_CONN_CDB_SUB:
        return cdb_connect(fd, CDB_SUBSCRIPTION_SOCKET, p_address, ScriptedServer::address_size());
    case IPC_CONN_MAAPI:
        return maapi_connect(fd, p_address, ScriptedServer::address_size());
    default:
        return cdb_connect(fd, CDB_DATA_SOCKET, p_address, ScriptedServer::address_size());
    }
}

// ---- The calls ----

template <typename Number, int (*get)(int, Number *, const char *, ...)>
static int get_number(int fd, std::string *p_got)
{
    Number number = 0;
    int result = get(fd, &number, "%s", "n");
    *p_got = std::to_string(number);
    return result;
}

static int get_phase(int fd, std::string *p_got)
{
    cdb_phase phase = {};
    int result = cdb_get_phase(fd, &phase);
    *p_got = std::to_string(phase.phase);
    return result;
}

static int get_text(int fd, std::string *p_got)
{
    confd_value_t value = {};
    int result = cdb_get(fd, &value, "/v");
    *p_got = value.type == C_BUF ? reinterpret_cast<char *>(value.val.buf.ptr) : "";
    confd_free_value(&value);
    return result;
}

static int get_short_text(int fd, std::string *p_got)
{
    char text[4] = "";
    int result = cdb_get_str(fd, text, sizeof(text), "/s");
    *p_got = text;
    return result;
}

static int call_v(int (*function)(int, const char *, va_list), int fd, const char *fmt, ...)
{
    va_list args;
    va_start(args, fmt);
    int result = function(fd, fmt, args);
    va_end(args);
    return result;
}

static int set_v1(int fd)
{
    confd_value_t value = u32_value(3);
    return cdb_set_elem(fd, &value, "/v%d", 1);
}

static int trigger_ids[] = {4, 5};

static int subscribe(int fd, std::string *p_got)
{
    int id = 0;
    int result = cdb_subscribe(fd, 3, 77, &id, "/%s", "a/b");
    *p_got = std::to_string(id);
    return result;
}

static int subscribe2(int fd, std::string *p_got)
{
    int id = 0;
    int result = cdb_subscribe2(fd, CDB_SUB_RUNNING_TWOPHASE, 1, 9, &id, 77, "a/b");
    *p_got = std::to_string(id);
    return result;
}

static int oper_subscribe(int fd, std::string *p_got)
{
    int id = 0;
    int result = cdb_oper_subscribe(fd, 1480636862, &id, "/x");
    *p_got = std::to_string(id);
    return result;
}

static int modifications(int fd, std::string *p_got)
{
    confd_tag_value_t *p_values = nullptr;
    int count = -1;
    int result = cdb_get_modifications(fd, 5, 0, &p_values, &count, nullptr);
    EXPECT_EQ(p_values != nullptr, result == CONFD_OK) << "also without values";
    *p_got = std::to_string(count);
    free(p_values);
    return result;
}

static confd_user_info test_user = {42, {nullptr}};
static confd_trans_ctx test_trans = {-1, nullptr, CONFD_READ_WRITE, CONFD_RUNNING, &test_user, nullptr, 6};

static int set_in_transaction(int fd)
{
    confd_value_t value = u32_value(3);
    return maapi_set_elem(fd, 6, &value, "/zone-pair{%s}/pair-id", "a b");
}

static int get_in_transaction(int fd, std::string *p_got)
{
    confd_value_t value = {};
    int result = maapi_get_elem(fd, 6, &value, "/v");
    *p_got = std::to_string(value.val.u32);
    return result;
}

static int next_key(int fd, std::string *p_got)
{
    maapi_cursor cursor;
    int result = maapi_init_cursor(fd, 6, &cursor, "/list");
    if (result == CONFD_OK)
        result = maapi_get_next(&cursor);
    for (int i = 0; i < cursor.n; i++)
        *p_got += std::to_string(cursor.keys[i].val.u32) + " ";
    maapi_destroy_cursor(&cursor);
    return result;
}

static std::vector<t_call_case> data_cases()
{
    confd_value_t minus = {C_INT16, {}};
    minus.val.i16 = -3;
    confd_value_t wide = {C_INT32, {}};
    wide.val.i32 = -70000;
    IpcValue three(u32_value(3));
    auto session = [](int fd) { return cdb_start_session(fd, CDB_RUNNING); };
    auto session2 = [](int fd) { return cdb_start_session2(fd, CDB_OPERATIONAL, 5); };
    auto cd = [](int fd) { return cdb_cd(fd, "/p:l[%d]", 3); };
    auto exists = [](int fd) { return cdb_exists(fd, "/e"); };
    auto instances = [](int fd) { return cdb_num_instances(fd, "/l"); };
    auto create = [](int fd) { return call_v(cdb_vcreate, fd, "/c{%lu}", 9ul); };
    auto remove = [](int fd) { return call_v(cdb_vdelete, fd, "/c"); };
    auto trigger = [](int fd) { return cdb_trigger_subscriptions(fd, trigger_ids, 2); };
    auto trigger_oper = [](int fd) { return cdb_trigger_oper_subscriptions(fd, trigger_ids, 2, 1); };
    return {
        plain("start_session", IPC_OP_CDB_START_SESSION, session,
              ipc_encode(t_ipc_start_session{CDB_RUNNING, 0})),
        plain("start_session2", IPC_OP_CDB_START_SESSION, session2,
              ipc_encode(t_ipc_start_session{CDB_OPERATIONAL, CDB_LOCK_REQUEST | CDB_LOCK_WAIT})),
        plain("end_session", IPC_OP_CDB_END_SESSION, cdb_end_session, {}),
        giving("get_phase", IPC_OP_CDB_GET_PHASE, get_phase, {}, ipc_encode(t_ipc_phase{2, 0}), "2"),
        plain("cd", IPC_OP_CDB_CD, cd, path_body("/p:l[3]")),
        plain("exists", IPC_OP_CDB_EXISTS, exists, path_body("/e"), ipc_encode(t_ipc_count{1}), 1),
        plain("instances", IPC_OP_CDB_NUM_INSTANCES, instances, path_body("/l"), ipc_encode(t_ipc_count{7}),
              7),
        giving("get", IPC_OP_CDB_GET, get_text, path_body("/v"), value_reply(IpcValue::text("word").v),
               "word"),
        giving("get_int16", IPC_OP_CDB_GET, get_number<int16_t, cdb_get_int16>, path_body("n"),
               value_reply(minus), "-3"),
        giving("get_int32", IPC_OP_CDB_GET, get_number<int32_t, cdb_get_int32>, path_body("n"),
               value_reply(wide), "-70000"),
        giving("get_u_int32", IPC_OP_CDB_GET, get_number<uint32_t, cdb_get_u_int32>, path_body("n"),
               value_reply(three.v), "3"),
        giving("get_str", IPC_OP_CDB_GET, get_short_text, path_body("/s"),
               value_reply(IpcValue::text("long").v), "lon"),
        plain("set_elem", IPC_OP_CDB_SET_ELEM, set_v1, ipc_encode(t_ipc_set_elem{"/v1", three})),
        plain("vcreate", IPC_OP_CDB_CREATE, create, path_body("/c{9}")),
        plain("vdelete", IPC_OP_CDB_DELETE, remove, path_body("/c")),
        plain("trigger", IPC_OP_CDB_TRIGGER, trigger, ipc_encode(t_ipc_trigger{{4, 5}, 0})),
        plain("trigger_oper", IPC_OP_CDB_TRIGGER_OPER, trigger_oper, ipc_encode(t_ipc_trigger{{4, 5}, 1})),
    };
}

static std::vector<t_call_case> subscription_cases()
{
    auto sync = [](int fd) { return cdb_sync_subscription_socket(fd, CDB_DONE_PRIORITY); };
    auto abort = [](int fd) { return cdb_sub_abort_trans(fd, CONFD_ERR_BADTYPE, 0, 0, "no %s", "way"); };
    return {
        giving("subscribe", IPC_OP_SUB_SUBSCRIBE, subscribe,
               ipc_encode(t_ipc_subscribe{CDB_SUB_RUNNING, 0, 3, 77, "/a/b"}), ipc_encode(t_ipc_count{11}),
               "11"),
        giving("subscribe2", IPC_OP_SUB_SUBSCRIBE, subscribe2,
               ipc_encode(t_ipc_subscribe{CDB_SUB_RUNNING_TWOPHASE, 1, 9, 77, "a/b"}),
               ipc_encode(t_ipc_count{12}), "12"),
        giving("oper_subscribe", IPC_OP_SUB_SUBSCRIBE, oper_subscribe,
               ipc_encode(t_ipc_subscribe{CDB_SUB_OPERATIONAL, 0, 0, 1480636862, "/x"}),
               ipc_encode(t_ipc_count{13}), "13"),
        plain("subscribe_done", IPC_OP_SUB_DONE, cdb_subscribe_done, {}),
        plain("sync", IPC_OP_SUB_SYNC, sync, ipc_encode(t_ipc_sync{1})),
        plain("abort", IPC_OP_SUB_ABORT, abort, ipc_encode(t_ipc_abort{5, 0, 0, "no way"})),
        giving("modifications", IPC_OP_SUB_MODIFICATIONS, modifications,
               ipc_encode(t_ipc_modifications{5, 0, ""}), ipc_encode(t_ipc_tag_values{}), "0"),
    };
}

static std::vector<t_call_case> maapi_cases()
{
    IpcValue three(u32_value(3));
    auto wait_start = [](int fd) { return maapi_wait_start(fd, 2); };
    auto attach = [](int fd) { return maapi_attach(fd, 627311236, &test_trans); };
    auto detach = [](int fd) { return maapi_detach(fd, &test_trans); };
    auto set_text = [](int fd) { return maapi_set_elem2(fd, 6, "text", "/s{%d}", 7); };
    return {
        plain("wait_start", IPC_OP_MAAPI_WAIT_START, wait_start, ipc_encode(t_ipc_count{2})),
        plain("crypto_keys", IPC_OP_MAAPI_INSTALL_CRYPTO_KEYS, maapi_install_crypto_keys, {}),
        plain("attach", IPC_OP_MAAPI_ATTACH, attach, ipc_encode(t_ipc_attach{627311236, 42, 6})),
        plain("detach", IPC_OP_MAAPI_DETACH, detach, ipc_encode(t_ipc_thandle{6})),
        plain("set_elem", IPC_OP_MAAPI_SET_ELEM, set_in_transaction,
              ipc_encode(t_ipc_maapi_set{6, "/zone-pair{\"a b\"}/pair-id", three})),
        plain("set_elem2", IPC_OP_MAAPI_SET_ELEM2, set_text,
              ipc_encode(t_ipc_maapi_set_text{6, "/s{7}", "text"})),
        giving("get_elem", IPC_OP_MAAPI_GET_ELEM, get_in_transaction, ipc_encode(t_ipc_maapi_path{6, "/v"}),
               value_reply(three.v), "3"),
        giving("get_next", IPC_OP_MAAPI_NEXT_KEY, next_key, ipc_encode(t_ipc_maapi_next{6, "/list", {}}),
               ipc_encode(t_ipc_keys{{three, three}}), "3 3 "),
    };
}

static std::vector<t_call_case> all_cases()
{
    std::vector<t_call_case> cases = data_cases();
    for (const std::vector<t_call_case> &more : {subscription_cases(), maapi_cases()})
        cases.insert(cases.end(), more.begin(), more.end());
    return cases;
}

TEST(ClientCalls, SendTheirRequestAndReadTheAnswer)
{
    for (const t_call_case &c : all_cases()) {
        SCOPED_TRACE(c.name);
        ScriptedServer server;
        server.answer(c.op, c.reply);
        t_client_fd client;
        ASSERT_EQ(connect_as(server, conn_of(c.op), client.fd), CONFD_OK);
        EXPECT_EQ(server.hello(0).conn, conn_of(c.op));
        std::string got;
        EXPECT_EQ(c.call(client.fd, &got), c.result);
        EXPECT_EQ(got, c.got);
        std::vector<t_ipc_frame> frames = server.wait_frames(0, 1);
        ASSERT_EQ(frames.size(), 1u);
        EXPECT_EQ(frames[0].op, c.op);
        EXPECT_EQ(frames[0].body, c.request);

        server.refuse(c.op, CONFD_ERR_ALREADY_EXISTS, "told why");
        EXPECT_EQ(c.call(client.fd, &got), CONFD_ERR);
        EXPECT_EQ(confd_errno, CONFD_ERR_ALREADY_EXISTS);
        EXPECT_STREQ(confd_lasterr(), "told why");
        server.answer(c.op, {1, 2, 3});
        EXPECT_EQ(c.call(client.fd, &got), CONFD_EOF) << "an answer of another form";
        EXPECT_EQ(c.call(client.fd, &got), CONFD_EOF) << "the connection is done for";
    }
}

TEST(ClientCalls, FindTheServersDeathAtEachPoint)
{
    static const e_death deaths[] = {DEATH_AT_ACCEPT, DEATH_AT_HELLO, DEATH_AT_PROOF, DEATH_AT_REQUEST,
                                     DEATH_IN_REPLY};
    for (const t_call_case &c : all_cases())
        for (e_death death : deaths) {
            ScriptedServer server;
            server.death = death;
            server.answer(c.op, c.reply);
            t_client_fd client;
            int result = connect_as(server, conn_of(c.op), client.fd);
            std::string got;
            if (result == CONFD_OK)
                result = c.call(client.fd, &got);
            EXPECT_EQ(result, CONFD_EOF) << c.name << " with death " << death;
            EXPECT_LT(c.call(client.fd, &got), 0);
        }
}

TEST(ClientCalls, WrongUseIsNoDeath)
{
    ScriptedServer server;
    server.answer(IPC_OP_CDB_GET, value_reply(u32_value(1)));
    t_client_fd client;
    std::string got;
    EXPECT_EQ(cdb_end_session(-1), CONFD_ERR) << "never connected";
    EXPECT_EQ(confd_errno, CONFD_ERR_PROTOUSAGE);
    ASSERT_EQ(connect_as(server, IPC_CONN_CDB_DATA, client.fd), CONFD_OK);
    EXPECT_EQ(maapi_wait_start(client.fd, 1), CONFD_ERR);
    EXPECT_EQ(confd_errno, CONFD_ERR_PROTOUSAGE);
    int16_t number = 5;
    EXPECT_EQ(cdb_get_int16(client.fd, &number, "/v"), CONFD_ERR);
    EXPECT_EQ(confd_errno, CONFD_ERR_BADTYPE);
    EXPECT_EQ(number, 5);
    confd_value_t unknown = {static_cast<confd_vtype>(20), {}};
    EXPECT_EQ(cdb_set_elem(client.fd, &unknown, "/v"), CONFD_ERR);
    EXPECT_EQ(confd_errno, CONFD_ERR_BADTYPE);
    EXPECT_EQ(confd_init_vsn_sz("x", stderr, CONFD_SILENT, 0x6070400, 32, 9), CONFD_ERR);
}

// ---- Handshake and descriptors ----

TEST(ClientHandshake, TheAccessFileIsProven)
{
    std::string path = testing::TempDir() + "/client_secret." + std::to_string(getpid());
    std::ofstream(path) << "s3cret\n";
    ScriptedServer server;
    server.secret = "s3cret";
    const struct {
        const char *file;
        int result;
    } cases[] = {{path.c_str(), CONFD_OK}, {nullptr, CONFD_ERR}, {"/nowhere", CONFD_ERR}};
    for (const auto &c : cases) {
        unsetenv(IPC_ACCESS_FILE_VARIABLE);
        if (c.file != nullptr)
            setenv(IPC_ACCESS_FILE_VARIABLE, c.file, 1);
        t_client_fd client;
        EXPECT_EQ(connect_as(server, IPC_CONN_CDB_DATA, client.fd), c.result);
        EXPECT_TRUE(c.result == CONFD_OK || confd_errno == CONFD_ERR_ACCESS_DENIED);
    }
    setenv(IPC_ACCESS_FILE_VARIABLE, path.c_str(), 1);
    server.secret = "another";
    t_client_fd client;
    EXPECT_EQ(connect_as(server, IPC_CONN_CDB_DATA, client.fd), CONFD_ERR);
    EXPECT_EQ(confd_errno, CONFD_ERR_ACCESS_DENIED);
    unsetenv(IPC_ACCESS_FILE_VARIABLE);
    unlink(path.c_str());
}

TEST(ClientHandshake, ConnectingADescriptorForgetsWhatItWas)
{
    ScriptedServer server;
    server.answer(IPC_OP_CDB_END_SESSION, {});
    server.answer(IPC_OP_MAAPI_INSTALL_CRYPTO_KEYS, {});
    t_client_fd client;
    ASSERT_EQ(connect_as(server, IPC_CONN_CDB_DATA, client.fd), CONFD_OK);
    EXPECT_EQ(cdb_end_session(client.fd), CONFD_OK);
    int again = socket(AF_INET, SOCK_STREAM, 0);
    ASSERT_EQ(dup2(again, client.fd),
              client.fd);  // as a close without cdb_close, and a new socket of that number
    close(again);
    ASSERT_EQ(connect_as(server, IPC_CONN_MAAPI, client.fd), CONFD_OK);
    EXPECT_EQ(maapi_install_crypto_keys(client.fd), CONFD_OK);
    EXPECT_EQ(cdb_end_session(client.fd), CONFD_ERR);

    EXPECT_EQ(maapi_close(client.fd), CONFD_OK);
    int type = 0;
    socklen_t size = sizeof(type);
    EXPECT_EQ(getsockopt(client.fd, SOL_SOCKET, SO_TYPE, &type, &size), 0)
        << "the descriptor stays the caller's";
    EXPECT_EQ(maapi_install_crypto_keys(client.fd), CONFD_ERR);
}

// ---- Paths ----

// The path as the server gets it; "bad" when the library refuses the format.
static std::string path_of(const char *fmt, ...)
{
    ScriptedServer server;
    server.answer(IPC_OP_CDB_CREATE, {});
    t_client_fd client;
    EXPECT_EQ(connect_as(server, IPC_CONN_CDB_DATA, client.fd), CONFD_OK);
    va_list args;
    va_start(args, fmt);
    int result = cdb_vcreate(client.fd, fmt, args);
    va_end(args);
    t_ipc_path request;
    if (result != CONFD_OK)
        return confd_errno == CONFD_ERR_BADPATH ? "bad" : "other";
    EXPECT_TRUE(ipc_decode(server.wait_frames(0, 1).at(0).body, &request));
    return request.path;
}

TEST(ClientPaths, FormatsAndKeys)
{
    confd_value_t text = {C_STR, {}};
    text.val.c_s = "a b";
    confd_value_t keys[2] = {text, u32_value(7)};
    confd_value_t prefix = {C_IPV4PREFIX, {}};
    prefix.val.ipv4prefix = {{htonl(0x0a000000)}, 8};
    EXPECT_EQ(path_of("/a/b{key}/c[3]"), "/a/b{key}/c[3]");
    EXPECT_EQ(path_of("/%s/l[%d]", "a/b", 3), "/a/b/l[3]");
    EXPECT_EQ(path_of("/l{%s %u}", "x", 4000000000u), "/l{x 4000000000}");
    EXPECT_EQ(path_of("/l{%ld %lu}", -5000000000l, 5000000000ul), "/l{-5000000000 5000000000}");
    EXPECT_EQ(path_of("/l{%s}/c", "a b"), "/l{\"a b\"}/c");
    EXPECT_EQ(path_of("/l{%d.%s}", 5, "a b"), "/l{\"5.a b\"}");
    EXPECT_EQ(path_of("/l{%s}", ""), "/l{\"\"}");
    EXPECT_EQ(path_of("/l{%s}", "}/x{\"\\"), "/l{\"}/x{\\\"\\\\\"}");
    EXPECT_EQ(path_of("/l{\"%s\" c}", "a b"), "/l{\"a b\" c}");
    EXPECT_EQ(path_of("/l{%x}", &text), "/l{\"a b\"}");
    EXPECT_EQ(path_of("/l{%x}", &prefix), "/l{10.0.0.0/8}");
    EXPECT_EQ(path_of("/l{%*x}", 2, keys), "/l{\"a b\" 7}");
    EXPECT_EQ(path_of("/l{100%%}"), "/l{100%}");
    EXPECT_EQ(path_of("/l{%s", "x"), "bad");
    EXPECT_EQ(path_of("/l{%q}", 1), "bad");
    EXPECT_EQ(path_of("/%s", static_cast<const char *>(nullptr)), "bad");
    EXPECT_EQ(path_of("/x%"), "bad");
}

// ---- Threads ----

// Two threads print while a third one asks: every frame arrives whole, and each answer goes to its asker.
TEST(ClientThreads, SendOnOneSocketWhileOneAsks)
{
    static constexpr int lines = 300;
    ScriptedServer server;
    server.answer(IPC_OP_MAAPI_INSTALL_CRYPTO_KEYS, {});
    t_client_fd client;
    ASSERT_EQ(connect_as(server, IPC_CONN_MAAPI, client.fd), CONFD_OK);
    std::string filler(5000, '-');
    auto print = [&](int session) {
        for (int i = 0; i < lines; i++)
            EXPECT_EQ(maapi_cli_printf(client.fd, session, "%d %s\n", i, filler.c_str()), CONFD_OK);
    };
    std::thread one(print, 1);
    std::thread two(print, 2);
    for (int i = 0; i < lines; i++)
        EXPECT_EQ(maapi_install_crypto_keys(client.fd), CONFD_OK);
    one.join();
    two.join();
    std::vector<t_ipc_frame> frames = server.wait_frames(0, 3 * lines);
    ASSERT_EQ(frames.size(), 3u * lines);
    int next[3] = {};
    for (const t_ipc_frame &frame : frames) {
        t_ipc_cli_write line;
        if (frame.op != IPC_OP_MAAPI_CLI_WRITE)
            continue;
        ASSERT_TRUE(ipc_decode(frame.body, &line));
        ASSERT_TRUE(line.usid == 1 || line.usid == 2);
        EXPECT_EQ(line.text, std::to_string(next[line.usid]++) + " " + filler + "\n");
    }
    EXPECT_EQ(next[1], lines);
    EXPECT_EQ(next[2], lines);
}

TEST(ClientThreads, EachHasItsOwnError)
{
    confd_errno = CONFD_ERR_LOCKED;
    std::thread([] {
        EXPECT_EQ(confd_errno, 0);
        EXPECT_EQ(cdb_end_session(-1), CONFD_ERR);
        EXPECT_EQ(confd_errno, CONFD_ERR_PROTOUSAGE);
    }).join();
    EXPECT_EQ(confd_errno, CONFD_ERR_LOCKED);
}
