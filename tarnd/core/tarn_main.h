// The process: entry, start-up, event loop, stop.
//
// Parts come up one after the other, each finished before the next begins; when one fails, those that are up
// are taken down by hand, in an order of its own for each failing step, and its status is the exit status.
// After start-up everything runs as callbacks of one libevent loop on the main thread, where a 10 ms timer
// pumps all of the daemon's timers. SIGUSR1 toggles debugging, SIGUSR2 stops in order.
#pragma once

#include "tarnd/core/tarn.h"

// What start-up reports, beside the numbers that the parts report themselves.
inline constexpr int TARN_INIT_NO_MEMORY = 12;
inline constexpr int TARN_INIT_NO_SIGNAL = 5;
inline constexpr int TARN_INIT_NO_SYSMGR = -10;

extern uint8_t run_foreground;
extern char g_hostname[128];
extern char g_progname[];

// The whole life of the daemon; the result is the exit status.
int appmain(int argc, char **argv);

// -f runs in the foreground; anything unknown prints the usage and ends the process with 1.
void tarn_set_config_params(int argc, char **argv);

// Starts all parts: 0, or the status of the one that failed, with everything taken down again.
int tarn_init(t_tarn *p_tarn);

// Takes all parts down: 0.
int tarn_destroy(t_tarn *p_tarn);

// The event base with its two priorities and the signal events: 0, 12 or 5.
int tarn_event_create(t_tarn *p_tarn);
void tarn_event_destroy(t_tarn *p_tarn);

// The timer manager and the libevent timer that pumps it: 0 or 12.
int tarn_base_timer_init(t_tarn *p_tarn);
void tarn_base_timer_destroy(t_tarn *p_tarn);

// libevent callbacks; arg is the t_tarn.
void tarn_base_timer_cb(int fd, short what, void *arg);
void tarn_usr1_signal(int fd, short what, void *arg);
void tarn_usr2_signal(int fd, short what, void *arg);

// Reverses a text in place; null is allowed.
void str_reverse(char *text);
