// Filters of get, get-config and subscriptions: subtrees (RFC 6241, section 6) and XPath.
//
// A filter is used twice. Before reading it tells the paths outside of which it can't select anything, so
// that nothing else is copied and no provider is asked for it. Afterwards it is applied to what was read.
#pragma once

#include "mgmtd/rpc/rpc_element.h"

enum e_rpc_filter { RPC_FILTER_NONE, RPC_FILTER_SUBTREE, RPC_FILTER_XPATH };

struct t_rpc_filter {
    e_rpc_filter kind = RPC_FILTER_NONE;
    std::vector<t_rpc_element> tops;
    std::string xpath;  // with modules' names as prefixes
};

// The filter of an operation; kind NONE if it has none.
[[nodiscard]] bool rpc_filter_read(const lyd_node *p_operation, t_rpc_filter *p_filter,
                                   t_mgmt_rpc_error *p_error);

// What a filter can select of the model.
struct t_rpc_scope {
    bool is_everything;
    std::vector<t_mgmt_path> paths;  // none lies in another; with !is_everything none: nothing
};

t_rpc_scope rpc_filter_scope(const t_rpc_filter &filter, const t_schema_index &index);

// Whether a filter can select the top-level node of a module, or something below it.
bool rpc_filter_wants(const t_rpc_filter &filter, const ly_ctx *p_context, const char *module,
                      const char *name);

// A copy of what a scope holds of a tree.
mgmt_work_tree_ptr rpc_scope_copy(const t_rpc_scope &scope, const t_mgmt_tree &tree);

// Frees what the filter does not select. False for an XPath that can't be evaluated.
[[nodiscard]] bool rpc_filter_apply(const t_rpc_filter &filter, const ly_ctx *p_context, lyd_ptr *p_tree,
                                    t_mgmt_rpc_error *p_error);

// Whether a filter selects anything of a notification.
bool rpc_filter_matches(const t_rpc_filter &filter, const lyd_node *p_notification);
