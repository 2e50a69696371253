#include "lab/fp/fp_control.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <event2/buffer.h>
#include <event2/bufferevent.h>
#include <event2/event.h>
#include <event2/listener.h>
#include <nlohmann/json.hpp>
#include <poll.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>
#include <vector>

static constexpr size_t max_line = 4 * 1024 * 1024;   // bytes, without the line end; a large table is one
static constexpr size_t max_unread = 1024 * 1024;     // bytes of answers
static constexpr size_t max_connections = 64;         // further ones are closed at once
static constexpr uint32_t replay_slice_frames = 512;  // in one turn of the loop
static constexpr int requests_a_turn = 16;
static constexpr int listen_backlog = 16;

struct t_connection {
    t_fp_control *p_control;
    bufferevent *p_bev;
    event *p_step;         // goes on with replay and requests in the loop's next turn
    fp_replay_ptr replay;  // in work, or null
    bool replay_json;      // form of its answer
    bool is_ending;        // nothing more will be read
};

struct t_fp_control {
    event_base *p_base;
    t_fp_service *p_service;
    std::string path;
    evconnlistener *p_listener;
    std::vector<std::unique_ptr<t_connection>> connections;
};

// ---- Answers ----

static void answer_write(t_connection *p_connection, const fp_json &answer, bool json)
{
    std::string text = (json ? fp_answer_line(answer) : fp_answer_text(answer)) + '\n';
    bufferevent_write(p_connection->p_bev, text.data(), text.size());
}

static void step_schedule(t_connection *p_connection)
{
    static constexpr timeval at_once = {};  // a timer, so that the loop looks at the sockets in between
    event_add(p_connection->p_step, &at_once);
}

static void request_serve(t_connection *p_connection, std::string_view line)
{
    t_fp_service *p_service = p_connection->p_control->p_service;
    t_fp_request request = {};
    std::string error;
    bool holds = fp_request_parse(line, &request, &error);
    if (holds && request.kind == FP_REQUEST_REPLAY) {
        p_connection->replay = fp_replay_start(p_service, request, &error);
        p_connection->replay_json = request.json;
        if (p_connection->replay != nullptr)
            return step_schedule(p_connection);
        holds = false;
    }
    answer_write(p_connection, holds ? fp_service_answer(p_service, request) : fp_answer_error(error),
                 request.json);
}

// No exception goes through the event loop; what can come up here is a lack of memory.
static void line_serve(t_connection *p_connection, std::string_view line)
{
    try {
        request_serve(p_connection, line);
    } catch (const std::exception &error) {
        answer_write(p_connection, fp_answer_error(error.what()), line.starts_with('{'));
    }
}

// ---- Connections ----

static void connection_free(t_connection *p_connection)
{
    std::vector<std::unique_ptr<t_connection>> &all = p_connection->p_control->connections;
    bufferevent_free(p_connection->p_bev);
    event_free(p_connection->p_step);
    std::erase_if(all, [p_connection](const auto &item) { return item.get() == p_connection; });
}

// Takes the next line of the input. The last one may lack its line end.
static bool line_take(t_connection *p_connection, std::string *p_line)
{
    evbuffer *p_input = bufferevent_get_input(p_connection->p_bev);
    evbuffer_ptr end = evbuffer_search_eol(p_input, nullptr, nullptr, EVBUFFER_EOL_LF);
    size_t size = end.pos >= 0 ? static_cast<size_t>(end.pos) : evbuffer_get_length(p_input);
    if (end.pos < 0 && (size == 0 || (!p_connection->is_ending && size <= max_line)))
        return false;
    p_line->resize(std::min(size, max_line + 1));
    evbuffer_remove(p_input, p_line->data(), p_line->size());
    if (end.pos >= 0)
        evbuffer_drain(p_input, 1);
    if (p_line->ends_with('\r'))
        p_line->pop_back();
    return true;
}

