// The control socket over a scripted engine, with the command line's own client and with raw bytes.

#include "mgmtd/control/control_request.h"
#include "mgmtd/control/mgmt_control.h"

#include "cli/client.h"
#include "tests/mgmtd/control/engine_double.h"
#include "tests/tools/run_command.h"

#include <csignal>
#include <event2/event.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

TEST(ControlFrameGolden, HasBothSizesInFront)
{
    EXPECT_EQ(control_frame_bytes("{}", "abc"), std::string("\0\0\0\2\0\0\0\3{}abc", 13));
    t_control_header header = {};
    EXPECT_TRUE(control_header_read({0, 16, 0, 0, 4, 0, 0, 0}, &header));
    EXPECT_EQ(header.head_size, CONTROL_MAX_HEAD);
    EXPECT_EQ(header.body_size, CONTROL_MAX_BODY);
    EXPECT_FALSE(control_header_read({0, 16, 0, 1, 0, 0, 0, 0}, &header));
    EXPECT_FALSE(control_header_read({0, 0, 0, 2, 4, 0, 0, 1}, &header));
    EXPECT_FALSE(control_header_read({0, 0, 0, 1, 0, 0, 0, 0}, &header));
}

TEST(ControlRequest, TakesWhatItsOperationTakes)
{
    static const struct {
        const char *head;
        const char *body;
        const char *reason;  // "" where it is taken
    } cases[] = {
        {R"({"id":1,"op":"edit"})", "[]", ""},
        {R"({"id":1,"op":"load","mode":"replace"})", "{}", ""},
        {R"({"id":1,"op":"rollback","number":0})", "", ""},
        {R"({"id":1,"op":"action","action":"a","input":{"n":1,"e":null},"words":["w"]})", "", ""},
        {R"({"id":1,"op":"load"})", "{}", "load needs \"mode\""},
        {R"({"id":1,"op":"load","mode":"create"})", "{}", "the \"mode\" of load is wrong"},
        {R"({"id":1,"op":"rollback","number":-1})", "", "the \"number\" of rollback is wrong"},
        {R"({"id":1,"op":"rollback","number":1000001})", "", "the \"number\" of rollback is wrong"},
        {R"({"id":1,"op":"show","path":"/a\u0000b"})", "", "the \"path\" of show is wrong"},
        {R"({"id":1,"op":"show","from":"elsewhere"})", "", "the \"from\" of show is wrong"},
        {R"({"id":1,"op":"action","action":"a","input":{"n":[]}})", "", "the \"input\" of action is wrong"},
        {R"({"id":1,"op":"commit","confirm":0})", "", "the \"confirm\" of commit is wrong"},
        {R"({"id":1,"op":"commit","confirm":604801})", "", "the \"confirm\" of commit is wrong"},
        {R"({"id":1,"op":"monitor","start":-1})", "", "the \"start\" of monitor is wrong"},
        {R"({"id":1,"op":"values"})", "", "values needs \"path\""},
        {R"({"id":1,"op":"check","path":"/"})", "", "check takes no \"path\""},
        {R"({"id":1,"op":"check"})", "x", "check takes no body"},
        {R"({"id":1,"op":5})", "", "the request's \"op\" is unknown"},
        {R"({"id":0,"op":"check"})", "", "the request has no id"},
        {R"([1])", "", "the request's head is no JSON object"},
    };
    for (const auto &row : cases) {
        t_control_request request;
        std::string reason;
        EXPECT_EQ(control_request_read({row.head, row.body}, &request, &reason), *row.reason == '\0')
            << row.head;
        EXPECT_EQ(reason, row.reason);
    }
}

