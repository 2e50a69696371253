// The configuration of edit-config and copy-config as edits of the datastores.
#pragma once

#include "mgmtd/rpc/rpc_element.h"

struct t_rpc_edit_options {
    e_mgmt_op default_op = MGMT_OP_MERGE;  // of the top-level nodes: merge or none
    bool has_operations = true;            // false: a bare configuration, without operations and places
};

// Reads elements as one edit. An error carries the XPath of the element at fault.
[[nodiscard]] bool rpc_edit_read(const t_schema_index &index, const std::vector<t_rpc_element> &elements,
                                 const t_rpc_edit_options &options, t_mgmt_edit *p_edit,
                                 t_mgmt_rpc_error *p_error);
