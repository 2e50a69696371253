// Sessions against each other and against daemons: locks, commits, actions, schemas, subscriptions, rights.

#include "generated/lumora_schema.h"
#include "mgmtd/netconf/netconf_monitor.h"
#include "tests/mgmtd/rpc/rpc_client.h"

#include <gtest/gtest.h>

static const std::string STEP = "<steps>s</steps>";

static std::string on(const char *operation, const char *target)
{
    return std::string("<") + operation + "><target><" + target + "/></target></" + operation + ">";
}

TEST(RpcFlow, LocksNameTheirHolder)
{
    RpcWorld world;
    t_netconf_monitor monitor;
    mgmt_rpc_server_ptr server = mgmt_rpc_server_new(&monitor);
    RpcClient one(&world, "ad", 11, server);
    auto two = std::make_unique<RpcClient>(&world, "root", 12, server);
    for (const char *target : {"candidate", "running"}) {
        EXPECT_EQ(one.call(on("lock", target)), "ok");
        EXPECT_EQ(two->call(on("lock", target)), "lock-denied session-id=11");
        EXPECT_EQ(one.call(on("lock", target)), "lock-denied session-id=11");
        EXPECT_EQ(two->call(on("unlock", target)), "operation-failed");
    }
    EXPECT_EQ(two->edit(STEP), "in-use");
    EXPECT_EQ(two->message, "the candidate is locked by session 11");
    EXPECT_EQ(one.edit(STEP), "ok");
    std::string state = one.call("<get><filter><netconf-state><datastores/></netconf-state></filter></get>");
    EXPECT_NE(state.find("<locked-by-session>11</locked-by-session>"), std::string::npos) << state;
    EXPECT_EQ(one.call(on("unlock", "candidate")), "ok");
    EXPECT_EQ(one.content(), "") << "uncommitted edits go with the lock";
    EXPECT_EQ(one.call(on("unlock", "running")), "ok");

    EXPECT_EQ(two->edit(STEP), "ok");
    EXPECT_EQ(one.call(on("lock", "candidate")), "lock-denied session-id=0") << "it has uncommitted edits";
    EXPECT_EQ(two->call("<discard-changes/>"), "ok");
    EXPECT_EQ(two->call(on("lock", "candidate")), "ok");
    two.reset();
    EXPECT_EQ(one.call(on("lock", "candidate")), "ok") << "a session that ends leaves its locks";
}

TEST(RpcFlow, ConfirmedCommits)
{
    RpcWorld world;
    RpcClient one(&world, "ad", 1, world.server);
    RpcClient two(&world, "ad", 2, world.server);
    const std::string step = "<store-test>" + STEP + "</store-test>";
    auto confirmed = [](const std::string &rest) { return "<commit><confirmed/>" + rest + "</commit>"; };
    ASSERT_EQ(one.edit(STEP), "ok");
    EXPECT_EQ(one.call("<commit><persist>p</persist></commit>"), "missing-element bad-element=confirmed");
    EXPECT_EQ(one.call(confirmed("<confirm-timeout>4000000000</confirm-timeout>")),
              "invalid-value bad-element=confirm-timeout");
    EXPECT_EQ(one.call("<cancel-commit/>"), "operation-failed");

    EXPECT_EQ(one.call(confirmed("<confirm-timeout>10</confirm-timeout>")), "ok");
    EXPECT_EQ(one.content("running"), step);
    world.advance(11000);
    EXPECT_TRUE(world.until([&] { return one.content("running").empty(); })) << "not confirmed in time";

    EXPECT_EQ(one.edit(STEP), "ok");
    EXPECT_EQ(one.call(confirmed("<persist>p</persist>")), "ok");
    EXPECT_EQ(two.call("<commit><persist-id>q</persist-id></commit>"),
              "invalid-value bad-element=persist-id");
    EXPECT_EQ(two.call("<cancel-commit><persist-id>p</persist-id></cancel-commit>"), "ok");
    EXPECT_EQ(one.content("running"), "");

    EXPECT_EQ(one.edit(STEP), "ok");
    EXPECT_EQ(one.call(confirmed("<persist>p</persist>")), "ok");
    EXPECT_EQ(two.call("<commit><persist-id>p</persist-id></commit>"), "ok");
    world.advance(700000);
    EXPECT_EQ(one.content("running"), step);
}

