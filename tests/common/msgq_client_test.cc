// Clients: connecting again and again, over both kinds of socket, blocking or not; and what is an assertion.
#include <arpa/inet.h>
#include <csignal>
#include <netinet/in.h>
#include <random>
#include <sys/socket.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include "tests/common/msgq_peers.h"
#include "tests/common/own_clock.h"
#include "tests/common/syslog_lines.h"

// A listening socket of a test's own, for what the client sends by itself.
struct t_raw_listener {
    int fd;
    uint16_t port = 0;

    explicit t_raw_listener(const std::string &path) : fd(socket(AF_UNIX, SOCK_STREAM, 0))
    {
        sockaddr_un addr = {};
        addr.sun_family = AF_UNIX;
        path.copy(addr.sun_path, sizeof(addr.sun_path) - 1);
        EXPECT_EQ(bind(fd, reinterpret_cast<sockaddr *>(&addr), sizeof(addr)), 0);
        listen(fd, 5);
    }
    t_raw_listener() : fd(socket(AF_INET, SOCK_STREAM, 0))
    {
        sockaddr_in addr = {};
        addr.sin_family = AF_INET;
        addr.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        socklen_t size = sizeof(addr);
        EXPECT_EQ(bind(fd, reinterpret_cast<sockaddr *>(&addr), size), 0);
        listen(fd, 5);
        getsockname(fd, reinterpret_cast<sockaddr *>(&addr), &size);
        port = ntohs(addr.sin_port);
    }
    ~t_raw_listener()
    {
        close(fd);
    }
    t_raw_listener(const t_raw_listener &) = delete;
    t_raw_listener &operator=(const t_raw_listener &) = delete;
    t_raw_peer take() const
    {
        return t_raw_peer(accept(fd, nullptr, nullptr));
    }
};

TEST_F(MsgqTest, GoldenBytesOfAClient)
{
    t_raw_listener listener(path);
    t_msgq_app &app = new_app();
    msgq_handle_t *msgq_p = call(&app, params());
    pass(500);
    msgq_write_text(msgq_p, "abc");
    t_raw_peer peer = listener.take();
    EXPECT_EQ(peer.take(), std::string("\xAF\xBE\x08\x00\x03\x09\x01\x0C"
                                       "\xAF\xBE\x0B\x00\x03\x09\x02\x0C"
                                       "abc",
                                       19));
    msgq_destroy(msgq_p);
    EXPECT_EQ(app.log, lines({"up", "down"}));

    msgq_p = call(&app, app_params());
    pass(500);
    std::string with_header("\x11\x22\x00\x08\x33\x44yz", 8);
    msgq_write_text(msgq_p, with_header);
    EXPECT_EQ(listener.take().take(), with_header);
    unlink(path.c_str());
}

TEST_F(MsgqTest, ALivePairComesUpAgainAfterEachLoss)
{
    for (const msgq_app_params_t &with : {params(), app_params()}) {
        t_msgq_app &called = new_app(), &served = new_app();
        msgq_handle_t *client_p = call(&called, with);
        pass(490);
        EXPECT_EQ(client_p->stats.conn_up, 0u);
        for (int round = 1; round <= 3; round++) {
            pass(1000);  // in vain
            EXPECT_EQ(client_p->sock_fd, -1);
            msgq_handle_t *server_p = serve(&served, with);
            pass(500);
            std::string body = with.use_app_header ? msgq_app_wire("ping") : "ping";
            served.on_message = [](msgq_handle_t *msgq_p, const std::string &text) {
                EXPECT_EQ(msgq_write_text(msgq_p, text), ERR_OK);
            };
            EXPECT_EQ(msgq_write_text(client_p, body), ERR_OK);
            pump();
            EXPECT_EQ(called.log, lines({"up", "got " + body}));
            EXPECT_EQ(served.log, lines({"up", "got " + body}));
            called.log.clear();
            msgq_destroy(server_p);
            served = {};
            pump();
            EXPECT_EQ(called.log, lines({"down"}));
            called.log.clear();
        }
        EXPECT_EQ(client_p->stats.tx_register, with.use_app_header ? 0u : 3u);
        msgq_destroy(client_p);
    }
}

