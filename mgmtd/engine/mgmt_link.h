// The engine's other side: daemons, as the server of their connections brings them.
//
// The server gives each connection a number that is never used twice. It decodes what clients send and calls
// the functions here; the engine sends through the table of the server. What a daemon owes the engine
// (replies to its requests, acknowledgements of batches) comes back by mgmt_daemon_reply and mgmt_batch_end.
// When a connection has ended, for whatever reason, the server says so by mgmt_link_closed, and everything
// that hung on it is taken as refused: nothing waits for a client that is gone.
//
// As in mgmt_engine.h, functions with a callback call it from the loop and never before they have returned;
// the others answer at once. Owner's thread only.
#pragma once

#include "mgmtd/engine/mgmt_engine.h"
#include "platform/confd/ipc/ipc_frame.h"

// All set. Neither function calls the engine back before it has returned.
struct t_mgmt_link_ops {
    void (*send)(void *p_ctx, uint32_t connection, const t_ipc_frame &frame);   // nothing if it is gone
    void (*drop)(void *p_ctx, uint32_t connection, const std::string &reason);  // to be closed soon
};

void mgmt_link_set(t_mgmt_engine *p_engine, const t_mgmt_link_ops *p_ops, void *p_ctx);
void mgmt_link_closed(t_mgmt_engine *p_engine, uint32_t connection);

// ---- Control and worker connections ----

// A daemon's control connection. Registrations and connections that a daemon of that name had end at once.
void mgmt_daemon_open(t_mgmt_engine *p_engine, uint32_t connection, const std::string &name);

// A worker connection of the daemon with that control connection. False: no such daemon.
[[nodiscard]] bool mgmt_worker_open(t_mgmt_engine *p_engine, uint32_t connection, uint32_t control);

// One of IPC_OP_REG_TRANS, REG_VALIDATE (no point), REG_VALPOINT, REG_DATA, REG_ACTION. MGMT_ERR_NOEXISTS for
// a point that the model does not have.
[[nodiscard]] bool mgmt_daemon_register(t_mgmt_engine *p_engine, uint32_t connection, uint16_t op,
                                        const t_ipc_reg_point &point, t_mgmt_error *p_error);

// Registers a sender of notifications (op IPC_OP_REG_NOTIF_STREAM or IPC_OP_REG_SNMP); gives its id, 0 and
// *p_error on failure.
int32_t mgmt_daemon_sender(t_mgmt_engine *p_engine, uint32_t connection, uint16_t op,
                           const t_ipc_reg_notif &sender, t_mgmt_error *p_error);

// From here on the daemon is asked.
void mgmt_daemon_ready(t_mgmt_engine *p_engine, uint32_t connection);

// A reply to one of the engine's requests, on a control or worker connection. Replies to unknown or answered
// ids are dropped. False: the body is no reply to that request; the connection is to be dropped.
[[nodiscard]] bool mgmt_daemon_reply(t_mgmt_engine *p_engine, uint32_t connection, const t_ipc_frame &frame);

// What comes unasked on a worker connection. A notification that does not fit the model is logged and
// dropped.
void mgmt_notif_take(t_mgmt_engine *p_engine, uint32_t connection, const t_ipc_notification &notification);
void mgmt_snmp_take(t_mgmt_engine *p_engine, uint32_t connection,
                    const t_ipc_snmp_notification &notification);

// ---- Subscription connections ----

void mgmt_subscriber_open(t_mgmt_engine *p_engine, uint32_t connection, const std::string &daemon);

// Adds a subscription; gives its id, 0 and *p_error on failure.
int32_t mgmt_subscribe(t_mgmt_engine *p_engine, uint32_t connection, const t_ipc_subscribe &subscription,
                       t_mgmt_error *p_error);
void mgmt_subscribe_done(t_mgmt_engine *p_engine, uint32_t connection);

// What the open batch reports. False: there is no such id or node in an open batch.
[[nodiscard]] bool mgmt_batch_diff(t_mgmt_engine *p_engine, uint32_t connection,
                                   const t_ipc_diff_request &request, t_ipc_diff_page *p_page);
[[nodiscard]] bool mgmt_batch_modifications(t_mgmt_engine *p_engine, uint32_t connection,
                                            const t_ipc_modifications &request, t_ipc_tag_values *p_values,
                                            t_mgmt_error *p_error);

// Whether there is an open batch to be ended; refusing is for prepare batches.
[[nodiscard]] bool mgmt_batch_can_end(t_mgmt_engine *p_engine, uint32_t connection, bool is_refusal,
                                      t_mgmt_error *p_error);

// Ends the open batch, which is there; p_refusal is null for an acknowledgement. The next one may be sent at
// once.
void mgmt_batch_end(t_mgmt_engine *p_engine, uint32_t connection, const t_ipc_abort *p_refusal);

// Replays running, as creations, to the given subscriptions of a daemon, in ascending priority; each id
// appears in a batch. oper: tells operational ones instead. done comes after the last acknowledgement.
void mgmt_trigger(t_mgmt_engine *p_engine, const std::string &daemon, const t_ipc_trigger &trigger, bool oper,
                  f_mgmt_done done);

// ---- Data and management connections ----

enum e_mgmt_oper_op { MGMT_OPER_SET, MGMT_OPER_CREATE, MGMT_OPER_DELETE };

// Writes to the operational store. With notify subscribers of the path get a batch, and the write waits for
// its turn while such a subscriber has an operational one that it has not acknowledged.
void mgmt_oper_write(t_mgmt_engine *p_engine, e_mgmt_oper_op op, const t_mgmt_path &path,
                     const IpcValue &value, bool notify, f_mgmt_done done);

// Whether a commit is being told, so that the configuration before it can be read.
bool mgmt_pre_commit_is_open(const t_mgmt_engine &engine);

// Calls done when the phase is reached. connection: who waits; forgotten with it.
void mgmt_phase_wait(t_mgmt_engine *p_engine, uint32_t connection, int phase, std::function<void()> done);

// The tree that a transaction with this handle reads; null if there is no such transaction (any more). Good
// until the caller returns to the loop.
const t_mgmt_tree *mgmt_transaction_tree(t_mgmt_engine *p_engine, uint32_t thandle);

// Sets a value in a transaction, as its hook may. p_text null: creates an entry or an empty leaf.
[[nodiscard]] bool mgmt_transaction_set(t_mgmt_engine *p_engine, uint32_t thandle, const t_mgmt_path &path,
                                        const std::string *p_text, t_mgmt_error *p_error);

// Output of an action, for the session id that the daemon was given with it. Other ids are passed over.
void mgmt_action_print(t_mgmt_engine *p_engine, uint32_t usid, std::string_view text);
