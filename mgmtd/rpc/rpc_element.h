// The content of an anyxml parameter (a filter, a configuration) as plain elements.
//
// libyang hands such content over in several forms: nodes of the model where they fit it, opaque nodes where
// they do not, or a text where there are no elements. Filters and edits need none of its checks (a filter's
// leaf has no value, an edit's deleted leaf neither), so both are read from this one form. Values are
// canonical where libyang knew the node, and as written, without surrounding blanks, where it did not.
#pragma once

#include "mgmtd/rpc/mgmt_rpc.h"

struct t_rpc_attribute {
    std::string ns;  // module's name or namespace; empty for none
    std::string name;
    std::string value;
};

struct t_rpc_element {
    std::string ns;  // namespace; empty for none, which stands for any
    std::string name;
    std::string text;
    std::vector<t_rpc_attribute> attributes;
    std::vector<t_rpc_element> children;
};

inline constexpr size_t RPC_MAX_FILTER_ELEMENTS = 4096;

// Reads the content of an anyxml node. False for a text, with an error that names the node.
[[nodiscard]] bool rpc_elements_read(const lyd_node *p_any, std::vector<t_rpc_element> *p_elements,
                                     t_mgmt_rpc_error *p_error);

// The value of an attribute, null if there is none. module and ns are the two names of its namespace.
const std::string *rpc_attribute(const t_rpc_element &element, const char *module, const char *ns,
                                 const char *name);
