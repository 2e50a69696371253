#include "tests/common/msgq_peers.h"

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <poll.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <sys/un.h>
#include <syslog.h>
#include <unistd.h>

#include "tests/common/own_clock.h"
#include "tests/common/syslog_lines.h"

long g_msgq_blocks;
long g_msgq_blocks_allowed = -1;
ssize_t g_msgq_send_limit = -1;
int g_msgq_poll_result = 1;
time_t g_msgq_clock_step;

// ---- The system below the library ----

extern "C" {
ssize_t __real_send(int fd, const void *buf_p, size_t size, int flags);
ssize_t __wrap_send(int fd, const void *buf_p, size_t size, int flags);
int __real_poll(pollfd *fds_p, nfds_t count, int msecs);
int __wrap_poll(pollfd *fds_p, nfds_t count, int msecs);
int __real_gettimeofday(timeval *now_p, void *zone_p);
int __wrap_gettimeofday(timeval *now_p, void *zone_p);

ssize_t __wrap_send(int fd, const void *buf_p, size_t size, int flags)
{
    if (g_msgq_send_limit == -2) {
        errno = EPIPE;
        return -1;
    }
    if (g_msgq_send_limit >= 0)
        size = std::min(size, static_cast<size_t>(g_msgq_send_limit));
    return __real_send(fd, buf_p, size, flags);
}

int __wrap_poll(pollfd *fds_p, nfds_t count, int msecs)
{
    if (g_msgq_poll_result == 1)
        return __real_poll(fds_p, count, msecs);
    errno = -g_msgq_poll_result;
    return g_msgq_poll_result == 0 ? 0 : -1;
}

int __wrap_gettimeofday(timeval *now_p, void *zone_p)
{
    static time_t skipped;
    skipped += g_msgq_clock_step;
    int result = __real_gettimeofday(now_p, zone_p);
    now_p->tv_sec += skipped;
    return result;
}
}

// ---- The application ----

static void *counted_malloc(size_t size)
{
    if (g_msgq_blocks_allowed == 0)
        return nullptr;
    g_msgq_blocks_allowed -= g_msgq_blocks_allowed > 0;
    g_msgq_blocks++;
    return malloc(size);
}

static void counted_free(void *buf_p)
{
    g_msgq_blocks--;
    free(buf_p);
}

static void note_connection(void *user_arg_p, bool up)
{
    auto *app_p = static_cast<t_msgq_app *>(user_arg_p);
    EXPECT_NE(app_p->up, up) << "up and down take turns";
    app_p->up = up;
    app_p->log.push_back(up ? "up" : "down");
}

static void note_message(msgq_handle_t *msgq_p, void *msg_p, uint16_t size, void *user_arg_p)
{
    auto *app_p = static_cast<t_msgq_app *>(user_arg_p);
    std::string body(static_cast<char *>(msg_p), size);
    msgq_msg_free(msgq_p, msg_p);
    app_p->log.push_back("got " + body);
    if (app_p->on_message)
        app_p->on_message(msgq_p, body);
}

msgq_app_cb_t t_msgq_app::callbacks()
{
    return {.conn_up_cb = [](msgq_handle_t *, void *arg) { note_connection(arg, true); },
            .conn_down_cb = [](msgq_handle_t *, void *arg) { note_connection(arg, false); },
            .msg_write_cb = [](msgq_handle_t *, void *) { FAIL() << "never called"; },
            .msg_read_cb = note_message,
            .malloc_cb = counted_malloc,
            .free_cb = counted_free,
            .reboot_status_cb = nullptr};
}

e_err msgq_write_text(msgq_handle_t *msgq_p, const std::string &text)
{
    void *app_p = msgq_msg_malloc(msgq_p, static_cast<uint16_t>(text.size()));
    memcpy(app_p, text.data(), text.size());
    e_err err = msgq_write(msgq_p, app_p, static_cast<uint16_t>(text.size()));
    if (err != ERR_OK)
        msgq_msg_free(msgq_p, app_p);
    return err;
}

// ---- The wire ----

std::string msgq_wire(uint8_t src, uint8_t tgt, uint8_t type, const std::string &body)
{
    size_t size = body.size() + 8;
    std::string header = {'\xAF',
                          '\xBE',
                          static_cast<char>(size),
                          static_cast<char>(size >> 8),
                          static_cast<char>(src),
                          static_cast<char>(tgt),
                          static_cast<char>(type),
                          '\x0C'};
    return header + body;
}

std::string msgq_wire_register(uint8_t src, uint8_t tgt)
{
    return msgq_wire(src, tgt, 1, "");
}

std::string msgq_app_wire(const std::string &body)
{
    size_t size = body.size() + MSGQ_TEST_APP_HEADER;
    return std::string("\x11\x22", 2) + static_cast<char>(size >> 8) + static_cast<char>(size) + "\x33\x44" +
           body;
}

