#include "lab/control/lab_control.h"

#include "common/unix_socket.h"
#include "lab/control/lab_program.h"

#include <algorithm>
#include <event2/buffer.h>
#include <event2/bufferevent.h>
#include <event2/listener.h>
#include <nlohmann/json.hpp>
#include <poll.h>
#include <sstream>
#include <unistd.h>

static constexpr size_t max_line_of_words = 64 * 1024;  // bytes
static constexpr size_t max_unread = 1024 * 1024;       // bytes of answers
static constexpr size_t max_connections = 64;
static constexpr int requests_a_turn = 16;
static constexpr mode_t only_owner = 0600;

namespace {

struct t_connection {
    t_lab_control *p_control;
    bufferevent *p_bev;
    lab_event_ptr step;  // goes on with the job and requests in the loop's next turn
    f_lab_job job;       // the request in work, or none
    bool is_ending;      // nothing more will be read
};

}  // namespace

struct t_lab_control {
    event_base *p_base;
    std::string path;
    t_lab_line_server server;
    evconnlistener *p_listener;
    std::vector<std::unique_ptr<t_connection>> connections;
};

// ---- Answers ----

static void text_write(t_connection *p_connection, const std::string &text)
{
    bufferevent_write(p_connection->p_bev, text.data(), text.size());
}

static void step_schedule(t_connection *p_connection)
{
    static constexpr timeval at_once = {};  // a timer, so that the loop looks at the sockets in between
    event_add(p_connection->step.get(), &at_once);
}

static void line_serve(t_connection *p_connection, std::string_view line)
{
    t_lab_reply reply = p_connection->p_control->server.answer(line);
    p_connection->job = std::move(reply.job);
    if (p_connection->job)
        return step_schedule(p_connection);
    text_write(p_connection, reply.text);
}

// Runs a slice of the job. False when it has ended and was answered.
static bool job_continue(t_connection *p_connection)
{
    std::string text;
    if (!p_connection->job(&text))
        return true;
    text_write(p_connection, text);
    p_connection->job = nullptr;
    return false;
}

// ---- Connections ----

static void connection_free(t_connection *p_connection)
{
    std::vector<std::unique_ptr<t_connection>> &all = p_connection->p_control->connections;
    bufferevent_free(p_connection->p_bev);
    std::erase_if(all, [p_connection](const auto &item) { return item.get() == p_connection; });
}

// Takes the next line of the input. The last one may lack its line end.
static bool line_take(t_connection *p_connection, std::string *p_line)
{
    size_t max_line = p_connection->p_control->server.max_line;
    evbuffer *p_input = bufferevent_get_input(p_connection->p_bev);
    evbuffer_ptr end = evbuffer_search_eol(p_input, nullptr, nullptr, EVBUFFER_EOL_LF);
    size_t size = end.pos >= 0 ? static_cast<size_t>(end.pos) : evbuffer_get_length(p_input);
    if (end.pos < 0 && (size == 0 || (!p_connection->is_ending && size <= max_line)))
        return false;
    p_line->resize(std::min(size, max_line + 1));
    evbuffer_remove(p_input, p_line->data(), p_line->size());
    if (end.pos >= 0)
        evbuffer_drain(p_input, 1);
    return true;
}

static void refuse_long_line(t_connection *p_connection)
{
    text_write(p_connection, p_connection->p_control->server.too_long);
    evbuffer *p_input = bufferevent_get_input(p_connection->p_bev);
    evbuffer_drain(p_input, evbuffer_get_length(p_input));
    p_connection->is_ending = true;
}

// Serves the lines that have come in, some of them a turn. False when it had to stop before the last one.
static bool lines_serve(t_connection *p_connection)
{
    std::string line;
    for (int served = 0; served < requests_a_turn; served++) {
        evbuffer *p_output = bufferevent_get_output(p_connection->p_bev);
        if (p_connection->job || evbuffer_get_length(p_output) >= max_unread)
            return false;  // the job's next step goes on, or what is written when the answers are taken
        if (!line_take(p_connection, &line))
            return true;
        if (line.ends_with('\r'))
            line.pop_back();
        if (line.size() > p_connection->p_control->server.max_line)
            refuse_long_line(p_connection);
        else
            line_serve(p_connection, line);
    }
    step_schedule(p_connection);
    return false;
}

