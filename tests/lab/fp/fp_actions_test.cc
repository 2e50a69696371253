// What actions make of a packet: treatments, locators by flow, rewritten fields on the way, copies of
// mirrors.
#include "lab/fp/fp_actions.h"

#include "tests/lab/fp/fp_ask.h"
#include "tests/lab/fp/frames.h"
#include "tests/support/program_builder.h"

#include <algorithm>
#include <arpa/inet.h>
#include <cstring>
#include <fstream>
#include <iterator>

static t_tarn_filter_action slot_of(uint32_t action)
{
    t_tarn_filter_action slot = {};
    slot.fwding_action = action;
    return slot;
}

// The only record of a handmade program: its single stage has class 0 for every protocol.
static std::vector<std::byte> one_record_program(const t_slots &slots)
{
    t_built_program built;
    built.fields = {{tarn_ip_protocol, 1}};
    built.tables = {built_tree(1, {{0, 256, 0, 0, 0}})};
    built.instructions = {ins_lookup_field(1, 1, 1), ins_terminate(1)};
    built.record_size = sizeof(t_tarn_action) + TARN_ACTION_DATA_SIZE;
    std::vector<std::byte> program = program_build(built);
    t_slots twelve = slots;
    twelve.resize(MAX_ACTIONS_IN_RULE);
    memcpy(&program[record_place(program, 0) + sizeof(t_tarn_action)], twelve.data(), TARN_ACTION_DATA_SIZE);
    return program;
}

class FpActionsShortTest : public FpAsking {};

