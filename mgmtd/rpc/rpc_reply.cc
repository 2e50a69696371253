// Replies and their errors.

#include "mgmtd/rpc/mgmt_rpc_private.h"

#include <cstring>
#include <ctime>
#include <new>

void t_lyd_deleter::operator()(lyd_node *p_node) const
{
    lyd_free_all(p_node);
}

// ---- Errors ----

t_mgmt_rpc_error rpc_error(const char *type, const char *tag, std::string message)
{
    t_mgmt_rpc_error error;
    error.type = type;
    error.tag = tag;
    error.message = std::move(message);
    return error;
}

t_mgmt_rpc_error rpc_error_element(const char *tag, const std::string &element, std::string message)
{
    t_mgmt_rpc_error error = rpc_error("protocol", tag, std::move(message));
    error.info.emplace_back("bad-element", element);
    return error;
}

// A value as a literal of XPath, which has no escapes.
static std::string literal_of(const std::string &value)
{
    char quote = value.find('\'') == std::string::npos ? '\'' : '"';
    return quote + value + quote;
}

std::string rpc_xpath_of(const t_schema_index &index, const std::string &text)
{
    t_mgmt_path path;
    t_mgmt_error error;
    if (text.empty() || !mgmt_path_read(index, nullptr, text, &path, &error))
        return "";
    std::string xpath;
    const lys_module *p_module = nullptr;
    for (const t_mgmt_step &step : path.steps) {
        xpath += '/';
        if (step.schema->yang->module != p_module)
            xpath += std::string(step.schema->yang->module->name) + ':';
        p_module = step.schema->yang->module;
        xpath += step.schema->name;
        bool is_list = step.schema->kind == SCHEMA_KIND_LIST;
        for (size_t i = 0; i < step.keys.size(); i++) {
            std::string name =
                is_list && i < step.schema->keys.size() ? std::string(step.schema->keys[i]->name) : ".";
            xpath += '[' + name + '=' + literal_of(step.keys[i]) + ']';
        }
    }
    return xpath;
}

static const char *tag_of(e_mgmt_error code)
{
    switch (static_cast<int>(code)) {
    case MGMT_ERR_NOEXISTS:
        return "data-missing";
    case MGMT_ERR_ALREADY_EXISTS:
        return "data-exists";
    case MGMT_ERR_ACCESS_DENIED:
        return "access-denied";
    case MGMT_ERR_NOT_WRITABLE:
    case MGMT_ERR_NOTCREATABLE:
    case MGMT_ERR_NOTDELETABLE:
        return "operation-not-supported";
    case MGMT_ERR_BADTYPE:
        return "invalid-value";
    case MGMT_ERR_BADPATH:
        return "unknown-element";
    case MGMT_ERR_OS:
        return "resource-denied";
    case MGMT_ERR_LOCKED:
        return "in-use";
    default:
        return "operation-failed";
    }
}

t_mgmt_rpc_error mgmt_rpc_error_of(const t_mgmt_engine &engine, const t_mgmt_error &error)
{
    t_mgmt_rpc_error made = rpc_error("application", tag_of(error.code), mgmt_error_text(error));
    made.path = rpc_xpath_of(mgmt_engine_schema(engine), error.path);
    if (error.code == MGMT_ERR_BADPATH) {
        std::string name = error.path.substr(error.path.rfind('/') + 1);
        made.info.emplace_back("bad-element", name.substr(0, name.find('{')));
    }
    return made;
}

uint32_t rpc_session_number(const t_mgmt_rpc_session &session, uint32_t engine_session)
{
    for (const t_mgmt_rpc_session *p_other : session.server->sessions)
        if (p_other->session == engine_session)
            return p_other->netconf_id;
    return 0;
}

uint32_t rpc_lock_holder(const t_mgmt_rpc_session &session, e_mgmt_datastore datastore)
{
    return rpc_session_number(session, mgmt_lock_holder(*session.p_engine, datastore));
}

