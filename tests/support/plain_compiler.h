// The compiler written a second time, slowly and obviously: the oracle of the fast one.
//
// It takes every step by the book: each rule is evaluated for each interval, each pair of classes is combined
// by an AND of whole bit vectors and looked up in a search tree, each lookup table is a search tree that is
// written in preorder. It shares the containers (t_epi, t_rbst) and the format header with the product and
// nothing else.
#pragma once

#include "tarnd/compiler/tarn_context.h"
#include "tarnd/compiler/tarn_ruletable.h"

#include <cstddef>
#include <cstdint>
#include <vector>

struct t_plain_stage_summary {
    uint32_t ec_id;
    uint32_t register_index;
    uint32_t left;  // stage numbers; 0 for a leaf
    uint32_t right;
    std::vector<std::vector<bool>> classes;  // by class number: which rules match
};

struct t_plain_result {
    bool too_many_stages;                       // then all below is empty
    std::vector<std::byte> program;             // empty when no rule names a field
    std::vector<t_plain_stage_summary> stages;  // by stage number, from 1
};

// Compiles a table that was filled through the context. Call it before tarn_compile: it takes from the
// context the stage numbers of the field types and the table offsets that earlier programs left there, and
// changes nothing.
t_plain_result plain_compile(const t_tarn_context *p_context, const t_tarn_ruletable *p_table);
