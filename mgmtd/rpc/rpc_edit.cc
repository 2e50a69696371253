#include "mgmtd/rpc/rpc_edit.h"

#include "mgmtd/rpc/mgmt_rpc_private.h"

#include <algorithm>

static constexpr const char *netconf_ns = "urn:ietf:params:xml:ns:netconf:base:1.0";
static constexpr const char *yang_ns = "urn:ietf:params:xml:ns:yang:1";

namespace {

struct t_reader {
    const t_schema_index &index;
    const t_rpc_edit_options &options;
    t_mgmt_rpc_error *p_error;
};

}  // namespace

// Where an element stands.
struct t_around {
    const t_schema_node *schema;  // null at the top
    std::string path;             // of the framework's form
    e_mgmt_op op;                 // that elements have without one of their own
};

// ---- Errors ----

static std::string path_of(const t_around &around, const t_rpc_element &element)
{
    return around.path + "/" + element.name;
}

static bool fail(const t_reader &reader, const char *tag, const std::string &path, const std::string &element,
                 const std::string &reason)
{
    *reader.p_error = rpc_error_element(tag, element, path + ": " + reason);
    reader.p_error->type = "application";
    reader.p_error->path = rpc_xpath_of(reader.index, path);
    return false;
}

static bool fail_attribute(const t_reader &reader, const char *tag, const std::string &path,
                           const t_rpc_element &element, const std::string &attribute,
                           const std::string &reason)
{
    fail(reader, tag, path, element.name, reason);
    reader.p_error->info.insert(reader.p_error->info.begin(), {"bad-attribute", attribute});
    return false;
}

// ---- Nodes of the model ----

static bool is_of(const t_rpc_element &element, const t_schema_node *p_node)
{
    const lys_module *p_module = p_node->yang->module;
    return element.name == p_node->name && (element.ns == p_module->ns || element.ns == p_module->name);
}

static bool is_data(const t_schema_node *p_node)
{
    return p_node->kind != SCHEMA_KIND_RPC && p_node->kind != SCHEMA_KIND_NOTIFICATION;
}

static const t_schema_node *schema_of(const t_reader &reader, const t_around &around,
                                      const t_rpc_element &element)
{
    const auto &nodes = around.schema != nullptr ? around.schema->children : reader.index.tops;
    auto is_it = [&](const t_schema_node *p_node) { return is_data(p_node) && is_of(element, p_node); };
    auto found = std::ranges::find_if(nodes, is_it);
    std::string path = path_of(around, element);
    if (found != nodes.end() && (*found)->config)
        return *found;
    auto is_known = [&](const t_schema_node *p_node) {
        return element.ns == p_node->yang->module->ns || element.ns == p_node->yang->module->name;
    };
    if (found != nodes.end()) {
        fail(reader, "unknown-element", path, element.name, "operational state can't be edited");
    } else if (std::ranges::any_of(reader.index.tops, is_known)) {
        fail(reader, "unknown-element", path, element.name, "the model has no such node");
    } else {
        fail(reader, "unknown-namespace", path, element.name,
             "no module has the namespace \"" + element.ns + '"');
        reader.p_error->info.emplace_back("bad-namespace", element.ns);
    }
    reader.p_error->path = rpc_xpath_of(reader.index, around.path);
    return nullptr;
}

// ---- Attributes ----

static bool op_of(const std::string &text, e_mgmt_op *p_op)
{
    static const std::pair<const char *, e_mgmt_op> operations[] = {{"merge", MGMT_OP_MERGE},
                                                                    {"replace", MGMT_OP_REPLACE},
                                                                    {"create", MGMT_OP_CREATE},
                                                                    {"delete", MGMT_OP_DELETE},
                                                                    {"remove", MGMT_OP_REMOVE}};
    for (const auto &[name, op] : operations)
        if (text == name) {
            *p_op = op;
            return true;
        }
    return false;
}

static bool attributes_check(const t_reader &reader, const std::string &path, const t_rpc_element &element)
{
    for (const t_rpc_attribute &attribute : element.attributes) {
        bool is_operation =
            attribute.name == "operation" && (attribute.ns == netconf_ns || attribute.ns == "ietf-netconf");
        bool is_place =
            (attribute.name == "insert" || attribute.name == "key" || attribute.name == "value") &&
            (attribute.ns == yang_ns || attribute.ns == "yang");
        if (!reader.options.has_operations || (!is_operation && !is_place))
            return fail_attribute(reader, "unknown-attribute", path, element, attribute.name,
                                  "the attribute \"" + attribute.name + "\" means nothing here");
    }
    return true;
}

// "[name='a'][m:id=\"1\"]" as values in the order of the list's keys.
static bool predicates_read(std::string_view text, const t_schema_node *p_list,
                            std::vector<std::string> *p_keys)
{
    p_keys->assign(p_list->keys.size(), "");
    size_t count = 0;
    while (!text.empty()) {
        size_t equals = text.find('=');
        if (text[0] != '[' || equals == std::string_view::npos || equals + 2 >= text.size())
            return false;
        std::string_view name = text.substr(1, equals - 1);
        name.remove_prefix(name.find(':') + 1);
        char quote = text[equals + 1];
        size_t end = quote == '\'' || quote == '"' ? text.find(quote, equals + 2) : std::string_view::npos;
        if (end == std::string_view::npos || end + 1 >= text.size() || text[end + 1] != ']')
            return false;
        auto key = std::ranges::find(p_list->keys, name, &t_schema_node::name);
        if (key == p_list->keys.end())
            return false;
        (*p_keys)[static_cast<size_t>(key - p_list->keys.begin())] =
            text.substr(equals + 2, end - equals - 2);
        text.remove_prefix(end + 2);
        count++;
    }
    return count == p_list->keys.size();
}

