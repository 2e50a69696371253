// The client library against the real server: what a daemon does from its start to its work, with blocking
// calls, and what it gets to know when the server is killed at it.

#include "mgmtd/ipc/ipc_server.h"
#include "platform/confd/confd_cdb.h"
#include "platform/confd/confd_dp.h"
#include "platform/confd/confd_maapi.h"

#include <csignal>
#include <event2/event.h>
#include <filesystem>
#include <fstream>
#include <future>
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

// Engine and server on a thread of their own, as in the program.
struct t_served {
    std::string folder;
    schema_context_ptr context;
    std::unique_ptr<const t_schema_index> index;
    event_base *p_base = event_base_new();
    mgmt_engine_ptr engine;
    ipc_server_ptr server;
    uint32_t session = 0;
    std::thread owner;
    sockaddr_in address = {};

    explicit t_served(const std::string &its_folder);
    ~t_served();

    // Runs fn on the owner's thread and waits for it.
    void run(const std::function<void()> &fn);
    std::future<t_mgmt_commit_result> edit_and_commit(const std::string &json);
};

// A folder with the secret in it, which clients of this process find.
static std::string new_folder()
{
    char path[] = "/tmp/mgmtd-client-XXXXXX";
    std::string folder = mkdtemp(path);
    std::ofstream(folder + "/secret") << "word\n";
    setenv("CONFD_IPC_ACCESS_FILE", (folder + "/secret").c_str(), 1);
    signal(SIGPIPE, SIG_IGN);
    return folder;
}

t_served::t_served(const std::string &its_folder) : folder(its_folder)
{
    std::string error;
    std::vector<std::string> errors;
    t_mgmt_error reason;
    context = schema_context_new(TEST_YANG_FOLDER, &error);
    index = schema_index_new(context.get(), &errors);
    engine = mgmt_engine_new(p_base, index.get(), context.get(), {.store_folder = folder, .now_ms = nullptr},
                             &reason);
    server = ipc_server_open(p_base, engine.get(), {.port = 0, .secret = "word"}, &error);
    session = mgmt_session_open(engine.get(), {.name = "admin", .context = "cli"});
    address.sin_family = AF_INET;
    address.sin_port = htons(ipc_server_port(*server));
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    owner = std::thread([this] { event_base_loop(p_base, EVLOOP_NO_EXIT_ON_EMPTY); });
}

t_served::~t_served()
{
    mgmt_engine_post(engine.get(), [this] { event_base_loopbreak(p_base); });
    owner.join();
    server.reset();
    engine.reset();
    event_base_free(p_base);
    std::filesystem::remove_all(folder);
}

void t_served::run(const std::function<void()> &fn)
{
    std::promise<void> done;
    mgmt_engine_post(engine.get(), [&] {
        fn();
        done.set_value();
    });
    done.get_future().wait();
}

std::future<t_mgmt_commit_result> t_served::edit_and_commit(const std::string &json)
{
    auto promise = std::make_shared<std::promise<t_mgmt_commit_result>>();
    mgmt_engine_post(engine.get(), [this, json, promise] {
        std::vector<t_mgmt_edit> edits;
        t_mgmt_error error;
        EXPECT_TRUE(mgmt_edit_read_json(*index, json, &edits, &error)) << mgmt_error_text(error);
        mgmt_edit(engine.get(), session, std::move(edits), [this, promise](const t_mgmt_error &result) {
            if (result.code != MGMT_OK) {
                t_mgmt_commit_result refused;
                refused.error = result;
                promise->set_value(refused);
                return;
            }
            mgmt_commit(engine.get(), session,
                        {.comment = "",
                         .progress = nullptr,
                         .done = [promise](const t_mgmt_commit_result &done) { promise->set_value(done); }});
        });
    });
    return promise->get_future();
}

// ---- A daemon on the library ----

static int new_socket()
{
    return socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
}