TEST(ControlPeer, OnlyRootAndTheGroupMay)
{
    EXPECT_EQ(control_peer_right({.uid = 0, .groups = {}}, CONTROL_NO_GROUP), CONTROL_RIGHT_ADMIN);
    EXPECT_EQ(control_peer_right({.uid = 7, .groups = {0, 5}}, CONTROL_NO_GROUP), CONTROL_RIGHT_NONE);
    EXPECT_EQ(control_peer_right({.uid = 7, .groups = {CONTROL_NO_GROUP}}, CONTROL_NO_GROUP),
              CONTROL_RIGHT_NONE);
    EXPECT_EQ(control_peer_right({.uid = 7, .groups = {4, 5}}, 5), CONTROL_RIGHT_ADMIN);
    EXPECT_EQ(control_peer_right({.uid = 7, .groups = {4, 5}}, 6), CONTROL_RIGHT_NONE);
}

// ---- The server ----

static void on_stop(evutil_socket_t, short, void *p_arg)
{
    event_base_loopbreak(static_cast<event_base *>(p_arg));
}

// A server in a thread of its own.
class ControlServer : public testing::Test {
protected:
    void SetUp() override
    {
        std::string error;
        std::vector<std::string> errors;
        context = schema_context_new(YANG_MODULES, &error);
        ASSERT_NE(context, nullptr) << error;
        index = schema_index_new(context.get(), &errors);
        ASSERT_NE(index, nullptr);
        engine.p_schema = index.get();
        engine.p_context = context.get();
        engine.p_base = p_base = event_base_new();
        path = folder.path("socket");
        ASSERT_EQ(pipe(stop), 0);
        signal(SIGPIPE, SIG_IGN);
        control = mgmt_control_open(p_base, &engine, {.path = path, .group = getegid()}, &error);
        ASSERT_NE(control, nullptr) << error;
    }

    void serve()
    {
        p_stop_event = event_new(p_base, stop[0], EV_READ, on_stop, p_base);
        event_add(p_stop_event, nullptr);
        loop = std::thread([this] { event_base_dispatch(p_base); });
    }

    void TearDown() override
    {
        close(stop[1]);
        if (loop.joinable())
            loop.join();
        control.reset();
        if (p_stop_event != nullptr)
            event_free(p_stop_event);
        event_base_free(p_base);
        close(stop[0]);
        EXPECT_NE(access(path.c_str(), F_OK), 0);
    }

    void connect_client(t_cli_client *p_client)
    {
        std::string reason;
        ASSERT_TRUE(cli_client_connect(p_client, path, &reason)) << reason;
    }

    // The answer's result, or "path: reason".
    std::string ask(t_cli_client *p_client, const char *head, const char *body = "")
    {
        printed.clear();
        t_cli_listener listener = {
            .output = [this](std::string_view text) { printed += text; },
            .progress = [this](const std::string &line) { printed += line; },
        };
        t_cli_answer answer = cli_client_call(p_client, t_cli_json::parse(head), body, listener);
        warnings = answer.warnings;
        if (answer.outcome != CLI_ANSWER_DONE)
            return answer.path + ": " + answer.reason;
        return answer.result.is_null() ? "done" : answer.result.dump();
    }

    t_temp_folder folder;
    std::string path;
    schema_context_ptr context;
    std::unique_ptr<const t_schema_index> index;
    t_mgmt_engine engine;
    event_base *p_base = nullptr;
    event *p_stop_event = nullptr;
    int stop[2] = {-1, -1};
    mgmt_control_ptr control;
    std::thread loop;
    std::string printed;
    std::vector<std::string> warnings;
};