TEST_F(FpActionsShortTest, EveryKindOfActionIsAFieldOfTheTreatment)
{
    static constexpr uint32_t fallback = TARN_FILTER_ACTION_FALLBACK;
    struct t_case {
        t_slots slots;
        void (*p_fill)(t_tarn_filter_action *p_slot);  // of the first slot
        const char *verdict;
        const char *treatment;
    };
    static const auto nothing = [](t_tarn_filter_action *) {};
    static const t_case cases[] = {
        {{}, nothing, "none", R"({"path":"routing"})"},
        {{plain_slot(TARN_FILTER_ACTION_ACCEPT)}, nothing, "accept", R"({"path":"routing"})"},
        {{plain_slot(TARN_FILTER_ACTION_REJECT)}, nothing, "reject", R"({"path":"dropped"})"},
        {{plain_slot(TARN_FILTER_ACTION_INSPECT)},
         nothing,
         "inspect",
         R"({"path":"routing","inspect":true})"},
        {{slot_of(3)},
         [](auto *p) {
             p->tloc[0] = {7, 5, 1, 9};
         },
         "none",
         R"({"path":"locator","locator":{"from":"tloc","resolved":true,"tloc-index":7,"vpn-label":5,"vpn":9}})"},
        {{slot_of(3)},
         nothing,
         "none",
         R"({"path":"unresolved","locator":{"from":"tloc","resolved":false,"tloc-index":0,"vpn-label":0,"vpn":0}})"},
        {{slot_of(13), slot_of(fallback)},
         nothing,
         "none",
         R"({"path":"fallback","locator":{"from":"tloc-list","entry":7,"resolved":false,"tloc-index":0,)"
         R"("vpn-label":0,"vpn":0},"fallback":true})"},
        {{slot_of(13)},
         [](auto *p) {
             p->tloc[7] = {3, 4, 1, 5};
         },
         "none",
         R"({"path":"locator","locator":{"from":"tloc-list","entry":7,"resolved":true,"tloc-index":3,)"
         R"("vpn-label":4,"vpn":5}})"},
        {{slot_of(4)},
         [](auto *p) {
             p->tloc_color_encap = {4, 80};
         },
         "none",
         R"({"path":"routing","color-encap":{"color":4,"encap":80}})"},
        {{slot_of(5)},
         [](auto *p) {
             p->mirror_info.mirror_type = TARN_MIRROR_BOTH;
             fp_ipaddr_set_v4(&p->mirror_info.tunnel.dst_ip, htonl(0x0a000002));
         },
         "none",
         R"({"path":"routing","mirrors":[{"type":3,"interface":"","source":"","destination":"10.0.0.2","copies":2}]})"},
        {{slot_of(6)}, nothing, "none", R"({"path":"routing","cflowd":true})"},
        {{slot_of(9)}, [](auto *p) { p->_class = 6; }, "none", R"({"path":"routing","class":6})"},
        {{slot_of(10)},
         [](auto *p) { fp_ipaddr_set_v4(&p->nh_ip_addr, 0xc0000201); },
         "none",
         R"({"path":"next-hop","next-hop":"192.0.2.1"})"},
        {{slot_of(11)}, [](auto *p) { p->nat_vrid = 3; }, "none", R"({"path":"nat","nat-vrid":3})"},
        {{slot_of(12)},
         [](auto *p) {
             p->sla_class = {1, 5, 4};
         },
         "none",
         R"({"path":"routing","sla-class":{"primary":1,"backup":5,"preferred-color":4}})"},
        {{slot_of(14)}, [](auto *p) { p->dscp = 46; }, "none", R"({"path":"routing","dscp":46})"},
        {{slot_of(15)}, [](auto *p) { p->svc_type = 2; }, "none", R"({"path":"routing","service-type":2})"},
        {{slot_of(16)}, [](auto *p) { p->nat_pool_id = 8; }, "none", R"({"path":"nat","nat-pool":8})"},
        {{slot_of(17), slot_of(17)}, nothing, "none", R"({"path":"routing","logged":2})"},
        {{slot_of(18)}, nothing, "none", R"({"path":"local-service","service-local":true})"},
        {{slot_of(19)}, nothing, "none", R"({"path":"routing","service-local-strict":true})"},
        {{slot_of(20)},
         [](auto *p) { p->backup_preferred_color = 12; },
         "none",
         R"({"path":"routing","backup-preferred-color":12})"},
        {{slot_of(21)},
         [](auto *p) { p->traffic_class = 32; },
         "none",
         R"({"path":"routing","traffic-class":32})"},
        {{slot_of(22)},
         [](auto *p) {
             p->local_tloc_list = {4, 16, 1};
         },
         "none",
         R"({"path":"routing","local-tloc-list":{"color-mask":4,"encap-mask":16,"restrict":true}})"},
        {{slot_of(23)}, nothing, "none", R"({"path":"routing","tcp-optimization":true})"},
        {{slot_of(24)}, nothing, "none", R"({"path":"routing","ssl-optimization":true})"},
        {{slot_of(26)},
         [](auto *p) { fp_ipaddr_set_v4(&p->redirect_dns_nh_addr, 0x08080808); },
         "none",
         R"({"path":"routing","redirect-dns":"8.8.8.8"})"},
        {{slot_of(27)}, nothing, "none", R"({"path":"routing","inspect":true})"},
        {{slot_of(28)}, nothing, "none", R"({"path":"routing","fec-adaptive":true})"},
        {{slot_of(29)}, nothing, "none", R"({"path":"routing","fec-always":true})"},
        {{slot_of(30)}, nothing, "none", R"({"path":"routing","packet-duplication":true})"},
        {{slot_of(31), slot_of(4000)}, nothing, "none", R"({"path":"routing"})"},
    };
    for (const t_case &c : cases) {
        t_slots slots = c.slots;
        if (!slots.empty())
            c.p_fill(slots.data());
        pool.put(1, 10, one_record_program(slots));
        pool.filters[1].activity = 0;  // the slot was given out again
        fp_json got = answer("classify 1 10.0.0.1 10.0.0.2 1000 9 udp");
        EXPECT_EQ(got["verdict"], c.verdict) << c.treatment;
        EXPECT_EQ(lab_answer_line(got["treatment"]), c.treatment);
    }
    fp_json stats = answer("stats")["treatments"];
    EXPECT_EQ(lab_answer_line(stats),
              R"({"logged":2,"mirror-copies":2,"locators":2,"unresolved":1,"fallbacks":1})");
}

TEST(FpFlowHashShortTest, FlowsSpreadOverAllEntriesAndStayThere)
{
    t_fp_header header = fp_header_blank();
    header.values[tarn_ip_src_addr] = 0x0a000001;
    header.values[tarn_ip_dst_addr] = 0xc0a80105;
    header.values[tarn_ip_protocol] = 17;
    EXPECT_EQ(fp_flow_hash(header, 10), 0x3c2d161bu) << "a change sends running flows to other locators";
    std::array<uint32_t, TARN_TLOCS_IN_ACTION> counts = {};
    static constexpr uint32_t flows = 16000;
    for (uint32_t i = 0; i < flows; i++) {
        header.values[tarn_ip_src_port] = 1024 + i * 2;  // the low bit never changes
        counts[fp_flow_hash(header, 10) % TARN_TLOCS_IN_ACTION]++;
    }
    for (uint32_t count : counts)
        EXPECT_NEAR(count, flows / TARN_TLOCS_IN_ACTION, 150);
}

