#include "common/unix_socket.h"
#include "lab/peers/peer_stream.h"
#include "tests/lab/peers/peer_fixture.h"

#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

using t_bytes = std::vector<uint8_t>;

// What happened, a line each.
struct t_record {
    std::vector<std::string> lines;
    t_peer_session *p_session = nullptr;
    bool close_on_message = false;

    bool has(size_t count) const
    {
        return lines.size() >= count;
    }
};

static std::string text_of(t_peer_bytes body)
{
    return body.size() > 20 ? std::to_string(body.size()) + " bytes" : std::string(body.begin(), body.end());
}

static t_bytes bytes_of(const std::string &text)
{
    return {text.begin(), text.end()};
}

static constexpr t_peer_server_ops server_ops = {
    .up =
        [](void *p_user, t_peer_session *p_session) {
            t_record *p_record = static_cast<t_record *>(p_user);
            p_record->p_session = p_session;
            p_record->lines.push_back("up " + std::to_string(peer_session_module(p_session)));
        },
    .down =
        [](void *p_user, t_peer_session *p_session) {
            static_cast<t_record *>(p_user)->lines.push_back("down " +
                                                             std::to_string(peer_session_module(p_session)));
        },
    .message =
        [](void *p_user, t_peer_session *p_session, t_peer_bytes body) {
            t_record *p_record = static_cast<t_record *>(p_user);
            p_record->lines.push_back(text_of(body));
            if (p_record->close_on_message)
                peer_session_close(p_session);
        },
    .bad =
        [](void *p_user, t_peer_session *, const std::string &reason) {
            static_cast<t_record *>(p_user)->lines.push_back("bad: " + reason);
        },
};

static constexpr t_peer_client_ops client_ops = {
    .up = [](void *p_user) { static_cast<t_record *>(p_user)->lines.push_back("up"); },
    .down = [](void *p_user) { static_cast<t_record *>(p_user)->lines.push_back("down"); },
    .message = [](void *p_user,
                  t_peer_bytes body) { static_cast<t_record *>(p_user)->lines.push_back(text_of(body)); },
    .bad =
        [](void *p_user, const std::string &reason) {
            static_cast<t_record *>(p_user)->lines.push_back("bad: " + reason);
        },
};

class PeerLink : public PeerLoop {
protected:
    t_record server_record;
    t_record client_record;
    peer_server_ptr server;
    peer_client_ptr client;

    void serve()
    {
        server = peer_server_open(base.get(), path("s"), 9, &server_ops, &server_record, &error);
    }
    peer_client_ptr call(t_record *p_record)
    {
        t_peer_client_place place = {.path = path("s"), .source = 3, .target = 9};
        return peer_client_open(base.get(), place, &client_ops, p_record, &error);
    }
    void connect_both()
    {
        serve();
        ASSERT_NE(server, nullptr) << error;
        client = call(&client_record);
        ASSERT_TRUE(runs_until([this] { return server_record.has(1); }));
    }
    static void write_raw(int fd, t_peer_bytes bytes)
    {
        ASSERT_EQ(send(fd, bytes.data(), bytes.size(), MSG_NOSIGNAL), static_cast<ssize_t>(bytes.size()));
    }
};

