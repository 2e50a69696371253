#include "mgmtd/store/mgmt_path.h"

#include "mgmtd/store/mgmt_tree_private.h"
#include "mgmtd/store/mgmt_value.h"

#include <charconv>

// ---- Reading ----

namespace {

// What is left of a path's text, and where it stands.
struct t_path_reader {
    std::string_view whole;
    std::string_view rest;
    t_mgmt_error *p_error;
};

}  // namespace

static bool path_fail(const t_path_reader &reader, const std::string &reason)
{
    return mgmt_fail(reader.p_error, MGMT_ERR_BADPATH, std::string(reader.whole), reason);
}

// A value in double quotes; the first quote is next.
static bool quoted_read(t_path_reader *p_reader, std::string *p_value)
{
    p_reader->rest.remove_prefix(1);
    while (!p_reader->rest.empty() && p_reader->rest.front() != '"') {
        if (p_reader->rest.front() == '\\')
            p_reader->rest.remove_prefix(1);
        if (p_reader->rest.empty())
            break;
        p_value->push_back(p_reader->rest.front());
        p_reader->rest.remove_prefix(1);
    }
    if (p_reader->rest.empty())
        return path_fail(*p_reader, "a quoted key is not closed");
    p_reader->rest.remove_prefix(1);
    if (p_reader->rest.empty() || (p_reader->rest.front() != ' ' && p_reader->rest.front() != '}'))
        return path_fail(*p_reader, "a blank or a brace must follow a quoted key");
    return true;
}

static bool keys_read(t_path_reader *p_reader, std::vector<std::string> *p_keys)
{
    p_reader->rest.remove_prefix(1);
    while (!p_reader->rest.empty() && p_reader->rest.front() != '}') {
        if (p_reader->rest.front() == ' ') {
            p_reader->rest.remove_prefix(1);
            continue;
        }
        std::string &value = p_keys->emplace_back();
        if (p_reader->rest.front() == '"') {
            if (!quoted_read(p_reader, &value))
                return false;
            continue;
        }
        size_t end = std::min(p_reader->rest.find_first_of(" }"), p_reader->rest.size());
        value = p_reader->rest.substr(0, end);
        if (value.find_first_of("{\"\\") != std::string::npos)
            return path_fail(*p_reader, "a key with braces, quotes or backslashes must be quoted");
        p_reader->rest.remove_prefix(end);
    }
    if (p_reader->rest.empty())
        return path_fail(*p_reader, "a brace is not closed");
    p_reader->rest.remove_prefix(1);
    return true;
}

static bool position_read(t_path_reader *p_reader, int64_t *p_position)
{
    p_reader->rest.remove_prefix(1);
    size_t end = p_reader->rest.find(']');
    if (end == std::string_view::npos)
        return path_fail(*p_reader, "a bracket is not closed");
    std::string_view digits = p_reader->rest.substr(0, end);
    auto [p_end, failure] = std::from_chars(digits.data(), digits.data() + digits.size(), *p_position);
    if (failure != std::errc() || p_end != digits.data() + digits.size() || *p_position < 0)
        return path_fail(*p_reader, "a position is a number from 0");
    p_reader->rest.remove_prefix(end + 1);
    return true;
}

static bool keys_check(const t_path_reader &reader, const t_mgmt_step &step, bool has_keys)
{
    bool is_list = step.schema->kind == SCHEMA_KIND_LIST;
    bool is_leaf_list = step.schema->kind == SCHEMA_KIND_LEAF_LIST;
    size_t wanted = is_list ? step.schema->keys.size() : is_leaf_list ? 1 : 0;
    if (step.position >= 0 && !is_list && !is_leaf_list)
        return path_fail(reader, std::string(step.schema->name) + " is no list");
    if (has_keys && step.keys.size() != wanted)
        return path_fail(reader, std::string(step.schema->name) + " has " + std::to_string(wanted) +
                                     " keys, not " + std::to_string(step.keys.size()));
    return true;
}

