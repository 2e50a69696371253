// Actions: what stands in a slot for each kind, what operators see of it, and what a failed one leaves.
#include <gtest/gtest.h>

#include <arpa/inet.h>
#include <csignal>
#include <cstdlib>
#include <cstring>

#include "libcvmx/sim/_cvmx-clock.h"
#include "platform/confd/double/confd_double.h"
#include "tarnd/config/tarn_process.h"
#include "tests/tarnd/config/rule_text.h"

// One tick a nanosecond.
using f_clock_rate = uint64_t(cvmx_clock_t);
f_clock_rate wrap_clock_rate asm("__wrap__Z19cvmx_clock_get_rate12cvmx_clock_t");
uint64_t wrap_clock_rate(cvmx_clock_t)
{
    return 1'000'000'000;
}

static int g_callocs_left = -1;  // until one fails; below 0: none does

extern "C" {
void *__real_calloc(size_t count, size_t size);
void *__wrap_calloc(size_t count, size_t size)
{
    return g_callocs_left >= 0 && g_callocs_left-- == 0 ? nullptr : __real_calloc(count, size);
}
}

static t_fp_ipaddr network_v4(const char *text)
{
    t_fp_ipaddr address = {};
    address.addr_type = FP_AF_INET;
    EXPECT_EQ(inet_pton(AF_INET, text, address.addr), 1);
    return address;
}

static t_ipaddr host_address(const char *text)
{
    t_ipaddr address = {};
    EXPECT_EQ(str_to_ip(text, &address), 1);
    return address;
}

// A data policy's rule, and one object of each kind to name.
class RuleAction : public testing::Test {
protected:
    RuleAction()
    {
        confd_double_reset();
        confd_double_set_int16("/vpn/vpn-instance{512}/vrf-id", 7);
        world.add_vpn_list("l", 1);
        world.add_policy(TARN_POLICY_TYPE_DATA, "p", {"l"});
        t_tarn_policer_config policer = policer_config("pol", 8'000'000, 15000, 1);
        EXPECT_EQ(tarn_config_policer_add(&world.tarn, &policer), 0);
        t_tarn_mirror_tunnel tunnel = {network_v4("10.0.0.1"), network_v4("192.0.2.9")};
        EXPECT_EQ(tarn_config_mirror_add(&world.tarn, "mir", nullptr, &tunnel), 0);
        t_tarn_class_params params = {"voice", 2};
        EXPECT_EQ(tarn_class_add(&world.tarn, &params), 0);
        EXPECT_EQ(tarn_sla_class_add(&world.tarn, "gold"), 0);
        announce_tloc(&world, 5, 1);
        p_rule = world.add_rule(TARN_POLICY_TYPE_DATA, "p", "l", 10);
        p_rule->rule_vpn_id = 300;
    }

    ~RuleAction() override
    {
        EXPECT_EQ(tarn_policy_delete(&world.tarn, TARN_POLICY_TYPE_DATA, "p"), 0);
        withdraw_tlocs(&world);
        EXPECT_EQ(world.tarn.flow_ref, 0);
    }

    int add(uint32_t tag, const void *value)
    {
        return tarn_config_action_add(&world.tarn, TARN_POLICY_TYPE_DATA, "p", "l", 10, tag, value, nullptr);
    }

    void remove(uint32_t tag)
    {
        EXPECT_EQ(tarn_config_action_delete(&world.tarn, TARN_POLICY_TYPE_DATA, "p", "l", 10, tag), 0);
    }

    PassWorld world;
    t_tarn_config_rule *p_rule;
};
using RuleActionGolden = RuleAction;

struct t_slot_row {
    uint32_t tag;
    const void *value;
    const char *slot;
    const char *text;
};

