// A rule set: the rules of one file, whatever format they were written in.
//
// Rules stand in order of priority and the first that matches wins. A rule has conditions, one a field at
// most; it matches when all of them hold. A condition that covers its field's natural range is never kept: it
// is no condition, and a field that no rule has a condition on is not used by the table at all. Rule numbers
// count from 1; 0 stands for the default.
//
// The set is plain data and independent of the compiler. rule_set_fill makes a rule table of it, with a
// counter in the last action slot of every rule, named "#" and the rule's number: by it a program tells which
// rule won. Names in rule files cannot contain '#'.
#pragma once

#include "tarnd/compiler/tarn_program_format.h"
#include "tools/value_ranges.h"

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <vector>

struct t_tarn_context;
struct t_tarn_ruletable;

inline constexpr size_t RULE_SET_MAX_RULES = 524280;
inline constexpr size_t RULE_SET_MAX_ACTIONS =
    MAX_ACTIONS_IN_RULE - 1;  // the last slot tells the rule number
inline constexpr size_t RULE_SET_MAX_NAME = 127;

struct t_rule_condition {
    uint32_t field_type;    // e_tarn_ip_field_type
    t_value_ranges ranges;  // alternatives, as written; never empty
};

struct t_set_rule {
    std::string name;                           // unique in the set
    uint32_t line;                              // in the file
    std::vector<t_rule_condition> conditions;   // ascending field type
    std::vector<t_tarn_filter_action> actions;  // up to RULE_SET_MAX_ACTIONS; policers by their bare name
};

struct t_rule_set {
    std::string file;   // for messages
    std::string table;  // up to RULE_SET_MAX_NAME bytes
    std::vector<t_set_rule> rules;
    std::vector<t_tarn_filter_action> default_actions;
};

// Adds a condition unless the ranges cover the field's natural range. The rule has none on that field yet.
void set_rule_add_condition(t_set_rule *p_rule, uint32_t field_type, t_value_ranges ranges);

// Null when the rule has no condition on the field.
const t_rule_condition *set_rule_condition(const t_set_rule &rule, uint32_t field_type);

// Field types that some rule has a condition on, in the given order of all types.
std::vector<uint32_t> rule_set_used_fields(const t_rule_set &set, std::span<const uint32_t> order);

// Makes the rule table in an empty context: match-any first, then the used fields in the given order, which
// thereby is the order of stages. A set without rules gives a table without rules. The caller deletes the
// table and re-initialises the context. Null when there is no memory for the table itself.
t_tarn_ruletable *rule_set_fill(t_tarn_context *p_context, const t_rule_set &set,
                                std::span<const uint32_t> order);

// The rule number that a record's payload of 12 slots tells, or 0 when it has none.
uint32_t rule_number_of_record(std::span<const t_tarn_filter_action> slots);

// A table's name made of a file's: without folders and without the last suffix.
std::string rule_set_table_name(std::string_view file);
