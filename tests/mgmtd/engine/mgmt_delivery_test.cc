// What subscribers get to know, in which order, and what happens when one does not answer.

#include "tests/mgmtd/test_daemon.h"

#include <algorithm>
#include <gtest/gtest.h>

struct t_entry {
    const char *path;
    int32_t add_priority;
    int32_t del_priority;
};

// Each path twice, as a daemon does that wants creations in one order and deletions in the other.
static constexpr t_entry entries[] = {
    {"policy/lists/data-prefix-list", 1, 6},
    {"/policy/zone", 2, 5},
    {"policy/lists/data-prefix-list/ip-prefix", 3, 4},
    {"policy/zone/vpn", 4, 3},
    {"policy/mirror", 5, 2},
    {"policy/class-map/class", 6, 1},
};

static constexpr const char *fill = R"([{"op":"merge","path":"/policy","value":{
  "lists":{"data-prefix-list":[{"name":"p","ip-prefix":[{"prefix":"10.0.0.0/8"}]}]},
  "zone":[{"name":"z","vpn":[{"vpn-id":1},{"vpn-id":2}]}],
  "mirror":[{"name":"m"}],"class-map":{"class":[{"name":"c","queue":3}]}}}])";

static std::map<int32_t, std::string> subscribe_all(TestSubscriber *p_subscriber)
{
    std::map<int32_t, std::string> names;  // "path+" and "path-" by id
    for (const t_entry &entry : entries) {
        names[p_subscriber->add(entry.path, entry.add_priority)] = std::string(entry.path) + "+";
        names[p_subscriber->add(entry.path, entry.del_priority)] = std::string(entry.path) + "-";
    }
    p_subscriber->done();
    return names;
}

static std::vector<std::string> told(const TestSubscriber &subscriber,
                                     const std::map<int32_t, std::string> &names)
{
    std::vector<std::string> lines;
    for (const TestBatch &batch : subscriber.batches) {
        std::string line = std::to_string(batch.type) + "/" + std::to_string(batch.flags) + ":";
        for (int32_t id : batch.ids)
            line += " " + names.at(id);
        lines.push_back(line);
    }
    return lines;
}

TEST(MgmtDelivery, LevelsComeInAscendingOrderAndDeletionsBelowADeletedEntryDoNot)
{
    TestWorld world;
    TestSubscriber subscriber(&world, "d");
    auto names = subscribe_all(&subscriber);
    ASSERT_EQ(world.edit(fill).code, MGMT_OK);
    t_mgmt_commit_result result = world.commit();
    ASSERT_EQ(result.error.code, MGMT_OK) << mgmt_error_text(result.error);
    EXPECT_TRUE(result.changed && result.warnings.empty());
    EXPECT_EQ(told(subscriber, names), (std::vector<std::string>{
                                           "2/0: policy/lists/data-prefix-list+ policy/class-map/class-",
                                           "2/0: /policy/zone+ policy/mirror-",
                                           "2/0: policy/lists/data-prefix-list/ip-prefix+ policy/zone/vpn-",
                                           "2/0: policy/lists/data-prefix-list/ip-prefix- policy/zone/vpn+",
                                           "2/0: /policy/zone- policy/mirror+",
                                           "2/0: policy/lists/data-prefix-list- policy/class-map/class+",
                                       }));

    subscriber.batches.clear();
    ASSERT_EQ(world
                  .edit(R"([{"op":"delete","path":"/policy/lists/data-prefix-list{p}"},
        {"op":"delete","path":"/policy/zone{z}/vpn{2}"},{"op":"merge","path":"/policy/class-map/class{d}"}])")
                  .code,
              MGMT_OK);
    EXPECT_EQ(world.commit().error.code, MGMT_OK);
    EXPECT_EQ(told(subscriber, names), (std::vector<std::string>{
                                           "2/0: policy/lists/data-prefix-list+ policy/class-map/class-",
                                           "2/0: /policy/zone+",
                                           "2/0: policy/zone/vpn-",
                                           "2/0: policy/zone/vpn+",
                                           "2/0: /policy/zone-",
                                           "2/0: policy/lists/data-prefix-list- policy/class-map/class+",
                                       }));
}

