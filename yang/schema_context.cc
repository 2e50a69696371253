#include "yang/schema_index.h"

#include <libyang/libyang.h>

static constexpr const char *module_names[] = {
    "lumora-types",  "lumora-policy",   "lumora-vpn",     "lumora-system",    "lumora-snmp",
    "lumora-debugs", "lumora-access",   "lumora-actions", "lumora-app-route", "lumora-bfd",
    "lumora-bridge", "lumora-hardware", "lumora-omp",     "lumora-security",
};

const std::span<const char *const> g_schema_module_names = module_names;

void t_schema_context_deleter::operator()(ly_ctx *p_ctx) const
{
    ly_ctx_destroy(p_ctx);
}

bool schema_modules_load(ly_ctx *p_ctx, std::string *p_error)
{
    for (const char *name : module_names) {
        if (ly_ctx_load_module(p_ctx, name, nullptr, nullptr) != nullptr)
            continue;
        const char *reason = ly_errmsg(p_ctx);
        *p_error = std::string(name) + ": " + (reason != nullptr ? reason : "can't be loaded");
        return false;
    }
    return true;
}

schema_context_ptr schema_context_new(const std::string &folder, std::string *p_error)
{
    ly_ctx *p_ctx = nullptr;
    if (ly_ctx_new(folder.c_str(), LY_CTX_DISABLE_SEARCHDIR_CWD, &p_ctx) != LY_SUCCESS) {
        *p_error = folder + ": the YANG library can't be set up with this folder";
        return nullptr;
    }
    schema_context_ptr context(p_ctx);
    if (!schema_modules_load(p_ctx, p_error))
        return nullptr;
    return context;
}
