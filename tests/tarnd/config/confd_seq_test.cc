// Sequences: every leaf created, changed and deleted, and the actions that several leaves make together.
#include <gtest/gtest.h>

#include <csignal>
#include <cstring>

#include "libcvmx/sim/_cvmx-clock.h"
#include "platform/confd/double/confd_double.h"
#include "tarnd/config/tarn_process.h"
#include "tarnd/peers/tarn_ttm.h"
#include "tests/tarnd/config/confd_change.h"
#include "tests/tarnd/config/rule_text.h"

static const std::vector<uint32_t> in_match = {LUMORA_TAG_MATCH};
static const std::vector<uint32_t> in_action = {LUMORA_TAG_ACTION};
static const std::vector<uint32_t> in_nat = {LUMORA_TAG_ACTION, LUMORA_TAG_NAT};
static const std::vector<uint32_t> in_sla = {LUMORA_TAG_ACTION, LUMORA_TAG_SLA_CLASS};
static const std::vector<uint32_t> in_set = {LUMORA_TAG_ACTION, LUMORA_TAG_SET};
static const std::vector<uint32_t> in_tloc = {LUMORA_TAG_ACTION, LUMORA_TAG_SET, LUMORA_TAG_TLOC};
static const std::vector<uint32_t> in_pair = {LUMORA_TAG_ACTION, LUMORA_TAG_SET, LUMORA_TAG_COLOR_ENCAP};
static const std::vector<uint32_t> in_own = {LUMORA_TAG_ACTION, LUMORA_TAG_SET, LUMORA_TAG_LOCAL_TLOC_LIST};

// One tick a nanosecond.
using f_clock_rate = uint64_t(cvmx_clock_t);
f_clock_rate wrap_clock_rate asm("__wrap__Z19cvmx_clock_get_rate12cvmx_clock_t");
uint64_t wrap_clock_rate(cvmx_clock_t)
{
    return 1'000'000'000;
}

