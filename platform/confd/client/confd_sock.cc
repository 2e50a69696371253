#include "platform/confd/client/client_private.h"

#include "platform/confd/ipc/ipc_auth.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <netinet/tcp.h>
#include <sys/socket.h>
#include <unistd.h>
#include <utility>

namespace {

struct t_registry {
    std::mutex lock;
    std::map<int, t_confd_sock_ref> socks;  // by descriptor
};

}  // namespace

// Never destroyed, so that calls at process end find it.
static t_registry &registry()
{
    static t_registry &instance = *new t_registry();
    return instance;
}

// Puts a record (or none) in the place of what was known of the descriptor.
static t_confd_sock_ref replace_sock(int fd, const t_confd_sock_ref &sock)
{
    std::lock_guard guard(registry().lock);
    t_confd_sock_ref old = std::exchange(registry().socks[fd], sock);
    if (sock == nullptr)
        registry().socks.erase(fd);
    if (old != nullptr)
        old->gone = true;
    return old;
}

t_confd_sock_ref client_sock(int fd, e_ipc_conn conn)
{
    {
        std::lock_guard guard(registry().lock);
        auto found = registry().socks.find(fd);
        if (found != registry().socks.end() && found->second->conn == conn)
            return found->second;
    }
    client_fail(CONFD_ERR_PROTOUSAGE, "Descriptor %d is not connected for this", fd);
    return nullptr;
}

int client_drop(t_confd_sock *p_sock)
{
    if (!p_sock->gone.exchange(true))
        shutdown(p_sock->fd, SHUT_RDWR);
    return client_fail_gone();
}

// What a transfer's result means for the caller. A connection on which anything failed is not used again.
static int checked(t_confd_sock *p_sock, e_ipc_frame result)
{
    if (result == IPC_FRAME_OK)
        return CONFD_OK;
    int error = errno;
    if (result != IPC_FRAME_ERROR)
        return client_drop(p_sock);
    p_sock->gone = true;
    return client_fail(CONFD_ERR_OS, "Descriptor %d: %s", p_sock->fd, strerror(error));
}

int client_send(t_confd_sock *p_sock, const t_ipc_frame &frame)
{
    std::vector<uint8_t> bytes = ipc_frame_bytes(frame);
    std::lock_guard guard(p_sock->write_lock);
    if (p_sock->gone)
        return client_fail_gone();
    return checked(p_sock, ipc_frame_write(p_sock->fd, bytes));
}

int client_receive(t_confd_sock *p_sock, t_ipc_frame *p_frame)
{
    if (p_sock->gone)
        return client_fail_gone();
    return checked(p_sock, ipc_frame_read(p_sock->fd, p_sock->max_frame, p_frame));
}

static int fail_by_reply(t_confd_sock *p_sock, const t_ipc_frame &frame)
{
    t_ipc_error error;
    if (!ipc_decode(frame.body, &error))
        return client_drop(p_sock);
    return client_fail(frame.status, "%s", error.text.c_str());
}

int client_call(t_confd_sock *p_sock, e_ipc_op op, std::vector<uint8_t> body, std::vector<uint8_t> *p_reply)
{
    std::lock_guard guard(p_sock->call_lock);
    uint32_t id = ++p_sock->last_request;
    int result = client_send(p_sock, {op, IPC_KIND_REQUEST, id, 0, std::move(body)});
    t_ipc_frame frame;
    if (result == CONFD_OK)
        result = client_receive(p_sock, &frame);
    if (result != CONFD_OK)
        return result;
    if (frame.kind != IPC_KIND_REPLY || frame.op != op || frame.id != id)
        return client_drop(p_sock);
    if (frame.status != 0)
        return fail_by_reply(p_sock, frame);
    *p_reply = std::move(frame.body);
    return CONFD_OK;
}

int client_do(int fd, e_ipc_conn conn, e_ipc_op op, std::vector<uint8_t> body)
{
    t_confd_sock_ref sock = client_sock(fd, conn);
    if (sock == nullptr)
        return CONFD_ERR;
    std::vector<uint8_t> reply;
    int result = client_call(sock.get(), op, std::move(body), &reply);
    if (result != CONFD_OK)
        return result;
    return reply.empty() ? CONFD_OK : client_drop(sock.get());
}

// Proves that this process can read the access file.
static int prove(t_confd_sock *p_sock, const std::string &challenge)
{
    t_ipc_proof proof;
    if (!challenge.empty()) {
        const char *p_path = getenv(IPC_ACCESS_FILE_VARIABLE);
        std::string secret;
        if (p_path == nullptr)
            return client_fail(CONFD_ERR_ACCESS_DENIED, "%s is not set", IPC_ACCESS_FILE_VARIABLE);
        if (!ipc_auth_read_secret(p_path, &secret))
            return client_fail(CONFD_ERR_ACCESS_DENIED, "No secret can be read from %s", p_path);
        proof.proof = ipc_auth_proof(secret, challenge);
    }
    std::vector<uint8_t> reply;
    int result = client_call(p_sock, IPC_OP_PROOF, ipc_encode(proof), &reply);
    t_ipc_welcome welcome;
    if (result != CONFD_OK)
        return result;
    if (!ipc_decode(reply, &welcome))
        return client_drop(p_sock);
    p_sock->connection_id = welcome.connection_id;
    p_sock->max_frame = IPC_MAX_FRAME;
    return CONFD_OK;
}

static int shake_hands(t_confd_sock *p_sock, const t_ipc_hello &hello)
{
    std::vector<uint8_t> reply;
    int result = client_call(p_sock, IPC_OP_HELLO, ipc_encode(hello), &reply);
    t_ipc_challenge challenge;
    if (result != CONFD_OK)
        return result;
    if (!ipc_decode(reply, &challenge))
        return client_drop(p_sock);
    return prove(p_sock, challenge.challenge);
}

// Small frames go out at once: each is written in one piece, and mostly somebody waits for it.
static void send_at_once(int fd)
{
    int on = 1;
    setsockopt(fd, IPPROTO_TCP, TCP_NODELAY, &on, sizeof(on));
}

int client_connect(int fd, const sockaddr *p_address, int address_size, e_ipc_conn conn, t_ipc_hello hello,
                   t_confd_sock_ref *p_sock)
{
    replace_sock(fd, nullptr);
    if (connect(fd, p_address, static_cast<socklen_t>(address_size)) != 0)
        return client_fail(CONFD_ERR_OS, "Failed to connect: %s", strerror(errno));
    send_at_once(fd);
    hello.version = IPC_VERSION;
    hello.conn = conn;
    hello.pid = static_cast<uint32_t>(getpid());
    if (hello.daemon.empty())
        hello.daemon = client_process_name();
    t_confd_sock_ref sock = std::make_shared<t_confd_sock>();
    sock->fd = fd;
    sock->conn = conn;
    int result = shake_hands(sock.get(), hello);
    if (result != CONFD_OK) {
        shutdown(fd, SHUT_RDWR);
        return result;
    }
    replace_sock(fd, sock);
    if (p_sock != nullptr)
        *p_sock = sock;
    return CONFD_OK;
}

int client_disconnect(int fd)
{
    t_confd_sock_ref old = replace_sock(fd, nullptr);
    if (old == nullptr)
        return client_fail(CONFD_ERR_PROTOUSAGE, "Descriptor %d is not connected", fd);
    shutdown(fd, SHUT_RDWR);
    return CONFD_OK;
}
