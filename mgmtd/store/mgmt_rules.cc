#include "mgmtd/store/mgmt_rules.h"

#include "mgmtd/store/mgmt_tree_private.h"

#include <algorithm>
#include <new>

// ---- What the model's expressions look at ----

struct t_set_deleter {
    void operator()(ly_set *p_set) const
    {
        ly_set_free(p_set, nullptr);
    }
};

// The innermost list around a node, or the node itself if it is one; null if there is none.
static const lysc_node *list_around(const lysc_node *p_node)
{
    while (p_node != nullptr && p_node->nodetype != LYS_LIST)
        p_node = p_node->parent;
    return p_node;
}

static std::span<lysc_node *const> nodes_of(const ly_set &set)
{
    return {set.snodes, set.count};
}

// Whether the expression may leave the list entry that it stands in: by a parent step, or by a path from the
// top, whose slash follows neither a name nor a bracket.
static bool leaves_entry(std::string_view expression)
{
    char before = ' ';
    for (char character : expression) {
        if (character == '/' && std::string_view(" ([=,|").find(before) != std::string_view::npos)
            return true;
        if (character == '.' && before == '.')
            return true;
        before = character;
    }
    return false;
}

// An expression that looks at its own entry only: lists in it must stay whole wherever the entry is
// validated.
static void local_expression_add(t_mgmt_rules *p_rules, const ly_set &atoms, const lysc_node *p_home)
{
    for (const lysc_node *p_atom : nodes_of(atoms)) {
        const lysc_node *p_list = list_around(p_atom);
        for (; p_list != nullptr && p_list != p_home; p_list = list_around(p_list->parent))
            p_rules->kept.insert(p_list);
    }
}

// Adds what an expression at a node looks at. False if that can't be told.
static bool expression_add(t_mgmt_rules *p_rules, const t_schema_index &index, const t_schema_node *p_schema,
                           const lyxp_expr *p_expression, const lysc_prefix *p_prefixes)
{
    ly_set *p_found = nullptr;
    if (lys_find_expr_atoms(p_schema->yang, p_schema->yang->module, p_expression, p_prefixes, 0, &p_found) !=
        LY_SUCCESS)
        return false;
    std::unique_ptr<ly_set, t_set_deleter> atoms(p_found);
    const lysc_node *p_home = list_around(p_schema->yang);
    if (!leaves_entry(lyxp_get_expr(p_expression))) {
        local_expression_add(p_rules, *atoms, p_home);
        return true;
    }
    // The node itself is only meant as such ("." or current()) when no step led to it through its list.
    bool visits_home = std::ranges::find(nodes_of(*atoms), p_home) != nodes_of(*atoms).end();
    for (const lysc_node *p_atom : nodes_of(*atoms)) {
        const t_schema_node *p_node = schema_node_of(index, p_atom);
        if (p_node != nullptr && (p_atom != p_schema->yang || visits_home))
            p_rules->referred.insert(p_node);
    }
    return true;
}

static bool type_add(t_mgmt_rules *p_rules, const t_schema_index &index, const t_schema_node *p_schema,
                     const lysc_type *p_type)
{
    if (p_type->basetype == LY_TYPE_LEAFREF) {
        const auto *p_leafref = reinterpret_cast<const lysc_type_leafref *>(p_type);
        return expression_add(p_rules, index, p_schema, p_leafref->path, p_leafref->prefixes);
    }
    if (p_type->basetype != LY_TYPE_UNION)
        return p_type->basetype != LY_TYPE_INST;
    lysc_type **pp_members = reinterpret_cast<const lysc_type_union *>(p_type)->types;
    for (size_t i = 0; i < LY_ARRAY_COUNT(pp_members); i++) {
        if (!type_add(p_rules, index, p_schema, pp_members[i]))
            return false;
    }
    return true;
}

static bool has_when(const lysc_node *p_node)
{
    // Choices and cases around the node count as the node's own.
    do {
        if (lysc_node_when(p_node) != nullptr)
            return true;
        p_node = p_node->parent;
    } while (p_node != nullptr && (p_node->nodetype & (LYS_CHOICE | LYS_CASE)) != 0);
    return false;
}

// Everything about one node; false if the model can't be pruned.
static bool node_add(t_mgmt_rules *p_rules, const t_schema_index &index, const t_schema_node *p_schema)
{
    if (has_when(p_schema->yang))
        return false;
    lysc_must *p_musts = lysc_node_musts(p_schema->yang);
    for (size_t i = 0; i < LY_ARRAY_COUNT(p_musts); i++) {
        if (!expression_add(p_rules, index, p_schema, p_musts[i].cond, p_musts[i].prefixes))
            return false;
    }
    if (p_schema->kind == SCHEMA_KIND_LEAF) {
        const auto *p_leaf = reinterpret_cast<const lysc_node_leaf *>(p_schema->yang);
        return p_leaf->dflt == nullptr && type_add(p_rules, index, p_schema, p_leaf->type);
    }
    if (p_schema->kind == SCHEMA_KIND_LEAF_LIST) {
        const auto *p_leaf_list = reinterpret_cast<const lysc_node_leaflist *>(p_schema->yang);
        return p_leaf_list->dflts == nullptr && type_add(p_rules, index, p_schema, p_leaf_list->type);
    }
    return true;
}

static bool is_referred_below(const t_mgmt_rules &rules, const t_schema_node *p_schema)
{
    return rules.referred.contains(p_schema) ||
           std::ranges::any_of(p_schema->children, [&](const t_schema_node *p_child) {
               return is_referred_below(rules, p_child);
           });
}

