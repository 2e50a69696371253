// Requests to the management daemon's server, behind the handshake. The input's first byte is the kind of
// connection; then come frames: op (2 bytes), size (2 bytes), body. Op 0 commits a change instead, so that
// subscribers have something to read. Whatever is asked, the server stays, and the connection's end leaves
// nothing behind.

#include "mgmtd/ipc/ipc_server.h"

#include <arpa/inet.h>
#include <csignal>
#include <cstdlib>
#include <event2/event.h>
#include <filesystem>
#include <sys/socket.h>
#include <unistd.h>

static void require(bool holds)
{
    if (!holds)
        abort();
}

namespace {

struct t_target {
    schema_context_ptr context;
    std::unique_ptr<const t_schema_index> index;
    event_base *p_base = event_base_new();
    std::string folder;
    mgmt_engine_ptr engine;
    ipc_server_ptr server;
    uint32_t session;
    bool has_zone = false;

    t_target();
    ~t_target();
    void turn(int rounds);
    void commit();
};

}  // namespace

t_target::t_target()
{
    std::string error;
    std::vector<std::string> errors;
    t_mgmt_error reason;
    char path[] = "/tmp/ipc-server-fuzz-XXXXXX";
    require(mkdtemp(path) != nullptr);
    signal(SIGPIPE, SIG_IGN);
    folder = path;
    context = schema_context_new(FUZZ_YANG_FOLDER, &error);
    require(context != nullptr);
    index = schema_index_new(context.get(), &errors);
    engine = mgmt_engine_new(p_base, index.get(), context.get(), {.store_folder = folder, .now_ms = nullptr},
                             &reason);
    require(engine != nullptr);
    server = ipc_server_open(p_base, engine.get(), {.port = 0, .secret = ""}, &error);
    require(server != nullptr);
    session = mgmt_session_open(engine.get(), {.name = "fuzz", .context = "cli"});
}

t_target::~t_target()
{
    server.reset();
    engine.reset();
    event_base_free(p_base);
    std::filesystem::remove_all(folder);
}

void t_target::turn(int rounds)
{
    for (int i = 0; i < rounds; i++)
        event_base_loop(p_base, EVLOOP_NONBLOCK);
}

void t_target::commit()
{
    std::vector<t_mgmt_edit> edits;
    t_mgmt_error error;
    const char *text = has_zone
                           ? R"([{"op":"remove","path":"/policy/zone{a}"}])"
                           : R"([{"op":"merge","path":"/policy/zone{a}","value":{"vpn":[{"vpn-id":1}]}}])";
    require(mgmt_edit_read_json(*index, text, &edits, &error));
    has_zone = !has_zone;
    mgmt_edit(engine.get(), session, std::move(edits), [](const t_mgmt_error &) {});
    mgmt_commit(engine.get(), session,
                {.comment = "", .progress = nullptr, .done = [](const t_mgmt_commit_result &) {}});
    turn(4);
}

// A client that sends what it is told and reads nothing but to keep the stream going.
struct t_client {
    t_target *p_target;
    int fd;

    void send(const t_ipc_frame &frame)
    {
        std::vector<uint8_t> bytes = ipc_frame_bytes(frame);
        static_cast<void>(::send(fd, bytes.data(), bytes.size(), MSG_NOSIGNAL | MSG_DONTWAIT));
        p_target->turn(2);
        uint8_t sink[65536];
        while (recv(fd, sink, sizeof(sink), MSG_DONTWAIT) > 0)
            p_target->turn(1);
    }
};

static t_ipc_frame request(uint16_t op, uint32_t id, std::vector<uint8_t> body)
{
    return {.op = op, .kind = IPC_KIND_REQUEST, .id = id, .status = 0, .body = std::move(body)};
}

static void play(t_client *p_client, std::span<const uint8_t> input)
{
    uint8_t kind = static_cast<uint8_t>(1 + input[0] % 7);
    t_ipc_hello hello = {
        .version = IPC_VERSION, .conn = kind, .daemon = "f", .daemon_id = 0, .flags = 0, .pid = 1};
    p_client->send(request(IPC_OP_HELLO, 1, ipc_encode(hello)));
    p_client->send(request(IPC_OP_PROOF, 2, ipc_encode(t_ipc_proof{""})));
    input = input.subspan(1);
    for (uint32_t id = 3; input.size() >= 4 && id < 40; id++) {
        uint16_t op = static_cast<uint16_t>(input[0] << 8 | input[1]);
        size_t size = std::min<size_t>(static_cast<size_t>(input[2] << 8 | input[3]), input.size() - 4);
        if (op == 0)
            p_client->p_target->commit();
        else
            p_client->send(
                request(op, id, {input.begin() + 4, input.begin() + 4 + static_cast<ptrdiff_t>(size)}));
        input = input.subspan(4 + size);
    }
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *p_data, size_t size)
{
    static t_target target;
    if (size == 0)
        return 0;
    sockaddr_in address = {};
    address.sin_family = AF_INET;
    address.sin_port = htons(ipc_server_port(*target.server));
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    t_client client = {.p_target = &target, .fd = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)};
    require(connect(client.fd, reinterpret_cast<sockaddr *>(&address), sizeof(address)) == 0);
    play(&client, std::span(p_data, size));
    close(client.fd);
    for (int i = 0; i < 100000 && ipc_server_connections(*target.server) > 0; i++)
        target.turn(1);
    require(ipc_server_connections(*target.server) == 0);
    return 0;
}
