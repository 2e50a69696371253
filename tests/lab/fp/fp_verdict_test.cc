// Every kind of action as named fields.
#include "lab/fp/fp_verdict.h"

#include "lab/fp/fp_service.h"
#include "tests/lab/fp/fp_pool.h"

#include <arpa/inet.h>
#include <cstring>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

static std::string action_line(const t_tarn_filter_action &slot)
{
    t_slots slots(MAX_ACTIONS_IN_RULE);
    slots[4] = slot;
    std::string name = "edge";
    t_fp_outcome outcome = {};
    outcome.decision = FP_DECISION_NONE;
    outcome.p_name = &name;
    outcome.p_slots = slots.data();
    outcome.num_executed = 1;
    outcome.executed[0] = {4, FP_POLICE_MARK};
    return lab_answer_line(fp_verdict_json(outcome)["actions"][0]);
}

static t_tarn_filter_action forwarding_slot(uint32_t action)
{
    t_tarn_filter_action slot = {};
    slot.fwding_action = action;
    return slot;
}

TEST(FpVerdictShortTest, ActionsCarryTheirFieldsByName)
{
    struct t_case {
        uint32_t action;
        void (*p_fill)(t_tarn_filter_action *p_slot);
        const char *want;
    };
    static const t_case cases[] = {
        {3,
         [](t_tarn_filter_action *p) {
             p->tloc[0] = {-4, 5, 1, 7};
         },
         R"("set tloc","resolved":true,"tloc-index":-4,"vpn-label":5,"vpn":7)"},
        {4,
         [](t_tarn_filter_action *p) {
             p->tloc_color_encap = {8, 2};
         },
         R"("set tloc-color-encap","color":8,"encap":2)"},
        {5,
         [](t_tarn_filter_action *p) {
             p->mirror_info.mirror_type = TARN_MIRROR_BOTH;
             memset(p->mirror_info.intf_name, 'i', sizeof(p->mirror_info.intf_name));
             fp_ipaddr_set_v4(&p->mirror_info.tunnel.src_ip, htonl(0x0a000001));
             fp_ipaddr_set_v4(&p->mirror_info.tunnel.dst_ip, htonl(0x0a000002));
         },
         R"("mirror","type":3,"interface":"iiiiiiiiiiiiiiiiiiiiiiiiiiiiiiiii","source":"10.0.0.1","destination":"10.0.0.2","copies":2)"},
        {7, [](t_tarn_filter_action *p) { *p = policer_slot("1.p", 2, 3, FP_POLICER_ACTION_DROP); },
         R"("police","name":"1.p","rate":2,"burst":3,"tokens":0,"oob-action":"drop","oob-packets":0,"oob-bytes":0,)"
         R"("packet":"marked")"},
        {8,
         [](t_tarn_filter_action *p) {
             memset(p->counter.name, 'c', sizeof(p->counter.name));
             p->counter.version = 1;
             p->counter.pkts[1] = 9;
         },
         R"("count","name":"cccccccccccccccccccccccccccccccccccccccccccccccccccccccccccccccc","packets":9,"bytes":0)"},
        {9, [](t_tarn_filter_action *p) { p->_class = 6; }, R"("set fc","class":6)"},
        {10, [](t_tarn_filter_action *p) { fp_ipaddr_set_v4(&p->nh_ip_addr, 0xc0000201); },
         R"("set next-hop","next-hop":"192.0.2.1")"},
        {11, [](t_tarn_filter_action *p) { p->nat_vrid = 65535; }, R"("set nat use-vpn","vrid":65535)"},
        {12,
         [](t_tarn_filter_action *p) {
             p->sla_class = {1, 2, 3};
         },
         R"("sla-class","primary":1,"backup":2,"preferred-color":3)"},
        {14, [](t_tarn_filter_action *p) { p->dscp = 46; }, R"("set dscp","dscp":46)"},
        {15, [](t_tarn_filter_action *p) { p->svc_type = 4; }, R"("set svc-type","svc-type":4)"},
        {16, [](t_tarn_filter_action *p) { p->nat_pool_id = 31; }, R"("set nat pool-id","pool-id":31)"},
        {17, [](t_tarn_filter_action *) {}, R"("log")"},
        {20, [](t_tarn_filter_action *p) { p->backup_preferred_color = 12; },
         R"("set backup-preferred-color","color":12)"},
        {21, [](t_tarn_filter_action *p) { p->traffic_class = 200; },
         R"("set traffic-class","traffic-class":200)"},
        {22,
         [](t_tarn_filter_action *p) {
             p->local_tloc_list = {1, 2, 1};
         },
         R"("set local-tloc-list","color-mask":1,"encap-mask":2,"restrict":true)"},
        {24, [](t_tarn_filter_action *) {}, R"("ssl-optimization")"},
        {26, [](t_tarn_filter_action *p) { fp_ipaddr_set_v4(&p->redirect_dns_nh_addr, 0x08080808); },
         R"("redirect-dns","next-hop":"8.8.8.8")"},
        {27, [](t_tarn_filter_action *) {}, R"("inspect")"},
        {4000, [](t_tarn_filter_action *) {}, R"("action-4000")"},
    };
    for (const t_case &c : cases) {
        t_tarn_filter_action slot = forwarding_slot(c.action);
        c.p_fill(&slot);
        EXPECT_EQ(action_line(slot), std::string(R"({"slot":4,"action":)") + c.want + '}') << c.action;
    }
}

TEST(FpVerdictShortTest, ATlocListHasAllItsEntries)
{
    fp_json list = fp_json::parse(action_line(forwarding_slot(TARN_FILTER_ACTION_TLOC_LIST)));
    EXPECT_EQ(list["tlocs"].size(), TARN_TLOCS_IN_ACTION);
}
