// Packets through what is bound where they are.
#include "tests/lab/fp/fp_ask.h"
#include "tests/lab/fp/frames.h"

class FpForwardShortTest : public FpAsking {
protected:
    // Filter 1 is an interface list, 2 an application-route policy, 3 a data policy.
    void SetUp() override
    {
        t_tarn_filter_action accept = plain_slot(TARN_FILTER_ACTION_ACCEPT);
        t_tarn_filter_action reject = plain_slot(TARN_FILTER_ACTION_REJECT);
        pool.put(1, 10, ports_compile("list", {{10, 19, {reject, counter_slot("no")}}}, {accept}));
        pool.put(2, 100,
                 ports_compile("route",
                               {{20, 29, {accept, policer_slot("1.none", 1, 0, FP_POLICER_ACTION_DROP)}},
                                {30, 39, {policer_slot("1.mark", 1, 0, FP_POLICER_ACTION_MARK_PLP_HIGH)}}},
                               {counter_slot("all")}));
        pool.put(3, 200, ports_compile("data", {{40, 49, {reject}}}, {accept}));
        EXPECT_EQ(answer(R"({"request": "bindings", "vpns": [
            {"type": "data", "min": 1, "max": 9, "filter": 3, "direction": "service", "name": "d"},
            {"type": "application-route", "min": 1, "max": 9, "filter": 2, "direction": "none", "name": "r"},
            {"type": "data", "min": 20, "max": 20, "filter": -1, "direction": "all", "name": "gone"},
            {"type": "application-route", "min": 20, "max": 20, "filter": 64000, "direction": "all", "name": "full"}],
            "interfaces": [{"family": "ipv4", "interface": "ge0/1", "direction": "in", "vpn": 1, "filter": 1,
                            "name": "l"}]})")["ok"],
                  true);
    }
};

TEST_F(FpForwardShortTest, APacketMeetsTheStagesInOrderUntilOneDropsIt)
{
    struct t_case {
        const char *words;
        const char *verdict;
        const char *dropped_by;
        std::vector<int> filters;
        const char *plp;
    };
    static const t_case cases[] = {
        {"5 ge0/1 in - - - 1 udp len=100", "accept", "", {1, 2, 3}, "low"},
        {"5 ge0/1 in - - - 10 udp len=100", "reject", "ingress-list", {1}, "low"},
        {"5 ge0/1 in - - - 20 udp len=100", "policer-drop", "application-route", {1, 2}, "low"},
        {"5 ge0/1 in - - - 30 udp len=100", "accept", "", {1, 2, 3}, "high"},
        {"5 ge0/1 in - - - 40 udp len=100", "reject", "data-policy", {1, 2, 3}, "low"},
        {"5 ge0/1 in from=tunnel - - - 40 udp len=100", "accept", "", {1, 2}, "low"},
        {"5 ge0/1 in family=ipv6 - - - 10 udp len=100", "accept", "", {2, 3}, "low"},
        {"5 ge0/1 out - - - 10 udp len=100", "accept", "", {2, 3}, "low"},
        {"0 ge0/2 in", "accept", "", {}, "low"},
    };
    for (const t_case &c : cases) {
        fp_json got = answer(std::string("forward ") + c.words);
        std::vector<int> filters;
        for (const fp_json &stage : got["stages"])
            filters.push_back(stage["filter"]);
        EXPECT_EQ(got["verdict"], c.verdict) << c.words;
        EXPECT_EQ(got["dropped"], *c.dropped_by != 0) << c.words;
        EXPECT_EQ(got.value("dropped-by", ""), c.dropped_by) << c.words;
        EXPECT_EQ(filters, c.filters) << c.words;
        EXPECT_EQ(got["plp"], c.plp) << c.words;
    }
    fp_json forwarding = answer("stats")["forwarding"];
    EXPECT_EQ(forwarding["packets"], 9);
    EXPECT_EQ(forwarding["accepted"], 6);
    EXPECT_EQ(forwarding["rejected"], 2);
    EXPECT_EQ(forwarding["policer-drops"], 1);
    EXPECT_EQ(forwarding["unbound"], 1);
    EXPECT_EQ(forwarding["by-stage"][1]["packets"], 7);
}