// The order is closed, on the registered list, told that it is up.
TEST_F(MsgqTest, AClientWhoseRegisterMessageFailsIsUpAndTriesAgain)
{
    t_raw_listener listener(path);
    t_msgq_app &app = new_app();
    msgq_handle_t *msgq_p = call(&app, params());
    g_msgq_send_limit = -2;
    pass(500);
    EXPECT_TRUE(app.up);
    EXPECT_TRUE(msgq_p->in_reg_list);
    EXPECT_EQ(msgq_p->sock_fd, -1);
    EXPECT_EQ(msgq_write_text(msgq_p, "nobody there"), ERR_AGAIN);
    pass(500);
    EXPECT_EQ(app.log, lines({"up", "down", "up"}));
    g_msgq_send_limit = -1;
    app.up = false;  // the next one comes without a loss between
    pass(500);
    EXPECT_TRUE(msgq_ready(msgq_p));
    EXPECT_EQ(app.log.back(), "up");
    EXPECT_EQ(msgq_p->stats.tx_register, 3u);
    unlink(path.c_str());
}

TEST_F(MsgqTest, AClientOfARebootingSystemNeverConnects)
{
    t_raw_listener listener(path);
    t_msgq_app &app = new_app();
    msgq_app_params_t with = params();
    msgq_app_cb_t cb = t_msgq_app::callbacks();
    cb.reboot_status_cb = [](msgq_handle_t *msgq_p) { return msgq_p->tgtid == MSGQ_OWN; };
    msgq_handle_t *msgq_p = msgq_init(MSGQ_PEER, MSGQ_OWN, MSGQ_HANDLE_TYPE_CLIENT, &with, &cb, &app);
    EXPECT_EQ(syslog_lines_take().at(0).text, "Reboot in progress, skip connecting to server tarnd");
    pass(1000);
    EXPECT_EQ(msgq_p->conn_timer_p, nullptr);
    EXPECT_EQ(app.log, lines());
    unlink(path.c_str());
}

// ---- AF_INET ----

TEST_F(MsgqTest, AnInternetClientWaitsForADelayedConnection)
{
    t_raw_listener listener;
    t_msgq_app &app = new_app();
    msgq_app_params_t with = params();
    with.socket_type = AF_INET;
    with.host_port = listener.port;
    strcpy(with.host_addr, "127.0.0.1");
    msgq_dbg_enable = 1;
    const struct {
        int poll_result;
        std::string said;
    } rows[] = {{0, "Timeout in select"},
                {-EINTR, "Timeout in select"},
                {-EINVAL, "Failed to connect for fd: FD, error: 22"},
                {1, ""}};
    msgq_handle_t *msgq_p = call(&app, with);
    for (const auto &row : rows) {
        g_msgq_poll_result = row.poll_result;
        pass(500);
        std::string said;
        for (const t_syslog_line &line : syslog_lines_take())
            said += line.text;
        size_t fd_at = said.find("fd: ");
        if (fd_at != std::string::npos)
            said.replace(fd_at + 4, said.find(',') - fd_at - 4, "FD");
        EXPECT_EQ(said, row.said);
    }
    EXPECT_EQ(app.log, lines({"up"}));
    for (int i = 0; i < 3; i++)
        listener.take();
    EXPECT_EQ(listener.take().take(), msgq_wire_register());
    g_msgq_send_limit = -2;
    EXPECT_EQ(msgq_write_text(msgq_p, "four"), ERR_OK);
    EXPECT_EQ(syslog_lines_take().at(0).text, "Error in sending message to 9, err 32, msg_size is 12");
    pump();

    with.host_port = 1;  // nobody listens
    msgq_destroy(msgq_p);
    call(&app, with);
    syslog_lines_take();
    pass(500);
    EXPECT_EQ(syslog_lines_take().at(0).text, "[MSG] ERROR in delayed connection: 111 - Connection refused");
}