static void refuse_long_line(t_connection *p_connection)
{
    answer_write(p_connection, fp_answer_error("the line is too long"), false);
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
        if (p_connection->replay != nullptr || evbuffer_get_length(p_output) >= max_unread)
            return false;  // the replay's next step goes on, or what is written when the answers are taken
        if (!line_take(p_connection, &line))
            return true;
        if (line.size() > max_line)
            refuse_long_line(p_connection);
        else if (!line.empty())
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

static void on_read(bufferevent *, void *p_arg)
{
    connection_advance(static_cast<t_connection *>(p_arg));
}

static void on_written(bufferevent *, void *p_arg)
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

// Runs a slice of the replay. False when it has ended and was answered.
static bool replay_continue(t_connection *p_connection)
{
    try {
        if (fp_replay_step(p_connection->replay.get(), replay_slice_frames))
            return true;
        answer_write(p_connection, fp_replay_answer(p_connection->replay.get()), p_connection->replay_json);
    } catch (const std::exception &error) {
        answer_write(p_connection, fp_answer_error(error.what()), p_connection->replay_json);
    }
    p_connection->replay.reset();
    return false;
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
    if (p_connection->replay != nullptr && replay_continue(p_connection))
        return step_schedule(p_connection);
    connection_advance(p_connection);
}

static void on_accept(evconnlistener *, evutil_socket_t fd, sockaddr *, int, void *p_arg)
{
    t_fp_control *p_control = static_cast<t_fp_control *>(p_arg);
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
    connection->p_step = event_new(p_control->p_base, -1, 0, on_step, connection.get());
    if (connection->p_step == nullptr)
        return bufferevent_free(p_bev);
    bufferevent_setcb(p_bev, on_read, on_written, on_event, connection.get());
    bufferevent_enable(p_bev, EV_READ | EV_WRITE);
    p_control->connections.push_back(std::move(connection));
}

// ---- Listening ----

static bool refuse(const std::string &path, const char *reason, std::string *p_error)
{
    *p_error = path + ": " + reason;
    return false;
}

static int stream_socket()
{
    return socket(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
}

// Connects and closes again.
static bool is_served(const sockaddr_un &address)
{
    int fd = stream_socket();
    const void *p_address = &address;
    bool connected = fd >= 0 && connect(fd, static_cast<const sockaddr *>(p_address), sizeof(address)) == 0;
    bool is_busy = !connected && errno == EAGAIN;
    close(fd);
    return connected || is_busy;
}

// Makes the path free for a socket. False with the reason.
static bool path_clear(const sockaddr_un &address, std::string *p_error)
{
    struct stat status;
    if (lstat(address.sun_path, &status) != 0)
        return true;
    if (!S_ISSOCK(status.st_mode))
        return refuse(address.sun_path, "there is something else than a socket", p_error);
    if (is_served(address))
        return refuse(address.sun_path, "another process serves this socket", p_error);
    return unlink(address.sun_path) == 0 || refuse(address.sun_path, strerror(errno), p_error);
}

static bool address_fill(const std::string &path, sockaddr_un *p_address, std::string *p_error)
{
    *p_address = {};
    p_address->sun_family = AF_UNIX;
    if (path.empty() || path.size() >= sizeof(p_address->sun_path))
        return refuse(path, "the path is empty or too long for a socket", p_error);
    memcpy(p_address->sun_path, path.data(), path.size());
    return true;
}

// A bound socket, or -1 with the reason.
static int socket_bind(const std::string &path, std::string *p_error)
{
    sockaddr_un address;
    if (!address_fill(path, &address, p_error) || !path_clear(address, p_error))
        return -1;
    int fd = stream_socket();
    const void *p_address = &address;
    mode_t mask = umask(0177);
    int result = bind(fd, static_cast<const sockaddr *>(p_address), sizeof(address));
    int reason = errno;
    umask(mask);
    if (result == 0)
        return fd;
    close(fd);
    refuse(path, strerror(reason), p_error);
    return -1;
}

bool fp_control_path_clear(const std::string &path, std::string *p_error)
{
    sockaddr_un address;
    return address_fill(path, &address, p_error) && path_clear(address, p_error);
}

fp_control_ptr fp_control_open(event_base *p_base, t_fp_service *p_service, const std::string &path,
                               std::string *p_error)
{
    int fd = socket_bind(path, p_error);
    if (fd < 0)
        return nullptr;
    fp_control_ptr control(new t_fp_control());
    control->p_base = p_base;
    control->p_service = p_service;
    control->path = path;
    control->p_listener = evconnlistener_new(
        p_base, on_accept, control.get(), LEV_OPT_CLOSE_ON_FREE | LEV_OPT_CLOSE_ON_EXEC, listen_backlog, fd);
    if (control->p_listener != nullptr)
        return control;
    close(fd);
    refuse(path, "no listener", p_error);
    return nullptr;
}

void t_fp_control_deleter::operator()(t_fp_control *p_control) const
{
    while (!p_control->connections.empty())
        connection_free(p_control->connections.back().get());
    if (p_control->p_listener != nullptr)
        evconnlistener_free(p_control->p_listener);
    unlink(p_control->path.c_str());
    delete p_control;
}
