#include "common/lum_signal.h"

#include "common/lum_assert.h"

#include <cstdlib>
#include <initializer_list>

using f_signal_action = void (*)(int signal_number, siginfo_t *p_info, void *p_context);

static void install(int signal_number, f_signal_action handler)
{
    struct sigaction action = {};
    action.sa_sigaction = handler;
    action.sa_flags = SA_SIGINFO;
    sigaction(signal_number, &action, nullptr);
}

void lum_signal_install_term_handler()
{
    install(SIGTERM, lum_signal_term_handler);
    for (int signal_number : {SIGHUP, SIGINT, SIGQUIT})
        install(signal_number, lum_signal_abort_handler);
}

void lum_signal_term_handler(int, siginfo_t *, void *)
{
    exit(0);
}

void lum_signal_abort_handler(int, siginfo_t *, void *)
{
    LUM_ASSERT(false, "0");
}

void lum_signal_install_spurious_handler() {}

void lum_signal_spurious_check() {}

void lum_signal_spurious_handler(int, siginfo_t *, void *) {}
