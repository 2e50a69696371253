// Edits from JSON and from paths.

#include "mgmtd/store/mgmt_edit.h"

#include <nlohmann/json.hpp>

using t_json = nlohmann::json;

// ---- Values ----

// What a JSON value says for a leaf, as the text of its value.
static bool scalar_text(const t_json &value, std::string *p_text)
{
    if (value.is_string()) {
        *p_text = value.get<std::string>();
        return true;
    }
    if (value.is_null() || (value.is_array() && value.size() == 1 && value[0].is_null())) {
        p_text->clear();
        return true;
    }
    if (!value.is_number_integer() && !value.is_boolean())
        return false;
    *p_text = value.dump();
    return true;
}

// Makes edit nodes of JSON members; path names the place in errors.
struct t_json_reader {
    const t_schema_index &index;
    t_mgmt_error *p_error;
};

static bool value_fail(const t_json_reader &reader, const t_schema_node *p_schema, const std::string &reason)
{
    return mgmt_fail(reader.p_error, MGMT_ERR_BADTYPE, p_schema->path, reason);
}

static bool members_read(const t_json_reader &reader, const t_schema_node *p_parent, const t_json &object,
                         std::vector<t_mgmt_edit_node> *p_nodes);

// The keys of an entry, taken from the members of its object.
static bool entry_keys_read(const t_json_reader &reader, const t_schema_node *p_list, const t_json &object,
                            std::vector<std::string> *p_keys)
{
    for (const t_schema_node *p_key : p_list->keys) {
        auto member = object.find(p_key->name);
        if (member == object.end()) {
            // With the module's name in front.
            for (member = object.begin(); member != object.end(); ++member) {
                if (schema_child_by_name(reader.index, p_list, member.key()) == p_key)
                    break;
            }
        }
        if (member == object.end())
            return value_fail(reader, p_list, "an entry lacks its key " + std::string(p_key->name));
        if (!scalar_text(*member, &p_keys->emplace_back()))
            return value_fail(reader, p_key, "the key is no simple value");
    }
    return true;
}

static bool entry_read(const t_json_reader &reader, const t_schema_node *p_list, const t_json &object,
                       std::vector<t_mgmt_edit_node> *p_nodes)
{
    if (!object.is_object())
        return value_fail(reader, p_list, "an entry is an object");
    t_mgmt_edit_node &node = p_nodes->emplace_back();
    node.schema = p_list;
    return entry_keys_read(reader, p_list, object, &node.keys) &&
           members_read(reader, p_list, object, &node.children);
}

static bool array_read(const t_json_reader &reader, const t_schema_node *p_schema, const t_json &value,
                       std::vector<t_mgmt_edit_node> *p_nodes)
{
    if (!value.is_array())
        return value_fail(reader, p_schema, "a list is an array");
    for (const t_json &element : value) {
        if (p_schema->kind == SCHEMA_KIND_LIST) {
            if (!entry_read(reader, p_schema, element, p_nodes))
                return false;
            continue;
        }
        t_mgmt_edit_node &node = p_nodes->emplace_back();
        node.schema = p_schema;
        if (!scalar_text(element, &node.keys.emplace_back()))
            return value_fail(reader, p_schema, "an element is no simple value");
    }
    return true;
}

static bool member_read(const t_json_reader &reader, const t_schema_node *p_schema, const t_json &value,
                        std::vector<t_mgmt_edit_node> *p_nodes)
{
    if (p_schema->kind == SCHEMA_KIND_LIST || p_schema->kind == SCHEMA_KIND_LEAF_LIST)
        return array_read(reader, p_schema, value, p_nodes);
    t_mgmt_edit_node &node = p_nodes->emplace_back();
    node.schema = p_schema;
    if (p_schema->kind == SCHEMA_KIND_CONTAINER)
        return value.is_object() ? members_read(reader, p_schema, value, &node.children)
                                 : value_fail(reader, p_schema, "a container is an object");
    if (p_schema->kind != SCHEMA_KIND_LEAF)
        return value_fail(reader, p_schema, "the node holds no configuration");
    if (p_schema->value == SCHEMA_VALUE_EMPTY && !value.is_null() && !value.is_array())
        return value_fail(reader, p_schema, "an empty leaf is [null]");
    if (!scalar_text(value, &node.keys.emplace_back()))
        return value_fail(reader, p_schema, "the value is no text, whole number or truth value");
    return true;
}

