// The program walker: executes classification programs on packet fields.
//
// This is the reading side of the program format, written for a forwarding plane and independent of the
// compiler: it shares tarn_program_format.h and nothing else. A program is opened once. Opening checks every
// offset, link, index and instruction in time and memory linear in the program's size, so bytes of any origin
// and any alignment are safe to give. It flattens the search trees into sorted arrays (dense tables into
// plain ones), so that classifying needs no checks and no pointer chasing. The walker keeps its own copy of
// what it looks up; only the action records stay in the program's memory, since counters and policers live
// there.
//
// What a program must satisfy beyond the layout: tables lie in the order of the directory and overlap
// nothing; stage numbers are unique; entries form one search tree over disjoint, non-empty intervals; all
// records have one length; and no class that the last instruction can meet is without a record, judged by the
// highest class of the tables on the way. What the action records hold is not looked at.
//
// A walker is immutable after opening; any number of threads may classify with it.
#pragma once

#include "tarnd/compiler/tarn_program_format.h"

#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <vector>

// Values of one packet by compiler field type (e_tarn_ip_field_type), in host order. A field that the packet
// does not have is 0; match-any is 1.
struct t_fp_header {
    uint32_t values[tarn_ip_field_type_max];
};

// All fields 0 but match-any.
t_fp_header fp_header_blank();

inline constexpr uint32_t FP_NO_RECORD = 0xffffffff;

struct t_fp_verdict {
    uint32_t class_id;       // class of the last stage; FP_NO_RECORD when a value was in no entry
    uint32_t record_offset;  // the action record, bytes from the program's start; FP_NO_RECORD as above
};

// One executed instruction, for explanations. Registers start at 0 and wrap at 2^32.
struct t_fp_step {
    tarn_instruction instruction;
    uint32_t input;   // the source before: packet value or register
    uint32_t output;  // value of the destination register afterwards; for terminate the class
    bool found;       // false: a lookup whose value lies in no entry, which ends the program
};

struct t_fp_walker;

struct t_fp_walker_deleter {
    void operator()(t_fp_walker *p_walker) const;
};
using fp_walker_ptr = std::unique_ptr<t_fp_walker, t_fp_walker_deleter>;

// Opens a program of program.size() bytes; the last 4 bytes of p_length may lie behind the end (see the
// format). The bytes may be given back afterwards. Null with the reason in *p_error, one sentence that begins
// with the place (header, table, entry or instruction by number, counted from 0), if anything does not hold.
fp_walker_ptr fp_walker_open(std::span<const std::byte> program, std::string *p_error);

// One header at a time.
t_fp_verdict fp_walker_classify(const t_fp_walker *p_walker, const t_fp_header &header);

// Many headers, instruction by instruction over groups of headers; the verdicts are those of one at a time.
// Both spans have the same size (assertion).
void fp_walker_classify_burst(const t_fp_walker *p_walker, std::span<const t_fp_header> headers,
                              std::span<t_fp_verdict> verdicts);

// As fp_walker_classify, with every executed instruction in *p_steps, whose former content goes.
t_fp_verdict fp_walker_trace(const t_fp_walker *p_walker, const t_fp_header &header,
                             std::vector<t_fp_step> *p_steps);

// What the program says about itself.
std::string fp_walker_name(const t_fp_walker *p_walker);
uint32_t fp_walker_num_records(const t_fp_walker *p_walker);
// Bytes of each action record. Who reads records as twelve slots has to look at it first.
uint32_t fp_walker_record_size(const t_fp_walker *p_walker);
// Offset of record `index`, below the number of records, in bytes from the program's start.
uint32_t fp_walker_record_offset(const t_fp_walker *p_walker, uint32_t index);
// Field type that a leaf stage reads, or 0.
uint32_t fp_walker_field_type(const t_fp_walker *p_walker, uint32_t ec_id);
