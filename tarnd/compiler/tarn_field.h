// Fields of rules: what a rule matches, and the stage that each field type becomes.
//
// Adding an interval to a rule also enters its end points into the field type's stage, which is made at the
// type's first use. So a rule table is filled through one context and compiled with that context.
#pragma once

#include "tarnd/compiler/tarn_ruletable.h"

#include <cstdint>

struct t_ec;
struct t_epi;
struct t_tarn_context;

// The stage number of a field type (e_tarn_ip_field_type, 1 to 18) in this context; the stage is made at
// first use.
tarn_field_id tarn_get_field_id(t_tarn_context *p_context, uint32_t field_type);

// Makes the stage of a field type, with the end points 0 and 0xffffffff. Returns the context's latest stage
// number.
tarn_field_id tarn_field_ecid_create(t_tarn_context *p_context, uint32_t field_type);

// The field type of a stage number; *p_type stays as it was when no leaf has that number.
void tarn_get_field_type(const t_tarn_context *p_context, uint32_t ec_id, uint32_t *p_type);

// The rule's field with that stage number, or null. Two names for one search.
t_tarn_field *tarn_get_field_by_id(const t_tarn_rule *p_rule, tarn_field_id id);
t_tarn_field *tarn_find_field_by_id(const t_tarn_rule *p_rule, tarn_field_id id);

// Adds the closed interval between two values, given in either order.
t_tarn_field *tarn_add_range_field(t_tarn_context *p_context, t_tarn_rule *p_rule, tarn_field_id id,
                                   uint32_t a, uint32_t b);

// Adds an IPv4 prefix. address is in network order and holds prefix_len bits. A prefix_len of 0 gives the
// single address 0, as does the 32-bit shift behind it; callers leave a match on everything out.
t_tarn_field *tarn_add_prefix_field(t_tarn_context *p_context, t_tarn_rule *p_rule, tarn_field_id id,
                                    const uint8_t *address, uint32_t prefix_len);

// Adds [min, max_val] to the rule's field, making the field if need be, and enters min and max_val + 1 (which
// wraps to 0) as end points. A rule has one field a type; repeated calls make alternatives.
t_tarn_field *tarn_add_field(t_tarn_context *p_context, t_tarn_rule *p_rule, tarn_field_id id, uint32_t min,
                             uint32_t max_val);
t_interval *tarn_add_interval(t_tarn_field *p_field, uint32_t min, uint32_t max_val);

// Frees a field with its intervals.
void tarn_delete_field(t_tarn_field *p_field);

// Whether one of the field's intervals holds the value.
bool value_is_within_field(const t_tarn_field *p_field, uint32_t value);

// Sets every bit of a vector of num_rules bits: bit i tells whether rule i's field of this stage matches the
// value. The table has a rule (assertion). This is the definition of a leaf's classes; compiling uses a sweep
// with the same result.
void tarn_evaluate_field(const t_tarn_ruletable *p_table, const t_ec *p_ec, t_epi *p_bitvec, uint32_t value);
