// Hooks and the number of the next zone pair, against the recording double.
#include <gtest/gtest.h>

#include <algorithm>
#include <csignal>

#include "platform/confd/double/confd_double.h"
#include "tests/tarnd/config/confd_change.h"

static const char pairs[] = "/lumora-policy:policy/zone-pair";

class ConfdHooks : public testing::Test {
protected:
    ConfdHooks()
    {
        confd_double_reset();
        g_zone_pair_id_count = 1;
        context.maapi_socket = 5;
        context.data_socket = 6;
        dx.d_opaque = &context;
        tctx.dx = &dx;
        tctx.thandle = 44;
    }

    // The path of /policy/zone-pair{name}, or of a node in zone-based-policy{name}/sequence{10}.
    static confd_hkeypath_t path_of(uint32_t list_tag, bool sequence, uint32_t below = 0)
    {
        confd_hkeypath_t path = {};
        auto add_tag = [&](uint32_t tag) {
            path.v[path.len][0].type = C_XMLTAG;
            path.v[path.len][1].type = C_NOEXISTS;
            path.v[path.len++][0].val.xmltag = {tag, LUMORA_NS_POLICY};
        };
        auto add_key = [&](const confd_value_t &key) {
            path.v[path.len][0] = key;
            path.v[path.len++][1].type = C_NOEXISTS;
        };
        if (below != 0) {
            add_tag(below);
            add_tag(LUMORA_TAG_ACTION);
        }
        if (sequence) {
            add_key(u16(10));
            add_tag(LUMORA_TAG_SEQUENCE);
        }
        add_key(text("name"));
        add_tag(list_tag);
        add_tag(LUMORA_TAG_POLICY);
        return path;
    }

    // Calls of the framework since the last look, "function socket text" each.
    static std::string calls()
    {
        std::string all;
        for (const t_confd_call &call : confd_double_calls())
            all += call.function + " " + std::to_string(call.sock) + " " + call.text + "\n";
        confd_double_reset();
        return all;
    }

    t_lconfd_context context;
    confd_daemon_ctx dx = {};
    confd_trans_ctx tctx = {};
};
using ConfdHooksDeathTest = ConfdHooks;

TEST_F(ConfdHooks, BothAreRegisteredBeforeWhatIsShown)
{
    EXPECT_EQ(tarn_confd_register_data_cbs(&context), 0);
    std::string registered = calls();
    EXPECT_TRUE(registered.starts_with("confd_register_data_cb -1 zone-pair-id-cp\n"
                                       "confd_register_data_cb -1 zone-policy-seq-cp\n"));
    EXPECT_EQ(std::count(registered.begin(), registered.end(), '\n'), 26);
    confd_double_fail("confd_register_data_cb", 1);
    EXPECT_EQ(tarn_confd_register_data_cbs(&context), 16);
}

TEST_F(ConfdHooks, ANewPairGetsTheNextNumberWhichIsNotGivenTwice)
{
    confd_hkeypath_t path = path_of(LUMORA_TAG_ZONE_PAIR, false);
    g_zone_pair_id_count = 7;
    EXPECT_EQ(tarn_confd_hook_pair_id_create(&tctx, &path), 0);
    EXPECT_EQ(calls(), "maapi_attach 5 44\n"
                       "maapi_set_elem 5 /lumora-policy:policy/zone-pair{name}/pair-id = 7\n"
                       "maapi_detach 5 44\n");
    const std::pair<const char *, uint32_t> failures[] = {
        {"maapi_attach", 8}, {"maapi_set_elem", 8}, {"maapi_detach", 9}};
    for (auto [function, next] : failures) {
        confd_double_fail(function, 1);
        EXPECT_EQ(tarn_confd_hook_pair_id_create(&tctx, &path), -1) << function;
        EXPECT_EQ(g_zone_pair_id_count, next) << function;
    }
}

TEST_F(ConfdHooks, ANewSequenceOfAZoneBasedPolicyGetsItsCounter)
{
    confd_hkeypath_t path = path_of(LUMORA_TAG_ZONE_BASED_POLICY, true);
    EXPECT_EQ(tarn_confd_hook_zone_policy_seq_create(&tctx, &path), 0);
    EXPECT_EQ(calls(), "maapi_attach 5 44\n"
                       "maapi_set_elem2 5 "
                       "/lumora-policy:policy/zone-based-policy{name}/sequence{10}/action/count = "
                       "counter_seq_10\n"
                       "maapi_detach 5 44\n");
    path = path_of(LUMORA_TAG_ZONE_BASED_POLICY, true, LUMORA_TAG_LOG);
    EXPECT_EQ(tarn_confd_hook_zone_policy_seq_create(&tctx, &path), 0);
    EXPECT_EQ(calls(), "") << "a node below the sequence";
    path = path_of(LUMORA_TAG_ZONE_BASED_POLICY, true);
    for (const char *function : {"maapi_attach", "maapi_set_elem2", "maapi_detach"}) {
        confd_double_fail(function, 1);
        EXPECT_EQ(tarn_confd_hook_zone_policy_seq_create(&tctx, &path), -1) << function;
    }
}

TEST_F(ConfdHooksDeathTest, APathThatCantBeIsAnAssertion)
{
    confd_hkeypath_t path = path_of(LUMORA_TAG_ZONE_PAIR, false);
    path.v[1][0].type = C_BUF;
    EXPECT_EXIT(tarn_confd_hook_zone_policy_seq_create(&tctx, &path), testing::KilledBySignal(SIGSEGV), "");
    EXPECT_EXIT(tarn_confd_hook_pair_id_create(&tctx, &path), testing::KilledBySignal(SIGSEGV), "");
}

TEST_F(ConfdHooks, TheCountStartsAboveTheHighestNumberStored)
{
    EXPECT_EQ(tarn_confd_zone_pair_id_count_init(&context), 0);
    EXPECT_EQ(g_zone_pair_id_count, 1u) << "the list can't be counted";
    calls();
    confd_double_set_text(pairs, "4");
    for (auto [index, id] : {std::pair{"0", "3"}, {"1", "9"}, {"3", "2"}})
        confd_double_set_text(std::string(pairs) + "[" + index + "]/pair-id", id);
    EXPECT_EQ(tarn_confd_zone_pair_id_count_init(&context), 0);
    EXPECT_EQ(g_zone_pair_id_count, 10u) << "the third has no id";
    EXPECT_NE(calls().find("cdb_get_u_int32 6 /lumora-policy:policy/zone-pair[1]/pair-id"),
              std::string::npos);

    confd_double_fail("cdb_start_session", 1);
    EXPECT_EQ(tarn_confd_zone_pair_id_count_init(&context), 3);
    EXPECT_EQ(g_zone_pair_id_count, 10u);
    confd_double_fail("cdb_end_session", 1);
    EXPECT_EQ(tarn_confd_zone_pair_id_count_init(&context), 1);

    const std::pair<uint32_t, uint32_t> seen[] = {{5, 6}, {3, 6}, {6, 7}, {UINT32_MAX, 7}};
    for (auto [id, next] : seen) {
        tarn_confd_zone_pair_id_seen(id);
        EXPECT_EQ(g_zone_pair_id_count, next) << id;
    }
}
