// The port itself: who may come in, what must not be sent, and sessions of data connections.

#include "tests/mgmtd/test_daemon.h"

#include "mgmtd/ipc/ipc_access.h"

#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <random>
#include <sys/stat.h>

TEST(IpcServer, OnlyThoseWhoKnowTheSecretComeIn)
{
    TestWorld world;
    TestLink good(&world, IPC_CONN_CDB_DATA, "d");
    EXPECT_EQ(good.refusal, 0);
    EXPECT_GT(good.id, 0u);
    TestLink bad(&world, IPC_CONN_CDB_DATA, "d", 0, "another secret");
    EXPECT_EQ(bad.refusal, CONFD_ERR_ACCESS_DENIED);
    EXPECT_TRUE(world.until([&] { return bad.is_closed; }));
    TestLink hasty(&world);
    hasty.request(IPC_OP_CDB_GET_PHASE, {});
    EXPECT_TRUE(hasty.is_closed) << "no request before the handshake";
    TestLink orphan(&world, IPC_CONN_WORKER, "d", 4711);
    EXPECT_EQ(orphan.refusal, CONFD_ERR_BADSTATE);
    TestLink slow(&world);
    world.settle();
    world.advance(IPC_SERVER_HANDSHAKE_TIMEOUT_MS);
    EXPECT_TRUE(world.until([&] { return slow.is_closed; }));
    EXPECT_EQ(good.request(IPC_OP_CDB_GET_PHASE, {}).status, 0);
}

TEST(IpcServer, StrangersAreBounded)
{
    TestWorld world;
    TestLink good(&world, IPC_CONN_CDB_DATA, "d");
    std::vector<std::unique_ptr<TestLink>> strangers;
    for (size_t i = 0; i < IPC_SERVER_MAX_STRANGERS + 5; i++)
        strangers.push_back(std::make_unique<TestLink>(&world));
    world.settle();
    EXPECT_LE(ipc_server_connections(*world.server), IPC_SERVER_MAX_STRANGERS + 1);
    strangers.clear();
    EXPECT_TRUE(world.until([&] { return ipc_server_connections(*world.server) == 1; }));
    EXPECT_EQ(TestLink(&world, IPC_CONN_CDB_DATA, "d").refusal, 0);
}

// Whatever comes, the daemon stays and serves the next one.
TEST(IpcServer, GarbageEndsOneConnectionAndNothingElse)
{
    TestWorld world;
    TestLink good(&world, IPC_CONN_CDB_DATA, "good");
    static constexpr e_ipc_conn kinds[] = {IPC_CONN_CONTROL, IPC_CONN_CDB_DATA, IPC_CONN_CDB_SUB,
                                           IPC_CONN_MAAPI,   IPC_CONN_EVENTS,   IPC_CONN_SCHEMA};
    std::mt19937 random(7);
    for (int round = 0; round < 120; round++) {
        SCOPED_TRACE(round);
        std::unique_ptr<TestLink> link;
        if (round % 3 == 0)
            link = std::make_unique<TestLink>(&world);
        else
            link = std::make_unique<TestLink>(&world, kinds[round % std::size(kinds)], "bad");
        std::vector<uint8_t> bytes(16 + random() % 200);
        for (uint8_t &byte : bytes)
            byte = static_cast<uint8_t>(random());
        if (round % 2 == 0) {  // a frame with a body that fits nothing
            static constexpr uint16_t ops[] = {
                IPC_OP_HELLO,         IPC_OP_CDB_GET,        IPC_OP_CDB_TRIGGER,
                IPC_OP_SUB_SUBSCRIBE, IPC_OP_SUB_DIFF,       IPC_OP_REG_DATA,
                IPC_OP_MAAPI_ATTACH,  IPC_OP_SCHEMA_LOAD,    IPC_OP_EVENTS_SUBSCRIBE,
                IPC_OP_SUB_SYNC,      IPC_OP_MAAPI_CLI_WRITE};
            bytes = ipc_frame_bytes({.op = ops[random() % std::size(ops)],
                                     .kind = IPC_KIND_REQUEST,
                                     .id = 1,
                                     .status = 0,
                                     .body = bytes});
        }
        link->send_bytes(bytes);
        world.settle();
        EXPECT_EQ(good.request(IPC_OP_CDB_GET_PHASE, {}).status, 0);
    }
    // A second request while one is unanswered, and a length above the limit.
    TestLink maapi(&world, IPC_CONN_MAAPI, "bad");
    maapi.start(IPC_OP_MAAPI_WAIT_START, ipc_encode(t_ipc_count{2}));
    maapi.start(IPC_OP_MAAPI_INSTALL_CRYPTO_KEYS, {});
    EXPECT_TRUE(world.until([&] { return maapi.is_closed; }));
    TestLink data(&world, IPC_CONN_CDB_DATA, "bad");
    data.send_bytes({0x7f, 0xff, 0xff, 0xff, 1, 2, 1, 0, 0, 0, 0, 1, 0, 0, 0, 0});
    EXPECT_TRUE(world.until([&] { return data.is_closed; }));
    EXPECT_EQ(good.request(IPC_OP_CDB_GET_PHASE, {}).status, 0);
}

