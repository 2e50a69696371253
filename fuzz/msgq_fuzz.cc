// The message queue's reader, in both header modes, behind a live socket. The input is a program of small
// steps: open connections, send raw bytes, whole messages and register messages on them, send a part twice or
// later, close, write from the server's side. A second decoder follows every connection byte by byte and must
// agree with what arrives, what is closed and what the server's messages look like on the wire.
//
// Two things that a peer can send end a daemon by assertion, which is the agreed answer. They are changed
// here before they go out: a register message on an established connection gets the type of a message, and a
// length of the application's header that does not exceed that header gets one byte of body. Running out of
// memory for a message is the third such assertion and does not happen here.
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <list>
#include <string>
#include <sys/socket.h>
#include <sys/un.h>
#include <syslog.h>
#include <unistd.h>
#include <utility>
#include <vector>

#include <event2/event.h>

#include "common/msgq_util.h"

static constexpr uint8_t OWN = LUM_MODULE_TARN;
static constexpr uint8_t PEER = LUM_MODULE_FTM;
static constexpr size_t CONNECTIONS_MAX = 4;

static void require(bool holds)
{
    if (!holds)
        abort();
}

// ---- The input ----

struct t_input {
    const uint8_t *p_data;
    size_t left;

    uint8_t byte()
    {
        if (left == 0)
            return 0;
        left--;
        return *p_data++;
    }
    std::string bytes(size_t count)
    {
        count = std::min(count, left);
        std::string result(reinterpret_cast<const char *>(p_data), count);
        p_data += count;
        left -= count;
        return result;
    }
};

// ---- The server under test ----

static long g_blocks;
static std::vector<std::string> g_delivered;

static void take_message(msgq_handle_t *msgq_p, void *msg_p, uint16_t size, void *)
{
    g_delivered.emplace_back(static_cast<char *>(msg_p), size);
    msgq_msg_free(msgq_p, msg_p);
}

static void *counted_malloc(size_t size)
{
    g_blocks++;
    return malloc(size);
}

static void counted_free(void *buf_p)
{
    g_blocks--;
    free(buf_p);
}

static const msgq_app_cb_t g_callbacks = {.conn_up_cb = nullptr,
                                          .conn_down_cb = nullptr,
                                          .msg_write_cb = [](msgq_handle_t *, void *) {},
                                          .msg_read_cb = take_message,
                                          .malloc_cb = counted_malloc,
                                          .free_cb = counted_free,
                                          .reboot_status_cb = nullptr};

// A folder of this process for the socket.
struct t_folder {
    char name[32] = "/tmp/msgq_fuzz.XXXXXX";
    t_folder()
    {
        require(mkdtemp(name) != nullptr);
    }
    ~t_folder()
    {
        std::error_code ignored;
        std::filesystem::remove_all(name, ignored);
    }
};

// ---- The second decoder ----

enum e_state {
    NAMELESS,  // accepted, no register message yet
    UP,
    SHUT,  // by the server
};

namespace {

struct t_connection {
    int fd;
    e_state state;
    std::string header;       // of the message under way
    std::string message;      // header and body under way, empty until the header is whole
    size_t size = 0;          // that the message will have
    std::string from_server;  // not yet read here
};

}  // namespace

struct t_session {
    bool app_header;
    size_t header_size;
    size_t length_offset;
    std::string path;
    event_base *base;
    msgq_handle_t *msgq_p;
    std::list<t_connection> connections;
    std::vector<std::string> expected;

    void pump() const
    {
        event_base_loop(base, EVLOOP_NONBLOCK);
    }

    void come_up(t_connection &connection)
    {
        for (t_connection &other : connections)
            if (&other != &connection && other.state == UP)
                other.state = SHUT;
        connection.state = UP;
        connection.from_server.clear();
    }

    uint8_t at(const t_connection &connection, size_t offset) const
    {
        return static_cast<uint8_t>(connection.header[offset]);
    }

