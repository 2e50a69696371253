#include "platform/confd/double/confd_double.h"

#include "platform/confd/confd_cdb.h"
#include "platform/confd/confd_maapi.h"
#include "platform/confd/double/confd_double_private.h"

#include <algorithm>
#include <arpa/inet.h>
#include <cstdio>
#include <cstring>
#include <map>
#include <memory>
#include <utility>

struct confd_type {
    std::vector<std::string> texts;
};

static constexpr int failure_errno = 16;  // of every call that is made to fail

namespace {

struct t_double {
    std::vector<t_confd_call> calls;
    std::map<int, std::string> cli_text;
    std::map<std::string, int16_t> int16_values;
    std::map<std::string, std::string> text_values;
    std::map<std::string, int> failures;
    int last_errno;
    std::map<std::pair<uint32_t, std::string>, std::unique_ptr<confd_type>> types;
};

}  // namespace

// Never destroyed, so that calls at process end find it.
static t_double &state()
{
    static t_double &instance = *new t_double();
    return instance;
}

// Records a call; true when it is to fail.
static bool record(const char *function, int sock, const std::string &text)
{
    state().calls.push_back({function, sock, text});
    auto failure = state().failures.find(function);
    if (failure == state().failures.end() || failure->second == 0)
        return false;
    failure->second--;
    state().last_errno = failure_errno;
    return true;
}

// Paths are formats too, but not printf's; those that come here hold only what both know.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
static std::string formatted(const char *fmt, va_list args)
{
    va_list again;
    va_copy(again, args);
    int length = vsnprintf(nullptr, 0, fmt, args);
    std::string text(length > 0 ? static_cast<size_t>(length) : 0, '\0');
    vsnprintf(text.data(), text.size() + 1, fmt, again);
    va_end(again);
    return text;
}
#pragma GCC diagnostic pop

bool confd_double_record(const char *function, int sock, const std::string &text)
{
    return record(function, sock, text);
}

std::string confd_double_formatted(const char *fmt, va_list args)
{
    return formatted(fmt, args);
}

bool confd_double_text(const std::string &path, std::string *p_text)
{
    auto found = state().text_values.find(path);
    if (found != state().text_values.end())
        *p_text = found->second;
    return found != state().text_values.end();
}

void confd_double_reset()
{
    state() = {};
}

const std::vector<t_confd_call> &confd_double_calls()
{
    return state().calls;
}

std::string confd_double_cli_text(int usess)
{
    auto found = state().cli_text.find(usess);
    return found == state().cli_text.end() ? std::string() : found->second;
}

void confd_double_set_int16(const std::string &path, int16_t value)
{
    state().int16_values[path] = value;
}

void confd_double_set_text(const std::string &path, const std::string &value)
{
    state().text_values[path] = value;
}

void confd_double_fail(const std::string &function, int count)
{
    state().failures[function] = count;
}

void confd_double_add_type(uint32_t nshash, const std::string &name, const std::vector<std::string> &texts)
{
    state().types[{nshash, name}] = std::make_unique<confd_type>(confd_type{texts});
}

int maapi_cli_vprintf(int sock, int usess, const char *fmt, va_list args)
{
    std::string text = formatted(fmt, args);
    if (record("maapi_cli_printf", sock, text))
        return CONFD_ERR;
    state().cli_text[usess] += text;
    return CONFD_OK;
}

int maapi_cli_printf(int sock, int usess, const char *fmt, ...)
{
    va_list args;
    va_start(args, fmt);
    int result = maapi_cli_vprintf(sock, usess, fmt, args);
    va_end(args);
    return result;
}

int *confd_errno_location()
{
    return &state().last_errno;
}

const char *confd_strerror(int code)
{
    return code == 0 ? "no error" : "scripted error";
}

const char *confd_lasterr()
{
    return "";
}

int cdb_connect(int sock, cdb_sock_type, const struct sockaddr *srv, int srv_sz)
{
    sockaddr_in address = {};
    memcpy(&address, srv, std::min(sizeof(address), static_cast<size_t>(srv_sz)));
    char host[INET_ADDRSTRLEN] = "";
    inet_ntop(AF_INET, &address.sin_addr, host, sizeof(host));
    std::string server = std::string(host) + ":" + std::to_string(ntohs(address.sin_port));
    return record("cdb_connect", sock, server) ? CONFD_ERR : CONFD_OK;
}

int cdb_start_session2(int sock, cdb_db_type, int)
{
    return record("cdb_start_session2", sock, "") ? CONFD_ERR : CONFD_OK;
}

int cdb_end_session(int sock)
{
    return record("cdb_end_session", sock, "") ? CONFD_ERR : CONFD_OK;
}

int cdb_get_int16(int sock, int16_t *rval, const char *fmt, ...)
{
    va_list args;
    va_start(args, fmt);
    std::string path = formatted(fmt, args);
    va_end(args);
    auto found = state().int16_values.find(path);
    if (record("cdb_get_int16", sock, path) || found == state().int16_values.end())
        return CONFD_ERR;
    *rval = found->second;
    return CONFD_OK;
}

static std::string key_text(const confd_value_t &key)
{
    switch (key.type) {
    case C_BUF:
        return {reinterpret_cast<const char *>(key.val.buf.ptr), key.val.buf.size};
    case C_UINT64:
        return std::to_string(key.val.u64);
    case C_ENUM_VALUE:
        return std::to_string(key.val.enumvalue);
    default:
        return "?";
    }
}

// Only keys are filled in, each a %x.
static std::string path_of_keys(const char *fmt, va_list args)
{
    std::string path = fmt;
    for (size_t at = path.find("%x"); at != std::string::npos; at = path.find("%x", at))
        path.replace(at, 2, key_text(*va_arg(args, const confd_value_t *)));
    return path;
}

int cdb_get_str(int sock, char *rval, int n, const char *fmt, ...)
{
    va_list args;
    va_start(args, fmt);
    std::string path = path_of_keys(fmt, args);
    va_end(args);
    auto found = state().text_values.find(path);
    if (record("cdb_get_str", sock, path) || found == state().text_values.end())
        return CONFD_ERR;
    snprintf(rval, static_cast<size_t>(n), "%s", found->second.c_str());
    return CONFD_OK;
}

confd_type *confd_find_ns_type(uint32_t nshash, const char *name)
{
    auto found = state().types.find({nshash, name});
    if (record("confd_find_ns_type", -1, name) || found == state().types.end())
        return nullptr;
    return found->second.get();
}

int confd_val2str(confd_type *type, const confd_value_t *val, char *buf, size_t bufsiz)
{
    bool known = type != nullptr && val->type == C_ENUM_VALUE && val->val.enumvalue >= 0 &&
                 static_cast<size_t>(val->val.enumvalue) < type->texts.size();
    if (record("confd_val2str", -1, "") || !known)
        return CONFD_ERR;
    return snprintf(buf, bufsiz, "%s", type->texts[static_cast<size_t>(val->val.enumvalue)].c_str());
}
