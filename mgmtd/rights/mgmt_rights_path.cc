// Paths of rules: instance identifiers in which keys may be left out.

#include "mgmtd/rights/mgmt_rights_private.h"

#include <cstring>

// ---- Reading ----

namespace {

struct t_path_reader {
    std::string_view rest;
    const t_mgmt_tree &config;  // for its model
};

}  // namespace

static void blanks_skip(t_path_reader *p_reader)
{
    while (!p_reader->rest.empty() && strchr(" \t\n\r", p_reader->rest.front()) != nullptr)
        p_reader->rest.remove_prefix(1);
}

static bool take(t_path_reader *p_reader, char character)
{
    blanks_skip(p_reader);
    if (p_reader->rest.empty() || p_reader->rest.front() != character)
        return false;
    p_reader->rest.remove_prefix(1);
    return true;
}

// "name" or "module:name"; empty if there is none.
static std::string_view name_take(t_path_reader *p_reader)
{
    blanks_skip(p_reader);
    size_t size = 0;
    while (size < p_reader->rest.size() && strchr("/[]='\" \t\n\r", p_reader->rest[size]) == nullptr)
        size++;
    std::string_view name = p_reader->rest.substr(0, size);
    p_reader->rest.remove_prefix(size);
    return name;
}

static bool literal_take(t_path_reader *p_reader, std::string *p_value)
{
    blanks_skip(p_reader);
    char quote = p_reader->rest.empty() ? '\0' : p_reader->rest.front();
    size_t end = quote == '\'' || quote == '"' ? p_reader->rest.find(quote, 1) : std::string_view::npos;
    if (end == std::string_view::npos)
        return false;
    *p_value = p_reader->rest.substr(1, end - 1);
    p_reader->rest.remove_prefix(end + 1);
    return true;
}

// The module of a prefix, which is a module's name, or short the module's own prefix.
static const lys_module *module_find(const t_mgmt_tree &config, std::string_view prefix)
{
    std::string name(prefix);
    if (const lys_module *p_module = ly_ctx_get_module_implemented(config.p_context, name.c_str()))
        return p_module;
    uint32_t i = 0;
    while (const lys_module *p_module = ly_ctx_get_module_iter(config.p_context, &i))
        if (p_module->implemented && name == p_module->prefix)
            return p_module;
    return nullptr;
}

// A name without a module is of the parent's module; at the top it is looked for in the indexed modules.
static const lysc_node *child_find(const t_path_reader &reader, const lysc_node *p_parent,
                                   std::string_view name)
{
    size_t colon = name.find(':');
    if (colon == std::string_view::npos && p_parent == nullptr) {
        const t_schema_node *p_top = schema_child_by_name(*reader.config.p_schema, nullptr, name);
        return p_top != nullptr ? p_top->yang : nullptr;
    }
    const lys_module *p_module = colon == std::string_view::npos
                                     ? p_parent->module
                                     : module_find(reader.config, name.substr(0, colon));
    name.remove_prefix(colon == std::string_view::npos ? 0 : colon + 1);
    if (p_module == nullptr || name.empty())
        return nullptr;
    return lys_find_child(p_parent, p_module, name.data(), name.size(), 0, 0);
}

// "[name='value']" or "[.='value']", behind the bracket.
static bool predicate_take(t_path_reader *p_reader, t_rule_step *p_step)
{
    std::string_view name = name_take(p_reader);
    const lysc_node *p_key = name == "." ? p_step->p_node : child_find(*p_reader, p_step->p_node, name);
    bool is_value = name == "." && p_step->p_node->nodetype == LYS_LEAFLIST;
    std::string value;
    if (p_key == nullptr || !(is_value || lysc_is_key(p_key)) || !take(p_reader, '=') ||
        !literal_take(p_reader, &value) || !take(p_reader, ']'))
        return false;
    p_step->keys.emplace_back(p_key, std::move(value));
    return true;
}

static bool step_take(t_path_reader *p_reader, t_rule *p_rule)
{
    const lysc_node *p_parent = p_rule->steps.empty() ? nullptr : p_rule->steps.back().p_node;
    t_rule_step step = {child_find(*p_reader, p_parent, name_take(p_reader)), {}};
    if (step.p_node == nullptr)
        return false;
    while (take(p_reader, '['))
        if (!predicate_take(p_reader, &step))
            return false;
    p_rule->has_keys = p_rule->has_keys || !step.keys.empty();
    p_rule->steps.push_back(std::move(step));
    return true;
}

bool rule_path_read(const t_mgmt_tree &config, const std::string &text, t_rule *p_rule)
{
    t_path_reader reader = {text, config};
    if (!take(&reader, '/'))
        return false;
    blanks_skip(&reader);
    if (reader.rest.empty())
        return true;  // "/" stands for everything
    do {
        if (!step_take(&reader, p_rule))
            return false;
    } while (take(&reader, '/'));
    blanks_skip(&reader);
    return reader.rest.empty();
}

// ---- Matching ----

// Rules have no types: a key matches by its canonical text.
static bool keys_match(const t_rule_step &step, const lyd_node *p_node)
{
    for (const auto &[p_key, value] : step.keys) {
        const lyd_node *p_leaf = p_node;
        if (p_key != step.p_node)
            for (p_leaf = lyd_child(p_node); p_leaf != nullptr && p_leaf->schema != p_key;)
                p_leaf = p_leaf->next;
        if (p_leaf == nullptr || value != lyd_get_value(p_leaf))
            return false;
    }
    return true;
}

static bool is_around(const lysc_node *p_outer, const lysc_node *p_node)
{
    while (p_node != nullptr && p_node != p_outer)
        p_node = p_node->parent;
    return p_node != nullptr;
}

e_verdict rule_path_matches(const t_rule &rule, const lysc_node *p_schema, const lyd_node *p_node)
{
    if (rule.steps.empty())
        return VERDICT_PERMIT;
    if (!is_around(rule.steps.back().p_node, p_schema))
        return VERDICT_DENY;
    if (!rule.has_keys)
        return VERDICT_PERMIT;
    if (p_node == nullptr)
        return VERDICT_DEPENDS;
    size_t i = rule.steps.size();
    for (; p_node != nullptr && i > 0; p_node = lyd_parent(p_node)) {
        if (p_node->schema != rule.steps[i - 1].p_node)
            continue;
        if (!keys_match(rule.steps[i - 1], p_node))
            return VERDICT_DENY;
        i--;
    }
    return VERDICT_PERMIT;
}
