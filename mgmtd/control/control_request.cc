#include "mgmtd/control/control_request.h"

#include <algorithm>
#include <nlohmann/json.hpp>
#include <span>

using t_json = nlohmann::json;

static bool fail(std::string *p_reason, std::string reason)
{
    *p_reason = std::move(reason);
    return false;
}

// ---- Members ----

// Reads a member's value into the request. False if the value is wrong.
using f_member_read = bool (*)(const t_json &value, t_control_request *p_request);

static bool text_read(const t_json &value, std::string *p_text)
{
    if (!value.is_string())
        return false;
    *p_text = value.get_ref<const std::string &>();
    return p_text->find('\0') == std::string::npos;
}

static bool mode_read(const t_json &value, t_control_request *p_request)
{
    p_request->replaces = value == "replace";
    return p_request->replaces || value == "merge";
}

static bool comment_read(const t_json &value, t_control_request *p_request)
{
    return text_read(value, &p_request->comment);
}

static bool integer_read(const t_json &value, int64_t max, int64_t *p_number)
{
    if (!value.is_number_unsigned() || value.get<uint64_t>() > static_cast<uint64_t>(max))
        return false;
    *p_number = value.get<int64_t>();
    return true;
}

static bool number_read(const t_json &value, t_control_request *p_request)
{
    return integer_read(value, CONTROL_MAX_NUMBER, &p_request->number);
}

static bool confirm_read(const t_json &value, t_control_request *p_request)
{
    return integer_read(value, CONTROL_MAX_CONFIRM, &p_request->confirm_s) && p_request->confirm_s > 0;
}

static bool start_read(const t_json &value, t_control_request *p_request)
{
    return integer_read(value, INT64_MAX, &p_request->start_us);
}

static bool persist_read(const t_json &value, t_control_request *p_request)
{
    return text_read(value, &p_request->persist) && !p_request->persist.empty();
}

static bool persist_id_read(const t_json &value, t_control_request *p_request)
{
    return text_read(value, &p_request->persist_id);
}

static bool prefix_read(const t_json &value, t_control_request *p_request)
{
    return text_read(value, &p_request->prefix);
}

static bool path_read(const t_json &value, t_control_request *p_request)
{
    return text_read(value, &p_request->path);
}

static bool from_read(const t_json &value, t_control_request *p_request)
{
    static constexpr std::pair<const char *, e_control_from> names[] = {
        {"all", CONTROL_FROM_ALL},
        {"running", CONTROL_FROM_RUNNING},
        {"candidate", CONTROL_FROM_CANDIDATE},
        {"state", CONTROL_FROM_STATE},
    };
    const auto *p_name = std::ranges::find_if(names, [&](const auto &name) { return value == name.first; });
    if (p_name == std::end(names))
        return false;
    p_request->from = p_name->second;
    return true;
}

static bool action_read(const t_json &value, t_control_request *p_request)
{
    return text_read(value, &p_request->action);
}

static bool input_read(const t_json &value, t_control_request *p_request)
{
    if (!value.is_object() || value.size() > CONTROL_MAX_WORDS)
        return false;
    for (const auto &[name, content] : value.items()) {
        std::string text;
        if (content.is_number_integer() || content.is_boolean())
            text = content.dump();
        else if (!content.is_null() && !text_read(content, &text))
            return false;
        p_request->input.emplace_back(name, std::move(text));
    }
    return true;
}

static bool words_read(const t_json &value, t_control_request *p_request)
{
    if (!value.is_array() || value.size() > CONTROL_MAX_WORDS)
        return false;
    return std::ranges::all_of(
        value, [p_request](const t_json &word) { return text_read(word, &p_request->words.emplace_back()); });
}

struct t_member {
    const char *name;
    f_member_read read;
};