static bool members_read(const t_json_reader &reader, const t_schema_node *p_parent, const t_json &object,
                         std::vector<t_mgmt_edit_node> *p_nodes)
{
    for (const auto &[name, value] : object.items()) {
        const t_schema_node *p_schema = schema_child_by_name(reader.index, p_parent, name);
        if (p_schema == nullptr)
            return mgmt_fail(reader.p_error, MGMT_ERR_BADPATH, p_parent != nullptr ? p_parent->path : "/",
                             "there is no node \"" + name + "\" here");
        if (!member_read(reader, p_schema, value, p_nodes))
            return false;
    }
    return true;
}

// ---- Edits of paths ----

// The chain of nodes that leads to a path's last step; gives the last one.
static t_mgmt_edit_node *chain_make(const t_mgmt_path &path, e_mgmt_op around, t_mgmt_edit *p_edit)
{
    std::vector<t_mgmt_edit_node> *p_level = &p_edit->tops;
    t_mgmt_edit_node *p_node = nullptr;
    for (const t_mgmt_step &step : path.steps) {
        p_node = &p_level->emplace_back();
        p_node->schema = step.schema;
        p_node->op = around;
        p_node->keys = step.keys;
        p_level = &p_node->children;
    }
    return p_node;
}

static e_mgmt_op around_of(e_mgmt_op op)
{
    bool is_removal = op == MGMT_OP_DELETE || op == MGMT_OP_REMOVE || op == MGMT_OP_NONE;
    return is_removal ? MGMT_OP_NONE : MGMT_OP_MERGE;
}

// What stands around must be one instance at each step.
static bool chain_check(const t_mgmt_path &path, t_mgmt_error *p_error)
{
    for (size_t i = 0; i < path.steps.size(); i++) {
        const t_mgmt_step &step = path.steps[i];
        if (step.position >= 0)
            return mgmt_fail(p_error, MGMT_ERR_BADPATH, mgmt_path_text(path),
                             "an edit's path may hold no positions");
        bool is_list = step.schema->kind == SCHEMA_KIND_LIST || step.schema->kind == SCHEMA_KIND_LEAF_LIST;
        if (is_list && step.keys.empty() && i + 1 < path.steps.size())
            return mgmt_fail(p_error, MGMT_ERR_BADPATH, mgmt_path_text(path),
                             "the keys of " + std::string(step.schema->name) + " are missing");
    }
    return true;
}

// Gives each position in a path the keys of the entry there.
static bool positions_resolve(const t_mgmt_tree &tree, t_mgmt_path *p_path, t_mgmt_error *p_error)
{
    t_mgmt_path done;
    for (t_mgmt_step &step : p_path->steps) {
        done.steps.push_back(step);
        if (step.position < 0)
            continue;
        const lyd_node *p_node = mgmt_path_node(tree, done, p_error);
        if (p_node == nullptr)
            return false;
        step.position = -1;
        for (const t_schema_node *p_key : step.schema->keys)
            step.keys.emplace_back(mgmt_node_text(mgmt_tree_child(tree, p_node, p_key)));
        if (step.schema->kind == SCHEMA_KIND_LEAF_LIST)
            step.keys.emplace_back(mgmt_node_text(p_node));
        done.steps.back() = step;
    }
    return true;
}

bool mgmt_edit_of_path(const t_mgmt_tree &tree, const t_mgmt_path &path, e_mgmt_op op,
                       const std::string *p_text, t_mgmt_edit *p_edit, t_mgmt_error *p_error)
{
    t_mgmt_path resolved = path;
    if (!positions_resolve(tree, &resolved, p_error) || !chain_check(resolved, p_error))
        return false;
    if (resolved.steps.empty())
        return mgmt_fail(p_error, MGMT_ERR_BADPATH, "/", "an edit needs a node");
    t_mgmt_edit edit;
    t_mgmt_edit_node *p_node = chain_make(resolved, around_of(op), &edit);
    p_node->op = op;
    bool is_removal = op == MGMT_OP_DELETE || op == MGMT_OP_REMOVE;
    if (p_node->schema->kind == SCHEMA_KIND_LEAF && !is_removal) {
        if (p_text == nullptr && p_node->schema->value != SCHEMA_VALUE_EMPTY)
            return mgmt_fail(p_error, MGMT_ERR_NOTCREATABLE, mgmt_path_text(path), "the leaf needs a value");
        p_node->keys = {p_text != nullptr ? *p_text : ""};
    }
    if (p_node->schema->kind == SCHEMA_KIND_LEAF_LIST && p_node->keys.empty() && p_text != nullptr)
        p_node->keys = {*p_text};
    bool has_no_keys = p_node->keys.empty() && p_node->schema->kind != SCHEMA_KIND_CONTAINER &&
                       p_node->schema->kind != SCHEMA_KIND_LEAF;
    p_node->all = is_removal && has_no_keys;
    if (has_no_keys && !is_removal)
        return mgmt_fail(p_error, MGMT_ERR_BADPATH, mgmt_path_text(path), "the keys are missing");
    *p_edit = std::move(edit);
    return true;
}

