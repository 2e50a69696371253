// What the lab's daemons have in common as programs: a loop that ends by a signal, and a log.
#pragma once

#include <event2/event.h>
#include <memory>

struct t_peer_event_deleter {
    void operator()(event_base *p_base) const
    {
        event_base_free(p_base);
    }
    void operator()(event *p_event) const
    {
        event_free(p_event);
    }
};
using peer_base_ptr = std::unique_ptr<event_base, t_peer_event_deleter>;
using peer_event_ptr = std::unique_ptr<event, t_peer_event_deleter>;

// A pending event for the signal; null when memory is out.
peer_event_ptr peer_signal_watch(event_base *p_base, int number, event_callback_fn callback, void *p_arg);

// A callback for peer_signal_watch that ends the loop of the base given as its argument.
void peer_on_signal_end(evutil_socket_t number, short what, void *p_base);

// A line on standard output, flushed: the program's name, set once, and the text.
void peer_log_name(const char *name);
[[gnu::format(printf, 1, 2)]] void peer_log(const char *format, ...);
