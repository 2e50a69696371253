// What the files of the client library share: errors, connections, calls, paths.
//
// A connection is known by its descriptor from a connect call on until the next one, or until cdb_close and
// its like. The record is counted: who still holds it when the descriptor is connected anew finds it `gone`
// and never writes into the new connection.
#pragma once

#include "platform/confd/confd_lib.h"
#include "platform/confd/ipc/ipc_frame.h"
#include "platform/confd/ipc/ipc_messages.h"

#include <atomic>
#include <cstdarg>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

// ---- Errors: set this thread's number and text ----

// CONFD_ERR.
__attribute__((format(printf, 2, 3))) int client_fail(int code, const char *fmt, ...);

// CONFD_EOF.
int client_fail_gone();

// What confd_init_vsn_sz was told.
std::string client_process_name();

// ---- Connections ----

struct t_confd_sock {
    int fd;
    e_ipc_conn conn;
    uint32_t connection_id = 0;
    std::mutex call_lock;   // held for a request and its reply, and while waiting for a push
    std::mutex write_lock;  // held for one frame
    std::atomic<bool> gone = false;
    uint32_t last_request = 0;  // under call_lock
    uint32_t max_frame = IPC_MAX_HANDSHAKE_FRAME;
    t_ipc_diff_entry *p_iterated = nullptr;  // where cdb_diff_iterate is; its thread only
};
using t_confd_sock_ref = std::shared_ptr<t_confd_sock>;

// Connects the descriptor and goes through the handshake. Of hello, the caller fills in what differs from an
// ordinary connection (daemon, daemon_id, flags).
int client_connect(int fd, const sockaddr *p_address, int address_size, e_ipc_conn conn, t_ipc_hello hello,
                   t_confd_sock_ref *p_sock = nullptr);

// Forgets the connection and ends the protocol; the descriptor stays open.
int client_disconnect(int fd);

// The connection of that kind, or null with CONFD_ERR_PROTOUSAGE.
t_confd_sock_ref client_sock(int fd, e_ipc_conn conn);

// Nothing more is to be had from this connection. CONFD_EOF.
int client_drop(t_confd_sock *p_sock);

// One frame each; on failure the connection is dropped. CONFD_OK, CONFD_EOF or CONFD_ERR.
int client_send(t_confd_sock *p_sock, const t_ipc_frame &frame);
int client_receive(t_confd_sock *p_sock, t_ipc_frame *p_frame);

// A request and its reply's body. A reply with an error sets this thread's error.
int client_call(t_confd_sock *p_sock, e_ipc_op op, std::vector<uint8_t> body, std::vector<uint8_t> *p_reply);

// The same with a reply without body, or with one.
int client_do(int fd, e_ipc_conn conn, e_ipc_op op, std::vector<uint8_t> body);

template <typename Reply>
int client_ask(int fd, e_ipc_conn conn, e_ipc_op op, std::vector<uint8_t> body, Reply *p_reply)
{
    t_confd_sock_ref sock = client_sock(fd, conn);
    if (sock == nullptr)
        return CONFD_ERR;
    std::vector<uint8_t> reply;
    int result = client_call(sock.get(), op, std::move(body), &reply);
    if (result != CONFD_OK)
        return result;
    return ipc_decode(reply, p_reply) ? CONFD_OK : client_drop(sock.get());
}

// ---- Paths ----

// The path that a format and its arguments make; a null format is the empty path. CONFD_OK or CONFD_ERR.
int client_path(std::string *p_path, const char *fmt, va_list args);

// Declares `path` and makes it from the variable arguments after fmt; leaves the function if it can't be
// made.
#define CLIENT_PATH(path, fmt)                                                                               \
    std::string path;                                                                                        \
    {                                                                                                        \
        va_list path_args;                                                                                   \
        va_start(path_args, fmt);                                                                            \
        int path_result = client_path(&path, fmt, path_args);                                                \
        va_end(path_args);                                                                                   \
        if (path_result != CONFD_OK)                                                                         \
            return path_result;                                                                              \
    }

// ---- Texts ----

std::string client_value_text(const confd_value_t &value);
__attribute__((format(printf, 1, 0))) std::string client_vformat(const char *fmt, va_list args);

// Copies a text into a caller's buffer, terminated, cut if need be.
void client_copy_text(char *p_buffer, size_t size, const std::string &text);

// ---- What sessions have printed ----

// Bytes that were sent to that session since the last call of this.
uint64_t client_take_printed(uint32_t usid);

// With a new control connection: the other end has begun to count anew.
void client_forget_printed();

// ---- The schema ----

// Names for texts of paths; empty if they are unknown.
std::string client_prefix_of(uint32_t ns);
