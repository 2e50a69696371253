// What the two halves of the filters share.
#pragma once

#include "mgmtd/rpc/rpc_filter.h"

#include <cstring>
#include <libyang/libyang.h>

// An element with a text, that siblings are chosen by.
bool rpc_is_content_match(const t_rpc_element &element);

// Whether an element's namespace is the module's. No namespace, or NETCONF's own, which elements inherit from
// the rpc around them, stands for any.
bool rpc_is_in_module(const t_rpc_element &element, const lys_module *p_module);
bool rpc_element_is(const t_rpc_element &element, const lysc_node *p_node);

enum e_rpc_mark { RPC_MARK_PART, RPC_MARK_WHOLE };

// Nodes that are selected, with all below or with what is marked below.
using t_rpc_marks = std::unordered_map<const lyd_node *, e_rpc_mark>;

// Marks a node as a whole, and what stands around it as a part.
void rpc_mark(const lyd_node *p_node, t_rpc_marks *p_marks);
