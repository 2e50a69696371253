// Validation of a change without looking at everything.
//
// A running tree is valid. When it changes, only what changed can be wrong, and what refers to it. The model
// tells which nodes others refer to: the targets of leafrefs, and what "must" expressions look at beyond the
// list entry that they stand in. As long as a change touches none of these, the unchanged entries of lists
// that hold none of them can neither become wrong nor make others wrong, so they are left out: what remains,
// a small tree as a rule, is validated in place of the whole. Every other change has the whole tree
// validated.
//
// Lists with unique, min-elements or max-elements always stay whole, and so do lists that an expression of
// the entry around them looks into. A model with `when` or default values is always validated as a whole,
// since validation may change the tree there.
#pragma once

#include "mgmtd/store/mgmt_diff.h"

#include <unordered_set>

struct lysc_node;

struct t_mgmt_rules {
    bool can_prune;
    std::unordered_set<const t_schema_node *> referred;  // from beyond their own list entry
    std::unordered_set<const lysc_node *> kept;          // lists that their own entry's expressions look into
    std::unordered_set<const lysc_node *> prunable;      // lists
};

// Reads the expressions of the model once.
std::shared_ptr<const t_mgmt_rules> mgmt_rules_new(const t_schema_index &index);

// Validates the new tree of a difference whose old tree is valid. p_tree is that new tree, in the caller's
// hands alone: validation of the whole may add implied nodes.
[[nodiscard]] bool mgmt_rules_validate(const t_mgmt_rules &rules, const t_mgmt_diff &diff,
                                       t_mgmt_tree *p_tree, t_mgmt_error *p_error);
