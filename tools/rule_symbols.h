// Names for values: protocols, services, code points.
#pragma once

#include "tools/rule_fields.h"

#include <cstdint>
#include <string_view>

// The value that a name stands for in fields of that kind. False for a name that nobody knows.
bool rule_symbol_value(e_rule_field_kind kind, std::string_view name, uint32_t *p_value);
