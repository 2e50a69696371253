// Programs that lie. Opening refuses them and names the place; what it lets through stays in bounds.
#include "lab/fp/walker.h"

#include "tests/support/plain_executor.h"
#include "tests/support/program_builder.h"

#include <cstring>
#include <gtest/gtest.h>

using t_bytes = std::vector<std::byte>;

// Two leaves and their combination. Entries lie in preorder: table 0 as [6, 7), [7, end), [0, 6).
static t_bytes small_program()
{
    t_built_program plan;
    plan.fields = {{tarn_ip_protocol, 1}, {tarn_ip_dst_port, 2}};
    plan.tables = {
        built_tree(1, {{0, 6, 0, 0, 0}, {6, 7, 1, 0, 0}, {7, 0xffffffff, 0, 0, 0}}),
        built_tree(2, {{0, 80, 0, 0, 0}, {80, 81, 1, 0, 0}, {81, 443, 0, 0, 0}, {443, 444, 1, 0, 0}}),
        built_tree(3, dense_entries(std::vector<uint32_t>{0, 1, 0, 2})),
    };
    plan.instructions = {ins_lookup_field(1, 1, 1), ins_lookup_field(2, 2, 2), ins_mul(1, 1, 2), ins_or(1, 2),
                         ins_lookup(2, 3, 3),       ins_terminate(3)};
    plan.num_records = 3;
    return program_build(plan);
}

// Places of the lies.
static constexpr size_t hdr_length = offsetof(t_tarn_program_hdr, p_length);
static constexpr size_t hdr_dir_len = offsetof(t_tarn_program_hdr, p_table_dir_len);
static constexpr size_t hdr_num_instructions = offsetof(t_tarn_program_hdr, p_num_instructions);
static constexpr size_t hdr_action_offset = offsetof(t_tarn_program_hdr, p_action_table_offset);
static constexpr size_t hdr_table_map = offsetof(t_tarn_program_hdr, p_ecid_table_map);
static constexpr size_t hdr_fields = offsetof(t_tarn_program_hdr, p_pe_map_size);
static constexpr size_t hdr_field_map = offsetof(t_tarn_program_hdr, p_prot_ecid_map);
static constexpr size_t hdr_field_types = offsetof(t_tarn_program_hdr, p_id_to_field_type);
static constexpr size_t dir_count = offsetof(t_table_dir_entry, t_num_table_entries);
static constexpr size_t dir_size = offsetof(t_table_dir_entry, t_table_entry_size);
static constexpr size_t entry_low = offsetof(t_tarn_table_entry, low);
static constexpr size_t entry_high = offsetof(t_tarn_table_entry, high);
static constexpr size_t entry_value = offsetof(t_tarn_table_entry, value);
static constexpr size_t entry_left = offsetof(t_tarn_table_entry, left);
static constexpr size_t entry_right = offsetof(t_tarn_table_entry, right);
static constexpr uint32_t action_table = 3;

struct t_lie {
    const char *name;
    void (*tell)(t_bytes *p);
    const char *want;  // part of the error
};

static void poke_entry(t_bytes *p, uint32_t table, uint32_t entry, size_t member, uint32_t word)
{
    word_poke(p, entry_place(*p, table, entry) + member, word);
}

static void poke_ins(t_bytes *p, uint32_t number, tarn_instruction word)
{
    word_poke(p, ins_place(*p, number), word);
}

