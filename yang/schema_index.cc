// Building the index: one walk over the compiled modules makes the nodes, then the names get their tags.

#include "yang/schema_index.h"

#include "yang/schema_index_private.h"

#include <charconv>
#include <map>

static constexpr uint32_t highest_hash = 0x7fffffff;

struct t_builder {
    t_schema_index *p_index;
    std::vector<std::string> *p_errors;
    std::vector<t_schema_node *> nodes;         // by order, still to be changed
    std::map<std::string, uint32_t> given;      // tags that the model states, by name
    std::map<const lys_module *, uint32_t> ns;  // of the annotated modules
};

namespace {

// Where in the tree a child is made.
struct t_place {
    t_schema_node *parent;
    bool output;
    std::string_view subtree_hook;
    std::string_view choice;
    std::string_view choice_case;
};

}  // namespace

static void complain(t_builder *p_builder, std::string_view place, const std::string &reason)
{
    p_builder->p_errors->push_back(std::string(place) + ": " + reason);
}

static std::string hex(uint32_t hash)
{
    char text[16];
    snprintf(text, sizeof(text), "0x%08x", hash);
    return text;
}

// 0 for a text that is no hash.
static uint32_t parse_hash(std::string_view text)
{
    if (!text.starts_with("0x"))
        return 0;
    text.remove_prefix(2);
    uint32_t value = 0;
    auto [p_end, error] = std::from_chars(text.data(), text.data() + text.size(), value, 16);
    if (error != std::errc() || p_end != text.data() + text.size() || value > highest_hash)
        return 0;
    return value;
}

// Names of nodes and modules

static void claim_hash(t_builder *p_builder, std::string_view place, const std::string &name, uint32_t hash)
{
    if (hash == 0) {
        complain(p_builder, place, "the hash of " + name + " is 0: give it another one");
        return;
    }
    auto [entry, added] = p_builder->p_index->name_by_hash.emplace(hash, name);
    if (!added && entry->second != name)
        complain(p_builder, place, "the hash " + hex(hash) + " of " + name + " is that of " + entry->second);
}

static void note_given_tag(t_builder *p_builder, const t_schema_node &node)
{
    std::string_view text = schema_annotation(node.yang->exts, "tag");
    if (text.empty())
        return;
    uint32_t tag = parse_hash(text);
    if (tag == 0) {
        complain(p_builder, node.path, "'" + std::string(text) + "' is no tag");
        return;
    }
    auto [entry, added] = p_builder->given.emplace(node.name, tag);
    if (!added && entry->second != tag)
        complain(p_builder, node.path,
                 "the tag " + hex(tag) + " differs from " + hex(entry->second) +
                     ", given to the same name elsewhere");
}

static void assign_tags(t_builder *p_builder)
{
    t_schema_index *p_index = p_builder->p_index;
    for (t_schema_node *p_node : p_builder->nodes)
        note_given_tag(p_builder, *p_node);
    for (t_schema_node *p_node : p_builder->nodes) {
        std::string name(p_node->name);
        auto given = p_builder->given.find(name);
        p_node->tag = given != p_builder->given.end() ? given->second : schema_derived_hash(name);
        if (p_index->tag_by_name.emplace(name, p_node->tag).second)
            claim_hash(p_builder, p_node->path, name, p_node->tag);
    }
}

// Nodes

static e_schema_kind kind_of(const lysc_node *p_yang)
{
    switch (p_yang->nodetype) {
    case LYS_LIST:
        return SCHEMA_KIND_LIST;
    case LYS_LEAF:
        return SCHEMA_KIND_LEAF;
    case LYS_LEAFLIST:
        return SCHEMA_KIND_LEAF_LIST;
    case LYS_RPC:
    case LYS_ACTION:
        return SCHEMA_KIND_RPC;
    case LYS_NOTIF:
        return SCHEMA_KIND_NOTIFICATION;
    default:
        return SCHEMA_KIND_CONTAINER;
    }
}

static void fill_value(t_builder *p_builder, t_schema_node *p_node)
{
    if (p_node->kind == SCHEMA_KIND_LEAF) {
        p_node->value = schema_value_of_type(reinterpret_cast<const lysc_node_leaf *>(p_node->yang)->type);
    } else if (p_node->kind == SCHEMA_KIND_LEAF_LIST) {
        p_node->value = SCHEMA_VALUE_LIST;
        p_node->element =
            schema_value_of_type(reinterpret_cast<const lysc_node_leaflist *>(p_node->yang)->type);
    }
    bool typed = p_node->kind == SCHEMA_KIND_LEAF
                     ? p_node->value != SCHEMA_VALUE_NONE
                     : p_node->value == SCHEMA_VALUE_NONE || p_node->element != SCHEMA_VALUE_NONE;
    if (!typed || (p_node->yang->nodetype & LYS_ANYDATA) != 0)
        complain(p_builder, p_node->path, "the daemons have no value of this type");
}