// Values in the form that each tag calls for.
static const uint32_t number_3 = 3, fec_adaptive = 10, fec_always = 11, reject = TARN_FILTER_ACTION_REJECT;
static const uint8_t byte_46 = 46;
static const uint64_t vpn_512 = 512;
static const t_tarn_tloc_color_encap color_encap = {0x102, 0x50};
static const t_tarn_local_tloc_list local_list = {0x6, 0x10, 1};
static const t_tarn_action_sla_class gold = {"gold", 99, 1, 0x20};
static const t_tarn_action_sla_class unknown_sla = {"tin", 99, 0, 0};
static const t_tarn_tloc_args tloc_up = {test_tloc(5), 1001};
static const t_tarn_tloc_args tloc_unknown = {test_tloc(6), 1001};
static const t_ipaddr hop_v4 = host_address("10.1.2.3");
static const t_ipaddr hop_v6 = host_address("2001:db8::1");

static const t_slot_row slot_rows[] = {
    {0x3da6fd46, &color_encap, "4:04 64:0201 68:50", "set tloc-color-encap\n\tcolor: 0x102\n\tencap: 0x50\n"},
    {0x33c074ce, &tloc_up, "4:03 64:05 68:e903 72:01 74:2c01",
     "set tloc\n\tresolved: 1\n\tvpn-label: 1001\n\ttloc-index: 5\n"},
    {0x33c074ce, &tloc_unknown, "4:03 68:e903 74:2c01",
     "set tloc\n\tresolved: 0\n\tvpn-label: 1001\n\ttloc-index: 0\n"},
    {0x70a1c5a8, &hop_v4, "4:0a 64:0302010a 80:01", "set next-hop\n\tnext-hop: 10.1.2.3\n"},
    {0x70a1c5a8, &hop_v6, "4:0a 64:20010db8 79:0102", "set next-hop\n\tnext-hop: 2001:db8::1\n"},
    {0x22cdcc44, &hop_v4, "4:1a 64:0302010a 80:01", "redirect-dns\n\tRedirect DNS next-hop: 10.1.2.3\n"},
    {0x7273b107, &number_3, "4:10 64:03", "set nat pool-id\n\tnat pool-id: 3\n"},
    {0x19c134f9, &vpn_512, "4:0b 64:07", "set nat use-vpn\n\tnat use-vpn (vrid): 7\n"},
    {0x58223d85, &gold, "4:0c 64:0105 68:20",
     "sla-class\n\tprimary: 1\n\tbackup: 5\n\tpreferred_color: 0x20\n"},
    {0x58223d85, &unknown_sla, "4:0c", "sla-class\n\tprimary: 0\n\tbackup: 0\n\tpreferred_color: 0x0\n"},
    {0x58e2217b, "pol", "4:07 72:e803 80:c0e1e4 144:01 148:0231302e706f6c",
     "police\n\t      name: 10.pol\n\t      rate: 0x000000000003e8\n\t     burst: 0x00000000e4e1c0\n"
     "\toob-action: plp-high\n\t Last Seen: 0000000000000000\n\t    Tokens: 0000000000000000\n"
     "\t     Drops: 0000000000000000\n\t     Bytes: 0000000000000000\n"},
    {0x65975b28, "mir", "4:05 64:02 101:0a 104:01 117:01 121:c0 123:0209 137:01",
     "mirror\n\tsrc-ip: 10.0.0.1\n\tdst-ip: 192.0.2.9\n"},
    {0xac83abe, "web", "4:08 104:776562", "count\n  web\n"},
    {0x2bf83993, nullptr, "4:06", "cflowd-v9\n"},
    {0x4ca57cf4, nullptr, "4:11", "log\n\tLog\n"},
    {0x5023aaed, nullptr, "4:19", "fallback\n\tFallback\n"},
    {0xadd765d, nullptr, "4:13", "set svc-local-strict\n\tSvc-Local-Strict\n"},
    {0x6f889001, nullptr, "4:17", "tcp optimization\n\tTCP Optimization \n"},
    {0x7c9e7c08, nullptr, "4:18", "-\n"},
    {0xf474ab8, nullptr, "4:1e", "pkt dup\n\tPkt Dup\n"},
    {0x7ef235bf, nullptr, "4:12", "set svc-local\n\tSvc-Local\n"},
    {0x24c9f321, &fec_adaptive, "4:1c", "fec adaptive\n\tFEC Always\n"},
    {0x24c9f321, &fec_always, "4:1d", "fec always\n\tFEC Adaptive\n"},
    {0x24c9f321, &number_3, "", ""},
    {0x78cd2b7, &local_list, "4:16 64:06 68:10 72:01",
     "set local-tloc-list\n\tColor Mask: 0x6, Encap Mask: 0x10, Restrict: Yes\n"},
    {0x42a50984, &byte_46, "4:0e 64:2e", "set dscp\n\tdscp: 46\n"},
    {0x63457662, &byte_46, "4:15 64:2e", "set traffic-class\n\tTraffic-Class: 46\n"},
    {0x6ccfcce4, &byte_46, "4:0f 64:2e", "set svc-type\n\tsvc-type: 46\n"},
    {0x6854f46f, "voice", "4:09 64:01", "set fc\n  1\n"},
    {0x23e66386, &number_3, "4:14 64:03", "set backup-preferred-color\n\tBackup preferred color: 0x3\n"},
};

