// The schema as it was loaded: once, and kept for the life of the process.
#include "platform/confd/client/client_private.h"

#include "platform/confd/ipc/ipc_path.h"

#include <sys/socket.h>
#include <unistd.h>
#include <unordered_map>

struct confd_type {
    uint32_t ns;
    std::string name;
    std::vector<t_ipc_schema_label> labels;
};

namespace {

struct t_schema {
    std::vector<t_ipc_schema_ns> namespaces;
    std::unordered_map<uint32_t, std::string> names;  // by tag
    std::unordered_map<std::string, uint32_t> tags;   // by name
    std::vector<confd_type> types;
    std::vector<std::vector<uint32_t>> keys;  // of each node, ended by 0
    std::vector<confd_cs_node> nodes;
    std::map<uint32_t, confd_cs_node *> roots;  // first top-level node by namespace
};

}  // namespace

static std::atomic<const t_schema *> loaded_schema;
static std::mutex load_lock;

// ---- Building ----

static int kind_flag(uint8_t kind)
{
    switch (kind) {
    case IPC_NODE_CONTAINER:
        return CS_NODE_IS_CONTAINER;
    case IPC_NODE_LIST:
        return CS_NODE_IS_LIST;
    case IPC_NODE_LEAF:
        return CS_NODE_IS_LEAF;
    case IPC_NODE_LEAF_LIST:
        return CS_NODE_IS_LEAF_LIST;
    case IPC_NODE_CASE:
        return CS_NODE_IS_CASE;
    case IPC_NODE_NOTIFICATION:
        return CS_NODE_IS_NOTIF;
    case IPC_NODE_ACTION:
        return CS_NODE_IS_ACTION;
    default:
        return 0;
    }
}

static confd_vtype shallow_type(const t_ipc_schema_node &node, const t_ipc_schema &schema)
{
    if (node.kind == IPC_NODE_LEAF_LIST)
        return C_LIST;
    return node.type == IPC_NO_INDEX ? C_XMLTAG
                                     : static_cast<confd_vtype>(schema.types[node.type].value_type);
}

// All indexes point where they may, and parents stand before children.
static bool is_sound(const t_ipc_schema &schema)
{
    for (const t_ipc_schema_type &type : schema.types)
        if (type.value_type == 0 || type.value_type > C_IPV6PREFIX)
            return false;
    for (size_t i = 0; i < schema.nodes.size(); i++) {
        const t_ipc_schema_node &node = schema.nodes[i];
        bool has_parent = node.parent == IPC_NO_INDEX || node.parent < i;
        bool has_type = node.type == IPC_NO_INDEX || node.type < schema.types.size();
        if (!has_parent || !has_type || kind_flag(node.kind) == 0)
            return false;
    }
    return true;
}

// Appends a node to its siblings; p_last holds the last child of each node so far.
static void link_node(t_schema *p_schema, size_t index, uint32_t parent, std::vector<confd_cs_node *> *p_last)
{
    confd_cs_node *p_node = &p_schema->nodes[index];
    if (parent != IPC_NO_INDEX) {
        p_node->parent = &p_schema->nodes[parent];
        confd_cs_node *&last = (*p_last)[parent];
        (last == nullptr ? p_node->parent->children : last->next) = p_node;
        last = p_node;
        return;
    }
    confd_cs_node **pp_next = &p_schema->roots[p_node->ns];
    while (*pp_next != nullptr)
        pp_next = &(*pp_next)->next;
    *pp_next = p_node;
}

static void build_nodes(t_schema *p_schema, const t_ipc_schema &schema)
{
    p_schema->keys.resize(schema.nodes.size());
    p_schema->nodes.resize(schema.nodes.size());
    std::vector<confd_cs_node *> last(schema.nodes.size());
    for (size_t i = 0; i < schema.nodes.size(); i++) {
        const t_ipc_schema_node &from = schema.nodes[i];
        p_schema->keys[i] = from.keys;
        p_schema->keys[i].push_back(0);
        confd_cs_node &node = p_schema->nodes[i];
        node.tag = from.tag;
        node.ns = from.ns;
        node.info.keys = from.keys.empty() ? nullptr : p_schema->keys[i].data();
        node.info.shallow_type = shallow_type(from, schema);
        node.info.type = from.type == IPC_NO_INDEX ? nullptr : &p_schema->types[from.type];
        node.info.flags = kind_flag(from.kind) | static_cast<int>(from.flags);
        link_node(p_schema, i, from.parent, &last);
    }
}

