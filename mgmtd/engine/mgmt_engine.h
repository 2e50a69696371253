// The management daemon's engine: what operators' sessions can ask of it.
//
// One engine owns the datastores, the sessions, the daemons that have connected, and everything under way
// between them. It lives on one thread, the owner's, with a libevent loop; nothing in it waits. Requests that
// need others (hooks, subscribers, providers) end by a callback of the caller's, always from the loop and
// never before the request's function has returned. Functions without such a callback answer at once. All
// functions are for the owner's thread, but mgmt_engine_post, by which other threads hand over work.
//
// Sessions are the operators' side: the control socket and NETCONF open one for each login. A closed session
// leaves its locks and subscriptions; its callbacks are not called any more, requests of it that have not
// begun are forgotten, and one that is under way goes on to its end.
//
// There is one candidate for all sessions. Edits are applied one after the other; while a hook of one is open
// the others wait. Commits and triggers of daemons are served one after the other, each from its checks to
// the last acknowledgement of a subscriber; edits are possible again as soon as a commit's configuration is
// running.
//
// The daemons' side, with connections and messages, is mgmt_link.h.
#pragma once

#include "mgmtd/engine/mgmt_timers.h"
#include "mgmtd/store/mgmt_edit.h"
#include "mgmtd/store/mgmt_store.h"
#include "platform/confd/ipc/ipc_messages.h"

#include <deque>
#include <functional>
#include <optional>

struct event_base;
struct t_mgmt_engine;

// Codes of refusals beside those of the store.
inline constexpr e_mgmt_error MGMT_ERR_ACCESS_DENIED = static_cast<e_mgmt_error>(3);
inline constexpr e_mgmt_error MGMT_ERR_LOCKED = static_cast<e_mgmt_error>(10);

inline constexpr int64_t MGMT_SUBSCRIBER_TIMEOUT_MS = 600 * 1000;  // for the acknowledgement of one batch
inline constexpr int64_t MGMT_PROVIDER_TIMEOUT_MS = 120 * 1000;    // without a sign of life while asked
inline constexpr size_t MGMT_ACTION_MAX_OUTPUT = 64u << 20;        // bytes that an action may print

// ---- Set up ----

// Where SNMP notifications go. send must not block; the record is good during the call only.
struct t_mgmt_snmp_ops {
    void (*send)(void *p_ctx, const t_ipc_snmp_notification &notification);
};

struct t_mgmt_engine_options {
    std::string store_folder;
    bool supply_vrf_ids = true;
    bool supply_read_priority = true;
    std::function<int64_t()> now_ms;          // null: the system's clock
    const t_mgmt_snmp_ops *p_snmp = nullptr;  // null: SNMP notifications are logged and dropped
    void *p_snmp_ctx = nullptr;
};

struct t_mgmt_engine_deleter {
    void operator()(t_mgmt_engine *p_engine) const;
};
using mgmt_engine_ptr = std::unique_ptr<t_mgmt_engine, t_mgmt_engine_deleter>;

// Loads the datastores; phase 1 is reached then. Loop, index and context must outlive the engine.
[[nodiscard]] mgmt_engine_ptr mgmt_engine_new(event_base *p_base, const t_schema_index *p_schema,
                                              const ly_ctx *p_context, const t_mgmt_engine_options &options,
                                              t_mgmt_error *p_error);

// Start phases: 0 starting, 1 schema and store loaded, 2 running. They only grow.
void mgmt_engine_set_phase(t_mgmt_engine *p_engine, int phase);
int mgmt_engine_phase(const t_mgmt_engine &engine);

const t_schema_index &mgmt_engine_schema(const t_mgmt_engine &engine);
const ly_ctx *mgmt_engine_context(const t_mgmt_engine &engine);
t_mgmt_timers *mgmt_engine_timers(t_mgmt_engine *p_engine);

// Runs fn on the owner's thread, soon, in the order of the calls. From any thread.
void mgmt_engine_post(t_mgmt_engine *p_engine, std::function<void()> fn);

// ---- Sessions ----

struct t_mgmt_user {
    std::string name;
    std::string context;  // "cli", "netconf", "system"
};

// Ids are above 0 and never used twice.
uint32_t mgmt_session_open(t_mgmt_engine *p_engine, const t_mgmt_user &user);
void mgmt_session_close(t_mgmt_engine *p_engine, uint32_t session);

enum e_mgmt_datastore {
    MGMT_DS_RUNNING,
    MGMT_DS_CANDIDATE,
    MGMT_DS_PRE_COMMIT,  // as running when no commit is being told
    MGMT_DS_OPERATIONAL,
};

