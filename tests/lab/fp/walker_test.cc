// What a program does to a header, on programs made by hand.
#include "lab/fp/walker.h"

#include "tests/support/program_builder.h"

#include <algorithm>
#include <cstring>
#include <gtest/gtest.h>

static fp_walker_ptr open_walker(std::span<const std::byte> program)
{
    std::string error;
    fp_walker_ptr walker = fp_walker_open(program, &error);
    EXPECT_EQ(error, "");
    return walker;
}

static t_fp_header header_with(uint32_t type, uint32_t value)
{
    t_fp_header header = fp_header_blank();
    header.values[type] = value;
    return header;
}

// One leaf on the destination port and the terminator.
static t_built_program port_program(std::vector<t_tarn_table_entry> ascending, uint32_t num_records)
{
    t_built_program program;
    program.fields = {{tarn_ip_dst_port, 1}};
    program.tables = {built_tree(1, std::move(ascending))};
    program.instructions = {ins_lookup_field(1, 1, 1), ins_terminate(1)};
    program.num_records = num_records;
    return program;
}

TEST(WalkerShortTest, AValueMeetsTheIntervalThatHoldsItAndEveryOtherGetsTheDefault)
{
    struct t_case {
        uint32_t value;
        uint32_t want;
    };
    static const t_case cases[] = {
        {0, FP_NO_RECORD},
        {9, FP_NO_RECORD},
        {10, 2},
        {19, 2},
        {20, 0},
        {29, 0},
        {30, FP_NO_RECORD},
        {65534, FP_NO_RECORD},
        {65535, 1},
        {65536, FP_NO_RECORD},
        {0xfffffffe, 3},
        {0xffffffff, FP_NO_RECORD},
    };
    auto program = program_build(port_program(
        {{10, 20, 2, 0, 0}, {20, 30, 0, 0, 0}, {65535, 65536, 1, 0, 0}, {0xfffffff0, 0xffffffff, 3, 0, 0}},
        4));
    fp_walker_ptr walker = open_walker(program);
    ASSERT_NE(walker, nullptr);
    for (const t_case &c : cases) {
        t_fp_verdict verdict = fp_walker_classify(walker.get(), header_with(tarn_ip_dst_port, c.value));
        EXPECT_EQ(verdict.class_id, c.want) << c.value;
        uint32_t offset =
            c.want == FP_NO_RECORD ? FP_NO_RECORD : fp_walker_record_offset(walker.get(), c.want);
        EXPECT_EQ(verdict.record_offset, offset) << c.value;
    }
}

TEST(WalkerShortTest, AVerdictNamesTheRecordOfItsClass)
{
    t_built_program plan = port_program({{0, 5, 1, 0, 0}, {5, 0xffffffff, 2, 0, 0}}, 3);
    plan.record_size = 3080;
    auto program = program_build(plan);
    fp_walker_ptr walker = open_walker(program);
    ASSERT_NE(walker, nullptr);
    t_fp_verdict verdict = fp_walker_classify(walker.get(), header_with(tarn_ip_dst_port, 80));
    EXPECT_EQ(word_peek(program, verdict.record_offset + sizeof(t_tarn_action)), 2u);
    EXPECT_EQ(fp_walker_num_records(walker.get()), 3u);
    EXPECT_EQ(fp_walker_record_size(walker.get()), 3080u);
}

TEST(WalkerShortTest, AProgramTellsItsNameEvenWhenItFillsTheField)
{
    for (const std::string &name : {std::string("edge"), std::string(TARN_PROGRAM_NAME_SIZE, 'x')}) {
        t_built_program plan = port_program({{0, 1, 0, 0, 0}}, 1);
        plan.name = name;
        auto program = program_build(plan);
        fp_walker_ptr walker = open_walker(program);
        ASSERT_NE(walker, nullptr);
        EXPECT_EQ(fp_walker_name(walker.get()), name);
    }
}

