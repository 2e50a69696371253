#include "mgmtd/store/mgmt_error.h"

#include <utility>

std::string mgmt_error_text(const t_mgmt_error &error)
{
    return error.path.empty() ? error.reason : error.path + ": " + error.reason;
}

bool mgmt_fail(t_mgmt_error *p_error, e_mgmt_error code, std::string path, std::string reason)
{
    *p_error = {code, std::move(path), std::move(reason)};
    return false;
}
