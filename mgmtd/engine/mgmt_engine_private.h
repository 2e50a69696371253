// Inside of the engine: its record and what its sources call of each other. See mgmt_engine.h and
// mgmt_link.h.
//
// Completions go through `later`, a queue that the loop runs, so no function here is entered again from a
// callback. Records that are under way belong to shared pointers in the callbacks that will go on with them;
// they name sessions and connections by number and look them up again, since either may have ended meanwhile.
#pragma once

#include "mgmtd/engine/mgmt_link.h"
#include "mgmtd/store/mgmt_report.h"
#include "mgmtd/store/mgmt_txn.h"
#include "platform/confd/confd_cdb.h"
#include "platform/confd/confd_dp.h"

#include <mutex>
#include <optional>
#include <set>

struct event;
struct t_mgmt_trans;

// ---- Subscribers ----

enum e_mgmt_outcome { MGMT_BATCH_ACKNOWLEDGED, MGMT_BATCH_REFUSED, MGMT_BATCH_LOST };

// One batch: a priority level of a commit or trigger, or one operational write, for one subscriber.
struct t_mgmt_batch {
    cdb_sub_notification type;
    int32_t flags;
    std::vector<int32_t> ids;
    std::shared_ptr<const t_mgmt_diff> diff;
    std::function<void(e_mgmt_outcome, const t_mgmt_error &)> ended;

    // Reports of ids and nodes that were asked for, by their bytes in the request without the cursor, and the
    // reports behind the keypaths that were told, for an iterator that goes into one.
    std::map<std::vector<uint8_t>, std::vector<t_mgmt_report>> reports = {};
    std::map<std::vector<uint8_t>, t_mgmt_report> told = {};
};

struct t_mgmt_subscription {
    int32_t id;
    cdb_sub_type type;
    int32_t priority;
    const t_schema_node *schema;  // null: the top
};

struct t_mgmt_subscriber {
    std::string daemon;
    bool done;  // has said that it has subscribed for everything
    std::vector<t_mgmt_subscription> subscriptions;
    std::optional<t_mgmt_batch> open;  // sent and not acknowledged
    std::deque<t_mgmt_batch> waiting;
    t_mgmt_timer timeout;
};

// A difference on its way to the subscribers.
struct t_mgmt_delivery {
    std::shared_ptr<const t_mgmt_diff> diff;
    cdb_sub_notification type;
    int32_t flags = 0;
    std::map<int32_t, std::map<uint32_t, std::vector<int32_t>>> levels;  // priority: connection: ids
    size_t open = 0;                                                     // batches of the present level
    std::set<uint32_t> acknowledged;                                     // connections
    std::vector<std::string> lost;                                       // names of daemons
    t_mgmt_error refusal;                                                // of a prepare batch
    std::function<void(const std::string &)> progress;
    std::function<void()> done;
};

struct t_mgmt_oper_waiting {
    const t_schema_node *schema;
    std::function<void()> write;
};

// ---- Daemons ----

// What came of a request.
struct t_mgmt_reply {
    bool answered = false;  // else text tells why not
    int32_t status = 0;     // 0, or the daemon's error with its text
    std::string text = {};
    uint64_t printed_bytes = 0;         // of a failed action
    t_ipc_worker worker = {};           // of an init
    t_ipc_dp_data data = {};            // of a data request
    t_ipc_dp_action_reply action = {};  // of an action or command
};

using f_mgmt_reply = std::function<void(const t_mgmt_reply &)>;

// A request to a daemon.
struct t_mgmt_ask {
    uint32_t connection;
    uint16_t op;
    std::vector<uint8_t> body;
    uint32_t thandle;   // of an init, for a finish after a reply that nobody waits for any more
    f_mgmt_reply done;  // null: nobody waits
    int64_t since_ms = 0;
    uint32_t id = 0;
};

struct t_mgmt_daemon {
    std::string name;
    bool ready = false;
    uint32_t trans_calls = 0;
    uint32_t validate_calls = 0;
    std::map<std::string, uint32_t> data;  // calls by point
    std::map<std::string, uint32_t> actions;
    std::map<std::string, uint32_t> validations;
    std::map<int32_t, t_ipc_reg_notif> senders;
    std::set<uint32_t> workers;
    std::deque<t_mgmt_ask> queue;
    std::optional<t_mgmt_ask> open;  // one callback at a time
    int64_t heard_ms = 0;            // last sign of life
    t_mgmt_timer silence;
};

// One transaction, as daemons see it.
struct t_mgmt_trans {
    uint32_t thandle;
    bool validation;
    t_ipc_trans_init init;
    t_mgmt_txn *p_txn;                     // null: reads running
    std::map<uint32_t, uint32_t> workers;  // by control connection: where the daemon wants to be asked
};
using mgmt_trans_ptr = std::shared_ptr<t_mgmt_trans>;

// ---- Work on the candidate ----