TEST(WalkerShortTest, AStageTellsWhichFieldItReads)
{
    auto program = program_build(port_program({{0, 1, 0, 0, 0}}, 1));
    fp_walker_ptr walker = open_walker(program);
    ASSERT_NE(walker, nullptr);
    EXPECT_EQ(fp_walker_field_type(walker.get(), 1), tarn_ip_dst_port);
    EXPECT_EQ(fp_walker_field_type(walker.get(), 2), 0u);
    EXPECT_EQ(fp_walker_field_type(walker.get(), TARN_MAX_ECS), 0u);
}

// Two leaves that pass their value on (classes equal keys) in front of the instructions under test.
static t_built_program two_values(std::vector<tarn_instruction> instructions)
{
    std::vector<uint32_t> identity(64);
    for (uint32_t i = 0; i < identity.size(); i++)
        identity[i] = i;
    t_built_program program;
    program.fields = {{tarn_ip_protocol, 1}, {tarn_ip_dscp, 2}};
    for (uint32_t ec_id = 1; ec_id <= 3; ec_id++)
        program.tables.push_back(built_tree(ec_id, dense_entries(identity)));
    program.instructions = {ins_lookup_field(1, 1, 1), ins_lookup_field(2, 2, 2)};
    program.instructions.insert(program.instructions.end(), instructions.begin(), instructions.end());
    program.num_records = 64;
    return program;
}

TEST(WalkerShortTest, InstructionsComputeWithRegisters)
{
    struct t_case {
        const char *behaviour;
        std::vector<tarn_instruction> instructions;
        uint32_t want;  // with 5 in register 1 and 7 in register 2
    };
    static const t_case cases[] = {
        {"or adds where a bitwise or would lose bits",
         {ins_or(1, 2), ins_lookup(2, 3, 3), ins_terminate(3)},
         12},
        {"the pair of instructions gives class1 * n + class2",
         {ins_mul(1, 1, 3), ins_or(1, 2), ins_lookup(2, 3, 3), ins_terminate(3)},
         22},
        {"mul puts its source's product into its destination",
         {ins_mul(2, 9, 4), ins_lookup(9, 9, 3), ins_terminate(9)},
         28},
        {"or with itself doubles", {ins_or(1, 1), ins_lookup(1, 3, 3), ins_terminate(3)}, 10},
        {"a pair over one register counts it twice",
         {ins_mul(1, 1, 3), ins_or(1, 1), ins_lookup(1, 3, 3), ins_terminate(3)},
         30},
        {"the multiplied register can be read after the pair's lookup",
         {ins_mul(1, 1, 3), ins_or(1, 2), ins_lookup(2, 3, 3), ins_lookup(1, 4, 3), ins_terminate(4)},
         15},
        {"the sum can be read after the pair's lookup",
         {ins_mul(1, 1, 3), ins_or(1, 2), ins_lookup(2, 3, 3), ins_or(2, 8), ins_lookup(8, 8, 3),
          ins_terminate(8)},
         22},
        {"the pair's lookup may overwrite one of its registers",
         {ins_mul(1, 1, 3), ins_or(1, 2), ins_lookup(2, 1, 3), ins_terminate(1)},
         22},
        {"products wrap at 32 bits",
         {ins_mul(1, 1, 0x8000), ins_mul(1, 1, 0x8000), ins_mul(1, 1, 4), ins_or(1, 2), ins_lookup(2, 3, 3),
          ins_terminate(3)},
         7},
        {"a register that nothing wrote is 0", {ins_lookup(20, 3, 3), ins_terminate(3)}, 0},
        {"a key beyond a dense table gives the default",
         {ins_mul(1, 1, 64), ins_or(1, 2), ins_lookup(2, 3, 3), ins_terminate(3)},
         FP_NO_RECORD},
        {"a lookup without an entry ends the program, whatever would follow",
         {ins_mul(1, 1, 64), ins_lookup(1, 3, 3), ins_lookup(20, 3, 3), ins_terminate(3)},
         FP_NO_RECORD},
    };
    t_fp_header header = header_with(tarn_ip_protocol, 5);
    header.values[tarn_ip_dscp] = 7;
    for (const t_case &c : cases) {
        auto program = program_build(two_values(c.instructions));
        fp_walker_ptr walker = open_walker(program);
        ASSERT_NE(walker, nullptr) << c.behaviour;
        EXPECT_EQ(fp_walker_classify(walker.get(), header).class_id, c.want) << c.behaviour;
        t_fp_verdict verdict;
        fp_walker_classify_burst(walker.get(), {&header, 1}, {&verdict, 1});
        EXPECT_EQ(verdict.class_id, c.want) << c.behaviour << " (burst)";
        std::vector<t_fp_step> steps;
        EXPECT_EQ(fp_walker_trace(walker.get(), header, &steps).class_id, c.want)
            << c.behaviour << " (trace)";
    }
}

