// The management framework's client interface: reading, writing and subscribing to the datastore. See
// confd_lib.h.
//
// Paths are given as formats: "/policy/zone{%s}/vpn[%d]". %s, %d, %u, %ld, %lu take what they take in printf,
// %x takes a confd_value_t *, %*x an int and an array of values (a whole key); %% is a percent sign. A key's
// text is quoted by the library where it needs to be. A path without leading slash starts where cdb_cd went.
#pragma once

#include "platform/confd/confd_lib.h"

#include <cstdarg>

enum cdb_db_type {
    CDB_RUNNING = 1,
    CDB_STARTUP = 2,
    CDB_OPERATIONAL = 3,
    CDB_PRE_COMMIT_RUNNING = 4,
};

// What a connection is for.
enum cdb_sock_type {
    CDB_READ_SOCKET = 0,
    CDB_SUBSCRIPTION_SOCKET = 1,
    CDB_DATA_SOCKET = 2,
};

// ---- Connections and sessions ----

// Connects a socket of the caller's to the datastore.
int cdb_connect(int sock, cdb_sock_type type, const struct sockaddr *srv, int srv_sz);

// Ends the protocol on a socket. The descriptor stays open and is the caller's to close.
int cdb_close(int sock);

// Flags of cdb_start_session2.
inline constexpr int CDB_LOCK_WAIT = 1 << 0;
inline constexpr int CDB_LOCK_SESSION = 1 << 1;
inline constexpr int CDB_LOCK_REQUEST = 1 << 2;
inline constexpr int CDB_LOCK_PARTIAL = 1 << 3;

// A session on a connected data socket. Writes to the operational store notify subscribers when the session
// has CDB_LOCK_REQUEST and CDB_LOCK_WAIT.
int cdb_start_session(int sock, cdb_db_type db);
int cdb_start_session2(int sock, cdb_db_type db, int flags);
int cdb_end_session(int sock);

struct cdb_phase {
    int phase;  // 0 starting, 1 schema and store loaded, 2 running
    int flags;
};

// Needs no session.
int cdb_get_phase(int sock, cdb_phase *phase);

// ---- Reading ----

int cdb_cd(int sock, const char *fmt, ...);
int cdb_exists(int sock, const char *fmt, ...);         // 1, 0 or a failure
int cdb_num_instances(int sock, const char *fmt, ...);  // a count or a failure

// The value is the caller's: confd_free_value.
int cdb_get(int sock, confd_value_t *v, const char *fmt, ...);
int cdb_vget(int sock, confd_value_t *v, const char *fmt, va_list args);

// These, and cdb_get_str, fail with CONFD_ERR_BADTYPE for a leaf of another type. rval stays untouched on
// failure.
int cdb_get_int16(int sock, int16_t *rval, const char *fmt, ...);
int cdb_get_int32(int sock, int32_t *rval, const char *fmt, ...);
int cdb_get_u_int32(int sock, uint32_t *rval, const char *fmt, ...);

// Of a text leaf; cut to n - 1 bytes and terminated.
int cdb_get_str(int sock, char *rval, int n, const char *fmt, ...);

// ---- Writing the operational store ----

int cdb_set_elem(int sock, confd_value_t *val, const char *fmt, ...);
int cdb_vset_elem(int sock, confd_value_t *val, const char *fmt, va_list args);
int cdb_create(int sock, const char *fmt, ...);
int cdb_vcreate(int sock, const char *fmt, va_list args);
int cdb_delete(int sock, const char *fmt, ...);
int cdb_vdelete(int sock, const char *fmt, va_list args);

// ---- Subscriptions ----

enum cdb_sub_type {
    CDB_SUB_RUNNING = 1,
    CDB_SUB_RUNNING_TWOPHASE = 2,
    CDB_SUB_OPERATIONAL = 3,
};

enum cdb_sub_notification {
    CDB_SUB_PREPARE = 1,
    CDB_SUB_COMMIT = 2,
    CDB_SUB_ABORT = 3,
    CDB_SUB_OPER = 4,
};

