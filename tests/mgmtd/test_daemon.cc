#include "tests/mgmtd/test_daemon.h"

#include "generated/lumora_schema.h"
#include "platform/confd/ipc/ipc_auth.h"

#include <arpa/inet.h>
#include <chrono>
#include <csignal>
#include <event2/event.h>
#include <filesystem>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <unistd.h>

// ---- The world ----

bool (*TestWorld::load_more)(ly_ctx *, std::string *) = nullptr;

struct t_test_model {
    schema_context_ptr context;
    std::unique_ptr<const t_schema_index> index;
};

// Loaded once for all tests of the process.
static const t_test_model &model()
{
    static const t_test_model loaded = [] {
        std::string error;
        std::vector<std::string> errors;
        t_test_model made;
        made.context = schema_context_new(TEST_YANG_FOLDER, &error);
        EXPECT_NE(made.context, nullptr) << error;
        bool has_more = TestWorld::load_more == nullptr || TestWorld::load_more(made.context.get(), &error);
        EXPECT_TRUE(has_more) << error;
        made.index = schema_index_new(made.context.get(), &errors);
        EXPECT_NE(made.index, nullptr);
        return made;
    }();
    return loaded;
}

static void trap_record(void *p_ctx, const t_ipc_snmp_notification &notification)
{
    static_cast<TestWorld *>(p_ctx)->traps.emplace_back(notification.notify_name, notification.notification);
}

static constexpr t_mgmt_snmp_ops snmp_ops = {.send = trap_record};

static void engine_start(TestWorld *p_world)
{
    t_mgmt_error error;
    std::string text;
    t_mgmt_engine_options options = {.store_folder = p_world->folder,
                                     .now_ms = [p_world] { return p_world->now_ms; },
                                     .p_snmp = &snmp_ops,
                                     .p_snmp_ctx = p_world};
    p_world->engine =
        mgmt_engine_new(p_world->p_base, model().index.get(), model().context.get(), options, &error);
    ASSERT_NE(p_world->engine, nullptr) << mgmt_error_text(error);
    p_world->server =
        ipc_server_open(p_world->p_base, p_world->engine.get(), {.port = 0, .secret = TEST_SECRET}, &text);
    ASSERT_NE(p_world->server, nullptr) << text;
    p_world->session = mgmt_session_open(p_world->engine.get(), {.name = "admin", .context = "cli"});
}

TestWorld::TestWorld(const std::string &given_folder)
    : folder(given_folder), keeps_folder(!given_folder.empty()), p_base(event_base_new())
{
    char path[] = "/tmp/mgmtd-test-XXXXXX";
    if (!keeps_folder)
        folder = mkdtemp(path);
    signal(SIGPIPE, SIG_IGN);
    engine_start(this);
}

TestWorld::~TestWorld()
{
    server.reset();
    engine.reset();
    event_base_free(p_base);
    if (!keeps_folder)
        std::filesystem::remove_all(folder);
}

void TestWorld::restart()
{
    server.reset();
    engine.reset();
    engine_start(this);
}

void TestWorld::turn()
{
    event_base_loop(p_base, EVLOOP_NONBLOCK);
    std::vector<TestLink *> now = links;
    for (TestLink *p_link : now)
        if (std::find(links.begin(), links.end(), p_link) != links.end())
            p_link->poll();
}

bool TestWorld::until(const std::function<bool()> &condition)
{
    auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(20);
    while (!condition()) {
        if (std::chrono::steady_clock::now() > deadline)
            return false;
        turn();
    }
    return true;
}

void TestWorld::settle()
{
    for (int i = 0; i < 50; i++)
        turn();
}

void TestWorld::advance(int64_t ms)
{
    settle();
    now_ms += ms;
    mgmt_timers_run(mgmt_engine_timers(engine.get()));
    settle();
}

t_mgmt_error TestWorld::edit(const std::string &json, uint32_t by)
{
    std::vector<t_mgmt_edit> edits;
    t_mgmt_error error;
    bool is_done = false;
    if (!mgmt_edit_read_json(mgmt_engine_schema(*engine), json, &edits, &error))
        return error;
    mgmt_edit(engine.get(), by != 0 ? by : session, std::move(edits), [&](const t_mgmt_error &result) {
        error = result;
        is_done = true;
    });
    EXPECT_TRUE(until([&] { return is_done; }));
    return error;
}

void TestWorld::commit_start(std::optional<t_mgmt_confirm> confirm, uint32_t by,
                             const std::string &persist_id)
{
    committed.reset();
    t_mgmt_commit_request request;
    request.confirm = std::move(confirm);
    request.persist_id = persist_id;
    request.done = [this](const t_mgmt_commit_result &result) { committed = result; };
    mgmt_commit(engine.get(), by != 0 ? by : session, std::move(request));
}

t_mgmt_commit_result TestWorld::commit(std::optional<t_mgmt_confirm> confirm)
{
    commit_start(std::move(confirm));
    EXPECT_TRUE(until([&] { return committed.has_value(); }));
    return committed.value_or(t_mgmt_commit_result());
}

