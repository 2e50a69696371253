// Servers: framing, registration, takeover, the write queue, and the text of the dumps.
#include <filesystem>
#include <sys/socket.h>

#include "common/cli_print.h"
#include "tests/common/msgq_peers.h"
#include "tests/common/own_clock.h"
#include "tests/common/syslog_lines.h"

// ---- Reading ----

// Both modes, the stream of a peer from its first byte on cut at every pair of places.
TEST_F(MsgqTest, MessagesArriveWholeHoweverTheStreamIsCut)
{
    const struct {
        msgq_app_params_t params;
        std::string stream;
        lines want;
    } rows[] = {
        {params(),
         msgq_wire_register() + msgq_wire(MSGQ_PEER, MSGQ_OWN, 2, "hello") +
             msgq_wire(MSGQ_PEER, MSGQ_OWN, 0, "x"),
         {"up", "got hello", "got x", "down"}},
        {app_params(),
         msgq_app_wire("hello") + msgq_app_wire("x"),
         {"up", "got " + msgq_app_wire("hello"), "got " + msgq_app_wire("x"), "down"}},
    };
    for (const auto &row : rows) {
        t_msgq_app &app = new_app();
        msgq_handle_t *msgq_p = serve(&app, row.params);
        for (size_t first = 0; first <= row.stream.size(); first++) {
            for (size_t second = first; second <= row.stream.size(); second++) {
                app.log.clear();
                {
                    t_raw_peer peer(path);
                    for (const std::string &part :
                         {row.stream.substr(0, first), row.stream.substr(first, second - first),
                          row.stream.substr(second)}) {
                        peer.send(part);
                        pump();
                    }
                }
                pump();
                ASSERT_EQ(app.log, row.want) << first << " " << second;
            }
        }
        msgq_destroy(msgq_p);
    }
}

TEST_F(MsgqTest, AMessageOfBadSizeLosesItsHeaderAndTheNextIsRead)
{
    t_msgq_app &app = new_app();
    msgq_handle_t *msgq_p = serve(&app, params());
    t_raw_peer unnamed(path);  // also before it has said who it is
    std::string bad = msgq_wire(MSGQ_PEER, MSGQ_OWN, 2, "");
    unnamed.send(bad);
    pump();
    unnamed.send(msgq_wire_register() + bad + msgq_wire(MSGQ_PEER, MSGQ_OWN, 2, "next"));
    pump();
    EXPECT_EQ(app.log, lines({"up", "got next"}));
    EXPECT_EQ(msgq_p->stats.rx_msg, 1u);
    std::vector<t_syslog_line> said = syslog_lines_take();
    ASSERT_EQ(said.size(), 2u);
    EXPECT_EQ(said[1].priority, 191);
    EXPECT_EQ(said[1].text, "Bad message size (8). Must be more than (8). Magic1 (48815)"
                            "Dropping the message on fd '" +
                                std::to_string(msgq_p->sock_fd) + "'");
}

TEST_F(MsgqTest, ATalkativePeerIsReadInTurns)
{
    t_msgq_app &app = new_app();
    serve(&app, params());
    t_raw_peer peer = registered();
    std::string three = msgq_wire(3, 9, 2, "a") + msgq_wire(3, 9, 2, "b") + msgq_wire(3, 9, 2, "c");
    const struct {
        time_t step;  // seconds that a message takes
        size_t got;   // in the first turn
    } rows[] = {{0, 3}, {1, 2}, {2, 1}};
    for (const auto &row : rows) {
        app.log.clear();
        g_msgq_clock_step = row.step;
        peer.send(three);
        event_base_loop(base, EVLOOP_ONCE | EVLOOP_NONBLOCK);
        EXPECT_EQ(app.log.size(), row.got) << row.step;
        pump();
        EXPECT_EQ(app.log, lines({"got a", "got b", "got c"}));
    }
}

TEST_F(MsgqTest, AReadHelperGivesTheReaderAnotherTurn)
{
    t_msgq_app &app = new_app();
    msgq_handle_t *msgq_p = serve(&app, params());
    t_raw_peer peer = registered();
    event_del(msgq_p->read_ev_p);  // only the helper reads now
    for (int turn = 0; turn < 3; turn++) {
        peer.send(msgq_wire(3, 9, 2, "turn"));
        pump();
        EXPECT_EQ(app.log.size(), 1u + turn);
        msgq_read_helper_schedule(msgq_p);
        msgq_read_helper_schedule(msgq_p);
        pump();
        EXPECT_EQ(app.log.size(), 2u + turn);
        EXPECT_EQ(msgq_p->read_helper_ev_index, (turn + 1) % 2);
    }
    EXPECT_EQ(msgq_p->stats.rx_read_helper_scheduled, 3u);
    EXPECT_EQ(msgq_p->stats.rx_read_helper_cb, 3u);
    peer.send(msgq_wire(3, 9, 2, "turn"));
    msgq_p->down_pending = true;
    msgq_read_helper_schedule(msgq_p);
    pump();
    EXPECT_EQ(app.log.size(), 4u);
}