TEST(IpcServer, ASlowReaderIsNotReadFromUntilItHasTakenItsAnswers)
{
    TestWorld world;
    TestLink schema(&world, IPC_CONN_SCHEMA, "slow");
    TestLink good(&world, IPC_CONN_CDB_DATA, "good");
    std::erase(world.links, &schema);  // does not read
    for (int i = 0; i < 200; i++)
        schema.start(IPC_OP_SCHEMA_LOAD, {});
    for (int i = 0; i < 20; i++)
        EXPECT_EQ(good.request(IPC_OP_CDB_GET_PHASE, {}).status, 0);
    world.links.push_back(&schema);
    EXPECT_TRUE(world.until([&] { return schema.replies.size() == 200; }));
    auto model = schema.read<t_ipc_schema>(schema.replies.back());
    EXPECT_GT(model.nodes.size(), 300u);
    for (const t_ipc_schema_node &node : model.nodes) {
        EXPECT_TRUE(node.parent == IPC_NO_INDEX ||
                    node.parent < static_cast<size_t>(&node - model.nodes.data()));
        EXPECT_TRUE(node.type == IPC_NO_INDEX || node.type < model.types.size());
    }
}

TEST(IpcServer, AControlConnectionTakesTheNameOver)
{
    TestWorld world;
    TestDaemon old_one(&world, "d");
    TestSubscriber old_subscriber(&world, "d");
    TestSubscriber other(&world, "other");
    old_subscriber.add("policy/zone", 1);
    old_subscriber.done();
    old_subscriber.hold = true;
    ASSERT_EQ(world.edit(R"([{"op":"merge","path":"/policy/zone{a}"}])").code, MGMT_OK);
    world.commit_start();
    ASSERT_TRUE(world.until([&] { return old_subscriber.is_open(); }));
    TestDaemon new_one(&world, "d");
    EXPECT_TRUE(world.until([&] { return world.committed.has_value(); })) << "nobody waits for the old one";
    EXPECT_TRUE(world.until([&] {
        return old_one.control.is_closed && old_one.worker.is_closed && old_subscriber.link.is_closed;
    }));
    EXPECT_FALSE(other.link.is_closed);
    EXPECT_FALSE(new_one.worker.is_closed);
    TestLink worker(&world, IPC_CONN_WORKER, "d", new_one.control.id);
    new_one.control.close();
    EXPECT_TRUE(world.until([&] { return worker.is_closed && new_one.worker.is_closed; }));
}

TEST(IpcServer, PhasesAndEvents)
{
    TestWorld world;
    TestLink maapi(&world, IPC_CONN_MAAPI, "d");
    TestLink events(&world, IPC_CONN_EVENTS, "d");
    std::vector<t_ipc_event> came;
    events.take = [&](const t_ipc_frame &frame) { came.push_back(events.read<t_ipc_event>(frame)); };
    t_ipc_events wanted = {.mask = CONFD_NOTIF_COMMIT_SIMPLE | CONFD_NOTIF_HEARTBEAT,
                           .heartbeat_interval_ms = 1000,
                           .health_check_interval_ms = 0};
    EXPECT_EQ(events.request(IPC_OP_EVENTS_SUBSCRIBE, ipc_encode(wanted)).status, 0);
    EXPECT_EQ(maapi.request(IPC_OP_MAAPI_WAIT_START, ipc_encode(t_ipc_count{1})).status, 0);
    uint32_t second = maapi.start(IPC_OP_MAAPI_WAIT_START, ipc_encode(t_ipc_count{2}));
    world.settle();
    EXPECT_FALSE(maapi.reply_to(second).has_value());
    mgmt_engine_set_phase(world.engine.get(), 2);
    EXPECT_TRUE(world.until([&] { return maapi.reply_to(second).has_value(); }));

    ASSERT_EQ(world.edit(R"([{"op":"merge","path":"/policy/zone{a}"}])").code, MGMT_OK);
    ASSERT_EQ(world.commit().error.code, MGMT_OK);
    world.advance(1000);
    world.advance(1000);
    ASSERT_TRUE(world.until([&] { return came.size() == 3; }));
    EXPECT_EQ(came[0].type, CONFD_NOTIF_COMMIT_SIMPLE);
    EXPECT_EQ(came[0].text, "admin");
    EXPECT_EQ(came[2].type, CONFD_NOTIF_HEARTBEAT);
}