TEST(RpcFlow, ActionsAndSchemas)
{
    RpcWorld world;
    RpcClient client(&world, "op", 1);
    const std::string dump = "<tarn-dump-policy xmlns=\"urn:lumora:yang:debugs\"/>";
    EXPECT_EQ(client.call(dump), "operation-failed /lumora-debugs:tarn-dump-policy");
    EXPECT_NE(client.message.find("tarn_dump_policy"), std::string::npos) << client.message;
    TestDaemon daemon(&world, "d");
    daemon.add(IPC_OP_REG_ACTION, "tarn_dump_policy", IPC_CALL_INIT | IPC_CALL_COMMAND);
    daemon.add(IPC_OP_REG_ACTION, "tarn_clear_data_policy", IPC_CALL_INIT | IPC_CALL_ACTION);
    daemon.ready();
    std::string printed = "a < b\n\x01";
    daemon.serve = [&](const t_ipc_frame &frame) {
        t_ipc_dp_action_reply reply = {.results = {}, .printed_bytes = 0};
        if (frame.op == IPC_OP_DP_COMMAND) {
            auto command = daemon.worker.read<t_ipc_dp_command>(frame);
            daemon.maapi.send({.op = IPC_OP_MAAPI_CLI_WRITE,
                               .kind = IPC_KIND_ONEWAY,
                               .id = 0,
                               .status = 0,
                               .body = ipc_encode(t_ipc_cli_write{command.user.usid, printed})});
            reply.printed_bytes = printed.size();
        } else {
            auto action = daemon.worker.read<t_ipc_dp_action>(frame);
            ASSERT_EQ(action.params.size(), 1u);
            EXPECT_TRUE(action.params[0].value == IpcValue::text("p1"));
        }
        daemon.answer(frame, ipc_encode(reply));
    };
    EXPECT_EQ(client.call(dump), "<text>a &lt; b\n?</text>");
    EXPECT_EQ(client.call("<tarn-clear-data-policy xmlns=\"urn:lumora:yang:policy\"><name>p1</name>"
                          "</tarn-clear-data-policy>"),
              "ok");

    auto schema = [&](const std::string &rest) {
        return client.call("<get-schema xmlns=\"urn:ietf:params:xml:ns:yang:ietf-netconf-monitoring\">" +
                           rest + "</get-schema>");
    };
    EXPECT_NE(schema("<identifier>lumora-policy</identifier>").find("module lumora-policy {"),
              std::string::npos);
    EXPECT_NE(schema("<identifier>lumora-policy-state</identifier><version>2024-01-15</version>")
                  .find("submodule lumora-policy-state {"),
              std::string::npos);
    EXPECT_EQ(schema("<identifier>lumora-policy</identifier><version>1999-01-01</version>"),
              "invalid-value bad-element=identifier");
    EXPECT_EQ(schema("<identifier>nonsense</identifier>"), "invalid-value bad-element=identifier");
    EXPECT_EQ(schema(""), "missing-element");
}

TEST(RpcFlow, GetShowsTheServerToo)
{
    RpcWorld world;
    t_netconf_monitor monitor;
    monitor.start_time = "2024-01-15T10:00:00Z";
    monitor.capabilities = {"urn:ietf:params:netconf:base:1.1"};
    monitor.sessions[7] = {.user = "ro",
                           .host = "192.0.2.1",
                           .is_ssh = true,
                           .login_time = "2024-01-15T11:00:00Z",
                           .counters = monitor.totals};
    RpcClient client(&world, "ro", 7, mgmt_rpc_server_new(&monitor));
    std::string all = client.call("<get/>");
    for (const char *part :
         {"<capability>urn:ietf:params:netconf:base:1.1</capability>", "<name>candidate</name>",
          "<identifier>lumora-policy-state</identifier><version>2024-01-15</version>",
          "<session-id>7</session-id>", "<source-host>192.0.2.1</source-host>",
          "<in-bad-hellos>0</in-bad-hellos>", "<name>NETCONF</name>", "<replaySupport>true</replaySupport>",
          "<yang-library", "<lconfd-initial-read-priority>"})
        EXPECT_NE(all.find(part), std::string::npos) << part;
    EXPECT_EQ(
        client.call("<get><filter><netconf-state><sessions><session><session-id>7</session-id><username/>"
                    "</session></sessions></netconf-state></filter></get>"),
        "<data><netconf-state "
        "xmlns=\"urn:ietf:params:xml:ns:yang:ietf-netconf-monitoring\"><sessions><session>"
        "<session-id>7</session-id><username>ro</username></session></sessions></netconf-state></data>");
}

