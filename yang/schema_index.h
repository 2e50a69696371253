// The index of the data model: what the compiled YANG modules say, by path, by tag and by name.
//
// The daemons know a node by its tag, a 31-bit hash of the node's name alone, and a module by its namespace
// hash. Both stand in the model (extensions of lumora-annotations) or are derived from the name. libyang
// keeps the modules; the index adds tags, value types and annotations and finds a node by any of them. Only
// modules that carry tarn:namespace, or that such a module adapts, are indexed; the other IETF modules of the
// NETCONF server are not.
//
// Nodes are data nodes, rpcs, actions, their parameters, and notifications. Choices and cases are no nodes:
// their children belong to the node around the choice. One name has one tag and one tag one name, over all
// modules, and no two top-level nodes share a name, so paths resolve without prefixes.
//
// schema_context_new makes the context and loads the modules, schema_index_new reads a context. The context
// must outlive the index, and no module may be added to it afterwards. An index never changes: any number of
// threads may read it. Nothing here writes lysc_node::priv.
#pragma once

#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

struct ly_ctx;
struct lysc_node;
struct lysc_type;

enum e_schema_kind {
    SCHEMA_KIND_CONTAINER,
    SCHEMA_KIND_LIST,
    SCHEMA_KIND_LEAF,
    SCHEMA_KIND_LEAF_LIST,
    SCHEMA_KIND_RPC,  // an rpc or an action
    SCHEMA_KIND_NOTIFICATION,
};

// Type of a value, with the numbers of the management framework's values.
enum e_schema_value {
    SCHEMA_VALUE_NONE = 0,  // containers, lists, rpcs, notifications
    SCHEMA_VALUE_EMPTY = 2,
    SCHEMA_VALUE_STRING = 5,
    SCHEMA_VALUE_INT8 = 6,
    SCHEMA_VALUE_INT16 = 7,
    SCHEMA_VALUE_INT32 = 8,
    SCHEMA_VALUE_INT64 = 9,
    SCHEMA_VALUE_UINT8 = 10,
    SCHEMA_VALUE_UINT16 = 11,
    SCHEMA_VALUE_UINT32 = 12,
    SCHEMA_VALUE_UINT64 = 13,
    SCHEMA_VALUE_IPV4 = 15,
    SCHEMA_VALUE_IPV6 = 16,
    SCHEMA_VALUE_BOOL = 17,
    SCHEMA_VALUE_DATETIME = 19,
    SCHEMA_VALUE_ENUM = 28,
    SCHEMA_VALUE_BIT32 = 29,
    SCHEMA_VALUE_BIT64 = 30,
    SCHEMA_VALUE_LIST = 31,  // a leaf-list; its elements' type stands beside it
    SCHEMA_VALUE_IPV4PREFIX = 40,
    SCHEMA_VALUE_IPV6PREFIX = 41,
    // A union: the value in hand decides. schema_value_of_type on its real type tells.
    SCHEMA_VALUE_UNION = 0x100,
};

struct t_schema_node {
    const t_schema_node *parent;  // null at the top of a module
    const lysc_node *yang;
    std::string_view name;
    std::string path;  // without prefixes and keys: "/policy/zone-pair/pair-id"
    uint32_t tag;
    uint32_t ns;     // namespace hash of the module that defines the node
    uint32_t order;  // position in the walk of the whole model, parents first, in schema order
    e_schema_kind kind;
    e_schema_value value;    // of a leaf; SCHEMA_VALUE_LIST for a leaf-list
    e_schema_value element;  // of a leaf-list's elements; else SCHEMA_VALUE_NONE
    bool config;             // false: operational state, parameters, notifications
    bool key;                // a leaf that is a key of its list
    bool output;             // below the output of an rpc
    bool mandatory;

    std::string_view choice;  // the innermost choice and case that the node stands in directly; or empty
    std::string_view choice_case;
    std::string_view callpoint;    // provider of an operational list's rows; or empty
    std::string_view hook;         // to be called when the node is created; on each node that it concerns
    std::string_view actionpoint;  // of an rpc; or empty
    std::string_view validation;   // validation point; or empty

