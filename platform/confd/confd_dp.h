// The management framework's client interface: providing data, hooks, actions, validation and notifications.
// See confd_lib.h.
//
// A daemon registers callbacks on its control socket; after confd_register_done the framework asks. The init
// callbacks are called for requests on the control socket and name the worker socket (confd_trans_set_fd,
// confd_action_set_fd) on which the work then arrives. confd_fd_ready reads and serves one request; callbacks
// run in it, on its thread.
//
// A callback gives CONFD_OK, or CONFD_ERR, which fails the request (with the text of confd_trans_seterr or
// confd_action_seterr). Data callbacks answer with one of the confd_data_reply_ calls.
#pragma once

#include "platform/confd/confd_lib.h"

#include <ctime>

inline constexpr size_t MAX_CALLPOINT_LEN = 256;

// ---- What callbacks get ----

enum confd_dbname {
    CONFD_NO_DB = 0,
    CONFD_CANDIDATE = 1,
    CONFD_RUNNING = 2,
    CONFD_STARTUP = 3,
    CONFD_OPERATIONAL = 4,
    CONFD_PRE_COMMIT_RUNNING = 6,
};

enum confd_trans_mode { CONFD_READ = 1, CONFD_READ_WRITE = 2 };

struct confd_trans_ctx {
    int fd;  // the worker socket
    confd_daemon_ctx *dx;
    confd_trans_mode mode;
    confd_dbname dbname;
    confd_user_info *uinfo;
    void *t_opaque;
    int thandle;
};

// ---- Daemons and their sockets ----

inline constexpr int CONFD_DAEMON_FLAG_SEND_IKP = 1 << 0;

confd_daemon_ctx *confd_init_daemon(const char *name);
int confd_set_daemon_flags(confd_daemon_ctx *dx, int flags);

// Frees the context and all of its transactions. Its sockets stay the caller's.
void confd_release_daemon(confd_daemon_ctx *dx);

enum confd_sock_type { CONTROL_SOCKET = 0, WORKER_SOCKET = 1 };

// The control socket first. Connecting it again, by any process, takes the daemon's name over.
int confd_connect(confd_daemon_ctx *dx, int sock, confd_sock_type type, const struct sockaddr *srv,
                  int addrsz);

// Reads one request and serves it. CONFD_EOF; CONFD_ERR with CONFD_ERR_EXTERNAL when a callback failed.
int confd_fd_ready(confd_daemon_ctx *dx, int fd);

// ---- Registering. CONFD_ERR with CONFD_ERR_NOEXISTS for a point that the data model does not have. ----

struct confd_trans_cbs {
    int (*init)(confd_trans_ctx *tctx);
    int (*finish)(confd_trans_ctx *tctx);
};

struct confd_trans_validate_cbs {
    int (*init)(confd_trans_ctx *tctx);
    int (*stop)(confd_trans_ctx *tctx);
};

struct confd_valpoint_cb {
    char valpoint[MAX_CALLPOINT_LEN];
    int (*validate)(confd_trans_ctx *tctx, confd_hkeypath_t *kp, confd_value_t *newval);
    void *cb_opaque;
};

enum confd_find_next_type { CONFD_FIND_NEXT = 0, CONFD_FIND_SAME_OR_NEXT = 1 };

struct confd_data_cbs {
    char callpoint[MAX_CALLPOINT_LEN];
    int (*create)(confd_trans_ctx *tctx, confd_hkeypath_t *kp);
    int (*get_object)(confd_trans_ctx *tctx, confd_hkeypath_t *kp);
    int (*get_next_object)(confd_trans_ctx *tctx, confd_hkeypath_t *kp, long next);
    int (*find_next_object)(confd_trans_ctx *tctx, confd_hkeypath_t *kp, confd_find_next_type type,
                            confd_value_t *inkeys, int n);
    void *cb_opaque;
};

struct confd_action_cbs {
    char actionpoint[MAX_CALLPOINT_LEN];
    int (*init)(confd_user_info *uinfo);
    int (*action)(confd_user_info *uinfo, xml_tag *name, confd_hkeypath_t *kp, confd_tag_value_t *params,
                  int nparams);
    int (*command)(confd_user_info *uinfo, char *path, int argc, char **argv);
    void *cb_opaque;
};