// ---- Registration ----

TEST_F(MsgqTest, AConnectionThatNamesNobodyIsClosedWithoutAnError)
{
    const struct {
        std::string stream;
        size_t errors;
    } rows[] = {
        {msgq_wire_register(LUM_MODULE_OMP), 0},
        {msgq_wire_register(MSGQ_PEER, LUM_MODULE_OMP), 0},
        {msgq_wire(MSGQ_PEER, MSGQ_OWN, 2, "before it registered"), 1},
    };
    t_msgq_app &app = new_app();
    serve(&app, params());
    for (const auto &row : rows) {
        t_raw_peer peer(path);
        peer.send(row.stream);
        pump();
        EXPECT_TRUE(peer.is_closed());
        EXPECT_EQ(syslog_lines_take().size(), row.errors);
    }
    EXPECT_TRUE(TAILQ_EMPTY(&g_msgq_inst_p->tmp_msgq_listhead));
    EXPECT_EQ(app.log, lines());
}

TEST_F(MsgqTest, ANamelessHandleOutlivesItsConnection)
{
    t_msgq_app &app = new_app();
    serve(&app, params());
    for (const std::string &part : {std::string(), msgq_wire_register().substr(0, 5)}) {
        t_raw_peer peer(path);
        peer.send(part);
        pump();
    }
    pump();
    int left = 0;
    const msgq_handle_t *msgq_p;
    TAILQ_FOREACH(msgq_p, &g_msgq_inst_p->tmp_msgq_listhead, tmp_list_entry)
    left += msgq_p->sock_fd == -1 && msgq_p->stats.rx_fail == 1;
    EXPECT_EQ(left, 2);
}

TEST_F(MsgqTest, ANewConnectionTakesOverFromTheOld)
{
    const struct {
        msgq_app_params_t params;
        std::string hello;
    } rows[] = {{params(), msgq_wire_register()}, {app_params(), ""}};
    for (const auto &row : rows) {
        t_msgq_app &app = new_app();
        msgq_handle_t *msgq_p = serve(&app, row.params);
        t_raw_peer old_peer(path);
        old_peer.send(row.hello);
        pump();
        t_raw_peer new_peer(path);
        new_peer.send(row.hello);
        pump();
        EXPECT_EQ(app.log, lines({"up", "down", "up"}));
        EXPECT_EQ(msgq_p->stats.conn_exist, 1u);
        EXPECT_EQ(msgq_p->stats.conn_close, 1u);
        EXPECT_TRUE(old_peer.is_closed());
        EXPECT_EQ(msgq_write_text(msgq_p, "to the new one"), ERR_OK);
        EXPECT_NE(new_peer.take().find("to the new one"), std::string::npos);
        msgq_destroy(msgq_p);
    }
}

TEST_F(MsgqTest, HandlesOfOnePathShareItsListener)
{
    t_msgq_app &of_ftm = new_app(), &of_ttm = new_app();
    msgq_handle_t *ftm_p = serve(&of_ftm, params());
    msgq_app_params_t with = params();
    msgq_app_cb_t cb = t_msgq_app::callbacks();
    msgq_dbg_enable = 1;
    msgq_handle_t *ttm_p = msgq_init(MSGQ_OWN, LUM_MODULE_TTM, MSGQ_HANDLE_TYPE_SERVER, &with, &cb, &of_ttm);
    EXPECT_EQ(syslog_lines_take().at(0).text, "[MSG] Server is on at " + path + ", ignore server start");
    EXPECT_EQ(ttm_p->server_p, ftm_p->server_p);
    EXPECT_EQ(ttm_p->server_p->ref_count, 2u);
    EXPECT_EQ(std::filesystem::status(path).permissions(), std::filesystem::perms::all);

    t_raw_peer ftm = registered();
    t_raw_peer ttm(path);
    ttm.send(msgq_wire_register(LUM_MODULE_TTM) + msgq_wire(LUM_MODULE_TTM, MSGQ_OWN, 2, "ttm"));
    ftm.send(msgq_wire(MSGQ_PEER, MSGQ_OWN, 2, "ftm"));
    pump();
    EXPECT_EQ(of_ftm.log, lines({"up", "got ftm"}));
    EXPECT_EQ(of_ttm.log, lines({"up", "got ttm"}));
    msgq_destroy(ftm_p);
    EXPECT_TRUE(ftm.is_closed());
    EXPECT_TRUE(std::filesystem::exists(path));
}