struct t_daemon {
    sockaddr_in address;
    confd_daemon_ctx *p_dx = nullptr;
    int control = new_socket();
    int worker = new_socket();
    int maapi = new_socket();
    int sub = new_socket();
    int zone_id = 0;
    std::vector<std::string> seen;
    std::function<void()> on_hook;  // before and in the middle of the callbacks; may be null
    std::function<void()> on_dump;

    explicit t_daemon(const sockaddr_in &server) : address(server) {}
    ~t_daemon()
    {
        for (int fd : {control, worker, maapi, sub})
            close(fd);
        confd_release_daemon(p_dx);
    }
};

static int trans_init(confd_trans_ctx *p_trans)
{
    confd_trans_set_fd(p_trans, static_cast<t_daemon *>(p_trans->dx->d_opaque)->worker);
    return CONFD_OK;
}

static int action_init(confd_user_info *p_user)
{
    confd_action_set_fd(p_user, static_cast<t_daemon *>(p_user->actx.dx->d_opaque)->worker);
    return CONFD_OK;
}

static int pair_create(confd_trans_ctx *p_trans, confd_hkeypath_t *p_path)
{
    t_daemon *p_daemon = static_cast<t_daemon *>(p_trans->dx->d_opaque);
    confd_value_t number = {.type = C_UINT32, .val = {}};
    number.val.u32 = 77;
    if (p_daemon->on_hook) {
        p_daemon->on_hook();
        return maapi_attach(p_daemon->maapi, 0, p_trans);
    }
    EXPECT_EQ(maapi_attach(p_daemon->maapi, 0, p_trans), CONFD_OK) << confd_lasterr();
    EXPECT_EQ(maapi_set_elem(p_daemon->maapi, p_trans->thandle, &number,
                             "/lumora-policy:policy/zone-pair{%x}/pair-id", &p_path->v[0][0]),
              CONFD_OK)
        << confd_lasterr();
    return maapi_detach(p_daemon->maapi, p_trans);
}

static int dump(confd_user_info *p_user, char *, int, char **)
{
    t_daemon *p_daemon = static_cast<t_daemon *>(p_user->actx.dx->d_opaque);
    for (int i = 0; i < 1000; i++) {
        maapi_cli_printf(p_daemon->maapi, p_user->usid, "line %d\n", i);
        if (p_daemon->on_dump && i == 500)
            p_daemon->on_dump();
    }
    return CONFD_OK;
}

static cdb_iter_ret report(confd_hkeypath_t *p_path, confd_iter_op op, confd_value_t *, confd_value_t *,
                           void *p_ctx)
{
    t_daemon *p_daemon = static_cast<t_daemon *>(p_ctx);
    char text[128];
    confd_tag_value_t *p_values = nullptr;
    int count = 0;
    confd_pp_kpath(text, sizeof(text), p_path);
    EXPECT_EQ(cdb_get_modifications_iter(p_daemon->sub, 0, &p_values, &count), CONFD_OK) << confd_lasterr();
    for (int i = 0; i < count; i++)
        confd_free_value(&p_values[i].v);
    free(p_values);
    p_daemon->seen.push_back(std::to_string(op) + " " + text + " " + std::to_string(count));
    return ITER_CONTINUE;
}

