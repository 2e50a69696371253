// Writing the program of a folded set of stages into one block of memory.
#pragma once

#include "tarnd/compiler/tarn_context.h"
#include "tarnd/compiler/tarn_ruletable.h"

#include <cstdint>

// Bytes of the table's action records, which are all of one length: that of the first rule's action.
uint64_t tarn_record_size(const t_tarn_ruletable *p_table);

// Bytes of the whole program. Sets c_final_ec and the context's three counters.
uint64_t tarn_program_length(t_tarn_context *p_context, const t_tarn_ruletable *p_table);

// Allocates `size` bytes, the length given by tarn_program_length, from the registered memory manager and
// writes the program. Sets c_filter_id. Null when the manager has no memory. Throws std::bad_alloc, with
// nothing allocated.
void *tarn_compile_program_ec(t_tarn_context *p_context, const t_tarn_ruletable *p_table, uint32_t size);
