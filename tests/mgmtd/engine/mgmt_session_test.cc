// Sessions with their locks, commits and rollbacks, and the log of notifications.

#include "tests/mgmtd/test_daemon.h"

#include "generated/lumora_schema.h"
#include "mgmtd/store/mgmt_crash.h"

#include <csignal>
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>

// Runs a request that ends with a t_mgmt_error.
static t_mgmt_error wait_for(TestWorld *p_world, const std::function<void(f_mgmt_done)> &start)
{
    std::optional<t_mgmt_error> error;
    start([&](const t_mgmt_error &result) { error = result; });
    EXPECT_FALSE(error.has_value()) << "callbacks come from the loop";
    EXPECT_TRUE(p_world->until([&] { return error.has_value(); }));
    return error.value_or(t_mgmt_error());
}

TEST(MgmtSession, ALockKeepsOthersOutAndTakesItsEditsAlong)
{
    TestWorld world;
    t_mgmt_engine *p_engine = world.engine.get();
    t_mgmt_error error;
    uint32_t other = mgmt_session_open(p_engine, {.name = "other", .context = "netconf"});
    ASSERT_TRUE(mgmt_lock(p_engine, other, MGMT_DS_CANDIDATE, &error));
    EXPECT_EQ(world.edit(R"([{"op":"merge","path":"/policy/zone{a}"}])").code, MGMT_ERR_LOCKED);
    EXPECT_EQ(world.commit().error.code, MGMT_ERR_LOCKED);
    EXPECT_EQ(world.edit(R"([{"op":"merge","path":"/policy/zone{b}"}])", other).code, MGMT_OK);
    EXPECT_FALSE(mgmt_lock(p_engine, world.session, MGMT_DS_CANDIDATE, &error));
    EXPECT_EQ(error.code, MGMT_ERR_LOCKED);
    EXPECT_NE(mgmt_compare(p_engine), "");
    mgmt_session_close(p_engine, other);
    EXPECT_EQ(mgmt_compare(p_engine), "");

    EXPECT_EQ(world.edit(R"([{"op":"merge","path":"/policy/zone{a}"}])").code, MGMT_OK);
    other = mgmt_session_open(p_engine, {.name = "other", .context = "netconf"});
    EXPECT_FALSE(mgmt_lock(p_engine, other, MGMT_DS_CANDIDATE, &error)) << "there are edits";
    ASSERT_TRUE(mgmt_lock(p_engine, other, MGMT_DS_RUNNING, &error));
    EXPECT_EQ(world.commit().error.code, MGMT_ERR_LOCKED);
    ASSERT_TRUE(mgmt_unlock(p_engine, other, MGMT_DS_RUNNING, &error));
    EXPECT_EQ(world.commit().error.code, MGMT_OK);
}

TEST(MgmtSession, CommitRollbackDiscardAndRestart)
{
    TestWorld world;
    ASSERT_EQ(world.edit(R"([{"op":"merge","path":"/policy/zone{a}"}])").code, MGMT_OK);
    t_mgmt_commit_result first = world.commit();
    EXPECT_TRUE(first.changed && first.number > 0);
    EXPECT_FALSE(world.commit().changed) << "nothing has changed since";
    ASSERT_EQ(world.edit(R"([{"op":"create","path":"/policy/zone{b}"}])").code, MGMT_OK);
    EXPECT_EQ(world.edit(R"([{"op":"create","path":"/policy/zone{b}"}])").code, MGMT_ERR_ALREADY_EXISTS);
    EXPECT_EQ(world.commit().number, first.number + 1);
    std::string both = world.running();

    // What is not valid stays in the candidate, and is told with its path.
    ASSERT_EQ(world.edit(R"([{"op":"merge","path":"/policy/policer{p}","value":{"rate":"8"}}])").code,
              MGMT_OK);
    auto check = [&](f_mgmt_done done) { mgmt_check(world.engine.get(), world.session, done); };
    t_mgmt_error refusal = wait_for(&world, check);
    EXPECT_NE(refusal.path.find("/policy/policer{p}"), std::string::npos) << mgmt_error_text(refusal);
    EXPECT_EQ(world.commit().error.code, refusal.code);
    EXPECT_EQ(world.running(), both);
    auto discard = [&](f_mgmt_done done) { mgmt_discard(world.engine.get(), world.session, done); };
    EXPECT_EQ(wait_for(&world, discard).code, MGMT_OK);

    auto rollback = [&](f_mgmt_done done) { mgmt_rollback(world.engine.get(), world.session, 1, done); };
    EXPECT_EQ(wait_for(&world, rollback).code, MGMT_OK);
    EXPECT_EQ(world.commit().error.code, MGMT_OK);
    EXPECT_EQ(world.running().find("\"b\""), std::string::npos);
    world.restart();
    EXPECT_EQ(world.running().find("\"b\""), std::string::npos);
    EXPECT_NE(world.running().find("\"a\""), std::string::npos);
    ASSERT_GE(mgmt_commits(*world.engine).size(), 3u);
    EXPECT_EQ(mgmt_commits(*world.engine)[0].user, "admin");
}