// One subscriber fails at a level; the other hears of all levels all the same, and the next commit works.
TEST(MgmtDelivery, ACommitGoesOnWithoutASubscriberThatDiesOrHangs)
{
    enum e_fault { DIES, HANGS, IS_LATE };
    for (e_fault fault : {DIES, HANGS, IS_LATE}) {
        for (size_t level = 1; level <= 6; level++) {
            SCOPED_TRACE(testing::Message() << "fault " << fault << " at level " << level);
            TestWorld world;
            TestSubscriber bad(&world, "bad");
            TestSubscriber good(&world, "good");
            subscribe_all(&bad);
            subscribe_all(&good);
            bad.on_batch = [&](const TestBatch &) { bad.hold = bad.batches.size() == level; };
            ASSERT_EQ(world.edit(fill).code, MGMT_OK);
            world.commit_start();
            ASSERT_TRUE(world.until([&] { return bad.is_open() && good.batches.size() == level; }));
            world.settle();
            EXPECT_EQ(good.batches.size(), level) << "the next level waits for all";
            EXPECT_FALSE(world.committed.has_value());
            if (fault == DIES)
                bad.link.close();
            world.advance(fault == HANGS ? MGMT_SUBSCRIBER_TIMEOUT_MS : MGMT_SUBSCRIBER_TIMEOUT_MS - 1);
            if (fault == IS_LATE)
                bad.sync();
            ASSERT_TRUE(world.until([&] { return world.committed.has_value(); }));
            EXPECT_EQ(world.committed->error.code, MGMT_OK);
            EXPECT_EQ(world.committed->warnings.size(), fault == IS_LATE ? 0u : 1u);
            EXPECT_EQ(good.batches.size(), 6u);
            EXPECT_TRUE(fault != HANGS || world.until([&] { return bad.link.is_closed; }));
            ASSERT_EQ(world.edit(R"([{"op":"delete","path":"/policy/zone{z}"}])").code, MGMT_OK);
            EXPECT_EQ(world.commit().error.code, MGMT_OK);
        }
    }
}

TEST(MgmtDelivery, ATriggerTellsEveryGivenIdAndNoOther)
{
    TestWorld world;
    ASSERT_EQ(world.edit(fill).code, MGMT_OK);
    ASSERT_EQ(world.commit().error.code, MGMT_OK);
    TestSubscriber subscriber(&world, "d");
    TestLink data(&world, IPC_CONN_CDB_DATA, "d");
    TestLink other(&world, IPC_CONN_CDB_DATA, "other");
    int32_t empty = subscriber.add("policy/zone-pair", 3);
    int32_t zone = subscriber.add("policy/zone", 3);
    int32_t later = subscriber.add("policy/policer", 9);
    int32_t unasked = subscriber.add("policy/mirror", 1);
    t_ipc_trigger trigger = {.ids = {later, zone, empty}, .flags = 0};
    EXPECT_EQ(data.request(IPC_OP_CDB_TRIGGER, ipc_encode(trigger)).status, CONFD_ERR_NOEXISTS)
        << "nothing is told before the end of subscribing";
    subscriber.done();
    EXPECT_EQ(other.request(IPC_OP_CDB_TRIGGER, ipc_encode(trigger)).status, CONFD_ERR_NOEXISTS);

    subscriber.hold = true;
    uint32_t request = data.start(IPC_OP_CDB_TRIGGER, ipc_encode(trigger));
    ASSERT_TRUE(world.until([&] { return subscriber.is_open(); }));
    EXPECT_EQ(subscriber.batches[0].flags, CDB_SUB_FLAG_TRIGGER);
    EXPECT_EQ(subscriber.batches[0].type, CDB_SUB_COMMIT);
    EXPECT_EQ(subscriber.batches[0].ids, (std::vector<int32_t>{zone, empty}));
    auto page = subscriber.link.read<t_ipc_diff_page>(
        subscriber.link.request(IPC_OP_SUB_DIFF, ipc_encode(t_ipc_diff_request{zone, {}, 0})));
    ASSERT_EQ(page.entries.size(), 1u);
    EXPECT_EQ(page.entries[0].op, MOP_CREATED);
    subscriber.sync();
    ASSERT_TRUE(world.until([&] { return subscriber.is_open(); }));
    EXPECT_EQ(subscriber.batches[1].ids, std::vector<int32_t>{later});
    world.settle();
    EXPECT_FALSE(data.reply_to(request).has_value()) << "the trigger ends with the last acknowledgement";
    subscriber.sync();
    std::optional<t_ipc_frame> reply;
    ASSERT_TRUE(world.until([&] { return (reply = data.reply_to(request)).has_value(); }));
    EXPECT_EQ(reply->status, 0);
    EXPECT_EQ(subscriber.batches.size(), 2u);
    static_cast<void>(unasked);
}