TEST_F(FpActionsShortTest, LaterStagesMeetWhatEarlierOnesRewrote)
{
    t_tarn_filter_action dscp = slot_of(TARN_FILTER_ACTION_DSCP);
    dscp.dscp = 20;
    pool.put(1, 10,
             one_record_program({dscp, policer_slot("1.mark", 1, 0, FP_POLICER_ACTION_MARK_PLP_HIGH)}));
    t_built_program by_dscp;
    by_dscp.fields = {{tarn_ip_dscp, 1}};
    by_dscp.tables = {built_tree(1, {{0, 20, 0, 0, 0}, {20, 21, 1, 0, 0}, {21, 64, 0, 0, 0}})};
    by_dscp.instructions = {ins_lookup_field(1, 1, 1), ins_terminate(1)};
    by_dscp.num_records = 2;
    by_dscp.record_size = sizeof(t_tarn_action) + TARN_ACTION_DATA_SIZE;
    pool.put(2, 100, program_build(by_dscp));
    EXPECT_EQ(answer(R"({"request": "bindings", "interfaces": [], "vpns": [
        {"type": "data", "min": 1, "max": 1, "filter": 2, "direction": "all", "name": "d"},
        {"type": "application-route", "min": 1, "max": 1, "filter": 1, "direction": "all", "name": "r"}]})")
                  ["ok"],
              true);
    fp_json got = answer("forward 1 ge0/1 in 10.0.0.1 10.0.0.2 1 2 udp len=100 dscp=3");
    EXPECT_EQ(got["stages"][1]["record"], 1) << got;
    EXPECT_EQ(got["stages"][1]["plp"], "high");
    EXPECT_EQ(got["plp"], "high");
}

// ---- Files beside a capture ----

static t_bytes file_read(const std::string &path)
{
    std::ifstream stream(path, std::ios::binary);
    std::string text{std::istreambuf_iterator<char>(stream), {}};
    std::span<const std::byte> bytes = std::as_bytes(std::span(text));
    return {bytes.begin(), bytes.end()};
}

TEST_F(FpActionsShortTest, CopiesAreAppendedToACaptureFile)
{
    t_tarn_filter_action mirror = slot_of(TARN_FILTER_ACTION_MIRROR);
    mirror.mirror_info.mirror_type = TARN_MIRROR_BOTH;
    pool.put(1, 10, ports_compile("m", {{80, 89, {mirror}}}, {plain_slot(TARN_FILTER_ACTION_ACCEPT)}));
    t_capture_frame first = {1500000000123456789, udp_frame(80, 10)};
    t_capture_frame third = {1500000002000000000, udp_frame(85, 0)};
    t_test_file file(pcap_file({first, {1500000001000000000, udp_frame(7, 0)}, third}));
    std::string copies = file.folder + "/copies.pcap";
    fp_json got = answer("replay 1 " + file.path + " --mirror " + copies);
    EXPECT_EQ(got["treatments"]["mirror-copies"], 4) << got;
    EXPECT_EQ(file_read(copies), pcap_file({first, first, third, third}));
    service.mirror = fp_mirror_open(copies, nullptr);
    answer("replay 1 " + file.path);
    EXPECT_EQ(file_read(copies), pcap_file({first, first, third, third, first, first, third, third}));
    file_write(file.folder + "/text", std::as_bytes(std::span("some notes that are no capture")));
    EXPECT_EQ(answer("replay 1 " + file.path + " --mirror " + file.folder + "/text")["error"],
              file.folder + "/text: holds something else than copies");
    EXPECT_EQ(answer("replay 1 " + file.path + " --mirror " + file.folder)["ok"], false);
}