static void register_all(t_daemon *p_daemon)
{
    const sockaddr *p_address = reinterpret_cast<const sockaddr *>(&p_daemon->address);
    int size = sizeof(p_daemon->address);
    confd_trans_cbs trans = {.init = trans_init, .finish = nullptr};
    confd_data_cbs hook = {};
    confd_action_cbs action = {};
    snprintf(hook.callpoint, sizeof(hook.callpoint), "zone-pair-id-cp");
    hook.create = pair_create;
    snprintf(action.actionpoint, sizeof(action.actionpoint), "tarn_dump_policy");
    action.init = action_init;
    action.command = dump;
    ASSERT_EQ(confd_init_vsn_sz("d", stderr, CONFD_SILENT, CONFD_LIB_VSN, MAXDEPTH, MAXKEYLEN), CONFD_OK);
    p_daemon->p_dx = confd_init_daemon("d");
    p_daemon->p_dx->d_opaque = p_daemon;
    ASSERT_EQ(confd_connect(p_daemon->p_dx, p_daemon->control, CONTROL_SOCKET, p_address, size), CONFD_OK)
        << confd_lasterr();
    ASSERT_EQ(confd_connect(p_daemon->p_dx, p_daemon->worker, WORKER_SOCKET, p_address, size), CONFD_OK);
    ASSERT_EQ(maapi_connect(p_daemon->maapi, p_address, size), CONFD_OK);
    EXPECT_EQ(confd_register_trans_cb(p_daemon->p_dx, &trans), CONFD_OK);
    EXPECT_EQ(confd_register_data_cb(p_daemon->p_dx, &hook), CONFD_OK) << confd_lasterr();
    EXPECT_EQ(confd_register_action_cbs(p_daemon->p_dx, &action), CONFD_OK) << confd_lasterr();
    EXPECT_EQ(confd_register_done(p_daemon->p_dx), CONFD_OK);
    ASSERT_EQ(confd_load_schemas(p_address, size), CONFD_OK) << confd_lasterr();
    EXPECT_EQ(maapi_wait_start(p_daemon->maapi, 1), CONFD_OK);
    EXPECT_EQ(maapi_install_crypto_keys(p_daemon->maapi), CONFD_OK);
    ASSERT_EQ(cdb_connect(p_daemon->sub, CDB_SUBSCRIPTION_SOCKET, p_address, size), CONFD_OK);
    EXPECT_EQ(cdb_subscribe(p_daemon->sub, 3, 627311236, &p_daemon->zone_id, "policy/zone-pair"), CONFD_OK)
        << confd_lasterr();
    EXPECT_EQ(cdb_subscribe_done(p_daemon->sub), CONFD_OK);
}

static void batch_serve(t_daemon *p_daemon)
{
    cdb_sub_notification type;
    int flags = 0;
    int *p_ids = nullptr;
    int count = 0;
    ASSERT_EQ(cdb_read_subscription_socket2(p_daemon->sub, &type, &flags, &p_ids, &count), CONFD_OK);
    EXPECT_EQ(count, 1);
    EXPECT_EQ(p_ids[0], p_daemon->zone_id);
    EXPECT_EQ(cdb_diff_iterate(p_daemon->sub, p_ids[0], report, ITER_WANT_LEAF_LIST_AS_LEAF, p_daemon),
              CONFD_OK);
    p_daemon->seen.push_back("flags " + std::to_string(flags));
    EXPECT_EQ(cdb_sync_subscription_socket(p_daemon->sub, CDB_DONE_PRIORITY), CONFD_OK);
    free(p_ids);
}

// Serves callbacks and batches until the future is ready.
template <typename Result>
static Result serve_until(t_daemon *p_daemon, std::future<Result> future)
{
    while (future.wait_for(std::chrono::seconds(0)) != std::future_status::ready) {
        pollfd fds[] = {
            {p_daemon->control, POLLIN, 0}, {p_daemon->worker, POLLIN, 0}, {p_daemon->sub, POLLIN, 0}};
        poll(fds, std::size(fds), 10);
        for (int i = 0; i < 2; i++)
            if (fds[i].revents != 0) {
                EXPECT_EQ(confd_fd_ready(p_daemon->p_dx, fds[i].fd), CONFD_OK) << confd_lasterr();
            }
        if (fds[2].revents != 0)
            batch_serve(p_daemon);
    }
    return future.get();
}