// A lock keeps other sessions from changing a datastore. MGMT_ERR_LOCKED names the session that holds it; a
// candidate with uncommitted edits can't be locked (MGMT_ERR_BADSTATE). A lock of the candidate that ends
// takes uncommitted edits with it.
[[nodiscard]] bool mgmt_lock(t_mgmt_engine *p_engine, uint32_t session, e_mgmt_datastore datastore,
                             t_mgmt_error *p_error);
[[nodiscard]] bool mgmt_unlock(t_mgmt_engine *p_engine, uint32_t session, e_mgmt_datastore datastore,
                               t_mgmt_error *p_error);
uint32_t mgmt_lock_holder(const t_mgmt_engine &engine, e_mgmt_datastore datastore);  // 0: nobody

// ---- Configuration ----

using f_mgmt_done = std::function<void(const t_mgmt_error &error)>;

// Edits of the candidate, all or none. Hooks run.
void mgmt_edit(t_mgmt_engine *p_engine, uint32_t session, std::vector<t_mgmt_edit> edits, f_mgmt_done done);

// The candidate becomes as running, or as a stored commit (0: running, 1: the one before...), or another
// tree.
void mgmt_discard(t_mgmt_engine *p_engine, uint32_t session, f_mgmt_done done);
void mgmt_rollback(t_mgmt_engine *p_engine, uint32_t session, size_t back, f_mgmt_done done);
void mgmt_replace(t_mgmt_engine *p_engine, uint32_t session, mgmt_work_tree_ptr tree, f_mgmt_done done);

// All that a commit checks before it asks subscribers.
void mgmt_check(t_mgmt_engine *p_engine, uint32_t session, f_mgmt_done done);

struct t_mgmt_commit_result {
    t_mgmt_error error;                 // MGMT_OK: the configuration is stored and running
    bool changed = false;               // false also where candidate and running were alike
    uint64_t number = 0;                // of the stored commit
    std::vector<std::string> warnings;  // subscribers that were lost on the way, as lines
};

// A confirmed commit (RFC 6241, 8.4) is running at once, and undone when it is not confirmed in time: by
// another commit, which may itself be a confirmed one and then begins the time anew (with its own timeout and
// persist; what comes back stays what was running before the first). Without persist only the session that
// gave the last one can confirm, and its end undoes it; with persist any session can that names it. Other
// commits are refused meanwhile, and locks of running given to the last one's session only. The engine's end
// undoes a pending one at the next start. Time is counted by the timers' clock, not by the calendar's.
//
// What is undone is undone as a commit of the user "system" (of a cancel: of its user), whose comment tells
// why; subscribers are told, but not asked. The candidate stays as it is: when it was as running, it keeps
// the configuration that was undone. A confirmed commit without changes, where none is pending, is none.
struct t_mgmt_confirm {
    int64_t timeout_ms = 600 * 1000;  // from MGMT_CONFIRM_MIN_MS to MGMT_CONFIRM_MAX_MS
    std::string persist;              // empty: bound to the session
};

inline constexpr int64_t MGMT_CONFIRM_MIN_MS = 1000;
inline constexpr int64_t MGMT_CONFIRM_MAX_MS = int64_t{7} * 24 * 3600 * 1000;

struct t_mgmt_commit_request {
    std::string comment;
    std::optional<t_mgmt_confirm> confirm = std::nullopt;  // set: to be confirmed
    std::string persist_id = {};                           // of the pending one that this confirms or extends
    std::function<void(const std::string &line)> progress;  // may be null
    std::function<void(const t_mgmt_commit_result &)> done;
};

// Ends after the last subscriber's acknowledgement.
void mgmt_commit(t_mgmt_engine *p_engine, uint32_t session, t_mgmt_commit_request request);

// Undoes the pending confirmed commit at once: running becomes as before it, and is told. Ends after the last
// subscriber's acknowledgement. MGMT_ERR_LOCKED when another session has running locked. MGMT_ERR_NOEXISTS
// when none is pending, MGMT_ERR_ACCESS_DENIED when the pending one is another's (persist_id does not fit, or
// another session has given it).
void mgmt_cancel_commit(t_mgmt_engine *p_engine, uint32_t session, const std::string &persist_id,
                        f_mgmt_done done);

struct t_mgmt_pending_confirm {
    uint64_t number;       // of the commit
    std::string user;      // who gave it
    uint32_t session;      // 0 when it is not bound to one
    int64_t remaining_ms;  // until it is undone
};

// The confirmed commit that waits for its confirmation.
std::optional<t_mgmt_pending_confirm> mgmt_pending_confirm(const t_mgmt_engine &engine);