TEST_F(MsgqTest, AServerWithoutListenerIsAHandleThatStaysDown)
{
    std::filesystem::create_directory(path);
    t_msgq_app &app = new_app();
    msgq_handle_t *msgq_p = serve(&app, params());
    EXPECT_EQ(syslog_lines_take().at(0).text, "Path " + path + " exists, failed to remove");
    EXPECT_FALSE(msgq_ready(msgq_p));
    std::filesystem::remove(path);
}

TEST_F(MsgqTest, TheLastHandleTakesTheInstanceAlong)
{
    t_msgq_app &app = new_app();
    msgq_app_params_t with = params();
    for (int syslog_id : {8, 16}) {
        with.syslog_id = syslog_id;
        msgq_handle_t *msgq_p = serve(&app, with);
        EXPECT_EQ(g_msgq_inst_p->syslog_id, syslog_id);
        msgq_destroy(msgq_p);
        EXPECT_EQ(g_msgq_inst_p, nullptr);
    }
    msgq_destroy(nullptr);
    msgq_destroy_all();
    msgq_app_cb_t cb = t_msgq_app::callbacks();
    EXPECT_EQ(msgq_init(0, 3, MSGQ_HANDLE_TYPE_SERVER, &with, &cb, &app), nullptr);
    EXPECT_EQ(msgq_init(9, LUM_MODULE_MAX, MSGQ_HANDLE_TYPE_SERVER, &with, &cb, &app), nullptr);
}

// ---- Writing ----

