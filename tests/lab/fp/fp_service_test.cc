// Answers: load, classify, stats, and replays whose clock is the file's.
#include "lab/fp/fp_service.h"

#include "tests/lab/fp/fp_ask.h"
#include "tests/lab/fp/frames.h"

static constexpr uint64_t second_ns = 1000000000;
static constexpr uint64_t clock_hz = 2000000;
static constexpr uint64_t bytes_per_second = 1000;

static uint64_t g_ticks;

static uint64_t test_ticks()
{
    return g_ticks;
}

class FpServiceShortTest : public FpAsking {
protected:
    void SetUp() override
    {
        uint64_t rate = clock_hz / bytes_per_second;
        pool.put(3, 10,
                 ports_compile("edge",
                               {{80, 89, {plain_slot(TARN_FILTER_ACTION_ACCEPT), counter_slot("web")}},
                                {90,
                                 99,
                                 {plain_slot(TARN_FILTER_ACTION_ACCEPT),
                                  policer_slot("1.slow", rate, 100 * rate, FP_POLICER_ACTION_DROP)}}},
                               {plain_slot(TARN_FILTER_ACTION_REJECT)}));
        g_ticks = 1000;
        service.clock = fp_clock_make(test_ticks, clock_hz);
        replay_frames = 3;
    }

    fp_json replay(const t_bytes &file, const std::string &fields = "", const std::string &words = "")
    {
        t_test_file capture(file);
        if (!fields.empty())
            file_write(capture.path + ".fields", std::as_bytes(std::span(fields)));
        return answer("replay 3 " + capture.path + words);
    }
};

TEST_F(FpServiceShortTest, ClassifyTellsVerdictRecordAndActions)
{
    fp_json verdict = answer("classify 3 - - - 85 udp len=120");
    EXPECT_EQ(verdict["verdict"], "accept");
    EXPECT_EQ(verdict["program"], "edge");
    EXPECT_EQ(verdict["dropped"], false);
    EXPECT_EQ(verdict["default"], false);
    ASSERT_EQ(verdict["actions"].size(), 1u);
    EXPECT_EQ(verdict["actions"][0]["name"], "web");
    EXPECT_EQ(verdict["actions"][0]["packets"], 1);
    EXPECT_EQ(verdict["actions"][0]["bytes"], 120);
    EXPECT_EQ(answer("classify 3 - - - 7 udp")["dropped"], true);
    EXPECT_EQ(answer("classify 4")["reason"], "the slot is free");
    EXPECT_EQ(answer("classify -1")["filter"], -1);
}

TEST_F(FpServiceShortTest, ReplayCountsFramesPacketsAndRecords)
{
    t_bytes broken = udp_frame(85, 10);
    broken[14] = std::byte{0x44};
    t_bytes cut = udp_frame(85, 10);
    cut.resize(30);
    fp_json got = replay(pcap_file({{1, udp_frame(85, 72)},
                                    {2, ethernet("0806", t_bytes(28))},
                                    {3, broken},
                                    {4, cut},
                                    {5, udp_frame(7, 0)},
                                    {6, ethernet("0800", v4({.fragment = 1}, t_bytes(30)))},
                                    {7, udp_frame(86, 0)}}));
    EXPECT_EQ(got["ok"], true) << got;
    EXPECT_EQ(got["frames"], 7);
    EXPECT_EQ(got["not-ip"], 1);
    EXPECT_EQ(got["malformed"], 1);
    EXPECT_EQ(got["truncated"], 1);
    EXPECT_EQ(got["fragments"], 1);
    EXPECT_EQ(got["packets"], 4);
    EXPECT_EQ(got["bytes"], 100 + 28 + 50 + 28);
    EXPECT_EQ(got["accepted"], 2);
    EXPECT_EQ(got["rejected"], 2);
    ASSERT_EQ(got["records"].size(), 2u);
    fp_json stats = answer("stats");
    EXPECT_EQ(stats["frames"], 7);
    ASSERT_EQ(stats["filters"].size(), 1u);
    EXPECT_EQ(stats["filters"][0]["filter"], 3);
    EXPECT_EQ(stats["filters"][0]["packets"], 4);
    EXPECT_EQ(stats["filters"][0]["default"], 2);
}

TEST_F(FpServiceShortTest, PoliceOfAReplayFollowTheTimesInTheFile)
{
    std::vector<t_capture_frame> frames;
    for (uint64_t i = 0; i < 400; i++)  // 100 bytes each 50 ms are twice the rate
        frames.push_back({i * second_ns / 20 + 5, udp_frame(95, 72)});
    fp_json got = replay(pcap_file(frames));
    EXPECT_EQ(got["packets"], 400);
    EXPECT_EQ(got["policer-drops"], 200) << "the full bucket passes the first, then every other one passes";

    g_ticks += clock_hz;
    got = replay(pcap_file({{9 * second_ns, udp_frame(95, 72)}, {2 * second_ns, udp_frame(95, 72)}}));
    EXPECT_EQ(got["policer-drops"], 1) << "frames out of order come at once";
}

TEST_F(FpServiceShortTest, SidecarFieldsReachTheProgramAndMissingLinesEndTheReplay)
{
    t_bytes file = pcap_file({{1, udp_frame(85, 0)}, {2, udp_frame(85, 0)}});
    EXPECT_EQ(replay(file, "app=3\nplp=1\n", " --sidecar")["packets"], 2);
    fp_json got = replay(file, "app=3\n", " --sidecar");
    EXPECT_EQ(got["ok"], false);
    EXPECT_EQ(got["packets"], 1) << "what came before the error was counted";
    EXPECT_EQ(replay(file, "", " --sidecar")["ok"], false);
}

TEST_F(FpServiceShortTest, BrokenCapturesAndMissingProgramsAreTold)
{
    t_bytes file = pcap_file({{1, udp_frame(85, 0)}, {2, udp_frame(85, 0)}});
    file.pop_back();
    fp_json got = replay(file);
    EXPECT_EQ(got["ok"], false);
    EXPECT_EQ(got["packets"], 1);
    EXPECT_EQ(answer("replay 3 /nonexistent")["error"], "/nonexistent: No such file or directory");

    pool.filters[3].record_valid = 0;
    got = replay(pcap_file({{1, udp_frame(85, 0)}}));
    EXPECT_EQ(got["ok"], true);
    EXPECT_EQ(got["no-program"], 1);
    EXPECT_EQ(got["reason"], "the slot is free");
}

TEST_F(FpServiceShortTest, LoadListsProgramsAndFaults)
{
    pool.filters[6] = {1, 1, 0, 3000, 4};
    fp_json got = answer("load");
    ASSERT_EQ(got["filters"].size(), 2u);
    EXPECT_EQ(got["filters"][0]["program"], "edge");
    EXPECT_EQ(got["filters"][0]["valid"], true);
    EXPECT_EQ(got["filters"][0]["records"], 3);
    EXPECT_EQ(got["filters"][1]["valid"], false);
    EXPECT_EQ(got["filters"][1]["activity"], true);
}