TEST_F(ControlServer, AnswersEveryOperation)
{
    engine.running_json =
        R"({"lumora-policy:policy":{"log-frequency":5,"zone":[{"name":"a","vpn":[{"vpn-id":1}]}]}})";
    engine.commit_result = {.error = {}, .changed = true, .number = 12, .warnings = {"tarnd was lost"}};
    engine.commits = {{12, "root", "2024-01-15T10:00:00Z", "first"}};
    engine.action_output = std::string(3'000'000, 'x');
    serve();
    t_cli_client client;
    connect_client(&client);
    static const struct {
        const char *head;
        const char *body;
        const char *answer;
    } cases[] = {
        {R"({"op":"lock"})", "", "done"},
        {R"({"op":"edit"})", R"([{"op":"delete","path":"/policy/zone{a}"},{"path":"/","value":{}}])", "done"},
        {R"({"op":"edit"})", "[{]", ": the edits are no JSON array"},
        {R"({"op":"load","mode":"replace"})", R"({"lumora-policy:policy":{}})", "done"},
        {R"({"op":"load","mode":"merge"})", R"({}},{"op":"delete","path":"/policy","value":{})",
         ": the configuration is no JSON"},
        {R"({"op":"check"})", "", "done"},
        {R"({"op":"rollback","number":3})", "", "done"},
        {R"({"op":"discard"})", "", "done"},
        {R"({"op":"unlock"})", "", ": the session has no lock"},
        {R"({"op":"compare"})", "", R"({"changes":["+ /policy/zone{a}","- /policy/zone{b}"]})"},
        {R"({"op":"compare","number":9})", "", ": there is no such commit"},
        {R"({"op":"show","path":"/policy/zone","from":"running"})", "",
         R"({"lumora-policy:zone":[{"name":"a","vpn":[{"vpn-id":1}]}]})"},
        {R"({"op":"show","path":"/policy/zone{a}/vpn","from":"candidate"})", "",
         R"({"lumora-policy:vpn":[{"vpn-id":1}]})"},
        {R"({"op":"show","path":"/policy/log-frequency"})", "", R"({"lumora-policy:log-frequency":5})"},
        {R"({"op":"show","path":"/policy/zone{b}","from":"state"})", "",
         "/policy/zone{b}: there is no such node"},
        {R"({"op":"show","path":"/policy/mirror","from":"running"})", "", "{}"},
        {R"({"op":"show","path":"/policy/lists","from":"running"})", "", "{}"},
        {R"({"op":"action","action":"tarn-dump-filter","words":["w"]})", "", R"({"text":"done"})"},
        {R"({"op":"action","action":"tarn-clear-policy-acl","input":{"nam":"x"}})", "",
         "/tarn-clear-policy-acl: the action has no parameter \"nam\""},
        {R"({"op":"action","action":"/policy"})", "", "/policy: there is no such action"},
        {R"({"op":"values","path":"/policy/zone"})", "", R"({"values":["a"]})"},
        {R"({"op":"values","path":"/policy/zone{a}/vpn","prefix":"1"})", "", R"({"values":["1"]})"},
        {R"({"op":"values","path":"/policy/zone{a}/vpn","prefix":"2"})", "", R"({"values":[]})"},
        {R"({"op":"values","path":"/policy/zone-pair/source-zone"})", "", R"({"values":["a"]})"},
        {R"({"op":"values","path":"/policy/app-visibility","prefix":"t"})", "", R"({"values":["true"]})"},
        {R"({"op":"commit","persist":"p"})", "", ": persist is for a commit that is to be confirmed"},
        {R"({"op":"cancel-commit","persist-id":"p"})", "", "done"},
        {R"({"op":"commit","comment":"c","confirm":90,"persist":"p","persist-id":"q"})", "",
         R"({"changed":true,"commit":12})"},
    };
    for (const auto &row : cases)
        EXPECT_EQ(ask(&client, row.head, row.body), row.answer) << row.head;
    EXPECT_EQ(printed, "waiting for tarnd");
    EXPECT_EQ(warnings, std::vector<std::string>{"tarnd was lost"});
    ask(&client, R"({"op":"action","action":"tarn-dump-filter"})");
    EXPECT_EQ(printed.size(), engine.action_output.size());
    EXPECT_EQ(
        ask(&client, R"({"op":"status"})"),
        R"({"phase":2,"sessions":1,"session":1,"user":")" + control_user_name(geteuid()) +
            R"(","candidate-changed":false,)"
            R"("pending-confirm":{"commit":12,"user":"root","session":7,"remaining-seconds":2},)"
            R"("last-commit":{"commit":12,"user":"root","time":"2024-01-15T10:00:00Z","comment":"first"},)"
            R"("daemons":[{"name":"tarnd","state":"being told","points":9,"subscriptions":53}],)"
            R"("alarms":["commit-7.json: bad"]})");
    EXPECT_EQ(
        ask(&client, R"({"op":"schema","path":"/policy/log-frequency"})"),
        R"({"path":"/policy/log-frequency","kind":"leaf","type":"int32","range":"0..2147483647",)"
        R"("units":"packets","description":"One packet in so many is logged, rounded down to a power of two; )"
        R"(absent means 1000."})");
    EXPECT_EQ(
        ask(&client, R"({"op":"schema","path":"/tarn-clear-policy-acl"})"),
        R"({"path":"/tarn-clear-policy-acl","kind":"action",)"
        R"("description":"Zero the counters and policers of access lists for IPv4.",)"
        R"("children":[{"name":"name","kind":"leaf","type":"string","description":"Name; absent means all."}]})");
    const std::vector<std::string> log = {"1 open root cli",
                                          "1 lock",
                                          "1 edit 1 0",
                                          "1 edit replace 1",
                                          "1 check",
                                          "1 rollback 3",
                                          "1 discard",
                                          "1 get all",
                                          "1 get state",
                                          "1 action tarn-dump-filter w",
                                          "1 cancel p",
                                          "1 commit c 90000 p q",
                                          "1 action tarn-dump-filter"};
    std::lock_guard guard(engine.lock);
    if (geteuid() == 0) {
        EXPECT_EQ(engine.log, log);
    }
}

