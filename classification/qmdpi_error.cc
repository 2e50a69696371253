// The last error of each thread, and the texts of errors and exceptions.
#include "classification/qmdpi.h"
#include "classification/qmdpi_private.h"

static thread_local int last_error;

int qmdpi_fail(int code)
{
    last_error = code;
    return code;
}

int qmdpi_error_get()
{
    return last_error;
}

static const struct {
    int code;
    const char *text;
} errors[] = {
    {QMDPI_SUCCESS, "success"},
    {QMDPI_EINVAL, "invalid param"},
    {QMDPI_ENOSYS, "function not implemented"},
    {QMDPI_ENOMEM, "out of memory"},
    {QMDPI_EBUSY, "device or resource busy"},
    {QMDPI_EEXIST, "file already exists"},
    {QMDPI_ENOENT, "file does not exists"},
    {QMDPI_EPERM, "permission denied"},
    {QMDPI_ENODEFAULT, "default bundle not available"},
    {QMDPI_EDEFAULTLOADED, "default bundle already loaded"},
    {QMDPI_ELOAD, "generic bundle loading error"},
    {QMDPI_ENOSYMBOL, "ubundle_get symbol not found"},
    {QMDPI_ECALL, "ubundle_get call error"},
    {QMDPI_EUSED, "bundle already used"},
    {QMDPI_EINIT, "generic bundle initialization error"},
    {QMDPI_ENOSWAP, "bundle can't be swapped"},
    {QMDPI_EBADBUNDLE, "bad bundle provided"},
    {QMDPI_EOVERFLOW, "value too large"},
    {QMDPI_ENOTINIT, "module not initialized"},
    {QMDPI_EVERSION, "invalid bundle version"},
    {QMDPI_ENOFLOW, "flow could not be created"},
};

const char *qmdpi_error_get_string(qmdpi_bundle *, int code)
{
    for (const auto &error : errors)
        if (error.code == code)
            return error.text;
    return "unknown";
}

const char *qmdpi_exception_get_string(int exception_type)
{
    switch (exception_type) {
    case 0:
        return "Out of memory";
    case 2:
        return "too much CPUID allocated (>=CFG_SMP_CPUS)";
    case 3:
        return "flow path is full : cannot append new layer in path";
    case 4:
        return "inheritance parent key is too big";
    case 8:
        return "too many uapp_cnx attached to the dpi_flow (see external_max_tunnel params)";
    case 9:
        return "dpi_flow seems to be used on another cpu";
    default:
        return "unknown exception";
    }
}
