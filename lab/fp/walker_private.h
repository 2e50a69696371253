// Inside the walker: the flattened program.
//
// Opening goes in three steps, each with a source of its own: walker_open.cc checks header, directory and
// action table; walker_table.cc checks a lookup table's tree and flattens it; walker_decode.cc checks the
// instructions and decodes them. walker_run.cc executes what they made and checks nothing any more. The steps
// report through t_fp_error, which keeps the first reason.
#pragma once

#include "lab/fp/walker.h"

#include <array>

// Stands for "in no entry". No entry may have it as its class.
inline constexpr uint32_t FP_NO_CLASS = FP_NO_RECORD;

// A flattened lookup table. A table whose entries are [0, 1), [1, 2) and so on without a gap is an array of
// classes (every combination of two stages is such a table). Any other is a list of segments that covers all
// 32-bit values, gaps included, behind an index over a value's top bits.
enum e_fp_table_kind : uint8_t {
    FP_TABLE_NONE,  // the program has no table for this stage
    FP_TABLE_DENSE16,
    FP_TABLE_DENSE32,
    FP_TABLE_SEGMENTS,
};

// One cell of the index: the segments that its values can lie in.
struct t_fp_cell {
    uint32_t count;
    uint32_t value;  // count 1: the class itself; else the first segment
};

struct t_fp_table {
    e_fp_table_kind kind;
    uint32_t max_class;
    std::vector<uint16_t> dense16;  // class by key, when all classes have 16 bits
    std::vector<uint32_t> dense32;
    std::vector<uint32_t> starts;   // first value of each segment, ascending from 0
    std::vector<uint32_t> classes;  // of each segment; FP_NO_CLASS for a gap
    std::vector<t_fp_cell> cells;   // by value >> shift; the last cell also serves all higher values
    uint32_t shift;
};

// Operations after decoding. A lookup's key is a packet field, a register, or the pair a * multiplier + b,
// which stands for the three instructions that the compiler emits for a combination.
enum e_fp_op : uint8_t {
    FP_OP_LOOKUP_FIELD,
    FP_OP_LOOKUP_REGISTER,
    FP_OP_LOOKUP_PAIR,
    FP_OP_MUL,
    FP_OP_ADD,
};

struct t_fp_op {
    e_fp_op code;
    uint8_t a;  // register, or the field type of FP_OP_LOOKUP_FIELD
    uint8_t b;
    uint8_t dst;
    uint32_t multiplier;
    const t_fp_table *p_table;  // in the walker's tables
};

struct t_fp_walker {
    std::string name;
    uint32_t num_records;
    uint32_t record_size;                           // bytes
    uint32_t records_offset;                        // bytes from the program's start
    std::array<uint8_t, TARN_MAX_ECS> field_types;  // by stage; 0 when it is no leaf
    std::array<t_fp_table, TARN_MAX_ECS> tables;    // by stage
    std::vector<tarn_instruction> instructions;     // for traces, with the terminator
    std::vector<t_fp_op> ops;                       // without the terminator
    uint8_t result;                                 // the terminator's register
};

// The first reason why a program is refused.
struct t_fp_error {
    std::string text;
};

// Keeps the reason unless there is one already. Returns false, so that a check can end with it.
__attribute__((format(printf, 2, 3))) bool fp_error_set(t_fp_error *p_error, const char *format, ...);

// The bytes of one lookup table, which lie inside the program; they may be unaligned.
struct t_fp_raw_table {
    std::span<const std::byte> entries;
    uint32_t count;   // 1 or more
    uint32_t number;  // place in the directory, for errors
};

// Checks the tree and flattens it.
[[nodiscard]] bool fp_table_open(const t_fp_raw_table &raw, t_fp_table *p_table, t_fp_error *p_error);

// Checks p_walker->instructions against its tables, fields and records and fills ops and result.
[[nodiscard]] bool fp_walker_decode(t_fp_walker *p_walker, t_fp_error *p_error);