TEST_F(RuleActionGolden, EachKindHasItsSlotAndItsText)
{
    for (const t_slot_row &row : slot_rows) {
        SCOPED_TRACE(testing::Message() << std::hex << row.tag << ' ' << row.slot);
        ASSERT_EQ(add(row.tag, row.value), 0);
        ruletable_ptr table = table_of(&world, p_rule);
        EXPECT_EQ(slot_text(slots_of(table)[0]), "0:02");
        EXPECT_EQ(slot_text(slots_of(table)[1]), row.slot);
        EXPECT_EQ(display_text(table), std::string("accept\n") + row.text);
        EXPECT_EQ(world.tarn.flow_ref, row.tag == TARN_ACTION_TAG_CFLOWD ? 1 : 0);
        remove(row.tag);
    }
}

TEST_F(RuleAction, TheBaseActionGoesFirstWheneverItCame)
{
    remove(TARN_ACTION_TAG_ACTION);
    remove(TARN_ACTION_TAG_ACTION);
    ASSERT_EQ(add(TARN_ACTION_TAG_LOG, nullptr), 0);
    ASSERT_EQ(add(TARN_ACTION_TAG_ACTION, &reject), 0);
    EXPECT_EQ(display_text(table_of(&world, p_rule)), "reject\nlog\n\tLog\n");
}

TEST_F(RuleAction, PoliceMovesBehindTheBaseActionFromTheThirdSlotOn)
{
    ASSERT_EQ(add(TARN_ACTION_TAG_POLICER, "pol"), 0);
    ASSERT_EQ(add(TARN_ACTION_TAG_LOG, nullptr), 0);
    ruletable_ptr table = table_of(&world, p_rule);
    EXPECT_EQ(slots_of(table)[1].fwding_action, TARN_FILTER_ACTION_POLICE);
    EXPECT_EQ(slots_of(table)[2].fwding_action, TARN_FILTER_ACTION_LOG);

    remove(TARN_ACTION_TAG_POLICER);
    for (uint32_t tag : {TARN_ACTION_TAG_FALLBACK, TARN_ACTION_TAG_PKT_DUP, TARN_ACTION_TAG_CFLOWD})
        ASSERT_EQ(add(tag, nullptr), 0);
    ASSERT_EQ(add(TARN_ACTION_TAG_POLICER, "pol"), 0);
    table = table_of(&world, p_rule);
    EXPECT_EQ(slots_of(table)[1].fwding_action, TARN_FILTER_ACTION_POLICE);
    EXPECT_EQ(slots_of(table)[2].fwding_action, TARN_FILTER_ACTION_FALLBACK);
    EXPECT_EQ(slots_of(table)[5].fwding_action, TARN_FILTER_ACTION_LOG);
}

