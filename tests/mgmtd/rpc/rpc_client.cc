#include "tests/mgmtd/rpc/rpc_client.h"

#include "mgmtd/netconf/netconf_modules.h"

#include <gtest/gtest.h>
#include <libyang/libyang.h>

// store-test has what the product's model has no example of: lists in the user's order.
static bool modules_load(ly_ctx *p_context, std::string *p_error)
{
    ly_ctx_set_searchdir(p_context, STORE_TEST_FOLDER);
    return ly_ctx_load_module(p_context, "store-test", nullptr, nullptr) != nullptr &&
           netconf_modules_load(p_context, p_error);
}

static const bool modules_are_set = (TestWorld::load_more = modules_load) != nullptr;

static std::string without(std::string text, const std::string &part)
{
    for (size_t at = text.find(part); at != std::string::npos; at = text.find(part, at))
        text.erase(at, part.size());
    return text;
}

static std::string print(const lyd_node *p_node, uint32_t options)
{
    char *p_text = nullptr;
    lyd_print_mem(&p_text, p_node, LYD_XML, LYD_PRINT_SHRINK | options);
    std::string text = p_text != nullptr ? p_text : "";
    free(p_text);
    for (const char *name : {"store-test", "policy", "system", "debugs"})
        text = without(text, std::string(" xmlns=\"urn:lumora:yang:") + name + '"');
    return without(text, " xmlns=\"urn:ietf:params:xml:ns:netconf:base:1.0\"");
}

static std::string reply_text(const t_mgmt_rpc_reply &reply, std::string *p_message)
{
    static constexpr uint32_t modes[] = {LYD_PRINT_WD_EXPLICIT, LYD_PRINT_WD_ALL, LYD_PRINT_WD_ALL_TAG,
                                         LYD_PRINT_WD_TRIM, LYD_PRINT_WD_EXPLICIT};
    std::string text = reply.kind == MGMT_RPC_OK ? "ok" : "";
    if (reply.kind == MGMT_RPC_DATA)
        text = print(lyd_child(reply.data.get()), LYD_PRINT_WITHSIBLINGS | modes[reply.with_defaults]);
    for (const t_mgmt_rpc_error &error : reply.errors) {
        EXPECT_FALSE(error.message.empty());
        *p_message = error.message;
        text += error.tag + (error.app_tag.empty() ? "" : " " + error.app_tag);
        text += error.path.empty() ? "" : " " + error.path;
        for (const auto &[name, value] : error.info)
            text.append(" ").append(name).append("=").append(value);
    }
    return text;
}

RpcClient::RpcClient(TestWorld *p_its_world, const std::string &user, uint32_t netconf_id,
                     const mgmt_rpc_server_ptr &server)
    : p_world(p_its_world)
{
    t_mgmt_rpc_stream stream = {.notify = [this](lyd_ptr notification, const std::string &time) {
        EXPECT_EQ(time.size(), std::string("2024-01-15T10:00:00Z").size() + (time.size() > 20 ? 7 : 0));
        told.push_back(print(notification.get(), 0));
    }};
    session =
        mgmt_rpc_session_open(p_world->engine.get(), user, user == "root", netconf_id, std::move(stream));
    if (server != nullptr)
        mgmt_rpc_session_join(session.get(), server);
}

void RpcClient::start(const std::string &operation)
{
    std::string text =
        "<rpc message-id=\"1\" xmlns=\"urn:ietf:params:xml:ns:netconf:base:1.0\">" + operation + "</rpc>";
    const ly_ctx *p_context = mgmt_engine_context(*p_world->engine);
    ly_in *p_in = nullptr;
    lyd_node *p_envelope = nullptr;
    lyd_node *p_rpc = nullptr;
    ASSERT_EQ(ly_in_new_memory(text.c_str(), &p_in), LY_SUCCESS);
    LY_ERR result =
        lyd_parse_op(p_context, nullptr, p_in, LYD_XML, LYD_TYPE_RPC_NETCONF, &p_envelope, &p_rpc);
    ly_in_free(p_in, 0);
    lyd_ptr envelope(p_envelope);
    std::shared_ptr<lyd_node> rpc(p_rpc, t_lyd_deleter());
    ASSERT_EQ(result, LY_SUCCESS) << ly_errmsg(p_context) << "\n" << text;
    answer.reset();
    mgmt_rpc_run(session.get(), p_rpc, [this, rpc](t_mgmt_rpc_reply reply) {
        EXPECT_FALSE(answer.has_value()) << "an rpc ends once";
        answer = reply_text(reply, &message);
    });
}

std::string RpcClient::call(const std::string &operation)
{
    start(operation);
    EXPECT_TRUE(p_world->until([&] { return answer.has_value(); })) << operation;
    return answer.value_or("no answer");
}

std::string RpcClient::edit(const std::string &content, const std::string &options)
{
    return call(
        "<edit-config><target><candidate/></target>" + options +
        "<config xmlns:nc=\"urn:ietf:params:xml:ns:netconf:base:1.0\" "
        "xmlns:yang=\"urn:ietf:params:xml:ns:yang:1\"><store-test xmlns=\"urn:lumora:yang:store-test\">" +
        content + "</store-test></config></edit-config>");
}

std::string RpcClient::content(const std::string &datastore)
{
    std::string text = call("<get-config><source><" + datastore +
                            "/></source><filter><store-test xmlns=\"urn:lumora:yang:store-test\"/></filter>"
                            "</get-config>");
    return without(without(without(text, "<data>"), "</data>"), "<data/>");
}

RpcWorld::RpcWorld() : server(mgmt_rpc_server_new(nullptr))
{
    EXPECT_TRUE(modules_are_set);
    EXPECT_EQ(edit(R"([{"op":"merge","path":"/","value":{"lumora-system:users":{"user":[
        {"name":"ro","group":"read-only"},{"name":"op","group":"operator"},{"name":"ad","group":"admin"}]}}}])")
                  .code,
              MGMT_OK);
    EXPECT_EQ(commit().error.code, MGMT_OK);
}
