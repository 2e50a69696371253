// What a program says, apart from the shapes of its search trees.
//
// Shapes are random by design, so two programs of one rule table are equal if everything else is: header,
// directory, instructions, the entries of each table whatever their links, the action records byte by byte,
// zero in every gap. Parsing follows the links as a reader would and checks them.
#pragma once

#include "tarnd/compiler/tarn_program_format.h"

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <vector>

struct t_content_table {
    t_table_dir_entry dir;
    uint32_t header_word;
    uint32_t root_rank;                       // position of entry 0 in ascending order
    std::vector<t_tarn_table_entry> entries;  // ascending, links cleared
};

struct t_program_content {
    t_tarn_program_hdr header;
    std::vector<tarn_instruction> instructions;
    std::vector<t_content_table> tables;  // lookup tables in the order of the directory
    t_table_dir_entry action_dir;
    uint32_t action_word;
    std::vector<std::vector<std::byte>> records;
};

// Takes a program apart. Returns an empty text, or what does not hold.
std::string program_parse(std::span<const std::byte> program, t_program_content *p_content);

// Compares the content of two programs. Returns an empty text, or the first difference.
std::string program_difference(std::span<const std::byte> got, std::span<const std::byte> want);

// The program with every tree in the one shape that sorted order names: entry 0 is the lowest and each
// entry's right child is the next one.
std::vector<std::byte> program_canonical(std::span<const std::byte> program);

// An instruction as "opcode source destination", sources being h (packet field) or r (register); then the
// table (t) of a lookup or the multiplier (*).
std::string instruction_text(tarn_instruction word);

// A readable hex dump and its reading back. Lines are "offset: word word ... # comment" with words in
// hexadecimal; "word*n" stands for n equal words. Reading ignores offsets and comments.
std::string program_to_hex(std::span<const std::byte> program);
std::vector<std::byte> program_from_hex(const std::string &text);
