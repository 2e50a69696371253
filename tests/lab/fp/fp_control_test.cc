// fpd's requests over its control socket.
#include "lab/fp/fp_control.h"

#include "tests/lab/control/control_loop.h"
#include "tests/lab/fp/fp_pool.h"
#include "tests/lab/fp/frames.h"

#include <nlohmann/json.hpp>

static uint64_t one_tick()
{
    return 1;
}

class FpControlShortTest : public ControlLoop {
protected:
    FpControlShortTest() : file(pcap_file(many_frames())) {}

    static std::vector<t_capture_frame> many_frames()
    {
        return std::vector<t_capture_frame>(5000, {1, udp_frame(85, 0)});
    }

    void SetUp() override
    {
        pool.put(3, 10,
                 ports_compile("edge", {{80, 89, {plain_slot(TARN_FILTER_ACTION_ACCEPT)}}},
                               {plain_slot(TARN_FILTER_ACTION_REJECT)}));
        service = {fp_engine_new(pool.spans()), fp_clock_make(one_tick, 0), {}};
        control = fp_control_open(base.get(), &service, path, &error);
        ASSERT_NE(control, nullptr) << error;
    }

    void TearDown() override
    {
        control.reset();
    }

    t_test_memory memory;
    t_test_pool pool;
    t_test_file file;
    t_fp_service service;
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

TEST_F(FpControlShortTest, AClientThatGoesAwayTakesItsReplayWithIt)
{
    int fd = connect_client();
    send_text(fd, "replay 3 " + file.path + "\n");
    turn_loop();
    close_client(fd);
    for (int turn = 0; turn < 50; turn++)
        turn_loop();
    EXPECT_LT(fp_engine_total(service.engine.get()).packets, 5000u);
}

TEST_F(FpControlShortTest, ALargeTableIsALineAndALargerOneIsNot)
{
    int fd = connect_client();
    send_text(fd, std::string(4 * 1024 * 1024, 'x') + '\n');
    EXPECT_EQ(receive_lines(fd, 2).size(), 2u);
    send_text(fd, std::string(5 * 1024 * 1024, 'x'));
    std::vector<std::string> lines = receive_lines(fd, 3);
    ASSERT_GE(lines.size(), 1u);
    EXPECT_EQ(lines[0], "error: the line is too long");
}
