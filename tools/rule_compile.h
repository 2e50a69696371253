// Compiling a rule set outside the daemon, with a report of what came out.
//
// The program lies in the heap arena. A compilation can also be run without a program: then it stops when the
// stages are known, which costs a fifth of the memory and tells all class counts. Not thread-safe, like the
// compiler.
#pragma once

#include "tools/rule_set.h"

#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <vector>

// From this many classes on a stage cannot be the right input of another: the multiplier has 16 bits.
inline constexpr uint32_t RIGHT_INPUT_CLASS_LIMIT = 65536;

struct t_stage_report {
    uint32_t id;
    uint32_t field_type;  // of a leaf
    uint32_t left;        // inputs of a combination; 0 for a leaf
    uint32_t right;
    bool is_right_input;
    bool is_complete;  // false: the compilation stopped before its end, and has found at least `classes`
    uint32_t classes;
    uint32_t entries;  // these two are known only with a program
    uint64_t table_bytes;
};

struct t_arena_program_deleter {
    void operator()(void *p_program) const;
};
using arena_program_ptr = std::unique_ptr<void, t_arena_program_deleter>;

struct t_compile_result {
    arena_program_ptr program;           // null when refused, or when none was wanted
    uint64_t program_size;               // bytes; when refused the size known so far, a lower bound
    bool is_over_limit;                  // refused because of the limit or because of the format's 4 GiB
    std::string reason;                  // why there is no program though one was wanted
    std::vector<t_stage_report> stages;  // by id
    uint32_t records;
    uint32_t record_size;  // bytes
    double fill_seconds;
    double compile_seconds;
};

// limit in bytes, 0 for none. order lists all field types. With want_program false, program and reason stay
// empty if a program could be made, and entries and table sizes are not known.
t_compile_result rule_set_compile(const t_rule_set &set, std::span<const uint32_t> order, uint64_t limit,
                                  bool want_program);

// The program's bytes.
std::span<const std::byte> compile_result_bytes(const t_compile_result &result);

// Right inputs with RIGHT_INPUT_CLASS_LIMIT classes or more; their program would misclassify.
std::vector<t_stage_report> stages_misclassifying(std::span<const t_stage_report> stages);

// "stage 4 (src)", or "stage 9 (2, 3)".
std::string stage_name(const t_stage_report &stage);

// One sentence on such a stage.
std::string stage_misclassifies_print(const t_stage_report &stage);