t_mgmt_get_result TestWorld::get(const std::vector<std::string> &paths)
{
    t_mgmt_get_request request;
    std::optional<t_mgmt_get_result> result;
    t_mgmt_error error;
    for (const std::string &text : paths)
        EXPECT_TRUE(mgmt_path_read(mgmt_engine_schema(*engine), nullptr, text, &request.paths.emplace_back(),
                                   &error));
    request.done = [&](t_mgmt_get_result got) { result = std::move(got); };
    mgmt_get(engine.get(), session, std::move(request));
    EXPECT_TRUE(until([&] { return result.has_value(); }));
    return result ? std::move(*result) : t_mgmt_get_result();
}

std::string TestWorld::running() const
{
    std::string text;
    mgmt_tree_print(*mgmt_tree_of(engine.get(), MGMT_DS_RUNNING), nullptr, 0, &text);
    return text;
}

// ---- Links ----

TestLink::TestLink(TestWorld *p_its_world) : p_world(p_its_world)
{
    fd = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in address = {};
    address.sin_family = AF_INET;
    address.sin_port = htons(ipc_server_port(*p_world->server));
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    EXPECT_EQ(connect(fd, reinterpret_cast<sockaddr *>(&address), sizeof(address)), 0);
    assembler.set_max_frame(IPC_MAX_FRAME);
    p_world->links.push_back(this);
}

TestLink::TestLink(TestWorld *p_its_world, e_ipc_conn kind, const std::string &daemon, uint32_t daemon_id,
                   const std::string &secret)
    : TestLink(p_its_world)
{
    t_ipc_hello hello = {.version = IPC_VERSION,
                         .conn = static_cast<uint8_t>(kind),
                         .daemon = daemon,
                         .daemon_id = daemon_id,
                         .flags = 0,
                         .pid = 1};
    auto challenge = read<t_ipc_challenge>(request(IPC_OP_HELLO, ipc_encode(hello)));
    t_ipc_frame welcome =
        request(IPC_OP_PROOF, ipc_encode(t_ipc_proof{ipc_auth_proof(secret, challenge.challenge)}));
    refusal = welcome.status;
    if (refusal == 0)
        id = read<t_ipc_welcome>(welcome).connection_id;
}

TestLink::~TestLink()
{
    close();
    std::erase(p_world->links, this);
}

void TestLink::expect_decoded(bool ok)
{
    EXPECT_TRUE(ok);
}

void TestLink::close()
{
    if (fd >= 0)
        ::close(fd);
    fd = -1;
}

void TestLink::send_bytes(const std::vector<uint8_t> &bytes)
{
    size_t sent = 0;
    auto is_sent = [&] {
        ssize_t size = ::send(fd, bytes.data() + sent, bytes.size() - sent, MSG_NOSIGNAL | MSG_DONTWAIT);
        sent += size > 0 ? static_cast<size_t>(size) : 0;
        return sent == bytes.size() || (size < 0 && errno != EAGAIN);
    };
    EXPECT_TRUE(p_world->until(is_sent));
}

void TestLink::send(const t_ipc_frame &frame)
{
    send_bytes(ipc_frame_bytes(frame));
}

uint32_t TestLink::start(uint16_t op, std::vector<uint8_t> body)
{
    send({.op = op, .kind = IPC_KIND_REQUEST, .id = ++last_request, .status = 0, .body = std::move(body)});
    return last_request;
}

std::optional<t_ipc_frame> TestLink::reply_to(uint32_t request_id)
{
    for (auto reply = replies.begin(); reply != replies.end(); ++reply) {
        if (reply->id != request_id)
            continue;
        t_ipc_frame found = std::move(*reply);
        replies.erase(reply);
        return found;
    }
    return std::nullopt;
}

t_ipc_frame TestLink::request(uint16_t op, std::vector<uint8_t> body)
{
    uint32_t request_id = start(op, std::move(body));
    std::optional<t_ipc_frame> reply;
    EXPECT_TRUE(p_world->until([&] {
        reply = reply_to(request_id);
        return reply.has_value() || is_closed;
    }));
    return reply.value_or(t_ipc_frame{.op = op, .kind = IPC_KIND_REPLY, .id = 0, .status = -2, .body = {}});
}

void TestLink::poll()
{
    std::vector<uint8_t> chunk(256u << 10);
    ssize_t size = fd < 0 || is_closed ? -1 : recv(fd, chunk.data(), chunk.size(), MSG_DONTWAIT);
    if (size == 0 || (size < 0 && fd >= 0 && errno == ECONNRESET))
        is_closed = true;
    if (size <= 0)
        return;
    assembler.feed(std::span(chunk.data(), static_cast<size_t>(size)));
    t_ipc_frame frame;
    while (assembler.next(&frame) == IPC_FRAME_OK) {
        if (frame.kind == IPC_KIND_REPLY)
            replies.push_back(std::move(frame));
        else if (take)
            take(t_ipc_frame(frame));
    }
}

// ---- Subscribers ----

