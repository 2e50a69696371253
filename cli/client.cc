#include "cli/client.h"

#include "cli/interrupt.h"
#include "common/unix_socket.h"
#include "mgmtd/control/control_frame.h"

#include <cerrno>
#include <cstring>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

t_cli_client::~t_cli_client()
{
    cli_client_close(this);
}

void cli_client_close(t_cli_client *p_client)
{
    if (p_client->fd >= 0)
        close(p_client->fd);
    p_client->fd = -1;
    p_client->input.clear();
}

bool cli_client_connect(t_cli_client *p_client, const std::string &socket_path, std::string *p_reason)
{
    p_client->fd = unix_socket_connect(socket_path, true);
    if (p_client->fd < 0)
        *p_reason = strerror(errno);
    return p_client->fd >= 0;
}

// ---- Bytes ----

// False when the connection fails, or on an interruption, after which it is of no use.
static bool bytes_send(t_cli_client *p_client, std::string_view bytes)
{
    while (!bytes.empty() && cli_wait(p_client->fd, POLLOUT)) {
        ssize_t sent = send(p_client->fd, bytes.data(), bytes.size(), MSG_NOSIGNAL | MSG_DONTWAIT);
        if (sent < 0 && errno != EINTR && errno != EAGAIN)
            return false;
        bytes.remove_prefix(sent > 0 ? static_cast<size_t>(sent) : 0);
    }
    return bytes.empty();
}

// Waits until the input holds so many bytes. It keeps what it has on an interruption.
static bool bytes_await(t_cli_client *p_client, size_t size)
{
    static constexpr size_t piece = 256 * 1024;  // bytes
    while (p_client->input.size() < size) {
        if (!cli_wait(p_client->fd, POLLIN))
            return false;
        size_t had = p_client->input.size();
        p_client->input.resize(had + piece);
        ssize_t received = recv(p_client->fd, p_client->input.data() + had, piece, MSG_DONTWAIT);
        p_client->input.resize(had + (received > 0 ? static_cast<size_t>(received) : 0));
        if (received == 0 || (received < 0 && errno != EINTR && errno != EAGAIN))
            return false;
    }
    return true;
}

static bool frame_receive(t_cli_client *p_client, t_control_frame *p_frame)
{
    uint8_t bytes[CONTROL_HEADER_SIZE];
    t_control_header header;
    if (!bytes_await(p_client, sizeof(bytes)))
        return false;
    memcpy(bytes, p_client->input.data(), sizeof(bytes));
    if (!control_header_read(bytes, &header))
        return false;
    size_t size = sizeof(bytes) + header.head_size + header.body_size;
    if (!bytes_await(p_client, size))
        return false;
    p_frame->head = p_client->input.substr(sizeof(bytes), header.head_size);
    p_frame->body = p_client->input.substr(sizeof(bytes) + header.head_size, header.body_size);
    p_client->input.erase(0, size);
    return true;
}

// ---- Answers ----

static t_cli_answer lost(const char *reason)
{
    return {.outcome = CLI_ANSWER_LOST, .result = {}, .warnings = {}, .path = "", .reason = reason};
}

static std::string text_member(const t_cli_json &object, const char *name)
{
    auto member = object.find(name);
    return member != object.end() && member->is_string() ? member->get<std::string>() : "";
}

static t_cli_answer answer_read(const t_cli_json &head, const std::string &body)
{
    t_cli_answer answer = {};
    if (head.value("ok", t_cli_json()) != true) {
        t_cli_json error = head.value("error", t_cli_json::object());
        answer.outcome = CLI_ANSWER_REFUSED;
        answer.path = text_member(error, "path");
        answer.reason = text_member(error, "reason");
        return answer;
    }
    answer.outcome = CLI_ANSWER_DONE;
    for (const t_cli_json &warning : head.value("warnings", t_cli_json::array()))
        answer.warnings.push_back(warning.is_string() ? warning.get<std::string>() : warning.dump());
    if (body.empty())
        return answer;
    answer.result = t_cli_json::parse(body, nullptr, false);
    return answer.result.is_object() ? answer : lost("the daemon's answer makes no sense");
}

static void more_tell(const t_cli_json &head, const std::string &body, const t_cli_listener &listener)
{
    std::string line = text_member(head, "progress");
    if (!line.empty() && listener.progress)
        listener.progress(line);
    if (!body.empty() && listener.output)
        listener.output(body);
}

static t_cli_answer stopped()
{
    t_cli_answer answer = lost("interrupted");
    answer.outcome = CLI_ANSWER_INTERRUPTED;
    return answer;
}

// Nothing came: the signal, or the connection's end.
static t_cli_answer call_give_up(t_cli_client *p_client, bool sent)
{
    if (cli_interrupted())
        return stopped();
    cli_client_close(p_client);
    return lost(sent ? "the daemon has closed the connection" : "the daemon does not take the request");
}

static t_cli_answer call_fail(t_cli_client *p_client, const char *reason)
{
    cli_client_close(p_client);
    return lost(reason);
}

t_cli_answer cli_client_call(t_cli_client *p_client, t_cli_json head, std::string_view body,
                             const t_cli_listener &listener)
{
    head["id"] = ++p_client->last_id;
    std::string text = head.dump(-1, ' ', false, t_cli_json::error_handler_t::replace);
    if (text.size() > CONTROL_MAX_HEAD || body.size() > CONTROL_MAX_BODY)
        return lost("the request is too large");
    // A peer that is refused may find the socket closed for writing and still has its answer to read.
    bool sent = bytes_send(p_client, control_frame_bytes(text, body));
    if (!sent && cli_interrupted())
        return call_fail(p_client, "interrupted before the daemon took the request");
    t_control_frame frame;
    while (frame_receive(p_client, &frame)) {
        t_cli_json answer = t_cli_json::parse(frame.head, nullptr, false);
        if (!answer.is_object())
            return call_fail(p_client, "the daemon's answer makes no sense");
        t_cli_json id = answer.value("id", t_cli_json());
        if (id != p_client->last_id && id != 0)
            continue;  // of a request that was interrupted
        if (answer.value("more", t_cli_json()) != true)
            return answer_read(answer, frame.body);
        more_tell(answer, frame.body, listener);
        if (listener.until && listener.until())
            return stopped();
    }
    return call_give_up(p_client, sent);
}
