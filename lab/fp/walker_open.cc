// Opening a program: header, directory, maps and action table.
#include "lab/fp/walker_private.h"

#include <algorithm>
#include <cstdarg>
#include <cstdio>
#include <cstring>

bool fp_error_set(t_fp_error *p_error, const char *format, ...)
{
    if (!p_error->text.empty())
        return false;
    char text[256];
    va_list args;
    va_start(args, format);
    vsnprintf(text, sizeof text, format, args);
    va_end(args);
    p_error->text = text;
    return false;
}

// A program on its way in.
struct t_opening {
    std::span<const std::byte> program;
    t_tarn_program_hdr hdr;
    std::vector<t_table_dir_entry> dir;
    uint64_t cursor;  // first byte that no part checked so far takes
    t_fp_walker *p_walker;
    t_fp_error error;
};

// The block may end up to this many bytes before p_length (see t_tarn_program_hdr).
static constexpr uint64_t length_slack = 4;

static uint32_t word_at(const t_opening &opening, uint64_t offset)
{
    uint32_t word;
    memcpy(&word, &opening.program[offset], sizeof word);
    return word;
}

static bool header_open(t_opening *p_opening)
{
    uint64_t size = p_opening->program.size();
    t_tarn_program_hdr *p_hdr = &p_opening->hdr;
    if (size < sizeof *p_hdr)
        return fp_error_set(&p_opening->error,
                            "header: the program has %llu bytes, its header alone takes %zu",
                            static_cast<unsigned long long>(size), sizeof *p_hdr);
    memcpy(p_hdr, p_opening->program.data(), sizeof *p_hdr);
    if (p_hdr->p_version != 0)
        return fp_error_set(&p_opening->error, "header: format version %u is not known", p_hdr->p_version);
    if (size > p_hdr->p_length || size + length_slack < p_hdr->p_length)
        return fp_error_set(&p_opening->error,
                            "header: a length of %u does not go with a program of %llu bytes",
                            p_hdr->p_length, static_cast<unsigned long long>(size));
    p_opening->cursor = sizeof *p_hdr;
    p_opening->p_walker->name.assign(p_hdr->p_name, strnlen(p_hdr->p_name, sizeof p_hdr->p_name));
    return true;
}

// Takes count items of item_size bytes at the cursor. False when they do not fit.
static bool take(t_opening *p_opening, uint64_t count, uint64_t item_size)
{
    if (count > (p_opening->program.size() - p_opening->cursor) / item_size)
        return false;
    p_opening->cursor += count * item_size;
    return true;
}

static bool directory_open(t_opening *p_opening)
{
    uint32_t count = p_opening->hdr.p_table_dir_len;
    if (count == 0 || count > TARN_MAX_ECS)
        return fp_error_set(&p_opening->error, "header: a directory has 1 to %u tables, not %u", TARN_MAX_ECS,
                            count);
    uint64_t begin = p_opening->cursor;
    if (!take(p_opening, count, sizeof(t_table_dir_entry)))
        return fp_error_set(&p_opening->error,
                            "header: a directory of %u tables does not fit into the program", count);
    p_opening->dir.resize(count);
    memcpy(p_opening->dir.data(), &p_opening->program[begin], count * sizeof(t_table_dir_entry));
    return true;
}

static bool instructions_open(t_opening *p_opening)
{
    uint32_t count = p_opening->hdr.p_num_instructions;
    uint64_t begin = p_opening->cursor;
    if (count == 0 || !take(p_opening, count, sizeof(tarn_instruction)))
        return fp_error_set(&p_opening->error, "header: %u instructions do not make a program of %zu bytes",
                            count, p_opening->program.size());
    p_opening->p_walker->instructions.resize(count);
    memcpy(p_opening->p_walker->instructions.data(), &p_opening->program[begin],
           count * sizeof(tarn_instruction));
    return true;
}