static constexpr t_member mode = {"mode", mode_read};
static constexpr t_member comment = {"comment", comment_read};
static constexpr t_member confirm = {"confirm", confirm_read};
static constexpr t_member persist = {"persist", persist_read};
static constexpr t_member persist_id = {"persist-id", persist_id_read};
static constexpr t_member start = {"start", start_read};
static constexpr t_member number = {"number", number_read};
static constexpr t_member path = {"path", path_read};
static constexpr t_member from = {"from", from_read};
static constexpr t_member action = {"action", action_read};
static constexpr t_member input = {"input", input_read};
static constexpr t_member words = {"words", words_read};
static constexpr t_member prefix = {"prefix", prefix_read};

// ---- Operations ----

namespace {

struct t_operation {
    const char *name;
    e_control_op op;
    bool takes_body;
    const char *required;      // a member, or null
    t_member members[4] = {};  // up to the first one without a name
};

}  // namespace

static constexpr t_operation operations[] = {
    {"edit", CONTROL_EDIT, true, nullptr},
    {"load", CONTROL_LOAD, true, "mode", {mode}},
    {"lock", CONTROL_LOCK, false, nullptr},
    {"unlock", CONTROL_UNLOCK, false, nullptr},
    {"commit", CONTROL_COMMIT, false, nullptr, {comment, confirm, persist, persist_id}},
    {"cancel-commit", CONTROL_CANCEL_COMMIT, false, nullptr, {persist_id}},
    {"check", CONTROL_CHECK, false, nullptr},
    {"discard", CONTROL_DISCARD, false, nullptr},
    {"rollback", CONTROL_ROLLBACK, false, "number", {number}},
    {"compare", CONTROL_COMPARE, false, nullptr, {number}},
    {"commits", CONTROL_COMMITS, false, nullptr},
    {"show", CONTROL_SHOW, false, nullptr, {path, from}},
    {"action", CONTROL_ACTION, false, "action", {action, input, words}},
    {"status", CONTROL_STATUS, false, nullptr},
    {"schema", CONTROL_SCHEMA, false, nullptr, {path}},
    {"values", CONTROL_VALUES, false, "path", {path, words, prefix}},
    {"monitor", CONTROL_MONITOR, false, nullptr, {start}},
};

static const t_member *member_find(const t_operation &operation, const std::string &name)
{
    for (const t_member &member : operation.members) {
        if (member.name != nullptr && name == member.name)
            return &member;
    }
    return nullptr;
}

static bool members_read(const t_operation &operation, const t_json &head, t_control_request *p_request,
                         std::string *p_reason)
{
    std::string op = operation.name;
    if (operation.required != nullptr && !head.contains(operation.required))
        return fail(p_reason, op + " needs \"" + operation.required + '"');
    for (const auto &[name, value] : head.items()) {
        if (name == "id" || name == "op")
            continue;
        const t_member *p_member = member_find(operation, name);
        if (p_member == nullptr)
            return fail(p_reason, op + " takes no \"" + name + '"');
        if (!p_member->read(value, p_request))
            return fail(p_reason, "the \"" + name + "\" of " + op + " is wrong");
    }
    return true;
}

bool control_request_read(t_control_frame frame, t_control_request *p_request, std::string *p_reason)
{
    t_json head = t_json::parse(frame.head, nullptr, false);
    if (!head.is_object())
        return fail(p_reason, "the request's head is no JSON object");
    t_json id = head.value("id", t_json());
    if (!id.is_number_unsigned() || id.get<uint64_t>() == 0 || id.get<uint64_t>() > INT64_MAX)
        return fail(p_reason, "the request has no id");
    p_request->id = id.get<int64_t>();

    t_json op = head.value("op", t_json());
    const t_operation *p_operation =
        std::ranges::find_if(operations, [&op](const t_operation &item) { return op == item.name; });
    if (p_operation == std::end(operations))
        return fail(p_reason, "the request's \"op\" is unknown");
    if (!p_operation->takes_body && !frame.body.empty())
        return fail(p_reason, std::string(p_operation->name) + " takes no body");
    p_request->op = p_operation->op;
    p_request->body = std::move(frame.body);
    return members_read(*p_operation, head, p_request, p_reason);
}
