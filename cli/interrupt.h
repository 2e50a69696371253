// Ctrl-C of a session at a terminal: it ends what a command prints or waits for, not the program.
//
// Before cli_interrupt_install the signal ends the program as usual, and nothing here ever tells of one.
#pragma once

#include <cstdint>

// Takes the signal over. False with errno.
[[nodiscard]] bool cli_interrupt_install();

// Whether it has come since it was forgotten.
bool cli_interrupted();
void cli_interrupt_forget();

// Waits until a descriptor has the poll(2) events, or for the signal: false then, and on errors. The
// descriptor's own errors and ends count as events.
[[nodiscard]] bool cli_wait(int fd, short events);

// Waits so long. False as soon as the signal comes.
[[nodiscard]] bool cli_wait_ms(int64_t time_ms);
