#include "lab/ttmd/ttm_service.h"

#include "tests/lab/peers/peer_fixture.h"

#include <nlohmann/json.hpp>

static constexpr uint8_t tarn = 9;
static constexpr uint8_t ttm = 2;

struct t_received {
    bool is_up;
    std::vector<t_ttm_record> records;
};

static constexpr t_peer_client_ops client_ops = {
    .up = [](void *p_user) { static_cast<t_received *>(p_user)->is_up = true; },
    .down = [](void *p_user) { static_cast<t_received *>(p_user)->is_up = false; },
    .message =
        [](void *p_user, t_peer_bytes body) {
            t_ttm_record record;
            std::string reason;
            ASSERT_TRUE(ttm_record_decode(body, &record, &reason)) << reason;
            static_cast<t_received *>(p_user)->records.push_back(record);
        },
    .bad = nullptr,
};

class TtmService : public PeerLoop {
protected:
    t_received received = {};
    ttm_service_ptr service = ttm_service_open(base.get(), path("t"), &error);
    peer_client_ptr client = peer_client_open(base.get(), {.path = path("t"), .source = tarn, .target = ttm},
                                              &client_ops, &received, &error);

    nlohmann::ordered_json run(const std::string &line)
    {
        t_ttm_command command;
        std::string reason;
        if (!ttm_command_parse(lab_words_split(line), &command, &reason))
            return lab_answer_refusal(reason);
        return ttm_service_run(service.get(), command);
    }
    void send_registration(e_ttm_record_family family, uint8_t announce, uint16_t module)
    {
        t_ttm_record record = {};
        record.type = TTM_RECORD_REGISTER;
        record.family = family;
        record.client = module;
        record.announce = announce;
        peer_client_send(client.get(), ttm_record_encode(record));
    }
    bool stat_reaches(const char *name, uint64_t value)
    {
        return runs_until([&] { return run("stats")[name] == value; });
    }
};

TEST_F(TtmService, ARegistrantGetsItsFamilysTableAndEachChange)
{
    EXPECT_TRUE(run("announce 10.0.0.1 red ipsec pref=5 weight=2 index=7 origin=local paths=2")["ok"]);
    EXPECT_TRUE(run("announce 2001:db8::1 3g gre")["ok"]);
    ASSERT_TRUE(runs_until([this] { return received.is_up; }));
    send_registration(TTM_RECORD_IPV4, 1, tarn);
    ASSERT_TRUE(runs_until([this] { return received.records.size() == 1; }));
    const t_ttm_record &first = received.records[0];
    EXPECT_EQ(first.type, TTM_RECORD_TLOC_ADD);
    EXPECT_EQ(first.client, ttm);
    EXPECT_EQ(first.locator.name,
              (t_ttm_name{.ip_version = 4, .address = {10, 0, 0, 1}, .color = 8, .encap = 2}));
    EXPECT_EQ(first.locator.attributes.preference, 5u);
    EXPECT_EQ(first.locator.attributes.weight, 2u);
    EXPECT_EQ(first.locator.index, 7);
    EXPECT_EQ(first.locator.origin, 1);
    EXPECT_EQ(first.locator.path_count, 2);

    send_registration(TTM_RECORD_IPV6, 1, tarn);
    ASSERT_TRUE(runs_until([this] { return received.records.size() == 2; }));
    EXPECT_EQ(received.records[1].locator.name.ip_version, 6);
    EXPECT_EQ(received.records[1].family, TTM_RECORD_IPV6);

    run("announce 10.0.0.1 red ipsec status=down");  // the rest stays
    run("withdraw 10.0.0.1 red ipsec");
    ASSERT_TRUE(runs_until([this] { return received.records.size() == 4; }));
    EXPECT_EQ(received.records[2].locator.status, 2);
    EXPECT_EQ(received.records[2].locator.attributes.preference, 5u);
    EXPECT_EQ(received.records[3].type, TTM_RECORD_TLOC_DELETE);
    EXPECT_EQ(run("list")["locators"].size(), 1u);

    run("drop");
    ASSERT_TRUE(runs_until([this] { return !received.is_up; }));
    run("announce 2001:db8::1 3g gre");
    ASSERT_TRUE(runs_until([this] { return received.is_up; }));
    ASSERT_TRUE(stat_reaches("connections", 2));
    EXPECT_EQ(run("stats")["adds_sent"], 3u) << "nothing is sent before a new registration";
}

