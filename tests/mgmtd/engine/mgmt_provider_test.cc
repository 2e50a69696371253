// Hooks, rows of providers, actions: what daemons are asked for, and what their silence costs.

#include "tests/mgmtd/test_daemon.h"

#include "generated/lumora_schema.h"

#include <gtest/gtest.h>
#include <libyang/libyang.h>

// ---- Hooks ----

static constexpr const char *zone_pair = R"([{"op":"merge","path":"/policy/zone{a}"},
  {"op":"merge","path":"/policy/zone-based-policy{p}","value":{"default-action":"drop"}},
  {"op":"merge","path":"/policy/zone-pair{%}","value":{"source-zone":"a","destination-zone":"a","zone-policy":"p"@}}])";

static std::string zone_pair_text(const std::string &name, const std::string &more = "")
{
    std::string text = zone_pair;
    text.replace(text.find('%'), 1, name);
    text.replace(text.find('@'), 1, more);
    return text;
}

static confd_value_t number(uint32_t value)
{
    confd_value_t made = {.type = C_UINT32, .val = {}};
    made.val.u32 = value;
    return made;
}

// Gives a new pair its number, as a daemon does: in the operator's transaction, while the call is open.
static void serve_pair(TestDaemon *p_daemon, const t_ipc_frame &frame, uint32_t pair_id)
{
    auto call = p_daemon->worker.read<t_ipc_dp_object>(frame);
    ASSERT_EQ(call.keypath.steps.size(), 3u);
    const confd_value_t &key = call.keypath.steps[0][0].v;
    std::string name(reinterpret_cast<const char *>(key.val.buf.ptr), key.val.buf.size);
    TestLink &maapi = p_daemon->maapi;
    t_ipc_attach attach = {.ns = 0, .usid = 0, .thandle = call.thandle};
    EXPECT_EQ(maapi.request(IPC_OP_MAAPI_ATTACH, ipc_encode(attach)).status, 0);
    t_ipc_maapi_set set = {.thandle = call.thandle,
                           .path = "/lumora-policy:policy/zone-pair{" + name + "}/pair-id",
                           .value = IpcValue(number(pair_id))};
    EXPECT_EQ(maapi.request(IPC_OP_MAAPI_SET_ELEM, ipc_encode(set)).status, 0);
    // What the edit has made so far can be read.
    t_ipc_maapi_path path = {.thandle = call.thandle, .path = set.path};
    auto value = maapi.read<t_ipc_value_reply>(maapi.request(IPC_OP_MAAPI_GET_ELEM, ipc_encode(path)));
    EXPECT_TRUE(value.value == set.value);
    t_ipc_maapi_next next = {.thandle = call.thandle, .path = "/policy/zone", .keys = {}};
    auto keys = maapi.read<t_ipc_keys>(maapi.request(IPC_OP_MAAPI_NEXT_KEY, ipc_encode(next)));
    EXPECT_TRUE(keys.keys == std::vector<IpcValue>{IpcValue::text("a")});
    next.keys = keys.keys;
    keys = maapi.read<t_ipc_keys>(maapi.request(IPC_OP_MAAPI_NEXT_KEY, ipc_encode(next)));
    EXPECT_TRUE(keys.keys.empty());
    EXPECT_EQ(maapi.request(IPC_OP_MAAPI_DETACH, ipc_encode(t_ipc_thandle{call.thandle})).status, 0);
    EXPECT_NE(maapi.request(IPC_OP_MAAPI_SET_ELEM, ipc_encode(set)).status, 0) << "detached";
    p_daemon->answer(frame, {});
}

TEST(MgmtHook, TheDaemonNumbersAPairUnlessTheEditDoes)
{
    TestWorld world;
    TestDaemon daemon(&world, "d");
    daemon.add(IPC_OP_REG_DATA, "zone-pair-id-cp", IPC_CALL_CREATE);
    EXPECT_EQ(daemon.control.request(IPC_OP_REG_DATA, ipc_encode(t_ipc_reg_point{"no-such", 1})).status,
              CONFD_ERR_NOEXISTS);
    daemon.ready();
    daemon.serve = [&](const t_ipc_frame &frame) { serve_pair(&daemon, frame, 41); };
    EXPECT_EQ(world.edit(zone_pair_text("one")).code, MGMT_OK);
    EXPECT_EQ(world.edit(zone_pair_text("two", ",\"pair-id\":9")).code, MGMT_OK);
    EXPECT_EQ(world.edit(zone_pair_text("one")).code, MGMT_OK) << "it exists: no hook";
    EXPECT_EQ(daemon.requests.size(), 2u);
    t_mgmt_commit_result result = world.commit();
    EXPECT_EQ(result.error.code, MGMT_OK) << mgmt_error_text(result.error);
    EXPECT_NE(world.running().find("\"pair-id\":41"), std::string::npos) << world.running();
    EXPECT_NE(world.running().find("\"pair-id\":9"), std::string::npos);
    EXPECT_EQ(daemon.inits, 2u);
    EXPECT_TRUE(world.until([&] { return daemon.finishes == 2; })) << "each transaction is finished";
}