TEST_F(FpActionsShortTest, ATableOfPortsTellsApplicationsThatTheSidecarDoesNot)
{
    static constexpr std::string_view rows = "# ports\n\nudp 80-81 app=5 app-family=6\r\nudp 1000 app=0x7\n";
    t_test_file file(pcap_file({{1, udp_frame(80, 0)}, {2, udp_frame(90, 0)}, {3, udp_frame(80, 0)}}));
    std::string table = file.folder + "/ports";
    file_write(table, std::as_bytes(std::span(rows)));
    t_fp_applications applications;
    std::string error;
    ASSERT_TRUE(fp_applications_read(table, &applications, &error)) << error;
    struct t_case {
        uint32_t protocol;
        uint32_t source;
        uint32_t destination;
        uint32_t app;  // that it comes with
        uint32_t want_app;
        uint32_t want_family;
    };
    static const t_case cases[] = {{17, 1000, 81, 0, 5, 6}, {17, 1000, 82, 0, 7, 0}, {17, 81, 1000, 0, 7, 0},
                                   {6, 1000, 80, 0, 0, 0},  {17, 1, 80, 9, 9, 0},    {17, 1, 2, 0, 0, 0}};
    for (const t_case &c : cases) {
        t_fp_header header = fp_header_blank();
        header.values[tarn_ip_protocol] = c.protocol;
        header.values[tarn_ip_src_port] = c.source;
        header.values[tarn_ip_dst_port] = c.destination;
        header.values[tarn_ip_dpi_app] = c.app;
        fp_applications_apply(applications, &header);
        EXPECT_EQ(header.values[tarn_ip_dpi_app], c.want_app) << c.source << ' ' << c.destination;
        EXPECT_EQ(header.values[tarn_ip_dpi_app_family], c.want_family) << c.source << ' ' << c.destination;
    }
    t_built_program by_app;
    by_app.fields = {{tarn_ip_dpi_app, 1}};
    by_app.tables = {built_tree(1, {{0, 5, 0, 0, 0}, {5, 6, 1, 0, 0}})};
    by_app.instructions = {ins_lookup_field(1, 1, 1), ins_terminate(1)};
    by_app.num_records = 2;
    by_app.record_size = sizeof(t_tarn_action) + TARN_ACTION_DATA_SIZE;
    pool.put(1, 10, program_build(by_app));
    fp_json records = answer("replay 1 " + file.path + " --applications " + table)["records"];
    ASSERT_EQ(records.size(), 1u) << records;
    EXPECT_EQ(records[0]["record"], 1);
    EXPECT_EQ(records[0]["packets"], 2);
    for (std::string_view bad : {"udp", "udp 0-", "udp 9-8 app=1", "udp 65536 app=1", "gre? 1 app=1",
                                 "udp 1 class=1", "udp 1 app=x"}) {
        file_write(table, std::as_bytes(std::span(bad)));
        EXPECT_FALSE(fp_applications_read(table, &applications, &error)) << bad;
        EXPECT_TRUE(error.starts_with(table + ":1: ")) << error;
    }
    EXPECT_EQ(applications.size(), 2u);
}

TEST_F(FpActionsShortTest, VerdictsHaveALineForEachFrame)
{
    pool.put(1, 10, one_record_program({plain_slot(TARN_FILTER_ACTION_ACCEPT), counter_slot("c")}));
    t_test_file file(
        pcap_file({{1, udp_frame(80, 0)}, {2, ethernet("0806", t_bytes(28))}, {3, udp_frame(7, 0)}}));
    std::string verdicts = file.folder + "/verdicts";
    EXPECT_EQ(answer("replay 1 " + file.path + " --verdicts " + verdicts)["ok"], true);
    t_bytes bytes = file_read(verdicts);
    std::string text(reinterpret_cast<const char *>(bytes.data()), bytes.size());
    EXPECT_EQ(text,
              R"({"frame":1,"filter":1,"verdict":"accept","program":"handmade","dropped":false,"plp":"low",)"
              R"("default":false,"record":0,"actions":[{"slot":1,"action":"count","name":"c","packets":1,)"
              R"("bytes":28}],"treatment":{"path":"routing"}})"
              "\n"
              R"({"frame":2,"verdict":"no-packet","reason":"not-ip"})"
              "\n"
              R"({"frame":3,"filter":1,"verdict":"accept","program":"handmade","dropped":false,"plp":"low",)"
              R"("default":false,"record":0,"actions":[{"slot":1,"action":"count","name":"c","packets":2,)"
              R"("bytes":56}],"treatment":{"path":"routing"}})"
              "\n");
    EXPECT_EQ(answer("replay 1 " + file.path + " --verdicts " + file.folder)["error"],
              file.folder + ": can't be written");
    EXPECT_EQ(answer(R"({"request": "replay", "filter": 1, "file": "/x", "mirror": 1.5})")["error"],
              "\"mirror\" is neither text nor a whole number");
    EXPECT_EQ(answer("replay 1 /x --verdicts")["error"], "nothing stands behind --verdicts");
}