    // What would be an assertion is changed on its way.
    char filter(const t_connection &connection, char byte) const
    {
        if (connection.state != UP || !connection.message.empty())
            return byte;
        size_t offset = connection.header.size();
        if (!app_header)
            return offset == 6 && byte == MSGQ_HDR_TYPE_REGISTER ? char{MSGQ_HDR_TYPE_APP} : byte;
        if (offset != length_offset + 1 || at(connection, length_offset) != 0)
            return byte;
        return static_cast<uint8_t>(byte) > header_size ? byte : static_cast<char>(header_size + 1);
    }

    void header_whole(t_connection &connection)
    {
        if (!app_header && at(connection, 6) == MSGQ_HDR_TYPE_REGISTER) {
            if (at(connection, 5) == OWN && at(connection, 4) == PEER)
                come_up(connection);
            else
                connection.state = SHUT;
            connection.header.clear();
            return;
        }
        size_t size =
            app_header
                ? static_cast<size_t>(at(connection, length_offset) << 8 | at(connection, length_offset + 1))
                : static_cast<size_t>(at(connection, 3) << 8 | at(connection, 2));
        if (size <= header_size) {
            connection.header.clear();
            return;
        }
        if (connection.state == NAMELESS) {
            connection.state = SHUT;
            return;
        }
        connection.message = std::exchange(connection.header, {});
        connection.size = size;
    }

    void feed(t_connection &connection, char byte)
    {
        if (connection.message.empty()) {
            connection.header += byte;
            if (connection.header.size() == header_size)
                header_whole(connection);
            return;
        }
        connection.message += byte;
        if (connection.message.size() == connection.size)
            expected.push_back(std::exchange(connection.message, {}).substr(app_header ? 0 : header_size));
    }

    void send_part(t_connection &connection, std::string part)
    {
        if (connection.state == SHUT)
            return;
        for (char &byte : part) {
            byte = filter(connection, byte);
            feed(connection, byte);
            if (connection.state == SHUT)
                break;
        }
        require(send(connection.fd, part.data(), part.size(), MSG_NOSIGNAL | MSG_DONTWAIT) ==
                static_cast<ssize_t>(part.size()));
        pump();
        require(std::exchange(g_delivered, {}) == std::exchange(expected, {}));
    }

    void open()
    {
        if (connections.size() == CONNECTIONS_MAX)
            return;
        sockaddr_un addr = {};
        addr.sun_family = AF_UNIX;
        path.copy(addr.sun_path, sizeof(addr.sun_path) - 1);
        t_connection &connection = connections.emplace_back();
        connection.fd = socket(AF_UNIX, SOCK_STREAM, 0);
        require(connect(connection.fd, reinterpret_cast<sockaddr *>(&addr), sizeof(addr)) == 0);
        pump();
        connection.state = NAMELESS;
        if (app_header)
            come_up(connection);
    }

    // All that the server has sent must be there, or on a connection that it shut, nothing more than that.
    void drain(t_connection &connection)
    {
        char part[16384];
        std::string got;
        ssize_t size;
        while ((size = recv(connection.fd, part, sizeof(part), MSG_DONTWAIT)) > 0) {
            got.append(part, static_cast<size_t>(size));
            pump();
        }
        bool is_closed = size == 0 || errno == ECONNRESET;
        require(is_closed == (connection.state == SHUT));
        if (connection.state == SHUT)
            require(connection.from_server.starts_with(got));
        else
            require(connection.from_server == got);
        connection.from_server.erase(0, got.size());
    }

    void close_front()
    {
        close(connections.front().fd);
        connections.pop_front();
        pump();
    }

    std::string header_for(size_t body_size, uint8_t type) const
    {
        size_t size = body_size + header_size;
        char low = static_cast<char>(size);
        char high = static_cast<char>(size >> 8);
        if (!app_header)
            return {'\xAF', '\xBE', low, high, PEER, OWN, static_cast<char>(type), MAGIC2};
        std::string header(header_size, 'h');
        header[length_offset] = high;
        header[length_offset + 1] = low;
        return header;
    }

