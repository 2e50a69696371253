// A stage's lookup table while it is being compiled, and its form in the program.
//
// Until the program is written a table is two arrays: the starts of its intervals and their classes. A
// combined stage needs no starts, since its keys are 0, 1, 2 and so on. In the program the table is a binary
// search tree; it is written straight from the arrays as a random tree, every key of a run being its root
// with equal chance, which is the shape that random insertion gives. No tree node exists at any time.
#pragma once

#include "tarnd/compiler/tarn_program_format.h"

#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

struct t_tarn_context;

struct t_ec_table {
    size_t count;                         // entries
    std::vector<uint32_t> starts;         // leaf: count + 1 bounds, ascending; combined: empty
    std::unique_ptr<uint32_t[]> classes;  // count classes
};

// Makes room for count entries whose classes are still to be written. Throws std::bad_alloc.
void ec_table_reserve(t_ec_table *p_table, size_t count);
void ec_table_release(t_ec_table *p_table);

// Writes count entries at p_out, root first, then its right subtree, then its left. p_out is the place of the
// first entry; links are counted from it.
void ec_table_write(t_tarn_context *p_context, const t_ec_table *p_table, t_tarn_table_entry *p_out);