struct t_mgmt_writer {
    uint32_t session = 0;
    bool outlives = false;                                    // begins although its session is gone
    bool changes = true;                                      // a lock of another session stands in its way
    std::function<bool(t_mgmt_txn *, t_mgmt_error *)> start;  // false: it has not begun
    std::function<void(const t_mgmt_error &)> done;
    mgmt_txn_ptr txn;
    mgmt_trans_ptr hooks;  // opened with the first one
    mgmt_trans_ptr validations;
    std::shared_ptr<struct t_mgmt_commit> commit;  // of a commit; else null
};

struct t_mgmt_commit {
    uint32_t session;
    t_mgmt_user user;
    t_mgmt_commit_request request;
    t_mgmt_commit_result result;
    std::shared_ptr<const t_mgmt_diff> diff;  // set at the swap
    std::set<uint32_t> prepared;              // connections that have agreed
};

// A confirmed commit that waits for its confirmation. Where the chain of such commits began is in the files.
struct t_mgmt_unconfirmed {
    uint64_t turn;         // another one with each commit that begins the time anew
    uint64_t number;       // of the last commit of the chain
    t_mgmt_user user;      // who gave that
    uint32_t session;      // which gave it
    std::string persist;   // empty: bound to the session
    mgmt_tree_ptr before;  // running before the first commit of the chain
    t_mgmt_timer timer;
    int64_t due_ms;
};

// ---- Actions, notifications ----

struct t_mgmt_running_action {
    uint32_t session;
    uint32_t daemon;  // control connection
    t_mgmt_action_request request;
    t_mgmt_action_result result;
    uint64_t printed = 0;                   // bytes that have come
    std::optional<uint64_t> printed_total;  // known with the reply
    t_mgmt_timer missing;                   // for bytes that do not come
};

struct t_mgmt_notif_subscription {
    bool is_live = false;  // the replay is done
    uint32_t session;
    t_mgmt_notif_request request;
    t_mgmt_timer stop;
};

// ---- The engine ----

struct t_mgmt_engine {
    event_base *p_base = nullptr;
    t_mgmt_store store = {};
    t_mgmt_timers timers;
    int phase = 0;
    std::string folder;

    // The loop.
    event *p_timer_event = nullptr;
    event *p_later_event = nullptr;
    event *p_post_event = nullptr;
    int post_fd = -1;
    std::deque<std::function<void()>> later;
    std::mutex post_lock;
    std::vector<std::function<void()>> posted;

    // Sessions.
    std::map<uint32_t, t_mgmt_user> sessions;
    uint32_t last_usid = 0;  // of sessions and actions
    uint32_t running_holder = 0;
    uint32_t candidate_holder = 0;

    // The candidate, commits and triggers.
    std::deque<std::shared_ptr<t_mgmt_writer>> writers;  // the first is at work
    bool writer_at_work = false;
    std::deque<std::function<void()>> serial;  // the first is at work
    bool serial_at_work = false;
    std::optional<t_mgmt_unconfirmed> unconfirmed;
    uint64_t last_unconfirmed_turn = 0;

    // Daemons and their connections.
    const t_mgmt_link_ops *p_link = nullptr;
    void *p_link_ctx = nullptr;
    std::map<uint32_t, t_mgmt_daemon> daemons;  // by control connection
    std::map<uint32_t, uint32_t> workers;       // control connection by worker connection
    std::map<uint32_t, t_mgmt_subscriber> subscribers;
    std::map<uint32_t, mgmt_trans_ptr> transactions;
    std::set<std::string, std::less<>> data_points;
    std::set<std::string, std::less<>> action_points;
    std::set<std::string, std::less<>> validation_points;
    uint32_t last_ask = 0;
    uint32_t last_thandle = 0;
    int32_t last_subscription = 0;
    int32_t last_sender = 0;
    std::vector<std::shared_ptr<t_mgmt_oper_waiting>> oper_waiting;
    std::multimap<uint32_t, std::pair<int, std::function<void()>>> phase_waiters;  // by connection

    // Actions, by the session id that the daemon prints for.
    std::map<uint32_t, std::shared_ptr<t_mgmt_running_action>> actions;

    // Notifications.
    std::deque<t_mgmt_notification> notifications;
    uint64_t last_notification = 0;
    std::map<uint32_t, std::shared_ptr<t_mgmt_notif_subscription>> notif_subscriptions;
    uint32_t last_notif_subscription = 0;
    size_t notif_file_size = 0;
    const t_mgmt_snmp_ops *p_snmp = nullptr;
    void *p_snmp_ctx = nullptr;

    f_mgmt_event on_event;
};

// ---- Loop (mgmt_engine.cc) ----

// Runs fn from the loop, after what is there already.
void mgmt_later(t_mgmt_engine *p_engine, std::function<void()> fn);

// The same for a caller's callback, unless its session has ended by then.
void mgmt_later_for(t_mgmt_engine *p_engine, uint32_t session, std::function<void()> fn);

void mgmt_event_tell(t_mgmt_engine *p_engine, uint32_t type, uint32_t usid, confd_dbname database,
                     const std::string &text);

// Commits and triggers one after the other: start is called when it is its turn and ends with
// mgmt_serial_end.
void mgmt_serial(t_mgmt_engine *p_engine, std::function<void()> start);
void mgmt_serial_end(t_mgmt_engine *p_engine);

