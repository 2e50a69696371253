// Making, changing and checking the nodes of a tree.

#include "mgmtd/store/mgmt_tree_private.h"

#include <algorithm>
#include <array>
#include <new>

// ---- Messages of libyang ----

// The data path in a message's location, "/mod:a[key='x']/b", in the framework's form, "/a{x}/b".
static std::string path_convert(std::string_view yang_path)
{
    std::string path;
    bool in_keys = false;
    while (!yang_path.empty()) {
        if (yang_path.front() == '/') {
            path += in_keys ? "}/" : "/";
            in_keys = false;
            yang_path.remove_prefix(1);
            size_t end = std::min(yang_path.find_first_of("/["), yang_path.size());
            size_t colon = yang_path.substr(0, end).find(':');
            size_t start = colon == std::string_view::npos ? 0 : colon + 1;
            path += yang_path.substr(start, end - start);
            yang_path.remove_prefix(end);
            continue;
        }
        // [key='value']
        size_t equals = yang_path.find('=');
        if (equals == std::string_view::npos || equals + 2 >= yang_path.size())
            break;
        size_t end = yang_path.find(yang_path[equals + 1], equals + 2);
        if (end == std::string_view::npos || end + 2 > yang_path.size())
            break;
        path += in_keys ? " " : "{";
        path += yang_path.substr(equals + 2, end - equals - 2);
        in_keys = true;
        yang_path.remove_prefix(end + 2);
    }
    return in_keys ? path + "}" : path;
}

// The place that a message names: the data path if there is one, else the one in the model.
static std::string location_path(const char *p_location)
{
    if (p_location == nullptr)
        return "";
    std::string_view location(p_location);
    for (std::string_view lead :
         {std::string_view("ata location \""), std::string_view("chema location \"")}) {
        size_t start = location.find(lead);
        if (start == std::string_view::npos)
            continue;
        std::string_view rest = location.substr(start + lead.size());
        // The path may hold quotes, so it ends at the last one before the next part.
        size_t end = rest.find("\", ");
        end = end != std::string_view::npos ? end : rest.rfind('"');
        return path_convert(rest.substr(0, end));
    }
    return location.starts_with('/') ? path_convert(location) : "";
}

bool mgmt_fail_yang(t_mgmt_error *p_error, const ly_ctx *p_ctx, e_mgmt_error code, std::string path)
{
    const char *p_message = ly_errmsg(p_ctx);
    std::string reason = p_message != nullptr ? p_message : "not accepted by the model";
    while (!reason.empty() && (reason.back() == '.' || reason.back() == '\n'))
        reason.pop_back();
    if (path.empty())
        path = location_path(ly_errpath(p_ctx));
    ly_err_clean(const_cast<ly_ctx *>(p_ctx), nullptr);
    return mgmt_fail(p_error, code, std::move(path), std::move(reason));
}

// ---- Nodes ----

// Puts a node of the top level among its siblings; one below has been put by libyang.
static void top_insert(t_mgmt_tree *p_tree, lyd_node *p_parent, lyd_node *p_node)
{
    if (p_parent == nullptr && lyd_insert_sibling(p_tree->p_first, p_node, &p_tree->p_first) != LY_SUCCESS)
        throw std::bad_alloc();
    mgmt_tree_changed(p_tree);
}

static std::string child_path(const t_mgmt_tree &tree, const lyd_node *p_parent, const std::string &step)
{
    return (p_parent != nullptr ? mgmt_node_path(tree, p_parent) : "") + "/" + step;
}

// Bytes of the UTF-8 character at the front of a text, if it is one that JSON and XML can hold; else 0.
static size_t character_size(std::string_view text)
{
    auto first = static_cast<unsigned char>(text[0]);
    if (first < 0x80)
        return first >= 0x20 || first == '\t' || first == '\n' || first == '\r' ? 1 : 0;
    size_t size = first >= 0xf0 ? 4 : first >= 0xe0 ? 3 : 2;
    if (first < 0xc2 || first > 0xf4 || text.size() < size)
        return 0;
    uint32_t code = first & (0x7fu >> size);
    for (size_t i = 1; i < size; i++) {
        auto byte = static_cast<unsigned char>(text[i]);
        if ((byte & 0xc0) != 0x80)
            return 0;
        code = code << 6 | (byte & 0x3fu);
    }
    static constexpr uint32_t least[] = {0, 0, 0x80, 0x800, 0x10000};
    bool is_surrogate = code >= 0xd800 && code <= 0xdfff;
    bool is_character = code >= least[size] && code <= 0x10ffff && !is_surrogate && (code & 0xfffe) != 0xfffe;
    return is_character ? size : 0;
}

// What can't be written to a file and read back must not get into a tree.
static bool text_check(std::string_view text, const std::string &path, t_mgmt_error *p_error)
{
    while (!text.empty()) {
        size_t size = character_size(text);
        if (size == 0)
            return mgmt_fail(p_error, MGMT_ERR_BADTYPE, path,
                             "a text may hold no control characters and must be UTF-8");
        text.remove_prefix(size);
    }
    return true;
}

lyd_node *mgmt_build_container(t_mgmt_tree *p_tree, lyd_node *p_parent, const t_schema_node *p_schema)
{
    lyd_node *p_found = nullptr;
    lyd_node *p_children = mgmt_first_child(*p_tree, p_parent);
    if (p_children != nullptr &&
        lyd_find_sibling_val(p_children, p_schema->yang, nullptr, 0, &p_found) == LY_SUCCESS)
        return p_found;
    if (lyd_new_inner(p_parent, p_schema->yang->module, p_schema->yang->name, 0, &p_found) != LY_SUCCESS)
        throw std::bad_alloc();
    top_insert(p_tree, p_parent, p_found);
    return p_found;
}