// ---- Edits of JSON ----

static bool op_read(const std::string &name, e_mgmt_op *p_op)
{
    static constexpr std::pair<const char *, e_mgmt_op> ops[] = {
        {"none", MGMT_OP_NONE},     {"merge", MGMT_OP_MERGE},   {"replace", MGMT_OP_REPLACE},
        {"create", MGMT_OP_CREATE}, {"delete", MGMT_OP_DELETE}, {"remove", MGMT_OP_REMOVE},
    };
    for (auto [text, op] : ops) {
        if (name == text) {
            *p_op = op;
            return true;
        }
    }
    return false;
}

static bool insert_read(const std::string &name, e_mgmt_insert *p_insert)
{
    static constexpr std::pair<const char *, e_mgmt_insert> inserts[] = {
        {"first", MGMT_INSERT_FIRST},
        {"last", MGMT_INSERT_LAST},
        {"before", MGMT_INSERT_BEFORE},
        {"after", MGMT_INSERT_AFTER},
    };
    for (auto [text, insert] : inserts) {
        if (name == text) {
            *p_insert = insert;
            return true;
        }
    }
    return false;
}

// The members of one edit, as texts where they are texts.
struct t_edit_members {
    std::string path;
    e_mgmt_op op = MGMT_OP_MERGE;
    e_mgmt_insert insert = MGMT_INSERT_STAY;
    std::string at;
    const t_json *p_value = nullptr;
};

static bool edit_members_read(const t_json &object, t_edit_members *p_members, t_mgmt_error *p_error)
{
    if (!object.is_object())
        return mgmt_fail(p_error, MGMT_ERR_BADTYPE, "", "an edit is an object");
    for (const auto &[name, value] : object.items()) {
        if (name == "value") {
            p_members->p_value = &value;
            continue;
        }
        const std::string *p_text = value.get_ptr<const std::string *>();
        bool good = p_text != nullptr;
        if (good && name == "path")
            p_members->path = *p_text;
        else if (good && name == "at")
            p_members->at = *p_text;
        else if (good && name == "op")
            good = op_read(*p_text, &p_members->op);
        else
            good = good && name == "insert" && insert_read(*p_text, &p_members->insert);
        if (!good)
            return mgmt_fail(p_error, MGMT_ERR_BADTYPE, "", "an edit's member \"" + name + "\" is wrong");
    }
    return true;
}

// The key values of "{a b}", read as those of the list.
static bool anchor_read(const t_schema_index &index, const t_edit_members &members, t_mgmt_edit_node *p_node,
                        t_mgmt_error *p_error)
{
    p_node->insert = members.insert;
    if (members.insert != MGMT_INSERT_BEFORE && members.insert != MGMT_INSERT_AFTER)
        return true;
    t_mgmt_path path;
    if (!members.at.starts_with('{') ||
        !mgmt_path_read(index, nullptr, p_node->schema->path + members.at, &path, p_error))
        return mgmt_fail(p_error, MGMT_ERR_BADPATH, members.path, "\"at\" must be keys in braces");
    p_node->anchor = path.steps.back().keys;
    return true;
}

// The whole tree is meant.
static bool top_edit_read(const t_json_reader &reader, const t_edit_members &members, t_mgmt_edit *p_edit)
{
    if (members.p_value == nullptr || !members.p_value->is_object() ||
        (members.op != MGMT_OP_MERGE && members.op != MGMT_OP_REPLACE))
        return mgmt_fail(reader.p_error, MGMT_ERR_BADPATH, "/",
                         "the top can only be merged or replaced, by an object");
    p_edit->replace_all = members.op == MGMT_OP_REPLACE;
    return members_read(reader, nullptr, *members.p_value, &p_edit->tops);
}

// A list or leaf-list without keys: every element of the value gets the operation; replace takes away all
// first.
static bool whole_list_read(const t_json_reader &reader, const t_edit_members &members, t_mgmt_edit_node list,
                            std::vector<t_mgmt_edit_node> *p_siblings)
{
    p_siblings->pop_back();
    bool is_removal = members.op == MGMT_OP_DELETE || members.op == MGMT_OP_REMOVE;
    if (is_removal || members.op == MGMT_OP_REPLACE) {
        list.op = members.op == MGMT_OP_DELETE ? MGMT_OP_DELETE : MGMT_OP_REMOVE;
        list.all = true;
        p_siblings->push_back(list);
    }
    size_t start = p_siblings->size();
    if (is_removal)
        return true;
    if (members.p_value == nullptr)
        return value_fail(reader, list.schema, "the edit has no value");
    if (!array_read(reader, list.schema, *members.p_value, p_siblings))
        return false;
    for (size_t i = start; i < p_siblings->size(); i++)
        (*p_siblings)[i].op = members.op == MGMT_OP_REPLACE ? MGMT_OP_MERGE : members.op;
    return true;
}

