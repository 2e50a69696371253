// The wire between a daemon's client library and the management daemon.
//
// A stream connection to 127.0.0.1:4565 carries frames in both directions; both ends set TCP_NODELAY and
// write a frame in one piece. This file is the agreement between the two ends: frames, the order of things on
// each kind of connection, and one table of operations. The bodies are the records of ipc_messages.h, one
// record a body, encoded by ipc_encode and decoded by ipc_decode (same file), which both ends use.
//
// Frame: a header of 16 bytes, then the body. All numbers are big-endian.
//
//   0  u32  length   bytes that follow this field, so 12 + the body's; at most IPC_MAX_FRAME
//   4  u16  op       e_ipc_op
//   6  u8   kind     e_ipc_kind
//   7  u8   reserved 0
//   8  u32  id       of a request; a reply repeats it, one-way messages have 0
//   12 i32  status   of a reply: 0, or a confd_errcode; 0 in everything else
//
// A reply with another status than 0 has the record t_ipc_error as its body whatever the op. Requests, from
// whichever side, have ids of the sender's choice, above 0 and different for each request open at a time. The
// first reply to an id counts and further ones are to be dropped. Both sides refuse what doesn't decode, an
// op that this connection does not have, and a frame that is too long, by dropping the connection. Before the
// handshake is done the limit of a frame is IPC_MAX_HANDSHAKE_FRAME, in both directions.
//
// Handshake. The client sends IPC_OP_HELLO: version, kind of connection, names. The answer holds a challenge
// of 16 random characters of [a-zA-Z0-9./]; or an empty one, when the server demands no proof. The client
// sends IPC_OP_PROOF with ipc_auth_proof(secret, challenge): crypt(3) of the secret with the setting
// "$5$rounds=1000$" + challenge + "$". The secret is the content of the access file up to its first line end;
// the client finds the file by the environment variable CONFD_IPC_ACCESS_FILE. A challenge is used once. The
// answer gives the connection's id, above 0, unique in the life of the server. A wrong proof is answered with
// CONFD_ERR_ACCESS_DENIED, and the server drops the connection.
//
// Connections of a daemon. The control connection comes first. Its daemon name (t_ipc_hello::daemon) takes
// the name over: earlier registrations and connections of that name end at once. Worker connections name the
// control connection they belong to in t_ipc_hello::daemon_id, and the control connection's end ends them.
// Data, subscription and MAAPI connections stand alone; their daemon name is for lines of logs, and tells the
// daemon whose actions a printing connection prints for.
//
// Who speaks when. On data, MAAPI and schema connections only the client sends requests, one at a time (the
// client waits for the reply); printing (IPC_OP_MAAPI_CLI_WRITE) goes between. On a control connection the
// client registers; the server's own requests begin after its reply to IPC_OP_REG_DONE, and from then on the
// client sends no more requests there. On a worker connection only the server sends requests; notifications
// of the client go between, at any time. On a subscription connection the client subscribes; after the reply
// to IPC_OP_SUB_DONE the server sends IPC_OP_SUB_BATCH (one-way), at most one unfinished at a time; between a
// batch and the end of it (IPC_OP_SUB_SYNC or IPC_OP_SUB_ABORT) the client sends requests, and the server
// nothing but replies. The server never refuses IPC_OP_SUB_DIFF with an error: it drops the connection.
//
// Paths on the wire are texts: "/prefix:name/list{key key}/leaf" or "list[3]", steps separated by slashes.
// Without a leading slash a path starts at the session's place (IPC_OP_CDB_CD, at first the top) or, on
// subscriptions, MAAPI and schema, at the top. A prefix is optional. Keys are separated by blanks; a key that
// holds blanks, braces, quotes or backslashes, or is empty, stands in double quotes with \" and \\ inside.
// Keys are the texts of their values as the data model writes them (enumerations by name or by number). [n]
// is the n-th instance from 0. ipc_path.h reads this form.
#pragma once

#include <cstdint>

inline constexpr uint16_t IPC_DEFAULT_PORT = 4565;
inline constexpr uint32_t IPC_VERSION = 1;
inline constexpr uint32_t IPC_MAX_FRAME = 16u << 20;
inline constexpr uint32_t IPC_MAX_HANDSHAKE_FRAME = 4096;

