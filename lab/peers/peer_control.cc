#include "lab/peers/peer_control.h"
#include "lab/peers/peer_socket.h"

#include <algorithm>
#include <event2/buffer.h>
#include <event2/bufferevent.h>
#include <event2/listener.h>
#include <nlohmann/json.hpp>
#include <sstream>
#include <unistd.h>

using t_json = nlohmann::ordered_json;

static constexpr size_t max_line = 64 * 1024;  // bytes
static constexpr size_t max_unread = 1024 * 1024;
static constexpr size_t max_connections = 64;
static constexpr mode_t only_owner = 0600;

struct t_connection {
    t_peer_control *p_control;
    bufferevent *p_bev;
    bool is_ending;  // nothing more will be read
};

struct t_peer_control {
    event_base *p_base;
    std::string path;
    f_peer_control answer;
    void *p_user;
    evconnlistener *p_listener;
    std::vector<std::unique_ptr<t_connection>> connections;
};

// ---- Requests ----

t_json peer_control_refusal(const std::string &reason)
{
    return {{"ok", false}, {"error", reason}};
}

t_json peer_control_done()
{
    return {{"ok", true}};
}

t_peer_words peer_words_split(const std::string &line)
{
    std::istringstream stream(line);
    t_peer_words words;
    for (std::string word; stream >> word;)
        words.push_back(word);
    return words;
}

static t_json line_answer(const t_peer_control *p_control, const std::string &line)
{
    try {
        t_peer_words words = peer_words_split(line);
        std::erase(words, "--json");
        if (words.empty())
            return peer_control_refusal("no request");
        return p_control->answer(p_control->p_user, words);
    } catch (const std::exception &error) {
        return peer_control_refusal(error.what());
    }
}

static void answer_write(t_connection *p_connection, const t_json &answer)
{
    std::string line = answer.dump(-1, ' ', false, t_json::error_handler_t::replace) + '\n';
    bufferevent_write(p_connection->p_bev, line.data(), line.size());
}

// ---- Connections ----

static void connection_free(t_connection *p_connection)
{
    t_peer_control *p_control = p_connection->p_control;
    bufferevent_free(p_connection->p_bev);
    std::erase_if(p_control->connections,
                  [p_connection](const auto &item) { return item.get() == p_connection; });
}

static bool is_behind(const t_connection *p_connection)
{
    return evbuffer_get_length(bufferevent_get_output(p_connection->p_bev)) >= max_unread;
}

// Answers the lines that are there. A line without its end counts only at the end of the input.
static void lines_serve(t_connection *p_connection)
{
    evbuffer *p_input = bufferevent_get_input(p_connection->p_bev);
    while (!is_behind(p_connection)) {
        evbuffer_ptr end = evbuffer_search_eol(p_input, nullptr, nullptr, EVBUFFER_EOL_LF);
        size_t length = evbuffer_get_length(p_input);
        size_t size = end.pos >= 0 ? static_cast<size_t>(end.pos) : length;
        if (size > max_line) {
            answer_write(p_connection, peer_control_refusal("the line is too long"));
            evbuffer_drain(p_input, length);
            p_connection->is_ending = true;
            return;
        }
        if (end.pos < 0 && (size == 0 || !p_connection->is_ending))
            return;
        std::string line(size, '\0');
        evbuffer_remove(p_input, line.data(), size);
        evbuffer_drain(p_input, 1);
        answer_write(p_connection, line_answer(p_connection->p_control, line));
    }
}

static void connection_advance(t_connection *p_connection)
{
    lines_serve(p_connection);
    if (p_connection->is_ending || is_behind(p_connection))
        bufferevent_disable(p_connection->p_bev, EV_READ);
    else
        bufferevent_enable(p_connection->p_bev, EV_READ);
    if (p_connection->is_ending && evbuffer_get_length(bufferevent_get_output(p_connection->p_bev)) == 0)
        connection_free(p_connection);
}

static void on_ready(bufferevent *, void *p_arg)
{
    connection_advance(static_cast<t_connection *>(p_arg));
}

static void on_event(bufferevent *, short what, void *p_arg)
{
    t_connection *p_connection = static_cast<t_connection *>(p_arg);
    if (what & BEV_EVENT_ERROR)
        return connection_free(p_connection);
    if (what & BEV_EVENT_EOF) {
        p_connection->is_ending = true;
        connection_advance(p_connection);
    }
}

static void on_accept(evconnlistener *, evutil_socket_t fd, sockaddr *, int, void *p_arg)
{
    t_peer_control *p_control = static_cast<t_peer_control *>(p_arg);
    bufferevent *p_bev = p_control->connections.size() < max_connections
                             ? bufferevent_socket_new(p_control->p_base, fd, BEV_OPT_CLOSE_ON_FREE)
                             : nullptr;
    if (p_bev == nullptr) {
        close(fd);
        return;
    }
    auto connection = std::make_unique<t_connection>(
        t_connection{.p_control = p_control, .p_bev = p_bev, .is_ending = false});
    bufferevent_setcb(p_bev, on_ready, on_ready, on_event, connection.get());
    bufferevent_enable(p_bev, EV_READ | EV_WRITE);
    p_control->connections.push_back(std::move(connection));
}

// ---- Listening ----

peer_control_ptr peer_control_open(event_base *p_base, const std::string &path, f_peer_control answer,
                                   void *p_user, std::string *p_error)
{
    int fd = peer_socket_bind(path, only_owner, p_error);
    if (fd < 0)
        return nullptr;
    peer_control_ptr control(new t_peer_control{.p_base = p_base,
                                                .path = path,
                                                .answer = answer,
                                                .p_user = p_user,
                                                .p_listener = nullptr,
                                                .connections = {}});
    control->p_listener = evconnlistener_new(p_base, on_accept, control.get(),
                                             LEV_OPT_CLOSE_ON_FREE | LEV_OPT_CLOSE_ON_EXEC, -1, fd);
    if (control->p_listener != nullptr)
        return control;
    close(fd);
    *p_error = path + ": no listener";
    return nullptr;
}

void t_peer_control_deleter::operator()(t_peer_control *p_control) const
{
    while (!p_control->connections.empty())
        connection_free(p_control->connections.back().get());
    if (p_control->p_listener != nullptr)
        evconnlistener_free(p_control->p_listener);
    unlink(p_control->path.c_str());
    delete p_control;
}