static const t_schema *build(t_ipc_schema schema)
{
    if (!is_sound(schema))
        return nullptr;
    t_schema *p_schema = new t_schema();
    p_schema->namespaces = schema.namespaces;
    for (const t_ipc_schema_name &name : schema.names) {
        p_schema->names[name.tag] = name.name;
        p_schema->tags[name.name] = name.tag;
    }
    for (t_ipc_schema_type &type : schema.types)
        p_schema->types.push_back({type.ns, type.name, type.labels});
    build_nodes(p_schema, schema);
    return p_schema;
}

static int load(int fd, const sockaddr *p_address, int address_size)
{
    int result = client_connect(fd, p_address, address_size, IPC_CONN_SCHEMA, {});
    if (result != CONFD_OK)
        return result;
    t_ipc_schema schema;
    result = client_ask(fd, IPC_CONN_SCHEMA, IPC_OP_SCHEMA_LOAD, {}, &schema);
    client_disconnect(fd);
    if (result != CONFD_OK)
        return result;
    const t_schema *p_schema = build(std::move(schema));
    if (p_schema == nullptr)
        return client_fail(CONFD_ERR_INTERNAL, "The management daemon's schema is not sound");
    loaded_schema = p_schema;
    return CONFD_OK;
}

int confd_load_schemas(const struct sockaddr *srv, int srv_sz)
{
    std::lock_guard guard(load_lock);
    if (loaded_schema != nullptr)
        return CONFD_OK;
    int fd = socket(srv->sa_family, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (fd < 0)
        return client_fail(CONFD_ERR_OS, "Failed to open a socket");
    int result = load(fd, srv, srv_sz);
    close(fd);
    return result;
}

// ---- Looking up ----

const char *confd_hash2str(uint32_t hash)
{
    const t_schema *p_schema = loaded_schema;
    if (p_schema == nullptr)
        return nullptr;
    auto found = p_schema->names.find(hash);
    return found == p_schema->names.end() ? nullptr : found->second.c_str();
}

uint32_t confd_str2hash(const char *str)
{
    const t_schema *p_schema = loaded_schema;
    if (p_schema == nullptr)
        return 0;
    auto found = p_schema->tags.find(str);
    return found == p_schema->tags.end() ? 0 : found->second;
}

std::string client_prefix_of(uint32_t ns)
{
    const t_schema *p_schema = loaded_schema;
    if (p_schema != nullptr)
        for (const t_ipc_schema_ns &space : p_schema->namespaces)
            if (space.hash == ns)
                return space.prefix;
    return "";
}

static bool is_prefix_of(const t_schema &schema, const std::string &prefix, uint32_t ns)
{
    for (const t_ipc_schema_ns &space : schema.namespaces)
        if (space.hash == ns)
            return prefix.empty() || prefix == space.prefix || prefix == space.module;
    return prefix.empty();
}

confd_cs_node *confd_find_cs_root(int ns)
{
    const t_schema *p_schema = loaded_schema;
    if (p_schema == nullptr)
        return nullptr;
    auto found = p_schema->roots.find(static_cast<uint32_t>(ns));
    return found == p_schema->roots.end() ? nullptr : found->second;
}

// Among siblings, and among the children of cases, which stand in no path of data.
static confd_cs_node *find_step(const t_schema &schema, confd_cs_node *p_first, uint32_t tag,
                                const std::string &prefix)
{
    for (confd_cs_node *p_node = p_first; p_node != nullptr; p_node = p_node->next)
        if (p_node->tag == tag && is_prefix_of(schema, prefix, p_node->ns))
            return p_node;
    for (confd_cs_node *p_node = p_first; p_node != nullptr; p_node = p_node->next) {
        if ((p_node->info.flags & CS_NODE_IS_CASE) == 0)
            continue;
        confd_cs_node *p_found = find_step(schema, p_node->children, tag, prefix);
        if (p_found != nullptr)
            return p_found;
    }
    return nullptr;
}

static confd_cs_node *find_top(const t_schema &schema, uint32_t tag, const std::string &prefix)
{
    for (const auto &[ns, p_root] : schema.roots) {
        confd_cs_node *p_found = find_step(schema, p_root, tag, prefix);
        if (p_found != nullptr)
            return p_found;
    }
    return nullptr;
}

static confd_cs_node *find_node(const t_schema &schema, const confd_cs_node *p_start,
                                const t_ipc_parsed_path &path)
{
    confd_cs_node *p_node = nullptr;
    bool is_at_top = path.is_absolute || p_start == nullptr;
    confd_cs_node *p_children = is_at_top ? nullptr : p_start->children;
    for (const t_ipc_path_step &step : path.steps) {
        uint32_t tag = confd_str2hash(step.name.c_str());
        p_node =
            is_at_top ? find_top(schema, tag, step.prefix) : find_step(schema, p_children, tag, step.prefix);
        if (p_node == nullptr)
            return nullptr;
        p_children = p_node->children;
        is_at_top = false;
    }
    return p_node;
}

confd_cs_node *confd_cs_node_cd(const confd_cs_node *start, const char *fmt, ...)
{
    std::string text;
    va_list args;
    va_start(args, fmt);
    int result = client_path(&text, fmt, args);
    va_end(args);
    t_ipc_parsed_path path;
    const t_schema *p_schema = loaded_schema;
    confd_cs_node *p_node = nullptr;
    if (result == CONFD_OK && p_schema != nullptr && ipc_path_parse(text, &path))
        p_node = find_node(*p_schema, start, path);
    if (p_node == nullptr)
        client_fail(CONFD_ERR_BADPATH, "No schema node %s", text.c_str());
    return p_node;
}

confd_type *confd_find_ns_type(uint32_t nshash, const char *name)
{
    const t_schema *p_schema = loaded_schema;
    if (p_schema != nullptr)
        for (const confd_type &type : p_schema->types)
            if (type.ns == nshash && !type.name.empty() && type.name == name)
                return const_cast<confd_type *>(&type);
    client_fail(CONFD_ERR_NOEXISTS, "No type %s", name);
    return nullptr;
}

// ---- Values by their type ----

static const std::string *label_of(const confd_type *p_type, int64_t value)
{
    for (const t_ipc_schema_label &label : p_type->labels)
        if (label.value == value)
            return &label.name;
    return nullptr;
}

static std::string bits_text(const confd_type *p_type, uint64_t bits)
{
    std::string text;
    for (const t_ipc_schema_label &label : p_type->labels)
        if (label.value >= 0 && label.value < 64 && (bits >> label.value & 1) != 0)
            text += (text.empty() ? "" : " ") + label.name;
    return text;
}

// False for an enumeration value without a name.
static bool typed_text(const confd_type *p_type, const confd_value_t &value, std::string *p_text)
{
    if (value.type == C_LIST) {
        for (unsigned i = 0; i < value.val.list.size; i++) {
            *p_text += i > 0 ? " " : "";
            if (!typed_text(p_type, value.val.list.ptr[i], p_text))
                return false;
        }
        return true;
    }
    if (value.type == C_BIT32 || value.type == C_BIT64) {
        *p_text += bits_text(p_type, value.type == C_BIT32 ? value.val.b32 : value.val.b64);
        return true;
    }
    if (value.type != C_ENUM_VALUE) {
        *p_text += client_value_text(value);
        return true;
    }
    const std::string *p_label = label_of(p_type, value.val.enumvalue);
    *p_text += p_label != nullptr ? *p_label : "";
    return p_label != nullptr;
}

int confd_val2str(confd_type *type, const confd_value_t *val, char *buf, size_t bufsiz)
{
    std::string text;
    if (type == nullptr || !typed_text(type, *val, &text))
        return client_fail(CONFD_ERR_BADTYPE, "The value is not of this type");
    client_copy_text(buf, bufsiz, text);
    return static_cast<int>(text.size());
}

int confd_val2str_ptr(confd_type *type, const confd_value_t *val, const char **strp)
{
    bool is_enum = type != nullptr && val->type == C_ENUM_VALUE;
    const std::string *p_label = is_enum ? label_of(type, val->val.enumvalue) : nullptr;
    if (p_label == nullptr)
        return client_fail(CONFD_ERR_BADTYPE, "The value has no name in this type");
    *strp = p_label->c_str();
    return static_cast<int>(p_label->size());
}