    void write_message(uint16_t size)
    {
        std::string text(size, 'w');
        void *app_p = msgq_msg_malloc(msgq_p, size);
        memcpy(app_p, text.data(), size);
        e_err err = msgq_write(msgq_p, app_p, size);
        t_connection *up_p = nullptr;
        for (t_connection &connection : connections)
            if (connection.state == UP)
                up_p = &connection;
        require((err == ERR_OK) == (up_p != nullptr));
        if (err != ERR_OK) {
            msgq_msg_free(msgq_p, app_p);
            return;
        }
        std::string header = app_header ? "" : header_for(size, MSGQ_HDR_TYPE_APP);
        if (!app_header)
            std::swap(header[4], header[5]);
        up_p->from_server += header + text;
    }
};

// ---- The steps ----

static std::string part_of(const t_session &session, t_input *p_input, uint8_t step)
{
    if (step == 0)
        return p_input->bytes(p_input->byte());
    if (step == 1)
        return session.header_for(0, MSGQ_HDR_TYPE_REGISTER);
    std::string body(size_t{p_input->byte()} * (step == 2 ? 1 : 64) + 1, 'b');
    return session.header_for(body.size(), MSGQ_HDR_TYPE_APP) + body;
}

static void run_step(t_session *p_session, t_input *p_input, std::string *p_last, std::string *p_later)
{
    uint8_t step = p_input->byte() % 12;
    if (step == 4)
        return p_session->open();
    if (step == 5)
        return p_session->write_message(static_cast<uint16_t>(1 + p_input->byte() * 200));
    if (p_session->connections.empty())
        return;
    t_connection &front = p_session->connections.front();
    if (step == 6)
        p_session->connections.splice(p_session->connections.end(), p_session->connections,
                                      p_session->connections.begin());
    else if (step == 7)
        p_session->close_front();
    else if (step == 8)
        p_session->drain(front);
    else if (step == 9)
        p_session->send_part(front, *p_last);
    else if (step == 10)
        *p_later = part_of(*p_session, p_input, p_input->byte() % 4);
    else if (step == 11)
        p_session->send_part(front, std::exchange(*p_later, {}));
    else
        p_session->send_part(front, *p_last = part_of(*p_session, p_input, step));
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *p_data, size_t size)
{
    static const t_folder folder;
    setlogmask(LOG_MASK(LOG_EMERG));
    t_input input = {p_data, size};
    t_session session = {};
    session.app_header = (input.byte() & 1) != 0;
    session.header_size = session.app_header ? 2 + input.byte() % 63 : sizeof(msgq_hdr_t);
    session.length_offset = input.byte() % (session.header_size - 1);
    session.path = std::string(folder.name) + "/q";
    session.base = event_base_new();
    msgq_app_params_t params = {};
    params.app_evbase_p = session.base;
    params.socket_type = AF_UNIX;
    params.use_app_header = session.app_header;
    params.app_header_size = static_cast<uint8_t>(session.header_size);
    params.app_msglen_offset = static_cast<uint8_t>(session.length_offset);
    session.path.copy(params.msg_path, sizeof(params.msg_path) - 1);
    session.msgq_p = msgq_init(OWN, PEER, MSGQ_HANDLE_TYPE_SERVER, &params, &g_callbacks, nullptr);

    std::string last, later;
    while (input.left > 0)
        run_step(&session, &input, &last, &later);
    for (t_connection &connection : session.connections)
        session.drain(connection);
    while (!session.connections.empty())
        session.close_front();
    msgq_destroy(session.msgq_p);
    require(g_msgq_inst_p == nullptr && g_blocks == 0);
    event_base_free(session.base);
    return 0;
}
