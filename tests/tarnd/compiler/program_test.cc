#include "tarnd/compiler/tarn_program.h"

#include "common/cli_print.h"
#include "tarnd/compiler/tarn_field.h"
#include "tests/support/compile.h"
#include "tests/support/program_content.h"

#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

using t_slots = std::vector<t_tarn_filter_action>;  // up to 12

static t_tarn_filter_action plain_slot(e_tarn_filter_action action)
{
    t_tarn_filter_action slot = {};
    slot.action = action;
    return slot;
}

static t_tarn_filter_action counter_slot(const char *name)
{
    t_tarn_filter_action slot = {};
    slot.fwding_action = TARN_FILTER_ACTION_COUNT;
    memcpy(slot.counter.name, name, strnlen(name, TARN_COUNTER_NAME_SIZE));
    return slot;
}

static t_tarn_filter_action policer_slot(const char *name)
{
    t_tarn_filter_action slot = {};
    slot.fwding_action = TARN_FILTER_ACTION_POLICE;
    memcpy(slot.policer.name, name, strnlen(name, FP_POLICER_NAME_SIZE));
    slot.policer.oob_pkt_snapshot = 77;
    return slot;
}

static const std::string full_name(TARN_COUNTER_NAME_SIZE, 'n');

struct Program : testing::Test {
    t_test_memory memory;
    context_ptr context{tarn_context_create()};
    ruletable_ptr table{tarn_ruletable_create("counted", "0counted", TARN_ACTION_DATA_SIZE,
                                              t_slots(MAX_ACTIONS_IN_RULE).data())};
    t_compiled compiled;

    void add_rule(t_slots slots, uint32_t type, uint32_t low, uint32_t high)
    {
        slots.resize(MAX_ACTIONS_IN_RULE);
        t_tarn_rule *p_rule = tarn_rule_create(table.get(), "1");
        tarn_add_range_field(context.get(), p_rule, tarn_get_field_id(context.get(), type), low, high);
        tarn_create_action(p_rule, TARN_ACTION_DATA_SIZE, slots.data());
    }

    // Rules that overlap, so that one rule has several records, and that share names.
    void compile_example()
    {
        add_rule({plain_slot(TARN_FILTER_ACTION_ACCEPT), counter_slot("web"), policer_slot("1.gold")},
                 tarn_ip_dst_port, 80, 90);
        add_rule({counter_slot("web"), policer_slot("2.gold")}, tarn_ip_protocol, 6, 6);
        t_slots last(MAX_ACTIONS_IN_RULE, counter_slot(full_name.c_str()));
        last[0] = plain_slot(TARN_FILTER_ACTION_COUNT);  // a plain action is not a counter
        add_rule(last, tarn_ip_dst_port, 85, 99);
        compiled = compile_table(context.get(), table.get());
        ASSERT_EQ(compiled.status, tarn_status_ok);
    }

    std::vector<t_tarn_filter_action *> slots_with(uint32_t fwding_action)
    {
        t_program_content content;
        EXPECT_EQ(program_parse(compiled.bytes(), &content), "");
        std::vector<t_tarn_filter_action *> found;
        std::byte *p_record = compiled.program.get() + content.header.p_action_table_offset * size_t{4};
        for (size_t i = 0; i < content.records.size();
             i++, p_record += content.action_dir.t_table_entry_size) {
            void *p_payload = p_record + sizeof(t_tarn_action);
            auto *p_slots = static_cast<t_tarn_filter_action *>(p_payload);
            for (uint32_t slot = 0; slot < MAX_ACTIONS_IN_RULE; slot++)
                if (p_slots[slot].fwding_action == fwding_action)
                    found.push_back(&p_slots[slot]);
        }
        return found;
    }
};

struct t_sum {
    int64_t pkts = -1;
    int64_t bytes = -1;
    friend bool operator==(const t_sum &, const t_sum &) = default;
};

