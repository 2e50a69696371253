// Values between the tree and the framework.
//
// The model's index names the framework's type of each leaf. Texts and lists that a value points to belong to
// the tree (texts) or to the record that holds the values (lists), so both must be held while a value is
// used; who needs them longer copies. The bytes of addresses are in network order.
#pragma once

#include "mgmtd/store/mgmt_path.h"
#include "platform/confd/confd_lib.h"

#include <deque>

// Tag values in the order of an array that a client gets. The lists that values point to live here.
struct t_mgmt_values {
    std::vector<confd_tag_value_t> items;
    std::deque<std::vector<confd_value_t>> lists;
};

// The value of a leaf or of one element of a leaf-list. An empty leaf gives C_XMLTAG with its tag.
confd_value_t mgmt_value_of(const t_schema_node *p_schema, const lyd_node *p_node);

// All elements of a leaf-list as C_LIST; p_values keeps them.
confd_value_t mgmt_value_of_list(const t_mgmt_tree &tree, const lyd_node *p_parent,
                                 const t_schema_node *p_schema, t_mgmt_values *p_values);

// The value that a text stands for, by the leaf's type; canonical forms are not needed. C_BUF points into
// text. Leafrefs and unions give the type that fits.
[[nodiscard]] bool mgmt_value_from_text(const t_mgmt_tree &tree, const t_schema_node *p_schema,
                                        std::string_view text, confd_value_t *p_value, t_mgmt_error *p_error);

// The text of a value that a client gives for a leaf or a leaf-list's element: enumerations and bits get
// their names, numbers of another width are taken if they fit. MGMT_ERR_BADTYPE if the leaf can't hold such a
// value. The text is not checked against ranges and patterns yet.
[[nodiscard]] bool mgmt_value_text(const t_schema_node *p_schema, const confd_value_t &value,
                                   std::string *p_text, t_mgmt_error *p_error);

// ---- Keypaths ----

// One element: a node's tag, or the key values of the list entry that the element before names.
struct t_mgmt_keypath_element {
    xml_tag tag;
    std::vector<confd_value_t> keys;  // not empty: the values; tag is 0 then
};

// Outermost first (a confd_hkeypath_t has it the other way round).
using t_mgmt_keypath = std::vector<t_mgmt_keypath_element>;

// The keypath of a data node; the values point into the tree.
t_mgmt_keypath mgmt_keypath_of(const t_mgmt_tree &tree, const lyd_node *p_node);

// A path, from a keypath of a client's. False for an unknown tag or values
// that don't fit.
[[nodiscard]] bool mgmt_keypath_path(const t_schema_index &index, const t_mgmt_keypath &keypath,
                                     t_mgmt_path *p_path, t_mgmt_error *p_error);
