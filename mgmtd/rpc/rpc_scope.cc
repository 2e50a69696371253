// Where a filter can select anything, and a copy of that.

#include "mgmtd/rpc/rpc_filter.h"
#include "mgmtd/rpc/rpc_filter_private.h"

#include <algorithm>
#include <new>

// ---- Subtrees ----

// The values of all keys of a list, if the filter names each of them.
static std::vector<std::string> keys_named(const t_rpc_element &element, const t_schema_node *p_list)
{
    std::vector<std::string> keys;
    for (const t_schema_node *p_key : p_list->keys)
        for (const t_rpc_element &child : element.children)
            if (rpc_is_content_match(child) && rpc_element_is(child, p_key->yang)) {
                keys.push_back(child.text);
                break;
            }
    return keys.size() == p_list->keys.size() ? keys : std::vector<std::string>();
}

static void element_scope(const t_rpc_element &element, const t_mgmt_path &around,
                          const t_schema_node *p_node, t_rpc_scope *p_scope);

static void below_scope(const t_rpc_element &element, const t_mgmt_path &path, const t_schema_node *p_node,
                        t_rpc_scope *p_scope)
{
    for (const t_rpc_element &child : element.children)
        for (const t_schema_node *p_child : p_node->children)
            if (rpc_element_is(child, p_child->yang))
                element_scope(child, path, p_child, p_scope);
}

// The paths below which an element that stands for p_node can select.
static void element_scope(const t_rpc_element &element, const t_mgmt_path &around,
                          const t_schema_node *p_node, t_rpc_scope *p_scope)
{
    t_mgmt_path path = around;
    t_mgmt_step &step = path.steps.emplace_back();
    step.schema = p_node;
    if (p_node->kind == SCHEMA_KIND_LIST)
        step.keys = keys_named(element, p_node);
    auto is_other = [&](const t_rpc_element &child) { return !rpc_is_content_match(child); };
    size_t matches =
        element.children.size() - static_cast<size_t>(std::ranges::count_if(element.children, is_other));
    // A match of anything but the keys has to see the values; without a selection all is selected.
    if (matches == element.children.size() || matches > step.keys.size())
        p_scope->paths.push_back(std::move(path));
    else
        below_scope(element, path, p_node, p_scope);
}

static t_rpc_scope subtree_scope(const t_rpc_filter &filter, const t_schema_index &index)
{
    t_rpc_scope scope = {.is_everything = false, .paths = {}};
    for (const t_rpc_element &top : filter.tops)
        for (const t_schema_node *p_node : index.tops)
            if (rpc_element_is(top, p_node->yang))
                element_scope(top, {}, p_node, &scope);
    return scope;
}

// ---- XPath ----

// The end of a bracketed predicate that begins at `at`, or npos.
static size_t predicate_end(std::string_view text, size_t at)
{
    size_t depth = 0;
    char quote = '\0';
    for (; at < text.size(); at++) {
        char letter = text[at];
        if (quote != '\0')
            quote = letter == quote ? '\0' : quote;
        else if (letter == '\'' || letter == '"')
            quote = letter;
        else if (letter == '[')
            depth++;
        else if (letter == ']' && --depth == 0)
            return at + 1;
    }
    return std::string_view::npos;
}

static bool is_name(char letter)
{
    return isalnum(static_cast<unsigned char>(letter)) != 0 || strchr("_-.:", letter) != nullptr;
}

// The path that one location path of child steps goes below. False if it is of no such simple form; a name
// that the model does not have leads nowhere.
static bool location_scope(std::string_view text, const t_schema_index &index, t_rpc_scope *p_scope)
{
    t_mgmt_path path;
    while (text.size() > 1 && text[0] == '/' && is_name(text[1])) {
        size_t size = 1;
        while (size < text.size() && is_name(text[size]))
            size++;
        std::string_view name = text.substr(1, size - 1);
        const t_schema_node *p_parent = path.steps.empty() ? nullptr : path.steps.back().schema;
        const t_schema_node *p_node = schema_child_by_name(index, p_parent, name);
        text.remove_prefix(size);
        while (!text.empty() && text[0] == '[') {
            size_t end = predicate_end(text, 0);
            if (end == std::string_view::npos)
                return false;
            text.remove_prefix(end);
        }
        if (p_node == nullptr)
            return text.empty() || text[0] == '/';
        path.steps.push_back({.schema = p_node, .keys = {}});
    }
    if (path.steps.empty() || (!text.empty() && text[0] != '/'))
        return false;
    p_scope->paths.push_back(std::move(path));
    return true;
}

static std::vector<std::string_view> alternatives(std::string_view text)
{
    std::vector<std::string_view> parts;
    for (size_t at = 0; at <= text.size();) {
        size_t end = at;
        while (end < text.size() && text[end] != '|')
            end = text[end] == '[' ? std::min(predicate_end(text, end), text.size()) : end + 1;
        std::string_view part = text.substr(at, end - at);
        while (!part.empty() && part.front() == ' ')
            part.remove_prefix(1);
        while (!part.empty() && part.back() == ' ')
            part.remove_suffix(1);
        parts.push_back(part);
        at = end + 1;
    }
    return parts;
}

// An expression that may leave its path, by a parent, an axis, or an absolute path inside of a predicate, is
// not looked into.
static bool leaves_its_path(std::string_view xpath)
{
    for (const char *mark : {"..", "::", "current(", "deref("})
        if (xpath.find(mark) != std::string_view::npos)
            return true;
    for (size_t at = xpath.find('['); at != std::string_view::npos; at = xpath.find('[', at)) {
        size_t end = std::min(predicate_end(xpath, at), xpath.size());
        if (xpath.substr(at, end - at).find('/') != std::string_view::npos)
            return true;
        at = end;
    }
    return false;
}

