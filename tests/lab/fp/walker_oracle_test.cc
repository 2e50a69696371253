// The walker against the plain executor, on random programs made by hand and on compiled random tables.
#include "lab/fp/walker.h"

#include "tests/support/plain_executor.h"
#include "tests/support/program_builder.h"
#include "tests/support/random_table.h"

#include <algorithm>
#include <cstring>
#include <gtest/gtest.h>

static constexpr uint32_t num_records = 20;

static bool one_in(std::mt19937 *p_random, uint32_t n)
{
    return random_below(p_random, n) == 0;
}

// Intervals in ascending order, with gaps unless `whole`; then they cover all values but the highest.
static std::vector<t_tarn_table_entry> random_intervals(std::mt19937 *p_random, uint32_t classes, bool whole)
{
    uint32_t width = 1u << (1 + random_below(p_random, 28));
    uint32_t count = 1 + random_below(p_random, one_in(p_random, 8) ? 2000 : 12);
    std::vector<t_tarn_table_entry> entries;
    uint64_t low = whole ? 0 : random_below(p_random, width);
    for (uint32_t i = 0; i < count && low < 0xffffffff; i++) {
        uint64_t high = std::min<uint64_t>(low + 1 + random_below(p_random, width), 0xffffffff);
        if (whole && i + 1 == count)
            high = 0xffffffff;
        uint32_t value = random_below(p_random, classes);
        entries.push_back({static_cast<uint32_t>(low), static_cast<uint32_t>(high), value, 0, 0});
        low = whole || one_in(p_random, 2) ? high : high + random_below(p_random, width);
    }
    return entries;
}

static t_built_table random_built_table(std::mt19937 *p_random, uint32_t ec_id, uint32_t classes)
{
    if (!one_in(p_random, 3))
        return built_tree(ec_id, random_intervals(p_random, classes, one_in(p_random, 2)), p_random);
    std::vector<uint32_t> values(1 + random_below(p_random, 400));
    for (uint32_t &value : values)
        value = random_below(p_random, classes);
    return built_tree(ec_id, dense_entries(values), p_random);
}

// One instruction, or the three that the compiler emits for a pair. Few registers, so that results meet
// again.
static void random_instructions(std::mt19937 *p_random, t_built_program *p_program)
{
    uint32_t src = random_below(p_random, 5);
    uint32_t dst = random_below(p_random, 5);
    uint32_t multiplier = one_in(p_random, 6) ? random_below(p_random, 0x10000) : random_below(p_random, 20);
    size_t table = random_below(p_random, static_cast<uint32_t>(p_program->tables.size()));
    uint32_t ec_id = p_program->tables[table].ec_id;
    size_t field = random_below(p_random, static_cast<uint32_t>(p_program->fields.size()));
    std::vector<tarn_instruction> *p_words = &p_program->instructions;
    switch (random_below(p_random, 6)) {
    case 0:
        p_words->push_back(ins_mul(src, dst, multiplier));
        break;
    case 1:
        p_words->push_back(ins_or(src, dst));
        break;
    case 2:
        p_words->push_back(ins_lookup(src, dst, ec_id));
        break;
    case 3:
        p_words->insert(p_words->end(), {ins_mul(src, src, multiplier), ins_or(src, dst),
                                         ins_lookup(dst, random_below(p_random, 5), ec_id)});
        break;
    default:
        p_words->push_back(ins_lookup_field(p_program->fields[field].p_ec_id, dst, ec_id));
        break;
    }
}

static t_built_program random_program(std::mt19937 *p_random)
{
    t_built_program program;
    program.num_records = num_records;
    program.record_size = 8 + 4 * random_below(p_random, 4);
    uint32_t num_tables = 1 + random_below(p_random, 6);
    for (uint32_t i = 0; i < num_tables; i++) {
        uint32_t classes = i == 0 ? num_records : one_in(p_random, 4) ? 0xffffffff : 50;
        program.tables.push_back(random_built_table(p_random, 31 - i * 3, classes));
    }
    for (uint32_t i = 0; i < num_tables; i++) {
        if (i == 0 || one_in(p_random, 2))
            program.fields.push_back({static_cast<uint8_t>(i * 2 + 1), static_cast<uint8_t>(31 - i * 3)});
    }
    uint32_t steps = random_below(p_random, 12);
    for (uint32_t i = 0; i < steps; i++)
        random_instructions(p_random, &program);
    uint32_t result = random_below(p_random, 5);
    uint32_t input = random_below(p_random, 5);
    program.instructions.push_back(ins_lookup(input, result, program.tables[0].ec_id));
    program.instructions.push_back(ins_terminate(result));
    return program;
}

