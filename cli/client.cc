#include "cli/client.h"

#include "mgmtd/control/control_frame.h"

#include <cerrno>
#include <cstring>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

t_cli_client::~t_cli_client()
{
    if (fd >= 0)
        close(fd);
}

bool cli_client_connect(t_cli_client *p_client, const std::string &socket_path, std::string *p_reason)
{
    sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    if (socket_path.size() >= sizeof(address.sun_path)) {
        *p_reason = "the path is too long for a socket";
        return false;
    }
    memcpy(address.sun_path, socket_path.data(), socket_path.size());
    p_client->fd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    const void *p_address = &address;
    if (p_client->fd >= 0 &&
        connect(p_client->fd, static_cast<const sockaddr *>(p_address), sizeof(address)) == 0)
        return true;
    *p_reason = strerror(errno);
    return false;
}

// ---- Bytes ----

static bool bytes_send(int fd, std::string_view bytes)
{
    while (!bytes.empty()) {
        ssize_t sent = send(fd, bytes.data(), bytes.size(), MSG_NOSIGNAL);
        if (sent < 0 && errno != EINTR)
            return false;
        bytes.remove_prefix(sent > 0 ? static_cast<size_t>(sent) : 0);
    }
    return true;
}

static bool bytes_receive(int fd, void *p_bytes, size_t size)
{
    char *p_next = static_cast<char *>(p_bytes);
    while (size > 0) {
        ssize_t received = recv(fd, p_next, size, 0);
        if (received == 0 || (received < 0 && errno != EINTR))
            return false;
        size_t count = received > 0 ? static_cast<size_t>(received) : 0;
        p_next += count;
        size -= count;
    }
    return true;
}

static bool frame_receive(int fd, t_control_frame *p_frame)
{
    uint8_t bytes[CONTROL_HEADER_SIZE];
    t_control_header header;
    if (!bytes_receive(fd, bytes, sizeof(bytes)) || !control_header_read(bytes, &header))
        return false;
    p_frame->head.resize(header.head_size);
    p_frame->body.resize(header.body_size);
    return bytes_receive(fd, p_frame->head.data(), header.head_size) &&
           bytes_receive(fd, p_frame->body.data(), header.body_size);
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

t_cli_answer cli_client_call(t_cli_client *p_client, t_cli_json head, std::string_view body,
                             const t_cli_listener &listener)
{
    head["id"] = ++p_client->last_id;
    std::string text = head.dump(-1, ' ', false, t_cli_json::error_handler_t::replace);
    if (text.size() > CONTROL_MAX_HEAD || body.size() > CONTROL_MAX_BODY)
        return lost("the request is too large");
    // A peer that is refused may find the socket closed for writing and still has its answer to read.
    bool sent = bytes_send(p_client->fd, control_frame_bytes(text, body));
    t_control_frame frame;
    while (frame_receive(p_client->fd, &frame)) {
        t_cli_json answer = t_cli_json::parse(frame.head, nullptr, false);
        if (!answer.is_object())
            return lost("the daemon's answer makes no sense");
        if (answer.value("more", t_cli_json()) != true)
            return answer_read(answer, frame.body);
        more_tell(answer, frame.body, listener);
    }
    return lost(sent ? "the daemon has closed the connection" : "the daemon does not take the request");
}