// A policy of each kind, and two objects of each kind to name.
class ConfdSeq : public testing::Test {
protected:
    ConfdSeq()
    {
        confd_double_reset();
        confd_double_set_int16("/vpn/vpn-instance{512}/vrf-id", 7);
        confd_double_set_int16("/vpn/vpn-instance{513}/vrf-id", 8);
        world.add_vpn_list("l", 1);
        world.add_policy(TARN_POLICY_TYPE_DATA, "p", {"l"});
        world.add_policy(TARN_POLICY_TYPE_PFR, "p", {"l"});
        world.add_policy(TARN_POLICY_TYPE_ZBF, "p", {});
        for (const char *name : {"a", "b"}) {
            t_tarn_policer_config policer = policer_config(name, name[0] == 'a' ? 8'000'000 : 800'000, 1, 0);
            EXPECT_EQ(tarn_config_policer_add(&world.tarn, &policer), 0);
            t_tarn_class_params params = {name, static_cast<uint8_t>(name[0] - 'a')};
            EXPECT_EQ(tarn_class_add(&world.tarn, &params), 0);
            EXPECT_EQ(tarn_sla_class_add(&world.tarn, name), 0);
            EXPECT_EQ(tarn_config_mirror_add(&world.tarn, name, nullptr, nullptr), 0);
        }
        t_tarn_mirror_tunnel tunnel = {};
        EXPECT_EQ(tarn_config_mirror_add(&world.tarn, "b", nullptr, &tunnel), 0);
        world.add_pfx_list("a", {"10.0.0.0/8"});
        world.add_pfx_list("b", {"172.16.0.0/12"});
        world.add_app_list("a", {"web"});
        world.add_app_list("b", {"mail"});
        world.tarn.process_zbf_config = 0;
    }

    ~ConfdSeq() override
    {
        for (auto type : {TARN_POLICY_TYPE_DATA, TARN_POLICY_TYPE_PFR, TARN_POLICY_TYPE_ZBF})
            EXPECT_EQ(tarn_policy_delete(&world.tarn, type, "p"), 0);
        EXPECT_EQ(world.tarn.flow_ref, 0);
    }

    void run(e_tarn_policy_type type, confd_iter_op oper, const t_change &change = {})
    {
        if (type == TARN_POLICY_TYPE_ZBF)
            EXPECT_EQ(world.run(tarn_config_zone_policy_seq, oper, {text("p"), u16(10)}, change), 0);
        else
            EXPECT_EQ(world.run(type == TARN_POLICY_TYPE_PFR ? tarn_config_app_route_policy_seq
                                                             : tarn_config_data_policy_seq,
                                oper, {text("p"), text("l"), u16(10)}, change),
                      0);
    }

    void create(e_tarn_policy_type type, const t_change &change = {})
    {
        run(type, MOP_CREATED,
            t_change{leaf(LUMORA_TAG_NUMBER, u16(10))} + change +
                inside(in_action, {leaf(LUMORA_TAG_BASE_ACTION, enumerator(0))}));
    }

    t_tarn_config_rule *rule(e_tarn_policy_type type)
    {
        t_tarn_config_rule *p_rule = nullptr;
        const char *list_name = type == TARN_POLICY_TYPE_ZBF ? TARN_ZBF_VPN_LIST : "l";
        EXPECT_EQ(tarn_config_rule_lookup(&world.tarn, type, "p", list_name, 10, &p_rule), 0);
        return p_rule;
    }

    // Fields, then slots, as they are compiled.
    std::string compiled(e_tarn_policy_type type)
    {
        ruletable_ptr table = table_of(&world, rule(type));
        std::string text = fields_text(table);
        for (int i = 0; i < 12 && !slot_text(slots_of(table)[i]).empty(); i++)
            text += (text.empty() ? "" : "; ") + slot_text(slots_of(table)[i]);
        return text;
    }

    std::string gathered(e_tarn_policy_type type);

    ConfdWorld world;
};
using ConfdSeqDeathTest = ConfdSeq;

// ---- Leaves ----

struct t_leaf_row {
    const std::vector<uint32_t> &containers;
    uint32_t tag;
    confd_value_t first;
    const char *created;
    confd_value_t second;
    const char *changed;
    e_tarn_policy_type type = TARN_POLICY_TYPE_DATA;
};

static const t_leaf_row leaf_rows[] = {
    {in_match, LUMORA_TAG_PROTOCOL, list({u8(6), u8(17)}), "1:6-6,11-11; 0:02", list({u8(1)}), "1:1-1; 0:02"},
    {in_match, LUMORA_TAG_SOURCE_PORT, list({text("80"), text("1000-2000")}), "2:50-50,3e8-7d0; 0:02",
     list({text("53")}), "2:35-35; 0:02"},
    {in_match, LUMORA_TAG_DESTINATION_PORT, list({text("443")}), "3:1bb-1bb; 0:02", list({text("1-65535")}),
     "3:1-ffff; 0:02"},
    {in_match, LUMORA_TAG_PACKET_LENGTH, list({text("64-128")}), "9:40-80; 0:02", list({text("1500")}),
     "9:5dc-5dc; 0:02"},
    {in_match, LUMORA_TAG_SOURCE_IP, list({prefix("10.1.0.0/16")}), "4:a010000-a01ffff; 0:02",
     list({prefix("0.0.0.0/0")}), "0:02"},
    {in_match, LUMORA_TAG_DESTINATION_IP, list({prefix("10.1.0.0/16")}), "5:a010000-a01ffff; 0:02",
     list({prefix("192.0.2.1/32")}), "5:c0000201-c0000201; 0:02"},
    {in_match, LUMORA_TAG_SOURCE_DATA_PREFIX_LIST, text("a"), "4:a000000-affffff; 0:02", text("b"),
     "4:ac100000-ac1fffff; 0:02"},
    {in_match, LUMORA_TAG_DESTINATION_DATA_PREFIX_LIST, text("a"), "5:a000000-affffff; 0:02", text("b"),
     "5:ac100000-ac1fffff; 0:02"},
    {in_match, LUMORA_TAG_DSCP, list({u8(46), u8(0)}), "6:2e-2e,0-0; 0:02", list({u8(8)}), "6:8-8; 0:02"},
    {in_match, LUMORA_TAG_TCP, bits(1), "8:2-2; 0:02", bits(2), "8:0-0; 0:02"},
    {in_match, LUMORA_TAG_PLP, enumerator(0), "15:0-0; 0:02", enumerator(1), "15:1-1; 0:02"},
    {in_match, LUMORA_TAG_DNS, enumerator(1), "18:1-1; 0:02", enumerator(2), "18:2-2; 0:02"},
    {in_match, LUMORA_TAG_APP_LIST, text("a"), "11:1e-1e; 0:02", text("b"), "11:f-f; 0:02",
     TARN_POLICY_TYPE_ZBF},
    {in_match, LUMORA_TAG_DNS_APP_LIST, text("a"), "17:1e-1e; 0:02", text("b"), "17:f-f; 0:02"},
    {in_action, LUMORA_TAG_COUNT, text("c"), "0:02; 4:08 104:63", text("d"), "0:02; 4:08 104:64",
     TARN_POLICY_TYPE_ZBF},
    {in_action, LUMORA_TAG_LOG, empty(), "0:02; 4:11", empty(), "0:02; 4:11"},
    {in_action, LUMORA_TAG_CFLOWD, empty(), "0:02; 4:06", empty(), "0:02; 4:06"},
    {in_action, LUMORA_TAG_MIRROR, text("a"), "0:02; 4:05", text("b"), "0:02; 4:05 64:02"},
    {in_action, LUMORA_TAG_POLICER, text("a"), "0:02; 4:07 72:e803 80:e803 148:0231302e61", text("b"),
     "0:02; 4:07 72:1027 80:1027 148:0231302e62"},
    {in_action, LUMORA_TAG_CLASS, text("a"), "0:02; 4:09 64:01", text("b"), "0:02; 4:09 64:02"},
    {in_action, LUMORA_TAG_REDIRECT_DNS, ipv4("192.0.2.9"), "0:02; 4:1a 64:0902 67:c0 80:01",
     ipv6("2001:db8::1"), "0:02; 4:1a"},
    {in_action, LUMORA_TAG_TCP_OPTIMIZATION, empty(), "0:02; 4:17", empty(), "0:02; 4:17"},
    {in_action, LUMORA_TAG_SSL_OPTIMIZATION, empty(), "0:02; 4:18", empty(), "0:02; 4:18"},
    {in_action, LUMORA_TAG_PACKET_DUPLICATION, empty(), "0:02; 4:1e", empty(), "0:02; 4:1e"},
    {in_action, LUMORA_TAG_LOSS_PROTECT, enumerator(10), "0:02; 4:1c", enumerator(11), "0:02; 4:1d"},
    {in_action, LUMORA_TAG_FALLBACK, boolean(true), "0:02; 4:19", boolean(false), "0:02"},
    {in_action, LUMORA_TAG_BACKUP_PREFERRED_COLOR, list({enumerator(1), enumerator(22)}),
     "0:02; 4:14 64:02 66:40", list({enumerator(5)}), "0:02; 4:14 64:20"},
    {in_nat, LUMORA_TAG_USE_VPN, u32(512), "0:02; 4:0b 64:07", u32(513), "0:02; 4:0b 64:08"},
    {in_nat, LUMORA_TAG_POOL, u32(3), "0:02; 4:10 64:03", u32(4), "0:02; 4:10 64:04"},
    {in_set, LUMORA_TAG_DSCP, u8(46), "0:02; 4:0e 64:2e", u8(8), "0:02; 4:0e 64:08"},
    {in_set, LUMORA_TAG_NEXT_HOP, text("10.1.2.3"), "0:02; 4:0a 64:0302010a 80:01", text("2001:db8::1"),
     "0:02; 4:0a 64:20010db8 79:0102"},
    {in_set, LUMORA_TAG_RESTRICT, empty(), "0:02; 4:13", empty(), "0:02; 4:13"},
    {in_set, LUMORA_TAG_LOCAL, empty(), "0:02; 4:12", empty(), "0:02; 4:12"},
    {in_set, LUMORA_TAG_TLOC_LIST, text("t"), "0:02; 4:0d", text("u"), "0:02; 4:0d"},
    {in_pair, LUMORA_TAG_COLOR, enumerator(1), "0:02; 4:04 64:02", enumerator(2), "0:02; 4:04 64:04"},
    {in_pair, LUMORA_TAG_ENCAP, enumerator(1), "0:02; 4:04 68:40", enumerator(2), "0:02; 4:04 68:10"},
    {in_own, LUMORA_TAG_COLOR, list({enumerator(1), enumerator(3)}), "0:02; 4:16 64:0a",
     list({enumerator(2)}), "0:02; 4:16 64:04"},
    {in_own, LUMORA_TAG_ENCAP, list({enumerator(1), enumerator(2)}), "0:02; 4:16 68:50",
     list({enumerator(1)}), "0:02; 4:16 68:40"},
    {in_own, LUMORA_TAG_RESTRICT, empty(), "0:02; 4:16 72:01", empty(), "0:02; 4:16 72:01"},
    {in_sla, LUMORA_TAG_STRICT, boolean(true), "0:02; 4:0c", boolean(true), "0:02; 4:0c 65:05",
     TARN_POLICY_TYPE_PFR},
    {in_sla, LUMORA_TAG_PREFERRED_COLOR, list({enumerator(2), enumerator(4)}), "0:02; 4:0c 68:14",
     list({enumerator(3)}), "0:02; 4:0c 68:08", TARN_POLICY_TYPE_PFR},
};

TEST_F(ConfdSeq, EachLeafComesChangesAndGoes)
{
    for (const t_leaf_row &row : leaf_rows) {
        SCOPED_TRACE(testing::Message() << row.created << " for tag 0x" << std::hex << row.tag);
        create(row.type);
        std::string bare = compiled(row.type);
        run(row.type, MOP_DELETED);

        create(row.type, inside(row.containers, {leaf(row.tag, row.first)}));
        EXPECT_EQ(compiled(row.type), row.created);
        run(row.type, MOP_MODIFIED, inside(row.containers, {leaf(row.tag, row.second)}));
        EXPECT_EQ(compiled(row.type), row.changed);
        EXPECT_EQ(rule(row.type)->policy->changed + rule(row.type)->vpn_list->changed, 2);
        run(row.type, MOP_MODIFIED, inside(row.containers, {leaf(row.tag, none())}));
        EXPECT_EQ(compiled(row.type), bare);
        run(row.type, MOP_DELETED);
        EXPECT_EQ(world.generations(), 6) << "one for each call";
        EXPECT_EQ(std::exchange(world.tarn.process_zbf_config, 0), row.type == TARN_POLICY_TYPE_ZBF);
    }
}

TEST_F(ConfdSeq, ABaseActionIsReplaced)
{
    for (auto [verdict, slot] : {std::pair{1, "0:01"}, std::pair{2, "0:1b"}, std::pair{0, "0:02"}}) {
        create(TARN_POLICY_TYPE_DATA, inside(in_action, {leaf(LUMORA_TAG_LOG, empty())}));
        run(TARN_POLICY_TYPE_DATA, MOP_MODIFIED,
            inside(in_action, {leaf(LUMORA_TAG_BASE_ACTION, enumerator(verdict))}));
        EXPECT_EQ(compiled(TARN_POLICY_TYPE_DATA), std::string(slot) + "; 4:11");
        run(TARN_POLICY_TYPE_DATA, MOP_DELETED);
    }
}

// ---- Actions of several leaves ----

static std::string tloc_text(const t_tarn_config_action &action)
{
    const t_tarn_tloc_config &config = action.tloc_config[0];
    return "tloc " + std::to_string(ntohl(config.tloc->tloc.addr.u.addr4.s_addr) & 255) + "/" +
           std::to_string(config.tloc->tloc.color) + "/" + std::to_string(config.tloc->tloc.encap) + "/" +
           std::to_string(config.vpn_label) + "@" + std::to_string(config.vpn_id);
}

static std::string action_text(const t_tarn_config_action &action)
{
    switch (action.fwding_action) {
    case TARN_FILTER_ACTION_TLOC:
        return tloc_text(action);
    case TARN_FILTER_ACTION_TLOC_LIST:
        return "tlocs " + std::to_string(action.num_tlocs);
    case TARN_FILTER_ACTION_SVC_LOCAL:
        return "local";
    case TARN_FILTER_ACTION_SVC_TYPE:
        return "service " + std::to_string(action.svc_type);
    case TARN_FILTER_ACTION_SLA_CLASS:
        return std::string("sla ") + action.sla_class.name + "/" + std::to_string(action.sla_class.strict) +
               "/" + std::to_string(action.sla_class.preferred_color);
    case TARN_FILTER_ACTION_TLOC_WITH_COLOR_ENCAP:
        return "pair " + std::to_string(action.tloc_color_encap.color) + "/" +
               std::to_string(action.tloc_color_encap.encap);
    case TARN_FILTER_ACTION_LOCAL_TLOC_LIST:
        return "own " + std::to_string(action.local_tloc_list.color_mask) + "/" +
               std::to_string(action.local_tloc_list.encap_mask) + "/" +
               std::to_string(action.local_tloc_list.restrict1);
    default:
        return std::to_string(action.fwding_action);
    }
}

// The rule's actions behind the base action.
std::string ConfdSeq::gathered(e_tarn_policy_type type)
{
    std::string text;
    for (t_dlnode *p = rule(type)->action_list.p_head->p_next; p != nullptr; p = p->p_next)
        text += (text.empty() ? "" : ", ") + action_text(*DLL_RECORD(p, t_tarn_config_action, dlnode));
    return text;
}

static t_change tloc_is(const confd_value_t &ip, const confd_value_t &color, const confd_value_t &encap,
                        const confd_value_t &label)
{
    return inside(in_tloc, {leaf(LUMORA_TAG_IP, ip), leaf(LUMORA_TAG_COLOR, color),
                            leaf(LUMORA_TAG_ENCAP, encap), leaf(LUMORA_TAG_LABEL, label)});
}

static t_change of_set(uint32_t tag, const confd_value_t &value)
{
    return inside(in_set, {leaf(tag, value)});
}

static t_change of_tloc(uint32_t tag, const confd_value_t &value)
{
    return inside(in_tloc, {leaf(tag, value)});
}

static const t_change full_tloc = tloc_is(ipv4("10.0.0.5"), enumerator(1), enumerator(1), u32(77));
static const t_change no_tloc = tloc_is(none(), none(), none(), none());
static const t_change service_3 = of_set(LUMORA_TAG_SERVICE_TYPE, enumerator(3));
static const t_change local_service = of_set(LUMORA_TAG_LOCAL, empty());
static const t_change tloc_list = of_set(LUMORA_TAG_TLOC_LIST, text("t"));

struct t_step {
    t_change change;
    const char *want;
};

struct t_merge_row {
    const char *behaviour;
    std::vector<t_step> steps;  // the first creates the sequence
    e_tarn_policy_type type = TARN_POLICY_TYPE_DATA;
};

static const t_merge_row merge_rows[] = {
    {"what a change leaves out of a TLOC stays",
     {{full_tloc + of_set(LUMORA_TAG_VPN, u32(300)), "tloc 5/1/1/77@300"},
      {of_tloc(LUMORA_TAG_COLOR, enumerator(4)), "tloc 5/4/1/77@300"},
      {of_tloc(LUMORA_TAG_IP, ipv4("10.0.0.6")), "tloc 6/4/1/77@300"},
      {of_set(LUMORA_TAG_VPN, none()) + of_tloc(LUMORA_TAG_LABEL, u32(5)), "tloc 6/4/1/5@0"}}},
    {"single leaves of a TLOC fall back, and it goes with the last of address and color",
     {{full_tloc, "tloc 5/1/1/77@0"},
      {of_tloc(LUMORA_TAG_ENCAP, none()) + of_tloc(LUMORA_TAG_LABEL, none()), "tloc 5/1/2/0@0"},
      {of_tloc(LUMORA_TAG_IP, none()), "tloc 0/1/2/0@0"},
      {of_tloc(LUMORA_TAG_COLOR, none()), ""}}},
    {"a TLOC without an address is told apart from none",
     {{of_tloc(LUMORA_TAG_LABEL, u32(9)), "tloc 0/0/2/9@0"}, {of_tloc(LUMORA_TAG_LABEL, none()), ""}}},
    {"TLOC, TLOC list and local service displace each other in changes",
     {{full_tloc, "tloc 5/1/1/77@0"},
      {tloc_list, "tlocs 0"},
      {local_service, "local"},
      {full_tloc, "tloc 5/1/1/77@0"},
      {no_tloc, ""}}},
    {"a new sequence has all that it names, in this order",
     {{inside(in_own, {leaf(LUMORA_TAG_COLOR, list({enumerator(1)}))}) +
           inside(in_pair, {leaf(LUMORA_TAG_COLOR, enumerator(2)), leaf(LUMORA_TAG_ENCAP, enumerator(2))}) +
           service_3 + local_service + tloc_list + full_tloc +
           inside(in_sla, {leaf(LUMORA_TAG_SLA_CLASS_NAME, text("a"))}),
       "sla a/0/0, tloc 5/1/1/77@0, tlocs 0, local, service 3, pair 4/16, own 2/0/0"}},
     TARN_POLICY_TYPE_PFR},
    {"a service without a place gets a TLOC list, also when its place goes",
     {{service_3, "service 3, tlocs 0"},
      {full_tloc, "service 3, tloc 5/1/1/77@0"},
      {no_tloc, "service 3, tlocs 0"},
      {of_set(LUMORA_TAG_SERVICE_TYPE, enumerator(4)), "tlocs 0, service 4"},
      {local_service, "service 4, local"},
      {of_set(LUMORA_TAG_LOCAL, none()), "service 4, tlocs 0"},
      {of_set(LUMORA_TAG_SERVICE_TYPE, none()), ""}}},
    {"a local service needs none, and everything goes with the type",
     {{service_3 + local_service, "local, service 3"}, {of_set(LUMORA_TAG_SERVICE_TYPE, none()), ""}}},
    {"color and encapsulation are merged leaf by leaf",
     {{inside(in_pair, {leaf(LUMORA_TAG_COLOR, enumerator(1)), leaf(LUMORA_TAG_ENCAP, enumerator(1))}),
       "pair 2/64"},
      {inside(in_pair, {leaf(LUMORA_TAG_ENCAP, enumerator(2))}), "pair 2/16"},
      {inside(in_pair, {leaf(LUMORA_TAG_COLOR, none())}), "pair 0/16"},
      {inside(in_pair, {leaf(LUMORA_TAG_ENCAP, none())}), ""}}},
    {"so is the list of own TLOCs",
     {{inside(in_own, {leaf(LUMORA_TAG_COLOR, list({enumerator(1), enumerator(2)})),
                       leaf(LUMORA_TAG_ENCAP, list({enumerator(1), enumerator(2)})),
                       leaf(LUMORA_TAG_RESTRICT, empty())}),
       "own 6/80/1"},
      {inside(in_own, {leaf(LUMORA_TAG_RESTRICT, none())}), "own 6/80/0"},
      {inside(in_own, {leaf(LUMORA_TAG_COLOR, none())}), "own 0/80/0"},
      {inside(in_own, {leaf(LUMORA_TAG_ENCAP, none())}), ""}}},
    {"an SLA class without a name is all tunnels and not strict; a change keeps the name that it deletes",
     {{inside(in_sla, {leaf(LUMORA_TAG_STRICT, boolean(true)),
                       leaf(LUMORA_TAG_PREFERRED_COLOR, list({enumerator(1)}))}),
       "sla __all_tunnels__/0/2"},
      {inside(in_sla, {leaf(LUMORA_TAG_SLA_CLASS_NAME, text("b"))}), "sla b/0/2"},
      {inside(in_sla, {leaf(LUMORA_TAG_STRICT, boolean(true))}), "sla b/1/2"},
      {inside(in_sla, {leaf(LUMORA_TAG_SLA_CLASS_NAME, none()), leaf(LUMORA_TAG_PREFERRED_COLOR, none())}),
       "sla b/1/0"}},
     TARN_POLICY_TYPE_PFR},
};

TEST_F(ConfdSeq, ActionsOfSeveralLeavesAreMerged)
{
    for (const t_merge_row &row : merge_rows) {
        SCOPED_TRACE(row.behaviour);
        create(row.type, row.steps[0].change);
        EXPECT_EQ(gathered(row.type), row.steps[0].want);
        for (size_t i = 1; i < row.steps.size(); i++) {
            run(row.type, MOP_MODIFIED, row.steps[i].change);
            EXPECT_EQ(gathered(row.type), row.steps[i].want) << "step " << i;
        }
        run(row.type, MOP_DELETED);
    }
}

// ---- TLOC preference lists ----

TEST_F(ConfdSeq, TlocListElementsComeBeforeTheirSequenceAndChangeUnderIt)
{
    auto element = [&](confd_iter_op oper, uint32_t number, const t_change &change) {
        EXPECT_EQ(world.run(tarn_config_data_policy_seq_tloc_pref_list, oper,
                            {text("p"), text("l"), u16(10), u32(number)}, change),
                  0);
        return avl_first(&world.tarn.tloc_list_db) == nullptr;
    };
    element(MOP_CREATED, 1,
            {leaf(LUMORA_TAG_TLOC_IP, ipv4("10.0.0.5")), leaf(LUMORA_TAG_TLOC_COLOR, enumerator(1)),
             leaf(LUMORA_TAG_TLOC_ENCAP, enumerator(1)), leaf(LUMORA_TAG_TLOC_LABEL, u32(77)),
             leaf(LUMORA_TAG_TLOC_PREFERENCE, none())});
    create(TARN_POLICY_TYPE_DATA, tloc_list);
    EXPECT_EQ(gathered(TARN_POLICY_TYPE_DATA), "tlocs 1");
    EXPECT_EQ(
        tloc_text(*DLL_RECORD(rule(TARN_POLICY_TYPE_DATA)->action_list.p_tail, t_tarn_config_action, dlnode)),
        "tloc 5/1/1/77@0");

    t_tarn_config_rule *p_rule = rule(TARN_POLICY_TYPE_DATA);
    p_rule->vpn_list->changed = 0;
    element(MOP_MODIFIED, 1, {leaf(LUMORA_TAG_TLOC_LABEL, none()), leaf(LUMORA_TAG_TLOC_PREFERENCE, u32(4))});
    element(MOP_MODIFIED, 9, {leaf(LUMORA_TAG_TLOC_LABEL, u32(1))});
    EXPECT_EQ(p_rule->vpn_list->changed, 1);
    EXPECT_EQ(tarn_policy_change(&world.tarn, p_rule->policy, p_rule->vpn_list), 0);
    const auto &action = *DLL_RECORD(p_rule->action_list.p_tail, t_tarn_config_action, dlnode);
    EXPECT_EQ(tloc_text(action), "tloc 5/1/1/0@0");
    EXPECT_EQ(action.tloc_config[0].preference, 4u);
    EXPECT_FALSE(element(MOP_DELETED, 9, {}));
    EXPECT_TRUE(element(MOP_DELETED, 1, {})) << "the list goes with its last element";
    EXPECT_EQ(world.generations(), 6);
}

// ---- What ends the process ----

struct t_death_row {
    const char *behaviour;
    confd_iter_op oper;
    t_change change;
};

TEST_F(ConfdSeqDeathTest, WhatTheModelKeepsOutIsAnAssertion)
{
    create(TARN_POLICY_TYPE_DATA);
    const t_death_row rows[] = {
        {"a leaf-list that is no list", MOP_MODIFIED, inside(in_match, {leaf(LUMORA_TAG_PROTOCOL, u8(6))})},
        {"an element of another type", MOP_MODIFIED,
         inside(in_match, {leaf(LUMORA_TAG_PROTOCOL, list({u16(6)}))})},
        {"a list of values in the set container", MOP_MODIFIED, of_set(LUMORA_TAG_DSCP, list({u8(46)}))},
        {"a leaf of another type", MOP_MODIFIED, inside(in_action, {leaf(LUMORA_TAG_COUNT, u32(1))})},
        {"an encapsulation that has no bit", MOP_MODIFIED,
         inside(in_pair, {leaf(LUMORA_TAG_ENCAP, enumerator(3))})},
        {"a policer that is not there", MOP_MODIFIED,
         inside(in_action, {leaf(LUMORA_TAG_POLICER, text("x"))})},
        {"a prefix list that is not there", MOP_MODIFIED,
         inside(in_match, {leaf(LUMORA_TAG_SOURCE_DATA_PREFIX_LIST, text("x"))})},
        {"a sequence that is there", MOP_CREATED, {}},
    };
    for (const t_death_row &row : rows)
        EXPECT_EXIT(run(TARN_POLICY_TYPE_DATA, row.oper, row.change), testing::KilledBySignal(SIGSEGV), "")
            << row.behaviour;
    EXPECT_EXIT(run(TARN_POLICY_TYPE_PFR, MOP_MODIFIED), testing::KilledBySignal(SIGSEGV), "");
    EXPECT_EXIT(run(TARN_POLICY_TYPE_PFR, MOP_DELETED), testing::KilledBySignal(SIGSEGV), "");
    EXPECT_EXIT(world.run(tarn_config_data_policy_seq, MOP_DELETED, {text("p"), text("l"), u32(10)}),
                testing::KilledBySignal(SIGSEGV), "");
    EXPECT_EXIT(world.run(tarn_config_zone_policy_seq, MOP_DELETED, {text("p"), text("l"), u16(10)}),
                testing::KilledBySignal(SIGSEGV), "");
}