static std::ostream &operator<<(std::ostream &out, const t_sum &sum)
{
    return out << sum.pkts << " packets, " << sum.bytes << " bytes";
}

static t_sum counter_of(const t_compiled &compiled, const std::string &name)
{
    t_sum sum;
    tarn_program_get_counter(compiled.program.get(), name.c_str(), &sum.pkts, &sum.bytes);
    return sum;
}

static t_sum policer_of(const t_compiled &compiled, const std::string &name)
{
    t_sum sum;
    tarn_program_get_policer(compiled.program.get(), name.c_str(), &sum.pkts, &sum.bytes);
    return sum;
}

// One packet of 1000 bytes for every counter with the name, as the forwarding plane counts.
static int64_t count_once(const std::vector<t_tarn_filter_action *> &slots, const char *name)
{
    int64_t counted = 0;
    for (t_tarn_filter_action *p_slot : slots) {
        t_tarn_counter &counter = p_slot->counter;
        if (strncmp(counter.name, name, sizeof(counter.name)) != 0)
            continue;
        counter.pkts[counter.version]++;
        counter.bytes[counter.version] += 1000;
        counted++;
    }
    return counted;
}

TEST_F(Program, ACounterIsTheSumOverAllRecords)
{
    compile_example();
    auto slots = slots_with(TARN_FILTER_ACTION_COUNT);
    int64_t web = count_once(slots, "web");
    int64_t full = count_once(slots, full_name.c_str());
    EXPECT_GT(web, 2) << "rules have several records here";
    EXPECT_EQ(full % (MAX_ACTIONS_IN_RULE - 1), 0) << "all slots of a record are looked at";
    EXPECT_EQ(counter_of(compiled, "web"), (t_sum{web, 1000 * web}));
    EXPECT_EQ(counter_of(compiled, full_name), (t_sum{full, 1000 * full}));
    EXPECT_EQ(counter_of(compiled, full_name + "tail"), (t_sum{full, 1000 * full}))
        << "64 bytes are compared";
    EXPECT_EQ(counter_of(compiled, "we"), (t_sum{0, 0}));
    EXPECT_EQ(counter_of(compiled, "1.gold"), (t_sum{0, 0}));
}

TEST_F(Program, AClearMovesTheCounterToItsOtherElement)
{
    compile_example();
    auto slots = slots_with(TARN_FILTER_ACTION_COUNT);
    count_once(slots, full_name.c_str());
    t_sum full = counter_of(compiled, full_name);
    for (int clear = 1; clear <= 3; clear++) {
        int64_t web = count_once(slots, "web");
        EXPECT_EQ(counter_of(compiled, "web"), (t_sum{web, 1000 * web}))
            << "counted since clear " << clear - 1;
        tarn_program_clear_counter(compiled.program.get(), "web");
        EXPECT_EQ(counter_of(compiled, "web"), (t_sum{0, 0}));
        for (const t_tarn_filter_action *p_slot : slots) {
            if (strcmp(p_slot->counter.name, "web") != 0)
                continue;
            EXPECT_EQ(p_slot->counter.version, clear % 2);
            for (int element : {0, 1})
                EXPECT_EQ(p_slot->counter.pkts[element] + p_slot->counter.bytes[element], 0);
        }
    }
    EXPECT_EQ(counter_of(compiled, full_name), full) << "other names keep their counts";
}

TEST_F(Program, TwoClearsZeroBothElements)
{
    compile_example();
    for (t_tarn_filter_action *p_slot : slots_with(TARN_FILTER_ACTION_COUNT))
        for (int element : {0, 1})
            p_slot->counter.pkts[element] = p_slot->counter.bytes[element] = 5;
    tarn_program_clear_counter(compiled.program.get(), "web");
    EXPECT_NE(counter_of(compiled, "web"), (t_sum{0, 0}));
    tarn_program_clear_counter(compiled.program.get(), "web");
    EXPECT_EQ(counter_of(compiled, "web"), (t_sum{0, 0}));
}