static constexpr const char *zone_pair = R"([{"op":"merge","path":"/policy/zone{a}"},
    {"op":"merge","path":"/policy/zone-based-policy{p}","value":{"default-action":"drop"}},
    {"op":"merge","path":"/policy/zone-pair{x}",
     "value":{"source-zone":"a","destination-zone":"a","zone-policy":"p"}}])";

TEST(ClientAndServer, RegisterHookCommitTriggerReadAndCommand)
{
    t_served served(new_folder());
    t_daemon daemon(served.address);
    register_all(&daemon);
    auto result = serve_until(&daemon, served.edit_and_commit(zone_pair));
    EXPECT_EQ(result.error.code, MGMT_OK) << mgmt_error_text(result.error);

    // The trigger blocks the thread that asks for it, while this one serves.
    const sockaddr *p_address = reinterpret_cast<const sockaddr *>(&served.address);
    auto trigger = std::async(std::launch::async, [&] {
        int data = new_socket();
        int id = daemon.zone_id;
        EXPECT_EQ(cdb_connect(data, CDB_DATA_SOCKET, p_address, sizeof(served.address)), CONFD_OK);
        EXPECT_EQ(cdb_trigger_subscriptions(data, &id, 1), CONFD_OK) << confd_lasterr();
        close(data);
    });
    serve_until(&daemon, std::move(trigger));
    EXPECT_EQ(daemon.seen, (std::vector<std::string>{"1 /lumora-policy:policy/zone-pair{x} 5", "flags 0",
                                                     "1 /lumora-policy:policy/zone-pair{x} 5", "flags 2"}));

    int data = new_socket();
    uint32_t number = 0;
    confd_value_t mask = {};
    ASSERT_EQ(cdb_connect(data, CDB_DATA_SOCKET, p_address, sizeof(served.address)), CONFD_OK);
    ASSERT_EQ(cdb_start_session(data, CDB_RUNNING), CONFD_OK);
    EXPECT_EQ(cdb_num_instances(data, "/lumora-policy:policy/zone-pair"), 1);
    EXPECT_EQ(cdb_cd(data, "/lumora-policy:policy/zone-pair[%d]", 0), CONFD_OK);
    EXPECT_EQ(cdb_get_u_int32(data, &number, "pair-id"), CONFD_OK);
    EXPECT_EQ(number, 77u);
    EXPECT_EQ(cdb_end_session(data), CONFD_OK);
    ASSERT_EQ(cdb_start_session2(data, CDB_OPERATIONAL, CDB_LOCK_REQUEST | CDB_LOCK_WAIT), CONFD_OK);
    EXPECT_EQ(cdb_get(data, &mask, "/lconfd-initial-read-priority"), CONFD_OK);
    EXPECT_EQ(mask.type, C_BIT32);
    EXPECT_EQ(mask.val.b32, 7u);
    close(data);

    std::string output;
    auto done = std::make_shared<std::promise<t_mgmt_action_result>>();
    served.run([&] {
        mgmt_action(served.engine.get(), served.session,
                    {.p_rpc = schema_find(*served.index, "/tarn-dump-policy"),
                     .input = {},
                     .words = {},
                     .output = [&](std::string_view text) { output += text; },
                     .done = [done](const t_mgmt_action_result &one) { done->set_value(one); }});
    });
    t_mgmt_action_result command = serve_until(&daemon, done->get_future());
    EXPECT_EQ(command.error.code, MGMT_OK) << mgmt_error_text(command.error);
    EXPECT_TRUE(output.ends_with("line 999\n"));

    // A name that is taken over: the old connections end, which the library tells as end of file.
    t_daemon successor(served.address);
    register_all(&successor);
    pollfd old = {daemon.worker, POLLIN, 0};
    ASSERT_EQ(poll(&old, 1, 10000), 1);
    EXPECT_EQ(confd_fd_ready(daemon.p_dx, daemon.worker), CONFD_EOF);
}

// ---- A server that is killed ----