TEST(IpcServer, DataSessions)
{
    TestWorld world;
    ASSERT_EQ(
        world
            .edit(R"([{"op":"merge","path":"/policy/zone{a}","value":{"vpn":[{"vpn-id":10},{"vpn-id":9}]}},
        {"op":"merge","path":"/vpn/vpn-instance{40000}"},{"op":"merge","path":"/policy/log-frequency","value":5}])")
            .code,
        MGMT_OK);
    t_mgmt_commit_result result = world.commit();
    ASSERT_EQ(result.error.code, MGMT_OK) << mgmt_error_text(result.error);
    TestLink data(&world, IPC_CONN_CDB_DATA, "d");
    auto ask = [&](e_ipc_op op, const std::string &path) {
        return data.request(op, ipc_encode(t_ipc_path{path}));
    };
    auto start = [&](int db) {
        EXPECT_EQ(data.request(IPC_OP_CDB_START_SESSION,
                               ipc_encode(t_ipc_start_session{static_cast<uint8_t>(db), 0}))
                      .status,
                  0);
    };
    EXPECT_EQ(ask(IPC_OP_CDB_GET, "/policy/log-frequency").status, CONFD_ERR_NOSESSION);
    start(CDB_RUNNING);
    struct t_case {
        e_ipc_op op;
        const char *path;
        int32_t status;
        int64_t value;  // of a count or an integer; -1: not looked at
    };
    static constexpr t_case cases[] = {
        {IPC_OP_CDB_GET, "/policy/log-frequency", 0, 5},
        {IPC_OP_CDB_GET, "/policy/app-visibility", CONFD_ERR_NOEXISTS, -1},
        {IPC_OP_CDB_GET, "/policy/zone", CONFD_ERR_BADPATH, -1},
        {IPC_OP_CDB_GET, "/policy/nothing", CONFD_ERR_BADPATH, -1},
        {IPC_OP_CDB_EXISTS, "/policy/zone{a}", 0, 1},
        {IPC_OP_CDB_EXISTS, "/policy/zone{b}", 0, 0},
        {IPC_OP_CDB_NUM_INSTANCES, "/policy/zone{a}/vpn", 0, 2},
        {IPC_OP_CDB_NUM_INSTANCES, "/policy/zone-pair", 0, 0},
        {IPC_OP_CDB_CD, "/policy/zone{b}", CONFD_ERR_NOEXISTS, -1},
        {IPC_OP_CDB_CD, "/lumora-policy:policy/zone[0]/vpn[1]", 0, -1},
        {IPC_OP_CDB_GET, "vpn-id", 0, 10},
        {IPC_OP_CDB_GET, "../vpn[0]/vpn-id", 0, 9},
        {IPC_OP_CDB_CREATE, "/policy/zone{c}", CONFD_ERR_NOT_WRITABLE, -1},
        {IPC_OP_CDB_GET, "/vpn/vpn-instance{40000}/vrf-id", CONFD_ERR_NOEXISTS, -1},
    };
    for (const t_case &one : cases) {
        t_ipc_frame reply = ask(one.op, one.path);
        EXPECT_EQ(reply.status, one.status) << one.path;
        if (one.value < 0 || reply.status != 0)
            continue;
        if (one.op == IPC_OP_CDB_GET)
            EXPECT_EQ(data.read<t_ipc_value_reply>(reply).value.v.val.i32, one.value) << one.path;
        else
            EXPECT_EQ(data.read<t_ipc_count>(reply).count, one.value) << one.path;
    }
    start(CDB_OPERATIONAL);
    t_ipc_frame reply = ask(IPC_OP_CDB_GET, "/vpn/vpn-instance{40000}/vrf-id");
    ASSERT_EQ(reply.status, 0);
    EXPECT_EQ(data.read<t_ipc_value_reply>(reply).value.v.type, C_INT16);
    EXPECT_EQ(ask(IPC_OP_CDB_CREATE, "/debugs/tarn/config").status, 0);
    EXPECT_EQ(ask(IPC_OP_CDB_CREATE, "/debugs/tarn/config").status, CONFD_ERR_ALREADY_EXISTS);
    EXPECT_EQ(ask(IPC_OP_CDB_DELETE, "/debugs/tarn/config").status, 0);
    EXPECT_EQ(ask(IPC_OP_CDB_DELETE, "/debugs/tarn/config").status, CONFD_ERR_NOEXISTS);
    EXPECT_EQ(data.request(IPC_OP_CDB_END_SESSION, {}).status, 0);
    EXPECT_EQ(data.request(IPC_OP_CDB_END_SESSION, {}).status, CONFD_ERR_NOSESSION);
}

TEST(IpcAccess, TheFileIsMadeOnceForItsOwnerAlone)
{
    char folder[] = "/tmp/ipc-access-XXXXXX";
    ASSERT_NE(mkdtemp(folder), nullptr);
    std::string path = std::string(folder) + "/below/secret";
    std::string first, second, error;
    ASSERT_TRUE(ipc_access_open(path, &first, &error)) << error;
    ASSERT_TRUE(ipc_access_open(path, &second, &error)) << error;
    EXPECT_EQ(first, second);
    EXPECT_EQ(first.size(), 64u);
    struct stat status = {};
    ASSERT_EQ(stat(path.c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 0777, 0600u);
    std::ofstream(path, std::ios::trunc).flush();
    EXPECT_FALSE(ipc_access_open(path, &second, &error)) << "an empty file is not replaced";
    EXPECT_NE(error.find(path), std::string::npos);
    std::filesystem::remove_all(folder);
}
