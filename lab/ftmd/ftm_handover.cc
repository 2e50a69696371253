#include "lab/ftmd/ftm_handover.h"

#include "common/unix_socket.h"
#include "lab/control/lab_answer.h"
#include "lab/control/lab_program.h"

#include <cstdlib>
#include <event2/buffer.h>
#include <event2/bufferevent.h>
#include <nlohmann/json.hpp>
#include <string_view>

static constexpr timeval retry_interval = {0, 500000};
static constexpr timeval burst_interval = {0, 20000};
static constexpr size_t max_answer = 64 * 1024;  // bytes; who sends more isn't a forwarding plane

struct t_ftm_handover {
    event_base *p_base;
    std::string path;
    f_ftm_bindings bindings;
    void *p_user;
    lab_event_ptr retry;  // pending while not connected
    lab_event_ptr burst;  // pending while a change waits for more of them
    bufferevent *p_bev;   // null while not connected
    bool is_answer_due;
    bool is_changed;      // since the table was sent on this connection
    std::string refusal;  // the last one, if the last answer was one
    t_ftm_handover_stats stats;
};

// ---- Sending ----

static void table_send(t_ftm_handover *p_handover)
{
    nlohmann::ordered_json request = {{"request", "bindings"}};
    request.update(fp_bindings_json(p_handover->bindings(p_handover->p_user)));
    std::string line = lab_answer_line(request) + '\n';
    bufferevent_write(p_handover->p_bev, line.data(), line.size());
    p_handover->is_changed = false;
    p_handover->is_answer_due = true;
    p_handover->stats.sent++;
}

static void on_burst(evutil_socket_t, short, void *p_arg)
{
    t_ftm_handover *p_handover = static_cast<t_ftm_handover *>(p_arg);
    if (p_handover->p_bev != nullptr && p_handover->is_changed && !p_handover->is_answer_due)
        table_send(p_handover);
}

void ftm_handover_change(t_ftm_handover *p_handover)
{
    p_handover->is_changed = true;
    if (!event_pending(p_handover->burst.get(), EV_TIMEOUT, nullptr))
        event_add(p_handover->burst.get(), &burst_interval);
}

// ---- The connection ----

static void connection_end(t_ftm_handover *p_handover)
{
    if (p_handover->p_bev != nullptr)
        bufferevent_free(p_handover->p_bev);
    p_handover->p_bev = nullptr;
    p_handover->stats.is_connected = false;
    event_add(p_handover->retry.get(), &retry_interval);
}

// A refusal is logged once, however often it is repeated.
static void refusal_note(t_ftm_handover *p_handover, std::string_view line)
{
    p_handover->stats.refused++;
    if (p_handover->refusal == line)
        return;
    p_handover->refusal = line;
    lab_log("the forwarding plane refuses the bindings: %s", p_handover->refusal.c_str());
}

static void answer_take(t_ftm_handover *p_handover, std::string_view line)
{
    if (line.empty())
        return;
    p_handover->is_answer_due = false;
    nlohmann::json answer = nlohmann::json::parse(line, nullptr, false);
    if (answer.is_object() && answer.contains("ok") && answer["ok"] == true)
        p_handover->refusal.clear();
    else
        refusal_note(p_handover, line);
}

static void on_read(bufferevent *p_bev, void *p_arg)
{
    t_ftm_handover *p_handover = static_cast<t_ftm_handover *>(p_arg);
    evbuffer *p_input = bufferevent_get_input(p_bev);
    size_t size;
    while (char *p_line = evbuffer_readln(p_input, &size, EVBUFFER_EOL_LF)) {
        answer_take(p_handover, {p_line, size});
        free(p_line);
    }
    if (evbuffer_get_length(p_input) > max_answer)
        return connection_end(p_handover);
    if (p_handover->is_changed && !p_handover->is_answer_due)
        ftm_handover_change(p_handover);
}

static void on_event(bufferevent *, short, void *p_arg)
{
    connection_end(static_cast<t_ftm_handover *>(p_arg));
}

static void on_retry(evutil_socket_t, short, void *p_arg)
{
    t_ftm_handover *p_handover = static_cast<t_ftm_handover *>(p_arg);
    int fd = unix_socket_connect(p_handover->path);
    if (fd < 0)
        return connection_end(p_handover);
    p_handover->p_bev = bufferevent_socket_new(p_handover->p_base, fd, BEV_OPT_CLOSE_ON_FREE);
    if (p_handover->p_bev == nullptr) {
        evutil_closesocket(fd);
        return connection_end(p_handover);
    }
    bufferevent_setcb(p_handover->p_bev, on_read, nullptr, on_event, p_handover);
    bufferevent_enable(p_handover->p_bev, EV_READ | EV_WRITE);
    p_handover->stats.is_connected = true;
    p_handover->stats.connections++;
    table_send(p_handover);
}

// ---- The whole ----

ftm_handover_ptr ftm_handover_open(event_base *p_base, const std::string &path, f_ftm_bindings bindings,
                                   void *p_user)
{
    static constexpr timeval at_once = {};
    ftm_handover_ptr handover(new t_ftm_handover());
    handover->p_base = p_base;
    handover->path = path;
    handover->bindings = bindings;
    handover->p_user = p_user;
    handover->retry.reset(evtimer_new(p_base, on_retry, handover.get()));
    handover->burst.reset(evtimer_new(p_base, on_burst, handover.get()));
    if (handover->retry == nullptr || handover->burst == nullptr)
        return nullptr;
    event_add(handover->retry.get(), &at_once);
    return handover;
}

void t_ftm_handover_deleter::operator()(t_ftm_handover *p_handover) const
{
    if (p_handover->p_bev != nullptr)
        bufferevent_free(p_handover->p_bev);
    delete p_handover;
}

t_ftm_handover_stats ftm_handover_stats(const t_ftm_handover *p_handover)
{
    return p_handover->stats;
}
