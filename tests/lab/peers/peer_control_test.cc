#include "lab/peers/peer_control.h"

#include "lab/peers/peer_socket.h"
#include "tests/lab/peers/peer_fixture.h"

#include <fcntl.h>
#include <nlohmann/json.hpp>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

static nlohmann::ordered_json words_answer(void *, const t_peer_words &words)
{
    if (words[0] == "throw")
        throw std::runtime_error("thrown");
    nlohmann::ordered_json answer = peer_control_done();
    answer["words"] = words;
    return answer;
}

class PeerControl : public PeerLoop {
protected:
    // All that comes back for the text, up to the end of the connection.
    std::string exchange(const std::string &text)
    {
        int fd = peer_socket_connect(path("c"));
        EXPECT_EQ(send(fd, text.data(), text.size(), 0), static_cast<ssize_t>(text.size()));
        shutdown(fd, SHUT_WR);
        std::string answer;
        char piece[4096];
        ssize_t size = -1;
        runs_until([&] {
            while ((size = recv(fd, piece, sizeof(piece), 0)) > 0)
                answer.append(piece, static_cast<size_t>(size));
            return size == 0;
        });
        close(fd);
        return answer;
    }
};

TEST_F(PeerControl, EachLineIsAnsweredInItsTurn)
{
    peer_control_ptr control = peer_control_open(base.get(), path("c"), words_answer, nullptr, &error);
    ASSERT_NE(control, nullptr) << error;
    struct stat status;
    ASSERT_EQ(stat(path("c").c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 0777, 0600u);
    EXPECT_EQ(exchange("a  b\r\nthrow\n\n--json c"), "{\"ok\":true,\"words\":[\"a\",\"b\"]}\n"
                                                     "{\"ok\":false,\"error\":\"thrown\"}\n"
                                                     "{\"ok\":false,\"error\":\"no request\"}\n"
                                                     "{\"ok\":true,\"words\":[\"c\"]}\n");
    EXPECT_EQ(exchange(std::string(70'000, 'x')), "{\"ok\":false,\"error\":\"the line is too long\"}\n");
    EXPECT_EQ(exchange("\xff\n"), "{\"ok\":true,\"words\":[\"\xEF\xBF\xBD\"]}\n");
    control.reset();
    EXPECT_NE(stat(path("c").c_str(), &status), 0);
}
