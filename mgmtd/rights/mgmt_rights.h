// What a user may do: groups, the model's own rules, and users' logins.
//
// Rights are compiled from a configuration and never change afterwards; a new running configuration makes new
// ones. They follow the standard access-control model (RFC 8341): the rule lists under /nacm are asked first,
// in their order, and after them stand three built-in groups: "read-only" (reads all that has no
// default-deny-all mark; get, get-config, get-schema, subscriptions), "operator" (also clear, debug and dump
// actions) and "admin" (everything). What no rule permits is denied, but for close-session, and so is
// everything for a user without a group. A user's groups are that of /users and those of /nacm/groups.
//
// A recovery subject (root on the same machine) is not asked at all, so that wrong rules can be mended.
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

// Compiles the rights of a configuration. Never fails: rules that name unknown nodes match nothing.
mgmt_rights_ptr mgmt_rights_new(const t_mgmt_tree &config);

// A user's subject, with all groups. A user that is not configured has those of /nacm/groups only.
t_mgmt_subject mgmt_rights_subject(const t_mgmt_rights &rights, const std::string &user);

// Whether an operation may be called: an rpc or an action of the model, NETCONF's own ones included. The
// error has MGMT_ERR_ACCESS_DENIED (mgmt_engine.h), the operation's path and a reason that names the user.
[[nodiscard]] bool mgmt_rights_exec(const t_mgmt_rights &rights, const t_mgmt_subject &subject,
                                    const lysc_node *p_operation, t_mgmt_error *p_error);

// Whether a notification may be told.
[[nodiscard]] bool mgmt_rights_notified(const t_mgmt_rights &rights, const t_mgmt_subject &subject,
                                        const lysc_node *p_notification);

// Takes out of a tree what the subject may not read. Cheap for who may read everything.
void mgmt_rights_filter(const t_mgmt_rights &rights, const t_mgmt_subject &subject, t_mgmt_tree *p_tree);

// Whether all changes of a difference are permitted. The error names the first node that is not.
[[nodiscard]] bool mgmt_rights_edit(const t_mgmt_rights &rights, const t_mgmt_subject &subject,
                                    const t_mgmt_diff &diff, t_mgmt_error *p_error);

// Whether mgmt_rights_edit permits every difference, so that none needs to be made.
bool mgmt_rights_edits_all(const t_mgmt_rights &rights, const t_mgmt_subject &subject);