static std::string_view hook_of(const t_schema_node &node, std::string_view subtree_hook)
{
    std::string_view own = schema_annotation(node.yang->exts, "hook");
    if (!own.empty())
        return own;
    bool created = node.kind == SCHEMA_KIND_LIST || node.value == SCHEMA_VALUE_EMPTY;
    return created ? subtree_hook : std::string_view();
}

static void link(t_builder *p_builder, t_schema_node *p_node)
{
    t_schema_index *p_index = p_builder->p_index;
    t_schema_node *p_parent = const_cast<t_schema_node *>(p_node->parent);
    if (p_parent == nullptr)
        p_index->tops.push_back(p_node);
    else if (p_node->output && p_parent->kind == SCHEMA_KIND_RPC)
        p_parent->outputs.push_back(p_node);
    else
        p_parent->children.push_back(p_node);
    if (p_parent != nullptr && p_node->key)
        p_parent->keys.push_back(p_node);
    p_index->by_yang.emplace(p_node->yang, p_node);
    if (!p_index->by_path.emplace(p_node->path, p_node).second)
        complain(p_builder, p_node->path, "two nodes of this name stand in one place");
}

static t_schema_node *make_node(t_builder *p_builder, const lysc_node *p_yang, const t_place &place)
{
    auto p_node = std::make_unique<t_schema_node>();
    bool first_output = place.output && place.parent->kind == SCHEMA_KIND_RPC;
    p_node->parent = place.parent;
    p_node->yang = p_yang;
    p_node->name = p_yang->name;
    p_node->path = (place.parent != nullptr ? place.parent->path : "") + (first_output ? "/output/" : "/") +
                   p_yang->name;
    p_node->order = static_cast<uint32_t>(p_builder->nodes.size());
    p_node->kind = kind_of(p_yang);
    p_node->config = (p_yang->flags & LYS_CONFIG_W) != 0;
    p_node->key = lysc_is_key(p_yang);
    p_node->output = place.output;
    p_node->mandatory = (p_yang->flags & LYS_MAND_TRUE) != 0;
    p_node->choice = place.choice;
    p_node->choice_case = place.choice_case;
    fill_value(p_builder, p_node.get());
    p_node->callpoint = schema_annotation(p_yang->exts, "callpoint");
    p_node->actionpoint = schema_annotation(p_yang->exts, "actionpoint");
    p_node->validation = schema_annotation(p_yang->exts, "validation");
    p_node->hook = hook_of(*p_node, place.subtree_hook);
    auto ns = p_builder->ns.find(p_yang->module);
    if (ns == p_builder->ns.end())
        complain(p_builder, p_node->path,
                 std::string("the module ") + p_yang->module->name + " has no namespace hash");
    else
        p_node->ns = ns->second;
    link(p_builder, p_node.get());
    t_schema_node *p_result = p_node.get();
    p_builder->nodes.push_back(p_result);
    p_builder->p_index->nodes.push_back(std::move(p_node));
    return p_result;
}

static void add_nodes(t_builder *p_builder, const lysc_node *p_first, const t_place &place);

static void add_below(t_builder *p_builder, t_schema_node *p_node, const t_place &place)
{
    t_place below = {.parent = p_node,
                     .output = place.output,
                     .subtree_hook = place.subtree_hook,
                     .choice = {},
                     .choice_case = {}};
    std::string_view subtree = schema_annotation(p_node->yang->exts, "hook-subtree");
    if (!subtree.empty()) {
        below.subtree_hook = subtree;
        p_node->hook = subtree;
    }
    if (p_node->kind == SCHEMA_KIND_RPC) {
        const lysc_node_action *p_rpc = reinterpret_cast<const lysc_node_action *>(p_node->yang);
        add_nodes(p_builder, p_rpc->input.child, below);
        below.output = true;
        add_nodes(p_builder, p_rpc->output.child, below);
        return;
    }
    add_nodes(p_builder, lysc_node_child(p_node->yang), below);
    add_nodes(p_builder, reinterpret_cast<const lysc_node *>(lysc_node_actions(p_node->yang)), below);
    add_nodes(p_builder, reinterpret_cast<const lysc_node *>(lysc_node_notifs(p_node->yang)), below);
}

static void add_nodes(t_builder *p_builder, const lysc_node *p_first, const t_place &place)
{
    for (const lysc_node *p_yang = p_first; p_yang != nullptr; p_yang = p_yang->next) {
        if ((p_yang->nodetype & (LYS_CHOICE | LYS_CASE)) != 0) {
            t_place inside = place;
            (p_yang->nodetype == LYS_CHOICE ? inside.choice : inside.choice_case) = p_yang->name;
            add_nodes(p_builder, lysc_node_child(p_yang), inside);
            continue;
        }
        add_below(p_builder, make_node(p_builder, p_yang, place), place);
    }
}

