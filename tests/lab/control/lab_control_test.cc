// The control socket: a server in this process, clients that behave well and badly.
#include "lab/control/lab_control.h"

#include "tests/lab/control/control_loop.h"

#include <algorithm>
#include <cstring>
#include <nlohmann/json.hpp>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

static nlohmann::ordered_json words_answer(void *, const t_lab_words &words)
{
    if (words[0] == "throw")
        throw std::runtime_error("thrown");
    nlohmann::ordered_json answer = lab_answer_done();
    answer["words"] = words;
    return answer;
}

class LabControlShortTest : public ControlLoop {
protected:
    void open_words()
    {
        control = lab_control_open(base.get(), path, words_answer, nullptr, &error);
        ASSERT_NE(control, nullptr) << error;
    }

    // A line is repeated, "long" is answered after 5000 slices, an empty one not at all.
    void open_lines()
    {
        auto answer = [this](std::string_view line) {
            if (line != "long")
                return t_lab_reply{.text = std::string(line) + (line.empty() ? "" : "\n")};
            return t_lab_reply{.job = [this](std::string *p_text) {
                *p_text = "done\n";
                return ++slices == 5000;
            }};
        };
        control = lab_control_open_lines(base.get(), path, {answer, 1000, "too long\n"}, &error);
        ASSERT_NE(control, nullptr) << error;
    }

    int slices = 0;
};

using t_lines = std::vector<std::string>;

TEST_F(LabControlShortTest, EachLineOfWordsIsAnsweredInItsTurn)
{
    open_words();
    int fd = connect_client();
    send_text(fd, "a  b\r\nthrow\n\n\xff\n--json c");
    shutdown(fd, SHUT_WR);
    EXPECT_EQ(receive_lines(fd, 6),
              (t_lines{"{\"ok\":true,\"words\":[\"a\",\"b\"]}", "{\"ok\":false,\"error\":\"thrown\"}",
                       "{\"ok\":false,\"error\":\"no request\"}",
                       "{\"ok\":true,\"words\":[\"\xEF\xBF\xBD\"]}", "{\"ok\":true,\"words\":[\"c\"]}"}));
    fd = connect_client();
    send_text(fd, std::string(70'000, 'x'));
    EXPECT_EQ(receive_lines(fd, 2), t_lines{"{\"ok\":false,\"error\":\"the line is too long\"}"});
}

TEST_F(LabControlShortTest, ALineTooLongEndsItsConnectionOnly)
{
    open_lines();
    int fd = connect_client();
    send_text(fd, std::string(1000, 'x') + '\n' + std::string(1001, 'x') + "\nmore\n");
    EXPECT_EQ(receive_lines(fd, 4), (t_lines{std::string(1000, 'x'), "too long"}));
    int other = connect_client();
    send_text(other, "\nmore\n");
    EXPECT_EQ(receive_lines(other, 1), t_lines{"more"});
}

TEST_F(LabControlShortTest, WhatTakesLongLetsOthersIn)
{
    open_lines();
    int working = connect_client();
    int other = connect_client();
    send_text(working, "long\nnext");  // the last line lacks its end
    shutdown(working, SHUT_WR);
    send_text(other, "a\n");
    EXPECT_EQ(receive_lines(other, 1), t_lines{"a"});
    EXPECT_LT(slices, 5000);
    EXPECT_EQ(receive_lines(working, 3), (t_lines{"done", "next"}));
    EXPECT_TRUE(has_ended(working));
}

TEST_F(LabControlShortTest, AClientThatGoesAwayTakesItsRequestWithIt)
{
    open_lines();
    int fd = connect_client();
    send_text(fd, "long\n");
    for (int turn = 0; turn < 50 && slices == 0; turn++)
        turn_loop();
    close_client(fd);
    for (int turn = 0; turn < 50; turn++)
        turn_loop();
    EXPECT_GT(slices, 0);
    EXPECT_LT(slices, 50);
}

TEST_F(LabControlShortTest, ASlowReaderGetsAllAnswersWithoutFillingTheMemory)
{
    static constexpr size_t requests = 4000;
    open_words();
    int fd = connect_client();
    std::string text;
    for (size_t i = 0; i < requests; i++)
        text += std::string(1000, 'x') + '\n';
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

TEST_F(LabControlShortTest, OnlyADeadSocketIsReplacedAndOnlyTheOwnerMayConnect)
{
    open_words();
    struct stat status;
    ASSERT_EQ(stat(path.c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 0777, 0600u);
    EXPECT_EQ(lab_control_open(base.get(), path, words_answer, nullptr, &error), nullptr);
    EXPECT_EQ(error, path + ": another process serves this socket");
    EXPECT_EQ(lab_control_open(base.get(), folder, words_answer, nullptr, &error), nullptr);
    EXPECT_EQ(error, folder + ": there is something else than a socket");
    EXPECT_EQ(lab_control_open(base.get(), std::string(200, 'x'), words_answer, nullptr, &error), nullptr);

    std::string dead = folder + "/dead.sock";
    sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    memcpy(address.sun_path, dead.data(), dead.size());
    int fd = socket(AF_UNIX, SOCK_STREAM, 0);
    const void *p_address = &address;
    ASSERT_EQ(bind(fd, static_cast<const sockaddr *>(p_address), sizeof(address)), 0);
    close(fd);
    lab_control_ptr second = lab_control_open(base.get(), dead, words_answer, nullptr, &error);
    EXPECT_NE(second, nullptr) << error;
    second.reset();
    EXPECT_NE(access(dead.c_str(), F_OK), 0) << "a control removes its socket";
}