TEST_F(PeerLink, MessagesGoBothWaysAndALossIsMended)
{
    client = call(&client_record);  // nobody listens yet
    EXPECT_FALSE(peer_client_send(client.get(), bytes_of("lost")));
    serve();
    struct stat status;
    ASSERT_EQ(stat(path("s").c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 0777, 0777u);
    ASSERT_TRUE(runs_until([this] { return server_record.has(1); }));
    EXPECT_EQ(peer_session_module(server_record.p_session), 3);
    EXPECT_EQ(peer_session_pid(server_record.p_session), getpid());
    EXPECT_TRUE(peer_client_send(client.get(), bytes_of("hello")));
    EXPECT_TRUE(peer_client_send(client.get(), t_bytes(PEER_FRAME_MAX_BODY)));
    EXPECT_FALSE(peer_client_send(client.get(), t_bytes(PEER_FRAME_MAX_BODY + 1)));
    EXPECT_FALSE(peer_client_send(client.get(), {}));
    EXPECT_TRUE(peer_session_send(server_record.p_session, bytes_of("answer")));
    ASSERT_TRUE(runs_until([this] { return server_record.has(3) && client_record.has(2); }));

    peer_session_close(server_record.p_session);
    ASSERT_TRUE(runs_until([this] { return server_record.has(5); }));
    peer_client_drop(client.get());
    ASSERT_TRUE(runs_until([this] { return server_record.has(7); }));
    EXPECT_EQ(server_record.lines,
              (std::vector<std::string>{"up 3", "hello", "65527 bytes", "down 3", "up 3", "down 3", "up 3"}));
    EXPECT_EQ(client_record.lines, (std::vector<std::string>{"up", "answer", "down", "up", "down", "up"}));
}

TEST_F(PeerLink, FramesMayComeInAnyPieces)
{
    serve();
    int fd = unix_socket_connect(path("s"));
    t_bytes stream = peer_frame_encode({.type = PEER_FRAME_REGISTER, .source = 2, .target = 9, .body = {}});
    for (const char *text : {"one", "two"}) {
        t_bytes body = bytes_of(text);
        t_bytes frame =
            peer_frame_encode({.type = PEER_FRAME_MESSAGE, .source = 2, .target = 9, .body = body});
        stream.insert(stream.end(), frame.begin(), frame.end());
    }
    for (uint8_t byte : stream) {
        write_raw(fd, {&byte, 1});
        event_base_loop(base.get(), EVLOOP_NONBLOCK);
    }
    ASSERT_TRUE(runs_until([this] { return server_record.has(3); }));
    write_raw(fd, t_peer_bytes(stream).first(11));
    close(fd);  // a register frame where none belongs, then the end
    ASSERT_TRUE(runs_until([this] { return server_record.has(5); }));
    EXPECT_EQ(server_record.lines,
              (std::vector<std::string>{"up 2", "one", "two", "bad: second register frame", "down 2"}));
}

TEST_F(PeerLink, WhatIsNoSessionIsToldAndClosed)
{
    serve();
    const t_bytes cases[] = {
        {0xAF, 0xBE, 9, 0, 2, 9, 2, 0x0C, 'x'},  // a message first
        {0xAF, 0xBE, 8, 0, 2, 8, 1, 0x0C},       // for another module
        {0xAF, 0xBE, 8, 0, 2},                   // cut
        {0, 0, 0, 0, 0, 0, 0, 0},
    };
    size_t told = 0;
    for (const t_bytes &bytes : cases) {
        int fd = unix_socket_connect(path("s"));
        write_raw(fd, bytes);
        shutdown(fd, SHUT_WR);
        told++;
        EXPECT_TRUE(runs_until([this, told] { return server_record.has(told); })) << told;
        close(fd);
    }
    EXPECT_EQ(server_record.lines, (std::vector<std::string>{"bad: no register frame for module 9",
                                                             "bad: no register frame for module 9",
                                                             "bad: the connection ended 5 bytes into a frame",
                                                             "bad: wrong marks in the frame's header"}));
}

TEST_F(PeerLink, ASecondConnectionOfAModuleWins)
{
    connect_both();
    t_record second_record;
    peer_client_ptr second = call(&second_record);
    ASSERT_TRUE(runs_until([this] { return server_record.has(3) && client_record.has(2); }));
    EXPECT_EQ(server_record.lines, (std::vector<std::string>{"up 3", "down 3", "up 3"}));
    EXPECT_EQ(peer_server_sessions(server.get()).size(), 1u);
}

TEST_F(PeerLink, ASessionMayBeClosedInItsOwnCallback)
{
    connect_both();
    server_record.close_on_message = true;
    peer_client_send(client.get(), bytes_of("a"));
    peer_client_send(client.get(), bytes_of("b"));
    ASSERT_TRUE(runs_until([this] { return server_record.has(3); }));
    EXPECT_EQ(server_record.lines, (std::vector<std::string>{"up 3", "a", "down 3"}));
}

TEST_F(PeerLink, AServedPathIsNotTakenAndALeftOneIs)
{
    serve();
    EXPECT_EQ(peer_server_open(base.get(), path("s"), 9, &server_ops, &server_record, &error), nullptr);
    EXPECT_EQ(error, path("s") + ": another process serves this socket");
    close(unix_socket_bind(path("left"), 0777, &error));
    EXPECT_NE(peer_server_open(base.get(), path("left"), 9, &server_ops, &server_record, &error), nullptr);
    EXPECT_EQ(peer_server_open(base.get(), folder, 9, &server_ops, &server_record, &error), nullptr);
    EXPECT_EQ(error, folder + ": there is something else than a socket");
}

TEST_F(PeerLink, AStreamSpeaksOverAnySocketPair)
{
    static constexpr t_peer_stream_ops ops = {
        .frame =
            [](void *p_user, const t_peer_frame &frame) {
                static_cast<t_record *>(p_user)->lines.push_back(text_of(frame.body));
            },
        .ended =
            [](void *p_user, const std::string &fault) {
                static_cast<t_record *>(p_user)->lines.push_back("ended " + fault);
            },
    };
    int fds[2];
    ASSERT_EQ(socketpair(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK, 0, fds), 0);
    peer_stream_ptr left = peer_stream_open(base.get(), fds[0], &ops, &client_record);
    peer_stream_ptr right = peer_stream_open(base.get(), fds[1], &ops, &server_record);
    t_bytes body = bytes_of("x");
    EXPECT_TRUE(
        peer_stream_send(left.get(), {.type = PEER_FRAME_MESSAGE, .source = 1, .target = 2, .body = body}));
    ASSERT_TRUE(runs_until([this] { return server_record.has(1); }));
    left.reset();
    ASSERT_TRUE(runs_until([this] { return server_record.has(2); }));
    EXPECT_EQ(server_record.lines, (std::vector<std::string>{"x", "ended "}));
}