// Newest first.
const std::vector<t_mgmt_commit_info> &mgmt_commits(const t_mgmt_engine &engine);

// A datastore as it is now. Trees belong to the owner's thread: a tree for another thread is to be printed or
// copied before. The operational one holds what daemons have written, without the rows of providers.
mgmt_tree_ptr mgmt_tree_of(t_mgmt_engine *p_engine, e_mgmt_datastore datastore);

// What the candidate changes: lines as of mgmt_diff_print. Or what has changed since a stored commit.
std::string mgmt_compare(t_mgmt_engine *p_engine);
[[nodiscard]] bool mgmt_compare_commit(t_mgmt_engine *p_engine, size_t back, std::string *p_text,
                                       t_mgmt_error *p_error);

// ---- State ----

struct t_mgmt_get_result {
    t_mgmt_error error;
    mgmt_work_tree_ptr tree;            // the caller's alone; null on failure
    std::vector<std::string> warnings;  // callpoints without an answer, as lines
};

struct t_mgmt_get_request {
    std::vector<t_mgmt_path>
        paths;                 // with all below; a list without keys means all entries. None: everything
    bool with_config = false;  // running beside the state
    std::function<void(t_mgmt_get_result)> done;
};

// Operational data: what daemons have written, and the rows of providers as they are now. A provider that is
// missing or silent costs its rows and gives a warning, but fails a request that is for that list alone.
void mgmt_get(t_mgmt_engine *p_engine, uint32_t session, t_mgmt_get_request request);

// ---- Actions ----

struct t_mgmt_action_value {
    const t_schema_node *schema;
    std::string text;
};

struct t_mgmt_action_result {
    t_mgmt_error error;  // path is the action's, the reason names its action point
    std::vector<t_mgmt_action_value> values;
};

struct t_mgmt_action_request {
    const t_schema_node *p_rpc = nullptr;
    std::vector<t_mgmt_action_value> input;             // leaves of the rpc's input
    std::vector<std::string> words;                     // further words of a command
    std::function<void(std::string_view text)> output;  // what it prints, as it comes; may be null
    std::function<void(const t_mgmt_action_result &)> done;
};

// Calls an action or command. Output is taken from the daemon without waiting for the operator, up to
// MGMT_ACTION_MAX_OUTPUT; then comes the line "output truncated", and the rest is dropped.
void mgmt_action(t_mgmt_engine *p_engine, uint32_t session, t_mgmt_action_request request);

// ---- Notifications ----

inline constexpr const char *MGMT_STREAM = "lumora";  // the only stream

struct t_mgmt_notification {
    uint64_t number;   // counts up
    int64_t time_us;   // of the event, since 1970
    std::string time;  // the same, "2024-01-15T10:00:00.000000Z"
    std::string name;  // of the notification's node
    std::string json;  // {"module:name": {...}}, as NETCONF's JSON has it
};

enum e_mgmt_notif_end {
    MGMT_NOTIF_REPLAYED,  // what was stored has been told, news follow
    MGMT_NOTIF_COMPLETE,  // the stop time has come; the last call
};

struct t_mgmt_notif_request {
    int64_t start_us = -1;  // replay from here; -1: no replay
    int64_t stop_us = -1;   // -1: never
    std::function<void(const t_mgmt_notification &)> notify;
    std::function<void(e_mgmt_notif_end)> ended;  // may be null
};

// Ids are above 0. A subscription ends with its session, by its stop time, or here.
uint32_t mgmt_notif_subscribe(t_mgmt_engine *p_engine, uint32_t session, t_mgmt_notif_request request);
void mgmt_notif_unsubscribe(t_mgmt_engine *p_engine, uint32_t subscription);

// The stored ones, oldest first.
const std::deque<t_mgmt_notification> &mgmt_notifications(const t_mgmt_engine &engine);

// ---- Status ----

struct t_mgmt_daemon_info {
    std::string name;
    bool is_ready;  // has registered all it serves
    size_t points;  // callpoints, action points, validation points
    size_t subscriptions;
    bool is_told;   // has not acknowledged what it was told
    bool is_asked;  // has not answered what it was asked
};

// Daemons that are connected, by name.
std::vector<t_mgmt_daemon_info> mgmt_daemons(const t_mgmt_engine &engine);

// Lines since the start that an operator must see: stored files that could not be used...
const std::vector<std::string> &mgmt_alarms(const t_mgmt_engine &engine);

// ---- Events of the engine itself ----

// Tells commits, logins and actions to whoever listens (the daemons' event connections).
using f_mgmt_event = std::function<void(const t_ipc_event &)>;
void mgmt_engine_on_event(t_mgmt_engine *p_engine, f_mgmt_event on_event);