// A value on the border of some interval, or beside it, or anywhere.
static uint32_t random_value(std::mt19937 *p_random, const t_built_program &program)
{
    if (one_in(p_random, 4))
        return static_cast<uint32_t>((*p_random)());
    const t_built_table &table =
        program.tables[random_below(p_random, static_cast<uint32_t>(program.tables.size()))];
    const t_tarn_table_entry &entry =
        table.entries[random_below(p_random, static_cast<uint32_t>(table.entries.size()))];
    return (one_in(p_random, 2) ? entry.low : entry.high) + 1 - random_below(p_random, 3);
}

static bool same_verdict(const t_fp_verdict &a, const t_fp_verdict &b)
{
    return a.class_id == b.class_id && a.record_offset == b.record_offset;
}

static bool same_steps(const std::vector<t_fp_step> &a, const std::vector<t_fp_step> &b)
{
    return std::equal(a.begin(), a.end(), b.begin(), b.end(), [](const t_fp_step &x, const t_fp_step &y) {
        return x.instruction == y.instruction && x.input == y.input && x.output == y.output &&
               x.found == y.found;
    });
}

// Compares all ways of executing a program over the headers. Returns how many headers got a record.
static size_t compare(std::span<const std::byte> program, std::span<const t_fp_header> headers)
{
    std::string error;
    fp_walker_ptr walker = fp_walker_open(program, &error);
    EXPECT_EQ(error, "");
    if (walker == nullptr)
        return 0;
    std::vector<t_fp_verdict> burst(headers.size());
    fp_walker_classify_burst(walker.get(), headers, burst);
    size_t hits = 0;
    for (size_t i = 0; i < headers.size(); i++) {
        std::vector<t_fp_step> want_steps;
        std::vector<t_fp_step> steps;
        t_fp_verdict want = plain_execute(program, headers[i], &want_steps);
        EXPECT_TRUE(same_verdict(fp_walker_classify(walker.get(), headers[i]), want)) << "header " << i;
        EXPECT_TRUE(same_verdict(burst[i], want)) << "header " << i << " in a burst";
        EXPECT_TRUE(same_verdict(fp_walker_trace(walker.get(), headers[i], &steps), want)) << "header " << i;
        EXPECT_TRUE(same_steps(steps, want_steps)) << "header " << i;
        hits += want.class_id != FP_NO_RECORD;
    }
    return hits;
}

TEST(WalkerOracleTest, RandomProgramsRunAsThePlainExecutorRunsThem)
{
    size_t hits = 0;
    for (uint32_t seed = 1; seed <= 3000 && !testing::Test::HasFailure(); seed++) {
        SCOPED_TRACE(testing::Message() << "seed " << seed);
        std::mt19937 random(seed);
        t_built_program plan = random_program(&random);
        std::vector<t_fp_header> headers(70, fp_header_blank());
        for (t_fp_header &header : headers) {
            for (uint32_t &value : header.values)
                value = random_value(&random, plan);
        }
        hits += compare(program_build(plan), headers);
    }
    EXPECT_GT(hits, 3000u * 70 / 10);
}

TEST(WalkerOracleTest, CompiledTablesRunAsThePlainExecutorRunsThem)
{
    t_test_memory memory;
    context_ptr context(tarn_context_create());
    size_t hits = 0;
    for (uint32_t seed = 1; seed <= 150 && !testing::Test::HasFailure(); seed++) {
        SCOPED_TRACE(testing::Message() << "seed " << seed);
        std::mt19937 random(seed);
        context->c_program_limit = 4 << 20;
        int types = static_cast<int>(1 + random_below(&random, 7));
        int rules = static_cast<int>(1 + random_below(&random, 40));
        t_policy policy =
            policy_random(&random, {.field_types = types, .rules = rules, .action_data_len = 16});
        ruletable_ptr table = policy_build(policy, context.get());
        t_compiled compiled = compile_table(context.get(), table.get());
        std::vector<t_fp_header> headers(200);
        t_linear_table linear = linear_table(table.get());
        for (t_fp_header &header : headers)
            header = random_header(&random, linear);
        if (compiled.program != nullptr)
            hits += compare(compiled.bytes(), headers);
        tarn_reinit_context(context.get());
    }
    EXPECT_GT(hits, 1000u);
}
