// The bodies of the messages between a daemon's client library and the management daemon: a record each, and
// one description of its bytes that serves both directions (ipc_messages.cc). Which op carries which record
// is told in ipc_protocol.h.
//
// Encoding: integers big-endian in the width of their field, enumerations and flags as the integer that the
// field has here; texts and byte strings as u32 length and the bytes; lists as u32 count and the elements;
// values, keypaths and tag values as in ipc_value.h. Fields follow each other in the order in which they are
// declared. ipc_decode refuses a body that is too short or too long, lists longer than the body could hold,
// and values and texts that are out of bounds.
#pragma once

#include "platform/confd/ipc/ipc_value.h"

#include <cstdint>
#include <span>
#include <string>
#include <vector>

// Every reply whose status isn't 0.
struct t_ipc_error {
    std::string text;        // for confd_lasterr
    uint64_t printed_bytes;  // as in t_ipc_dp_action_reply, of an action that failed; else 0
};

// ---- Handshake ----

struct t_ipc_hello {
    uint32_t version;    // IPC_VERSION
    uint8_t conn;        // e_ipc_conn
    std::string daemon;  // the daemon's name; of the process where there is no daemon
    uint32_t daemon_id;  // worker: connection id of its control connection; else 0
    uint32_t flags;      // control: as set by confd_set_daemon_flags; else 0
    uint32_t pid;
};

struct t_ipc_challenge {
    std::string challenge;  // empty: no proof is needed
};

struct t_ipc_proof {
    std::string proof;  // empty where the challenge was
};

struct t_ipc_welcome {
    uint32_t connection_id;
};

// ---- Data ----

struct t_ipc_start_session {
    uint8_t db;      // cdb_db_type
    uint32_t flags;  // CDB_LOCK_...; both REQUEST and WAIT: writes notify subscribers
};

struct t_ipc_path {
    std::string path;
};

struct t_ipc_value_reply {
    IpcValue value;
};

struct t_ipc_count {
    int32_t count;
};

struct t_ipc_set_elem {
    std::string path;
    IpcValue value;
};

struct t_ipc_phase {
    int32_t phase;
    int32_t flags;
};

struct t_ipc_trigger {
    std::vector<int32_t> ids;  // of the daemon that is named in the hello; each appears in a batch
    int32_t flags;             // of cdb_trigger_oper_subscriptions; else 0
};

// ---- Subscriptions ----

struct t_ipc_subscribe {
    uint8_t type;      // cdb_sub_type
    int32_t flags;     // of cdb_subscribe2; else 0
    int32_t priority;  // 0 for operational ones
    uint32_t ns;       // namespace hash of the first node
    std::string path;  // without keys, with or without leading slash
};

struct t_ipc_batch {
    uint8_t type;   // cdb_sub_notification
    int32_t flags;  // CDB_SUB_FLAG_...
    std::vector<int32_t> ids;
};

// Asks for the reports of an id of the open batch, or for those one level below a node that was reported.
struct t_ipc_diff_request {
    int32_t id;
    IpcKeypath parent;  // empty: the instances of the id's path
    uint64_t cursor;    // 0: from the start; else as given with the page before
};

// One node that changed. What a callback asks for while the iterator is at it is here.
struct t_ipc_diff_entry {
    uint8_t op;  // confd_iter_op
    IpcKeypath keypath;
    IpcValue old_value;  // C_NOEXISTS where there is none
    IpcValue new_value;
    std::vector<IpcTagValue> modifications;  // of instances of lists and of containers; else empty
};

struct t_ipc_diff_page {
    std::vector<t_ipc_diff_entry> entries;  // in the order of reporting
    uint64_t next;                          // for t_ipc_diff_request::cursor; 0: that was all
};

struct t_ipc_modifications {
    int32_t id;
    int32_t flags;
    std::string path;  // empty: all of the id's path
};

struct t_ipc_tag_values {
    std::vector<IpcTagValue> values;
};

struct t_ipc_sync {
    uint8_t type;  // cdb_subscription_sync_type
};

struct t_ipc_abort {
    int32_t code;  // confd_errcode
    uint32_t apptag_ns;
    uint32_t apptag_tag;
    std::string reason;
};

