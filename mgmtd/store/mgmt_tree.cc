#include "mgmtd/store/mgmt_tree.h"

#include "mgmtd/store/mgmt_path.h"
#include "mgmtd/store/mgmt_tree_private.h"

#include <cstring>
#include <new>
#include <utility>

// ---- Making ----

t_mgmt_tree::t_mgmt_tree(const t_schema_index *p_index, const ly_ctx *p_ctx)
    : p_schema(p_index), p_context(p_ctx), p_first(nullptr)
{}

t_mgmt_tree::~t_mgmt_tree()
{
    lyd_free_all(p_first);
}

mgmt_work_tree_ptr mgmt_tree_new(const t_schema_index *p_index, const ly_ctx *p_ctx)
{
    // libyang's own temporary settings do not outlast its calls, so this is for the whole process.
    ly_log_options(LY_LOSTORE_LAST);
    return std::make_shared<t_mgmt_tree>(p_index, p_ctx);
}

mgmt_work_tree_ptr mgmt_tree_copy(const t_mgmt_tree &tree)
{
    mgmt_work_tree_ptr copy = mgmt_tree_new(tree.p_schema, tree.p_context);
    if (tree.p_first != nullptr &&
        lyd_dup_siblings(tree.p_first, nullptr, LYD_DUP_RECURSIVE | LYD_DUP_WITH_FLAGS, &copy->p_first) !=
            LY_SUCCESS)
        throw std::bad_alloc();
    return copy;
}

void mgmt_tree_changed(t_mgmt_tree *p_tree)
{
    p_tree->sorted.clear();
}

void mgmt_tree_swap(t_mgmt_tree *p_left, t_mgmt_tree *p_right)
{
    std::swap(p_left->p_first, p_right->p_first);
    mgmt_tree_changed(p_left);
    mgmt_tree_changed(p_right);
}

// ---- Looking ----

const t_schema_node *mgmt_node_schema(const t_mgmt_tree &tree, const lyd_node *p_node)
{
    return p_node->schema != nullptr ? schema_node_of(*tree.p_schema, p_node->schema) : nullptr;
}

lyd_node *mgmt_first_child(const t_mgmt_tree &tree, const lyd_node *p_parent)
{
    return p_parent != nullptr ? lyd_child(p_parent) : tree.p_first;
}

const lyd_node *mgmt_node_parent(const lyd_node *p_node)
{
    return lyd_parent(p_node);
}

bool mgmt_node_is_empty(const lyd_node *p_node)
{
    if (p_node->schema == nullptr || p_node->schema->nodetype != LYS_CONTAINER)
        return false;
    for (const lyd_node *p_child = lyd_child(p_node); p_child != nullptr; p_child = p_child->next) {
        if (!mgmt_node_is_empty(p_child))
            return false;
    }
    return true;
}

const char *mgmt_node_text(const lyd_node *p_node)
{
    return lyd_get_value(p_node);
}

const lyd_node *mgmt_tree_child(const t_mgmt_tree &tree, const lyd_node *p_parent,
                                const t_schema_node *p_schema)
{
    lyd_node *p_children = mgmt_first_child(tree, p_parent);
    lyd_node *p_found = nullptr;
    if (p_schema->kind == SCHEMA_KIND_LEAF_LIST) {
        // libyang finds elements by value only.
        for (p_found = p_children; p_found != nullptr && p_found->schema != p_schema->yang;)
            p_found = p_found->next;
        return p_found;
    }
    if (p_children == nullptr ||
        lyd_find_sibling_val(p_children, p_schema->yang, nullptr, 0, &p_found) != LY_SUCCESS)
        return nullptr;
    return mgmt_node_is_empty(p_found) ? nullptr : p_found;
}

std::span<const lyd_node *const> mgmt_tree_entries(const t_mgmt_tree &tree, const lyd_node *p_parent,
                                                   const t_schema_node *p_list)
{
    auto [place, is_new] = tree.sorted.try_emplace({p_parent, p_list});
    if (is_new)
        place->second = mgmt_sorted_instances(mgmt_tree_child(tree, p_parent, p_list), p_list);
    return place->second;
}