int confd_register_trans_cb(confd_daemon_ctx *dx, const confd_trans_cbs *trans);
int confd_register_trans_validate_cb(confd_daemon_ctx *dx, const confd_trans_validate_cbs *vcbs);
int confd_register_valpoint_cb(confd_daemon_ctx *dx, const confd_valpoint_cb *vcb);
int confd_register_data_cb(confd_daemon_ctx *dx, const confd_data_cbs *data);
int confd_register_action_cbs(confd_daemon_ctx *dx, const confd_action_cbs *acb);
int confd_register_done(confd_daemon_ctx *dx);

// ---- In callbacks ----

void confd_trans_set_fd(confd_trans_ctx *tctx, int sock);
void confd_action_set_fd(confd_user_info *uinfo, int sock);

__attribute__((format(printf, 2, 3))) void confd_trans_seterr(confd_trans_ctx *tctx, const char *fmt, ...);
__attribute__((format(printf, 2, 3))) void confd_action_seterr(confd_user_info *uinfo, const char *fmt, ...);

// Answers of data callbacks; the values are copied. next -1: there is no cursor, the framework goes on with
// find_next_object. A null array with n and next -1 is the end of the list.
int confd_data_reply_not_found(confd_trans_ctx *tctx);
int confd_data_reply_tag_value_array(confd_trans_ctx *tctx, const confd_tag_value_t *tvs, int n);
int confd_data_reply_next_object_tag_value_array(confd_trans_ctx *tctx, const confd_tag_value_t *tvs, int n,
                                                 long next);
int confd_data_reply_next_key(confd_trans_ctx *tctx, const confd_value_t *v, int num_vals, long next);

// The results of an action; to be called at most once, in its callback.
int confd_action_reply_values(confd_user_info *uinfo, confd_tag_value_t *values, int nvalues);

// ---- Notifications ----

struct confd_notification_ctx;  // owned by the daemon context

struct confd_notification_stream_cbs {
    char streamname[MAX_CALLPOINT_LEN];
    int fd;  // the worker socket
    void *cb_opaque;
};

int confd_register_notification_stream(confd_daemon_ctx *dx, const confd_notification_stream_cbs *ncbs,
                                       confd_notification_ctx **nctx);

// Sends from any thread, without an answer; time is the event's.
int confd_notification_send(confd_notification_ctx *nctx, const confd_datetime *time,
                            const confd_tag_value_t *values, int nvalues);

enum confd_snmp_var_type { CONFD_SNMP_VARIABLE = 1, CONFD_SNMP_OID = 2 };

struct confd_snmp_varbind {
    confd_snmp_var_type type;
    union {
        char name[256];      // CONFD_SNMP_VARIABLE: name in the MIB
        confd_snmp_oid oid;  // CONFD_SNMP_OID
    } var;
    confd_value_t val;
};

int confd_register_snmp_notification(confd_daemon_ctx *dx, int fd, const char *notify_name,
                                     const char *ctx_name, confd_notification_ctx **nctx);
int confd_notification_set_snmp_notify_name(confd_notification_ctx *nctx, const char *notify_name);
int confd_notification_send_snmp(confd_notification_ctx *nctx, const char *notification,
                                 const confd_snmp_varbind *varbinds, int num_vars);

// ---- Events of the framework itself ----

enum confd_notification_type {
    CONFD_NOTIF_AUDIT = 1 << 0,
    CONFD_NOTIF_DAEMON = 1 << 1,
    CONFD_NOTIF_COMMIT_SIMPLE = 1 << 4,
    CONFD_NOTIF_HEARTBEAT = 1 << 14,
    CONFD_NOTIF_HEALTH_CHECK = 1 << 15,
};

struct confd_notifications_data {
    int heartbeat_interval;     // milliseconds
    int health_check_interval;  // milliseconds
};

struct confd_notification {
    confd_notification_type type;
    int usid;               // of audit and commit events
    confd_dbname database;  // of commit events
    char *text;             // audit and daemon lines, the user's name of a commit; never null
};

// data may be null where the mask asks for neither heartbeats nor health checks.
int confd_notifications_connect2(int sock, const struct sockaddr *srv, int srv_sz, int mask,
                                 const confd_notifications_data *data);

// Waits for an event. On success *n is to be freed by confd_free_notification, which does nothing to a record
// of a failed read and to null.
int confd_read_notification(int sock, confd_notification *n);
void confd_free_notification(confd_notification *n);