// Checks a table's place and takes its header word. Tables follow each other in the order of the directory.
static bool table_header_open(t_opening *p_opening, uint32_t number, uint32_t *p_word)
{
    uint32_t offset = p_opening->dir[number].t_table_offset;
    if (offset % sizeof(uint32_t) != 0)
        return fp_error_set(&p_opening->error, "table %u: offset %u is not a multiple of 4", number, offset);
    if (offset < p_opening->cursor)
        return fp_error_set(&p_opening->error, "table %u: offset %u lies in what comes before the table",
                            number, offset);
    if (offset > p_opening->program.size() - TARN_TABLE_HEADER_SIZE)
        return fp_error_set(&p_opening->error, "table %u: offset %u lies behind the program's end", number,
                            offset);
    *p_word = word_at(*p_opening, offset);
    p_opening->cursor = uint64_t{offset} + TARN_TABLE_HEADER_SIZE;
    return true;
}

static bool lookup_stage_check(t_opening *p_opening, uint32_t number, uint32_t word)
{
    t_fp_error *p_error = &p_opening->error;
    if (tarn_get_table_type(word) != tarn_interval_ecid)
        return fp_error_set(p_error, "table %u: type %u does not belong here", number,
                            tarn_get_table_type(word));
    uint32_t ec_id = tarn_get_table_ecid(word);
    if (ec_id == 0 || ec_id >= TARN_MAX_ECS)
        return fp_error_set(p_error, "table %u: there is no stage %u", number, ec_id);
    if (p_opening->p_walker->tables[ec_id].kind != FP_TABLE_NONE)
        return fp_error_set(p_error, "table %u: stage %u has a table already", number, ec_id);
    uint64_t mapped = uint64_t{p_opening->hdr.p_ecid_table_map[ec_id]} * sizeof(uint32_t);
    if (mapped != p_opening->cursor)
        return fp_error_set(p_error, "table %u: the table map has stage %u at %llu", number, ec_id,
                            static_cast<unsigned long long>(mapped));
    return true;
}

static bool lookup_table_open(t_opening *p_opening, uint32_t number)
{
    const t_table_dir_entry &item = p_opening->dir[number];
    uint32_t word = 0;
    if (!table_header_open(p_opening, number, &word) || !lookup_stage_check(p_opening, number, word))
        return false;
    uint32_t count = item.t_num_table_entries;
    if (item.t_table_entry_size != TARN_ENTRY_SIZE)
        return fp_error_set(&p_opening->error, "table %u: entries of %u bytes", number,
                            item.t_table_entry_size);
    uint64_t begin = p_opening->cursor;
    if (count == 0 || !take(p_opening, count, TARN_ENTRY_SIZE))
        return fp_error_set(&p_opening->error, "table %u: %u entries do not lie inside the program", number,
                            count);
    t_fp_raw_table raw = {p_opening->program.subspan(begin, p_opening->cursor - begin), count, number};
    return fp_table_open(raw, &p_opening->p_walker->tables[tarn_get_table_ecid(word)], &p_opening->error);
}

// The records begin behind the table's header word, on a multiple of 8.
static bool action_base_check(t_opening *p_opening, uint32_t number)
{
    p_opening->cursor = (p_opening->cursor + 7) / 8 * 8;
    uint64_t base = uint64_t{p_opening->hdr.p_action_table_offset} * sizeof(uint32_t);
    if (base != p_opening->cursor || base > p_opening->program.size())
        return fp_error_set(&p_opening->error, "table %u: the header has the action records at %llu", number,
                            static_cast<unsigned long long>(base));
    p_opening->p_walker->records_offset = static_cast<uint32_t>(base);
    return true;
}

static bool action_records_check(t_opening *p_opening, uint32_t number)
{
    const t_table_dir_entry &item = p_opening->dir[number];
    uint32_t count = item.t_num_table_entries;
    uint32_t size = item.t_table_entry_size;
    if (size < sizeof(t_tarn_action) || size % sizeof(uint32_t) != 0)
        return fp_error_set(&p_opening->error, "table %u: records of %u bytes", number, size);
    uint64_t begin = p_opening->cursor;
    if (count == 0 || !take(p_opening, count, size))
        return fp_error_set(&p_opening->error,
                            "table %u: %u records of %u bytes do not lie inside the program", number, count,
                            size);
    for (uint32_t i = 0; i < count; i++) {
        uint32_t a_len = word_at(*p_opening, begin + uint64_t{i} * size + offsetof(t_tarn_action, a_len));
        if (a_len != size)
            return fp_error_set(&p_opening->error, "table %u, entry %u: the record has %u bytes, not %u",
                                number, i, a_len, size);
    }
    p_opening->p_walker->num_records = count;
    p_opening->p_walker->record_size = size;
    return true;
}