TEST_F(ControlServer, TellsPathAndReasonOfARefusedEdit)
{
    engine.edit_error = {MGMT_ERR_EXTERNAL, "/policy/zone-pair{a}", "zone-pair-id-cp: no provider"};
    serve();
    t_cli_client client;
    connect_client(&client);
    EXPECT_EQ(ask(&client, R"({"op":"edit"})", "[]"), "/policy/zone-pair{a}: zone-pair-id-cp: no provider");
}

TEST_F(ControlServer, ClientThatGoesDuringACommitLeavesNothing)
{
    engine.holds_commits = true;
    serve();
    t_cli_client client;
    connect_client(&client);
    std::string bytes = control_frame_bytes(R"({"id":1,"op":"commit"})", {});
    ASSERT_EQ(send(client.fd, bytes.data(), bytes.size(), 0), static_cast<ssize_t>(bytes.size()));
    EXPECT_TRUE(engine_double_waits_for(&engine, "1 commit "));
    t_cli_client other;
    connect_client(&other);
    EXPECT_EQ(ask(&other, R"({"op":"check"})"), "done");
    close(std::exchange(client.fd, -1));
    EXPECT_TRUE(engine_double_waits_for(&engine, "1 close"));
    EXPECT_EQ(ask(&other, R"({"op":"check"})"), "done");
}

