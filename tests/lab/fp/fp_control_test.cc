// The control socket: a server in this process, clients that behave well and badly.
#include "lab/fp/fp_control.h"

#include "tests/lab/fp/fp_pool.h"
#include "tests/lab/fp/frames.h"

#include <algorithm>
#include <csignal>
#include <cstring>
#include <event2/event.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

static uint64_t zero_ticks()
{
    return 1;
}

class FpControlShortTest : public testing::Test {
protected:
    FpControlShortTest() : file(pcap_file(many_frames())) {}

    static std::vector<t_capture_frame> many_frames()
    {
        return std::vector<t_capture_frame>(5000, {1, udp_frame(85, 0)});
    }

    void SetUp() override
    {
        signal(SIGPIPE, SIG_IGN);
        pool.put(3, 10,
                 ports_compile("edge", {{80, 89, {plain_slot(TARN_FILTER_ACTION_ACCEPT)}}},
                               {plain_slot(TARN_FILTER_ACTION_REJECT)}));
        service = {fp_engine_new(pool.spans()), fp_clock_make(zero_ticks, 0), {}};
        path = file.folder + "/fpd.sock";
        p_base = event_base_new();
        control = fp_control_open(p_base, &service, path, &error);
        ASSERT_NE(control, nullptr) << error;
    }

    void TearDown() override
    {
        for (int fd : clients)
            close(fd);
        control.reset();
        event_base_free(p_base);
    }

    int connect_client()
    {
        sockaddr_un address = {};
        address.sun_family = AF_UNIX;
        memcpy(address.sun_path, path.data(), path.size());
        int fd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
        const void *p_address = &address;
        EXPECT_EQ(connect(fd, static_cast<const sockaddr *>(p_address), sizeof(address)), 0);
        fcntl(fd, F_SETFL, O_NONBLOCK);
        clients.push_back(fd);
        return fd;
    }

    // One turn of the server's loop.
    void turn_loop()
    {
        event_base_loop(p_base, EVLOOP_ONCE | EVLOOP_NONBLOCK);
    }

    // Sends what the socket takes and gives the server a turn. False when the connection has ended.
    bool send_some(int fd, std::string_view *p_text)
    {
        ssize_t sent = send(fd, p_text->data(), p_text->size(), MSG_NOSIGNAL);
        bool has_failed = sent < 0 && errno != EAGAIN;
        p_text->remove_prefix(sent > 0 ? static_cast<size_t>(sent) : 0);
        turn_loop();
        return !has_failed;
    }

    // Sends text of which no answers have to be read meanwhile.
    void send_text(int fd, std::string_view text)
    {
        while (!text.empty() && send_some(fd, &text))
            continue;
    }

    // Runs the server until `count` lines have come or the connection has ended.
    std::vector<std::string> receive_lines(int fd, size_t count)
    {
        std::string text;
        char piece[65536];
        for (int turn = 0; turn < 100000; turn++) {
            turn_loop();
            ssize_t size = recv(fd, piece, sizeof(piece), 0);
            if (size == 0)
                break;
            if (size > 0)
                text.append(piece, static_cast<size_t>(size));
            if (static_cast<size_t>(std::count(text.begin(), text.end(), '\n')) >= count)
                break;
        }
        std::vector<std::string> lines;
        for (size_t end; (end = text.find('\n')) != std::string::npos; text.erase(0, end + 1))
            lines.push_back(text.substr(0, end));
        return lines;
    }

    bool has_ended(int fd)
    {
        char byte;
        turn_loop();
        turn_loop();
        return recv(fd, &byte, 1, 0) == 0;
    }

    t_test_memory memory;
    t_test_pool pool;
    t_test_file file;
    t_fp_service service;
    event_base *p_base;
    fp_control_ptr control;
    std::string path;
    std::string error;
    std::vector<int> clients;
};

TEST_F(FpControlShortTest, RequestsAreAnsweredInOrderHoweverTheyComeIn)
{
    int fd = connect_client();
    send_text(fd, "stats --json\nnonsense\n\nclassify 3 - - - 85 udp --json\r\n{\"request\": \"lo");
    std::vector<std::string> lines = receive_lines(fd, 4);
    ASSERT_EQ(lines.size(), 4u);
    EXPECT_EQ(fp_json::parse(lines[0])["packets"], 0);
    EXPECT_EQ(lines[1], "error: there is no request \"nonsense\"");
    EXPECT_EQ(lines[2], "");
    EXPECT_EQ(fp_json::parse(lines[3])["verdict"], "accept");
    send_text(fd, "ad\"}\n{\"request\": 1.5}\n");
    lines = receive_lines(fd, 2);
    ASSERT_EQ(lines.size(), 2u);
    EXPECT_EQ(fp_json::parse(lines[0])["filters"].size(), 1u);
    EXPECT_EQ(fp_json::parse(lines[1])["ok"], false);
}