// An error of a lock names the session as clients know it.
static std::string lock_message(const t_mgmt_rpc_session &session, const t_mgmt_error &error)
{
    for (e_mgmt_datastore datastore : {MGMT_DS_CANDIDATE, MGMT_DS_RUNNING}) {
        uint32_t holder = mgmt_lock_holder(*session.p_engine, datastore);
        if (holder == 0 || holder == session.session)
            continue;
        std::string name = datastore == MGMT_DS_CANDIDATE ? "the candidate" : "running";
        uint32_t number = rpc_lock_holder(session, datastore);
        return name + " is locked by " +
               (number != 0 ? "session " + std::to_string(number) : "a session of the command line");
    }
    return mgmt_error_text(error);
}

// ---- Replies ----

void rpc_reply(const rpc_call_ptr &call, t_mgmt_rpc_reply made)
{
    // Who takes the reply may end the session, and the call with it.
    f_mgmt_rpc_done done = std::move(call->done);
    call->done = nullptr;
    done(std::move(made));
}

void rpc_ok(const rpc_call_ptr &call)
{
    rpc_reply(call, {});
}

void rpc_fail(const rpc_call_ptr &call, t_mgmt_rpc_error error)
{
    t_mgmt_rpc_reply made;
    made.kind = MGMT_RPC_ERRORS;
    made.errors.push_back(std::move(error));
    rpc_reply(call, std::move(made));
}

void rpc_fail_engine(const rpc_call_ptr &call, const t_mgmt_error &error)
{
    t_mgmt_rpc_error made = mgmt_rpc_error_of(*call->p_session->p_engine, error);
    if (error.code == MGMT_ERR_LOCKED)
        made.message = lock_message(*call->p_session, error);
    rpc_fail(call, std::move(made));
}

f_mgmt_done rpc_done(const rpc_call_ptr &call)
{
    return [call](const t_mgmt_error &error) {
        if (error.code == MGMT_OK)
            rpc_ok(call);
        else
            rpc_fail_engine(call, error);
    };
}

static void reply_any(const rpc_call_ptr &call, const void *p_value, LYD_ANYDATA_VALUETYPE type,
                      ly_bool takes_value, int with_defaults)
{
    t_mgmt_rpc_reply made;
    lyd_node *p_operation = nullptr;
    if (lyd_dup_single(call->input.get(), nullptr, 0, &p_operation) != LY_SUCCESS)
        throw std::bad_alloc();
    made.kind = MGMT_RPC_DATA;
    made.with_defaults = with_defaults;
    made.data.reset(p_operation);
    if (lyd_new_any(p_operation, nullptr, "data", p_value, takes_value, type, 1, nullptr) != LY_SUCCESS)
        throw std::bad_alloc();
    rpc_reply(call, std::move(made));
}

void rpc_data(const rpc_call_ptr &call, lyd_ptr tree, int with_defaults)
{
    reply_any(call, tree.release(), LYD_ANYDATA_DATATREE, 1, with_defaults);
}

void rpc_data_text(const rpc_call_ptr &call, const char *text)
{
    reply_any(call, text, LYD_ANYDATA_STRING, 0, 0);
}

// ---- Times ----

int64_t rpc_now_us()
{
    timespec now = {};
    clock_gettime(CLOCK_REALTIME, &now);
    return static_cast<int64_t>(now.tv_sec) * 1000000 + now.tv_nsec / 1000;
}

std::string rpc_time_text(int64_t time_us)
{
    time_t seconds = static_cast<time_t>(time_us / 1000000);
    tm parts = {};
    char text[32];
    gmtime_r(&seconds, &parts);
    strftime(text, sizeof(text), "%Y-%m-%dT%H:%M:%SZ", &parts);
    return text;
}

// ---- Input ----

const lyd_node *rpc_child(const lyd_node *p_node, const char *name)
{
    const lyd_node *p_child = p_node != nullptr ? lyd_child(p_node) : nullptr;
    while (p_child != nullptr && (p_child->schema == nullptr || strcmp(p_child->schema->name, name) != 0))
        p_child = p_child->next;
    return p_child;
}

std::string rpc_leaf(const lyd_node *p_node, const char *name)
{
    const lyd_node *p_leaf = rpc_child(p_node, name);
    const char *p_value = p_leaf != nullptr ? lyd_get_value(p_leaf) : nullptr;
    return p_value != nullptr ? p_value : "";
}