// The hook of a subtree is called for entries and empty leaves in it; it sets texts.
TEST(MgmtHook, ASequenceGetsItsCounter)
{
    TestWorld world;
    TestDaemon daemon(&world, "d");
    daemon.add(IPC_OP_REG_DATA, "zone-policy-seq-cp", IPC_CALL_CREATE);
    daemon.ready();
    std::vector<uint32_t> called;
    daemon.serve = [&](const t_ipc_frame &frame) {
        auto call = daemon.worker.read<t_ipc_dp_object>(frame);
        const std::vector<std::vector<IpcValue>> &steps = call.keypath.steps;
        called.push_back((steps[0][0].v.type == C_XMLTAG ? steps[0] : steps[1])[0].v.val.xmltag.tag);
        if (called.back() == LUMORA_TAG_SEQUENCE) {
            t_ipc_attach attach = {.ns = 0, .usid = 0, .thandle = call.thandle};
            t_ipc_maapi_set_text set = {
                .thandle = call.thandle,
                .path = "/lumora-policy:policy/zone-based-policy{p}/sequence{10}/action/count",
                .text = "p_10"};
            EXPECT_EQ(daemon.maapi.request(IPC_OP_MAAPI_ATTACH, ipc_encode(attach)).status, 0);
            EXPECT_EQ(daemon.maapi.request(IPC_OP_MAAPI_SET_ELEM2, ipc_encode(set)).status, 0);
        }
        daemon.answer(frame, {});
    };
    t_mgmt_error error = world.edit(R"([{"op":"merge","path":"/policy/zone-based-policy{p}/sequence{10}",
        "value":{"action":{"base-action":"accept","log":[null]}}},
        {"op":"merge","path":"/policy/zone-based-policy{p}/default-action","value":"drop"}])");
    EXPECT_EQ(error.code, MGMT_OK) << mgmt_error_text(error);
    EXPECT_EQ(called, (std::vector<uint32_t>{LUMORA_TAG_SEQUENCE, LUMORA_TAG_LOG}));
    t_mgmt_commit_result result = world.commit();
    EXPECT_EQ(result.error.code, MGMT_OK) << mgmt_error_text(result.error);
    EXPECT_NE(world.running().find("\"count\":\"p_10\""), std::string::npos) << world.running();
}

TEST(MgmtHook, AnEditIsRefusedWithTheCallpointsName)
{
    enum e_fault { NOT_THERE, FAILS, SILENT, DIES };
    for (e_fault fault : {NOT_THERE, FAILS, SILENT, DIES}) {
        SCOPED_TRACE(fault);
        TestWorld world;
        std::optional<TestDaemon> daemon;
        if (fault != NOT_THERE) {
            daemon.emplace(&world, "d");
            daemon->add(IPC_OP_REG_DATA, "zone-pair-id-cp", IPC_CALL_CREATE);
            daemon->ready();
        }
        t_mgmt_error error;
        bool is_done = false;
        std::vector<t_mgmt_edit> edits;
        ASSERT_TRUE(
            mgmt_edit_read_json(mgmt_engine_schema(*world.engine), zone_pair_text("x"), &edits, &error));
        mgmt_edit(world.engine.get(), world.session, edits, [&](const t_mgmt_error &result) {
            error = result;
            is_done = true;
        });
        if (daemon) {
            ASSERT_TRUE(world.until([&] { return !daemon->requests.empty(); }));
            EXPECT_EQ(mgmt_lock(world.engine.get(), world.session + 1, MGMT_DS_CANDIDATE, &error), false)
                << "while a hook is open nobody else writes";
        }
        if (fault == FAILS)
            daemon->fail(daemon->requests[0], "table full");
        if (fault == DIES)
            daemon->worker.close();
        if (fault == SILENT) {
            world.advance(MGMT_PROVIDER_TIMEOUT_MS - 1);
            EXPECT_FALSE(is_done);
            world.advance(1);
        }
        ASSERT_TRUE(world.until([&] { return is_done; }));
        EXPECT_EQ(error.code, MGMT_ERR_EXTERNAL);
        EXPECT_EQ(error.path, "/policy/zone-pair{x}");
        EXPECT_NE(error.reason.find("zone-pair-id-cp"), std::string::npos) << error.reason;
        EXPECT_EQ(mgmt_compare(world.engine.get()), "") << "nothing of a refused edit stays";
        EXPECT_EQ(world.edit(R"([{"op":"merge","path":"/policy/zone{b}"}])").code, MGMT_OK);
    }
}