// ---- Registering ----

enum e_ipc_call : uint32_t {  // bits of `calls`
    IPC_CALL_INIT = 1 << 0,
    IPC_CALL_FINISH = 1 << 1,  // of transactions; stop of validation
    IPC_CALL_CREATE = 1 << 2,
    IPC_CALL_GET_OBJECT = 1 << 3,
    IPC_CALL_GET_NEXT_OBJECT = 1 << 4,
    IPC_CALL_FIND_NEXT_OBJECT = 1 << 5,
    IPC_CALL_ACTION = 1 << 6,
    IPC_CALL_COMMAND = 1 << 7,
    IPC_CALL_VALIDATE = 1 << 8,
};

struct t_ipc_reg_calls {
    uint32_t calls;  // which callbacks there are
};

struct t_ipc_reg_point {
    std::string point;  // callpoint, action point or validation point
    uint32_t calls;
};

struct t_ipc_reg_notif {
    std::string name;         // stream, or notify name
    std::string context;      // SNMP context; empty for streams
    uint32_t worker_conn_id;  // the worker connection that the notifications come on
};

// ---- Requests to a daemon ----

struct t_ipc_user {
    uint32_t usid;  // session id; printing and counting of printed bytes go by it
    std::string name;
    std::string context;  // "cli", "netconf", "system"
};

struct t_ipc_trans_init {
    uint32_t thandle;
    uint8_t mode;    // confd_trans_mode
    uint8_t dbname;  // confd_dbname
    t_ipc_user user;
};

struct t_ipc_action_init {
    std::string point;
    t_ipc_user user;
};

struct t_ipc_worker {
    uint32_t worker_conn_id;
};

struct t_ipc_thandle {
    uint32_t thandle;
};

struct t_ipc_dp_validate {
    uint32_t thandle;
    std::string point;
    IpcKeypath keypath;
    IpcValue value;
};

struct t_ipc_dp_object {
    uint32_t thandle;
    std::string point;
    IpcKeypath keypath;  // of the entry
};

struct t_ipc_dp_next {
    uint32_t thandle;
    std::string point;
    IpcKeypath keypath;  // of the list, ending in its tag
    int64_t next;        // -1: the first
};

struct t_ipc_dp_find_next {
    uint32_t thandle;
    std::string point;
    IpcKeypath keypath;          // of the list, ending in its tag
    uint8_t type;                // confd_find_next_type
    std::vector<IpcValue> keys;  // of the entry to search from; none: the first. Else all keys of the list
};

enum e_ipc_data : uint8_t {
    IPC_DATA_NOT_FOUND = 1,  // in an answer to next and find-next requests: the end
    IPC_DATA_END = 2,
    IPC_DATA_OBJECT = 3,  // values hold the leaves
    IPC_DATA_KEY = 4,     // keys hold the key of the next entry
};

struct t_ipc_dp_data {
    uint8_t what;  // e_ipc_data
    std::vector<IpcTagValue> values;
    std::vector<IpcValue> keys;
    int64_t next;  // -1: no cursor, ask on with the find-next request
};

struct t_ipc_dp_action {
    std::string point;
    t_ipc_user user;
    uint32_t name_tag;  // of the action's node
    uint32_t name_ns;
    IpcKeypath keypath;  // of the node that the action stands in; empty at the top
    std::vector<IpcTagValue> params;
};

struct t_ipc_dp_command {
    std::string point;
    t_ipc_user user;
    std::string path;
    std::vector<std::string> argv;  // the command's name first
};

struct t_ipc_dp_action_reply {
    std::vector<IpcTagValue> results;

    // What the daemon has printed for this session since its last reply of this kind, or since its control
    // connection was made, over all MAAPI connections of its process. The action is complete when that many
    // bytes of IPC_OP_MAAPI_CLI_WRITE have come.
    uint64_t printed_bytes;
};

// ---- Notifications ----

struct t_ipc_datetime {
    int16_t year;
    uint8_t month;
    uint8_t day;
    uint8_t hour;
    uint8_t min;
    uint8_t sec;
    uint32_t micro;
    int8_t timezone;
    int8_t timezone_minutes;
};

