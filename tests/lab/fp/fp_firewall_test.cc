// Packets between zones: pairs, return traffic of inspected flows, egress lists, IPv6.
#include "tests/lab/fp/fp_ask.h"
#include "tests/lab/fp/frames.h"
#include "tests/lab/fp/zone_block.h"

static uint64_t g_ticks;

// VPN 10 is in zone 1 (staff), VPN 20 in zone 2 (servers), VPN 0 in zone 3 (outside). Filter 1 is the policy
// of staff to outside and of staff to servers: inspects ports 80 to 89, accepts 90 to 99, drops the rest.
class FpFirewallShortTest : public FpAsking {
protected:
    void SetUp() override
    {
        g_ticks = 1000;
        service.clock = fp_clock_make([] { return g_ticks; }, 10);
        fp_flows_idle_after(&service.flows, 300, 10);
        service.zones = block.tables();
        t_slots inspect = {plain_slot(TARN_FILTER_ACTION_INSPECT)};
        t_slots accept = {plain_slot(TARN_FILTER_ACTION_ACCEPT)};
        t_slots reject = {plain_slot(TARN_FILTER_ACTION_REJECT)};
        pool.put(1, 10, ports_compile("outbound", {{80, 89, inspect}, {90, 99, accept}}, reject));
        pool.put(2, 200, ports_compile("list", {{85, 85, reject}}, accept));
        for (auto [vpn, zone] : {std::pair<uint16_t, uint16_t>(10, 1), {20, 2}, {0, 3}})
            fp_create_vpn_zone_hash_record(vpn, zone);
        fp_create_zb_pair_hash_record(1, 3, 1, 7);
        fp_create_zb_pair_hash_record(1, 2, 6, 8);  // without a program
        fp_enable_zbf();
    }

    // "verdict" and how zones came to it.
    std::string forward(const std::string &words)
    {
        fp_json got = answer("forward " + words);
        std::string text = got["verdict"];
        for (const fp_json &stage : got["stages"])
            text += ' ' + stage.value("ruling", stage["stage"].get<std::string>());
        return text;
    }

    t_zone_block block;
};

static const std::string out = "10 ge0/1 in out-vpn=0 10.0.0.1 192.0.2.7 4000 ";
static const std::string back = "0 ge0/0 in out-vpn=10 192.0.2.7 10.0.0.1 ";

TEST_F(FpFirewallShortTest, OnlyAnswersOfAnInspectedFlowPassAgainstTheZones)
{
    EXPECT_EQ(forward(back + "80 4000 tcp"), "reject no-pair") << "nothing was opened yet";
    EXPECT_EQ(forward(out + "70 tcp"), "reject pair");
    EXPECT_EQ(forward(out + "90 tcp"), "accept pair");
    EXPECT_EQ(forward(back + "90 4000 tcp"), "reject no-pair") << "accepted only";
    EXPECT_EQ(forward(out + "80 tcp"), "accept pair");
    EXPECT_EQ(forward(back + "80 4000 tcp"), "accept flow");
    static const char *const others[] = {
        "0 ge0/0 in out-vpn=10 192.0.2.7 10.0.0.1 80 4001 tcp",
        "0 ge0/0 in out-vpn=10 192.0.2.7 10.0.0.1 81 4000 tcp",
        "0 ge0/0 in out-vpn=10 192.0.2.7 10.0.0.1 80 4000 udp",
        "0 ge0/0 in out-vpn=10 192.0.2.8 10.0.0.1 80 4000 tcp",
        "0 ge0/0 in out-vpn=20 192.0.2.7 10.0.0.1 80 4000 tcp",
        "20 ge0/0 in out-vpn=10 192.0.2.7 10.0.0.1 80 4000 tcp",
        "0 ge0/0 in out-vpn=10 family=ipv6 192.0.2.7 10.0.0.1 80 4000 tcp",
    };
    for (const char *words : others)
        EXPECT_EQ(forward(words), "reject no-pair") << words;

    fp_json flows = answer("flows");
    EXPECT_EQ(flows["count"], 1);
    EXPECT_EQ(flows["flows"][0]["source"], "10.0.0.1");
    EXPECT_EQ(flows["flows"][0]["pair"], 7);
    EXPECT_EQ(flows["flows"][0]["answers"], 1);
    EXPECT_EQ(answer("stats")["zones"]["flow"], 1);

    fp_destroy_zbf_mappings();
    EXPECT_EQ(forward(back + "80 4000 tcp"), "reject no-pair") << "the zones have no pair any more";
    fp_disable_zbf();
    EXPECT_EQ(forward(back + "99 4000 tcp"), "accept");
}

