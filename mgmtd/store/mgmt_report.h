// What one subscription gets to know of a difference.
//
// A subscription names a node of the model; it hears of instances of that node and of no ancestor. Each
// instance that changed is one report, outermost key first: created, deleted, or modified when anything below
// changed, nested lists included. An instance below a created entry is reported created. An instance below a
// deleted list entry is not reported: who listens to the entry cleans up below. Only where the parent entry
// survives is a deletion told. A trigger reports the present state as creations: the difference from an empty
// tree.
//
// The reports point into the difference and its trees, and stay good while the difference is held.
#pragma once

#include "mgmtd/store/mgmt_diff.h"

enum e_mgmt_report {  // the framework's numbers of iteration operations
    MGMT_REPORT_CREATED = 1,
    MGMT_REPORT_DELETED = 2,
    MGMT_REPORT_MODIFIED = 3,
    MGMT_REPORT_VALUE_SET = 4,  // a leaf or leaf-list came into being or changed
};

struct t_mgmt_report {
    e_mgmt_report op;
    const t_schema_node *schema;
    const lyd_node *p_old;
    const lyd_node *p_new;
    const t_mgmt_diff_node *p_diff;  // of a modified instance; else null
};

// Whether a subscription is concerned: it has a report, or it names the top or a container with a change
// below that is no suppressed deletion.
bool mgmt_report_concerns(const t_mgmt_diff &diff, const t_schema_node *p_path);

// All reports of a path, in order. A container without keys on its path is one instance, modified when
// anything below changed.
std::vector<t_mgmt_report> mgmt_report_instances(const t_mgmt_diff &diff, const t_schema_node *p_path);

// The reports one level below a report, for an iterator that recurses: its changed children, leaves as
// value-set or deleted. A created node's children are all created, a deleted one has none.
std::vector<t_mgmt_report> mgmt_report_children(const t_mgmt_diff &diff, const t_mgmt_report &report);

// A change of a difference as a report.
t_mgmt_report mgmt_report_of(const t_mgmt_diff_node &change);

// Keypath of an instance, from the new tree, for a deleted one from the old.
t_mgmt_keypath mgmt_report_keypath(const t_mgmt_diff &diff, const t_mgmt_report &report);

// Old and new value of a leaf's or leaf-list's report; C_NOEXISTS where there is none. p_values keeps lists.
confd_value_t mgmt_report_old_value(const t_mgmt_diff &diff, const t_mgmt_report &report,
                                    t_mgmt_values *p_values);
confd_value_t mgmt_report_new_value(const t_mgmt_diff &diff, const t_mgmt_report &report,
                                    t_mgmt_values *p_values);

// Tag values of what changed in the instance itself: leaves, and leaf-lists as whole lists, of it and of its
// containers, which stand in C_XMLBEGIN and C_XMLEND, in the model's order; lists below are left out, and
// containers without a changed leaf. Created: all leaves, keys too. Modified: changed leaves, C_NOEXISTS for
// those that are gone. Deleted: all leaves it had, keys too, as C_NOEXISTS. Each tag
// carries the namespace hash of its node.
t_mgmt_values mgmt_report_modifications(const t_mgmt_diff &diff, const t_mgmt_report &report);
