#include "tests/support/program_builder.h"

#include <algorithm>
#include <cstring>
#include <numeric>

// Lays out the tree over ascending[begin, end) and returns the link to its root.
struct t_layout {
    std::vector<t_tarn_table_entry> *p_entries;
    std::span<const t_tarn_table_entry> ascending;
    std::span<const uint32_t> places;  // of the entries in the order in which they are laid out
    std::mt19937 *p_random;
    size_t used;
};

static uint32_t lay_out(t_layout *p_layout, size_t begin, size_t end)
{
    if (begin == end)
        return 0;
    size_t root = begin + (p_layout->p_random ? (*p_layout->p_random)() % (end - begin) : (end - begin) / 2);
    uint32_t place = p_layout->places[p_layout->used++];
    t_tarn_table_entry entry = p_layout->ascending[root];
    entry.right = lay_out(p_layout, root + 1, end);
    entry.left = lay_out(p_layout, begin, root);
    (*p_layout->p_entries)[place] = entry;
    return place * TARN_ENTRY_WORDS;
}

t_built_table built_tree(uint32_t ec_id, std::vector<t_tarn_table_entry> ascending, std::mt19937 *p_random)
{
    std::vector<uint32_t> places(ascending.size());
    std::iota(places.begin(), places.end(), 0);
    if (p_random != nullptr && places.size() > 1)
        std::shuffle(places.begin() + 1, places.end(), *p_random);
    t_built_table table = {ec_id, std::vector<t_tarn_table_entry>(ascending.size())};
    t_layout layout = {&table.entries, ascending, places, p_random, 0};
    lay_out(&layout, 0, ascending.size());
    return table;
}

std::vector<t_tarn_table_entry> dense_entries(std::span<const uint32_t> classes)
{
    std::vector<t_tarn_table_entry> entries;
    for (uint32_t i = 0; i < classes.size(); i++)
        entries.push_back({i, i + 1, classes[i], 0, 0});
    return entries;
}

static tarn_instruction ins_make(uint32_t opcode, uint32_t src_type, uint32_t src, uint32_t dst)
{
    tarn_instruction word = 0;
    tarn_set_opcode(&word, opcode);
    tarn_set_src_type(&word, src_type);
    tarn_set_src_index(&word, src);
    tarn_set_dst_index(&word, dst);
    return word;
}

tarn_instruction ins_lookup_field(uint32_t ec_id, uint32_t dst, uint32_t table_id)
{
    tarn_instruction word = ins_make(tarn_op_lookup, tarn_header, ec_id, dst);
    tarn_set_table_id(&word, table_id);
    return word;
}

tarn_instruction ins_lookup(uint32_t src, uint32_t dst, uint32_t table_id)
{
    tarn_instruction word = ins_make(tarn_op_lookup, tarn_intermediate, src, dst);
    tarn_set_table_id(&word, table_id);
    return word;
}

tarn_instruction ins_mul(uint32_t src, uint32_t dst, uint32_t multiplier)
{
    tarn_instruction word = ins_make(tarn_op_mul, tarn_intermediate, src, dst);
    tarn_set_mul(&word, multiplier);
    return word;
}

tarn_instruction ins_or(uint32_t src, uint32_t dst)
{
    return ins_make(tarn_op_or, tarn_intermediate, src, dst);
}

tarn_instruction ins_terminate(uint32_t src)
{
    return ins_make(tarn_op_terminate, tarn_intermediate, src, TARN_MAX_REGISTERS - 1);
}

static void append(std::vector<std::byte> *p_bytes, const void *p_data, size_t size)
{
    const std::byte *p_begin = static_cast<const std::byte *>(p_data);
    p_bytes->insert(p_bytes->end(), p_begin, p_begin + size);
}

static void append_word(std::vector<std::byte> *p_bytes, uint32_t word)
{
    append(p_bytes, &word, sizeof word);
}

// Notes in the directory that the next table begins at the end of the bytes.
static void dir_fill(std::vector<std::byte> *p_bytes, uint32_t number, size_t count, uint32_t entry_size)
{
    t_table_dir_entry item = {};
    item.t_table_offset = static_cast<uint32_t>(p_bytes->size());
    item.t_num_table_entries = static_cast<uint32_t>(count);
    item.t_table_entry_size = entry_size;
    memcpy(&(*p_bytes)[dir_place(number)], &item, sizeof item);
}

