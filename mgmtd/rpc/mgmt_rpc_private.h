// Inside of NETCONF's operations: the records, and what the sources call of each other.
//
// A call is one rpc under way. Callbacks of the engine hold it by a shared pointer; the engine forgets them
// when the session is closed, so a call never sees a session that has gone.
#pragma once

#include "mgmtd/rpc/mgmt_rpc.h"

#include <libyang/libyang.h>

struct t_mgmt_rpc_server {
    const t_netconf_monitor *p_monitor;
    std::vector<t_mgmt_rpc_session *> sessions;

    // The rights of the running configuration that is held beside them.
    mgmt_tree_ptr rights_config;
    mgmt_rights_ptr rights;

    // Since when running and candidate are locked, as far as it was seen here.
    struct t_lock {
        uint32_t holder;  // session of the engine; 0: nobody
        std::string since;
    };
    t_lock locks[2];  // by e_mgmt_datastore
};

struct t_mgmt_rpc_session {
    t_mgmt_engine *p_engine;
    mgmt_rpc_server_ptr server;
    std::string user;
    bool is_recovery;
    uint32_t netconf_id;
    uint32_t session;       // the engine's
    uint32_t subscription;  // the engine's; 0: none
    t_mgmt_rpc_stream stream;
};

struct t_rpc_call {
    t_mgmt_rpc_session *p_session;
    lyd_ptr input;  // the operation's node, a copy with default values
    f_mgmt_rpc_done done;
};
using rpc_call_ptr = std::shared_ptr<t_rpc_call>;

// ---- Answers (rpc_reply.cc) ----

// Exactly one of these ends a call.
void rpc_reply(const rpc_call_ptr &call, t_mgmt_rpc_reply reply);
void rpc_ok(const rpc_call_ptr &call);
void rpc_fail(const rpc_call_ptr &call, t_mgmt_rpc_error error);
void rpc_fail_engine(const rpc_call_ptr &call, const t_mgmt_error &error);

// The end of an operation without a result.
f_mgmt_done rpc_done(const rpc_call_ptr &call);

// The reply node of the operation with an anyxml "data" that holds a tree (taken over; may be null) or a
// text.
void rpc_data(const rpc_call_ptr &call, lyd_ptr tree, int with_defaults);
void rpc_data_text(const rpc_call_ptr &call, const char *text);

t_mgmt_rpc_error rpc_error(const char *type, const char *tag, std::string message);

// An error about an element of the request: bad-element is its name.
t_mgmt_rpc_error rpc_error_element(const char *tag, const std::string &element, std::string message);

// A session of the engine by its number on the wire; 0 if it is none of NETCONF.
uint32_t rpc_session_number(const t_mgmt_rpc_session &session, uint32_t engine_session);

// The session that holds a lock, by its number on the wire; 0 if it is nobody's of NETCONF.
uint32_t rpc_lock_holder(const t_mgmt_rpc_session &session, e_mgmt_datastore datastore);

// A path of the framework's form ("/policy/zone{a}") as an XPath. Empty for what is no path of the model.
std::string rpc_xpath_of(const t_schema_index &index, const std::string &path);

// "2024-01-15T10:00:00Z"
std::string rpc_time_text(int64_t time_us);
int64_t rpc_now_us();

// ---- Input ----

// The child of a node by name; null if there is none.
const lyd_node *rpc_child(const lyd_node *p_node, const char *name);
std::string rpc_leaf(const lyd_node *p_node, const char *name);  // empty without the leaf

// ---- Rights (mgmt_rpc.cc) ----

const t_mgmt_rights &rpc_rights(t_mgmt_rpc_session *p_session);
t_mgmt_subject rpc_subject(t_mgmt_rpc_session *p_session);

// Whether the session may make all changes that lead from one tree to the other.
bool rpc_may_change(t_mgmt_rpc_session *p_session, mgmt_tree_ptr from, mgmt_tree_ptr to,
                    t_mgmt_error *p_error);
bool rpc_may_change_all(t_mgmt_rpc_session *p_session);

// ---- Operations ----

void rpc_get(const rpc_call_ptr &call);
void rpc_get_config(const rpc_call_ptr &call);
void rpc_get_schema(const rpc_call_ptr &call);
void rpc_edit_config(const rpc_call_ptr &call);
void rpc_copy_config(const rpc_call_ptr &call);
void rpc_validate(const rpc_call_ptr &call);
void rpc_lock(const rpc_call_ptr &call);
void rpc_unlock(const rpc_call_ptr &call);
void rpc_commit(const rpc_call_ptr &call);
void rpc_cancel_commit(const rpc_call_ptr &call);
void rpc_discard_changes(const rpc_call_ptr &call);
void rpc_action(const rpc_call_ptr &call);
void rpc_create_subscription(const rpc_call_ptr &call);

// What the server tells of itself: netconf-state, streams, the YANG library. Only the trees whose top the
// function wants, by module and name.
using f_rpc_wants = std::function<bool(const char *module, const char *name)>;
lyd_ptr rpc_own_state(t_mgmt_rpc_session *p_session, const f_rpc_wants &wants);