TEST_F(TtmService, FlappingEndsAsItBegan)
{
    run("announce 10.0.0.1 red ipsec");
    ASSERT_TRUE(runs_until([this] { return received.is_up; }));
    send_registration(TTM_RECORD_IPV4, 1, tarn);
    ASSERT_TRUE(runs_until([this] { return received.records.size() == 1; }));
    EXPECT_TRUE(run("flap 10.0.0.1 red ipsec 3 2")["ok"]);
    EXPECT_FALSE(run("flap 10.0.0.1 red ipsec 1 2")["ok"]);
    ASSERT_TRUE(runs_until([this] { return received.records.size() == 7; }));
    for (size_t i = 1; i < 7; i++)
        EXPECT_EQ(received.records[i].type, i % 2 == 1 ? TTM_RECORD_TLOC_DELETE : TTM_RECORD_TLOC_ADD) << i;
    EXPECT_EQ(run("stats")["flapping"], 0u);
    EXPECT_EQ(run("list")["locators"].size(), 1u);
    run("flap 10.0.0.1 red ipsec 3 1000");
    EXPECT_TRUE(run("withdraw 10.0.0.1 red ipsec")["ok"]) << "in its pause";
    EXPECT_EQ(run("stats")["flapping"], 0u);
    EXPECT_TRUE(run("list")["locators"].empty());
}

TEST_F(TtmService, OddRegistrationsAreCountedAndLeftOut)
{
    run("announce 10.0.0.1 red ipsec");
    ASSERT_TRUE(runs_until([this] { return received.is_up; }));
    send_registration(TTM_RECORD_IPV4, 2, tarn);
    send_registration(TTM_RECORD_IPV4, 1, tarn + 1);
    peer_client_send(client.get(), std::vector<uint8_t>{1, 1, 0, 0, 0, 9, 0, 11, 1, 0, 0});
    send_registration(TTM_RECORD_IPV4, 0, tarn);
    EXPECT_TRUE(stat_reaches("registrations", 1));
    EXPECT_EQ(run("stats")["refused"], 2u);
    EXPECT_EQ(run("stats")["malformed"], 1u);
    EXPECT_EQ(run("stats")["adds_sent"], 0u);
    EXPECT_TRUE(received.is_up);
}

TEST_F(TtmService, WrongCommandsTellWhy)
{
    static constexpr const char *cases[][2] = {
        {"announce 10.0.0.1 red", "announce takes an address, a color and an encapsulation"},
        {"announce 10.0.0.256 red gre", "10.0.0.256 is no address"},
        {"announce 10.0.0.1 redish gre", "redish is no color"},
        {"announce 10.0.0.1 red ipsecx", "ipsecx is no encapsulation"},
        {"announce 10.0.0.1 red gre pref", "announce can't take pref"},
        {"announce 10.0.0.1 red gre pref=-1", "announce can't take pref=-1"},
        {"announce 10.0.0.1 red gre paths=9", "announce can't take paths=9"},
        {"announce 10.0.0.1 red gre size=1", "announce can't take size=1"},
        {"withdraw 10.0.0.1 red gre now", "withdraw can't take now"},
        {"withdraw 10.0.0.1 red gre", "this locator is not announced"},
        {"flap 10.0.0.1 red gre 0 5", "flap takes a count from 1 on and milliseconds behind the locator"},
        {"list all", "list takes nothing more"},
        {"sleep 5", "only a script can sleep"},
        {"sing", "unknown command sing"},
    };
    for (const auto &[line, reason] : cases)
        EXPECT_EQ(run(line), lab_answer_refusal(reason)) << line;
}