TEST(MgmtDelivery, PagesGiveEveryReportOnceAndAnIteratorMayGoInto)
{
    TestWorld world;
    TestSubscriber subscriber(&world, "d");
    int32_t id = subscriber.add("policy/zone", 1);
    subscriber.done();
    std::string zones;
    for (int i = 0; i < 4000; i++)
        zones += (i > 0 ? "," : "") + ("{\"name\":\"zone-" + std::to_string(10000 + i)) +
                 "\",\"vpn\":[{\"vpn-id\":7}]}";
    ASSERT_EQ(world.edit(R"([{"op":"merge","path":"/policy/zone","value":[)" + zones + "]}]").code, MGMT_OK);
    subscriber.hold = true;
    world.commit_start();
    ASSERT_TRUE(world.until([&] { return subscriber.is_open(); }));
    size_t pages = 0;
    std::set<std::string> seen;
    t_ipc_diff_request request = {.id = id, .parent = {}, .cursor = 0};
    t_ipc_diff_page page;
    do {
        page = subscriber.link.read<t_ipc_diff_page>(
            subscriber.link.request(IPC_OP_SUB_DIFF, ipc_encode(request)));
        for (const t_ipc_diff_entry &entry : page.entries) {
            const confd_value_t &key = entry.keypath.steps[0][0].v;
            seen.emplace(reinterpret_cast<const char *>(key.val.buf.ptr), key.val.buf.size);
        }
        request.cursor = page.next;
        pages++;
    } while (page.next != 0);
    EXPECT_EQ(seen.size(), 4000u);
    EXPECT_GT(pages, 1u);
    request.parent = page.entries.back().keypath;
    page =
        subscriber.link.read<t_ipc_diff_page>(subscriber.link.request(IPC_OP_SUB_DIFF, ipc_encode(request)));
    EXPECT_EQ(page.entries.size(), 2u) << "the key and the entry below";
    // The configuration before the commit is readable now, and only now.
    TestLink data(&world, IPC_CONN_CDB_DATA, "d");
    auto start = ipc_encode(t_ipc_start_session{CDB_PRE_COMMIT_RUNNING, 0});
    EXPECT_EQ(data.request(IPC_OP_CDB_START_SESSION, start).status, 0);
    auto count = data.read<t_ipc_count>(
        data.request(IPC_OP_CDB_NUM_INSTANCES, ipc_encode(t_ipc_path{"/lumora-policy:policy/zone"})));
    EXPECT_EQ(count.count, 0);
    subscriber.sync();
    ASSERT_TRUE(world.until([&] { return world.committed.has_value(); }));
    EXPECT_EQ(data.request(IPC_OP_CDB_START_SESSION, start).status, CONFD_ERR_NOEXISTS);
}

TEST(MgmtDelivery, ARefusedPrepareLeavesRunningAloneAndTellsThoseThatAgreed)
{
    TestWorld world;
    TestSubscriber first(&world, "first");
    TestSubscriber second(&world, "second");
    TestSubscriber plain(&world, "plain");
    first.add("policy/zone", 1, CDB_SUB_RUNNING_TWOPHASE);
    second.add("policy/zone", 2, CDB_SUB_RUNNING_TWOPHASE);
    plain.add("policy/zone", 1);
    for (TestSubscriber *p_subscriber : {&first, &second, &plain})
        p_subscriber->done();
    second.hold = true;
    ASSERT_EQ(world.edit(R"([{"op":"merge","path":"/policy/zone{a}"}])").code, MGMT_OK);
    world.commit_start();
    ASSERT_TRUE(world.until([&] { return second.is_open(); }));
    second.hold = false;
    second.refuse("no zones today");
    ASSERT_TRUE(world.until([&] { return world.committed.has_value(); }));
    EXPECT_NE(world.committed->error.reason.find("no zones today"), std::string::npos);
    EXPECT_EQ(world.running(), "{}");
    ASSERT_EQ(first.batches.size(), 2u);
    EXPECT_EQ(first.batches[0].type, CDB_SUB_PREPARE);
    EXPECT_EQ(first.batches[1].type, CDB_SUB_ABORT);
    EXPECT_EQ(second.batches.size(), 1u);
    EXPECT_TRUE(plain.batches.empty());

    EXPECT_EQ(world.commit().error.code, MGMT_OK);
    ASSERT_EQ(second.batches.size(), 3u);
    EXPECT_EQ(second.batches[1].type, CDB_SUB_PREPARE);
    EXPECT_EQ(second.batches[2].type, CDB_SUB_COMMIT);
    EXPECT_EQ(plain.batches.size(), 1u);
}

