#include "mgmtd/netconf/netconf_modules.h"

#include <libyang/libyang.h>

struct t_standard_module {
    const char *name;
    const char **p_features;  // null: none; ends with a null
};

static const char *netconf_features[] = {
    "candidate", "confirmed-commit", "rollback-on-error", "validate", "xpath", nullptr};

static const t_standard_module standard_modules[] = {
    {"ietf-netconf", netconf_features},
    {"ietf-netconf-monitoring", nullptr},
    {"ietf-netconf-with-defaults", nullptr},
    {"ietf-netconf-acm", nullptr},
    {"notifications", nullptr},
    {"nc-notifications", nullptr},
};

bool netconf_modules_load(ly_ctx *p_context, std::string *p_error)
{
    for (const t_standard_module &module : standard_modules) {
        if (ly_ctx_load_module(p_context, module.name, nullptr, module.p_features) != nullptr)
            continue;
        const char *reason = ly_errmsg(p_context);
        *p_error = std::string(module.name) + ": " + (reason != nullptr ? reason : "can't be loaded");
        return false;
    }
    return true;
}