// ---- Notifications ----

static void notification_send(TestDaemon *p_daemon, int32_t sender, const std::string &policy)
{
    xml_tag name = {LUMORA_TAG_DATA_POLICY_ASSOCIATION_STATUS, LUMORA_NS_POLICY};
    t_ipc_notification made = {.sender_id = sender,
                               .time = {.year = 2024,
                                        .month = 1,
                                        .day = 15,
                                        .hour = 10,
                                        .min = 0,
                                        .sec = 0,
                                        .micro = 0,
                                        .timezone = 0,
                                        .timezone_minutes = 0},
                               .values = {}};
    made.values.push_back({name, IpcValue::tag(C_XMLBEGIN, name.tag, name.ns)});
    made.values.push_back({{LUMORA_TAG_POLICY_NAME, 0}, IpcValue::text(policy)});
    made.values.push_back({name, IpcValue::tag(C_XMLEND, name.tag, name.ns)});
    p_daemon->worker.send(
        {.op = IPC_OP_NOTIF_SEND, .kind = IPC_KIND_ONEWAY, .id = 0, .status = 0, .body = ipc_encode(made)});
}

TEST(RpcFlow, SubscriptionsReplayFilterAndEnd)
{
    RpcWorld world;
    TestDaemon daemon(&world, "d");
    t_ipc_reg_notif enlist = {.name = "lumora", .context = "", .worker_conn_id = daemon.worker.id};
    int32_t sender =
        daemon.control.read<t_ipc_count>(daemon.control.request(IPC_OP_REG_NOTIF_STREAM, ipc_encode(enlist)))
            .count;
    daemon.ready();
    notification_send(&daemon, sender, "p1");
    notification_send(&daemon, sender, "p2");
    ASSERT_TRUE(world.until([&] { return mgmt_notifications(*world.engine).size() == 2; }));
    auto subscribe = [](const std::string &rest) {
        return "<create-subscription xmlns=\"urn:ietf:params:xml:ns:netconf:notification:1.0\">" + rest +
               "</create-subscription>";
    };
    const std::string past = "<startTime>2024-01-15T11:00:00.5+01:30</startTime>";
    auto event = [](const char *policy) {
        return std::string("<data-policy-association-status><policy-name>") + policy +
               "</policy-name></data-policy-association-status>";
    };
    const std::string replayed = "<replayComplete xmlns=\"urn:ietf:params:xml:ns:netmod:notification\"/>";
    const std::string complete =
        "<notificationComplete xmlns=\"urn:ietf:params:xml:ns:netmod:notification\"/>";

    RpcClient one(&world, "ro", 1);
    EXPECT_EQ(one.call(subscribe("<stream>weather</stream>")), "invalid-value bad-element=stream");
    EXPECT_EQ(one.call(subscribe("<startTime>2999-01-15T10:00:00Z</startTime>")),
              "bad-element bad-element=startTime");
    EXPECT_EQ(one.call(subscribe(past + "<stopTime>2023-01-15T10:00:00Z</stopTime>")),
              "bad-element bad-element=stopTime");
    EXPECT_EQ(one.call(subscribe("<stopTime>2999-01-15T10:00:00Z</stopTime>")),
              "missing-element bad-element=startTime");
    EXPECT_EQ(one.call(subscribe(past)), "ok");
    EXPECT_TRUE(one.told.empty()) << "the reply comes first";
    ASSERT_TRUE(world.until([&] { return one.told.size() == 3; }));
    EXPECT_EQ(one.told, (std::vector<std::string>{event("p1"), event("p2"), replayed}));
    EXPECT_EQ(one.call(subscribe("")), "operation-failed") << "one at a time";

    RpcClient two(&world, "ro", 2);
    const std::string only_p2 = "<stream>lumora</stream><filter><data-policy-association-status "
                                "xmlns=\"urn:lumora:yang:policy\"><policy-name>p2</policy-name>"
                                "</data-policy-association-status></filter>" +
                                past;
    EXPECT_EQ(two.call(subscribe(only_p2 + "<stopTime>2024-02-01T00:00:00Z</stopTime>")), "ok");
    ASSERT_TRUE(world.until([&] { return two.told.size() == 3; }));
    EXPECT_EQ(two.told, (std::vector<std::string>{event("p2"), replayed, complete}));
    notification_send(&daemon, sender, "p2");
    ASSERT_TRUE(world.until([&] { return one.told.size() == 4; }));
    EXPECT_EQ(two.told.size(), 3u);
    EXPECT_EQ(two.call(subscribe("<filter type=\"xpath\" xmlns:p=\"urn:lumora:yang:policy\" "
                                 "select=\"/p:data-policy-association-status[p:policy-name='p3']\"/>")),
              "ok");
    world.settle();
    notification_send(&daemon, sender, "p2");
    notification_send(&daemon, sender, "p3");
    ASSERT_TRUE(world.until([&] { return two.told.size() == 4; }));
    EXPECT_EQ(two.told.back(), event("p3"));
}

