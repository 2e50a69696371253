// The management framework's client interface: management sessions and transactions. See confd_lib.h; paths
// are formats as in confd_cdb.h.
#pragma once

#include "platform/confd/confd_dp.h"
#include "platform/confd/confd_lib.h"

#include <cstdarg>

int maapi_connect(int sock, const struct sockaddr *srv, int srv_sz);

// Ends the protocol on a socket. The descriptor stays open and is the caller's to close.
int maapi_close(int sock);

// Blocks until the framework has reached start phase 1 (schema and store loaded) or 2 (running).
int maapi_wait_start(int sock, int phase);

// Keys for encrypted leaves. The data model has none; the call only checks that the framework is there.
int maapi_install_crypto_keys(int sock);

// Makes a callback's transaction usable on this socket; reads and writes then name its thandle.
int maapi_attach(int sock, int hashed_ns, confd_trans_ctx *ctx);
int maapi_detach(int sock, confd_trans_ctx *ctx);

// set_elem2 takes the value's text, which is parsed by the leaf's type.
int maapi_set_elem(int sock, int thandle, confd_value_t *v, const char *fmt, ...);
int maapi_set_elem2(int sock, int thandle, const char *strval, const char *fmt, ...);

// The value is the caller's: confd_free_value.
int maapi_get_elem(int sock, int thandle, confd_value_t *v, const char *fmt, ...);
int maapi_vget_elem(int sock, int thandle, confd_value_t *v, const char *fmt, va_list args);

// A walk over a list's entries. After maapi_get_next, n is the number of keys, 0 at the end; the keys are
// good until the next call. maapi_destroy_cursor frees them.
struct maapi_cursor {
    confd_value_t keys[MAXKEYLEN];
    int n;
    int sock;
    int thandle;
    char *path;
};

int maapi_init_cursor(int sock, int thandle, maapi_cursor *mc, const char *fmt, ...);
int maapi_get_next(maapi_cursor *mc);
void maapi_destroy_cursor(maapi_cursor *mc);

// Prints to the terminal of a user's session, without waiting for an answer.
__attribute__((format(printf, 3, 4))) int maapi_cli_printf(int sock, int usess, const char *fmt, ...);
__attribute__((format(printf, 3, 0))) int maapi_cli_vprintf(int sock, int usess, const char *fmt,
                                                            va_list args);
