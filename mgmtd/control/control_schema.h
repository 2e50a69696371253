// What the model says about a node, for help and completion.
#pragma once

#include "yang/schema_index.h"

#include <nlohmann/json_fwd.hpp>

struct lysc_type;

// The node, with its children named and described:
//   {"path": "/policy/zone", "kind": "list", "description": "...", "keys": ["name"],
//    "children": [{"name": "name", "kind": "leaf", "type": "string", ...}, ...]}
// kind is container, list, leaf, leaf-list, action or notification. Leaves and leaf-lists have a type, and
// range, units and values (of enumerations, bits and truth values) where they exist; an action's children are
// its input. Flags (key, mandatory, state) stand only where they hold. A null node stands for the top level.
nlohmann::ordered_json control_schema_describe(const t_schema_index &index, const t_schema_node *p_node);

// The values of a type that has names for them: enumerations, bits and truth values, alone or in a union.
std::vector<std::string> control_schema_values(const lysc_type *p_type);