// ---- One entry by its keys ----

// "[name='a']", as libyang looks an entry up; false if a key holds both kinds of quotes.
static bool predicate_make(const t_schema_node *p_list, std::span<const std::string> keys,
                           std::string *p_predicate)
{
    for (size_t i = 0; i < keys.size(); i++) {
        char quote = keys[i].find('\'') == std::string::npos ? '\'' : '"';
        if (keys[i].find(quote) != std::string::npos)
            return false;
        *p_predicate += "[" + std::string(p_list->keys[i]->name) + "=" + quote + keys[i] + quote + "]";
    }
    return true;
}

static bool keys_equal(const lyd_node *p_entry, std::span<const std::string> keys)
{
    const lyd_node *p_key = lyd_child(p_entry);
    for (const std::string &key : keys) {
        if (key != lyd_get_value(p_key))
            return false;
        p_key = p_key->next;
    }
    return true;
}

// For keys that no predicate can hold; they are texts, so there is no other form of them.
static lyd_node *entry_search(lyd_node *p_children, const t_schema_node *p_list,
                              std::span<const std::string> keys)
{
    for (lyd_node *p_node = p_children; p_node != nullptr; p_node = p_node->next) {
        if (p_node->schema == p_list->yang && keys_equal(p_node, keys))
            return p_node;
    }
    return nullptr;
}

LY_ERR mgmt_node_find(const t_mgmt_tree &tree, const lyd_node *p_parent, const t_schema_node *p_schema,
                      std::span<const std::string> keys, lyd_node **pp_found)
{
    *pp_found = nullptr;
    lyd_node *p_children = mgmt_first_child(tree, p_parent);
    if (p_children == nullptr)
        return LY_ENOTFOUND;
    LY_ERR result;
    if (p_schema->kind == SCHEMA_KIND_LIST) {
        std::string predicate;
        if (!predicate_make(p_schema, keys, &predicate)) {
            *pp_found = entry_search(p_children, p_schema, keys);
            return *pp_found != nullptr ? LY_SUCCESS : LY_ENOTFOUND;
        }
        result =
            lyd_find_sibling_val(p_children, p_schema->yang, predicate.data(), predicate.size(), pp_found);
    } else {
        result = lyd_find_sibling_val(p_children, p_schema->yang, keys[0].data(), keys[0].size(), pp_found);
    }
    return result == LY_SUCCESS || result == LY_ENOTFOUND ? result : LY_EVALID;
}

const lyd_node *mgmt_tree_entry(const t_mgmt_tree &tree, const lyd_node *p_parent,
                                const t_schema_node *p_list, std::span<const std::string> keys)
{
    lyd_node *p_found = nullptr;
    return mgmt_node_find(tree, p_parent, p_list, keys, &p_found) == LY_SUCCESS ? p_found : nullptr;
}

// ---- Instances ----

bool mgmt_term_equal(const lyd_node *p_left, const lyd_node *p_right)
{
    // Canonical texts of one context stand in its dictionary once.
    const char *p_left_text = lyd_get_value(p_left);
    const char *p_right_text = lyd_get_value(p_right);
    return p_left_text == p_right_text || strcmp(p_left_text, p_right_text) == 0;
}

bool mgmt_node_same(const lyd_node *p_left, const lyd_node *p_right)
{
    if (p_left->schema != p_right->schema)
        return false;
    if (p_left->schema->nodetype == LYS_LEAFLIST)
        return mgmt_term_equal(p_left, p_right);
    if (p_left->schema->nodetype != LYS_LIST)
        return true;
    const lyd_node *p_left_key = lyd_child(p_left);
    const lyd_node *p_right_key = lyd_child(p_right);
    for (; p_left_key != nullptr && (p_left_key->schema->flags & LYS_KEY) != 0;
         p_left_key = p_left_key->next) {
        if (!mgmt_term_equal(p_left_key, p_right_key))
            return false;
        p_right_key = p_right_key->next;
    }
    return true;
}