static void append_table(std::vector<std::byte> *p_bytes, t_tarn_program_hdr *p_hdr, uint32_t number,
                         const t_built_table &table)
{
    dir_fill(p_bytes, number, table.entries.size(), TARN_ENTRY_SIZE);
    append_word(p_bytes, tarn_interval_ecid | table.ec_id << 8);
    p_hdr->p_ecid_table_map[table.ec_id % TARN_MAX_ECS] = static_cast<uint32_t>(p_bytes->size() / 4);
    append(p_bytes, table.entries.data(), table.entries.size() * sizeof(t_tarn_table_entry));
}

static void append_records(std::vector<std::byte> *p_bytes, t_tarn_program_hdr *p_hdr,
                           const t_built_program &program)
{
    dir_fill(p_bytes, static_cast<uint32_t>(program.tables.size()), program.num_records, program.record_size);
    append_word(p_bytes, tarn_index_action);
    p_hdr->p_length = static_cast<uint32_t>(p_bytes->size()) + 4 + program.num_records * program.record_size;
    if (p_bytes->size() % 8 != 0)
        append_word(p_bytes, 0);
    p_hdr->p_action_table_offset = static_cast<uint32_t>(p_bytes->size() / 4);
    for (uint32_t i = 0; i < program.num_records; i++) {
        size_t end = p_bytes->size() + program.record_size;
        append_word(p_bytes, 0);
        append_word(p_bytes, program.record_size);
        append_word(p_bytes, i);
        p_bytes->resize(end);
    }
}

static t_tarn_program_hdr header_make(const t_built_program &program)
{
    t_tarn_program_hdr hdr = {};
    program.name.copy(hdr.p_name, sizeof hdr.p_name);
    hdr.p_table_dir_len = static_cast<uint32_t>(program.tables.size()) + 1;
    hdr.p_num_instructions = static_cast<uint32_t>(program.instructions.size());
    hdr.p_pe_map_size = static_cast<uint32_t>(program.fields.size());
    for (size_t i = 0; i < program.fields.size(); i++) {
        hdr.p_prot_ecid_map[i] = program.fields[i];
        hdr.p_id_to_field_type[program.fields[i].p_ec_id] = program.fields[i].p_prot_field_type;
    }
    return hdr;
}

std::vector<std::byte> program_build(const t_built_program &program)
{
    t_tarn_program_hdr hdr = header_make(program);
    std::vector<std::byte> bytes(sizeof hdr + hdr.p_table_dir_len * sizeof(t_table_dir_entry));
    append(&bytes, program.instructions.data(), program.instructions.size() * sizeof(tarn_instruction));
    for (uint32_t i = 0; i < program.tables.size(); i++)
        append_table(&bytes, &hdr, i, program.tables[i]);
    append_records(&bytes, &hdr, program);
    memcpy(bytes.data(), &hdr, sizeof hdr);
    return bytes;
}

size_t dir_place(uint32_t table)
{
    return sizeof(t_tarn_program_hdr) + table * sizeof(t_table_dir_entry);
}

size_t ins_place(std::span<const std::byte> program, uint32_t instruction)
{
    uint32_t tables = word_peek(program, offsetof(t_tarn_program_hdr, p_table_dir_len));
    return dir_place(tables) + instruction * sizeof(tarn_instruction);
}

size_t table_place(std::span<const std::byte> program, uint32_t table)
{
    return word_peek(program, dir_place(table) + offsetof(t_table_dir_entry, t_table_offset));
}

size_t entry_place(std::span<const std::byte> program, uint32_t table, uint32_t entry)
{
    return table_place(program, table) + TARN_TABLE_HEADER_SIZE + entry * TARN_ENTRY_SIZE;
}

size_t record_place(std::span<const std::byte> program, uint32_t record)
{
    uint32_t last = word_peek(program, offsetof(t_tarn_program_hdr, p_table_dir_len)) - 1;
    uint32_t size = word_peek(program, dir_place(last) + offsetof(t_table_dir_entry, t_table_entry_size));
    return word_peek(program, offsetof(t_tarn_program_hdr, p_action_table_offset)) * sizeof(uint32_t) +
           record * size;
}

uint32_t word_peek(std::span<const std::byte> program, size_t place)
{
    uint32_t word;
    memcpy(&word, &program[place], sizeof word);
    return word;
}

void word_poke(std::vector<std::byte> *p_program, size_t place, uint32_t word)
{
    memcpy(&(*p_program)[place], &word, sizeof word);
}
