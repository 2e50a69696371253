// Sessions with the datastore and with an operator's transaction, and registering. Numbers that are read come
// from confd_double_set_text; what a process links but does not call in tests fails.
#include "platform/confd/confd_cdb.h"
#include "platform/confd/confd_dp.h"
#include "platform/confd/confd_maapi.h"
#include "platform/confd/double/confd_double_private.h"

#include <cstdlib>

static std::string g_place;  // of cdb_cd

static int recorded(const char *function, int sock, const std::string &text)
{
    return confd_double_record(function, sock, text) ? CONFD_ERR : CONFD_OK;
}

#define FORMATTED(variable, fmt)                                                                             \
    va_list variable##_args;                                                                                 \
    va_start(variable##_args, fmt);                                                                          \
    std::string variable = confd_double_formatted(fmt, variable##_args);                                     \
    va_end(variable##_args)

// ---- The datastore ----

int cdb_start_session(int sock, cdb_db_type)
{
    g_place.clear();
    return recorded("cdb_start_session", sock, "");
}

int cdb_num_instances(int sock, const char *fmt, ...)
{
    FORMATTED(path, fmt);
    std::string count;
    if (recorded("cdb_num_instances", sock, path) != CONFD_OK || !confd_double_text(path, &count))
        return CONFD_ERR;
    return atoi(count.c_str());
}

int cdb_cd(int sock, const char *fmt, ...)
{
    FORMATTED(path, fmt);
    g_place = path;
    return recorded("cdb_cd", sock, path);
}

int cdb_get_u_int32(int sock, uint32_t *rval, const char *fmt, ...)
{
    FORMATTED(path, fmt);
    std::string number;
    path = g_place + "/" + path;
    if (recorded("cdb_get_u_int32", sock, path) != CONFD_OK || !confd_double_text(path, &number))
        return CONFD_ERR;
    *rval = static_cast<uint32_t>(strtoul(number.c_str(), nullptr, 10));
    return CONFD_OK;
}

int cdb_vget(int sock, confd_value_t *, const char *, va_list)
{
    confd_double_record("cdb_vget", sock, "");
    return CONFD_ERR;
}

// ---- Transactions ----

int maapi_attach(int sock, int, confd_trans_ctx *ctx)
{
    return recorded("maapi_attach", sock, std::to_string(ctx->thandle));
}

int maapi_detach(int sock, confd_trans_ctx *ctx)
{
    return recorded("maapi_detach", sock, std::to_string(ctx->thandle));
}

int maapi_set_elem(int sock, int, confd_value_t *v, const char *fmt, ...)
{
    FORMATTED(path, fmt);
    std::string value = v->type == C_UINT32 ? std::to_string(v->val.u32) : "?";
    return recorded("maapi_set_elem", sock, path + " = " + value);
}

int maapi_set_elem2(int sock, int, const char *strval, const char *fmt, ...)
{
    FORMATTED(path, fmt);
    return recorded("maapi_set_elem2", sock, path + " = " + strval);
}

int maapi_vget_elem(int sock, int, confd_value_t *, const char *, va_list)
{
    confd_double_record("maapi_vget_elem", sock, "");
    return CONFD_ERR;
}

int maapi_init_cursor(int sock, int, maapi_cursor *, const char *, ...)
{
    confd_double_record("maapi_init_cursor", sock, "");
    return CONFD_ERR;
}

int maapi_get_next(maapi_cursor *mc)
{
    confd_double_record("maapi_get_next", mc->sock, "");
    return CONFD_ERR;
}

void maapi_destroy_cursor(maapi_cursor *mc)
{
    confd_double_record("maapi_destroy_cursor", mc->sock, "");
}

// ---- Registering, values ----

int confd_register_data_cb(confd_daemon_ctx *, const confd_data_cbs *data)
{
    return recorded("confd_register_data_cb", -1, data->callpoint);
}

// Values in tests own nothing.
void confd_free_value(confd_value_t *v)
{
    v->type = C_NOEXISTS;
}