TEST_F(RuleAction, AClassThatIsMissingTakesNoSlotUntilItComes)
{
    ASSERT_EQ(add(TARN_ACTION_TAG_CLASS, "video"), 0);
    ASSERT_EQ(add(TARN_ACTION_TAG_LOG, nullptr), 0);
    EXPECT_EQ(display_text(table_of(&world, p_rule)), "accept\nlog\n\tLog\n");
    t_tarn_class_params params = {"video", 3};
    EXPECT_EQ(tarn_class_add(&world.tarn, &params), 0);
    EXPECT_EQ(tarn_policy_change(&world.tarn, p_rule->policy, p_rule->vpn_list), 0);
    EXPECT_EQ(display_text(table_of(&world, p_rule)), "accept\nset fc\n  2\nlog\n\tLog\n");
}

TEST_F(RuleAction, WhatDoesNotExistIsRefused)
{
    EXPECT_EQ(add(TARN_ACTION_TAG_POLICER, "none"), EINVAL);
    EXPECT_EQ(add(TARN_ACTION_TAG_MIRROR, "none"), EINVAL);
    EXPECT_EQ(add(TARN_ACTION_TAG_POLICER, "pol"), 0);
    EXPECT_EQ(add(TARN_ACTION_TAG_POLICER, "pol"), EEXIST);
    EXPECT_EQ(p_rule->action_list.count, 2);
    t_tarn_config_action *p_action = nullptr;
    EXPECT_EQ(tarn_config_action_find(&world.tarn, TARN_POLICY_TYPE_DATA, "p", "l", 10,
                                      TARN_ACTION_TAG_POLICER, &p_action),
              0);
    EXPECT_STREQ(p_action->policer.key.policy_name, "l_p");
    remove(TARN_ACTION_TAG_LOG);  // there is none
    EXPECT_EQ(tarn_config_action_find(&world.tarn, TARN_POLICY_TYPE_DATA, "p", "l", 10, TARN_ACTION_TAG_LOG,
                                      &p_action),
              ENOENT);
    EXPECT_EQ(p_action, nullptr);
    EXPECT_EQ(tarn_config_action_delete(&world.tarn, TARN_POLICY_TYPE_DATA, "p", "l", 11, 0), ENOENT);
}

TEST_F(RuleAction, NatAsksTheDatastoreInASessionOfItsOwn)
{
    confd_double_reset();
    confd_double_set_int16("/vpn/vpn-instance{512}/vrf-id", 7);
    ASSERT_EQ(add(TARN_ACTION_TAG_NAT_VPN, &vpn_512), 0);
    std::string calls;
    for (const t_confd_call &call : confd_double_calls())
        calls += call.function + "(" + call.text + ") ";
    EXPECT_EQ(calls, "cdb_connect(127.0.0.1:4565) cdb_start_session2() "
                     "cdb_get_int16(/vpn/vpn-instance{512}/vrf-id) cdb_end_session() ");
    for (const char *function : {"cdb_connect", "cdb_start_session2", "cdb_get_int16"}) {
        confd_double_fail(function, 1);
        EXPECT_EQ(add(TARN_ACTION_TAG_NAT_VPN, &vpn_512), -1) << function;
        EXPECT_EQ(p_rule->action_list.count, 2) << function;
    }
}

// What a rule's objects hold.
static std::vector<size_t> count_all(const PassWorld &world, const t_tarn_config_rule *p_rule)
{
    return {
        avl_numnodes(&tarn_policer_find(&world.tarn, "pol", TARN_POLICY_POLICER_TYPE_KEELSON)->instance_db),
        avl_numnodes(&tarn_mirror_find(&world.tarn, "mir")->ref_db),
        avl_numnodes(&p_rule->vpn_list->policer_db),
        avl_numnodes(&p_rule->vpn_list->counter_db),
        avl_numnodes(&world.tarn.tloc_db),
        avl_numnodes(&p_rule->tloc_ctx_db),
        static_cast<size_t>(p_rule->action_list.count)};
}

