// The rpcs of the model: clear, debug, dump.

#include "mgmtd/rpc/mgmt_rpc_private.h"

#include <algorithm>
#include <new>

static bool is_control(char letter)
{
    bool is_blank = letter == '\n' || letter == '\t' || letter == '\r';
    return static_cast<unsigned char>(letter) < ' ' && !is_blank;
}

// A leaf of the output. A daemon may print anything, XML holds neither control characters nor broken UTF-8.
static void output_put(lyd_node *p_operation, const t_schema_node &leaf, std::string text)
{
    const lys_module *p_module = leaf.yang->module;
    std::ranges::replace_if(text, is_control, '?');
    if (lyd_new_term(p_operation, p_module, leaf.yang->name, text.c_str(), 1, nullptr) == LY_SUCCESS)
        return;
    std::ranges::replace_if(
        text, [](char letter) { return (letter & 0x80) != 0; }, '?');
    lyd_new_term(p_operation, p_module, leaf.yang->name, text.c_str(), 1, nullptr);
}

// What the action gives back, and what it prints, in the output's leaf "text".
static lyd_ptr output_make(const rpc_call_ptr &call, const t_schema_node &rpc,
                           const t_mgmt_action_result &result, const std::string &printed)
{
    lyd_node *p_operation = nullptr;
    if (lyd_dup_single(call->input.get(), nullptr, 0, &p_operation) != LY_SUCCESS)
        throw std::bad_alloc();
    lyd_ptr output(p_operation);
    bool has_text = false;
    for (const t_mgmt_action_value &value : result.values) {
        output_put(p_operation, *value.schema, value.text);
        has_text = has_text || value.schema->name == "text";
    }
    auto leaf = std::ranges::find(rpc.outputs, "text", &t_schema_node::name);
    if (!printed.empty() && !has_text && leaf != rpc.outputs.end())
        output_put(p_operation, **leaf, printed);
    return output;
}

static void action_end(const rpc_call_ptr &call, const t_schema_node &rpc, const t_mgmt_action_result &result,
                       const std::string &printed)
{
    if (result.error.code != MGMT_OK)
        return rpc_fail_engine(call, result.error);
    lyd_ptr output = output_make(call, rpc, result, printed);
    if (lyd_child(output.get()) == nullptr)
        return rpc_ok(call);
    t_mgmt_rpc_reply made;
    made.kind = MGMT_RPC_DATA;
    made.data = std::move(output);
    rpc_reply(call, std::move(made));
}

void rpc_action(const rpc_call_ptr &call)
{
    t_mgmt_engine *p_engine = call->p_session->p_engine;
    const t_schema_index &index = mgmt_engine_schema(*p_engine);
    const t_schema_node *p_rpc = schema_node_of(index, call->input->schema);
    if (p_rpc == nullptr || p_rpc->kind != SCHEMA_KIND_RPC || p_rpc->actionpoint.empty())
        return rpc_fail(
            call, rpc_error("protocol", "operation-not-supported",
                            std::string(call->input->schema->name) + ": nothing serves this operation"));
    auto printed = std::make_shared<std::string>();
    t_mgmt_action_request request;
    request.p_rpc = p_rpc;
    for (const lyd_node *p_leaf = lyd_child(call->input.get()); p_leaf != nullptr; p_leaf = p_leaf->next) {
        const t_schema_node *p_schema = schema_node_of(index, p_leaf->schema);
        if (p_schema != nullptr && lyd_get_value(p_leaf) != nullptr)
            request.input.push_back({p_schema, lyd_get_value(p_leaf)});
    }
    request.output = [printed](std::string_view text) { *printed += text; };
    request.done = [call, p_rpc, printed](const t_mgmt_action_result &result) {
        action_end(call, *p_rpc, result, *printed);
    };
    mgmt_action(p_engine, call->p_session->session, std::move(request));
}
