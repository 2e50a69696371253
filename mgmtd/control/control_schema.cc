#include "mgmtd/control/control_schema.h"

#include <libyang/libyang.h>
#include <nlohmann/json.hpp>

using t_json = nlohmann::ordered_json;

static const char *kind_name(const t_schema_node &node)
{
    switch (node.kind) {
    case SCHEMA_KIND_CONTAINER:
        return "container";
    case SCHEMA_KIND_LIST:
        return "list";
    case SCHEMA_KIND_LEAF:
        return "leaf";
    case SCHEMA_KIND_LEAF_LIST:
        return "leaf-list";
    case SCHEMA_KIND_RPC:
        return "action";
    case SCHEMA_KIND_NOTIFICATION:
        return "notification";
    }
    return "";
}

// ---- Types ----

static const lysc_type *node_type(const lysc_node *p_yang)
{
    if (p_yang->nodetype == LYS_LEAF)
        return reinterpret_cast<const lysc_node_leaf *>(p_yang)->type;
    return reinterpret_cast<const lysc_node_leaflist *>(p_yang)->type;
}

static const char *units_of(const lysc_node *p_yang)
{
    if (p_yang->nodetype == LYS_LEAF)
        return reinterpret_cast<const lysc_node_leaf *>(p_yang)->units;
    return reinterpret_cast<const lysc_node_leaflist *>(p_yang)->units;
}

static const char *base_name(LY_DATA_TYPE base)
{
    static constexpr const char *names[] = {
        // in libyang's order
        "",        "binary",  "uint8",     "uint16", "uint32",      "uint64",      "string",
        "bits",    "boolean", "decimal64", "empty",  "enumeration", "identityref", "instance-identifier",
        "leafref", "union",   "int8",      "int16",  "int32",       "int64",
    };
    static_assert(LY_TYPE_UINT64 == 5 && LY_TYPE_ENUM == 11 && LY_TYPE_INT64 == 19 && std::size(names) == 20);
    return names[base];
}

static void values_add(const lysc_type *p_type, std::vector<std::string> *p_values)
{
    if (p_type->basetype == LY_TYPE_BOOL) {
        p_values->insert(p_values->end(), {"false", "true"});
    } else if (p_type->basetype == LY_TYPE_ENUM) {
        const auto *p_enum = reinterpret_cast<const lysc_type_enum *>(p_type);
        for (LY_ARRAY_COUNT_TYPE i = 0; i < LY_ARRAY_COUNT(p_enum->enums); i++)
            p_values->push_back(p_enum->enums[i].name);
    } else if (p_type->basetype == LY_TYPE_BITS) {
        const auto *p_bits = reinterpret_cast<const lysc_type_bits *>(p_type);
        for (LY_ARRAY_COUNT_TYPE i = 0; i < LY_ARRAY_COUNT(p_bits->bits); i++)
            p_values->push_back(p_bits->bits[i].name);
    } else if (p_type->basetype == LY_TYPE_UNION) {
        const auto *p_union = reinterpret_cast<const lysc_type_union *>(p_type);
        for (LY_ARRAY_COUNT_TYPE i = 0; i < LY_ARRAY_COUNT(p_union->types); i++)
            values_add(p_union->types[i], p_values);
    }
}

std::vector<std::string> control_schema_values(const lysc_type *p_type)
{
    std::vector<std::string> values;
    values_add(p_type, &values);
    return values;
}

static void range_add(const lysc_type *p_type, t_json *p_json)
{
    bool is_unsigned = p_type->basetype >= LY_TYPE_UINT8 && p_type->basetype <= LY_TYPE_UINT64;
    bool is_signed = p_type->basetype >= LY_TYPE_INT8 && p_type->basetype <= LY_TYPE_INT64;
    if (!is_unsigned && !is_signed)
        return;
    const lysc_range *p_range = reinterpret_cast<const lysc_type_num *>(p_type)->range;
    if (p_range == nullptr)
        return;
    std::string text;
    for (LY_ARRAY_COUNT_TYPE i = 0; i < LY_ARRAY_COUNT(p_range->parts); i++) {
        const auto &part = p_range->parts[i];
        std::string low = is_signed ? std::to_string(part.min_64) : std::to_string(part.min_u64);
        std::string high = is_signed ? std::to_string(part.max_64) : std::to_string(part.max_u64);
        text += (i == 0 ? "" : " | ") + low + (low == high ? "" : ".." + high);
    }
    (*p_json)["range"] = text;
}

static void type_add(const t_schema_node &node, t_json *p_json)
{
    const lysc_type *p_type = node_type(node.yang);
    if (p_type->basetype == LY_TYPE_LEAFREF)
        p_type = reinterpret_cast<const lysc_type_leafref *>(p_type)->realtype;
    (*p_json)["type"] = base_name(p_type->basetype);
    range_add(p_type, p_json);
    std::vector<std::string> values = control_schema_values(p_type);
    if (!values.empty())
        (*p_json)["values"] = values;
    if (const char *p_units = units_of(node.yang); p_units != nullptr)
        (*p_json)["units"] = p_units;
}

// ---- Nodes ----

// Operational data; parameters and what stands in notifications are neither that nor configuration.
static bool is_state(const t_schema_node &node)
{
    const t_schema_node *p_top = &node;
    while (p_top->parent != nullptr && p_top->kind != SCHEMA_KIND_RPC &&
           p_top->kind != SCHEMA_KIND_NOTIFICATION)
        p_top = p_top->parent;
    return !node.config && p_top->kind != SCHEMA_KIND_RPC && p_top->kind != SCHEMA_KIND_NOTIFICATION;
}

// All about one node but its children.
static void node_describe(const t_schema_node &node, t_json *p_json)
{
    (*p_json)["kind"] = kind_name(node);
    if (node.kind == SCHEMA_KIND_LEAF || node.kind == SCHEMA_KIND_LEAF_LIST)
        type_add(node, p_json);
    if (is_state(node))
        (*p_json)["state"] = true;
    if (node.key)
        (*p_json)["key"] = true;
    if (node.mandatory)
        (*p_json)["mandatory"] = true;
    if (node.yang->dsc != nullptr)
        (*p_json)["description"] = node.yang->dsc;
}

t_json control_schema_describe(const t_schema_index &index, const t_schema_node *p_node)
{
    t_json json = t_json::object({{"path", p_node != nullptr ? p_node->path : "/"}});
    if (p_node != nullptr)
        node_describe(*p_node, &json);
    for (const t_schema_node *p_key : p_node != nullptr ? p_node->keys : std::vector<const t_schema_node *>())
        json["keys"].push_back(p_key->name);
    for (const t_schema_node *p_child : p_node != nullptr ? p_node->children : index.tops) {
        t_json child = t_json::object({{"name", p_child->name}});
        node_describe(*p_child, &child);
        json["children"].push_back(std::move(child));
    }
    return json;
}
