#include "yang/schema_check.h"

#include "yang/schema_traps.h"

#include <libyang/libyang.h>

#include <algorithm>

using t_faults = std::vector<std::string>;

static void complain(t_faults *p_faults, const t_schema_node &node, const std::string &reason)
{
    p_faults->push_back(node.path + ": " + reason);
}

static void check_place(const t_schema_node &node, t_faults *p_faults)
{
    if (node.parent == nullptr && node.kind == SCHEMA_KIND_LIST)
        complain(p_faults, node, "a list stands at the top of a module: put it into a container");
    if (node.yang->nodetype == LYS_CONTAINER && (node.yang->flags & LYS_PRESENCE) != 0)
        complain(p_faults, node, "a container has a presence statement");
    if (node.yang->dsc == nullptr)
        complain(p_faults, node, "the node has no description");
}

// Values

static bool has_default(const lysc_node *p_yang)
{
    if (p_yang->nodetype == LYS_LEAF)
        return reinterpret_cast<const lysc_node_leaf *>(p_yang)->dflt != nullptr;
    return p_yang->nodetype == LYS_LEAFLIST &&
           reinterpret_cast<const lysc_node_leaflist *>(p_yang)->dflts != nullptr;
}

// Leaves and leaf-lists keep their type in one place.
static const lysc_type *type_of(const lysc_node *p_yang)
{
    if (p_yang->nodetype == LYS_LEAF)
        return reinterpret_cast<const lysc_node_leaf *>(p_yang)->type;
    return p_yang->nodetype == LYS_LEAFLIST ? reinterpret_cast<const lysc_node_leaflist *>(p_yang)->type
                                            : nullptr;
}

static bool is_name_character(char c)
{
    return isalnum(static_cast<unsigned char>(c)) != 0 || c == '_' || c == '-' || c == '.';
}

// The name that a text ends with, without its prefix and blanks behind it.
static std::string_view last_name(std::string_view text)
{
    size_t end = text.find_last_not_of(' ') + 1;
    size_t begin = end;
    while (begin > 0 && is_name_character(text[begin - 1]))
        begin--;
    return text.substr(begin, end - begin);
}

// The node that a leafref leads to, among those that its path visits.
static const lysc_node *leafref_target(const lysc_node *p_yang, const lysc_type_leafref *p_type)
{
    std::string_view name = last_name(lyxp_get_expr(p_type->path));
    const lysc_node *p_result = nullptr;
    ly_set *p_visited = nullptr;
    if (lys_find_expr_atoms(p_yang, p_yang->module, p_type->path, p_type->prefixes, 0, &p_visited) !=
        LY_SUCCESS)
        return nullptr;
    for (uint32_t i = 0; i < p_visited->count; i++)
        if (name == p_visited->snodes[i]->name && type_of(p_visited->snodes[i]) != nullptr)
            p_result = p_visited->snodes[i];
    ly_set_free(p_visited, nullptr);
    return p_result;
}

static void check_leafref(const t_schema_node &node, const lysc_type *p_type, t_faults *p_faults)
{
    const lysc_node *p_target =
        leafref_target(node.yang, reinterpret_cast<const lysc_type_leafref *>(p_type));
    if (p_target == nullptr || !lysc_is_key(p_target))
        complain(p_faults, node, "a leafref leads to a node that is no key");
    else if (schema_value_of_type(type_of(p_target)) != SCHEMA_VALUE_STRING)
        complain(p_faults, node, "a leafref leads to a key that is no string");
}

static void check_value(const t_schema_node &node, t_faults *p_faults)
{
    const lysc_type *p_type = type_of(node.yang);
    if (p_type == nullptr)
        return;
    if (has_default(node.yang))
        complain(p_faults, node, "a leaf has a default");
    if (p_type->basetype == LY_TYPE_LEAFREF)
        check_leafref(node, p_type, p_faults);
}

// Predicates

// The end of a predicate that begins behind an opening bracket; the text's size when it has none.
static size_t predicate_end(std::string_view text, size_t begin)
{
    char quote = 0;
    int depth = 1;
    for (size_t i = begin; i < text.size(); i++) {
        char c = text[i];
        if (quote != 0) {
            quote = c == quote ? 0 : quote;
        } else if (c == '\'' || c == '"') {
            quote = c;
        } else if (c == '[') {
            depth++;
        } else if (c == ']' && --depth == 0) {
            return i;
        }
    }
    return text.size();
}

static bool is_key_of(const t_schema_index &index, std::string_view list, std::string_view key)
{
    bool found = false;
    for (const auto &node : index.nodes) {
        if (node->kind != SCHEMA_KIND_LIST || node->name != list)
            continue;
        found = true;
        if (std::ranges::none_of(node->keys, [&](const t_schema_node *p_key) { return p_key->name == key; }))
            return false;
    }
    return found;
}

// A predicate may compare one key with one value.
static bool is_key_predicate(const t_schema_index &index, std::string_view list, std::string_view predicate)
{
    size_t equals = predicate.find('=');
    if (equals == predicate.npos || predicate.find(" and ") != predicate.npos ||
        predicate.find(" or ") != predicate.npos)
        return false;
    std::string_view left = predicate.substr(0, equals);
    std::string_view key = last_name(left);
    std::string_view before = left.substr(0, static_cast<size_t>(key.data() - left.data()));
    bool bare = before.find_first_of("/(<>!") == before.npos;
    return bare && is_key_of(index, list, key);
}

static void check_expression(const t_schema_index &index, const t_schema_node &node,
                             const lyxp_expr *p_expression, t_faults *p_faults)
{
    std::string_view text = lyxp_get_expr(p_expression);
    for (size_t open = text.find('['); open != text.npos; open = text.find('[', open + 1)) {
        size_t close = predicate_end(text, open + 1);
        std::string_view list = last_name(text.substr(0, open));
        if (!is_key_predicate(index, list, text.substr(open + 1, close - open - 1)))
            complain(p_faults, node, "a predicate compares something else than a key: " + std::string(text));
    }
}

static void check_conditions(const t_schema_index &index, const t_schema_node &node, t_faults *p_faults)
{
    const lysc_must *p_musts = lysc_node_musts(node.yang);
    for (size_t i = 0; i < LY_ARRAY_COUNT(p_musts); i++)
        check_expression(index, node, p_musts[i].cond, p_faults);
    lysc_when **p_whens = lysc_node_when(node.yang);
    for (size_t i = 0; i < LY_ARRAY_COUNT(p_whens); i++)
        check_expression(index, node, p_whens[i]->cond, p_faults);
}

std::vector<std::string> schema_check(const t_schema_index &index)
{
    t_faults faults;
    for (const auto &node : index.nodes) {
        check_place(*node, &faults);
        check_value(*node, &faults);
        check_conditions(index, *node, &faults);
    }
    schema_traps_read(index, &faults);
    return faults;
}
