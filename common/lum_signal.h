// What the daemons do on the signals that end a process.
//
// SIGTERM leaves with exit status 0. SIGHUP, SIGINT and SIGQUIT fail an assertion, so that the process dumps
// core: nobody sends them to a daemon without wanting to see where it stands. The handlers run in signal
// context on whatever thread gets the signal; exit(0) there runs the exit handlers, so no global may need
// destruction.
#pragma once

#include <csignal>

void lum_signal_install_term_handler();
void lum_signal_term_handler(int signal_number, siginfo_t *p_info, void *p_context);
void lum_signal_abort_handler(int signal_number, siginfo_t *p_info, void *p_context);

// Watch for signals from unexpected senders. Empty on this system; they stand here so that callers need no
// conditions.
void lum_signal_install_spurious_handler();
void lum_signal_spurious_check();
void lum_signal_spurious_handler(int signal_number, siginfo_t *p_info, void *p_context);