t_raw_peer::t_raw_peer(const std::string &path)
    : fd(socket(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0))
{
    sockaddr_un addr = {};
    addr.sun_family = AF_UNIX;
    path.copy(addr.sun_path, sizeof(addr.sun_path) - 1);
    EXPECT_EQ(connect(fd, reinterpret_cast<sockaddr *>(&addr), sizeof(addr)), 0) << strerror(errno);
}

t_raw_peer &t_raw_peer::operator=(t_raw_peer &&other) noexcept
{
    std::swap(fd, other.fd);
    return *this;
}

t_raw_peer::~t_raw_peer()
{
    if (fd >= 0)
        close(fd);
}

void t_raw_peer::send(const std::string &bytes) const
{
    (void)__real_send(fd, bytes.data(), bytes.size(), MSG_NOSIGNAL | MSG_DONTWAIT);
}

std::string t_raw_peer::take() const
{
    std::string all;
    char part[65536];
    ssize_t got;
    while ((got = recv(fd, part, sizeof(part), MSG_DONTWAIT)) > 0)
        all.append(part, static_cast<size_t>(got));
    return all;
}

bool t_raw_peer::is_closed() const
{
    char byte;
    ssize_t got = recv(fd, &byte, 1, MSG_DONTWAIT | MSG_PEEK);
    return got == 0 || (got < 0 && errno == ECONNRESET);
}

// ---- The fixture ----

int msgq_count_descriptors()
{
    std::filesystem::directory_iterator open_ones("/proc/self/fd");
    return static_cast<int>(std::distance(begin(open_ones), end(open_ones)));
}

MsgqTest::MsgqTest() : descriptors(msgq_count_descriptors())
{
    base = event_base_new();
    timer_mgr = timer_mgr_create(TIMER_RESN_10MSEC, nullptr, nullptr, nullptr, TIMER_PRI_MASK_ALL);
    char name[] = "/tmp/msgq_test.XXXXXX";
    folder = mkdtemp(name);
    path = folder + "/q";
    syslog_lines_take();
}

MsgqTest::~MsgqTest()
{
    msgq_destroy_all();
    EXPECT_EQ(g_msgq_inst_p, nullptr);
    EXPECT_EQ(g_msgq_blocks, 0);
    timer_mgr_destroy(timer_mgr);
    event_base_free(base);
    EXPECT_EQ(msgq_count_descriptors(), descriptors);
    EXPECT_TRUE(std::filesystem::is_empty(folder)) << "the last handle takes the socket file along";
    std::filesystem::remove_all(folder);
    g_msgq_send_limit = -1;
    g_msgq_poll_result = 1;
    g_msgq_clock_step = 0;
    msgq_dbg_enable = 0;
}

msgq_app_params_t MsgqTest::params() const
{
    msgq_app_params_t params = {};
    params.app_evbase_p = base;
    params.timer_mgr_p = timer_mgr;
    params.syslog_id = LOG_LOCAL7;
    params.socket_type = AF_UNIX;
    path.copy(params.msg_path, sizeof(params.msg_path) - 1);
    return params;
}

msgq_app_params_t MsgqTest::app_params() const
{
    msgq_app_params_t result = params();
    result.use_app_header = true;
    result.app_header_size = MSGQ_TEST_APP_HEADER;
    result.app_msglen_offset = MSGQ_TEST_LENGTH_AT;
    return result;
}

msgq_handle_t *MsgqTest::serve(t_msgq_app *app_p, const msgq_app_params_t &with) const
{
    msgq_app_cb_t cb = t_msgq_app::callbacks();
    return msgq_init(MSGQ_OWN, MSGQ_PEER, MSGQ_HANDLE_TYPE_SERVER, &with, &cb, app_p);
}

msgq_handle_t *MsgqTest::call(t_msgq_app *app_p, const msgq_app_params_t &with) const
{
    msgq_app_cb_t cb = t_msgq_app::callbacks();
    return msgq_init(MSGQ_PEER, MSGQ_OWN, MSGQ_HANDLE_TYPE_CLIENT, &with, &cb, app_p);
}

void MsgqTest::pump() const
{
    event_base_loop(base, EVLOOP_NONBLOCK);  // goes on while anything is active
}

void MsgqTest::pass(int msecs) const
{
    own_clock_advance(msecs * OWN_CLOCK_MSEC);
    timer_exec(timer_mgr, TIMER_PRI_MASK_ALL, 1000);
    pump();
}

t_raw_peer MsgqTest::registered() const
{
    t_raw_peer peer(path);
    peer.send(msgq_wire_register());
    pump();
    return peer;
}