TEST(MgmtSession, ASessionThatLeavesHoldsNothingUp)
{
    TestWorld world;
    TestSubscriber subscriber(&world, "d");
    subscriber.add("policy/zone", 1);
    subscriber.done();
    subscriber.hold = true;
    ASSERT_EQ(world.edit(R"([{"op":"merge","path":"/policy/zone{a}"}])").code, MGMT_OK);
    world.commit_start();
    ASSERT_TRUE(world.until([&] { return subscriber.is_open(); }));
    mgmt_session_close(world.engine.get(), world.session);
    world.session = mgmt_session_open(world.engine.get(), {.name = "next", .context = "cli"});
    EXPECT_EQ(world.edit(R"([{"op":"merge","path":"/policy/zone{b}"}])").code, MGMT_OK)
        << "edits need not wait for subscribers";
    subscriber.hold = false;
    subscriber.sync();
    EXPECT_FALSE(world.committed.has_value());
    EXPECT_EQ(world.commit().error.code, MGMT_OK);
    EXPECT_EQ(subscriber.batches.size(), 2u);
}

#ifdef MGMT_CRASH_POINTS

// Killed anywhere between the file's name and the operator's answer, the new configuration is the one that
// comes back; an unconfirmed one is not.
TEST(MgmtCrash, WhatWasAnsweredIsNeverLost)
{
    static const struct {
        const char *point;
        bool is_confirmed;
    } cases[] = {{"file-renamed", true}, {"swapped", true}, {"told", true},
                 {"answered", true},     {"told", false},   {"answered", false}};
    for (const auto &one : cases) {
        SCOPED_TRACE(one.point);
        char folder[] = "/tmp/mgmtd-crash-XXXXXX";
        ASSERT_NE(mkdtemp(folder), nullptr);
        auto commit_and_die = [&] {
            TestWorld world(folder);
            TestSubscriber subscriber(&world, "d");
            subscriber.add("policy/zone", 1);
            subscriber.done();
            world.edit(R"([{"op":"merge","path":"/policy/zone{a}"}])");
            g_mgmt_crash_point = one.point;
            world.commit(one.is_confirmed ? std::nullopt : std::optional<t_mgmt_confirm>(t_mgmt_confirm()));
        };
        EXPECT_EXIT(commit_and_die(), testing::KilledBySignal(SIGKILL), "");
        TestWorld world(folder);
        EXPECT_EQ(world.running().find("\"a\"") != std::string::npos, one.is_confirmed);
        EXPECT_EQ(world.edit(R"([{"op":"merge","path":"/policy/zone{b}"}])").code, MGMT_OK);
        EXPECT_EQ(world.commit().error.code, MGMT_OK);
        std::filesystem::remove_all(folder);
    }
}

#endif

// ---- Notifications ----

