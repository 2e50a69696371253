// Reading state: what daemons have written, and the rows of providers, asked for one by one.
//
// A request is a stack of lists to be walked. The list on top is asked for its next row; a row may put the
// lists inside of it on top. A provider keeps no cursor as a rule, so the walk goes on from the keys of the
// last row, and a row that vanishes meanwhile only moves the place.

#include "mgmtd/engine/mgmt_engine_private.h"

#include "common/lum_log.h"
#include "mgmtd/store/mgmt_tree_private.h"

#include <algorithm>

static constexpr size_t max_rows = 1000000;  // of one request

using t_steps = std::vector<std::vector<IpcValue>>;  // of a keypath, outermost first

namespace {

// Where the walk stands in the data and in the request's path.
struct t_place {
    lyd_node *p_anchor;  // the row around, in the result; null when there is none
    t_steps keypath;
    const t_mgmt_path *p_path;  // null: everything
    size_t step;                // the next one of it
};

}  // namespace

namespace {

// A list of a provider that is to be walked.
struct t_walk {
    const t_schema_node *p_list;
    t_place place;              // the keypath ends in the list's tag; step is the one after the list's
    std::vector<IpcValue> one;  // keys of the only entry that is wanted; empty: all
    bool is_started = false;
    bool wants_object = false;   // the provider has told keys without a row
    std::vector<IpcValue> last;  // keys of the last row
    int64_t next = -1;           // the provider's cursor
};

}  // namespace

struct t_get {
    t_mgmt_engine *p_engine;
    uint32_t session;
    t_mgmt_get_request request;
    t_mgmt_get_result result;
    mgmt_trans_ptr trans;
    std::vector<t_walk> walks;
    std::set<uint32_t> silent;  // daemons that have not answered
    size_t rows = 0;
};
using get_ptr = std::shared_ptr<t_get>;

// ---- What is stored ----

static void stored_copy(t_mgmt_tree *p_result, const t_mgmt_tree &tree, const lyd_node *p_parent,
                        std::span<const t_mgmt_step> steps)
{
    const t_mgmt_step &step = steps[0];
    auto go = [&](const lyd_node *p_node) {
        if (p_node != nullptr && steps.size() == 1)
            mgmt_rows_copy(p_result, p_node);
        else if (p_node != nullptr)
            stored_copy(p_result, tree, p_node, steps.subspan(1));
    };
    bool is_many = step.schema->kind == SCHEMA_KIND_LIST || step.schema->kind == SCHEMA_KIND_LEAF_LIST;
    if (!is_many) {
        go(mgmt_tree_child(tree, p_parent, step.schema));
    } else if (!step.keys.empty()) {
        lyd_node *p_entry = nullptr;
        if (mgmt_node_find(tree, p_parent, step.schema, step.keys, &p_entry) == LY_SUCCESS)
            go(p_entry);
    } else {
        auto entries = mgmt_tree_entries(tree, p_parent, step.schema);
        for (size_t i = 0; i < entries.size(); i++)
            if (step.position < 0 || i == static_cast<size_t>(step.position))
                go(entries[i]);
    }
}

static void stored_take(t_get *p_get, const t_mgmt_tree &tree)
{
    if (p_get->request.paths.empty())
        for (const lyd_node *p_node = tree.p_first; p_node != nullptr; p_node = p_node->next)
            mgmt_rows_copy(p_get->result.tree.get(), p_node);
    for (const t_mgmt_path &path : p_get->request.paths)
        stored_copy(p_get->result.tree.get(), tree, nullptr, path.steps);
}

// ---- Which lists ----

static std::vector<IpcValue> tag_step(const t_schema_node *p_node)
{
    return {IpcValue::tag(C_XMLTAG, p_node->tag, p_node->ns)};
}

static std::vector<IpcValue> key_values(const t_mgmt_tree &tree, const t_schema_node *p_list,
                                        const std::vector<std::string> &texts)
{
    std::vector<IpcValue> values;
    for (size_t i = 0; i < texts.size() && i < p_list->keys.size(); i++) {
        confd_value_t value;
        t_mgmt_error error;
        if (mgmt_value_from_text(tree, p_list->keys[i], texts[i], &value, &error))
            values.emplace_back(value);
    }
    return values.size() == p_list->keys.size() ? values : std::vector<IpcValue>();
}