TEST_F(Program, APolicerIsNamedWithItsSequenceNumber)
{
    compile_example();
    for (t_tarn_filter_action *p_slot : slots_with(TARN_FILTER_ACTION_POLICE)) {
        p_slot->policer.version = 1;
        p_slot->policer.oob_pkts[1] = 3;
        p_slot->policer.oob_bytes[1] = 300;
        p_slot->policer.oob_pkts[0] = p_slot->policer.oob_bytes[0] = 5'000'000;
    }
    EXPECT_EQ(policer_of(compiled, "gold"), (t_sum{0, 0}));
    t_sum first = policer_of(compiled, "1.gold");
    EXPECT_GE(first.pkts, 3);
    EXPECT_EQ(first.pkts % 3, 0);
    EXPECT_EQ(first.bytes, 100 * first.pkts);
    for (t_tarn_filter_action *p_slot : slots_with(TARN_FILTER_ACTION_POLICE))
        p_slot->policer.oob_pkts[0] = p_slot->policer.oob_bytes[0] = 0;
    t_sum second = policer_of(compiled, "2.gold");
    tarn_program_clear_policer(compiled.program.get(), "1.gold");
    EXPECT_EQ(policer_of(compiled, "1.gold"), (t_sum{0, 0}));
    EXPECT_EQ(policer_of(compiled, "2.gold"), second);
    for (const t_tarn_filter_action *p_slot : slots_with(TARN_FILTER_ACTION_POLICE))
        EXPECT_EQ(p_slot->policer.oob_pkt_snapshot, 77);
}

static std::vector<void *> g_changed;

static void note_change(void *action_data, t_fp_policer *p_policer)
{
    EXPECT_EQ(p_policer->burst, 9u);
    g_changed.push_back(action_data);
}

TEST_F(Program, AChangeOfAPolicerSeesEveryRecordOnce)
{
    compile_example();
    t_program_content content;
    ASSERT_EQ(program_parse(compiled.bytes(), &content), "");
    g_changed.clear();
    t_fp_policer policer = {};
    policer.burst = 9;
    tarn_change_policer(compiled.program.get(), &policer, note_change);
    std::byte *p_record = compiled.program.get() + content.header.p_action_table_offset * size_t{4};
    ASSERT_EQ(g_changed.size(), content.records.size());
    for (size_t i = 0; i < g_changed.size(); i++)
        EXPECT_EQ(g_changed[i], p_record + i * 3080 + 8);
}

static const char display_text[] = "length = 3640 \n"
                                   "(field type, ec) map size = 1 \n"
                                   "Entry 0: field type = 6, ec_id = 1 \n"
                                   "Table dir length = 2 \n"
                                   "n instructions = 2 \n"
                                   "Lookup Table:  \n"
                                   "Entry 0: [0 - -1] -> 0\n"
                                   "\n"
                                   "Action Table:  \n"
                                   "flags = 0x0 \n"
                                   "length = 3080 \n"
                                   "accept\n"
                                   "count\n"
                                   "  web\n"
                                   "fec adaptive\n"
                                   "\tFEC Always\n"
                                   "-\n"
                                   "\n";

static std::string g_session_text;

__attribute__((format(printf, 3, 0))) static void print_to_session(t_lconfd_context *, int usid,
                                                                   const char *format, va_list args)
{
    EXPECT_EQ(usid, 7);
    char text[256];
    vsnprintf(text, sizeof(text), format, args);
    g_session_text += text;
}