TEST_F(MsgqTest, AFullSocketKeepsTheQueueInOrder)
{
    t_msgq_app &app = new_app();
    msgq_handle_t *msgq_p = serve(&app, params());
    t_raw_peer peer = registered();
    int size = 4096;
    setsockopt(msgq_p->sock_fd, SOL_SOCKET, SO_SNDBUF, &size, sizeof(size));
    std::string want;
    for (char mark : {'a', 'b', 'c'}) {
        std::string body(60'000, mark);
        want += msgq_wire(MSGQ_OWN, MSGQ_PEER, 2, body);
        EXPECT_EQ(msgq_write_text(msgq_p, body), ERR_OK);
    }
    ASSERT_NE(msgq_p->buf_head_p, nullptr);
    EXPECT_GT(msgq_p->buf_head_p->buf_sent, 0);
    EXPECT_EQ(msgq_p->buf_head_p->buf_offset, 0);
    EXPECT_EQ(msgq_p->stats.tx_resched, 3u);
    std::string got;
    for (int i = 0; i < 1000 && got.size() < want.size(); i++) {
        got += peer.take();
        pump();
    }
    EXPECT_EQ(got, want);
    EXPECT_EQ(msgq_p->stats.tx_queued, 3u);
    EXPECT_EQ(msgq_p->stats.tx_dequeued, 3u);
    EXPECT_EQ(msgq_p->stats.tx_msg, 3u);
    EXPECT_GT(msgq_p->stats.tx_write_cb, 1u);
    EXPECT_EQ(msgq_p->write_ev_index, msgq_p->stats.tx_write_cb % 2);
    EXPECT_EQ(msgq_p->buf_tail_p, nullptr);
}

// The socket takes seven bytes at a time, and errno stands from something else.
TEST_F(MsgqTest, AShortSendGoesOnWhateverErrnoHeld)
{
    t_msgq_app &app = new_app();
    msgq_handle_t *msgq_p = serve(&app, params());
    t_raw_peer peer = registered();
    g_msgq_send_limit = 7;
    errno = EPIPE;
    EXPECT_EQ(msgq_write_text(msgq_p, "more than seven bytes"), ERR_OK);
    for (int i = 0; i < 4; i++)
        pump();
    EXPECT_EQ(peer.take(), msgq_wire(MSGQ_OWN, MSGQ_PEER, 2, "more than seven bytes"));
    EXPECT_EQ(msgq_p->stats.tx_resched, 4u);
    EXPECT_EQ(msgq_p->stats.tx_fail, 0u);
}

TEST_F(MsgqTest, ASendErrorClosesFromTheLoop)
{
    t_msgq_app &app = new_app();
    msgq_handle_t *msgq_p = serve(&app, params());
    EXPECT_EQ(msgq_write_text(msgq_p, "to nobody"), ERR_AGAIN);
    t_raw_peer peer = registered();
    g_msgq_send_limit = -2;
    EXPECT_EQ(msgq_write_text(msgq_p, "lost"), ERR_OK);
    EXPECT_EQ(app.log, lines({"up"}));
    EXPECT_FALSE(msgq_ready(msgq_p));
    EXPECT_EQ(msgq_write_text(msgq_p, "too late"), ERR_AGAIN);
    pump();
    EXPECT_EQ(app.log, lines({"up", "down"}));
    EXPECT_EQ(msgq_p->stats.tx_fail, 1u);
    EXPECT_EQ(msgq_p->stats.tx_queued, 0u);
    EXPECT_TRUE(peer.is_closed());
    t_raw_peer next = registered();
    EXPECT_TRUE(msgq_ready(msgq_p));
    EXPECT_EQ(msgq_write(msgq_p, nullptr, 1), ERR_BAD_PARAM);
    EXPECT_EQ(msgq_write(nullptr, &app, 1), ERR_BAD_PARAM);
}

TEST_F(MsgqTest, WithoutMemoryTheCallerKeepsItsBuffer)
{
    t_msgq_app &app = new_app();
    msgq_handle_t *msgq_p = serve(&app, params());
    t_raw_peer peer = registered();
    EXPECT_EQ(msgq_msg_malloc(msgq_p, UINT16_MAX), nullptr) << "no room for the header in 16 bits of size";
    g_msgq_blocks_allowed = 1;
    EXPECT_EQ(msgq_write_text(msgq_p, "no entry for it"), ERR_WRITE_FAILED);
    EXPECT_EQ(msgq_p->stats.tx_queue_failed, 1u);
    g_msgq_blocks_allowed = 0;
    EXPECT_EQ(msgq_msg_malloc(msgq_p, 1), nullptr);
    EXPECT_EQ(msgq_p->stats.alloc_failed, 2u);
    g_msgq_blocks_allowed = -1;
    void *long_one_p = msgq_msg_malloc(msgq_p, 100);
    memset(long_one_p, 'x', 100);
    EXPECT_EQ(msgq_write(msgq_p, long_one_p, 2), ERR_OK);
    EXPECT_EQ(peer.take(), msgq_wire(MSGQ_OWN, MSGQ_PEER, 2, "xx"));
}

// ---- Dumps ----

static std::string g_printed;

__attribute__((format(printf, 3, 0))) static void print_aside(t_lconfd_context *, int, const char *format,
                                                              va_list args)
{
    char text[512];
    vsnprintf(text, sizeof(text), format, args);
    g_printed += text;
}

// The text with each mark, and what follows it of these letters, replaced; a "fd: -1" stays.
static std::string without(std::string text, const std::string &mark, const char *letters,
                           const std::string &instead)
{
    for (size_t at = text.find(mark); at != std::string::npos; at = text.find(mark, at + 1)) {
        size_t end = std::min(text.find_first_not_of(letters, at + mark.size()), text.size());
        if (text[at + mark.size()] != '-')
            text.replace(at, end - at, instead);
    }
    return text;
}

static const char g_dump_want[] = R"(
   =============
   DUMPING MSGQs
   =============
  inst: P
  event base: P, timer: P
 Dumping all message Q handles
 In Reg. list
  msgq_p: P
    Src: tarnd, Tgt: ftmd
    type: SERVER, path:PATH server_p: P
    register: Yes, user_arg: P, down-pending: 0
    fd: FD, Rd ev: P, Wr ev[0]: P, Wr ev[1]: P
    Read Helper ev[0]: P (No), Read helper ev[1]: P (No), index:0
    List: In Reg: Yes, In Unreg: No, In Tmp: No
 STATS:
    rx_msg                         1         
    conn_up                        1         
    msg_allocs                     1         
    msg_frees                      1         
 In Unreg. list
  msgq_p: P
    Src: ftmd, Tgt: tarnd
    type: CLIENT, path:PATH server_p: P
    register: Yes, user_arg: P, down-pending: 0
    fd: -1, Rd ev: P, Wr ev[0]: P, Wr ev[1]: P
    Read Helper ev[0]: P (No), Read helper ev[1]: P (No), index:0
    List: In Reg: No, In Unreg: Yes, In Tmp: No
 STATS:
 In tmp list
  server: P (ref-count: 1)
    Src: tarnd, path:PATH
    app header: No, app msgq: P
 STATS:)";

TEST_F(MsgqTest, GoldenDump)
{
    t_msgq_app &served = new_app(), &called = new_app();
    serve(&served, params());
    call(&called, params());
    t_raw_peer peer = registered();
    peer.send(msgq_wire(MSGQ_PEER, MSGQ_OWN, 2, "body"));
    pump();
    cli_print_register(print_aside);
    g_printed.clear();
    char session;
    msgq_dump_instance(reinterpret_cast<t_lconfd_context *>(&session), 1);
    cli_print_register(nullptr);
    std::string got = without(g_printed, "0x", "0123456789abcdef", "P");
    got = without(without(got, "(nil)", "", "P"), "fd: ", "0123456789", "fd: FD");
    EXPECT_EQ(without(got, path, "", "PATH"), g_dump_want);
}
