#include "tests/cli/scripted_daemon.h"

#include "mgmtd/control/control_frame.h"

#include <cstring>
#include <nlohmann/json.hpp>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

static bool receive(int fd, void *p_bytes, size_t size)
{
    return size == 0 || recv(fd, p_bytes, size, MSG_WAITALL) == static_cast<ssize_t>(size);
}

static bool request_take(t_scripted_daemon *p_daemon, int fd, std::string *p_id)
{
    uint8_t bytes[CONTROL_HEADER_SIZE];
    t_control_header header;
    if (!receive(fd, bytes, sizeof(bytes)) || !control_header_read(bytes, &header))
        return false;
    std::string head(header.head_size, 0);
    std::string body(header.body_size, 0);
    if (!receive(fd, head.data(), head.size()) || !receive(fd, body.data(), body.size()))
        return false;
    nlohmann::ordered_json json = nlohmann::ordered_json::parse(head);
    *p_id = json["id"].dump();
    json.erase("id");
    std::lock_guard guard(p_daemon->lock);
    p_daemon->came.push_back(json.dump() + (body.empty() ? "" : ' ' + body));
    return true;
}

static bool answer_give(t_scripted_daemon *p_daemon, int fd, const std::string &id)
{
    static const t_scripted_answer done = {{{R"({"id":ID,"ok":true})", ""}}};
    const t_scripted_answer &answer =
        p_daemon->next < p_daemon->script.size() ? p_daemon->script[p_daemon->next++] : done;
    for (auto [head, body] : answer.frames) {
        if (head.empty())
            return false;
        if (size_t at = head.find("ID"); at != std::string::npos)
            head.replace(at, 2, id);
        std::string bytes = control_frame_bytes(head, body);
        send(fd, bytes.data(), bytes.size(), MSG_NOSIGNAL);
    }
    return true;
}

static void serve(t_scripted_daemon *p_daemon)
{
    int fd;
    while ((fd = accept(p_daemon->listener, nullptr, nullptr)) >= 0) {
        std::string id;
        while (request_take(p_daemon, fd, &id) && answer_give(p_daemon, fd, id)) {
        }
        close(fd);
    }
}

t_scripted_daemon::t_scripted_daemon(const std::string &socket_path, std::vector<t_scripted_answer> answers)
    : path(socket_path), listener(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0)), script(std::move(answers))
{
    sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    memcpy(address.sun_path, path.data(), path.size());
    const void *p_address = &address;
    if (bind(listener, static_cast<const sockaddr *>(p_address), sizeof(address)) == 0 &&
        listen(listener, 4) == 0)
        server = std::thread(serve, this);
}

t_scripted_daemon::~t_scripted_daemon()
{
    shutdown(listener, SHUT_RDWR);
    if (server.joinable())
        server.join();
    close(listener);
    unlink(path.c_str());
}

std::vector<std::string> t_scripted_daemon::requests()
{
    std::lock_guard guard(lock);
    return came;
}