TEST(WalkerShortTest, ABlankHeaderMatchesAny)
{
    t_fp_header header = fp_header_blank();
    for (uint32_t type = 0; type < tarn_ip_field_type_max; type++)
        EXPECT_EQ(header.values[type], type == tarn_ip_match_any ? 1u : 0u) << type;
}

TEST(WalkerShortTest, ProgramsMayLieUnaligned)
{
    auto program = program_build(two_values({ins_or(1, 2), ins_lookup(2, 3, 3), ins_terminate(3)}));
    t_fp_header header = header_with(tarn_ip_dscp, 33);
    for (size_t shift = 1; shift < 8; shift++) {
        std::vector<std::byte> room(program.size() + shift);
        std::copy(program.begin(), program.end(), room.begin() + static_cast<ptrdiff_t>(shift));
        fp_walker_ptr walker = open_walker(std::span<const std::byte>(room).subspan(shift));
        ASSERT_NE(walker, nullptr) << shift;
        EXPECT_EQ(fp_walker_classify(walker.get(), header).class_id, 33u) << shift;
    }
}

// The block may end where the records end although p_length counts 4 bytes more; with them it is fine as
// well.
TEST(WalkerShortTest, TheLengthMayCountFourBytesBehindTheRecords)
{
    for (uint32_t padding : {0u, 1u}) {
        t_built_program plan = port_program({{0, 5, 0, 0, 0}}, 1);
        if (padding != 0)
            plan.instructions.insert(plan.instructions.begin(), ins_mul(1, 1, 1));
        auto program = program_build(plan);
        uint32_t length = word_peek(program, offsetof(t_tarn_program_hdr, p_length));
        EXPECT_NE(open_walker(program), nullptr) << length;
        program.resize(length);
        EXPECT_NE(open_walker(program), nullptr) << length;
    }
}

TEST(WalkerShortTest, BurstsOfEverySizeGiveTheVerdictsOfSingleHeaders)
{
    auto program =
        program_build(two_values({ins_mul(1, 1, 3), ins_or(1, 2), ins_lookup(2, 3, 3), ins_terminate(3)}));
    fp_walker_ptr walker = open_walker(program);
    ASSERT_NE(walker, nullptr);
    for (size_t count : {0, 1, 2, 63, 64, 65, 127, 128, 129, 200}) {
        std::vector<t_fp_header> headers(count, fp_header_blank());
        for (size_t i = 0; i < count; i++) {
            headers[i].values[tarn_ip_protocol] = static_cast<uint32_t>(i % 70);
            headers[i].values[tarn_ip_dscp] = i % 11 == 0 ? 0xffffffff : static_cast<uint32_t>(i % 13);
        }
        std::vector<t_fp_verdict> verdicts(count);
        fp_walker_classify_burst(walker.get(), headers, verdicts);
        for (size_t i = 0; i < count; i++) {
            t_fp_verdict want = fp_walker_classify(walker.get(), headers[i]);
            EXPECT_EQ(memcmp(&verdicts[i], &want, sizeof want), 0) << "header " << i << " of " << count;
        }
    }
}

TEST(WalkerDeathTest, BurstsNeedAVerdictForEachHeader)
{
    auto program = program_build(port_program({{0, 5, 0, 0, 0}}, 1));
    fp_walker_ptr walker = open_walker(program);
    std::vector<t_fp_header> headers(3);
    std::vector<t_fp_verdict> verdicts(2);
    EXPECT_EXIT(fp_walker_classify_burst(walker.get(), headers, verdicts), testing::KilledBySignal(SIGILL),
                "");
}