static bool is_prunable(const t_mgmt_rules &rules, const t_schema_node *p_schema)
{
    if (p_schema->kind != SCHEMA_KIND_LIST || !p_schema->config)
        return false;
    const auto *p_list = reinterpret_cast<const lysc_node_list *>(p_schema->yang);
    bool is_counted =
        p_list->uniques != nullptr || p_list->min != 0 || (p_list->max != 0 && p_list->max != UINT32_MAX);
    return !is_counted && !rules.kept.contains(p_schema->yang) && !is_referred_below(rules, p_schema);
}

std::shared_ptr<const t_mgmt_rules> mgmt_rules_new(const t_schema_index &index)
{
    auto rules = std::make_shared<t_mgmt_rules>();
    rules->can_prune = std::ranges::all_of(index.nodes, [&](const auto &node) {
        return !node->config || node_add(rules.get(), index, node.get());
    });
    for (const auto &node : index.nodes) {
        if (is_prunable(*rules, node.get()))
            rules->prunable.insert(node->yang);
    }
    return rules;
}

// ---- One change ----

// Whether no other entry can become wrong by the change.
static bool is_harmless(const t_mgmt_rules &rules, const t_mgmt_diff_node &change)
{
    bool is_inner = change.schema->kind == SCHEMA_KIND_CONTAINER || change.schema->kind == SCHEMA_KIND_LIST;
    if (is_inner && change.change == MGMT_MODIFIED)
        return std::ranges::all_of(change.children,
                                   [&](const t_mgmt_diff_node &child) { return is_harmless(rules, child); });
    return !is_referred_below(rules, change.schema);
}

static lyd_node *node_copy(const lyd_node *p_node, lyd_node *p_parent, uint32_t options)
{
    lyd_node *p_copy = nullptr;
    if (lyd_dup_single(p_node, reinterpret_cast<lyd_node_inner *>(p_parent), options, &p_copy) != LY_SUCCESS)
        throw std::bad_alloc();
    return p_copy;
}

static void level_copy(const t_mgmt_rules &rules, const lyd_node *p_first,
                       const std::vector<t_mgmt_diff_node> &changes, lyd_node *p_parent);

using t_changes = std::unordered_map<const lyd_node *, const t_mgmt_diff_node *>;

// The changes of one level by their new nodes.
static t_changes changes_by_node(const std::vector<t_mgmt_diff_node> &changes)
{
    t_changes by_node;
    for (const t_mgmt_diff_node &change : changes) {
        if (change.p_new != nullptr)
            by_node[change.p_new] = &change;
    }
    return by_node;
}

static const t_mgmt_diff_node *change_of(const t_changes &changes, const lyd_node *p_node)
{
    auto place = changes.find(p_node);
    return place != changes.end() ? place->second : nullptr;
}

// A container or entry: itself and its keys, then what is kept below.
static lyd_node *inner_copy(const t_mgmt_rules &rules, const lyd_node *p_node,
                            const t_mgmt_diff_node *p_change, lyd_node *p_parent)
{
    static const std::vector<t_mgmt_diff_node> none;
    if (p_change != nullptr && p_change->p_old == nullptr && p_node->schema->nodetype == LYS_LIST)
        return node_copy(p_node, p_parent, LYD_DUP_RECURSIVE);
    lyd_node *p_copy = node_copy(p_node, p_parent, 0);
    level_copy(rules, lyd_child_no_keys(p_node), p_change != nullptr ? p_change->children : none, p_copy);
    return p_copy;
}

static void level_copy(const t_mgmt_rules &rules, const lyd_node *p_first,
                       const std::vector<t_mgmt_diff_node> &changes, lyd_node *p_parent)
{
    t_changes by_node = changes_by_node(changes);
    for (const lyd_node *p_node = p_first; p_node != nullptr; p_node = p_node->next) {
        bool is_inner = (p_node->schema->nodetype & (LYS_CONTAINER | LYS_LIST)) != 0;
        if (!is_inner)
            node_copy(p_node, p_parent, 0);
        else if (!rules.prunable.contains(p_node->schema))
            inner_copy(rules, p_node, change_of(by_node, p_node), p_parent);
    }
    for (const t_mgmt_diff_node &change : changes) {
        if (change.p_new != nullptr && rules.prunable.contains(change.schema->yang))
            inner_copy(rules, change.p_new, &change, p_parent);
    }
}

static mgmt_work_tree_ptr pruned_copy(const t_mgmt_rules &rules, const t_mgmt_diff &diff)
{
    mgmt_work_tree_ptr tree = mgmt_tree_new(diff.new_tree->p_schema, diff.new_tree->p_context);
    t_changes by_node = changes_by_node(diff.tops);
    for (const lyd_node *p_node = diff.new_tree->p_first; p_node != nullptr; p_node = p_node->next) {
        bool is_container = p_node->schema->nodetype == LYS_CONTAINER;
        lyd_node *p_copy = is_container ? inner_copy(rules, p_node, change_of(by_node, p_node), nullptr)
                                        : node_copy(p_node, nullptr, LYD_DUP_RECURSIVE);
        if (lyd_insert_sibling(tree->p_first, p_copy, &tree->p_first) != LY_SUCCESS)
            throw std::bad_alloc();
    }
    return tree;
}

bool mgmt_rules_validate(const t_mgmt_rules &rules, const t_mgmt_diff &diff, t_mgmt_tree *p_tree,
                         t_mgmt_error *p_error)
{
    bool can_prune = rules.can_prune && std::ranges::all_of(diff.tops, [&](const t_mgmt_diff_node &change) {
                         return is_harmless(rules, change);
                     });
    return can_prune ? mgmt_tree_validate(pruned_copy(rules, diff).get(), p_error)
                     : mgmt_tree_validate(p_tree, p_error);
}
