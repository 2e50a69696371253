#include "tests/support/program_content.h"

#include <algorithm>
#include <cstring>
#include <sstream>

using t_bytes = std::span<const std::byte>;

// Reads a record at a byte offset; false when it does not lie in the program.
template <typename T>
static bool read_at(t_bytes program, size_t offset, T *p_out)
{
    if (offset > program.size() || program.size() - offset < sizeof(T))
        return false;
    memcpy(p_out, program.data() + offset, sizeof(T));
    return true;
}

static std::string text_of(const char *what, size_t index)
{
    return std::string(what) + " " + std::to_string(index);
}

// Walks the tree in ascending order and fills the entries; visited counts make sure that each entry has one
// parent.
static std::string walk_tree(const std::vector<t_tarn_table_entry> &stored, t_content_table *p_table)
{
    std::vector<uint32_t> pending;
    uint32_t next = 0;
    bool descending = true;
    while (descending || !pending.empty()) {
        if (descending) {
            uint32_t left = stored[next].left;
            pending.push_back(next);
            if (left % TARN_ENTRY_WORDS != 0 || left / TARN_ENTRY_WORDS >= stored.size())
                return text_of("left link of entry", next);
            descending = left != 0;
            if (descending && left / TARN_ENTRY_WORDS <= next)
                return text_of("left child before its parent, entry", next);
            next = descending ? left / TARN_ENTRY_WORDS : next;
            continue;
        }
        uint32_t index = pending.back();
        pending.pop_back();
        t_tarn_table_entry entry = stored[index];
        if (index == 0)
            p_table->root_rank = static_cast<uint32_t>(p_table->entries.size());
        if (entry.low >= entry.high ||
            (!p_table->entries.empty() && entry.low < p_table->entries.back().high))
            return text_of("order at entry", index);
        p_table->entries.push_back({entry.low, entry.high, entry.value, 0, 0});
        if (entry.right % TARN_ENTRY_WORDS != 0 || entry.right / TARN_ENTRY_WORDS >= stored.size())
            return text_of("right link of entry", index);
        if (entry.right != 0 && entry.right / TARN_ENTRY_WORDS <= index)
            return text_of("right child before its parent, entry", index);
        descending = entry.right != 0;
        next = entry.right / TARN_ENTRY_WORDS;
    }
    return p_table->entries.size() == stored.size() ? "" : "entries that no link reaches";
}

// Reads the lookup table at *p_offset, where the one before it has ended.
static std::string parse_table(t_bytes program, const t_program_content &content, size_t *p_offset,
                               t_content_table *p_table)
{
    if (p_table->dir.t_table_offset != *p_offset || p_table->dir.t_table_entry_size != TARN_ENTRY_SIZE)
        return "directory entry";
    if (p_table->dir.reserved0 != 0 || p_table->dir.t_table_ptr != 0)
        return "directory padding";
    if (!read_at(program, *p_offset, &p_table->header_word))
        return "header word";
    *p_offset += TARN_TABLE_HEADER_SIZE;
    uint32_t ec_id = tarn_get_table_ecid(p_table->header_word);
    if (tarn_get_table_type(p_table->header_word) != tarn_interval_ecid || ec_id == 0 ||
        ec_id >= TARN_MAX_ECS)
        return "table type or stage";
    if (content.header.p_ecid_table_map[ec_id] * size_t{4} != *p_offset)
        return "table map";
    std::vector<t_tarn_table_entry> stored(p_table->dir.t_num_table_entries);
    for (t_tarn_table_entry &entry : stored) {
        if (!read_at(program, *p_offset, &entry))
            return "entries behind the end";
        *p_offset += sizeof(entry);
    }
    return stored.empty() ? "no entries" : walk_tree(stored, p_table);
}

static std::string parse_records(t_bytes program, size_t offset, t_program_content *p_content)
{
    if (p_content->action_dir.t_table_offset != offset || p_content->action_dir.t_table_ptr != 0)
        return "action directory entry";
    if (!read_at(program, offset, &p_content->action_word) || p_content->action_word != tarn_index_action)
        return "action header word";
    size_t end_of_word = offset + TARN_TABLE_HEADER_SIZE;
    offset = (end_of_word + 7) / 8 * 8;
    if (p_content->header.p_action_table_offset * size_t{4} != offset)
        return "p_action_table_offset";
    size_t size = p_content->action_dir.t_table_entry_size;
    for (uint32_t i = 0; i < p_content->action_dir.t_num_table_entries; i++, offset += size) {
        if (program.size() < offset || program.size() - offset < size)
            return text_of("record behind the end", i);
        p_content->records.emplace_back(program.begin() + static_cast<ptrdiff_t>(offset),
                                        program.begin() + static_cast<ptrdiff_t>(offset + size));
    }
    // The length counts 8 bytes for the table header, so an alignment step leaves nothing over.
    size_t gap = end_of_word % 8 == 0 ? 4 : 0;
    if (program.size() - offset != gap)
        return "bytes behind the last record: " + std::to_string(program.size() - offset);
    bool zero = std::all_of(program.begin() + static_cast<ptrdiff_t>(offset), program.end(),
                            [](std::byte b) { return b == std::byte{0}; });
    return zero ? "" : "bytes behind the last record are not zero";
}

