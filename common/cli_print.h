// Where dumps print: an operator's session or standard output.
//
// A dump gets the adapter's context and the session id of the operator who asked for it. With a context each
// piece of text goes to that session through the function that the management adapter registers; without one
// (tools, tests) it goes to standard output. Main thread only.
#pragma once

#include <cstdarg>

struct t_lconfd_context;

// Prints one piece of formatted text to a session.
using f_cli_vprint = void (*)(t_lconfd_context *ctx, int usid, const char *format, va_list args);

// Names the road to the sessions; null takes it back, and text for a session is then dropped.
void cli_print_register(f_cli_vprint print);

__attribute__((format(printf, 3, 4))) void cli_print(t_lconfd_context *ctx, int usid, const char *format,
                                                     ...);