// A client that writes a key from a value, without the model, gives the number of an enumeration.
static void enum_keys_name(t_mgmt_step *p_step)
{
    if (p_step->schema->kind != SCHEMA_KIND_LIST)
        return;
    for (size_t i = 0; i < p_step->keys.size(); i++) {
        std::string &key = p_step->keys[i];
        confd_value_t value = {};
        value.type = C_ENUM_VALUE;
        auto [p_end, failure] = std::from_chars(key.data(), key.data() + key.size(), value.val.enumvalue);
        bool is_number = failure == std::errc() && p_end == key.data() + key.size();
        std::string name;
        t_mgmt_error ignored;
        if (is_number && p_step->schema->keys[i]->value == SCHEMA_VALUE_ENUM &&
            mgmt_value_text(p_step->schema->keys[i], value, &name, &ignored))
            key = name;
    }
}

// A name with its keys or its position.
static bool step_read(const t_schema_index &index, t_path_reader *p_reader, t_mgmt_path *p_path)
{
    size_t end = std::min(p_reader->rest.find_first_of("/{["), p_reader->rest.size());
    std::string_view name = p_reader->rest.substr(0, end);
    p_reader->rest.remove_prefix(end);
    if (name == ".." && (p_reader->rest.empty() || p_reader->rest.front() == '/')) {
        if (p_path->steps.empty())
            return path_fail(*p_reader, "there is nothing above the top");
        p_path->steps.pop_back();
        return true;
    }
    if (p_path->steps.size() >= MGMT_PATH_MAX_STEPS)
        return path_fail(*p_reader, "the path is too deep");
    const t_schema_node *p_parent = p_path->steps.empty() ? nullptr : p_path->steps.back().schema;
    t_mgmt_step step = {schema_child_by_name(index, p_parent, name), {}, -1};
    if (step.schema == nullptr)
        return path_fail(*p_reader, "there is no node \"" + std::string(name) + "\" in " +
                                        (p_parent != nullptr ? p_parent->path : "the model"));
    bool has_keys = !p_reader->rest.empty() && p_reader->rest.front() == '{';
    if (has_keys && !keys_read(p_reader, &step.keys))
        return false;
    if (!has_keys && !p_reader->rest.empty() && p_reader->rest.front() == '[' &&
        !position_read(p_reader, &step.position))
        return false;
    if (!keys_check(*p_reader, step, has_keys))
        return false;
    enum_keys_name(&step);
    p_path->steps.push_back(std::move(step));
    return true;
}

bool mgmt_path_read(const t_schema_index &index, const t_mgmt_path *p_base, std::string_view text,
                    t_mgmt_path *p_path, t_mgmt_error *p_error)
{
    t_path_reader reader = {text.substr(0, MGMT_PATH_MAX_SIZE), text, p_error};
    if (text.size() > MGMT_PATH_MAX_SIZE)
        return mgmt_fail(p_error, MGMT_ERR_BADPATH, "", "the path is too long");
    t_mgmt_path path;
    bool is_absolute = text.starts_with('/');
    if (!is_absolute && p_base != nullptr)
        path = *p_base;
    if (is_absolute)
        reader.rest.remove_prefix(1);
    if (is_absolute && reader.rest.empty()) {
        *p_path = std::move(path);
        return true;
    }
    while (!text.empty()) {
        if (!step_read(index, &reader, &path))
            return false;
        if (reader.rest.empty())
            break;
        if (reader.rest.front() != '/')
            return path_fail(reader, "a slash must follow a step");
        reader.rest.remove_prefix(1);
    }
    *p_path = std::move(path);
    return true;
}

// ---- Writing ----

std::string mgmt_path_quote(std::string_view value)
{
    if (!value.empty() && value.find_first_of(" {}\"\\[]") == std::string_view::npos)
        return std::string(value);
    std::string text = "\"";
    for (char character : value) {
        if (character == '"' || character == '\\')
            text += '\\';
        text += character;
    }
    return text + "\"";
}