static bool action_table_open(t_opening *p_opening)
{
    uint32_t number = p_opening->hdr.p_table_dir_len - 1;
    uint32_t word = 0;
    if (!table_header_open(p_opening, number, &word))
        return false;
    if (word != tarn_index_action)
        return fp_error_set(&p_opening->error, "table %u: the last table is not an action table", number);
    if (!action_base_check(p_opening, number) || !action_records_check(p_opening, number))
        return false;
    if (p_opening->hdr.p_length > p_opening->cursor + length_slack)
        return fp_error_set(&p_opening->error, "header: the length is %u, but the action records end at %llu",
                            p_opening->hdr.p_length, static_cast<unsigned long long>(p_opening->cursor));
    return true;
}

static bool tables_open(t_opening *p_opening)
{
    for (uint32_t i = 0; i + 1 < p_opening->hdr.p_table_dir_len; i++) {
        if (!lookup_table_open(p_opening, i))
            return false;
    }
    return action_table_open(p_opening);
}

static bool field_open(t_opening *p_opening, uint32_t number)
{
    t_fp_walker *p_walker = p_opening->p_walker;
    uint8_t type = p_opening->hdr.p_prot_ecid_map[number].p_prot_field_type;
    uint8_t ec_id = p_opening->hdr.p_prot_ecid_map[number].p_ec_id;
    if (type <= tarn_ip_field_type_min || type >= tarn_ip_field_type_max)
        return fp_error_set(&p_opening->error, "field map, entry %u: there is no field type %u", number,
                            type);
    if (ec_id >= TARN_MAX_ECS || p_walker->tables[ec_id].kind == FP_TABLE_NONE)
        return fp_error_set(&p_opening->error, "field map, entry %u: stage %u has no table", number, ec_id);
    if (p_walker->field_types[ec_id] != 0)
        return fp_error_set(&p_opening->error, "field map, entry %u: stage %u has a field already", number,
                            ec_id);
    if (p_opening->hdr.p_id_to_field_type[ec_id] != type)
        return fp_error_set(&p_opening->error,
                            "field map, entry %u: the header has field type %u for stage %u", number,
                            p_opening->hdr.p_id_to_field_type[ec_id], ec_id);
    p_walker->field_types[ec_id] = type;
    return true;
}

static bool fields_open(t_opening *p_opening)
{
    uint32_t count = p_opening->hdr.p_pe_map_size;
    if (count > TARN_MAX_ECS)
        return fp_error_set(&p_opening->error, "header: a field map has at most %u entries, not %u",
                            TARN_MAX_ECS, count);
    for (uint32_t i = 0; i < count; i++) {
        if (!field_open(p_opening, i))
            return false;
    }
    return true;
}

static bool program_open(t_opening *p_opening)
{
    return header_open(p_opening) && directory_open(p_opening) && instructions_open(p_opening) &&
           tables_open(p_opening) && fields_open(p_opening) &&
           fp_walker_decode(p_opening->p_walker, &p_opening->error);
}

fp_walker_ptr fp_walker_open(std::span<const std::byte> program, std::string *p_error)
{
    fp_walker_ptr walker(new t_fp_walker());
    t_opening opening = {};
    opening.program = program;
    opening.p_walker = walker.get();
    if (program_open(&opening))
        return walker;
    if (p_error != nullptr)
        *p_error = opening.error.text;
    return nullptr;
}

void t_fp_walker_deleter::operator()(t_fp_walker *p_walker) const
{
    delete p_walker;
}

std::string fp_walker_name(const t_fp_walker *p_walker)
{
    return p_walker->name;
}

uint32_t fp_walker_num_records(const t_fp_walker *p_walker)
{
    return p_walker->num_records;
}

uint32_t fp_walker_record_size(const t_fp_walker *p_walker)
{
    return p_walker->record_size;
}

uint32_t fp_walker_record_offset(const t_fp_walker *p_walker, uint32_t index)
{
    return p_walker->records_offset + index * p_walker->record_size;
}

uint32_t fp_walker_field_type(const t_fp_walker *p_walker, uint32_t ec_id)
{
    return ec_id < TARN_MAX_ECS ? p_walker->field_types[ec_id] : 0;
}