// A transaction that its daemon opens only when nobody waits for it any more is finished all the same.
TEST(MgmtHook, AnInitThatIsAnsweredTooLateIsFinished)
{
    TestWorld world;
    TestDaemon daemon(&world, "d");
    daemon.add(IPC_OP_REG_DATA, "zone-pair-id-cp", IPC_CALL_CREATE);
    daemon.ready();
    std::optional<t_ipc_frame> init;
    auto normal = std::exchange(daemon.control.take, [&](const t_ipc_frame &frame) { init = frame; });
    daemon.serve = [&](const t_ipc_frame &frame) { serve_pair(&daemon, frame, 41); };
    std::optional<t_mgmt_error> error;
    std::vector<t_mgmt_edit> edits;
    t_mgmt_error ignored;
    ASSERT_TRUE(
        mgmt_edit_read_json(mgmt_engine_schema(*world.engine), zone_pair_text("x"), &edits, &ignored));
    mgmt_edit(world.engine.get(), world.session, edits, [&](const t_mgmt_error &result) { error = result; });
    ASSERT_TRUE(world.until([&] { return init.has_value(); }));
    std::vector<t_mgmt_daemon_info> daemons = mgmt_daemons(*world.engine);
    ASSERT_EQ(daemons.size(), 1u);
    EXPECT_TRUE(daemons[0].name == "d" && daemons[0].is_ready && daemons[0].is_asked && !daemons[0].is_told);
    EXPECT_EQ(daemons[0].points, 1u);
    world.advance(MGMT_PROVIDER_TIMEOUT_MS);
    ASSERT_TRUE(world.until([&] { return error.has_value(); }));
    EXPECT_EQ(error->code, MGMT_ERR_EXTERNAL);
    daemon.control.take = normal;
    normal(*init);
    EXPECT_TRUE(world.until([&] { return daemon.finishes == 1; }));
    EXPECT_TRUE(daemon.requests.empty()) << "its hook is not called any more";
    EXPECT_EQ(world.edit(zone_pair_text("x")).code, MGMT_OK) << "the daemon is asked again";
}

// ---- Validation points ----

// The product's model has none.
static bool store_test_load(ly_ctx *p_context, std::string *p_error)
{
    ly_ctx_set_searchdir(p_context, STORE_TEST_FOLDER);
    *p_error = "store-test.yang can't be loaded";
    return ly_ctx_load_module(p_context, "store-test", nullptr, nullptr) != nullptr;
}

static const bool is_set = (TestWorld::load_more = store_test_load, true);

