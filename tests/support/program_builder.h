// Programs made by hand, without the compiler.
//
// A test says which tables, instructions and records it wants and gets a laid-out program; then it may
// overwrite any word to make the program lie. Nothing is checked or corrected on the way.
#pragma once

#include "tarnd/compiler/tarn_program_format.h"

#include <cstddef>
#include <cstdint>
#include <random>
#include <span>
#include <string>
#include <vector>

struct t_built_table {
    uint32_t ec_id;
    std::vector<t_tarn_table_entry> entries;  // as they will lie in memory, links included
};

struct t_built_program {
    std::string name = "handmade";
    std::vector<prot_ecid_entry> fields;
    std::vector<t_built_table> tables;
    std::vector<tarn_instruction> instructions;
    uint32_t num_records = 1;
    uint32_t record_size = 16;  // bytes; the payload's first word is the record's number
};

// A table whose entries, given in ascending order with any links, form a search tree: a balanced one in
// preorder, or with a generator one of random shape that lies in memory in random order behind its root.
t_built_table built_tree(uint32_t ec_id, std::vector<t_tarn_table_entry> ascending,
                         std::mt19937 *p_random = nullptr);

// The ascending entries [0, 1), [1, 2) and so on with the given classes.
std::vector<t_tarn_table_entry> dense_entries(std::span<const uint32_t> classes);

tarn_instruction ins_lookup_field(uint32_t ec_id, uint32_t dst, uint32_t table_id);
tarn_instruction ins_lookup(uint32_t src, uint32_t dst, uint32_t table_id);
tarn_instruction ins_mul(uint32_t src, uint32_t dst, uint32_t multiplier);
tarn_instruction ins_or(uint32_t src, uint32_t dst);
tarn_instruction ins_terminate(uint32_t src);

// The program as the compiler would lay it out; p_length included, the block ends with the last record.
std::vector<std::byte> program_build(const t_built_program &program);

// Places in a laid-out program, in bytes from its start.
size_t dir_place(uint32_t table);
size_t ins_place(std::span<const std::byte> program, uint32_t instruction);
size_t table_place(std::span<const std::byte> program, uint32_t table);
size_t entry_place(std::span<const std::byte> program, uint32_t table, uint32_t entry);
size_t record_place(std::span<const std::byte> program, uint32_t record);

uint32_t word_peek(std::span<const std::byte> program, size_t place);
void word_poke(std::vector<std::byte> *p_program, size_t place, uint32_t word);