lyd_node *mgmt_build_entry(t_mgmt_tree *p_tree, lyd_node *p_parent, const t_schema_node *p_schema,
                           std::span<const std::string> keys, t_mgmt_error *p_error)
{
    std::array<const char *, 4> texts = {};
    if (keys.size() != p_schema->keys.size() || keys.size() > texts.size()) {
        mgmt_fail(p_error, MGMT_ERR_BADPATH, child_path(*p_tree, p_parent, std::string(p_schema->name)),
                  "the list has " + std::to_string(p_schema->keys.size()) + " keys");
        return nullptr;
    }
    for (size_t i = 0; i < keys.size(); i++) {
        if (!text_check(keys[i], child_path(*p_tree, p_parent, std::string(p_schema->name)), p_error))
            return nullptr;
        texts[i] = keys[i].c_str();
    }
    lyd_node *p_entry = nullptr;
    if (lyd_new_list(p_parent, p_schema->yang->module, p_schema->yang->name, 0, &p_entry, texts[0], texts[1],
                     texts[2], texts[3]) != LY_SUCCESS) {
        mgmt_fail_yang(p_error, p_tree->p_context, MGMT_ERR_BADTYPE,
                       child_path(*p_tree, p_parent, mgmt_step_text(p_schema, keys)));
        return nullptr;
    }
    top_insert(p_tree, p_parent, p_entry);
    return p_entry;
}

lyd_node *mgmt_build_term(t_mgmt_tree *p_tree, lyd_node *p_parent, const t_schema_node *p_schema,
                          const std::string &text, t_mgmt_error *p_error)
{
    if (!text_check(text, child_path(*p_tree, p_parent, std::string(p_schema->name)), p_error))
        return nullptr;
    lyd_node *p_term = nullptr;
    if (lyd_new_term(p_parent, p_schema->yang->module, p_schema->yang->name, text.c_str(), 0, &p_term) !=
        LY_SUCCESS) {
        mgmt_fail_yang(p_error, p_tree->p_context, MGMT_ERR_BADTYPE,
                       child_path(*p_tree, p_parent, std::string(p_schema->name)));
        return nullptr;
    }
    top_insert(p_tree, p_parent, p_term);
    return p_term;
}

bool mgmt_build_change(t_mgmt_tree *p_tree, lyd_node *p_leaf, const std::string &text, t_mgmt_error *p_error)
{
    if (!text_check(text, mgmt_node_path(*p_tree, p_leaf), p_error))
        return false;
    LY_ERR result = lyd_change_term(p_leaf, text.c_str());
    if (result != LY_SUCCESS && result != LY_EEXIST && result != LY_ENOT)
        return mgmt_fail_yang(p_error, p_tree->p_context, MGMT_ERR_BADTYPE, mgmt_node_path(*p_tree, p_leaf));
    mgmt_tree_changed(p_tree);
    return true;
}

void mgmt_build_remove(t_mgmt_tree *p_tree, lyd_node *p_node)
{
    if (p_node == p_tree->p_first)
        p_tree->p_first = p_node->next;
    lyd_free_tree(p_node);
    mgmt_tree_changed(p_tree);
}

// The first instance of a node's parent, below p_parent, that lacks the node; null if none does.
static const lyd_node *lacking_find(const t_mgmt_tree &tree, const lyd_node *p_parent,
                                    std::span<const t_schema_node *const> chain)
{
    if (chain.size() == 1)
        return mgmt_tree_child(tree, p_parent, chain[0]) == nullptr ? p_parent : nullptr;
    const lyd_node *p_node = mgmt_tree_child(tree, p_parent, chain[0]);
    // A container that is not there lacks everything.
    if (p_node == nullptr)
        return chain[0]->kind == SCHEMA_KIND_CONTAINER ? p_parent : nullptr;
    for (; p_node != nullptr && p_node->schema == chain[0]->yang; p_node = p_node->next) {
        const lyd_node *p_found = lacking_find(tree, p_node, chain.subspan(1));
        if (p_found != nullptr)
            return p_found;
    }
    return nullptr;
}

// A missing node is told by its place in the model only: names the entry that lacks it.
static void instance_name(const t_mgmt_tree &tree, t_mgmt_error *p_error)
{
    std::vector<const t_schema_node *> chain;
    const t_schema_node *p_schema = schema_find(*tree.p_schema, p_error->path);
    if (p_schema == nullptr || !p_schema->mandatory)
        return;
    for (const t_schema_node *p_node = p_schema; p_node != nullptr; p_node = p_node->parent)
        chain.insert(chain.begin(), p_node);
    const lyd_node *p_parent = lacking_find(tree, nullptr, chain);
    if (p_parent == nullptr)
        return;
    const t_schema_node *p_found = mgmt_node_schema(tree, p_parent);
    p_error->path = mgmt_node_path(tree, p_parent) + p_schema->path.substr(p_found->path.size());
}

bool mgmt_tree_validate(t_mgmt_tree *p_tree, t_mgmt_error *p_error)
{
    mgmt_tree_changed(p_tree);
    LY_ERR result = lyd_validate_all(&p_tree->p_first, p_tree->p_context, LYD_VALIDATE_NO_STATE, nullptr);
    if (result == LY_SUCCESS)
        return true;
    mgmt_fail_yang(p_error, p_tree->p_context, MGMT_ERR_BADSTATE, "");
    instance_name(*p_tree, p_error);
    return false;
}