static t_rpc_scope xpath_scope(const t_rpc_filter &filter, const t_schema_index &index)
{
    t_rpc_scope scope = {.is_everything = leaves_its_path(filter.xpath), .paths = {}};
    if (scope.is_everything)
        return scope;
    for (std::string_view part : alternatives(filter.xpath))
        if (!location_scope(part, index, &scope))
            return {.is_everything = true, .paths = {}};
    return scope;
}

// ---- Both ----

static bool step_covers(const t_mgmt_step &outer, const t_mgmt_step &inner)
{
    return outer.schema == inner.schema && (outer.keys.empty() || outer.keys == inner.keys);
}

static bool path_covers(const t_mgmt_path &outer, const t_mgmt_path &inner)
{
    return outer.steps.size() <= inner.steps.size() &&
           std::equal(outer.steps.begin(), outer.steps.end(), inner.steps.begin(), step_covers);
}

static void paths_tidy(std::vector<t_mgmt_path> *p_paths)
{
    std::vector<t_mgmt_path> kept;
    for (t_mgmt_path &path : *p_paths) {
        auto covers = [&](const t_mgmt_path &other) { return path_covers(other, path); };
        if (std::ranges::any_of(kept, covers))
            continue;
        std::erase_if(kept, [&](const t_mgmt_path &other) { return path_covers(path, other); });
        kept.push_back(std::move(path));
    }
    *p_paths = std::move(kept);
}

t_rpc_scope rpc_filter_scope(const t_rpc_filter &filter, const t_schema_index &index)
{
    t_rpc_scope scope = {.is_everything = true, .paths = {}};
    if (filter.kind == RPC_FILTER_SUBTREE)
        scope = subtree_scope(filter, index);
    else if (filter.kind == RPC_FILTER_XPATH)
        scope = xpath_scope(filter, index);
    paths_tidy(&scope.paths);
    return scope;
}

bool rpc_filter_wants(const t_rpc_filter &filter, const ly_ctx *p_context, const char *module,
                      const char *name)
{
    const lys_module *p_module = ly_ctx_get_module_implemented(p_context, module);
    auto is_it = [&](const t_rpc_element &top) {
        return top.name == name && rpc_is_in_module(top, p_module);
    };
    if (p_module == nullptr)
        return false;
    if (filter.kind == RPC_FILTER_SUBTREE)
        return std::ranges::any_of(filter.tops, is_it);
    // An expression that does not begin with a name may lead anywhere.
    bool is_named = filter.xpath.find(name) != std::string::npos;
    return filter.kind == RPC_FILTER_NONE || is_named || !filter.xpath.starts_with('/') ||
           filter.xpath.find('*') != std::string::npos || filter.xpath.find("//") != std::string::npos ||
           leaves_its_path(filter.xpath);
}

// ---- Copying ----

static void steps_mark(const t_mgmt_tree &tree, const lyd_node *p_parent, std::span<const t_mgmt_step> steps,
                       t_rpc_marks *p_marks)
{
    const t_mgmt_step &step = steps[0];
    auto go = [&](const lyd_node *p_node) {
        if (steps.size() == 1)
            rpc_mark(p_node, p_marks);
        else
            steps_mark(tree, p_node, steps.subspan(1), p_marks);
    };
    if (!step.keys.empty()) {
        const lyd_node *p_entry = mgmt_tree_entry(tree, p_parent, step.schema, step.keys);
        if (p_entry != nullptr)
            go(p_entry);
        return;
    }
    const lyd_node *p_node = p_parent != nullptr ? lyd_child(p_parent) : tree.p_first;
    for (; p_node != nullptr; p_node = p_node->next)
        if (p_node->schema == step.schema->yang)
            go(p_node);
}

static void marked_copy(const lyd_node *p_first, const t_rpc_marks &marks, lyd_node *p_parent,
                        lyd_node **pp_first)
{
    for (const lyd_node *p_node = p_first; p_node != nullptr; p_node = p_node->next) {
        auto mark = marks.find(p_node);
        if (mark == marks.end() || (p_parent != nullptr && lysc_is_key(p_node->schema)))
            continue;
        lyd_node *p_copy = nullptr;
        uint32_t options = mark->second == RPC_MARK_WHOLE ? LYD_DUP_RECURSIVE : 0;
        if (lyd_dup_single(p_node, reinterpret_cast<lyd_node_inner *>(p_parent), options, &p_copy) !=
            LY_SUCCESS)
            throw std::bad_alloc();
        if (p_parent == nullptr)
            lyd_insert_sibling(*pp_first, p_copy, pp_first);
        if (mark->second == RPC_MARK_PART)
            marked_copy(lyd_child(p_node), marks, p_copy, nullptr);
    }
}

mgmt_work_tree_ptr rpc_scope_copy(const t_rpc_scope &scope, const t_mgmt_tree &tree)
{
    if (scope.is_everything)
        return mgmt_tree_copy(tree);
    mgmt_work_tree_ptr copy = mgmt_tree_new(tree.p_schema, tree.p_context);
    t_rpc_marks marks;
    for (const t_mgmt_path &path : scope.paths)
        steps_mark(tree, nullptr, path.steps, &marks);
    marked_copy(tree.p_first, marks, nullptr, &copy->p_first);
    mgmt_tree_changed(copy.get());
    return copy;
}