TEST(MgmtValidation, ACommitIsAskedForAndReadByItsPoint)
{
    enum e_answer { NOT_THERE, ACCEPTS, REFUSES, SILENT, DIES };
    for (e_answer answer : {NOT_THERE, ACCEPTS, REFUSES, SILENT, DIES}) {
        SCOPED_TRACE(answer);
        TestWorld world;
        TestDaemon daemon(&world, "d");
        if (answer != NOT_THERE) {
            t_ipc_reg_calls calls = {IPC_CALL_INIT | IPC_CALL_FINISH};
            EXPECT_EQ(daemon.control.request(IPC_OP_REG_VALIDATE, ipc_encode(calls)).status, 0);
            daemon.add(IPC_OP_REG_VALPOINT, "watched-vp", IPC_CALL_VALIDATE);
        }
        daemon.ready();
        daemon.serve = [&](const t_ipc_frame &frame) {
            auto call = daemon.worker.read<t_ipc_dp_validate>(frame);
            EXPECT_TRUE(call.value == IpcValue(number(5)));
            t_ipc_attach attach = {.ns = 0, .usid = 0, .thandle = call.thandle};
            EXPECT_EQ(daemon.maapi.request(IPC_OP_MAAPI_ATTACH, ipc_encode(attach)).status, 0);
            t_ipc_maapi_path path = {.thandle = call.thandle, .path = "/store-test/watched"};
            auto value = daemon.maapi.read<t_ipc_value_reply>(
                daemon.maapi.request(IPC_OP_MAAPI_GET_ELEM, ipc_encode(path)));
            EXPECT_TRUE(value.value == call.value) << "the new configuration is read";
            if (answer == ACCEPTS)
                daemon.answer(frame, {});
            if (answer == REFUSES)
                daemon.fail(frame, "not five");
            if (answer == DIES)
                daemon.worker.close();
        };
        ASSERT_EQ(world.edit(R"([{"op":"merge","path":"/store-test/watched","value":5}])").code, MGMT_OK);
        world.commit_start();
        if (answer == SILENT) {
            ASSERT_TRUE(world.until([&] { return !daemon.requests.empty(); }));
            world.advance(MGMT_PROVIDER_TIMEOUT_MS);
        }
        ASSERT_TRUE(world.until([&] { return world.committed.has_value(); }));
        const t_mgmt_error &error = world.committed->error;
        EXPECT_EQ(error.code, answer == ACCEPTS ? MGMT_OK : MGMT_ERR_EXTERNAL) << mgmt_error_text(error);
        EXPECT_EQ(error.path, answer == ACCEPTS ? "" : "/store-test/watched");
        EXPECT_EQ(error.reason.starts_with("watched-vp: "), answer != ACCEPTS) << error.reason;
        EXPECT_EQ(world.running() == "{}", answer != ACCEPTS);
        EXPECT_EQ(world.edit(R"([{"op":"merge","path":"/policy/zone{b}"}])").code, MGMT_OK);
        // Nothing of what is watched is changed by the next one.
        EXPECT_EQ(world.edit(R"([{"op":"remove","path":"/store-test/watched"}])").code, MGMT_OK);
        EXPECT_EQ(world.commit().error.code, MGMT_OK);
    }
}

// ---- Rows ----

// Policies with VPN lists below them, in memory; a row may vanish when the one before has been given.
struct t_rows {
    TestDaemon *p_daemon;
    std::map<std::string, std::set<std::string>> policies;
    std::string vanishes;  // with the first row that is given after another
    std::vector<uint16_t> ops;
};

static std::string key_text(const std::vector<IpcValue> &keys)
{
    const confd_value_t &key = keys.at(0).v;
    return std::string(reinterpret_cast<const char *>(key.val.buf.ptr), key.val.buf.size);
}

static t_ipc_dp_data row(const std::string &name)
{
    t_ipc_dp_data data = {.what = IPC_DATA_OBJECT, .values = {}, .keys = {}, .next = -1};
    data.values.push_back({.tag = {LUMORA_TAG_NAME, 0}, .value = IpcValue::text(name)});
    return data;
}

template <typename Container>
static t_ipc_dp_data row_after(const Container &rows, const std::vector<IpcValue> *p_keys)
{
    auto next = rows.begin();
    if (p_keys != nullptr && !p_keys->empty())
        next = rows.upper_bound(key_text(*p_keys));
    if (next == rows.end())
        return {.what = IPC_DATA_END, .values = {}, .keys = {}, .next = -1};
    if constexpr (std::is_same_v<Container, std::set<std::string>>)
        return row(*next);
    else
        return row(next->first);
}