static const t_lie header_lies[] = {
    {"no bytes at all", [](t_bytes *p) { p->clear(); }, "header: the program has 0 bytes"},
    {"part of a header", [](t_bytes *p) { p->resize(471); }, "header: the program has 471 bytes"},
    {"an unknown version", [](t_bytes *p) { (*p)[0] = std::byte{1}; }, "header: format version 1"},
    {"a length of 0", [](t_bytes *p) { word_poke(p, hdr_length, 0); }, "header: a length of 0"},
    {"a huge length", [](t_bytes *p) { word_poke(p, hdr_length, 0xffffffff); },
     "header: a length of 4294967295"},
    {"bytes behind the length", [](t_bytes *p) { p->resize(p->size() + 8); }, "header: a length of"},
    {"a length that the records do not need",
     [](t_bytes *p) {
         p->resize(p->size() + 64);
         word_poke(p, hdr_length, static_cast<uint32_t>(p->size()));
     },
     "but the action records end at"},
    {"no tables", [](t_bytes *p) { word_poke(p, hdr_dir_len, 0); },
     "header: a directory has 1 to 32 tables, not 0"},
    {"33 tables", [](t_bytes *p) { word_poke(p, hdr_dir_len, 33); },
     "header: a directory has 1 to 32 tables, not 33"},
    {"a directory behind the end",
     [](t_bytes *p) {
         p->resize(500);
         word_poke(p, hdr_length, 500);
     },
     "header: a directory of 4 tables"},
    {"no instructions", [](t_bytes *p) { word_poke(p, hdr_num_instructions, 0); }, "header: 0 instructions"},
    {"more instructions than bytes", [](t_bytes *p) { word_poke(p, hdr_num_instructions, 0x40000000); },
     "header: 1073741824 instructions"},
    {"instructions over the first table", [](t_bytes *p) { word_poke(p, hdr_num_instructions, 7); },
     "table 0: offset"},
    {"an action table elsewhere", [](t_bytes *p) { word_poke(p, hdr_action_offset, 118); },
     "table 3: the header has the action records at 472"},
    {"a table map that wraps to the right place",
     [](t_bytes *p) { word_poke(p, hdr_table_map + 4, word_peek(*p, hdr_table_map + 4) + 0x40000000); },
     "table 0: the table map has stage 1 at"},
    {"33 fields", [](t_bytes *p) { word_poke(p, hdr_fields, 33); }, "header: a field map has at most 32"},
    {"an unused field item", [](t_bytes *p) { word_poke(p, hdr_fields, 3); },
     "field map, entry 2: there is no field type 0"},
    {"field type 19", [](t_bytes *p) { (*p)[hdr_field_map] = std::byte{19}; },
     "field map, entry 0: there is no field type 19"},
    {"a field of a stage without a table", [](t_bytes *p) { (*p)[hdr_field_map + 1] = std::byte{4}; },
     "field map, entry 0: stage 4 has no table"},
    {"a field of stage 200", [](t_bytes *p) { (*p)[hdr_field_map + 3] = std::byte{200}; },
     "field map, entry 1: stage 200 has no table"},
    {"two fields of one stage", [](t_bytes *p) { (*p)[hdr_field_map + 3] = std::byte{1}; },
     "field map, entry 1: stage 1 has a field already"},
    {"two opinions about a stage's field", [](t_bytes *p) { word_poke(p, hdr_field_types + 8, 9); },
     "field map, entry 1: the header has field type 9 for stage 2"},
};