TEST_F(RuleAction, WithoutMemoryNothingIsTaken)
{
    for (uint32_t i = 0; i < 3; i++)
        add_tloc_element(&world, p_rule, i, static_cast<uint8_t>(7 + i), 0, 1);
    std::vector<t_slot_row> rows(std::begin(slot_rows), std::end(slot_rows));
    rows.push_back({TARN_ACTION_TAG_TLOC_LIST, nullptr, "", ""});
    for (const t_slot_row &row : rows) {
        std::vector<size_t> before = count_all(world, p_rule);
        int status = ENOMEM;
        for (int left = 0; status != 0; left++) {
            ASSERT_LT(left, 20);
            g_callocs_left = left;
            status = add(row.tag, row.value);
            g_callocs_left = -1;
            EXPECT_TRUE(status == 0 || status == ENOMEM) << std::hex << row.tag;
            if (status == 0)
                break;
            EXPECT_EQ(count_all(world, p_rule), before) << std::hex << row.tag << ' ' << left;
        }
        remove(row.tag);
        EXPECT_EQ(count_all(world, p_rule), before) << std::hex << row.tag;
    }
}

using RuleActionDeathTest = RuleAction;

TEST_F(RuleActionDeathTest, WhatOnlyOurOwnFaultCanBreakStopsTheProcess)
{
    EXPECT_EXIT(add(0x12345678, nullptr), testing::KilledBySignal(SIGSEGV), "");
    for (int i = 0; i < 12; i++)
        ASSERT_EQ(add(TARN_ACTION_TAG_LOG, nullptr), 0);
    EXPECT_EXIT(table_of(&world, p_rule), testing::KilledBySignal(SIGSEGV), "");
    remove(TARN_ACTION_TAG_LOG);
    EXPECT_EQ(slots_of(table_of(&world, p_rule))[11].fwding_action, TARN_FILTER_ACTION_LOG) << "12 fit";
    tarn_config_action_delete_all(&world.tarn, p_rule);
    EXPECT_EXIT(table_of(&world, p_rule), testing::KilledBySignal(SIGSEGV), "");
}

TEST(YangMaps, ValuesOfTheModel)
{
    EXPECT_EQ(tarn_yang_tcp_match_to_filter_tcp_match(3), 2u);
    EXPECT_EQ(tarn_yang_tcp_match_to_filter_tcp_match(2), 0u);
    EXPECT_EQ(tarn_yang_plp_match_to_filter_plp_match(2), 1u);
    EXPECT_EQ(tarn_yang_dns_match_to_filter_dns_match(2), 2u);
    EXPECT_EQ(tarn_yang_dns_match_to_filter_dns_match(0), 1u);
    EXPECT_EQ(tarn_yang_enum_to_filter_mask(0), 0u);
    EXPECT_EQ(tarn_yang_enum_to_filter_mask(31), 0x80000000u);
    static const uint32_t directions[] = {2, 1, 3};  // service, tunnel, both
    static const uint32_t loss_protection[] = {28, 28, 29, 30, 28};
    for (uint32_t i = 0; i < 3; i++)
        EXPECT_EQ(tarn_yang_data_policy_direction_to_filter_direction(i), directions[i]) << i;
    for (uint32_t i = 0; i < 5; i++)
        EXPECT_EQ(tarn_yang_loss_protect_to_action(i), loss_protection[i]) << i;
    static const uint32_t actions[][2] = {
        {0, 2},   {1, 1},         {2, 27},          {3, 0},          {10, 28},
        {11, 29}, {0x369ffb7, 0}, {0x6ccfcce4, 15}, {0xf474ab8, 30},
    };
    for (const auto &[value, action] : actions)
        EXPECT_EQ(tarn_yang_action_to_filter_action(value), action) << value;
}
