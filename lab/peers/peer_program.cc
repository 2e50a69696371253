#include "lab/peers/peer_program.h"

#include <cstdarg>
#include <cstdio>

static const char *g_log_name = "peer";

peer_event_ptr peer_signal_watch(event_base *p_base, int number, event_callback_fn callback, void *p_arg)
{
    peer_event_ptr watch(evsignal_new(p_base, number, callback, p_arg));
    if (watch != nullptr)
        event_add(watch.get(), nullptr);
    return watch;
}

void peer_on_signal_end(evutil_socket_t, short, void *p_base)
{
    event_base_loopbreak(static_cast<event_base *>(p_base));
}

void peer_log_name(const char *name)
{
    g_log_name = name;
}

void peer_log(const char *format, ...)
{
    va_list arguments;
    va_start(arguments, format);
    printf("%s: ", g_log_name);
    vprintf(format, arguments);
    putchar('\n');
    va_end(arguments);
    fflush(stdout);
}