static bool node_edit_read(const t_json_reader &reader, const t_edit_members &members,
                           const t_mgmt_path &path, t_mgmt_edit *p_edit)
{
    if (!chain_check(path, reader.p_error))
        return false;
    t_mgmt_edit_node *p_node = chain_make(path, around_of(members.op), p_edit);
    p_node->op = members.op;
    bool is_list = p_node->schema->kind == SCHEMA_KIND_LIST || p_node->schema->kind == SCHEMA_KIND_LEAF_LIST;
    if (is_list && p_node->keys.empty()) {
        std::vector<t_mgmt_edit_node> *p_siblings = &p_edit->tops;
        for (size_t i = 0; i + 1 < path.steps.size(); i++)
            p_siblings = &p_siblings->back().children;
        return whole_list_read(reader, members, *p_node, p_siblings);
    }
    if (!anchor_read(reader.index, members, p_node, reader.p_error))
        return false;
    bool is_removal = members.op == MGMT_OP_DELETE || members.op == MGMT_OP_REMOVE;
    if (is_removal || p_node->schema->kind == SCHEMA_KIND_LEAF_LIST)
        return true;
    if (p_node->schema->kind == SCHEMA_KIND_LEAF) {
        if (members.p_value == nullptr && p_node->schema->value != SCHEMA_VALUE_EMPTY)
            return value_fail(reader, p_node->schema, "the edit has no value");
        if (members.p_value == nullptr)
            p_node->keys = {""};
        else if (p_node->keys = {""}; !scalar_text(*members.p_value, &p_node->keys[0]))
            return value_fail(reader, p_node->schema, "the value is no text, whole number or truth value");
        return true;
    }
    if (members.p_value == nullptr)
        return true;
    return members.p_value->is_object()
               ? members_read(reader, p_node->schema, *members.p_value, &p_node->children)
               : value_fail(reader, p_node->schema, "the value is no object");
}

static bool edit_read(const t_json_reader &reader, const t_json &object, t_mgmt_edit *p_edit)
{
    t_edit_members members;
    t_mgmt_path path;
    if (!edit_members_read(object, &members, reader.p_error) ||
        !mgmt_path_read(reader.index, nullptr, members.path, &path, reader.p_error))
        return false;
    return path.steps.empty() ? top_edit_read(reader, members, p_edit)
                              : node_edit_read(reader, members, path, p_edit);
}

// Whether braces and brackets nest no deeper than allowed, before anything is built of them.
static bool depth_is_sane(std::string_view text)
{
    unsigned int depth = 0;
    bool in_text = false;
    for (size_t i = 0; i < text.size(); i++) {
        if (in_text) {
            i += text[i] == '\\' ? 1 : 0;
            in_text = i >= text.size() || text[i] != '"';
            continue;
        }
        in_text = text[i] == '"';
        if (text[i] == '{' || text[i] == '[')
            depth++;
        if ((text[i] == '}' || text[i] == ']') && depth > 0)
            depth--;
        if (depth > MGMT_EDIT_MAX_DEPTH)
            return false;
    }
    return true;
}

bool mgmt_edit_read_json(const t_schema_index &index, std::string_view text,
                         std::vector<t_mgmt_edit> *p_edits, t_mgmt_error *p_error)
{
    if (text.size() > MGMT_EDIT_MAX_JSON)
        return mgmt_fail(p_error, MGMT_ERR_BADTYPE, "", "the edits are too long");
    if (!depth_is_sane(text))
        return mgmt_fail(p_error, MGMT_ERR_BADTYPE, "", "the edits are nested too deep");
    t_json json = t_json::parse(text, nullptr, false);
    if (!json.is_array())
        return mgmt_fail(p_error, MGMT_ERR_BADTYPE, "", "the edits are no JSON array");
    std::vector<t_mgmt_edit> edits;
    t_json_reader reader = {index, p_error};
    for (const t_json &object : json) {
        if (!edit_read(reader, object, &edits.emplace_back()))
            return false;
    }
    *p_edits = std::move(edits);
    return true;
}