const lyd_node *mgmt_like_find(const lyd_node *p_siblings, const lyd_node *p_node)
{
    lyd_node *p_found = nullptr;
    if (p_siblings == nullptr)
        return nullptr;
    // A leaf is looked up by name: its value may differ.
    if ((p_node->schema->nodetype & (LYS_LIST | LYS_LEAFLIST)) == 0)
        lyd_find_sibling_val(p_siblings, p_node->schema, nullptr, 0, &p_found);
    else
        lyd_find_sibling_first(p_siblings, p_node, &p_found);
    return p_found;
}

// ---- Paths ----

std::string mgmt_step_text(const t_schema_node *p_schema, std::span<const std::string> keys)
{
    std::string text(p_schema->name);
    for (size_t i = 0; i < keys.size(); i++)
        text += (i == 0 ? "{" : " ") + mgmt_path_quote(keys[i]);
    return keys.empty() ? text : text + "}";
}

static std::vector<std::string> keys_of(const t_schema_node *p_schema, const lyd_node *p_node)
{
    std::vector<std::string> keys;
    if (p_schema->kind == SCHEMA_KIND_LEAF_LIST)
        keys.emplace_back(lyd_get_value(p_node));
    const lyd_node *p_key = p_schema->kind == SCHEMA_KIND_LIST ? lyd_child(p_node) : nullptr;
    for (size_t i = 0; i < p_schema->keys.size(); i++, p_key = p_key->next)
        keys.emplace_back(lyd_get_value(p_key));
    return keys;
}

std::string mgmt_node_path(const t_mgmt_tree &tree, const lyd_node *p_node)
{
    std::vector<std::string> steps;
    for (; p_node != nullptr; p_node = lyd_parent(p_node)) {
        const t_schema_node *p_schema = mgmt_node_schema(tree, p_node);
        if (p_schema != nullptr)
            steps.push_back(mgmt_step_text(p_schema, keys_of(p_schema, p_node)));
    }
    std::string path;
    for (size_t i = steps.size(); i-- > 0;)
        path += "/" + steps[i];
    return path.empty() ? "/" : path;
}

// ---- Equality ----

static size_t content_count(const lyd_node *p_first)
{
    size_t count = 0;
    for (; p_first != nullptr; p_first = p_first->next)
        count += mgmt_node_is_empty(p_first) ? 0 : 1;
    return count;
}

static bool siblings_equal(const lyd_node *p_left, const lyd_node *p_right);

static bool nodes_equal(const lyd_node *p_left, const lyd_node *p_right)
{
    if ((p_left->schema->nodetype & (LYS_LEAF | LYS_LEAFLIST)) != 0)
        return mgmt_term_equal(p_left, p_right);
    return siblings_equal(lyd_child(p_left), lyd_child(p_right));
}

// Each left one with content has its equal on the right, and there are as many.
static bool siblings_equal(const lyd_node *p_left, const lyd_node *p_right)
{
    if (content_count(p_left) != content_count(p_right))
        return false;
    const lyd_node *p_guess = p_right;
    for (; p_left != nullptr; p_left = p_left->next) {
        if (mgmt_node_is_empty(p_left))
            continue;
        while (p_guess != nullptr && mgmt_node_is_empty(p_guess))
            p_guess = p_guess->next;
        if (p_guess != nullptr && mgmt_node_same(p_left, p_guess)) {
            if (!nodes_equal(p_left, p_guess))
                return false;
        } else {
            const lyd_node *p_match =
                lysc_is_userordered(p_left->schema) ? nullptr : mgmt_like_find(p_right, p_left);
            if (p_match == nullptr || !nodes_equal(p_left, p_match))
                return false;
        }
        p_guess = p_guess != nullptr ? p_guess->next : nullptr;
    }
    return true;
}

bool mgmt_tree_equal(const t_mgmt_tree &left, const t_mgmt_tree &right)
{
    return siblings_equal(left.p_first, right.p_first);
}
