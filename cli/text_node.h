// What the model says about a node, in words.
#pragma once

#include "cli/client.h"

// "leaf, uint32 1..max seconds, mandatory"
std::string cli_node_kind(const t_cli_json &node);

// " One of: accept, drop." or "", where the type has names for its values.
std::string cli_node_values(const t_cli_json &node);

// A description on one line.
std::string cli_node_description(const t_cli_json &node);