TEST(MgmtDelivery, OperationalWritesAreToldOneByOneAndServedDuringABatch)
{
    static constexpr uint32_t notify = CDB_LOCK_REQUEST | CDB_LOCK_WAIT;
    TestWorld world;
    TestSubscriber subscriber(&world, "d");
    int32_t mask = subscriber.add("/lconfd-initial-read-priority", 0, CDB_SUB_OPERATIONAL);
    subscriber.add("policy/zone", 1);
    subscriber.done();
    TestLink quiet(&world, IPC_CONN_CDB_DATA, "other");
    TestLink loud(&world, IPC_CONN_CDB_DATA, "other");
    TestLink loud2(&world, IPC_CONN_CDB_DATA, "other");
    quiet.request(IPC_OP_CDB_START_SESSION, ipc_encode(t_ipc_start_session{CDB_OPERATIONAL, 0}));
    loud.request(IPC_OP_CDB_START_SESSION, ipc_encode(t_ipc_start_session{CDB_OPERATIONAL, notify}));
    loud2.request(IPC_OP_CDB_START_SESSION, ipc_encode(t_ipc_start_session{CDB_OPERATIONAL, notify}));
    confd_value_t value = {.type = C_BIT32, .val = {}};
    auto set = [&](uint32_t bits) {
        value.val.b32 = bits;
        return ipc_encode(t_ipc_set_elem{"/lconfd-initial-read-priority", IpcValue(value)});
    };
    auto get = [&](TestLink *p_link) {
        t_ipc_frame reply =
            p_link->request(IPC_OP_CDB_GET, ipc_encode(t_ipc_path{"/lconfd-initial-read-priority"}));
        return p_link->read<t_ipc_value_reply>(reply).value.v.val.b32;
    };
    EXPECT_EQ(get(&quiet), 7u) << "supplied at the start";

    subscriber.hold = true;
    EXPECT_EQ(world.edit(R"([{"op":"merge","path":"/policy/zone{a}"}])").code, MGMT_OK);
    world.commit_start();
    ASSERT_TRUE(world.until([&] { return subscriber.is_open(); }));
    EXPECT_EQ(quiet.request(IPC_OP_CDB_SET_ELEM, set(1)).status, 0) << "nobody is told";
    EXPECT_EQ(loud.request(IPC_OP_CDB_SET_ELEM, set(3)).status, 0) << "told after the commit's batch";
    uint32_t waiting = loud2.start(IPC_OP_CDB_SET_ELEM, set(7));
    world.settle();
    EXPECT_FALSE(loud2.reply_to(waiting).has_value());
    EXPECT_EQ(get(&quiet), 3u) << "reads never wait";
    EXPECT_EQ(subscriber.batches.size(), 1u);

    subscriber.sync();
    ASSERT_TRUE(world.until([&] { return subscriber.batches.size() == 2; }));
    EXPECT_EQ(subscriber.batches[1].type, CDB_SUB_OPER);
    EXPECT_EQ(subscriber.batches[1].ids, std::vector<int32_t>{mask});
    world.settle();
    EXPECT_FALSE(loud2.reply_to(waiting).has_value());
    subscriber.sync();
    ASSERT_TRUE(world.until([&] { return loud2.reply_to(waiting).has_value(); }));
    ASSERT_TRUE(world.until([&] { return subscriber.batches.size() == 3; }));
    subscriber.sync();
    EXPECT_EQ(get(&quiet), 7u);
}
