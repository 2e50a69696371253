// Rules of the data model that the YANG compiler does not know.
//
// Some keep the daemons right: a presence container would be delivered as a value, a default would hide that
// a leaf is absent, a leafref must keep the type of its target. The others keep a commit fast: libyang
// compares every pair for a list at a module's top, a leafref to anything but a key, and a predicate on
// anything but a key. The build refuses a model that breaks a rule.
#pragma once

#include "yang/schema_index.h"

#include <string>
#include <vector>

// One text for each fault, with the node's path; empty when the model keeps all rules. The rules: no list at
// the top of a module; no presence container; no default; leafrefs lead to string keys; predicates in must
// and when compare keys; every node has a description.
[[nodiscard]] std::vector<std::string> schema_check(const t_schema_index &index);
