// Changes on their way to the daemon's callbacks.

#include <gtest/gtest.h>

#include "tests/common/syslog_lines.h"
#include "tests/lconfd/framework.h"
#include "tests/lconfd/subscriber.h"

#include <cstring>

using t_lines = std::vector<std::string>;

static void read_first(Subscriber *p_daemon)
{
    ASSERT_EQ(p_daemon->start(), LCONFD_STATUS_OK);
    ASSERT_TRUE(p_daemon->until([&] { return p_daemon->ctx->init_config_read_done == 1; }));
    p_daemon->take();
}

TEST(Subscription, AdditionsAndDeletionsComeApartInTheirOrders)
{
    static const struct {
        const char *behaviour;
        const char *edit;
        t_lines seen;
    } cases[] = {
        {"parents before children, the class between, containers in brackets",
         R"([{"op":"merge","path":"/policy/zone{a}","value":{"vpn":[{"vpn-id":7}]}},
             {"op":"merge","path":"/policy/class-map/class{gold}","value":{"queue":3}},
             {"op":"merge","path":"/policy/access-list{l}/sequence{10}",
              "value":{"match":{"class":"gold"},"action":{"base-action":"drop","count":"c"}}}])",
         {"policy/zone created {a} name=a", "end", "policy/zone/vpn created {a 7} vpn-id=7", "end",
          "policy/class-map/class created {gold} name=gold queue=3", "end",
          "policy/access-list/sequence created {l 10} number=10 match( class=gold ) action( base-action=1 "
          "count=c )",
          "end", "end"}},
        {"a leaf set and one deleted in one commit come in two batches",
         R"([{"op":"delete","path":"/policy/access-list{l}/sequence{10}/action/count"},
             {"op":"merge","path":"/policy/access-list{l}/sequence{10}/action",
              "value":{"base-action":"accept"}}])",
         {"policy/access-list/sequence modified {l 10} action( count=- )", "end",
          "policy/access-list/sequence modified {l 10} action( base-action=0 )", "end", "end"}},
        {"a path without delete priority gets deletions at its own",
         R"([{"op":"delete","path":"/policy/class-map/class{gold}/queue"}])",
         {"end", "policy/class-map/class modified {gold} queue=-", "end", "end"}},
        {"a deleted parent speaks for its children",
         R"([{"op":"delete","path":"/policy/zone{a}"},
             {"op":"delete","path":"/policy/access-list{l}/sequence{10}"}])",
         {"policy/access-list/sequence deleted {l 10} number=- match( class=- ) action( base-action=- )",
          "end", "end", "policy/zone deleted {a} name=-", "end"}},
        {"a path without keys gets its own leaves",
         R"([{"op":"merge","path":"/policy","value":{"app-visibility":true}}])",
         {"policy modified {} app-visibility=true", "end", "end"}},
    };
    OWN_SYSTEM_OR_SKIP();
    Framework framework;
    Subscriber daemon;
    ASSERT_NO_FATAL_FAILURE(read_first(&daemon));
    for (const auto &c : cases) {
        t_mgmt_commit_result result = daemon.wait(framework.commit(c.edit));
        EXPECT_EQ(result.error.code, MGMT_OK) << mgmt_error_text(result.error);
        EXPECT_EQ(daemon.take(), c.seen) << c.behaviour;
    }
    EXPECT_EQ(daemon.wait(framework.command("/tarn-dump-policy")), "worker 1");
    EXPECT_STREQ(lconfd_subs_path_node_type("policy/zone"), "list");
    EXPECT_STREQ(lconfd_subs_path_node_type("policy/class-map"), "container");
    EXPECT_STREQ(lconfd_subs_path_node_type("policy/log-frequency"), "leaf");
    EXPECT_STREQ(lconfd_subs_path_node_type("policy/access-list/sequence/match/protocol"), "leaf-list");
}

TEST(Subscription, OneEntryIsReadAgainByItsId)
{
    OWN_SYSTEM_OR_SKIP();
    Framework framework;
    Subscriber daemon;
    ASSERT_NO_FATAL_FAILURE(read_first(&daemon));
    daemon.wait(framework.commit(R"([{"op":"merge","path":"/policy/zone{a}"}])"));
    daemon.take();
    EXPECT_EQ(lconfd_read_sub_config(daemon.ctx, &subscriber_points[0].id, 1), 0);
    EXPECT_TRUE(daemon.until_seen("end of trigger"));
    EXPECT_EQ(daemon.take(), (t_lines{"policy/zone created {a} name=a", "end of trigger"}));
}