// Serves what has come in and reads on only when all of it is served, so that a client can't fill the memory.
// Frees a connection that is at its end.
static void connection_advance(t_connection *p_connection)
{
    bool is_done = lines_serve(p_connection);
    if (is_done && !p_connection->is_ending)
        bufferevent_enable(p_connection->p_bev, EV_READ);
    else
        bufferevent_disable(p_connection->p_bev, EV_READ);
    evbuffer *p_output = bufferevent_get_output(p_connection->p_bev);
    if (is_done && p_connection->is_ending && evbuffer_get_length(p_output) == 0)
        connection_free(p_connection);
}

// Something was read, or all of the answers written.
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

// Whether the client has closed its socket; one that only shut down its sending side still waits for answers.
static bool is_gone(const t_connection *p_connection)
{
    pollfd item = {.fd = bufferevent_getfd(p_connection->p_bev), .events = 0, .revents = 0};
    return poll(&item, 1, 0) > 0 && (item.revents & (POLLHUP | POLLERR)) != 0;
}

static void on_step(evutil_socket_t, short, void *p_arg)
{
    t_connection *p_connection = static_cast<t_connection *>(p_arg);
    if (is_gone(p_connection))
        return connection_free(p_connection);
    if (p_connection->job && job_continue(p_connection))
        return step_schedule(p_connection);
    connection_advance(p_connection);
}

static void on_accept(evconnlistener *, evutil_socket_t fd, sockaddr *, int, void *p_arg)
{
    t_lab_control *p_control = static_cast<t_lab_control *>(p_arg);
    bufferevent *p_bev = p_control->connections.size() < max_connections
                             ? bufferevent_socket_new(p_control->p_base, fd, BEV_OPT_CLOSE_ON_FREE)
                             : nullptr;
    if (p_bev == nullptr) {
        close(fd);
        return;
    }
    auto connection = std::make_unique<t_connection>();
    connection->p_control = p_control;
    connection->p_bev = p_bev;
    connection->step.reset(event_new(p_control->p_base, -1, 0, on_step, connection.get()));
    if (connection->step == nullptr)
        return bufferevent_free(p_bev);
    bufferevent_setcb(p_bev, on_ready, on_ready, on_event, connection.get());
    bufferevent_enable(p_bev, EV_READ | EV_WRITE);
    p_control->connections.push_back(std::move(connection));
}

// ---- Listening ----

lab_control_ptr lab_control_open_lines(event_base *p_base, const std::string &path, t_lab_line_server server,
                                       std::string *p_error)
{
    int fd = unix_socket_bind(path, only_owner, p_error);
    if (fd < 0)
        return nullptr;
    lab_control_ptr control(new t_lab_control{.p_base = p_base,
                                              .path = path,
                                              .server = std::move(server),
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

void t_lab_control_deleter::operator()(t_lab_control *p_control) const
{
    while (!p_control->connections.empty())
        connection_free(p_control->connections.back().get());
    if (p_control->p_listener != nullptr)
        evconnlistener_free(p_control->p_listener);
    unlink(p_control->path.c_str());
    delete p_control;
}

// ---- Words ----

t_lab_words lab_words_split(const std::string &line)
{
    std::istringstream stream(line);
    t_lab_words words;
    for (std::string word; stream >> word;)
        words.push_back(word);
    return words;
}

static nlohmann::ordered_json words_answer(f_lab_answer answer, void *p_user, std::string_view line)
{
    try {
        t_lab_words words = lab_words_split(std::string(line));
        std::erase(words, "--json");
        return words.empty() ? lab_answer_refusal("no request") : answer(p_user, words);
    } catch (const std::exception &error) {
        return lab_answer_refusal(error.what());
    }
}

lab_control_ptr lab_control_open(event_base *p_base, const std::string &path, f_lab_answer answer,
                                 void *p_user, std::string *p_error)
{
    t_lab_line_server server = {
        .answer =
            [answer, p_user](std::string_view line) {
                return t_lab_reply{.text = lab_answer_line(words_answer(answer, p_user, line)) + '\n'};
            },
        .max_line = max_line_of_words,
        .too_long = lab_answer_line(lab_answer_refusal("the line is too long")) + '\n',
    };
    return lab_control_open_lines(p_base, path, std::move(server), p_error);
}
