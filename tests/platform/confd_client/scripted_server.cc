#include "tests/platform/confd_client/scripted_server.h"

#include "platform/confd/ipc/ipc_auth.h"

#include <arpa/inet.h>
#include <chrono>
#include <cstdlib>
#include <netinet/tcp.h>
#include <sys/socket.h>
#include <unistd.h>

static constexpr std::chrono::seconds patience(10);

t_client_fd::t_client_fd() : fd(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)) {}

t_client_fd::~t_client_fd()
{
    close(fd);
}

ScriptedServer::ScriptedServer() : _listener(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0))
{
    _address.sin_family = AF_INET;
    _address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t size = sizeof(_address);
    if (bind(_listener, address(), size) != 0 || listen(_listener, 16) != 0 ||
        getsockname(_listener, reinterpret_cast<sockaddr *>(&_address), &size) != 0)
        abort();
    _acceptor = std::thread([this] { accept_all(); });
}

ScriptedServer::~ScriptedServer()
{
    shutdown(_listener, SHUT_RDWR);
    _acceptor.join();
    for (std::unique_ptr<t_connection> &connection : _connections) {
        shutdown(connection->fd, SHUT_RDWR);
        connection->thread.join();
        close(connection->fd);
    }
    close(_listener);
}

void ScriptedServer::refuse(e_ipc_op op, int code, const std::string &text)
{
    std::lock_guard guard(_lock);
    _answers[op] = {code, [text](const t_ipc_frame &) { return ipc_encode(t_ipc_error{text, 0}); }};
}

void ScriptedServer::answer(e_ipc_op op, std::vector<uint8_t> body)
{
    answer_with(op, [body](const t_ipc_frame &) { return body; });
}

void ScriptedServer::answer_with(e_ipc_op op, f_answer answer)
{
    std::lock_guard guard(_lock);
    _answers[op] = {0, std::move(answer)};
}

// Without a body if there is none.
ScriptedServer::t_answer ScriptedServer::find_answer(uint16_t op)
{
    std::lock_guard guard(_lock);
    auto found = _answers.find(op);
    return found == _answers.end() ? t_answer{} : found->second;
}

void ScriptedServer::accept_all()
{
    for (;;) {
        int fd = accept(_listener, nullptr, nullptr);
        if (fd < 0)
            return;
        int on = 1;
        setsockopt(fd, IPPROTO_TCP, TCP_NODELAY, &on, sizeof(on));
        std::lock_guard guard(_lock);
        _connections.push_back(std::make_unique<t_connection>());
        t_connection *p_connection = _connections.back().get();
        p_connection->fd = fd;
        p_connection->id = static_cast<uint32_t>(_connections.size());
        p_connection->thread = std::thread([this, p_connection] { serve(p_connection); });
    }
}

// A request without an answer in the script waits for the test's. False when the script ends the connection.
bool ScriptedServer::reply(const t_connection *p_connection, const t_ipc_frame &request)
{
    t_answer answer = find_answer(request.op);
    if (!answer.body)
        return true;
    if (death == DEATH_AT_REQUEST)
        return false;
    std::vector<uint8_t> bytes =
        ipc_frame_bytes({request.op, IPC_KIND_REPLY, request.id, answer.status, answer.body(request)});
    if (death == DEATH_IN_REPLY && request.op > IPC_OP_PROOF)
        bytes.resize(bytes.size() / 2);
    return ipc_frame_write(p_connection->fd, bytes) == IPC_FRAME_OK && death != DEATH_IN_REPLY;
}

// False when the client or the script ends it.
bool ScriptedServer::shake_hands(t_connection *p_connection, t_ipc_frame *p_frame)
{
    t_ipc_challenge challenge = {secret.empty() ? "" : ipc_auth_challenge()};
    t_ipc_proof proof;
    if (death == DEATH_AT_ACCEPT ||
        ipc_frame_read(p_connection->fd, IPC_MAX_HANDSHAKE_FRAME, p_frame) != IPC_FRAME_OK ||
        !ipc_decode(p_frame->body, &p_connection->hello) || death == DEATH_AT_HELLO)
        return false;
    std::vector<uint8_t> hello_reply =
        ipc_frame_bytes({p_frame->op, IPC_KIND_REPLY, p_frame->id, 0, ipc_encode(challenge)});
    if (ipc_frame_write(p_connection->fd, hello_reply) != IPC_FRAME_OK ||
        ipc_frame_read(p_connection->fd, IPC_MAX_HANDSHAKE_FRAME, p_frame) != IPC_FRAME_OK ||
        !ipc_decode(p_frame->body, &proof) || death == DEATH_AT_PROOF)
        return false;
    bool is_proven = secret.empty() || ipc_auth_is_proven(secret, challenge.challenge, proof.proof);
    std::vector<uint8_t> body =
        is_proven ? ipc_encode(t_ipc_welcome{p_connection->id}) : ipc_encode(t_ipc_error{"wrong proof", 0});
    int status = is_proven ? 0 : CONFD_ERR_ACCESS_DENIED;
    std::vector<uint8_t> proof_reply =
        ipc_frame_bytes({p_frame->op, IPC_KIND_REPLY, p_frame->id, status, std::move(body)});
    return ipc_frame_write(p_connection->fd, proof_reply) == IPC_FRAME_OK && is_proven;
}

void ScriptedServer::serve(t_connection *p_connection)
{
    t_ipc_frame frame;
    bool goes_on = shake_hands(p_connection, &frame);
    while (goes_on && ipc_frame_read(p_connection->fd, IPC_MAX_FRAME, &frame) == IPC_FRAME_OK) {
        {
            std::lock_guard guard(_lock);
            p_connection->frames.push_back(frame);
        }
        _changed.notify_all();
        if (frame.kind == IPC_KIND_REQUEST)
            goes_on = reply(p_connection, frame);
    }
    shutdown(p_connection->fd, SHUT_RDWR);
}

t_ipc_hello ScriptedServer::hello(size_t connection)
{
    std::lock_guard guard(_lock);
    return _connections.at(connection)->hello;
}

void ScriptedServer::push(size_t connection, const t_ipc_frame &frame)
{
    std::lock_guard guard(_lock);
    if (ipc_frame_write(_connections.at(connection)->fd, ipc_frame_bytes(frame)) != IPC_FRAME_OK)
        abort();
}

void ScriptedServer::hang_up(size_t connection)
{
    std::lock_guard guard(_lock);
    shutdown(_connections.at(connection)->fd, SHUT_RDWR);
}

std::vector<t_ipc_frame> ScriptedServer::wait_frames(size_t connection, size_t count)
{
    std::unique_lock guard(_lock);
    _changed.wait_for(guard, patience, [&] { return _connections.at(connection)->frames.size() >= count; });
    return _connections.at(connection)->frames;
}