static const t_lie table_lies[] = {
    {"a table in the header", [](t_bytes *p) { word_poke(p, dir_place(0), 0); }, "table 0: offset 0 lies in"},
    {"a table over another", [](t_bytes *p) { word_poke(p, dir_place(1), word_peek(*p, dir_place(0))); },
     "table 1: offset"},
    {"a table at an odd place",
     [](t_bytes *p) { word_poke(p, dir_place(0), word_peek(*p, dir_place(0)) + 2); },
     "is not a multiple of 4"},
    {"a table behind the end", [](t_bytes *p) { word_poke(p, dir_place(2), 0xfffffffc); },
     "table 2: offset 4294967292 lies behind"},
    {"a table without entries", [](t_bytes *p) { word_poke(p, dir_place(1) + dir_count, 0); },
     "table 1: 0 entries"},
    {"entries behind the end", [](t_bytes *p) { word_poke(p, dir_place(2) + dir_count, 0x33333334); },
     "table 2: 858993460 entries"},
    {"entries over the next table", [](t_bytes *p) { word_poke(p, dir_place(0) + dir_count, 4); },
     "table 0, entry"},
    {"entries of 24 bytes", [](t_bytes *p) { word_poke(p, dir_place(0) + dir_size, 24); },
     "table 0: entries of 24 bytes"},
    {"an action table among the others", [](t_bytes *p) { word_poke(p, table_place(*p, 1), 2); },
     "table 1: type 2"},
    {"stage 0", [](t_bytes *p) { word_poke(p, table_place(*p, 1), 0x001); }, "table 1: there is no stage 0"},
    {"stage 32", [](t_bytes *p) { word_poke(p, table_place(*p, 1), 0x2001); },
     "table 1: there is no stage 32"},
    {"one stage twice", [](t_bytes *p) { word_poke(p, table_place(*p, 1), 0x101); },
     "table 1: stage 1 has a table already"},
    {"a link between entries", [](t_bytes *p) { poke_entry(p, 0, 0, entry_right, 6); },
     "table 0, entry 0: link 6 names no entry"},
    {"a link behind the table", [](t_bytes *p) { poke_entry(p, 0, 1, entry_left, 15); },
     "table 0, entry 1: link 15 names no entry"},
    {"a huge link", [](t_bytes *p) { poke_entry(p, 0, 2, entry_right, 0xffffffff); },
     "table 0, entry 2: link 4294967295 names no entry"},
    {"an entry linked to itself", [](t_bytes *p) { poke_entry(p, 0, 1, entry_right, 5); },
     "table 0, entry 1: two links lead to this entry"},
    {"a circle to the left", [](t_bytes *p) { poke_entry(p, 0, 2, entry_left, 5); },
     "table 0, entry 1: two links"},
    {"an entry without a link", [](t_bytes *p) { poke_entry(p, 0, 0, entry_left, 0); },
     "table 0, entry 2: no link leads to this entry"},
    {"children exchanged",
     [](t_bytes *p) {
         poke_entry(p, 0, 0, entry_left, 5);
         poke_entry(p, 0, 0, entry_right, 10);
     },
     "table 0, entry 0: the interval [6, 7) is out of order with that of entry 2"},
    {"an overlap", [](t_bytes *p) { poke_entry(p, 0, 2, entry_high, 7); },
     "table 0, entry 2: the interval [0, 7) is out of order with that of entry 0"},
    {"an empty interval", [](t_bytes *p) { poke_entry(p, 0, 0, entry_low, 7); },
     "table 0, entry 0: the interval [7, 7) is empty"},
    {"a reversed interval", [](t_bytes *p) { poke_entry(p, 1, 1, entry_low, 1000); },
     "table 1, entry 1: the interval [1000, 444) is empty"},
    {"a key twice in a dense table",
     [](t_bytes *p) {
         poke_entry(p, 2, 0, entry_low, 1);
         poke_entry(p, 2, 0, entry_high, 2);
     },
     "table 2, entry 2: the interval [1, 2) is out of order with that of entry 0"},
    {"a class that means none", [](t_bytes *p) { poke_entry(p, 2, 0, entry_value, 0xffffffff); },
     "table 2, entry 0: 4294967295 is no class"},
    {"a class without a record", [](t_bytes *p) { poke_entry(p, 2, 3, entry_value, 3); },
     "instruction 5: the class can be 3, but the action table has 3 records"},
};

static const t_lie action_lies[] = {
    {"a lookup table at the end", [](t_bytes *p) { word_poke(p, table_place(*p, action_table), 1); },
     "table 3: the last table is not an action table"},
    {"no records", [](t_bytes *p) { word_poke(p, dir_place(action_table) + dir_count, 0); },
     "table 3: 0 records"},
    {"records behind the end",
     [](t_bytes *p) { word_poke(p, dir_place(action_table) + dir_count, 0x10000000); },
     "table 3: 268435456 records"},
    {"records of 0 bytes", [](t_bytes *p) { word_poke(p, dir_place(action_table) + dir_size, 0); },
     "table 3: records of 0 bytes"},
    {"records of half words", [](t_bytes *p) { word_poke(p, dir_place(action_table) + dir_size, 14); },
     "table 3: records of 14 bytes"},
    {"a record of another length", [](t_bytes *p) { word_poke(p, record_place(*p, 1) + 4, 0); },
     "table 3, entry 1: the record has 0 bytes, not 16"},
};

