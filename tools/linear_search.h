// The plain way to classify: try every rule in order.
//
// What a program computes has to be what this search finds, which makes it the judge of programs in tests,
// in the demo and in `tarnc run --linear`. Conditions are laid out flat, the narrowest of a rule first.
#pragma once

#include "lab/fp/walker.h"
#include "tools/rule_set.h"

#include <cstdint>
#include <span>
#include <vector>

struct t_linear_condition {
    uint32_t field_type;
    uint32_t first_range;  // index into ranges
    uint32_t end_range;
};

struct t_linear_search {
    std::vector<t_value_range> ranges;
    std::vector<t_linear_condition> conditions;
    std::vector<uint32_t> end_condition;  // by rule: index behind its last condition
    std::vector<uint32_t> used_fields;    // match-any included
};

t_linear_search linear_search_make(const t_rule_set &set);

// The number of the first rule that matches, counted from 1, or 0 for the default. As in a program, the value
// 0xffffffff in a field that the table uses gives the default, and so does a match-any other than 1.
uint32_t linear_search_find(const t_linear_search &search, const t_fp_header &header);

// Whether one rule's conditions hold, whatever rules stand before it.
bool linear_search_rule_matches(const t_linear_search &search, size_t rule_index, const t_fp_header &header);
