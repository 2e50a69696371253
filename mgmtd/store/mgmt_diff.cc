#include "mgmtd/store/mgmt_diff.h"

#include "mgmtd/store/mgmt_tree_private.h"

#include <algorithm>

// One level of the comparison: what its pairs have shown so far.
struct t_level {
    t_mgmt_diff *p_diff;
    const lyd_node *p_old_first;
    const lyd_node *p_new_first;
    std::vector<t_mgmt_diff_node> nodes;
    std::vector<const t_schema_node *> changed_leaf_lists;
};

static std::vector<t_mgmt_diff_node> level_compare(t_mgmt_diff *p_diff, const lyd_node *p_old,
                                                   const lyd_node *p_new);

static const t_schema_node *schema_of(const t_level &level, const lyd_node *p_node)
{
    return mgmt_node_schema(*level.p_diff->new_tree, p_node);
}

static void leaf_list_changed(t_level *p_level, const lyd_node *p_element)
{
    const t_schema_node *p_schema = schema_of(*p_level, p_element);
    if (p_schema != nullptr &&
        std::ranges::find(p_level->changed_leaf_lists, p_schema) == p_level->changed_leaf_lists.end())
        p_level->changed_leaf_lists.push_back(p_schema);
}

// A pair of the same instance.
static void pair_compare(t_level *p_level, const lyd_node *p_old, const lyd_node *p_new)
{
    t_mgmt_diff_node node = {nullptr, MGMT_MODIFIED, p_old, p_new, {}};
    switch (p_old->schema->nodetype) {
    case LYS_LEAFLIST:
        return;
    case LYS_LEAF:
        if (mgmt_term_equal(p_old, p_new))
            return;
        break;
    default:
        node.children = level_compare(p_level->p_diff, lyd_child(p_old), lyd_child(p_new));
        if (node.children.empty())
            return;
    }
    node.schema = schema_of(*p_level, p_old);
    if (node.schema != nullptr)
        p_level->nodes.push_back(std::move(node));
}

// A node without its like on the other side.
static void single_add(t_level *p_level, const lyd_node *p_node, e_mgmt_change change)
{
    if (p_node->schema->nodetype == LYS_LEAFLIST) {
        leaf_list_changed(p_level, p_node);
        return;
    }
    bool is_created = change == MGMT_CREATED;
    t_mgmt_diff_node node = {schema_of(*p_level, p_node),
                             change,
                             is_created ? nullptr : p_node,
                             is_created ? p_node : nullptr,
                             {}};
    if (node.schema == nullptr)
        return;
    if (p_node->schema->nodetype == LYS_CONTAINER) {
        // Containers are there always: only what is in them comes or goes.
        node.change = MGMT_MODIFIED;
        node.children = is_created ? level_compare(p_level->p_diff, nullptr, lyd_child(p_node))
                                   : level_compare(p_level->p_diff, lyd_child(p_node), nullptr);
        if (node.children.empty())
            return;
    }
    p_level->nodes.push_back(std::move(node));
}

// The rest of a level, from where the two no longer go in step: each node looks for its like by hash.
static void rest_compare(t_level *p_level, const lyd_node *p_old, const lyd_node *p_new)
{
    // Entries that the user orders and that stand in both, in the order of each.
    std::vector<const lyd_node *> new_order;
    std::vector<const lyd_node *> old_order;
    for (const lyd_node *p_node = p_new; p_node != nullptr; p_node = p_node->next) {
        const lyd_node *p_like = mgmt_like_find(p_level->p_old_first, p_node);
        if (p_like == nullptr) {
            single_add(p_level, p_node, MGMT_CREATED);
            continue;
        }
        pair_compare(p_level, p_like, p_node);
        if (lysc_is_userordered(p_node->schema))
            new_order.push_back(p_like);
    }
    for (const lyd_node *p_node = p_old; p_node != nullptr; p_node = p_node->next) {
        if (mgmt_like_find(p_level->p_new_first, p_node) == nullptr)
            single_add(p_level, p_node, MGMT_DELETED);
        else if (lysc_is_userordered(p_node->schema))
            old_order.push_back(p_node);
    }
    p_level->p_diff->order_changed = p_level->p_diff->order_changed || old_order != new_order;
}

static const lyd_node *first_instance(const lyd_node *p_siblings, const t_schema_node *p_schema)
{
    while (p_siblings != nullptr && p_siblings->schema != p_schema->yang)
        p_siblings = p_siblings->next;
    return p_siblings;
}

static void leaf_lists_add(t_level *p_level)
{
    for (const t_schema_node *p_schema : p_level->changed_leaf_lists) {
        const lyd_node *p_old = first_instance(p_level->p_old_first, p_schema);
        const lyd_node *p_new = first_instance(p_level->p_new_first, p_schema);
        e_mgmt_change change = p_old == nullptr   ? MGMT_CREATED
                               : p_new == nullptr ? MGMT_DELETED
                                                  : MGMT_MODIFIED;
        p_level->nodes.push_back({p_schema, change, p_old, p_new, {}});
    }
}

// Puts the nodes of one list in key order; begin and end are positions in nodes.
static void list_sort(std::vector<t_mgmt_diff_node> *p_nodes, size_t begin, size_t end)
{
    std::vector<const lyd_node *> entries;
    for (size_t i = begin; i < end; i++)
        entries.push_back((*p_nodes)[i].p_new != nullptr ? (*p_nodes)[i].p_new : (*p_nodes)[i].p_old);
    std::vector<t_mgmt_diff_node> sorted;
    for (uint32_t position : mgmt_key_order((*p_nodes)[begin].schema, entries))
        sorted.push_back(std::move((*p_nodes)[begin + position]));
    std::move(sorted.begin(), sorted.end(), p_nodes->begin() + static_cast<ptrdiff_t>(begin));
}

static void level_sort(std::vector<t_mgmt_diff_node> *p_nodes)
{
    auto by_order = [](const t_mgmt_diff_node &left, const t_mgmt_diff_node &right) {
        return left.schema->order < right.schema->order;
    };
    if (!std::is_sorted(p_nodes->begin(), p_nodes->end(), by_order))
        std::stable_sort(p_nodes->begin(), p_nodes->end(), by_order);
    for (size_t begin = 0; begin < p_nodes->size();) {
        size_t end = begin + 1;
        while (end < p_nodes->size() && (*p_nodes)[end].schema == (*p_nodes)[begin].schema)
            end++;
        if (end - begin > 1)
            list_sort(p_nodes, begin, end);
        begin = end;
    }
}

static std::vector<t_mgmt_diff_node> level_compare(t_mgmt_diff *p_diff, const lyd_node *p_old,
                                                   const lyd_node *p_new)
{
    t_level level = {p_diff, p_old, p_new, {}, {}};
    while (p_old != nullptr && p_new != nullptr && mgmt_node_same(p_old, p_new)) {
        pair_compare(&level, p_old, p_new);
        p_old = p_old->next;
        p_new = p_new->next;
    }
    rest_compare(&level, p_old, p_new);
    leaf_lists_add(&level);
    level_sort(&level.nodes);
    return std::move(level.nodes);
}

t_mgmt_diff mgmt_diff_new(mgmt_tree_ptr old_tree, mgmt_tree_ptr new_tree)
{
    t_mgmt_diff diff = {std::move(old_tree), std::move(new_tree), false, {}};
    diff.tops = level_compare(&diff, diff.old_tree->p_first, diff.new_tree->p_first);
    return diff;
}