struct t_ipc_notification {
    int32_t sender_id;  // of IPC_OP_REG_NOTIF_STREAM
    t_ipc_datetime time;
    std::vector<IpcTagValue> values;  // C_XMLBEGIN of the notification, fields, C_XMLEND
};

struct t_ipc_varbind {
    uint8_t type;               // confd_snmp_var_type
    std::string name;           // CONFD_SNMP_VARIABLE
    std::vector<uint32_t> oid;  // CONFD_SNMP_OID
    IpcValue value;
};

struct t_ipc_snmp_notification {
    int32_t sender_id;         // of IPC_OP_REG_SNMP
    std::string notify_name;   // the group whose targets get it
    std::string notification;  // name in the MIB
    std::vector<t_ipc_varbind> varbinds;
};

// ---- MAAPI ----

struct t_ipc_attach {
    uint32_t ns;
    uint32_t usid;
    uint32_t thandle;
};

struct t_ipc_maapi_path {
    uint32_t thandle;
    std::string path;
};

struct t_ipc_maapi_set {
    uint32_t thandle;
    std::string path;
    IpcValue value;
};

struct t_ipc_maapi_set_text {
    uint32_t thandle;
    std::string path;
    std::string text;
};

struct t_ipc_maapi_next {
    uint32_t thandle;
    std::string path;            // of the list
    std::vector<IpcValue> keys;  // of the entry before; none: the first
};

struct t_ipc_keys {
    std::vector<IpcValue> keys;
};

struct t_ipc_cli_write {
    uint32_t usid;
    std::string text;  // any bytes
};

// ---- Events ----

struct t_ipc_events {
    uint32_t mask;  // confd_notification_type
    int32_t heartbeat_interval_ms;
    int32_t health_check_interval_ms;
};

struct t_ipc_event {
    uint32_t type;  // one confd_notification_type
    int32_t usid;
    uint8_t database;  // confd_dbname
    std::string text;
};

// ---- Schema ----

enum e_ipc_node_kind : uint8_t {
    IPC_NODE_CONTAINER = 1,
    IPC_NODE_LIST = 2,
    IPC_NODE_LEAF = 3,
    IPC_NODE_LEAF_LIST = 4,
    IPC_NODE_CASE = 5,
    IPC_NODE_NOTIFICATION = 6,
    IPC_NODE_ACTION = 7,
};

inline constexpr uint32_t IPC_NO_INDEX = 0xffffffff;

struct t_ipc_schema_ns {
    uint32_t hash;
    std::string module;
    std::string prefix;
};

struct t_ipc_schema_name {
    uint32_t tag;
    std::string name;
};

struct t_ipc_schema_label {
    int64_t value;  // of an enumeration, or position of a bit
    std::string name;
};

struct t_ipc_schema_type {
    uint32_t ns;
    std::string name;    // of a typedef; empty for the type of one leaf
    uint8_t value_type;  // confd_vtype of values; C_LIST never
    std::vector<t_ipc_schema_label> labels;
};

// Parents stand before their children; children stand in schema order. A node of a case hangs below the
// case's node. Input and output of an action hang below the action, told apart by flags.
struct t_ipc_schema_node {
    uint32_t tag;
    uint32_t ns;
    uint32_t parent;             // index of the node, or IPC_NO_INDEX at the top
    uint8_t kind;                // e_ipc_node_kind
    uint32_t flags;              // further CS_NODE_IS_...: WRITE, CDB, PARAM, RESULT
    uint32_t type;               // index of the type, or IPC_NO_INDEX
    std::vector<uint32_t> keys;  // tags of a list's keys
};

struct t_ipc_schema {
    std::vector<t_ipc_schema_ns> namespaces;
    std::vector<t_ipc_schema_name> names;
    std::vector<t_ipc_schema_type> types;
    std::vector<t_ipc_schema_node> nodes;
};

// ---- Encoding and decoding, for each of the records above ----

// The body's bytes. A body longer than a frame may be comes out empty, which no decoder accepts.
template <typename Message>
std::vector<uint8_t> ipc_encode(const Message &message);

// True if the bytes are exactly one such record. On false *p_message holds anything.
template <typename Message>
[[nodiscard]] bool ipc_decode(std::span<const uint8_t> bytes, Message *p_message);
