// What a user may do: groups, and the rules of the configuration.
//
// Rights are compiled from a configuration and never change afterwards; a new running configuration makes new
// ones. They follow the standard access-control model (RFC 8341): the rule lists under /nacm are asked first,
// in their order; what none of them decides and has a default-deny mark in the model is for administrators
// alone, and so are kill-session and delete-config. Then come three built-in groups: "read-only" (reads all;
// get, get-config, get-schema, subscriptions), "operator" (also actions with "clear", "debug" or "dump" as a
// word of their name) and "admin" (everything). Then the defaults under /nacm, which deny when they are
// absent. A user's groups are that of /users and those of /nacm/groups; without any, everything is denied
// but close-session, whatever the rules and the defaults say. Rules that are switched off (enable-nacm) open
// nothing: the built-in groups stay.
//
// A recovery subject (root on the same machine) is not asked at all, so that wrong rules can be mended.
//
// Any thread may ask; filtering changes only its tree.
#pragma once

#include "mgmtd/store/mgmt_diff.h"

struct lysc_node;
struct t_mgmt_rights;
using mgmt_rights_ptr = std::shared_ptr<const t_mgmt_rights>;

// Who asks.
struct t_mgmt_subject {
    std::string user;
    std::vector<std::string> groups;
    bool is_recovery = false;
};

// Compiles the rights of a configuration. Never fails: rules that name unknown nodes match nothing. The
// denials that `before` has counted go on counting.
mgmt_rights_ptr mgmt_rights_new(const t_mgmt_tree &config, const mgmt_rights_ptr &before = nullptr);

// A user's subject, with all groups. A user that is not configured has those of /nacm/groups only.
t_mgmt_subject mgmt_rights_subject(const t_mgmt_rights &rights, const std::string &user);

// Whether an operation may be called: an rpc or an action of the model, NETCONF's own ones included. The
// error has MGMT_ERR_ACCESS_DENIED (mgmt_engine.h), the operation's path and a reason that names the user.
[[nodiscard]] bool mgmt_rights_exec(const t_mgmt_rights &rights, const t_mgmt_subject &subject,
                                    const lysc_node *p_operation, t_mgmt_error *p_error);

// Whether a notification may be told.
[[nodiscard]] bool mgmt_rights_notified(const t_mgmt_rights &rights, const t_mgmt_subject &subject,
                                        const lysc_node *p_notification);

// Takes out of a tree what the subject may not read. Cheap for who may read everything. Containers and list
// entries around something that is permitted stay, with their keys, unless a rule denies them.
void mgmt_rights_filter(const t_mgmt_rights &rights, const t_mgmt_subject &subject, t_mgmt_tree *p_tree);

// Whether all changes of a difference are permitted: each leaf and list entry that came, went or has another
// value; containers need nothing. Where the order of entries has changed, updating must be permitted for
// every list that the user orders. The error names the first node that is not permitted.
[[nodiscard]] bool mgmt_rights_edit(const t_mgmt_rights &rights, const t_mgmt_subject &subject,
                                    const t_mgmt_diff &diff, t_mgmt_error *p_error);

// Whether mgmt_rights_edit permits every difference, so that none needs to be made.
bool mgmt_rights_edits_all(const t_mgmt_rights &rights, const t_mgmt_subject &subject);

// Denials since the start, over all rights that were made from each other.
struct t_mgmt_denials {
    uint32_t operations;
    uint32_t writes;
    uint32_t notifications;
};
t_mgmt_denials mgmt_rights_denials(const t_mgmt_rights &rights);

// Sets the counters of denials below /nacm in a tree of state, before it is filtered.
void mgmt_rights_add_state(const t_mgmt_rights &rights, t_mgmt_tree *p_tree);
