// Replies of the operations as the library's, and errors that the library does not see.

#include "mgmtd/netconf/netconf_private.h"

#include <libyang/libyang.h>
#include <nc_server.h>

static constexpr const char *base_ns = "urn:ietf:params:xml:ns:netconf:base:1.0";

static lyd_node *element_add(const ly_ctx *p_context, lyd_node *p_parent, const char *name,
                             const std::string &value)
{
    lyd_node *p_node = nullptr;
    if (lyd_new_opaq2(p_parent, p_context, name, value.empty() ? nullptr : value.c_str(), nullptr, base_ns,
                      &p_node) != LY_SUCCESS)
        return nullptr;
    return p_node;
}

// RFC 6241, 4.3: in this order.
static lyd_node *error_make(const ly_ctx *p_context, const t_mgmt_rpc_error &error)
{
    lyd_node *p_error = element_add(p_context, nullptr, "rpc-error", "");
    if (p_error == nullptr)
        return nullptr;
    element_add(p_context, p_error, "error-type", error.type);
    element_add(p_context, p_error, "error-tag", error.tag);
    element_add(p_context, p_error, "error-severity", "error");
    if (!error.app_tag.empty())
        element_add(p_context, p_error, "error-app-tag", error.app_tag);
    if (!error.path.empty())
        element_add(p_context, p_error, "error-path", error.path);
    lyd_node *p_message =
        error.message.empty() ? nullptr : element_add(p_context, p_error, "error-message", error.message);
    if (p_message != nullptr)
        lyd_new_attr(p_message, nullptr, "xml:lang", "en", nullptr);
    lyd_node *p_info = error.info.empty() ? nullptr : element_add(p_context, p_error, "error-info", "");
    for (const auto &[name, value] : error.info)
        if (p_info != nullptr)
            element_add(p_context, p_info, name.c_str(), value);
    return p_error;
}

static nc_server_reply *errors_make(const ly_ctx *p_context, const std::vector<t_mgmt_rpc_error> &errors)
{
    nc_server_reply *p_reply = nullptr;
    for (const t_mgmt_rpc_error &error : errors) {
        lyd_node *p_error = error_make(p_context, error);
        if (p_error == nullptr)
            continue;
        if (p_reply == nullptr)
            p_reply = nc_server_reply_err(p_error);
        else
            nc_server_reply_add_err(p_reply, p_error);
    }
    return p_reply;
}

nc_server_reply *netconf_reply_make(const ly_ctx *p_context, t_mgmt_rpc_reply reply)
{
    if (reply.kind == MGMT_RPC_ERRORS)
        return errors_make(p_context, reply.errors);
    if (reply.kind == MGMT_RPC_OK || reply.data == nullptr)
        return nc_server_reply_ok();
    return nc_server_reply_data(reply.data.release(), static_cast<NC_WD_MODE>(reply.with_defaults),
                                NC_PARAMTYPE_FREE);
}

// ---- Refusals ----

struct t_refusal_words {
    const char *tag;
    const char *message;
};

static t_refusal_words refusal_words(e_netconf_refusal reason)
{
    switch (reason) {
    case NETCONF_TOO_DEEP:
        return {"too-big", "the rpc's elements are nested too deeply"};
    case NETCONF_TOO_MANY:
        return {"too-big", "the rpc has too many elements"};
    case NETCONF_TOO_LONG:
        return {"too-big", "an attribute of the rpc is too long"};
    case NETCONF_DOCUMENT_TYPE:
        return {"operation-failed", "the rpc declares a document type, which NETCONF does not have"};
    case NETCONF_NOT_WELL_FORMED:
        return {"operation-failed", "the message is no well-formed XML"};
    case NETCONF_NO_ROOM:
        return {"resource-denied", "other sessions' large rpcs take all the room: try again"};
    default:
        return {"too-big", "the rpc is too large: divide it"};
    }
}

std::string netconf_refusal_text(const t_netconf_refused &refused)
{
    t_refusal_words words = refusal_words(refused.reason);
    std::string id = refused.message_id.empty() ? "" : " message-id=\"" + refused.message_id + "\"";
    return std::string("<rpc-reply xmlns=\"") + base_ns + "\"" + id + "><rpc-error>" +
           "<error-type>rpc</error-type><error-tag>" + words.tag + "</error-tag>" +
           "<error-severity>error</error-severity>" + "<error-message xml:lang=\"en\">" + words.message +
           "</error-message></rpc-error></rpc-reply>";
}