static void lists_below(t_get *p_get, const t_schema_node *p_parent, const t_place &place,
                        std::vector<t_walk> *p_walks);

// Adds the lists at and below a node whose parent the place is at.
static void lists_at(t_get *p_get, const t_schema_node *p_node, t_place place, std::vector<t_walk> *p_walks)
{
    place.keypath.push_back(tag_step(p_node));
    const t_mgmt_step *p_step = place.p_path != nullptr && place.step < place.p_path->steps.size()
                                    ? &place.p_path->steps[place.step]
                                    : nullptr;
    place.step++;
    if (p_node->kind == SCHEMA_KIND_CONTAINER) {
        lists_below(p_get, p_node, place, p_walks);
    } else if (p_node->kind == SCHEMA_KIND_LIST && !p_node->callpoint.empty()) {
        t_walk walk = {.p_list = p_node, .place = std::move(place), .one = {}, .last = {}};
        if (p_step != nullptr && !p_step->keys.empty())
            walk.one = key_values(*p_get->p_engine->store.running, p_node, p_step->keys);
        if (p_step == nullptr || p_step->keys.empty() || !walk.one.empty())
            p_walks->push_back(std::move(walk));
    }
}

static void lists_below(t_get *p_get, const t_schema_node *p_parent, const t_place &place,
                        std::vector<t_walk> *p_walks)
{
    if (place.p_path != nullptr && place.step < place.p_path->steps.size()) {
        lists_at(p_get, place.p_path->steps[place.step].schema, place, p_walks);
        return;
    }
    const t_schema_index &index = *p_get->p_engine->store.p_schema;
    for (const t_schema_node *p_child : p_parent == nullptr ? index.tops : p_parent->children)
        lists_at(p_get, p_child, place, p_walks);
}

// Puts lists on the stack so that they are walked in the model's order.
static void walks_push(t_get *p_get, std::vector<t_walk> walks)
{
    std::move(walks.rbegin(), walks.rend(), std::back_inserter(p_get->walks));
}

// ---- The end ----

static void get_finish(const get_ptr &get)
{
    get->walks.clear();
    if (get->trans != nullptr)
        mgmt_trans_end(get->p_engine, get->trans);
    if (get->result.error.code != MGMT_OK)
        get->result.tree = nullptr;
    mgmt_later_for(get->p_engine, get->session, [get] { get->request.done(std::move(get->result)); });
}

// Whether the request's only path leads to or through a list, so that without it there is no answer.
static bool is_asked_for(const t_get &get, const t_walk &walk)
{
    return get.request.paths.size() == 1 && walk.place.step <= get.request.paths[0].steps.size();
}

static void walk_next(const get_ptr &get);

static void walk_fail(const get_ptr &get, const std::string &reason)
{
    const t_schema_node *p_list = get->walks.back().p_list;
    std::string text = std::string(p_list->callpoint) + ": " + reason;
    bool is_the_answer = is_asked_for(*get, get->walks.back());
    get->walks.pop_back();
    if (is_the_answer) {
        mgmt_fail(&get->result.error, MGMT_ERR_EXTERNAL, p_list->path, text);
        get_finish(get);
        return;
    }
    LUM_LOG(LUM_LOG_NOTICE, "%s is left out: %s", p_list->path.c_str(), text.c_str());
    get->result.warnings.push_back(p_list->path + ": " + text);
    walk_next(get);
}

// ---- Rows ----

// The node that rows of a list go into: the row around, and the containers from there.
static lyd_node *row_parent(t_mgmt_tree *p_tree, const t_schema_node *p_schema, lyd_node *p_anchor)
{
    if (p_schema == nullptr || p_schema->kind != SCHEMA_KIND_CONTAINER)
        return p_anchor;
    return mgmt_build_container(p_tree, row_parent(p_tree, p_schema->parent, p_anchor), p_schema);
}