TEST_F(ControlServer, MonitorTellsUntilTheClientGoesOrIsBehind)
{
    engine.stored = {{1, 5, "t", "up", R"({"m:up":{"peer":"a"}})"}};
    serve();
    t_cli_client client;
    connect_client(&client);
    std::vector<std::string> told;
    t_cli_listener listener = {.output = [&](std::string_view text) { told.emplace_back(text); },
                               .progress = nullptr,
                               .until = [&] { return !told.empty(); }};
    EXPECT_EQ(cli_client_call(&client, {{"op", "monitor"}, {"start", 5}}, {}, listener).outcome,
              CLI_ANSWER_INTERRUPTED);
    EXPECT_EQ(told, std::vector<std::string>{R"({"time":"t","name":"up","data":{"m:up":{"peer":"a"}}})"});
    close(std::exchange(client.fd, -1));
    EXPECT_TRUE(engine_double_waits_for(&engine, "1 close"));
    // Who does not read is told no more.
    engine.stored.assign(20, {1, 5, "t", "up", '"' + std::string(1'000'000, 'x') + '"'});
    t_cli_client other;
    connect_client(&other);
    std::string bytes = control_frame_bytes(R"({"id":1,"op":"monitor","start":0})", {});
    ASSERT_EQ(send(other.fd, bytes.data(), bytes.size(), 0), static_cast<ssize_t>(bytes.size()));
    EXPECT_TRUE(engine_double_waits_for(&engine, "2 unsubscribe 2"));
}

// What the server says to bytes before it closes the connection.
static std::string last_words(const std::string &path, const std::string &bytes)
{
    t_cli_client client;
    std::string words;
    if (!cli_client_connect(&client, path, &words))
        return "no connection";
    send(client.fd, bytes.data(), bytes.size(), MSG_NOSIGNAL);
    char piece[4096];
    ssize_t size;
    while ((size = recv(client.fd, piece, sizeof(piece), 0)) > 0)
        words.append(piece, static_cast<size_t>(size));
    return words.size() > CONTROL_HEADER_SIZE ? words.substr(CONTROL_HEADER_SIZE) : words;
}

TEST_F(ControlServer, HostileBytesEndTheirConnectionAlone)
{
    serve();
    t_cli_client client;
    connect_client(&client);
    static constexpr char limits[] =
        R"({"id":0,"ok":false,"error":{"code":17,"reason":"the frame's sizes are outside the limits"}})";
    EXPECT_EQ(last_words(path, "GET / HTTP/1.0\r\n\r\n"), limits);
    EXPECT_EQ(last_words(path, std::string(CONTROL_HEADER_SIZE, '\xff')), limits);
    EXPECT_EQ(last_words(path, control_frame_bytes("{\"op\":\"check\"}", "")),
              R"({"id":0,"ok":false,"error":{"code":17,"reason":"the request has no id"}})");
    std::string nested = control_frame_bytes(R"({"id":1,"op":)" + std::string(1'000'000, '['), "");
    EXPECT_NE(last_words(path, nested).find("is no JSON object"), std::string::npos);
    EXPECT_EQ(ask(&client, R"({"op":"check"})"), "done");
}

TEST_F(ControlServer, SessionsAreLimited)
{
    serve();
    std::vector<t_cli_client> clients(MGMT_CONTROL_MAX_SESSIONS);
    for (t_cli_client &client : clients) {
        connect_client(&client);
        ASSERT_EQ(ask(&client, R"({"op":"check"})"), "done");
    }
    EXPECT_NE(last_words(path, "").find("there are too many sessions"), std::string::npos);
    EXPECT_EQ(ask(&clients[0], R"({"op":"check"})"), "done");
}

TEST_F(ControlServer, OtherUsersAreRefused)
{
    if (geteuid() != 0)
        GTEST_SKIP() << "only root can be another user";
    struct stat status;
    ASSERT_EQ(stat(path.c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 0777, 0660u);
    chmod(path.c_str(), 0666);  // past the file's rights, the peer's credentials count
    chmod(folder.folder.c_str(), 0755);
    serve();
    pid_t child = fork();
    if (child == 0) {
        bool is_other = setregid(65534, 65534) == 0 && setreuid(65534, 65534) == 0;
        bool refused =
            last_words(path, "").find("this user may not use the control socket") != std::string::npos;
        _exit(is_other && refused ? 0 : 1);
    }
    int result = -1;
    ASSERT_EQ(waitpid(child, &result, 0), child);
    EXPECT_EQ(result, 0);
    std::lock_guard guard(engine.lock);
    EXPECT_TRUE(engine.log.empty());
}
