// Rights over data: what is taken out of a tree, and what of a difference is permitted.

#include "mgmtd/engine/mgmt_engine.h"
#include "mgmtd/rights/mgmt_rights_private.h"

#include <algorithm>

// ---- Reading ----
//
// Most of a tree has one verdict from some container on, for all instances. Such parts of the model are found
// once, and their data is not walked.

enum e_part { PART_KEPT, PART_TAKEN, PART_MIXED };

struct t_filter {
    t_asker asker;
    std::unordered_map<const lysc_node *, e_part> parts;
};

static e_part part_of(t_filter *p_filter, const lysc_node *p_schema);

// The part that a node and what is below it make, from the node's own verdict.
static e_part part_with_children(t_filter *p_filter, const lysc_node *p_schema, e_part own)
{
    for (const lysc_node *p_child = lysc_node_child(p_schema); p_child != nullptr; p_child = p_child->next)
        if (part_of(p_filter, p_child) != own)
            return PART_MIXED;
    return own;
}

static e_part part_make(t_filter *p_filter, const lysc_node *p_schema)
{
    // Choices and cases are no data: what stands in them counts, if anything does.
    if ((p_schema->nodetype & (LYS_CHOICE | LYS_CASE)) != 0) {
        const lysc_node *p_child = lysc_node_child(p_schema);
        return p_child == nullptr ? PART_MIXED
                                  : part_with_children(p_filter, p_schema, part_of(p_filter, p_child));
    }
    switch (rights_data(p_filter->asker, ACCESS_READ, p_schema, nullptr)) {
    case VERDICT_PERMIT:
        return part_with_children(p_filter, p_schema, PART_KEPT);
    case VERDICT_DENY:
        return part_with_children(p_filter, p_schema, PART_TAKEN);
    case VERDICT_DENY_RULE:
        return PART_TAKEN;
    default:
        return PART_MIXED;
    }
}

static e_part part_of(t_filter *p_filter, const lysc_node *p_schema)
{
    auto known = p_filter->parts.find(p_schema);
    if (known != p_filter->parts.end())
        return known->second;
    e_part part = part_make(p_filter, p_schema);
    p_filter->parts.emplace(p_schema, part);
    return part;
}

static void node_remove(lyd_node *p_node, lyd_node **pp_first)
{
    if (*pp_first == p_node)
        *pp_first = p_node->next;
    lyd_free_tree(p_node);
}

static bool is_kept(t_filter *p_filter, lyd_node *p_node);

// Takes children out. False if nothing permitted is left, or if a key had to go: an entry does not stay
// without. is_frame: the node itself is not permitted, so keys stay for the others unless a rule denies them.
static bool children_filter(t_filter *p_filter, lyd_node *p_node, bool is_frame)
{
    bool has_content = false;
    for (lyd_node *p_child = lyd_child(p_node), *p_next = nullptr; p_child != nullptr; p_child = p_next) {
        p_next = p_child->next;
        if (lysc_is_key(p_child->schema)) {
            e_verdict verdict = rights_data(p_filter->asker, ACCESS_READ, p_child->schema, p_child);
            if (verdict != VERDICT_PERMIT && (!is_frame || verdict == VERDICT_DENY_RULE))
                return false;
            has_content = has_content || verdict == VERDICT_PERMIT;
            continue;
        }
        if (is_kept(p_filter, p_child))
            has_content = true;
        else
            lyd_free_tree(p_child);
    }
    return has_content || !is_frame;
}

static bool is_kept(t_filter *p_filter, lyd_node *p_node)
{
    if (p_node->schema == nullptr)
        return false;
    e_part part = part_of(p_filter, p_node->schema);
    if (part != PART_MIXED)
        return part == PART_KEPT;
    e_verdict verdict = rights_data(p_filter->asker, ACCESS_READ, p_node->schema, p_node);
    if (verdict == VERDICT_DENY_RULE || (p_node->schema->nodetype & (LYS_CONTAINER | LYS_LIST)) == 0)
        return verdict == VERDICT_PERMIT;
    return children_filter(p_filter, p_node, verdict != VERDICT_PERMIT);
}

void mgmt_rights_filter(const t_mgmt_rights &rights, const t_mgmt_subject &subject, t_mgmt_tree *p_tree)
{
    if (subject.is_recovery)
        return;
    t_filter filter = {rights_asker(rights, subject), {}};
    if (rights_all(filter.asker, ACCESS_READ))
        return;
    for (lyd_node *p_node = p_tree->p_first, *p_next = nullptr; p_node != nullptr; p_node = p_next) {
        p_next = p_node->next;
        if (!is_kept(&filter, p_node))
            node_remove(p_node, &p_tree->p_first);
    }
    mgmt_tree_changed(p_tree);
}

