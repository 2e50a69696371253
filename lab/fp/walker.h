// The program walker: executes classification programs on packet fields.
//
// This is the reading side of the program format, written for a forwarding plane and independent of the compiler: it
// shares tarn_program_format.h and nothing else. A program is opened once. Opening checks every offset, link,
// index and instruction, so bytes of any origin are safe to give, and flattens the search trees into sorted arrays
// (dense tables into plain ones), so that classifying needs no checks and no pointer chasing. The walker keeps its
// own copy of what it looks up; only the action records stay in the program's memory, since counters and policers
// live there.
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

// Values of one packet by compiler field type (e_tarn_ip_field_type). A field that the packet does not have is 0; match-any is 1.
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

// One executed instruction, for explanations.
struct t_fp_step {
    tarn_instruction instruction;
    uint32_t input;    // packet value, or register values before: source for or, destination for mul
    uint32_t output;   // value of the destination register afterwards; for terminate the class
    bool found;        // lookup: the value lies in an entry
};

struct t_fp_walker;

struct t_fp_walker_deleter {
    void operator()(t_fp_walker *p_walker) const;
};
using fp_walker_ptr = std::unique_ptr<t_fp_walker, t_fp_walker_deleter>;

// Opens a program of program.size() bytes; the last 4 bytes of p_length may lie behind the end (see the format). Null with the
// reason in *p_error (table, entry or instruction by number) if anything in it does not hold.
fp_walker_ptr fp_walker_open(std::span<const std::byte> program, std::string *p_error);

// One header at a time.
t_fp_verdict fp_walker_classify(const t_fp_walker *p_walker, const t_fp_header &header);

// Many headers, instruction by instruction over groups of headers. Both spans have the same size.
void fp_walker_classify_burst(const t_fp_walker *p_walker, std::span<const t_fp_header> headers,
                              std::span<t_fp_verdict> verdicts);

// As fp_walker_classify, recording every executed instruction.
t_fp_verdict fp_walker_trace(const t_fp_walker *p_walker, const t_fp_header &header, std::vector<t_fp_step> *p_steps);

// What the program says about itself.
std::string fp_walker_name(const t_fp_walker *p_walker);
uint32_t fp_walker_num_records(const t_fp_walker *p_walker);
// Offset of record `index` in bytes from the program's start.
uint32_t fp_walker_record_offset(const t_fp_walker *p_walker, uint32_t index);
// Field type that a leaf stage reads, or 0.
uint32_t fp_walker_field_type(const t_fp_walker *p_walker, uint32_t ec_id);
