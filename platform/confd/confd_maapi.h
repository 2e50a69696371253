// The management framework's client interface: management sessions. See confd_lib.h.
#pragma once

#include "platform/confd/confd_lib.h"

#include <cstdarg>

// Prints to the terminal of a user's session. CONFD_OK or CONFD_ERR.
__attribute__((format(printf, 3, 4))) int maapi_cli_printf(int sock, int usess, const char *fmt, ...);
__attribute__((format(printf, 3, 0))) int maapi_cli_vprintf(int sock, int usess, const char *fmt,
                                                            va_list args);
