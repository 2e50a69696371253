// Answers: load, classify, stats, and replays whose clock is the file's.
#include "lab/fp/fp_service.h"

#include "tests/lab/fp/fp_pool.h"
#include "tests/lab/fp/frames.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

static constexpr uint64_t second_ns = 1000000000;
static constexpr uint64_t clock_hz = 2000000;
static constexpr uint64_t bytes_per_second = 1000;

static uint64_t g_ticks;

static uint64_t test_ticks()
{
    return g_ticks;
}

class FpServiceShortTest : public testing::Test {
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
        service = {fp_engine_new(pool.spans()), fp_clock_make(test_ticks, clock_hz), {}};
    }

    fp_json answer(const std::string &line)
    {
        t_fp_request request = {};
        std::string error;
        if (!fp_request_parse(line, &request, &error))
            return fp_answer_error(error);
        if (request.kind != FP_REQUEST_REPLAY)
            return fp_service_answer(&service, request);
        fp_replay_ptr replay = fp_replay_start(&service, request, &error);
        if (replay == nullptr)
            return fp_answer_error(error);
        while (fp_replay_step(replay.get(), 3))
            continue;
        return fp_replay_answer(replay.get());
    }

    fp_json replay(const t_bytes &file, const std::string &fields = "", const std::string &words = "")
    {
        t_test_file capture(file);
        if (!fields.empty())
            file_write(capture.path + ".fields", std::as_bytes(std::span(fields)));
        return answer("replay 3 " + capture.path + words);
    }

    t_test_memory memory;
    t_test_pool pool;
    t_fp_service service;
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

TEST(FpAnswerShortTest, TextHasALineForEachMemberAndATableForWhatRepeats)
{
    fp_json answer = {{"ok", true},
                      {"request", "load"},
                      {"name", "a\nb"},
                      {"empty", fp_json::array()},
                      {"filters", {{{"filter", 3}, {"valid", true}}, {{"filter", 12}, {"error", "x y"}}}},
                      {"actions", {{{"slot", 0}, {"action", "count"}, {"name", "web"}, {"packets", 2}}}}};
    EXPECT_EQ(fp_answer_text(answer), "name: a?b\n"
                                      "empty: none\n"
                                      "filters:\n"
                                      "  filter  valid  error\n"
                                      "  3       yes    -\n"
                                      "  12      -      x y\n"
                                      "actions:\n"
                                      "  0: count name=web packets=2\n");
    EXPECT_EQ(fp_answer_text(fp_answer_error("no")), "error: no\n");
    EXPECT_EQ(fp_answer_line({{"name", "\xff"}}), "{\"name\":\"\xef\xbf\xbd\"}");
}
