// A stage of the classification: a leaf for a field, or the combination of two stages.
//
// A stage has a lookup table (which class has an interval, or a pair of classes) and the classes themselves
// (which rules match there). Classes are numbered in the order in which they are found. A leaf's table is
// sorted by interval; a combination's is dense, keyed by class1 * classes of ec2 + class2. Tables are kept as
// plain arrays and become search trees only in the program (ec_table.h); classes are kept as compact rule
// sets behind a fingerprint index (ec_classes.h). The context's c_ecs owns the stages.
#pragma once

#include "tarnd/compiler/ec_classes.h"
#include "tarnd/compiler/ec_table.h"
#include "tarnd/compiler/rbst.h"
#include "tarnd/compiler/tarn_context.h"

#include <cstdint>

struct t_epi;
struct t_tarn_ruletable;

struct t_ec {
    eclass_id ec_id;     // stage number in its context, from 1; also the table id in instructions
    uint32_t ec_values;  // classes so far
    uint8_t ec_is_intermediate;
    uint8_t ec_is_complete;  // table and classes are there, and ec_values is final
    uint8_t ec_is_last;      // its classes are not combined again: of each only the winner is kept
    t_rbst endpoints;        // leaf: uint32_t keys from malloc, owned
    t_ec_table ival_ec;      // the lookup table
    t_ec_classes ec_bitvec;  // the classes
    t_ec *left;
    t_ec *right;
    t_ec *root;  // the combination that consumes this stage
    uint32_t register_index;
};

// A new stage with the next number and the next register. With `add` it enters c_ecs. Null, with a log line,
// when the registers are used up: number and register stay counted.
t_ec *eclass_create(t_tarn_context *p_context, int add);

// Frees a stage and all it has.
void eclass_delete(t_ec *p_ec);

// One vector at a time, while a stage fills: the class of an equal vector, or EC_NO_CLASS. A compilation
// finds many classes at once and goes by their fingerprints (ec_classes.h).
uint32_t eclass_search(const t_tarn_context *p_context, const t_ec *p_ec, const t_epi *p_bitvec);

// Adds a vector that the stage does not have yet and returns its class.
uint32_t eclass_add(t_tarn_context *p_context, t_ec *p_ec, const t_epi *p_bitvec);

// Fills the table and the classes of p_ec from its two complete inputs. Row by row over ec1's classes in
// numeric order, and within a row over ec2's, each pair's rule set gets a class; equal sets share one,
// numbered in the order of their first appearance. False, with the stage incomplete, when the context's
// budget is passed; the bytes found so far are counted in it. Throws std::bad_alloc.
[[nodiscard]] bool eclass_combine(t_tarn_context *p_context, t_ec *p_ec, const t_ec *p_ec1,
                                  const t_ec *p_ec2);

// Fills a leaf's table and classes from its end points and the rules.
void tarn_compile_field(t_tarn_context *p_context, const t_tarn_ruletable *p_table, t_ec *p_ec);

// Bytes of the stage's table in the program.
uint64_t eclass_table_size(const t_ec *p_ec);

// Writes directory entry and table at the context's cursors and steps them.
void eclass_program_table(t_tarn_context *p_context, const t_ec *p_ec);