TEST_F(FpFirewallShortTest, FlowsEndByTimeByTheirFilterAndForNewerOnes)
{
    forward(out + "80 tcp");
    g_ticks += 3000;
    EXPECT_EQ(forward(back + "80 4000 tcp"), "accept flow") << "300 seconds are not too long";
    g_ticks += 3001;
    EXPECT_EQ(forward(back + "80 4000 tcp"), "reject no-pair");

    service.flows.limit = 2;
    for (const char *port : {"80", "81"})
        forward(out + port + " tcp");
    EXPECT_EQ(forward(back + "80 4000 tcp"), "accept flow");
    forward(out + "82 tcp");
    EXPECT_EQ(forward(back + "81 4000 tcp"), "reject no-pair") << "was not used for the longest time";
    EXPECT_EQ(forward(back + "80 4000 tcp"), "accept flow");

    pool.put(3, 300, ports_compile("strict", {{80, 80, {plain_slot(TARN_FILTER_ACTION_REJECT)}}}, {}));
    fp_create_zb_pair_hash_record(1, 3, 3, 9);
    EXPECT_EQ(forward(out + "80 tcp"), "reject pair");
    EXPECT_EQ(forward(back + "80 4000 tcp"), "reject no-pair");
    fp_json flows = answer("flows");
    EXPECT_EQ(flows["count"], 1);
    EXPECT_EQ(flows["idle"], 1);
    EXPECT_EQ(flows["evicted"], 1);
    EXPECT_EQ(flows["closed"], 1);
}

TEST_F(FpFirewallShortTest, ListsStandAtBothEndsOfTheWayForEachFamily)
{
    ASSERT_EQ(answer(R"({"request": "bindings", "vpns": [], "interfaces": [
        {"family": "ipv4", "interface": "ge0/0", "direction": "out", "vpn": 0, "filter": 2, "name": "e4"},
        {"family": "ipv6", "interface": "ge0/0", "direction": "in", "vpn": 0, "filter": 2, "name": "i6"}]})")
                  ["ok"],
              true);
    const std::string way = "10 ge0/1 in out-vpn=0 out-interface=ge0/0 ";
    EXPECT_EQ(forward(way + "- - - 70 tcp"), "reject pair") << "zones come before the list";
    EXPECT_EQ(forward(way + "- - 1 80 tcp"), "accept pair egress-list");
    EXPECT_EQ(forward(way + "- - 1 85 tcp"), "reject pair egress-list");
    EXPECT_EQ(answer("flows")["count"], 1) << "a packet that is not forwarded opens no flow";
    EXPECT_EQ(forward(way + "family=ipv6 - - 1 85 tcp"), "accept pair");
    EXPECT_EQ(forward("0 ge0/0 in family=ipv6 - - - 85 tcp"), "reject ingress-list");
    EXPECT_EQ(forward("0 ge0/0 in - - - 85 tcp"), "accept same-zone");
    EXPECT_EQ(forward("0 ge0/0 out - - - 85 tcp"), "reject same-zone egress-list");
    EXPECT_EQ(forward("10 ge0/1 in out-vpn=20 - - - 80 tcp"), "reject pair")
        << "no program, so nothing passes";
}