// ---- Changing ----

struct t_edit_check {
    t_asker asker;
    const t_mgmt_diff &diff;
    const lyd_node *p_denied = nullptr;  // the first node that is not permitted
    e_access denied_access = ACCESS_UPDATE;
};

static bool node_check(t_edit_check *p_check, e_access access, const lyd_node *p_node)
{
    if (rights_data(p_check->asker, access, p_node->schema, p_node) == VERDICT_PERMIT)
        return true;
    p_check->p_denied = p_node;
    p_check->denied_access = access;
    return false;
}

// A node that comes or goes with all below.
static bool whole_check(t_edit_check *p_check, e_access access, const lyd_node *p_node)
{
    if (p_node->schema->nodetype != LYS_CONTAINER && !node_check(p_check, access, p_node))
        return false;
    for (const lyd_node *p_child = lyd_child(p_node); p_child != nullptr; p_child = p_child->next)
        if (!whole_check(p_check, access, p_child))
            return false;
    return true;
}

// The elements of a leaf-list that stand on one side only; first and other are null where there are none.
static bool elements_check(t_edit_check *p_check, e_access access, const lyd_node *p_first,
                           const lyd_node *p_other)
{
    std::unordered_set<std::string_view> others;
    for (const lyd_node *p_node = p_other; p_node != nullptr && p_node->schema == p_other->schema;
         p_node = p_node->next)
        others.insert(lyd_get_value(p_node));
    for (const lyd_node *p_node = p_first; p_node != nullptr && p_node->schema == p_first->schema;
         p_node = p_node->next)
        if (!others.contains(lyd_get_value(p_node)) && !node_check(p_check, access, p_node))
            return false;
    return true;
}

static bool change_check(t_edit_check *p_check, const t_mgmt_diff_node &change)
{
    if (change.schema->kind == SCHEMA_KIND_LEAF_LIST)
        return elements_check(p_check, ACCESS_CREATE, change.p_new, change.p_old) &&
               elements_check(p_check, ACCESS_DELETE, change.p_old, change.p_new);
    if (change.change == MGMT_CREATED)
        return whole_check(p_check, ACCESS_CREATE, change.p_new);
    if (change.change == MGMT_DELETED)
        return whole_check(p_check, ACCESS_DELETE, change.p_old);
    if (change.schema->kind == SCHEMA_KIND_LEAF)
        return node_check(p_check, ACCESS_UPDATE, change.p_new);
    return std::ranges::all_of(change.children,
                               [&](const t_mgmt_diff_node &child) { return change_check(p_check, child); });
}

// The difference does not tell which list's order has changed.
static const t_schema_node *fixed_order_find(const t_asker &asker)
{
    for (const auto &node : asker.rights.p_schema->nodes)
        if (node->config && lysc_is_userordered(node->yang) &&
            rights_data(asker, ACCESS_UPDATE, node->yang, nullptr) != VERDICT_PERMIT)
            return node.get();
    return nullptr;
}

static bool edit_deny(const t_mgmt_rights &rights, const t_mgmt_subject &subject, std::string path,
                      const char *p_verb, t_mgmt_error *p_error)
{
    rights.denials->writes++;
    return mgmt_fail(p_error, MGMT_ERR_ACCESS_DENIED, std::move(path),
                     "access denied: user " + subject.user + " may not " + p_verb + " it");
}

bool mgmt_rights_edit(const t_mgmt_rights &rights, const t_mgmt_subject &subject, const t_mgmt_diff &diff,
                      t_mgmt_error *p_error)
{
    if (mgmt_rights_edits_all(rights, subject))
        return true;
    t_edit_check check = {rights_asker(rights, subject), diff};
    for (const t_mgmt_diff_node &change : diff.tops) {
        if (change_check(&check, change))
            continue;
        bool is_old = check.denied_access == ACCESS_DELETE;
        return edit_deny(rights, subject,
                         mgmt_node_path(is_old ? *diff.old_tree : *diff.new_tree, check.p_denied),
                         is_old                                 ? "delete"
                         : check.denied_access == ACCESS_CREATE ? "create"
                                                                : "change",
                         p_error);
    }
    const t_schema_node *p_fixed = diff.order_changed ? fixed_order_find(check.asker) : nullptr;
    return p_fixed == nullptr || edit_deny(rights, subject, p_fixed->path, "reorder", p_error);
}

bool mgmt_rights_edits_all(const t_mgmt_rights &rights, const t_mgmt_subject &subject)
{
    return subject.is_recovery || rights_all(rights_asker(rights, subject), ACCESS_WRITE);
}
