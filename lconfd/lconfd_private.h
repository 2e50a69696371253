// What the adapter's sources and their tests share: log lines, the steps of a connection, callbacks, and what
// threads hold.
//
// Threads never touch libevent nor tear anything down. They hold a context's anchor, which outlives it, and
// use the context only under the anchor's lock, after they have seen that it is still there and, where they
// belong to one connection, that this one still stands.
#pragma once

#include "common/lum_log.h"
#include "lconfd/lconfd_api.h"

#include <mutex>
#include <sys/socket.h>

// ---- Logging ----

#define LCONFD_LOG(...) LUM_LOG(LUM_LOG_DEBUG, __VA_ARGS__)
#define LCONFD_DEBUG(...)                                                                                    \
    do {                                                                                                     \
        if (g_lconfd_mod_id == 0 || g_lconfd_debug_enable != 0)                                              \
            LCONFD_LOG(__VA_ARGS__);                                                                         \
    } while (0)

// What the framework's last failure was, for "%s (%d) : %s".
#define LCONFD_WHY confd_strerror(confd_errno), confd_errno, confd_lasterr()

const char *lconfd_module_name();

// ---- Sockets ----

inline constexpr const char *LCONFD_ACCESS_FILE = "/etc/confd/confd_ipc_secret";

// Where the framework listens.
const sockaddr *lconfd_address();
inline constexpr socklen_t LCONFD_ADDRESS_SIZE = sizeof(sockaddr_in);

// -1 with errno.
int lconfd_socket_new();

// A socket for the time of a scope.
struct LconfdSocket {
    LconfdSocket();
    ~LconfdSocket();
    LconfdSocket(const LconfdSocket &) = delete;
    LconfdSocket &operator=(const LconfdSocket &) = delete;

    int fd;  // -1 with errno
};

// ---- A connection ----

struct t_lconfd_anchor {
    std::mutex lock;
    t_lconfd_context *p_ctx = nullptr;  // null once the context is gone
    uint64_t generation = 0;            // connections torn down so far
    bool schemas_loaded = false;
};

// Step by step; each logs its failure.
bool lconfd_register_callbacks(t_lconfd_context *ctx);
bool lconfd_register_primary(t_lconfd_context *ctx);
bool lconfd_open_worker_sockets(t_lconfd_context *ctx);
bool lconfd_connect_worker_sockets(t_lconfd_context *ctx);
bool lconfd_add_event(t_lconfd_context *ctx, event **pp_event, int fd, void (*cb)(int, short, void *),
                      bool is_added);
void lconfd_register_subscriptions(t_lconfd_context *ctx);

// Closes and frees all that belongs to the connection.
void lconfd_destroy(t_lconfd_context *ctx);

// The same with the secondary context, and goes on with the retry timer.
void lconfd_retry_connect(t_lconfd_context *ctx);
void lconfd_retry_cb(t_timer *p_timer, void *ctx, void *, void *, void *);
void lconfd_secondary_free(t_lconfd_context *primary_p);

// ---- Events; arg is the context ----

void lconfd_ctrl_cb(int fd, short what, void *arg);
void lconfd_work_cb(int fd, short what, void *arg);
void lconfd_sub_cb(int fd, short what, void *arg);
void lconfd_notification_cb(int fd, short what, void *arg);
void lconfd_pipe_cb(int fd, short what, void *arg);

// What threads write into the pipe.
inline constexpr char LCONFD_PIPE_RETRY = '1';
inline constexpr char LCONFD_PIPE_SUBSCRIBED = '2';

// ---- Callbacks of transactions and actions: they name the worker socket ----

int lconfd_init_validation(confd_trans_ctx *tctx);
int lconfd_stop_validation(confd_trans_ctx *tctx);
int lconfd_init_data(confd_trans_ctx *tctx);
int lconfd_init_action(confd_user_info *uinfo);

// ---- Subscriptions ----

// The entry after one in the walk over both tables, the first for null; null behind the last.
t_lconfd_sub_entry *lconfd_sub_next(const t_lconfd_context *ctx, t_lconfd_sub_entry *p_entry);

// What the iteration over a subscription's changes gets.
struct t_lconfd_sub_buf {
    t_lconfd_sub_entry *sub_entry_p;
    int curr_sub_id;
};

cdb_iter_ret lconfd_sub_diff_iter(confd_hkeypath_t *keypath_p, confd_iter_op op, confd_value_t *oldv,
                                  confd_value_t *newv, void *state);

// 0, or the framework's failure.
int lconfd_sub_diff_no_keys(t_lconfd_sub_buf *sub_buf_p);

// Copies, shallow, what belongs to the phase: deleted leaves in the delete phase, all others else, and the
// containers around them. Gives the number; 0 when there is nothing but containers. An empty container that
// stands so in the source counts outside of the delete phase.
int lconfd_sub_filter_modifications(const confd_tag_value_t *src_p, confd_tag_value_t *dst_p, int count,
                                    bool del_phase);

// What the adapter has configured itself by is gone with the connection: reads its own entries again, unless
// the first read is still to come. After the subscriptions are registered.
void lconfd_read_own_config(t_lconfd_context *ctx);

// ---- Threads ----

void lconfd_thread_block_sigpipe();

// A failure of starting is told to nobody but the caller, who keeps the argument then.
bool lconfd_thread_start_detached(void *(*main)(void *), void *arg);

// The argument of a reading thread.
struct t_lconfd_thread_sub_list {
    t_lconfd_context *lconfd_ctx_p;  // only as the anchor's lock allows
    int sub_ids[LCONFD_MAX_SUB_IDS];
    uint8_t oper_sub[LCONFD_MAX_SUB_IDS];  // 1: an operational subscription
    int num_sub;
    bool is_initial;  // of the first read
    std::shared_ptr<t_lconfd_anchor> anchor;
};

// Null, logged, without memory.
std::unique_ptr<t_lconfd_thread_sub_list> lconfd_sub_list_new(const t_lconfd_context *ctx);

// All entries' ids, which must stand still.
void lconfd_sub_list_add_all(t_lconfd_thread_sub_list *p_list, const t_lconfd_context *ctx);

// Starts the reading thread.
void lconfd_sub_list_read(std::unique_ptr<t_lconfd_thread_sub_list> list);

// ---- The order of first reading ----

// 1 when this module may read now, and has not read yet.
int lconfd_can_read_initial_config(t_lconfd_context *ctx);

// The same by the mask alone. From any thread.
int lconfd_mask_allows_read(uint32_t module);

// Sets the module's bit, if it has one. 0 or 1. From any thread.
int lconfd_set_initial_config_read_done(uint32_t module);

// ---- Memory of notifications ----

// Null without memory. What it gives goes with the queue item that it belongs to.
void *lconfd_alloc(size_t size);

// ---- The shared region ----

void lconfd_setup_shm();
void lconfd_free_shm();