// Engine and server in a process of their own, which works when it is told to.
struct t_killed {
    std::string folder = new_folder();
    pid_t pid = -1;
    int command = -1;  // one character is one piece of work
    sockaddr_in address = {};

    t_killed();
    ~t_killed();
    t_killed(const t_killed &) = delete;
    t_killed &operator=(const t_killed &) = delete;

    void order(char work) const
    {
        EXPECT_EQ(write(command, &work, 1), 1);
    }
    void kill_now()
    {
        kill(pid, SIGKILL);
        waitpid(pid, nullptr, 0);
    }
    // Dies while this thread waits for it: it takes in what it is sent, and answers nothing.
    std::thread kill_while_asked()
    {
        kill(pid, SIGSTOP);
        int status = 0;
        EXPECT_EQ(waitpid(pid, &status, WUNTRACED), pid);  // until then it may still answer
        EXPECT_TRUE(WIFSTOPPED(status));
        return std::thread([this] {
            std::this_thread::sleep_for(std::chrono::milliseconds(50));
            kill_now();
        });
    }
};

[[noreturn]] static void serve_orders(const std::string &folder, int address_out, int command_in)
{
    t_served served(folder);
    char work = 0;
    bool told = write(address_out, &served.address, sizeof(served.address)) == sizeof(served.address);
    while (told && read(command_in, &work, 1) == 1) {
        served.run([&] {
            if (work == 'd')
                mgmt_action(served.engine.get(), served.session,
                            {.p_rpc = schema_find(*served.index, "/tarn-dump-policy"),
                             .input = {},
                             .words = {},
                             .output = nullptr,
                             .done = [](const t_mgmt_action_result &) {}});
        });
        if (work == 'c')
            served.edit_and_commit(zone_pair);
    }
    _exit(0);
}

t_killed::t_killed()
{
    int addresses[2], commands[2];
    EXPECT_EQ(pipe(addresses) | pipe(commands), 0);
    pid = fork();
    if (pid == 0) {
        close(commands[1]);
        serve_orders(folder, addresses[1], commands[0]);
    }
    close(addresses[1]);
    close(commands[0]);
    command = commands[1];
    EXPECT_EQ(read(addresses[0], &address, sizeof(address)), static_cast<ssize_t>(sizeof(address)));
    close(addresses[0]);
}

t_killed::~t_killed()
{
    kill_now();
    close(command);
    std::filesystem::remove_all(folder);
}

// The next callback that the server asks for.
static int serve_one(t_daemon *p_daemon)
{
    pollfd fds[] = {{p_daemon->control, POLLIN, 0}, {p_daemon->worker, POLLIN, 0}};
    EXPECT_GT(poll(fds, 2, 10000), 0);
    return confd_fd_ready(p_daemon->p_dx, fds[0].revents != 0 ? fds[0].fd : fds[1].fd);
}

// A dead connection shows itself with the second sending at the latest.
static int serve_until_gone(t_daemon *p_daemon)
{
    int result = CONFD_OK;
    for (int i = 0; i < 5 && result != CONFD_EOF; i++)
        result = serve_one(p_daemon);
    return result;
}

static void batch_await(t_daemon *p_daemon)
{
    cdb_sub_notification type;
    int flags = 0;
    int count = 0;
    int *p_ids = nullptr;
    EXPECT_EQ(cdb_read_subscription_socket2(p_daemon->sub, &type, &flags, &p_ids, &count), CONFD_OK);
    free(p_ids);
}

static int data_connect(const t_killed &server)
{
    int data = new_socket();
    EXPECT_EQ(cdb_connect(data, CDB_DATA_SOCKET, reinterpret_cast<const sockaddr *>(&server.address),
                          sizeof(server.address)),
              CONFD_OK);
    return data;
}

// Brings a daemon into a state, lets the server die, and gives what the daemon gets to know.
struct t_state {
    const char *name;
    int (*reach)(t_killed *p_server, t_daemon *p_daemon);
};

