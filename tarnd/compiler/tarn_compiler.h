// The policy compiler: from a rule table to a program.
//
// Recursive flow classification (P. Gupta, N. McKeown, "Packet classification on multiple fields", 1999).
// Each field's values are cut into intervals at every bound that a rule mentions; intervals that the same
// rules match share a class (a leaf stage). Stages are then combined in pairs: two classes give the AND of
// their rule sets, and equal results share a class of the combined stage. The class of the last stage picks
// the action record. The program (tarn_program_format.h) is written into one block of the registered memory
// manager.
//
// Calling order: tarn_rule_create, tarn_get_field_id with tarn_add_range_field or tarn_add_prefix_field, and
// tarn_create_action for each rule; tarn_compile; read c_filter_id; tarn_reinit_context, always.
//
// Cost is the number of pairs of classes. Long loops keep the high-priority timers alive.
#pragma once

#include "tarnd/compiler/tarn_context.h"
#include "tarnd/compiler/tarn_ruletable.h"

enum e_tarn_status {
    tarn_status_ok = 0,
    tarn_status_fail = 1,
};

// Compiles the table with the stages that its fields have made in the context.
//
// ok: *pp_program is the program, owned by the caller, who frees it with tarn_mem_free; *p_program_len its
// length
//     in bytes. A table in which no rule names a field is ok too, has no program and touches neither output.
// fail, *pp_program null: more than 16 field types (*p_program_len untouched); or no memory for the program,
// where
//     *p_program_len is the length wanted; or a program that would pass the context's limit or 4 GiB, where
//     it is the length known when the compiler stopped, a lower bound. Lengths saturate at INT_MAX. c_failure
//     tells which, and the reason is logged.
e_tarn_status tarn_compile(t_tarn_context *p_context, const t_tarn_ruletable *p_table, void **pp_program,
                           int *p_program_len);