static bool row_keys(const t_schema_node *p_list, std::span<const IpcTagValue> values,
                     std::vector<IpcValue> *p_keys, std::vector<std::string> *p_texts)
{
    bool is_given = !p_keys->empty();
    for (size_t i = 0; i < p_list->keys.size(); i++) {
        uint32_t tag = p_list->keys[i]->tag;
        auto is_key = [&](const IpcTagValue &item) { return item.tag.tag == tag; };
        auto found = std::find_if(values.begin(), values.end(), is_key);
        if (!is_given && found == values.end())
            return false;
        if (!is_given)
            p_keys->push_back(found->value);
        t_mgmt_error error;
        if (!mgmt_value_text(p_list->keys[i], (*p_keys)[i].v, &p_texts->emplace_back(), &error))
            return false;
    }
    return true;
}

// Puts a row into the result; null if the model refuses it.
static lyd_node *row_put(t_get *p_get, const t_walk &walk, const std::vector<std::string> &keys,
                         std::span<const IpcTagValue> values)
{
    t_mgmt_tree *p_tree = p_get->result.tree.get();
    lyd_node *p_parent = row_parent(p_tree, walk.p_list->parent, walk.place.p_anchor);
    lyd_node *p_row = nullptr;
    if (!keys.empty() && mgmt_node_find(*p_tree, p_parent, walk.p_list, keys, &p_row) == LY_SUCCESS)
        return p_row;
    t_mgmt_error error;
    p_row = mgmt_build_entry(p_tree, p_parent, walk.p_list, keys, &error);
    if (p_row == nullptr)
        p_get->result.warnings.push_back(mgmt_error_text(error));
    else
        mgmt_rows_fill(p_tree, p_row, walk.p_list, values, &p_get->result.warnings);
    return p_row;
}

static void row_take(const get_ptr &get, const t_ipc_dp_data &data)
{
    t_walk &walk = get->walks.back();
    std::vector<IpcValue> keys = walk.wants_object ? walk.last : walk.one;
    std::vector<std::string> texts;
    if (!row_keys(walk.p_list, data.values, &keys, &texts))
        return walk_fail(get, "its provider gives a row without its keys");
    bool repeats = !walk.wants_object && walk.one.empty() && !keys.empty() && keys == walk.last;
    if (repeats || ++get->rows > max_rows)
        return walk_fail(get, repeats ? "its provider repeats a row" : "there are too many rows");
    lyd_node *p_row = row_put(get.get(), walk, texts, data.values);
    t_place inside = walk.place;
    inside.p_anchor = p_row;
    inside.keypath.push_back(keys);
    const t_schema_node *p_list = walk.p_list;
    walk.next = walk.wants_object ? walk.next : data.next;
    walk.last = std::move(keys);
    walk.wants_object = false;
    // A list without keys has nothing to go on from but a cursor.
    if (!walk.one.empty() || (p_list->keys.empty() && walk.next == -1))
        get->walks.pop_back();
    std::vector<t_walk> below;
    if (p_row != nullptr && !p_list->keys.empty())
        lists_below(get.get(), p_list, inside, &below);
    walks_push(get.get(), std::move(below));
    walk_next(get);
}

static void answer_take(const get_ptr &get, uint32_t control, const t_mgmt_reply &reply)
{
    if (!reply.answered)
        get->silent.insert(control);
    if (!reply.answered || reply.status != 0)
        return walk_fail(get, reply.text.empty() ? "refused by its provider" : reply.text);
    t_walk &walk = get->walks.back();
    const t_ipc_dp_data &data = reply.data;
    if (data.what == IPC_DATA_OBJECT)
        return row_take(get, data);
    if (data.what == IPC_DATA_KEY && data.keys.size() == walk.p_list->keys.size() && !data.keys.empty() &&
        data.keys != walk.last) {
        walk.last = data.keys;
        walk.next = data.next;
        walk.wants_object = true;
    } else if (walk.wants_object) {
        walk.wants_object = false;  // the row has vanished since its keys were told
    } else {
        get->walks.pop_back();
    }
    walk_next(get);
}