// ---- Subscribers (mgmt_subscriber.cc, mgmt_delivery.cc) ----

void mgmt_subscriber_lose(t_mgmt_engine *p_engine, uint32_t connection, const std::string &reason);
void mgmt_batch_queue(t_mgmt_engine *p_engine, uint32_t connection, t_mgmt_batch batch);

// Levels of all subscriptions that a difference concerns. two_phase: of those only.
void mgmt_delivery_collect(t_mgmt_engine *p_engine, t_mgmt_delivery *p_delivery, bool two_phase);

// Sends level by level; done is called from the loop.
void mgmt_delivery_run(t_mgmt_engine *p_engine, std::shared_ptr<t_mgmt_delivery> delivery);

// Takes up waiting operational writes again.
void mgmt_oper_resume(t_mgmt_engine *p_engine);

// ---- Daemons (mgmt_daemon.cc) ----

// The daemon that has registered a point with one of the calls; 0 if there is none.
uint32_t mgmt_daemon_of(const t_mgmt_engine &engine, std::map<std::string, uint32_t> t_mgmt_daemon::*p_points,
                        const std::string &point, uint32_t calls);

// done is called from the loop (through a reply or a time-out), exactly once.
void mgmt_daemon_ask(t_mgmt_engine *p_engine, uint32_t control, t_mgmt_ask ask);

// A sign of life: the time for an answer starts anew.
void mgmt_daemon_heard(t_mgmt_engine *p_engine, uint32_t control);
void mgmt_daemon_lose(t_mgmt_engine *p_engine, uint32_t control);

// Whether the daemon has that worker connection.
bool mgmt_daemon_has_worker(const t_mgmt_engine &engine, uint32_t control, uint32_t worker);

// ---- Transactions of daemons (mgmt_trans.cc) ----

mgmt_trans_ptr mgmt_trans_new(t_mgmt_engine *p_engine, const t_ipc_user &user, bool validation,
                              t_mgmt_txn *p_txn);

// Opens the transaction at the daemon if it is not open there, then asks.
void mgmt_trans_ask(t_mgmt_engine *p_engine, const mgmt_trans_ptr &trans, uint32_t control, uint16_t op,
                    std::vector<uint8_t> body, f_mgmt_reply done);
void mgmt_trans_end(t_mgmt_engine *p_engine, const mgmt_trans_ptr &trans);

// ---- Commit (mgmt_writer.cc, mgmt_confirm.cc, mgmt_trans.cc) ----

void mgmt_writer_queue(t_mgmt_engine *p_engine, std::shared_ptr<t_mgmt_writer> writer);
extern const t_mgmt_txn_ops g_mgmt_txn_ops;  // the context is the engine

// Whether a lock of another session stands in the way of a change of running.
bool mgmt_running_is_locked(const t_mgmt_engine &engine, uint32_t session, t_mgmt_error *p_error);

// Tells the subscribers what has come into force, or those that have prepared that it has not; then ends the
// commit with its answer.
void mgmt_commit_tell(t_mgmt_engine *p_engine, const std::shared_ptr<t_mgmt_commit> &commit);

// Whether the commit may be made although another one waits for its confirmation, and as what it is stored.
bool mgmt_confirm_may(const t_mgmt_engine &engine, const t_mgmt_commit &commit, t_mgmt_error *p_error);
std::optional<uint64_t> mgmt_confirm_fallback(const t_mgmt_engine &engine, const t_mgmt_commit &commit);

// The commit is in force, or has changed nothing: it confirms, extends or begins. False: nothing is
// confirmed.
bool mgmt_confirm_settle(t_mgmt_engine *p_engine, const t_mgmt_commit &commit, t_mgmt_error *p_error);
void mgmt_confirm_session_closed(t_mgmt_engine *p_engine, uint32_t session);

e_mgmt_answer mgmt_hook_call(void *p_ctx, t_mgmt_txn *p_txn, const t_mgmt_hook_call &call,
                             t_mgmt_error *p_error);
e_mgmt_answer mgmt_validation_call(void *p_ctx, t_mgmt_txn *p_txn, const t_mgmt_validation_call &call,
                                   t_mgmt_error *p_error);

// ---- Values (mgmt_rows.cc) ----

IpcKeypath mgmt_ipc_keypath(const t_mgmt_keypath &keypath);

// Puts leaves into a node of a tree, as tag values with containers in begin and end. Values that do not fit
// the model are left out, with a line in *p_warnings.
void mgmt_rows_fill(t_mgmt_tree *p_tree, lyd_node *p_node, const t_schema_node *p_schema,
                    std::span<const IpcTagValue> values, std::vector<std::string> *p_warnings);

// A copy of a node with all below into another tree, with all that stands above it. What is there already
// stays.
void mgmt_rows_copy(t_mgmt_tree *p_tree, const lyd_node *p_node);

// ---- Notifications (mgmt_notif.cc) ----

void mgmt_notif_load(t_mgmt_engine *p_engine);
void mgmt_notif_session_closed(t_mgmt_engine *p_engine, uint32_t session);