// Typedefs

static void add_typedefs(t_builder *p_builder, const lysp_tpdf *p_typedefs, uint32_t ns, bool generated)
{
    for (size_t i = 0; i < LY_ARRAY_COUNT(p_typedefs); i++) {
        const lysp_type_enum *p_enums = p_typedefs[i].type.enums;
        if (LY_ARRAY_COUNT(p_enums) == 0)
            continue;
        t_schema_typedef result = {.name = p_typedefs[i].name, .ns = ns, .generated = generated, .enums = {}};
        int64_t next = 0;
        for (size_t k = 0; k < LY_ARRAY_COUNT(p_enums); k++) {
            int64_t value = (p_enums[k].flags & LYS_SET_VALUE) != 0 ? p_enums[k].value : next;
            next = std::max(next, value + 1);
            result.enums.push_back({p_enums[k].name, static_cast<int32_t>(value)});
        }
        p_builder->p_index->typedefs.push_back(std::move(result));
    }
}

static bool is_catalogue(const lysp_submodule *p_submodule)
{
    return std::string_view(p_submodule->name).ends_with("-catalogue");
}

// Modules

static bool imports_annotations(const lys_module *p_module)
{
    for (size_t i = 0; i < LY_ARRAY_COUNT(p_module->parsed->imports); i++)
        if (std::string_view(p_module->parsed->imports[i].name) == "lumora-annotations")
            return true;
    return false;
}

static void claim_module(t_builder *p_builder, const lys_module *p_module, uint32_t hash)
{
    std::string name = p_module->name;
    claim_hash(p_builder, name, name, hash);
    p_builder->ns.emplace(p_module, hash);
    p_builder->p_index->modules.push_back({name, p_module->prefix, hash});
    add_typedefs(p_builder, p_module->parsed->typedefs, hash, false);
    for (size_t i = 0; i < LY_ARRAY_COUNT(p_module->parsed->includes); i++) {
        const lysp_submodule *p_submodule = p_module->parsed->includes[i].submodule;
        add_typedefs(p_builder, p_submodule->typedefs, hash, is_catalogue(p_submodule));
    }
}

// A module of others that an annotated one has made part of the model.
static void add_adapted(t_builder *p_builder, const lys_module *p_by, std::string_view adapted)
{
    std::string name(adapted);
    const lys_module *p_module = ly_ctx_get_module_implemented(p_by->ctx, name.c_str());
    if (p_module == nullptr)
        complain(p_builder, p_by->name, "the module " + name + ", which it adapts, is not implemented");
    else
        claim_module(p_builder, p_module, schema_derived_hash(name));
}

static void add_module(t_builder *p_builder, const lys_module *p_module)
{
    std::string name = p_module->name;
    std::string_view text = schema_annotation(p_module->compiled->exts, "namespace");
    if (text.empty()) {
        if (imports_annotations(p_module))
            complain(p_builder, name, "the module has no namespace hash");
        return;
    }
    claim_module(p_builder, p_module, text == "derived" ? schema_derived_hash(name) : parse_hash(text));
    std::string_view adapted = schema_annotation(p_module->compiled->exts, "adapts");
    if (!adapted.empty())
        add_adapted(p_builder, p_module, adapted);
}

static void add_tops(t_builder *p_builder, const lys_module *p_module)
{
    t_place top = {};
    add_nodes(p_builder, p_module->compiled->data, top);
    add_nodes(p_builder, reinterpret_cast<const lysc_node *>(p_module->compiled->rpcs), top);
    add_nodes(p_builder, reinterpret_cast<const lysc_node *>(p_module->compiled->notifs), top);
}

std::unique_ptr<const t_schema_index> schema_index_new(const ly_ctx *p_ctx,
                                                       std::vector<std::string> *p_errors)
{
    auto p_index = std::make_unique<t_schema_index>();
    t_builder builder = {.p_index = p_index.get(), .p_errors = p_errors, .nodes = {}, .given = {}, .ns = {}};
    p_errors->clear();
    std::vector<const lys_module *> modules;
    uint32_t i = 0;
    while (const lys_module *p_module = ly_ctx_get_module_iter(p_ctx, &i))
        if (p_module->implemented && p_module->compiled != nullptr)
            add_module(&builder, p_module);
    i = 0;
    while (const lys_module *p_module = ly_ctx_get_module_iter(p_ctx, &i))
        if (builder.ns.contains(p_module))
            add_tops(&builder, p_module);
    assign_tags(&builder);
    if (!p_errors->empty())
        return nullptr;
    return p_index;
}
