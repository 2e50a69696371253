// Rule tables: what the compiler compiles.
//
// A table is an ordered list of rules with one default action. A rule matches if every field that it has
// matches; a field matches if any of its intervals holds the packet's value; a field type that a rule does
// not name matches every value. The first rule that matches wins, and its action is copied into the program
// as opaque bytes.
//
// A table owns its rules and its default action, a rule its fields and its action, a field its intervals.
// Fields are added through a compiler context (tarn_field.h), because each field type becomes a stage of that
// context at its first use; so a table and its context belong together until tarn_reinit_context. Main thread
// only. Allocations that these calls do not report stop the process by an assertion.
#pragma once

#include "tarnd/compiler/interval.h"
#include "tarnd/compiler/tarn_program_format.h"

#include <cstddef>
#include <cstdint>

using tarn_field_id = uint32_t;

struct t_tarn_field {
    tarn_field_id f_id;       // stage of the field type in the current context, not the type itself
    uint32_t f_type;          // e_tarn_ip_field_type
    t_interval *f_intervals;  // inclusive bounds
    t_tarn_field *f_next;
    t_interval *f_last_interval;  // tail of f_intervals
};

struct t_tarn_rule {
    char r_name[128];
    uint32_t r_id;  // 1 for the first rule of a table
    t_tarn_field *r_fields;
    t_tarn_rule *r_next;
    t_tarn_rule *r_prev;      // not used
    t_tarn_action *r_action;  // null until tarn_create_action
};

struct t_tarn_ruletable {
    char name[128];   // becomes the program's name
    char alias[128];  // second name, for logs
    uint32_t num_rules;
    t_tarn_rule *rules;  // in order of priority; the first rule has bit 0
    t_tarn_action *default_action;
    uint32_t current_rule_id;  // last r_id handed out
    t_tarn_rule *last_rule;    // tail of rules
};

// A new table. Names are cut to 127 bytes. The default action gets action_data_len bytes of payload and flag
// bit 0. Null when there is no memory; a length without data is an assertion.
t_tarn_ruletable *tarn_ruletable_create(const char *name, const char *alias, uint32_t action_data_len,
                                        const void *action_data);

// Frees the table and all that it owns; null is allowed.
void tarn_delete_ruletable(t_tarn_ruletable *p_table);

// Appends a rule. name is shorter than 128 bytes (assertion).
t_tarn_rule *tarn_rule_create(t_tarn_ruletable *p_table, const char *name);

// Frees one rule with its fields and its action; it is not unlinked from a table.
void tarn_delete_rule(t_tarn_rule *p_rule);

// The rule at a position counted from 0; walks the list, and a missing rule is an assertion.
t_tarn_rule *tarn_get_rule_by_index(const t_tarn_ruletable *p_table, uint32_t index);

uint32_t tarn_get_num_rules(const t_tarn_ruletable *p_table);

// Gives the rule an action with data_len bytes of payload. An action that it already has is overwritten, not
// freed.
void tarn_create_action(t_tarn_rule *p_rule, uint32_t data_len, const void *action_data);
t_tarn_action *tarn_get_action(const t_tarn_rule *p_rule);

// Debugging dumps to standard output.
void tarn_print_field(const t_tarn_field *p_field);
void tarn_print_action(const t_tarn_action *p_action);
void tarn_print_rule(const t_tarn_rule *p_rule);
void tarn_print_table(const t_tarn_ruletable *p_table);