// The aim for one page of a diff or one chunk of printed text, in bytes of body. A page holds at least one
// entry.
inline constexpr uint32_t IPC_PAGE_SIZE = 256u << 10;

inline constexpr const char *IPC_ACCESS_FILE_VARIABLE = "CONFD_IPC_ACCESS_FILE";
inline constexpr uint32_t IPC_CHALLENGE_SIZE = 16;  // characters

enum e_ipc_kind : uint8_t {
    IPC_KIND_REQUEST = 1,  // a reply is awaited
    IPC_KIND_REPLY = 2,
    IPC_KIND_ONEWAY = 3,
};

// What a connection is for.
enum e_ipc_conn : uint8_t {
    IPC_CONN_CONTROL = 1,
    IPC_CONN_WORKER = 2,
    IPC_CONN_CDB_DATA = 3,
    IPC_CONN_CDB_SUB = 4,
    IPC_CONN_MAAPI = 5,
    IPC_CONN_EVENTS = 6,
    IPC_CONN_SCHEMA = 7,
};

// In the table: C request of the client, c one-way of the client, S request of the server, s one-way of the
// server; body of the request, body of the reply ("-": empty).
enum e_ipc_op : uint16_t {
    // Handshake, on every connection.
    IPC_OP_HELLO = 0x0001,  // C t_ipc_hello, t_ipc_challenge
    IPC_OP_PROOF = 0x0002,  // C t_ipc_proof, t_ipc_welcome

    // Data connections. All but the last three need a session, CONFD_ERR_NOSESSION without one.
    IPC_OP_CDB_START_SESSION = 0x0100,  // C t_ipc_start_session, -. CONFD_ERR_LOCKED, NOEXISTS (database 4)
    IPC_OP_CDB_END_SESSION = 0x0101,    // C -, -
    IPC_OP_CDB_GET = 0x0102,            // C t_ipc_path, t_ipc_value_reply. CONFD_ERR_NOEXISTS: no such value
    IPC_OP_CDB_EXISTS = 0x0103,         // C t_ipc_path, t_ipc_count: 0 or 1
    IPC_OP_CDB_NUM_INSTANCES = 0x0104,  // C t_ipc_path, t_ipc_count
    IPC_OP_CDB_CD = 0x0105,             // C t_ipc_path, -. CONFD_ERR_NOEXISTS: no such instance
    IPC_OP_CDB_SET_ELEM = 0x0106,       // C t_ipc_set_elem, -. Operational store only, as the next two
    IPC_OP_CDB_CREATE = 0x0107,         // C t_ipc_path, -. CONFD_ERR_ALREADY_EXISTS
    IPC_OP_CDB_DELETE = 0x0108,         // C t_ipc_path, -. CONFD_ERR_NOEXISTS
    IPC_OP_CDB_GET_PHASE = 0x0110,      // C -, t_ipc_phase
    IPC_OP_CDB_TRIGGER = 0x0111,        // C t_ipc_trigger, - after the subscriber's last sync
    IPC_OP_CDB_TRIGGER_OPER = 0x0112,   // C t_ipc_trigger, - after the subscriber's last sync

    // Subscription connections.
    IPC_OP_SUB_SUBSCRIBE = 0x0200,      // C t_ipc_subscribe, t_ipc_count: the id, above 0
    IPC_OP_SUB_DONE = 0x0201,           // C -, -
    IPC_OP_SUB_BATCH = 0x0202,          // s t_ipc_batch
    IPC_OP_SUB_DIFF = 0x0203,           // C t_ipc_diff_request, t_ipc_diff_page
    IPC_OP_SUB_MODIFICATIONS = 0x0204,  // C t_ipc_modifications, t_ipc_tag_values
    IPC_OP_SUB_SYNC = 0x0205,           // C t_ipc_sync, -. Ends the batch; CONFD_ERR_BADSTATE without one
    IPC_OP_SUB_ABORT = 0x0206,          // C t_ipc_abort, -. Ends a prepare batch, the transaction is refused