TEST(Subscription, AFailingCallbackInThePreparePhaseRefusesTheCommit)
{
    OWN_SYSTEM_OR_SKIP();
    Framework framework(2, false);
    Subscriber daemon;
    t_lconfd_sub_entry points[] = {subscriber_points[0], {}};
    points[0].two_phase = 1;
    points[0].del_priority = 0;
    points[0].init_cfg_read = 1;
    daemon.data.sub_point_arr = points;
    daemon.failing_path = "policy/zone";
    ASSERT_EQ(daemon.start(), LCONFD_STATUS_OK);
    ASSERT_TRUE(daemon.until([&] { return daemon.is_subscribed(); }));
    t_mgmt_commit_result result =
        daemon.wait(framework.commit(R"([{"op":"merge","path":"/policy/zone{a}"}])"));
    EXPECT_NE(mgmt_error_text(result.error).find("Unable to apply changes"), std::string::npos)
        << mgmt_error_text(result.error);
    EXPECT_EQ(daemon.take(), (t_lines{"policy/zone created {a} name=a"}))
        << "neither end nor acknowledgement";
}

TEST(SubscriptionDeathTest, AFailingCallbackInATriggeredReadEndsTheProcess)
{
    GTEST_FLAG_SET(death_test_style, "threadsafe");  // the dying process needs a framework with its threads
    OWN_SYSTEM_OR_SKIP();
    Framework framework;
    auto read = [] {
        Subscriber daemon;
        daemon.failing_path = "policy";
        daemon.start();
        daemon.until([&] { return daemon.ctx->init_config_read_done == 1; });
    };
    Subscriber first;
    ASSERT_NO_FATAL_FAILURE(read_first(&first));
    first.wait(framework.commit(R"([{"op":"merge","path":"/policy","value":{"log-frequency":5}}])"));
    EXPECT_EXIT(read(), testing::KilledBySignal(SIGSEGV), "");
}

// ---- Filtering ----

// "b" begins a container, "e" ends it, "v" is a value, "-" a deleted leaf.
static std::vector<confd_tag_value_t> values_of(const char *text)
{
    static constexpr std::pair<char, confd_vtype> types[] = {
        {'b', C_XMLBEGIN}, {'e', C_XMLEND}, {'v', C_INT32}, {'-', C_NOEXISTS}};
    std::vector<confd_tag_value_t> values;
    for (; *text != '\0'; text++)
        for (auto [letter, type] : types)
            if (letter == *text)
                values.push_back({.tag = {}, .v = {.type = type, .val = {}}});
    return values;
}

static std::string text_of(const std::vector<confd_tag_value_t> &values, int count)
{
    std::string text;
    for (int i = 0; i < count; i++) {
        confd_vtype type = values[static_cast<size_t>(i)].v.type;
        text += type == C_XMLBEGIN ? 'b' : type == C_XMLEND ? 'e' : type == C_INT32 ? 'v' : '-';
    }
    return text;
}

TEST(Subscription, FiltersModificationsByPhase)
{
    static const struct {
        const char *source;
        const char *added;
        const char *deleted;
    } cases[] = {
        {"v", "v", ""},         {"-", "", "-"},       {"v-", "v", "-"},       {"bve", "bve", ""},
        {"b-e", "", "b-e"},     {"be", "be", ""},     {"bv-e", "bve", "b-e"}, {"b-ebve", "bebve", "b-ebe"},
        {"bb-ee", "", "bb-ee"}, {"bbee", "bbee", ""}, {"e", "", ""},          {"", "", ""},
        {"b-ee", "", "b-ee"},
    };
    for (const auto &c : cases) {
        std::vector<confd_tag_value_t> source = values_of(c.source), result(source.size());
        int count = static_cast<int>(source.size());
        EXPECT_EQ(
            text_of(result, lconfd_sub_filter_modifications(source.data(), result.data(), count, false)),
            c.added)
            << c.source;
        EXPECT_EQ(text_of(result, lconfd_sub_filter_modifications(source.data(), result.data(), count, true)),
                  c.deleted)
            << c.source;
    }
}