std::string mgmt_path_text(const t_mgmt_path &path)
{
    std::string text;
    for (const t_mgmt_step &step : path.steps) {
        text += "/" + mgmt_step_text(step.schema, step.keys);
        if (step.position >= 0)
            text += "[" + std::to_string(step.position) + "]";
    }
    return text.empty() ? "/" : text;
}

// ---- Looking up ----

// The instance that one step leads to below a parent that exists.
static bool step_find(const t_mgmt_tree &tree, const lyd_node *p_parent, const t_mgmt_step &step,
                      const lyd_node **pp_node)
{
    *pp_node = nullptr;
    if (step.position >= 0) {
        std::span<const lyd_node *const> entries = mgmt_tree_entries(tree, p_parent, step.schema);
        if (static_cast<uint64_t>(step.position) < entries.size())
            *pp_node = entries[step.position];
        return true;
    }
    if (!step.keys.empty()) {
        lyd_node *p_found = nullptr;
        LY_ERR result = mgmt_node_find(tree, p_parent, step.schema, step.keys, &p_found);
        *pp_node = p_found;
        return result != LY_EVALID;
    }
    if (step.schema->kind == SCHEMA_KIND_CONTAINER || step.schema->kind == SCHEMA_KIND_LEAF)
        *pp_node = mgmt_tree_child(tree, p_parent, step.schema);
    return true;
}

bool mgmt_path_find(const t_mgmt_tree &tree, const t_mgmt_path &path, t_mgmt_place *p_place,
                    t_mgmt_error *p_error)
{
    t_mgmt_place place = {nullptr, nullptr, nullptr, true};
    for (size_t i = 0; i < path.steps.size(); i++) {
        const t_mgmt_step &step = path.steps[i];
        if (i > 0) {
            bool is_container = place.schema->kind == SCHEMA_KIND_CONTAINER;
            place.parent_exists = place.parent_exists && (place.p_node != nullptr || is_container);
            place.p_parent = place.p_node;
        }
        place.schema = step.schema;
        bool has_tree_parent = i == 0 || place.p_parent != nullptr;
        place.p_node = nullptr;
        if (has_tree_parent && !step_find(tree, place.p_parent, step, &place.p_node))
            return mgmt_fail(p_error, MGMT_ERR_BADPATH, mgmt_path_text(path),
                             "the key does not fit the type of " + std::string(step.schema->name));
    }
    *p_place = place;
    return true;
}

const lyd_node *mgmt_path_node(const t_mgmt_tree &tree, const t_mgmt_path &path, t_mgmt_error *p_error)
{
    t_mgmt_place place = {};
    if (!mgmt_path_find(tree, path, &place, p_error))
        return nullptr;
    if (place.p_node == nullptr)
        mgmt_fail(p_error, MGMT_ERR_NOEXISTS, mgmt_path_text(path), "the node does not exist");
    return place.p_node;
}

int64_t mgmt_path_count(const t_mgmt_tree &tree, const t_mgmt_path &path, t_mgmt_error *p_error)
{
    t_mgmt_place place = {};
    if (!mgmt_path_find(tree, path, &place, p_error))
        return -1;
    bool is_list = place.schema != nullptr &&
                   (place.schema->kind == SCHEMA_KIND_LIST || place.schema->kind == SCHEMA_KIND_LEAF_LIST);
    if (!is_list || !path.steps.back().keys.empty() || path.steps.back().position >= 0) {
        mgmt_fail(p_error, MGMT_ERR_BADPATH, mgmt_path_text(path), "the path leads to no list");
        return -1;
    }
    if (path.steps.size() > 1 && place.p_parent == nullptr)
        return 0;
    return static_cast<int64_t>(mgmt_tree_entries(tree, place.p_parent, place.schema).size());
}