TestSubscriber::TestSubscriber(TestWorld *p_world, const std::string &daemon)
    : link(p_world, IPC_CONN_CDB_SUB, daemon)
{
    link.take = [this](const t_ipc_frame &frame) {
        EXPECT_EQ(frame.op, IPC_OP_SUB_BATCH);
        auto batch = link.read<t_ipc_batch>(frame);
        batches.push_back({batch.type, batch.flags, batch.ids});
        EXPECT_EQ(++open_count, 1) << "two open batches on one connection";
        if (on_batch)
            on_batch(batches.back());
        if (!hold && open_count > 0)
            sync();
    };
}

int32_t TestSubscriber::add(const std::string &path, int32_t priority, cdb_sub_type type)
{
    t_ipc_subscribe request = {
        .type = static_cast<uint8_t>(type), .flags = 0, .priority = priority, .ns = 0, .path = path};
    t_ipc_frame reply = link.request(IPC_OP_SUB_SUBSCRIBE, ipc_encode(request));
    return reply.status == 0 ? link.read<t_ipc_count>(reply).count : 0;
}

void TestSubscriber::done()
{
    EXPECT_EQ(link.request(IPC_OP_SUB_DONE, {}).status, 0);
}

void TestSubscriber::sync()
{
    open_count--;
    EXPECT_EQ(link.request(IPC_OP_SUB_SYNC, ipc_encode(t_ipc_sync{CDB_DONE_PRIORITY})).status, 0);
}

void TestSubscriber::refuse(const std::string &reason)
{
    open_count--;
    t_ipc_abort abort = {.code = CONFD_ERR_BADTYPE, .apptag_ns = 0, .apptag_tag = 0, .reason = reason};
    EXPECT_EQ(link.request(IPC_OP_SUB_ABORT, ipc_encode(abort)).status, 0);
}

// ---- Daemons ----

TestDaemon::TestDaemon(TestWorld *p_world, const std::string &name)
    : control(p_world, IPC_CONN_CONTROL, name), worker(p_world, IPC_CONN_WORKER, name, control.id),
      maapi(p_world, IPC_CONN_MAAPI, name)
{
    EXPECT_EQ(control.request(IPC_OP_REG_TRANS, ipc_encode(t_ipc_reg_calls{IPC_CALL_INIT | IPC_CALL_FINISH}))
                  .status,
              0);
    control.take = [this](const t_ipc_frame &frame) {
        inits++;
        answer(frame, ipc_encode(t_ipc_worker{worker.id}));
    };
    worker.take = [this](const t_ipc_frame &frame) {
        if (frame.op == IPC_OP_DP_TRANS_FINISH || frame.op == IPC_OP_DP_VALIDATE_STOP) {
            finishes++;
            answer(frame, {});
            return;
        }
        requests.push_back(frame);
        if (serve)
            serve(frame);
    };
}

void TestDaemon::add(uint16_t op, const std::string &point, uint32_t calls)
{
    EXPECT_EQ(control.request(op, ipc_encode(t_ipc_reg_point{point, calls})).status, 0) << point;
}

void TestDaemon::ready()
{
    EXPECT_EQ(control.request(IPC_OP_REG_DONE, {}).status, 0);
}

void TestDaemon::answer(const t_ipc_frame &request, std::vector<uint8_t> body)
{
    bool is_init = request.op < IPC_OP_DP_TRANS_FINISH;
    (is_init ? control : worker)
        .send({.op = request.op,
               .kind = IPC_KIND_REPLY,
               .id = request.id,
               .status = 0,
               .body = std::move(body)});
}

void TestDaemon::fail(const t_ipc_frame &request, const std::string &text)
{
    worker.send({.op = request.op,
                 .kind = IPC_KIND_REPLY,
                 .id = request.id,
                 .status = CONFD_ERR_EXTERNAL,
                 .body = ipc_encode(t_ipc_error{.text = text, .printed_bytes = 0})});
}

// ---- Notifications ----

t_ipc_notification test_association(int32_t sender, const std::string &policy)
{
    confd_value_t severity = {.type = C_ENUM_VALUE, .val = {}};
    severity.val.enumvalue = 2;
    t_ipc_notification made = {.sender_id = sender,
                               .time = {.year = 2024,
                                        .month = 1,
                                        .day = 15,
                                        .hour = 12,
                                        .min = 0,
                                        .sec = 0,
                                        .micro = 5,
                                        .timezone = 2,
                                        .timezone_minutes = 0},
                               .values = {}};
    xml_tag name = {LUMORA_TAG_DATA_POLICY_ASSOCIATION_STATUS, LUMORA_NS_POLICY};
    made.values.push_back({name, IpcValue::tag(C_XMLBEGIN, name.tag, name.ns)});
    made.values.push_back({{LUMORA_TAG_SEVERITY_LEVEL, 0}, IpcValue(severity)});
    made.values.push_back({{LUMORA_TAG_POLICY_NAME, 0}, IpcValue::text(policy)});
    made.values.push_back({name, IpcValue::tag(C_XMLEND, name.tag, name.ns)});
    return made;
}