static const t_lie instruction_lies[] = {
    {"operation 0", [](t_bytes *p) { poke_ins(p, 2, 0); }, "instruction 2: operation 0 does not exist"},
    {"operation 5", [](t_bytes *p) { poke_ins(p, 5, 5u << 29); },
     "instruction 5: operation 5 does not exist"},
    {"source type 0", [](t_bytes *p) { poke_ins(p, 4, ins_lookup(2, 3, 3) & ~(3u << 27)); },
     "instruction 4: source type 0 does not exist"},
    {"source type 3", [](t_bytes *p) { poke_ins(p, 4, ins_lookup(2, 3, 3) | 3u << 27); },
     "instruction 4: source type 3 does not exist"},
    {"a packet field for or", [](t_bytes *p) { poke_ins(p, 3, ins_or(1, 2) ^ 3u << 27); },
     "instruction 3: the source type is 1, but it must be a register"},
    {"a stage without a field", [](t_bytes *p) { poke_ins(p, 0, ins_lookup_field(3, 1, 1)); },
     "instruction 0: no packet field belongs to stage 3"},
    {"a stage without a table", [](t_bytes *p) { poke_ins(p, 1, ins_lookup_field(2, 2, 31)); },
     "instruction 1: stage 31 has no table"},
    {"an early end", [](t_bytes *p) { poke_ins(p, 3, ins_terminate(2)); },
     "instruction 3: the program terminates before its last instruction"},
    {"no end", [](t_bytes *p) { poke_ins(p, 5, ins_or(1, 2)); },
     "instruction 5: the last instruction does not terminate"},
    {"an end with another destination", [](t_bytes *p) { poke_ins(p, 5, ins_terminate(3) ^ 31u << 17); },
     "instruction 5: the destination of the terminator is 0"},
    {"a result that can grow", [](t_bytes *p) { poke_ins(p, 5, ins_terminate(2)); },
     "instruction 5: the class can be 3, but"},
};

TEST(WalkerHostileShortTest, EveryLieIsRefusedWithItsPlace)
{
    t_bytes truth = small_program();
    ASSERT_NE(fp_walker_open(truth, nullptr), nullptr);
    for (std::span<const t_lie> lies :
         {std::span<const t_lie>(header_lies), std::span<const t_lie>(table_lies),
          std::span<const t_lie>(action_lies), std::span<const t_lie>(instruction_lies)}) {
        for (const t_lie &lie : lies) {
            t_bytes program = truth;
            lie.tell(&program);
            program.shrink_to_fit();
            std::string error;
            EXPECT_EQ(fp_walker_open(program, &error), nullptr) << lie.name;
            EXPECT_NE(error.find(lie.want), std::string::npos) << lie.name << ": " << error;
        }
    }
}

TEST(WalkerHostileShortTest, AProgramCutAnywhereIsRefused)
{
    t_bytes truth = small_program();
    for (size_t size = 0; size < truth.size(); size++) {
        t_bytes program(truth.begin(), truth.begin() + static_cast<ptrdiff_t>(size));
        std::string error;
        EXPECT_EQ(fp_walker_open(program, &error), nullptr) << size;
        if (size < sizeof(t_tarn_program_hdr))
            continue;
        word_poke(&program, hdr_length, static_cast<uint32_t>(size));
        EXPECT_EQ(fp_walker_open(program, &error), nullptr) << size << " with a length to match";
    }
}

// Opens a damaged program; if that goes well, classifying agrees with the plain executor.
static bool open_and_compare(const t_bytes &program)
{
    fp_walker_ptr walker = fp_walker_open(program, nullptr);
    if (walker == nullptr)
        return false;
    for (uint32_t protocol : {0u, 6u, 7u, 0xfffffffeu}) {
        for (uint32_t port : {0u, 80u, 443u, 444u}) {
            t_fp_header header = fp_header_blank();
            header.values[tarn_ip_protocol] = protocol;
            header.values[tarn_ip_dst_port] = port;
            t_fp_verdict got = fp_walker_classify(walker.get(), header);
            t_fp_verdict want = plain_execute(program, header);
            if (memcmp(&got, &want, sizeof got) != 0)
                return (ADD_FAILURE() << "protocol " << protocol << ", port " << port), true;
        }
    }
    return true;
}

TEST(WalkerHostileShortTest, ADamagedByteIsRefusedOrHarmless)
{
    t_bytes truth = small_program();
    size_t opened = 0;
    for (size_t place = 0; place < truth.size(); place++) {
        for (uint32_t mask : {0x01, 0x02, 0x04, 0x08, 0x10, 0x20, 0x40, 0x80, 0xff}) {
            SCOPED_TRACE(testing::Message() << "byte " << place << ", mask " << mask);
            t_bytes program = truth;
            program[place] ^= std::byte(mask);
            opened += open_and_compare(program);
        }
    }
    EXPECT_GT(opened, 0u);
}
