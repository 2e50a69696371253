#include "mgmtd/rpc/rpc_element.h"

#include "mgmtd/rpc/mgmt_rpc_private.h"

static constexpr const char *blanks = " \t\r\n";

static std::string trimmed(const char *text)
{
    std::string_view view(text != nullptr ? text : "");
    size_t from = view.find_first_not_of(blanks);
    if (from == std::string_view::npos)
        return "";
    return std::string(view.substr(from, view.find_last_not_of(blanks) - from + 1));
}

static const char *text_or_empty(const char *text)
{
    return text != nullptr ? text : "";
}

static void opaque_read(const lyd_node *p_node, t_rpc_element *p_element)
{
    auto p_opaque = reinterpret_cast<const lyd_node_opaq *>(p_node);
    p_element->ns = text_or_empty(p_opaque->name.module_ns);
    p_element->name = p_opaque->name.name;
    p_element->text = trimmed(p_opaque->value);
    for (const lyd_attr *p_attr = p_opaque->attr; p_attr != nullptr; p_attr = p_attr->next)
        p_element->attributes.push_back(
            {text_or_empty(p_attr->name.module_ns), p_attr->name.name, text_or_empty(p_attr->value)});
}

static void known_read(const lyd_node *p_node, t_rpc_element *p_element)
{
    p_element->ns = p_node->schema->module->ns;
    p_element->name = p_node->schema->name;
    p_element->text = text_or_empty(lyd_get_value(p_node));
    for (const lyd_meta *p_meta = p_node->meta; p_meta != nullptr; p_meta = p_meta->next)
        p_element->attributes.push_back(
            {p_meta->annotation->module->name, p_meta->name, text_or_empty(lyd_get_meta_value(p_meta))});
}

// The transport bounds the depth.
static void siblings_read(const lyd_node *p_first, std::vector<t_rpc_element> *p_elements)
{
    for (const lyd_node *p_node = p_first; p_node != nullptr; p_node = p_node->next) {
        t_rpc_element &element = p_elements->emplace_back();
        if (p_node->schema == nullptr)
            opaque_read(p_node, &element);
        else
            known_read(p_node, &element);
        siblings_read(lyd_child(p_node), &element.children);
    }
}

bool rpc_elements_read(const lyd_node *p_node, std::vector<t_rpc_element> *p_elements,
                       t_mgmt_rpc_error *p_error)
{
    auto p_any = reinterpret_cast<const lyd_node_any *>(p_node);
    bool is_tree = p_any->value_type == LYD_ANYDATA_DATATREE;
    if (is_tree)
        siblings_read(p_any->value.tree, p_elements);
    if (is_tree || trimmed(p_any->value.str).empty())
        return true;
    const char *name = p_node->schema->name;
    *p_error = rpc_error_element("bad-element", name, std::string("the content of ") + name + " is no XML");
    return false;
}

const std::string *rpc_attribute(const t_rpc_element &element, const char *module, const char *ns,
                                 const char *name)
{
    for (const t_rpc_attribute &attribute : element.attributes)
        if (attribute.name == name && (attribute.ns == module || attribute.ns == ns))
            return &attribute.value;
    return nullptr;
}