    // Control connections: registering. CONFD_ERR_NOEXISTS for a point that the model does not have.
    IPC_OP_REG_TRANS = 0x0300,         // C t_ipc_reg_calls, -
    IPC_OP_REG_VALIDATE = 0x0301,      // C t_ipc_reg_calls, -
    IPC_OP_REG_VALPOINT = 0x0302,      // C t_ipc_reg_point, -
    IPC_OP_REG_DATA = 0x0303,          // C t_ipc_reg_point, -
    IPC_OP_REG_ACTION = 0x0304,        // C t_ipc_reg_point, -
    IPC_OP_REG_NOTIF_STREAM = 0x0305,  // C t_ipc_reg_notif, t_ipc_count: the sender's id, above 0
    IPC_OP_REG_SNMP = 0x0306,          // C t_ipc_reg_notif, t_ipc_count: the sender's id, above 0
    IPC_OP_REG_DONE = 0x0307,          // C -, -

    // Control connections: the server opens a transaction or an action. The reply names the worker connection
    // on which all that belongs to it is to be asked; where there is no "init", that is the daemon's first.
    IPC_OP_DP_TRANS_INIT = 0x0400,     // S t_ipc_trans_init, t_ipc_worker. Where REG_TRANS has "init"
    IPC_OP_DP_VALIDATE_INIT = 0x0401,  // S t_ipc_trans_init, t_ipc_worker. Where REG_VALIDATE has "init"
    IPC_OP_DP_ACTION_INIT = 0x0402,    // S t_ipc_action_init, t_ipc_worker. Where REG_ACTION has "init"

    // Worker connections. A failed callback is answered with CONFD_ERR_EXTERNAL and its text.
    IPC_OP_DP_TRANS_FINISH = 0x0410,      // S t_ipc_thandle, -. Always sent, also without a "finish"
    IPC_OP_DP_VALIDATE_STOP = 0x0411,     // S t_ipc_thandle, -
    IPC_OP_DP_VALIDATE = 0x0412,          // S t_ipc_dp_validate, -
    IPC_OP_DP_HOOK_CREATE = 0x0413,       // S t_ipc_dp_object, -
    IPC_OP_DP_GET_OBJECT = 0x0414,        // S t_ipc_dp_object, t_ipc_dp_data
    IPC_OP_DP_GET_NEXT_OBJECT = 0x0415,   // S t_ipc_dp_next, t_ipc_dp_data; a second reply is possible
    IPC_OP_DP_FIND_NEXT_OBJECT = 0x0416,  // S t_ipc_dp_find_next, t_ipc_dp_data
    IPC_OP_DP_ACTION = 0x0420,            // S t_ipc_dp_action, t_ipc_dp_action_reply
    IPC_OP_DP_COMMAND = 0x0421,           // S t_ipc_dp_command, t_ipc_dp_action_reply
    IPC_OP_NOTIF_SEND = 0x0430,           // c t_ipc_notification
    IPC_OP_NOTIF_SEND_SNMP = 0x0431,      // c t_ipc_snmp_notification

    // MAAPI connections. Transactions are attached to a connection and end with it or with the transaction.
    IPC_OP_MAAPI_WAIT_START = 0x0500,           // C t_ipc_count: 1 or 2, - when that phase is reached
    IPC_OP_MAAPI_INSTALL_CRYPTO_KEYS = 0x0501,  // C -, -
    IPC_OP_MAAPI_ATTACH = 0x0502,               // C t_ipc_attach, -. CONFD_ERR_NOEXISTS: no such transaction
    IPC_OP_MAAPI_DETACH = 0x0503,               // C t_ipc_thandle, -
    IPC_OP_MAAPI_SET_ELEM = 0x0504,             // C t_ipc_maapi_set, -
    IPC_OP_MAAPI_SET_ELEM2 = 0x0505,            // C t_ipc_maapi_set_text, -
    IPC_OP_MAAPI_GET_ELEM = 0x0506,             // C t_ipc_maapi_path, t_ipc_value_reply
    IPC_OP_MAAPI_NEXT_KEY = 0x0507,             // C t_ipc_maapi_next, t_ipc_keys: none at the end
    IPC_OP_MAAPI_CLI_WRITE = 0x0508,            // c t_ipc_cli_write

    // Event connections.
    IPC_OP_EVENTS_SUBSCRIBE = 0x0600,  // C t_ipc_events, -
    IPC_OP_EVENT = 0x0601,             // s t_ipc_event

    // Schema connections.
    IPC_OP_SCHEMA_LOAD = 0x0700,  // C -, t_ipc_schema
};