std::string program_parse(t_bytes program, t_program_content *p_content)
{
    *p_content = {};
    t_tarn_program_hdr &header = p_content->header;
    if (!read_at(program, 0, &header) || header.p_length != program.size())
        return "header or p_length";
    if (header.p_table_dir_len < 2 || header.p_table_dir_len > TARN_MAX_ECS)
        return "p_table_dir_len";
    size_t offset = sizeof(header);
    p_content->tables.resize(header.p_table_dir_len - 1);
    for (t_content_table &table : p_content->tables) {
        read_at(program, offset, &table.dir);
        offset += sizeof(table.dir);
    }
    if (!read_at(program, offset, &p_content->action_dir))
        return "directory behind the end";
    offset += sizeof(p_content->action_dir);
    p_content->instructions.resize(std::min<size_t>(header.p_num_instructions, program.size()));
    for (tarn_instruction &word : p_content->instructions) {
        if (!read_at(program, offset, &word))
            return "instructions behind the end";
        offset += sizeof(word);
    }
    for (t_content_table &table : p_content->tables) {
        std::string wrong = parse_table(program, *p_content, &offset, &table);
        if (!wrong.empty())
            return text_of("table", static_cast<size_t>(&table - p_content->tables.data())) + ": " + wrong;
    }
    return parse_records(program, offset, p_content);
}

static bool same_table(const t_content_table &a, const t_content_table &b)
{
    return memcmp(&a.dir, &b.dir, sizeof(a.dir)) == 0 && a.header_word == b.header_word &&
           a.entries.size() == b.entries.size() &&
           memcmp(a.entries.data(), b.entries.data(), a.entries.size() * sizeof(t_tarn_table_entry)) == 0;
}

// The first header word that differs names itself by its offset.
static std::string header_difference(const t_tarn_program_hdr &got, const t_tarn_program_hdr &want)
{
    const auto *p_got = reinterpret_cast<const unsigned char *>(&got);
    const auto *p_want = reinterpret_cast<const unsigned char *>(&want);
    for (size_t i = 0; i < sizeof(got); i++)
        if (p_got[i] != p_want[i])
            return text_of("header byte", i);
    return "";
}

std::string program_difference(t_bytes got, t_bytes want)
{
    t_program_content a;
    t_program_content b;
    std::string wrong = program_parse(got, &a);
    if (!wrong.empty())
        return "got: " + wrong;
    wrong = program_parse(want, &b);
    if (!wrong.empty())
        return "want: " + wrong;
    wrong = header_difference(a.header, b.header);
    if (!wrong.empty())
        return wrong;
    if (a.instructions != b.instructions)
        return "instructions";
    for (size_t i = 0; i < a.tables.size(); i++)
        if (!same_table(a.tables[i], b.tables[i]))
            return text_of("table", i);
    if (memcmp(&a.action_dir, &b.action_dir, sizeof(a.action_dir)) != 0)
        return "directory entry of the action table";
    return a.records == b.records ? "" : "action records";
}

std::vector<std::byte> program_canonical(t_bytes program)
{
    std::vector<std::byte> bytes(program.begin(), program.end());
    t_program_content content;
    if (!program_parse(program, &content).empty())
        return {};
    for (t_content_table &table : content.tables) {
        size_t count = table.entries.size();
        for (size_t i = 0; i + 1 < count; i++)
            table.entries[i].right = static_cast<uint32_t>(TARN_ENTRY_WORDS * (i + 1));
        memcpy(bytes.data() + table.dir.t_table_offset + TARN_TABLE_HEADER_SIZE, table.entries.data(),
               count * sizeof(t_tarn_table_entry));
    }
    return bytes;
}

std::string instruction_text(tarn_instruction word)
{
    static const char *const names[] = {"?", "lookup", "or", "mul", "terminate"};
    char text[64];
    uint32_t opcode = tarn_get_opcode(word);
    snprintf(text, sizeof(text), "%s %s%u r%u", opcode < tarn_op_max ? names[opcode] : "?",
             tarn_get_src_type(word) == tarn_header ? "h" : "r", tarn_get_src_index(word),
             tarn_get_dst_index(word));
    std::string result = text;
    if (opcode == tarn_op_lookup)
        result += " t" + std::to_string(tarn_get_table_id(word));
    if (opcode == tarn_op_mul)
        result += " *" + std::to_string(tarn_get_mul(word));
    return result;
}