// ---- Blocking ----

// A server in a process of its own that answers each message, or the first one and then leaves.
static pid_t answering_server_start(MsgqTest &test, const msgq_app_params_t &with, bool leaves)
{
    pid_t pid = fork();
    if (pid != 0)
        return pid;
    event_base *base = event_base_new();
    msgq_app_params_t own = with;
    own.app_evbase_p = base;
    own.client_socket_blocking = 0;
    t_msgq_app &app = test.new_app();
    app.on_message = [&](msgq_handle_t *msgq_p, const std::string &text) {
        (void)msgq_write_text(msgq_p, text);
        if (leaves)
            event_base_loopbreak(base);
    };
    usleep(20'000);  // the client is looking for it already
    msgq_handle_t *msgq_p = test.serve(&app, own);
    while (app.log.empty() || app.up) {
        event_base_loop(base, EVLOOP_ONCE);
        if (leaves && app.log.size() > 1)
            break;
    }
    msgq_destroy(msgq_p);
    _exit(0);
}

TEST_F(MsgqTest, ABlockingClientHasTheAnswerWhenItsWriteReturns)
{
    for (bool use_app_header : {true, false}) {
        msgq_app_params_t with = use_app_header ? app_params() : params();
        with.client_socket_blocking = 1;
        // Without application headers the reader waits for more until the peer leaves.
        pid_t pid = answering_server_start(*this, with, !use_app_header);
        t_msgq_app &app = new_app();
        msgq_handle_t *msgq_p = call(&app, with);
        EXPECT_TRUE(msgq_get_client_socket_blocking(msgq_p));
        EXPECT_EQ(app.log, lines({"up"}));
        EXPECT_EQ(msgq_p->read_ev_p, nullptr);
        std::string body = use_app_header ? msgq_app_wire("question") : "question";
        EXPECT_EQ(msgq_write_text(msgq_p, body), ERR_OK);
        EXPECT_EQ(app.log.at(1), "got " + body);
        EXPECT_EQ(app.up, use_app_header);
        if (use_app_header) {
            EXPECT_EQ(msgq_write_text(msgq_p, body), ERR_OK);
            EXPECT_EQ(app.log.size(), 3u);
            EXPECT_EQ(msgq_set_blocking(msgq_p, false), 0);
            g_msgq_send_limit = -2;
            EXPECT_EQ(msgq_write_text(msgq_p, body), ERR_WRITE_FAILED);
            g_msgq_send_limit = -1;
        }
        EXPECT_EQ(msgq_set_blocking(msgq_p, true), use_app_header ? 0 : -1);
        msgq_destroy(msgq_p);
        int status = -1;
        waitpid(pid, &status, 0);
        EXPECT_EQ(status, 0);
    }
}

// ---- Any order of everything ----

// Raw peers, a client of the library, servers in both modes: they connect, register, send, close and are
// destroyed at random, and take over from each other.
struct t_churn {
    MsgqTest &test;
    std::minstd_rand random{4};
    t_msgq_app apps[4];
    msgq_handle_t *handles[4] =
        {};  // FTM's server, TTM's server, a client in FTM's place, application headers
    struct t_stream {
        t_raw_peer peer;
        std::string rest;
    };
    std::vector<t_stream> peers;
    int connects = 0;

    explicit t_churn(MsgqTest &fixture) : test(fixture) {}

    uint32_t roll(uint32_t sides)
    {
        return static_cast<uint32_t>(random() >> 4) % sides;
    }

    void make(size_t index)
    {
        msgq_app_params_t with = index == 3 ? test.app_params() : test.params();
        if (index == 3)
            strcat(with.msg_path, "a");
        msgq_app_cb_t cb = t_msgq_app::callbacks();
        bool is_client = index == 2;
        uint32_t peer = index == 1 ? LUM_MODULE_TTM : MSGQ_PEER;
        handles[index] = msgq_init(is_client ? MSGQ_PEER : MSGQ_OWN, is_client ? MSGQ_OWN : peer,
                                   is_client ? MSGQ_HANDLE_TYPE_CLIENT : MSGQ_HANDLE_TYPE_SERVER, &with, &cb,
                                   &apps[index]);
    }

    void connect()
    {
        bool app_header = roll(3) == 0;
        if ((app_header && handles[3] == nullptr) || (handles[0] == nullptr && handles[1] == nullptr))
            return;
        std::string stream;
        uint8_t src = static_cast<uint8_t>(LUM_MODULE_OMP + roll(3));  // OMP, TTM, FTM
        if (!app_header)
            stream = msgq_wire_register(src);
        for (uint32_t i = roll(4); i > 0; i--) {
            std::string body(1 + roll(300), 'x');
            stream += app_header ? msgq_app_wire(body) : msgq_wire(src, MSGQ_OWN, 2, body);
        }
        connects++;
        peers.push_back({t_raw_peer(test.path + (app_header ? "a" : "")), std::move(stream)});
    }

    void act_on_peer()
    {
        if (peers.empty())
            return;
        t_stream &chosen = peers[roll(static_cast<uint32_t>(peers.size()))];
        if (roll(2) == 0 || peers.size() > 8) {
            std::swap(chosen, peers.back());
            peers.pop_back();
            return;
        }
        size_t size = roll(static_cast<uint32_t>(chosen.rest.size()) + 1);
        chosen.peer.send(chosen.rest.substr(0, size));
        chosen.rest.erase(0, size);
        if (roll(4) != 0)
            chosen.peer.take();
    }

    void act_on_handle()
    {
        size_t index = roll(4);
        if (handles[index] == nullptr)
            return make(index);
        if (roll(20) == 0) {
            msgq_destroy(std::exchange(handles[index], nullptr));
            return;
        }
        for (uint32_t i = roll(8); i > 0; i--) {
            std::string body(1 + roll(20'000), 'y');
            (void)msgq_write_text(handles[index], index == 3 ? msgq_app_wire(body) : body);
        }
    }

    void step()
    {
        switch (roll(4)) {
        case 0:
            connect();
            break;
        case 1:
            act_on_peer();
            break;
        case 2:
            act_on_handle();
            break;
        default:
            own_clock_advance(roll(300) * OWN_CLOCK_MSEC);
            timer_exec(test.timer_mgr, TIMER_PRI_MASK_ALL, 1000);
        }
        event_base_loop(test.base, roll(2) == 0 ? EVLOOP_NONBLOCK : EVLOOP_ONCE | EVLOOP_NONBLOCK);
    }
};

TEST_F(MsgqTest, TenThousandConnectionsLeaveNothing)
{
    t_churn churn(*this);
    for (size_t i = 0; i < 4; i++)
        churn.make(i);
    uint32_t ups = 0;
    while (churn.connects < 10'000) {
        churn.step();
        for (t_msgq_app &app : churn.apps) {
            ups += static_cast<uint32_t>(std::count(app.log.begin(), app.log.end(), "up"));
            app.log.clear();
        }
    }
    EXPECT_GT(ups, 2000u);
    for (size_t i = 0; i < 4; i++)
        msgq_destroy(churn.handles[i]);
    EXPECT_EQ(g_msgq_inst_p, nullptr);
    EXPECT_EQ(g_msgq_blocks, 0);
}

// ---- Assertions ----

struct MsgqDeathTest : MsgqTest {
    t_msgq_app &app = new_app();

    void expect_death(const char *what, const std::function<void()> &action)
    {
        EXPECT_EXIT(action(), testing::KilledBySignal(SIGSEGV), "") << what;
    }
};

TEST_F(MsgqDeathTest, WrongParameters)
{
    using f_spoil = void (*)(msgq_app_params_t *, msgq_app_cb_t *);
    static const struct {
        const char *what;
        msgq_handle_type_e type;
        f_spoil spoil;
    } rows[] = {
        {"event base", MSGQ_HANDLE_TYPE_SERVER, [](auto *p, auto *) { p->app_evbase_p = nullptr; }},
        {"timer manager", MSGQ_HANDLE_TYPE_CLIENT, [](auto *p, auto *) { p->timer_mgr_p = nullptr; }},
        {"read callback", MSGQ_HANDLE_TYPE_SERVER, [](auto *, auto *cb) { cb->msg_read_cb = nullptr; }},
        {"write callback", MSGQ_HANDLE_TYPE_SERVER, [](auto *, auto *cb) { cb->msg_write_cb = nullptr; }},
        {"no header", MSGQ_HANDLE_TYPE_SERVER, [](auto *p, auto *) { p->use_app_header = true; }},
        {"long header", MSGQ_HANDLE_TYPE_SERVER,
         [](auto *p, auto *) { p->use_app_header = true, p->app_header_size = 65; }},
        {"length outside", MSGQ_HANDLE_TYPE_SERVER,
         [](auto *p, auto *) {
             p->use_app_header = true, p->app_header_size = 64, p->app_msglen_offset = 63;
         }},
        {"socket type", MSGQ_HANDLE_TYPE_CLIENT, [](auto *p, auto *) { p->socket_type = AF_INET6; }},
        {"internet server", MSGQ_HANDLE_TYPE_SERVER, [](auto *p, auto *) { p->socket_type = AF_INET; }},
    };
    for (const auto &row : rows) {
        expect_death(row.what, [&] {
            msgq_app_params_t with = params();
            msgq_app_cb_t cb = t_msgq_app::callbacks();
            row.spoil(&with, &cb);
            msgq_init(MSGQ_OWN, MSGQ_PEER, row.type, &with, &cb, &app);
        });
    }
}

TEST_F(MsgqDeathTest, WrongUse)
{
    msgq_handle_t *msgq_p = serve(&app, params());
    expect_death("duplicate", [&] { serve(&app, params()); });
    expect_death("other header mode on the path", [&] {
        msgq_app_params_t with = app_params();
        msgq_app_cb_t cb = t_msgq_app::callbacks();
        msgq_init(MSGQ_OWN, LUM_MODULE_TTM, MSGQ_HANDLE_TYPE_SERVER, &with, &cb, &app);
    });
    expect_death("a named handle is left", [&] { msgq_lib_destroy(g_msgq_inst_p); });
    expect_death("wrong list", [&] { msgq_move_to_unreg_list(msgq_p); });
    auto *body_p = static_cast<uint8_t *>(msgq_msg_malloc(msgq_p, 4));
    expect_death("more than was allocated", [&] { (void)msgq_write(msgq_p, body_p, 5); });
    expect_death("magic", [&] {
        body_p[-1] = 0;
        (void)msgq_write(msgq_p, body_p, 4);
    });
    msgq_msg_free(msgq_p, body_p);
    expect_death("second handle with an application header", [&] {
        msgq_destroy(msgq_p);
        serve(&app, app_params());
        msgq_app_params_t with = app_params();
        msgq_app_cb_t cb = t_msgq_app::callbacks();
        msgq_init(MSGQ_OWN, LUM_MODULE_TTM, MSGQ_HANDLE_TYPE_SERVER, &with, &cb, &app);
    });
}

TEST_F(MsgqDeathTest, WhatAPeerCanCause)
{
    msgq_handle_t *msgq_p = serve(&app, params());
    t_raw_peer peer = registered();
    expect_death("registers twice", [&] {
        peer.send(msgq_wire_register());
        pump();
    });
    expect_death("no memory for its message", [&] {
        g_msgq_blocks_allowed = 0;
        peer.send(msgq_wire(MSGQ_PEER, MSGQ_OWN, 2, "x"));
        pump();
    });
    msgq_destroy(msgq_p);
    serve(&app, app_params());
    expect_death("a length that is only the header", [&] {
        t_raw_peer other(path);
        other.send(msgq_app_wire(""));
        pump();
    });
}