TEST_F(FpControlShortTest, AReplayLetsOthersIn)
{
    int replaying = connect_client();
    int other = connect_client();
    send_text(replaying, "replay 3 " + file.path + " --json\nstats --json\n");
    send_text(other, "stats --json\n");
    std::vector<std::string> between = receive_lines(other, 1);
    ASSERT_EQ(between.size(), 1u);
    EXPECT_LT(fp_json::parse(between[0])["packets"], 5000);
    std::vector<std::string> lines = receive_lines(replaying, 2);
    ASSERT_EQ(lines.size(), 2u);
    EXPECT_EQ(fp_json::parse(lines[0])["accepted"], 5000);
    EXPECT_EQ(fp_json::parse(lines[1])["packets"], 5000);
}

TEST_F(FpControlShortTest, WhatWasSentBeforeTheClientClosedItsSideIsAnswered)
{
    int fd = connect_client();
    send_text(fd, "replay 3 " + file.path + " --json\nstats --json");  // the last line lacks its end
    shutdown(fd, SHUT_WR);
    EXPECT_EQ(receive_lines(fd, 3).size(), 2u);
    EXPECT_TRUE(has_ended(fd));
}

TEST_F(FpControlShortTest, AClientThatGoesAwayTakesItsReplayWithIt)
{
    int fd = connect_client();
    send_text(fd, "replay 3 " + file.path + "\n");
    turn_loop();
    close(fd);
    clients.clear();
    for (int turn = 0; turn < 50; turn++)
        turn_loop();
    EXPECT_LT(fp_engine_total(service.engine.get()).packets, 5000u);
}

TEST_F(FpControlShortTest, ALineTooLongEndsTheConnection)
{
    int fd = connect_client();
    send_text(fd, std::string(5 * 1024 * 1024, 'x'));
    std::vector<std::string> lines = receive_lines(fd, 3);
    ASSERT_GE(lines.size(), 1u);
    EXPECT_EQ(lines[0], "error: the line is too long");
    int other = connect_client();
    send_text(other, "stats --json\n");
    EXPECT_EQ(receive_lines(other, 1).size(), 1u);
}

TEST_F(FpControlShortTest, ASlowReaderGetsAllAnswersWithoutFillingTheMemory)
{
    static constexpr size_t requests = 4000;
    int fd = connect_client();
    std::string text;
    for (size_t i = 0; i < requests; i++)
        text += "--json " + std::string(1000, 'x') + '\n';  // the refusal repeats it
    std::string_view rest = text;
    for (int turn = 0; turn < 500; turn++)  // sends what the server takes, reads nothing
        send_some(fd, &rest);
    EXPECT_FALSE(rest.empty()) << "the server reads on while its answers are not taken";
    size_t lines = 0;
    char piece[65536];
    for (int turn = 0; turn < 100000 && lines < requests; turn++) {
        send_some(fd, &rest);
        ssize_t size = recv(fd, piece, sizeof(piece), 0);
        lines += size > 0 ? static_cast<size_t>(std::count(piece, piece + size, '\n')) : 0;
    }
    EXPECT_EQ(lines, requests);
}

TEST_F(FpControlShortTest, OnlyADeadSocketIsReplacedAndOnlyTheOwnerMayConnect)
{
    struct stat status;
    ASSERT_EQ(stat(path.c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 0777, 0600u);
    EXPECT_EQ(fp_control_open(p_base, &service, path, &error), nullptr);
    EXPECT_EQ(error, path + ": another process serves this socket");
    EXPECT_EQ(fp_control_open(p_base, &service, file.path, &error), nullptr);
    EXPECT_EQ(error, file.path + ": there is something else than a socket");
    EXPECT_EQ(fp_control_open(p_base, &service, std::string(200, 'x'), &error), nullptr);

    std::string dead = file.folder + "/dead.sock";
    sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    memcpy(address.sun_path, dead.data(), dead.size());
    int fd = socket(AF_UNIX, SOCK_STREAM, 0);
    const void *p_address = &address;
    ASSERT_EQ(bind(fd, static_cast<const sockaddr *>(p_address), sizeof(address)), 0);
    close(fd);
    fp_control_ptr second = fp_control_open(p_base, &service, dead, &error);
    EXPECT_NE(second, nullptr) << error;
    second.reset();
    EXPECT_NE(access(dead.c_str(), F_OK), 0) << "a control removes its socket";
}
