// A management daemon in the test's own process, and clients of it that speak frames.
//
// Everything runs on the test's thread: TestWorld::until turns the server's loop and polls the clients in
// turn, so what happens is the same at each run, and the clock is the test's. Clients serve their callbacks
// from until; such a callback may itself make requests and wait.
#pragma once

#include "mgmtd/engine/mgmt_link.h"
#include "mgmtd/ipc/ipc_server.h"
#include "platform/confd/confd_cdb.h"
#include "platform/confd/confd_dp.h"

#include <deque>
#include <functional>
#include <optional>

inline constexpr const char *TEST_SECRET = "a secret of tests";

struct TestLink;

struct TestWorld {
    // Loads further modules into the context before the model is indexed; null: none. Set before main.
    static bool (*load_more)(ly_ctx *p_context, std::string *p_error);

    // A folder that is given is used, and stays.
    explicit TestWorld(const std::string &given_folder = "");
    ~TestWorld();
    TestWorld(const TestWorld &) = delete;
    TestWorld &operator=(const TestWorld &) = delete;

    // Goes on until the condition holds; false after 20 s.
    bool until(const std::function<bool()> &condition);
    void turn();               // one round
    void settle();             // as many rounds as nothing that is under way needs
    void advance(int64_t ms);  // moves the clock

    void restart();  // ends server and engine and makes them anew from the same folder

    // An operator, waiting for the answers.
    t_mgmt_error edit(const std::string &json, uint32_t session = 0);
    t_mgmt_commit_result commit(std::optional<t_mgmt_confirm> confirm = std::nullopt);
    // Without waiting: the result comes to `committed`.
    void commit_start(std::optional<t_mgmt_confirm> confirm = std::nullopt, uint32_t session = 0,
                      const std::string &persist_id = "");
    t_mgmt_get_result get(const std::vector<std::string> &paths);
    std::string running() const;  // as JSON

    std::string folder;
    bool keeps_folder = false;
    event_base *p_base;
    int64_t now_ms = 1000000;
    mgmt_engine_ptr engine;
    ipc_server_ptr server;
    uint32_t session = 0;
    std::optional<t_mgmt_commit_result> committed;
    std::vector<std::pair<std::string, std::string>> traps;  // group, name
    std::vector<TestLink *> links;
};

// One connection of a client.
struct TestLink {
    TestLink(TestWorld *p_world, e_ipc_conn kind, const std::string &daemon, uint32_t daemon_id = 0,
             const std::string &secret = TEST_SECRET);
    explicit TestLink(TestWorld *p_world);  // connected, nothing sent
    ~TestLink();
    TestLink(const TestLink &) = delete;
    TestLink &operator=(const TestLink &) = delete;

    void send(const t_ipc_frame &frame);
    void send_bytes(const std::vector<uint8_t> &bytes);
    uint32_t start(uint16_t op, std::vector<uint8_t> body);       // sends a request; gives its id
    t_ipc_frame request(uint16_t op, std::vector<uint8_t> body);  // and waits; status -2 if the link ends
    std::optional<t_ipc_frame> reply_to(uint32_t id);
    void poll();
    void close();

    template <typename Reply>
    Reply read(const t_ipc_frame &frame)
    {
        Reply reply = {};
        expect_decoded(ipc_decode(frame.body, &reply));
        return reply;
    }

    static void expect_decoded(bool ok);

    TestWorld *p_world;
    int fd = -1;
    bool is_closed = false;  // by the server
    uint32_t id = 0;         // connection id
    int32_t refusal = 0;     // of the handshake
    uint32_t last_request = 0;
    IpcAssembler assembler;
    std::deque<t_ipc_frame> replies;
    std::function<void(const t_ipc_frame &)> take;  // everything but replies
};

// A batch as it came.
struct TestBatch {
    int type;
    int flags;
    std::vector<int32_t> ids;
};

// A subscriber that acknowledges at once, unless it is told to hold.
struct TestSubscriber {
    TestSubscriber(TestWorld *p_world, const std::string &daemon);

    int32_t add(const std::string &path, int32_t priority, cdb_sub_type type = CDB_SUB_RUNNING);
    void done();
    void sync();
    void refuse(const std::string &reason);
    bool is_open() const
    {
        return open_count > 0;
    }

    TestLink link;
    bool hold = false;
    int open_count = 0;  // batches that came and are not acknowledged
    std::vector<TestBatch> batches;
    std::function<void(const TestBatch &)> on_batch;
};

// A daemon with control, worker and MAAPI connections, which registers what it is told and serves requests.
struct TestDaemon {
    TestDaemon(TestWorld *p_world, const std::string &name);

    void add(uint16_t op, const std::string &point, uint32_t calls);  // IPC_OP_REG_...
    void ready();
    void answer(const t_ipc_frame &request, std::vector<uint8_t> body);
    void fail(const t_ipc_frame &request, const std::string &text);

    TestLink control;
    TestLink worker;
    TestLink maapi;
    std::vector<t_ipc_frame> requests;  // but inits and finishes
    size_t inits = 0;
    size_t finishes = 0;
    std::function<void(const t_ipc_frame &)> serve;  // null: never answers
};

// A data policy's association-status event of that sender, with a time of 2024.
t_ipc_notification test_association(int32_t sender, const std::string &policy);
