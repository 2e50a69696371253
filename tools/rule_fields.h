// The packet fields that rules match: their names in rule files, their field types, how their values look.
//
// One catalogue for the readers, for the options that name fields and for everything that prints a value. A
// field's natural range is what a packet can carry there; a condition that covers it is no condition.
#pragma once

#include "tarnd/compiler/tarn_program_format.h"
#include "tools/value_ranges.h"

#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <vector>

enum class e_rule_field_kind { number, address, port, protocol, dscp };

struct t_rule_field {
    const char *name;
    uint32_t type;       // e_tarn_ip_field_type
    uint32_t max_value;  // the natural range is 0 to this
    e_rule_field_kind kind;
};

// All fields that a rule can name; match-any is not among them.
std::span<const t_rule_field> rule_fields();

// Null when there is none.
const t_rule_field *rule_field_by_name(std::string_view name);
const t_rule_field *rule_field_by_type(uint32_t type);

// The name, "match-any" for that type, "field-N" for a type that nobody knows.
std::string rule_field_name(uint32_t type);

// A value or ranges as a person writes them, addresses as dotted quads.
std::string rule_field_value_print(uint32_t type, uint32_t value);
std::string rule_field_ranges_print(uint32_t type, std::span<const t_value_range> ranges);

// One value: a number, for addresses also a dotted quad. Values beyond the natural range are fine up to 32
// bits.
bool rule_field_value_read(uint32_t type, std::string_view text, uint32_t *p_value);

// An order of fields as names separated by commas. The result lists every field type: those named, then the
// rest of the default order. An empty text is the default order. On false *p_reason tells the unknown or
// repeated name.
bool rule_field_order_read(std::string_view text, std::vector<uint32_t> *p_order, std::string *p_reason);
