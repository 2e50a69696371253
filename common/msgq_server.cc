#include <cerrno>
#include <cstring>
#include <new>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include "common/lum_assert.h"
#include "common/msgq_util_private.h"
#include "common/strlcpy.h"

// ---- Connections whose peer is not known yet ----

static void msgq_handle_msghdr_accept(const msgq_server_t &server, int fd)
{
    auto *tmp_msgq_p = new (std::nothrow) msgq_handle_t{};
    if (tmp_msgq_p == nullptr) {
        MSGQ_ERR("Alloc failed");
        return;
    }
    tmp_msgq_p->type = MSGQ_HANDLE_TYPE_SERVER;
    tmp_msgq_p->sock_fd = fd;
    tmp_msgq_p->inst_p = server.inst_p;
    lum_strlcpy(tmp_msgq_p->msgq_path, server.msgq_path, sizeof(tmp_msgq_p->msgq_path));
    msgq_tmp_list_add(tmp_msgq_p);
    msgq_read_event_add(tmp_msgq_p, EV_READ);
}

void msgq_tmp_handle_destroy(msgq_handle_t *tmp_msgq_p)
{
    msgq_tmp_list_remove(tmp_msgq_p);
    msgq_close_conn(tmp_msgq_p, false);
    delete tmp_msgq_p;
}

// ---- A peer comes up ----

// The handle takes over a socket whose peer is known.
static void connection_adopt(msgq_handle_t *msgq_p, int fd)
{
    LUM_ASSERT(msgq_p->in_unreg_list, "msgq_p->in_unreg_list");
    msgq_move_to_reg_list(msgq_p);
    msgq_p->sock_fd = fd;
    msgq_read_event_add(msgq_p, EV_READ | EV_PERSIST);
    msgq_write_events_create(msgq_p);
    if (!msgq_read_helpers_create(msgq_p))
        MSGQ_ERR("Failed to create read helper events");
}

static void connection_tell_up(msgq_handle_t *msgq_p)
{
    msgq_p->stats.conn_up++;
    if (msgq_p->app_cb.conn_up_cb != nullptr)
        msgq_p->app_cb.conn_up_cb(msgq_p, msgq_p->user_arg_p);
}

static void msgq_handle_apphdr_accept(const msgq_server_t &server, int fd)
{
    msgq_handle_t *msgq_p = server.apphead_msgq_handle_p;
    if (msgq_p->sock_fd >= 0) {
        LUM_ASSERT(msgq_p->in_reg_list, "msgq_p->in_reg_list");
        msgq_p->stats.conn_exist++;
        msgq_close_conn(msgq_p, true);
    }
    connection_adopt(msgq_p, fd);
    connection_tell_up(msgq_p);
}

static bool is_named_by(const msgq_handle_t &handle, const msgq_hdr_t &hdr, const char *path)
{
    return handle.srcid == hdr.tgt_mod && handle.tgtid == hdr.src_mod &&
           strncmp(handle.msgq_path, path, MSGQ_PATH_SIZE) == 0;
}

static msgq_handle_t *handle_find(const msgq_instance_t &inst, const msgq_hdr_t &hdr, const char *path)
{
    msgq_handle_t *msgq_p;
    TAILQ_FOREACH(msgq_p, &inst.unreg_msgq_listhead, unreg_list_entry)
    if (is_named_by(*msgq_p, hdr, path))
        return msgq_p;
    TAILQ_FOREACH(msgq_p, &inst.reg_msgq_listhead, reg_list_entry)
    if (is_named_by(*msgq_p, hdr, path))
        return msgq_p;
    return nullptr;
}

void msgq_handle_register_msg(msgq_handle_t *tmp_msgq_p, const msgq_hdr_t &hdr)
{
    tmp_msgq_p->stats.rx_register++;
    LUM_ASSERT(tmp_msgq_p->type == MSGQ_HANDLE_TYPE_SERVER, "msgq_p->type == MSGQ_HANDLE_TYPE_SERVER");
    msgq_handle_t *inlist_msgq_p = handle_find(*tmp_msgq_p->inst_p, hdr, tmp_msgq_p->msgq_path);
    if (inlist_msgq_p == nullptr) {
        MSGQ_DBG("No handle for module %d at %s", hdr.src_mod, tmp_msgq_p->msgq_path);
        msgq_tmp_handle_destroy(tmp_msgq_p);
        return;
    }
    if (inlist_msgq_p->in_reg_list) {
        inlist_msgq_p->stats.conn_exist++;
        msgq_close_conn(inlist_msgq_p, true);
    }
    LUM_ASSERT(inlist_msgq_p->in_unreg_list, "inlist_msgq_p->in_unreg_list");
    int fd = tmp_msgq_p->sock_fd;
    event_free(tmp_msgq_p->read_ev_p);  // before another event on the same socket
    msgq_tmp_list_remove(tmp_msgq_p);
    delete tmp_msgq_p;
    connection_adopt(inlist_msgq_p, fd);
    connection_tell_up(inlist_msgq_p);
}