// Where an entry or element goes that the user orders.
static bool place_read(const t_reader &reader, const std::string &path, const t_rpc_element &element,
                       t_mgmt_edit_node *p_node)
{
    static const std::pair<const char *, e_mgmt_insert> places[] = {{"first", MGMT_INSERT_FIRST},
                                                                    {"last", MGMT_INSERT_LAST},
                                                                    {"before", MGMT_INSERT_BEFORE},
                                                                    {"after", MGMT_INSERT_AFTER}};
    const std::string *p_insert = rpc_attribute(element, "yang", yang_ns, "insert");
    if (p_insert == nullptr)
        return true;
    if (!lysc_is_userordered(p_node->schema->yang))
        return fail_attribute(reader, "unknown-attribute", path, element, "insert",
                              "the user does not order this node");
    for (const auto &[name, insert] : places)
        if (*p_insert == name)
            p_node->insert = insert;
    if (p_node->insert == MGMT_INSERT_STAY)
        return fail_attribute(reader, "bad-attribute", path, element, "insert", "there is no such place");
    if (p_node->insert == MGMT_INSERT_FIRST || p_node->insert == MGMT_INSERT_LAST)
        return true;
    bool is_list = p_node->schema->kind == SCHEMA_KIND_LIST;
    const char *name = is_list ? "key" : "value";
    const std::string *p_anchor = rpc_attribute(element, "yang", yang_ns, name);
    if (p_anchor == nullptr)
        return fail_attribute(reader, "missing-attribute", path, element, name,
                              "the place is before or after which one");
    if (!is_list)
        p_node->anchor = {*p_anchor};
    else if (!predicates_read(*p_anchor, p_node->schema, &p_node->anchor))
        return fail_attribute(reader, "bad-attribute", path, element, name, "these are not the list's keys");
    return true;
}

// ---- Elements ----

static bool keys_read(const t_reader &reader, const t_rpc_element &element, std::string *p_path,
                      t_mgmt_edit_node *p_node)
{
    for (const t_schema_node *p_key : p_node->schema->keys) {
        auto is_key = [&](const t_rpc_element &child) { return is_of(child, p_key); };
        auto found = std::ranges::find_if(element.children, is_key);
        if (found == element.children.end())
            return fail(reader, "missing-element", *p_path, std::string(p_key->name),
                        "the key " + std::string(p_key->name) + " is missing");
        p_node->keys.push_back(found->text);
    }
    std::string sep = "{";
    for (const std::string &key : p_node->keys) {
        *p_path += sep + mgmt_path_quote(key);
        sep = " ";
    }
    *p_path += '}';
    return true;
}

static bool element_read(const t_reader &reader, const t_around &around, const t_rpc_element &element,
                         t_mgmt_edit_node *p_node);

static bool children_read(const t_reader &reader, const t_around &inside, const t_rpc_element &element,
                          t_mgmt_edit_node *p_node)
{
    for (const t_rpc_element &child : element.children) {
        auto is_key = [&](const t_schema_node *p_key) { return is_of(child, p_key); };
        if (std::ranges::any_of(p_node->schema->keys, is_key))
            continue;
        if (!element_read(reader, inside, child, &p_node->children.emplace_back()))
            return false;
    }
    return true;
}

static bool element_read(const t_reader &reader, const t_around &around, const t_rpc_element &element,
                         t_mgmt_edit_node *p_node)
{
    std::string path = path_of(around, element);
    p_node->schema = schema_of(reader, around, element);
    if (p_node->schema == nullptr || !attributes_check(reader, path, element))
        return false;
    p_node->op = around.op;
    const std::string *p_operation = rpc_attribute(element, "ietf-netconf", netconf_ns, "operation");
    if (p_operation != nullptr && !op_of(*p_operation, &p_node->op))
        return fail_attribute(reader, "bad-attribute", path, element, "operation",
                              "there is no operation \"" + *p_operation + '"');
    bool is_term = p_node->schema->kind == SCHEMA_KIND_LEAF || p_node->schema->kind == SCHEMA_KIND_LEAF_LIST;
    if (is_term ? !element.children.empty() : !element.text.empty())
        return fail(reader, "bad-element", path, element.name,
                    is_term ? "a leaf holds no elements" : "this node holds no text");
    if (is_term)
        p_node->keys = {element.text};
    if (p_node->schema->kind == SCHEMA_KIND_LIST && !keys_read(reader, element, &path, p_node))
        return false;
    if (!place_read(reader, path, element, p_node))
        return false;
    if (p_node->op == MGMT_OP_DELETE || p_node->op == MGMT_OP_REMOVE)
        return true;
    // What stands in a new or emptied node can only be new, but for what a hook sets.
    bool is_fresh = p_node->op == MGMT_OP_CREATE || p_node->op == MGMT_OP_REPLACE;
    return children_read(reader, {p_node->schema, path, is_fresh ? MGMT_OP_MERGE : p_node->op}, element,
                         p_node);
}

bool rpc_edit_read(const t_schema_index &index, const std::vector<t_rpc_element> &elements,
                   const t_rpc_edit_options &options, t_mgmt_edit *p_edit, t_mgmt_rpc_error *p_error)
{
    t_reader reader = {index, options, p_error};
    for (const t_rpc_element &element : elements)
        if (!element_read(reader, {nullptr, "", options.default_op}, element, &p_edit->tops.emplace_back()))
            return false;
    return true;
}