TEST_F(FpFirewallShortTest, ACaptureHoldsBothDirectionsOfIpv6Flows)
{
    t_bytes there = ethernet("86dd", v6({}, udp(4000, 80, 0)));
    t_bytes reply = ethernet("86dd", v6({}, udp(80, 4000, 0)));
    there[22] = reply[22] = std::byte{0xfc};  // the source
    t_bytes stranger = reply;
    std::swap_ranges(reply.begin() + 22, reply.begin() + 38, reply.begin() + 38);
    t_test_file file(pcap_file({{1, reply}, {2, there}, {3, reply}, {4, stranger}}));
    const std::string from_outside = "vpn=0 interface=ge0/0 out-vpn=10\n";
    const std::string lines = from_outside + '\n' + from_outside + from_outside;
    file_write(file.path + ".fields", std::as_bytes(std::span(lines)));
    fp_json got = answer("replay --vpn 10 --interface ge0/1 --direction in --out-vpn 0 " + file.path +
                         " --sidecar --verdicts " + file.path + ".verdicts");
    EXPECT_EQ(got["ok"], true) << got;
    EXPECT_EQ(got["accepted"], 2);
    EXPECT_EQ(got["zones"]["flow"], 1);
    EXPECT_EQ(got["zones"]["no-pair"], 2);
    EXPECT_EQ(answer("flows")["flows"][0]["family"], "ipv6");
}

TEST_F(FpFirewallShortTest, TheVpnOfANatActionIsWhereAPacketGoesUnlessItIsTold)
{
    t_tarn_filter_action nat = {};
    nat.fwding_action = TARN_FILTER_ACTION_NAT;
    nat.nat_vrid = 20;
    pool.put(4, 400, ports_compile("nat", {{80, 80, {plain_slot(TARN_FILTER_ACTION_ACCEPT), nat}}}, {}));
    service.bindings.vpns = {{FP_FILTER_DATA, 0, 0, 4, FP_POLICY_DIRECTION_ALL, "d"}};
    EXPECT_EQ(forward("0 ge0/0 in - - - 80 tcp"), "reject data-policy no-pair");
    EXPECT_EQ(forward("0 ge0/0 in out-vpn=0 - - - 80 tcp"), "accept data-policy same-zone");
}

TEST_F(FpFirewallShortTest, TextTellsThePairAndItsPolicy)
{
    EXPECT_EQ(lab_answer_text(answer("forward " + out + "70 tcp")), "vpn: 10\n"
                                                                    "interface: ge0/1\n"
                                                                    "direction: in\n"
                                                                    "from: service\n"
                                                                    "out-vpn: 0\n"
                                                                    "family: ipv4\n"
                                                                    "verdict: reject\n"
                                                                    "dropped: yes\n"
                                                                    "dropped-by: zone\n"
                                                                    "plp: low\n"
                                                                    "stages:\n"
                                                                    "  - stage: zone\n"
                                                                    "    source-vpn: 10\n"
                                                                    "    destination-vpn: 0\n"
                                                                    "    source-zone: 1\n"
                                                                    "    destination-zone: 3\n"
                                                                    "    ruling: pair\n"
                                                                    "    pair: 7\n"
                                                                    "    filter: 1\n"
                                                                    "    verdict: reject\n"
                                                                    "    program: outbound\n"
                                                                    "    dropped: yes\n"
                                                                    "    plp: low\n"
                                                                    "    default: yes\n"
                                                                    "    record: 0\n"
                                                                    "    actions: none\n"
                                                                    "treatment:\n"
                                                                    "  path: dropped\n");
    fp_json zones = answer("zones");
    EXPECT_EQ(zones["internet"], "allow");
    EXPECT_EQ(zones["vpns"].size(), 3u);
    EXPECT_EQ(zones["pairs"][1],
              fp_json::parse(R"({"pair": 7, "source-zone": 1, "destination-zone": 3, "filter": 1})"));
}