// What begins at which offset, so that the dump has a line for each piece.
struct t_piece {
    size_t offset;
    std::string comment;
};

static void add_header_pieces(std::vector<t_piece> *p_pieces)
{
    p_pieces->push_back({0, "header: version, length"});
    p_pieces->push_back({offsetof(t_tarn_program_hdr, p_name), "name"});
    p_pieces->push_back({offsetof(t_tarn_program_hdr, p_table_dir_len), "directory entries, instructions"});
    p_pieces->push_back({offsetof(t_tarn_program_hdr, p_action_table_offset), "first record, in words"});
    p_pieces->push_back({offsetof(t_tarn_program_hdr, p_ecid_table_map), "first entries by stage, in words"});
    p_pieces->push_back({offsetof(t_tarn_program_hdr, p_pe_map_size), "items of the (field type, ec) map"});
    p_pieces->push_back({offsetof(t_tarn_program_hdr, p_prot_ecid_map), "(field type, ec) map"});
    p_pieces->push_back({offsetof(t_tarn_program_hdr, p_id_to_field_type), "field types by stage"});
}

static void add_record_pieces(const t_program_content &content, std::vector<t_piece> *p_pieces)
{
    size_t offset = content.header.p_action_table_offset * size_t{4};
    for (size_t i = 0; i < content.records.size(); i++, offset += content.action_dir.t_table_entry_size) {
        p_pieces->push_back({offset, text_of("record of class", i) + ": flags, length"});
        for (size_t slot = 0; slot < MAX_ACTIONS_IN_RULE; slot++)
            p_pieces->push_back({offset + 8 + slot * sizeof(t_tarn_filter_action), text_of("  slot", slot)});
    }
    p_pieces->push_back({offset, "behind the last record"});
}

static std::vector<t_piece> program_pieces(const t_program_content &content)
{
    std::vector<t_piece> pieces;
    add_header_pieces(&pieces);
    size_t offset = sizeof(t_tarn_program_hdr);
    for (size_t i = 0; i < content.header.p_table_dir_len; i++, offset += sizeof(t_table_dir_entry))
        pieces.push_back({offset, text_of("directory entry", i) + ": offset, entries, entry size"});
    for (size_t i = 0; i < content.instructions.size(); i++, offset += 4)
        pieces.push_back({offset, instruction_text(content.instructions[i])});
    for (const t_content_table &table : content.tables) {
        pieces.push_back({offset, text_of("table of stage", tarn_get_table_ecid(table.header_word))});
        offset += TARN_TABLE_HEADER_SIZE;
        for (size_t i = 0; i < table.entries.size(); i++, offset += TARN_ENTRY_SIZE)
            pieces.push_back({offset, "  low, high, class, left, right"});
    }
    pieces.push_back({offset, "action table"});
    add_record_pieces(content, &pieces);
    return pieces;
}

static void print_words(std::ostringstream *p_out, t_bytes bytes)
{
    char text[32];
    for (size_t i = 0; i < bytes.size() / 4;) {
        uint32_t word;
        memcpy(&word, bytes.data() + 4 * i, 4);
        size_t run = 1;
        while (i + run < bytes.size() / 4 && memcmp(bytes.data() + 4 * (i + run), &word, 4) == 0)
            run++;
        snprintf(text, sizeof(text), run > 2 ? " %08x*%zu" : " %08x", word, run);
        *p_out << text;
        i += run > 2 ? run : 1;
    }
}

std::string program_to_hex(t_bytes program)
{
    t_program_content content;
    if (!program_parse(program, &content).empty())
        return "";
    std::vector<t_piece> pieces = program_pieces(content);
    pieces.push_back({program.size(), ""});
    std::ostringstream out;
    for (size_t i = 0; i + 1 < pieces.size(); i++) {
        size_t size = pieces[i + 1].offset - pieces[i].offset;
        if (size == 0)
            continue;
        char text[16];
        snprintf(text, sizeof(text), "%06zx:", pieces[i].offset);
        out << text;
        print_words(&out, program.subspan(pieces[i].offset, size));
        out << "  # " << pieces[i].comment << '\n';
    }
    return out.str();
}

std::vector<std::byte> program_from_hex(const std::string &text)
{
    std::vector<std::byte> bytes;
    std::istringstream lines(text);
    for (std::string line; std::getline(lines, line);) {
        std::istringstream words(line.substr(0, line.find('#')));
        std::string word;
        words >> word;  // the offset
        while (words >> word) {
            uint32_t value = static_cast<uint32_t>(std::stoul(word, nullptr, 16));
            size_t star = word.find('*');
            size_t run = star == std::string::npos ? 1 : std::stoul(word.substr(star + 1));
            std::byte raw[4];
            memcpy(raw, &value, 4);
            for (; run > 0; run--)
                bytes.insert(bytes.end(), raw, raw + 4);
        }
    }
    return bytes;
}