// A table whose only search tree has one entry, so that its shape is certain.
TEST_F(Program, DisplaysToASessionOrToStandardOutput)
{
    t_tarn_filter_action fec = {};
    fec.fwding_action = TARN_FILTER_ACTION_FEC_ADAPTIVE;
    add_rule({plain_slot(TARN_FILTER_ACTION_ACCEPT), counter_slot("web"), fec,
              plain_slot(TARN_FILTER_ACTION_INSPECT)},
             tarn_ip_dscp, 0, 0xfffffffe);
    compiled = compile_table(context.get(), table.get());
    ASSERT_EQ(compiled.status, tarn_status_ok);

    testing::internal::CaptureStdout();
    tarn_display_program(nullptr, 7, compiled.program.get(), ftm_oct_filter_action_dump);
    EXPECT_EQ(testing::internal::GetCapturedStdout(), display_text);

    g_session_text.clear();
    cli_print_register(print_to_session);
    tarn_display_program(reinterpret_cast<t_lconfd_context *>(&g_session_text), 7, compiled.program.get(),
                         ftm_oct_filter_action_dump);
    cli_print_register(nullptr);
    EXPECT_EQ(g_session_text, display_text);
}

static t_tarn_filter_action slot_of(e_tarn_filter_action fwding_action)
{
    t_tarn_filter_action slot = {};
    slot.fwding_action = fwding_action;
    return slot;
}

static t_tarn_filter_action mirror_slot()
{
    t_tarn_filter_action slot = slot_of(TARN_FILTER_ACTION_MIRROR);
    t_fp_ipaddr addr;
    fp_ipaddr_set_v4(&addr, 0x0100000a);  // 10.0.0.1, the word in network order
    slot.mirror_info.tunnel.src_ip = addr;
    fp_ipaddr_set_v4(&addr, 0x0200000a);
    slot.mirror_info.tunnel.dst_ip = addr;
    return slot;
}

static t_tarn_filter_action marking_policer_slot()
{
    t_tarn_filter_action slot = policer_slot("7.gold");
    slot.policer.version = 1;
    slot.policer.rate = 0x1234;
    slot.policer.oob_action = FP_POLICER_ACTION_MARK_PLP_HIGH;
    slot.policer.oob_pkts[1] = 0xab;
    return slot;
}

TEST(ProgramShort, PrintsTheDetailsOfASlot)
{
    t_tarn_filter_action next_hop = slot_of(TARN_FILTER_ACTION_NEXT_HOP);
    fp_ipaddr_set_v4(&next_hop.nh_ip_addr, 0xc0000201);
    t_tarn_filter_action tloc = slot_of(TARN_FILTER_ACTION_TLOC);
    tloc.tloc[0] = {-1, 1003, 1, 5};
    t_tarn_filter_action local = slot_of(TARN_FILTER_ACTION_LOCAL_TLOC_LIST);
    local.local_tloc_list = {0x30, 2, 1};
    const struct {
        t_tarn_filter_action slot;
        const char *text;
    } cases[] = {
        {tloc, "\tresolved: 1\n\tvpn-label: 1003\n\ttloc-index: -1\n"},
        {mirror_slot(), "\tsrc-ip: 10.0.0.1\n\tdst-ip: 10.0.0.2\n"},
        {marking_policer_slot(), "\t      name: 7.gold\n"
                                 "\t      rate: 0x00000000001234\n"
                                 "\t     burst: 0000000000000000\n"
                                 "\toob-action: plp-high\n"
                                 "\t Last Seen: 0000000000000000\n"
                                 "\t    Tokens: 0000000000000000\n"
                                 "\t     Drops: 0x000000000000ab\n"
                                 "\t     Bytes: 0000000000000000\n"},
        {next_hop, "\tnext-hop: 192.0.2.1\n"},
        {local, "\tColor Mask: 0x30, Encap Mask: 0x2, Restrict: Yes\n"},
        {slot_of(TARN_FILTER_ACTION_FEC_ALWAYS), "\tFEC Adaptive\n"},
        {slot_of(TARN_FILTER_ACTION_TCP_OPTIMIZATION), "\tTCP Optimization \n"},
        {slot_of(TARN_FILTER_ACTION_CFLOWD), ""},
    };
    for (const auto &c : cases) {
        testing::internal::CaptureStdout();
        tarn_oct_filter_action_print(nullptr, 0, &c.slot);
        EXPECT_EQ(testing::internal::GetCapturedStdout(), c.text) << c.slot.fwding_action;
    }
}