static IpcKeypath keypath_of(const t_steps &steps, const std::vector<IpcValue> *p_keys)
{
    IpcKeypath keypath;
    keypath.steps.assign(steps.rbegin(), steps.rend());
    if (p_keys != nullptr)
        keypath.steps.insert(keypath.steps.begin(), *p_keys);
    return keypath;
}

// The request that brings the next row of a list.
static std::pair<e_ipc_op, std::vector<uint8_t>> request_of(const t_walk &walk, uint32_t thandle)
{
    std::string point(walk.p_list->callpoint);
    if (walk.wants_object || !walk.one.empty()) {
        const std::vector<IpcValue> &keys = walk.wants_object ? walk.last : walk.one;
        t_ipc_dp_object object = {
            .thandle = thandle, .point = point, .keypath = keypath_of(walk.place.keypath, &keys)};
        return {IPC_OP_DP_GET_OBJECT, ipc_encode(object)};
    }
    IpcKeypath keypath = keypath_of(walk.place.keypath, nullptr);
    if (!walk.is_started || walk.next != -1) {
        t_ipc_dp_next next = {.thandle = thandle, .point = point, .keypath = keypath, .next = walk.next};
        return {IPC_OP_DP_GET_NEXT_OBJECT, ipc_encode(next)};
    }
    t_ipc_dp_find_next next = {
        .thandle = thandle, .point = point, .keypath = keypath, .type = CONFD_FIND_NEXT, .keys = walk.last};
    return {IPC_OP_DP_FIND_NEXT_OBJECT, ipc_encode(next)};
}

static void walk_next(const get_ptr &get)
{
    t_mgmt_engine *p_engine = get->p_engine;
    auto session = p_engine->sessions.find(get->session);
    if (get->walks.empty() || session == p_engine->sessions.end()) {
        get_finish(get);
        return;
    }
    t_walk &walk = get->walks.back();
    uint32_t control =
        mgmt_daemon_of(*p_engine, &t_mgmt_daemon::data, std::string(walk.p_list->callpoint),
                       IPC_CALL_GET_OBJECT | IPC_CALL_GET_NEXT_OBJECT | IPC_CALL_FIND_NEXT_OBJECT);
    if (control == 0 || get->silent.contains(control)) {
        walk_fail(get, control == 0 ? "its provider is not connected" : "its provider does not answer");
        return;
    }
    if (get->trans == nullptr) {
        t_ipc_user user = {
            .usid = get->session, .name = session->second.name, .context = session->second.context};
        get->trans = mgmt_trans_new(p_engine, user, false, nullptr);
    }
    auto [op, body] = request_of(walk, get->trans->thandle);
    walk.is_started = true;
    mgmt_trans_ask(p_engine, get->trans, control, op, std::move(body),
                   [get, control](const t_mgmt_reply &reply) { answer_take(get, control, reply); });
}

static void get_start(const get_ptr &get)
{
    t_mgmt_engine *p_engine = get->p_engine;
    get->result.tree = mgmt_tree_new(p_engine->store.p_schema, p_engine->store.p_context);
    if (get->request.with_config)
        stored_take(get.get(), *p_engine->store.running);
    stored_take(get.get(), *p_engine->store.operational);
    std::vector<t_walk> walks;
    if (get->request.paths.empty())
        lists_below(get.get(), nullptr, {.p_anchor = nullptr, .keypath = {}, .p_path = nullptr, .step = 0},
                    &walks);
    for (const t_mgmt_path &path : get->request.paths)
        lists_below(get.get(), nullptr, {.p_anchor = nullptr, .keypath = {}, .p_path = &path, .step = 0},
                    &walks);
    walks_push(get.get(), std::move(walks));
    walk_next(get);
}

void mgmt_get(t_mgmt_engine *p_engine, uint32_t session, t_mgmt_get_request request)
{
    // A path without steps asks for everything.
    if (std::any_of(request.paths.begin(), request.paths.end(),
                    [](const auto &path) { return path.steps.empty(); }))
        request.paths.clear();
    auto get = std::make_shared<t_get>();
    get->p_engine = p_engine;
    get->session = session;
    get->request = std::move(request);
    mgmt_later(p_engine, [get] { get_start(get); });
}
