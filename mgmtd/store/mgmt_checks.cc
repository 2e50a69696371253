#include "mgmtd/store/mgmt_checks.h"

#include "mgmtd/store/mgmt_report.h"
#include "mgmtd/store/mgmt_tree_private.h"

#include <algorithm>

// ---- The kind of an application list ----
//
// A list that stays may not change from applications to families or back in one commit: subscribers hear of
// the new members before the old ones have gone.

static bool kind_is_kept(const t_mgmt_diff &diff, const t_mgmt_report &list, t_mgmt_error *p_error)
{
    const t_schema_node *p_went = nullptr;
    const t_schema_node *p_came = nullptr;
    for (const t_mgmt_diff_node &member : list.p_diff->children) {
        if (member.schema->choice.empty())
            continue;
        if (member.change == MGMT_DELETED)
            p_went = member.schema;
        if (member.change == MGMT_CREATED)
            p_came = member.schema;
    }
    bool is_switched = p_went != nullptr && p_came != nullptr && p_went->choice_case != p_came->choice_case;
    return !is_switched || mgmt_fail(p_error, MGMT_ERR_BADSTATE, mgmt_node_path(*diff.new_tree, list.p_new),
                                     "a list can't change from " + std::string(p_went->name) + " to " +
                                         std::string(p_came->name) + " in one commit; remove the list first");
}

static bool app_list_kinds_check(const t_mgmt_diff &diff, t_mgmt_error *p_error)
{
    for (const char *p_path : {"/policy/lists/app-list", "/policy-from-keelson/lists/app-list"}) {
        const t_schema_node *p_schema = schema_find(*diff.new_tree->p_schema, p_path);
        if (p_schema == nullptr)
            continue;
        for (const t_mgmt_report &list : mgmt_report_instances(diff, p_schema)) {
            if (list.p_diff != nullptr && !kind_is_kept(diff, list, p_error))
                return false;
        }
    }
    return true;
}

// ---- Applications in access lists ----
//
// The policy daemon takes the application lists of an access list's sequence only when the sequence is new.

static bool applications_are_kept(const t_mgmt_diff &diff, const t_mgmt_diff_node &change,
                                  t_mgmt_error *p_error)
{
    bool is_application = change.schema->name == "app-list" || change.schema->name == "dns-app-list";
    if (is_application && change.change != MGMT_DELETED)
        return mgmt_fail(
            p_error, MGMT_ERR_BADSTATE, mgmt_node_path(*diff.new_tree, change.p_new),
            "applications can't be set in a sequence that is in force; remove the sequence in a commit "
            "before");
    return std::ranges::all_of(change.children, [&](const t_mgmt_diff_node &child) {
        return applications_are_kept(diff, child, p_error);
    });
}

static bool access_list_applications_check(const t_mgmt_diff &diff, t_mgmt_error *p_error)
{
    const t_schema_node *p_sequence = schema_find(*diff.new_tree->p_schema, "/policy/access-list/sequence");
    if (p_sequence == nullptr)
        return true;
    return std::ranges::all_of(mgmt_report_instances(diff, p_sequence), [&](const t_mgmt_report &sequence) {
        return sequence.p_diff == nullptr || applications_are_kept(diff, *sequence.p_diff, p_error);
    });
}

// ---- All ----

bool mgmt_checks_run(const t_mgmt_diff &diff, t_mgmt_error *p_error)
{
    return app_list_kinds_check(diff, p_error) && access_list_applications_check(diff, p_error);
}
