// The model as clients get it: flat arrays of namespaces, names, types and nodes.

#include "mgmtd/ipc/ipc_server_private.h"

#include <libyang/libyang.h>

#include <unordered_map>

struct t_schema_build {
    const t_schema_index *p_index;
    t_ipc_schema schema;
    std::unordered_map<const lysc_type *, uint32_t> types;
    std::unordered_map<uint32_t, std::string> cases;  // names that only cases have, by tag
};

// ---- Types ----

static const lysc_type *real_type(const lysc_node *p_yang)
{
    const lysc_type *p_type = nullptr;
    if (p_yang->nodetype == LYS_LEAF)
        p_type = reinterpret_cast<const lysc_node_leaf *>(p_yang)->type;
    else if (p_yang->nodetype == LYS_LEAFLIST)
        p_type = reinterpret_cast<const lysc_node_leaflist *>(p_yang)->type;
    while (p_type != nullptr && p_type->basetype == LY_TYPE_LEAFREF)
        p_type = reinterpret_cast<const lysc_type_leafref *>(p_type)->realtype;
    return p_type;
}

static std::vector<t_ipc_schema_label> labels_of(const lysc_type *p_type)
{
    std::vector<t_ipc_schema_label> labels;
    if (p_type->basetype == LY_TYPE_ENUM) {
        const lysc_type_bitenum_item *p_enums = reinterpret_cast<const lysc_type_enum *>(p_type)->enums;
        for (size_t i = 0; i < LY_ARRAY_COUNT(p_enums); i++)
            labels.push_back({p_enums[i].value, p_enums[i].name});
    } else if (p_type->basetype == LY_TYPE_BITS) {
        const lysc_type_bitenum_item *p_bits = reinterpret_cast<const lysc_type_bits *>(p_type)->bits;
        for (size_t i = 0; i < LY_ARRAY_COUNT(p_bits); i++)
            labels.push_back({p_bits[i].position, p_bits[i].name});
    }
    return labels;
}

// Values of a union differ; as texts they can all be shown.
static uint8_t value_type(e_schema_value value)
{
    return static_cast<uint8_t>(value == SCHEMA_VALUE_UNION ? SCHEMA_VALUE_STRING : value);
}

static uint32_t type_add(t_schema_build *p_build, const t_schema_node &node)
{
    const lysc_type *p_type = real_type(node.yang);
    if (p_type == nullptr)
        return IPC_NO_INDEX;
    std::vector<t_ipc_schema_type> &types = p_build->schema.types;
    auto [entry, is_new] = p_build->types.try_emplace(p_type, static_cast<uint32_t>(types.size()));
    if (is_new)
        types.push_back(
            {.ns = node.ns,
             .name = "",
             .value_type = value_type(node.kind == SCHEMA_KIND_LEAF_LIST ? node.element : node.value),
             .labels = labels_of(p_type)});
    return entry->second;
}

static void typedefs_add(t_schema_build *p_build)
{
    for (const t_schema_typedef &type : p_build->p_index->typedefs) {
        t_ipc_schema_type &added = p_build->schema.types.emplace_back();
        added.ns = type.ns;
        added.name = type.name;
        added.value_type = C_ENUM_VALUE;
        for (const t_schema_enum &label : type.enums)
            added.labels.push_back({label.value, label.name});
    }
}

// ---- Nodes ----

static uint8_t kind_of(const t_schema_node &node)
{
    switch (node.kind) {
    case SCHEMA_KIND_CONTAINER:
        return IPC_NODE_CONTAINER;
    case SCHEMA_KIND_LIST:
        return IPC_NODE_LIST;
    case SCHEMA_KIND_LEAF:
        return IPC_NODE_LEAF;
    case SCHEMA_KIND_LEAF_LIST:
        return IPC_NODE_LEAF_LIST;
    case SCHEMA_KIND_RPC:
        return IPC_NODE_ACTION;
    case SCHEMA_KIND_NOTIFICATION:
        break;
    }
    return IPC_NODE_NOTIFICATION;
}

static bool is_parameter(const t_schema_node &node)
{
    const t_schema_node *p_top = &node;
    while (p_top->parent != nullptr)
        p_top = p_top->parent;
    return p_top != &node && p_top->kind == SCHEMA_KIND_RPC;
}

static uint32_t flags_of(const t_schema_node &node)
{
    int flags = node.config ? CS_NODE_IS_WRITE | CS_NODE_IS_CDB : 0;
    if (is_parameter(node))
        flags |= node.output ? CS_NODE_IS_RESULT : CS_NODE_IS_PARAM;
    return static_cast<uint32_t>(flags);
}

// A case is a node of its own here; it has the tag that its name has, or would have, as a node.
static uint32_t case_add(t_schema_build *p_build, const t_schema_node &child, uint32_t parent)
{
    std::string name(child.choice_case);
    uint32_t tag = schema_name_tag(*p_build->p_index, name);
    if (tag == 0) {
        tag = schema_derived_hash(name);
        p_build->cases.emplace(tag, name);
    }
    std::vector<t_ipc_schema_node> &nodes = p_build->schema.nodes;
    nodes.push_back({.tag = tag,
                     .ns = child.ns,
                     .parent = parent,
                     .kind = IPC_NODE_CASE,
                     .flags = flags_of(child),
                     .type = IPC_NO_INDEX,
                     .keys = {}});
    return static_cast<uint32_t>(nodes.size() - 1);
}

static void children_add(t_schema_build *p_build, const std::vector<const t_schema_node *> &children,
                         uint32_t parent)
{
    std::map<std::pair<std::string_view, std::string_view>, uint32_t> cases;  // of this parent
    for (const t_schema_node *p_child : children) {
        uint32_t above = parent;
        if (!p_child->choice_case.empty()) {
            auto [entry, is_new] = cases.try_emplace({p_child->choice, p_child->choice_case}, 0);
            if (is_new)
                entry->second = case_add(p_build, *p_child, parent);
            above = entry->second;
        }
        std::vector<t_ipc_schema_node> &nodes = p_build->schema.nodes;
        uint32_t own = static_cast<uint32_t>(nodes.size());
        nodes.push_back({.tag = p_child->tag,
                         .ns = p_child->ns,
                         .parent = above,
                         .kind = kind_of(*p_child),
                         .flags = flags_of(*p_child),
                         .type = type_add(p_build, *p_child),
                         .keys = {}});
        for (const t_schema_node *p_key : p_child->keys)
            nodes.back().keys.push_back(p_key->tag);
        children_add(p_build, p_child->children, own);
        children_add(p_build, p_child->outputs, own);
    }
}

t_ipc_schema ipc_schema_of(const t_schema_index &index)
{
    t_schema_build build = {.p_index = &index, .schema = {}, .types = {}, .cases = {}};
    for (const t_schema_module &module : index.modules)
        build.schema.namespaces.push_back({module.ns, module.name, module.prefix});
    typedefs_add(&build);
    children_add(&build, index.tops, IPC_NO_INDEX);
    for (const auto &[name, tag] : index.tag_by_name)
        build.schema.names.push_back({tag, name});
    for (const auto &[tag, name] : build.cases)
        build.schema.names.push_back({tag, name});
    return std::move(build.schema);
}
