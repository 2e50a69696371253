// The compiler's working state: the stages of the table being compiled and the cursors of the writer.
//
// One context serves one compilation at a time and is used again and again. It fills while rules are added
// (tarn_field.h), grows in tarn_compile, and is emptied by tarn_reinit_context, which the caller owes after
// every use, failed or not. Main thread only.
#pragma once

#include "tarnd/compiler/ec_classes.h"
#include "tarnd/compiler/rbst.h"
#include "tarnd/compiler/rule_keys.h"
#include "tarnd/compiler/shape_random.h"
#include "tarnd/compiler/tarn_program_format.h"

#include <cstddef>
#include <cstdint>
#include <memory>

using eclass_id = uint32_t;

struct t_ec;

struct t_field_info_item {
    uint32_t f_type;
    uint32_t f_max;  // recorded, read by nobody: every field covers all 32-bit values
    eclass_id f_id;  // stage, or 0 while the table doesn't use the field
};

// Why a compilation failed, for those who report it to a person.
enum e_tarn_compile_failure {
    TARN_COMPILE_OK,
    TARN_COMPILE_TOO_MANY_STAGES,  // more than 16 field types
    TARN_COMPILE_OVER_LIMIT,       // the program would pass c_program_limit
    TARN_COMPILE_NO_MEMORY,        // the memory manager, or the heap, has nothing to give
};

// What a combination may still add to the program. Kept by tarn_compile.
struct t_compile_budget {
    uint64_t known_size;       // bytes that the program has at least
    uint64_t limit;            // bytes that it may have
    uint64_t bytes_per_class;  // that each class of the stage being combined adds beyond the stage's table
};

struct t_tarn_context {
    eclass_id c_latest_ec_id;  // 0 when nothing exists
    t_rbst c_ecs;              // all stages by ec_id; key and data are the t_ec
    t_ec *c_root;
    uint32_t c_reg_allocated;  // last register handed out
    uint32_t *c_ins_ptr;       // writing cursors
    uint32_t *c_table_ptr;
    uint32_t c_length;  // sum of the stage table sizes, bytes
    uint32_t c_table_dir_len;
    uint32_t c_num_instructions;
    t_table_dir_entry *c_tdir_ptr;
    uint32_t *c_base_addr;
    int c_filter_id;                                     // slot of the program, -1 when none
    t_ec *c_final_ec;                                    // the stage with no consumer
    t_field_info_item c_field_ec_mapping[TARN_MAX_ECS];  // by compiler field type
    uint32_t c_action_table_offset;                      // first action record, 32-bit words
    uint32_t c_ecid_table_map[TARN_MAX_ECS];             // by stage: first entry, 32-bit words

    uint64_t c_program_limit;          // bytes that a program may have; 0 for no limit. Set by the owner.
    e_tarn_compile_failure c_failure;  // of the last tarn_compile
    t_compile_budget c_budget;
    uint32_t c_num_rules;                      // of the table being compiled
    std::unique_ptr<t_rule_keys> p_rule_keys;  // fingerprint keys of the compilation
    t_class_index c_class_index;               // of the stage being filled
    t_shape_random c_shape;                    // shapes of the tables written
    size_t c_work;                             // steps since the priority timers were last looked at
};

// An empty context, or null when there is no memory. Freed by tarn_delete_context.
t_tarn_context *tarn_context_create();

// Deletes all stages and makes the context ready for the next table. Offsets of the last program's tables
// stay; so does the limit.
void tarn_reinit_context(t_tarn_context *p_context);

// Null is allowed.
void tarn_delete_context(t_tarn_context *p_context);

// Counts steps of about 20 ns and looks at the priority timers often enough that two looks lie well below 1
// ms apart, without a clock read a step.
void tarn_context_work(t_tarn_context *p_context, size_t steps);