// ---- Rights ----

TEST(RpcRights, EachGroupMayWhatItMayAndNoMore)
{
    RpcWorld world;
    RpcClient ro(&world, "ro", 1), op(&world, "op", 2), ad(&world, "ad", 3), nobody(&world, "nobody", 4);
    const std::string get = "<get-config><source><running/></source><filter><users "
                            "xmlns=\"urn:lumora:yang:system\"/></filter></get-config>";
    EXPECT_EQ(ro.call(get), "<data/>") << "users are for admins";
    EXPECT_NE(ad.call(get).find("<name>ro</name>"), std::string::npos);
    EXPECT_EQ(nobody.call(get), "access-denied /ietf-netconf:get-config");
    EXPECT_NE(nobody.message.find("nobody"), std::string::npos) << nobody.message;
    const std::string clear = "<tarn-clear-data-policy xmlns=\"urn:lumora:yang:policy\"/>";
    EXPECT_EQ(ro.call(clear), "access-denied /lumora-policy:tarn-clear-data-policy");
    EXPECT_EQ(op.call(clear), "operation-failed /lumora-policy:tarn-clear-data-policy") << "no provider";
    EXPECT_EQ(op.edit(STEP), "access-denied /ietf-netconf:edit-config");
    EXPECT_EQ(ro.call(on("lock", "candidate")), "access-denied /ietf-netconf:lock");
    EXPECT_EQ(op.call("<kill-session><session-id>3</session-id></kill-session>"),
              "access-denied /ietf-netconf:kill-session");
    EXPECT_EQ(ad.edit(STEP), "ok");
    EXPECT_EQ(op.call(COMMIT), "access-denied /ietf-netconf:commit");
    EXPECT_EQ(ad.call(COMMIT), "ok");
}

TEST(RpcRights, RulesOpenOneSubtreeForEditsAndTheirCommit)
{
    RpcWorld world;
    t_mgmt_error error = world.edit(R"([{"op":"merge","path":"/","value":{"ietf-netconf-acm:nacm":{
        "groups":{"group":[{"name":"rulers","user-name":["op"]}]},
        "rule-list":[{"name":"rulers","group":["rulers"],"rule":[
          {"name":"ops","module-name":"ietf-netconf","rpc-name":"*","access-operations":"exec","action":"permit"},
          {"name":"rules","module-name":"store-test","path":"/store-test:store-test/rule",
           "access-operations":"create update delete read","action":"permit"}]}]}}}])");
    ASSERT_EQ(error.code, MGMT_OK) << mgmt_error_text(error);
    ASSERT_EQ(world.commit().error.code, MGMT_OK);
    RpcClient op(&world, "op", 1), ad(&world, "ad", 2);
    const std::string rule = "<rule><number>1</number></rule>";
    EXPECT_EQ(op.edit(STEP), "access-denied /store-test:store-test/steps[.='s']");
    EXPECT_EQ(op.edit(rule), "ok") << op.message;
    EXPECT_EQ(op.call(COMMIT), "ok") << op.message;
    EXPECT_EQ(ad.edit(STEP), "ok");
    EXPECT_EQ(op.edit("<rule nc:operation=\"delete\"><number>1</number></rule>"), "ok");
    EXPECT_EQ(op.call(COMMIT), "access-denied /store-test:store-test/steps[.='s']") << "another's edit";
    EXPECT_EQ(op.edit(rule, "<default-operation>replace</default-operation>").substr(0, 14),
              "access-denied ");
}
