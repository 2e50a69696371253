// Programs from files and from the compiler, checked and ready to classify.
//
// Opening goes through the walker, so a file may hold any bytes. Beyond the walker's demands, records must be
// those of twelve action slots, which everything here that looks into records relies on. The bytes must
// outlive what was opened.
#pragma once

#include "lab/fp/walker.h"

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <vector>

struct t_open_program {
    std::span<const std::byte> bytes;
    fp_walker_ptr walker;
    std::vector<uint32_t> rule_by_record;  // rule number, 0 for the default
    bool has_rule_numbers;                 // false: made by something else than tarnc
    uint32_t highest_rule;
    std::vector<uint32_t> field_types;  // that leaves read, ascending, match-any included
};

// Opens the bytes. On false *p_reason tells what does not hold.
bool program_open(std::span<const std::byte> bytes, t_open_program *p_program, std::string *p_reason);

// Loads a file into *p_bytes and opens it. On false *p_reason begins with the file's name.
bool program_load(const std::string &file, std::string *p_bytes, t_open_program *p_program,
                  std::string *p_reason);

// Whether a file's first byte is 0, as it is in programs and in no rule file. False for what cannot be read.
bool file_is_program(const std::string &file);

// The rule number of a verdict, 0 for the default.
uint32_t program_verdict_rule(const t_open_program &program, const t_fp_verdict &verdict);

// The 12 slots of a record.
std::vector<t_tarn_filter_action> program_record_slots(const t_open_program &program, uint32_t record_offset);