TEST_F(FpForwardShortTest, FiltersWithoutAProgramAreShownCountedAndLetThePacketOn)
{
    fp_json got = answer("forward 20 ge0/1 in");
    EXPECT_EQ(got["verdict"], "accept");
    ASSERT_EQ(got["stages"].size(), 3u);
    EXPECT_EQ(got["stages"][1]["filter"], 64000);
    EXPECT_EQ(got["stages"][1]["verdict"], "no-program");
    EXPECT_EQ(got["stages"][1]["reason"], "there are 8 slots");
    EXPECT_EQ(got["stages"][2]["filter"], -1);
    EXPECT_EQ(got["stages"][2]["reason"], "there are 8 slots");
    fp_json stats = answer("stats");
    EXPECT_EQ(stats["no-program"], 2);
    EXPECT_EQ(stats["forwarding"]["by-stage"][2]["no-program"], 1);
}

TEST_F(FpForwardShortTest, AReplayTakesTheFamilyFromEachPacket)
{
    t_bytes six = ethernet("86dd", v6({}, udp(1, 10, 0)));
    t_test_file file(
        pcap_file({{1, udp_frame(10, 0)}, {2, six}, {3, udp_frame(40, 0)}, {4, udp_frame(1, 0)}}));
    fp_json got = answer("replay --vpn 5 --interface ge0/1 --direction in " + file.path);
    EXPECT_EQ(got["ok"], true) << got;
    EXPECT_EQ(got["packets"], 4);
    EXPECT_EQ(got["accepted"], 2);
    EXPECT_EQ(got["rejected"], 2);
    ASSERT_EQ(got["filters"].size(), 3u);
    EXPECT_EQ(got["filters"][0]["stage"], "ingress-list");
    EXPECT_EQ(got["filters"][0]["packets"], 3);
    EXPECT_EQ(got["filters"][2]["packets"], 3);
    EXPECT_EQ(got["filters"][2]["rejected"], 1);
    EXPECT_EQ(got["records"].size(), 5u) << got["records"];
}

TEST_F(FpForwardShortTest, ANewTableReplacesTheOldOneAndOneThatDoesNotHoldLeavesIt)
{
    fp_json before = answer("bindings");
    ASSERT_EQ(before["vpns"].size(), 4u);
    EXPECT_EQ(answer(R"({"request": "bindings", "vpns": [{}], "interfaces": []})")["ok"], false);
    EXPECT_EQ(answer("bindings"), before);
    EXPECT_EQ(answer(R"({"request": "bindings", "vpns": [], "interfaces": []})")["ok"], true);
    EXPECT_EQ(answer("bindings")["vpns"].size(), 0u);
    EXPECT_EQ(answer("forward 5 ge0/1 in")["stages"].size(), 0u);
}

TEST_F(FpForwardShortTest, TextShowsEachStageAsABlock)
{
    EXPECT_EQ(lab_answer_text(answer("forward 5 ge0/1 in - - - 10 udp len=100")),
              "vpn: 5\n"
              "interface: ge0/1\n"
              "direction: in\n"
              "from: service\n"
              "family: ipv4\n"
              "verdict: reject\n"
              "dropped: yes\n"
              "dropped-by: ingress-list\n"
              "plp: low\n"
              "stages:\n"
              "  - stage: ingress-list\n"
              "    name: l\n"
              "    filter: 1\n"
              "    verdict: reject\n"
              "    program: list\n"
              "    dropped: yes\n"
              "    plp: low\n"
              "    default: no\n"
              "    record: 1\n"
              "    actions:\n"
              "      1: count name=no packets=1 bytes=100\n"
              "treatment:\n"
              "  path: dropped\n");
}
