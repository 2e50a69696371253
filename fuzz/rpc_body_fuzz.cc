// The body of an rpc from anywhere: guarded and parsed as the transport does, and run with an engine. Each
// rpc is answered exactly once, an error has a tag and a message, and the candidate stays a tree that can be
// printed.

#include "mgmtd/netconf/netconf_guard.h"
#include "mgmtd/netconf/netconf_modules.h"
#include "mgmtd/rpc/mgmt_rpc.h"

#include <cstdlib>
#include <event2/event.h>
#include <filesystem>
#include <libyang/libyang.h>

static void require(bool holds)
{
    if (!holds)
        abort();
}

namespace {

struct World {
    World()
    {
        std::string reason;
        std::vector<std::string> reasons;
        t_mgmt_error error;
        char path[] = "/tmp/rpc-body-fuzz-XXXXXX";
        folder = mkdtemp(path);
        context = schema_context_new(YANG_MODULE_FOLDER, &reason);
        require(context != nullptr && netconf_modules_load(context.get(), &reason));
        index = schema_index_new(context.get(), &reasons);
        require(index != nullptr);
        p_base = event_base_new();
        t_mgmt_engine_options options;
        options.store_folder = folder;
        engine = mgmt_engine_new(p_base, index.get(), context.get(), options, &error);
        require(engine != nullptr);
    }

    ~World()
    {
        engine.reset();
        event_base_free(p_base);
        std::filesystem::remove_all(folder);
    }

    std::string folder;
    schema_context_ptr context;
    std::unique_ptr<const t_schema_index> index;
    event_base *p_base;
    mgmt_engine_ptr engine;
};

}  // namespace

static void reply_check(const t_mgmt_rpc_reply &reply)
{
    require((reply.kind == MGMT_RPC_ERRORS) == !reply.errors.empty());
    require((reply.kind == MGMT_RPC_DATA) == (reply.data != nullptr));
    for (const t_mgmt_rpc_error &error : reply.errors)
        require(!error.tag.empty() && !error.type.empty() && !error.message.empty());
    char *p_text = nullptr;
    if (reply.data != nullptr)
        require(lyd_print_mem(&p_text, reply.data.get(), LYD_XML, LYD_PRINT_WITHSIBLINGS) == LY_SUCCESS);
    free(p_text);
}

// What the transport makes of a message; empty for a refused one.
static std::string guarded(const std::string &message)
{
    std::atomic<size_t> budget = 0;
    t_netconf_guard guard(&budget);
    size_t taken = 0;
    netconf_guard_use_chunks(&guard);
    std::string framed = "\n#" + std::to_string(message.size()) + "\n" + message + "\n##\n";
    require(netconf_guard_feed(&guard, framed, &taken) == NETCONF_FEED_MESSAGE && taken == framed.size());
    return guard.refusal == NETCONF_ADMITTED ? guard.text : "";
}

static void message_run(World *p_world, const std::string &text)
{
    ly_in *p_in = nullptr;
    lyd_node *p_envelope = nullptr;
    lyd_node *p_rpc = nullptr;
    require(ly_in_new_memory(text.c_str(), &p_in) == LY_SUCCESS);
    LY_ERR result = lyd_parse_op(p_world->context.get(), nullptr, p_in, LYD_XML, LYD_TYPE_RPC_NETCONF,
                                 &p_envelope, &p_rpc);
    ly_in_free(p_in, 0);
    lyd_ptr envelope(p_envelope);
    lyd_ptr rpc(p_rpc);
    if (result != LY_SUCCESS || p_rpc == nullptr)
        return;
    size_t answers = 0;
    t_mgmt_rpc_stream stream = {.notify = [](lyd_ptr, const std::string &) {}};
    mgmt_rpc_session_ptr session =
        mgmt_rpc_session_open(p_world->engine.get(), "root", true, 1, std::move(stream));
    mgmt_rpc_run(session.get(), p_rpc, [&](t_mgmt_rpc_reply reply) {
        reply_check(reply);
        answers++;
    });
    for (int turns = 0; turns < 1000 && answers == 0; turns++)
        event_base_loop(p_world->p_base, EVLOOP_NONBLOCK);
    require(answers == 1);
}

// Each input meets the same empty candidate; a commit that it makes stays.
static void candidate_reset(World *p_world)
{
    bool is_done = false;
    uint32_t session = mgmt_session_open(p_world->engine.get(), {.name = "root", .context = "cli"});
    mgmt_discard(p_world->engine.get(), session, [&](const t_mgmt_error &) { is_done = true; });
    while (!is_done)
        event_base_loop(p_world->p_base, EVLOOP_NONBLOCK);
    mgmt_session_close(p_world->engine.get(), session);
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *p_data, size_t size)
{
    static World world;
    std::string body(reinterpret_cast<const char *>(p_data), size);
    body.resize(std::min(body.size(), body.find('\0')));
    std::string text =
        guarded("<rpc message-id=\"1\" xmlns=\"urn:ietf:params:xml:ns:netconf:base:1.0\">" + body + "</rpc>");
    if (text.empty())
        return 0;
    message_run(&world, text);
    candidate_reset(&world);
    return 0;
}