    std::vector<const t_schema_node *> children;  // schema order; of an rpc its input
    std::vector<const t_schema_node *> outputs;   // of an rpc
    std::vector<const t_schema_node *> keys;      // of a list, in key order
};

struct t_schema_enum {
    std::string name;
    int32_t value;
};

// A typedef of an enumeration.
struct t_schema_typedef {
    std::string name;
    uint32_t ns;
    bool generated;  // made at build time from the catalogue, in a submodule
    std::vector<t_schema_enum> enums;
};

struct t_schema_module {
    std::string name;
    std::string prefix;
    uint32_t ns;
};

struct t_schema_index {
    std::vector<std::unique_ptr<t_schema_node>> nodes;  // by order
    std::vector<const t_schema_node *> tops;
    std::vector<t_schema_module> modules;
    std::vector<t_schema_typedef> typedefs;

    // Behind the functions below.
    std::unordered_map<const lysc_node *, const t_schema_node *> by_yang;
    std::unordered_map<std::string_view, const t_schema_node *> by_path;
    std::unordered_map<std::string, uint32_t> tag_by_name;
    std::unordered_map<uint32_t, std::string> name_by_hash;  // tags and namespaces
};

struct t_schema_context_deleter {
    void operator()(ly_ctx *p_ctx) const;
};
using schema_context_ptr = std::unique_ptr<ly_ctx, t_schema_context_deleter>;

// Set up. All throw std::bad_alloc without memory.

// The modules of the model, in an order in which they can be loaded.
extern const std::span<const char *const> g_schema_module_names;

// Adds the modules of the model to a context that knows their folder (ly_ctx_set_searchdir). The NETCONF
// server loads the IETF modules that it needs itself. On failure the result is false and *p_error names
// module and reason.
[[nodiscard]] bool schema_modules_load(ly_ctx *p_ctx, std::string *p_error);

// A context that searches one folder, with the model loaded. Null on failure, with the reason in *p_error.
[[nodiscard]] schema_context_ptr schema_context_new(const std::string &folder, std::string *p_error);

// The index of all annotated modules that are implemented in the context. Null when the model breaks one of
// the rules that the index stands on (a tag of two names, a name of two tags, a hash of 0 or above 31 bits,
// two top-level nodes of one name, a type without a value type, no namespace hash in a module that has tags);
// *p_errors then has one text for each fault, with the node's path.
[[nodiscard]] std::unique_ptr<const t_schema_index> schema_index_new(const ly_ctx *p_ctx,
                                                                     std::vector<std::string> *p_errors);

// Look up. All give null, 0 or an empty text for what is not there.

// The child of a node by tag; p_parent null means the top level. A namespace of 0 fits any. Below an rpc the
// input is searched.
const t_schema_node *schema_child_by_tag(const t_schema_index &index, const t_schema_node *p_parent,
                                         uint32_t tag, uint32_t ns = 0);

// The child of a node by name, with or without a prefix or module name ("lumora-policy:policy"), which must
// be the right one.
const t_schema_node *schema_child_by_name(const t_schema_index &index, const t_schema_node *p_parent,
                                          std::string_view name);

// A node by its path: with or without the leading slash, with or without prefixes, no keys in it. Output
// parameters of an rpc are found behind "output/".
const t_schema_node *schema_find(const t_schema_index &index, std::string_view path);

// The index's node of a libyang node; null for a choice, a case, or a module that is not indexed.
const t_schema_node *schema_node_of(const t_schema_index &index, const lysc_node *p_yang);

// The name behind a tag or a namespace hash: a node's name or a module's.
std::string_view schema_hash_name(const t_schema_index &index, uint32_t hash);

// The tag of a node name anywhere in the model, the hash of a module by its name.
uint32_t schema_name_tag(const t_schema_index &index, std::string_view name);
uint32_t schema_module_ns(const t_schema_index &index, std::string_view module_name);

const t_schema_typedef *schema_typedef_find(const t_schema_index &index, uint32_t ns, std::string_view name);

// The value type of a libyang type. Leafrefs give that of their target. SCHEMA_VALUE_NONE for a type that has
// none in the framework.
e_schema_value schema_value_of_type(const lysc_type *p_type);

// CRC-32 of a name without the top bit: the tag or namespace hash of a name that has no given one.
uint32_t schema_derived_hash(std::string_view name);