// ---- Listening ----

static void msgq_listener_cb(evconnlistener *, evutil_socket_t fd, sockaddr *, int, void *server_p)
{
    const auto &server = *static_cast<const msgq_server_t *>(server_p);
    if (server.listener_apphdr)
        msgq_handle_apphdr_accept(server, fd);
    else
        msgq_handle_msghdr_accept(server, fd);
}

static msgq_server_t *server_find(const msgq_instance_t &inst, const char *path)
{
    msgq_server_t *server_p;
    TAILQ_FOREACH(server_p, &inst.server_head, server_entry)
    if (strncmp(server_p->msgq_path, path, MSGQ_PATH_SIZE) == 0)
        return server_p;
    return nullptr;
}

static msgq_server_t *server_create(const msgq_handle_t &handle)
{
    auto *server_p = new (std::nothrow) msgq_server_t{};
    if (server_p == nullptr)
        return nullptr;
    server_p->inst_p = handle.inst_p;
    server_p->srcid = handle.srcid;
    server_p->listener_apphdr = handle.use_app_header;
    lum_strlcpy(server_p->msgq_path, handle.msgq_path, sizeof(server_p->msgq_path));
    TAILQ_INSERT_HEAD(&handle.inst_p->server_head, server_p, server_entry);
    return server_p;
}

static e_err msgq_link_server(msgq_handle_t *msgq_p)
{
    msgq_server_t *server_p = server_find(*msgq_p->inst_p, msgq_p->msgq_path);
    if (server_p != nullptr) {
        LUM_ASSERT(server_p->listener_apphdr == msgq_p->use_app_header,
                   "server_p->listener_apphdr == msgq_p->use_app_header");
        LUM_ASSERT(!server_p->listener_apphdr || server_p->apphead_msgq_handle_p == nullptr,
                   "server_p->listener_apphdr ? (server_p->apphead_msgq_handle_p == NULL) : 1");
    } else {
        server_p = server_create(*msgq_p);
    }
    if (server_p == nullptr) {
        MSGQ_ERR("Failed to allocate memory for server at %s", msgq_p->msgq_path);
        return ERR_ALLOC;
    }
    if (msgq_p->use_app_header)
        server_p->apphead_msgq_handle_p = msgq_p;
    server_p->ref_count++;
    msgq_p->server_p = server_p;
    return ERR_OK;
}

static evconnlistener *listener_bind(msgq_server_t *server_p)
{
    sockaddr_un addr = {};
    addr.sun_family = AF_UNIX;
    lum_strlcpy(addr.sun_path, server_p->msgq_path, sizeof(addr.sun_path));
    return evconnlistener_new_bind(server_p->inst_p->app_evbase_p, msgq_listener_cb, server_p,
                                   LEV_OPT_CLOSE_ON_FREE | LEV_OPT_CLOSE_ON_EXEC | LEV_OPT_REUSEABLE, -1,
                                   reinterpret_cast<const sockaddr *>(&addr), sizeof(addr));
}

e_err msgq_init_start_server(msgq_handle_t *msgq_p)
{
    e_err err = msgq_link_server(msgq_p);
    if (err != ERR_OK)
        return err;
    msgq_server_t *server_p = msgq_p->server_p;
    const char *path = server_p->msgq_path;
    if (server_p->server_listener_p != nullptr) {
        MSGQ_DBG("Server is on at %s, ignore server start", path);
        return ERR_EXIST;
    }
    if (unlink(path) != 0 && errno != ENOENT) {
        MSGQ_ERR("Path %s exists, failed to remove", path);
        return ERR_EXIST;
    }
    server_p->server_listener_p = listener_bind(server_p);
    if (server_p->server_listener_p == nullptr) {
        MSGQ_ERR("Failed to start listener for %s", path);
        return ERR_ALLOC;
    }
    if (chmod(path, 0777) != 0)
        MSGQ_ERR("Failed to change permission for %s", path);
    return ERR_OK;
}

void msgq_unlink_server(msgq_handle_t *msgq_p)
{
    msgq_server_t *server_p = msgq_p->server_p;
    if (server_p == nullptr)
        return;
    msgq_p->server_p = nullptr;
    if (server_p->apphead_msgq_handle_p == msgq_p)
        server_p->apphead_msgq_handle_p = nullptr;
    if (--server_p->ref_count != 0)
        return;
    TAILQ_REMOVE(&server_p->inst_p->server_head, server_p, server_entry);
    if (server_p->server_listener_p != nullptr)
        evconnlistener_free(server_p->server_listener_p);
    unlink(server_p->msgq_path);
    delete server_p;
}
