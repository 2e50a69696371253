// get-schema (RFC 6022): the text of a module or submodule, as the context has it.

#include "mgmtd/rpc/mgmt_rpc_private.h"

struct t_text_deleter {
    void operator()(char *p_text) const
    {
        free(p_text);
    }
};
using text_ptr = std::unique_ptr<char, t_text_deleter>;

static text_ptr module_print(const lys_module *p_module)
{
    char *p_text = nullptr;
    lys_print_mem(&p_text, p_module, LYS_OUT_YANG, 0);
    return text_ptr(p_text);
}

static text_ptr submodule_print(const lysp_submodule *p_submodule)
{
    char *p_text = nullptr;
    ly_out *p_out = nullptr;
    if (ly_out_new_memory(&p_text, 0, &p_out) != LY_SUCCESS)
        return nullptr;
    lys_print_submodule(p_out, p_submodule, LYS_OUT_YANG, 0, 0);
    ly_out_free(p_out, nullptr, 0);
    return text_ptr(p_text);
}

// Names with several revisions in the context: *p_count is their number.
static const lys_module *module_find(const ly_ctx *p_context, const std::string &name,
                                     const lyd_node *p_version, size_t *p_count)
{
    const lys_module *p_found = nullptr;
    uint32_t position = 0;
    *p_count = 0;
    while (const lys_module *p_module = ly_ctx_get_module_iter(p_context, &position)) {
        std::string_view revision(p_module->revision != nullptr ? p_module->revision : "");
        if (name != p_module->name || (p_version != nullptr && revision != lyd_get_value(p_version)))
            continue;
        p_found = p_module;
        ++*p_count;
    }
    return p_found;
}

static text_ptr schema_print(const ly_ctx *p_context, const std::string &name, const lyd_node *p_version,
                             size_t *p_count)
{
    const lys_module *p_module = module_find(p_context, name, p_version, p_count);
    if (p_module != nullptr)
        return module_print(p_module);
    std::string revision = p_version != nullptr ? lyd_get_value(p_version) : "";
    const lysp_submodule *p_submodule =
        p_version != nullptr
            ? ly_ctx_get_submodule(p_context, name.c_str(), revision.empty() ? nullptr : revision.c_str())
            : ly_ctx_get_submodule_latest(p_context, name.c_str());
    return p_submodule != nullptr ? submodule_print(p_submodule) : nullptr;
}

void rpc_get_schema(const rpc_call_ptr &call)
{
    std::string name = rpc_leaf(call->input.get(), "identifier");
    std::string format = rpc_leaf(call->input.get(), "format");
    const lyd_node *p_version = rpc_child(call->input.get(), "version");
    size_t count = 0;
    if (!format.empty() && format != "ietf-netconf-monitoring:yang")
        return rpc_fail(call,
                        rpc_error_element("invalid-value", "format", "schemas come in the format yang only"));
    text_ptr text = schema_print(mgmt_engine_context(*call->p_session->p_engine), name, p_version, &count);
    if (count > 1) {
        t_mgmt_rpc_error error =
            rpc_error("application", "operation-failed", "schema " + name + ": there are several versions");
        error.app_tag = "data-not-unique";
        return rpc_fail(call, std::move(error));
    }
    if (text != nullptr)
        return rpc_data_text(call, text.get());
    std::string version =
        p_version != nullptr ? std::string(" of version \"") + lyd_get_value(p_version) + '"' : "";
    rpc_fail(call, rpc_error_element("invalid-value", "identifier", "there is no schema " + name + version));
}