TEST(MgmtNotif, AreLoggedReplayedAndTold)
{
    TestWorld world;
    TestDaemon daemon(&world, "d");
    auto enlist = [&](uint16_t op, const char *name) {
        t_ipc_reg_notif sender = {.name = name, .context = "", .worker_conn_id = daemon.worker.id};
        t_ipc_frame reply = daemon.control.request(op, ipc_encode(sender));
        return reply.status == 0 ? daemon.control.read<t_ipc_count>(reply).count : -reply.status;
    };
    EXPECT_EQ(enlist(IPC_OP_REG_NOTIF_STREAM, "weather"), -CONFD_ERR_NOEXISTS);
    int32_t sender = enlist(IPC_OP_REG_NOTIF_STREAM, "lumora");
    int32_t snmp = enlist(IPC_OP_REG_SNMP, "lumora_snmpv2_trap");
    daemon.ready();
    auto send = [&](uint16_t op, std::vector<uint8_t> body) {
        daemon.worker.send(
            {.op = op, .kind = IPC_KIND_ONEWAY, .id = 0, .status = 0, .body = std::move(body)});
    };
    auto stored_count = [&] { return mgmt_notifications(*world.engine).size(); };
    send(IPC_OP_NOTIF_SEND, ipc_encode(test_association(sender, "old")));
    send(IPC_OP_NOTIF_SEND, ipc_encode(test_association(sender + 100, "no sender")));
    t_ipc_notification unknown = test_association(sender, "unknown");
    unknown.values[0].tag.tag = 1;
    send(IPC_OP_NOTIF_SEND, ipc_encode(unknown));
    ASSERT_TRUE(world.until([&] { return stored_count() == 1; }));
    const t_mgmt_notification &stored = mgmt_notifications(*world.engine)[0];
    EXPECT_EQ(stored.time, "2024-01-15T10:00:00.000005Z");
    EXPECT_NE(stored.json.find(R"("lumora-policy:data-policy-association-status":{)"), std::string::npos);
    EXPECT_NE(stored.json.find(R"("policy-name":"old")"), std::string::npos) << stored.json;

    std::vector<std::string> told;
    t_mgmt_notif_request request;
    request.start_us = 0;
    request.notify = [&](const t_mgmt_notification &one) { told.push_back(one.json); };
    request.ended = [&](e_mgmt_notif_end end) {
        told.push_back(end == MGMT_NOTIF_REPLAYED ? "replayed" : "end");
    };
    mgmt_notif_subscribe(world.engine.get(), world.session, request);
    ASSERT_TRUE(world.until([&] { return told.size() == 2; }));
    send(IPC_OP_NOTIF_SEND, ipc_encode(test_association(sender, "new")));
    ASSERT_TRUE(world.until([&] { return told.size() == 3; }));
    EXPECT_EQ(told[1], "replayed");
    EXPECT_NE(told[2].find("new"), std::string::npos);

    t_ipc_snmp_notification trap = {
        .sender_id = snmp, .notify_name = "group", .notification = "lumoraPolicyX", .varbinds = {}};
    send(IPC_OP_NOTIF_SEND_SNMP, ipc_encode(trap));
    ASSERT_TRUE(world.until([&] { return world.traps.size() == 1; }));
    EXPECT_EQ(world.traps[0].second, "lumoraPolicyX");

    std::string json = mgmt_notifications(*world.engine)[0].json;
    mgmt_session_close(world.engine.get(), world.session);
    send(IPC_OP_NOTIF_SEND, ipc_encode(test_association(sender, "unheard")));
    ASSERT_TRUE(world.until([&] { return stored_count() == 3; }));
    EXPECT_EQ(told.size(), 3u);
    daemon.control.close();
    world.restart();
    ASSERT_EQ(mgmt_notifications(*world.engine).size(), 3u) << "the log outlives the daemon";
    EXPECT_EQ(mgmt_notifications(*world.engine)[0].json, json);
}