static constexpr t_state states[] = {
    {"connecting",
     [](t_killed *p_server, t_daemon *p_daemon) {
         std::thread killer = p_server->kill_while_asked();
         int data = new_socket();
         int result =
             cdb_connect(data, CDB_DATA_SOCKET, reinterpret_cast<const sockaddr *>(&p_daemon->address),
                         sizeof(p_daemon->address));
         killer.join();
         close(data);
         return result;
     }},
    {"registered",
     [](t_killed *p_server, t_daemon *p_daemon) {
         p_server->kill_now();
         EXPECT_EQ(confd_fd_ready(p_daemon->p_dx, p_daemon->worker), CONFD_EOF);
         EXPECT_EQ(confd_fd_ready(p_daemon->p_dx, p_daemon->control), CONFD_EOF);
         cdb_sub_notification type;
         int flags = 0;
         int count = 0;
         int *p_ids = nullptr;
         return cdb_read_subscription_socket2(p_daemon->sub, &type, &flags, &p_ids, &count);
     }},
    {"waiting for the start",
     [](t_killed *p_server, t_daemon *p_daemon) {
         std::thread killer = p_server->kill_while_asked();
         int result = maapi_wait_start(p_daemon->maapi, 2);
         killer.join();
         return result;
     }},
    {"in a batch",
     [](t_killed *p_server, t_daemon *p_daemon) {
         p_server->order('c');
         EXPECT_EQ(serve_one(p_daemon) | serve_one(p_daemon), CONFD_OK);
         EXPECT_EQ(serve_one(p_daemon), CONFD_OK) << "the end of the hook's transaction";
         batch_await(p_daemon);
         p_server->kill_now();
         EXPECT_EQ(cdb_diff_iterate(p_daemon->sub, p_daemon->zone_id, report, 0, p_daemon), CONFD_EOF);
         return cdb_sync_subscription_socket(p_daemon->sub, CDB_DONE_PRIORITY);
     }},
    {"in a hook",
     [](t_killed *p_server, t_daemon *p_daemon) {
         p_daemon->on_hook = [p_server] { p_server->kill_now(); };
         p_server->order('c');
         return serve_until_gone(p_daemon);
     }},
    {"in a command",
     [](t_killed *p_server, t_daemon *p_daemon) {
         p_daemon->on_dump = [p_server] { p_server->kill_now(); };
         p_server->order('d');
         return serve_until_gone(p_daemon);
     }},
    {"reading",
     [](t_killed *p_server, t_daemon *) {
         int data = data_connect(*p_server);
         EXPECT_EQ(cdb_start_session(data, CDB_RUNNING), CONFD_OK);
         std::thread killer = p_server->kill_while_asked();
         int result = cdb_num_instances(data, "/lumora-policy:policy/zone");
         killer.join();
         close(data);
         return result;
     }},
    {"with a trigger under way",
     [](t_killed *p_server, t_daemon *p_daemon) {
         int data = data_connect(*p_server);
         auto trigger = std::async(std::launch::async,
                                   [&] { return cdb_trigger_subscriptions(data, &p_daemon->zone_id, 1); });
         batch_await(p_daemon);
         p_server->kill_now();
         int result = trigger.get();
         close(data);
         return result;
     }},
};

TEST(ClientAndServer, AKilledServerIsTheEndOfFileInEveryState)
{
    for (const t_state &state : states) {
        SCOPED_TRACE(state.name);
        t_killed server;
        t_daemon daemon(server.address);
        register_all(&daemon);
        alarm(60);  // a call that hangs
        EXPECT_EQ(state.reach(&server, &daemon), CONFD_EOF);
        alarm(0);
        int fd = new_socket();
        EXPECT_EQ(
            maapi_connect(fd, reinterpret_cast<const sockaddr *>(&server.address), sizeof(server.address)),
            CONFD_ERR)
            << "nobody listens any more";
        close(fd);
    }
}