static void serve_rows(t_rows *p_rows, const t_ipc_frame &frame)
{
    TestLink &worker = p_rows->p_daemon->worker;
    p_rows->ops.push_back(frame.op);
    const std::vector<IpcValue> *p_keys = nullptr;
    t_ipc_dp_find_next find;
    t_ipc_dp_data answer = {.what = IPC_DATA_NOT_FOUND, .values = {}, .keys = {}, .next = -1};
    if (frame.op == IPC_OP_DP_GET_OBJECT) {
        auto object = worker.read<t_ipc_dp_object>(frame);
        std::string name = key_text(object.keypath.steps[0]);
        if (object.point == "data-policy-filters" && p_rows->policies.contains(name))
            answer = row(name);
        p_rows->p_daemon->answer(frame, ipc_encode(answer));
        return;
    }
    if (frame.op == IPC_OP_DP_FIND_NEXT_OBJECT) {
        find = worker.read<t_ipc_dp_find_next>(frame);
        EXPECT_EQ(find.keys.size(), 1u);
        p_keys = &find.keys;
    } else {
        auto next = worker.read<t_ipc_dp_next>(frame);
        find.point = next.point;
        find.keypath = next.keypath;
        EXPECT_EQ(next.next, -1);
    }
    if (find.point == "data-policy-filters")
        answer = row_after(p_rows->policies, p_keys);
    else if (find.point == "data-policy-vpnlist" &&
             p_rows->policies.contains(key_text(find.keypath.steps.at(1))))
        answer = row_after(p_rows->policies[key_text(find.keypath.steps.at(1))], p_keys);
    p_rows->policies.erase(p_rows->vanishes);
    p_rows->p_daemon->answer(frame, ipc_encode(answer));
}

static void rows_start(TestDaemon *p_daemon, t_rows *p_rows)
{
    static constexpr uint32_t calls =
        IPC_CALL_GET_OBJECT | IPC_CALL_GET_NEXT_OBJECT | IPC_CALL_FIND_NEXT_OBJECT;
    for (const char *point : {"data-policy-filters", "data-policy-vpnlist", "data-policy-counters"})
        p_daemon->add(IPC_OP_REG_DATA, point, calls);
    p_daemon->add(IPC_OP_REG_DATA, "filter-memory-usage", calls);
    p_daemon->ready();
    p_daemon->serve = [p_rows](const t_ipc_frame &frame) { serve_rows(p_rows, frame); };
}

static std::string json_of(const t_mgmt_get_result &result)
{
    std::string text;
    if (result.tree != nullptr)
        mgmt_tree_print(*result.tree, nullptr, 0, &text);
    return text;
}

// Where the lists of a policy stand, in the model.
static std::string path_of(const TestWorld &world, std::string_view callpoint)
{
    for (const auto &node : mgmt_engine_schema(*world.engine).nodes)
        if (node->callpoint == callpoint)
            return node->path;
    return "";
}

TEST(MgmtRows, AWalkGoesOnFromTheLastKeysAndIntoRows)
{
    TestWorld world;
    TestDaemon daemon(&world, "d");
    t_rows rows = {&daemon, {{"a", {"x", "y"}}, {"b", {}}, {"c", {"z"}}}, "", {}};
    rows_start(&daemon, &rows);
    std::string path = path_of(world, "data-policy-filters");
    t_mgmt_get_result result = world.get({path});
    EXPECT_EQ(result.error.code, MGMT_OK) << mgmt_error_text(result.error);
    std::string json = json_of(result);
    EXPECT_NE(json.find(R"([{"name":"a","data-policy-vpnlist":[{"name":"x"},{"name":"y"}]},{"name":"b"},)"
                        R"({"name":"c","data-policy-vpnlist":[{"name":"z"}]}])"),
              std::string::npos)
        << json;
    EXPECT_EQ(rows.ops[0], IPC_OP_DP_GET_NEXT_OBJECT);

    // "b" goes while "a" is told: the walk goes on with "c".
    rows.vanishes = "b";
    json = json_of(world.get({path}));
    EXPECT_EQ(json.find("\"b\""), std::string::npos);
    EXPECT_NE(json.find("\"c\""), std::string::npos);

    rows.ops.clear();
    EXPECT_NE(json_of(world.get({path + "{c}"})).find("\"z\""), std::string::npos);
    EXPECT_EQ(rows.ops[0], IPC_OP_DP_GET_OBJECT) << "one row is asked for by its key";
    EXPECT_EQ(json_of(world.get({path + "{nobody}"})), "{}");
}

TEST(MgmtRows, OneAnswerCountsAndAListWithoutKeysIsNotAskedAgain)
{
    TestWorld world;
    TestDaemon daemon(&world, "d");
    t_rows rows = {&daemon, {}, "", {}};
    rows_start(&daemon, &rows);
    daemon.serve = [&](const t_ipc_frame &frame) {
        t_ipc_dp_data data = {.what = IPC_DATA_OBJECT, .values = {}, .keys = {}, .next = -1};
        data.values.push_back({.tag = {LUMORA_TAG_FILTERS_IN_USE, 0}, .value = IpcValue(number(5))});
        daemon.answer(frame, ipc_encode(data));
        daemon.answer(frame,
                      ipc_encode(t_ipc_dp_data{.what = IPC_DATA_END, .values = {}, .keys = {}, .next = -1}));
    };
    t_mgmt_get_result result = world.get({path_of(world, "filter-memory-usage")});
    EXPECT_NE(json_of(result).find("\"filters-in-use\":5"), std::string::npos) << json_of(result);
    EXPECT_EQ(daemon.requests.size(), 1u);
    EXPECT_FALSE(daemon.worker.is_closed);
}

