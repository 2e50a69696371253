#include "yang/schema_index.h"

static const std::vector<const t_schema_node *> &children_of(const t_schema_index &index,
                                                             const t_schema_node *p_parent)
{
    return p_parent == nullptr ? index.tops : p_parent->children;
}

const t_schema_node *schema_child_by_tag(const t_schema_index &index, const t_schema_node *p_parent,
                                         uint32_t tag, uint32_t ns)
{
    for (const t_schema_node *p_node : children_of(index, p_parent))
        if (p_node->tag == tag && (ns == 0 || p_node->ns == ns))
            return p_node;
    return nullptr;
}

static bool is_module(const t_schema_index &index, uint32_t ns, std::string_view text)
{
    for (const t_schema_module &module : index.modules)
        if (module.ns == ns)
            return text == module.prefix || text == module.name;
    return false;
}

static const t_schema_node *find_named(const t_schema_index &index,
                                       const std::vector<const t_schema_node *> &nodes, std::string_view name)
{
    size_t colon = name.find(':');
    std::string_view bare = colon == name.npos ? name : name.substr(colon + 1);
    for (const t_schema_node *p_node : nodes)
        if (p_node->name == bare)
            return colon == name.npos || is_module(index, p_node->ns, name.substr(0, colon)) ? p_node
                                                                                             : nullptr;
    return nullptr;
}

const t_schema_node *schema_child_by_name(const t_schema_index &index, const t_schema_node *p_parent,
                                          std::string_view name)
{
    return find_named(index, children_of(index, p_parent), name);
}

// Prefixes are rare, so the plain look-up is tried first.
const t_schema_node *schema_find(const t_schema_index &index, std::string_view path)
{
    while (path.starts_with('/'))
        path.remove_prefix(1);
    auto exact = index.by_path.find("/" + std::string(path));
    if (exact != index.by_path.end())
        return exact->second;
    if (path.find(':') == path.npos)
        return nullptr;
    const t_schema_node *p_node = nullptr;
    bool output = false;
    while (!path.empty()) {
        size_t end = std::min(path.find('/'), path.size());
        std::string_view step = path.substr(0, end);
        path.remove_prefix(std::min(end + 1, path.size()));
        if (p_node != nullptr && p_node->kind == SCHEMA_KIND_RPC && step == "output" && !output) {
            output = true;
            continue;
        }
        p_node =
            output ? find_named(index, p_node->outputs, step) : schema_child_by_name(index, p_node, step);
        output = false;
        if (p_node == nullptr)
            return nullptr;
    }
    return output ? nullptr : p_node;
}

const t_schema_node *schema_node_of(const t_schema_index &index, const lysc_node *p_yang)
{
    auto entry = index.by_yang.find(p_yang);
    return entry == index.by_yang.end() ? nullptr : entry->second;
}

std::string_view schema_hash_name(const t_schema_index &index, uint32_t hash)
{
    auto entry = index.name_by_hash.find(hash);
    return entry == index.name_by_hash.end() ? std::string_view() : entry->second;
}

uint32_t schema_name_tag(const t_schema_index &index, std::string_view name)
{
    auto entry = index.tag_by_name.find(std::string(name));
    return entry == index.tag_by_name.end() ? 0 : entry->second;
}

uint32_t schema_module_ns(const t_schema_index &index, std::string_view module_name)
{
    for (const t_schema_module &module : index.modules)
        if (module.name == module_name)
            return module.ns;
    return 0;
}

const t_schema_typedef *schema_typedef_find(const t_schema_index &index, uint32_t ns, std::string_view name)
{
    for (const t_schema_typedef &type : index.typedefs)
        if (type.ns == ns && type.name == name)
            return &type;
    return nullptr;
}
