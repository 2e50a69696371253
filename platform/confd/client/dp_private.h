// What the library knows of a daemon: its callbacks, its open transactions and actions, its senders of
// notifications.
//
// The contexts that callbacks get are the bases of the records here. A transaction lives from its init
// request to its finish (or stop) request, an action from init to the action itself; both end with the daemon
// context, and with a new control connection.
#pragma once

#include "platform/confd/client/client_private.h"
#include "platform/confd/confd_dp.h"

// The user of a transaction or an action.
struct t_confd_user : confd_user_info {
    int worker_fd = -1;  // named by the init callback
    std::string error;   // of confd_action_seterr
    std::vector<IpcTagValue> results;
};

struct t_confd_trans : confd_trans_ctx {
    t_confd_user user;
    std::string error;  // of confd_trans_seterr

    // The data request that is being served; p_sock is null between requests.
    t_confd_sock *p_sock = nullptr;
    uint16_t op = 0;
    uint32_t request_id = 0;
    bool is_answered = false;
};

struct confd_notification_ctx {
    t_confd_sock_ref sock;
    int32_t sender_id;
    std::string notify_name;
};

using t_confd_trans_map = std::map<uint32_t, std::unique_ptr<t_confd_trans>>;

struct t_confd_daemon {
    std::string name;
    t_confd_sock_ref control;
    confd_trans_cbs trans_cbs = {};
    confd_trans_validate_cbs validate_cbs = {};
    std::map<std::string, confd_valpoint_cb> valpoints;
    std::map<std::string, confd_data_cbs> data;
    std::map<std::string, confd_action_cbs> actions;
    t_confd_trans_map transactions;                           // by handle
    t_confd_trans_map validations;                            // by handle
    std::map<uint32_t, std::unique_ptr<t_confd_user>> users;  // by session, between init and action
    std::vector<std::unique_ptr<confd_notification_ctx>> senders;
};

// One request of the management daemon on a control or worker connection.
struct t_dp_request {
    confd_daemon_ctx *dx;
    t_confd_sock *p_sock;
    t_ipc_frame frame;
};

// Answers; CONFD_OK, CONFD_EOF or CONFD_ERR as client_send.
int dp_reply(const t_dp_request &request, std::vector<uint8_t> body);

// Answers with an error and sets this thread's: CONFD_ERR, or CONFD_EOF if the answer can't be sent.
int dp_refuse(const t_dp_request &request, int code, const std::string &text);

// The handlers. What confd_fd_ready gives.
int dp_serve_control(const t_dp_request &request);
int dp_serve_data(const t_dp_request &request);
int dp_serve_action(const t_dp_request &request);

// Fills the record by what came.
void dp_fill_user(t_confd_user *p_user, confd_daemon_ctx *dx, const t_ipc_user &from);
