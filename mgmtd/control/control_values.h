// Values that could stand at a place of the configuration, for completion.
#pragma once

#include "mgmtd/store/mgmt_path.h"

#include <set>

struct t_control_values {
    std::string prefix;               // only values that begin so
    std::vector<std::string> values;  // in the order in which they came up, none twice
    bool more = false;                // CONTROL_MAX_VALUES was reached
    std::set<std::string> seen;
};

// Adds the values of one tree: of a list the key behind those given, of a leaf-list its elements, of a
// leafref the keys that it can name. Nothing for what is not there.
void control_values_of_tree(const t_mgmt_tree &tree, const t_mgmt_path &path,
                            const std::vector<std::string> &keys, t_control_values *p_values);

// Adds what the type of a leaf or leaf-list, or of a list's key behind those given, has to offer.
void control_values_of_type(const t_schema_node &node, const std::vector<std::string> &keys,
                            t_control_values *p_values);