TEST(MgmtRows, ASilentOrMissingProviderCostsItsRowsOnly)
{
    TestWorld world;
    std::string path = path_of(world, "data-policy-filters");
    t_mgmt_get_result result = world.get({});
    EXPECT_EQ(result.error.code, MGMT_OK);
    EXPECT_FALSE(result.warnings.empty());
    EXPECT_NE(json_of(result).find("lconfd-initial-read-priority"), std::string::npos);
    result = world.get({path});
    EXPECT_EQ(result.error.code, MGMT_ERR_EXTERNAL);
    EXPECT_NE(result.error.reason.find("data-policy-filters"), std::string::npos);

    TestDaemon daemon(&world, "d");
    t_rows rows = {&daemon, {{"a", {}}}, "", {}};
    rows_start(&daemon, &rows);
    auto normal = std::exchange(daemon.serve, nullptr);
    t_mgmt_get_request request;
    std::optional<t_mgmt_get_result> late;
    request.done = [&](t_mgmt_get_result got) { late = std::move(got); };
    mgmt_get(world.engine.get(), world.session, std::move(request));
    ASSERT_TRUE(world.until([&] { return !daemon.requests.empty(); }));
    world.advance(MGMT_PROVIDER_TIMEOUT_MS);
    ASSERT_TRUE(world.until([&] { return late.has_value(); })) << "its other lists are not waited for";
    EXPECT_EQ(late->error.code, MGMT_OK);
    EXPECT_NE(json_of(*late).find("lconfd-initial-read-priority"), std::string::npos);

    // The late answer frees the daemon for the next request.
    daemon.serve = normal;
    daemon.serve(daemon.requests[0]);
    EXPECT_NE(json_of(world.get({path})).find("\"a\""), std::string::npos);
}

TEST(MgmtRows, ADaemonIsAskedOneThingAtATime)
{
    TestWorld world;
    TestDaemon daemon(&world, "d");
    t_rows rows = {&daemon, {{"a", {}}}, "", {}};
    rows_start(&daemon, &rows);
    auto normal = std::exchange(daemon.serve, nullptr);
    size_t ended = 0;
    for (int i = 0; i < 3; i++) {
        t_mgmt_get_request request;
        request.done = [&](const t_mgmt_get_result &) { ended++; };
        mgmt_get(world.engine.get(), world.session, std::move(request));
    }
    ASSERT_TRUE(world.until([&] { return !daemon.requests.empty(); }));
    world.settle();
    EXPECT_EQ(daemon.requests.size(), 1u);
    daemon.serve = normal;
    daemon.serve(daemon.requests[0]);
    EXPECT_TRUE(world.until([&] { return ended == 3; }));
}

// ---- Actions ----

struct t_called {
    std::optional<t_mgmt_action_result> result;
    std::string output;
};

static void call(TestWorld *p_world, const char *rpc, std::vector<t_mgmt_action_value> input,
                 t_called *p_called)
{
    t_mgmt_action_request request;
    request.p_rpc = schema_find(mgmt_engine_schema(*p_world->engine), rpc);
    ASSERT_NE(request.p_rpc, nullptr);
    request.input = std::move(input);
    request.output = [p_called](std::string_view text) { p_called->output += text; };
    request.done = [p_called](const t_mgmt_action_result &result) { p_called->result = result; };
    mgmt_action(p_world->engine.get(), p_world->session, std::move(request));
}

static void print(TestLink *p_link, uint32_t usid, const std::string &text)
{
    p_link->send({.op = IPC_OP_MAAPI_CLI_WRITE,
                  .kind = IPC_KIND_ONEWAY,
                  .id = 0,
                  .status = 0,
                  .body = ipc_encode(t_ipc_cli_write{usid, text})});
}

