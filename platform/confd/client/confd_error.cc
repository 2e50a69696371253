#include "platform/confd/client/client_private.h"

#include <iterator>

namespace {

struct t_process {
    std::mutex lock;
    std::string name = "client";
    FILE *p_debug = nullptr;
};

}  // namespace

// Never destroyed, so that calls at process end find it.
static t_process &process()
{
    static t_process &instance = *new t_process();
    return instance;
}

static thread_local int last_errno;
static thread_local char last_text[512];

int confd_init_vsn_sz(const char *name, FILE *estream, confd_debug_level debug, int vsn, int maxdepth,
                      int maxkeylen)
{
    if (vsn != CONFD_LIB_VSN || maxdepth != MAXDEPTH || maxkeylen != MAXKEYLEN)
        return client_fail(CONFD_ERR_PROTOUSAGE, "Wrong library version 0x%x or sizes %d, %d", vsn, maxdepth,
                           maxkeylen);
    std::lock_guard guard(process().lock);
    process().name = name;
    process().p_debug = debug == CONFD_SILENT ? nullptr : estream;
    return CONFD_OK;
}

std::string client_process_name()
{
    std::lock_guard guard(process().lock);
    return process().name;
}

int *confd_errno_location()
{
    return &last_errno;
}

const char *confd_lasterr()
{
    return last_text;
}

const char *confd_strerror(int code)
{
    static const char *const texts[] = {
        "no error",
        "item does not exist",
        "item already exists",
        "access denied",
        "item is not writable",
        "wrong type of value",
        "item can't be created",
        "item can't be deleted",
        "bad path",
        "nothing to go back to",
        "locked",
        "in use",
        "value is not set",
        "values are not unique",
        "reference to nothing",
        "too few elements",
        "too many elements",
        "not possible in this state",
        "internal error",
        "error of a daemon's callback",
        "out of memory",
        "wrong use of the interface",
        "no session",
        "too many transactions",
        "error of the operating system",
    };
    bool is_known = code >= 0 && static_cast<size_t>(code) < std::size(texts);
    return is_known ? texts[code] : "unknown error";
}

std::string client_vformat(const char *fmt, va_list args)
{
    va_list again;
    va_copy(again, args);
    int length = vsnprintf(nullptr, 0, fmt, args);
    std::string text(length > 0 ? static_cast<size_t>(length) : 0, '\0');
    vsnprintf(text.data(), text.size() + 1, fmt, again);
    va_end(again);
    return text;
}

int client_fail(int code, const char *fmt, ...)
{
    va_list args;
    va_start(args, fmt);
    vsnprintf(last_text, sizeof(last_text), fmt, args);
    va_end(args);
    last_errno = code;
    std::lock_guard guard(process().lock);
    if (process().p_debug != nullptr)
        fprintf(process().p_debug, "%s: %s: %s\n", process().name.c_str(), confd_strerror(code), last_text);
    return CONFD_ERR;
}

int client_fail_gone()
{
    client_fail(CONFD_ERR_OS, "The connection to the management daemon is closed");
    return CONFD_EOF;
}