enum cdb_subscription_sync_type {
    CDB_DONE_PRIORITY = 1,
    CDB_DONE_SOCKET = 2,
    CDB_DONE_TRANSACTION = 3,
    CDB_DONE_OPERATIONAL = 4,
};

// Flags of a notification.
inline constexpr int CDB_SUB_FLAG_IS_LAST = 1 << 0;
inline constexpr int CDB_SUB_FLAG_TRIGGER = 1 << 1;
inline constexpr int CDB_SUB_FLAG_REVERT = 1 << 2;
inline constexpr int CDB_SUB_FLAG_HA_SYNC = 1 << 3;

// Registers a path without keys, with or without leading slash; *spoint gets an id above 0 that is unique in
// this daemon. Notifications come after cdb_subscribe_done.
int cdb_subscribe(int sock, int priority, int nspace, int *spoint, const char *fmt, ...);
int cdb_subscribe2(int sock, cdb_sub_type type, int flags, int priority, int *spoint, int nspace,
                   const char *fmt, ...);
int cdb_oper_subscribe(int sock, int nspace, int *spoint, const char *fmt, ...);
int cdb_subscribe_done(int sock);

// Waits for a notification: all ids of one priority level that have changed. *subpoints comes from malloc and
// is the caller's. The framework waits for cdb_sync_subscription_socket or cdb_sub_abort_trans.
int cdb_read_subscription_socket2(int sock, cdb_sub_notification *type, int *flags, int *subpoints[],
                                  int *resultlen);
int cdb_sync_subscription_socket(int sock, cdb_subscription_sync_type st);

// In CDB_SUB_PREPARE only: refuses the transaction, with a printf text for the operator.
__attribute__((format(printf, 5, 6))) int cdb_sub_abort_trans(int sock, confd_errcode code,
                                                              uint32_t apptag_ns, uint32_t apptag_tag,
                                                              const char *fmt, ...);

// Replays the whole store to these ids as creations, or the operational ids as changed. Blocks until the
// subscriber has synchronised the last notification: never to be called by the thread that serves them.
int cdb_trigger_subscriptions(int sock, int sub_points[], int len);
int cdb_trigger_oper_subscriptions(int sock, int sub_points[], int len, int flags);

enum confd_iter_op {
    MOP_CREATED = 1,
    MOP_DELETED = 2,
    MOP_MODIFIED = 3,
    MOP_VALUE_SET = 4,
    MOP_MOVED_AFTER = 5,
    MOP_ATTR_SET = 6,
};
using cdb_iter_op = confd_iter_op;

enum cdb_iter_ret {
    ITER_STOP = 1,
    ITER_RECURSE = 2,   // on with the children of this node
    ITER_CONTINUE = 3,  // on with the next node beside or above this one
};

inline constexpr int ITER_WANT_PREV = 1 << 0;  // old values are given
inline constexpr int ITER_WANT_LEAF_LIST_AS_LEAF = 1 << 5;

// Old and new value are null where there is none. All pointers are good during the call only.
using f_cdb_iter = cdb_iter_ret (*)(confd_hkeypath_t *kp, confd_iter_op op, confd_value_t *oldv,
                                    confd_value_t *newv, void *state);

// Reports the changes of an id of the present notification, from the instances of its path downwards.
int cdb_diff_iterate(int sock, int subid, f_cdb_iter iter, int flags, void *initstate);

// What changed in the instance that the iterator is at, or at a path below an id's ("" or null: all of the
// id's path). The leaves of the instance and its containers; lists in it are left out. The array is never
// null on success and the caller's, with its values: confd_free_value, then free.
int cdb_get_modifications_iter(int sock, int flags, confd_tag_value_t **values, int *nvalues);
int cdb_get_modifications(int sock, int subid, int flags, confd_tag_value_t **values, int *nvalues,
                          const char *fmt, ...);