// One notification of a daemon, until the engine has it.
static void notify_once(TestWorld *p_world, const std::string &policy)
{
    TestDaemon daemon(p_world, "d");
    t_ipc_reg_notif stream = {.name = "lumora", .context = "", .worker_conn_id = daemon.worker.id};
    t_ipc_frame reply = daemon.control.request(IPC_OP_REG_NOTIF_STREAM, ipc_encode(stream));
    int32_t sender = daemon.control.read<t_ipc_count>(reply).count;
    daemon.ready();
    daemon.worker.send({.op = IPC_OP_NOTIF_SEND,
                        .kind = IPC_KIND_ONEWAY,
                        .id = 0,
                        .status = 0,
                        .body = ipc_encode(test_association(sender, policy))});
    EXPECT_TRUE(p_world->until([&] {
        const auto &stored = mgmt_notifications(*p_world->engine);
        return !stored.empty() && stored.back().json.find(policy) != std::string::npos;
    }));
}

static std::string log_line(int second)
{
    char text[256];
    snprintf(text, sizeof(text),
             "{\"eventTime\":\"2024-01-15T09:00:%02d.000000Z\",\"notification\":"
             "{\"lumora-policy:data-policy-association-status\":{\"policy-name\":\"p%d\"}}}\n",
             second, second);
    return text;
}

TEST(MgmtNotif, TheLogIsBoundedAndOutlivesAKillAndALineThatWasCut)
{
    char folder[] = "/tmp/mgmtd-log-XXXXXX";
    ASSERT_NE(mkdtemp(folder), nullptr);
    std::string path = std::string(folder) + "/notifications.log";
    {
        std::ofstream file(path, std::ios::binary);
        for (int i = 0; i < 10100; i++)
            file << log_line(i < 10090 ? 0 : i - 10040);
        file << log_line(3).substr(0, 100);
    }
    auto notify_and_die = [&] {
        TestWorld world(folder);
        notify_once(&world, "after the cut");
        raise(SIGKILL);
    };
    EXPECT_EXIT(notify_and_die(), testing::KilledBySignal(SIGKILL), "");

    TestWorld world(folder);
    const auto &stored = mgmt_notifications(*world.engine);
    ASSERT_EQ(stored.size(), 10000u);
    EXPECT_NE(stored.back().json.find("after the cut"), std::string::npos);
    std::string told;
    t_mgmt_notif_request request;
    request.start_us = stored[9990].time_us;  // of second 51
    request.stop_us = request.start_us + 2000000;
    EXPECT_EQ(stored[9990].time, "2024-01-15T09:00:51.000000Z");
    request.notify = [&](const t_mgmt_notification &one) { told += one.time.substr(17, 2) + " "; };
    request.ended = [&](e_mgmt_notif_end end) { told += end == MGMT_NOTIF_REPLAYED ? "replayed " : "end"; };
    mgmt_notif_subscribe(world.engine.get(), world.session, request);
    ASSERT_TRUE(world.until([&] { return told.ends_with("end"); }));
    EXPECT_EQ(told, "51 52 53 replayed end");

    std::ofstream(path, std::ios::binary) << std::string((4u << 20) - 50, 'x');
    world.restart();
    notify_once(&world, "begins a new file");
    EXPECT_LT(std::filesystem::file_size(path), 1000u);
    world.restart();
    EXPECT_NE(mgmt_notifications(*world.engine).back().json.find("begins a new file"), std::string::npos);
    std::filesystem::remove_all(folder);
}

TEST(MgmtSession, WorkOfOtherThreadsAndTheClock)
{
    TestWorld world;
    bool has_run = false;
    mgmt_engine_post(world.engine.get(), [&] { has_run = true; });
    EXPECT_TRUE(world.until([&] { return has_run; }));
    std::string order;
    t_mgmt_timers *p_timers = mgmt_engine_timers(world.engine.get());
    t_mgmt_timer early, late, cancelled;
    mgmt_timer_set(p_timers, &late, 20, [&] { order += "late"; });
    mgmt_timer_set(p_timers, &early, 10, [&] { order += "early "; });
    mgmt_timer_set(p_timers, &cancelled, 15, [&] { order += "cancelled "; });
    mgmt_timer_cancel(p_timers, &cancelled);
    world.advance(19);
    EXPECT_EQ(order, "early ");
    world.advance(1);
    EXPECT_EQ(order, "early late");
}