TEST(MgmtAction, ACommandEndsWithItsLastLineEvenIfTheReplyIsFaster)
{
    TestWorld world;
    TestDaemon daemon(&world, "d");
    daemon.add(IPC_OP_REG_ACTION, "tarn_dump_policy", IPC_CALL_INIT | IPC_CALL_COMMAND);
    daemon.ready();
    t_called called;
    std::string expected;
    for (int i = 0; i < 10000; i++)
        expected += "line " + std::to_string(i) + " of what a policy is made of\n";
    daemon.serve = [&](const t_ipc_frame &frame) {
        auto command = daemon.worker.read<t_ipc_dp_command>(frame);
        EXPECT_EQ(command.argv, std::vector<std::string>{"tarn-dump-policy"});
        size_t half = expected.find("line 5000 ");
        print(&daemon.maapi, command.user.usid, expected.substr(0, half));
        daemon.answer(frame,
                      ipc_encode(t_ipc_dp_action_reply{.results = {}, .printed_bytes = expected.size()}));
        world.settle();
        EXPECT_FALSE(called.result.has_value()) << "half of the output is still to come";
        for (size_t start = half; start < expected.size();) {
            size_t end = expected.find('\n', start) + 1;
            print(&daemon.maapi, command.user.usid, expected.substr(start, end - start));
            start = end;
        }
    };
    call(&world, "/tarn-dump-policy", {}, &called);
    ASSERT_TRUE(world.until([&] { return called.result.has_value(); }));
    EXPECT_EQ(called.result->error.code, MGMT_OK);
    EXPECT_TRUE(called.output == expected);
}

TEST(MgmtAction, ParametersResultsAndFailures)
{
    TestWorld world;
    t_called called;
    call(&world, "/tarn-clear-data-policy", {}, &called);
    ASSERT_TRUE(world.until([&] { return called.result.has_value(); }));
    EXPECT_NE(called.result->error.reason.find("tarn_clear_data_policy"), std::string::npos) << "no provider";

    TestDaemon daemon(&world, "d");
    daemon.add(IPC_OP_REG_ACTION, "tarn_clear_data_policy", IPC_CALL_INIT | IPC_CALL_ACTION);
    daemon.ready();
    const t_schema_node *p_rpc = schema_find(mgmt_engine_schema(*world.engine), "/tarn-clear-data-policy");
    daemon.serve = [&](const t_ipc_frame &frame) {
        auto action = daemon.worker.read<t_ipc_dp_action>(frame);
        ASSERT_EQ(action.params.size(), 1u);
        EXPECT_EQ(action.params[0].tag.tag, LUMORA_TAG_NAME);
        EXPECT_TRUE(action.params[0].value == IpcValue::text("p1"));
        EXPECT_EQ(action.name_tag, p_rpc->tag);
        daemon.answer(frame, ipc_encode(t_ipc_dp_action_reply{.results = {}, .printed_bytes = 0}));
    };
    called = {};
    call(&world, "/tarn-clear-data-policy", {{p_rpc->children.at(0), "p1"}}, &called);
    ASSERT_TRUE(world.until([&] { return called.result.has_value(); }));
    EXPECT_EQ(called.result->error.code, MGMT_OK) << mgmt_error_text(called.result->error);

    // As long as it prints it is not silent; output above the limit is cut, and does not hold the daemon up.
    uint32_t usid = 0;
    daemon.serve = [&](const t_ipc_frame &frame) {
        usid = daemon.worker.read<t_ipc_dp_action>(frame).user.usid;
    };
    called = {};
    call(&world, "/tarn-clear-data-policy", {}, &called);
    ASSERT_TRUE(world.until([&] { return usid != 0; }));
    std::string chunk(1u << 20, 'x');
    for (size_t i = 0; i < (MGMT_ACTION_MAX_OUTPUT >> 20) + 3; i++)
        print(&daemon.maapi, usid, chunk);
    // The end of the stream is known by an answer behind it.
    EXPECT_EQ(daemon.maapi.request(IPC_OP_MAAPI_INSTALL_CRYPTO_KEYS, {}).status, 0);
    EXPECT_EQ(called.output.size(), MGMT_ACTION_MAX_OUTPUT + strlen("\noutput truncated\n"));
    world.advance(MGMT_PROVIDER_TIMEOUT_MS - 1);
    EXPECT_FALSE(called.result.has_value());
    world.advance(1);
    ASSERT_TRUE(world.until([&] { return called.result.has_value(); }));
    EXPECT_EQ(called.result->error.code, MGMT_ERR_EXTERNAL);
}
